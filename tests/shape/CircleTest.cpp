// LuxCircle: its defaults and derived values, one Change a call, refusals that keep the
// circle and raise nothing, its mask against a pixel-by-pixel centre test, MapLinear and Map
// into a LuxEllipse, copy flags, fitting, and persistence with the loads it refuses.
#include <cmath>
#include <numbers>
#include <set>
#include <utility>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "shape/ShapeFixture.h"
#include "transform/TransformFixture.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr const char* kInvalidRadius = "ccQvShapesError::InvalidRadius";

using CircleParams = std::array<double, 3>;  // CenterX, CenterY, Radius
using Pixels = std::set<std::pair<LONG, LONG>>;

class CircleTest : public ShapeFixture {
public:
    static ComPtr<ILuxCircle> NewCircle() { return Make<ILuxCircle>("Tessaly.LuxCircle"); }
    static ComPtr<ILuxCircle> NewCircle(double cx, double cy, double r) {
        auto circle = NewCircle();
        EXPECT_EQ(circle->SetCenterRadius(cx, cy, r), S_OK);
        return circle;
    }
    static CircleParams Params(ILuxCircle* circle) {
        CircleParams p{};
        EXPECT_EQ(circle->GetCenterRadius(&p[0], &p[1], &p[2]), S_OK);
        return p;
    }
    static std::array<double, 5> Params(ILuxEllipse* ellipse) {
        std::array<double, 5> p{};
        EXPECT_EQ(ellipse->GetCenterXYRadiusXYRotation(&p[0], &p[1], &p[2], &p[3], &p[4]), S_OK);
        return p;
    }
    static Pixels MaskOf(IUnknown* region) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(As<ILuxRegion>(region)->CreateRLE(255, 0, rle.Out()), S_OK);
        Pixels pixels;
        if (!rle) return pixels;
        LONG x = 0, y = 0, width = 0, height = 0;
        rle->get_X(&x);
        rle->get_Y(&y);
        rle->get_Width(&width);
        rle->get_Height(&height);
        for (LONG j = 0; j < height; ++j)
            for (LONG i = 0; i < width; ++i) {
                LONG value = -1;
                EXPECT_EQ(rle->get_Pixel(x + i, y + j, &value), S_OK);
                if (value == 255) pixels.insert({x + i, y + j});
                else EXPECT_EQ(value, 0);
            }
        return pixels;
    }
    // The pixels whose centres lie inside the circle; those whose centres lie so close to
    // the circle that rounding could decide are left out of both sets.
    static void ExpectMaskIsCentresInside(ILuxCircle* circle) {
        const CircleParams p = Params(circle);
        Pixels expected, unsure;
        for (LONG j = LONG(std::floor(p[1] - p[2])) - 2; j <= LONG(std::ceil(p[1] + p[2])) + 2; ++j)
            for (LONG i = LONG(std::floor(p[0] - p[2])) - 2; i <= LONG(std::ceil(p[0] + p[2])) + 2; ++i) {
                const long double dx = i + 0.5L - p[0], dy = j + 0.5L - p[1];
                const long double d = std::sqrt(dx * dx + dy * dy) - p[2];
                if (std::fabs(d) < 1e-9L) unsure.insert({i, j});
                else if (d < 0) expected.insert({i, j});
            }
        Pixels got = MaskOf(circle);
        for (const auto& pixel : unsure) got.erase(pixel);
        EXPECT_EQ(got, expected);
    }
};

TEST_F(CircleTest, ANewCircleAndItsDerivedValues) {
    auto circle = NewCircle();
    EXPECT_EQ(Params(circle.get()), (CircleParams{50, 50, 50}));
    EXPECT_EQ(SpaceName(circle.get()), ".");
    double area = 0, perimeter = 0;
    ASSERT_EQ(circle->get_Area(&area), S_OK);
    ASSERT_EQ(circle->get_Perimeter(&perimeter), S_OK);
    EXPECT_NEAR(area, kPi * 2500, 1e-9);
    EXPECT_NEAR(perimeter, kPi * 100, 1e-12);
    LuxCircleDOFConstants dof{};
    ASSERT_EQ(circle->get_GraphicDOFEnable(&dof), S_OK);
    EXPECT_EQ(dof, luxCircleDOFAll);
    // Inside the pixels of a new LuxRectangle (0, 0, 100, 100).
    const Pixels mask = MaskOf(circle.get());
    ASSERT_FALSE(mask.empty());
    for (const auto& [x, y] : mask) {
        EXPECT_TRUE(x >= 0 && x < 100 && y >= 0 && y < 100) << x << "," << y;
    }
    ExpectMaskIsCentresInside(circle.get());
}


