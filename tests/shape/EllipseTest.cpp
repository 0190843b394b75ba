// LuxEllipse: its defaults, the rotation's normalisation, one Change a call and the
// unit-circle transform's own state ID, refusals that keep the ellipse and raise nothing,
// the unit-circle transform both ways, the bounding and the inscribing affine rectangle,
// its mask against a pixel-by-pixel centre test, MapLinear, copy flags with the adornments,
// and persistence with the loads it refuses.
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

using EllipseParams = std::array<double, 5>;  // CenterX, CenterY, RadiusX, RadiusY, Rotation
using Pixels = std::set<std::pair<LONG, LONG>>;

class EllipseTest : public ShapeFixture {
public:
    static ComPtr<ILuxEllipse> NewEllipse() { return Make<ILuxEllipse>("Tessaly.LuxEllipse"); }
    static ComPtr<ILuxEllipse> NewEllipse(const EllipseParams& p) {
        auto ellipse = NewEllipse();
        EXPECT_EQ(ellipse->SetCenterXYRadiusXYRotation(p[0], p[1], p[2], p[3], p[4]), S_OK);
        return ellipse;
    }
    static EllipseParams Params(ILuxEllipse* ellipse) {
        EllipseParams p{};
        EXPECT_EQ(ellipse->GetCenterXYRadiusXYRotation(&p[0], &p[1], &p[2], &p[3], &p[4]), S_OK);
        return p;
    }
    using ShapeFixture::Params;
    static std::array<double, 6> Matrix(ILuxTransform2DLinear* linear) {
        std::array<double, 6> m{};
        EXPECT_EQ(linear->GetMatrixElementsTranslation(&m[0], &m[1], &m[2], &m[3], &m[4], &m[5]), S_OK);
        return m;
    }
    // (x/RadiusX)^2 + (y/RadiusY)^2 of the point in the ellipse's own frame: 1 on the outline.
    static long double Level(const EllipseParams& e, long double x, long double y) {
        const long double dx = x - e[0], dy = y - e[1];
        const long double c = std::cos((long double)e[4]), s = std::sin((long double)e[4]);
        const long double u = (c * dx + s * dy) / e[2], v = (-s * dx + c * dy) / e[3];
        return u * u + v * v;
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
    // The pixels whose centres lie inside; those so close to the outline that rounding could
    // decide are left out of both sets.
    static void ExpectMaskIsCentresInside(ILuxEllipse* ellipse) {
        const EllipseParams e = Params(ellipse);
        const double reach = std::max(e[2], e[3]);
        Pixels expected, unsure;
        for (LONG j = LONG(std::floor(e[1] - reach)) - 2; j <= LONG(std::ceil(e[1] + reach)) + 2; ++j)
            for (LONG i = LONG(std::floor(e[0] - reach)) - 2; i <= LONG(std::ceil(e[0] + reach)) + 2; ++i) {
                const long double level = Level(e, i + 0.5L, j + 0.5L);
                if (std::fabs(level - 1) < 1e-9L) unsure.insert({i, j});
                else if (level < 1) expected.insert({i, j});
            }
        Pixels got = MaskOf(ellipse);
        for (const auto& pixel : unsure) got.erase(pixel);
        EXPECT_EQ(got, expected);
    }
};

TEST_F(EllipseTest, ANewEllipseAndItsDerivedValues) {
    auto ellipse = NewEllipse();
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{50, 50, 50, 25, 0}));
    EXPECT_EQ(SpaceName(ellipse.get()), ".");
    LuxEllipseDirectionAdornmentConstants adornment = luxEllipseDirectionAdornmentArrow;
    ASSERT_EQ(ellipse->get_XDirectionAdornment(&adornment), S_OK);
    EXPECT_EQ(adornment, luxEllipseDirectionAdornmentNone);
    ASSERT_EQ(ellipse->get_YDirectionAdornment(&adornment), S_OK);
    EXPECT_EQ(adornment, luxEllipseDirectionAdornmentNone);
    double area = 0, perimeter = 0;
    ASSERT_EQ(ellipse->get_Area(&area), S_OK);
    ASSERT_EQ(ellipse->get_Perimeter(&perimeter), S_OK);
    EXPECT_NEAR(area, kPi * 50 * 25, 1e-9);
    // Ramanujan's second approximation, far closer than this for radii 2:1.
    const double a = 50, b = 25, h = (a - b) * (a - b) / ((a + b) * (a + b));
    EXPECT_NEAR(perimeter, kPi * (a + b) * (1 + 3 * h / (10 + std::sqrt(4 - 3 * h))), 1e-6);
    // A circle's perimeter, exactly enough.
    ASSERT_EQ(ellipse->put_RadiusX(25), S_OK);
    ASSERT_EQ(ellipse->get_Perimeter(&perimeter), S_OK);
    EXPECT_NEAR(perimeter, 50 * kPi, 1e-10);
    // Inside the pixels of a new LuxRectangle (0, 0, 100, 100).
    ASSERT_EQ(ellipse->put_RadiusX(50), S_OK);
    const Pixels mask = MaskOf(ellipse.get());
    ASSERT_FALSE(mask.empty());
    for (const auto& [x, y] : mask) EXPECT_TRUE(x >= 0 && x < 100 && y >= 25 && y < 75) << x << "," << y;
}

