// Which state ID a change of a shape's parameters announces.
#pragma once

#include <cstdint>
#include <span>

namespace tessaly::core {

// One parameter's value before and after a change, and the state ID a change of it alone
// announces.
struct ParameterChange {
    double before;
    double after;
    int32_t stateId;
};

// The state ID of the one parameter whose value changed, luxState_MoreThanOneStateIDChanged
// if several did, luxState_Undefined if none did. `announced` gets the value of the last
// changed parameter and is left as it was if none changed.
int32_t AnnouncedStateId(std::span<const ParameterChange> changes, double& announced) noexcept;

}  // namespace tessaly::core