TEST_F(CircleTest, SettersRaiseTheirStateIdsAndSeveralChangesRaiseOneEvent) {
    auto circle = NewCircle(1, 2, 3);
    auto log = Listen(circle.get());
    ASSERT_EQ(circle->put_CenterX(4), S_OK);
    ASSERT_EQ(circle->put_CenterX(4), S_OK);  // the same value: nothing
    ASSERT_EQ(circle->put_CenterY(-5), S_OK);
    ASSERT_EQ(circle->put_Radius(0.25), S_OK);
    ASSERT_EQ(circle->SetCenterRadius(4, -5, 7), S_OK);  // only the radius differs
    ASSERT_EQ(circle->SetCenterRadius(4, -5, 7), S_OK);  // nothing differs
    ASSERT_EQ(circle->SetCenterRadius(9, -5, 8), S_OK);  // two differ
    const std::pair<int32_t, double> expected[] = {
        {luxCircle_CenterX, 4}, {luxCircle_CenterY, -5}, {luxCircle_Radius, 0.25}, {luxCircle_Radius, 7}};
    ASSERT_EQ(log->changes.size(), 5u);
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(log->changes[i].stateId, expected[i].first);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
        ASSERT_EQ(log->changes[i].value.get().vt, VT_R8);
        EXPECT_EQ(log->changes[i].value.get().dblVal, expected[i].second);
    }
    EXPECT_EQ(log->changes[4].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[4].areas, luxFA_Shape_Geometry);
    EXPECT_EQ(Params(circle.get()), (CircleParams{9, -5, 8}));

    // The DOF mask is a DOF setting; the colour a graphic one.
    log->changes.clear();
    ASSERT_EQ(circle->put_GraphicDOFEnable(luxCircleDOFRadius), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(circle.get())->put_Color(luxColorRed), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxCircle_GraphicDOFEnable);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_DegreesOfFreedom);
    EXPECT_EQ(log->changes[1].stateId, luxCircle_Color);
    EXPECT_EQ(log->changes[1].areas, luxFA_Shape_Graphic);
}

