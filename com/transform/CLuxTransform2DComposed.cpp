#include "com/transform/CLuxTransform2DComposed.h"

#include <string>
#include <utility>

#include "com/core/ccCOMError.h"
#include "com/transform/CLuxTransform2DLinear.h"
#include "persist/ccArchive.h"
#include "platform/ClassTable.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::transform {

namespace {

const ClassRegistrar<CLuxTransform2DComposed> registrar;

ComPtr<ILuxTransform2D> CopyOf(ILuxTransform2D* transform) {
    ComPtr<ILuxTransform2D> copy;
    core::ThrowIfFailed(transform->CopyBase(copy.Out()));
    if (!copy) throw ccStdError::InternalError("a transform's CopyBase answered nothing");
    return copy;
}

bool IsLinear(ILuxTransform2D* transform) {
    if (CLuxTransform2DLinear::ImplementationOf(transform)) return true;
    VARIANT_BOOL linear = VARIANT_FALSE;
    core::ThrowIfFailed(transform->get_Linear(&linear));
    return linear != VARIANT_FALSE;
}

template <class Interface, class Object>
Interface* Hand(const ComPtr<Object>& object) {
    Interface* answer = object.get();
    answer->AddRef();
    return answer;
}

std::string ItemName(size_t index) { return "Item" + std::to_string(index); }

// Opens nested composed transforms, leftmost member first.
void Flatten(ILuxTransform2D* member, std::vector<ComPtr<ILuxTransform2D>>& flat, int depth) {
    if (depth > 64) throw ccStdError::Unexpected("composed transforms nested more than 64 deep");
    if (CLuxTransform2DComposed* nested = CLuxTransform2DComposed::ImplementationOf(member)) {
        for (const auto& inner : nested->Snapshot()) Flatten(inner.get(), flat, depth + 1);
        return;
    }
    flat.emplace_back(member);
}

}  // namespace

CLuxTransform2DComposed::~CLuxTransform2DComposed() {
    core::ObjectLock::Guard guard(Lock());
    children_.UnlinkAll();
}

ComPtr<CLuxTransform2DComposed> CLuxTransform2DComposed::FromMembers(std::span<ILuxTransform2D* const> members,
                                                                     bool copy) {
    Members stored;
    stored.reserve(members.size());
    for (ILuxTransform2D* member : members) {
        core::RequireArgument(member, "Transform");
        stored.push_back(copy ? CopyOf(member) : ComPtr<ILuxTransform2D>(member));
    }
    auto composed = ComPtr<CLuxTransform2DComposed>::Attach(Create());
    if (!composed) throw std::bad_alloc();
    core::ObjectLock::Guard guard(composed->Lock());
    composed->AdoptLocked(std::move(stored));
    return composed;
}

cc2XformLinear CLuxTransform2DComposed::LinearValueOf(ILuxTransform2D* transform) {
    if (const CLuxTransform2DLinear* own = CLuxTransform2DLinear::ImplementationOf(transform)) return own->Value();
    ComPtr<ILuxTransform2DLinear> linear;
    if (SUCCEEDED(transform->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid())) && linear)
        return CLuxTransform2DLinear::ValueOf(linear.get());
    core::ThrowIfFailed(transform->LinearTransform(0, 0, linear.Out()));
    if (!linear) throw ccStdError::InternalError("a transform's LinearTransform answered nothing");
    return CLuxTransform2DLinear::ValueOf(linear.get());
}

