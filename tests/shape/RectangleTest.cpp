// LuxRectangle and the shape layer through it: parameters and their events, refusals,
// SelectedSpaceName, the combinations with another rectangle, copy flags, Map,
// EnclosingRectangle, FitToImage, FitToBoundingBox, Clone and persistence.
#include <atomic>
#include <cmath>
#include <thread>

#include "com/core/ObjectPersistence.h"
#include "shape/ShapeFixture.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

class RectangleTest : public ShapeFixture {};

TEST_F(RectangleTest, ANewRectangleIs100By100AtTheOriginAndReportsItsDerivedValues) {
    auto rectangle = NewRectangle();
    EXPECT_EQ(Params(rectangle.get()), (RectParams{0, 0, 100, 100}));
    ASSERT_EQ(rectangle->SetXYWidthHeight(-2, 3, 8, 5), S_OK);
    double value = 0;
    rectangle->get_CenterX(&value);
    EXPECT_EQ(value, 2);
    rectangle->get_CenterY(&value);
    EXPECT_EQ(value, 5.5);
    rectangle->get_Area(&value);
    EXPECT_EQ(value, 40);
    rectangle->get_Perimeter(&value);
    EXPECT_EQ(value, 26);
    double c[4] = {};
    ASSERT_EQ(rectangle->GetCenterWidthHeight(&c[0], &c[1], &c[2], &c[3]), S_OK);
    EXPECT_EQ((RectParams{c[0], c[1], c[2], c[3]}), (RectParams{2, 5.5, 8, 5}));
    EXPECT_EQ(rectangle->GetXYWidthHeight(&c[0], nullptr, &c[2], &c[3]), E_POINTER);
}

TEST_F(RectangleTest, EachSetterRaisesItsStateIdAndValueWithTheGeometryArea) {
    auto rectangle = NewRectangle();
    auto log = Listen(rectangle.get());
    ASSERT_EQ(rectangle->put_X(4), S_OK);
    ASSERT_EQ(rectangle->put_Y(5), S_OK);
    ASSERT_EQ(rectangle->put_Width(6), S_OK);
    ASSERT_EQ(rectangle->put_Height(7), S_OK);
    ASSERT_EQ(rectangle->put_Height(7), S_OK);  // unchanged: nothing
    ASSERT_EQ(log->changes.size(), 4u);
    const int32_t ids[] = {luxRectangle_X, luxRectangle_Y, luxRectangle_Width, luxRectangle_Height};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
        EXPECT_EQ(log->changes[i].value.vt(), VT_R8);
        EXPECT_EQ(log->changes[i].value.get().dblVal, 4 + i);
    }
    log->changes.clear();
    // Several parameters at once: one event for all; one parameter: its own; none: nothing.
    ASSERT_EQ(rectangle->SetXYWidthHeight(1, 2, 6, 7), S_OK);
    ASSERT_EQ(rectangle->SetXYWidthHeight(1, 2, 6, 9), S_OK);
    ASSERT_EQ(rectangle->SetXYWidthHeight(1, 2, 6, 9), S_OK);
    ASSERT_EQ(rectangle->SetCenterWidthHeight(4, 6.5, 6, 9), S_OK);  // the same rectangle
    ASSERT_EQ(rectangle->SetCenterWidthHeight(0, 0, 2, 2), S_OK);
    ASSERT_EQ(log->changes.size(), 3u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].value.vt(), VT_EMPTY);
    EXPECT_EQ(log->changes[1].stateId, luxRectangle_Height);
    EXPECT_EQ(log->changes[1].value.get().dblVal, 9);
    EXPECT_EQ(log->changes[2].stateId, luxState_MoreThanOneStateIDChanged);
    for (const ChangeEvent& e : log->changes) EXPECT_EQ(e.areas, luxFA_Shape_Geometry);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{-1, -1, 2, 2}));
}

