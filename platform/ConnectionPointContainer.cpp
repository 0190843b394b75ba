#include "platform/ConnectionPointContainer.h"

#include <new>

#include "platform/EnumConnectionPoints.h"

namespace tessaly {

ConnectionPointContainer* ConnectionPointContainer::Create(IConnectionPointContainer& owner,
                                                           const CoClassInfo& coclass,
                                                           ConnectionPoint::FirstSinkHook firstSink) noexcept {
    try {
        return new ConnectionPointContainer(owner, coclass, firstSink);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

ConnectionPointContainer::ConnectionPointContainer(IConnectionPointContainer& owner, const CoClassInfo& coclass,
                                                   ConnectionPoint::FirstSinkHook firstSink) {
    for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
        const CoClassInterface& entry = coclass.interfaces[i];
        if (entry.flags & IMPLTYPEFLAG_FSOURCE)
            points_.push_back(std::make_unique<ConnectionPoint>(owner, entry.iface->iid, entry.iface, firstSink));
    }
}

ConnectionPoint* ConnectionPointContainer::Find(const IID& iid) const noexcept {
    for (const auto& point : points_)
        if (point->Interface() == iid) return point.get();
    return nullptr;
}

HRESULT ConnectionPointContainer::FindConnectionPoint(REFIID riid, IConnectionPoint** ppCP) noexcept {
    if (!ppCP) return E_POINTER;
    *ppCP = Find(riid);
    if (!*ppCP) return CONNECT_E_NOCONNECTION;
    (*ppCP)->AddRef();
    return S_OK;
}

HRESULT ConnectionPointContainer::EnumConnectionPoints(IEnumConnectionPoints** ppEnum) noexcept {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    try {
        std::vector<IConnectionPoint*> points;
        points.reserve(points_.size());
        for (const auto& point : points_) points.push_back(point.get());
        *ppEnum = EnumConnectionPoints::Create(std::move(points), 0);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

void ConnectionPointContainer::Fire(const IID& source, DISPID dispid, DISPPARAMS& params) const noexcept {
    if (const ConnectionPoint* point = Find(source)) point->Fire(dispid, params);
}

void ConnectionPointContainer::FireAll(DISPID dispid, DISPPARAMS& params) const noexcept {
    for (const auto& point : points_)
        if (point->Declares(dispid)) point->Fire(dispid, params);
}

bool ConnectionPointContainer::HasConnections() const noexcept {
    for (const auto& point : points_)
        if (point->HasConnections()) return true;
    return false;
}

}  // namespace tessaly
