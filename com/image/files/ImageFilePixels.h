// What an image file holds, as pixel buffers: 8-bit grey, 16-bit grey or 8-bit RGB in
// three planes. Every buffer read from a file owns its root (ccPelRootOwn, rows aligned
// to 32 bytes) and shows it whole.
//
//     ImageFilePixels pixels = ReadImageFile("part.png");
//     if (pixels.Kind() == ImageFileKind::Grey16) Use(pixels.Grey16());
//
// Copies share the pixels, as copies of buffers do.
#pragma once

#include <cstdint>
#include <variant>

#include "xnl/std/pelbuf/cc3PlanePelBuffer.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"

namespace tessaly::image {

enum class ImageFileKind { Grey8, Grey16, Rgb8 };

class ImageFilePixels {
public:
    // Buffers of any window; a bound buffer is required (ccPel::UnboundWindow).
    explicit ImageFilePixels(ccPelBuffer<uint8_t> grey8);
    explicit ImageFilePixels(ccPelBuffer<uint16_t> grey16);
    // Planes R, G, B.
    explicit ImageFilePixels(cc3PlanePelBuffer rgb8);

    ImageFileKind Kind() const noexcept { return static_cast<ImageFileKind>(pixels_.index()); }
    int32_t Width() const noexcept;
    int32_t Height() const noexcept;
    // The same window of every plane, sharing the pixels (ccPel errors as Window throws).
    ImageFilePixels Window(int32_t x, int32_t y, int32_t width, int32_t height) const;

    // The buffer of the kind held; asking for another kind is ccStdError::Unexpected.
    const ccPelBuffer<uint8_t>& Grey8() const;
    const ccPelBuffer<uint16_t>& Grey16() const;
    const cc3PlanePelBuffer& Rgb8() const;

    // "Grey8", "Grey16", "RGB8".
    static const char* KindName(ImageFileKind kind) noexcept;

private:
    std::variant<ccPelBuffer<uint8_t>, ccPelBuffer<uint16_t>, cc3PlanePelBuffer> pixels_;
};

}  // namespace tessaly::image
