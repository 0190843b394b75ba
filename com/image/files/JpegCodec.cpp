#include "com/image/files/JpegCodec.h"

// jpeglib.h needs FILE and size_t declared first.
#include <cstddef>
#include <cstdio>
// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include <csetjmp>
#include <new>
#include <vector>

#include "com/image/files/PlaneRows.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

namespace {

// The error manager extended with the jump buffer and what went wrong: plain data.
struct JpegErrors {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    bool truncated = false;
    uint32_t row = 0;
    char message[JMSG_LENGTH_MAX] = {};
};

void OnErrorExit(j_common_ptr info) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    (*info->err->format_message)(info, errors->message);
    std::longjmp(errors->jump, 1);
}

// Warnings (level -1) and traces are not printed. The one warning that matters is the
// end of the data before the image is complete: libjpeg would go on with made-up data.
void OnEmitMessage(j_common_ptr info, int level) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) errors->truncated = true;
}

void OnOutputMessage(j_common_ptr) {}

struct JpegHeader {
    JDIMENSION width = 0;
    JDIMENSION height = 0;
    int components = 0;
    J_COLOR_SPACE space = JCS_UNKNOWN;
};

bool ReadHeader(jpeg_decompress_struct* info, const uint8_t* data, size_t size, JpegHeader* header) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    if (setjmp(errors->jump)) return false;
    jpeg_mem_src(info, data, static_cast<unsigned long>(size));
    jpeg_read_header(info, TRUE);
    header->width = info->image_width;
    header->height = info->image_height;
    header->components = info->num_components;
    header->space = info->jpeg_color_space;
    return true;
}

// Decodes every scanline into rows[y], or, with `planes`, into one scratch row split into
// the three planes.
bool ReadRows(jpeg_decompress_struct* info, uint8_t* const* rows, uint8_t* const* const* planes, uint8_t* scratch) {
    auto* errors = reinterpret_cast<JpegErrors*>(info->err);
    if (setjmp(errors->jump)) return false;
    info->out_color_space = planes ? JCS_RGB : JCS_GRAYSCALE;
    jpeg_start_decompress(info);
    if (info->output_components != (planes ? 3 : 1)) {
        errors->message[0] = 0;
        return false;
    }
    while (info->output_scanline < info->output_height && !errors->truncated) {
        const JDIMENSION y = info->output_scanline;
        errors->row = y;
        JSAMPROW target = planes ? scratch : rows[y];
        if (jpeg_read_scanlines(info, &target, 1) != 1) break;
        if (planes)
            PlaneRows::Split(scratch, static_cast<int32_t>(info->output_width), 3, planes[0][y], planes[1][y],
                             planes[2][y]);
    }
    if (errors->truncated) return false;
    jpeg_finish_decompress(info);
    return !errors->truncated;
}

class JpegHandle {
public:
    explicit JpegHandle(JpegErrors* errors) {
        info_.err = jpeg_std_error(&errors->manager);
        errors->manager.error_exit = OnErrorExit;
        errors->manager.emit_message = OnEmitMessage;
        errors->manager.output_message = OnOutputMessage;
        // Creating may fail only for want of memory.
        if (setjmp(errors->jump)) throw std::bad_alloc();
        jpeg_create_decompress(&info_);
    }
    ~JpegHandle() { jpeg_destroy_decompress(&info_); }
    JpegHandle(const JpegHandle&) = delete;
    JpegHandle& operator=(const JpegHandle&) = delete;
    jpeg_decompress_struct* info() noexcept { return &info_; }

private:
    jpeg_decompress_struct info_ = {};
};

[[noreturn]] void Fail(const JpegErrors& errors, const std::string& file, bool header) {
    if (errors.truncated || errors.manager.msg_code == JERR_INPUT_EOF || errors.manager.msg_code == JERR_INPUT_EMPTY)
        throw ccImageFile::BadFormat(file + (header ? ": truncated in the header"
                                                    : ": truncated at row " + std::to_string(errors.row)));
    if (errors.message[0] == 0) throw ccImageFile::BadFormat(file + ": an unsupported JPEG layout");
    throw ccImageFile::BadFormat(file + ": " + errors.message);
}

template <class T>
std::vector<uint8_t*> RowPointers(const ccPelBuffer<T>& buffer) {
    std::vector<uint8_t*> rows(static_cast<size_t>(buffer.Height()));
    for (int32_t y = 0; y < buffer.Height(); ++y) rows[y] = reinterpret_cast<uint8_t*>(buffer.RowPointer(y));
    return rows;
}

}  // namespace

bool JpegCodec::Recognises(std::span<const uint8_t> bytes) noexcept {
    return bytes.size() >= 3 && bytes[0] == 0xFF && bytes[1] == 0xD8 && bytes[2] == 0xFF;
}

ImageFilePixels JpegCodec::Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits) {
    if (!Recognises(bytes)) throw ccImageFile::BadFormat(file + ": not a JPEG file");
    JpegErrors errors;
    JpegHandle handle(&errors);
    // libjpeg's own working memory (a progressive file keeps every coefficient) is bounded
    // too: beyond it, it fails rather than allocate.
    handle.info()->mem->max_memory_to_use = static_cast<long>(std::min<int64_t>(limits.maxPixels, ImageFileLimits::kMaxPixels) * 8);

    JpegHeader header;
    if (!ReadHeader(handle.info(), bytes.data(), bytes.size(), &header)) Fail(errors, file, true);
    limits.Check(header.width, header.height, file);
    if (header.space == JCS_CMYK || header.space == JCS_YCCK)
        throw ccImageFile::BadFormat(file + ": CMYK JPEG files are not supported");
    const int32_t w = static_cast<int32_t>(header.width);
    const int32_t h = static_cast<int32_t>(header.height);

    if (header.components == 1) {
        ccPelBuffer<uint8_t> grey(w, h);
        const std::vector<uint8_t*> rows = RowPointers(grey);
        if (!ReadRows(handle.info(), rows.data(), nullptr, nullptr)) Fail(errors, file, false);
        return ImageFilePixels(std::move(grey));
    }
    cc3PlanePelBuffer rgb(w, h);
    std::vector<uint8_t*> planeRows[3];
    for (int p = 0; p < 3; ++p) planeRows[p] = RowPointers(rgb.Plane(p));
    uint8_t* const* planes[3] = {planeRows[0].data(), planeRows[1].data(), planeRows[2].data()};
    std::vector<uint8_t> scratch(static_cast<size_t>(w) * 3);
    if (!ReadRows(handle.info(), nullptr, planes, scratch.data())) Fail(errors, file, false);
    return ImageFilePixels(std::move(rgb));
}

}  // namespace tessaly::image