TEST_F(RectangleTest, SizesOfZeroOrLessAreRefusedWidthFirstLeavingTheRectangleAndRaisingNothing) {
    auto rectangle = NewRectangle(1, 2, 3, 4);
    auto log = Listen(rectangle.get());
    ExpectRefused(rectangle->SetXYWidthHeight(0, 0, 0, 5), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Width"},
                  "SetXYWidthHeight");
    ExpectRefused(rectangle->SetXYWidthHeight(0, 0, 5, -1), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Height"},
                  "SetXYWidthHeight");
    ExpectRefused(rectangle->SetXYWidthHeight(0, 0, -1, -1), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Width"},
                  "SetXYWidthHeight");
    ExpectRefused(rectangle->SetCenterWidthHeight(0, 0, 5, 0), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"Height"}, "SetCenterWidthHeight");
    ExpectRefused(rectangle->put_Width(0), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Width"}, "put_Width");
    ExpectRefused(rectangle->put_Width(NAN), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Width"}, "put_Width");
    ExpectRefused(rectangle->put_Height(-1e-300), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"Height"},
                  "put_Height");
    EXPECT_EQ(Params(rectangle.get()), (RectParams{1, 2, 3, 4}));
    EXPECT_TRUE(log->changes.empty());
    EXPECT_EQ(rectangle->put_Width(1e-300), S_OK);  // the least positive sizes are fine
}

TEST_F(RectangleTest, SelectedSpaceNameTakesPartialNamesRefusesBadSyntaxAndAnnouncesChangesOnly) {
    auto rectangle = NewRectangle();
    auto log = Listen(rectangle.get());
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr(".").get()), S_OK);
    EXPECT_TRUE(log->changes.empty());
    for (const char* name : {"#", "@", "Fixture", "@\\Fixture\\Part", ".\\Part", "..\\Camera", "...\\Part", "^/Fixture"}) {
        ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr(name).get()), S_OK) << name;
        EXPECT_EQ(SpaceName(rectangle.get()), name);
    }
    ASSERT_EQ(log->changes.size(), 8u);
    EXPECT_EQ(log->changes[0].stateId, luxShape_SelectedSpaceName);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_SelectedSpaceName);
    EXPECT_EQ(log->changes[0].value.get().bstrVal, std::string_view("#"));
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("^/Fixture").get()), S_OK);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("^/fixture").get()), S_OK);  // compared exactly
    EXPECT_EQ(log->changes.size(), 9u);
    log->changes.clear();
    for (const char* bad : {"", " Fixture", "@\\\\Part", "\\Fixture", "@\\Fix\tture"}) {
        EXPECT_EQ(rectangle->put_SelectedSpaceName(Bstr(bad).get()), e_LuxSpaceTree_InvalidNameSyntax) << bad;
        EXPECT_EQ(TakeErrorInfo().source, "put_SelectedSpaceName");
    }
    EXPECT_EQ(rectangle->put_SelectedSpaceName(nullptr), e_LuxSpaceTree_InvalidNameSyntax);
    EXPECT_EQ(SpaceName(rectangle.get()), "^/fixture");
    EXPECT_TRUE(log->changes.empty());
    // The coordinates are not converted.
    EXPECT_EQ(Params(rectangle.get()), (RectParams{0, 0, 100, 100}));
}

