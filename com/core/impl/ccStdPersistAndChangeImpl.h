// The base of every class of the library that fires Change: the object template of the
// runtime (IUnknown, one IDispatch over every dispatch interface of the coclass, class
// information, the connection points of its outgoing interfaces), plus the object's lock,
// the has-changed flag and the change-event machinery with its configuration interface.
// A class lists its own interfaces once:
//
//     class CLuxThing : public ccStdPersistAndChangeImpl<CLuxThing, ILuxThing> { ... };
//
// Persistence (ILuxPersistArchive): the class supplies one routine for both directions,
//
//     void PersistState(ArchiveAccess& archive);   // see ArchiveAccess
//     void ResetState();                           // the default state; lock held
//
// Saving runs PersistState under the lock and clears the has-changed flag when the options
// ask. Loading reads every value first, then under the lock resets the state (unless
// luxPersistOptionNoResetOnLoad) and makes the assignments; it leaves the flag clear and
// announces Change(-1) with every area bit set. PreLoad and PostLoad do nothing unless the
// class hides them with its own.
//
// Raising a change (after a setter has stored its value, with the lock released):
// while delivery is suspended the change merges into the pending one; otherwise it is
// delivered with the areas left pending ORed in. Delivery copies the value and builds the
// arguments only when a sink is connected, and calls the sinks outside the lock, so that a
// sink may call back into the object. Change goes to the sinks of every outgoing interface
// that declares it (ILuxChangeEvent, ILuxCollectionEvents ...), to no other.
//
// Containers: every object is a ChildEventListener, so a class that holds objects passes
// their Change on with a ChildEventForwarder (see there) and, if its children have
// indices, its own ChildIndex.
#pragma once

#include <atomic>
#include <cstdint>

#include "TessalyCore.h"
#include "com/core/MethodGuard.h"
#include "com/core/impl/ArchiveAccess.h"
#include "com/core/impl/ChangeEventState.h"
#include "com/core/impl/ChildEventForwarder.h"
#include "com/core/impl/ObjectLock.h"
#include "platform/ComObject.h"