TEST_F(CircleTest, InvalidValuesAreRefusedLeavingTheCircleAndRaisingNothing) {
    const CircleParams start{10, 20, 30};
    auto circle = NewCircle(start[0], start[1], start[2]);
    auto log = Listen(circle.get());
    for (double bad : {0.0, -0.0, -1.0, -1e-300, double(NAN)}) {
        SCOPED_TRACE(bad);
        ExpectFailed(circle->put_Radius(bad), E_INVALIDARG, kInvalidRadius, "put_Radius");
        ExpectFailed(circle->SetCenterRadius(1, 1, bad), E_INVALIDARG, kInvalidRadius, "SetCenterRadius");
    }
    // The radius is checked before the centre.
    ExpectFailed(circle->SetCenterRadius(INFINITY, 1, 0), E_INVALIDARG, kInvalidRadius, "SetCenterRadius");
    ExpectRefused(circle->put_Radius(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Radius"}, "put_Radius");
    ExpectRefused(circle->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    ExpectRefused(circle->put_CenterY(-INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"},
                  "put_CenterY");
    ExpectRefused(circle->SetCenterRadius(1, NAN, 2), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"},
                  "SetCenterRadius");
    EXPECT_EQ(Params(circle.get()), start);
    EXPECT_TRUE(log->changes.empty());
    EXPECT_EQ(circle->GetCenterRadius(nullptr, nullptr, nullptr), E_POINTER);
    // The smallest radius is fine.
    EXPECT_EQ(circle->put_Radius(1e-300), S_OK);
}

TEST_F(CircleTest, CreateRLEHoldsExactlyThePixelsWhoseCentresAreInside) {
    const CircleParams circles[] = {{0, 0, 1}, {10.5, 10.5, 0.5}, {3.25, -7.75, 6.3}, {-100.1, 40.9, 17.77},
                                    {1000, 2000, 0.2}, {5, 5, 5}};
    for (const CircleParams& c : circles) {
        SCOPED_TRACE(testing::Message() << c[0] << "," << c[1] << "," << c[2]);
        ExpectMaskIsCentresInside(NewCircle(c[0], c[1], c[2]).get());
    }
    // A circle too small to hold a pixel centre has an empty mask.
    EXPECT_TRUE(MaskOf(NewCircle(0.1, 0.1, 0.3).get()).empty());
}

TEST_F(CircleTest, MapLinearAndMapGiveAnEllipseCarryingWhatTheCopyFlagsSelect) {
    auto circle = NewCircle(1, 2, 3);
    ASSERT_EQ(circle->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(circle.get())->put_Color(0x42), S_OK);
    ASSERT_EQ(circle->put_GraphicDOFEnable(luxCircleDOFRadius), S_OK);
    // Stretched along x by 2, moved by (10, 20): centre (12, 22), radii 6 and 3.
    auto stretch = Linear(2, 0, 0, 1, 10, 20);
    const auto check = [&](ILuxEllipse* ellipse, int32_t flags) {
        SCOPED_TRACE(flags);
        ASSERT_TRUE(ellipse);
        const auto p = Params(ellipse);
        EXPECT_NEAR(p[0], 12, 1e-12);
        EXPECT_NEAR(p[1], 22, 1e-12);
        EXPECT_NEAR(p[2], 6, 1e-12);
        EXPECT_NEAR(p[3], 3, 1e-12);
        EXPECT_NEAR(std::sin(p[4]), 0, 1e-12);  // the x-axis, either way round
        EXPECT_EQ(SpaceName(ellipse), "Fixture");
        LONG color = 0, dof = 0;
        As<ILuxGraphic>(ellipse)->get_Color(&color);
        As<ILuxGraphicInteractive>(ellipse)->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(color, (flags & luxCopyShapeBasicGraphics) ? 0x42 : luxColorCyan);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? int32_t{luxCircleDOFRadius} : int32_t{luxEllipseDOFAll});
    };
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        ComPtr<ILuxEllipse> ellipse;
        ASSERT_EQ(circle->MapLinear(stretch.get(), f, ellipse.Out()), S_OK);
        check(ellipse.get(), flags);
        ComPtr<ILuxShape> mapped;
        ASSERT_EQ(circle->Map(As<ILuxTransform2D>(stretch.get()).get(), f, mapped.Out()), S_OK);
        check(As<ILuxEllipse>(mapped.get()).get(), flags);
    }
    // Even the identity gives an ellipse, with the circle's numbers.
    ComPtr<ILuxEllipse> same;
    ASSERT_EQ(circle->MapLinear(Linear(1, 0, 0, 1, 0, 0).get(), luxCopyShapeGeometryOnly, same.Out()), S_OK);
    const auto p = Params(same.get());
    EXPECT_EQ(p[0], 1);
    EXPECT_EQ(p[1], 2);
    EXPECT_NEAR(p[2], 3, 1e-12);
    EXPECT_NEAR(p[3], 3, 1e-12);

    ComPtr<ILuxEllipse> result;
    ExpectRefused(circle->MapLinear(nullptr, luxCopyShapeAll, result.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    ExpectFailed(circle->MapLinear(Linear(1, 2, 2, 4, 0, 0).get(), luxCopyShapeAll, result.Out()),
                 e_LuxShape_DegenerateShape, "ccShapesError::DegenerateShape", "MapLinear");
    EXPECT_FALSE(result);
    ComPtr<ILuxShape> mapped;
    ExpectFailed(circle->Map(BendTransform::Make(0.1).get(), luxCopyShapeAll, mapped.Out()), e_LuxTransform_NotLinear,
                 "NonlinearXform", "Map");
    EXPECT_FALSE(mapped);
    EXPECT_EQ(Params(circle.get()), (CircleParams{1, 2, 3}));
}

TEST_F(CircleTest, CopyAndCloneAreIndependentAndCarryWhatTheFlagsSelect) {
    auto circle = NewCircle(-1, 5, 2.5);
    ASSERT_EQ(As<ILuxGraphic>(circle.get())->put_Color(luxColorGreen), S_OK);
    ASSERT_EQ(circle->put_GraphicDOFEnable(luxCircleDOFPosition), S_OK);
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        SCOPED_TRACE(flags);
        ComPtr<ILuxCircle> copy;
        ASSERT_EQ(circle->Copy(static_cast<LuxCopyShapeConstants>(flags), copy.Out()), S_OK);
        EXPECT_EQ(Params(copy.get()), Params(circle.get()));
        LONG color = 0;
        LuxCircleDOFConstants dof{};
        As<ILuxGraphic>(copy.get())->get_Color(&color);
        copy->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(color, (flags & luxCopyShapeBasicGraphics) ? luxColorGreen : luxColorCyan);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxCircleDOFPosition : luxCircleDOFAll);
        ASSERT_EQ(copy->put_Radius(99), S_OK);
        EXPECT_EQ(Params(circle.get())[2], 2.5);
    }
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(circle.get())->Clone(clone.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxCircle>(clone.get()).get()), Params(circle.get()));
    EXPECT_EQ(circle->Copy(luxCopyShapeAll, nullptr), E_POINTER);
}

TEST_F(CircleTest, FitToBoundingBoxAndFitToImageTakeTheLargestCircleInTheBox) {
    auto circle = NewCircle();
    auto log = Listen(circle.get());
    ASSERT_EQ(circle->FitToBoundingBox(NewRectangle(-5, -6, 7, 8).get()), S_OK);
    EXPECT_EQ(Params(circle.get()), (CircleParams{-1.5, -2, 3.5}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    auto image = NewImage(640, 480);
    ASSERT_EQ(circle->FitToImage(As<ILuxImage>(image.get()).get(), 0.5, 1), S_OK);
    EXPECT_EQ(Params(circle.get()), (CircleParams{320, 240, 160}));

    log->changes.clear();
    ExpectRefused(circle->FitToBoundingBox(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"BoundingRectangle"},
                  "FitToBoundingBox");
    EXPECT_EQ(Params(circle.get()), (CircleParams{320, 240, 160}));
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircleTest, DragStopMovesTheCircleOnlyWhenItsPositionIsFree) {
    auto circle = NewCircle(1, 2, 3);
    auto log = Listen(circle.get());
    auto graphic = As<ILuxGraphicInteractive>(circle.get());
    ASSERT_EQ(graphic->DragStop(0, 0, 4, -1, VARIANT_TRUE, VARIANT{}), S_OK);
    EXPECT_EQ(Params(circle.get()), (CircleParams{5, 1, 3}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    ASSERT_EQ(log->stopped.size(), 1u);
    ASSERT_EQ(circle->put_GraphicDOFEnable(luxCircleDOFRadius), S_OK);
    log->changes.clear();
    ASSERT_EQ(graphic->DragStop(0, 0, 4, -1, VARIANT_TRUE, VARIANT{}), S_OK);
    EXPECT_EQ(Params(circle.get()), (CircleParams{5, 1, 3}));
    EXPECT_TRUE(log->changes.empty());
    EXPECT_EQ(log->stopped.size(), 2u);
    log->stopped.clear();  // the circle itself: held here, it would outlive the test
}

TEST_F(CircleTest, MakeShapeModelIsNotAvailable) {
    auto circle = NewCircle();
    auto log = Listen(circle.get());
    ComPtr<IDispatch> model;
    ExpectFailed(circle->MakeShapeModel(1.0, 0, VARIANT_TRUE, model.Out()), e_Lux_NotImplemented, "shape models",
                 "MakeShapeModel");
    EXPECT_FALSE(model);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircleTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto circle = NewCircle(-3.25, 1e-7, 1234.5);
    ASSERT_EQ(circle->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(circle.get())->put_Color(luxColorPurple), S_OK);
    ASSERT_EQ(circle->put_GraphicDOFEnable(luxCircleDOFRadius), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(circle.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxCircle>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), Params(circle.get()));
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
        LONG color = 0;
        LuxCircleDOFConstants dof{};
        As<ILuxGraphic>(loaded.get())->get_Color(&color);
        loaded->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(color, luxColorPurple);
        EXPECT_EQ(dof, luxCircleDOFRadius);
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(circle.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "GraphicDOFEnable", "<CenterX ", "<CenterY ", "<Radius "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(CircleTest, LoadsOfInvalidGeometryAreRefusedAndLeaveTheCircleAsItWas) {
    const CircleParams start{1, 2, 3};
    auto circle = NewCircle(start[0], start[1], start[2]);
    auto log = Listen(circle.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {{"CenterX", 7}, {"CenterY", 8}, {"Radius", 9}};
        for (const auto& [name, number] : good)
            archive->AddEntry(name, name == std::string_view(key) ? std::move(value) : Variant(number));
        return As<ILuxPersistArchive>(circle.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"Radius", Variant(0.0)},           {"Radius", Variant(-2.0)},          {"Radius", Variant(double(NAN))},
        {"Radius", Variant(double(INFINITY))}, {"CenterX", Variant(double(NAN))}, {"CenterY", Variant(-double(INFINITY))},
        {"Radius", Variant("wide")},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(circle.get()), start);
    }
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(load("Radius", Variant(0.5)), S_OK);
    EXPECT_EQ(Params(circle.get()), (CircleParams{7, 8, 0.5}));
    ExpectMaskIsCentresInside(circle.get());  // the core follows the loaded numbers
}

}  // namespace
}  // namespace tessaly::test
