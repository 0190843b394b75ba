// The core linear transform where the value class catches more than the object's tests:
// the angle normalisation at its boundaries, building against decomposing, inversion and
// composition order, batch mapping, the archive layout read back bit for bit, the pool.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "persist/ccTransferArchive.h"
#include "xnl/std/base/ccFixedBlockPool.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/math/ccMathError.h"

namespace {

constexpr double kPi = std::numbers::pi;

bool SameBits(double a, double b) { return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b); }

void ExpectSameBits(const cc2XformLinear& a, const cc2XformLinear& b) {
    EXPECT_TRUE(SameBits(a.M00(), b.M00()) && SameBits(a.M01(), b.M01()) && SameBits(a.M10(), b.M10()) &&
                SameBits(a.M11(), b.M11()) && SameBits(a.TranslationX(), b.TranslationX()) &&
                SameBits(a.TranslationY(), b.TranslationY()) && SameBits(a.Determinant(), b.Determinant()));
}

void ExpectNear(const cc2XformLinear& a, const cc2XformLinear& b, double tolerance = 1e-12) {
    EXPECT_NEAR(a.M00(), b.M00(), tolerance);
    EXPECT_NEAR(a.M01(), b.M01(), tolerance);
    EXPECT_NEAR(a.M10(), b.M10(), tolerance);
    EXPECT_NEAR(a.M11(), b.M11(), tolerance);
    EXPECT_NEAR(a.TranslationX(), b.TranslationX(), tolerance);
    EXPECT_NEAR(a.TranslationY(), b.TranslationY(), tolerance);
}

TEST(AngleNormalisation, KeepsTheHalfOpenRangeAndFoldsPlusPiToMinusPi) {
    using X = cc2XformLinear;
    EXPECT_TRUE(SameBits(X::NormalizeAngle(-kPi), -kPi));
    EXPECT_TRUE(SameBits(X::NormalizeAngle(kPi), -kPi));
    EXPECT_TRUE(SameBits(X::NormalizeAngle(-0.0), -0.0));  // inside: kept as it is
    EXPECT_TRUE(SameBits(X::NormalizeAngle(0.25), 0.25));
    EXPECT_TRUE(SameBits(X::NormalizeAngle(3 * kPi), -kPi));
    EXPECT_TRUE(SameBits(X::NormalizeAngle(-3 * kPi), -kPi));
    EXPECT_NEAR(X::NormalizeAngle(2 * kPi + 0.5), 0.5, 1e-15);
    EXPECT_NEAR(X::NormalizeAngle(-2 * kPi - 0.5), -0.5, 1e-15);
    // The largest double below -pi goes round to just below +pi, never to +pi itself.
    const double below = std::nextafter(-kPi, -4.0);
    EXPECT_LT(X::NormalizeAngle(below), kPi);
    EXPECT_GT(X::NormalizeAngle(below), 3.0);
    for (double angle : {1e300, -1e300, 7.0, -7.0, 100.5}) {
        const double normalized = X::NormalizeAngle(angle);
        EXPECT_GE(normalized, -kPi) << angle;
        EXPECT_LT(normalized, kPi) << angle;
    }
    EXPECT_TRUE(std::isnan(X::NormalizeAngle(std::numeric_limits<double>::quiet_NaN())));
}

TEST(XformLinear, BuildingAndDecomposingAgree) {
    const auto built = cc2XformLinear::FromScalingsRotations(2, 0.5, 0.3, -0.2, 7, -8);
    EXPECT_NEAR(built.M00(), 2 * std::cos(0.3), 1e-15);
    EXPECT_NEAR(built.M10(), 2 * std::sin(0.3), 1e-15);
    EXPECT_NEAR(built.M01(), -0.5 * std::sin(-0.2), 1e-15);
    EXPECT_NEAR(built.M11(), 0.5 * std::cos(-0.2), 1e-15);
    const auto parts = built.DecomposeScalingsRotations();
    EXPECT_NEAR(parts.scalingX, 2, 1e-15);
    EXPECT_NEAR(parts.scalingY, 0.5, 1e-15);
    EXPECT_NEAR(parts.rotationX, 0.3, 1e-15);
    EXPECT_NEAR(parts.rotationY, -0.2, 1e-15);
    const auto second = built.DecomposeScalingAspectRotationSkew();
    EXPECT_NEAR(second.aspect, 0.25, 1e-15);
    EXPECT_NEAR(second.skew, -0.5, 1e-15);
    // The skew is the difference brought into [-pi, pi).
    const auto wide = cc2XformLinear::FromScalingsRotations(1, 1, 3.0, -3.0, 0, 0);
    EXPECT_NEAR(wide.DecomposeScalingAspectRotationSkew().skew, 2 * kPi - 6.0, 1e-12);
}

TEST(XformLinear, ASingularMatrixMapsButNeitherDecomposesNorInverts) {
    const cc2XformLinear singular(1, 2, 2, 4, 5, 6);
    EXPECT_EQ(singular.Determinant(), 0);
    EXPECT_THROW(singular.DecomposeScalingsRotations(), ccMathError::Singular);
    EXPECT_THROW(singular.DecomposeScalingAspectRotationSkew(), ccMathError::Singular);
    EXPECT_THROW(singular.Inverse(), ccMathError::Singular);
    EXPECT_THROW(singular.InverseBase(), ccMathError::Errors);
    EXPECT_EQ(singular.MapPoint(cc2Vect(1, 1)), cc2Vect(8, 12));
    EXPECT_EQ(singular.MapArea(10), 0);
    EXPECT_THROW(cc2XformLinear(0, 0, 0, 0, 0, 0).MapAngle(0.3), ccMathError::NullVector);

    // Any determinant other than exactly 0 is inverted, however small.
    const cc2XformLinear tiny(1e-150, 0, 0, 1e-150, 0, 0);
    EXPECT_GT(tiny.Determinant(), 0);
    EXPECT_NEAR(tiny.Inverse().M00(), 1e150, 1e136);
}

