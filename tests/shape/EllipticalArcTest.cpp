// LuxEllipticalArc: its defaults and derived values (the arc length against a fine polyline),
// the rotation normalised and the angles kept, refusals that keep the arc and raise nothing,
// events, the unit-circle parameters (mirrors and singular transforms among them), MapLinear,
// copy flags, CreateEllipse, MakeShapeModel, and persistence with the loads it refuses.
#include <cmath>
#include <numbers>
#include <utility>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "shape/ShapeFixture.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;

// CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan
using ArcParams = std::array<double, 7>;

class EllipticalArcTest : public ShapeFixture {
public:
    static ComPtr<ILuxEllipticalArc> NewArc() { return Make<ILuxEllipticalArc>("Tessaly.LuxEllipticalArc"); }
    static ComPtr<ILuxEllipticalArc> NewArc(const ArcParams& p) {
        auto arc = NewArc();
        EXPECT_EQ(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(p[0], p[1], p[2], p[3], p[4], p[5], p[6]), S_OK);
        return arc;
    }
    static ArcParams Params(ILuxEllipticalArc* arc) {
        ArcParams p{};
        EXPECT_EQ(arc->GetCenterRadiusXYRotationAngleStartAngleSpan(&p[0], &p[1], &p[2], &p[3], &p[4], &p[5], &p[6]),
                  S_OK);
        return p;
    }
    using ShapeFixture::Params;
    static std::array<double, 4> StartEnd(ILuxEllipticalArc* arc) {
        std::array<double, 4> e{};
        EXPECT_EQ(arc->GetStartEnd(&e[0], &e[1], &e[2], &e[3]), S_OK);
        return e;
    }
    // The point at angle t of the ellipse of p, from the definition.
    static std::pair<double, double> PointAt(const ArcParams& p, double t) {
        const double x = p[2] * std::cos(t), y = p[3] * std::sin(t);
        return {p[0] + std::cos(p[4]) * x - std::sin(p[4]) * y, p[1] + std::sin(p[4]) * x + std::cos(p[4]) * y};
    }
    // The length of the arc as a polyline of a million chords.
    static double PolylineLength(const ArcParams& p) {
        constexpr int kSteps = 1000000;
        double length = 0;
        auto previous = PointAt(p, p[5]);
        for (int i = 1; i <= kSteps; ++i) {
            const auto next = PointAt(p, p[5] + p[6] * i / kSteps);
            length += std::hypot(next.first - previous.first, next.second - previous.second);
            previous = next;
        }
        return length;
    }
};

void ExpectNear(const std::array<double, 4>& got, const std::array<double, 4>& want, double tolerance) {
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(got[i], want[i], tolerance) << i;
}

TEST_F(EllipticalArcTest, ANewArcAndItsDerivedValues) {
    auto arc = NewArc();
    const ArcParams defaults{50, 50, 50, 25, 0, 0, kPi};
    EXPECT_EQ(Params(arc.get()), defaults);
    ExpectNear(StartEnd(arc.get()), {100, 50, 0, 50}, 1e-12);
    double length = 0;
    ASSERT_EQ(arc->get_ArcLength(&length), S_OK);
    EXPECT_NEAR(length, PolylineLength(defaults), 1e-6);
    ComPtr<ILuxRectangle> box;
    ASSERT_EQ(arc->EnclosingRectangle(luxCopyShapeGeometryOnly, box.Out()), S_OK);
    const RectParams b = ShapeFixture::Params(box.get());
    const RectParams want{0, 50, 100, 25};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(b[i], want[i], 1e-9) << i;
    double distance = -1;
    ASSERT_EQ(arc->DistanceToPoint(50, 80, &distance), S_OK);
    EXPECT_NEAR(distance, 5, 1e-9);
    LuxEllipticalArcAdornmentConstants end = luxEllipticalArcAdornmentArrow;
    ASSERT_EQ(arc->get_EndPointAdornment(&end), S_OK);
    EXPECT_EQ(end, luxEllipticalArcAdornmentNone);
    ComPtr<ILuxRegion> region;
    EXPECT_EQ(arc->QueryInterface(IID_ILuxRegion, region.OutVoid()), E_NOINTERFACE);

    // Turned, several turns long: the ends from the definition, every turn in the length.
    const ArcParams turned{-3, 4, 7, 2, 0.6, -1, 4 * kPi + 0.5};
    ASSERT_EQ(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(turned[0], turned[1], turned[2], turned[3], turned[4],
                                                                 turned[5], turned[6]),
              S_OK);
    const auto [sx, sy] = PointAt(turned, turned[5]);
    const auto [ex, ey] = PointAt(turned, turned[5] + turned[6]);
    ExpectNear(StartEnd(arc.get()), {sx, sy, ex, ey}, 1e-12);
    double x = 0;
    ASSERT_EQ(arc->get_EndX(&x), S_OK);
    EXPECT_NEAR(x, ex, 1e-12);
    ASSERT_EQ(arc->get_ArcLength(&length), S_OK);
    EXPECT_NEAR(length, PolylineLength(turned), 1e-6);
}

