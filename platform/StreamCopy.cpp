#include "platform/StreamCopy.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tessaly {

namespace {
constexpr size_t kCopyChunk = size_t(64) << 10;
}  // namespace

HRESULT CopyStreamRange(IStream& source, IStream* target, ULONGLONG count, ULONGLONG* read,
                        ULONGLONG* written) noexcept {
    if (read) *read = 0;
    if (written) *written = 0;
    if (!target) return STG_E_INVALIDPOINTER;
    std::vector<uint8_t> chunk;
    try {
        chunk.resize(static_cast<size_t>(std::min<uint64_t>(count, kCopyChunk)));
    } catch (...) {
        return E_OUTOFMEMORY;
    }
    uint64_t totalRead = 0;
    uint64_t totalWritten = 0;
    HRESULT hr = S_OK;
    while (totalRead < count) {
        ULONG got = 0;
        hr = source.Read(chunk.data(), static_cast<ULONG>(std::min<uint64_t>(count - totalRead, chunk.size())), &got);
        totalRead += got;
        if (FAILED(hr) || got == 0) break;
        ULONG put = 0;
        hr = target->Write(chunk.data(), got, &put);
        totalWritten += put;
        if (FAILED(hr)) break;
        if (put < got) {
            hr = STG_E_MEDIUMFULL;
            break;
        }
    }
    if (read) *read = totalRead;
    if (written) *written = totalWritten;
    return FAILED(hr) ? hr : S_OK;
}

}  // namespace tessaly
