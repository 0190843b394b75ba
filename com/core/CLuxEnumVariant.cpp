#include "com/core/CLuxEnumVariant.h"

#include <algorithm>

#include "com/core/MethodGuard.h"
#include "com/core/ccCOMError.h"

namespace tessaly::core {

IEnumVARIANT* CLuxEnumVariant::New(Items items) noexcept {
    try {
        return Create(std::make_shared<const Items>(std::move(items)), size_t{0});
    } catch (...) {
        return nullptr;
    }
}

CLuxEnumVariant::CLuxEnumVariant(std::shared_ptr<const Items> items, size_t position) noexcept
    : items_(std::move(items)), position_(position) {}

HRESULT CLuxEnumVariant::Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) {
    return Guarded("Next", IEnumVARIANT::iid, [&] {
        if (pCeltFetched) *pCeltFetched = 0;
        if (celt == 0) return S_OK;
        if (!rgVar || (!pCeltFetched && celt != 1)) return E_POINTER;
        for (ULONG i = 0; i < celt; ++i) VariantInit(&rgVar[i]);
        std::lock_guard lock(mutex_);
        const size_t count = std::min<size_t>(celt, items_->size() - position_);
        for (size_t i = 0; i < count; ++i) {
            const HRESULT copied = VariantCopy(&rgVar[i], &(*items_)[position_ + i].get());
            if (FAILED(copied)) {
                // All or nothing: the caller owns no half-filled block and the position stays.
                for (size_t j = 0; j < i; ++j) VariantClear(&rgVar[j]);
                ThrowIfFailed(copied);
            }
        }
        position_ += count;
        if (pCeltFetched) *pCeltFetched = static_cast<ULONG>(count);
        return count == celt ? S_OK : S_FALSE;
    });
}

HRESULT CLuxEnumVariant::Skip(ULONG celt) {
    return Guarded("Skip", IEnumVARIANT::iid, [&] {
        std::lock_guard lock(mutex_);
        const size_t remaining = items_->size() - position_;
        if (celt > remaining) {
            position_ = items_->size();
            return S_FALSE;
        }
        position_ += celt;
        return S_OK;
    });
}

HRESULT CLuxEnumVariant::Reset() {
    return Guarded("Reset", IEnumVARIANT::iid, [&] {
        std::lock_guard lock(mutex_);
        position_ = 0;
        return S_OK;
    });
}

HRESULT CLuxEnumVariant::Clone(IEnumVARIANT** ppEnum) {
    return Guarded("Clone", IEnumVARIANT::iid, [&] {
        if (!ppEnum) return E_POINTER;
        *ppEnum = nullptr;
        size_t position;
        {
            std::lock_guard lock(mutex_);
            position = position_;
        }
        *ppEnum = Create(items_, position);
        if (!*ppEnum) throw std::bad_alloc();
        return S_OK;
    });
}

}  // namespace tessaly::core
