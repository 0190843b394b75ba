// The core axis-aligned rectangle: the half-open region and its pixels, empty rectangles,
// intersection, union, dilation and erosion (and their round trip), what Map makes of it,
// and sharing through handles.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <random>
#include <string>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/math/cc2XformLinear.h"
#include "xnl/std/shapes/ccAffineRectangle.h"
#include "xnl/std/shapes/ccRect.h"
#include "xnl/std/shapes/ccShapesError.h"

namespace tessaly::test {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();

void ExpectRect(const ccRect& rect, double x, double y, double width, double height) {
    EXPECT_EQ(rect.X(), x) << rect.Description();
    EXPECT_EQ(rect.Y(), y) << rect.Description();
    EXPECT_EQ(rect.Width(), width) << rect.Description();
    EXPECT_EQ(rect.Height(), height) << rect.Description();
}

}  // namespace

TEST(Rect, IsHalfOpenAndCoversItsPixelsExactly) {
    const auto rect = Make<ccRect>(0, 0, 10, 10);
    EXPECT_TRUE(rect->Within({0, 0}));
    EXPECT_TRUE(rect->Within({9.999, 0}));
    EXPECT_FALSE(rect->Within({10, 5}));
    EXPECT_FALSE(rect->Within({5, 10}));
    EXPECT_FALSE(rect->Within({10, 0}));
    EXPECT_FALSE(rect->Within({-1e-300, 5}));
    EXPECT_DOUBLE_EQ(rect->Area(), 100);
    EXPECT_DOUBLE_EQ(rect->Perimeter(), 40);

    SpanRecorder pixels;
    rect->ScanConvert(pixels);
    EXPECT_EQ(pixels.PixelCount(), 100);
    ASSERT_EQ(pixels.Spans().size(), 10u);
    EXPECT_EQ(pixels.Spans().front().y, 0);
    EXPECT_EQ(pixels.Spans().back().y, 9);
    for (const auto& span : pixels.Spans()) {
        EXPECT_EQ(span.x, 0);
        EXPECT_EQ(span.width, 10);
    }
    EXPECT_EQ(rect->PixelBounds(), (ccPixelBox{0, 0, 10, 10}));

    // Half-integer edges: centres on the left and top edges are in, on the right and
    // bottom ones out. 0.5 .. 9.5 holds the centres 0.5 .. 8.5.
    SpanRecorder half;
    Make<ccRect>(0.5, 0.5, 9, 9)->ScanConvert(half);
    EXPECT_EQ(half.PixelCount(), 81);
    EXPECT_EQ(Make<ccRect>(0.5, 0.5, 9, 9)->PixelBounds(), (ccPixelBox{0, 0, 9, 9}));
    // A sliver narrower than a pixel holds a centre or none.
    EXPECT_EQ(Make<ccRect>(2.4, 0, 0.2, 1)->PixelBounds(), (ccPixelBox{2, 0, 3, 1}));
    EXPECT_TRUE(Make<ccRect>(2.6, 0, 0.3, 1)->PixelBounds().IsEmpty());

    // Negative coordinates and a clip box.
    SpanRecorder clipped;
    Make<ccRect>(-5, -5, 10, 10)->ScanConvert(clipped, ccPixelBox::OfImage(3, 100));
    EXPECT_EQ(clipped.PixelCount(), 15);
    EXPECT_EQ(clipped.Spans().front().x, 0);
    EXPECT_EQ(clipped.Spans().front().y, 0);
    EXPECT_EQ(clipped.Spans().back().y, 4);

    // A rectangle of infinite width is clipped, not overflowed.
    SpanRecorder wide;
    Make<ccRect>(-kInf, 0, kInf, 1)->ScanConvert(wide, ccPixelBox::OfImage(7, 7));
    EXPECT_EQ(wide.PixelCount(), 7);
}

