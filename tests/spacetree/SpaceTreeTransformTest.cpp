// GetTransform against hand-composed values (through the common ancestor, across a grafted
// tree, with a non-linear link, after a held transform changed); grafting by reference and
// its refusals; the Change of held transforms and grafted trees passed on as Change(-2), and
// not once they have left the tree.
#include "spacetree/SpaceTreeFixture.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

class SpaceTreeTransformTest : public SpaceTreeFixture {
public:
    static std::pair<double, double> MapThrough(ILuxCoordinateSpaceTree* tree, const char* to, const char* from,
                                                double x, double y) {
        ComPtr<ILuxTransform2D> result;
        EXPECT_EQ(tree->GetTransform(Bstr(to).get(), Bstr(from).get(), result.Out()), S_OK);
        double mx = NAN, my = NAN;
        if (result) {
            EXPECT_EQ(result->MapPoint(x, y, &mx, &my), S_OK);
        }
        return {mx, my};
    }
    static HRESULT Graft(ILuxCoordinateSpaceTree* tree, const char* parent, ILuxCoordinateSpaceTree* graft,
                         IUnknown* transform, bool copy = true,
                         LuxAddSpaceConstants duplicates = luxAddSpaceDuplicateIsError) {
        return tree->AddTree(Bstr(parent).get(), graft, Base(transform).get(), copy ? VARIANT_TRUE : VARIANT_FALSE,
                             duplicates);
    }
};

const std::string kChanged = "7456(-1,,1)";
const std::string kForwarded = "7456(-2,obj,1)";

TEST_F(SpaceTreeTransformTest, TransformsComposeThroughTheCommonAncestor) {
    auto tree = Sample();
    // Part into the root: rotate by 90 degrees, shift (0, 5), then shift (10, 0).
    EXPECT_EQ(TransformText(tree.get(), "^", "Part"), "0 -1 1 0 10 5");
    EXPECT_EQ(MapThrough(tree.get(), "^", "Part", 1, 0), std::make_pair(10.0, 6.0));
    // The root into Part is the inverse.
    EXPECT_EQ(MapThrough(tree.get(), "Part", "^", 10, 6), std::make_pair(1.0, 0.0));
    // Part into Camera: up to the root, then down through the inverse of Camera's scaling.
    EXPECT_EQ(TransformText(tree.get(), "Camera", "Part"), "0 -0.5 0.5 0 5 2.5");
    EXPECT_EQ(TransformText(tree.get(), "Part", "Camera"), "0 2 -2 0 -5 10");
    // Between siblings below the root's child the root plays no part.
    ASSERT_EQ(Add(tree.get(), "Fixture", "Datum", Shift(0, -5).get()), S_OK);
    EXPECT_EQ(TransformText(tree.get(), "Datum", "Part"), "0 -1 1 0 0 10");
    // The same space, however named: the identity, a new object each time.
    EXPECT_EQ(TransformText(tree.get(), "Part", "@\\fixture\\part"), "1 0 0 1 0 0");
    ComPtr<ILuxTransform2D> first, second;
    ASSERT_EQ(tree->GetTransform(Bstr("Camera").get(), Bstr("Part").get(), first.Out()), S_OK);
    ASSERT_EQ(tree->GetTransform(Bstr("Camera").get(), Bstr("Part").get(), second.Out()), S_OK);
    EXPECT_NE(first.get(), second.get());
    VARIANT_BOOL linear = 0;
    ASSERT_EQ(first->get_Linear(&linear), S_OK);
    EXPECT_EQ(linear, VARIANT_TRUE);

    ComPtr<ILuxTransform2D> result;
    ExpectCode(tree->GetTransform(Bstr("Nowhere").get(), Bstr("Part").get(), result.Out()), e_LuxSpaceTree_NotInTree,
               "GetTransform");
    EXPECT_FALSE(result);
}

TEST_F(SpaceTreeTransformTest, ASingularLinkCannotBeInvertedOnTheWayDown) {
    auto tree = Sample();
    ASSERT_EQ(tree->ChangeTransform(Bstr("Camera").get(), Base(Linear(1, 2, 2, 4, 0, 0).get()).get(), VARIANT_TRUE),
              S_OK);
    ComPtr<ILuxTransform2D> result;
    const HRESULT hr = tree->GetTransform(Bstr("Camera").get(), Bstr("Part").get(), result.Out());
    EXPECT_EQ(hr, static_cast<HRESULT>(e_LuxTransform_Singular));
    EXPECT_EQ(TakeErrorInfo().source, "GetTransform");
    EXPECT_FALSE(result);
    // Upwards the singular link only maps.
    EXPECT_EQ(TransformText(tree.get(), "^", "Camera"), "1 2 2 4 0 0");
}