TEST(XformLinear, InverseAndCompositionOrder) {
    const auto rotate = cc2XformLinear::FromScalingsRotations(1, 1, kPi / 2, kPi / 2, 0, 0);
    const cc2XformLinear shift(1, 0, 0, 1, 10, 0);
    // rotate.Compose(shift) maps through shift first: (1, 0) -> (11, 0) -> (0, 11).
    const cc2Vect viaCompose = rotate.Compose(shift).MapPoint({1, 0});
    EXPECT_NEAR(viaCompose.X(), 0, 1e-14);
    EXPECT_NEAR(viaCompose.Y(), 11, 1e-14);
    const cc2Vect otherOrder = shift.Compose(rotate).MapPoint({1, 0});
    EXPECT_NEAR(otherOrder.X(), 10, 1e-14);
    EXPECT_NEAR(otherOrder.Y(), 1, 1e-14);

    const cc2XformLinear general(2, 1, -0.5, 3, 4, -2);
    const cc2XformLinear inverse = general.Inverse();
    EXPECT_EQ(inverse.Determinant(), inverse.M00() * inverse.M11() - inverse.M10() * inverse.M01());
    ExpectNear(general.Compose(inverse), cc2XformLinear());
    ExpectNear(inverse.Compose(general), cc2XformLinear());
    const cc2Vect back = inverse.MapPoint(general.MapPoint({3.5, -1.25}));
    EXPECT_NEAR(back.X(), 3.5, 1e-14);
    EXPECT_NEAR(back.Y(), -1.25, 1e-14);
    // The composed determinant is recomputed, not multiplied.
    const cc2XformLinear product = general * inverse;
    EXPECT_EQ(product.Determinant(), product.M00() * product.M11() - product.M10() * product.M01());

    EXPECT_NEAR(rotate.MapAngle(0.1), 0.1 + kPi / 2, 1e-15);
    EXPECT_EQ(cc2XformLinear(-1, 0, 0, -1, 0, 0).MapAngle(0), kPi);  // atan2's range: +pi stays
    EXPECT_EQ(shift.MapVector({2, 3}), cc2Vect(2, 3));
}

TEST(XformLinear, BatchMappingMatchesPointMappingInPlaceToo) {
    const cc2XformLinear value(0.5, -1.5, 2.25, 0.75, -3, 9);
    std::vector<cc2Vect> points;
    for (int i = 0; i < 37; ++i) points.emplace_back(i * 0.37 - 5, 11 - i * 1.13);
    std::vector<cc2Vect> mapped(points.size());
    value.MapPoints(points.data(), mapped.data(), points.size());
    for (size_t i = 0; i < points.size(); ++i) EXPECT_EQ(mapped[i], value.MapPoint(points[i])) << i;
    value.MapPoints(points.data(), points.data(), points.size());
    EXPECT_EQ(points, mapped);
}

TEST(XformLinear, TheArchiveHoldsEveryNumberBitForBit) {
    const double denormal = std::numeric_limits<double>::denorm_min() * 3;
    const cc2XformLinear stored = cc2XformLinear::FromStored(-0.0, denormal, 1e308, -2.5, -0.0, denormal, 42);
    ccTransferArchive out;
    stored.Write(out);
    ccTransferArchive in(out.TakeBytes());
    cc2XformLinear loaded;
    loaded.Read(in);
    ExpectSameBits(loaded, stored);
    EXPECT_EQ(in.Remaining(), 0u);

    // A short archive throws and leaves the value as it was.
    ccTransferArchive shortOut;
    stored.Write(shortOut);
    std::vector<uint8_t> bytes = shortOut.TakeBytes();
    bytes.resize(bytes.size() - 4);
    ccTransferArchive shortIn(std::move(bytes));
    cc2XformLinear untouched(2, 0, 0, 2, 1, 1);
    EXPECT_THROW(untouched.Read(shortIn), ccArchive::Eof);
    ExpectSameBits(untouched, cc2XformLinear(2, 0, 0, 2, 1, 1));

    // A newer class version is refused.
    ccTransferArchive newer;
    newer.WriteClassVersion(cc2XformBase::kBaseVersion);
    newer.WriteClassVersion(cc2XformLinear::kVersion + 1);
    ccTransferArchive newerIn(newer.TakeBytes());
    EXPECT_THROW(untouched.Read(newerIn), ccArchive::UnknownVersion);
}

TEST(XformLinear, HeapInstancesComeFromTheClassPool) {
    const ccFixedBlockPool& pool = cc2XformLinear::HeapPool();
    EXPECT_STREQ(pool.Name(), "LEAKcc2XformLinear");
    const size_t before = pool.BlocksInUse();
    std::vector<std::unique_ptr<cc2XformBase>> values;
    for (int i = 0; i < 300; ++i) values.push_back(cc2XformLinear(i, 0, 0, 1, 0, 0).Clone());
    EXPECT_EQ(pool.BlocksInUse(), before + 300);
    EXPECT_GE(pool.ChunkCount(), 2u);
    EXPECT_EQ(values[299]->MapPoint({1, 0}), cc2Vect(299, 0));
    EXPECT_TRUE(values[0]->IsLinear());
    EXPECT_STREQ(values[0]->PersistentClassName(), "cc2XformLinear");
    values.clear();
    EXPECT_EQ(pool.BlocksInUse(), before);
}

}  // namespace
