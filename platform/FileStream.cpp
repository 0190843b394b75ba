#include "platform/FileStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/StreamCopy.h"
#include "platform/StreamSeek.h"

namespace tessaly {

namespace {

constexpr const char* kSource = "FileStream";
constexpr uint64_t kMaxOffset = static_cast<uint64_t>(std::numeric_limits<off_t>::max());

// The text of an errno value, without the thread-unsafe static buffer of strerror.
std::string ErrnoText(int error) {
    char buffer[256];
    return strerror_r(error, buffer, sizeof buffer);  // the GNU variant returns the text
}

HRESULT OpenError(int error, FileStream::Mode mode) noexcept {
    switch (error) {
        case ENOENT:
        case ENOTDIR: return STG_E_FILENOTFOUND;
        case EACCES:
        case EPERM:
        case EISDIR:
        case EROFS:
        case ETXTBSY: return STG_E_ACCESSDENIED;
        case ENOSPC:
        case EDQUOT:
        case EFBIG: return STG_E_MEDIUMFULL;
        case ENOMEM: return E_OUTOFMEMORY;
        default: return mode == FileStream::Mode::Read ? STG_E_READFAULT : STG_E_WRITEFAULT;
    }
}

HRESULT WriteError(int error) noexcept {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
        case EINVAL: return STG_E_MEDIUMFULL;  // ftruncate: beyond the largest file
        case EBADF:
        case EPERM:
        case EACCES: return STG_E_ACCESSDENIED;
        default: return STG_E_WRITEFAULT;
    }
}

HRESULT RecordOpenFailure(HRESULT result, std::string_view path, std::string_view reason) noexcept {
    try {
        std::string text = "Cannot open ";
        text.append(path).append(": ").append(reason);
        return SetErrorInfo(result, text, kSource, IStream::iid);
    } catch (...) {
        return SetErrorInfo(result, "Cannot open a file", kSource, IStream::iid);
    }
}

}  // namespace

FileStream::FileStream(int fd, std::string path, Mode mode, uint64_t position) noexcept
    : fd_(fd), path_(std::move(path)), mode_(mode), position_(position) {}

FileStream::~FileStream() {
    // No retry on EINTR: on Linux the descriptor is released whatever close answers.
    ::close(fd_);
}

HRESULT FileStream::Open(std::string_view path, Mode mode, IStream** out) noexcept {
    if (!out) return E_POINTER;
    *out = nullptr;
    int flags = O_CLOEXEC;
    switch (mode) {
        case Mode::Read: flags |= O_RDONLY; break;
        case Mode::Write: flags |= O_WRONLY | O_CREAT | O_TRUNC; break;
        case Mode::ReadWrite: flags |= O_RDWR | O_CREAT; break;
        default: return RecordOpenFailure(STG_E_INVALIDPARAMETER, path, "unknown access mode");
    }
    if (path.find('\0') != std::string_view::npos)
        return RecordOpenFailure(STG_E_INVALIDPARAMETER, path, "the path holds a NUL character");

    try {
        std::string name(path);
        int fd = -1;
        do {
            fd = ::open(name.c_str(), flags, 0666);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0) {
            const int error = errno;
            return RecordOpenFailure(OpenError(error, mode), path, ErrnoText(error));
        }
        // Opening a directory read-only succeeds; reading it would not.
        struct stat info {};
        if (::fstat(fd, &info) != 0 || S_ISDIR(info.st_mode)) {
            const int error = S_ISDIR(info.st_mode) ? EISDIR : errno;
            ::close(fd);
            return RecordOpenFailure(OpenError(error, mode), path, ErrnoText(error));
        }
        FileStream* stream = UnknownObject::Create(fd, std::move(name), mode, uint64_t(0));
        if (!stream) {
            ::close(fd);
            return RecordOpenFailure(E_OUTOFMEMORY, path, "out of memory");
        }
        *out = stream;
        return S_OK;
    } catch (...) {
        return SetErrorInfo(E_OUTOFMEMORY, "Cannot open a file: out of memory", kSource, IStream::iid);
    }
}

HRESULT FileStream::Fail(HRESULT result, const char* action, int error, const char* source) const noexcept {
    try {
        std::string text = "Cannot ";
        text.append(action).append(" ").append(path_).append(": ");
        text.append(error != 0 ? ErrnoText(error) : std::string("not opened for it"));
        return SetErrorInfo(result, text, source, IStream::iid);
    } catch (...) {
        return SetErrorInfo(result, action, source, IStream::iid);
    }
}

HRESULT FileStream::Read(void* pv, ULONG cb, ULONG* pcbRead) {
    if (pcbRead) *pcbRead = 0;
    if (!pv && cb != 0) return STG_E_INVALIDPOINTER;
    std::lock_guard lock(mutex_);
    if (mode_ == Mode::Write) return Fail(STG_E_ACCESSDENIED, "read", 0, "Read");
    ULONG done = 0;
    HRESULT hr = S_OK;
    while (done < cb) {
        const uint64_t offset = position_ + done;
        if (offset >= kMaxOffset) break;  // nothing lies beyond the largest offset
        const size_t want = static_cast<size_t>(std::min<uint64_t>(cb - done, kMaxOffset - offset));
        const ssize_t n = ::pread(fd_, static_cast<char*>(pv) + done, want, static_cast<off_t>(offset));
        if (n < 0) {
            if (errno == EINTR) continue;
            const int error = errno;
            hr = Fail(error == EBADF ? STG_E_ACCESSDENIED : STG_E_READFAULT, "read", error, "Read");
            break;
        }
        if (n == 0) break;  // end of file
        done += static_cast<ULONG>(n);
    }
    position_ += done;
    if (pcbRead) *pcbRead = done;
    return hr;
}