TEST_F(RectangleTest, CombinationsWithAnotherRectangleAndTheirDegenerateCases) {
    auto rectangle = NewRectangle(0, 0, 10, 10);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Part").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(rectangle.get())->put_Color(0x42), S_OK);
    auto other = NewRectangle(5, -5, 10, 8);
    ComPtr<ILuxRectangle> result;
    ASSERT_EQ(rectangle->Intersect(other.get(), luxCopyShapeAll, result.Out()), S_OK);
    EXPECT_EQ(Params(result.get()), (RectParams{5, 0, 5, 3}));
    EXPECT_EQ(SpaceName(result.get()), "Part");
    LONG color = 0;
    As<ILuxGraphic>(result.get())->get_Color(&color);
    EXPECT_EQ(color, 0x42);
    ASSERT_EQ(rectangle->Union(other.get(), luxCopyShapeGeometryOnly, result.Out()), S_OK);
    EXPECT_EQ(Params(result.get()), (RectParams{0, -5, 15, 15}));
    As<ILuxGraphic>(result.get())->get_Color(&color);
    EXPECT_EQ(color, luxColorCyan);
    EXPECT_EQ(SpaceName(result.get()), "Part");
    ASSERT_EQ(rectangle->Dilate(other.get(), luxCopyShapeGeometryOnly, result.Out()), S_OK);
    EXPECT_EQ(Params(result.get()), (RectParams{5, -5, 20, 18}));
    ComPtr<ILuxRectangle> eroded;
    ASSERT_EQ(result->Erode(other.get(), luxCopyShapeGeometryOnly, eroded.Out()), S_OK);
    EXPECT_EQ(Params(eroded.get()), (RectParams{0, 0, 10, 10}));

    // Disjoint, touching along an edge, and an erosion by something as large: no rectangle.
    auto apart = NewRectangle(20, 20, 1, 1);
    auto touching = NewRectangle(10, 0, 5, 5);
    ExpectFailed(rectangle->Intersect(apart.get(), luxCopyShapeAll, result.Out()), e_LuxShape_DegenerateShape,
                 "ccShapesError::DegenerateShape", "Intersect");
    EXPECT_FALSE(result);
    ExpectFailed(rectangle->Intersect(touching.get(), luxCopyShapeAll, result.Out()), e_LuxShape_DegenerateShape,
                 "ccShapesError::DegenerateShape", "Intersect");
    auto wide = NewRectangle(0, 0, 10, 1);
    ExpectFailed(rectangle->Erode(wide.get(), luxCopyShapeAll, result.Out()), e_LuxShape_DegenerateShape,
                 "ccShapesError::DegenerateShape", "Erode");
    ASSERT_EQ(rectangle->Union(apart.get(), luxCopyShapeAll, result.Out()), S_OK);
    EXPECT_EQ(Params(result.get()), (RectParams{0, 0, 21, 21}));
    for (const char* method : {"Intersect", "Dilate", "Erode", "Union"}) {
        HRESULT hr = E_FAIL;
        if (method == std::string_view("Intersect")) hr = rectangle->Intersect(nullptr, luxCopyShapeAll, result.Out());
        if (method == std::string_view("Dilate")) hr = rectangle->Dilate(nullptr, luxCopyShapeAll, result.Out());
        if (method == std::string_view("Erode")) hr = rectangle->Erode(nullptr, luxCopyShapeAll, result.Out());
        if (method == std::string_view("Union")) hr = rectangle->Union(nullptr, luxCopyShapeAll, result.Out());
        ExpectRefused(hr, E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"Other"}, method);
    }
    EXPECT_EQ(Params(rectangle.get()), (RectParams{0, 0, 10, 10}));
}

TEST_F(RectangleTest, CopyFlagsSelectGraphicsAndTheDOFMaskAndGeometryOnlyGivesDefaults) {
    auto rectangle = NewRectangle(1, 2, 3, 4);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(g->put_Color(0x42), S_OK);
    ASSERT_EQ(g->put_TipText(Bstr("tip").get()), S_OK);
    ASSERT_EQ(g->put_Interactive(VARIANT_TRUE), S_OK);
    ASSERT_EQ(g->put_DragLineWidthInScreenPixels(5), S_OK);
    ASSERT_EQ(rectangle->put_GraphicDOFEnable(luxRectangleDOFSize), S_OK);

    struct Expected {
        int32_t flags;
        LONG color, dragWidth, dof;
        VARIANT_BOOL interactive;
    };
    for (const Expected& e : {Expected{luxCopyShapeGeometryOnly, luxColorCyan, 1, -1, VARIANT_FALSE},
                              Expected{luxCopyShapeBasicGraphics, 0x42, 5, -1, VARIANT_TRUE},
                              Expected{luxCopyShapeDOFs, luxColorCyan, 1, luxRectangleDOFSize, VARIANT_FALSE},
                              Expected{luxCopyShapeChildren, luxColorCyan, 1, -1, VARIANT_FALSE},
                              Expected{luxCopyShapeAll, 0x42, 5, luxRectangleDOFSize, VARIANT_TRUE}}) {
        SCOPED_TRACE(e.flags);
        ComPtr<ILuxRectangle> copy;
        ASSERT_EQ(rectangle->Copy(static_cast<LuxCopyShapeConstants>(e.flags), copy.Out()), S_OK);
        EXPECT_EQ(Params(copy.get()), (RectParams{1, 2, 3, 4}));
        EXPECT_EQ(SpaceName(copy.get()), "Fixture");
        auto cg = As<ILuxGraphicInteractive>(copy.get());
        LONG color = 0, dragWidth = 0, dof = 0;
        VARIANT_BOOL interactive = 0;
        cg->get_Color(&color);
        cg->get_DragLineWidthInScreenPixels(&dragWidth);
        cg->get_GraphicDOFEnableBase(&dof);
        cg->get_Interactive(&interactive);
        EXPECT_EQ(color, e.color);
        EXPECT_EQ(dragWidth, e.dragWidth);
        EXPECT_EQ(dof, e.dof);
        EXPECT_EQ(interactive, e.interactive);
        Bstr tip;
        cg->get_TipText(tip.Out());
        EXPECT_EQ(tip.str(), e.color == 0x42 ? "tip" : "");
    }
    // Clone copies everything, and the copy is independent.
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(rectangle.get())->Clone(clone.Out()), S_OK);
    auto cloned = As<ILuxRectangle>(clone.get());
    EXPECT_EQ(Params(cloned.get()), (RectParams{1, 2, 3, 4}));
    LONG dof = 0;
    As<ILuxGraphicInteractive>(cloned.get())->get_GraphicDOFEnableBase(&dof);
    EXPECT_EQ(dof, luxRectangleDOFSize);
    ASSERT_EQ(cloned->put_X(100), S_OK);
    EXPECT_EQ(Params(rectangle.get())[0], 1);
}