TEST_F(EllipseTest, SettersRaiseTheirStateIdsAndRotationIsNormalised) {
    auto ellipse = NewEllipse({1, 2, 3, 4, 0.5});
    auto log = Listen(ellipse.get());
    ASSERT_EQ(ellipse->put_CenterX(-1), S_OK);
    ASSERT_EQ(ellipse->put_CenterY(-2), S_OK);
    ASSERT_EQ(ellipse->put_RadiusX(7), S_OK);
    ASSERT_EQ(ellipse->put_RadiusY(0.5), S_OK);
    ASSERT_EQ(ellipse->put_Rotation(kPi), S_OK);  // stored as -pi
    ASSERT_EQ(ellipse->put_Rotation(-kPi), S_OK);  // the same angle: nothing
    ASSERT_EQ(ellipse->put_Rotation(3 * kPi), S_OK);  // also -pi: nothing
    ASSERT_EQ(ellipse->put_RadiusX(7), S_OK);
    ASSERT_EQ(ellipse->SetCenterXYRadiusXYRotation(-1, -2, 7, 0.5, 0.25), S_OK);  // only the rotation
    ASSERT_EQ(ellipse->SetCenterXYRadiusXYRotation(-1, -2, 7, 0.5, 0.25), S_OK);  // nothing
    ASSERT_EQ(ellipse->SetCenterXYRadiusXYRotation(0, -2, 8, 0.5, 0.25), S_OK);  // two
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(ellipse->put_YDirectionAdornment(luxEllipseDirectionAdornmentArrow), S_OK);
    struct Expected {
        int32_t stateId;
        int32_t area;
        double value;
    };
    const Expected expected[] = {
        {luxEllipse_CenterX, luxFA_Shape_Geometry, -1},
        {luxEllipse_CenterY, luxFA_Shape_Geometry, -2},
        {luxEllipse_RadiusX, luxFA_Shape_Geometry, 7},
        {luxEllipse_RadiusY, luxFA_Shape_Geometry, 0.5},
        {luxEllipse_Rotation, luxFA_Shape_Geometry, -kPi},
        {luxEllipse_Rotation, luxFA_Shape_Geometry, 0.25},
        {luxState_MoreThanOneStateIDChanged, luxFA_Shape_Geometry, 0},
        {luxEllipse_XDirectionAdornment, luxFA_Shape_Graphic, luxEllipseDirectionAdornmentSolidArrow},
        {luxEllipse_YDirectionAdornment, luxFA_Shape_Graphic, luxEllipseDirectionAdornmentArrow},
    };
    ASSERT_EQ(log->changes.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(log->changes[i].stateId, expected[i].stateId);
        EXPECT_EQ(log->changes[i].areas, expected[i].area);
        if (expected[i].stateId == luxState_MoreThanOneStateIDChanged) continue;
        Variant value(log->changes[i].value);
        ASSERT_EQ(value.ChangeType(VT_R8), S_OK);
        EXPECT_EQ(value.get().dblVal, expected[i].value);
    }
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{0, -2, 8, 0.5, 0.25}));
}

