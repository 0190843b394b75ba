#include "com/core/CLuxCollection.h"

#include <cstring>

#include "platform/ClassTable.h"
#include "platform/SafeArray.h"

namespace tessaly::core {

namespace {

const ClassRegistrar<CLuxCollection> registrar;

// Arrays of variants may nest; deeper than this is not worth a stack.
constexpr int kMaxDepth = 32;

template <class T>
T Load(const void* at) noexcept {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

bool SameObject(IUnknown* a, IUnknown* b) noexcept {
    if (a == b) return true;
    if (!a || !b) return false;
    ComPtr<IUnknown> identityA;
    ComPtr<IUnknown> identityB;
    if (FAILED(a->QueryInterface(IUnknown::iid, identityA.OutVoid())) ||
        FAILED(b->QueryInterface(IUnknown::iid, identityB.OutVoid())))
        return false;
    return identityA.get() == identityB.get();
}

bool SameValue(const VARIANT& a, const VARIANT& b, int depth) noexcept;

// Two values of type `vt` stored at `a` and `b` (a VARIANT's union, or array elements).
bool SameScalar(VARTYPE vt, const void* a, const void* b, int depth) noexcept {
    switch (vt) {
        case VT_EMPTY:
        case VT_NULL:
            return true;
        case VT_I1:
            return Load<int8_t>(a) == Load<int8_t>(b);
        case VT_UI1:
            return Load<uint8_t>(a) == Load<uint8_t>(b);
        case VT_I2:
            return Load<int16_t>(a) == Load<int16_t>(b);
        case VT_UI2:
            return Load<uint16_t>(a) == Load<uint16_t>(b);
        case VT_I4:
        case VT_INT:
        case VT_ERROR:
            return Load<int32_t>(a) == Load<int32_t>(b);
        case VT_UI4:
        case VT_UINT:
            return Load<uint32_t>(a) == Load<uint32_t>(b);
        case VT_I8:
        case VT_CY:
            return Load<int64_t>(a) == Load<int64_t>(b);
        case VT_UI8:
            return Load<uint64_t>(a) == Load<uint64_t>(b);
        case VT_R4:
            return Load<float>(a) == Load<float>(b);
        case VT_R8:
        case VT_DATE:
            return Load<double>(a) == Load<double>(b);
        case VT_BOOL:
            return (Load<VARIANT_BOOL>(a) != 0) == (Load<VARIANT_BOOL>(b) != 0);
        case VT_BSTR:
            return BstrView(Load<BSTR>(a)) == BstrView(Load<BSTR>(b));
        case VT_DISPATCH:
        case VT_UNKNOWN:
            // IDispatch derives from IUnknown alone: the same pointer serves as either.
            return SameObject(Load<IUnknown*>(a), Load<IUnknown*>(b));
        case VT_VARIANT:
            return SameValue(*static_cast<const VARIANT*>(a), *static_cast<const VARIANT*>(b), depth + 1);
        default:
            return false;
    }
}

bool SameArray(SAFEARRAY* a, SAFEARRAY* b, VARTYPE elementType, int depth) noexcept {
    if (a == b) return true;
    if (!a || !b || a->cDims != b->cDims) return false;
    for (USHORT d = 0; d < a->cDims; ++d)
        if (a->rgsabound[d].cElements != b->rgsabound[d].cElements) return false;
    VARTYPE typeA = 0;
    VARTYPE typeB = 0;
    if (FAILED(SafeArrayGetVartype(a, &typeA)) || FAILED(SafeArrayGetVartype(b, &typeB)) || typeA != typeB ||
        typeA != elementType)
        return false;
    const size_t count = SafeArrayElementCount(a);
    if (count == 0) return true;
    const UINT size = SafeArrayGetElemsize(a);
    void* dataA = nullptr;
    void* dataB = nullptr;
    if (FAILED(SafeArrayAccessData(a, &dataA))) return false;
    bool same = false;
    if (SUCCEEDED(SafeArrayAccessData(b, &dataB))) {
        same = true;
        const auto* bytesA = static_cast<const char*>(dataA);
        const auto* bytesB = static_cast<const char*>(dataB);
        for (size_t i = 0; same && i < count; ++i)
            same = SameScalar(elementType, bytesA + i * size, bytesB + i * size, depth);
        SafeArrayUnaccessData(b);
    }
    SafeArrayUnaccessData(a);
    return same;
}

bool SameValue(const VARIANT& a, const VARIANT& b, int depth) noexcept {
    if (a.vt != b.vt || depth > kMaxDepth) return false;
    if (a.vt & VT_BYREF) return false;  // items never hold references
    if (a.vt & VT_ARRAY) return SameArray(a.parray, b.parray, a.vt & VT_TYPEMASK, depth);
    return SameScalar(a.vt, &a.llVal, &b.llVal, depth);
}

}  // namespace

bool SameCollectionItem(const VARIANT& a, const VARIANT& b) noexcept { return SameValue(a, b, 0); }

Variant LuxCollectionItems::Take(const VARIANT& item) {
    Variant value;
    ThrowIfFailed(VariantCopyInd(value.ptr(), &item));
    return value;
}

Variant LuxCollectionItems::Clone(Variant item) {
    if (item.vt() != VT_DISPATCH && item.vt() != VT_UNKNOWN) return item;  // already a deep copy
    VARIANT copy;
    VariantInit(&copy);
    CloneValue(item.get(), &copy);
    return Variant::Attach(copy);
}

LuxCollectionItems::Finder::Finder(const VARIANT& wanted) { ThrowIfFailed(VariantCopyInd(wanted_.ptr(), &wanted)); }

bool LuxCollectionItems::Finder::operator()(const Variant& item) const noexcept {
    return SameValue(item.get(), wanted_.get(), 0);
}

HRESULT CLuxCollection::putref_Item(VARIANT KeyOrIndex, VARIANT Item) { return PutItem("put_Item", KeyOrIndex, Item); }

}  // namespace tessaly::core