TEST(Rect, NeighboursSharingAnEdgeNeverShareAPixel) {
    // Edges at every kind of position: integer, half-integer, arbitrary.
    for (double cut : {3.0, 3.5, 3.25, 3.75, 4.4999999999999991}) {
        SpanRecorder left, right, top, bottom;
        Make<ccRect>(0, 0, cut, 8)->ScanConvert(left);
        Make<ccRect>(cut, 0, 8 - cut, 8)->ScanConvert(right);
        Make<ccRect>(0, 0, 8, cut)->ScanConvert(top);
        Make<ccRect>(0, cut, 8, 8 - cut)->ScanConvert(bottom);
        EXPECT_EQ(left.PixelCount() + right.PixelCount(), 64) << cut;
        EXPECT_EQ(top.PixelCount() + bottom.PixelCount(), 64) << cut;
        for (const auto& pixel : left.Pixels()) EXPECT_FALSE(right.Pixels().contains(pixel)) << cut;
        for (const auto& pixel : top.Pixels()) EXPECT_FALSE(bottom.Pixels().contains(pixel)) << cut;
    }
}

TEST(Rect, ScanConversionAgreesWithWithinAtEveryCentre) {
    std::mt19937_64 random(3);
    std::uniform_real_distribution<double> position(-12, 12);
    std::uniform_real_distribution<double> size(0, 9);
    std::uniform_int_distribution<int> kind(0, 2);
    for (int i = 0; i < 2000; ++i) {
        // Edges anywhere, on integers, or on half-integers (centres on the edges).
        const auto snap = [&](double value) {
            const int k = kind(random);
            return k == 0 ? value : (k == 1 ? std::round(value) : std::round(value) + 0.5);
        };
        const auto rect = Make<ccRect>(snap(position(random)), snap(position(random)), snap(size(random)),
                                       snap(size(random)) - 0.5);
        SpanRecorder recorder;
        rect->ScanConvert(recorder);
        const ccPixelBox bounds = rect->PixelBounds();
        int64_t inside = 0;
        for (int32_t y = -16; y < 24; ++y) {
            for (int32_t x = -16; x < 24; ++x) {
                const bool within = rect->Within({x + 0.5, y + 0.5});
                inside += within;
                ASSERT_EQ(bounds.Contains(x, y), within) << rect->Description() << " pixel " << x << "," << y;
            }
        }
        ASSERT_EQ(recorder.PixelCount(), inside) << rect->Description();
        ASSERT_EQ(recorder.PixelCount(), bounds.Width() * bounds.Height()) << rect->Description();
    }
}

TEST(Rect, EmptyRectanglesHoldNothing) {
    for (const ccRectPtrh& rect : {ccRectPtrh(new ccRect()), ccRectPtrh(new ccRect(0, 0, 0, 5)),
                                   ccRectPtrh(new ccRect(0, 0, 5, -1)), ccRectPtrh(new ccRect(0, 0, std::nan(""), 5))}) {
        EXPECT_TRUE(rect->IsEmpty()) << rect->Description();
        EXPECT_EQ(rect->Area(), 0);
        EXPECT_FALSE(rect->Within({0, 0}));
        EXPECT_TRUE(rect->PixelBounds().IsEmpty());
        SpanRecorder none;
        rect->ScanConvert(none);
        EXPECT_TRUE(none.Spans().empty());
    }
    EXPECT_DOUBLE_EQ(Make<ccRect>(0, 0, 0, 5)->Perimeter(), 10);
    EXPECT_DOUBLE_EQ(Make<ccRect>(0, 0, -3, 5)->Perimeter(), 10);
}

