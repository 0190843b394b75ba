// What a tool's work hands back to the Run of ILuxToolImpl, and what Run makes of it for the
// run status.
//
// The work returns a ToolOutcome: S_OK, or s_LuxTool_Warn / s_LuxTool_Reject with a text
// saying why. A failure is thrown, as in any method body; the method guard turns it into
// an HRESULT and error info, and ReportOf takes that error info out of the thread's slot
// so that the run status carries the same code, text and source that a client would have
// read from a failed call.
#pragma once

#include <string>

#include "TessalyCore.h"

namespace tessaly::tool {

struct ToolOutcome {
    HRESULT code = S_OK;
    std::string text;

    static ToolOutcome Pass() { return {}; }
    static ToolOutcome Warn(std::string why) { return {s_LuxTool_Warn, std::move(why)}; }
    static ToolOutcome Reject(std::string why) { return {s_LuxTool_Reject, std::move(why)}; }
};

struct RunReport {
    HRESULT code = S_OK;
    std::string text;
    std::string source;  // the method in which a failure arose; empty on success
};

// The report of a run whose guarded work answered `guarded`: the outcome when it
// succeeded; otherwise the guard's code with the description and source of the thread's
// error info, which is taken out of the slot.
RunReport ReportOf(HRESULT guarded, ToolOutcome outcome);

}  // namespace tessaly::tool
