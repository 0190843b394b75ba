// A stream over a file, through a POSIX descriptor. The stream keeps its own seek pointer
// and reads and writes at it with pread/pwrite, so clones (which share the descriptor's
// file but not the pointer) never disturb each other. Every call holds the stream's lock.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/UnknownObject.h"

namespace tessaly {

class FileStream : public UnknownObject<FileStream, IStream> {
public:
    // How the file is opened. The values are the access modes Stat reports in grfMode.
    enum class Mode : DWORD {
        Read = 0,       // an existing file, read only
        Write = 1,      // created, or truncated when it exists; write only
        ReadWrite = 2,  // created when missing, kept otherwise
    };

    // Opens `path` and answers it as a stream positioned at the start. Failures:
    // STG_E_FILENOTFOUND (missing file or directory on the way), STG_E_ACCESSDENIED
    // (permissions, a directory, a read-only file system), STG_E_MEDIUMFULL,
    // STG_E_INVALIDPARAMETER (a path with a NUL in it), E_OUTOFMEMORY, else
    // STG_E_READFAULT / STG_E_WRITEFAULT; each records error info naming the path.
    static HRESULT Open(std::string_view path, Mode mode, IStream** out) noexcept;

    // ISequentialStream
    HRESULT Read(void* pv, ULONG cb, ULONG* pcbRead) override;
    HRESULT Write(const void* pv, ULONG cb, ULONG* pcbWritten) override;

    // IStream
    HRESULT Seek(LONGLONG dlibMove, DWORD dwOrigin, ULONGLONG* plibNewPosition) override;
    HRESULT SetSize(ULONGLONG libNewSize) override;
    HRESULT CopyTo(IStream* pstm, ULONGLONG cb, ULONGLONG* pcbRead, ULONGLONG* pcbWritten) override;
    // Writes reach the file at once; Commit also makes them durable (fdatasync).
    HRESULT Commit(DWORD grfCommitFlags) override;
    // Nothing is buffered, so there is nothing to roll back.
    HRESULT Revert() override;
    HRESULT LockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) override;
    HRESULT UnlockRegion(ULONGLONG libOffset, ULONGLONG cb, DWORD dwLockType) override;
    // The name reported is the path the stream was opened with.
    HRESULT Stat(STATSTG* pstatstg, DWORD grfStatFlag) override;
    // A second stream on the same file (a duplicated descriptor) with its own seek
    // pointer, starting where this one stands.
    HRESULT Clone(IStream** ppstm) override;

protected:
    ~FileStream() override;

private:
    friend class UnknownObject<FileStream, IStream>;
    FileStream(int fd, std::string path, Mode mode, uint64_t position) noexcept;

    // Records error info for a failed call on this stream and returns `result`.
    HRESULT Fail(HRESULT result, const char* action, int error, const char* source) const noexcept;

    mutable std::mutex mutex_;
    const int fd_;
    const std::string path_;
    const Mode mode_;
    uint64_t position_;
};

}  // namespace tessaly