TEST_F(RectangleTest, MapTakesLinearTransformsOnlyAndKeepsTheSpaceName) {
    auto rectangle = NewRectangle(1, 2, 3, 4);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Part").get()), S_OK);
    auto scale = Linear(2, 0, 0, -1, 10, 0);  // a mirror image along y stays a rectangle
    ComPtr<ILuxShape> mapped;
    ASSERT_EQ(rectangle->Map(As<ILuxTransform2D>(scale.get()).get(), luxCopyShapeGeometryOnly, mapped.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(mapped.get()).get()), (RectParams{12, -6, 6, 4}));
    EXPECT_EQ(SpaceName(mapped.get()), "Part");
    ASSERT_EQ(rectangle->MapLinear(scale.get(), luxCopyShapeAll, mapped.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(mapped.get()).get()), (RectParams{12, -6, 6, 4}));

    // A composition of linear transforms is linear.
    auto composed = Make<ILuxTransform2DComposed>("Tessaly.LuxTransform2DComposed");
    ASSERT_EQ(composed->PushOntoRight(As<ILuxTransform2D>(scale.get()).get(), VARIANT_TRUE), S_OK);
    ASSERT_EQ(composed->PushOntoRight(As<ILuxTransform2D>(Linear(1, 0, 0, 1, 1, 1).get()).get(), VARIANT_TRUE), S_OK);
    ASSERT_EQ(rectangle->Map(As<ILuxTransform2D>(composed.get()).get(), luxCopyShapeAll, mapped.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangle>(mapped.get()).get()), (RectParams{14, -7, 6, 4}));

    auto bend = BendTransform::Make(0.1);
    ExpectFailed(rectangle->Map(bend.get(), luxCopyShapeAll, mapped.Out()), e_LuxTransform_NotLinear, "NonlinearXform",
                 "Map");
    EXPECT_FALSE(mapped);
    ExpectRefused(rectangle->Map(nullptr, luxCopyShapeAll, mapped.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "Map");
    ExpectRefused(rectangle->MapLinear(nullptr, luxCopyShapeAll, mapped.Out()), E_INVALIDARG,
                  ids_Lux_InvalidArgNull_1, {"Transform"}, "MapLinear");
    auto singular = Linear(1, 0, 0, 0, 0, 0);
    ExpectFailed(rectangle->MapLinear(singular.get(), luxCopyShapeAll, mapped.Out()), e_LuxShape_DegenerateShape,
                 "ccShapesError::DegenerateShape", "MapLinear");
    EXPECT_EQ(Params(rectangle.get()), (RectParams{1, 2, 3, 4}));
}

TEST_F(RectangleTest, ARotatedRectangleMapsToAnAffineRectangle) {
    ComPtr<ILuxRectangleAffine> probe;
    if (FAILED(CreateObject("Tessaly.LuxRectangleAffine", ILuxRectangleAffine::iid, probe.OutVoid())))
        GTEST_SKIP() << "LuxRectangleAffine is not in the class table";
    auto rectangle = NewRectangle(0, 0, 4, 2);
    auto quarterTurn = Linear(0, -1, 1, 0, 0, 0);
    ComPtr<ILuxShape> mapped;
    ASSERT_EQ(rectangle->MapLinear(quarterTurn.get(), luxCopyShapeAll, mapped.Out()), S_OK);
    auto affine = As<ILuxRectangleAffine>(mapped.get());
    ASSERT_TRUE(affine);
    double o[6] = {};
    ASSERT_EQ(affine->GetOriginCornerXCornerY(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5]), S_OK);
    EXPECT_NEAR(o[0], 0, 1e-12);
    EXPECT_NEAR(o[1], 0, 1e-12);
    EXPECT_NEAR(o[2], 0, 1e-12);  // CornerX: (4, 0) turned
    EXPECT_NEAR(o[3], 4, 1e-12);
    EXPECT_NEAR(o[4], -2, 1e-12);  // CornerY: (0, 2) turned
    EXPECT_NEAR(o[5], 0, 1e-12);
}

