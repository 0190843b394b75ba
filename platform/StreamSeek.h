// IStream::Seek for every stream of the runtime: the new position from an origin and a
// signed move, refusing an unknown origin and a position before the start or beyond
// INT64_MAX (STG_E_INVALIDFUNCTION). Positions past the end are allowed; what a later
// read or write does there is the stream's business. `endOfStream(int64_t& size)` gives
// the size for STREAM_SEEK_END and is asked only then; its failure is returned as it is
// and leaves the position unchanged.
#pragma once

#include <cstdint>

#include "platform/StandardInterfaces.h"

namespace tessaly {

template <class EndOfStream>
HRESULT SeekStream(uint64_t& position, LONGLONG move, DWORD origin, EndOfStream&& endOfStream,
                   ULONGLONG* newPosition) {
    int64_t base = 0;
    switch (origin) {
        case STREAM_SEEK_SET: break;
        case STREAM_SEEK_CUR: base = static_cast<int64_t>(position); break;
        case STREAM_SEEK_END: {
            const HRESULT sized = endOfStream(base);
            if (FAILED(sized)) return sized;
            break;
        }
        default: return STG_E_INVALIDFUNCTION;
    }
    int64_t target = 0;
    if (__builtin_add_overflow(base, move, &target) || target < 0) return STG_E_INVALIDFUNCTION;
    position = static_cast<uint64_t>(target);
    if (newPosition) *newPosition = position;
    return S_OK;
}

}  // namespace tessaly