TEST_F(EllipseTest, InvalidValuesAreRefusedLeavingTheEllipseAndRaisingNothing) {
    const EllipseParams start{10, 20, 30, 40, 0.5};
    auto ellipse = NewEllipse(start);
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentArrow), S_OK);
    auto log = Listen(ellipse.get());
    for (double bad : {0.0, -0.0, -1.0, double(NAN)}) {
        SCOPED_TRACE(bad);
        ExpectFailed(ellipse->put_RadiusX(bad), E_INVALIDARG, kInvalidRadius, "put_RadiusX");
        ExpectFailed(ellipse->put_RadiusY(bad), E_INVALIDARG, kInvalidRadius, "put_RadiusY");
        ExpectFailed(ellipse->SetCenterXYRadiusXYRotation(0, 0, bad, 1, 0), E_INVALIDARG, kInvalidRadius,
                     "SetCenterXYRadiusXYRotation");
        ExpectFailed(ellipse->SetCenterXYRadiusXYRotation(0, 0, 1, bad, 0), E_INVALIDARG, kInvalidRadius,
                     "SetCenterXYRadiusXYRotation");
    }
    ExpectRefused(ellipse->put_RadiusX(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"RadiusX"},
                  "put_RadiusX");
    ExpectRefused(ellipse->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    ExpectRefused(ellipse->put_CenterY(INFINITY), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"},
                  "put_CenterY");
    ExpectRefused(ellipse->put_Rotation(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Rotation"},
                  "put_Rotation");
    ExpectRefused(ellipse->SetCenterXYRadiusXYRotation(0, 0, 1, 1, -INFINITY), E_INVALIDARG,
                  core::ids_Core_InvalidArg_1, {"Rotation"}, "SetCenterXYRadiusXYRotation");
    ExpectRefused(ellipse->SetFromUnitCircleTransform(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"EllipseFromUnitCircle"}, "SetFromUnitCircleTransform");
    // A transform that flattens the circle into a segment or a point.
    for (auto singular : {Linear(1, 2, 2, 4, 5, 5), Linear(0, 0, 0, 0, 1, 1), Linear(3, 0, 0, 0, 0, 0)})
        ExpectFailed(ellipse->SetFromUnitCircleTransform(singular.get()), e_LuxShape_DegenerateShape,
                     "ccShapesError::DegenerateShape", "SetFromUnitCircleTransform");
    ExpectRefused(ellipse->SetFromBoundingRectangleAffine(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"NewBoundingRect"}, "SetFromBoundingRectangleAffine");
    ComPtr<ILuxEllipse> result;
    ExpectRefused(ellipse->MapLinear(nullptr, luxCopyShapeAll, result.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    // A map onto a line (exactly: products of a tilted ellipse's matrix with a singular one
    // round to a needle, which is an ellipse).
    ExpectFailed(ellipse->MapLinear(Linear(3, 0, 0, 0, 0, 0).get(), luxCopyShapeAll, result.Out()),
                 e_LuxShape_DegenerateShape, "ccShapesError::DegenerateShape", "MapLinear");
    EXPECT_FALSE(result);

    EXPECT_EQ(Params(ellipse.get()), start);
    LuxEllipseDirectionAdornmentConstants x{}, y{};
    ellipse->get_XDirectionAdornment(&x);
    ellipse->get_YDirectionAdornment(&y);
    EXPECT_EQ(x, luxEllipseDirectionAdornmentArrow);
    EXPECT_EQ(y, luxEllipseDirectionAdornmentNone);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(EllipseTest, TheUnitCircleTransformBothWays) {
    const double r = 0.6;
    auto ellipse = NewEllipse({3, -4, 5, 2, r});
    ComPtr<ILuxTransform2DLinear> transform;
    ASSERT_EQ(ellipse->GetUnitCircleTransform(transform.Out()), S_OK);
    const auto m = Matrix(transform.get());
    const double want[6] = {5 * std::cos(r), -2 * std::sin(r), 5 * std::sin(r), 2 * std::cos(r), 3, -4};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(m[i], want[i], 1e-14) << i;
    // A new object each time, not a view: changing it leaves the ellipse.
    ASSERT_EQ(transform->SetMatrixElementsTranslation(1, 0, 0, 1, 0, 0), S_OK);
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{3, -4, 5, 2, r}));

    auto log = Listen(ellipse.get());
    // A shear: singular values the golden ratio and its inverse, the larger along (phi, 1).
    ASSERT_EQ(ellipse->SetFromUnitCircleTransform(Linear(1, 1, 0, 1, 7, 8).get()), S_OK);
    const double phi = (1 + std::sqrt(5.0)) / 2;
    EllipseParams p = Params(ellipse.get());
    EXPECT_NEAR(p[0], 7, 1e-14);
    EXPECT_NEAR(p[1], 8, 1e-14);
    EXPECT_NEAR(p[2], phi, 1e-12);
    EXPECT_NEAR(p[3], 1 / phi, 1e-12);
    EXPECT_NEAR(std::tan(p[4]), 1 / phi, 1e-9);
    double area = 0;
    ASSERT_EQ(ellipse->get_Area(&area), S_OK);
    EXPECT_NEAR(area, kPi, 1e-12);  // pi |det|
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxEllipse_UnitCircleTransform);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    // The same ellipse again (another matrix that makes it): nothing changes, nothing raised.
    ComPtr<ILuxTransform2DLinear> own;
    ASSERT_EQ(ellipse->GetUnitCircleTransform(own.Out()), S_OK);
    ASSERT_EQ(ellipse->SetFromUnitCircleTransform(own.get()), S_OK);
    EXPECT_EQ(log->changes.size(), 1u);
    // Only the centre moves: still the unit-circle state ID.
    const auto o = Matrix(own.get());
    ASSERT_EQ(ellipse->SetFromUnitCircleTransform(Linear(o[0], o[1], o[2], o[3], 0, 0).get()), S_OK);
    ASSERT_EQ(log->changes.size(), 2u);
    EXPECT_EQ(log->changes[1].stateId, luxEllipse_UnitCircleTransform);
    // A mirror changes no point: radii 2 and 1 along the axes.
    ASSERT_EQ(ellipse->SetFromUnitCircleTransform(Linear(-2, 0, 0, 1, 0, 0).get()), S_OK);
    p = Params(ellipse.get());
    EXPECT_NEAR(p[2], 2, 1e-14);
    EXPECT_NEAR(p[3], 1, 1e-14);
    EXPECT_NEAR(std::sin(p[4]), 0, 1e-14);
    ExpectMaskIsCentresInside(ellipse.get());
}

TEST_F(EllipseTest, BoundingAndInscribingAffineRectangles) {
    const EllipseParams e{10, 20, 8, 3, 0.4};
    auto ellipse = NewEllipse(e);
    ASSERT_EQ(ellipse->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    for (VARIANT_BOOL deSkew : {VARIANT_TRUE, VARIANT_FALSE}) {
        SCOPED_TRACE(deSkew);
        ComPtr<ILuxRectangleAffine> bounds;
        ASSERT_EQ(ellipse->GetBoundingRectangleAffine(deSkew, bounds.Out()), S_OK);
        std::array<double, 6> b{};
        ASSERT_EQ(bounds->GetCenterLengthsRotationSkew(&b[0], &b[1], &b[2], &b[3], &b[4], &b[5]), S_OK);
        const double want[6] = {10, 20, 16, 6, 0.4, 0};
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(b[i], want[i], 1e-12) << i;
        EXPECT_EQ(SpaceName(bounds.get()), "Fixture");
    }
    // The ellipse inscribed in a skewed rectangle: every point of the square's inscribed
    // circle, mapped as the square maps onto the rectangle, lies on the ellipse.
    auto rect = Make<ILuxRectangleAffine>("Tessaly.LuxRectangleAffine");
    const double cx = -3, cy = 4, sx = 12, sy = 5, rot = 0.3, skew = 0.5;
    ASSERT_EQ(rect->SetCenterLengthsRotationSkew(cx, cy, sx, sy, rot, skew), S_OK);
    auto log = Listen(ellipse.get());
    ASSERT_EQ(ellipse->SetFromBoundingRectangleAffine(rect.get()), S_OK);
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    const EllipseParams got = Params(ellipse.get());
    EXPECT_NEAR(got[0], cx, 1e-12);
    EXPECT_NEAR(got[1], cy, 1e-12);
    EXPECT_GT(std::fabs(std::sin(got[4] - rot)), 1e-3);  // skew turns the ellipse off the rectangle's axis
    const double ux = sx / 2 * std::cos(rot), uy = sx / 2 * std::sin(rot);
    const double vx = sy / 2 * std::cos(rot + kPi / 2 + skew), vy = sy / 2 * std::sin(rot + kPi / 2 + skew);
    for (int k = 0; k < 16; ++k) {
        const double t = 2 * kPi * k / 16;
        EXPECT_NEAR(Level(got, cx + std::cos(t) * ux + std::sin(t) * vx, cy + std::cos(t) * uy + std::sin(t) * vy), 1,
                    1e-12)
            << k;
    }
    double area = 0;
    ASSERT_EQ(ellipse->get_Area(&area), S_OK);
    EXPECT_NEAR(area, kPi * (sx / 2) * (sy / 2) * std::cos(skew), 1e-10);
    // Again: the same ellipse, nothing raised.
    ASSERT_EQ(ellipse->SetFromBoundingRectangleAffine(rect.get()), S_OK);
    EXPECT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(SpaceName(ellipse.get()), "Fixture");
}

TEST_F(EllipseTest, CreateRLEHoldsExactlyThePixelsWhoseCentresAreInside) {
    const EllipseParams ellipses[] = {{0, 0, 1, 1, 0},          {10.5, 10.5, 6, 2, 0},     {3.25, -7.75, 9.3, 2.2, 0.7},
                                      {-40.1, 40.9, 17.7, 4.1, -2.5}, {5, 5, 0.6, 30, 1.2}, {0.5, 0.5, 20, 0.3, 0.05}};
    for (const EllipseParams& e : ellipses) {
        SCOPED_TRACE(testing::Message() << e[0] << "," << e[1] << "," << e[2] << "," << e[3] << "," << e[4]);
        ExpectMaskIsCentresInside(NewEllipse(e).get());
    }
}

TEST_F(EllipseTest, MapLinearMapCopyAndCloneCarryWhatTheCopyFlagsSelect) {
    auto ellipse = NewEllipse({1, 2, 4, 3, 0});
    ASSERT_EQ(ellipse->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(ellipse.get())->put_Color(0x42), S_OK);
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(ellipse->put_YDirectionAdornment(luxEllipseDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(ellipse->put_GraphicDOFEnable(luxEllipseDOFRotation), S_OK);
    // A quarter turn and a shift: centre (-2, 1) + (10, 20), the x-axis turned to pi/2.
    auto turn = Linear(0, -1, 1, 0, 10, 20);
    const auto check = [&](ILuxEllipse* copy, int32_t flags, bool turned) {
        SCOPED_TRACE(flags);
        ASSERT_TRUE(copy);
        const EllipseParams p = Params(copy);
        EXPECT_NEAR(p[0], turned ? 8 : 1, 1e-12);
        EXPECT_NEAR(p[1], turned ? 21 : 2, 1e-12);
        EXPECT_NEAR(p[2], 4, 1e-12);
        EXPECT_NEAR(p[3], 3, 1e-12);
        EXPECT_NEAR(std::fabs(std::sin(p[4])), turned ? 1 : 0, 1e-12);
        EXPECT_EQ(SpaceName(copy), "Fixture");
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        LONG color = 0, dof = 0;
        As<ILuxGraphic>(copy)->get_Color(&color);
        As<ILuxGraphicInteractive>(copy)->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(color, graphics ? 0x42 : luxColorCyan);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxEllipseDOFRotation : luxEllipseDOFAll);
        LuxEllipseDirectionAdornmentConstants x{}, y{};
        copy->get_XDirectionAdornment(&x);
        copy->get_YDirectionAdornment(&y);
        EXPECT_EQ(x, graphics ? luxEllipseDirectionAdornmentArrow : luxEllipseDirectionAdornmentNone);
        EXPECT_EQ(y, graphics ? luxEllipseDirectionAdornmentSolidArrow : luxEllipseDirectionAdornmentNone);
    };
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        ComPtr<ILuxEllipse> copy;
        ASSERT_EQ(ellipse->Copy(f, copy.Out()), S_OK);
        check(copy.get(), flags, false);
        ASSERT_EQ(ellipse->MapLinear(turn.get(), f, copy.Out()), S_OK);
        check(copy.get(), flags, true);
        ComPtr<ILuxShape> mapped;
        ASSERT_EQ(ellipse->Map(As<ILuxTransform2D>(turn.get()).get(), f, mapped.Out()), S_OK);
        check(As<ILuxEllipse>(mapped.get()).get(), flags, true);
    }
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(ellipse.get())->Clone(clone.Out()), S_OK);
    auto cloned = As<ILuxEllipse>(clone.get());
    check(cloned.get(), luxCopyShapeAll, false);
    ASSERT_EQ(cloned->put_CenterX(100), S_OK);
    EXPECT_EQ(Params(ellipse.get())[0], 1);
    // Through a shear the area scales by the determinant and the outline follows the map.
    ComPtr<ILuxEllipse> sheared;
    ASSERT_EQ(ellipse->MapLinear(Linear(1, 0.5, 0, 2, 0, 0).get(), luxCopyShapeGeometryOnly, sheared.Out()), S_OK);
    double area = 0;
    ASSERT_EQ(sheared->get_Area(&area), S_OK);
    EXPECT_NEAR(area, 2 * kPi * 12, 1e-10);
    const EllipseParams s = Params(sheared.get());
    for (int k = 0; k < 8; ++k) {
        const double t = 2 * kPi * k / 8, x = 1 + 4 * std::cos(t), y = 2 + 3 * std::sin(t);
        EXPECT_NEAR(Level(s, x + 0.5 * y, 2 * y), 1, 1e-12) << k;
    }
    ComPtr<ILuxShape> mapped;
    ExpectFailed(ellipse->Map(BendTransform::Make(0.1).get(), luxCopyShapeAll, mapped.Out()),
                 e_LuxTransform_NotLinear, "NonlinearXform", "Map");
    EXPECT_FALSE(mapped);
}

TEST_F(EllipseTest, FitToBoundingBoxAndFitToImageInscribeTheEllipse) {
    auto ellipse = NewEllipse({0, 0, 1, 1, 0.5});
    auto log = Listen(ellipse.get());
    ASSERT_EQ(ellipse->FitToBoundingBox(NewRectangle(-5, -6, 7, 8).get()), S_OK);
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{-1.5, -2, 3.5, 4, 0}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    auto image = NewImage(640, 480);
    ASSERT_EQ(ellipse->FitToImage(As<ILuxImage>(image.get()).get(), 0.5, 0.25), S_OK);
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{320, 240, 160, 60, 0}));
    // In a space turned by 30 degrees and scaled by 2 about pixel (100, 50): the ellipse
    // inscribed in the image's frame seen from there, turned the other way.
    ComPtr<ILuxCoordinateSpaceTree> tree;
    ASSERT_EQ(As<ILuxImage>(image.get())->get_CoordinateSpaceTree(tree.Out()), S_OK);
    const double a = kPi / 6;
    ASSERT_EQ(AddSpace(tree.get(), "Turned", Linear(2 * std::cos(a), -2 * std::sin(a), 2 * std::sin(a), 2 * std::cos(a),
                                                    100, 50).get()),
              S_OK);
    ASSERT_EQ(ellipse->put_SelectedSpaceName(Bstr("Turned").get()), S_OK);
    ASSERT_EQ(ellipse->FitToImage(As<ILuxImage>(image.get()).get(), 1, 0.5), S_OK);
    const EllipseParams p = Params(ellipse.get());
    const double dx = 220, dy = 190;
    const EllipseParams want{(std::cos(a) * dx + std::sin(a) * dy) / 2, (-std::sin(a) * dx + std::cos(a) * dy) / 2,
                             160, 60, -a};
    for (int i = 0; i < 5; ++i) EXPECT_NEAR(p[i], want[i], 1e-9) << i;
}

