// A stream over a growable block of memory: what objects save themselves into before the
// bytes go elsewhere (base64 text, a file, a Python buffer), and what they load from.
//
// Writing past the end grows the block; seeking past the end is allowed and a later write
// fills the gap with zeros. Every call holds the stream's lock, so one stream may be used
// from several threads, though a shared seek pointer rarely makes that useful.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/UnknownObject.h"

namespace tessaly {

class MemoryStream : public UnknownObject<MemoryStream, IStream> {
public:
    // The most a memory stream holds (1 TiB). A write or SetSize beyond it fails with
    // STG_E_MEDIUMFULL before anything is allocated, so that a seek far past the end
    // followed by a write cannot turn into an absurd allocation request.
    static constexpr uint64_t kMaxSize = uint64_t(1) << 40;

    // A new, empty stream with one reference owned by the caller; nullptr when out of memory.
    static MemoryStream* Create() noexcept;
    // A new, empty stream answered as IStream. E_POINTER for a null `out`, E_OUTOFMEMORY.
    static HRESULT Create(IStream** out) noexcept;
    // A new stream holding a copy of `size` bytes at `data`, positioned at the start.
    // STG_E_INVALIDPOINTER for null `data` with a non-zero size, STG_E_MEDIUMFULL above
    // kMaxSize, E_OUTOFMEMORY.
    static HRESULT Create(const void* data, size_t size, IStream** out) noexcept;

    // The stream's bytes, for C++ callers. The pointer stays valid until the next call that
    // changes the size (Write, SetSize); it is not guarded against concurrent writers.
    const uint8_t* Data() const noexcept;
    size_t Size() const noexcept;
    // Room for `more` bytes past the end without moving the block again: a writer that
    // knows how much is coming saves the copies of growing step by step. Only a hint: the
    // size does not change, and out of memory the block stays as it is.
    void Reserve(uint64_t more) noexcept;

    // ISequentialStream
    HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) override;
    HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) override;

    // IStream
    HRESULT Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) override;
    HRESULT SetSize(ULONGLONG libNewSize) override;
    HRESULT CopyTo(IStream* pstm, ULONGLONG cb, ULONGLONG* pcbRead, ULONGLONG* pcbWritten) override;
    HRESULT Commit(DWORD grfCommitFlags) override;
    HRESULT Revert() override;
    HRESULT LockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) override;
    HRESULT UnlockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) override;
    HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override;
    // A new stream with a copy of the bytes and the same seek pointer. Unlike a clone that
    // shares its storage, writes to either stream are not seen by the other.
    HRESULT Clone(IStream** ppstm) override;

protected:
    ~MemoryStream() override = default;

private:
    friend class UnknownObject<MemoryStream, IStream>;
    MemoryStream() = default;

    // Leaves new bytes uninitialised: a write fills them at once, so zeroing them first
    // would cost a second pass over a large block. ResizeLocked zeroes what is not written.
    template <class T>
    struct UninitialisedAllocator : std::allocator<T> {
        template <class U>
        struct rebind {
            using other = UninitialisedAllocator<U>;
        };
        UninitialisedAllocator() = default;
        template <class U>
        UninitialisedAllocator(const UninitialisedAllocator<U>&) noexcept {}
        template <class U>
        void construct(U* at) noexcept {
            ::new (static_cast<void*>(at)) U;
        }
        template <class U, class... Args>
        void construct(U* at, Args&&... args) {
            ::new (static_cast<void*>(at)) U(std::forward<Args>(args)...);
        }
    };

    // Grows or shrinks the bytes to `size`. New bytes before `writtenFrom` are zeroed; the
    // caller writes the rest at once. The caller holds the lock; on failure nothing changes.
    HRESULT ResizeLocked(uint64_t size, uint64_t writtenFrom) noexcept;

    mutable std::mutex mutex_;
    std::vector<uint8_t, UninitialisedAllocator<uint8_t>> bytes_;
    uint64_t position_ = 0;
};

}  // namespace tessaly
