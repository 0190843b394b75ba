// The run status a tool's Run makes.
#pragma once

#include "TessalyCore.h"
#include "com/tool/CLuxRunStatus.h"
#include "com/tool/impl/ToolRunReport.h"
#include "platform/ComPtr.h"

namespace tessaly::tool {

// A new LuxRunStatus holding the report and the two times (milliseconds).
ComPtr<CLuxRunStatus> NewRunStatus(const RunReport& report, double timeRaw, double time);

// Gives a status made by NewRunStatus its final Time (the report and TimeRaw again).
void SetRunStatusTime(CLuxRunStatus* status, const RunReport& report, double timeRaw, double time);

}  // namespace tessaly::tool
