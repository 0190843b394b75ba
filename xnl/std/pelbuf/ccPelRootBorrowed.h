// A root over pixel memory that lives elsewhere (a camera's frame, a NumPy array, a
// client's block). The root neither allocates nor frees it: whoever lends the memory keeps
// it alive as long as the root lives (ccPelRootDisposable ties the two together).
//
// The pitch is given in pixels and may be negative (rows running upwards in memory, row 0
// at the highest address): |pitch| >= width is required when there is more than one row.
// Row 0 may be null only for a root without pixels.
#pragma once

#include <cstdint>

#include "xnl/std/pelbuf/ccPelRoot.h"

template <class T>
    requires ccPelRootType<T>
class ccPelRootBorrowed : public ccPelRoot<T> {
public:
    // ccStdError::OutOfRange for a negative size or a pitch shorter than a row,
    // ccStdError::NullArgument for a null row 0 with pixels.
    ccPelRootBorrowed(int32_t width, int32_t height, T* row0, int32_t pitch);

protected:
    ~ccPelRootBorrowed() override = default;
    void AddMemoryDescription(cc_PelRoot::MemoryDescription& description) const noexcept override;
};

extern template class ccPelRootBorrowed<uint8_t>;
extern template class ccPelRootBorrowed<uint16_t>;
extern template class ccPelRootBorrowed<uint32_t>;
extern template class ccPelRootBorrowed<double>;
extern template class ccPelRootBorrowed<int8_t>;
extern template class ccPelRootBorrowed<int16_t>;
extern template class ccPelRootBorrowed<int32_t>;
extern template class ccPelRootBorrowed<ccPackedRGB16Pel>;
extern template class ccPelRootBorrowed<ccPackedRGB32Pel>;
extern template class ccPelRootBorrowed<cc3PlanePel>;
