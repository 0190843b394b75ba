// One outgoing interface of an object: the sinks advised on it, and the firing of events
// to them. A connection point lives inside its object and counts references on it, so a
// client that holds only the connection point keeps the object alive.
//
// Sinks are held as IDispatch references. The list is copied on write: Advise and Unadvise
// swap in a new list under a short lock, and firing walks the list it took at the start,
// outside any lock, so a sink may Unadvise itself or call back into the object during an
// event. A sink unadvised while an event is being delivered may still receive that event.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/StandardInterfaces.h"

namespace tessaly {

class ConnectionPoint final : public IConnectionPoint {
public:
    struct Connection {
        DWORD cookie;
        IDispatch* sink;
    };
    // An immutable list of connections, each holding one reference on its sink.
    class SinkList {
    public:
        SinkList() = default;
        SinkList(const SinkList&) = delete;
        SinkList& operator=(const SinkList&) = delete;
        ~SinkList();
        std::vector<Connection> connections;
    };

    ConnectionPoint(IConnectionPointContainer& container, const IID& iid);
    ~ConnectionPoint();
    ConnectionPoint(const ConnectionPoint&) = delete;
    ConnectionPoint& operator=(const ConnectionPoint&) = delete;

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;

    HRESULT GetConnectionInterface(IID* pIID) override;
    HRESULT GetConnectionPointContainer(IConnectionPointContainer** ppCPC) override;
    // The sink must answer the outgoing interface or IDispatch, else CONNECT_E_CANNOTCONNECT.
    // Cookies start at 1 and are never reused by this connection point.
    HRESULT Advise(IUnknown* pUnkSink, DWORD* pdwCookie) override;
    HRESULT Unadvise(DWORD dwCookie) override;
    HRESULT EnumConnections(IEnumConnections** ppEnum) override;

    const IID& Interface() const noexcept { return iid_; }
    // The connections at this moment; the list keeps its sinks alive while it is held.
    std::shared_ptr<const SinkList> Snapshot() const noexcept;
    // Lock-free: an object asks this before it builds any event.
    bool HasConnections() const noexcept;
    // Calls Invoke(dispid, DISPATCH_METHOD) on every sink of the snapshot. Sink failures
    // do not stop the others: an event is a notification, not a request.
    void Fire(DISPID dispid, DISPPARAMS& params) const noexcept;

private:
    IConnectionPointContainer& container_;
    const IID iid_;
    mutable std::mutex mutex_;
    std::shared_ptr<const SinkList> sinks_;
    DWORD nextCookie_ = 1;
    std::atomic<bool> connected_{false};  // sinks_ != nullptr, readable without the mutex
};

}  // namespace tessaly
