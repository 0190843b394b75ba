// LuxEllipticalAnnulusSection: its defaults, the core's refusals (each leaving the section
// as it was and raising nothing), the rotation normalised while the angles are kept, events
// and their functional areas, the unit-circle parameters both ways, Map and copy flags, the
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

// CenterX, CenterY, RadiusX, RadiusY, Rotation, AngleStart, AngleSpan, RadialScale
using EllipticalParams = std::array<double, 8>;

class EllipticalAnnulusSectionTest : public ShapeFixture {
public:
    static ComPtr<ILuxEllipticalAnnulusSection> NewSection() {
        return Make<ILuxEllipticalAnnulusSection>("Tessaly.LuxEllipticalAnnulusSection");
    }
    static ComPtr<ILuxEllipticalAnnulusSection> NewSection(const EllipticalParams& p) {
        auto section = NewSection();
        EXPECT_EQ(section->SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(p[0], p[1], p[2], p[3], p[4], p[5],
                                                                                   p[6], p[7]),
                  S_OK);
        return section;
    }
    static EllipticalParams Params(ILuxEllipticalAnnulusSection* section) {
        EllipticalParams p{};
        EXPECT_EQ(section->GetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(&p[0], &p[1], &p[2], &p[3], &p[4],
                                                                                   &p[5], &p[6], &p[7]),
                  S_OK);
        return p;
    }
    static PixelSet MaskOf(IUnknown* region) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(As<ILuxRegion>(region)->CreateRLE(1, 0, rle.Out()), S_OK);
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
                if (value == 1) pixels.insert({x + i, y + j});
                else EXPECT_EQ(value, 0);
            }
        return pixels;
    }
    // Where the section's point at the ellipse angle t of the arc scaled by `scale` lies.
    static std::pair<double, double> PointOf(const EllipticalParams& p, double t, double scale) {
        const double c = std::cos(p[4]), s = std::sin(p[4]);
        const double ex = scale * p[2] * std::cos(t), ey = scale * p[3] * std::sin(t);
        return {p[0] + c * ex - s * ey, p[1] + s * ex + c * ey};
    }
};

TEST_F(EllipticalAnnulusSectionTest, ANewSectionAndItsDerivedValues) {
    auto section = NewSection();
    EXPECT_EQ(Params(section.get()), (EllipticalParams{50, 50, 25, 25, 0, 0, kPi, 2}));
    double fraction = 0, area = 0, perimeter = 0;
    section->get_ManipArcFraction(&fraction);
    EXPECT_EQ(fraction, 0.5);
    ASSERT_EQ(section->get_Area(&area), S_OK);
    ASSERT_EQ(section->get_Perimeter(&perimeter), S_OK);
    EXPECT_NEAR(area, kPi * (50 * 50 - 25 * 25) / 2, 1e-9);
    EXPECT_NEAR(perimeter, kPi * 25 + kPi * 50 + 2 * 25, 1e-9);
    // A quarter of the ring between the ellipses (4, 2) and (12, 6): area scales with the radii.
    auto quarter = NewSection({0, 0, 4, 2, 0.3, 0, kPi / 2, 3});
    ASSERT_EQ(quarter->get_Area(&area), S_OK);
    EXPECT_NEAR(area, kPi * (12 * 6 - 4 * 2) / 4, 1e-9);
}

