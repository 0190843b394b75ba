// The object template of every creatable class: reference counting and QueryInterface from
// UnknownObject, plus IDispatch over the coclass's type information, IProvideClassInfo2,
// ISupportErrorInfo and, when the coclass has source interfaces, IConnectionPointContainer.
// A class names itself, its coclass and its interfaces and implements their methods:
//
//     class Widget : public tessaly::ComObject<Widget, IWidget, IGadget> {
//     public:
//         static const tessaly::CoClassInfo& CoClass();   // the generated coclass table
//         HRESULT get_Width(LONG* value) override;        // the interfaces' own methods
//         ...
//     protected:
//         ~Widget() override = default;                   // objects die through Release
//     };
//
// Every dual interface's IDispatch slots land in the one implementation here, which runs
// the coclass's Dispatcher: any member of any non-source interface of the coclass can be
// called through any of the object's IDispatch pointers. GetTypeInfo hands out the default
// interface's type information; IProvideClassInfo2::GetClassInfo the coclass's;
// GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID) the default source interface (E_NOINTERFACE
// when the coclass has none, E_INVALIDARG for any other kind).
//
// Connection points (one per source interface) are made the first time a client asks for
// one; until then FireEvent costs a load and a test.
#pragma once

#include <atomic>
#include <type_traits>

#include "platform/ConnectionPointContainer.h"
#include "platform/Dispatcher.h"
#include "platform/EventArguments.h"
#include "platform/TypeInfoObject.h"
#include "platform/UnknownObject.h"

