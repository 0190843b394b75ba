#include "com/tool/impl/ToolRunReport.h"

#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"

namespace tessaly::tool {

RunReport ReportOf(HRESULT guarded, ToolOutcome outcome) {
    RunReport report;
    if (SUCCEEDED(guarded)) {
        report.code = outcome.code;
        report.text = std::move(outcome.text);
        return report;
    }
    report.code = guarded;
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Out()) == S_OK && info) {
        Bstr description;
        Bstr source;
        if (SUCCEEDED(info->GetDescription(description.Out()))) report.text = description.str();
        if (SUCCEEDED(info->GetSource(source.Out()))) report.source = source.str();
    }
    return report;
}

}  // namespace tessaly::tool
