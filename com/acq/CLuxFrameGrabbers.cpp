#include "com/acq/CLuxFrameGrabbers.h"

#include <new>

#include "com/acq/genicam/GenICamFrameGrabbers.h"
#include "com/core/CLuxEnumVariant.h"
#include "com/core/CollectionErrors.h"
#include "com/core/MethodGuard.h"
#include "com/core/impl/ccCollectionImpl.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"

namespace tessaly::acq {

namespace {
const ClassRegistrar<CLuxFrameGrabbers> registrar;
}  // namespace

CLuxFrameGrabbers::CLuxFrameGrabbers() {
    // Through the class table, as a client would make it: the simulated grabber
    // lives in this library, but nothing here depends on how it is built.
    ComPtr<ILuxFrameGrabber> simulated;
    if (CreateObject(CLSID_LuxSimulatedFrameGrabber, IID_ILuxFrameGrabber, simulated.OutVoid()) == S_OK)
        grabbers_.push_back(std::move(simulated));
    for (ComPtr<ILuxFrameGrabber>& camera : FindGenICamFrameGrabbers()) grabbers_.push_back(std::move(camera));
}

HRESULT CLuxFrameGrabbers::get_Count(LONG* Count) {
    return core::Guarded("get_Count", IID_ILuxFrameGrabbers, [&] {
        core::RequireOut(Count);
        *Count = static_cast<LONG>(grabbers_.size());
    });
}

HRESULT CLuxFrameGrabbers::get_Item(VARIANT IndexOrName, ILuxFrameGrabber** Item) {
    return core::Guarded("get_Item", IID_ILuxFrameGrabbers, [&] {
        core::RequireOut(Item);
        const auto wanted = core::collection::ReadKeyOrIndex(IndexOrName);
        const auto count = static_cast<int32_t>(grabbers_.size());
        if (!wanted.isKey) {
            if (wanted.index < 0 || wanted.index >= count)
                core::CollectionErrors::ThrowInvalidIndex(wanted.index, count);
            *Item = ComPtr(grabbers_[static_cast<size_t>(wanted.index)]).Detach();
            return;
        }
        for (const ComPtr<ILuxFrameGrabber>& grabber : grabbers_) {
            Bstr name;
            if (grabber->get_Name(name.Out()) == S_OK && name.view() == wanted.key.view()) {
                *Item = ComPtr(grabber).Detach();
                return;
            }
        }
        core::CollectionErrors::ThrowUnknownKey(wanted.key.view());
    });
}

HRESULT CLuxFrameGrabbers::get__NewEnum(IUnknown** Enumerator) {
    return core::Guarded("get__NewEnum", IID_ILuxFrameGrabbers, [&] {
        core::RequireOut(Enumerator);
        core::CLuxEnumVariant::Items snapshot;
        snapshot.reserve(grabbers_.size());
        for (const ComPtr<ILuxFrameGrabber>& grabber : grabbers_)
            snapshot.emplace_back(static_cast<IDispatch*>(grabber.get()));
        IEnumVARIANT* enumerator = core::CLuxEnumVariant::New(std::move(snapshot));
        if (!enumerator) throw std::bad_alloc();
        *Enumerator = enumerator;
    });
}

}  // namespace tessaly::acq