ComPtr<ILuxTransform2D> CLuxTransform2DComposed::Canonical(std::span<ILuxTransform2D* const> members,
                                                           bool typeSimplify) {
    std::vector<ComPtr<ILuxTransform2D>> flat;
    for (ILuxTransform2D* member : members) Flatten(member, flat, 0);

    Members result;
    cc2XformLinear product;
    bool inRun = false;
    const auto endRun = [&] {
        if (!inRun) return;
        result.emplace_back(CLuxTransform2DLinear::FromValue(product).get());
        product = cc2XformLinear();
        inRun = false;
    };
    for (const auto& member : flat) {
        if (IsLinear(member.get())) {
            // Left to right: the product so far acts after this member.
            product = inRun ? product.Compose(LinearValueOf(member.get())) : LinearValueOf(member.get());
            inRun = true;
        } else {
            endRun();
            result.push_back(CopyOf(member.get()));
        }
    }
    endRun();

    if (typeSimplify && result.size() == 1) return std::move(result.front());
    if (typeSimplify && result.empty()) {
        auto identity = CLuxTransform2DLinear::FromValue(cc2XformLinear());
        return ComPtr<ILuxTransform2D>(static_cast<ILuxTransform2D*>(identity.get()));
    }
    auto composed = ComPtr<CLuxTransform2DComposed>::Attach(Create());
    if (!composed) throw std::bad_alloc();
    {
        core::ObjectLock::Guard guard(composed->Lock());
        composed->AdoptLocked(std::move(result));
    }
    return ComPtr<ILuxTransform2D>(static_cast<ILuxTransform2D*>(composed.get()));
}

CLuxTransform2DComposed::Members CLuxTransform2DComposed::Snapshot() const {
    core::ObjectLock::Guard guard(Lock());
    return members_;
}

void CLuxTransform2DComposed::AdoptLocked(Members members) noexcept {
    children_.UnlinkAll();
    std::swap(members_, members);
    for (const auto& member : members_) children_.Link(member.get());
    // `members` (the old ones) are released by the caller's scope: the lock is still held,
    // but a transform's release runs no code of ours that takes another object's lock.
}

void CLuxTransform2DComposed::CopyFrom(const CLuxTransform2DComposed& source) {
    Members copies;
    for (const auto& member : source.Snapshot()) copies.push_back(CopyOf(member.get()));
    core::ObjectLock::Guard guard(Lock());
    AdoptLocked(std::move(copies));
}

void CLuxTransform2DComposed::ResetState() noexcept { AdoptLocked(Members()); }

int32_t CLuxTransform2DComposed::ChildIndex(IUnknown* child) noexcept {
    core::ObjectLock::Guard guard(Lock());
    for (size_t i = 0; i < members_.size(); ++i) {
        ComPtr<IUnknown> identity;
        if (SUCCEEDED(members_[i]->QueryInterface(IUnknown::iid, identity.OutVoid())) && identity.get() == child)
            return static_cast<int32_t>(i);
    }
    return luxNoIndex;
}

void CLuxTransform2DComposed::PersistState(core::ArchiveAccess& archive) {
    if (archive.Saving()) {
        for (size_t i = 0; i < members_.size(); ++i) {
            VARIANT member;
            VariantInit(&member);
            member.vt = VT_DISPATCH;
            member.pdispVal = members_[i].get();  // lent
            archive.Write(ItemName(i), member);
        }
        return;
    }
    Members loaded;
    for (size_t i = 0;; ++i) {
        const std::string name = ItemName(i);
        Variant value;
        if (!archive.Read(name, value)) break;
        ComPtr<ILuxTransform2D> member;
        const VARIANT& held = value.get();
        if ((held.vt == VT_DISPATCH || held.vt == VT_UNKNOWN) && held.punkVal)
            held.punkVal->QueryInterface(IID_ILuxTransform2D, member.OutVoid());
        if (!member)
            throw ccArchive::BadType("item " + std::to_string(i) + " is not a transform",
                                     ids_Lux_ReadInvalidObject_1, {name});
        loaded.push_back(std::move(member));
    }
    archive.OnCommit([this, loaded = std::move(loaded)]() mutable noexcept { AdoptLocked(std::move(loaded)); });
}

// ILuxTransform2D

HRESULT CLuxTransform2DComposed::MapPoint(double X, double Y, double* MappedX, double* MappedY) {
    return core::Guarded("MapPoint", IID_ILuxTransform2D, [&] {
        const Members members = Snapshot();
        double x = X;
        double y = Y;
        for (size_t i = members.size(); i-- > 0;) core::ThrowIfFailed(members[i]->MapPoint(x, y, &x, &y));
        if (MappedX) *MappedX = x;
        if (MappedY) *MappedY = y;
    });
}