TEST_F(RectangleTest, EnclosingRectangleDistanceAndFitToBoundingBox) {
    auto rectangle = NewRectangle(1, 2, 3, 4);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Part").get()), S_OK);
    ComPtr<ILuxRectangle> box;
    ASSERT_EQ(rectangle->EnclosingRectangle(luxCopyShapeGeometryOnly, box.Out()), S_OK);
    EXPECT_EQ(Params(box.get()), (RectParams{1, 2, 3, 4}));
    EXPECT_EQ(SpaceName(box.get()), "Part");
    EXPECT_NE(As<IUnknown>(box.get()).get(), As<IUnknown>(rectangle.get()).get());
    double distance = 0;
    ASSERT_EQ(rectangle->DistanceToPoint(0, 2, &distance), S_OK);
    EXPECT_EQ(distance, 1);

    auto log = Listen(rectangle.get());
    auto target = NewRectangle(-5, -6, 7, 8);
    ASSERT_EQ(rectangle->FitToBoundingBox(target.get()), S_OK);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{-5, -6, 7, 8}));
    ASSERT_EQ(rectangle->FitToBoundingBox(target.get()), S_OK);  // already there
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    ExpectRefused(rectangle->FitToBoundingBox(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"BoundingRectangle"},
                  "FitToBoundingBox");
    EXPECT_EQ(log->changes.size(), 1u);
}

