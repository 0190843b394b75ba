#include "com/core/impl/ccCollectionImpl.h"

#include <string>

namespace tessaly::core::collection {

KeyOrIndex ReadKeyOrIndex(const VARIANT& argument) {
    Variant value;
    if (FAILED(VariantCopyInd(value.ptr(), &argument)))
        throw CollectionErrors::InvalidKey("the argument cannot be read as a key or an index");
    KeyOrIndex result;
    switch (value.vt()) {
        case VT_BSTR: {
            VARIANT text = value.Detach();
            result.isKey = true;
            result.key = Bstr::Attach(text.bstrVal);
            return result;
        }
        case VT_ERROR:
            // A missing optional argument: its error code is no index anybody meant.
            throw CollectionErrors::InvalidKey("a missing argument is neither a key nor an index");
        default:
            break;  // VT_EMPTY converts to 0 like any number; VT_NULL converts to nothing
    }
    const VARTYPE type = value.vt();
    if (FAILED(value.ChangeType(VT_I4)))
        throw CollectionErrors::InvalidKey("a value of type " + std::to_string(type) +
                                           " is not a string and converts to no 32-bit index");
    result.index = value.get().lVal;
    return result;
}

Variant AsVariant(const Variant& item) { return item; }
Variant AsVariant(const Bstr& item) { return Variant(item.view()); }

void EventArgs::Reset() noexcept {
    for (UINT i = 0; i < count_; ++i) VariantClear(&values_[i]);
    count_ = 0;
}

VARIANT& EventArgs::Next() noexcept {
    VARIANT& slot = values_[count_++];
    VariantInit(&slot);
    return slot;
}

void EventArgs::AddIndex(int32_t index) noexcept {
    VARIANT& slot = Next();
    slot.vt = VT_I4;
    slot.lVal = index;
}

void EventArgs::AddValue(const Variant& value) { AddValue(Variant(value)); }

void EventArgs::AddValue(Variant&& value) noexcept { Next() = value.Detach(); }

void EventArgs::AddValue(const Bstr& text) { AddValue(Bstr(text)); }

void EventArgs::AddValue(Bstr&& text) noexcept {
    VARIANT& slot = Next();
    slot.vt = VT_BSTR;
    slot.bstrVal = text.Detach();
}

void EventArgs::SetIndex(UINT position, int32_t index) noexcept {
    if (position < count_ && values_[position].vt == VT_I4) values_[position].lVal = index;
}

VARIANT* EventArgs::LastFirst() noexcept {
    for (UINT i = 0; i < count_; ++i) reversed_[i] = values_[count_ - 1 - i];
    return count_ ? reversed_ : nullptr;
}

}  // namespace tessaly::core::collection
