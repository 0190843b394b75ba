// LuxTransform2DComposed through its interfaces: the empty sequence, the order of pushes
// and pops, copies versus the caller's objects, refusals, the canonical form, mapping and
// linear approximation through a non-linear member, inversion, members' events passed on,
// cloning and persistence; and ComposeBase of a linear transform with other kinds.
#include <cmath>

#include "com/core/ObjectPersistence.h"
#include "com/transform/CLuxTransform2DComposed.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

using transform::CLuxTransform2DComposed;
constexpr HRESULT kCantPop = static_cast<HRESULT>(e_LuxTransform_CantPopEmptyComposed);

class ComposedTransformTest : public TransformFixture {
public:
    static ComPtr<ILuxTransform2D> Base(IUnknown* object) {
        ComPtr<ILuxTransform2D> base;
        EXPECT_EQ(object->QueryInterface(IID_ILuxTransform2D, base.OutVoid()), S_OK);
        return base;
    }
    static LONG Count(ILuxTransform2DComposed* composed) {
        LONG count = -1;
        EXPECT_EQ(composed->get_Count(&count), S_OK);
        return count;
    }
    static ComPtr<ILuxTransform2D> Item(ILuxTransform2DComposed* composed, LONG index) {
        ComPtr<ILuxTransform2D> item;
        EXPECT_EQ(composed->get_Item(index, item.Out()), S_OK);
        return item;
    }
    static bool Linear(ILuxTransform2D* transform) {
        VARIANT_BOOL linear = 0;
        EXPECT_EQ(transform->get_Linear(&linear), S_OK);
        return linear != VARIANT_FALSE;
    }
    static ComPtr<ILuxTransform2DLinear> AsLinear(IUnknown* object) {
        ComPtr<ILuxTransform2DLinear> linear;
        object->QueryInterface(IID_ILuxTransform2DLinear, linear.OutVoid());
        return linear;
    }
    static bool SameObject(IUnknown* a, IUnknown* b) {
        ComPtr<IUnknown> x, y;
        a->QueryInterface(IUnknown::iid, x.OutVoid());
        b->QueryInterface(IUnknown::iid, y.OutVoid());
        return x.get() == y.get();
    }
};

TEST_F(ComposedTransformTest, TheEmptySequenceIsTheIdentity) {
    auto composed = NewComposed();
    auto log = Listen(composed.get());
    EXPECT_EQ(Count(composed.get()), 0);
    EXPECT_EQ(Map(composed.get(), 3.5, -2), std::make_pair(3.5, -2.0));
    EXPECT_TRUE(Linear(composed.get()));

    ComPtr<ILuxTransform2D> inverse;
    ASSERT_EQ(composed->InvertBase(inverse.Out()), S_OK);
    ComPtr<ILuxTransform2DComposed> inverseComposed;
    ASSERT_EQ(inverse->QueryInterface(IID_ILuxTransform2DComposed, inverseComposed.OutVoid()), S_OK);
    EXPECT_EQ(Count(inverseComposed.get()), 0);

    ComPtr<ILuxTransform2D> canonical;
    ASSERT_EQ(composed->Canonize(VARIANT_TRUE, canonical.Out()), S_OK);
    auto identity = AsLinear(canonical.get());
    ASSERT_TRUE(identity);
    VARIANT_BOOL yes = 0;
    EXPECT_EQ(identity->Identity(0, &yes), S_OK);
    EXPECT_EQ(yes, VARIANT_TRUE);
    ASSERT_EQ(composed->Canonize(VARIANT_FALSE, canonical.Out()), S_OK);
    EXPECT_FALSE(AsLinear(canonical.get()));

    // Refusals: nothing to pop, no such item, no transform, itself by reference.
    ComPtr<ILuxTransform2D> popped;
    ExpectRefused(composed->PopFromRight(popped.Out()), kCantPop, e_LuxTransform_CantPopEmptyComposed, {},
                  "PopFromRight");
    ExpectRefused(composed->PopFromLeft(popped.Out()), kCantPop, e_LuxTransform_CantPopEmptyComposed, {},
                  "PopFromLeft");
    EXPECT_FALSE(popped);
    ExpectRefused(composed->get_Item(0, popped.Out()), E_INVALIDARG, core::ids_Core_ArgOutOfRange_1, {"Index"},
                  "get_Item");
    ExpectRefused(composed->PushOntoRight(nullptr, VARIANT_TRUE), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "PushOntoRight");
    ExpectRefused(composed->PushOntoLeft(composed.get(), VARIANT_FALSE), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"Transform"}, "PushOntoLeft");
    ExpectRefused(composed->PopFromLeft(nullptr), E_POINTER, E_POINTER, {}, "PopFromLeft");
    EXPECT_EQ(Count(composed.get()), 0);
    EXPECT_EQ(log->Count(), 0u);
}

