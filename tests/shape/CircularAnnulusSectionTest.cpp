// LuxCircularAnnulusSection: its defaults and derived values, the core's refusals (each
// leaving the section as it was and raising nothing), angles kept as given, events and their
// functional areas, MapLinear into the elliptical class, copy flags, CreateCircularArc, the
// mask against a pixel-by-pixel centre test, and persistence with the loads it refuses.
#include <cmath>
#include <numbers>

#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "shape/AnnulusSectionCentreTest.h"
#include "shape/ShapeFixture.h"

namespace tessaly::test {
namespace {

constexpr double kPi = std::numbers::pi;

using CircularParams = std::array<double, 6>;  // CenterX, CenterY, Radius, AngleStart, AngleSpan, RadialScale

class CircularAnnulusSectionTest : public ShapeFixture {
public:
    static ComPtr<ILuxCircularAnnulusSection> NewSection() {
        return Make<ILuxCircularAnnulusSection>("Tessaly.LuxCircularAnnulusSection");
    }
    static ComPtr<ILuxCircularAnnulusSection> NewSection(const CircularParams& p) {
        auto section = NewSection();
        EXPECT_EQ(section->SetCenterRadiusAngleStartAngleSpanRadialScale(p[0], p[1], p[2], p[3], p[4], p[5]), S_OK);
        return section;
    }
    static CircularParams Params(ILuxCircularAnnulusSection* section) {
        CircularParams p{};
        EXPECT_EQ(section->GetCenterRadiusAngleStartAngleSpanRadialScale(&p[0], &p[1], &p[2], &p[3], &p[4], &p[5]),
                  S_OK);
        return p;
    }
    static PixelSet MaskOf(IUnknown* region) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(As<ILuxRegion>(region)->CreateRLE(255, 0, rle.Out()), S_OK);
        PixelSet pixels;
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
    static double Get(ILuxCircularAnnulusSection* s, HRESULT (ILuxCircularAnnulusSection::*getter)(double*)) {
        double value = NAN;
        EXPECT_EQ((s->*getter)(&value), S_OK);
        return value;
    }
};

TEST_F(CircularAnnulusSectionTest, ANewSectionIsTheLowerHalfRingAboutFiftyFiftyWithItsAreaAndPerimeter) {
    auto section = NewSection();
    EXPECT_EQ(Params(section.get()), (CircularParams{50, 50, 25, 0, kPi, 2}));
    EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_ManipArcFraction), 0.5);
    LuxCircularAnnulusSectionDirectionAdornmentConstants arc{}, radial{};
    LuxCircularAnnulusSectionCenterArcAdornmentConstants centre{};
    section->get_ArcDirectionAdornment(&arc);
    section->get_RadialDirectionAdornment(&radial);
    section->get_CenterArcAdornment(&centre);
    EXPECT_EQ(arc, luxCircularAnnulusSectionDirectionAdornmentNone);
    EXPECT_EQ(radial, luxCircularAnnulusSectionDirectionAdornmentNone);
    EXPECT_EQ(centre, luxCircularAnnulusSectionCenterArcAdornmentNone);
    LuxCircularAnnulusSectionDOFConstants dof{};
    EXPECT_EQ(section->get_GraphicDOFEnable(&dof), S_OK);
    EXPECT_EQ(dof, luxCircularAnnulusSectionDOFAll);
    // Half the ring between radii 25 and 50; outline: two half circles and two radial sides.
    EXPECT_NEAR(Get(section.get(), &ILuxCircularAnnulusSection::get_Area), kPi * (50 * 50 - 25 * 25) / 2, 1e-9);
    EXPECT_NEAR(Get(section.get(), &ILuxCircularAnnulusSection::get_Perimeter), kPi * 25 + kPi * 50 + 2 * 25, 1e-9);
    // A quarter of a ring with the start arc outside (scale 0.5) is the same region as the
    // quarter with the start arc inside.
    auto outer = NewSection({0, 0, 10, 0.25, kPi / 2, 0.5});
    auto inner = NewSection({0, 0, 5, 0.25, kPi / 2, 2});
    EXPECT_NEAR(Get(outer.get(), &ILuxCircularAnnulusSection::get_Area), kPi * 75 / 4, 1e-9);
    EXPECT_NEAR(Get(outer.get(), &ILuxCircularAnnulusSection::get_Perimeter),
                Get(inner.get(), &ILuxCircularAnnulusSection::get_Perimeter), 1e-9);
    EXPECT_EQ(MaskOf(outer.get()), MaskOf(inner.get()));
    // Its pixels lie inside the box (0, 0, 100, 100) of a new rectangle.
    for (const auto& [x, y] : MaskOf(section.get())) {
        EXPECT_TRUE(x >= 0 && x < 100 && y >= 50 && y < 100) << x << "," << y;
    }
}

