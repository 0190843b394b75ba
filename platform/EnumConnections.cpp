#include "platform/EnumConnections.h"

namespace tessaly {

template class SnapshotEnumerator<IEnumConnections, ConnectionElements>;

}  // namespace tessaly