TEST_F(RectangleTest, FitToImageTakesThePixelRectangleInTheShapesSpaceScaledAboutItsCentre) {
    auto image = NewImage(640, 480);
    auto imageBase = As<ILuxImage>(image.get());
    auto rectangle = NewRectangle();
    auto log = Listen(rectangle.get());
    ASSERT_EQ(rectangle->FitToImage(imageBase.get(), 0.5, 0.25), S_OK);
    EXPECT_EQ(Params(rectangle.get()), (RectParams{160, 180, 320, 120}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);

    // A space in which a pixel is 0.1 units wide and (0, 0) lies at pixel (100, 50).
    ComPtr<ILuxCoordinateSpaceTree> tree;
    ASSERT_EQ(imageBase->get_CoordinateSpaceTree(tree.Out()), S_OK);
    auto rootFromMm = Linear(10, 0, 0, 10, 100, 50);
    ASSERT_EQ(AddSpace(tree.get(), "mm", rootFromMm.get()), S_OK);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("mm").get()), S_OK);
    ASSERT_EQ(rectangle->FitToImage(imageBase.get(), 1, 1), S_OK);
    const RectParams fitted = Params(rectangle.get());
    const RectParams expected{-10, -5, 64, 48};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(fitted[i], expected[i], 1e-12) << i;
    // "." is the image's selected space.
    ASSERT_EQ(imageBase->put_SelectedSpaceName(Bstr("mm").get()), S_OK);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr(".").get()), S_OK);
    ASSERT_EQ(rectangle->SetXYWidthHeight(0, 0, 1, 1), S_OK);
    ASSERT_EQ(rectangle->FitToImage(imageBase.get(), 1, 1), S_OK);
    EXPECT_NEAR(Params(rectangle.get())[2], 64, 1e-12);

    log->changes.clear();
    const RectParams before = Params(rectangle.get());
    ExpectRefused(rectangle->FitToImage(nullptr, 1, 1), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"Image"},
                  "FitToImage");
    ExpectRefused(rectangle->FitToImage(imageBase.get(), 0, 1), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"XScale"}, "FitToImage");
    ExpectRefused(rectangle->FitToImage(imageBase.get(), 1, -2), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"YScale"}, "FitToImage");
    auto empty = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    EXPECT_EQ(rectangle->FitToImage(As<ILuxImage>(empty.get()).get(), 1, 1), e_LuxImage_NoPixels);
    EXPECT_EQ(TakeErrorInfo().source, "FitToImage");
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Nowhere").get()), S_OK);
    log->changes.clear();
    EXPECT_EQ(rectangle->FitToImage(imageBase.get(), 1, 1), e_LuxSpaceTree_NotInTree);
    EXPECT_EQ(Params(rectangle.get()), before);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(RectangleTest, PersistenceRoundTripsEveryPropertyInBothFormats) {
    auto rectangle = NewRectangle(1.5, -2.25, 3, 1e-3);
    auto g = As<ILuxGraphicInteractive>(rectangle.get());
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(g->put_Visible(VARIANT_FALSE), S_OK);
    ASSERT_EQ(g->put_Color(luxColorNone), S_OK);
    ASSERT_EQ(g->put_LineStyle(luxGraphicLineStyleDot), S_OK);
    ASSERT_EQ(g->put_LineWidthInScreenPixels(2), S_OK);
    ASSERT_EQ(g->put_Interactive(VARIANT_TRUE), S_OK);
    ASSERT_EQ(g->put_Selected(VARIANT_TRUE), S_OK);
    ASSERT_EQ(g->put_SelectedColor(0x10), S_OK);
    ASSERT_EQ(g->put_SelectedLineStyle(luxGraphicLineStyleDash), S_OK);
    ASSERT_EQ(g->put_SelectedLineWidthInScreenPixels(3), S_OK);
    ASSERT_EQ(g->put_DragColor(0x20), S_OK);
    ASSERT_EQ(g->put_DragLineStyle(luxGraphicLineStyleDashDot), S_OK);
    ASSERT_EQ(g->put_DragLineWidthInScreenPixels(4), S_OK);
    ASSERT_EQ(g->put_TipText(Bstr("Gate \xC3\xA9").get()), S_OK);
    ASSERT_EQ(rectangle->put_GraphicDOFEnable(luxRectangleDOFPosition), S_OK);

    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(rectangle.get()).get(), format, luxPersistOptionAll, &bytes),
                  S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxRectangle>(object.get());
        EXPECT_EQ(Params(loaded.get()), Params(rectangle.get()));
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
        auto lg = As<ILuxGraphicInteractive>(loaded.get());
        VARIANT_BOOL b[3] = {};
        LONG n[8] = {};
        LuxGraphicLineStyleConstants st[3] = {};
        lg->get_Visible(&b[0]);
        lg->get_Interactive(&b[1]);
        lg->get_Selected(&b[2]);
        lg->get_Color(&n[0]);
        lg->get_LineWidthInScreenPixels(&n[1]);
        lg->get_SelectedColor(&n[2]);
        lg->get_SelectedLineWidthInScreenPixels(&n[3]);
        lg->get_DragColor(&n[4]);
        lg->get_DragLineWidthInScreenPixels(&n[5]);
        lg->get_GraphicDOFEnableBase(&n[6]);
        lg->get_LineStyle(&st[0]);
        lg->get_SelectedLineStyle(&st[1]);
        lg->get_DragLineStyle(&st[2]);
        EXPECT_EQ(b[0], VARIANT_FALSE);
        EXPECT_EQ(b[1], VARIANT_TRUE);
        EXPECT_EQ(b[2], VARIANT_TRUE);
        EXPECT_EQ((std::vector<LONG>{n[0], n[1], n[2], n[3], n[4], n[5], n[6]}),
                  (std::vector<LONG>{-1, 2, 0x10, 3, 0x20, 4, luxRectangleDOFPosition}));
        EXPECT_EQ(st[0], luxGraphicLineStyleDot);
        EXPECT_EQ(st[1], luxGraphicLineStyleDash);
        EXPECT_EQ(st[2], luxGraphicLineStyleDashDot);
        Bstr tip;
        lg->get_TipText(tip.Out());
        EXPECT_EQ(tip.str(), "Gate \xC3\xA9");
        VARIANT_BOOL changed = VARIANT_TRUE;
        As<ILuxPersistArchive>(loaded.get())->get_HasChanged(&changed);
        EXPECT_EQ(changed, VARIANT_FALSE);
    }
}