TEST_F(ComposedTransformTest, MembersActFromRightToLeftAndEachPushOrPopRaisesOneChange) {
    auto composed = NewComposed();
    auto log = Listen(composed.get());
    auto scale = NewLinear(2, 0, 0, 2, 0, 0);
    auto shift = NewLinear(1, 0, 0, 1, 10, 0);
    auto flip = NewLinear(0, 1, 1, 0, 0, 0);
    ASSERT_EQ(composed->PushOntoRight(Base(scale.get()).get(), VARIANT_TRUE), S_OK);
    ASSERT_EQ(composed->PushOntoRight(Base(shift.get()).get(), VARIANT_TRUE), S_OK);  // acts first
    EXPECT_EQ(Map(composed.get(), 1, 1), std::make_pair(22.0, 2.0));
    ASSERT_EQ(composed->PushOntoLeft(Base(flip.get()).get(), VARIANT_TRUE), S_OK);  // acts last
    EXPECT_EQ(Map(composed.get(), 1, 1), std::make_pair(2.0, 22.0));
    EXPECT_EQ(Count(composed.get()), 3);
    EXPECT_EQ(log->Count(), 3u);

    ComPtr<ILuxTransform2D> popped;
    ASSERT_EQ(composed->PopFromLeft(popped.Out()), S_OK);
    EXPECT_EQ(StateOf(AsLinear(popped.get()).get()), StateOf(flip.get()));
    ASSERT_EQ(composed->PopFromRight(popped.Out()), S_OK);
    EXPECT_EQ(StateOf(AsLinear(popped.get()).get()), StateOf(shift.get()));
    EXPECT_EQ(Count(composed.get()), 1);
    EXPECT_EQ(log->Count(), 5u);
    for (const auto& [state, areas] : log->events) {
        EXPECT_EQ(state, luxState_MoreThanOneStateIDChanged);
        EXPECT_EQ(areas, luxFA_Misc);
    }
}

TEST_F(ComposedTransformTest, CopyTrueStoresACopyAndFalseTheCallersObjectWhoseChangesArePassedOn) {
    auto composed = NewComposed();
    auto shared = NewLinear(1, 0, 0, 1, 5, 0);
    auto copied = NewLinear(1, 0, 0, 1, 0, 7);
    ASSERT_EQ(composed->PushOntoRight(Base(shared.get()).get(), VARIANT_FALSE), S_OK);
    ASSERT_EQ(composed->PushOntoRight(Base(copied.get()).get(), VARIANT_TRUE), S_OK);
    EXPECT_TRUE(SameObject(Item(composed.get(), 0).get(), shared.get()));
    EXPECT_FALSE(SameObject(Item(composed.get(), 1).get(), copied.get()));

    auto log = Listen(composed.get());
    ASSERT_EQ(copied->put_TranslationY(100), S_OK);  // not a member: nothing reaches the sequence
    EXPECT_EQ(Map(composed.get(), 0, 0), std::make_pair(5.0, 7.0));
    EXPECT_EQ(log->Count(), 0u);
    ASSERT_EQ(shared->put_TranslationX(50), S_OK);  // a member, held by reference
    EXPECT_EQ(Map(composed.get(), 0, 0), std::make_pair(50.0, 7.0));
    ASSERT_EQ(log->Count(), 1u);
    EXPECT_EQ(log->events[0].first, luxState_SubObjectEvent);
    EXPECT_EQ(log->events[0].second, luxFA_Misc);

    // Once popped, the object's changes no longer reach the sequence.
    ComPtr<ILuxTransform2D> popped;
    ASSERT_EQ(composed->PopFromLeft(popped.Out()), S_OK);
    EXPECT_TRUE(SameObject(popped.get(), shared.get()));
    ASSERT_EQ(shared->put_TranslationX(51), S_OK);
    EXPECT_EQ(log->Count(), 2u);  // the pop itself only
}

