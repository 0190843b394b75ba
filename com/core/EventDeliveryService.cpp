#include "com/core/EventDeliveryService.h"

#include <string>

#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"

namespace tessaly::core {

namespace {

bool NotInterested(HRESULT result) noexcept {
    return result == DISP_E_MEMBERNOTFOUND || result == DISP_E_UNKNOWNNAME;
}

void FreeStrings(EXCEPINFO& info) noexcept {
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
    info = EXCEPINFO{};
}

// The failure a sink described through EXCEPINFO; its text becomes the thread's error info.
HRESULT TakeException(EXCEPINFO& info, const IID& eventInterface) noexcept {
    if (info.pfnDeferredFillIn) info.pfnDeferredFillIn(&info);
    HRESULT result = info.scode;
    if (SUCCEEDED(result)) result = E_FAIL;  // wCode alone, or nothing: still a failure
    if (!NotInterested(result) && SysStringLen(info.bstrDescription) != 0)
        SetErrorInfo(result, BstrView(info.bstrDescription), BstrView(info.bstrSource), eventInterface);
    return result;
}

}  // namespace

EventDeliveryService& EventDeliveryService::Instance() noexcept {
    static EventDeliveryService service;
    return service;
}

HRESULT EventDeliveryService::Deliver(const ConnectionPoint::SinkList* sinks, const IID& eventInterface,
                                      DISPID eventId, UINT argCount, VARIANT* argsLastFirst) const noexcept {
    if (!sinks) return S_OK;
    const bool request = eventId < 0;
    HRESULT first = S_OK;
    for (const ConnectionPoint::Connection& connection : sinks->connections) {
        DISPPARAMS params{argCount ? argsLastFirst : nullptr, nullptr, argCount, 0};
        EXCEPINFO info{};
        HRESULT result = connection.sink->Invoke(eventId, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params,
                                                 nullptr, &info, nullptr);
        if (result == DISP_E_EXCEPTION) result = TakeException(info, eventInterface);
        FreeStrings(info);  // also what a sink left there while succeeding
        if (SUCCEEDED(result) || NotInterested(result)) continue;
        if (request) return result;
        if (SUCCEEDED(first)) first = result;
    }
    return first;
}

}  // namespace tessaly::core
