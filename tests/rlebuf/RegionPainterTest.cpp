// ccRegionPainter against the definition worked out pixel by pixel on a dense copy of the
// mask: outlines of every width on masks with holes, diagonals, one-pixel parts and parts
// beyond the image, the tint's arithmetic, and the refusals.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "xnl/std/pelbuf/ccPelError.h"
#include "xnl/std/rlebuf/ccRegionPainter.h"

namespace {

constexpr cc3PlanePel kBackground{10, 20, 30};
constexpr cc3PlanePel kRed{255, 0, 0};

struct DenseMask {
    int32_t width, height;
    std::vector<uint8_t> pels;
    bool Inside(int32_t x, int32_t y) const {
        return x >= 0 && y >= 0 && x < width && y < height && pels[size_t(y) * width + x] == 255;
    }
};

ccRLEBuffer ToRuns(const DenseMask& dense) {
    ccPelBuffer<uint8_t> image(dense.width, dense.height);
    for (int32_t y = 0; y < dense.height; ++y)
        for (int32_t x = 0; x < dense.width; ++x) image.Set(x, y, dense.pels[size_t(y) * dense.width + x]);
    return ccRLEBuffer(image);
}

DenseMask FromRows(const std::vector<const char*>& rows) {
    DenseMask dense{static_cast<int32_t>(std::strlen(rows[0])), static_cast<int32_t>(rows.size()), {}};
    for (const char* row : rows)
        for (int32_t x = 0; x < dense.width; ++x) dense.pels.push_back(row[x] == '#' ? 255 : row[x] == '+' ? 7 : 0);
    return dense;
}

bool IsEdge(const DenseMask& m, int32_t x, int32_t y) {
    return m.Inside(x, y) &&
           (!m.Inside(x - 1, y) || !m.Inside(x + 1, y) || !m.Inside(x, y - 1) || !m.Inside(x, y + 1));
}

// The definition: inside, and within Chebyshev distance width - 1 of an edge pixel.
bool OnOutline(const DenseMask& m, int32_t x, int32_t y, int32_t width) {
    if (!m.Inside(x, y)) return false;
    for (int32_t dy = -(width - 1); dy <= width - 1; ++dy)
        for (int32_t dx = -(width - 1); dx <= width - 1; ++dx)
            if (IsEdge(m, x + dx, y + dy)) return true;
    return false;
}

cc3PlanePelBuffer Canvas(int32_t width, int32_t height) {
    cc3PlanePelBuffer image(width, height);
    image.Fill(kBackground);
    return image;
}

// Paints the outline of `dense` at (maskX, maskY) on an image and compares every pixel of
// the image with the definition.
void ExpectOutline(const DenseMask& dense, int32_t maskX, int32_t maskY, int32_t width, int32_t imageWidth,
                   int32_t imageHeight) {
    const cc3PlanePelBuffer image = Canvas(imageWidth, imageHeight);
    ccRegionPainter(image, kRed).Outline(ToRuns(dense), maskX, maskY, width);
    int painted = 0;
    for (int32_t y = 0; y < imageHeight; ++y)
        for (int32_t x = 0; x < imageWidth; ++x) {
            const bool expected = OnOutline(dense, x - maskX, y - maskY, width);
            const cc3PlanePel got = image.Get(x, y);
            ASSERT_EQ(got, expected ? kRed : kBackground)
                << "pixel (" << x << ", " << y << "), mask at (" << maskX << ", " << maskY << "), width " << width;
            painted += expected;
        }
    // The comparison means something only where the outline shows.
    if (maskX >= 0 && maskY >= 0 && maskX + dense.width <= imageWidth && maskY + dense.height <= imageHeight) {
        EXPECT_GT(painted, 0);
    }
}

DenseMask RandomBlobs(std::mt19937& random, int32_t width, int32_t height, int density) {
    DenseMask dense{width, height, std::vector<uint8_t>(size_t(width) * height, 0)};
    std::uniform_int_distribution<int> percent(0, 99);
    // Random pixels, then each row's runs widened so that there are runs of every length.
    for (auto& pel : dense.pels) pel = percent(random) < density ? 255 : 0;
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 1; x < width; ++x)
            if (dense.pels[size_t(y) * width + x - 1] == 255 && percent(random) < 40)
                dense.pels[size_t(y) * width + x] = 255;
    return dense;
}

}  // namespace

