// One outgoing interface of an object: the sinks advised on it, and the firing of events
// to them. A connection point lives inside its object and counts references on it, so a
// client that holds only the connection point keeps the object alive.
//
// Sinks are held as IDispatch references in an immutable list, copied on write: Advise and
// Unadvise build a new list and publish it under a short mutex; firing never takes the
// mutex. A firing thread announces itself in `readers_`, reads the published list and
// walks it. A writer that replaces a list does not free it at once but retires it; retired
// lists are freed (and their sinks released) only at a moment when no firing is in
// progress, observed under the mutex, by the writer or by the last firing thread to leave.
// Why that is safe: a list retired at time T can be held only by a reader that announced
// itself before T; once `readers_` has been seen at 0 after T, every such reader has left.
// The announcement and the publication are sequentially consistent, so a reader that
// announces itself after a swap reads the new list.
//
// A sink may therefore Unadvise itself or call back into the object during an event. A
// sink unadvised while an event is being delivered may still receive that event, and its
// last release waits for a moment with no firing on this connection point.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly {

class ConnectionPoint final : public IConnectionPoint {
public:
    // Called after an Advise that gave this connection point its first sink, on the
    // advising thread, with no lock of the connection point held: an object that does work
    // only for listeners (a container linking its children) starts it there.
    using FirstSinkHook = void (*)(IConnectionPointContainer& owner) noexcept;

    struct Connection {
        DWORD cookie;
        IDispatch* sink;
    };
    // An immutable list of connections, each holding one reference on its sink.
    class SinkList : public std::enable_shared_from_this<SinkList> {
    public:
        SinkList() = default;
        SinkList(const SinkList&) = delete;
        SinkList& operator=(const SinkList&) = delete;
        ~SinkList();
        std::vector<Connection> connections;
    };

    // `info` is the outgoing interface's type information, when known: it tells which
    // events the interface declares.
    ConnectionPoint(IConnectionPointContainer& container, const IID& iid, const InterfaceInfo* info = nullptr,
                    FirstSinkHook firstSink = nullptr);
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
    // Whether the outgoing interface declares an event with this DISPID (on itself or a
    // base). The type information is read once per DISPID asked; without it, every DISPID
    // counts as declared.
    bool Declares(DISPID dispid) const noexcept;
    // The connections at this moment; the list keeps its sinks alive while it is held.
    std::shared_ptr<const SinkList> Snapshot() const noexcept;
    // Lock-free: an object asks this before it builds any event.
    bool HasConnections() const noexcept { return current_.load(std::memory_order_acquire) != nullptr; }
    // Calls Invoke(dispid, DISPATCH_METHOD) on every sink of the list published now. Sink
    // failures do not stop the others: an event is a notification, not a request.
    void Fire(DISPID dispid, DISPPARAMS& params) const noexcept;

private:
    // Counts the calling thread among the readers for a scope.
    class ReadScope;
    // Publishes `next` (may be null) and retires the list it replaces. Mutex held.
    void PublishLocked(std::shared_ptr<SinkList> next) noexcept;
    // Moves out the retired lists if no reader is active. Mutex held.
    std::vector<std::shared_ptr<SinkList>> TakeReclaimableLocked() const noexcept;
    // Frees retired lists when no reader is active (called by the last reader to leave).
    void Reclaim() const noexcept;

    IConnectionPointContainer& container_;
    const IID iid_;
    const InterfaceInfo* const info_;
    const FirstSinkHook firstSink_;
    mutable std::mutex mutex_;
    std::shared_ptr<SinkList> sinks_;  // the published list's owner; mutex held
    mutable std::vector<std::shared_ptr<SinkList>> retired_;  // mutex held
    DWORD nextCookie_ = 1;
    std::atomic<const SinkList*> current_{nullptr};  // sinks_.get(), readable without the mutex
    mutable std::atomic<uint32_t> readers_{0};       // threads walking or taking a list now
    mutable std::atomic<bool> retiredPending_{false};
    // The answer of Declares for the last DISPID asked: dispid << 2 | known 2 | declared 1.
    mutable std::atomic<uint64_t> declared_{0};
};

}  // namespace tessaly
