#include "platform/EnumConnectionPoints.h"

namespace tessaly {

IEnumConnectionPoints* EnumConnectionPoints::Create(std::vector<IConnectionPoint*> points, size_t position) noexcept {
    EnumConnectionPoints* created = UnknownObject::Create(std::move(points), position);
    return created;
}

EnumConnectionPoints::EnumConnectionPoints(std::vector<IConnectionPoint*> points, size_t position)
    : points_(std::move(points)), position_(position < points_.size() ? position : points_.size()) {
    for (IConnectionPoint* point : points_) point->AddRef();
}

EnumConnectionPoints::~EnumConnectionPoints() {
    for (IConnectionPoint* point : points_) point->Release();
}

HRESULT EnumConnectionPoints::Next(ULONG cConnections, IConnectionPoint** ppCP, ULONG* pcFetched) {
    if (pcFetched) *pcFetched = 0;
    if (!ppCP || (cConnections > 1 && !pcFetched)) return E_POINTER;
    ULONG fetched = 0;
    while (fetched < cConnections && position_ < points_.size()) {
        ppCP[fetched] = points_[position_++];
        ppCP[fetched]->AddRef();
        ++fetched;
    }
    if (pcFetched) *pcFetched = fetched;
    return fetched == cConnections ? S_OK : S_FALSE;
}

HRESULT EnumConnectionPoints::Skip(ULONG cConnections) {
    const size_t remaining = points_.size() - position_;
    const size_t skipped = cConnections < remaining ? cConnections : remaining;
    position_ += skipped;
    return skipped == cConnections ? S_OK : S_FALSE;
}

HRESULT EnumConnectionPoints::Reset() {
    position_ = 0;
    return S_OK;
}

HRESULT EnumConnectionPoints::Clone(IEnumConnectionPoints** ppEnum) {
    if (!ppEnum) return E_POINTER;
    *ppEnum = nullptr;
    try {
        *ppEnum = Create(points_, position_);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return *ppEnum ? S_OK : E_OUTOFMEMORY;
}

}  // namespace tessaly
