#include "com/core/impl/ChildEventForwarder.h"

#include <atomic>
#include <mutex>
#include <new>

#include "TessalyCore.h"
#include "com/core/ccEventInfo.h"
#include "platform/UnknownObject.h"
#include "platform/Variant.h"

namespace tessaly::core {

// The weak back-reference: the container while it lives, null from its destruction on.
struct ChildEventForwarder::Relay {
    explicit Relay(ChildEventListener* to) noexcept : listener(to) {}
    std::mutex mutex;
    ChildEventListener* listener;
};

// The sink a child holds: passes its Change on through the relay, while linked.
class ChildEventForwarder::LinkSink final : public UnknownObject<LinkSink, IDispatch> {
public:
    LinkSink(std::shared_ptr<Relay> relay, IUnknown* child) noexcept : relay_(std::move(relay)), child_(child) {}

    void Cut() noexcept { linked_.store(false, std::memory_order_release); }

    HRESULT GetTypeInfoCount(UINT* count) override {
        if (!count) return E_POINTER;
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID id, REFIID, LCID, WORD, DISPPARAMS* params, VARIANT*, EXCEPINFO*, UINT*) override {
        if (id != luxChange_Change) return DISP_E_MEMBERNOTFOUND;
        if (!params || !linked_.load(std::memory_order_acquire)) return S_OK;
        Forward(id, *params);
        return S_OK;
    }

private:
    ~LinkSink() override = default;

    // Arguments arrive last first: FunctionalArea is the first one.
    static int32_t Areas(const DISPPARAMS& params) noexcept {
        if (params.cArgs == 0) return 0;
        Variant areas;
        if (FAILED(VariantChangeType(areas.ptr(), &params.rgvarg[0], 0, VT_I4))) return 0;
        return areas.get().lVal;
    }

    // The relays passing an event on in this thread, innermost last: a container that holds
    // itself, or one of its own ancestors, would otherwise pass its own event on forever.
    // An event reaches each container of a cycle once.
    class InFlight {
    public:
        explicit InFlight(const Relay* relay) noexcept : relay_(relay), outer_(innermost) { innermost = this; }
        ~InFlight() { innermost = outer_; }
        InFlight(const InFlight&) = delete;
        InFlight& operator=(const InFlight&) = delete;
        static bool Contains(const Relay* relay) noexcept {
            for (const InFlight* at = innermost; at; at = at->outer_)
                if (at->relay_ == relay) return true;
            return false;
        }

    private:
        static inline thread_local const InFlight* innermost = nullptr;
        const Relay* relay_;
        const InFlight* outer_;
    };

    void Forward(DISPID id, const DISPPARAMS& params) noexcept {
        if (InFlight::Contains(relay_.get())) return;
        const InFlight passing(relay_.get());
        ChildEventListener* listener;
        {
            std::lock_guard lock(relay_->mutex);
            listener = relay_->listener;
            if (!listener || !listener->TryAddRefListener()) return;
        }
        const int32_t areas = Areas(params);
        if (!listener->ListensToChildren()) {
            listener->RaiseChildChange(VARIANT{}, areas);
        } else {
            ComPtr<IDispatch> source;
            child_->QueryInterface(IDispatch::iid, source.OutVoid());
            const int32_t index = listener->ChildIndex(child_);
            auto* info = ccEventInfo::ccILuxEventInfoImpl::Create(id, params, source.get(), index);
            VARIANT value{};
            if (info) {
                value.vt = VT_DISPATCH;
                value.pdispVal = info->GetDispatch();
            }
            // Without memory for the info the change still travels, as "something changed".
            listener->RaiseChildChange(value, areas);
            if (info) info->Release();
        }
        listener->ReleaseListener();
    }

