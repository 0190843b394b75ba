// The untyped part of every pel buffer: its window onto the root (offset of its top-left
// pixel from the root's origin, and its size) and its client transform, which maps the
// buffer's pixel coordinates into the client's coordinates for geometric code.
//
// The client coordinates of a root pixel do not depend on the window it is seen through:
// a sub-window's transform is its parent's composed with the shift to the sub-window's
// origin, and moving a window shifts the transform by as much. Shifting needs a linear
// transform (ccPel::NonlinearXform otherwise). With no transform set, the client
// transform is the identity of the window it was set in, and nothing is allocated.
#pragma once

#include <cstdint>
#include <memory>

#include "xnl/std/base/cc2Vect.h"
#include "xnl/std/math/cc2XformBase.h"
#include "xnl/std/math/cc2XformLinear.h"

class cc_PelBuffer {
public:
    int32_t OffsetX() const noexcept { return offsetX_; }
    int32_t OffsetY() const noexcept { return offsetY_; }
    int32_t Width() const noexcept { return width_; }
    int32_t Height() const noexcept { return height_; }
    // Whether (x, y), in the buffer's pixel coordinates, is a pixel of the window.
    bool Contains(int32_t x, int32_t y) const noexcept { return x >= 0 && y >= 0 && x < width_ && y < height_; }

    // Client from pixel coordinates: the identity when none was set.
    const cc2XformBase& ClientFromPelXform() const noexcept;
    // The same as a linear transform (ccPel::NonlinearXform when it is not linear).
    cc2XformLinear LinearClientFromPelXform() const;
    // Keeps a copy of `xform` (a null pointer restores the identity).
    void SetClientFromPelXform(const cc2XformBase& xform);
    void SetClientFromPelXform(std::shared_ptr<const cc2XformBase> xform) noexcept { xform_ = std::move(xform); }
    // The client coordinates of a point given in the buffer's pixel coordinates.
    cc2Vect ClientFromPel(const cc2Vect& point) const { return ClientFromPelXform().MapPoint(point); }

protected:
    cc_PelBuffer() noexcept = default;

    void SetWindowUnchecked(int32_t x, int32_t y, int32_t width, int32_t height) noexcept {
        offsetX_ = x;
        offsetY_ = y;
        width_ = width;
        height_ = height;
    }
    // ccPel::BadWindow unless the window (x, y, width, height) lies inside a rectangle of
    // `outerWidth` x `outerHeight` pixels at the origin and its size is not negative.
    static void CheckWindow(int32_t x, int32_t y, int32_t width, int32_t height, int32_t outerWidth,
                            int32_t outerHeight);
    // The client transform for a window whose origin lies at (dx, dy) of this one's.
    std::shared_ptr<const cc2XformBase> ShiftedXform(int32_t dx, int32_t dy) const;
    // Throws ccPel::BadCoord for a pixel outside the window.
    void CheckCoord(int32_t x, int32_t y) const {
        if (!Contains(x, y)) ThrowBadCoord(x, y);
    }
    [[noreturn]] void ThrowBadCoord(int32_t x, int32_t y) const;
    void ResetClientFromPelXform() noexcept { xform_.reset(); }

private:
    int32_t offsetX_ = 0;
    int32_t offsetY_ = 0;
    int32_t width_ = 0;
    int32_t height_ = 0;
    // Shared, never changed in place: copying a buffer copies a pointer.
    std::shared_ptr<const cc2XformBase> xform_;
};
