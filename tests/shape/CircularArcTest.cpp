// LuxCircularArc: its defaults and derived points, spans kept as given, refusals that keep
// the arc and raise nothing, events and their functional areas, the display settings,
// MapLinear into an elliptical arc, copy flags, CreateCircle, the arc's own bounding box and
// distance, fitting and dragging, and persistence with the loads it refuses.
#include <cmath>
#include <numbers>
#include <utility>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "shape/ShapeFixture.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;

using ArcParams = std::array<double, 5>;  // CenterX, CenterY, Radius, AngleStart, AngleSpan

class CircularArcTest : public ShapeFixture {
public:
    static ComPtr<ILuxCircularArc> NewArc() { return Make<ILuxCircularArc>("Tessaly.LuxCircularArc"); }
    static ComPtr<ILuxCircularArc> NewArc(const ArcParams& p) {
        auto arc = NewArc();
        EXPECT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(p[0], p[1], p[2], p[3], p[4]), S_OK);
        return arc;
    }
    static ArcParams Params(ILuxCircularArc* arc) {
        ArcParams p{};
        EXPECT_EQ(arc->GetCenterRadiusAngleStartAngleSpan(&p[0], &p[1], &p[2], &p[3], &p[4]), S_OK);
        return p;
    }
    using ShapeFixture::Params;
    static std::array<double, 4> StartEnd(ILuxCircularArc* arc) {
        std::array<double, 4> e{};
        EXPECT_EQ(arc->GetStartEnd(&e[0], &e[1], &e[2], &e[3]), S_OK);
        return e;
    }
    static std::array<double, 4> StartEnd(ILuxEllipticalArc* arc) {
        std::array<double, 4> e{};
        EXPECT_EQ(arc->GetStartEnd(&e[0], &e[1], &e[2], &e[3]), S_OK);
        return e;
    }
    static RectParams Enclosing(IUnknown* shape) {
        ComPtr<ILuxRectangle> box;
        EXPECT_EQ(As<ILuxShape>(shape)->EnclosingRectangle(luxCopyShapeGeometryOnly, box.Out()), S_OK);
        return box ? ShapeFixture::Params(box.get()) : RectParams{};
    }
};

void ExpectNear(const std::array<double, 4>& got, const std::array<double, 4>& want, double tolerance) {
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(got[i], want[i], tolerance) << i;
}

TEST_F(CircularArcTest, ANewArcIsTheLowerHalfOfACircleAroundFiftyFifty) {
    auto arc = NewArc();
    EXPECT_EQ(Params(arc.get()), (ArcParams{50, 50, 50, 0, kPi}));
    ExpectNear(StartEnd(arc.get()), {100, 50, 0, 50}, 1e-12);
    double mx = 0, my = 0, length = 0;
    ASSERT_EQ(arc->get_MidpointX(&mx), S_OK);
    ASSERT_EQ(arc->get_MidpointY(&my), S_OK);
    EXPECT_NEAR(mx, 50, 1e-12);
    EXPECT_NEAR(my, 100, 1e-12);  // y grows downwards: the half below the centre
    ASSERT_EQ(arc->get_ArcLength(&length), S_OK);
    EXPECT_NEAR(length, 50 * kPi, 1e-9);
    // The box and the distance are the arc's own, not the full circle's.
    const RectParams box = Enclosing(arc.get());
    const RectParams want{0, 50, 100, 50};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(box[i], want[i], 1e-9) << i;
    double distance = -1;
    ASSERT_EQ(arc->DistanceToPoint(50, 50, &distance), S_OK);
    EXPECT_NEAR(distance, 50, 1e-9);
    ASSERT_EQ(arc->DistanceToPoint(50, 0, &distance), S_OK);  // above: nearest is an end
    EXPECT_NEAR(distance, std::hypot(50, 50), 1e-9);

    LuxCircularArcAdornmentConstants end = luxCircularArcAdornmentArrow;
    LuxCircularArcDirectionAdornmentConstants direction = luxCircularArcDirectionAdornmentArrow;
    LuxCircularArcDisplayModeConstants mode = luxCircularArcDisplayModeScreen;
    double screenRadius = 0;
    ASSERT_EQ(arc->get_StartPointAdornment(&end), S_OK);
    EXPECT_EQ(end, luxCircularArcAdornmentNone);
    end = luxCircularArcAdornmentArrow;
    ASSERT_EQ(arc->get_EndPointAdornment(&end), S_OK);
    EXPECT_EQ(end, luxCircularArcAdornmentNone);
    ASSERT_EQ(arc->get_DirectionAdornment(&direction), S_OK);
    EXPECT_EQ(direction, luxCircularArcDirectionAdornmentNone);
    ASSERT_EQ(arc->get_DisplayMode(&mode), S_OK);
    EXPECT_EQ(mode, luxCircularArcDisplayModeMathematical);
    ASSERT_EQ(arc->get_DisplayedRadiusInScreenPixels(&screenRadius), S_OK);
    EXPECT_EQ(screenRadius, 50);
    EXPECT_EQ(SpaceName(arc.get()), ".");

    // An open shape: no region interface.
    ComPtr<ILuxRegion> region;
    EXPECT_EQ(arc->QueryInterface(IID_ILuxRegion, region.OutVoid()), E_NOINTERFACE);
    EXPECT_FALSE(region);
    // The two arcs number their span and end-point bits the other way round.
    EXPECT_EQ(luxCircularArcDOFArcSpan, 1);
    EXPECT_EQ(luxCircularArcDOFEndPoints, 2);
    EXPECT_EQ(luxEllipticalArcDOFArcSpan, 2);
    EXPECT_EQ(luxEllipticalArcDOFEndPoints, 1);
}

