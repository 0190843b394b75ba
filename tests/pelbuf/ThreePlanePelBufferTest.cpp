// The three-plane buffer of planar colour images: planes that share their roots, windows
// of all three alike, refusals that leave every plane as it was, and the conversions to
// and from pixels that keep their three values side by side.
#include <gtest/gtest.h>

#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/cc3PlanePelBuffer.h"

namespace {

TEST(ThreePlanePelBuffer, ReadsAndWritesThreeCoincidentPlanesThatShareTheirRoots) {
    cc3PlanePelBuffer colour(6, 4);
    colour.Set(5, 3, {1, 2, 3});
    EXPECT_EQ(colour.Get(5, 3), (cc3PlanePel{1, 2, 3}));
    EXPECT_EQ(colour.Plane(2).Get(5, 3), 3);
    EXPECT_NE(colour.Plane(0).Root(), colour.Plane(1).Root());
    // A plane handed out alone is a view of the same pixels.
    const ccPelBuffer<uint8_t> green = colour.Plane(1);
    green.Set(0, 0, 99);
    EXPECT_EQ(colour.Get(0, 0).plane1, 99);
    EXPECT_THROW(colour.Plane(3), ccStdError::OutOfRange);

    // A refused coordinate writes no plane.
    EXPECT_THROW(colour.Set(6, 0, {7, 7, 7}), ccPel::BadCoord);
    EXPECT_THROW(colour.Get(0, 4), ccPel::BadCoord);
    for (int plane = 0; plane < 3; ++plane)
        for (int32_t y = 0; y < 4; ++y) EXPECT_NE(colour.Plane(plane).RowPointer(y)[5], 7);

    const cc3PlanePelBuffer window = colour.Window(4, 2, 2, 2);
    EXPECT_EQ(window.Get(1, 1), (cc3PlanePel{1, 2, 3}));
    EXPECT_THROW(colour.Window(4, 2, 3, 2), ccPel::BadWindow);

    colour.SetClientFromPelXform(cc2XformLinear(1, 0, 0, 1, 5, 0));
    for (int plane = 0; plane < 3; ++plane)
        EXPECT_EQ(colour.Window(1, 0, 1, 1).Plane(plane).ClientFromPel({0, 0}), cc2Vect(6, 0));
}

TEST(ThreePlanePelBuffer, PlanesAreAllBoundWithOneSizeOrNoneAtAll) {
    const ccPelBuffer<uint8_t> a(4, 3), b(4, 3), c(4, 3), wide(5, 3);
    EXPECT_NO_THROW(cc3PlanePelBuffer(a, b, c));
    EXPECT_THROW(cc3PlanePelBuffer(a, b, wide), ccPel::BadWindow);
    EXPECT_THROW(cc3PlanePelBuffer(a, b.Window(0, 0, 4, 2), c), ccPel::BadWindow);
    EXPECT_THROW(cc3PlanePelBuffer(a, ccPelBuffer<uint8_t>(), c), ccPel::UnboundWindow);

    const cc3PlanePelBuffer none(ccPelBuffer<uint8_t>{}, ccPelBuffer<uint8_t>{}, ccPelBuffer<uint8_t>{});
    EXPECT_FALSE(none.IsBound());
    EXPECT_THROW(none.Get(0, 0), ccPel::UnboundWindow);
    EXPECT_THROW(none.Set(0, 0, {}), ccPel::UnboundWindow);
    EXPECT_THROW(cc3PlanePelBuffer(4, 3).CopyFrom(none), ccPel::UnboundWindow);
}

TEST(ThreePlanePelBuffer, CopiesPlaneByPlaneAndToAndFromSideBySidePixels) {
    const cc3PlanePelBuffer source(3, 2);
    for (int32_t y = 0; y < 2; ++y)
        for (int32_t x = 0; x < 3; ++x)
            source.Set(x, y, {static_cast<uint8_t>(x), static_cast<uint8_t>(y), static_cast<uint8_t>(10 * y + x)});

    ccPelBuffer<cc3PlanePel> interleaved(3, 2);
    source.CopyTo(interleaved);
    EXPECT_EQ(interleaved.Get(2, 1), (cc3PlanePel{2, 1, 12}));
    const cc3PlanePelBuffer back(3, 2);
    back.CopyFrom(interleaved);
    const cc3PlanePelBuffer planar(3, 2);
    planar.CopyFrom(source);
    for (int32_t y = 0; y < 2; ++y)
        for (int32_t x = 0; x < 3; ++x) {
            EXPECT_EQ(back.Get(x, y), source.Get(x, y));
            EXPECT_EQ(planar.Get(x, y), source.Get(x, y));
        }
    EXPECT_THROW(back.CopyFrom(ccPelBuffer<cc3PlanePel>(3, 3)), ccPelFunc::BadParams);
    EXPECT_THROW(back.CopyTo(ccPelBuffer<cc3PlanePel>(2, 2)), ccPelFunc::BadParams);

    // Plane 2's copy would overlap: planes 0 and 1 are not written either.
    const cc3PlanePelBuffer big(6, 2);
    big.Fill({5, 5, 5});
    const cc3PlanePelBuffer target(big.Plane(0).Window(0, 0, 3, 2), big.Plane(1).Window(0, 0, 3, 2),
                                   big.Plane(2).Window(0, 0, 3, 2));
    const cc3PlanePelBuffer overlapping(source.Plane(0), source.Plane(1), big.Plane(2).Window(1, 0, 3, 2));
    EXPECT_THROW(target.CopyFrom(overlapping), ccPelFunc::Overlap);
    EXPECT_EQ(big.Get(0, 0), (cc3PlanePel{5, 5, 5}));
}

}  // namespace
