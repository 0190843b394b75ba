#include "platform/ConnectionPoint.h"

#include <new>

#include "platform/EnumConnections.h"
#include "platform/Variant.h"

namespace tessaly {

ConnectionPoint::SinkList::~SinkList() {
    for (const Connection& connection : connections) connection.sink->Release();
}

ConnectionPoint::ConnectionPoint(IConnectionPointContainer& container, const IID& iid)
    : container_(container), iid_(iid) {}

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
    std::shared_ptr<const SinkList> previous;
    try {
        auto next = std::make_shared<SinkList>();
        std::lock_guard lock(mutex_);
        const size_t count = sinks_ ? sinks_->connections.size() : 0;
        next->connections.reserve(count + 1);
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
        previous = std::move(sinks_);
        sinks_ = std::move(next);
        connected_.store(true, std::memory_order_release);
        *pdwCookie = cookie;
    } catch (const std::bad_alloc&) {
        if (sink) sink->Release();
        return E_OUTOFMEMORY;
    }
    // `previous` dies here, outside the lock: releasing sinks may run their code.
    return S_OK;
}

HRESULT ConnectionPoint::Unadvise(DWORD dwCookie) {
    std::shared_ptr<const SinkList> previous;
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
        previous = std::move(sinks_);
        sinks_ = std::move(next);
        connected_.store(sinks_ != nullptr, std::memory_order_release);
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
    std::lock_guard lock(mutex_);
    return sinks_;
}

bool ConnectionPoint::HasConnections() const noexcept { return connected_.load(std::memory_order_acquire); }

void ConnectionPoint::Fire(DISPID dispid, DISPPARAMS& params) const noexcept {
    const std::shared_ptr<const SinkList> snapshot = Snapshot();
    if (!snapshot) return;
    for (const Connection& connection : snapshot->connections) {
        VARIANT result{};
        UINT argErr = 0;
        connection.sink->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, DISPATCH_METHOD, &params, &result, nullptr,
                                &argErr);
        VariantClear(&result);
    }
}

}  // namespace tessaly
