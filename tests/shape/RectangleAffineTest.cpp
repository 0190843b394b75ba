// LuxRectangleAffine: its parameters and corners, the skew's conditioning and the angles'
// normalisation, events and refusals, SetFromRectangle, Map and MapLinear, copy flags,
// FitToImage and FitToBoundingBox, its mask against a pixel-by-pixel centre test, and
// persistence with the loads it refuses.
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
constexpr double kSnapped = 1.5727963267948966;  // pi/2 + 0.002

using AffineParams = std::array<double, 6>;  // CenterX, CenterY, SideXLength, SideYLength, Rotation, Skew
using Pixels = std::set<std::pair<LONG, LONG>>;

struct Pt {
    double x, y;
};

class RectangleAffineTest : public ShapeFixture {
public:
    static ComPtr<ILuxRectangleAffine> NewAffine() { return Make<ILuxRectangleAffine>("Tessaly.LuxRectangleAffine"); }
    static ComPtr<ILuxRectangleAffine> NewAffine(const AffineParams& p) {
        auto affine = NewAffine();
        EXPECT_EQ(affine->SetCenterLengthsRotationSkew(p[0], p[1], p[2], p[3], p[4], p[5]), S_OK);
        return affine;
    }
    static AffineParams Params(ILuxRectangleAffine* affine) {
        AffineParams p{};
        EXPECT_EQ(affine->GetCenterLengthsRotationSkew(&p[0], &p[1], &p[2], &p[3], &p[4], &p[5]), S_OK);
        return p;
    }
    using ShapeFixture::Params;
    // CornerOrigin, CornerX, CornerOpposite, CornerY: the outline in order.
    static std::array<Pt, 4> Corners(ILuxRectangleAffine* affine) {
        std::array<Pt, 4> c{};
        EXPECT_EQ(affine->get_CornerOriginX(&c[0].x), S_OK);
        EXPECT_EQ(affine->get_CornerOriginY(&c[0].y), S_OK);
        EXPECT_EQ(affine->get_CornerX_X(&c[1].x), S_OK);
        EXPECT_EQ(affine->get_CornerX_Y(&c[1].y), S_OK);
        EXPECT_EQ(affine->get_CornerOppositeX(&c[2].x), S_OK);
        EXPECT_EQ(affine->get_CornerOppositeY(&c[2].y), S_OK);
        EXPECT_EQ(affine->get_CornerY_X(&c[3].x), S_OK);
        EXPECT_EQ(affine->get_CornerY_Y(&c[3].y), S_OK);
        return c;
    }
    static double Skew(ILuxRectangleAffine* affine) {
        double skew = 0;
        EXPECT_EQ(affine->get_Skew(&skew), S_OK);
        return skew;
    }
    static double Rotation(ILuxRectangleAffine* affine) {
        double rotation = 0;
        EXPECT_EQ(affine->get_Rotation(&rotation), S_OK);
        return rotation;
    }
    // The pixels of the region's mask that hold `inside` (every pixel must be inside or
    // outside), from CreateRLE through ILuxRegion.
    static Pixels MaskOf(IUnknown* region, LONG inside = 255, LONG outside = 0) {
        ComPtr<ILuxRLEBuffer> rle;
        EXPECT_EQ(As<ILuxRegion>(region)->CreateRLE(inside, outside, rle.Out()), S_OK);
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
                if (value == inside) pixels.insert({x + i, y + j});
                else EXPECT_EQ(value, outside);
            }
        return pixels;
    }
    // The pixels whose centres lie inside the parallelogram with corners c[0..3] in order,
    // by a test of each centre against the four sides. A centre closer to a side than
    // rounding could decide makes the answer unreliable: counted in `unsure`.
    static Pixels CentresInside(const std::array<Pt, 4>& c, int& unsure) {
        double left = c[0].x, right = c[0].x, top = c[0].y, bottom = c[0].y;
        for (const Pt& p : c) {
            left = std::min(left, p.x);
            right = std::max(right, p.x);
            top = std::min(top, p.y);
            bottom = std::max(bottom, p.y);
        }
        Pixels pixels;
        unsure = 0;
        for (LONG j = static_cast<LONG>(std::floor(top)) - 2; j <= static_cast<LONG>(std::ceil(bottom)) + 2; ++j)
            for (LONG i = static_cast<LONG>(std::floor(left)) - 2; i <= static_cast<LONG>(std::ceil(right)) + 2; ++i) {
                const long double px = i + 0.5L, py = j + 0.5L;
                int positive = 0, negative = 0;
                for (int k = 0; k < 4; ++k) {
                    const Pt& a = c[k];
                    const Pt& b = c[(k + 1) % 4];
                    const long double ex = (long double)b.x - a.x, ey = (long double)b.y - a.y;
                    const long double side = ex * (py - a.y) - ey * (px - a.x);
                    if (std::fabs(side) <= 1e-7L * std::sqrt(ex * ex + ey * ey)) ++unsure;
                    (side > 0 ? positive : negative) += 1;
                }
                if (positive == 4 || negative == 4) pixels.insert({i, j});
            }
        return pixels;
    }
};

