#include "xnl/std/pelbuf/ccPelRootOwn.h"

#include <limits>
#include <new>
#include <numeric>
#include <string>

#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelError.h"

template <class T>
    requires ccPelRootType<T>
int32_t ccPelRootOwn<T>::PaddedPitch(int32_t width, int32_t alignment) {
    if (alignment < 1) throw ccStdError::BadArgument("alignment " + std::to_string(alignment));
    if (width < 0) throw ccStdError::OutOfRange("width " + std::to_string(width));
    // (width + p) * sizeof(T) is a multiple of the alignment exactly when width + p is a
    // multiple of alignment / gcd(alignment, sizeof(T)): the same p as adding one pixel at a
    // time until the row divides, without the loop.
    const int64_t step = alignment / std::gcd(int64_t{alignment}, static_cast<int64_t>(sizeof(T)));
    const int64_t pitch = (int64_t{width} + step - 1) / step * step;
    if (pitch > std::numeric_limits<int32_t>::max()) throw std::bad_alloc();
    return static_cast<int32_t>(pitch);
}

template <class T>
    requires ccPelRootType<T>
ccPelRootOwn<T>::ccPelRootOwn(int32_t width, int32_t height, int32_t alignment, ccPelFill fill)
    : alignment_(alignment) {
    if (height < 0) throw ccStdError::OutOfRange("height " + std::to_string(height));
    const int32_t pitch = PaddedPitch(width, alignment);
    // Row 0 sits on the alignment and on the pixel type's own (an alignment of 12 for
    // doubles puts it on 24); later rows follow whole pitches, which keep both.
    const size_t start = std::lcm(static_cast<size_t>(alignment), alignof(T));
    size_t bytes = 0;
    if (__builtin_mul_overflow(static_cast<size_t>(height), static_cast<size_t>(pitch), &bytes) ||
        __builtin_mul_overflow(bytes, sizeof(T), &bytes) || __builtin_add_overflow(bytes, start - 1, &bytes) ||
        bytes > static_cast<size_t>(std::numeric_limits<ptrdiff_t>::max()))
        throw std::bad_alloc();
    block_ = ccPelMemoryBlock(bytes, fill);
    // The first address at or after the block's start that `start` divides.
    const uintptr_t address = reinterpret_cast<uintptr_t>(block_.Data());
    const uintptr_t skip = (start - address % start) % start;
    this->SetMemory(width, height, pitch, reinterpret_cast<T*>(block_.Data() + skip));
}

template <class T>
    requires ccPelRootType<T>
void ccPelRootOwn<T>::AddMemoryDescription(cc_PelRoot::MemoryDescription& description) const noexcept {
    ccPelRoot<T>::AddMemoryDescription(description);
    ++description.own;
}

template <class T>
    requires ccPelRootType<T>
void ccPelRootOwn<T>::CheckIntegrity() const {
    ccPelRoot<T>::CheckIntegrity();
    const uintptr_t row0 = reinterpret_cast<uintptr_t>(this->Row0Bytes());
    const uintptr_t start = reinterpret_cast<uintptr_t>(block_.Data());
    if (!block_.Data() || row0 < start) throw ccPel::Unknown("the root's row 0 lies outside its own block");
    if (row0 % static_cast<uintptr_t>(alignment_) != 0 || row0 % alignof(T) != 0)
        throw ccPel::Unknown("the root's row 0 is not aligned");
    const uintptr_t end = row0 + static_cast<uintptr_t>(this->Height()) * static_cast<uintptr_t>(this->RowPitchBytes());
    if (this->RowPitchBytes() < 0 || end > start + block_.Size())
        throw ccPel::Unknown("the root's rows run past its own block");
}

template class ccPelRootOwn<uint8_t>;
template class ccPelRootOwn<uint16_t>;
template class ccPelRootOwn<uint32_t>;
template class ccPelRootOwn<double>;
template class ccPelRootOwn<int8_t>;
template class ccPelRootOwn<int16_t>;
template class ccPelRootOwn<int32_t>;
template class ccPelRootOwn<ccPackedRGB16Pel>;
template class ccPelRootOwn<ccPackedRGB32Pel>;
template class ccPelRootOwn<cc3PlanePel>;
