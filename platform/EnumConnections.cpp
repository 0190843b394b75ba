#include "platform/EnumConnections.h"

namespace tessaly {

IEnumConnections* EnumConnections::Create(std::vector<CONNECTDATA> items, size_t position) noexcept {
    EnumConnections* created = UnknownObject::Create(std::move(items), position);
    return created;
}

EnumConnections::EnumConnections(std::vector<CONNECTDATA> items, size_t position)
    : items_(std::move(items)), position_(position < items_.size() ? position : items_.size()) {
    for (const CONNECTDATA& item : items_) item.pUnk->AddRef();
}

EnumConnections::~EnumConnections() {
    for (const CONNECTDATA& item : items_) item.pUnk->Release();
}

HRESULT EnumConnections::Next(ULONG cConnections, CONNECTDATA* rgcd, ULONG* pcFetched) {
    if (pcFetched) *pcFetched = 0;
    if (!rgcd || (cConnections > 1 && !pcFetched)) return E_POINTER;
    ULONG fetched = 0;
    while (fetched < cConnections && position_ < items_.size()) {
        rgcd[fetched] = items_[position_++];
        rgcd[fetched].pUnk->AddRef();
        ++fetched;
    }
    if (pcFetched) *pcFetched = fetched;
    return fetched == cConnections ? S_OK : S_FALSE;
}

HRESULT EnumConnections::Skip(ULONG cConnections) {
    const size_t remaining = items_.size() - position_;
    const size_t skipped = cConnections < remaining ? cConnections : remaining;
    position_ += skipped;
    return skipped == cConnections ? S_OK : S_FALSE;
}

HRESULT EnumConnections::Reset() {
    position_ = 0;
    return S_OK;
}

HRESULT EnumConnections::Clone(IEnumConnections** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    try {
        *ppEnum = Create(items_, position_);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

}  // namespace tessaly