TEST_F(CircularArcTest, SpansAndStartAnglesAreKeptAsGivenAndTheSignGivesTheDirection) {
    auto arc = NewArc({0, 0, 2, 7, 4 * kPi});
    EXPECT_EQ(Params(arc.get()), (ArcParams{0, 0, 2, 7, 4 * kPi}));  // neither normalised
    double length = 0;
    ASSERT_EQ(arc->get_ArcLength(&length), S_OK);
    EXPECT_NEAR(length, 2 * 4 * kPi, 1e-9);  // both turns count
    ExpectNear(StartEnd(arc.get()), {2 * std::cos(7.0), 2 * std::sin(7.0), 2 * std::cos(7.0), 2 * std::sin(7.0)},
               1e-12);

    // -pi is the other half: the midpoint above the centre.
    ASSERT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 1, 0, -kPi), S_OK);
    double my = 0;
    ASSERT_EQ(arc->get_MidpointY(&my), S_OK);
    EXPECT_NEAR(my, -1, 1e-12);
    const RectParams box = Enclosing(arc.get());
    const RectParams want{-1, -1, 2, 1};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(box[i], want[i], 1e-9) << i;
    // A quarter arc from pi/2 back to 0: the box is the quadrant's.
    ASSERT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(10, 20, 4, kPi / 2, -kPi / 2), S_OK);
    const RectParams quarter = Enclosing(arc.get());
    const RectParams wantQuarter{10, 20, 4, 4};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(quarter[i], wantQuarter[i], 1e-9) << i;
    double distance = -1;
    ASSERT_EQ(arc->DistanceToPoint(10 - 4, 20, &distance), S_OK);  // on the circle, off the arc
    EXPECT_NEAR(distance, std::hypot(4, 4), 1e-9);
    // The smallest spans are arcs.
    EXPECT_EQ(arc->put_AngleSpan(1e-300), S_OK);
    EXPECT_EQ(arc->put_AngleSpan(-1e-300), S_OK);
}

