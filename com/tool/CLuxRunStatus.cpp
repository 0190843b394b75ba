#include "com/tool/CLuxRunStatus.h"

#include <cmath>
#include <utility>

#include "platform/ClassTable.h"

namespace tessaly::tool {

namespace {

const ClassRegistrar<CLuxRunStatus> registrar;

// Not-a-number equals itself here, so that storing the same reading twice raises nothing.
bool SameTime(double a, double b) noexcept { return a == b || (std::isnan(a) && std::isnan(b)); }

}  // namespace

bool CLuxRunStatus::Values::operator==(const Values& other) const noexcept {
    return errorCode == other.errorCode && errorString == other.errorString && SameTime(timeRaw, other.timeRaw) &&
           SameTime(time, other.time) && errorSource == other.errorSource;
}

ComPtr<CLuxRunStatus> CLuxRunStatus::Make() {
    auto status = ComPtr<CLuxRunStatus>::Attach(Create());
    if (!status) throw std::bad_alloc();
    return status;
}

HRESULT CLuxRunStatus::Set(const Values& values) {
    Values previous = values;  // copied before the lock: allocation stays outside it
    {
        core::ObjectLock::Guard guard(Lock());
        if (values_ == values) return S_OK;
        std::swap(previous, values_);
    }
    return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
}

CLuxRunStatus::Values CLuxRunStatus::Get() const {
    core::ObjectLock::Guard guard(Lock());
    return values_;
}

void CLuxRunStatus::CopyFrom(const CLuxRunStatus& source) {
    Values taken = source.Get();
    core::ObjectLock::Guard guard(Lock());
    std::swap(values_, taken);
}

void CLuxRunStatus::PersistState(core::ArchiveAccess& archive) {
    archive.Persist("ErrorCode", values_.errorCode);
    archive.Persist("ErrorString", values_.errorString);
    archive.Persist("TimeRaw", values_.timeRaw);
    archive.Persist("Time", values_.time);
    archive.Persist("ErrorSource", values_.errorSource);
}

void CLuxRunStatus::ResetState() noexcept {
    Values fresh;
    std::swap(values_, fresh);
}

HRESULT CLuxRunStatus::get_ErrorCode(LONG* ErrorCode) {
    return core::Guarded("get_ErrorCode", IID_ILuxRunStatus, [&] {
        core::RequireOut(ErrorCode);
        core::ObjectLock::Guard guard(Lock());
        *ErrorCode = values_.errorCode;
    });
}

HRESULT CLuxRunStatus::get_ErrorString(BSTR* ErrorString) {
    return core::Guarded("get_ErrorString", IID_ILuxRunStatus, [&] {
        core::RequireOut(ErrorString);
        *ErrorString = Get().errorString.Detach();
    });
}

HRESULT CLuxRunStatus::get_TimeRaw(double* TimeRaw) {
    return core::Guarded("get_TimeRaw", IID_ILuxRunStatus, [&] {
        core::RequireOut(TimeRaw);
        core::ObjectLock::Guard guard(Lock());
        *TimeRaw = values_.timeRaw;
    });
}

HRESULT CLuxRunStatus::get_Time(double* Time) {
    return core::Guarded("get_Time", IID_ILuxRunStatus, [&] {
        core::RequireOut(Time);
        core::ObjectLock::Guard guard(Lock());
        *Time = values_.time;
    });
}

HRESULT CLuxRunStatus::Init(LONG ErrorCode, BSTR ErrorString, double TimeRaw, double Time) {
    return core::Guarded("Init", IID_ILuxRunStatus, [&] {
        return Set(Values{ErrorCode, Bstr(BstrView(ErrorString)), TimeRaw, Time, Bstr()});
    });
}

HRESULT CLuxRunStatus::get_ErrorSource(BSTR* ErrorSource) {
    return core::Guarded("get_ErrorSource", IID_ILuxRunStatusInternal, [&] {
        core::RequireOut(ErrorSource);
        *ErrorSource = Get().errorSource.Detach();
    });
}

HRESULT CLuxRunStatus::InitWithSource(LONG ErrorCode, BSTR ErrorString, double TimeRaw, double Time,
                                      BSTR ErrorSource) {
    return core::Guarded("InitWithSource", IID_ILuxRunStatusInternal, [&] {
        return Set(Values{ErrorCode, Bstr(BstrView(ErrorString)), TimeRaw, Time, Bstr(BstrView(ErrorSource))});
    });
}

}  // namespace tessaly::tool
