// A pel root of pixel type T (see ccPelTypes.h for the types), and the counted handles
// through which roots are held:
//
//     ccPelRootPtrh<uint8_t> root(new ccPelRootOwn<uint8_t>(640, 480, 32));
//     ccPelRootPtrh<uint8_t> shared = root;           // the same pixels, one more holder
//     ccPelRootPtrh_const<uint8_t> view = root;       // read-only from here on
//
// Copying a handle costs no pixels: it adds a holder to the root's count (thread-safe),
// and the last holder to go destroys the root and whatever memory it owns.
#pragma once

#include <cstdint>

#include "xnl/std/base/ccPtrHandle.h"
#include "xnl/std/base/ccPtrHandle_const.h"
#include "xnl/std/pelbuf/ccPelTypes.h"
#include "xnl/std/pelbuf/cc_PelRoot.h"

template <class T>
    requires ccPelRootType<T>
class ccPelRoot : public virtual cc_PelRoot {
public:
    using PelType = T;

    const T* Row0() const noexcept { return reinterpret_cast<const T*>(Row0Bytes()); }
    T* Row0() noexcept { return reinterpret_cast<T*>(Row0Bytes()); }
    // Pixels from the start of one row to the start of the next (negative when rows run
    // upwards in memory).
    int32_t Pitch() const noexcept { return static_cast<int32_t>(RowPitchBytes() / static_cast<ptrdiff_t>(sizeof(T))); }
    // Row y, not checked against the height (buffers check their coordinates).
    const T* RowPointer(int32_t y) const noexcept {
        return reinterpret_cast<const T*>(Row0Bytes() + static_cast<ptrdiff_t>(y) * RowPitchBytes());
    }
    T* RowPointer(int32_t y) noexcept {
        return reinterpret_cast<T*>(Row0Bytes() + static_cast<ptrdiff_t>(y) * RowPitchBytes());
    }

protected:
    ccPelRoot() noexcept = default;
    ~ccPelRoot() override = default;

    // Describes the memory with a pitch in pixels.
    void SetMemory(int32_t width, int32_t height, ptrdiff_t pitchPels, T* row0) noexcept {
        SetGeometry(width, height, pitchPels * static_cast<ptrdiff_t>(sizeof(T)), reinterpret_cast<std::byte*>(row0),
                    sizeof(T));
    }
};

template <class T>
using ccPelRootPtrh = ccPtrHandle<ccPelRoot<T>>;
template <class T>
using ccPelRootPtrh_const = ccPtrHandle_const<ccPelRoot<T>>;

extern template class ccPelRoot<uint8_t>;
extern template class ccPelRoot<uint16_t>;
extern template class ccPelRoot<uint32_t>;
extern template class ccPelRoot<double>;
extern template class ccPelRoot<int8_t>;
extern template class ccPelRoot<int16_t>;
extern template class ccPelRoot<int32_t>;
extern template class ccPelRoot<ccPackedRGB16Pel>;
extern template class ccPelRoot<ccPackedRGB32Pel>;
extern template class ccPelRoot<cc3PlanePel>;
