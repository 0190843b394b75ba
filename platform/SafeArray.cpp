#include "platform/SafeArray.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>

#include "platform/Bstr.h"
#include "platform/StandardInterfaces.h"
#include "platform/Variant.h"

namespace {

// No array holds more elements than a LONG can count, whatever memory there is.
constexpr uint64_t kMaxElements = 0x7FFFFFFFu;

// 0 for a type no safe array holds.
ULONG ElementSize(VARTYPE vt) noexcept {
    if (vt & ~VT_TYPEMASK) return 0;  // no arrays of arrays or of references
    if (vt == VT_VARIANT) return sizeof(VARIANT);
    return static_cast<ULONG>(tessaly::ReferencedValueSize(vt));
}

USHORT FeaturesOf(VARTYPE vt) noexcept {
    switch (vt) {
        case VT_BSTR:
            return FADF_HAVEVARTYPE | FADF_BSTR;
        case VT_VARIANT:
            return FADF_HAVEVARTYPE | FADF_VARIANT;
        case VT_DISPATCH:
            return FADF_HAVEVARTYPE | FADF_DISPATCH;
        case VT_UNKNOWN:
            return FADF_HAVEVARTYPE | FADF_UNKNOWN;
        default:
            return FADF_HAVEVARTYPE;
    }
}

// What the elements are, for releasing and copying them. The feature flags decide, as
// they do for descriptors built by hand; `vt` is the fallback.
VARTYPE ElementType(const SAFEARRAY* array) noexcept {
    if (array->fFeatures & FADF_BSTR) return VT_BSTR;
    if (array->fFeatures & FADF_VARIANT) return VT_VARIANT;
    if (array->fFeatures & FADF_DISPATCH) return VT_DISPATCH;
    if (array->fFeatures & FADF_UNKNOWN) return VT_UNKNOWN;
    return array->vt;
}

// Indexing through a pointer: the descriptor holds cDims bounds although the struct
// declares one.
SAFEARRAYBOUND* Bounds(SAFEARRAY* array) noexcept { return array->rgsabound; }
const SAFEARRAYBOUND* Bounds(const SAFEARRAY* array) noexcept { return array->rgsabound; }

// The bound of dimension `k`, counted from the left-most (k = 0), stored reversed.
SAFEARRAYBOUND& Dimension(SAFEARRAY* array, UINT k) noexcept { return Bounds(array)[array->cDims - 1 - k]; }

// The upper bound must be a LONG as well, or GetUBound could not report it.
bool BoundFits(const SAFEARRAYBOUND& bound) noexcept {
    const int64_t upper = int64_t(bound.lLbound) + int64_t(bound.cElements) - 1;
    return upper >= std::numeric_limits<LONG>::min() && upper <= std::numeric_limits<LONG>::max();
}

// Element count and byte size of a set of bounds; empty when either overflows or the
// count passes kMaxElements. Checked before anything is allocated.
struct Extent {
    size_t elements;
    size_t bytes;
};

std::optional<Extent> ExtentOf(const SAFEARRAYBOUND* bounds, UINT dims, ULONG elementSize) noexcept {
    // An empty dimension empties the array whatever the others hold, in any order.
    for (UINT i = 0; i < dims; ++i)
        if (bounds[i].cElements == 0) return Extent{0, 0};
    uint64_t elements = 1;
    for (UINT i = 0; i < dims; ++i) {
        const uint64_t count = bounds[i].cElements;
        if (elements > kMaxElements / count) return std::nullopt;
        elements *= count;
    }
    if (elements > kMaxElements) return std::nullopt;
    if (elementSize != 0 && elements > std::numeric_limits<size_t>::max() / elementSize) return std::nullopt;
    return Extent{static_cast<size_t>(elements), static_cast<size_t>(elements) * elementSize};
}

// Zeroed element memory; never a null block, even for no elements, so that callers may
// hand pvData to memcpy and friends unconditionally.
void* AllocateData(size_t bytes) noexcept { return std::calloc(bytes ? bytes : 1, 1); }

bool OwnsData(const SAFEARRAY* array) noexcept { return !(array->fFeatures & (FADF_STATIC | FADF_AUTO)); }

// The descriptor and its bounds in one block.
SAFEARRAY* AllocateDescriptor(UINT dims) noexcept {
    const size_t size = offsetof(SAFEARRAY, rgsabound) + size_t(dims) * sizeof(SAFEARRAYBOUND);
    return static_cast<SAFEARRAY*>(std::calloc(size < sizeof(SAFEARRAY) ? sizeof(SAFEARRAY) : size, 1));
}

std::atomic_ref<ULONG> LockCount(SAFEARRAY* array) noexcept { return std::atomic_ref<ULONG>(array->cLocks); }

bool IsLocked(SAFEARRAY* array) noexcept { return LockCount(array).load(std::memory_order_acquire) != 0; }

// Releases `count` elements starting at `first`, and zeroes them when the memory lives on
// (memory about to be freed is not worth a pass).
void ReleaseElements(VARTYPE type, ULONG elementSize, void* first, size_t count, bool zero) noexcept {
    if (!first || count == 0) return;
    switch (type) {
        case VT_BSTR:
            for (size_t i = 0; i < count; ++i) SysFreeString(static_cast<BSTR*>(first)[i]);
            break;
        case VT_VARIANT:
            for (size_t i = 0; i < count; ++i) VariantClear(&static_cast<VARIANT*>(first)[i]);
            break;
        case VT_DISPATCH:
        case VT_UNKNOWN:
            for (size_t i = 0; i < count; ++i) {
                IUnknown* object = static_cast<IUnknown**>(first)[i];
                if (object) object->Release();
            }
            break;
        default:
            break;
    }
    if (zero) std::memset(first, 0, count * elementSize);
}

size_t CountOf(const SAFEARRAY* array) noexcept {
    const auto extent = ExtentOf(Bounds(array), array->cDims, array->cbElements);
    return extent ? extent->elements : 0;
}

// Element types that own something must have the size of what they own: a hand-built
// descriptor that disagrees is refused rather than misread.
bool Usable(const SAFEARRAY* array) noexcept {
    if (array->cDims == 0 || array->cbElements == 0) return false;
    const VARTYPE type = ElementType(array);
    if (type == VT_BSTR || type == VT_VARIANT || type == VT_DISPATCH || type == VT_UNKNOWN)
        return array->cbElements == ElementSize(type);
    return true;
}

// The address of the element at `indices` (left-most first), or DISP_E_BADINDEX.
HRESULT ElementAddress(SAFEARRAY* array, const LONG* indices, void** element) noexcept {
    size_t offset = 0;
    size_t stride = 1;
    for (UINT k = 0; k < array->cDims; ++k) {
        const SAFEARRAYBOUND& bound = Dimension(array, k);
        const int64_t position = int64_t(indices[k]) - int64_t(bound.lLbound);
        if (position < 0 || position >= int64_t(bound.cElements)) return DISP_E_BADINDEX;
        offset += static_cast<size_t>(position) * stride;
        stride *= bound.cElements;
    }
    if (!array->pvData) return E_UNEXPECTED;  // the data was destroyed
    *element = static_cast<char*>(array->pvData) + offset * array->cbElements;
    return S_OK;
}

// Holds a lock for the duration of an element access, so that Destroy and Redim are
// refused meanwhile.
class ScopedLock {
public:
    explicit ScopedLock(SAFEARRAY* array) noexcept : array_(SUCCEEDED(SafeArrayLock(array)) ? array : nullptr) {}
    ~ScopedLock() {
        if (array_) SafeArrayUnlock(array_);
    }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    SAFEARRAY* array_;
};

// Deep-copies `count` elements into zeroed memory. On failure what was copied stays in
// `target` for the caller to release.
HRESULT CopyElements(VARTYPE type, ULONG elementSize, const void* source, void* target, size_t count) noexcept {
    switch (type) {
        case VT_BSTR:
            for (size_t i = 0; i < count; ++i) {
                BSTR text = static_cast<const BSTR*>(source)[i];
                if (!text) continue;
                BSTR copy = SysAllocStringLen(text, SysStringLen(text));
                if (!copy) return E_OUTOFMEMORY;
                static_cast<BSTR*>(target)[i] = copy;
            }
            return S_OK;
        case VT_VARIANT:
            for (size_t i = 0; i < count; ++i) {
                const HRESULT hr = VariantCopy(&static_cast<VARIANT*>(target)[i], &static_cast<const VARIANT*>(source)[i]);
                if (FAILED(hr)) return hr;
            }
            return S_OK;
        case VT_DISPATCH:
        case VT_UNKNOWN:
            for (size_t i = 0; i < count; ++i) {
                IUnknown* object = static_cast<IUnknown* const*>(source)[i];
                if (object) object->AddRef();
                static_cast<IUnknown**>(target)[i] = object;
            }
            return S_OK;
        default:
            if (count) std::memcpy(target, source, count * elementSize);
            return S_OK;
    }
}

// Resizes dimension `k` (counted from the left-most). Dimensions to the left of k vary
// faster, so every run of `inner * count` elements is moved to its new place.
HRESULT ResizeDimension(SAFEARRAY* array, UINT k, const SAFEARRAYBOUND& bound) noexcept {
    size_t inner = 1;
    size_t outer = 1;
    for (UINT i = 0; i < array->cDims; ++i) {
        if (i < k) inner *= Dimension(array, i).cElements;
        if (i > k) outer *= Dimension(array, i).cElements;
    }
    const size_t oldCount = Dimension(array, k).cElements;
    const size_t newCount = bound.cElements;
    const size_t size = array->cbElements;

    void* fresh = nullptr;
    {
        // The extent of the new shape, checked before any allocation.
        SAFEARRAYBOUND* bounds = Bounds(array);
        SAFEARRAYBOUND& slot = Dimension(array, k);
        const SAFEARRAYBOUND saved = slot;
        slot = bound;
        const auto extent = ExtentOf(bounds, array->cDims, array->cbElements);
        slot = saved;
        if (!extent) return E_OUTOFMEMORY;
        fresh = AllocateData(extent->bytes);
        if (!fresh) return E_OUTOFMEMORY;
    }

    void* old = array->pvData;
    const size_t kept = (oldCount < newCount ? oldCount : newCount) * inner;
    if (old && kept) {
        for (size_t j = 0; j < outer; ++j)
            std::memcpy(static_cast<char*>(fresh) + j * inner * newCount * size,
                        static_cast<char*>(old) + j * inner * oldCount * size, kept * size);
    }
    array->pvData = fresh;
    Dimension(array, k) = bound;

    // The array is whole again before anything is released: a Release that looks at
    // the array finds the new shape.
    if (old) {
        if (oldCount > newCount) {
            const VARTYPE type = ElementType(array);
            for (size_t j = 0; j < outer; ++j)
                ReleaseElements(type, array->cbElements, static_cast<char*>(old) + (j * inner * oldCount + kept) * size,
                                (oldCount - newCount) * inner, false);
        }
        std::free(old);
    }
    return S_OK;
}

// A new array; its elements zeroed unless the caller writes them all at once.
SAFEARRAY* CreateArray(VARTYPE vt, UINT dims, const SAFEARRAYBOUND* bounds, bool zeroed) noexcept {
    const ULONG elementSize = ElementSize(vt);
    if (elementSize == 0 || dims == 0 || dims > std::numeric_limits<USHORT>::max() || !bounds) return nullptr;
    for (UINT i = 0; i < dims; ++i)
        if (!BoundFits(bounds[i])) return nullptr;
    const auto extent = ExtentOf(bounds, dims, elementSize);
    if (!extent) return nullptr;

    SAFEARRAY* array = AllocateDescriptor(dims);
    if (!array) return nullptr;
    array->pvData = zeroed ? AllocateData(extent->bytes) : std::malloc(extent->bytes ? extent->bytes : 1);
    if (!array->pvData) {
        std::free(array);
        return nullptr;
    }
    array->cDims = static_cast<USHORT>(dims);
    array->fFeatures = FeaturesOf(vt);
    array->cbElements = elementSize;
    array->cLocks = 0;
    array->vt = vt;
    // Callers list the left-most dimension first; the descriptor keeps them reversed.
    for (UINT i = 0; i < dims; ++i) Bounds(array)[dims - 1 - i] = bounds[i];
    return array;
}

}  // namespace

SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dims, const SAFEARRAYBOUND* bounds) noexcept {
    return CreateArray(vt, dims, bounds, true);
}

namespace tessaly {
SAFEARRAY* SafeArrayCreateForFill(VARTYPE vt, UINT dims, const SAFEARRAYBOUND* bounds) noexcept {
    const bool ownsNothing = vt != VT_BSTR && vt != VT_VARIANT && vt != VT_DISPATCH && vt != VT_UNKNOWN;
    return CreateArray(vt, dims, bounds, !ownsNothing);
}
}  // namespace tessaly

SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count) noexcept {
    const SAFEARRAYBOUND bound{count, lowerBound};
    return SafeArrayCreate(vt, 1, &bound);
}

HRESULT SafeArrayDestroyData(SAFEARRAY* array) noexcept {
    if (!array) return E_INVALIDARG;
    if (IsLocked(array)) return DISP_E_ARRAYISLOCKED;
    if (!array->pvData) return S_OK;
    // Memory of static and automatic arrays belongs to whoever built them.
    ReleaseElements(ElementType(array), array->cbElements, array->pvData, CountOf(array), !OwnsData(array));
    if (OwnsData(array)) {
        std::free(array->pvData);
        array->pvData = nullptr;
    }
    return S_OK;
}

HRESULT SafeArrayDestroy(SAFEARRAY* array) noexcept {
    if (!array) return E_INVALIDARG;
    const HRESULT hr = SafeArrayDestroyData(array);
    if (FAILED(hr)) return hr;
    if (OwnsData(array)) std::free(array);
    return S_OK;
}

