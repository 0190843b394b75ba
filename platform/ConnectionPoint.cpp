#include "platform/ConnectionPoint.h"

#include <new>

#include <sys/single_threaded.h>

#include "platform/EnumConnections.h"
#include "platform/Variant.h"

namespace tessaly {

ConnectionPoint::SinkList::~SinkList() {
    for (const Connection& connection : connections) connection.sink->Release();
}

// While the process has one thread nobody can race with the count, so plain reads and
// writes do; the flag never turns back on once a second thread has started (and starting
// it orders what came before), so a scope entered single-threaded may leave threaded.
class ConnectionPoint::ReadScope {
public:
    explicit ReadScope(const ConnectionPoint& point) noexcept : point_(point) {
        if (__libc_single_threaded)
            point_.readers_.store(point_.readers_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        else
            point_.readers_.fetch_add(1, std::memory_order_seq_cst);
    }
    ~ReadScope() {
        uint32_t before;
        if (__libc_single_threaded) {
            before = point_.readers_.load(std::memory_order_relaxed);
            point_.readers_.store(before - 1, std::memory_order_relaxed);
        } else {
            before = point_.readers_.fetch_sub(1, std::memory_order_seq_cst);
        }
        if (before == 1 && point_.retiredPending_.load(std::memory_order_seq_cst)) [[unlikely]]
            point_.Reclaim();
    }
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

    const SinkList* List() const noexcept { return point_.current_.load(std::memory_order_seq_cst); }

private:
    const ConnectionPoint& point_;
};

ConnectionPoint::ConnectionPoint(IConnectionPointContainer& container, const IID& iid, const InterfaceInfo* info,
                                 FirstSinkHook firstSink)
    : container_(container), iid_(iid), info_(info), firstSink_(firstSink) {}

ConnectionPoint::~ConnectionPoint() = default;

HRESULT ConnectionPoint::QueryInterface(REFIID riid, void** ppv) {
    if (!ppv) return E_POINTER;
    if (riid == IUnknown::iid || riid == IConnectionPoint::iid) {
        *ppv = static_cast<IConnectionPoint*>(this);
        AddRef();
        return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
}

ULONG ConnectionPoint::AddRef() { return container_.AddRef(); }
ULONG ConnectionPoint::Release() { return container_.Release(); }

HRESULT ConnectionPoint::GetConnectionInterface(IID* pIID) {
    if (!pIID) return E_POINTER;
    *pIID = iid_;
    return S_OK;
}

HRESULT ConnectionPoint::GetConnectionPointContainer(IConnectionPointContainer** ppCPC) {
    if (!ppCPC) return E_POINTER;
    container_.AddRef();
    *ppCPC = &container_;
    return S_OK;
}

void ConnectionPoint::PublishLocked(std::shared_ptr<SinkList> next) noexcept {
    std::shared_ptr<SinkList> previous = std::move(sinks_);
    sinks_ = std::move(next);
    current_.store(sinks_.get(), std::memory_order_seq_cst);
    if (previous) {
        retired_.push_back(std::move(previous));  // capacity reserved by the caller
        retiredPending_.store(true, std::memory_order_seq_cst);
    }
}

std::vector<std::shared_ptr<ConnectionPoint::SinkList>> ConnectionPoint::TakeReclaimableLocked() const noexcept {
    if (retired_.empty() || readers_.load(std::memory_order_seq_cst) != 0) return {};
    retiredPending_.store(false, std::memory_order_relaxed);
    return std::move(retired_);
}

void ConnectionPoint::Reclaim() const noexcept {
    std::vector<std::shared_ptr<SinkList>> reclaimed;
    {
        std::lock_guard lock(mutex_);
        reclaimed = TakeReclaimableLocked();
    }
    // `reclaimed` dies here, outside the mutex: releasing sinks may run their code.
}

HRESULT ConnectionPoint::Advise(IUnknown* pUnkSink, DWORD* pdwCookie) {
    if (!pdwCookie) return E_POINTER;
    *pdwCookie = 0;
    if (!pUnkSink) return E_POINTER;
    // A sink of a dispinterface is an IDispatch whichever IID it is asked for.
    void* found = nullptr;
    if (FAILED(pUnkSink->QueryInterface(iid_, &found)) || !found) {
        found = nullptr;
        if (FAILED(pUnkSink->QueryInterface(IDispatch::iid, &found)) || !found) return CONNECT_E_CANNOTCONNECT;
    }
    auto* sink = static_cast<IDispatch*>(found);
    std::vector<std::shared_ptr<SinkList>> reclaimed;
    bool first = false;
    try {
        auto next = std::make_shared<SinkList>();
        std::lock_guard lock(mutex_);
        const size_t count = sinks_ ? sinks_->connections.size() : 0;
        first = count == 0;
        next->connections.reserve(count + 1);
        retired_.reserve(retired_.size() + 1);
        if (sinks_) {
            for (const Connection& connection : sinks_->connections) {
                connection.sink->AddRef();
                next->connections.push_back(connection);
            }
        }
        const DWORD cookie = nextCookie_++;
        if (nextCookie_ == 0) nextCookie_ = 1;
        next->connections.push_back({cookie, sink});
        sink = nullptr;  // the list owns it now
        PublishLocked(std::move(next));
        reclaimed = TakeReclaimableLocked();
        *pdwCookie = cookie;
    } catch (const std::bad_alloc&) {
        if (sink) sink->Release();
        return E_OUTOFMEMORY;
    }
    if (first && firstSink_) firstSink_(container_);
    // `reclaimed` dies here, outside the mutex: releasing sinks may run their code.
    return S_OK;
}

HRESULT ConnectionPoint::Unadvise(DWORD dwCookie) {
    std::vector<std::shared_ptr<SinkList>> reclaimed;
    try {
        std::lock_guard lock(mutex_);
        if (!sinks_) return CONNECT_E_NOCONNECTION;
        bool found = false;
        for (const Connection& connection : sinks_->connections) found = found || connection.cookie == dwCookie;
        if (dwCookie == 0 || !found) return CONNECT_E_NOCONNECTION;
        std::shared_ptr<SinkList> next;
        if (sinks_->connections.size() > 1) {
            next = std::make_shared<SinkList>();
            next->connections.reserve(sinks_->connections.size() - 1);
            for (const Connection& connection : sinks_->connections) {
                if (connection.cookie == dwCookie) continue;
                connection.sink->AddRef();
                next->connections.push_back(connection);
            }
        }
        retired_.reserve(retired_.size() + 1);
        PublishLocked(std::move(next));
        reclaimed = TakeReclaimableLocked();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT ConnectionPoint::EnumConnections(IEnumConnections** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    const std::shared_ptr<const SinkList> snapshot = Snapshot();
    try {
        std::vector<CONNECTDATA> items;
        if (snapshot) {
            items.reserve(snapshot->connections.size());
            for (const Connection& connection : snapshot->connections) items.push_back({connection.sink, connection.cookie});
        }
        *ppEnum = tessaly::EnumConnections::Create(std::move(items), 0);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

std::shared_ptr<const ConnectionPoint::SinkList> ConnectionPoint::Snapshot() const noexcept {
    const ReadScope scope(*this);
    const SinkList* list = scope.List();
    // The list's owner is published or retired, and retired owners outlive the scope:
    // its count is above zero, so this cannot fail.
    return list ? list->shared_from_this() : nullptr;
}

bool ConnectionPoint::Declares(DISPID dispid) const noexcept {
    if (!info_) return true;
    const uint64_t key = static_cast<uint64_t>(static_cast<uint32_t>(dispid)) << 2;
    const uint64_t cached = declared_.load(std::memory_order_relaxed);
    if ((cached & ~uint64_t{1}) == (key | 2)) return (cached & 1) != 0;
    bool found = false;
    for (const InterfaceInfo* iface = info_; iface && !found; iface = iface->base)
        for (uint16_t i = 0; i < iface->memberCount && !found; ++i) found = iface->members[i].dispid == dispid;
    declared_.store(key | 2 | (found ? 1 : 0), std::memory_order_relaxed);
    return found;
}

void ConnectionPoint::Fire(DISPID dispid, DISPPARAMS& params) const noexcept {
    const ReadScope scope(*this);
    const SinkList* list = scope.List();
    if (!list) return;
    for (const Connection& connection : list->connections) {
        VARIANT result{};
        UINT argErr = 0;
        connection.sink->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result, nullptr,
                                &argErr);
        if (result.vt != VT_EMPTY) VariantClear(&result);  // an event's sink returns nothing, as a rule
    }
}

}  // namespace tessaly