TEST_F(EllipticalArcTest, RotationIsNormalisedAndTheAnglesKeptAsGiven) {
    auto arc = NewArc();
    auto log = Listen(arc.get());
    ASSERT_EQ(arc->put_Rotation(kPi), S_OK);
    double rotation = 0;
    ASSERT_EQ(arc->get_Rotation(&rotation), S_OK);
    EXPECT_EQ(rotation, -kPi);
    ASSERT_EQ(arc->put_Rotation(-kPi), S_OK);  // the same rotation: nothing
    ASSERT_EQ(arc->put_Rotation(4), S_OK);
    ASSERT_EQ(arc->get_Rotation(&rotation), S_OK);
    EXPECT_NEAR(rotation, 4 - 2 * kPi, 1e-15);
    ASSERT_EQ(arc->put_AngleStart(7), S_OK);
    ASSERT_EQ(arc->put_AngleSpan(-4 * kPi), S_OK);
    const ArcParams p = Params(arc.get());
    EXPECT_EQ(p[5], 7);
    EXPECT_EQ(p[6], -4 * kPi);
    ASSERT_EQ(log->changes.size(), 4u);
    const int32_t ids[] = {luxEllipticalArc_Rotation, luxEllipticalArc_Rotation, luxEllipticalArc_AngleStart,
                           luxEllipticalArc_AngleSpan};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
    }
    EXPECT_EQ(log->changes[0].value.get().dblVal, -kPi);  // the value as stored

    log->changes.clear();
    ASSERT_EQ(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(0, 0, 1, 2, 0, 0, 1), S_OK);
    ASSERT_EQ(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(0, 0, 1, 2, 2 * kPi, 0, 1), S_OK);  // same
    ASSERT_EQ(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(0, 0, 1, 3, 0, 0, 1), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[1].stateId, luxEllipticalArc_RadiusY);
    EXPECT_EQ(log->changes[1].value.get().dblVal, 3);

    log->changes.clear();
    ASSERT_EQ(arc->put_StartPointAdornment(luxEllipticalArcAdornmentSolidSquare), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxEllipticalArcDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxEllipticalArcDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxEllipticalArc_StartPointAdornment);
    EXPECT_EQ(log->changes[1].stateId, luxEllipticalArc_DirectionAdornment);
    for (const ChangeEvent& e : log->changes) EXPECT_EQ(e.areas, luxFA_Shape_Graphic);
}