namespace tessaly {

namespace detail {

// Whether I is one of Listed or lies on the base chain of one of them.
template <class I, class... Listed>
constexpr bool ReachedThrough() {
    return ((std::is_same_v<I, Listed> || DerivesFromInterface<I, Listed>()) || ...);
}

// Every interface the coclass names is answered by the class's list.
template <class CoClassList, class... Listed>
struct AnswersAll;
template <class... Named, class... Listed>
struct AnswersAll<InterfaceList<Named...>, Listed...> {
    static constexpr bool value = (ReachedThrough<Named, Listed...>() && ...);
};

// Every interface the class lists (beside the runtime's own, which ComObject adds) is named
// by the coclass itself.
template <class I>
constexpr bool IsRuntimeInterface() {
    return std::is_same_v<I, IProvideClassInfo2> || std::is_same_v<I, ISupportErrorInfo> ||
           std::is_same_v<I, IConnectionPointContainer> || std::is_same_v<I, IMarshal>;
}
template <class I, class... Named>
constexpr bool IsNamed() {
    return IsRuntimeInterface<I>() || (std::is_same_v<I, Named> || ...);
}
template <class CoClassList, class... Listed>
struct NamedByCoClass;
template <class... Named, class... Listed>
struct NamedByCoClass<InterfaceList<Named...>, Listed...> {
    static constexpr bool value = (IsNamed<Listed, Named...>() && ...);
};

}  // namespace detail

template <class Derived, class... Interfaces>
class ComObject
    : public UnknownObject<Derived, Interfaces..., IProvideClassInfo2, ISupportErrorInfo, IConnectionPointContainer> {
    static_assert((std::is_base_of_v<IDispatch, Interfaces> || ...),
                  "a ComObject implements at least one dual interface");
    using Base = UnknownObject<Derived, Interfaces..., IProvideClassInfo2, ISupportErrorInfo, IConnectionPointContainer>;

public:
    // The coclass's dispatcher, looked up once per class; nullptr only when out of memory.
    static const Dispatcher* ClassDispatcher() noexcept {
        static std::atomic<const Dispatcher*> cached{nullptr};
        const Dispatcher* dispatcher = cached.load(std::memory_order_acquire);
        if (!dispatcher) {
            dispatcher = Dispatcher::For(Derived::CoClass());
            cached.store(dispatcher, std::memory_order_release);
        }
        return dispatcher;
    }

    // QueryInterface's lookup: the listed interfaces, the bases of generated interfaces,
    // and IConnectionPointContainer only for classes that fire events.
    void* FindInterface(const IID& iid) noexcept {
        if (iid == IConnectionPointContainer::iid) {
            const Dispatcher* dispatcher = ClassDispatcher();
            return dispatcher && dispatcher->DefaultSourceInterface() ? static_cast<IConnectionPointContainer*>(this)
                                                                      : nullptr;
        }
        if (void* found = this->FindListed(iid)) return found;
        if (const Dispatcher* dispatcher = ClassDispatcher())
            if (const InterfaceInfo* implementing = dispatcher->ImplementingInterface(iid))
                return this->FindListed(implementing->iid);
        return nullptr;
    }

    // The object's IDispatch (that of its first dual interface), without a reference.
    IDispatch* GetDispatch() noexcept { return static_cast<IDispatch*>(this->FindListed(IDispatch::iid)); }

    // IDispatch
    HRESULT GetTypeInfoCount(UINT* pctinfo) override {
        if (!pctinfo) return E_POINTER;
        *pctinfo = 1;
        return S_OK;
    }

    HRESULT GetTypeInfo(UINT iTInfo, LCID, ITypeInfo** ppTInfo) override {
        if (!ppTInfo) return E_POINTER;
        *ppTInfo = nullptr;
        if (iTInfo != 0) return DISP_E_BADINDEX;
        const Dispatcher* dispatcher = ClassDispatcher();
        if (!dispatcher) return E_OUTOFMEMORY;
        if (!dispatcher->DefaultInterface()) return TYPE_E_ELEMENTNOTFOUND;
        *ppTInfo = TypeInfoObject::For(*dispatcher->DefaultInterface());
        return *ppTInfo ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT GetIDsOfNames(REFIID riid, LPOLESTR* rgszNames, UINT cNames, LCID, DISPID* rgDispId) override {
        if (!(riid == GUID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        const Dispatcher* dispatcher = ClassDispatcher();
        return dispatcher ? dispatcher->GetIDsOfNames(rgszNames, cNames, rgDispId) : E_OUTOFMEMORY;
    }

    HRESULT Invoke(DISPID dispIdMember, REFIID riid, LCID, WORD wFlags, DISPPARAMS* pDispParams, VARIANT* pVarResult,
                   EXCEPINFO* pExcepInfo, UINT* puArgErr) override {
        if (!detail::SameGuid(riid, GUID_NULL)) return DISP_E_UNKNOWNINTERFACE;
        const Dispatcher* dispatcher = ClassDispatcher();
        if (!dispatcher) return E_OUTOFMEMORY;
        return dispatcher->Invoke(static_cast<ComObject*>(this), &FindForDispatch, dispIdMember, wFlags, pDispParams,
                                  pVarResult, pExcepInfo, puArgErr);
    }

    // IProvideClassInfo2
    HRESULT GetClassInfo(ITypeInfo** ppTI) override {
        if (!ppTI) return E_POINTER;
        *ppTI = TypeInfoObject::For(Derived::CoClass());
        return *ppTI ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT GetGUID(DWORD dwGuidKind, GUID* pGUID) override {
        if (!pGUID) return E_POINTER;
        *pGUID = GUID_NULL;
        if (dwGuidKind != GUIDKIND_DEFAULT_SOURCE_DISP_IID) return E_INVALIDARG;
        const Dispatcher* dispatcher = ClassDispatcher();
        if (!dispatcher) return E_OUTOFMEMORY;
        if (!dispatcher->DefaultSourceInterface()) return E_NOINTERFACE;
        *pGUID = dispatcher->DefaultSourceInterface()->iid;
        return S_OK;
    }

    // ISupportErrorInfo: every non-source interface of the coclass records error info.
    HRESULT InterfaceSupportsErrorInfo(REFIID riid) override {
        const Dispatcher* dispatcher = ClassDispatcher();
        return dispatcher && dispatcher->Implements(riid) ? S_OK : S_FALSE;
    }

    // IConnectionPointContainer
    HRESULT EnumConnectionPoints(IEnumConnectionPoints** ppEnum) override {
        if (!ppEnum) return E_POINTER;
        *ppEnum = nullptr;
        ConnectionPointContainer* connections = Connections();
        return connections ? connections->EnumConnectionPoints(ppEnum) : E_OUTOFMEMORY;
    }

    HRESULT FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) override {
        if (!ppCP) return E_POINTER;
        *ppCP = nullptr;
        ConnectionPointContainer* connections = Connections();
        return connections ? connections->FindConnectionPoint(riid, ppCP) : E_OUTOFMEMORY;
    }

    // Calls `dispid` of the source interface on every advised sink, with the arguments
    // converted as EventArguments does. Sinks run on the calling thread, after the sink
    // list was copied under a short lock: call this with no lock of the object held.
    // E_OUTOFMEMORY when an argument could not be converted (nothing is fired then).
    template <class... Args>
    HRESULT FireEvent(const IID& source, DISPID dispid, Args&&... args) noexcept {
        const ConnectionPointContainer* connections = connections_.load(std::memory_order_acquire);
        if (!connections) return S_OK;  // no client ever asked for a connection point
        const ConnectionPoint* point = connections->Find(source);
        if (!point || !point->HasConnections()) return S_OK;
        EventArguments<sizeof...(Args)> arguments(std::forward<Args>(args)...);
        if (!arguments.Valid()) return E_OUTOFMEMORY;
        point->Fire(dispid, arguments.Params());
        return S_OK;
    }

    // Whether any sink is advised on any outgoing interface: an object builds no event
    // (and copies no value) otherwise.
    bool HasEventSinks() const noexcept {
        const ConnectionPointContainer* connections = connections_.load(std::memory_order_acquire);
        return connections && connections->HasConnections();
    }

    // The sinks advised on one outgoing interface at this moment (null when none); the list
    // keeps them alive while it is held.
    std::shared_ptr<const ConnectionPoint::SinkList> EventSinks(const IID& source) const noexcept {
        const ConnectionPointContainer* connections = connections_.load(std::memory_order_acquire);
        const ConnectionPoint* point = connections ? connections->Find(source) : nullptr;
        return point ? point->Snapshot() : nullptr;
    }

    // An event every outgoing interface repeats (Change), to every sink of every one.
    void FireEventToAll(DISPID dispid, DISPPARAMS& params) noexcept {
        const ConnectionPointContainer* connections = connections_.load(std::memory_order_acquire);
        if (connections) connections->FireAll(dispid, params);
    }

    // The same with an argument block built by the caller (last argument first).
    HRESULT FireEventWith(const IID& source, DISPID dispid, DISPPARAMS& params) noexcept {
        const ConnectionPointContainer* connections = connections_.load(std::memory_order_acquire);
        if (connections) connections->Fire(source, dispid, params);
        return S_OK;
    }

protected:
    ComObject() {
        // Here Derived is complete: the class must answer exactly what its coclass names.
        static_assert(
            requires { typename Derived::CoClassInterfaceList; },
            "name the coclass's interface list: using CoClassInterfaceList = generated::CoClassInterfaceList_<CoClass>;");
        static_assert(detail::AnswersAll<typename Derived::CoClassInterfaceList, Interfaces...>::value,
                      "the class does not answer every interface its coclass names: list the missing one (or an "
                      "interface derived from it)");
        static_assert(detail::NamedByCoClass<typename Derived::CoClassInterfaceList, Interfaces...>::value,
                      "the class lists an interface its coclass does not name: add it to the coclass in the IDL");
    }
    ~ComObject() override { delete connections_.load(std::memory_order_acquire); }

    // Called after a sink was advised on an outgoing interface that had none, on the
    // advising thread, with no lock held: work done only for listeners starts here.
    virtual void OnFirstEventSink() noexcept {}

private:
    static void FirstEventSinkAdvised(IConnectionPointContainer& owner) noexcept {
        static_cast<ComObject&>(owner).OnFirstEventSink();
    }

    // Dispatch asks only for the coclass's own interfaces (or their bases): a match over the
    // list and its base chains, compiled inline, with no IUnknown case.
    static void* FindForDispatch(void* object, const IID& iid) noexcept {
        auto* self = static_cast<ComObject*>(object);
        void* found = nullptr;
        ((found = found ? found : detail::MatchInterface(static_cast<Interfaces*>(self), iid)), ...);
        return found;
    }

    ConnectionPointContainer* Connections() noexcept {
        ConnectionPointContainer* existing = connections_.load(std::memory_order_acquire);
        if (existing) return existing;
        ConnectionPointContainer* created = ConnectionPointContainer::Create(
            *static_cast<IConnectionPointContainer*>(this), Derived::CoClass(), &FirstEventSinkAdvised);
        if (!created) return nullptr;
        if (!connections_.compare_exchange_strong(existing, created, std::memory_order_acq_rel,
                                                  std::memory_order_acquire)) {
            delete created;  // another thread was first
            return existing;
        }
        return created;
    }

    std::atomic<ConnectionPointContainer*> connections_{nullptr};
};

}  // namespace tessaly