HRESULT FileStream::Write(const void* pv, ULONG cb, ULONG* pcbWritten) {
    if (pcbWritten) *pcbWritten = 0;
    if (!pv && cb != 0) return STG_E_INVALIDPOINTER;
    std::lock_guard lock(mutex_);
    if (mode_ == Mode::Read) return Fail(STG_E_ACCESSDENIED, "write", 0, "Write");
    if (position_ + cb > kMaxOffset) return Fail(STG_E_MEDIUMFULL, "write", EFBIG, "Write");
    ULONG done = 0;
    HRESULT hr = S_OK;
    while (done < cb) {
        const ssize_t n = ::pwrite(fd_, static_cast<const char*>(pv) + done, cb - done, static_cast<off_t>(position_ + done));
        if (n < 0) {
            if (errno == EINTR) continue;
            const int error = errno;
            hr = Fail(WriteError(error), "write", error, "Write");
            break;
        }
        if (n == 0) {  // a device that takes nothing more
            hr = Fail(STG_E_MEDIUMFULL, "write", ENOSPC, "Write");
            break;
        }
        done += static_cast<ULONG>(n);
    }
    position_ += done;
    if (pcbWritten) *pcbWritten = done;
    return hr;
}

HRESULT FileStream::Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) {
    std::lock_guard lock(mutex_);
    const auto end = [&](int64_t& size) {
        struct stat info {};
        if (::fstat(fd_, &info) != 0) return Fail(STG_E_SEEKERROR, "seek in", errno, "Seek");
        size = info.st_size;
        return S_OK;
    };
    return SeekStream(position_, dlibMove, dwOrigin, end, plibNewPosition);
}

HRESULT FileStream::SetSize(ULONGLONG libNewSize) {
    std::lock_guard lock(mutex_);
    if (mode_ == Mode::Read) return Fail(STG_E_ACCESSDENIED, "resize", 0, "SetSize");
    if (libNewSize > kMaxOffset) return Fail(STG_E_MEDIUMFULL, "resize", EFBIG, "SetSize");
    int result = 0;
    do {
        result = ::ftruncate(fd_, static_cast<off_t>(libNewSize));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        const int error = errno;
        return Fail(WriteError(error), "resize", error, "SetSize");
    }
    return S_OK;
}

HRESULT FileStream::CopyTo(IStream* pstm, ULONGLONG cb, ULONGLONG* pcbRead, ULONGLONG* pcbWritten) {
    return CopyStreamRange(*this, pstm, cb, pcbRead, pcbWritten);
}

HRESULT FileStream::Commit(DWORD) {
    std::lock_guard lock(mutex_);
    if (mode_ == Mode::Read) return S_OK;
    int result = 0;
    do {
        result = ::fdatasync(fd_);
    } while (result != 0 && errno == EINTR);
    // Special files (pipes, some devices) cannot be synchronised and have nothing to lose.
    if (result != 0 && errno != EINVAL && errno != EROFS) {
        const int error = errno;
        return Fail(WriteError(error), "commit", error, "Commit");
    }
    return S_OK;
}

HRESULT FileStream::Revert() { return S_OK; }

HRESULT FileStream::LockRegion(ULONGLONG, ULONGLONG, DWORD) { return STG_E_INVALIDFUNCTION; }
HRESULT FileStream::UnlockRegion(ULONGLONG, ULONGLONG, DWORD) { return STG_E_INVALIDFUNCTION; }

HRESULT FileStream::Stat(STATSTG* pstatstg, DWORD grfStatFlag) {
    if (!pstatstg) return STG_E_INVALIDPOINTER;
    *pstatstg = STATSTG{};
    struct stat info {};
    if (::fstat(fd_, &info) != 0) return Fail(STG_E_READFAULT, "examine", errno, "Stat");
    if (!(grfStatFlag & STATFLAG_NONAME)) {
        if (path_.size() > std::numeric_limits<UINT>::max()) return E_OUTOFMEMORY;
        pstatstg->pwcsName = SysAllocStringLen(path_.data(), static_cast<UINT>(path_.size()));
        if (!pstatstg->pwcsName) return E_OUTOFMEMORY;
    }
    pstatstg->type = STGTY_STREAM;
    pstatstg->cbSize = static_cast<ULONGLONG>(info.st_size);
    pstatstg->grfMode = static_cast<DWORD>(mode_);
    return S_OK;
}

HRESULT FileStream::Clone(IStream** ppstm) {
    if (!ppstm) return STG_E_INVALIDPOINTER;
    *ppstm = nullptr;
    std::lock_guard lock(mutex_);
    const int fd = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);
    if (fd < 0) {
        const int error = errno;
        return Fail(error == ENOMEM ? E_OUTOFMEMORY : STG_E_READFAULT, "clone a stream on", error, "Clone");
    }
    FileStream* copy = UnknownObject::Create(fd, path_, mode_, position_);
    if (!copy) {
        ::close(fd);
        return E_OUTOFMEMORY;
    }
    *ppstm = copy;
    return S_OK;
}

}  // namespace tessaly
