// The enumerator of an object's connection points. Each connection point it holds keeps
// the object alive, so the enumerator may outlive every other reference to the object.
#pragma once

#include <vector>

#include "platform/UnknownObject.h"

namespace tessaly {

class EnumConnectionPoints final : public UnknownObject<EnumConnectionPoints, IEnumConnectionPoints> {
public:
    // A new enumerator with one reference; the points are AddRef'd for it. nullptr when out
    // of memory.
    static IEnumConnectionPoints* Create(std::vector<IConnectionPoint*> points, size_t position) noexcept;

    explicit EnumConnectionPoints(std::vector<IConnectionPoint*> points, size_t position);

    HRESULT Next(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) override;
    HRESULT Skip(ULONG cConnections) override;
    HRESULT Reset() override;
    HRESULT Clone(IEnumConnectionPoints** ppEnum) override;

private:
    ~EnumConnectionPoints() override;

    std::vector<IConnectionPoint*> points_;
    size_t position_;
};

}  // namespace tessaly
