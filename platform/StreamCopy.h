// IStream::CopyTo for every stream of the runtime: reads from the source through its own
// Read and writes to the target in chunks, so that no lock of the source is held while
// the target runs (the target may be the source itself).
#pragma once

#include "platform/StandardInterfaces.h"

namespace tessaly {

// Copies up to `count` bytes from the source's position to the target's; reports what
// was read and written (either pointer may be null). A short write is STG_E_MEDIUMFULL.
HRESULT CopyStreamRange(IStream& source, IStream* target, ULONGLONG count, ULONGLONG* read,
                        ULONGLONG* written) noexcept;

}  // namespace tessaly
