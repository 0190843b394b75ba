#include "platform/EventSink.h"

#include <new>
#include <vector>

#include "platform/Bstr.h"

namespace tessaly {

EventSink::EventSink(Handler handler, const IID& source) : handler_(std::move(handler)), source_(source) {}

EventSink::EventSink(DISPID event, ArgumentsHandler handler, const IID& source)
    : event_(event), argumentsHandler_(std::move(handler)), source_(source) {}

void EventSink::CallArgumentsHandler(const DISPPARAMS& params) const {
    // Events have few arguments: they are put in order on the stack, not the heap.
    constexpr UINT kInline = 8;
    VARIANT inlineArgs[kInline];
    std::vector<VARIANT> heapArgs;
    VARIANT* args = inlineArgs;
    if (params.cArgs > kInline) {
        heapArgs.resize(params.cArgs);
        args = heapArgs.data();
    }
    for (UINT i = 0; i < params.cArgs; ++i) {
        const VARIANT& given = params.rgvarg[params.cArgs - 1 - i];
        args[i] = given.vt == (VT_BYREF | VT_VARIANT) && given.pvarVal ? *given.pvarVal : given;
    }
    argumentsHandler_(std::span<const VARIANT>(args, params.cArgs));
}

void* EventSink::FindInterface(const IID& iid) noexcept {
    if (!(source_ == GUID_NULL) && iid == source_) return static_cast<IDispatch*>(this);
    return FindListed(iid);
}

HRESULT EventSink::GetTypeInfoCount(UINT* pctinfo) {
    if (!pctinfo) return E_POINTER;
    *pctinfo = 0;
    return S_OK;
}

HRESULT EventSink::GetTypeInfo(UINT, LCID, ITypeInfo** ppTInfo) {
    if (!ppTInfo) return E_POINTER;
    *ppTInfo = nullptr;
    return DISP_E_BADINDEX;
}

HRESULT EventSink::GetIDsOfNames(REFIID, LPOLESTR*, UINT cNames, LCID, DISPID* rgDispId) {
    if (rgDispId)
        for (UINT i = 0; i < cNames; ++i) rgDispId[i] = DISPID_UNKNOWN;
    return DISP_E_UNKNOWNNAME;
}

HRESULT EventSink::Invoke(DISPID dispIdMember, REFIID, LCID, WORD, DISPPARAMS* pDispParams, VARIANT*,
                          EXCEPINFO* pExcepInfo, UINT*) {
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    try {
        if (handler_) handler_(dispIdMember, pDispParams ? pDispParams : &none);
        if (argumentsHandler_ && dispIdMember == event_) CallArgumentsHandler(pDispParams ? *pDispParams : none);
        return S_OK;
    } catch (...) {
        if (!pExcepInfo) return E_FAIL;
        *pExcepInfo = EXCEPINFO{};
        pExcepInfo->scode = E_FAIL;
        return DISP_E_EXCEPTION;
    }
}

IDispatch* MakeEventSink(EventSink::Handler handler, const IID& source) {
    return EventSink::Create(std::move(handler), source);
}

IDispatch* MakeEventSink(DISPID event, std::function<void(std::span<const VARIANT> args)> handler,
                         const IID& source) {
    return EventSink::Create(event, std::move(handler), source);
}

HRESULT Advise(IUnknown* object, const IID& source, IUnknown* sink, DWORD* cookie) {
    if (!cookie) return E_POINTER;
    *cookie = 0;
    if (!object) return E_POINTER;
    IConnectionPointContainer* container = nullptr;
    HRESULT hr = object->QueryInterface(IConnectionPointContainer::iid, reinterpret_cast<void**>(&container));
    if (FAILED(hr)) return hr;
    IConnectionPoint* point = nullptr;
    hr = container->FindConnectionPoint(source, &point);
    container->Release();
    if (FAILED(hr)) return hr;
    hr = point->Advise(sink, cookie);
    point->Release();
    return hr;
}

HRESULT Unadvise(IUnknown* object, const IID& source, DWORD cookie) {
    if (!object) return E_POINTER;
    IConnectionPointContainer* container = nullptr;
    HRESULT hr = object->QueryInterface(IConnectionPointContainer::iid, reinterpret_cast<void**>(&container));
    if (FAILED(hr)) return hr;
    IConnectionPoint* point = nullptr;
    hr = container->FindConnectionPoint(source, &point);
    container->Release();
    if (FAILED(hr)) return hr;
    hr = point->Unadvise(cookie);
    point->Release();
    return hr;
}

}  // namespace tessaly