TEST_F(RectangleAffineTest, ANewAffineRectangleAndItsDerivedValues) {
    auto affine = NewAffine();
    EXPECT_EQ(Params(affine.get()), (AffineParams{50, 50, 100, 100, 0, 0}));
    const auto corners = Corners(affine.get());
    const Pt expected[4] = {{0, 0}, {100, 0}, {100, 100}, {0, 100}};
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(corners[k].x, expected[k].x) << k;
        EXPECT_EQ(corners[k].y, expected[k].y) << k;
    }
    LuxRectangleAffineDirectionAdornmentConstants adornment = luxRectangleAffineDirectionAdornmentArrow;
    ASSERT_EQ(affine->get_XDirectionAdornment(&adornment), S_OK);
    EXPECT_EQ(adornment, luxRectangleAffineDirectionAdornmentNone);
    ASSERT_EQ(affine->get_YDirectionAdornment(&adornment), S_OK);
    EXPECT_EQ(adornment, luxRectangleAffineDirectionAdornmentNone);
    EXPECT_EQ(SpaceName(affine.get()), ".");
    // The same pixels as a LuxRectangle (0, 0, 100, 100).
    EXPECT_EQ(MaskOf(affine.get()), MaskOf(NewRectangle(0, 0, 100, 100).get()));

    // A turned and skewed one: the corners follow u = sx (cos r, sin r), v = sy (cos phi, sin phi).
    const double cx = 3.5, cy = -7.25, sx = 12, sy = 5, r = 0.7, k = -0.4;
    ASSERT_EQ(affine->SetCenterLengthsRotationSkew(cx, cy, sx, sy, r, k), S_OK);
    const double phi = r + kPi / 2 + k;
    const Pt u{sx * std::cos(r), sx * std::sin(r)}, v{sy * std::cos(phi), sy * std::sin(phi)};
    const Pt origin{cx - (u.x + v.x) / 2, cy - (u.y + v.y) / 2};
    const Pt want[4] = {origin, {origin.x + u.x, origin.y + u.y}, {origin.x + u.x + v.x, origin.y + u.y + v.y},
                        {origin.x + v.x, origin.y + v.y}};
    const auto got = Corners(affine.get());
    for (int c = 0; c < 4; ++c) {
        EXPECT_NEAR(got[c].x, want[c].x, 1e-12) << c;
        EXPECT_NEAR(got[c].y, want[c].y, 1e-12) << c;
    }
    double value = 0;
    ASSERT_EQ(affine->get_Area(&value), S_OK);
    EXPECT_NEAR(value, sx * sy * std::cos(k), 1e-12);
    ASSERT_EQ(affine->get_Perimeter(&value), S_OK);
    EXPECT_EQ(value, 2 * (sx + sy));
    double o[6] = {};
    ASSERT_EQ(affine->GetOriginCornerXCornerY(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5]), S_OK);
    EXPECT_EQ((std::array<double, 6>{o[0], o[1], o[2], o[3], o[4], o[5]}),
              (std::array<double, 6>{got[0].x, got[0].y, got[1].x, got[1].y, got[3].x, got[3].y}));
    ASSERT_EQ(affine->GetOriginLengthsRotationSkew(&o[0], &o[1], &o[2], &o[3], &o[4], &o[5]), S_OK);
    EXPECT_EQ((std::array<double, 6>{o[0], o[1], o[2], o[3], o[4], o[5]}),
              (std::array<double, 6>{got[0].x, got[0].y, sx, sy, r, k}));

    // The other two parametrisations give the same affine rectangle back.
    auto fromOrigin = NewAffine();
    ASSERT_EQ(fromOrigin->SetOriginLengthsRotationSkew(got[0].x, got[0].y, sx, sy, r, k), S_OK);
    auto fromCorners = NewAffine();
    ASSERT_EQ(fromCorners->SetOriginCornerXCornerY(got[0].x, got[0].y, got[1].x, got[1].y, got[3].x, got[3].y), S_OK);
    for (auto* other : {fromOrigin.get(), fromCorners.get()}) {
        const AffineParams p = Params(other);
        const AffineParams q{cx, cy, sx, sy, r, k};
        for (int i = 0; i < 6; ++i) EXPECT_NEAR(p[i], q[i], 1e-12) << i;
    }
    // A negative area orientation (CornerY clockwise of CornerX) is a skew beyond a quarter turn.
    ASSERT_EQ(fromCorners->SetOriginCornerXCornerY(0, 0, 4, 0, 1, -3), S_OK);
    EXPECT_NEAR(Skew(fromCorners.get()), std::atan2(-3.0, 1.0) - kPi / 2, 1e-12);
    ASSERT_EQ(fromCorners->get_Area(&value), S_OK);
    EXPECT_NEAR(value, 12, 1e-12);

    EXPECT_EQ(affine->GetOriginCornerXCornerY(&o[0], &o[1], nullptr, &o[3], &o[4], &o[5]), E_POINTER);
    EXPECT_EQ(affine->get_CornerY_X(nullptr), E_POINTER);
}

