#include "com/core/impl/ILuxObjectImplBase.h"

#include <unistd.h>

#include <algorithm>
#include <climits>
#include <vector>

namespace tessaly::core {

namespace {
// The objects whose Clone runs on this thread, innermost last.
thread_local std::vector<IUnknown*> cloning;
}  // namespace

std::string LocalComputerName() {
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) != 0) return "localhost";
    return name;
}

CloneInProgress::CloneInProgress(IUnknown* original) { cloning.push_back(original); }
CloneInProgress::~CloneInProgress() { cloning.pop_back(); }

bool CloneInProgress::Contains(IUnknown* object) noexcept {
    return std::find(cloning.begin(), cloning.end(), object) != cloning.end();
}

void CloneValue(const VARIANT& source, VARIANT* copy) {
    VARIANT value;
    VariantInit(&value);
    ThrowIfFailed(VariantCopyInd(&value, &source));
    Variant owned = Variant::Attach(value);
    if ((owned.vt() == VT_DISPATCH || owned.vt() == VT_UNKNOWN) && owned.get().punkVal) {
        ComPtr<IUnknown> identity;
        ThrowIfFailed(owned.get().punkVal->QueryInterface(IUnknown::iid, identity.OutVoid()));
        ComPtr<ILuxObject> object;
        if (!CloneInProgress::Contains(identity.get()) &&
            SUCCEEDED(owned.get().punkVal->QueryInterface(ILuxObject::iid, object.OutVoid())) && object) {
            ComPtr<IDispatch> clone;
            ThrowIfFailed(object->Clone(clone.Out()));
            owned = Variant(clone.get());
        }
    }
    ThrowIfFailed(VariantClear(copy));
    *copy = owned.Detach();
}

}  // namespace tessaly::core