TEST_F(SpaceTreeTransformTest, ANonLinearLinkGivesAComposedTransformInTheRightOrder) {
    auto tree = Sample();
    auto bend = BendTransform::Make(0.5);
    ASSERT_EQ(tree->AddSpace(Bstr("Fixture").get(), Bstr("Bent").get(), bend.get(), VARIANT_FALSE,
                             luxAddSpaceDuplicateIsError),
              S_OK);
    // (2, 1) bends to (4, 1), the fixture shifts it to (14, 1), the camera halves it.
    EXPECT_EQ(MapThrough(tree.get(), "^", "Bent", 2, 1), std::make_pair(14.0, 1.0));
    EXPECT_EQ(MapThrough(tree.get(), "Camera", "Bent", 2, 1), std::make_pair(7.0, 0.5));
    ComPtr<ILuxTransform2D> result;
    ASSERT_EQ(tree->GetTransform(Bstr("Camera").get(), Bstr("Bent").get(), result.Out()), S_OK);
    VARIANT_BOOL linear = -1;
    ASSERT_EQ(result->get_Linear(&linear), S_OK);
    EXPECT_EQ(linear, VARIANT_FALSE);
    // Downwards the link must be inverted, which this transform cannot do: its failure is
    // passed on.
    result.Reset();
    EXPECT_EQ(tree->GetTransform(Bstr("Bent").get(), Bstr("^").get(), result.Out()), E_NOTIMPL);
    EXPECT_FALSE(result);
}

TEST_F(SpaceTreeTransformTest, AHeldTransformIsSeenAndPassesItsChangeOnUntilItLeaves) {
    auto tree = Sample();
    auto held = Shift(1, 0);
    ASSERT_EQ(tree->ChangeTransform(Bstr("Part").get(), Base(held.get()).get(), VARIANT_FALSE), S_OK);
    auto copied = Shift(2, 0);
    ASSERT_EQ(Add(tree.get(), "Camera", "Lens", copied.get(), true), S_OK);
    auto sink = Listen(tree.get());

    ASSERT_EQ(held->put_TranslationX(3), S_OK);
    EXPECT_EQ(sink->Take(), kForwarded);
    EXPECT_EQ(TransformText(tree.get(), "^", "Part"), "1 0 0 1 13 0");
    EXPECT_EQ(TransformText(tree.get(), "Camera", "Part"), "0.5 0 0 0.5 6.5 0");
    ASSERT_EQ(copied->put_TranslationX(5), S_OK);  // the tree holds a copy
    EXPECT_EQ(sink->Take(), "");

    // The forwarded info names the transform and its own Change.
    auto info = std::make_shared<Variant>();
    auto raw = ComPtr<IDispatch>::Attach(MakeEventSink(
        luxChange_Change,
        [info](std::span<const VARIANT> args) {
            if (args[0].lVal == luxState_SubObjectEvent) VariantCopy(info->ptr(), &args[1]);
        },
        DIID_ILuxCoordinateSpaceTreeEvents));
    DWORD cookie = 0;
    ASSERT_EQ(Advise(tree.get(), DIID_ILuxCoordinateSpaceTreeEvents, raw.get(), &cookie), S_OK);
    ASSERT_EQ(held->put_TranslationY(1), S_OK);
    ASSERT_EQ(info->vt(), VT_DISPATCH);
    ComPtr<ILuxEventInfo> event;
    ASSERT_EQ(info->get().pdispVal->QueryInterface(IID_ILuxEventInfo, event.OutVoid()), S_OK);
    ComPtr<IDispatch> source;
    ASSERT_EQ(event->get_Source(source.Out()), S_OK);
    ComPtr<IUnknown> a, b;
    source->QueryInterface(IUnknown::iid, a.OutVoid());
    held->QueryInterface(IUnknown::iid, b.OutVoid());
    EXPECT_EQ(a.get(), b.get());
    ASSERT_EQ(Unadvise(tree.get(), DIID_ILuxCoordinateSpaceTreeEvents, cookie), S_OK);
    *info = Variant();
    sink->Take();

    // Replaced: its changes no longer reach the tree, nor change its transforms.
    ASSERT_EQ(tree->ChangeTransform(Bstr("Part").get(), Base(Shift(0, 0).get()).get(), VARIANT_TRUE), S_OK);
    sink->Take();
    ASSERT_EQ(held->put_TranslationX(50), S_OK);
    EXPECT_EQ(sink->Take(), "");
    EXPECT_EQ(TransformText(tree.get(), "^", "Part"), "1 0 0 1 10 0");

    // Deleted with its subtree: the same.
    auto other = Shift(1, 1);
    ASSERT_EQ(Add(tree.get(), "Part", "Tool", other.get(), false), S_OK);
    ASSERT_EQ(tree->DeleteSubtree(Bstr("Fixture").get()), S_OK);
    sink->Take();
    ASSERT_EQ(other->put_TranslationX(50), S_OK);
    EXPECT_EQ(sink->Take(), "");
}

