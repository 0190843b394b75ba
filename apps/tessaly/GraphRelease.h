// Lets go of a loaded object graph. An archive may hold cycles (a collection that holds
// itself, objects that hold each other), which reference counts alone never free: every
// object of the graph is first loaded from an empty archive, which resets it to a new
// object's state and drops what it holds.
#pragma once

#include "platform/ComPtr.h"

namespace tessaly::cli {

class GraphRelease {
public:
    static void Release(ComPtr<IDispatch> root) noexcept;
};

}  // namespace tessaly::cli
