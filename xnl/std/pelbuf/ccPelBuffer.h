// A read-write pel buffer: everything ccPelBuffer_const does, plus writing pixels. It is
// bound only to roots held with write access, and converts to the read-only kind.
//
// As with counted handles, the constness of the buffer object is not that of its pixels:
// a const ccPelBuffer<T>& still writes them (the buffer is a view, its window and
// transform are what const protects). Rebinding or assigning through a reference to the
// read-only base would put a read-only root under a read-write buffer: rebind through
// this class (SetRoot takes a read-write handle).
//
//     ccPelBuffer<uint8_t> image(640, 480);          // a new root of its own, rows aligned to 32 bytes
//     image.Set(3, 4, 7);
//     ccPelBuffer<uint8_t> alias = image;            // no pixel copied
//     ccPelBuffer<uint8_t> copy(640, 480);
//     copy.CopyFrom(image);                           // pixels copied
#pragma once

#include <cstdint>
#include <utility>

#include "xnl/std/pelbuf/ccPelBuffer_const.h"
#include "xnl/std/pelbuf/ccPelRootOwn.h"

template <class T>
    requires ccPelBufferType<T>
class ccPelBuffer : public ccPelBuffer_const<T> {
public:
    ccPelBuffer() noexcept = default;
    explicit ccPelBuffer(const ccPelRootPtrh<T>& root) : ccPelBuffer_const<T>(ccPelRootPtrh_const<T>(root)) {}
    ccPelBuffer(const ccPelRootPtrh<T>& root, int32_t x, int32_t y, int32_t width, int32_t height)
        : ccPelBuffer_const<T>(ccPelRootPtrh_const<T>(root), x, y, width, height) {}
    // A new root of its own (ccPelRootOwn) of width x height pixels, shown whole.
    ccPelBuffer(int32_t width, int32_t height, int32_t alignment = 32)
        : ccPelBuffer(ccPelRootPtrh<T>(new ccPelRootOwn<T>(width, height, alignment))) {}

    // The root, with write access (a buffer of this kind is only ever bound to such a root).
    ccPelRootPtrh<T> Root() const noexcept {
        return ccPelRootPtrh<T>(const_cast<ccPelRoot<T>*>(ccPelBuffer_const<T>::Root().Get()));
    }
    void SetRoot(const ccPelRootPtrh<T>& root) { ccPelBuffer_const<T>::SetRoot(ccPelRootPtrh_const<T>(root)); }

    void Set(int32_t x, int32_t y, const T& value) const { *PelPointer(x, y) = value; }
    T* PelPointer(int32_t x, int32_t y) const { return const_cast<T*>(ccPelBuffer_const<T>::PelPointer(x, y)); }
    T* RowPointer(int32_t y) const { return const_cast<T*>(ccPelBuffer_const<T>::RowPointer(y)); }

    ccPelBuffer Window(int32_t x, int32_t y, int32_t width, int32_t height) const {
        ccPelBuffer window(*this);
        window.CutWindow(x, y, width, height);
        return window;
    }
    ccPelBuffer Intersect(const ccPelBuffer_const<T>& other) const {
        ccPelBuffer common(*this);
        common.CutIntersection(other, other.Root().Get());
        return common;
    }

    // Every pixel of the window (ccPel::UnboundWindow).
    void Fill(const T& value) const;
    // Copies `source`'s pixels into this window: row by row (one block when both windows'
    // rows are contiguous), whatever the two roots' pitches. ccPel::UnboundWindow when
    // either is unbound; ccPelFunc::BadParams when the sizes differ; ccPelFunc::Overlap
    // when the two windows share memory, unless they are the same pixels (then nothing is
    // done). A refused copy writes nothing.
    void CopyFrom(const ccPelBuffer_const<T>& source) const;
    // Throws what CopyFrom would refuse with; answers whether a copy has pixels to move.
    bool CheckCopyFrom(const ccPelBuffer_const<T>& source) const;
};

extern template class ccPelBuffer_const<uint8_t>;
extern template class ccPelBuffer_const<uint16_t>;
extern template class ccPelBuffer_const<uint32_t>;
extern template class ccPelBuffer_const<double>;
extern template class ccPelBuffer_const<int16_t>;
extern template class ccPelBuffer_const<ccPackedRGB16Pel>;
extern template class ccPelBuffer_const<ccPackedRGB32Pel>;
extern template class ccPelBuffer_const<cc3PlanePel>;
extern template class ccPelBuffer<uint8_t>;
extern template class ccPelBuffer<uint16_t>;
extern template class ccPelBuffer<uint32_t>;
extern template class ccPelBuffer<double>;
extern template class ccPelBuffer<int16_t>;
extern template class ccPelBuffer<ccPackedRGB16Pel>;
extern template class ccPelBuffer<ccPackedRGB32Pel>;
extern template class ccPelBuffer<cc3PlanePel>;
