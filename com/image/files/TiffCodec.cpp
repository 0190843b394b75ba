#include "com/image/files/TiffCodec.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "com/image/files/PlaneRows.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

namespace {

// The most samples a pixel may have, alpha and other extra samples included.
constexpr uint16_t kMaxSamples = 8;

// The bytes libtiff reads from or writes to, and the first message it reported.
struct TiffStream {
    const uint8_t* data = nullptr;  // reading
    std::vector<uint8_t>* out = nullptr;  // writing
    uint64_t size = 0;
    uint64_t offset = 0;
    bool outOfMemory = false;
    char message[256] = {};
};

TiffStream* StreamOf(thandle_t handle) { return static_cast<TiffStream*>(handle); }

tmsize_t ReadProc(thandle_t handle, void* target, tmsize_t count) {
    TiffStream* stream = StreamOf(handle);
    if (count <= 0 || stream->offset >= stream->size) return 0;
    const uint64_t taken = std::min<uint64_t>(static_cast<uint64_t>(count), stream->size - stream->offset);
    std::memcpy(target, stream->data + stream->offset, taken);
    stream->offset += taken;
    return static_cast<tmsize_t>(taken);
}

tmsize_t WriteProc(thandle_t handle, void* source, tmsize_t count) {
    TiffStream* stream = StreamOf(handle);
    if (!stream->out || count < 0) return -1;
    const uint64_t end = stream->offset + static_cast<uint64_t>(count);
    try {
        if (end > stream->out->size()) stream->out->resize(end);
    } catch (const std::bad_alloc&) {
        stream->outOfMemory = true;
        return -1;
    }
    if (count > 0) std::memcpy(stream->out->data() + stream->offset, source, static_cast<size_t>(count));
    stream->offset = end;
    stream->size = std::max(stream->size, end);
    return count;
}

toff_t SeekProc(thandle_t handle, toff_t offset, int whence) {
    TiffStream* stream = StreamOf(handle);
    // Offsets come as unsigned; a move backwards wraps, which the sum undoes.
    uint64_t base = 0;
    if (whence == SEEK_CUR) base = stream->offset;
    else if (whence == SEEK_END) base = stream->size;
    else if (whence != SEEK_SET) return static_cast<toff_t>(-1);
    const uint64_t target = base + offset;
    // A place far beyond anything a file of the limits holds is an error, not a gap to fill.
    if (target > (uint64_t{1} << 40)) return static_cast<toff_t>(-1);
    stream->offset = target;
    return target;
}

int CloseProc(thandle_t) { return 0; }
toff_t SizeProc(thandle_t handle) { return StreamOf(handle)->size; }
int MapProc(thandle_t, void**, toff_t*) { return 0; }
void UnmapProc(thandle_t, void*, toff_t) {}

int OnError(TIFF*, void* user, const char* module, const char* format, va_list arguments) {
    auto* stream = static_cast<TiffStream*>(user);
    if (stream->message[0] == 0) {
        char text[200];
        std::vsnprintf(text, sizeof text, format, arguments);
        std::snprintf(stream->message, sizeof stream->message, "%s%s%s", module ? module : "", module ? ": " : "",
                      text);
    }
    return 1;  // handled: nothing is printed
}

int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

// An open TIFF over a stream, closed on every way out.
class TiffHandle {
public:
    TiffHandle(TiffStream* stream, const char* mode, const std::string& file, tmsize_t largestAllocation) {
        TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
        if (!options) throw std::bad_alloc();
        TIFFOpenOptionsSetMaxSingleMemAlloc(options, largestAllocation);
        TIFFOpenOptionsSetErrorHandlerExtR(options, OnError, stream);
        TIFFOpenOptionsSetWarningHandlerExtR(options, OnWarning, stream);
        tiff_ = TIFFClientOpenExt(file.c_str(), mode, stream, ReadProc, WriteProc, SeekProc, CloseProc, SizeProc,
                                  MapProc, UnmapProc, options);
        TIFFOpenOptionsFree(options);
    }
    ~TiffHandle() {
        if (tiff_) TIFFClose(tiff_);
    }
    TiffHandle(const TiffHandle&) = delete;
    TiffHandle& operator=(const TiffHandle&) = delete;
    TIFF* get() const noexcept { return tiff_; }
    // Closes, writing what is pending; whether that succeeded.
    bool Close() {
        TIFF* tiff = tiff_;
        tiff_ = nullptr;
        const int flushed = TIFFFlush(tiff);
        TIFFClose(tiff);
        return flushed == 1;
    }

private:
    TIFF* tiff_ = nullptr;
};

class TiffReader {
public:
    TiffReader(TIFF* tiff, const TiffStream& stream, const std::string& file)
        : tiff_(tiff), stream_(stream), file_(file) {}

