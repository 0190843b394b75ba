#include "com/core/impl/ccCollectionImpl.h"

#include <bit>
#include <cstring>

#include <string>

namespace tessaly::core::collection {

namespace {

inline unsigned char Fold(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

}  // namespace

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
        case VT_EMPTY:
        case VT_NULL:
        case VT_ERROR:
            throw CollectionErrors::InvalidKey("an empty, null or missing argument is neither a key nor an index");
        default:
            break;
    }
    const VARTYPE type = value.vt();
    if (FAILED(value.ChangeType(VT_I4)))
        throw CollectionErrors::InvalidKey("a value of type " + std::to_string(type) +
                                           " is not a string and converts to no 32-bit index");
    result.index = value.get().lVal;
    return result;
}

size_t KeyHash::operator()(std::string_view key) const noexcept {
    // Eight bytes at a time. Setting bit 5 of every byte folds ASCII upper case onto lower
    // case; it also joins a few punctuation pairs ('@' and '`'), which only makes them
    // collide: equality still decides.
    constexpr uint64_t kFold = 0x2020202020202020ull;
    constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
    uint64_t hash = key.size() * kMultiplier;
    size_t at = 0;
    for (; at + 8 <= key.size(); at += 8) {
        uint64_t word;
        std::memcpy(&word, key.data() + at, 8);
        hash = std::rotl((hash ^ (word | kFold)) * kMultiplier, 31);
    }
    if (at < key.size()) {
        uint64_t word = 0;
        std::memcpy(&word, key.data() + at, key.size() - at);
        hash = std::rotl((hash ^ (word | (kFold >> (8 * (8 - (key.size() - at)))))) * kMultiplier, 31);
    }
    // A full avalanche at the end, so that names differing only in their last characters
    // ("Item1234", "Item1299") differ in the low bits a table uses.
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    hash *= 0xC4CEB9FE1A85EC53ull;
    hash ^= hash >> 33;
    return static_cast<size_t>(hash);
}

bool KeyEqual::operator()(std::string_view a, std::string_view b) const noexcept {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (Fold(a[i]) != Fold(b[i])) return false;
    return true;
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