TEST_F(CircularAnnulusSectionTest, InvalidGeometryIsRefusedByTheCoreLeavingTheSectionAndRaisingNothing) {
    const CircularParams start{10, 20, 30, 0.5, 1.5, 3};
    auto section = NewSection(start);
    ASSERT_EQ(section->put_ManipArcFraction(0.25), S_OK);
    auto log = Listen(section.get());
    const char* const kRadius = "ccQvShapesError::InvalidRadius";
    const char* const kSpan = "ccQvShapesError::InvalidAngleSpan";
    const char* const kScale = "ccQvShapesError::InvalidRadialScale";
    const char* const kFraction = "ccQvShapesError::InvalidEllipseFraction";
    for (double bad : {0.0, -0.0, -1.0, double(NAN)})
        ExpectFailed(section->put_Radius(bad), E_INVALIDARG, kRadius, "put_Radius");
    for (double bad : {0.0, -0.0, double(NAN)})
        ExpectFailed(section->put_AngleSpan(bad), E_INVALIDARG, kSpan, "put_AngleSpan");
    for (double bad : {1.0, 0.0, -0.5, double(NAN)})
        ExpectFailed(section->put_RadialScale(bad), E_INVALIDARG, kScale, "put_RadialScale");
    ExpectFailed(section->SetCenterRadiusAngleStartAngleSpanRadialScale(0, 0, 0, 0, 1, 2), E_INVALIDARG, kRadius,
                 "SetCenterRadiusAngleStartAngleSpanRadialScale");
    ExpectFailed(section->SetCenterRadiusAngleStartAngleSpanRadialScale(0, 0, 1, 0, 0, 2), E_INVALIDARG, kSpan,
                 "SetCenterRadiusAngleStartAngleSpanRadialScale");
    ExpectFailed(section->SetCenterRadiusAngleStartAngleSpanRadialScale(0, 0, 1, 0, 1, 1), E_INVALIDARG, kScale,
                 "SetCenterRadiusAngleStartAngleSpanRadialScale");
    for (double bad : {0.0, 0.00000099, 0.9999991, 1.0, -0.5, double(NAN)})
        ExpectFailed(section->put_ManipArcFraction(bad), E_INVALIDARG, kFraction, "put_ManipArcFraction");
    // Values that are not finite.
    ExpectRefused(section->put_CenterX(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"},
                  "put_CenterX");
    ExpectRefused(section->put_CenterY(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"}, "put_CenterY");
    ExpectRefused(section->put_AngleStart(-INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"AngleStart"},
                  "put_AngleStart");
    ExpectRefused(section->put_AngleSpan(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"AngleSpan"},
                  "put_AngleSpan");

    EXPECT_EQ(Params(section.get()), start);
    EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_ManipArcFraction), 0.25);
    LuxCircularAnnulusSectionDirectionAdornmentConstants arc{}, radial{};
    LuxCircularAnnulusSectionCenterArcAdornmentConstants centre{};
    section->get_ArcDirectionAdornment(&arc);
    section->get_RadialDirectionAdornment(&radial);
    section->get_CenterArcAdornment(&centre);
    EXPECT_EQ(arc + radial + centre, 0);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircularAnnulusSectionTest, BoundaryValuesAreAcceptedAndAnglesKeptAsGiven) {
    auto section = NewSection();
    for (double span : {4 * kPi, -kPi, 1e-12, -7.0}) {
        ASSERT_EQ(section->put_AngleSpan(span), S_OK);
        EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_AngleSpan), span);
    }
    for (double angle : {7.0, -10.0, kPi, 0.0}) {
        ASSERT_EQ(section->put_AngleStart(angle), S_OK);
        EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_AngleStart), angle);
    }
    for (double scale : {0.5, 2.0, 1e-9, 1.0000001}) {
        ASSERT_EQ(section->put_RadialScale(scale), S_OK);
        EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_RadialScale), scale);
    }
    ASSERT_EQ(section->put_Radius(1e-300), S_OK);
    for (double fraction : {0.000001, 0.999999}) {
        ASSERT_EQ(section->put_ManipArcFraction(fraction), S_OK);
        EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_ManipArcFraction), fraction);
    }
    // A span of 4 pi is the whole ring, counted once.
    auto ring = NewSection({0, 0, 10, 1, 4 * kPi, 2});
    EXPECT_NEAR(Get(ring.get(), &ILuxCircularAnnulusSection::get_Area), kPi * 300, 1e-9);
}