HRESULT SafeArrayLock(SAFEARRAY* array) noexcept {
    if (!array) return E_INVALIDARG;
    auto locks = LockCount(array);
    ULONG current = locks.load(std::memory_order_relaxed);
    do {
        if (current == std::numeric_limits<ULONG>::max()) return E_UNEXPECTED;
    } while (!locks.compare_exchange_weak(current, current + 1, std::memory_order_acquire, std::memory_order_relaxed));
    return S_OK;
}

HRESULT SafeArrayUnlock(SAFEARRAY* array) noexcept {
    if (!array) return E_INVALIDARG;
    auto locks = LockCount(array);
    ULONG current = locks.load(std::memory_order_relaxed);
    do {
        if (current == 0) return E_UNEXPECTED;
    } while (!locks.compare_exchange_weak(current, current - 1, std::memory_order_release, std::memory_order_relaxed));
    return S_OK;
}

HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) noexcept {
    if (!array || !data) return E_INVALIDARG;
    const HRESULT hr = SafeArrayLock(array);
    if (FAILED(hr)) return hr;
    *data = array->pvData;
    return S_OK;
}

HRESULT SafeArrayUnaccessData(SAFEARRAY* array) noexcept { return SafeArrayUnlock(array); }

UINT SafeArrayGetDim(SAFEARRAY* array) noexcept { return array ? array->cDims : 0; }