    const std::shared_ptr<Relay> relay_;
    IUnknown* const child_;  // alive while it fires
    std::atomic<bool> linked_{true};
};

namespace {

// The child's connection point that carries Change: the dedicated change interface, else
// its default outgoing interface (every outgoing interface of the library declares Change).
ComPtr<IConnectionPoint> ChangePoint(IUnknown* child) noexcept {
    ComPtr<IConnectionPointContainer> container;
    if (FAILED(child->QueryInterface(IConnectionPointContainer::iid, container.OutVoid())) || !container) return {};
    ComPtr<IConnectionPoint> point;
    if (SUCCEEDED(container->FindConnectionPoint(DIID_ILuxChangeEvent, point.Out())) && point) return point;
    ComPtr<IProvideClassInfo2> info;
    GUID source = GUID_NULL;
    if (FAILED(child->QueryInterface(IProvideClassInfo2::iid, info.OutVoid())) || !info ||
        FAILED(info->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &source)))
        return {};
    point.Reset();
    if (FAILED(container->FindConnectionPoint(source, point.Out()))) return {};
    return point;
}

}  // namespace

ChildEventForwarder::ChildEventForwarder(ChildEventListener& listener) noexcept : listener_(listener) {
    listener_.forwarder_ = this;
}

ChildEventForwarder::~ChildEventForwarder() {
    listener_.forwarder_ = nullptr;
    if (relay_) {
        std::lock_guard lock(relay_->mutex);
        relay_->listener = nullptr;
    }
    UnlinkAll();
}

bool ChildEventForwarder::Link(IUnknown* child) noexcept {
    if (!child) return true;
    ComPtr<IUnknown> identity;
    if (FAILED(child->QueryInterface(IUnknown::iid, identity.OutVoid())) || !identity) return true;
    const auto held = links_.find(identity.get());
    if (held != links_.end()) {
        ++held->second.holds;
        return true;
    }
    decltype(links_)::iterator entry;
    try {
        entry = links_.try_emplace(identity.get()).first;
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!Started()) return true;  // advised when forwarding starts
    if (Advise(identity.get(), entry->second)) return true;
    links_.erase(entry);
    return false;
}

bool ChildEventForwarder::Advise(IUnknown* child, ChildLink& link) noexcept {
    ComPtr<IConnectionPoint> point = ChangePoint(child);
    if (!point) return true;  // fires nothing to pass on
    if (!relay_) {
        try {
            relay_ = std::make_shared<Relay>(&listener_);  // made when first needed
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    auto sink = ComPtr<LinkSink>::Attach(LinkSink::Create(relay_, child));
    DWORD cookie = 0;
    if (!sink || FAILED(point->Advise(sink->GetUnknown(), &cookie))) return false;
    link.point = std::move(point);
    link.sink = std::move(sink);
    link.cookie = cookie;
    return true;
}

void ChildEventForwarder::Start() noexcept {
    if (started_.exchange(true, std::memory_order_acq_rel)) return;
    for (auto entry = links_.begin(); entry != links_.end();) {
        // A child that cannot be advised (out of memory) is forgotten, as a failed Link is.
        if (Advise(entry->first, entry->second))
            ++entry;
        else
            entry = links_.erase(entry);
    }
}

size_t ChildEventForwarder::AdvisedCount() const noexcept {
    size_t advised = 0;
    for (const auto& entry : links_) advised += entry.second.point ? 1 : 0;
    return advised;
}

void ChildEventForwarder::Cut(ChildLink& link) noexcept {
    if (!link.point) return;
    link.sink->Cut();
    link.point->Unadvise(link.cookie);
}

void ChildEventForwarder::Unlink(IUnknown* child) noexcept {
    if (!child || links_.empty()) return;
    ComPtr<IUnknown> identity;
    if (FAILED(child->QueryInterface(IUnknown::iid, identity.OutVoid())) || !identity) return;
    const auto held = links_.find(identity.get());
    if (held == links_.end()) return;
    if (--held->second.holds == 0) {
        Cut(held->second);
        links_.erase(held);
    }
}

void ChildEventForwarder::UnlinkAll() noexcept {
    for (auto& entry : links_) Cut(entry.second);
    links_.clear();
}

}  // namespace tessaly::core