TEST(RegionPainter, OutlineIsOnTheMaskAndCoversEveryEdgePixel) {
    const DenseMask ring = FromRows({
        "..........",
        ".########.",
        ".#......#.",
        ".#.####.#.",
        ".#.####.#.",
        ".########.",
        "....#.....",
        "...#.#....",
        "#........#",
    });
    for (int32_t width = 1; width <= 4; ++width) {
        const cc3PlanePelBuffer image = Canvas(ring.width, ring.height);
        ccRegionPainter(image, kRed).Outline(ToRuns(ring), 0, 0, width);
        for (int32_t y = 0; y < ring.height; ++y)
            for (int32_t x = 0; x < ring.width; ++x) {
                const bool painted = image.Get(x, y) == kRed;
                if (painted) {
                    EXPECT_TRUE(ring.Inside(x, y)) << "outside the mask at " << x << ", " << y;
                }
                if (IsEdge(ring, x, y)) {
                    EXPECT_TRUE(painted) << "edge pixel left out at " << x << ", " << y;
                }
            }
    }
    // Width 1 is the edge alone: the 4 x 2 block's inner pixels have all four neighbours.
    for (int32_t width = 1; width <= 4; ++width) ExpectOutline(ring, 0, 0, width, ring.width, ring.height);
}

TEST(RegionPainter, ThickLinesStayInsideAndMatchTheDefinition) {
    // A filled block 12 x 9 with a 2 x 2 hole: width 1 leaves the far interior, width 3
    // reaches two pixels in from every edge, the hole's included.
    std::vector<const char*> rows = {
        "##############", "##############", "##############", "######..######", "######..######",
        "##############", "##############", "##############", "##############",
    };
    const DenseMask block = FromRows(rows);
    for (int32_t width : {1, 2, 3, 5, 40}) ExpectOutline(block, 3, 2, width, 20, 14);

    // Row 2 at width 2: two columns at each side and, above the hole, the pixels within one
    // of the hole's edge pixels (columns 4 to 9); at width 3 the top edge, two rows up,
    // reaches the whole row.
    EXPECT_EQ(ccRegionPainter::OutlineRow(ToRuns(block), 2, 2),
              (ccRegionPainter::Intervals{{0, 2}, {4, 10}, {12, 14}}));
    EXPECT_EQ(ccRegionPainter::OutlineRow(ToRuns(block), 2, 3), (ccRegionPainter::Intervals{{0, 14}}));
    // Width 0 and negative widths draw one pixel wide.
    EXPECT_EQ(ccRegionPainter::OutlineRow(ToRuns(block), 1, 0), ccRegionPainter::OutlineRow(ToRuns(block), 1, 1));
    EXPECT_EQ(ccRegionPainter::OutlineRow(ToRuns(block), 1, -5), (ccRegionPainter::Intervals{{0, 1}, {13, 14}}));
    // Rows beyond the mask have none.
    EXPECT_TRUE(ccRegionPainter::OutlineRow(ToRuns(block), -1, 2).empty());
    EXPECT_TRUE(ccRegionPainter::OutlineRow(ToRuns(block), 9, 2).empty());
}

TEST(RegionPainter, MasksPartlyOrWhollyOffTheImageAreClipped) {
    std::mt19937 random(7);
    const DenseMask blobs = RandomBlobs(random, 30, 25, 30);
    // Across every side, into the corners, and wholly beyond: rows above and below the
    // image still decide which of its rows are edges.
    for (auto [x, y] : {std::pair{-10, -7}, {5, -20}, {-25, 4}, {8, 6}, {15, 12}, {-30, 0}, {0, 25}, {40, 40}})
        for (int32_t width : {1, 2, 4}) ExpectOutline(blobs, x, y, width, 32, 28);
}

TEST(RegionPainter, RandomMasksMatchTheDefinition) {
    std::mt19937 random(2024);
    for (int trial = 0; trial < 40; ++trial) {
        const int32_t w = 1 + int32_t(random() % 40), h = 1 + int32_t(random() % 30);
        const DenseMask blobs = RandomBlobs(random, w, h, 10 + int(random() % 70));
        const int32_t width = 1 + int32_t(random() % 6);
        ExpectOutline(blobs, int32_t(random() % 11) - 5, int32_t(random() % 11) - 5, width, 36, 30);
    }
}

