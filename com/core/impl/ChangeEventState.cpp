#include "com/core/impl/ChangeEventState.h"

#include "TessalyCore.h"

namespace tessaly::core {

bool ChangeEventState::Suspend() noexcept {
    if (suspendCount_ == UINT32_MAX) return false;
    ++suspendCount_;
    return true;
}

void ChangeEventState::Merge(int32_t stateId, const VARIANT& value, int32_t areas) noexcept {
    pendingAreas_ |= areas;
    const bool first = pendingStateId_ == luxState_Undefined;
    const bool same = stateId == pendingStateId_ && stateId != luxState_SubObjectEvent;
    if ((first || same) && stateId != luxState_MoreThanOneStateIDChanged) {
        VARIANT copy;
        VariantInit(&copy);
        // A value that cannot be copied is not worth failing a setter that has already
        // stored its change: the event then says "more than one change", which is true
        // of what a listener must re-read.
        if (SUCCEEDED(VariantCopyInd(&copy, &value))) {
            VariantClear(&pendingValue_);
            pendingValue_ = copy;
            pendingStateId_ = stateId;
            return;
        }
    }
    pendingStateId_ = luxState_MoreThanOneStateIDChanged;
    VariantClear(&pendingValue_);
}

int32_t ChangeEventState::TakeAreas(int32_t areas) noexcept {
    const int32_t all = areas | pendingAreas_;
    pendingAreas_ = 0;
    return all;
}

ChangeEventState::Resume ChangeEventState::ResumeDelivery(bool& deliver, int32_t& stateId, VARIANT& value,
                                                          int32_t& areas) noexcept {
    deliver = false;
    if (suspendCount_ == 0) return Resume::NotSuspended;
    if (--suspendCount_ != 0) return Resume::StillSuspended;
    if (pendingStateId_ != luxState_Undefined) {
        deliver = true;
        stateId = pendingStateId_;
        value = pendingValue_;  // ownership moves to the caller
        VariantInit(&pendingValue_);
        areas = pendingAreas_;
        pendingStateId_ = luxState_Undefined;
        pendingAreas_ = 0;
    }
    return Resume::Resumed;
}

}  // namespace tessaly::core
