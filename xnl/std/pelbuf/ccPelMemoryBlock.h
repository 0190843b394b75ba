// The block of memory a root that owns its pixels allocates, zeroed or not.
//
// Large blocks (kLargeBytes and up) are mapped from the operating system directly and
// marked for huge pages: the system hands them out zeroed, lazily, page by page, and with
// huge pages a block of 256 MiB faults 128 times instead of 65,536. Released large blocks
// are kept mapped for reuse (at most 4 blocks and 768 MiB; TrimCache unmaps them), since
// images of one size tend to follow one another: a new image then writes into pages that
// are already there. Smaller blocks come from the allocator, which reuses memory the same
// way. A block is zeroed when asked (a root whose every pixel is about to be overwritten
// need not be).
#pragma once

#include <cstddef>

enum class ccPelFill { Zero, None };

class ccPelMemoryBlock {
public:
    static constexpr size_t kLargeBytes = size_t{4} << 20;

    ccPelMemoryBlock() noexcept = default;
    // std::bad_alloc when the memory cannot be had.
    ccPelMemoryBlock(size_t bytes, ccPelFill fill);
    ~ccPelMemoryBlock();
    ccPelMemoryBlock(ccPelMemoryBlock&& other) noexcept;
    ccPelMemoryBlock& operator=(ccPelMemoryBlock&& other) noexcept;
    ccPelMemoryBlock(const ccPelMemoryBlock&) = delete;
    ccPelMemoryBlock& operator=(const ccPelMemoryBlock&) = delete;

    std::byte* Data() const noexcept { return data_; }
    size_t Size() const noexcept { return size_; }
    bool Mapped() const noexcept { return mapped_; }

    // Unmaps the released large blocks kept for reuse.
    static void TrimCache() noexcept;

private:
    void Release() noexcept;

    std::byte* data_ = nullptr;
    size_t size_ = 0;
    bool mapped_ = false;
};
