#include "xnl/std/pelbuf/ccPelRootBorrowed.h"

#include <string>

#include "xnl/std/except/ccStdError.h"

template <class T>
    requires ccPelRootType<T>
ccPelRootBorrowed<T>::ccPelRootBorrowed(int32_t width, int32_t height, T* row0, int32_t pitch) {
    if (width < 0 || height < 0)
        throw ccStdError::OutOfRange("size " + std::to_string(width) + " x " + std::to_string(height));
    if (height > 1 && (pitch < 0 ? -int64_t{pitch} : int64_t{pitch}) < width)
        throw ccStdError::OutOfRange("pitch " + std::to_string(pitch) + " for a width of " + std::to_string(width));
    if (row0 == nullptr && width > 0 && height > 0) throw ccStdError::NullArgument("row0");
    this->SetMemory(width, height, pitch, row0);
}

template <class T>
    requires ccPelRootType<T>
void ccPelRootBorrowed<T>::AddMemoryDescription(cc_PelRoot::MemoryDescription& description) const noexcept {
    ccPelRoot<T>::AddMemoryDescription(description);
    ++description.borrowed;
}

template class ccPelRootBorrowed<uint8_t>;
template class ccPelRootBorrowed<uint16_t>;
template class ccPelRootBorrowed<uint32_t>;
template class ccPelRootBorrowed<double>;
template class ccPelRootBorrowed<int8_t>;
template class ccPelRootBorrowed<int16_t>;
template class ccPelRootBorrowed<int32_t>;
template class ccPelRootBorrowed<ccPackedRGB16Pel>;
template class ccPelRootBorrowed<ccPackedRGB32Pel>;
template class ccPelRootBorrowed<cc3PlanePel>;
