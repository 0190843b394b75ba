#include "com/core/ObjectGraphObjects.h"

#include "TessalyCore.h"
#include "com/core/CLuxArchive.h"
#include "platform/SafeArray.h"

namespace tessaly::core {

namespace {
constexpr int32_t kSaving = luxPersistOptionAll | luxPersistOptionSaving;
}  // namespace

ObjectGraphObjects::ObjectGraphObjects(IUnknown* root) {
    if (root) Meet(root);
    for (size_t next = 0; next < objects_.size(); ++next) {
        ComPtr<ILuxPersistArchive> persist;
        if (FAILED(objects_[next]->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) continue;
        if (FAILED(CLuxArchive::Save(*persist, *this, kSaving))) complete_ = false;
    }
}

bool ObjectGraphObjects::Contains(IUnknown* object) const {
    ComPtr<IUnknown> identity;
    return SUCCEEDED(object->QueryInterface(IUnknown::iid, identity.OutVoid())) && seen_.count(identity.get());
}

HRESULT ObjectGraphObjects::Empty(IUnknown* object, int32_t options) {
    ComPtr<ILuxPersistArchive> persist;
    if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) return S_FALSE;
    options &= ~(luxPersistOptionNoResetOnLoad | luxPersistOptionSaving);
    const ComPtr<CLuxArchive> empty = CLuxArchive::ForLoading(options);
    return persist->Persist(empty.get(), options);
}

void ObjectGraphObjects::WriteEntry(std::string_view, const VARIANT& value) { Value(value); }

void ObjectGraphObjects::Meet(IUnknown* object) {
    ComPtr<IUnknown> identity;
    if (FAILED(object->QueryInterface(IUnknown::iid, identity.OutVoid())) || !identity) {
        complete_ = false;
        return;
    }
    if (seen_.insert(identity.get()).second) objects_.push_back(std::move(identity));
}

void ObjectGraphObjects::Value(const VARIANT& value) {
    if (value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN) {
        if (value.punkVal) Meet(value.punkVal);
        return;
    }
    const VARTYPE element = value.vt & ~VT_ARRAY;
    if (!(value.vt & VT_ARRAY) || !value.parray ||
        (element != VT_VARIANT && element != VT_DISPATCH && element != VT_UNKNOWN))
        return;
    const size_t count = SafeArrayElementCount(value.parray);
    for (size_t i = 0; i < count; ++i) {
        if (element == VT_VARIANT)
            Value(static_cast<const VARIANT*>(value.parray->pvData)[i]);
        else if (IUnknown* object = static_cast<IUnknown* const*>(value.parray->pvData)[i])
            Meet(object);
    }
}

}  // namespace tessaly::core
