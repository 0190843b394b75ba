// The base of every object class of the library: ILuxObject (computer name, Clone,
// CreateObject, Tag) over the change machinery of ccStdPersistAndChangeImpl. A class
// lists its own interfaces once and supplies its coclass, its state and the copy of that
// state for Clone:
//
//     class CLuxThing : public ILuxObjectImplBase<CLuxThing, ILuxThing> {
//     public:
//         static const tessaly::CoClassInfo& CoClass();
//         void CopyFrom(const CLuxThing& source);  // takes the source's lock to read it
//         ... ILuxThing methods, each inside Guarded(...) ...
//     protected:
//         ~CLuxThing() override;
//     };
//
// Clone makes a new object of the class, copies the Tag (a copy of the VARIANT: an object
// held in it is shared, not cloned) and calls CopyFrom, with no lock held so that CopyFrom
// may clone sub-objects (CloneValue) outside its own lock. An object reached again while
// it is being cloned on this thread (a cycle) is shared instead of cloned again.
//
// Persistence: the class also supplies `void PersistState(ArchiveAccess&)` (see
// ccStdPersistAndChangeImpl); the Tag is not persisted, since it may hold anything.
#pragma once

#include <string>

#include "com/core/ccCOMError.h"
#include "com/core/impl/ccStdPersistAndChangeImpl.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"

namespace tessaly::core {

// The host name, as GetLocalComputerName answers it.
std::string LocalComputerName();

// A deep copy of a value for Clone: an object that is an ILuxObject is cloned (shared when
// it is already being cloned on this thread), anything else copied as VariantCopy does.
// Throws on failure.
void CloneValue(const VARIANT& source, VARIANT* copy);

// Marks an object as being cloned on this thread for the life of the scope.
class CloneInProgress {
public:
    explicit CloneInProgress(IUnknown* original);
    ~CloneInProgress();
    CloneInProgress(const CloneInProgress&) = delete;
    CloneInProgress& operator=(const CloneInProgress&) = delete;
    static bool Contains(IUnknown* object) noexcept;
};

template <class Derived, class... Interfaces>
class ILuxObjectImplBase : public ccStdPersistAndChangeImpl<Derived, Interfaces..., ILuxObject> {
public:
    HRESULT GetLocalComputerName(BSTR* ComputerName) override {
        return Guarded("GetLocalComputerName", IID_ILuxObject, [&] {
            RequireOut(ComputerName);
            *ComputerName = Bstr(LocalComputerName()).Detach();
            return S_OK;
        });
    }

    HRESULT Clone(IDispatch** Copy) override {
        return Guarded("Clone", IID_ILuxObject, [&] {
            RequireOut(Copy);
            *Copy = nullptr;
            auto copy = ComPtr<Derived>::Attach(Derived::Create());
            if (!copy) throw std::bad_alloc();
            const CloneInProgress cloning(this->GetUnknown());
            {
                ObjectLock::Guard guard(this->Lock());
                ThrowIfFailed(VariantCopy(&copy->tag_, &tag_));
            }
            copy->CopyFrom(static_cast<const Derived&>(*this));
            *Copy = copy->GetDispatch();
            (*Copy)->AddRef();
            return S_OK;
        });
    }

    HRESULT CreateObject(BSTR ProgIDOrClassID, IDispatch** Object) override {
        return Guarded("CreateObject", IID_ILuxObject, [&] {
            RequireOut(Object);
            *Object = nullptr;
            // The class table's failures carry their own error info: passed on as they are.
            ThrowIfFailed(tessaly::CreateObject(BstrView(ProgIDOrClassID), IDispatch::iid,
                                                reinterpret_cast<void**>(Object)));
            return S_OK;
        });
    }

    HRESULT get_Tag(VARIANT* Tag) override {
        return Guarded("get_Tag", IID_ILuxObject, [&] {
            RequireOut(Tag);
            ObjectLock::Guard guard(this->Lock());
            ThrowIfFailed(VariantCopy(Tag, &tag_));
            return S_OK;
        });
    }

    HRESULT put_Tag(VARIANT Tag) override { return SetTag("put_Tag", Tag); }
    HRESULT putref_Tag(VARIANT Tag) override { return SetTag("put_Tag", Tag); }

    // The default state for a load: a new object's state, copied. A class whose default
    // state is cheaper to set hides this with its own.
    void ResetState() {
        auto fresh = ComPtr<Derived>::Attach(Derived::Create());
        if (!fresh) throw std::bad_alloc();
        static_cast<Derived&>(*this).CopyFrom(*fresh);
    }

protected:
    ILuxObjectImplBase() { VariantInit(&tag_); }
    ~ILuxObjectImplBase() override { VariantClear(&tag_); }

private:
    // The Tag is never interpreted: any value is kept as given (a reference resolved to its
    // value). Every set announces itself, with an empty value.
    HRESULT SetTag(const char* method, const VARIANT& value) {
        return Guarded(method, IID_ILuxObject, [&] {
            VARIANT previous;
            VariantInit(&previous);
            ThrowIfFailed(VariantCopyInd(&previous, &value));
            {
                ObjectLock::Guard guard(this->Lock());
                std::swap(previous, tag_);
            }
            VariantClear(&previous);  // outside the lock: releasing an object may run its code
            return this->RaiseChange(luxObject_Tag, luxFA_Misc);
        });
    }

    VARIANT tag_;
};

}  // namespace tessaly::core
