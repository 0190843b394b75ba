// LuxRunStatus: the outcome of a tool's last Run - its code (0, s_LuxTool_Warn,
// s_LuxTool_Reject or a failure), the text of that outcome, the method in which a failure
// arose, and two times in milliseconds: TimeRaw for the work alone and Time including the
// Change events that announced the results.
//
//  - A new status is all defaults: code 0, empty strings, times 0.
//  - The values are read-only to clients except through Init / InitWithSource, which set
//    every value at once (Init leaves ErrorSource empty) and raise one
//    Change(luxState_MoreThanOneStateIDChanged, empty, luxFA_Misc) when any value differs;
//    setting the present values raises nothing. Two times are the same when they are equal
//    or both not a number.
//  - Persistence: "ErrorCode", "ErrorString", "TimeRaw", "Time", "ErrorSource".
//
// The tool template makes and fills statuses without dispatch: Make and Set.
#pragma once

#include <cstdint>

#include "TessalyCore.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"

namespace tessaly::tool {

class CLuxRunStatus : public core::ILuxObjectImplBase<CLuxRunStatus, ILuxRunStatus, ILuxRunStatusInternal> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxRunStatus; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxRunStatus;

    struct Values {
        int32_t errorCode = 0;
        Bstr errorString;
        double timeRaw = 0;
        double time = 0;
        Bstr errorSource;
        bool operator==(const Values& other) const noexcept;
    };

    CLuxRunStatus() = default;

    // A new status with the default values. Throws std::bad_alloc.
    static ComPtr<CLuxRunStatus> Make();
    // Sets every value as InitWithSource does, raising the one Change when something
    // differs; returns what raising the event returned. Call with no lock of the caller
    // held that a sink might need.
    HRESULT Set(const Values& values);
    // A snapshot taken under the lock.
    Values Get() const;

    void CopyFrom(const CLuxRunStatus& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept;

    // ILuxRunStatus
    HRESULT get_ErrorCode(LONG* ErrorCode) override;
    HRESULT get_ErrorString(BSTR* ErrorString) override;
    HRESULT get_TimeRaw(double* TimeRaw) override;
    HRESULT get_Time(double* Time) override;
    HRESULT Init(LONG ErrorCode, BSTR ErrorString, double TimeRaw, double Time) override;

    // ILuxRunStatusInternal
    HRESULT get_ErrorSource(BSTR* ErrorSource) override;
    HRESULT InitWithSource(LONG ErrorCode, BSTR ErrorString, double TimeRaw, double Time, BSTR ErrorSource) override;

protected:
    ~CLuxRunStatus() override = default;

private:
    Values values_;
};

}  // namespace tessaly::tool