TEST(Rect, IntersectionUnionDilationAndErosion) {
    const auto a = Make<ccRect>(0, 0, 10, 4);
    const auto b = Make<ccRect>(6, 2, 10, 10);
    ExpectRect(*a->Intersect(*b), 6, 2, 4, 2);
    ExpectRect(*b->Intersect(*a), 6, 2, 4, 2);
    ExpectRect(*a->Union(*b), 0, 0, 16, 12);
    // Disjoint, touching or empty: an empty rectangle at (max x, max y).
    ExpectRect(*a->Intersect(*Make<ccRect>(20, 30, 5, 5)), 20, 30, 0, 0);
    EXPECT_TRUE(a->Intersect(*Make<ccRect>(10, 0, 5, 5))->IsEmpty());
    EXPECT_TRUE(a->Intersect(*Make<ccRect>(1, 1, 0, 5))->IsEmpty());
    // Union ignores empty operands.
    ExpectRect(*a->Union(*Make<ccRect>(100, 100, 0, 0)), 0, 0, 10, 4);
    ExpectRect(*Make<ccRect>(-50, -50, -1, 3)->Union(*b), 6, 2, 10, 10);
    ExpectRect(*Make<ccRect>(1, 1, 0, 0)->Union(*Make<ccRect>(2, 2, -1, 0)), 0, 0, 0, 0);

    const auto kernel = Make<ccRect>(-1, -2, 2, 4);
    ExpectRect(*a->Dilate(*kernel), -1, -2, 12, 8);
    ExpectRect(*a->Erode(*kernel), 1, 2, 8, 0);  // as tall as the kernel: empty
    EXPECT_TRUE(a->Erode(*kernel)->IsEmpty());
    ExpectRect(*a->Erode(*kernel)->Dilate(*kernel), 0, 0, 10, 4);
    ExpectRect(*a->Dilate(*kernel)->Erode(*kernel), 0, 0, 10, 4);
    // Eroding by more than the rectangle is allowed and gives a negative size.
    ExpectRect(*a->Erode(*Make<ccRect>(0, 0, 20, 1)), 0, 0, -10, 3);
    // Neither operand changes.
    ExpectRect(*a, 0, 0, 10, 4);
    ExpectRect(*kernel, -1, -2, 2, 4);
}

