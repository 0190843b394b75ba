#include "platform/MemoryStream.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <new>

#include "platform/Bstr.h"
#include "platform/StreamCopy.h"
#include "platform/StreamSeek.h"

namespace tessaly {

namespace {

// Access mode reported by Stat: read and write, as STGM_READWRITE.
constexpr DWORD kReadWriteMode = 2;
// Bytes moved per round by CopyTo: large enough to amortise the calls, small enough to
// keep the buffer off the critical path of memory.

// Whether `p` points into [begin, begin + size).
bool PointsInto(const void* p, const uint8_t* begin, size_t size) noexcept {
    const std::less<const void*> before;
    return size != 0 && !before(p, begin) && before(p, begin + size);
}

}  // namespace

MemoryStream* MemoryStream::Create() noexcept { return UnknownObject::Create(); }

HRESULT MemoryStream::Create(IStream** out) noexcept {
    if (!out) return E_POINTER;
    *out = Create();
    return *out ? S_OK : E_OUTOFMEMORY;
}

HRESULT MemoryStream::Create(const void* data, size_t size, IStream** out) noexcept {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!data && size != 0) return STG_E_INVALIDPOINTER;
    if (size > kMaxSize) return STG_E_MEDIUMFULL;
    MemoryStream* stream = Create();
    if (!stream) return E_OUTOFMEMORY;
    try {
        stream->bytes_.assign(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
    } catch (...) {
        stream->Release();
        return E_OUTOFMEMORY;
    }
    *out = stream;
    return S_OK;
}

const uint8_t* MemoryStream::Data() const noexcept {
    std::lock_guard lock(mutex_);
    return bytes_.data();
}

size_t MemoryStream::Size() const noexcept {
    std::lock_guard lock(mutex_);
    return bytes_.size();
}

void MemoryStream::Reserve(uint64_t more) noexcept {
    std::lock_guard lock(mutex_);
    const uint64_t wanted = std::max<uint64_t>(position_, bytes_.size()) + more;
    if (wanted > kMaxSize || wanted <= bytes_.capacity()) return;
    try {
        bytes_.reserve(static_cast<size_t>(wanted));
    } catch (...) {
    }
}

HRESULT MemoryStream::ResizeLocked(uint64_t size, uint64_t writtenFrom) noexcept {
    if (size > kMaxSize) return STG_E_MEDIUMFULL;
    const size_t wanted = static_cast<size_t>(size);
    const size_t before = bytes_.size();
    try {
        // Geometric growth, with a quarter of headroom beyond a large single write so that
        // the small writes after it do not move the block again; reserve first so that a
        // failure leaves the bytes as they were.
        if (wanted > bytes_.capacity()) {
            const uint64_t doubled = uint64_t(bytes_.capacity()) * 2;
            const uint64_t roomy = uint64_t(wanted) + wanted / 4;
            bytes_.reserve(static_cast<size_t>(std::min<uint64_t>(std::max(doubled, roomy), kMaxSize)));
        }
        bytes_.resize(wanted);
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    if (wanted > before) {
        const size_t zeroEnd = static_cast<size_t>(std::min<uint64_t>(std::max<uint64_t>(writtenFrom, before), wanted));
        std::memset(bytes_.data() + before, 0, zeroEnd - before);
    }
    return S_OK;
}

HRESULT MemoryStream::Read(void* pv, ULONG cb, ULONG* pcbRead) {
    if (pcbRead) *pcbRead = 0;
    if (!pv && cb != 0) return STG_E_INVALIDPOINTER;
    std::lock_guard lock(mutex_);
    const uint64_t size = bytes_.size();
    const ULONG count = position_ >= size ? 0 : static_cast<ULONG>(std::min<uint64_t>(cb, size - position_));
    if (count != 0) std::memcpy(pv, bytes_.data() + position_, count);
    position_ += count;
    if (pcbRead) *pcbRead = count;
    return S_OK;
}

HRESULT MemoryStream::Write(const void* pv, ULONG cb, ULONG* pcbWritten) {
    if (pcbWritten) *pcbWritten = 0;
    if (!pv && cb != 0) return STG_E_INVALIDPOINTER;
    if (cb == 0) return S_OK;
    std::lock_guard lock(mutex_);
    const uint64_t end = position_ + cb;  // position_ <= INT64_MAX, so no overflow
    if (end > kMaxSize) return STG_E_MEDIUMFULL;
    if (end > bytes_.size()) {
        // The source may be our own bytes (a caller appending from Data()): find it again
        // after the block moves.
        const bool own = PointsInto(pv, bytes_.data(), bytes_.size());
        const size_t offset = own ? static_cast<size_t>(static_cast<const uint8_t*>(pv) - bytes_.data()) : 0;
        const HRESULT hr = ResizeLocked(end, position_);  // only a gap before the write is zeroed
        if (FAILED(hr)) return hr;
        if (own) pv = bytes_.data() + offset;
    }
    std::memmove(bytes_.data() + position_, pv, cb);
    position_ = end;
    if (pcbWritten) *pcbWritten = cb;
    return S_OK;
}

HRESULT MemoryStream::Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) {
    std::lock_guard lock(mutex_);
    const auto end = [&](int64_t& size) noexcept {
        size = static_cast<int64_t>(bytes_.size());
        return S_OK;
    };
    return SeekStream(position_, dlibMove, dwOrigin, end, plibNewPosition);
}

HRESULT MemoryStream::SetSize(ULONGLONG libNewSize) {
    std::lock_guard lock(mutex_);
    return ResizeLocked(libNewSize, libNewSize);
}

HRESULT MemoryStream::CopyTo(IStream* pstm, ULONGLONG cb, ULONGLONG* pcbRead, ULONGLONG* pcbWritten) {
    return CopyStreamRange(*this, pstm, cb, pcbRead, pcbWritten);
}

// Writes go straight into the bytes: there is nothing to commit or to roll back.
HRESULT MemoryStream::Commit(DWORD) { return S_OK; }
HRESULT MemoryStream::Revert() { return S_OK; }

HRESULT MemoryStream::LockRegion(ULONGLONG, ULONGLONG, DWORD) { return STG_E_INVALIDFUNCTION; }
HRESULT MemoryStream::UnlockRegion(ULONGLONG, ULONGLONG, DWORD) { return STG_E_INVALIDFUNCTION; }

HRESULT MemoryStream::Stat(STATSTG* pstatstg, DWORD grfStatFlag) {
    if (!pstatstg) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    // A memory stream has no name: callers asking for one get an empty string to free.
    if (!(grfStatFlag & STATFLAG_NONAME)) {
        pstatstg->pwcsName = SysAllocString("");
        if (!pstatstg->pwcsName) return E_OUTOFMEMORY;
    }
    pstatstg->type = STGTY_STREAM;
    pstatstg->grfMode = kReadWriteMode;
    std::lock_guard lock(mutex_);
    pstatstg->cbSize = bytes_.size();
    return S_OK;
}

HRESULT MemoryStream::Clone(IStream** ppstm) {
    if (!ppstm) return STG_E_INVALIDPOINTER;
    *ppstm = nullptr;
    MemoryStream* copy = Create();
    if (!copy) return E_OUTOFMEMORY;
    try {
        std::lock_guard lock(mutex_);
        copy->bytes_ = bytes_;
        copy->position_ = position_;
    } catch (...) {
        copy->Release();
        return E_OUTOFMEMORY;
    }
    *ppstm = copy;
    return S_OK;
}

}  // namespace tessaly
