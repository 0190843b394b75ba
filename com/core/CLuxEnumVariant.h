// The enumerator a collection's _NewEnum hands out: a snapshot of the items taken when it
// was asked for, so that iterating never sees (nor blocks) later changes of the
// collection. Clones share the snapshot and start at the clone's position.
//
// OLE's rules: Next copies up to celt items and answers S_OK when it copied all of them,
// S_FALSE when the snapshot ran out first (*pCeltFetched says how many); pCeltFetched may
// be null only when celt is 1. Skip answers S_FALSE when fewer than celt items remained
// (the position is then at the end).
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "platform/UnknownObject.h"
#include "platform/Variant.h"

namespace tessaly::core {

class CLuxEnumVariant final : public UnknownObject<CLuxEnumVariant, IEnumVARIANT> {
public:
    using Items = std::vector<Variant>;

    // A new enumerator over `items` with one reference; nullptr when out of memory.
    static IEnumVARIANT* New(Items items) noexcept;

    CLuxEnumVariant(std::shared_ptr<const Items> items, size_t position) noexcept;

    HRESULT Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) override;
    HRESULT Skip(ULONG celt) override;
    HRESULT Reset() override;
    HRESULT Clone(IEnumVARIANT** ppEnum) override;

private:
    ~CLuxEnumVariant() override = default;

    const std::shared_ptr<const Items> items_;
    std::mutex mutex_;  // Next and Skip move the position as one step
    size_t position_;
};

}  // namespace tessaly::core