TEST_F(EllipticalArcTest, InvalidGeometryIsRefusedLeavingTheArcAndRaisingNothing) {
    const ArcParams start{10, 20, 30, 5, 0.5, 0.25, 1.5};
    auto arc = NewArc(start);
    ASSERT_EQ(arc->put_EndPointAdornment(luxEllipticalArcAdornmentArrow), S_OK);
    auto log = Listen(arc.get());
    const char* const kSpan = "ccQvShapesError::InvalidAngleSpan";
    const char* const kRadius = "ccQvShapesError::InvalidRadius";
    ExpectFailed(arc->put_AngleSpan(0), E_INVALIDARG, kSpan, "put_AngleSpan");
    ExpectFailed(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(0, 0, 1, 1, 0, 0, 0), E_INVALIDARG, kSpan,
                 "SetCenterRadiusXYRotationAngleStartAngleSpan");
    for (double bad : {0.0, -1.0, double(NAN)}) {
        ExpectFailed(arc->put_RadiusX(bad), E_INVALIDARG, kRadius, "put_RadiusX");
        ExpectFailed(arc->put_RadiusY(bad), E_INVALIDARG, kRadius, "put_RadiusY");
        ExpectFailed(arc->SetCenterRadiusXYRotationAngleStartAngleSpan(0, 0, 1, bad, 0, 0, 1), E_INVALIDARG, kRadius,
                     "SetCenterRadiusXYRotationAngleStartAngleSpan");
    }
    const double inf = INFINITY;
    ExpectRefused(arc->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    ExpectRefused(arc->put_Rotation(inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Rotation"}, "put_Rotation");
    ExpectRefused(arc->put_AngleStart(-inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"AngleStart"},
                  "put_AngleStart");
    ExpectRefused(arc->put_RadiusX(inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"RadiusX"}, "put_RadiusX");
    // A singular transform, and none.
    ExpectFailed(arc->SetFromUnitCircleParams(0, 1, Linear(1, 2, 2, 4, 0, 0).get()), e_LuxShape_DegenerateShape,
                 "ccShapesError::DegenerateShape", "SetFromUnitCircleParams");
    ExpectFailed(arc->SetFromUnitCircleParams(0, 0, Linear(1, 0, 0, 1, 0, 0).get()), E_INVALIDARG, kSpan,
                 "SetFromUnitCircleParams");
    ExpectRefused(arc->SetFromUnitCircleParams(0, 1, nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"EllipseFromUnitCircle"}, "SetFromUnitCircleParams");

    EXPECT_EQ(Params(arc.get()), start);
    LuxEllipticalArcAdornmentConstants end{};
    arc->get_EndPointAdornment(&end);
    EXPECT_EQ(end, luxEllipticalArcAdornmentArrow);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(EllipticalArcTest, UnitCircleParamsRoundTripAndMirrorsKeepTheEnds) {
    const ArcParams p{1, 2, 6, 3, 0.5, -0.75, 2.5};
    auto arc = NewArc(p);
    double start = 0, span = 0;
    ComPtr<ILuxTransform2DLinear> transform;
    ASSERT_EQ(arc->GetUnitCircleParams(&start, &span, transform.Out()), S_OK);
    EXPECT_EQ(start, -0.75);
    EXPECT_EQ(span, 2.5);
    ASSERT_TRUE(transform);
    double m[6] = {};
    ASSERT_EQ(transform->GetMatrixElementsTranslation(&m[0], &m[1], &m[2], &m[3], &m[4], &m[5]), S_OK);
    const double c = std::cos(0.5), s = std::sin(0.5);
    const double want[6] = {6 * c, -3 * s, 6 * s, 3 * c, 1, 2};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(m[i], want[i], 1e-12) << i;

    // Back through SetFromUnitCircleParams: the same arc, one event with the unit-circle ID.
    auto other = NewArc();
    auto log = Listen(other.get());
    ASSERT_EQ(other->SetFromUnitCircleParams(start, span, transform.get()), S_OK);
    const ArcParams q = Params(other.get());
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(q[i], p[i], 1e-12) << i;
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxEllipticalArc_UnitCircleParams);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    ASSERT_EQ(other->SetFromUnitCircleParams(start, span, transform.get()), S_OK);
    EXPECT_EQ(log->changes.size(), 1u);  // unchanged: nothing

    // A mirrored, sheared transform: the arc runs from the image of the unit start to the
    // image of the unit end.
    const double t[6] = {2, 1, 0.5, -3, -4, 7};
    const double us = 0.3, uspan = -1.9;
    ASSERT_EQ(other->SetFromUnitCircleParams(us, uspan, Linear(t[0], t[1], t[2], t[3], t[4], t[5]).get()), S_OK);
    const auto image = [&](double a) {
        const double x = std::cos(a), y = std::sin(a);
        return std::pair{t[0] * x + t[1] * y + t[4], t[2] * x + t[3] * y + t[5]};
    };
    const auto [sx, sy] = image(us);
    const auto [ex, ey] = image(us + uspan);
    ExpectNear(StartEnd(other.get()), {sx, sy, ex, ey}, 1e-9);
    const ArcParams r = Params(other.get());
    EXPECT_GE(r[2], r[3]);  // RadiusX the larger
    EXPECT_NEAR(r[2] * r[3], std::fabs(t[0] * t[3] - t[1] * t[2]), 1e-9);
    EXPECT_NEAR(std::fabs(r[6]), 1.9, 1e-12);
}

TEST_F(EllipticalArcTest, MapLinearCopyAndCreateEllipseCarryWhatTheCopyFlagsSelect) {
    const ArcParams p{1, 2, 3, 1.5, 0.25, 0.5, -2};
    auto arc = NewArc(p);
    ASSERT_EQ(arc->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(arc.get())->put_Color(0x42), S_OK);
    ASSERT_EQ(arc->put_StartPointAdornment(luxEllipticalArcAdornmentSolidCircle), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxEllipticalArcDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(arc->put_GraphicDOFEnable(luxEllipticalArcDOFConstrainedSpan), S_OK);
    auto shift = Linear(1, 0, 0, 1, 10, 20);
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        SCOPED_TRACE(flags);
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        ComPtr<ILuxEllipticalArc> copies[3];
        ASSERT_EQ(arc->Copy(f, copies[0].Out()), S_OK);
        ASSERT_EQ(arc->MapLinear(shift.get(), f, copies[1].Out()), S_OK);
        ComPtr<ILuxShape> mapped;
        ASSERT_EQ(arc->Map(As<ILuxTransform2D>(shift.get()).get(), f, mapped.Out()), S_OK);
        copies[2] = As<ILuxEllipticalArc>(mapped.get());
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(k);
            ASSERT_TRUE(copies[k]);
            const ArcParams q = Params(copies[k].get());
            EXPECT_NEAR(q[0], p[0] + (k ? 10 : 0), 1e-12);
            EXPECT_NEAR(q[1], p[1] + (k ? 20 : 0), 1e-12);
            if (k == 0) {
                EXPECT_EQ(q, p);
            }
            ExpectNear(StartEnd(copies[k].get()),
                       [&] {
                           auto e = StartEnd(arc.get());
                           if (k) e[0] += 10, e[1] += 20, e[2] += 10, e[3] += 20;
                           return e;
                       }(),
                       1e-9);
            EXPECT_EQ(SpaceName(copies[k].get()), "Fixture");
            LONG color = 0, dof = 0;
            As<ILuxGraphic>(copies[k].get())->get_Color(&color);
            As<ILuxGraphicInteractive>(copies[k].get())->get_GraphicDOFEnableBase(&dof);
            EXPECT_EQ(color, graphics ? 0x42 : luxColorCyan);
            EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxEllipticalArcDOFConstrainedSpan : luxEllipticalArcDOFAll);
            LuxEllipticalArcAdornmentConstants start{};
            LuxEllipticalArcDirectionAdornmentConstants direction{};
            copies[k]->get_StartPointAdornment(&start);
            copies[k]->get_DirectionAdornment(&direction);
            EXPECT_EQ(start, graphics ? luxEllipticalArcAdornmentSolidCircle : luxEllipticalArcAdornmentNone);
            EXPECT_EQ(direction,
                      graphics ? luxEllipticalArcDirectionAdornmentSolidArrow : luxEllipticalArcDirectionAdornmentNone);
        }
    }
    ComPtr<ILuxEllipticalArc> result;
    ExpectRefused(arc->MapLinear(nullptr, luxCopyShapeAll, result.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    EXPECT_FALSE(result);

    ComPtr<ILuxEllipse> ellipse;
    ASSERT_EQ(arc->CreateEllipse(luxCopyShapeBasicGraphics, ellipse.Out()), S_OK);
    ASSERT_TRUE(ellipse);
    double e[5] = {};
    ASSERT_EQ(ellipse->GetCenterXYRadiusXYRotation(&e[0], &e[1], &e[2], &e[3], &e[4]), S_OK);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(e[i], p[i]) << i;
    EXPECT_EQ(SpaceName(ellipse.get()), "Fixture");
    LONG color = 0;
    As<ILuxGraphic>(ellipse.get())->get_Color(&color);
    EXPECT_EQ(color, 0x42);
    ComPtr<ILuxTransform2DLinear> fromEllipse, fromArc;
    ASSERT_EQ(ellipse->GetUnitCircleTransform(fromEllipse.Out()), S_OK);
    double start = 0, span = 0;
    ASSERT_EQ(arc->GetUnitCircleParams(&start, &span, fromArc.Out()), S_OK);
    double a[6] = {}, b[6] = {};
    fromEllipse->GetMatrixElementsTranslation(&a[0], &a[1], &a[2], &a[3], &a[4], &a[5]);
    fromArc->GetMatrixElementsTranslation(&b[0], &b[1], &b[2], &b[3], &b[4], &b[5]);
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(a[i], b[i], 1e-15) << i;
}

TEST_F(EllipticalArcTest, FittingTakesTheInscribedEllipseAndDraggingKeepsTheStartAsGiven) {
    auto arc = NewArc({0, 0, 1, 2, 0.5, 9, -1});
    auto log = Listen(arc.get());
    ASSERT_EQ(arc->FitToBoundingBox(NewRectangle(-5, -6, 40, 20).get()), S_OK);
    EXPECT_EQ(Params(arc.get()), (ArcParams{15, 4, 20, 10, 0, 9, -1}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);

    // Without the position bit a drag moves nothing; with it, the centre only.
    ASSERT_EQ(arc->put_GraphicDOFEnable(luxEllipticalArcDOFArcSpan), S_OK);
    log->changes.clear();
    auto g = As<ILuxGraphicInteractive>(arc.get());
    ASSERT_EQ(g->DragStop(0, 0, 3, -2, VARIANT_TRUE, VARIANT{}), S_OK);
    EXPECT_EQ(Params(arc.get()), (ArcParams{15, 4, 20, 10, 0, 9, -1}));
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(arc->put_GraphicDOFEnable(luxEllipticalArcDOFAll), S_OK);
    log->changes.clear();
    ASSERT_EQ(g->DragStop(0, 0, 3, -2, VARIANT_TRUE, VARIANT{}), S_OK);
    const ArcParams moved = Params(arc.get());
    const ArcParams want{18, 2, 20, 10, 0, 9, -1};
    for (int i = 0; i < 7; ++i) EXPECT_NEAR(moved[i], want[i], 1e-12) << i;
    EXPECT_EQ(moved[5], 9);  // not 9 - 2 pi
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    log->stopped.clear();  // the log holds the arc, which holds the log's sink
}

TEST_F(EllipticalArcTest, MakeShapeModelIsNotAvailable) {
    auto arc = NewArc();
    auto log = Listen(arc.get());
    ComPtr<IDispatch> model;
    ExpectFailed(arc->MakeShapeModel(1.0, 0, VARIANT_TRUE, model.Out()), e_Lux_NotImplemented, "shape models",
                 "MakeShapeModel");
    EXPECT_FALSE(model);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(EllipticalArcTest, PersistenceRoundTripsAndRefusedLoadsLeaveTheArc) {
    const ArcParams p{-3.25, 1e-7, 0.125, 1234.5, -kPi, 9.5, 4 * kPi};
    auto arc = NewArc(p);
    ASSERT_EQ(arc->put_EndPointAdornment(luxEllipticalArcAdornmentSolidSquare), S_OK);
    ASSERT_EQ(arc->put_DirectionAdornment(luxEllipticalArcDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(arc->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(arc.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxEllipticalArc>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), p);
        LuxEllipticalArcAdornmentConstants end{};
        LuxEllipticalArcDirectionAdornmentConstants direction{};
        loaded->get_EndPointAdornment(&end);
        loaded->get_DirectionAdornment(&direction);
        EXPECT_EQ(end, luxEllipticalArcAdornmentSolidSquare);
        EXPECT_EQ(direction, luxEllipticalArcDirectionAdornmentArrow);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
    }

    auto log = Listen(arc.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {{"CenterX", 7},  {"CenterY", 8},    {"RadiusX", 9},
                                                       {"RadiusY", 10}, {"Rotation", kPi}, {"AngleStart", 11},
                                                       {"AngleSpan", -12}};
        for (const auto& [name, number] : good)
            archive->AddEntry(name, name == std::string_view(key) ? std::move(value) : Variant(number));
        if (std::string_view(key).ends_with("Adornment")) archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(arc.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"RadiusX", Variant(0.0)},         {"RadiusY", Variant(-2.0)},
        {"AngleSpan", Variant(0.0)},       {"CenterX", Variant(double(NAN))},
        {"Rotation", Variant(double(INFINITY))}, {"RadiusY", Variant("tall")},
        {"StartPointAdornment", Variant(int32_t{5})}, {"DirectionAdornment", Variant(int32_t{-1})},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(arc.get()), p);
        LuxEllipticalArcAdornmentConstants end{};
        arc->get_EndPointAdornment(&end);
        EXPECT_EQ(end, luxEllipticalArcAdornmentSolidSquare);
    }
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(load("AngleStart", Variant(11.0)), S_OK);
    EXPECT_EQ(Params(arc.get()), (ArcParams{7, 8, 9, 10, -kPi, 11, -12}));  // the rotation normalised
}

}  // namespace
}  // namespace tessaly::test