TEST_F(CircularArcTest, InvalidGeometryIsRefusedLeavingTheArcAndRaisingNothing) {
    const ArcParams start{10, 20, 30, 0.5, 1.5};
    auto arc = NewArc(start);
    auto log = Listen(arc.get());
    const char* const kSpan = "ccQvShapesError::InvalidAngleSpan";
    const char* const kRadius = "ccQvShapesError::InvalidRadius";
    for (double zero : {0.0, -0.0}) {
        ExpectFailed(arc->put_AngleSpan(zero), E_INVALIDARG, kSpan, "put_AngleSpan");
        ExpectFailed(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 1, 0, zero), E_INVALIDARG, kSpan,
                     "SetCenterRadiusAngleStartAngleSpan");
    }
    for (double bad : {0.0, -1.0, double(NAN)}) {
        ExpectFailed(arc->put_Radius(bad), E_INVALIDARG, kRadius, "put_Radius");
        ExpectFailed(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, bad, 0, 1), E_INVALIDARG, kRadius,
                     "SetCenterRadiusAngleStartAngleSpan");
    }
    const double inf = INFINITY;
    ExpectRefused(arc->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    ExpectRefused(arc->put_CenterY(-inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"}, "put_CenterY");
    ExpectRefused(arc->put_AngleStart(inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"AngleStart"},
                  "put_AngleStart");
    ExpectRefused(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 1, 0, inf), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"AngleSpan"}, "SetCenterRadiusAngleStartAngleSpan");
    for (double bad : {0.0, -3.0, double(NAN), inf})
        ExpectRefused(arc->put_DisplayedRadiusInScreenPixels(bad), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                      {"DisplayedRadiusInScreenPixels"}, "put_DisplayedRadiusInScreenPixels");

    EXPECT_EQ(Params(arc.get()), start);
    LuxCircularArcAdornmentConstants end{};
    arc->get_StartPointAdornment(&end);
    EXPECT_EQ(end, luxCircularArcAdornmentNone);
    double screenRadius = 0;
    arc->get_DisplayedRadiusInScreenPixels(&screenRadius);
    EXPECT_EQ(screenRadius, 50);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircularArcTest, SettersRaiseTheirStateIdsAndFunctionalAreas) {
    auto arc = NewArc();
    auto log = Listen(arc.get());
    ASSERT_EQ(arc->put_CenterX(1.25), S_OK);
    ASSERT_EQ(arc->put_CenterY(-2.5), S_OK);
    ASSERT_EQ(arc->put_Radius(3), S_OK);
    ASSERT_EQ(arc->put_AngleStart(-7), S_OK);
    ASSERT_EQ(arc->put_AngleSpan(4 * kPi), S_OK);
    ASSERT_EQ(arc->put_AngleSpan(4 * kPi), S_OK);  // unchanged: nothing
    ASSERT_EQ(log->changes.size(), 5u);
    const int32_t ids[] = {luxCircularArc_CenterX, luxCircularArc_CenterY, luxCircularArc_Radius,
                           luxCircularArc_AngleStart, luxCircularArc_AngleSpan};
    const double values[] = {1.25, -2.5, 3, -7, 4 * kPi};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
        ASSERT_EQ(log->changes[i].value.vt(), VT_R8);
        EXPECT_EQ(log->changes[i].value.get().dblVal, values[i]);
    }
    // Several at once: one event; one of them: its own ID; none: nothing.
    log->changes.clear();
    ASSERT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 1, 0, 1), S_OK);
    ASSERT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 1, 0, 1), S_OK);
    ASSERT_EQ(arc->SetCenterRadiusAngleStartAngleSpan(0, 0, 2, 0, 1), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[1].stateId, luxCircularArc_Radius);
    for (const ChangeEvent& e : log->changes) EXPECT_EQ(e.areas, luxFA_Shape_Geometry);

    // The display settings are graphic settings.
    log->changes.clear();
    ASSERT_EQ(arc->put_StartPointAdornment(luxCircularArcAdornmentSolidCircle), S_OK);
    ASSERT_EQ(arc->put_EndPointAdornment(luxCircularArcAdornmentSolidSquare), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxCircularArcDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(arc->put_DisplayMode(luxCircularArcDisplayModeScreen), S_OK);
    ASSERT_EQ(arc->put_DisplayedRadiusInScreenPixels(12.5), S_OK);
    ASSERT_EQ(arc->put_DisplayedRadiusInScreenPixels(12.5), S_OK);
    ASSERT_EQ(arc->put_GraphicDOFEnable(
                  static_cast<LuxCircularArcDOFConstants>(luxCircularArcDOFArcSpan | luxCircularArcDOFPosition)),
              S_OK);
    ASSERT_EQ(log->changes.size(), 6u);
    const int32_t graphicIds[] = {luxCircularArc_StartPointAdornment, luxCircularArc_EndPointAdornment,
                                  luxCircularArc_DirectionAdornment, luxCircularArc_DisplayMode,
                                  luxCircularArc_DisplayedRadiusInScreenPixels};
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(log->changes[i].stateId, graphicIds[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Graphic);
    }
    EXPECT_EQ(log->changes[0].value.get().lVal, luxCircularArcAdornmentSolidCircle);
    EXPECT_EQ(log->changes[4].value.get().dblVal, 12.5);
    EXPECT_EQ(log->changes[5].areas, luxFA_Shape_DegreesOfFreedom);
    LuxCircularArcDOFConstants dof{};
    ASSERT_EQ(arc->get_GraphicDOFEnable(&dof), S_OK);
    EXPECT_EQ(dof, luxCircularArcDOFArcSpan | luxCircularArcDOFPosition);
}

