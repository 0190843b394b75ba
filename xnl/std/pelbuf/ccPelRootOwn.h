// A root that allocates its pixel memory itself, with rows aligned, and frees it when its
// last handle goes. Pixels start at 0, unless the maker asks for ccPelFill::None because
// it writes every pixel at once (a copy); the memory is a ccPelMemoryBlock.
//
// Layout for width w, height h and an alignment of a bytes (images pass 32):
//  - the pitch is the smallest number of pixels w + p (p >= 0) whose bytes are a multiple
//    of a: w + p = w rounded up to a multiple of a / gcd(a, sizeof(T));
//  - row 0 starts at the first address of the block that is a multiple of a and of the
//    type's own alignment (the two are the same for every a images use: 32 is a multiple
//    of every pixel type's alignment); the block holds h x pitch x sizeof(T) bytes and
//    what the start may skip.
// So every row starts on an a-byte boundary, and no pixel is misaligned for its type. An alignment below 1 is refused
// (ccStdError::BadArgument), a negative size too (ccStdError::OutOfRange); a block too
// large for the address space, like a failed allocation, ends in std::bad_alloc.
//
// ccPelRootTemp and ccPelRoot16Temp are the 8- and 16-bit roots images allocate.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "xnl/std/pelbuf/ccPelMemoryBlock.h"
#include "xnl/std/pelbuf/ccPelRoot.h"

template <class T>
    requires ccPelRootType<T>
class ccPelRootOwn : public ccPelRoot<T> {
public:
    ccPelRootOwn(int32_t width, int32_t height, int32_t alignment = 32, ccPelFill fill = ccPelFill::Zero);

    int32_t Alignment() const noexcept { return alignment_; }

    // The padded pitch, in pixels, of a row of `width` pixels (ccStdError::BadArgument for
    // an alignment below 1, std::bad_alloc when it does not fit 32 bits).
    static int32_t PaddedPitch(int32_t width, int32_t alignment);

    // Besides the base checks: row 0 is aligned and every row lies inside the block.
    void CheckIntegrity() const override;

protected:
    ~ccPelRootOwn() override = default;
    void AddMemoryDescription(cc_PelRoot::MemoryDescription& description) const noexcept override;

private:
    ccPelMemoryBlock block_;
    int32_t alignment_ = 1;
};

// The roots images allocate for themselves.
using ccPelRootTemp = ccPelRootOwn<uint8_t>;
using ccPelRoot16Temp = ccPelRootOwn<uint16_t>;

extern template class ccPelRootOwn<uint8_t>;
extern template class ccPelRootOwn<uint16_t>;
extern template class ccPelRootOwn<uint32_t>;
extern template class ccPelRootOwn<double>;
extern template class ccPelRootOwn<int8_t>;
extern template class ccPelRootOwn<int16_t>;
extern template class ccPelRootOwn<int32_t>;
extern template class ccPelRootOwn<ccPackedRGB16Pel>;
extern template class ccPelRootOwn<ccPackedRGB32Pel>;
extern template class ccPelRootOwn<cc3PlanePel>;
