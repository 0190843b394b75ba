#include "xnl/std/pelbuf/ccPelMemoryBlock.h"

#include <array>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#if defined(__linux__)
namespace {

// Large blocks released lately, kept mapped for the next block of about their size: a
// program that makes images of one size again and again (an acquisition loop, copies)
// writes into pages that are already there instead of faulting fresh ones in. A block is
// reused for a request of at least three quarters of its size; the cache keeps at most
// kCachedBlocks blocks and kCachedBytes bytes, dropping the oldest first.
class ReleasedBlocks {
public:
    static constexpr size_t kCachedBlocks = 4;
    static constexpr size_t kCachedBytes = size_t{768} << 20;

    static ReleasedBlocks& Instance() {
        static ReleasedBlocks* blocks = new ReleasedBlocks;  // lives until the process ends
        return *blocks;
    }

    // A cached block of `bytes` to 4/3 x `bytes`, or null.
    std::pair<void*, size_t> Take(size_t bytes) noexcept {
        std::lock_guard guard(mutex_);
        for (size_t i = 0; i < count_; ++i) {
            if (blocks_[i].second >= bytes && blocks_[i].second / 4 * 3 <= bytes) {
                const auto taken = blocks_[i];
                total_ -= taken.second;
                for (size_t j = i + 1; j < count_; ++j) blocks_[j - 1] = blocks_[j];
                --count_;
                return taken;
            }
        }
        return {nullptr, 0};
    }

    // Keeps the block, or unmaps it (and older ones) when it does not fit.
    void Give(void* data, size_t bytes) noexcept {
        if (bytes > kCachedBytes) {
            munmap(data, bytes);
            return;
        }
        std::array<std::pair<void*, size_t>, kCachedBlocks> dropped{};
        size_t droppedCount = 0;
        {
            std::lock_guard guard(mutex_);
            while (count_ > 0 && (count_ == kCachedBlocks || total_ + bytes > kCachedBytes)) {
                dropped[droppedCount++] = blocks_[0];
                total_ -= blocks_[0].second;
                for (size_t j = 1; j < count_; ++j) blocks_[j - 1] = blocks_[j];
                --count_;
            }
            blocks_[count_++] = {data, bytes};
            total_ += bytes;
        }
        for (size_t i = 0; i < droppedCount; ++i) munmap(dropped[i].first, dropped[i].second);
    }

    void Trim() noexcept {
        std::lock_guard guard(mutex_);
        for (size_t i = 0; i < count_; ++i) munmap(blocks_[i].first, blocks_[i].second);
        count_ = 0;
        total_ = 0;
    }

private:
    std::mutex mutex_;
    std::array<std::pair<void*, size_t>, kCachedBlocks> blocks_{};
    size_t count_ = 0;
    size_t total_ = 0;
};

}  // namespace
#endif

ccPelMemoryBlock::ccPelMemoryBlock(size_t bytes, ccPelFill fill) : size_(bytes) {
#if defined(__linux__)
    if (bytes >= kLargeBytes) {
        if (const auto [cached, cachedBytes] = ReleasedBlocks::Instance().Take(bytes); cached) {
            data_ = static_cast<std::byte*>(cached);
            size_ = cachedBytes;
            mapped_ = true;
            if (fill == ccPelFill::Zero) std::memset(data_, 0, bytes);
            return;
        }
        void* mapped = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (mapped == MAP_FAILED) throw std::bad_alloc();
        // Advice only: without huge pages the block still works, page by page. Fresh
        // mapped pages read as zero: no fill is needed.
        madvise(mapped, bytes, MADV_HUGEPAGE);
        data_ = static_cast<std::byte*>(mapped);
        mapped_ = true;
        return;
    }
#endif
    data_ = fill == ccPelFill::Zero ? new std::byte[bytes]() : new std::byte[bytes];
}

ccPelMemoryBlock::~ccPelMemoryBlock() { Release(); }

ccPelMemoryBlock::ccPelMemoryBlock(ccPelMemoryBlock&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      mapped_(std::exchange(other.mapped_, false)) {}

ccPelMemoryBlock& ccPelMemoryBlock::operator=(ccPelMemoryBlock&& other) noexcept {
    if (this != &other) {
        Release();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        mapped_ = std::exchange(other.mapped_, false);
    }
    return *this;
}

void ccPelMemoryBlock::TrimCache() noexcept {
#if defined(__linux__)
    ReleasedBlocks::Instance().Trim();
#endif
}

void ccPelMemoryBlock::Release() noexcept {
    if (!data_) return;
#if defined(__linux__)
    if (mapped_) {
        ReleasedBlocks::Instance().Give(data_, size_);
        data_ = nullptr;
        return;
    }
#endif
    delete[] data_;
    data_ = nullptr;
}
