// A C++ callable turned into an event sink: an IDispatch whose Invoke calls the callable.
// Advise it on a connection point to receive the events of an object:
//
//     IDispatch* sink = tessaly::MakeEventSink(kChangeEventId, [&](std::span<const VARIANT> args) {
//         seen.push_back(args[0].lVal);  // args in declared order
//     }, IID_ISomethingEvents);
//     DWORD cookie = 0;
//     tessaly::Advise(object, IID_ISomethingEvents, sink, &cookie);
//     ...
//     tessaly::Unadvise(object, IID_ISomethingEvents, cookie);
//     sink->Release();
#pragma once

#include <functional>
#include <span>

#include "platform/UnknownObject.h"

namespace tessaly {

class EventSink final : public UnknownObject<EventSink, IDispatch> {
public:
    using Handler = std::function<void(DISPID dispid, DISPPARAMS* params)>;
    // One event's arguments, in declared order, by-reference variants read through.
    using ArgumentsHandler = std::function<void(std::span<const VARIANT> args)>;

    // `source`: the outgoing interface the sink also answers QueryInterface for (GUID_NULL
    // for none; connection points accept a plain IDispatch too).
    explicit EventSink(Handler handler, const IID& source = GUID_NULL);
    // A sink for one event only; other events are ignored.
    EventSink(DISPID event, ArgumentsHandler handler, const IID& source = GUID_NULL);

    void* FindInterface(const IID& iid) noexcept;

    HRESULT GetTypeInfoCount(UINT* pctinfo) override;
    HRESULT GetTypeInfo(UINT iTInfo, LCID lcid, ITypeInfo** ppTInfo) override;
    HRESULT GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID lcid, DISPID* rgDispId) override;
    // Calls the handler; an exception it throws becomes DISP_E_EXCEPTION (scode E_FAIL).
    HRESULT Invoke(DISPID dispIdMember, REFIID riid, LCID lcid, WORD wFlags, DISPPARAMS* pDispParams,
                   VARIANT* pVarResult, EXCEPINFO* pExcepInfo, UINT* puArgErr) override;

private:
    ~EventSink() override = default;

    void CallArgumentsHandler(const DISPPARAMS& params) const;

    Handler handler_;
    DISPID event_ = DISPID_UNKNOWN;
    ArgumentsHandler argumentsHandler_;
    IID source_;
};

// A sink with one reference, owned by the caller; nullptr when out of memory.
IDispatch* MakeEventSink(EventSink::Handler handler, const IID& source = GUID_NULL);
// A sink for one event: the handler receives the arguments in declared order (by-reference
// arguments read through) and is not called for other DISPIDs.
IDispatch* MakeEventSink(DISPID event, std::function<void(std::span<const VARIANT> args)> handler,
                         const IID& source = GUID_NULL);

// Advises `sink` on the connection point of `source` of `object`; *cookie receives the
// connection's cookie. Fails as QueryInterface, FindConnectionPoint or Advise do.
HRESULT Advise(IUnknown* object, const IID& source, IUnknown* sink, DWORD* cookie);
HRESULT Unadvise(IUnknown* object, const IID& source, DWORD cookie);

}  // namespace tessaly
