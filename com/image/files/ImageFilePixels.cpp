#include "com/image/files/ImageFilePixels.h"

#include <string>

#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"

namespace tessaly::image {

namespace {

template <class Buffer>
Buffer Bound(Buffer buffer) {
    if (!buffer.IsBound()) throw ccPel::UnboundWindow("image file pixels need a bound buffer");
    return buffer;
}

template <class Buffer>
const Buffer& Held(const std::variant<ccPelBuffer<uint8_t>, ccPelBuffer<uint16_t>, cc3PlanePelBuffer>& pixels,
                   ImageFileKind asked) {
    if (const Buffer* buffer = std::get_if<Buffer>(&pixels)) return *buffer;
    throw ccStdError::Unexpected(std::string("the pixels are ") +
                                 ImageFilePixels::KindName(static_cast<ImageFileKind>(pixels.index())) + ", not " +
                                 ImageFilePixels::KindName(asked));
}

}  // namespace

ImageFilePixels::ImageFilePixels(ccPelBuffer<uint8_t> grey8) : pixels_(Bound(std::move(grey8))) {}
ImageFilePixels::ImageFilePixels(ccPelBuffer<uint16_t> grey16) : pixels_(Bound(std::move(grey16))) {}
ImageFilePixels::ImageFilePixels(cc3PlanePelBuffer rgb8) : pixels_(Bound(std::move(rgb8))) {}

int32_t ImageFilePixels::Width() const noexcept {
    return std::visit([](const auto& buffer) { return buffer.Width(); }, pixels_);
}

int32_t ImageFilePixels::Height() const noexcept {
    return std::visit([](const auto& buffer) { return buffer.Height(); }, pixels_);
}

ImageFilePixels ImageFilePixels::Window(int32_t x, int32_t y, int32_t width, int32_t height) const {
    return std::visit([&](const auto& buffer) { return ImageFilePixels(buffer.Window(x, y, width, height)); }, pixels_);
}

const ccPelBuffer<uint8_t>& ImageFilePixels::Grey8() const {
    return Held<ccPelBuffer<uint8_t>>(pixels_, ImageFileKind::Grey8);
}

const ccPelBuffer<uint16_t>& ImageFilePixels::Grey16() const {
    return Held<ccPelBuffer<uint16_t>>(pixels_, ImageFileKind::Grey16);
}

const cc3PlanePelBuffer& ImageFilePixels::Rgb8() const { return Held<cc3PlanePelBuffer>(pixels_, ImageFileKind::Rgb8); }

const char* ImageFilePixels::KindName(ImageFileKind kind) noexcept {
    switch (kind) {
        case ImageFileKind::Grey8: return "Grey8";
        case ImageFileKind::Grey16: return "Grey16";
        case ImageFileKind::Rgb8: return "RGB8";
    }
    return "unknown";
}

}  // namespace tessaly::image
