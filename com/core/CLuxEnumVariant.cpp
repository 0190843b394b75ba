#include "com/core/CLuxEnumVariant.h"

namespace tessaly {

template class SnapshotEnumerator<IEnumVARIANT, core::VariantElements>;

}  // namespace tessaly
