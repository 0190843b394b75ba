// The enumerator a collection's _NewEnum hands out: a SnapshotEnumerator over copies of
// the items taken when it was asked for (OLE's rules are written down there). Each
// VARIANT handed out is the caller's to clear.
//
//     CLuxEnumVariant::Items snapshot = ...;          // filled under the collection's lock
//     IEnumVARIANT* enumerator = CLuxEnumVariant::New(std::move(snapshot));
#pragma once

#include "platform/SnapshotEnumerator.h"
#include "platform/Variant.h"

namespace tessaly::core {

struct VariantElements {
    using Element = Variant;
    using Item = VARIANT;

    static void Init(Item& item) noexcept { VariantInit(&item); }
    // Fails (out of memory for a string or an array) without touching the item.
    static HRESULT Copy(const Element& element, Item& item) noexcept { return VariantCopy(&item, &element.get()); }
    static void Clear(Item& item) noexcept { VariantClear(&item); }
};

using CLuxEnumVariant = SnapshotEnumerator<IEnumVARIANT, VariantElements>;

}  // namespace tessaly::core

namespace tessaly {
extern template class SnapshotEnumerator<IEnumVARIANT, core::VariantElements>;
}  // namespace tessaly