TEST_F(EllipseTest, MakeShapeModelIsNotAvailable) {
    auto ellipse = NewEllipse();
    auto log = Listen(ellipse.get());
    ComPtr<IDispatch> model;
    ExpectFailed(ellipse->MakeShapeModel(1.0, 0, VARIANT_TRUE, model.Out()), e_Lux_NotImplemented, "shape models",
                 "MakeShapeModel");
    EXPECT_FALSE(model);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(EllipseTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto ellipse = NewEllipse({-3.25, 1e-7, 0.125, 1234.5, -kPi});
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(ellipse->put_YDirectionAdornment(luxEllipseDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(ellipse->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(ellipse->put_GraphicDOFEnable(luxEllipseDOFScale), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(ellipse.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxEllipse>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), Params(ellipse.get()));
        LuxEllipseDirectionAdornmentConstants x{}, y{};
        loaded->get_XDirectionAdornment(&x);
        loaded->get_YDirectionAdornment(&y);
        EXPECT_EQ(x, luxEllipseDirectionAdornmentSolidArrow);
        EXPECT_EQ(y, luxEllipseDirectionAdornmentArrow);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
        LuxEllipseDOFConstants dof{};
        loaded->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(dof, luxEllipseDOFScale);
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(ellipse.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "GraphicDOFEnable", "<CenterX ", "<CenterY ", "<RadiusX ",
                            "<RadiusY ", "<Rotation ", "<XDirectionAdornment ", "<YDirectionAdornment "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(EllipseTest, LoadsOfInvalidGeometryAreRefusedAndLeaveTheEllipseAsItWas) {
    const EllipseParams start{1, 2, 3, 4, 0.5};
    auto ellipse = NewEllipse(start);
    ASSERT_EQ(ellipse->put_XDirectionAdornment(luxEllipseDirectionAdornmentArrow), S_OK);
    auto log = Listen(ellipse.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {
            {"CenterX", 7}, {"CenterY", 8}, {"RadiusX", 9}, {"RadiusY", 10}, {"Rotation", 1}};
        for (const auto& [name, number] : good)
            archive->AddEntry(name, name == std::string_view(key) ? std::move(value) : Variant(number));
        if (std::string_view(key).ends_with("Adornment")) archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(ellipse.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"RadiusX", Variant(0.0)},
        {"RadiusY", Variant(-2.0)},
        {"RadiusY", Variant(double(NAN))},
        {"RadiusX", Variant(double(INFINITY))},
        {"CenterX", Variant(double(NAN))},
        {"CenterY", Variant(double(INFINITY))},
        {"Rotation", Variant(double(-INFINITY))},
        {"XDirectionAdornment", Variant(int32_t{3})},
        {"YDirectionAdornment", Variant(int32_t{-1})},
        {"RadiusX", Variant("wide")},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(ellipse.get()), start);
        LuxEllipseDirectionAdornmentConstants x{};
        ellipse->get_XDirectionAdornment(&x);
        EXPECT_EQ(x, luxEllipseDirectionAdornmentArrow);
    }
    EXPECT_TRUE(log->changes.empty());
    // A good load: the values, the rotation normalised.
    ASSERT_EQ(load("Rotation", Variant(kPi)), S_OK);
    EXPECT_EQ(Params(ellipse.get()), (EllipseParams{7, 8, 9, 10, -kPi}));
    ExpectMaskIsCentresInside(ellipse.get());
}

}  // namespace
}  // namespace tessaly::test