TEST_F(RectangleTest, TheCommonKeysComeFirstInTheirOrderAndBadStoredValuesAreRefused) {
    auto rectangle = NewRectangle(1, 2, 3, 4);
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(rectangle.get()).get(), luxPersistFormatXML, luxPersistOptionAll,
                                      &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    const char* order[] = {"<SelectedSpaceName>", "<Visible ", "<Color ", "<LineStyle ", "<LineWidthInScreenPixels ",
                           "<Interactive ", "<Selected ", "<SelectedColor ", "<SelectedLineStyle ",
                           "<SelectedLineWidthInScreenPixels ", "<DragColor ", "<DragLineStyle ",
                           "<DragLineWidthInScreenPixels ", "<TipText", "<GraphicDOFEnable ", "<X ", "<Y ", "<Width ",
                           "<Height "};
    size_t at = 0;
    for (const char* key : order) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
    EXPECT_EQ(xml.find("MouseCursor"), std::string::npos);

    // Values the properties do not take, written into the archive, are refused on load.
    const std::pair<const char*, const char*> edits[] = {
        {"<Width dt:dt=\"r8\">3<", "<Width dt:dt=\"r8\">0<"},
        {"<Height dt:dt=\"r8\">4<", "<Height dt:dt=\"r8\">-4<"},
        {"<LineStyle dt:dt=\"i4\">0<", "<LineStyle dt:dt=\"i4\">9<"},
        {"<DragLineWidthInScreenPixels dt:dt=\"i4\">1<", "<DragLineWidthInScreenPixels dt:dt=\"i4\">0<"},
        {"<SelectedSpaceName>.<", "<SelectedSpaceName> x<"},
        {"<X dt:dt=\"r8\">1<", "<X>one<"},
    };
    for (const auto& [from, to] : edits) {
        std::string bad = xml;
        const size_t value = bad.find(from);
        ASSERT_NE(value, std::string::npos) << from;
        bad.replace(value, std::string_view(from).size(), to);
        ComPtr<IDispatch> object;
        const std::vector<uint8_t> badBytes(bad.begin(), bad.end());
        const HRESULT hr = LoadObjectFromBytes(badBytes, luxPersistFormatXML, object.Out());
        EXPECT_EQ(hr, e_Lux_BadFileFormat) << to;
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find("ccArchive::Bad"), std::string::npos) << to << ": " << error.description;
        EXPECT_FALSE(object);
    }
}

TEST_F(RectangleTest, ReadersOnOtherThreadsSeeWholeRectanglesOnly) {
    auto rectangle = NewRectangle(0, 0, 10, 10);
    const RectParams first{0, 0, 10, 10};
    const RectParams second{5, 5, 20, 20};
    std::atomic<bool> done{false};
    std::atomic<int> torn{0};
    std::thread reader([&] {
        while (!done.load()) {
            RectParams p{};
            rectangle->GetXYWidthHeight(&p[0], &p[1], &p[2], &p[3]);
            Bstr name;
            rectangle->get_SelectedSpaceName(name.Out());
            if ((p != first && p != second) || (name.str() != "." && name.str() != "@\\Fixture\\Part")) ++torn;
        }
    });
    for (int i = 0; i < 20000; ++i) {
        const RectParams& p = i % 2 ? first : second;
        ASSERT_EQ(rectangle->SetXYWidthHeight(p[0], p[1], p[2], p[3]), S_OK);
        ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr(i % 2 ? "." : "@\\Fixture\\Part").get()), S_OK);
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn.load(), 0);
}

}  // namespace
}  // namespace tessaly::test