TEST_F(CircularAnnulusSectionTest, SettersRaiseTheirStateIdsAndAreasAndMultiParameterSettersOneEvent) {
    auto section = NewSection({1, 2, 3, 0.5, 1, 2});
    auto log = Listen(section.get());
    struct Case {
        HRESULT (ILuxCircularAnnulusSection::*put)(double);
        double value;
        int32_t stateId;
    };
    const Case cases[] = {
        {&ILuxCircularAnnulusSection::put_CenterX, 5, luxCircularAnnulusSection_CenterX},
        {&ILuxCircularAnnulusSection::put_CenterY, 6, luxCircularAnnulusSection_CenterY},
        {&ILuxCircularAnnulusSection::put_Radius, 7, luxCircularAnnulusSection_Radius},
        {&ILuxCircularAnnulusSection::put_AngleStart, 8, luxCircularAnnulusSection_AngleStart},
        {&ILuxCircularAnnulusSection::put_AngleSpan, -9, luxCircularAnnulusSection_AngleSpan},
        {&ILuxCircularAnnulusSection::put_RadialScale, 0.5, luxCircularAnnulusSection_RadialScale},
    };
    for (const Case& c : cases) {
        log->changes.clear();
        ASSERT_EQ((section.get()->*c.put)(c.value), S_OK);
        ASSERT_EQ((section.get()->*c.put)(c.value), S_OK);  // the same again: nothing
        ASSERT_EQ(log->changes.size(), 1u) << c.stateId;
        EXPECT_EQ(log->changes[0].stateId, c.stateId);
        EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
        EXPECT_EQ(log->changes[0].value.get().vt, VT_R8);
        EXPECT_EQ(log->changes[0].value.get().dblVal, c.value);
    }
    EXPECT_EQ(Params(section.get()), (CircularParams{5, 6, 7, 8, -9, 0.5}));

    // Several at once: one event; one changed among the six: its own state ID; none: nothing.
    log->changes.clear();
    ASSERT_EQ(section->SetCenterRadiusAngleStartAngleSpanRadialScale(1, 1, 7, 8, -9, 0.5), S_OK);
    ASSERT_EQ(section->SetCenterRadiusAngleStartAngleSpanRadialScale(1, 1, 7, 8, -9, 3), S_OK);
    ASSERT_EQ(section->SetCenterRadiusAngleStartAngleSpanRadialScale(1, 1, 7, 8, -9, 3), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    EXPECT_EQ(log->changes[1].stateId, luxCircularAnnulusSection_RadialScale);

    // Graphic settings: luxFA_Shape_Graphic.
    log->changes.clear();
    ASSERT_EQ(section->put_ArcDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(section->put_RadialDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(section->put_CenterArcAdornment(luxCircularAnnulusSectionCenterArcAdornmentDottedArc), S_OK);
    ASSERT_EQ(section->put_CenterArcAdornment(luxCircularAnnulusSectionCenterArcAdornmentDottedArc), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.75), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.75), S_OK);
    ASSERT_EQ(section->put_GraphicDOFEnable(luxCircularAnnulusSectionDOFRadii), S_OK);
    ASSERT_EQ(log->changes.size(), 5u);
    const int32_t ids[] = {luxCircularAnnulusSection_ArcDirectionAdornment,
                           luxCircularAnnulusSection_RadialDirectionAdornment,
                           luxCircularAnnulusSection_CenterArcAdornment, luxCircularAnnulusSection_ManipArcFraction};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Graphic);
    }
    EXPECT_EQ(log->changes[1].value.get().lVal, luxCircularAnnulusSectionDirectionAdornmentArrow);
    EXPECT_EQ(log->changes[3].value.get().dblVal, 0.75);
    EXPECT_EQ(log->changes[4].stateId, luxCircularAnnulusSection_GraphicDOFEnable);
    EXPECT_EQ(log->changes[4].areas, luxFA_Shape_DegreesOfFreedom);
}

