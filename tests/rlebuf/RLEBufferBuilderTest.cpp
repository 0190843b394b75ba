// The builder that shapes rasterise into: random spans (rows skipped, spans partly or wholly
// outside the box, any hint of their count) against a dense mask painted from the same spans, rectangles mixed with
// spans, the span contract's refusals, and a rotated rectangle's runs.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"

namespace {

constexpr uint8_t kInside = 200, kOutside = 7;

struct Box {
    int32_t x0, y0, width, height;
};

// Paints the span into a dense mask of the box, clipping as the builder must.
struct DenseMask {
    explicit DenseMask(Box box)
        : box(box), pixels(size_t(box.height), std::vector<uint8_t>(size_t(box.width), kOutside)) {}
    void Span(int32_t x, int32_t y, int32_t width) {
        const int32_t row = y - box.y0;
        if (row < 0 || row >= box.height) return;
        for (int32_t i = std::max(x - box.x0, 0); i < std::min(x - box.x0 + width, box.width); ++i)
            pixels[size_t(row)][size_t(i)] = kInside;
    }
    ccRLEBuffer Runs() const {
        if (box.width == 0 || box.height == 0) return ccRLEBuffer(box.width, box.height, kOutside);
        ccPelBuffer<uint8_t> image(box.width, box.height);
        for (int32_t y = 0; y < box.height; ++y)
            for (int32_t x = 0; x < box.width; ++x) image.Set(x, y, pixels[size_t(y)][size_t(x)]);
        return ccRLEBuffer(image);
    }
    Box box;
    std::vector<std::vector<uint8_t>> pixels;
};

TEST(RLEBufferBuilderTest, RandomSpansBuildTheRunsOfTheirPixelsClippedToTheBox) {
    std::mt19937 random(2024);
    for (int trial = 0; trial < 200; ++trial) {
        const Box box{std::uniform_int_distribution<int32_t>(-20, 20)(random),
                      std::uniform_int_distribution<int32_t>(-20, 20)(random),
                      std::uniform_int_distribution<int32_t>(0, 40)(random),
                      std::uniform_int_distribution<int32_t>(0, 15)(random)};
        ccRLEBufferBuilder builder(box.x0, box.y0, box.width, box.height, kInside, kOutside);
        // A hint of the span count, right, too small or absurd, only reserves room.
        const int64_t hints[] = {0, 1, 50, INT64_MAX, -5};
        builder.ExpectSpans(hints[trial % 5]);
        DenseMask dense(box);
        // Rows from above the box to below it; some not mentioned at all.
        for (int32_t y = box.y0 - 3; y < box.y0 + box.height + 3; ++y) {
            if (random() % 3 == 0) continue;
            int32_t x = box.x0 - 10 + static_cast<int32_t>(random() % 8);
            while (x < box.x0 + box.width + 10) {
                const int32_t width = 1 + static_cast<int32_t>(random() % 9);
                if (random() % 4 == 0) {
                    const int32_t rows = 1 + static_cast<int32_t>(random() % 4);
                    // A rectangle ends the spans of its first row and takes the rows below.
                    builder.blitRect(x, y, width, rows);
                    for (int32_t r = 0; r < rows; ++r) dense.Span(x, y + r, width);
                    y += rows - 1;
                    break;
                }
                builder.blitH(x, y, width);
                dense.Span(x, y, width);
                x += width + 1 + static_cast<int32_t>(random() % 6);  // never touching
            }
        }
        const ccRLEBuffer built = builder.Finish();
        // Spans never touch and inside differs from outside: the runs are exactly those of
        // the pixels, joined as far as they go.
        ASSERT_TRUE(built == dense.Runs()) << "trial " << trial << ": box " << box.x0 << ", " << box.y0 << ", "
                                           << box.width << " x " << box.height;
    }
}

TEST(RLEBufferBuilderTest, RectanglesShareRowsWithSpansBeforeAndAfter) {
    ccRLEBufferBuilder builder(0, 0, 12, 6, 255, 0);
    builder.blitH(1, 1, 2);
    builder.blitRect(4, 1, 3, 3);  // rows 1..3; row 1 already holds a span
    builder.blitH(9, 3, 2);        // the rectangle's last row goes on
    builder.blitRect(-5, 5, 100, 40);
    const ccRLEBuffer built = builder.Finish();
    const std::vector<ccRLERun> expected{
        {0, 12},                                              // row 0 untouched
        {0, 1},  {255, 2}, {0, 1}, {255, 3}, {0, 5},          // row 1
        {0, 4},  {255, 3}, {0, 5},                            // row 2
        {0, 4},  {255, 3}, {0, 2}, {255, 2}, {0, 1},          // row 3
        {0, 12},                                              // row 4 untouched
        {255, 12},                                            // row 5 clipped both sides
    };
    EXPECT_TRUE(built == ccRLEBuffer::FromRuns(12, 6, expected));

    ccRLEBufferBuilder nothing(10, 10, 5, 3, 255, 0);
    nothing.blitRect(0, 0, 100, 10);  // above the box
    nothing.blitH(0, 11, 10);         // left of it
    nothing.blitH(15, 11, 10);        // right of it
    nothing.blitH(12, 12, 0);         // no pixels
    nothing.blitRect(12, 12, 3, 0);
    nothing.blitH(11, 13, 3);         // below it
    EXPECT_TRUE(nothing.Finish() == ccRLEBuffer(5, 3, 0));

    // A sparse shape gives back the room it did not use; a dense one keeps its little slack.
    ccRLEBufferBuilder sparse(0, 0, 100, 1000);
    sparse.blitH(10, 500, 5);
    const ccRLEBuffer few = sparse.Finish();
    EXPECT_EQ(few.NumRuns(), 1002);
    EXPECT_EQ(few.FreeRuns(), 0);
    EXPECT_EQ(few.Pixel(12, 500), 255);
    EXPECT_EQ(few.Pixel(99, 999), 0);

    ccRLEBufferBuilder empty(0, 0, 0, 4);
    empty.blitH(0, 1, 5);
    const ccRLEBuffer none = empty.Finish();
    EXPECT_EQ(none.Height(), 4);
    EXPECT_EQ(none.NumRuns(), 0);
}

TEST(RLEBufferBuilderTest, SpansOutOfOrderAndUseAfterFinishAreRefused) {
    ccRLEBufferBuilder rows(0, 0, 10, 10);
    rows.blitH(0, 5, 2);
    EXPECT_THROW(rows.blitH(0, 4, 2), ccRLEBuffer::Degenerate);
    ccRLEBufferBuilder spans(0, 0, 10, 10);
    spans.blitH(5, 2, 2);
    EXPECT_THROW(spans.blitH(3, 2, 1), ccRLEBuffer::Degenerate);
    EXPECT_THROW(spans.blitRect(0, 2, 1, 3), ccRLEBuffer::Degenerate);
    spans.blitH(8, 2, 1);  // the refusals left the builder usable
    const ccRLEBuffer built = spans.Finish();
    EXPECT_EQ(built.Pixel(5, 2), 255);
    EXPECT_EQ(built.Pixel(8, 2), 255);
    EXPECT_EQ(built.Pixel(3, 2), 0);
    EXPECT_THROW(spans.blitH(0, 9, 1), ccRLEBuffer::Degenerate);
    EXPECT_THROW(spans.Finish(), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRLEBufferBuilder(0, 0, -1, 3), ccRLEBuffer::Degenerate);
}

// The spans of a rectangle of size x size rotated by `angle` about its centre, centred in a
// box of `box` x `box`: the pixel centres inside, row by row.
void RotatedSquare(ccSpanSink& sink, int32_t box, double size, double angle) {
    const double c = std::cos(angle), s = std::sin(angle), centre = box / 2.0, half = size / 2;
    for (int32_t y = 0; y < box; ++y) {
        const double py = y + 0.5 - centre;
        // Inside: |c px + s py| <= half and |-s px + c py| <= half, an interval in px each.
        double lo = -1e300, hi = 1e300;
        for (const auto& [a, b] : {std::pair{c, s * py}, std::pair{-s, c * py}}) {
            const double l = (-half - b) / a, h = (half - b) / a;
            lo = std::max(lo, std::min(l, h));
            hi = std::min(hi, std::max(l, h));
        }
        const auto first = static_cast<int32_t>(std::ceil(lo + centre - 0.5));
        const auto last = static_cast<int32_t>(std::floor(hi + centre - 0.5));
        if (last >= first) sink.blitH(first, y, last - first + 1);
    }
}

TEST(RLEBufferBuilderTest, ARotatedSquareHasThreeRunsInEachRowItCrosses) {
    constexpr int32_t kBox = 5600;
    ccRLEBufferBuilder builder(0, 0, kBox, kBox);
    RotatedSquare(builder, kBox, 4096, std::numbers::pi / 6);
    const ccRLEBuffer mask = builder.Finish();
    int32_t crossed = 0;
    for (int32_t y = 0; y < kBox; ++y) {
        const auto row = mask.Row(y);
        if (row.size() == 1) {
            EXPECT_EQ(row[0], (ccRLERun{0, kBox}));
            continue;
        }
        ++crossed;
        ASSERT_EQ(row.size(), 3u) << "row " << y;
        EXPECT_EQ(row[1].value, 255);
    }
    // The square's height at 30 degrees: 4096 (cos 30 + sin 30), about 5595 rows.
    EXPECT_NEAR(crossed, 4096 * (std::cos(std::numbers::pi / 6) + 0.5), 2);
    EXPECT_LE(mask.FreeRuns(), mask.NumRuns()) << "three runs a row were reserved up front, no more";
}

}  // namespace