UINT SafeArrayGetElemsize(SAFEARRAY* array) noexcept { return array ? array->cbElements : 0; }

HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dim, LONG* lowerBound) noexcept {
    if (!array || !lowerBound) return E_INVALIDARG;
    if (dim == 0 || dim > array->cDims) return DISP_E_BADINDEX;
    *lowerBound = Dimension(array, dim - 1).lLbound;
    return S_OK;
}

HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dim, LONG* upperBound) noexcept {
    if (!array || !upperBound) return E_INVALIDARG;
    if (dim == 0 || dim > array->cDims) return DISP_E_BADINDEX;
    const SAFEARRAYBOUND& bound = Dimension(array, dim - 1);
    // Computed wide: an empty dimension's upper bound is one below its lower bound.
    *upperBound = static_cast<LONG>(int64_t(bound.lLbound) + int64_t(bound.cElements) - 1);
    return S_OK;
}

HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt) noexcept {
    if (!array || !vt) return E_INVALIDARG;
    const VARTYPE type = ElementType(array);
    if (ElementSize(type) == 0) return E_INVALIDARG;
    *vt = type;
    return S_OK;
}

HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, const LONG* indices, void** element) noexcept {
    if (!array || !indices || !element || !Usable(array)) return E_INVALIDARG;
    return ElementAddress(array, indices, element);
}

HRESULT SafeArrayGetElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept {
    if (!array || !indices || !value || !Usable(array)) return E_INVALIDARG;
    ScopedLock lock(array);
    void* element = nullptr;
    const HRESULT hr = ElementAddress(array, indices, &element);
    if (FAILED(hr)) return hr;
    // `value` is an out parameter: whatever it held is overwritten, not released.
    switch (ElementType(array)) {
        case VT_BSTR: {
            BSTR text = *static_cast<BSTR*>(element);
            BSTR copy = nullptr;
            if (text) {
                copy = SysAllocStringLen(text, SysStringLen(text));
                if (!copy) return E_OUTOFMEMORY;
            }
            *static_cast<BSTR*>(value) = copy;
            return S_OK;
        }
        case VT_VARIANT: {
            VARIANT copy;
            VariantInit(&copy);
            const HRESULT copied = VariantCopy(&copy, static_cast<const VARIANT*>(element));
            if (FAILED(copied)) return copied;
            std::memcpy(value, &copy, sizeof(VARIANT));
            return S_OK;
        }
        case VT_DISPATCH:
        case VT_UNKNOWN: {
            IUnknown* object = *static_cast<IUnknown**>(element);
            if (object) object->AddRef();
            *static_cast<IUnknown**>(value) = object;
            return S_OK;
        }
        default:
            std::memcpy(value, element, array->cbElements);
            return S_OK;
    }
}

