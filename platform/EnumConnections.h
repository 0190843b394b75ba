// The enumerator of a connection point's connections, over the connections it had when the
// enumerator was made: a SnapshotEnumerator whose snapshot holds a reference on every sink
// it can hand out. Each CONNECTDATA handed out carries a reference the caller releases.
//
//     *ppEnum = EnumConnections::Create(std::vector<CONNECTDATA>{...}, 0);
#pragma once

#include "platform/ComPtr.h"
#include "platform/SnapshotEnumerator.h"

namespace tessaly {

struct ConnectionElements {
    struct Element {
        explicit Element(const CONNECTDATA& connection) : sink(connection.pUnk), cookie(connection.dwCookie) {}
        ComPtr<IUnknown> sink;
        DWORD cookie;
    };
    using Item = CONNECTDATA;

    static void Init(Item& item) noexcept { item = {nullptr, 0}; }
    static HRESULT Copy(const Element& element, Item& item) noexcept {
        item = {element.sink.get(), element.cookie};
        item.pUnk->AddRef();
        return S_OK;
    }
    static void Clear(Item& item) noexcept {
        if (item.pUnk) item.pUnk->Release();
        Init(item);
    }
};

using EnumConnections = SnapshotEnumerator<IEnumConnections, ConnectionElements>;
extern template class SnapshotEnumerator<IEnumConnections, ConnectionElements>;

}  // namespace tessaly