TEST_F(RectangleAffineTest, SkewIsConditionedNearAQuarterTurnWithTheSignOfTheValuePassed) {
    auto affine = NewAffine();
    auto log = Listen(affine.get());
    struct Case {
        double passed, stored;
    };
    for (const Case& c : {Case{kPi / 2, kSnapped}, Case{-kPi / 2 + 0.001, -kSnapped}, Case{1.5, 1.5},
                          Case{3 * kPi / 2, kSnapped},   // normalises to -pi/2, but was passed positive
                          Case{-3 * kPi / 2, -kSnapped},  // normalises to +pi/2, passed negative
                          Case{-kPi / 2 - 0.0019, -kSnapped}, Case{kPi / 2 + 0.0015, kSnapped},
                          Case{kPi / 2 - 0.0025, kPi / 2 - 0.0025}, Case{-0.25, -0.25}}) {
        SCOPED_TRACE(c.passed);
        ASSERT_EQ(affine->put_Skew(0.7), S_OK);
        log->changes.clear();
        ASSERT_EQ(affine->put_Skew(c.passed), S_OK);
        EXPECT_EQ(Skew(affine.get()), c.stored);
        ASSERT_EQ(log->changes.size(), 1u);
        EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
        EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
        EXPECT_EQ(log->changes[0].value.vt(), VT_EMPTY);
    }
    EXPECT_EQ(kSnapped, kPi / 2 + 0.002);

    // Compared after conditioning: a value that conditions to the present skew changes nothing.
    ASSERT_EQ(affine->put_Skew(kPi / 2), S_OK);
    log->changes.clear();
    ASSERT_EQ(affine->put_Skew(kPi / 2 - 0.0005), S_OK);
    ASSERT_EQ(affine->put_Skew(kSnapped), S_OK);
    EXPECT_TRUE(log->changes.empty());
    // Stored normalised.
    ASSERT_EQ(affine->put_Skew(1.5 + 2 * kPi), S_OK);
    EXPECT_NEAR(Skew(affine.get()), 1.5, 1e-12);
    EXPECT_LT(Skew(affine.get()), kPi);
    // Between the two margins the conditioned value is what the core's check sees.
    double area = 0;
    ASSERT_EQ(affine->put_Skew(-kSnapped), S_OK);
    ASSERT_EQ(affine->get_Area(&area), S_OK);
    EXPECT_NEAR(area, 100 * 100 * std::fabs(std::cos(kSnapped)), 1e-9);
}

TEST_F(RectangleAffineTest, RotationIsNormalisedAndAnnouncedAsSeveralChanges) {
    auto affine = NewAffine();
    auto log = Listen(affine.get());
    ASSERT_EQ(affine->put_Rotation(4), S_OK);
    EXPECT_EQ(Rotation(affine.get()), 4 - 2 * kPi);
    ASSERT_EQ(affine->put_Rotation(kPi), S_OK);
    EXPECT_EQ(Rotation(affine.get()), -kPi);
    ASSERT_EQ(log->changes.size(), 2u);
    for (const ChangeEvent& e : log->changes) {
        EXPECT_EQ(e.stateId, luxState_MoreThanOneStateIDChanged);
        EXPECT_EQ(e.areas, luxFA_Shape_Geometry);
    }
    // The present value, given as itself or as another name of the same angle: nothing.
    log->changes.clear();
    ASSERT_EQ(affine->put_Rotation(-kPi), S_OK);
    ASSERT_EQ(affine->put_Rotation(kPi), S_OK);
    ASSERT_EQ(affine->put_Rotation(3 * kPi), S_OK);
    EXPECT_TRUE(log->changes.empty());
    ASSERT_EQ(affine->put_Rotation(-7.5), S_OK);
    EXPECT_GE(Rotation(affine.get()), -kPi);
    EXPECT_LT(Rotation(affine.get()), kPi);
    EXPECT_NEAR(Rotation(affine.get()), -7.5 + 2 * kPi, 1e-12);
    EXPECT_EQ(log->changes.size(), 1u);
    // The corners turned with it: CornerX lies at the rotation from CornerOrigin.
    const auto c = Corners(affine.get());
    EXPECT_NEAR(std::atan2(c[1].y - c[0].y, c[1].x - c[0].x), -7.5 + 2 * kPi, 1e-12);
}

TEST_F(RectangleAffineTest, SettersRaiseTheirStateIdsAndMultiParameterSettersOneEvent) {
    auto affine = NewAffine();
    auto log = Listen(affine.get());
    ASSERT_EQ(affine->put_CenterX(1.25), S_OK);
    ASSERT_EQ(affine->put_CenterY(-2.5), S_OK);
    ASSERT_EQ(affine->put_SideXLength(30), S_OK);
    ASSERT_EQ(affine->put_SideYLength(0.5), S_OK);
    ASSERT_EQ(affine->put_SideYLength(0.5), S_OK);  // unchanged: nothing
    ASSERT_EQ(affine->put_CenterX(1.25), S_OK);
    ASSERT_EQ(log->changes.size(), 4u);
    const int32_t ids[] = {luxRectangleAffine_CenterX, luxRectangleAffine_CenterY, luxRectangleAffine_SideXLength,
                           luxRectangleAffine_SideYLength};
    const double values[] = {1.25, -2.5, 30, 0.5};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(log->changes[i].stateId, ids[i]);
        EXPECT_EQ(log->changes[i].areas, luxFA_Shape_Geometry);
        ASSERT_EQ(log->changes[i].value.vt(), VT_R8);
        EXPECT_EQ(log->changes[i].value.get().dblVal, values[i]);
    }
    EXPECT_EQ(Params(affine.get()), (AffineParams{1.25, -2.5, 30, 0.5, 0, 0}));

    // Several at once: one event; only one of them changed: its own ID; nothing changed: nothing.
    log->changes.clear();
    ASSERT_EQ(affine->SetCenterLengthsRotationSkew(0, 0, 10, 20, 0, 0), S_OK);
    ASSERT_EQ(affine->SetCenterLengthsRotationSkew(0, 0, 10, 20, 0, 0), S_OK);
    ASSERT_EQ(affine->SetCenterLengthsRotationSkew(0, 4, 10, 20, 0, 0), S_OK);
    ASSERT_EQ(affine->SetCenterLengthsRotationSkew(0, 4, 10, 20, 0.5, 0), S_OK);  // rotation alone
    ASSERT_EQ(affine->SetOriginLengthsRotationSkew(-5, -6, 10, 20, 0, 0), S_OK);
    ASSERT_EQ(affine->SetOriginCornerXCornerY(-5, -6, 5, -6, -5, 14), S_OK);  // the same corners
    ASSERT_EQ(affine->SetOriginCornerXCornerY(0, 0, 2, 0, 0, 3), S_OK);
    ASSERT_EQ(log->changes.size(), 5u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[1].stateId, luxRectangleAffine_CenterY);
    EXPECT_EQ(log->changes[1].value.get().dblVal, 4);
    EXPECT_EQ(log->changes[2].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[3].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[4].stateId, luxState_MoreThanOneStateIDChanged);
    for (const ChangeEvent& e : log->changes) EXPECT_EQ(e.areas, luxFA_Shape_Geometry);
    EXPECT_EQ(Params(affine.get()), (AffineParams{1, 1.5, 2, 3, 0, 0}));
}