    [[noreturn]] void Fail(const std::string& reason) const { throw ccImageFile::BadFormat(file_ + ": " + reason); }
    [[noreturn]] void FailWithLibrary(const std::string& reason) const {
        Fail(stream_.message[0] ? reason + ": " + stream_.message : reason);
    }

    template <class T>
    T Field(ttag_t tag, const char* name) const {
        T value{};
        if (TIFFGetFieldDefaulted(tiff_, tag, &value) != 1) FailWithLibrary(std::string("no ") + name);
        return value;
    }

    // Every strip lies inside the file: a strip that runs past its end is a truncated
    // file, told before any pixel is allocated.
    void CheckStrips(uint32_t height) const {
        const uint32_t strips = TIFFNumberOfStrips(tiff_);
        uint32_t rowsPerStrip = height;
        TIFFGetFieldDefaulted(tiff_, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
        rowsPerStrip = std::clamp<uint32_t>(rowsPerStrip, 1, height);
        const uint32_t stripsPerPlane = (height - 1) / rowsPerStrip + 1;
        for (uint32_t strip = 0; strip < strips; ++strip) {
            int error = 0;
            const uint64_t offset = TIFFGetStrileOffsetWithErr(tiff_, strip, &error);
            const uint64_t bytes = TIFFGetStrileByteCountWithErr(tiff_, strip, &error);
            if (error) FailWithLibrary("the strip table cannot be read");
            if (offset > stream_.size || bytes > stream_.size - offset)
                Fail("truncated at row " + std::to_string(static_cast<uint64_t>(strip % stripsPerPlane) * rowsPerStrip));
        }
    }

    // Row y of sample plane `plane` into `scratch` (TIFFScanlineSize bytes).
    void ReadRow(uint8_t* scratch, uint32_t y, uint16_t plane) const {
        if (TIFFReadScanline(tiff_, scratch, y, plane) != 1) FailWithLibrary("row " + std::to_string(y) + " cannot be read");
    }

private:
    TIFF* tiff_;
    const TiffStream& stream_;
    const std::string& file_;
};

// Whether the first directory of a classic TIFF (the one the header points at) runs past
// the end of the bytes: the usual shape of a file cut short, since writers put the
// directory after the pixels.
bool FirstDirectoryCut(std::span<const uint8_t> bytes) noexcept {
    if (bytes.size() < 8 || (bytes[2] != 42 && bytes[3] != 42)) return false;
    const bool little = bytes[0] == 'I';
    const auto read = [&](uint64_t at, int size) {
        uint64_t value = 0;
        for (int i = 0; i < size; ++i) value |= uint64_t{bytes[at + (little ? i : size - 1 - i)]} << (8 * i);
        return value;
    };
    const uint64_t directory = read(4, 4);
    if (directory + 2 > bytes.size()) return true;
    return directory + 2 + 12 * read(directory, 2) + 4 > bytes.size();
}

}  // namespace

bool TiffCodec::Recognises(std::span<const uint8_t> bytes) noexcept {
    if (bytes.size() < 4) return false;
    const bool little = bytes[0] == 'I' && bytes[1] == 'I' && (bytes[2] == 42 || bytes[2] == 43) && bytes[3] == 0;
    const bool big = bytes[0] == 'M' && bytes[1] == 'M' && bytes[2] == 0 && (bytes[3] == 42 || bytes[3] == 43);
    return little || big;
}

ImageFilePixels TiffCodec::Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits) {
    if (!Recognises(bytes)) throw ccImageFile::BadFormat(file + ": not a TIFF file");
    TiffStream stream;
    stream.data = bytes.data();
    stream.size = bytes.size();
    const int64_t pixels = std::min(limits.maxPixels, ImageFileLimits::kMaxPixels);
    // No allocation of libtiff's may exceed what the largest strip of the largest image
    // allowed can need.
    TiffHandle handle(&stream, "rm", file, static_cast<tmsize_t>(std::max<int64_t>(pixels * 8, 16 << 20)));
    TIFF* tiff = handle.get();
    if (!tiff) {
        if (FirstDirectoryCut(bytes)) throw ccImageFile::BadFormat(file + ": truncated in the first directory");
        throw ccImageFile::BadFormat(file + ": " + (stream.message[0] ? stream.message : "not a TIFF file"));
    }
    const TiffReader reader(tiff, stream, file);

    uint32_t width = 0;
    uint32_t height = 0;
    if (TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width) != 1 || TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height) != 1)
        reader.Fail("no image size");
    limits.Check(width, height, file);
    const auto bits = reader.Field<uint16_t>(TIFFTAG_BITSPERSAMPLE, "bits per sample");
    const auto samples = reader.Field<uint16_t>(TIFFTAG_SAMPLESPERPIXEL, "samples per pixel");
    const auto format = reader.Field<uint16_t>(TIFFTAG_SAMPLEFORMAT, "sample format");
    const auto planar = reader.Field<uint16_t>(TIFFTAG_PLANARCONFIG, "planar configuration");
    uint16_t photometric = 0;
    if (TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric) != 1) reader.Fail("no photometric interpretation");

    if (format == SAMPLEFORMAT_IEEEFP) reader.Fail("floating-point samples are not supported");
    if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) reader.Fail("signed samples are not supported");
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
    if (photometric == PHOTOMETRIC_PALETTE) reader.Fail("palette images are not supported");
    if (photometric == PHOTOMETRIC_YCBCR) reader.Fail("YCbCr images are not supported");
    if (photometric == PHOTOMETRIC_SEPARATED) reader.Fail("CMYK images are not supported");
    if (!grey && photometric != PHOTOMETRIC_RGB)
        reader.Fail("photometric interpretation " + std::to_string(photometric) + " is not supported");
    if (grey ? (bits != 1 && bits != 8 && bits != 16) : bits != 8)
        reader.Fail(std::to_string(bits) + "-bit " + (grey ? "" : "RGB ") + "samples are not supported");
    if (samples < (grey ? 1 : 3)) reader.Fail(std::to_string(samples) + " samples per pixel do not make this image");
    // Extra samples are read and dropped: more than a few would make a row (which is read
    // whole) far larger than the pixels kept.
    if (samples > kMaxSamples) reader.Fail(std::to_string(samples) + " samples per pixel are not supported");
    if (TIFFIsTiled(tiff)) reader.Fail("tiled images are not supported");
    reader.CheckStrips(height);

    // Separate planes hold one sample a row; contiguous rows hold them all.
    const bool separate = planar == PLANARCONFIG_SEPARATE;
    const uint64_t rowBits = static_cast<uint64_t>(width) * bits * (separate ? 1 : samples);
    const uint64_t rowBytes = (rowBits + 7) / 8;
    const tmsize_t scanline = TIFFScanlineSize(tiff);
    if (scanline <= 0 || static_cast<uint64_t>(scanline) < rowBytes) reader.FailWithLibrary("an unexpected row size");
    std::vector<uint8_t> scratch(static_cast<size_t>(scanline));
    const int32_t w = static_cast<int32_t>(width);
    const int32_t h = static_cast<int32_t>(height);
    const bool inverted = photometric == PHOTOMETRIC_MINISWHITE;
    const size_t step = separate ? 1 : samples;

    if (grey && bits == 16) {
        ccPelBuffer<uint16_t> image(w, h);
        for (uint32_t y = 0; y < height; ++y) {
            reader.ReadRow(scratch.data(), y, 0);
            uint16_t* row = image.RowPointer(static_cast<int32_t>(y));
            for (int32_t x = 0; x < w; ++x) {
                uint16_t value;
                std::memcpy(&value, scratch.data() + 2 * step * x, 2);  // libtiff gives host order
                row[x] = inverted ? static_cast<uint16_t>(65535 - value) : value;
            }
        }
        return ImageFilePixels(std::move(image));
    }
    if (grey) {
        ccPelBuffer<uint8_t> image(w, h);
        for (uint32_t y = 0; y < height; ++y) {
            reader.ReadRow(scratch.data(), y, 0);
            uint8_t* row = image.RowPointer(static_cast<int32_t>(y));
            for (int32_t x = 0; x < w; ++x) {
                uint8_t value;
                if (bits == 1) {
                    const size_t bit = step * x;
                    value = (scratch[bit / 8] >> (7 - bit % 8)) & 1 ? 255 : 0;
                } else {
                    value = scratch[step * x];
                }
                row[x] = inverted ? static_cast<uint8_t>(255 - value) : value;
            }
        }
        return ImageFilePixels(std::move(image));
    }
    cc3PlanePelBuffer image(w, h);
    if (separate) {
        for (uint16_t plane = 0; plane < 3; ++plane)
            for (uint32_t y = 0; y < height; ++y) {
                reader.ReadRow(scratch.data(), y, plane);
                std::memcpy(image.Plane(plane).RowPointer(static_cast<int32_t>(y)), scratch.data(), width);
            }
    } else {
        for (uint32_t y = 0; y < height; ++y) {
            reader.ReadRow(scratch.data(), y, 0);
            const auto row = static_cast<int32_t>(y);
            PlaneRows::Split(scratch.data(), w, samples, image.Plane(0).RowPointer(row), image.Plane(1).RowPointer(row),
                             image.Plane(2).RowPointer(row));
        }
    }
    return ImageFilePixels(std::move(image));
}