TEST_F(CircularArcTest, MapLinearGivesAnEllipticalArcThroughTheMappedPoints) {
    auto arc = NewArc({1, 2, 3, 0.25, 2.0});
    const auto ends = StartEnd(arc.get());
    // Stretched, sheared and mirrored: the ends are the images of the ends, in order.
    const double m[6] = {2, 0.5, 0, -1, 10, 20};
    auto transform = Linear(m[0], m[1], m[2], m[3], m[4], m[5]);
    ComPtr<ILuxEllipticalArc> mapped;
    ASSERT_EQ(arc->MapLinear(transform.get(), luxCopyShapeGeometryOnly, mapped.Out()), S_OK);
    ASSERT_TRUE(mapped);
    const auto image = [&](double x, double y) { return std::pair{m[0] * x + m[1] * y + m[4], m[2] * x + m[3] * y + m[5]}; };
    const auto [sx, sy] = image(ends[0], ends[1]);
    const auto [ex, ey] = image(ends[2], ends[3]);
    ExpectNear(StartEnd(mapped.get()), {sx, sy, ex, ey}, 1e-9);
    double cx = 0, cy = 0;
    mapped->get_CenterX(&cx);
    mapped->get_CenterY(&cy);
    const auto [wx, wy] = image(1, 2);
    EXPECT_NEAR(cx, wx, 1e-12);
    EXPECT_NEAR(cy, wy, 1e-12);
    // Through ILuxShape too.
    ComPtr<ILuxShape> shape;
    ASSERT_EQ(arc->Map(As<ILuxTransform2D>(transform.get()).get(), luxCopyShapeAll, shape.Out()), S_OK);
    EXPECT_TRUE(As<ILuxEllipticalArc>(shape.get()));

    ExpectRefused(arc->MapLinear(nullptr, luxCopyShapeAll, mapped.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    EXPECT_FALSE(mapped);
    ExpectFailed(arc->MapLinear(Linear(1, 2, 2, 4, 0, 0).get(), luxCopyShapeAll, mapped.Out()),
                 e_LuxShape_DegenerateShape, "ccShapesError::DegenerateShape", "MapLinear");
    EXPECT_FALSE(mapped);
}

TEST_F(CircularArcTest, CopiesAndMappedArcsCarryWhatTheCopyFlagsSelect) {
    auto arc = NewArc({1, 2, 3, 0.25, -2.0});
    ASSERT_EQ(arc->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(arc.get())->put_Color(0x42), S_OK);
    ASSERT_EQ(arc->put_StartPointAdornment(luxCircularArcAdornmentArrow), S_OK);
    ASSERT_EQ(arc->put_EndPointAdornment(luxCircularArcAdornmentSolidCircle), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxCircularArcDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(arc->put_DisplayMode(luxCircularArcDisplayModeScreen), S_OK);
    ASSERT_EQ(arc->put_DisplayedRadiusInScreenPixels(7), S_OK);
    ASSERT_EQ(arc->put_GraphicDOFEnable(luxCircularArcDOFBend), S_OK);
    auto shift = Linear(1, 0, 0, 1, 10, 20);
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        SCOPED_TRACE(flags);
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        const LONG wantDof = (flags & luxCopyShapeDOFs) ? luxCircularArcDOFBend : luxCircularArcDOFAll;
        ComPtr<ILuxCircularArc> copy;
        ASSERT_EQ(arc->Copy(f, copy.Out()), S_OK);
        EXPECT_EQ(Params(copy.get()), Params(arc.get()));
        EXPECT_EQ(SpaceName(copy.get()), "Fixture");
        LONG color = 0, dof = 0;
        As<ILuxGraphic>(copy.get())->get_Color(&color);
        As<ILuxGraphicInteractive>(copy.get())->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(color, graphics ? 0x42 : luxColorCyan);
        EXPECT_EQ(dof, wantDof);
        LuxCircularArcAdornmentConstants start{}, end{};
        LuxCircularArcDirectionAdornmentConstants direction{};
        LuxCircularArcDisplayModeConstants mode{};
        double screenRadius = 0;
        copy->get_StartPointAdornment(&start);
        copy->get_EndPointAdornment(&end);
        copy->get_DirectionAdornment(&direction);
        copy->get_DisplayMode(&mode);
        copy->get_DisplayedRadiusInScreenPixels(&screenRadius);
        EXPECT_EQ(start, graphics ? luxCircularArcAdornmentArrow : luxCircularArcAdornmentNone);
        EXPECT_EQ(end, graphics ? luxCircularArcAdornmentSolidCircle : luxCircularArcAdornmentNone);
        EXPECT_EQ(direction, graphics ? luxCircularArcDirectionAdornmentSolidArrow : luxCircularArcDirectionAdornmentNone);
        EXPECT_EQ(mode, graphics ? luxCircularArcDisplayModeScreen : luxCircularArcDisplayModeMathematical);
        EXPECT_EQ(screenRadius, graphics ? 7 : 50);

        // The elliptical arc a map makes takes the adornments it has.
        ComPtr<ILuxEllipticalArc> mapped;
        ASSERT_EQ(arc->MapLinear(shift.get(), f, mapped.Out()), S_OK);
        EXPECT_EQ(SpaceName(mapped.get()), "Fixture");
        LuxEllipticalArcAdornmentConstants mappedStart{}, mappedEnd{};
        LuxEllipticalArcDirectionAdornmentConstants mappedDirection{};
        mapped->get_StartPointAdornment(&mappedStart);
        mapped->get_EndPointAdornment(&mappedEnd);
        mapped->get_DirectionAdornment(&mappedDirection);
        EXPECT_EQ(mappedStart, graphics ? luxEllipticalArcAdornmentArrow : luxEllipticalArcAdornmentNone);
        EXPECT_EQ(mappedEnd, graphics ? luxEllipticalArcAdornmentSolidCircle : luxEllipticalArcAdornmentNone);
        EXPECT_EQ(mappedDirection,
                  graphics ? luxEllipticalArcDirectionAdornmentSolidArrow : luxEllipticalArcDirectionAdornmentNone);
        As<ILuxGraphicInteractive>(mapped.get())->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? LONG{luxCircularArcDOFBend} : LONG{luxEllipticalArcDOFAll});
    }
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(arc.get())->Clone(clone.Out()), S_OK);
    auto cloned = As<ILuxCircularArc>(clone.get());
    EXPECT_EQ(Params(cloned.get()), Params(arc.get()));
    ASSERT_EQ(cloned->put_Radius(100), S_OK);  // independent of the original
    EXPECT_EQ(Params(arc.get())[2], 3);
}

