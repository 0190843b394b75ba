// The change-event bookkeeping of one object: the suspend count and the change pending
// while delivery is suspended. The object holds its lock around every call; delivering
// the event is the object's business, done after the lock is released.
//
// Merging while suspended: areas are ORed; the first change, or another change of the same
// state ID (other than a forwarded sub-object event, -2), sets the pending state ID and a
// copy of its value (the latest value wins); any other change makes the pending state ID
// -1 with an empty value.
#pragma once

#include <cstdint>

#include "platform/Variant.h"

namespace tessaly::core {

class ChangeEventState {
public:
    ChangeEventState() noexcept { VariantInit(&pendingValue_); }
    ~ChangeEventState() { VariantClear(&pendingValue_); }
    ChangeEventState(const ChangeEventState&) = delete;
    ChangeEventState& operator=(const ChangeEventState&) = delete;

    uint32_t SuspendCount() const noexcept { return suspendCount_; }
    int32_t PendingStateId() const noexcept { return pendingStateId_; }
    int32_t PendingAreas() const noexcept { return pendingAreas_; }
    const VARIANT& PendingValue() const noexcept { return pendingValue_; }

    // False when the count cannot grow any more.
    bool Suspend() noexcept;

    // A change raised while delivery is suspended: merged into the pending change.
    void Merge(int32_t stateId, const VARIANT& value, int32_t areas) noexcept;

    // A change raised while delivery runs: its areas plus those left pending, which are
    // taken (they travel with this event).
    int32_t TakeAreas(int32_t areas) noexcept;

    enum class Resume { NotSuspended, StillSuspended, Resumed };
    // Decrements the count. On reaching 0 with a change pending, hands it over (the caller
    // owns `value`, which must be empty on entry) and sets `deliver`.
    Resume ResumeDelivery(bool& deliver, int32_t& stateId, VARIANT& value, int32_t& areas) noexcept;

private:
    uint32_t suspendCount_ = 0;
    int32_t pendingAreas_ = 0;
    int32_t pendingStateId_ = 0;  // luxState_Undefined: nothing pending
    VARIANT pendingValue_;
};

}  // namespace tessaly::core
