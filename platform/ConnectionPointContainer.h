// The connection points of one object, one per source interface of its coclass. The
// object implements IConnectionPointContainer by forwarding here; the connection points
// count references on the object (the `owner`).
#pragma once

#include <memory>
#include <vector>

#include "platform/ConnectionPoint.h"
#include "platform/TypeInfo.h"

namespace tessaly {

class ConnectionPointContainer {
public:
    // nullptr when out of memory.
    // `firstSink` is called when a connection point gets its first sink (see ConnectionPoint).
    static ConnectionPointContainer* Create(IConnectionPointContainer& owner, const CoClassInfo& coclass,
                                            ConnectionPoint::FirstSinkHook firstSink = nullptr) noexcept;
    ConnectionPointContainer(IConnectionPointContainer& owner, const CoClassInfo& coclass,
                             ConnectionPoint::FirstSinkHook firstSink = nullptr);
    ConnectionPointContainer(const ConnectionPointContainer&) = delete;
    ConnectionPointContainer& operator=(const ConnectionPointContainer&) = delete;

    HRESULT EnumConnectionPoints(IEnumConnectionPoints** ppEnum) noexcept;
    // CONNECT_E_NOCONNECTION for an IID that is not a source interface of the coclass.
    HRESULT FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) noexcept;

    ConnectionPoint* Find(const IID& iid) const noexcept;
    // Delivers an event to every sink of the source interface, outside any lock.
    void Fire(const IID& source, DISPID dispid, DISPPARAMS& params) const noexcept;
    // Delivers an event that several outgoing interfaces repeat (Change) to every sink of
    // each outgoing interface that declares it; the others never see it.
    void FireAll(DISPID dispid, DISPPARAMS& params) const noexcept;
    // Whether any sink is advised on any outgoing interface.
    bool HasConnections() const noexcept;

private:
    std::vector<std::unique_ptr<ConnectionPoint>> points_;
};

}  // namespace tessaly