std::vector<uint8_t> TiffCodec::Write(const ImageFilePixels& pixels, const std::string& file) {
    std::vector<uint8_t> out;
    TiffStream stream;
    stream.out = &out;
    TiffHandle handle(&stream, "w", file, 0);
    TIFF* tiff = handle.get();
    const auto fail = [&]() -> void {
        if (stream.outOfMemory) throw std::bad_alloc();
        throw ccImageFile::WriteFailed(file + ": " + (stream.message[0] ? stream.message : "libtiff failed"));
    };
    if (!tiff) fail();

    const ImageFileKind kind = pixels.Kind();
    const auto width = static_cast<uint32_t>(pixels.Width());
    const auto height = static_cast<uint32_t>(pixels.Height());
    const uint16_t samples = kind == ImageFileKind::Rgb8 ? 3 : 1;
    const uint16_t bits = kind == ImageFileKind::Grey16 ? 16 : 8;
    const bool set = TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width) && TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height) &&
                     TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits) &&
                     TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples) &&
                     TIFFSetField(tiff, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT) &&
                     TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC,
                                  kind == ImageFileKind::Rgb8 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK) &&
                     TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
                     TIFFSetField(tiff, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT) &&
                     TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE) &&
                     TIFFSetField(tiff, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL) &&
                     TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
    if (!set) fail();

    // libtiff may encode a row in place: it gets a copy.
    std::vector<uint8_t> row(static_cast<size_t>(width) * samples * (bits / 8));
    for (uint32_t y = 0; y < height; ++y) {
        const auto line = static_cast<int32_t>(y);
        switch (kind) {
            case ImageFileKind::Grey8:
                std::memcpy(row.data(), pixels.Grey8().RowPointer(line), row.size());
                break;
            case ImageFileKind::Grey16:
                std::memcpy(row.data(), pixels.Grey16().RowPointer(line), row.size());
                break;
            case ImageFileKind::Rgb8: {
                const cc3PlanePelBuffer& rgb = pixels.Rgb8();
                PlaneRows::Join(rgb.Plane(0).RowPointer(line), rgb.Plane(1).RowPointer(line),
                                rgb.Plane(2).RowPointer(line), static_cast<int32_t>(width), row.data());
                break;
            }
        }
        if (TIFFWriteScanline(tiff, row.data(), y, 0) != 1) fail();
    }
    if (!TIFFWriteDirectory(tiff) || !handle.Close() || stream.outOfMemory) fail();
    return out;
}

}  // namespace tessaly::image