TEST_F(ComposedTransformTest, CanonizeMultipliesNeighbouringLinearMembersAndKeepsTheOthers) {
    auto a = NewLinear(2, 0, 0, 1, 1, 0);
    auto b = NewLinear(1, 1, 0, 1, 0, 2);
    auto c = NewLinear(0, -1, 1, 0, 3, 0);
    auto d = NewLinear(1, 0, 0, 3, 0, -1);
    auto bend = BendTransform::Make(0.1);
    std::vector<ILuxTransform2D*> members = {Base(a.get()).get(), Base(b.get()).get(), bend.get(),
                                             Base(c.get()).get(), Base(d.get()).get()};
    auto composed = CLuxTransform2DComposed::FromMembers(members, false);
    EXPECT_FALSE(Linear(composed.get()));
    const auto expected = Map(composed.get(), 1.5, -0.5);

    ComPtr<ILuxTransform2D> canonical;
    ASSERT_EQ(composed->Canonize(VARIANT_TRUE, canonical.Out()), S_OK);
    ComPtr<ILuxTransform2DComposed> sequence;
    ASSERT_EQ(canonical->QueryInterface(IID_ILuxTransform2DComposed, sequence.OutVoid()), S_OK);
    ASSERT_EQ(Count(sequence.get()), 3);
    EXPECT_TRUE(AsLinear(Item(sequence.get(), 0).get()));
    EXPECT_FALSE(AsLinear(Item(sequence.get(), 1).get()));
    EXPECT_FALSE(SameObject(Item(sequence.get(), 1).get(), bend.get()));  // copied
    const auto mapped = Map(canonical.get(), 1.5, -0.5);
    EXPECT_NEAR(mapped.first, expected.first, 1e-12);
    EXPECT_NEAR(mapped.second, expected.second, 1e-12);
    // The product of the left run: a (b p).
    ComPtr<ILuxTransform2DLinear> ab;
    ASSERT_EQ(a->Compose(b.get(), ab.Out()), S_OK);
    EXPECT_EQ(StateOf(AsLinear(Item(sequence.get(), 0).get()).get()), StateOf(ab.get()));
    EXPECT_EQ(Count(composed.get()), 5);  // the sequence itself is left as it was

    // Nested sequences are opened up; an all-linear chain simplifies to one linear transform.
    std::vector<ILuxTransform2D*> linearOnly = {Base(a.get()).get(), Base(b.get()).get()};
    auto inner = CLuxTransform2DComposed::FromMembers(linearOnly, true);
    auto outer = NewComposed();
    ASSERT_EQ(outer->PushOntoRight(inner.get(), VARIANT_FALSE), S_OK);
    ASSERT_EQ(outer->PushOntoRight(Base(c.get()).get(), VARIANT_TRUE), S_OK);
    EXPECT_TRUE(Linear(outer.get()));
    ASSERT_EQ(outer->Canonize(VARIANT_TRUE, canonical.Out()), S_OK);
    auto single = AsLinear(canonical.get());
    ASSERT_TRUE(single);
    ComPtr<ILuxTransform2DLinear> abc;
    ASSERT_EQ(ab->Compose(c.get(), abc.Out()), S_OK);
    EXPECT_EQ(StateOf(single.get()), StateOf(abc.get()));
    // Without simplifying, the one member stays inside a sequence.
    ASSERT_EQ(outer->Canonize(VARIANT_FALSE, canonical.Out()), S_OK);
    ASSERT_EQ(canonical->QueryInterface(IID_ILuxTransform2DComposed, sequence.OutVoid()), S_OK);
    EXPECT_EQ(Count(sequence.get()), 1);

    // The best fit of an all-linear sequence is its product; with a non-linear member it is
    // not offered.
    double rms = -1;
    ComPtr<ILuxTransform2DLinear> fit;
    ASSERT_EQ(outer->BestFitLinearTransform(nullptr, &rms, fit.Out()), S_OK);
    EXPECT_EQ(rms, 0);
    EXPECT_EQ(StateOf(fit.get()), StateOf(abc.get()));
    EXPECT_EQ(composed->BestFitLinearTransform(nullptr, &rms, fit.Out()), static_cast<HRESULT>(e_Lux_NotImplemented));
}