TEST(Rect, StaysARectUnderScalingsAndMirrorsAndBecomesAffineUnderRotations) {
    const auto rect = Make<ccRect>(1, 2, 4, 3);

    const ccShapePtrh scaled = rect->Map(cc2XformLinear(2, 0, 0, 0.5, 10, 20));
    ASSERT_EQ(std::string(scaled->TypeName()), "ccRect");
    ExpectRect(static_cast<const ccRect&>(*scaled), 12, 21, 8, 1.5);

    // Mirrors take the least coordinate from the far side.
    const ccShapePtrh flipped = rect->Map(cc2XformLinear(-1, 0, 0, -2, 0, 0));
    ASSERT_EQ(std::string(flipped->TypeName()), "ccRect");
    ExpectRect(static_cast<const ccRect&>(*flipped), -5, -10, 4, 6);

    // An empty rectangle stays empty under a mirror.
    const ccShapePtrh emptyFlipped = Make<ccRect>(0, 0, -1, 2)->Map(cc2XformLinear(-1, 0, 0, 1, 0, 0));
    EXPECT_TRUE(emptyFlipped->IsEmpty());

    const cc2XformLinear turn = cc2XformLinear::FromScalingsRotations(1, 1, 0.5, 0.5, 3, 4);
    const ccShapePtrh turned = rect->Map(turn);
    ASSERT_EQ(std::string(turned->TypeName()), "ccAffineRectangle");
    const auto& affine = static_cast<const ccAffineRectangle&>(*turned);
    const auto near = [](const cc2Vect& a, const cc2Vect& b) { return a.Distance(b) < 1e-12; };
    EXPECT_TRUE(near(affine.CornerOrigin(), turn.MapPoint({1, 2})));
    EXPECT_TRUE(near(affine.CornerX(), turn.MapPoint({5, 2})));
    EXPECT_TRUE(near(affine.CornerY(), turn.MapPoint({1, 5})));
    EXPECT_NEAR(affine.Rotation(), 0.5, 1e-12);
    EXPECT_NEAR(affine.Skew(), 0, 1e-12);
    EXPECT_NEAR(affine.Area(), 12, 1e-12);

    // A shear makes a skewed one; a quarter turn is an affine rectangle too (the corners
    // keep their names).
    const ccShapePtrh sheared = rect->Map(cc2XformLinear(1, 0.5, 0, 1, 0, 0));
    EXPECT_EQ(std::string(sheared->TypeName()), "ccAffineRectangle");
    EXPECT_NEAR(sheared->Area(), 12, 1e-12);
    const ccShapePtrh quarter = rect->Map(cc2XformLinear(0, -1, 1, 0, 0, 0));
    ASSERT_EQ(std::string(quarter->TypeName()), "ccAffineRectangle");
    EXPECT_EQ(static_cast<const ccAffineRectangle&>(*quarter).CornerOrigin(), cc2Vect(-2, 1));

    EXPECT_THROW(rect->Map(cc2XformLinear(0, 0, 0, 1, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_THROW(rect->Map(cc2XformLinear(1, 1, 2, 2, 0, 0)), ccShapesError::DegenerateShape);
    EXPECT_THROW(Make<ccRect>(0, 0, 0, 1)->Map(turn), ccShapesError::DegenerateShape);

    const ccShapePtrh moved = rect->Translate({0.5, -2});
    ExpectRect(static_cast<const ccRect&>(*moved), 1.5, 0, 4, 3);
}

TEST(Rect, MeasuresAndTheBaseOperationsItDoesNotHave) {
    const auto rect = Make<ccRect>(0, 0, 4, 2);
    EXPECT_EQ(rect->NearestPoint({2, 1}), cc2Vect(2, 0));  // top and bottom tie: the top comes first
    EXPECT_EQ(rect->NearestPoint({5, 1}), cc2Vect(4, 1));
    EXPECT_DOUBLE_EQ(rect->DistanceToPoint({7, 6}), 5);
    EXPECT_EQ(rect->Centroid(), cc2Vect(2, 1));
    ExpectRect(*rect->BoundingBox(), 0, 0, 4, 2);
    EXPECT_THROW(Make<ccRect>(0, 0, kInf, 1)->BoundingBox(), ccShapesError::InfiniteExtent);
    EXPECT_FALSE(Make<ccRect>(0, 0, kInf, 1)->IsFinite());

    std::vector<cc2Vect> points;
    rect->Sample(1, points);
    EXPECT_EQ(points.size(), 13u);
    EXPECT_EQ(points[4], cc2Vect(4, 0));

    EXPECT_THROW(rect->StartPoint(), ccShapesError::NotOpenContour);
    EXPECT_THROW(rect->Length(), ccShapesError::NotOpenContour);
    EXPECT_THROW(rect->Reverse(), ccShapesError::NotReversible);

    EXPECT_TRUE(rect->Equals(*Make<ccRect>(0, 0, 4, 2)));
    EXPECT_FALSE(rect->Equals(*Make<ccRect>(0, 0, 4, 2.5)));
    EXPECT_FALSE(rect->Equals(*Make<ccAffineRectangle>(cc2Vect(2, 1), 4, 2, 0, 0)));
    EXPECT_EQ(rect->Description(), "ccRect(0, 0, 4, 2)");
}

TEST(Rect, HandlesShareAndCopyOnWrite) {
    ccRectPtrh rect(new ccRect(0, 0, 1, 1));
    ccShapePtrh shape = rect;  // a derived handle converts to the base one
    ccShapePtrh_const view = rect;
    EXPECT_EQ(rect.RefCount(), 3u);
    EXPECT_EQ(shape.Get(), view.Get());

    // Changing through a shared handle copies first; the others keep the old value.
    static_cast<ccRect*>(shape.MakeUnique())->SetWidth(7);
    EXPECT_EQ(rect->Width(), 1);
    EXPECT_EQ(static_cast<const ccRect&>(*shape).Width(), 7);
    EXPECT_EQ(rect.RefCount(), 2u);
    // The sole holder changes in place.
    ccRect* const before = rect.Get();
    view.Reset();
    EXPECT_EQ(rect.MakeUnique(), before);
}

}  // namespace tessaly::test