TEST_F(CircularAnnulusSectionTest, MapLinearGivesAnEllipticalSectionAndCopiesCarryWhatTheFlagsSelect) {
    auto section = NewSection({10, 20, 4, 0.5, -1.25, 0.5});
    ASSERT_EQ(section->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(section.get())->put_Color(0x42), S_OK);
    ASSERT_EQ(section->put_ArcDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(section->put_CenterArcAdornment(luxCircularAnnulusSectionCenterArcAdornmentSolidArc), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.125), S_OK);
    ASSERT_EQ(section->put_GraphicDOFEnable(luxCircularAnnulusSectionDOFRadii), S_OK);
    // Scaled by 2 along x and 3 along y, then moved by (1, -1).
    auto stretch = Linear(2, 0, 0, 3, 1, -1);
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        SCOPED_TRACE(flags);
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        ComPtr<ILuxEllipticalAnnulusSection> mapped;
        ASSERT_EQ(section->MapLinear(stretch.get(), f, mapped.Out()), S_OK);
        ASSERT_TRUE(mapped);
        double p[8] = {};
        ASSERT_EQ(mapped->GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(&p[0], &p[1], &p[2], &p[3], &p[4],
                                                                                  &p[5], &p[6], &p[7]),
                  S_OK);
        EXPECT_NEAR(p[0], 21, 1e-12);
        EXPECT_NEAR(p[1], 59, 1e-12);
        EXPECT_NEAR(p[7], 0.5, 1e-12);
        EXPECT_NEAR(std::fabs(p[6]), 1.25, 1e-12);
        // The start point (the start arc's at angle 0.5) lands where the map puts it.
        const double c = std::cos(p[4]), s = std::sin(p[4]);
        const double ex = p[2] * std::cos(p[5]), ey = p[3] * std::sin(p[5]);
        EXPECT_NEAR(p[0] + c * ex - s * ey, 21 + 2 * 4 * std::cos(0.5), 1e-9);
        EXPECT_NEAR(p[1] + s * ex + c * ey, 59 + 3 * 4 * std::sin(0.5), 1e-9);
        double area = 0;
        ASSERT_EQ(mapped->get_Area(&area), S_OK);
        EXPECT_NEAR(area, 6 * Get(section.get(), &ILuxCircularAnnulusSection::get_Area), 1e-9);
        EXPECT_EQ(SpaceName(mapped.get()), "Fixture");
        LONG color = 0, dof = 0;
        As<ILuxGraphic>(mapped.get())->get_Color(&color);
        As<ILuxGraphicInteractive>(mapped.get())->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(color, graphics ? 0x42 : luxColorCyan);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxCircularAnnulusSectionDOFRadii : -1);
        LuxEllipticalAnnulusSectionDirectionAdornmentConstants arc{};
        LuxEllipticalAnnulusSectionCenterArcAdornmentConstants centre{};
        double fraction = 0;
        mapped->get_ArcDirectionAdornment(&arc);
        mapped->get_CenterArcAdornment(&centre);
        mapped->get_ManipArcFraction(&fraction);
        EXPECT_EQ(arc, graphics ? luxEllipticalAnnulusSectionDirectionAdornmentArrow : 0);
        EXPECT_EQ(centre, graphics ? luxEllipticalAnnulusSectionCenterArcAdornmentSolidArc : 0);
        EXPECT_EQ(fraction, graphics ? 0.125 : 0.5);

        ComPtr<ILuxCircularAnnulusSection> copy;
        ASSERT_EQ(section->Copy(f, copy.Out()), S_OK);
        EXPECT_EQ(Params(copy.get()), Params(section.get()));
        LuxCircularAnnulusSectionDirectionAdornmentConstants copiedArc{};
        copy->get_ArcDirectionAdornment(&copiedArc);
        copy->get_ManipArcFraction(&fraction);
        EXPECT_EQ(copiedArc, graphics ? luxCircularAnnulusSectionDirectionAdornmentArrow : 0);
        EXPECT_EQ(fraction, graphics ? 0.125 : 0.5);
        As<ILuxGraphicInteractive>(copy.get())->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxCircularAnnulusSectionDOFRadii : -1);
    }
    // Map answers the class of the mapped core shape: an elliptical section, with the adornments.
    ComPtr<ILuxShape> viaMap;
    ASSERT_EQ(section->Map(As<ILuxTransform2D>(stretch.get()).get(), luxCopyShapeBasicGraphics, viaMap.Out()), S_OK);
    auto mappedSection = As<ILuxEllipticalAnnulusSection>(viaMap.get());
    ASSERT_TRUE(mappedSection);
    LuxEllipticalAnnulusSectionDirectionAdornmentConstants viaMapArc{};
    mappedSection->get_ArcDirectionAdornment(&viaMapArc);
    EXPECT_EQ(viaMapArc, luxEllipticalAnnulusSectionDirectionAdornmentArrow);
    // Even a plain shift answers the elliptical class.
    ComPtr<ILuxEllipticalAnnulusSection> shifted;
    ASSERT_EQ(section->MapLinear(Linear(1, 0, 0, 1, 5, 5).get(), luxCopyShapeAll, shifted.Out()), S_OK);
    EXPECT_TRUE(shifted);
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(section.get())->Clone(clone.Out()), S_OK);
    auto cloned = As<ILuxCircularAnnulusSection>(clone.get());
    EXPECT_EQ(Params(cloned.get()), Params(section.get()));
    ASSERT_EQ(cloned->put_Radius(100), S_OK);  // independent of the original
    EXPECT_EQ(Params(section.get())[2], 4);

    auto log = Listen(section.get());
    ComPtr<ILuxEllipticalAnnulusSection> result;
    ExpectRefused(section->MapLinear(nullptr, luxCopyShapeAll, result.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    EXPECT_FALSE(result);
    EXPECT_EQ(section->Copy(luxCopyShapeAll, nullptr), E_POINTER);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(CircularAnnulusSectionTest, CreateCircularArcAnswersTheArcAtARadialFraction) {
    for (double scale : {2.0, 0.5}) {
        SCOPED_TRACE(scale);
        auto section = NewSection({3, 4, 10, 0.75, -2, scale});
        ASSERT_EQ(section->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
        ASSERT_EQ(As<ILuxGraphic>(section.get())->put_Color(0x42), S_OK);
        const std::pair<double, double> cases[] = {{0, 10}, {0.5, 10 * (1 + scale) / 2}, {1, 10 * scale}};
        for (const auto& [fraction, radius] : cases) {
            ComPtr<ILuxCircularArc> arc;
            ASSERT_EQ(section->CreateCircularArc(fraction, luxCopyShapeGeometryOnly, arc.Out()), S_OK);
            ASSERT_TRUE(arc);
            double p[5] = {};
            ASSERT_EQ(arc->GetCenterRadiusAngleStartAngleSpan(&p[0], &p[1], &p[2], &p[3], &p[4]), S_OK);
            EXPECT_EQ(p[0], 3);
            EXPECT_EQ(p[1], 4);
            EXPECT_NEAR(p[2], radius, 1e-12);
            EXPECT_NEAR(p[3], 0.75, 1e-12);
            EXPECT_EQ(p[4], -2);
            EXPECT_EQ(SpaceName(arc.get()), "Fixture");
            LONG color = 0;
            As<ILuxGraphic>(arc.get())->get_Color(&color);
            EXPECT_NE(color, 0x42);
        }
        // With 0.5 the start arc is the outer one.
        ComPtr<ILuxCircularArc> startArc, endArc;
        ASSERT_EQ(section->CreateCircularArc(0, luxCopyShapeAll, startArc.Out()), S_OK);
        ASSERT_EQ(section->CreateCircularArc(1, luxCopyShapeAll, endArc.Out()), S_OK);
        double r0 = 0, r1 = 0;
        startArc->get_Radius(&r0);
        endArc->get_Radius(&r1);
        EXPECT_EQ(r0 > r1, scale < 1);
        LONG color = 0;
        As<ILuxGraphic>(startArc.get())->get_Color(&color);
        EXPECT_EQ(color, 0x42);
        auto log = Listen(section.get());
        for (double bad : {-0.001, 1.001, double(NAN), double(INFINITY)}) {
            ComPtr<ILuxCircularArc> refused;
            ExpectRefused(section->CreateCircularArc(bad, luxCopyShapeAll, refused.Out()), E_INVALIDARG,
                          ids_Lux_InvalidArgValue_1, {"RadialFraction"}, "CreateCircularArc");
            EXPECT_FALSE(refused);
        }
        EXPECT_TRUE(log->changes.empty());
    }
}

TEST_F(CircularAnnulusSectionTest, DragsAndFitsMoveTheSectionAndKeepItsAngles) {
    auto section = NewSection({1, 2, 3, 7, 4 * kPi, 0.5});
    auto log = Listen(section.get());
    auto graphic = As<ILuxGraphicInteractive>(section.get());
    ASSERT_EQ(graphic->DragStop(0, 0, 4, -1, VARIANT_TRUE, VARIANT{}), S_OK);
    const CircularParams moved = Params(section.get());
    EXPECT_NEAR(moved[0], 5, 1e-12);
    EXPECT_NEAR(moved[1], 1, 1e-12);
    EXPECT_EQ(moved[2], 3);
    EXPECT_EQ(moved[3], 7);  // not the core's 7 - 2 pi
    EXPECT_EQ(moved[4], 4 * kPi);
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    log->stopped.clear();  // the section itself: held here, it would outlive the test

    // Fitted into a box: the outer arc (here the start arc, scale 0.5) touches the shorter sides.
    log->changes.clear();
    ASSERT_EQ(section->FitToBoundingBox(NewRectangle(10, 20, 40, 30).get()), S_OK);
    const CircularParams fitted = Params(section.get());
    EXPECT_EQ(fitted, (CircularParams{30, 35, 15, 7, 4 * kPi, 0.5}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    ASSERT_EQ(section->put_RadialScale(3), S_OK);
    ASSERT_EQ(section->FitToBoundingBox(NewRectangle(10, 20, 40, 30).get()), S_OK);
    EXPECT_NEAR(Params(section.get())[2], 5, 1e-12);
}

TEST_F(CircularAnnulusSectionTest, CreateRLEHoldsExactlyThePixelsWhoseCentresAreInside) {
    const CircularParams shapes[] = {
        {50, 50, 25, 0, kPi, 2},               // the default
        {20.3, 17.8, 6.4, 0.3, 3 * kPi / 2, 1.9},  // three quarters
        {20.3, 17.8, 12.1, 2.5, -kPi / 2, 0.5},    // negative span, start arc outside
        {-4.25, 9.5, 3.3, 1, 4 * kPi, 2.5},        // a span beyond 2 pi: the whole ring
        {7.3, 7.6, 5, -kPi / 4, -7.5, 1.4},        // a negative span beyond 2 pi
        {0.1, 0.2, 30, 0.01, 0.02, 0.9},           // a thin sliver
    };
    for (const CircularParams& p : shapes) {
        SCOPED_TRACE(testing::Message() << p[0] << " " << p[1] << " " << p[2] << " " << p[3] << " " << p[4] << " "
                                        << p[5]);
        auto section = NewSection(p);
        PixelSet unsure;
        const PixelSet expected = CentresInsideSection({p[0], p[1], p[2], p[2], 0, p[3], p[4], p[5]}, unsure);
        const PixelSet got = MaskOf(section.get());
        EXPECT_FALSE(expected.empty());
        EXPECT_LT(unsure.size() * 20, expected.size());  // the comparison decides nearly every pixel
        int differing = 0;
        for (const auto& pixel : expected)
            if (!got.count(pixel) && !unsure.count(pixel)) ++differing;
        for (const auto& pixel : got)
            if (!expected.count(pixel) && !unsure.count(pixel)) ++differing;
        EXPECT_EQ(differing, 0);
    }
}

TEST_F(CircularAnnulusSectionTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto section = NewSection({-3.25, 1e-7, 0.125, 7, 4 * kPi, 0.5});
    ASSERT_EQ(section->put_ArcDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(section->put_RadialDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(section->put_CenterArcAdornment(luxCircularAnnulusSectionCenterArcAdornmentDottedArc), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.000001), S_OK);
    ASSERT_EQ(section->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(section->put_GraphicDOFEnable(luxCircularAnnulusSectionDOFBend), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(section.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxCircularAnnulusSection>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), Params(section.get()));
        LuxCircularAnnulusSectionDirectionAdornmentConstants arc{}, radial{};
        LuxCircularAnnulusSectionCenterArcAdornmentConstants centre{};
        loaded->get_ArcDirectionAdornment(&arc);
        loaded->get_RadialDirectionAdornment(&radial);
        loaded->get_CenterArcAdornment(&centre);
        EXPECT_EQ(arc, luxCircularAnnulusSectionDirectionAdornmentSolidArrow);
        EXPECT_EQ(radial, luxCircularAnnulusSectionDirectionAdornmentArrow);
        EXPECT_EQ(centre, luxCircularAnnulusSectionCenterArcAdornmentDottedArc);
        EXPECT_EQ(Get(loaded.get(), &ILuxCircularAnnulusSection::get_ManipArcFraction), 0.000001);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
        LuxCircularAnnulusSectionDOFConstants dof{};
        loaded->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(dof, luxCircularAnnulusSectionDOFBend);
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(section.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "GraphicDOFEnable", "<CenterX ", "<CenterY ", "<Radius ",
                            "<AngleStart ", "<AngleSpan ", "<RadialScale ", "<ManipArcFraction ",
                            "<ArcDirectionAdornment ", "<RadialDirectionAdornment ", "<CenterArcAdornment "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(CircularAnnulusSectionTest, LoadsOfInvalidGeometryAreRefusedAndLeaveTheSectionAsItWas) {
    const CircularParams start{1, 2, 3, 4, 5, 6};
    auto section = NewSection(start);
    ASSERT_EQ(section->put_ArcDirectionAdornment(luxCircularAnnulusSectionDirectionAdornmentArrow), S_OK);
    auto log = Listen(section.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {{"CenterX", 7},    {"CenterY", 8},   {"Radius", 9},
                                                       {"AngleStart", 10}, {"AngleSpan", 11}, {"RadialScale", 0.5}};
        bool placed = false;
        for (const auto& [name, number] : good) {
            const bool here = name == std::string_view(key);
            placed |= here;
            archive->AddEntry(name, here ? std::move(value) : Variant(number));
        }
        if (!placed) archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(section.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"Radius", Variant(0.0)},          {"Radius", Variant(-2.0)},
        {"AngleSpan", Variant(0.0)},       {"RadialScale", Variant(1.0)},
        {"RadialScale", Variant(-1.0)},    {"CenterX", Variant(double(NAN))},
        {"AngleStart", Variant(double(INFINITY))}, {"ManipArcFraction", Variant(0.0)},
        {"ManipArcFraction", Variant(1.0)}, {"ArcDirectionAdornment", Variant(int32_t{3})},
        {"CenterArcAdornment", Variant(int32_t{-1})}, {"Radius", Variant("wide")},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(section.get()), start);
        LuxCircularAnnulusSectionDirectionAdornmentConstants arc{};
        section->get_ArcDirectionAdornment(&arc);
        EXPECT_EQ(arc, luxCircularAnnulusSectionDirectionAdornmentArrow);
    }
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(load("ManipArcFraction", Variant(0.25)), S_OK);
    EXPECT_EQ(Params(section.get()), (CircularParams{7, 8, 9, 10, 11, 0.5}));
    EXPECT_EQ(Get(section.get(), &ILuxCircularAnnulusSection::get_ManipArcFraction), 0.25);
}

}  // namespace
}  // namespace tessaly::test
