#include "platform/EnumConnectionPoints.h"

namespace tessaly {

template class SnapshotEnumerator<IEnumConnectionPoints, ConnectionPointElements>;

}  // namespace tessaly
