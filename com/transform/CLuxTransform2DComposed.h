// LuxTransform2DComposed: a sequence of transforms applied from right to left. Member 0 is
// the leftmost; a point is mapped by the rightmost member first. An empty sequence is the
// identity (MapPoint answers the point itself; its inverse is again empty).
//
// Members are any ILuxTransform2D. PushOntoRight/PushOntoLeft store a copy (CopyBase) of
// the argument when Copy is true and the caller's object itself when it is false; a
// composed transform never holds itself (refused, E_INVALIDARG). Pop from an empty sequence
// is e_LuxTransform_CantPopEmptyComposed; Item outside 0..Count-1 is E_INVALIDARG. Every
// successful push and pop raises Change(-1, empty, luxFA_Misc) once; a member that changes
// is passed on as Change(-2, event info, areas), with the member's index.
//
// Canonize answers a new transform with the fewest members: nested composed transforms are
// opened up, neighbouring linear members are multiplied into one LuxTransform2DLinear
// (their values, not objects per step) and the other members copied. With TypeSimplify
// true, a result of one member is that member itself, and an empty result is the identity
// as a LuxTransform2DLinear. This object is left as it is.
//
// Persistence: the members as objects "Item0", "Item1", ... (loading stops at the first
// index absent). Clone copies every member (CopyBase).
#pragma once

#include <span>
#include <vector>

#include "TessalyCore.h"
#include "com/core/impl/ChildEventForwarder.h"
#include "com/core/impl/ILuxObjectImplBase.h"
#include "platform/ComPtr.h"
#include "xnl/std/math/cc2XformLinear.h"

namespace tessaly::transform {

class CLuxTransform2DComposed : public core::ILuxObjectImplBase<CLuxTransform2DComposed, ILuxTransform2DComposed> {
public:
    static const CoClassInfo& CoClass() noexcept { return generated::CoClass_LuxTransform2DComposed; }
    using CoClassInterfaceList = generated::CoClassInterfaceList_LuxTransform2DComposed;

    CLuxTransform2DComposed() = default;

    using Members = std::vector<ComPtr<ILuxTransform2D>>;

    // A new composed transform of `members`, leftmost first: copies of them (CopyBase) when
    // `copy`, else the objects themselves. Null members are refused (ccStdError::NullArgument
    // "Transform"); a failure of a member's CopyBase is thrown as ccCOMError.
    static ComPtr<CLuxTransform2DComposed> FromMembers(std::span<ILuxTransform2D* const> members, bool copy);
    // The simplest transform equal to the sequence `members` (see Canonize); the members are
    // not changed, and the result shares none of them (non-linear ones are copied).
    static ComPtr<ILuxTransform2D> Canonical(std::span<ILuxTransform2D* const> members, bool typeSimplify);
    // The linear value of a linear transform of any class (its linear approximation at the
    // origin when it is not one of the library's linear transforms).
    static cc2XformLinear LinearValueOf(ILuxTransform2D* transform);

    // A snapshot of the members, taken under the lock.
    Members Snapshot() const;

    void CopyFrom(const CLuxTransform2DComposed& source);
    void PersistState(core::ArchiveAccess& archive);
    void ResetState() noexcept;
    int32_t ChildIndex(IUnknown* child) noexcept override;

    // ILuxTransform2D
    HRESULT MapPoint(double X, double Y, double* MappedX, double* MappedY) override;
    HRESULT get_Linear(VARIANT_BOOL* Linear) override;
    HRESULT LinearTransform(double X, double Y, ILuxTransform2DLinear** Linear) override;
    HRESULT BestFitLinearTransform(IDispatch* FromPoints, double* RMSError, ILuxTransform2DLinear** Linear) override;
    HRESULT CopyBase(ILuxTransform2D** Copy) override;
    HRESULT ComposeBase(ILuxTransform2D* RightSide, ILuxTransform2D** Composed) override;
    HRESULT InvertBase(ILuxTransform2D** Inverse) override;

    // ILuxTransform2DComposed
    HRESULT PushOntoRight(ILuxTransform2D* Transform, VARIANT_BOOL Copy) override;
    HRESULT PushOntoLeft(ILuxTransform2D* Transform, VARIANT_BOOL Copy) override;
    HRESULT PopFromRight(ILuxTransform2D** Transform) override;
    HRESULT PopFromLeft(ILuxTransform2D** Transform) override;
    HRESULT get_Count(LONG* Count) override;
    HRESULT get_Item(LONG Index, ILuxTransform2D** Transform) override;
    HRESULT Canonize(VARIANT_BOOL TypeSimplify, ILuxTransform2D** Canonical) override;

protected:
    ~CLuxTransform2DComposed() override;

private:
    HRESULT Push(const char* method, ILuxTransform2D* transform, VARIANT_BOOL copy, bool right);
    HRESULT Pop(const char* method, ILuxTransform2D** transform, bool right);
    // Replaces the members (lock held) and links them for their events.
    void AdoptLocked(Members members) noexcept;

    Members members_;
    core::ChildEventForwarder children_{*this};
};

}  // namespace tessaly::transform