TEST_F(CircularArcTest, CreateCircleGivesTheFullCircle) {
    auto arc = NewArc({-4, 5.5, 2.25, 1, 0.5});
    ASSERT_EQ(arc->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(arc.get())->put_Color(0x42), S_OK);
    ComPtr<ILuxCircle> circle;
    ASSERT_EQ(arc->CreateCircle(luxCopyShapeBasicGraphics, circle.Out()), S_OK);
    ASSERT_TRUE(circle);
    double cx = 0, cy = 0, r = 0;
    ASSERT_EQ(circle->GetCenterRadius(&cx, &cy, &r), S_OK);
    EXPECT_EQ(cx, -4);
    EXPECT_EQ(cy, 5.5);
    EXPECT_EQ(r, 2.25);
    EXPECT_EQ(SpaceName(circle.get()), "Fixture");
    LONG color = 0;
    As<ILuxGraphic>(circle.get())->get_Color(&color);
    EXPECT_EQ(color, 0x42);
    EXPECT_EQ(arc->CreateCircle(luxCopyShapeAll, nullptr), E_POINTER);
}

TEST_F(CircularArcTest, FittingKeepsTheAnglesAndDraggingKeepsTheStartAsGiven) {
    auto arc = NewArc({0, 0, 1, 9, -1});
    auto log = Listen(arc.get());
    ASSERT_EQ(arc->FitToBoundingBox(NewRectangle(-5, -6, 40, 20).get()), S_OK);
    EXPECT_EQ(Params(arc.get()), (ArcParams{15, 4, 10, 9, -1}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);

    log->changes.clear();
    ASSERT_EQ(As<ILuxGraphicInteractive>(arc.get())->DragStop(0, 0, 3, -2, VARIANT_TRUE, VARIANT{}), S_OK);
    const ArcParams moved = Params(arc.get());
    EXPECT_NEAR(moved[0], 18, 1e-12);
    EXPECT_NEAR(moved[1], 2, 1e-12);
    EXPECT_EQ(moved[3], 9);  // not 9 - 2 pi
    EXPECT_EQ(moved[4], -1);
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->stopped.size(), 1u);
    log->stopped.clear();  // the log holds the arc, which holds the log's sink

    log->changes.clear();
    ExpectRefused(arc->FitToBoundingBox(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"BoundingRectangle"},
                  "FitToBoundingBox");
    ExpectFailed(arc->put_AngleSpan(0), E_INVALIDARG, "ccQvShapesError::InvalidAngleSpan", "put_AngleSpan");
    EXPECT_EQ(Params(arc.get()), moved);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircularArcTest, DrawPaintsThePixelsTheArcPassesThroughWithTheLineWidth) {
    auto picture = Make<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
    ASSERT_EQ(As<ILuxImage>(picture.get())->Allocate(41, 41), S_OK);
    auto arc = NewArc({20.5, 20.5, 10, 0, kPi});  // the lower half, through pixel centres
    auto g = As<ILuxGraphic>(arc.get());
    ASSERT_EQ(g->put_Color(0x0000FF), S_OK);
    const auto red = [&](LONG x, LONG y) {
        std::array<LONG, 3> planes{};
        EXPECT_EQ(picture->GetPixel(x, y, &planes[0], &planes[1], &planes[2]), S_OK);
        EXPECT_TRUE(planes == (std::array<LONG, 3>{255, 0, 0}) || planes == (std::array<LONG, 3>{0, 0, 0}));
        return planes[0] == 255;
    };
    ASSERT_EQ(g->Draw(As<IDispatch>(picture.get()).get()), S_OK);
    EXPECT_TRUE(red(30, 20));  // start
    EXPECT_TRUE(red(20, 30));  // midpoint
    EXPECT_TRUE(red(10, 20));  // end
    EXPECT_FALSE(red(20, 20));  // the centre
    EXPECT_FALSE(red(20, 29));
    int above = 0, painted = 0;
    for (LONG y = 0; y < 41; ++y)
        for (LONG x = 0; x < 41; ++x)
            if (red(x, y)) (y < 20 ? above : painted) += 1;
    EXPECT_EQ(above, 0);  // the upper half is not part of the arc
    // One pixel wide: about one pixel a unit of length, at most two.
    EXPECT_GE(painted, 10 * kPi);
    EXPECT_LE(painted, 2 * 10 * kPi);

    ASSERT_EQ(g->put_LineWidthInScreenPixels(3), S_OK);
    ASSERT_EQ(g->Draw(As<IDispatch>(picture.get()).get()), S_OK);
    EXPECT_TRUE(red(20, 31));
    EXPECT_TRUE(red(20, 29));
    EXPECT_FALSE(red(20, 32));
}

