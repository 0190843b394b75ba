// A pool of equal-sized blocks for the heap instances of one small, often-made class: one
// block per instance, taken from chunks of kBlocksPerChunk blocks, so that making and
// dropping instances costs a list operation instead of a trip through the general heap.
//
//     void* cc2Thing::operator new(size_t size) { return Pool().Allocate(size); }
//     void cc2Thing::operator delete(void* block, size_t size) noexcept { Pool().Free(block, size); }
//
// A pool is named after the class it serves with "LEAK" in front ("LEAKcc2XformLinear"):
// the name under which blocks still held when the module unloads are reported. The first
// chunk is made by the first allocation. A class's pool is made on first use and lives for
// the whole process; a static ReleaseAtUnload object made with it frees the chunks when the
// module unloads, and in debug builds (NDEBUG not defined) reports to stderr the blocks still held
// then. Chunks that still hold blocks at that moment are kept, so that a late release stays
// valid; they are freed with the last of those blocks.
//
// Blocks of a size other than the pool's (an instance of a class derived from the one
// served) come from the general heap, and go back there.
//
// Threads: any number may allocate and free at once; a short mutex guards the free list.
#pragma once

#include <cstddef>
#include <mutex>

class ccFixedBlockPool {
public:
    static constexpr size_t kBlocksPerChunk = 256;

    // `name` must live as long as the pool (a literal).
    ccFixedBlockPool(const char* name, size_t blockSize, size_t blockAlignment = alignof(std::max_align_t));
    // Releases (see Release), reporting held blocks in debug builds.
    ~ccFixedBlockPool();
    ccFixedBlockPool(const ccFixedBlockPool&) = delete;
    ccFixedBlockPool& operator=(const ccFixedBlockPool&) = delete;

    // A block of `size` bytes: the pool's own when size is at most the block size, else one
    // from the general heap. Throws std::bad_alloc.
    void* Allocate(size_t size);
    // Gives back a block that Allocate(size) answered, with the same size; null is ignored.
    void Free(void* block, size_t size) noexcept;

    const char* Name() const noexcept { return name_; }
    size_t BlockSize() const noexcept { return blockSize_; }
    // Blocks handed out and not yet given back; chunks allocated.
    size_t BlocksInUse() const noexcept;
    size_t ChunkCount() const noexcept;

    // Frees every chunk when no block is held and answers 0; otherwise answers how many
    // blocks are still held and frees the chunks once the last of them comes back. The pool
    // may be used again afterwards (a new chunk is made on demand).
    size_t Release() noexcept;

    // Frees a pool's chunks when the module unloads (a static object beside the pool).
    class ReleaseAtUnload {
    public:
        explicit ReleaseAtUnload(ccFixedBlockPool& pool) noexcept : pool_(pool) {}
        ~ReleaseAtUnload();
        ReleaseAtUnload(const ReleaseAtUnload&) = delete;
        ReleaseAtUnload& operator=(const ReleaseAtUnload&) = delete;

    private:
        ccFixedBlockPool& pool_;
    };

private:
    struct Block {
        Block* next;
    };
    struct Chunk {
        Chunk* next;
    };

    void AddChunk();       // lock held
    void FreeChunks() noexcept;  // lock held, nothing in use
    size_t ReleaseAndReport(bool report) noexcept;

    const char* const name_;
    const size_t blockSize_;
    const size_t alignment_;
    const size_t headerSize_;  // the chunk header, rounded up to the alignment
    mutable std::mutex mutex_;
    Block* free_ = nullptr;
    Chunk* chunks_ = nullptr;
    size_t chunkCount_ = 0;
    size_t inUse_ = 0;
    bool releasePending_ = false;  // Release found blocks held: free the chunks with the last
};
