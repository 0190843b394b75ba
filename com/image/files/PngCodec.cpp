#include "com/image/files/PngCodec.h"

#include <png.h>

#include <bit>
#include <cstdio>
#include <cstring>
#include <new>

#include "com/image/files/PlaneRows.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

namespace {

constexpr uint8_t kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
// No chunk that libpng keeps in memory may take more than this.
constexpr png_alloc_size_t kChunkLimit = 8u << 20;
// The ancillary chunks libpng knows. None of them changes the pixels read (transparency is
// dropped anyway), so all are skipped unread, as unknown ones are: libpng only warns
// about an oversized text chunk and then allocates its claimed length.
constexpr png_byte kIgnoredChunks[] = "bKGD\0cHRM\0eXIf\0gAMA\0hIST\0iCCP\0iTXt\0oFFs\0pCAL\0pHYs\0sBIT\0sCAL\0"
                                      "sPLT\0sRGB\0tEXt\0tIME\0tRNS\0zTXt";

// Everything the callbacks and the guarded functions share: plain data only, in the
// caller's frame, so that a longjmp leaves it valid and nothing to destroy.
struct PngState {
    const uint8_t* data = nullptr;  // reading
    size_t size = 0;
    size_t offset = 0;
    std::vector<uint8_t>* out = nullptr;  // writing
    bool truncated = false;
    bool outOfMemory = false;
    uint32_t row = 0;
    int pass = 0;
    char message[256] = {};
};

void OnError(png_structp png, png_const_charp message) {
    auto* state = static_cast<PngState*>(png_get_error_ptr(png));
    std::snprintf(state->message, sizeof state->message, "%s", message ? message : "libpng failed");
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

void ReadBytes(png_structp png, png_bytep target, size_t count) {
    auto* state = static_cast<PngState*>(png_get_io_ptr(png));
    if (state->size - state->offset < count) {
        state->truncated = true;
        png_error(png, "truncated");
    }
    std::memcpy(target, state->data + state->offset, count);
    state->offset += count;
}

void WriteBytes(png_structp png, png_bytep source, size_t count) {
    auto* state = static_cast<PngState*>(png_get_io_ptr(png));
    try {
        state->out->insert(state->out->end(), source, source + count);
    } catch (const std::bad_alloc&) {
        state->outOfMemory = true;
    }
    if (state->outOfMemory) png_error(png, "out of memory");  // outside the handler: no exception is live
}

void Flush(png_structp) {}

struct PngHeader {
    png_uint_32 width = 0;
    png_uint_32 height = 0;
    int bitDepth = 0;
    int colourType = 0;
    int interlace = 0;
    // After the transforms.
    int passes = 1;
    int channels = 0;
    int outputDepth = 0;
    size_t rowBytes = 0;
};

// The guarded steps: each sets the jump buffer and holds no object with a destructor.

bool ReadHeader(png_structp png, png_infop info, PngHeader* header) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_read_info(png, info);
    png_get_IHDR(png, info, &header->width, &header->height, &header->bitDepth, &header->colourType,
                 &header->interlace, nullptr, nullptr);
    return true;
}

bool SetTransforms(png_structp png, png_infop info, PngHeader* header) {
    if (setjmp(png_jmpbuf(png))) return false;
    if (header->colourType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (header->colourType == PNG_COLOR_TYPE_GRAY && header->bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (header->colourType & PNG_COLOR_MASK_ALPHA) png_set_strip_alpha(png);
    if (header->bitDepth == 16) {
        if (header->colourType & PNG_COLOR_MASK_COLOR)
            png_set_scale_16(png);
        else if constexpr (std::endian::native == std::endian::little)
            png_set_swap(png);
    }
    header->passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    header->channels = png_get_channels(png, info);
    header->outputDepth = png_get_bit_depth(png, info);
    header->rowBytes = png_get_rowbytes(png, info);
    return true;
}

// Reads every row into rows[y]; with `planes`, splits each RGB row into the three planes
// as soon as it is read (one pass only).
bool ReadRows(png_structp png, PngState* state, uint8_t* const* rows, const PngHeader* header,
              uint8_t* const* const* planes) {
    if (setjmp(png_jmpbuf(png))) return false;
    for (int pass = 0; pass < header->passes; ++pass) {
        state->pass = pass;
        for (png_uint_32 y = 0; y < header->height; ++y) {
            state->row = y;
            png_read_row(png, rows[y], nullptr);
            if (planes)
                PlaneRows::Split(rows[y], static_cast<int32_t>(header->width), 3, planes[0][y], planes[1][y],
                                 planes[2][y]);
        }
    }
    state->row = header->height;
    png_read_end(png, nullptr);
    return true;
}

struct PngWriteSource {
    int32_t width = 0;
    int32_t height = 0;
    int bitDepth = 8;
    int colourType = PNG_COLOR_TYPE_GRAY;
    const uint8_t* const* rows = nullptr;        // grey
    const uint8_t* const* planes[3] = {};        // RGB
    uint8_t* scratch = nullptr;                  // one interleaved RGB row
};

bool WriteRows(png_structp png, png_infop info, const PngWriteSource* source) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_IHDR(png, info, static_cast<png_uint_32>(source->width), static_cast<png_uint_32>(source->height),
                 source->bitDepth, source->colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (source->bitDepth == 16 && std::endian::native == std::endian::little) png_set_swap(png);
    for (int32_t y = 0; y < source->height; ++y) {
        if (source->colourType == PNG_COLOR_TYPE_RGB) {
            PlaneRows::Join(source->planes[0][y], source->planes[1][y], source->planes[2][y], source->width,
                            source->scratch);
            png_write_row(png, source->scratch);
        } else {
            png_write_row(png, source->rows[y]);
        }
    }
    png_write_end(png, info);
    return true;
}

// Destroys libpng's structures on every way out of the C++ side.
class PngReadHandle {
public:
    explicit PngReadHandle(PngState* state) {
        png_ = png_create_read_struct(PNG_LIBPNG_VER_STRING, state, OnError, OnWarning);
        if (png_) info_ = png_create_info_struct(png_);
        if (!png_ || !info_) {
            png_destroy_read_struct(png_ ? &png_ : nullptr, nullptr, nullptr);
            throw std::bad_alloc();
        }
    }
    ~PngReadHandle() { png_destroy_read_struct(&png_, &info_, nullptr); }
    PngReadHandle(const PngReadHandle&) = delete;
    PngReadHandle& operator=(const PngReadHandle&) = delete;
    png_structp png() const noexcept { return png_; }
    png_infop info() const noexcept { return info_; }

private:
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

class PngWriteHandle {
public:
    explicit PngWriteHandle(PngState* state) {
        png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, state, OnError, OnWarning);
        if (png_) info_ = png_create_info_struct(png_);
        if (!png_ || !info_) {
            png_destroy_write_struct(png_ ? &png_ : nullptr, nullptr);
            throw std::bad_alloc();
        }
    }
    ~PngWriteHandle() { png_destroy_write_struct(&png_, &info_); }
    PngWriteHandle(const PngWriteHandle&) = delete;
    PngWriteHandle& operator=(const PngWriteHandle&) = delete;
    png_structp png() const noexcept { return png_; }
    png_infop info() const noexcept { return info_; }

private:
    png_structp png_ = nullptr;
    png_infop info_ = nullptr;
};

[[noreturn]] void FailRead(const PngState& state, const std::string& file, const char* stage) {
    if (state.outOfMemory) throw std::bad_alloc();
    if (!state.truncated) throw ccImageFile::BadFormat(file + ": " + state.message);
    if (stage) throw ccImageFile::BadFormat(file + ": truncated in the " + stage);
    std::string where = "truncated at row " + std::to_string(state.row);
    if (state.pass > 0) where += " of pass " + std::to_string(state.pass + 1);
    throw ccImageFile::BadFormat(file + ": " + where);
}

template <class T>
std::vector<uint8_t*> RowPointers(const ccPelBuffer<T>& buffer) {
    std::vector<uint8_t*> rows(static_cast<size_t>(buffer.Height()));
    for (int32_t y = 0; y < buffer.Height(); ++y) rows[y] = reinterpret_cast<uint8_t*>(buffer.RowPointer(y));
    return rows;
}

}  // namespace

bool PngCodec::Recognises(std::span<const uint8_t> bytes) noexcept {
    return bytes.size() >= sizeof kSignature && std::memcmp(bytes.data(), kSignature, sizeof kSignature) == 0;
}

ImageFilePixels PngCodec::Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits) {
    if (!Recognises(bytes)) throw ccImageFile::BadFormat(file + ": not a PNG file");
    PngState state;
    state.data = bytes.data();
    state.size = bytes.size();
    PngReadHandle handle(&state);
    // The sides are checked by the limits, with their own message, not by libpng's.
    png_set_user_limits(handle.png(), PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_chunk_malloc_max(handle.png(), kChunkLimit);
    png_set_keep_unknown_chunks(handle.png(), PNG_HANDLE_CHUNK_NEVER, nullptr, 0);
    png_set_keep_unknown_chunks(handle.png(), PNG_HANDLE_CHUNK_NEVER, kIgnoredChunks, sizeof kIgnoredChunks / 5);
    png_set_read_fn(handle.png(), &state, ReadBytes);

    PngHeader header;
    if (!ReadHeader(handle.png(), handle.info(), &header)) FailRead(state, file, "header");
    limits.Check(header.width, header.height, file);
    if (!SetTransforms(handle.png(), handle.info(), &header)) FailRead(state, file, "header");
    const bool colour = header.channels == 3;
    const size_t width = header.width;
    // What the transforms promise, checked before libpng writes a byte into our rows.
    if ((header.channels != 1 && header.channels != 3) || (colour && header.outputDepth != 8) ||
        (header.outputDepth != 8 && header.outputDepth != 16) ||
        header.rowBytes != width * header.channels * (header.outputDepth / 8))
        throw ccImageFile::BadFormat(file + ": an unsupported PNG layout");
    const int32_t w = static_cast<int32_t>(header.width);
    const int32_t h = static_cast<int32_t>(header.height);

    if (!colour) {
        if (header.outputDepth == 16) {
            ccPelBuffer<uint16_t> grey(w, h);
            const std::vector<uint8_t*> rows = RowPointers(grey);
            if (!ReadRows(handle.png(), &state, rows.data(), &header, nullptr)) FailRead(state, file, nullptr);
            return ImageFilePixels(std::move(grey));
        }
        ccPelBuffer<uint8_t> grey(w, h);
        const std::vector<uint8_t*> rows = RowPointers(grey);
        if (!ReadRows(handle.png(), &state, rows.data(), &header, nullptr)) FailRead(state, file, nullptr);
        return ImageFilePixels(std::move(grey));
    }

    cc3PlanePelBuffer rgb(w, h);
    std::vector<uint8_t*> planeRows[3];
    for (int p = 0; p < 3; ++p) planeRows[p] = RowPointers(rgb.Plane(p));
    uint8_t* const* planes[3] = {planeRows[0].data(), planeRows[1].data(), planeRows[2].data()};
    if (header.passes == 1) {
        // One interleaved row at a time, split into the planes as it comes.
        std::vector<uint8_t> scratch(header.rowBytes);
        const std::vector<uint8_t*> rows(static_cast<size_t>(h), scratch.data());
        if (!ReadRows(handle.png(), &state, rows.data(), &header, planes)) FailRead(state, file, nullptr);
    } else {
        // Interlaced: every pass adds pixels to every row, so the whole image is kept.
        std::vector<uint8_t> whole(header.rowBytes * static_cast<size_t>(h));
        std::vector<uint8_t*> rows(static_cast<size_t>(h));
        for (int32_t y = 0; y < h; ++y) rows[y] = whole.data() + header.rowBytes * static_cast<size_t>(y);
        if (!ReadRows(handle.png(), &state, rows.data(), &header, nullptr)) FailRead(state, file, nullptr);
        for (int32_t y = 0; y < h; ++y) PlaneRows::Split(rows[y], w, 3, planes[0][y], planes[1][y], planes[2][y]);
    }
    return ImageFilePixels(std::move(rgb));
}

std::vector<uint8_t> PngCodec::Write(const ImageFilePixels& pixels, const std::string& file) {
    std::vector<uint8_t> out;
    PngState state;
    state.out = &out;
    PngWriteHandle handle(&state);
    png_set_write_fn(handle.png(), &state, WriteBytes, Flush);

    PngWriteSource source;
    source.width = pixels.Width();
    source.height = pixels.Height();
    std::vector<uint8_t*> rows;
    std::vector<uint8_t*> planeRows[3];
    std::vector<uint8_t> scratch;
    switch (pixels.Kind()) {
        case ImageFileKind::Grey8:
            rows = RowPointers(pixels.Grey8());
            break;
        case ImageFileKind::Grey16:
            rows = RowPointers(pixels.Grey16());
            source.bitDepth = 16;
            break;
        case ImageFileKind::Rgb8:
            for (int p = 0; p < 3; ++p) {
                planeRows[p] = RowPointers(pixels.Rgb8().Plane(p));
                source.planes[p] = planeRows[p].data();
            }
            scratch.resize(static_cast<size_t>(source.width) * 3);
            source.scratch = scratch.data();
            source.colourType = PNG_COLOR_TYPE_RGB;
            break;
    }
    source.rows = rows.data();
    if (!WriteRows(handle.png(), handle.info(), &source)) {
        if (state.outOfMemory) throw std::bad_alloc();
        throw ccImageFile::WriteFailed(file + ": " + state.message);
    }
    return out;
}

}  // namespace tessaly::image