TEST_F(EllipticalAnnulusSectionTest, InvalidGeometryIsRefusedByTheCoreLeavingTheSectionAndRaisingNothing) {
    const EllipticalParams start{10, 20, 30, 15, 0.5, 7, 4 * kPi, 0.5};
    auto section = NewSection(start);
    auto log = Listen(section.get());
    const char* const kRadius = "ccQvShapesError::InvalidRadius";
    for (double bad : {0.0, -1.0, double(NAN)}) {
        ExpectFailed(section->put_RadiusX(bad), E_INVALIDARG, kRadius, "put_RadiusX");
        ExpectFailed(section->put_RadiusY(bad), E_INVALIDARG, kRadius, "put_RadiusY");
    }
    ExpectFailed(section->put_AngleSpan(0), E_INVALIDARG, "ccQvShapesError::InvalidAngleSpan", "put_AngleSpan");
    for (double bad : {1.0, 0.0, -3.0})
        ExpectFailed(section->put_RadialScale(bad), E_INVALIDARG, "ccQvShapesError::InvalidRadialScale",
                     "put_RadialScale");
    const char* const kSetAll = "SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale";
    ExpectFailed(section->SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(0, 0, 1, 0, 0, 0, 1, 2),
                 E_INVALIDARG, kRadius, kSetAll);
    ExpectFailed(section->SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(0, 0, 1, 1, 0, 0, 1, 1),
                 E_INVALIDARG, "ccQvShapesError::InvalidRadialScale", kSetAll);
    for (double bad : {0.0, 0.9999995, 2.0})
        ExpectFailed(section->put_ManipArcFraction(bad), E_INVALIDARG, "ccQvShapesError::InvalidEllipseFraction",
                     "put_ManipArcFraction");
    ExpectRefused(section->put_Rotation(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Rotation"},
                  "put_Rotation");
    ExpectRefused(section->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    // A singular transform, and none at all.
    ExpectFailed(section->SetFromUnitCircleParams(0, 1, 2, Linear(1, 2, 2, 4, 0, 0).get()), e_LuxTransform_Singular,
                 "ccMathError::Singular", "SetFromUnitCircleParams");
    ExpectRefused(section->SetFromUnitCircleParams(0, 1, 2, nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"EllipseFromUnitCircle"}, "SetFromUnitCircleParams");
    ExpectFailed(section->SetFromUnitCircleParams(0, 0, 2, Linear(1, 0, 0, 1, 0, 0).get()), E_INVALIDARG,
                 "ccQvShapesError::InvalidAngleSpan", "SetFromUnitCircleParams");

    EXPECT_EQ(Params(section.get()), start);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(EllipticalAnnulusSectionTest, RotationIsNormalisedAnglesAreKeptAndEachSetterRaisesItsStateId) {
    auto section = NewSection({1, 2, 3, 4, 0, 0, 1, 2});
    auto log = Listen(section.get());
    ASSERT_EQ(section->put_Rotation(kPi), S_OK);
    double rotation = 0;
    section->get_Rotation(&rotation);
    EXPECT_EQ(rotation, -kPi);
    ASSERT_EQ(section->put_Rotation(-kPi), S_OK);  // the same angle: nothing
    ASSERT_EQ(section->put_AngleStart(9), S_OK);
    ASSERT_EQ(section->put_AngleSpan(-4 * kPi), S_OK);
    ASSERT_EQ(section->put_RadiusY(5), S_OK);
    ASSERT_EQ(section->put_RadialScale(0.5), S_OK);
    EXPECT_EQ(Params(section.get()), (EllipticalParams{1, 2, 3, 5, -kPi, 9, -4 * kPi, 0.5}));
    const int32_t ids[] = {luxEllipticalAnnulusSection_Rotation, luxEllipticalAnnulusSection_AngleStart,
                           luxEllipticalAnnulusSection_AngleSpan, luxEllipticalAnnulusSection_RadiusY,
                           luxEllipticalAnnulusSection_RadialScale};
    ASSERT_EQ(log->changes.size(), 5u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
    }
    EXPECT_EQ(log->changes[0].value.get().dblVal, -kPi);

    log->changes.clear();
    ASSERT_EQ(section->SetCenterRadiusXYRotationAngleStartAngleSpanRadialScale(0, 0, 3, 5, -kPi, 9, -4 * kPi, 0.5),
              S_OK);
    ASSERT_EQ(section->put_ArcDirectionAdornment(luxEllipticalAnnulusSectionDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.3), S_OK);
    ASSERT_EQ(log->changes.size(), 3u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    EXPECT_EQ(log->changes[1].stateId, luxEllipticalAnnulusSection_ArcDirectionAdornment);
    EXPECT_EQ(log->changes[1].areas, luxFA_Shape_Graphic);
    EXPECT_EQ(log->changes[2].stateId, luxEllipticalAnnulusSection_ManipArcFraction);
    EXPECT_EQ(log->changes[2].areas, luxFA_Shape_Graphic);
}

TEST_F(EllipticalAnnulusSectionTest, UnitCircleParamsRoundTripAndAMirrorReversesTheSpan) {
    const EllipticalParams start{3, -4, 6, 2, 0.7, 0.4, 1.1, 1.5};
    auto section = NewSection(start);
    double unitStart = 0, unitSpan = 0, scale = 0;
    ComPtr<ILuxTransform2DLinear> transform;
    ASSERT_EQ(section->GetUnitCircleParams(&unitStart, &unitSpan, &scale, transform.Out()), S_OK);
    ASSERT_TRUE(transform);
    EXPECT_EQ(scale, 1.5);
    EXPECT_EQ(unitStart, 0.4);
    EXPECT_EQ(unitSpan, 1.1);
    // The transform takes the unit circle's point at unitStart to the start point.
    double x = 0, y = 0;
    ASSERT_EQ(As<ILuxTransform2D>(transform.get())->MapPoint(std::cos(unitStart), std::sin(unitStart), &x, &y), S_OK);
    const auto [sx, sy] = PointOf(start, 0.4, 1);
    EXPECT_NEAR(x, sx, 1e-9);
    EXPECT_NEAR(y, sy, 1e-9);

    auto other = NewSection();
    auto log = Listen(other.get());
    ASSERT_EQ(other->SetFromUnitCircleParams(unitStart, unitSpan, scale, transform.get()), S_OK);
    const EllipticalParams back = Params(other.get());
    double areaA = 0, areaB = 0;
    section->get_Area(&areaA);
    other->get_Area(&areaB);
    EXPECT_NEAR(areaA, areaB, 1e-9);
    for (double t : {0.0, 0.5, 1.0}) {
        const auto a = PointOf(start, 0.4 + t * 1.1, 1);
        const auto b = PointOf(back, back[5] + t * back[6], 1);
        EXPECT_NEAR(a.first, b.first, 1e-9) << t;
        EXPECT_NEAR(a.second, b.second, 1e-9) << t;
    }
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxEllipticalAnnulusSection_UnitCircleParams);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    ASSERT_EQ(other->SetFromUnitCircleParams(unitStart, unitSpan, scale, transform.get()), S_OK);
    EXPECT_EQ(log->changes.size(), 1u);  // nothing changed

    // Angles as given come back as given.
    ASSERT_EQ(other->put_AngleStart(9), S_OK);
    ASSERT_EQ(other->GetUnitCircleParams(&unitStart, &unitSpan, &scale, transform.Out()), S_OK);
    EXPECT_EQ(unitStart, 9);

    // Mirrored in the x-axis: the arc runs the other way round.
    ASSERT_EQ(other->SetFromUnitCircleParams(0.25, 1, 2, Linear(3, 0, 0, -2, 10, 10).get()), S_OK);
    const EllipticalParams mirrored = Params(other.get());
    EXPECT_NEAR(mirrored[6], -1, 1e-12);
    EXPECT_NEAR(mirrored[7], 2, 1e-12);
    const auto startPoint = PointOf(mirrored, mirrored[5], 1);
    EXPECT_NEAR(startPoint.first, 10 + 3 * std::cos(0.25), 1e-9);
    EXPECT_NEAR(startPoint.second, 10 - 2 * std::sin(0.25), 1e-9);
}

TEST_F(EllipticalAnnulusSectionTest, MapAndCopyBaseCarryTheAdornmentsWithTheBasicGraphics) {
    auto section = NewSection({1, 2, 3, 4, 0.5, 0.1, 2, 3});
    ASSERT_EQ(section->put_RadialDirectionAdornment(luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.2), S_OK);
    auto shift = As<ILuxTransform2D>(Linear(1, 0, 0, 1, 10, 20).get());
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics}) {
        SCOPED_TRACE(flags);
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        ComPtr<ILuxShape> mapped;
        ASSERT_EQ(section->Map(shift.get(), static_cast<LuxCopyShapeConstants>(flags), mapped.Out()), S_OK);
        auto moved = As<ILuxEllipticalAnnulusSection>(mapped.get());
        ASSERT_TRUE(moved);
        const EllipticalParams p = Params(moved.get());
        EXPECT_NEAR(p[0], 11, 1e-12);
        EXPECT_NEAR(p[1], 22, 1e-12);
        LuxEllipticalAnnulusSectionDirectionAdornmentConstants radial{};
        double fraction = 0;
        moved->get_RadialDirectionAdornment(&radial);
        moved->get_ManipArcFraction(&fraction);
        EXPECT_EQ(radial, graphics ? luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow : 0);
        EXPECT_EQ(fraction, graphics ? 0.2 : 0.5);
        ComPtr<ILuxGraphic> copy;
        ASSERT_EQ(As<ILuxGraphic>(section.get())->CopyBase(static_cast<LuxCopyShapeConstants>(flags), copy.Out()), S_OK);
        auto copied = As<ILuxEllipticalAnnulusSection>(copy.get());
        EXPECT_EQ(Params(copied.get()), Params(section.get()));
        copied->get_RadialDirectionAdornment(&radial);
        EXPECT_EQ(radial, graphics ? luxEllipticalAnnulusSectionDirectionAdornmentSolidArrow : 0);
    }
}

TEST_F(EllipticalAnnulusSectionTest, CreateRLEHoldsExactlyThePixelsWhoseCentresAreInside) {
    const EllipticalParams shapes[] = {
        {50, 50, 25, 25, 0, 0, kPi, 2},
        {30.2, 20.7, 14.5, 6.25, 0.6, 0.2, 4, 1.7},
        {30.2, 20.7, 9.5, 16.25, -2.2, 1, -2.5, 0.6},
        {10.5, 12.25, 7, 3.5, 1.1, 0, 5 * kPi, 1.8},
        {10.5, 12.25, 7, 3.5, -0.4, 2, -7, 2.2},
    };
    for (const EllipticalParams& p : shapes) {
        SCOPED_TRACE(testing::Message() << p[2] << " " << p[3] << " " << p[4] << " " << p[5] << " " << p[6] << " "
                                        << p[7]);
        auto section = NewSection(p);
        PixelSet unsure;
        const PixelSet expected = CentresInsideSection({p[0], p[1], p[2], p[3], p[4], p[5], p[6], p[7]}, unsure);
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

TEST_F(EllipticalAnnulusSectionTest, PersistenceRoundTripsAndInvalidLoadsAreRefused) {
    const EllipticalParams start{-3.25, 1e-7, 0.125, 9, -kPi, 7, -4 * kPi, 0.5};
    auto section = NewSection(start);
    ASSERT_EQ(section->put_CenterArcAdornment(luxEllipticalAnnulusSectionCenterArcAdornmentSolidArc), S_OK);
    ASSERT_EQ(section->put_ManipArcFraction(0.999999), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(section.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxEllipticalAnnulusSection>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), start);
        LuxEllipticalAnnulusSectionCenterArcAdornmentConstants centre{};
        double fraction = 0;
        loaded->get_CenterArcAdornment(&centre);
        loaded->get_ManipArcFraction(&fraction);
        EXPECT_EQ(centre, luxEllipticalAnnulusSectionCenterArcAdornmentSolidArc);
        EXPECT_EQ(fraction, 0.999999);
    }

    auto log = Listen(section.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        archive->AddEntry("CenterX", Variant(100.0));
        archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(section.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"RadiusX", Variant(0.0)},      {"RadiusY", Variant(-1.0)},         {"AngleSpan", Variant(0.0)},
        {"RadialScale", Variant(1.0)},  {"Rotation", Variant(double(NAN))}, {"ManipArcFraction", Variant(2.0)},
        {"RadialDirectionAdornment", Variant(int32_t{5})},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(section.get()), start);
    }
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(load("Rotation", Variant(kPi)), S_OK);
    const EllipticalParams loaded = Params(section.get());
    EXPECT_EQ(loaded[0], 100);
    EXPECT_EQ(loaded[4], -kPi);
}

}  // namespace
}  // namespace tessaly::test