TEST_F(SpaceTreeTransformTest, AHeldTransformOrGraftedTreeNeverKeepsItsHolderAlive) {
    auto held = Shift(1, 0);
    auto robot = NewTree();
    const LONG before = Module::LiveObjectCount();
    {
        auto tree = Sample();
        ASSERT_EQ(tree->ChangeTransform(Bstr("Part").get(), Base(held.get()).get(), VARIANT_FALSE), S_OK);
        ASSERT_EQ(Graft(tree.get(), "Camera", robot.get(), held.get(), false), S_OK);
        auto sink = Listen(tree.get());  // forwarding is on: link sinks are advised on both
        ASSERT_EQ(held->put_TranslationX(2), S_OK);
        EXPECT_EQ(sink->Take(), kForwarded);
    }
    // The tree is gone although the transform and the grafted tree it held are not.
    EXPECT_EQ(Module::LiveObjectCount(), before);
    ASSERT_EQ(held->put_TranslationX(3), S_OK);
    ASSERT_EQ(Add(robot.get(), "^", "Gripper"), S_OK);
}

TEST_F(SpaceTreeTransformTest, AGraftedTreeIsSharedByReference) {
    auto tree = Sample();
    auto robot = NewTree();
    ASSERT_EQ(robot->put_RootName(Bstr("Robot").get()), S_OK);
    ASSERT_EQ(Add(robot.get(), "^", "Gripper", Shift(0, 2).get()), S_OK);
    auto sink = Listen(tree.get());
    auto robotSink = Listen(robot.get());

    auto mount = Shift(1, 0);
    ASSERT_EQ(Graft(tree.get(), "Camera", robot.get(), mount.get(), false), S_OK);
    EXPECT_EQ(sink->Take(), "2(@\\Camera\\Robot) " + kChanged);
    EXPECT_EQ(All(tree.get()), "@|@\\Fixture|@\\Fixture\\Part|@\\Camera|@\\Camera\\Robot|@\\Camera\\Robot\\Gripper");
    EXPECT_EQ(Lookup(tree.get(), "gripper"), "@\\Camera\\Robot\\Gripper");
    EXPECT_EQ(Parent(tree.get(), "Gripper"), "@\\Camera\\Robot");
    EXPECT_EQ(Parent(tree.get(), "Robot"), "@\\Camera");
    // Gripper into the root: shift (0, 2), the mount's (1, 0), the camera's scaling by 2.
    EXPECT_EQ(TransformText(tree.get(), "^", "Gripper"), "2 0 0 2 2 4");
    EXPECT_EQ(TransformText(tree.get(), "Gripper", "Part"), "0 -0.5 0.5 0 4 0.5");
    EXPECT_EQ(TransformText(robot.get(), "^", "Gripper"), "1 0 0 1 0 2");

    // A change made to the grafted tree is seen through both, and heard as Change(-2).
    ASSERT_EQ(Add(robot.get(), "Gripper", "Finger", Shift(0, 1).get()), S_OK);
    EXPECT_EQ(robotSink->Take(), "1(Robot\\Gripper\\Finger) " + kChanged);
    EXPECT_EQ(sink->Take(), kForwarded);
    EXPECT_EQ(TransformText(tree.get(), "Camera", "Finger"), "1 0 0 1 1 3");
    // A change made through this tree to a grafted space is made by the grafted tree.
    ASSERT_EQ(Add(tree.get(), "@\\Camera\\Robot", "Wrist", Shift(5, 5).get()), S_OK);
    EXPECT_EQ(robotSink->Take(), "1(Robot\\Wrist) " + kChanged);
    EXPECT_EQ(sink->Take(), kForwarded);
    ASSERT_EQ(tree->ChangeTransform(Bstr("Finger").get(), Base(Shift(0, 7).get()).get(), VARIANT_TRUE), S_OK);
    EXPECT_EQ(robotSink->Take(), "4(Robot\\Gripper\\Finger) " + kChanged);
    EXPECT_EQ(TransformText(robot.get(), "Gripper", "Finger"), "1 0 0 1 0 7");
    sink->Take();
    // The mount is this tree's own link, held by reference here.
    ASSERT_EQ(mount->put_TranslationX(-1), S_OK);
    EXPECT_EQ(sink->Take(), kForwarded);
    EXPECT_EQ(TransformText(tree.get(), "Camera", "Gripper"), "1 0 0 1 -1 2");
    ASSERT_EQ(tree->ChangeName(Bstr("Robot").get(), Bstr("Arm").get()), S_OK);
    EXPECT_EQ(robotSink->Take(), "3(Robot,Arm) " + kChanged);
    EXPECT_EQ(Lookup(tree.get(), "Gripper"), "@\\Camera\\Arm\\Gripper");
    sink->Take();

    // Moving into or out of the grafted tree is refused; within it the grafted tree moves.
    const std::string before = Dump(tree.get());
    ExpectRefused(tree->MoveSubtree(Bstr("Part").get(), Bstr("Gripper").get(), luxAddSpaceDuplicateIsError),
                  E_INVALIDARG, core::ids_Core_InvalidArg_1, "MoveSubtree", {"NewParentSpaceName"});
    ExpectRefused(tree->MoveSubtree(Bstr("Finger").get(), Bstr("Fixture").get(), luxAddSpaceDuplicateIsError),
                  E_INVALIDARG, core::ids_Core_InvalidArg_1, "MoveSubtree", {"NewParentSpaceName"});
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(tree->MoveSubtree(Bstr("Finger").get(), Bstr("Wrist").get(), luxAddSpaceDuplicateIsError), S_OK);
    EXPECT_EQ(robotSink->Take(), "6(Arm\\Gripper\\Finger,Arm\\Wrist\\Finger) " + kChanged);

    // Copying a grafted space copies from the grafted tree.
    ComPtr<ILuxCoordinateSpaceTree> copy;
    ASSERT_EQ(tree->CopySubtree(Bstr("Wrist").get(), copy.Out()), S_OK);
    EXPECT_EQ(All(copy.get()), "Wrist|Wrist\\Finger");

    // Deleting the grafted root removes the graft here and nothing of the grafted tree.
    sink->Take();
    ASSERT_EQ(tree->DeleteSubtree(Bstr("Arm").get()), S_OK);
    EXPECT_EQ(sink->Take(), "5(@\\Camera\\Arm) " + kChanged);
    EXPECT_EQ(All(robot.get()), "Arm|Arm\\Gripper|Arm\\Wrist|Arm\\Wrist\\Finger");
    ASSERT_EQ(Add(robot.get(), "^", "Base"), S_OK);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(mount->put_TranslationX(4), S_OK);
    EXPECT_EQ(sink->Take(), "");
}

