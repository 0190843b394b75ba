#include "xnl/std/base/ccFixedBlockPool.h"

#include <cstdio>
#include <new>

namespace {

size_t RoundUp(size_t size, size_t alignment) noexcept { return (size + alignment - 1) / alignment * alignment; }

}  // namespace

ccFixedBlockPool::ccFixedBlockPool(const char* name, size_t blockSize, size_t blockAlignment)
    : name_(name),
      blockSize_(RoundUp(blockSize < sizeof(Block) ? sizeof(Block) : blockSize,
                         blockAlignment < alignof(Block) ? alignof(Block) : blockAlignment)),
      alignment_(blockAlignment < alignof(Block) ? alignof(Block) : blockAlignment),
      headerSize_(RoundUp(sizeof(Chunk), alignment_)) {}

ccFixedBlockPool::~ccFixedBlockPool() { ReleaseAndReport(true); }

ccFixedBlockPool::ReleaseAtUnload::~ReleaseAtUnload() { pool_.ReleaseAndReport(true); }

void* ccFixedBlockPool::Allocate(size_t size) {
    if (size > blockSize_) [[unlikely]]
        return ::operator new(size);
    std::lock_guard lock(mutex_);
    if (!free_) AddChunk();
    Block* block = free_;
    free_ = block->next;
    ++inUse_;
    return block;
}

void ccFixedBlockPool::Free(void* block, size_t size) noexcept {
    if (!block) return;
    if (size > blockSize_) [[unlikely]] {
        ::operator delete(block);
        return;
    }
    std::lock_guard lock(mutex_);
    auto* freed = static_cast<Block*>(block);
    freed->next = free_;
    free_ = freed;
    --inUse_;
    if (inUse_ == 0 && releasePending_) FreeChunks();
}

size_t ccFixedBlockPool::BlocksInUse() const noexcept {
    std::lock_guard lock(mutex_);
    return inUse_;
}

size_t ccFixedBlockPool::ChunkCount() const noexcept {
    std::lock_guard lock(mutex_);
    return chunkCount_;
}

size_t ccFixedBlockPool::Release() noexcept { return ReleaseAndReport(false); }

size_t ccFixedBlockPool::ReleaseAndReport(bool report) noexcept {
    size_t held;
    {
        std::lock_guard lock(mutex_);
        held = inUse_;
        if (held == 0)
            FreeChunks();
        else
            releasePending_ = true;
    }
#ifndef NDEBUG
    if (report && held != 0)
        std::fprintf(stderr, "%s: %zu block(s) of %zu bytes still held at unload\n", name_, held, blockSize_);
#else
    (void)report;
#endif
    return held;
}

void ccFixedBlockPool::AddChunk() {
    const size_t bytes = headerSize_ + blockSize_ * kBlocksPerChunk;
    auto* memory = static_cast<unsigned char*>(::operator new(bytes, std::align_val_t(alignment_)));
    auto* chunk = reinterpret_cast<Chunk*>(memory);
    chunk->next = chunks_;
    chunks_ = chunk;
    ++chunkCount_;
    // Threaded so that the lowest address is handed out first.
    unsigned char* first = memory + headerSize_;
    for (size_t i = kBlocksPerChunk; i-- > 0;) {
        auto* block = reinterpret_cast<Block*>(first + i * blockSize_);
        block->next = free_;
        free_ = block;
    }
}

void ccFixedBlockPool::FreeChunks() noexcept {
    while (chunks_) {
        Chunk* next = chunks_->next;
        ::operator delete(static_cast<void*>(chunks_), std::align_val_t(alignment_));
        chunks_ = next;
    }
    chunkCount_ = 0;
    free_ = nullptr;
    releasePending_ = false;
}
