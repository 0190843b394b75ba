// Three coincident 8-bit planes seen through one window: the pixels of a planar colour
// image, whose planes are three 8-bit roots (each may also be shown alone as a grey
// image). The three plane buffers have the same size; pixel (x, y) of the buffer is pixel
// (x, y) of each plane, and reads and writes as a cc3PlanePel.
//
// The planes are bound all three or none: an unbound three-plane buffer has no pixels
// (ccPel::UnboundWindow on access, as for any buffer). Windows, coordinates and the
// client transform follow ccPelBuffer, applied to the three planes alike.
#pragma once

#include <array>
#include <cstdint>

#include "xnl/std/pelbuf/ccPelBuffer.h"

class cc3PlanePelBuffer {
public:
    cc3PlanePelBuffer() = default;
    // Three new roots of their own, width x height, rows aligned (ccPelRootOwn).
    cc3PlanePelBuffer(int32_t width, int32_t height, int32_t alignment = 32);
    // Three planes: all bound with equal sizes (ccPel::BadWindow when the sizes differ), or
    // all unbound (ccPel::UnboundWindow when only some are bound). The client transform is
    // plane 0's.
    cc3PlanePelBuffer(ccPelBuffer<uint8_t> plane0, ccPelBuffer<uint8_t> plane1, ccPelBuffer<uint8_t> plane2);

    bool IsBound() const noexcept { return planes_[0].IsBound(); }
    int32_t Width() const noexcept { return planes_[0].Width(); }
    int32_t Height() const noexcept { return planes_[0].Height(); }
    // Plane 0, 1 or 2 (ccStdError::OutOfRange otherwise): shares its root with this buffer.
    const ccPelBuffer<uint8_t>& Plane(int index) const;

    cc3PlanePel Get(int32_t x, int32_t y) const;
    void Set(int32_t x, int32_t y, const cc3PlanePel& value) const;
    void Fill(const cc3PlanePel& value) const;

    // The same sub-window of each plane (see ccPelBuffer_const::Window).
    cc3PlanePelBuffer Window(int32_t x, int32_t y, int32_t width, int32_t height) const;

    // Plane by plane, as ccPelBuffer::CopyFrom (the same refusals, plane i of the source
    // against plane i of this buffer; nothing is written when any plane's copy would be
    // refused).
    void CopyFrom(const cc3PlanePelBuffer& source) const;
    // From and to pixels that keep the three values side by side, with the sizes equal
    // (ccPel::UnboundWindow, ccPelFunc::BadParams).
    void CopyFrom(const ccPelBuffer_const<cc3PlanePel>& source) const;
    void CopyTo(const ccPelBuffer<cc3PlanePel>& target) const;

    const cc2XformBase& ClientFromPelXform() const noexcept { return planes_[0].ClientFromPelXform(); }
    void SetClientFromPelXform(const cc2XformBase& xform);

private:
    void RequireRoots() const;
    void RequireSize(int32_t width, int32_t height) const;

    std::array<ccPelBuffer<uint8_t>, 3> planes_;
};