namespace tessaly::core {

// Thrown by the change configuration's refusals (resume without a suspend, a count that
// cannot grow): e_Lux_ChangeEventError with a text.
[[noreturn]] void ThrowChangeEventError(const char* why);

template <class Derived, class... Interfaces>
class ccStdPersistAndChangeImpl
    : public ComObject<Derived, Interfaces..., ILuxPersistArchive, ILuxChangeEventConfiguration_Disp,
                       ILuxChangeEventConfiguration>,
      public ChildEventListener {
public:
    // ILuxPersistArchive
    HRESULT Persist(ILuxArchive* Archive, LONG Options) override {
        return Guarded("Persist", ILuxPersistArchive::iid, [&] {
            ArchiveAccess access(Archive, Options);
            Derived& self = static_cast<Derived&>(*this);
            if (access.Saving()) {
                {
                    ObjectLock::Guard guard(lock_);
                    self.PersistState(access);
                }
                if (Options & luxPersistOptionClearHasChangedOnSave) SetHasChanged(false);
                return S_OK;
            }
            self.PersistState(access);
            {
                ObjectLock::Guard guard(lock_);
                if (!(Options & luxPersistOptionNoResetOnLoad)) self.ResetState();
                access.Commit();
            }
            SetHasChanged(false);
            return RaiseChange(luxState_MoreThanOneStateIDChanged, kEveryArea, false);
        });
    }

    HRESULT PreLoad() override { return S_OK; }
    HRESULT PostLoad(VARIANT_BOOL /*CreatedDuringLoad*/) override { return S_OK; }

    HRESULT get_HasChanged(VARIANT_BOOL* Changed) override {
        return Guarded("get_HasChanged", ILuxPersistArchive::iid, [&] {
            RequireOut(Changed);
            *Changed = HasChanged() ? VARIANT_TRUE : VARIANT_FALSE;
        });
    }
    HRESULT put_HasChanged(VARIANT_BOOL Changed) override {
        return Guarded("put_HasChanged", ILuxPersistArchive::iid, [&] { SetHasChanged(Changed != VARIANT_FALSE); });
    }

    // Every functional area bit: what a load announces.
    static constexpr int32_t kEveryArea = -1;

    // ILuxChangeEventConfiguration and its dispatch twin (one implementation serves both).
    HRESULT SuspendEventDelivery() override {
        return Guarded("SuspendEventDelivery", IID_ILuxChangeEventConfiguration, [&] {
            {
                ObjectLock::Guard guard(lock_);
                if (!changes_.Suspend()) ThrowChangeEventError("the suspend count cannot grow any further");
            }
            // Changes of the children now merge into the pending change.
            StartChildForwarding();
            return S_OK;
        });
    }

    HRESULT ResumeAndFireEvent() override {
        return Guarded("ResumeAndFireEvent", IID_ILuxChangeEventConfiguration, [&] {
            bool deliver = false;
            int32_t stateId = 0;
            int32_t areas = 0;
            VARIANT value;
            VariantInit(&value);
            ChangeEventState::Resume result;
            {
                ObjectLock::Guard guard(lock_);
                result = changes_.ResumeDelivery(deliver, stateId, value, areas);
            }
            if (result == ChangeEventState::Resume::NotSuspended)
                ThrowChangeEventError("event delivery is not suspended");
            HRESULT hr = S_OK;
            if (deliver) hr = Deliver(stateId, value, areas);
            VariantClear(&value);
            return hr;
        });
    }

    HRESULT get_EventDeliverySuspended(LONG* nSuspendCount) override {
        return Guarded("get_EventDeliverySuspended", IID_ILuxChangeEventConfiguration, [&] {
            RequireOut(nSuspendCount);
            ObjectLock::Guard guard(lock_);
            const uint32_t count = changes_.SuspendCount();
            *nSuspendCount = count > INT32_MAX ? INT32_MAX : static_cast<LONG>(count);
            return S_OK;
        });
    }

    // Set whenever a property changes; persistence clears it.
    bool HasChanged() const noexcept { return hasChanged_.load(std::memory_order_acquire); }
    void SetHasChanged(bool changed) noexcept { hasChanged_.store(changed, std::memory_order_release); }

    // The object's lock, for the class's methods: `ObjectLock::Guard guard(Lock());`.
    ObjectLock& Lock() const noexcept { return lock_; }

    // ChildEventListener: a container's side of ChildEventForwarder. A container whose
    // children have indices hides ChildIndex with its own.
    void ReleaseListener() noexcept override { this->Release(); }
    bool ListensToChildren() noexcept override {
        if (this->HasEventSinks()) return true;
        ObjectLock::Guard guard(lock_);
        return changes_.SuspendCount() != 0;
    }
    int32_t ChildIndex(IUnknown*) noexcept override { return luxNoIndex; }
    // A child's change is announced, but HasChanged reflects the container's own state only.
    void RaiseChildChange(const VARIANT& info, int32_t areas) noexcept override {
        RaiseChange(luxState_SubObjectEvent, info, areas, false);
    }

protected:
    ccStdPersistAndChangeImpl() noexcept : ChildEventListener(&TryAddRefContainer) {}

    // Someone listens now: a container starts passing on its children's events. When the
    // listener is a container linking this object, that container's lock is held: locks
    // are taken from container to child, once per object (Started is checked first).
    void OnFirstEventSink() noexcept override { StartChildForwarding(); }
    void StartChildForwarding() noexcept {
        ChildEventForwarder* forwarder = this->Forwarder();
        if (!forwarder || forwarder->Started()) return;
        ObjectLock::Guard guard(lock_);
        forwarder->Start();
    }

    // Announces a change that a setter has stored. Call it with the lock released. Fails
    // only when the value cannot be copied for the sinks.
    HRESULT RaiseChange(int32_t stateId, const VARIANT& value, int32_t areas, bool markChanged = true) noexcept {
        if (markChanged) SetHasChanged(true);
        const VARIANT& passed = stateId == luxState_MoreThanOneStateIDChanged ? Empty() : value;
        VARIANT copy{};
        int32_t allAreas;
        {
            ObjectLock::Guard guard(lock_);
            if (changes_.SuspendCount() != 0) {
                changes_.Merge(stateId, passed, areas);
                return S_OK;
            }
            allAreas = changes_.TakeAreas(areas);
            if (!this->HasEventSinks()) return S_OK;
            const HRESULT copied = CopyForSinks(passed, copy);
            if (FAILED(copied)) return copied;
        }
        FireChange(stateId, copy, allAreas);
        if (OwnsSomething(copy)) VariantClear(&copy);
        return S_OK;
    }

    HRESULT RaiseChange(int32_t stateId, int32_t areas, bool markChanged = true) noexcept {
        return RaiseChange(stateId, Empty(), areas, markChanged);
    }

private:
    static const VARIANT& Empty() noexcept {
        static const VARIANT empty{};
        return empty;
    }

    // Numbers, booleans and dates own nothing: the common values of a change copy by value.
    static bool OwnsSomething(const VARIANT& value) noexcept {
        return value.vt == VT_BSTR || value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN || (value.vt & VT_ARRAY) ||
               (value.vt & VT_BYREF);
    }
    static HRESULT CopyForSinks(const VARIANT& value, VARIANT& copy) noexcept {
        if (!OwnsSomething(value)) {
            copy = value;
            return S_OK;
        }
        return VariantCopyInd(&copy, &value);
    }

    // Delivers a change taken from the pending state (on resume).
    HRESULT Deliver(int32_t stateId, const VARIANT& value, int32_t areas) noexcept {
        VARIANT copy;
        VariantInit(&copy);
        {
            ObjectLock::Guard guard(lock_);
            if (changes_.SuspendCount() != 0 || !this->HasEventSinks()) return S_OK;
            const HRESULT copied = VariantCopyInd(&copy, &value);
            if (FAILED(copied)) return copied;
        }
        FireChange(stateId, copy, areas);
        VariantClear(&copy);
        return S_OK;
    }

    // Calls Change on every sink, outside the lock. The arguments go last-first.
    void FireChange(int32_t stateId, const VARIANT& value, int32_t areas) noexcept {
        VARIANT args[3];
        args[0] = VARIANT{};
        args[0].vt = VT_I4;
        args[0].lVal = areas;
        args[1] = value;
        args[2] = VARIANT{};
        args[2].vt = VT_I4;
        args[2].lVal = stateId;
        DISPPARAMS params{args, nullptr, 3, 0};
        this->FireEventToAll(luxChange_Change, params);
    }

    // The down-cast is an offset known at compile time: it reads no vtable pointer.
    static bool TryAddRefContainer(ChildEventListener* listener) noexcept {
        return static_cast<ccStdPersistAndChangeImpl*>(listener)->TryAddRef();
    }

    mutable ObjectLock lock_;
    ChangeEventState changes_;
    std::atomic<bool> hasChanged_{false};
};

}  // namespace tessaly::core