TEST_F(RectangleAffineTest, InvalidGeometryIsRefusedLeavingTheShapeAndRaisingNothing) {
    const AffineParams start{10, 20, 30, 40, 0.5, 0.25};
    auto affine = NewAffine(start);
    auto log = Listen(affine.get());
    const char* const kBadLength = "ccAffineRectangle::BadLength";
    const char* const kBadSkew = "ccAffineRectangle::BadSkew";
    // The core's checks, through every multi-parameter setter; the skew is not conditioned here.
    ExpectFailed(affine->SetCenterLengthsRotationSkew(0, 0, 0, 5, 0, 0), E_INVALIDARG, kBadLength,
                 "SetCenterLengthsRotationSkew");
    ExpectFailed(affine->SetCenterLengthsRotationSkew(0, 0, 5, -1, 0, 0), E_INVALIDARG, kBadLength,
                 "SetCenterLengthsRotationSkew");
    ExpectFailed(affine->SetCenterLengthsRotationSkew(0, 0, 5, 5, 0, kPi / 2), E_INVALIDARG, kBadSkew,
                 "SetCenterLengthsRotationSkew");
    ExpectFailed(affine->SetCenterLengthsRotationSkew(0, 0, 5, 5, 0, -kPi / 2 + 0.0009), E_INVALIDARG, kBadSkew,
                 "SetCenterLengthsRotationSkew");
    ExpectFailed(affine->SetCenterLengthsRotationSkew(0, 0, 5, 5, 0, 3 * kPi / 2), E_INVALIDARG, kBadSkew,
                 "SetCenterLengthsRotationSkew");
    ExpectFailed(affine->SetOriginLengthsRotationSkew(0, 0, 5, 0, 0, 0), E_INVALIDARG, kBadLength,
                 "SetOriginLengthsRotationSkew");
    ExpectFailed(affine->SetOriginLengthsRotationSkew(0, 0, 5, 5, 0, -kPi / 2), E_INVALIDARG, kBadSkew,
                 "SetOriginLengthsRotationSkew");
    ExpectFailed(affine->SetOriginCornerXCornerY(1, 1, 1, 1, 0, 5), E_INVALIDARG, kBadLength,
                 "SetOriginCornerXCornerY");  // CornerX on the origin
    ExpectFailed(affine->SetOriginCornerXCornerY(0, 0, 2, 1, 4, 2), E_INVALIDARG, kBadLength,
                 "SetOriginCornerXCornerY");  // parallel sides
    ExpectFailed(affine->SetOriginCornerXCornerY(0, 0, 1000, 0, 1000, 0.5), E_INVALIDARG, kBadSkew,
                 "SetOriginCornerXCornerY");  // nearly parallel
    // Lengths through their properties are refused as LuxRectangle refuses Width.
    for (double bad : {0.0, -1.0, -0.0, double(NAN)}) {
        ExpectRefused(affine->put_SideXLength(bad), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"SideXLength"},
                      "put_SideXLength");
        ExpectRefused(affine->put_SideYLength(bad), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1, {"SideYLength"},
                      "put_SideYLength");
    }
    // Values that are not finite.
    const double inf = INFINITY;
    ExpectRefused(affine->put_SideXLength(inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"SideXLength"},
                  "put_SideXLength");
    ExpectRefused(affine->put_CenterX(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterX"}, "put_CenterX");
    ExpectRefused(affine->put_CenterY(-inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"CenterY"}, "put_CenterY");
    ExpectRefused(affine->put_Rotation(inf), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Rotation"}, "put_Rotation");
    ExpectRefused(affine->put_Rotation(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Rotation"}, "put_Rotation");
    ExpectRefused(affine->put_Skew(NAN), E_INVALIDARG, core::ids_Core_InvalidArg_1, {"Skew"}, "put_Skew");
    ExpectRefused(affine->SetCenterLengthsRotationSkew(inf, 0, 5, 5, 0, 0), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"CenterX"}, "SetCenterLengthsRotationSkew");
    ExpectRefused(affine->SetCenterLengthsRotationSkew(0, 0, 5, inf, 0, 0), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"SideYLength"}, "SetCenterLengthsRotationSkew");
    ExpectRefused(affine->SetOriginCornerXCornerY(0, 0, 1, 0, NAN, 1), E_INVALIDARG, core::ids_Core_InvalidArg_1,
                  {"CornerY_X"}, "SetOriginCornerXCornerY");
    ExpectRefused(affine->SetOriginLengthsRotationSkew(0, 0, 5, 5, -inf, 0), E_INVALIDARG,
                  core::ids_Core_InvalidArg_1, {"Rotation"}, "SetOriginLengthsRotationSkew");

    const AffineParams after = Params(affine.get());
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(after[i], start[i], 1e-15) << i;
    EXPECT_EQ(after, Params(NewAffine(start).get()));
    EXPECT_TRUE(log->changes.empty());
    // The smallest sides are fine.
    EXPECT_EQ(affine->put_SideXLength(1e-300), S_OK);
}

TEST_F(RectangleAffineTest, SetFromRectangleTakesTheRectanglesCornersThroughALinearTransform) {
    auto affine = NewAffine();
    auto log = Listen(affine.get());
    auto rectangle = NewRectangle(2, 3, 8, 4);
    const double a = 0.3;
    auto turn = Linear(std::cos(a), -std::sin(a), std::sin(a), std::cos(a), 5, -1);
    ASSERT_EQ(affine->SetFromRectangle(rectangle.get(), As<ILuxTransform2D>(turn.get()).get()), S_OK);
    const auto map = [&](double x, double y) {
        return Pt{std::cos(a) * x - std::sin(a) * y + 5, std::sin(a) * x + std::cos(a) * y - 1};
    };
    const Pt want[4] = {map(2, 3), map(10, 3), map(10, 7), map(2, 7)};
    const auto got = Corners(affine.get());
    for (int c = 0; c < 4; ++c) {
        EXPECT_NEAR(got[c].x, want[c].x, 1e-12) << c;
        EXPECT_NEAR(got[c].y, want[c].y, 1e-12) << c;
    }
    const AffineParams p = Params(affine.get());
    EXPECT_NEAR(p[2], 8, 1e-12);
    EXPECT_NEAR(p[3], 4, 1e-12);
    EXPECT_NEAR(p[4], a, 1e-12);
    EXPECT_NEAR(p[5], 0, 1e-12);
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);
    // The same as Map of the rectangle.
    ComPtr<ILuxShape> mapped;
    ASSERT_EQ(rectangle->Map(As<ILuxTransform2D>(turn.get()).get(), luxCopyShapeGeometryOnly, mapped.Out()), S_OK);
    EXPECT_EQ(Params(As<ILuxRectangleAffine>(mapped.get()).get()), p);
    // Again: nothing changes.
    ASSERT_EQ(affine->SetFromRectangle(rectangle.get(), As<ILuxTransform2D>(turn.get()).get()), S_OK);
    EXPECT_EQ(log->changes.size(), 1u);

    log->changes.clear();
    auto identity = As<ILuxTransform2D>(Linear(1, 0, 0, 1, 0, 0).get());
    ExpectRefused(affine->SetFromRectangle(nullptr, identity.get()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Rectangle"}, "SetFromRectangle");
    ExpectRefused(affine->SetFromRectangle(rectangle.get(), nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"NewTransform"}, "SetFromRectangle");
    auto bend = BendTransform::Make(0.1);
    ExpectFailed(affine->SetFromRectangle(rectangle.get(), bend.get()), e_LuxTransform_NotLinear, "NonlinearXform",
                 "SetFromRectangle");
    auto flatten = As<ILuxTransform2D>(Linear(1, 0, 0, 0, 0, 0).get());
    ExpectFailed(affine->SetFromRectangle(rectangle.get(), flatten.get()), E_INVALIDARG,
                 "ccAffineRectangle::BadLength", "SetFromRectangle");
    EXPECT_EQ(Params(affine.get()), p);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(RectangleAffineTest, CreateRLEHoldsExactlyThePixelsWhoseCentresAreInside) {
    // Turned, skewed either way, cos(skew) < 0 (the corners swapped for the walk), thin.
    const AffineParams cases[] = {{30.3, 20.7, 40.1, 17.3, 0.37, 0.21},   {-12.2, 15.9, 25.4, 31.7, -2.5, -0.9},
                                  {40.05, 40.11, 33.3, 12.7, 1.1, 2.2},   {10.37, 10.91, 7.3, 50.2, 3.0, -2.8},
                                  {5.123, -7.77, 60.3, 1.9, -0.05, 0.61}, {0.31, 0.29, 9.9, 9.7, -kPi, 1.2}};
    for (const AffineParams& p : cases) {
        SCOPED_TRACE(p[4]);
        auto affine = NewAffine(p);
        int unsure = 0;
        const Pixels expected = CentresInside(Corners(affine.get()), unsure);
        ASSERT_EQ(unsure, 0) << "a pixel centre lies on a side: the case decides nothing";
        const Pixels mask = MaskOf(affine.get(), 9, 3);
        EXPECT_EQ(mask, expected);
        double area = 0;
        ASSERT_EQ(affine->get_Area(&area), S_OK);
        EXPECT_NEAR(area, p[2] * p[3] * std::fabs(std::cos(p[5])), 1e-9);
        EXPECT_NEAR(static_cast<double>(mask.size()), area, 0.1 * area + 4);
    }
    ComPtr<ILuxRLEBuffer> rle;
    auto affine = NewAffine();
    EXPECT_EQ(As<ILuxRegion>(affine.get())->CreateRLE(256, 0, rle.Out()), E_INVALIDARG);
    EXPECT_EQ(TakeErrorInfo().source, "CreateRLE");
    EXPECT_FALSE(rle);
}

TEST_F(RectangleAffineTest, ARectangleMappedThroughARotationIsAnAffineRectangleWithTheSameMask) {
    auto rectangle = NewRectangle(2, 3, 8, 4);
    ASSERT_EQ(rectangle->put_SelectedSpaceName(Bstr("Part").get()), S_OK);
    // A quarter turn keeps the rectangle's pixels those of an axis-aligned rectangle.
    ComPtr<ILuxShape> mapped;
    ASSERT_EQ(rectangle->MapLinear(Linear(0, -1, 1, 0, 0, 0).get(), luxCopyShapeAll, mapped.Out()), S_OK);
    auto affine = As<ILuxRectangleAffine>(mapped.get());
    ASSERT_TRUE(affine);
    EXPECT_EQ(SpaceName(affine.get()), "Part");
    const Pixels turned = MaskOf(affine.get());
    EXPECT_EQ(turned.size(), 32u);
    EXPECT_EQ(turned, MaskOf(NewRectangle(-7, 2, 4, 8).get()));

    // Any other turn: the mapped corners' pixels.
    const double a = 0.83;
    auto turn = As<ILuxTransform2D>(Linear(std::cos(a), -std::sin(a), std::sin(a), std::cos(a), 20.3, 4.1).get());
    auto big = NewRectangle(1.1, 2.2, 30.3, 12.7);
    ASSERT_EQ(big->Map(turn.get(), luxCopyShapeGeometryOnly, mapped.Out()), S_OK);
    affine = As<ILuxRectangleAffine>(mapped.get());
    ASSERT_TRUE(affine);
    const auto map = [&](double x, double y) {
        return Pt{std::cos(a) * x - std::sin(a) * y + 20.3, std::sin(a) * x + std::cos(a) * y + 4.1};
    };
    int unsure = 0;
    const Pixels expected = CentresInside({map(1.1, 2.2), map(31.4, 2.2), map(31.4, 14.9), map(1.1, 14.9)}, unsure);
    ASSERT_EQ(unsure, 0);
    EXPECT_EQ(MaskOf(affine.get()), expected);

    // And an affine rectangle mapped back through the inverse holds the original pixels.
    ComPtr<ILuxTransform2D> back;
    ASSERT_EQ(turn->InvertBase(back.Out()), S_OK);
    ComPtr<ILuxShape> returned;
    ASSERT_EQ(affine->Map(back.get(), luxCopyShapeGeometryOnly, returned.Out()), S_OK);
    auto again = As<ILuxRectangleAffine>(returned.get());
    ASSERT_TRUE(again);
    EXPECT_EQ(MaskOf(again.get()), MaskOf(big.get()));
}

TEST_F(RectangleAffineTest, MapMapLinearCopyAndCloneCarryWhatTheCopyFlagsSelect) {
    auto affine = NewAffine({1, 2, 3, 4, 0.5, -0.3});
    auto g = As<ILuxGraphicInteractive>(affine.get());
    ASSERT_EQ(affine->put_SelectedSpaceName(Bstr("Fixture").get()), S_OK);
    ASSERT_EQ(g->put_Color(0x42), S_OK);
    ASSERT_EQ(affine->put_XDirectionAdornment(luxRectangleAffineDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(affine->put_YDirectionAdornment(luxRectangleAffineDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(affine->put_GraphicDOFEnable(luxRectangleAffineDOFRotation), S_OK);
    auto shift = Linear(1, 0, 0, 1, 10, 20);

    const auto check = [&](ILuxRectangleAffine* copy, int32_t flags, double dx, double dy) {
        SCOPED_TRACE(flags);
        ASSERT_TRUE(copy);
        const AffineParams p = Params(copy);
        const AffineParams q = Params(affine.get());
        EXPECT_NEAR(p[0], q[0] + dx, 1e-12);
        EXPECT_NEAR(p[1], q[1] + dy, 1e-12);
        for (int i = 2; i < 6; ++i) EXPECT_NEAR(p[i], q[i], 1e-12) << i;
        EXPECT_EQ(SpaceName(copy), "Fixture");
        const bool graphics = flags & luxCopyShapeBasicGraphics;
        LONG color = 0, dof = 0;
        As<ILuxGraphic>(copy)->get_Color(&color);
        As<ILuxGraphicInteractive>(copy)->get_GraphicDOFEnableBase(&dof);
        EXPECT_EQ(color, graphics ? 0x42 : luxColorCyan);
        EXPECT_EQ(dof, (flags & luxCopyShapeDOFs) ? luxRectangleAffineDOFRotation : luxRectangleAffineDOFAll);
        LuxRectangleAffineDirectionAdornmentConstants x{}, y{};
        copy->get_XDirectionAdornment(&x);
        copy->get_YDirectionAdornment(&y);
        EXPECT_EQ(x, graphics ? luxRectangleAffineDirectionAdornmentArrow : luxRectangleAffineDirectionAdornmentNone);
        EXPECT_EQ(y, graphics ? luxRectangleAffineDirectionAdornmentSolidArrow : luxRectangleAffineDirectionAdornmentNone);
    };
    for (int32_t flags : {luxCopyShapeGeometryOnly, luxCopyShapeBasicGraphics, luxCopyShapeDOFs, luxCopyShapeAll}) {
        const auto f = static_cast<LuxCopyShapeConstants>(flags);
        ComPtr<ILuxRectangleAffine> copy;
        ASSERT_EQ(affine->Copy(f, copy.Out()), S_OK);
        check(copy.get(), flags, 0, 0);
        ASSERT_EQ(affine->MapLinear(shift.get(), f, copy.Out()), S_OK);
        check(copy.get(), flags, 10, 20);
        ComPtr<ILuxShape> mapped;
        ASSERT_EQ(affine->Map(As<ILuxTransform2D>(shift.get()).get(), f, mapped.Out()), S_OK);
        check(As<ILuxRectangleAffine>(mapped.get()).get(), flags, 10, 20);
    }
    ComPtr<ILuxGraphic> graphic;
    ASSERT_EQ(As<ILuxGraphic>(affine.get())->MapGraphic(As<ILuxTransform2D>(shift.get()).get(), VARIANT{},
                                                        graphic.Out()),
              S_OK);
    check(As<ILuxRectangleAffine>(graphic.get()).get(), luxCopyShapeAll, 10, 20);
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(affine.get())->Clone(clone.Out()), S_OK);
    auto cloned = As<ILuxRectangleAffine>(clone.get());
    check(cloned.get(), luxCopyShapeAll, 0, 0);
    ASSERT_EQ(cloned->put_CenterX(100), S_OK);  // independent of the original
    EXPECT_EQ(Params(affine.get())[0], 1);

    ComPtr<ILuxRectangleAffine> result;
    ExpectRefused(affine->MapLinear(nullptr, luxCopyShapeAll, result.Out()), E_INVALIDARG, ids_Lux_InvalidArgNull_1,
                  {"Transform"}, "MapLinear");
    ExpectFailed(affine->MapLinear(Linear(1, 2, 2, 4, 0, 0).get(), luxCopyShapeAll, result.Out()),
                 e_LuxShape_DegenerateShape, "ccShapesError::DegenerateShape", "MapLinear");
    EXPECT_FALSE(result);
    ComPtr<ILuxShape> mapped;
    ExpectFailed(affine->Map(BendTransform::Make(0.1).get(), luxCopyShapeAll, mapped.Out()),
                 e_LuxTransform_NotLinear, "NonlinearXform", "Map");
    EXPECT_FALSE(mapped);
    EXPECT_EQ(affine->Copy(luxCopyShapeAll, nullptr), E_POINTER);
}

TEST_F(RectangleAffineTest, FitToBoundingBoxAndFitToImage) {
    auto affine = NewAffine({0, 0, 1, 1, 0.5, 0.2});
    auto log = Listen(affine.get());
    ASSERT_EQ(affine->FitToBoundingBox(NewRectangle(-5, -6, 7, 8).get()), S_OK);
    EXPECT_EQ(Params(affine.get()), (AffineParams{-1.5, -2, 7, 8, 0, 0}));
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
    EXPECT_EQ(log->changes[0].areas, luxFA_Shape_Geometry);

    auto image = NewImage(640, 480);
    auto imageBase = As<ILuxImage>(image.get());
    ASSERT_EQ(affine->FitToImage(imageBase.get(), 0.5, 0.25), S_OK);
    EXPECT_EQ(Params(affine.get()), (AffineParams{320, 240, 320, 120, 0, 0}));
    // In a space turned by 30 degrees and scaled by 2 about pixel (100, 50): the image's own
    // frame seen from there, its sides scaled about its centre.
    ComPtr<ILuxCoordinateSpaceTree> tree;
    ASSERT_EQ(imageBase->get_CoordinateSpaceTree(tree.Out()), S_OK);
    const double a = kPi / 6;
    ASSERT_EQ(AddSpace(tree.get(), "Turned", Linear(2 * std::cos(a), -2 * std::sin(a), 2 * std::sin(a), 2 * std::cos(a),
                                                    100, 50).get()),
              S_OK);
    ASSERT_EQ(affine->put_SelectedSpaceName(Bstr("Turned").get()), S_OK);
    ASSERT_EQ(affine->FitToImage(imageBase.get(), 1, 0.5), S_OK);
    const AffineParams p = Params(affine.get());
    // The pixel centre (320, 240) in the turned space: the inverse of the turn about (100, 50).
    const double dx = 220, dy = 190;
    const AffineParams want{(std::cos(a) * dx + std::sin(a) * dy) / 2, (-std::sin(a) * dx + std::cos(a) * dy) / 2,
                            320, 120, -a, 0};
    for (int i = 0; i < 6; ++i) EXPECT_NEAR(p[i], want[i], 1e-9) << i;

    log->changes.clear();
    ExpectRefused(affine->FitToBoundingBox(nullptr), E_INVALIDARG, ids_Lux_InvalidArgNull_1, {"BoundingRectangle"},
                  "FitToBoundingBox");
    ExpectRefused(affine->FitToImage(imageBase.get(), 0, 1), E_INVALIDARG, ids_Lux_InvalidArgNotPositive_1,
                  {"XScale"}, "FitToImage");
    EXPECT_EQ(Params(affine.get()), p);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(RectangleAffineTest, MakeShapeModelIsNotAvailable) {
    auto affine = NewAffine();
    auto log = Listen(affine.get());
    ComPtr<IDispatch> model;
    ExpectFailed(affine->MakeShapeModel(1.0, 0, VARIANT_TRUE, model.Out()), e_Lux_NotImplemented,
                 "shape models", "MakeShapeModel");
    EXPECT_FALSE(model);
    EXPECT_TRUE(log->changes.empty());
}

TEST_F(RectangleAffineTest, PersistenceRoundTripsInBothFormatsWithTheKeysInOrder) {
    auto affine = NewAffine({-3.25, 1e-7, 0.125, 1234.5, -kPi, -kSnapped});
    ASSERT_EQ(affine->put_XDirectionAdornment(luxRectangleAffineDirectionAdornmentSolidArrow), S_OK);
    ASSERT_EQ(affine->put_YDirectionAdornment(luxRectangleAffineDirectionAdornmentArrow), S_OK);
    ASSERT_EQ(affine->put_SelectedSpaceName(Bstr("@\\Fixture").get()), S_OK);
    ASSERT_EQ(As<ILuxGraphic>(affine.get())->put_Color(luxColorPurple), S_OK);
    ASSERT_EQ(affine->put_GraphicDOFEnable(luxRectangleAffineDOFSkew), S_OK);
    for (int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        SCOPED_TRACE(format);
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(affine.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> object;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, object.Out()), S_OK);
        auto loaded = As<ILuxRectangleAffine>(object.get());
        ASSERT_TRUE(loaded);
        EXPECT_EQ(Params(loaded.get()), Params(affine.get()));
        const auto a = Corners(affine.get()), b = Corners(loaded.get());
        for (int c = 0; c < 4; ++c) EXPECT_TRUE(a[c].x == b[c].x && a[c].y == b[c].y) << c;
        LuxRectangleAffineDirectionAdornmentConstants x{}, y{};
        loaded->get_XDirectionAdornment(&x);
        loaded->get_YDirectionAdornment(&y);
        EXPECT_EQ(x, luxRectangleAffineDirectionAdornmentSolidArrow);
        EXPECT_EQ(y, luxRectangleAffineDirectionAdornmentArrow);
        EXPECT_EQ(SpaceName(loaded.get()), "@\\Fixture");
        LONG color = 0;
        LuxRectangleAffineDOFConstants dof{};
        As<ILuxGraphic>(loaded.get())->get_Color(&color);
        loaded->get_GraphicDOFEnable(&dof);
        EXPECT_EQ(color, luxColorPurple);
        EXPECT_EQ(dof, luxRectangleAffineDOFSkew);
        EXPECT_EQ(MaskOf(loaded.get()), MaskOf(affine.get()));
    }
    std::vector<uint8_t> bytes;
    ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(affine.get()).get(), luxPersistFormatXML, luxPersistOptionAll, &bytes),
              S_OK);
    const std::string xml(bytes.begin(), bytes.end());
    size_t at = 0;
    for (const char* key : {"SelectedSpaceName", "TipText", "GraphicDOFEnable", "<CenterX ", "<CenterY ", "<SideXLength ",
                            "<SideYLength ", "<Rotation ", "<Skew ", "<XDirectionAdornment ", "<YDirectionAdornment "}) {
        const size_t found = xml.find(key, at);
        ASSERT_NE(found, std::string::npos) << key << " after " << at << " in\n" << xml;
        at = found + 1;
    }
}

TEST_F(RectangleAffineTest, LoadsOfInvalidGeometryAreRefusedAndLeaveTheShapeAsItWas) {
    const AffineParams start{1, 2, 3, 4, 0.5, 0.25};
    auto affine = NewAffine(start);
    ASSERT_EQ(affine->put_XDirectionAdornment(luxRectangleAffineDirectionAdornmentArrow), S_OK);
    auto log = Listen(affine.get());
    const auto load = [&](const char* key, Variant value) {
        auto archive = core::CLuxArchive::ForLoading(luxPersistOptionAll);
        const std::pair<const char*, double> good[] = {{"CenterX", 7},     {"CenterY", 8},  {"SideXLength", 9},
                                                       {"SideYLength", 10}, {"Rotation", 1}, {"Skew", -0.5}};
        for (const auto& [name, number] : good)
            archive->AddEntry(name, name == std::string_view(key) ? std::move(value) : Variant(number));
        if (std::string_view(key).ends_with("Adornment")) archive->AddEntry(key, std::move(value));
        return As<ILuxPersistArchive>(affine.get())->Persist(archive.get(), luxPersistOptionAll);
    };
    const std::pair<const char*, Variant> refused[] = {
        {"SideXLength", Variant(0.0)},          {"SideYLength", Variant(-2.0)},
        {"Skew", Variant(kPi / 2)},             {"Skew", Variant(-kPi / 2 + 0.0005)},
        {"Skew", Variant(3 * kPi / 2)},         {"CenterX", Variant(double(NAN))},
        {"CenterY", Variant(double(INFINITY))}, {"Rotation", Variant(double(-INFINITY))},
        {"SideYLength", Variant(double(NAN))},  {"XDirectionAdornment", Variant(int32_t{3})},
        {"YDirectionAdornment", Variant(int32_t{-1})}, {"SideXLength", Variant("wide")},
    };
    for (const auto& [key, value] : refused) {
        SCOPED_TRACE(key);
        EXPECT_EQ(load(key, value), static_cast<HRESULT>(e_Lux_BadFileFormat));
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find(key), std::string::npos) << error.description;
        EXPECT_EQ(Params(affine.get()), Params(NewAffine(start).get()));
        LuxRectangleAffineDirectionAdornmentConstants x{};
        affine->get_XDirectionAdornment(&x);
        EXPECT_EQ(x, luxRectangleAffineDirectionAdornmentArrow);
    }
    EXPECT_TRUE(log->changes.empty());

    // A good load: the values, normalised angles, and the adornments back at their defaults.
    ASSERT_EQ(load("Rotation", Variant(kPi)), S_OK);
    EXPECT_EQ(Params(affine.get()), (AffineParams{7, 8, 9, 10, -kPi, -0.5}));
    const auto c = Corners(affine.get());
    EXPECT_NEAR(c[1].x - c[0].x, -9, 1e-12);  // CornerX lies at -pi from the origin
    LuxRectangleAffineDirectionAdornmentConstants x{};
    affine->get_XDirectionAdornment(&x);
    EXPECT_EQ(x, luxRectangleAffineDirectionAdornmentNone);
    ASSERT_EQ(log->changes.size(), 1u);
    EXPECT_EQ(log->changes[0].stateId, luxState_MoreThanOneStateIDChanged);
}

}  // namespace
}  // namespace tessaly::test
