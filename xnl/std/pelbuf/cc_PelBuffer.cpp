#include "xnl/std/pelbuf/cc_PelBuffer.h"

#include <string>

#include "xnl/std/pelbuf/ccPelError.h"

namespace {

std::string Rect(int64_t x, int64_t y, int64_t width, int64_t height) {
    return "(" + std::to_string(x) + ", " + std::to_string(y) + ") " + std::to_string(width) + " x " +
           std::to_string(height);
}

}  // namespace

const cc2XformBase& cc_PelBuffer::ClientFromPelXform() const noexcept {
    static const cc2XformLinear identity;
    return xform_ ? *xform_ : identity;
}

cc2XformLinear cc_PelBuffer::LinearClientFromPelXform() const {
    const cc2XformBase& xform = ClientFromPelXform();
    if (!xform.IsLinear()) throw ccPel::NonlinearXform("the buffer's client transform is not linear");
    return static_cast<const cc2XformLinear&>(xform);
}

void cc_PelBuffer::SetClientFromPelXform(const cc2XformBase& xform) {
    xform_ = std::shared_ptr<const cc2XformBase>(xform.Clone());
}

void cc_PelBuffer::CheckWindow(int32_t x, int32_t y, int32_t width, int32_t height, int32_t outerWidth,
                               int32_t outerHeight) {
    // 64-bit sums: x + width cannot overflow.
    if (x < 0 || y < 0 || width < 0 || height < 0 || int64_t{x} + width > outerWidth ||
        int64_t{y} + height > outerHeight)
        throw ccPel::BadWindow("window " + Rect(x, y, width, height) + " of " + Rect(0, 0, outerWidth, outerHeight));
}

std::shared_ptr<const cc2XformBase> cc_PelBuffer::ShiftedXform(int32_t dx, int32_t dy) const {
    if (dx == 0 && dy == 0) return xform_;
    const cc2XformLinear shift(1.0, 0.0, 0.0, 1.0, dx, dy);
    if (!xform_) return std::make_shared<const cc2XformLinear>(shift);
    return std::make_shared<const cc2XformLinear>(LinearClientFromPelXform() * shift);
}

void cc_PelBuffer::ThrowBadCoord(int32_t x, int32_t y) const {
    throw ccPel::BadCoord("pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") of a " +
                          std::to_string(width_) + " x " + std::to_string(height_) + " buffer");
}