HRESULT SafeArrayPutElement(SAFEARRAY* array, const LONG* indices, const void* value) noexcept {
    if (!array || !indices || !Usable(array)) return E_INVALIDARG;
    const VARTYPE type = ElementType(array);
    // Strings and objects are passed as themselves, so null is a value (the empty string,
    // no object); every other type is passed by address.
    const bool passedItself = type == VT_BSTR || type == VT_DISPATCH || type == VT_UNKNOWN;
    if (!value && !passedItself) return E_INVALIDARG;
    ScopedLock lock(array);
    void* element = nullptr;
    const HRESULT hr = ElementAddress(array, indices, &element);
    if (FAILED(hr)) return hr;
    // The new value goes in first and the old one is released after, so that putting an
    // element's own value back is safe and a failed copy leaves the slot as it was.
    switch (type) {
        case VT_BSTR: {
            const auto text = static_cast<BSTR>(const_cast<void*>(value));
            BSTR copy = nullptr;
            if (text) {
                copy = SysAllocStringLen(text, SysStringLen(text));
                if (!copy) return E_OUTOFMEMORY;
            }
            BSTR old = *static_cast<BSTR*>(element);
            *static_cast<BSTR*>(element) = copy;
            SysFreeString(old);
            return S_OK;
        }
        case VT_VARIANT: {
            VARIANT copy;
            VariantInit(&copy);
            const HRESULT copied = VariantCopy(&copy, static_cast<const VARIANT*>(value));
            if (FAILED(copied)) return copied;
            VARIANT old;
            std::memcpy(&old, element, sizeof(VARIANT));
            std::memcpy(element, &copy, sizeof(VARIANT));
            VariantClear(&old);
            return S_OK;
        }
        case VT_DISPATCH:
        case VT_UNKNOWN: {
            auto* object = static_cast<IUnknown*>(const_cast<void*>(value));
            if (object) object->AddRef();
            IUnknown* old = *static_cast<IUnknown**>(element);
            *static_cast<IUnknown**>(element) = object;
            if (old) old->Release();
            return S_OK;
        }
        default:
            std::memcpy(element, value, array->cbElements);
            return S_OK;
    }
}

HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy) noexcept {
    if (!copy) return E_INVALIDARG;
    *copy = nullptr;
    if (!source) return S_OK;  // a null array copies as null
    if (!Usable(source)) return E_INVALIDARG;
    const auto extent = ExtentOf(Bounds(source), source->cDims, source->cbElements);
    if (!extent) return E_INVALIDARG;

    SAFEARRAY* result = AllocateDescriptor(source->cDims);
    if (!result) return E_OUTOFMEMORY;
    result->cDims = source->cDims;
    // The copy is the caller's, on the heap, whatever the source was.
    result->fFeatures = static_cast<USHORT>(source->fFeatures & ~(FADF_STATIC | FADF_AUTO));
    result->vt = ElementType(source);
    if (ElementSize(result->vt) != 0) result->fFeatures |= FeaturesOf(result->vt);
    result->cbElements = source->cbElements;
    result->cLocks = 0;
    std::memcpy(Bounds(result), Bounds(source), size_t(source->cDims) * sizeof(SAFEARRAYBOUND));
    if (!source->pvData) {  // destroyed data: the descriptor alone
        *copy = result;
        return S_OK;
    }
    result->pvData = AllocateData(extent->bytes);
    if (!result->pvData) {
        std::free(result);
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = CopyElements(result->vt, source->cbElements, source->pvData, result->pvData, extent->elements);
    if (FAILED(hr)) {
        SafeArrayDestroy(result);  // releases the elements copied so far
        return hr;
    }
    *copy = result;
    return S_OK;
}

HRESULT SafeArrayRedim(SAFEARRAY* array, const SAFEARRAYBOUND* rightMostBound) noexcept {
    if (!array || !rightMostBound || !Usable(array)) return E_INVALIDARG;
    if (IsLocked(array)) return DISP_E_ARRAYISLOCKED;
    // Fixed, static and automatic arrays keep the memory they were given.
    if (array->fFeatures & (FADF_FIXEDSIZE | FADF_STATIC | FADF_AUTO)) return E_INVALIDARG;
    if (!BoundFits(*rightMostBound)) return E_INVALIDARG;
    // As OLE (and ReDim Preserve): the right-most dimension, the slowest in memory, so the
    // elements that stay keep their place.
    return ResizeDimension(array, array->cDims - 1, *rightMostBound);
}

namespace tessaly {

size_t SafeArrayElementSize(VARTYPE vt) noexcept { return ElementSize(vt); }

size_t SafeArrayElementCount(const SAFEARRAY* array) noexcept { return array ? CountOf(array) : 0; }

}  // namespace tessaly