TEST_F(ComposedTransformTest, LinearApproximationFollowsTheChainRuleAndInversionReversesTheOrder) {
    auto shift = NewLinear(1, 0, 0, 1, 2, 0);
    auto scale = NewLinear(3, 0, 0, 1, 0, 0);
    auto bend = BendTransform::Make(0.5);
    // scale(bend(shift(p))): near x = 1 the shift gives 3, where the bend's slope is 4.
    std::vector<ILuxTransform2D*> members = {Base(scale.get()).get(), bend.get(), Base(shift.get()).get()};
    auto composed = CLuxTransform2DComposed::FromMembers(members, false);
    ComPtr<ILuxTransform2DLinear> local;
    ASSERT_EQ(composed->LinearTransform(1, 0, local.Out()), S_OK);
    const auto e = Elements(local.get());
    EXPECT_EQ(e[0], 12);  // 3 * 4 * 1
    EXPECT_EQ(Map(local.get(), 1, 0), Map(composed.get(), 1, 0));  // exact at the point itself

    // Inversion of an all-linear sequence: the inverses in reverse order.
    std::vector<ILuxTransform2D*> linearMembers = {Base(scale.get()).get(), Base(shift.get()).get()};
    auto linear = CLuxTransform2DComposed::FromMembers(linearMembers, true);
    ComPtr<ILuxTransform2D> inverse;
    ASSERT_EQ(linear->InvertBase(inverse.Out()), S_OK);
    const auto forward = Map(linear.get(), 1.25, -4);
    EXPECT_EQ(Map(inverse.get(), forward.first, forward.second), std::make_pair(1.25, -4.0));
    // A member without an inverse fails the inversion with its own result.
    EXPECT_EQ(composed->InvertBase(inverse.Out()), E_NOTIMPL);

    // ComposeBase: this sequence's members, then the right side, in canonical form.
    ComPtr<ILuxTransform2D> withShift;
    ASSERT_EQ(linear->ComposeBase(Base(shift.get()).get(), withShift.Out()), S_OK);
    ASSERT_TRUE(AsLinear(withShift.get()));
    EXPECT_EQ(Map(withShift.get(), 0, 0), std::make_pair(12.0, 0.0));  // scale(shift(shift(0)))
    ExpectRefused(linear->ComposeBase(nullptr, withShift.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"RightSide"}, "ComposeBase");
}

TEST_F(ComposedTransformTest, ALinearTransformComposedWithANonLinearOneMakesASequenceOfCopies) {
    auto scale = NewLinear(3, 0, 0, 3, 1, 0);
    ComPtr<BendTransform> bend = ComPtr<BendTransform>::Attach(BendTransform::Create(1.0));
    ComPtr<ILuxTransform2D> composed;
    ASSERT_EQ(Base(scale.get())->ComposeBase(bend.get(), composed.Out()), S_OK);
    EXPECT_EQ(bend->copies, 1);  // pushed by value
    ComPtr<ILuxTransform2DComposed> sequence;
    ASSERT_EQ(composed->QueryInterface(IID_ILuxTransform2DComposed, sequence.OutVoid()), S_OK);
    ASSERT_EQ(Count(sequence.get()), 2);
    EXPECT_FALSE(SameObject(Item(sequence.get(), 0).get(), scale.get()));
    // The bend acts first: 2 -> 6 -> 19.
    EXPECT_EQ(Map(composed.get(), 2, 1), std::make_pair(19.0, 3.0));
}

TEST_F(ComposedTransformTest, CloneAndPersistenceCopyEveryMember) {
    auto a = NewLinear(2, 0, 0, -0.0, 1, 0);
    auto b = NewLinear(1, 2, 3, 4, 5, 6);
    auto composed = NewComposed();
    ASSERT_EQ(composed->PushOntoRight(Base(a.get()).get(), VARIANT_FALSE), S_OK);
    ASSERT_EQ(composed->PushOntoRight(Base(b.get()).get(), VARIANT_FALSE), S_OK);

    ComPtr<ILuxObject> object;
    ASSERT_EQ(composed->QueryInterface(IID_ILuxObject, object.OutVoid()), S_OK);
    ComPtr<IDispatch> cloneDispatch;
    ASSERT_EQ(object->Clone(cloneDispatch.Out()), S_OK);
    ComPtr<ILuxTransform2DComposed> clone;
    ASSERT_EQ(cloneDispatch->QueryInterface(IID_ILuxTransform2DComposed, clone.OutVoid()), S_OK);
    ASSERT_EQ(Count(clone.get()), 2);
    EXPECT_FALSE(SameObject(Item(clone.get(), 0).get(), a.get()));
    ASSERT_EQ(a->put_TranslationX(100), S_OK);
    EXPECT_EQ(Map(clone.get(), 0, 0), std::make_pair(11.0, 0.0));
    EXPECT_EQ(Map(composed.get(), 0, 0), std::make_pair(110.0, 0.0));

    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(clone.get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> loaded;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        ComPtr<ILuxTransform2DComposed> sequence;
        ASSERT_EQ(loaded->QueryInterface(IID_ILuxTransform2DComposed, sequence.OutVoid()), S_OK);
        ASSERT_EQ(Count(sequence.get()), 2);
        for (LONG i = 0; i < 2; ++i)
            EXPECT_EQ(StateOf(AsLinear(Item(sequence.get(), i).get()).get()),
                      StateOf(AsLinear(Item(clone.get(), i).get()).get()));
        // The loaded members' changes are passed on too.
        auto log = Listen(sequence.get());
        ASSERT_EQ(AsLinear(Item(sequence.get(), 1).get())->put_TranslationX(0), S_OK);
        ASSERT_EQ(log->Count(), 1u);
        EXPECT_EQ(log->events[0].first, luxState_SubObjectEvent);
    }
}

}  // namespace
}  // namespace tessaly::test