TEST_F(SpaceTreeTransformTest, GraftsThatWouldMakeACycleAreRefused) {
    auto tree = Sample();
    auto inner = NewTree();
    ASSERT_EQ(inner->put_RootName(Bstr("Inner").get()), S_OK);
    auto outer = NewTree();
    ASSERT_EQ(outer->put_RootName(Bstr("Outer").get()), S_OK);
    ASSERT_EQ(Graft(outer.get(), "^", tree.get(), Shift(0, 0).get()), S_OK);
    ASSERT_EQ(Graft(tree.get(), "Camera", inner.get(), Shift(0, 0).get()), S_OK);
    const std::string before = Dump(tree.get());
    auto sink = Listen(tree.get());
    auto refused = [&](ILuxCoordinateSpaceTree* host, const char* parent, ILuxCoordinateSpaceTree* graft) {
        ExpectRefused(Graft(host, parent, graft, Shift(0, 0).get()), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                      "AddTree", {"TreeToAdd"});
    };
    refused(tree.get(), "^", tree.get());      // into itself
    refused(tree.get(), "Part", outer.get());  // the tree holding this one
    refused(inner.get(), "^", outer.get());    // through two grafts
    refused(tree.get(), "@\\Camera\\Inner", tree.get());  // made by the grafted tree, refused there
    EXPECT_EQ(Dump(tree.get()), before);
    EXPECT_EQ(sink->Take(), "");

    // The same tree may be grafted twice; its spaces then have two full names.
    ASSERT_EQ(Add(inner.get(), "^", "Probe"), S_OK);
    ASSERT_EQ(Graft(tree.get(), "Fixture", inner.get(), Shift(1, 1).get()), S_OK);
    ComPtr<ILuxStringCollection> names;
    ASSERT_EQ(tree->FindNames(Bstr("Probe").get(), names.Out()), S_OK);
    EXPECT_EQ(Joined(names.get()), "@\\Fixture\\Inner\\Probe|@\\Camera\\Inner\\Probe");
    // Its root's name is a child's name like any other.
    sink->Take();
    ExpectCode(Graft(tree.get(), "Fixture", inner.get(), Shift(1, 1).get()), e_LuxSpaceTree_DuplicateChildName,
               "AddTree");
    EXPECT_EQ(Graft(tree.get(), "Fixture", inner.get(), Shift(1, 1).get(), true, luxAddSpaceIgnoreDuplicate), S_OK);
    EXPECT_EQ(sink->Take(), "");
    ASSERT_EQ(tree->DeleteSubtree(Bstr("^\\Camera\\Inner").get()), S_OK);
    ASSERT_EQ(outer->DeleteSubtree(Bstr("^\\@").get()), S_OK);
}

}  // namespace
}  // namespace tessaly::test
