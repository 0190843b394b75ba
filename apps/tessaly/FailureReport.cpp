#include "FailureReport.h"

#include <cinttypes>
#include <cstdio>

#include "com/core/MessageTable.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"

namespace tessaly::cli {

namespace {

// The description of the thread's error info, or "" when there is none.
std::string TakeDescription() {
    ComPtr<IErrorInfo> info;
    if (GetErrorInfo(0, info.Out()) != S_OK || !info) return {};
    Bstr description;
    if (FAILED(info->GetDescription(description.Out()))) return {};
    return description.str();
}

}  // namespace

std::string FailureReport::Code(HRESULT result) {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08" PRIX32, static_cast<uint32_t>(result));
    return code;
}

std::string FailureReport::Reason(std::string_view file, HRESULT result) {
    return Description(file, result) + " (" + Code(result) + ")";
}

std::string FailureReport::Description(std::string_view file, HRESULT result) {
    std::string description = TakeDescription();
    if (description.empty()) description = core::MessageTable::ResultText(result);
    const std::string prefix = std::string(file) + ": ";
    std::string reason;
    size_t start = 0;
    while (start <= description.size()) {
        size_t end = description.find('\n', start);
        if (end == std::string::npos) end = description.size();
        std::string_view line(description.data() + start, end - start);
        start = end + 1;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
        if (line.starts_with(prefix)) line.remove_prefix(prefix.size());  // the line names our file again
        if (line.empty()) continue;
        if (!reason.empty()) {
            if (reason.back() == '.') reason.pop_back();
            reason += ": ";
        }
        reason += line;
    }
    return reason;
}

int FailureReport::Print(std::ostream& errors, std::string_view file, HRESULT result) {
    errors << "tessaly: " << file << ": " << Reason(file, result) << '\n';
    return kExitStatus;
}

}  // namespace tessaly::cli