TEST(RegionPainter, OnlyTheInsideValueCounts) {
    // '+' pixels (value 7) are outside for a painter of 255 and inside for one of 7.
    const DenseMask mixed = FromRows({"###+++", "###+++", "###+++"});
    const ccRLEBuffer runs = ToRuns(mixed);
    cc3PlanePelBuffer image = Canvas(6, 3);
    ccRegionPainter(image, kRed).Outline(runs, 0, 0, 1);
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(image.Get(x, 1), x < 3 && x != 1 ? kRed : kBackground) << x;
    image = Canvas(6, 3);
    ccRegionPainter(image, kRed, 7).Outline(runs, 0, 0, 1);
    for (int32_t x = 0; x < 6; ++x) EXPECT_EQ(image.Get(x, 1), x == 3 || x == 5 ? kRed : kBackground) << x;
}

TEST(RegionPainter, TintBlendsThirtyFivePercentInsideOnly) {
    const DenseMask mask = FromRows({"..##", ".###", "...."});
    cc3PlanePelBuffer image(6, 5);
    image.Fill(cc3PlanePel{0, 100, 255});
    ccRegionPainter(image, cc3PlanePel{255, 0, 255}).Tint(ToRuns(mask), 3, -1);
    // Rounded: (65 * 0 + 35 * 255 + 50) / 100 = 89, (65 * 100 + 50) / 100 = 65, 255 stays.
    const cc3PlanePel tinted{89, 65, 255};
    const cc3PlanePel plain{0, 100, 255};
    for (int32_t y = 0; y < 5; ++y)
        for (int32_t x = 0; x < 6; ++x) {
            // Mask row 0 lies above the image, row 1 lands on image row 0 (clipped at x 6),
            // row 2 has nothing inside.
            const bool inside = y == 0 && x >= 4;
            EXPECT_EQ(image.Get(x, y), inside ? tinted : plain) << x << ", " << y;
        }
}

TEST(RegionPainter, Refusals) {
    EXPECT_THROW(ccRegionPainter(cc3PlanePelBuffer(), kRed), ccPel::UnboundWindow);
    const cc3PlanePelBuffer image = Canvas(4, 4);
    const ccRegionPainter painter(image, kRed);
    EXPECT_THROW(painter.Outline(ccRLEBuffer(), 0, 0, 1), ccRLEBuffer::Degenerate);
    EXPECT_THROW(painter.Tint(ccRLEBuffer(), 0, 0), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRegionPainter::OutlineRow(ccRLEBuffer(), 0, 1), ccRLEBuffer::Degenerate);
    // Nothing was painted by the refused calls; a mask without pixels paints nothing.
    painter.Outline(ccRLEBuffer(0, 3, 255), 0, 0, 1);
    painter.Outline(ccRLEBuffer(3, 0, 255), 0, 0, 1);
    for (int32_t y = 0; y < 4; ++y)
        for (int32_t x = 0; x < 4; ++x) EXPECT_EQ(image.Get(x, y), kBackground);
}

TEST(RegionPainter, OutlineOfAWindowLandsInTheWindow) {
    // A window onto a larger image: coordinates are the window's, and nothing outside the
    // window changes.
    const cc3PlanePelBuffer whole = Canvas(10, 10);
    const cc3PlanePelBuffer window = whole.Window(2, 3, 5, 4);
    ccRegionPainter(window, kRed).Outline(ccRLEBuffer(8, 8, 255), -1, -1, 1);
    for (int32_t y = 0; y < 10; ++y)
        for (int32_t x = 0; x < 10; ++x) {
            // The 8 x 8 block at (-1, -1) of the window has its edges at window x, y = -1 and
            // 6: only the window's column 6 would show, and the window is 5 wide.
            EXPECT_EQ(whole.Get(x, y), kBackground) << x << ", " << y;
        }
    ccRegionPainter(window, kRed).Outline(ccRLEBuffer(3, 2, 255), 0, 0, 1);
    for (int32_t y = 0; y < 10; ++y)
        for (int32_t x = 0; x < 10; ++x) {
            const bool inside = x >= 2 && x < 5 && y >= 3 && y < 5;
            EXPECT_EQ(whole.Get(x, y), inside ? kRed : kBackground) << x << ", " << y;
        }
}
