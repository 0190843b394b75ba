#include "com/tool/impl/ToolRunStatus.h"

#include "com/core/ccCOMError.h"

namespace tessaly::tool {

namespace {

CLuxRunStatus::Values ValuesOf(const RunReport& report, double timeRaw, double time) {
    CLuxRunStatus::Values values;
    values.errorCode = report.code;
    values.errorString = Bstr(report.text);
    values.timeRaw = timeRaw;
    values.time = time;
    values.errorSource = Bstr(report.source);
    return values;
}

}  // namespace

ComPtr<CLuxRunStatus> NewRunStatus(const RunReport& report, double timeRaw, double time) {
    ComPtr<CLuxRunStatus> status = CLuxRunStatus::Make();
    // Nobody listens to a status nobody has seen yet: Set raises nothing that could fail.
    core::ThrowIfFailed(status->Set(ValuesOf(report, timeRaw, time)));
    return status;
}

void SetRunStatusTime(CLuxRunStatus* status, const RunReport& report, double timeRaw, double time) {
    core::ThrowIfFailed(status->Set(ValuesOf(report, timeRaw, time)));
}

}  // namespace tessaly::tool