TEST_F(CircularArcTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto arc = NewArc({-3.25, 1e-7, 0.125, 11.5, -4 * kPi});
    ASSERT_EQ(arc->put_StartPointAdornment(luxCircularArcAdornmentSolidSquare), S_OK);
    ASSERT_EQ(arc->put_EndPointAdornment(luxCircularArcAdornmentArrow), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxCircularArcDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(arc->put_DisplayMode(luxCircularArcDisplayModeScreen), S_OK);
    ASSERT_EQ(arc->put_DisplayedRadiusInScreenPixels(33.25), S_OK);
    ASSERT_EQ(arc->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(arc->put_GraphicDOFEnable(luxCircularArcDOFArcSpanFourPi), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(arc.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxCircularArc>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), Params(arc.get()));
        LuxCircularArcAdornmentConstants start{}, end{};
        LuxCircularArcDirectionAdornmentConstants direction{};
        LuxCircularArcDisplayModeConstants mode{};
        LuxCircularArcDOFConstants dof{};
        double screenRadius = 0;
        loaded->get_StartPointAdornment(&start);
        loaded->get_EndPointAdornment(&end);
        loaded->get_DirectionAdornment(&direction);
        loaded->get_DisplayMode(&mode);
        loaded->get_DisplayedRadiusInScreenPixels(&screenRadius);
        loaded->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(start, luxCircularArcAdornmentSolidSquare);
        EXPECT_EQ(end, luxCircularArcAdornmentArrow);
        EXPECT_EQ(direction, luxCircularArcDirectionAdornmentArrow);
        EXPECT_EQ(mode, luxCircularArcDisplayModeScreen);
        EXPECT_EQ(screenRadius, 33.25);
        EXPECT_EQ(dof, luxCircularArcDOFArcSpanFourPi);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(arc.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes), S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "GraphicDOFEnable", "<CenterX ", "<CenterY ", "<Radius ",
                            "<AngleStart ", "<AngleSpan ", "<DisplayedRadiusInScreenPixels ", "<StartPointAdornment ",
                            "<EndPointAdornment ", "<DirectionAdornment ", "<DisplayMode "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(CircularArcTest, LoadsOfInvalidGeometryAreRefusedAndLeaveTheArcAsItWas) {
    const ArcParams start{1, 2, 3, 0.5, 0.25};
    auto arc = NewArc(start);
    ASSERT_EQ(arc->put_StartPointAdornment(luxCircularArcAdornmentArrow), S_OK);
    auto log = Listen(arc.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {
            {"CenterX", 7}, {"CenterY", 8}, {"Radius", 9}, {"AngleStart", 10}, {"AngleSpan", -11}};
        for (const auto& [name, number] : good)
            archive->AddEntry(name, name == std::string_view(key) ? std::move(value) : Variant(number));
        if (std::string_view(key).ends_with("Adornment") || std::string_view(key).starts_with("Display"))
            archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(arc.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"Radius", Variant(0.0)},
        {"Radius", Variant(-2.0)},
        {"AngleSpan", Variant(0.0)},
        {"CenterX", Variant(double(NAN))},
        {"AngleStart", Variant(double(INFINITY))},
        {"Radius", Variant("wide")},
        {"DisplayedRadiusInScreenPixels", Variant(0.0)},
        {"StartPointAdornment", Variant(int32_t{5})},
        {"DirectionAdornment", Variant(int32_t{3})},
        {"DisplayMode", Variant(int32_t{-1})},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(arc.get()), start);
        LuxCircularArcAdornmentConstants adornment{};
        arc->get_StartPointAdornment(&adornment);
        EXPECT_EQ(adornment, luxCircularArcAdornmentArrow);
    }
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(load("AngleStart", Variant(10.0)), S_OK);
    EXPECT_EQ(Params(arc.get()), (ArcParams{7, 8, 9, 10, -11}));
}

}  // namespace
}  // namespace tessaly::test
