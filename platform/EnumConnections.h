// The enumerator of a connection point's connections, over the connections it had when the
// enumerator was made. It holds a reference on every sink it can hand out.
#pragma once

#include <vector>

#include "platform/UnknownObject.h"

namespace tessaly {

class EnumConnections final : public UnknownObject<EnumConnections, IEnumConnections> {
public:
    // A new enumerator with one reference, positioned at `position`; nullptr when out of
    // memory. The sinks in `items` are AddRef'd for the enumerator.
    static IEnumConnections* Create(std::vector<CONNECTDATA> items, size_t position) noexcept;

    explicit EnumConnections(std::vector<CONNECTDATA> items, size_t position);

    // Each CONNECTDATA handed out carries a reference the caller releases. S_FALSE when
    // fewer than cConnections remain; pcFetched may be null only when cConnections is 1.
    HRESULT Next(ULONG cConnections, CONNECTDATA* rgcd, ULONG* pcFetched) override;
    HRESULT Skip(ULONG cConnections) override;
    HRESULT Reset() override;
    HRESULT Clone(IEnumConnections** ppEnum) override;

private:
    ~EnumConnections() override;

    std::vector<CONNECTDATA> items_;
    size_t position_;
};

}  // namespace tessaly
