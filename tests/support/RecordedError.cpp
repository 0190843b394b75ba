#include "support/RecordedError.h"

#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {

RecordedError TakeErrorInfo() {
    RecordedError recorded;
    IErrorInfo* info = nullptr;
    if (GetErrorInfo(0, &info) != S_OK || !info) return recorded;
    recorded.present = true;
    Bstr description;
    Bstr source;
    info->GetDescription(description.Out());
    info->GetSource(source.Out());
    info->GetGUID(&recorded.iid);
    info->Release();
    recorded.description = description.str();
    recorded.source = source.str();
    return recorded;
}

}  // namespace tessaly::test