HRESULT CLuxTransform2DComposed::get_Linear(VARIANT_BOOL* Linear) {
    return core::Guarded("get_Linear", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        bool linear = true;
        for (const auto& member : Snapshot())
            if (!IsLinear(member.get())) {
                linear = false;
                break;
            }
        *Linear = linear ? VARIANT_TRUE : VARIANT_FALSE;
    });
}

HRESULT CLuxTransform2DComposed::LinearTransform(double X, double Y, ILuxTransform2DLinear** Linear) {
    return core::Guarded("LinearTransform", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        *Linear = nullptr;
        // The chain rule: each member's approximation at the point the members to its right
        // have carried (X, Y) to.
        const Members members = Snapshot();
        cc2XformLinear product;
        double x = X;
        double y = Y;
        for (size_t i = members.size(); i-- > 0;) {
            ComPtr<ILuxTransform2DLinear> local;
            core::ThrowIfFailed(members[i]->LinearTransform(x, y, local.Out()));
            if (!local) throw ccStdError::InternalError("a transform's LinearTransform answered nothing");
            product = CLuxTransform2DLinear::ValueOf(local.get()).Compose(product);
            core::ThrowIfFailed(members[i]->MapPoint(x, y, &x, &y));
        }
        *Linear = Hand<ILuxTransform2DLinear>(CLuxTransform2DLinear::FromValue(product));
    });
}

HRESULT CLuxTransform2DComposed::BestFitLinearTransform(IDispatch*, double* RMSError,
                                                        ILuxTransform2DLinear** Linear) {
    return core::Guarded("BestFitLinearTransform", IID_ILuxTransform2D, [&] {
        core::RequireOut(Linear);
        *Linear = nullptr;
        const Members members = Snapshot();
        cc2XformLinear product;
        for (const auto& member : members) {
            if (!IsLinear(member.get()))
                throw ccStdError::NotImplemented("a best fit of a composed transform with a non-linear member");
            product = product.Compose(LinearValueOf(member.get()));
        }
        *Linear = Hand<ILuxTransform2DLinear>(CLuxTransform2DLinear::FromValue(product));
        if (RMSError) *RMSError = 0;
    });
}

HRESULT CLuxTransform2DComposed::CopyBase(ILuxTransform2D** Copy) {
    return core::Guarded("CopyBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Copy);
        *Copy = nullptr;
        const Members members = Snapshot();
        std::vector<ILuxTransform2D*> raw;
        for (const auto& member : members) raw.push_back(member.get());
        *Copy = Hand<ILuxTransform2D>(FromMembers(raw, true));
    });
}

HRESULT CLuxTransform2DComposed::ComposeBase(ILuxTransform2D* RightSide, ILuxTransform2D** Composed) {
    return core::Guarded("ComposeBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Composed);
        core::RequireArgument(RightSide, "RightSide");
        *Composed = nullptr;
        const Members members = Snapshot();
        std::vector<ILuxTransform2D*> raw;
        for (const auto& member : members) raw.push_back(member.get());
        raw.push_back(RightSide);
        *Composed = Canonical(raw, true).Detach();
    });
}

HRESULT CLuxTransform2DComposed::InvertBase(ILuxTransform2D** Inverse) {
    return core::Guarded("InvertBase", IID_ILuxTransform2D, [&] {
        core::RequireOut(Inverse);
        *Inverse = nullptr;
        const Members members = Snapshot();
        Members inverses;
        for (size_t i = members.size(); i-- > 0;) {
            ComPtr<ILuxTransform2D> inverse;
            core::ThrowIfFailed(members[i]->InvertBase(inverse.Out()));
            if (!inverse) throw ccStdError::InternalError("a transform's InvertBase answered nothing");
            inverses.push_back(std::move(inverse));
        }
        std::vector<ILuxTransform2D*> raw;
        for (const auto& inverse : inverses) raw.push_back(inverse.get());
        *Inverse = Hand<ILuxTransform2D>(FromMembers(raw, false));
    });
}

