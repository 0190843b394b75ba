#include "com/core/impl/ParameterChanges.h"

#include "TessalyCore.h"

namespace tessaly::core {

int32_t AnnouncedStateId(std::span<const ParameterChange> changes, double& announced) noexcept {
    int32_t stateId = luxState_Undefined;
    for (const ParameterChange& change : changes) {
        if (change.before == change.after) continue;
        stateId = stateId == luxState_Undefined ? change.stateId : luxState_MoreThanOneStateIDChanged;
        announced = change.after;
    }
    return stateId;
}

}  // namespace tessaly::core
