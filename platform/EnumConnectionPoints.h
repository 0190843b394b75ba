// The enumerator of an object's connection points: a SnapshotEnumerator whose snapshot
// holds a reference on each point. Each point keeps its object alive, so the enumerator
// may outlive every other reference to the object.
//
//     *ppEnum = EnumConnectionPoints::Create(std::vector<IConnectionPoint*>{...}, 0);
#pragma once

#include "platform/ComPtr.h"
#include "platform/SnapshotEnumerator.h"

namespace tessaly {

struct ConnectionPointElements {
    using Element = ComPtr<IConnectionPoint>;
    using Item = IConnectionPoint*;

    static void Init(Item& item) noexcept { item = nullptr; }
    static HRESULT Copy(const Element& element, Item& item) noexcept {
        item = element.get();
        item->AddRef();
        return S_OK;
    }
    static void Clear(Item& item) noexcept {
        if (item) item->Release();
        item = nullptr;
    }
};

using EnumConnectionPoints = SnapshotEnumerator<IEnumConnectionPoints, ConnectionPointElements>;
extern template class SnapshotEnumerator<IEnumConnectionPoints, ConnectionPointElements>;

}  // namespace tessaly