// ILuxTransform2DComposed

HRESULT CLuxTransform2DComposed::PushOntoRight(ILuxTransform2D* Transform, VARIANT_BOOL Copy) {
    return Push("PushOntoRight", Transform, Copy, true);
}

HRESULT CLuxTransform2DComposed::PushOntoLeft(ILuxTransform2D* Transform, VARIANT_BOOL Copy) {
    return Push("PushOntoLeft", Transform, Copy, false);
}

HRESULT CLuxTransform2DComposed::Push(const char* method, ILuxTransform2D* transform, VARIANT_BOOL copy,
                                      bool right) {
    return core::Guarded(method, IID_ILuxTransform2DComposed, [&] {
        core::RequireArgument(transform, "Transform");
        ComPtr<ILuxTransform2D> member;
        if (copy != VARIANT_FALSE) {
            member = CopyOf(transform);
        } else {
            // Holding itself would make every mapping recurse for ever.
            if (ImplementationOf(transform) == this) throw ccStdError::BadArgument("Transform");
            member = ComPtr<ILuxTransform2D>(transform);
        }
        {
            core::ObjectLock::Guard guard(Lock());
            if (right)
                members_.push_back(member);
            else
                members_.insert(members_.begin(), member);
            if (!children_.Link(member.get())) {
                if (right)
                    members_.pop_back();
                else
                    members_.erase(members_.begin());
                throw std::bad_alloc();
            }
        }
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxTransform2DComposed::PopFromRight(ILuxTransform2D** Transform) {
    return Pop("PopFromRight", Transform, true);
}

HRESULT CLuxTransform2DComposed::PopFromLeft(ILuxTransform2D** Transform) {
    return Pop("PopFromLeft", Transform, false);
}

HRESULT CLuxTransform2DComposed::Pop(const char* method, ILuxTransform2D** transform, bool right) {
    return core::Guarded(method, IID_ILuxTransform2DComposed, [&] {
        core::RequireOut(transform);
        *transform = nullptr;
        ComPtr<ILuxTransform2D> member;
        {
            core::ObjectLock::Guard guard(Lock());
            if (members_.empty()) return static_cast<HRESULT>(e_LuxTransform_CantPopEmptyComposed);
            if (right) {
                member = std::move(members_.back());
                members_.pop_back();
            } else {
                member = std::move(members_.front());
                members_.erase(members_.begin());
            }
            children_.Unlink(member.get());
        }
        *transform = member.Detach();
        return RaiseChange(luxState_MoreThanOneStateIDChanged, luxFA_Misc);
    });
}

HRESULT CLuxTransform2DComposed::get_Count(LONG* Count) {
    return core::Guarded("get_Count", IID_ILuxTransform2DComposed, [&] {
        core::RequireOut(Count);
        core::ObjectLock::Guard guard(Lock());
        *Count = static_cast<LONG>(members_.size());
    });
}

HRESULT CLuxTransform2DComposed::get_Item(LONG Index, ILuxTransform2D** Transform) {
    return core::Guarded("get_Item", IID_ILuxTransform2DComposed, [&] {
        core::RequireOut(Transform);
        *Transform = nullptr;
        core::ObjectLock::Guard guard(Lock());
        if (Index < 0 || static_cast<size_t>(Index) >= members_.size()) throw ccStdError::OutOfRange("Index");
        *Transform = members_[Index].get();
        (*Transform)->AddRef();
    });
}

HRESULT CLuxTransform2DComposed::Canonize(VARIANT_BOOL TypeSimplify, ILuxTransform2D** Canonical) {
    return core::Guarded("Canonize", IID_ILuxTransform2DComposed, [&] {
        core::RequireOut(Canonical);
        *Canonical = nullptr;
        const Members members = Snapshot();
        std::vector<ILuxTransform2D*> raw;
        for (const auto& member : members) raw.push_back(member.get());
        *Canonical = CLuxTransform2DComposed::Canonical(raw, TypeSimplify != VARIANT_FALSE).Detach();
    });
}

}  // namespace tessaly::transform
