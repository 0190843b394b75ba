// The core run-length buffer against dense pixels: runs of random images and back, pixels,
// runs given directly and their refusals, sharing and copying on write, expanding with
// offsets, clipping and transparency, value maps, and Combine against a brute-force overlay.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "xnl/std/rlebuf/ccRLEBuffer.h"

namespace {

using Dense = std::vector<std::vector<uint8_t>>;

// A random image whose rows have runs of random lengths (1..maxRun) of a few values.
Dense RandomDense(std::mt19937& random, int32_t width, int32_t height, int maxRun, std::vector<uint8_t> values) {
    Dense dense(static_cast<size_t>(height), std::vector<uint8_t>(static_cast<size_t>(width)));
    for (auto& row : dense) {
        int32_t x = 0;
        while (x < width) {
            const int32_t length = std::uniform_int_distribution<int32_t>(1, maxRun)(random);
            const uint8_t value = values[std::uniform_int_distribution<size_t>(0, values.size() - 1)(random)];
            for (int32_t i = x; i < std::min(width, x + length); ++i) row[static_cast<size_t>(i)] = value;
            x += length;
        }
    }
    return dense;
}

ccPelBuffer<uint8_t> ImageOf(const Dense& dense, int32_t width) {
    ccPelBuffer<uint8_t> image(width, static_cast<int32_t>(dense.size()));
    for (int32_t y = 0; y < image.Height(); ++y)
        for (int32_t x = 0; x < width; ++x) image.Set(x, y, dense[static_cast<size_t>(y)][static_cast<size_t>(x)]);
    return image;
}

Dense DenseOf(const ccRLEBuffer& runs) {
    Dense dense(static_cast<size_t>(runs.Height()), std::vector<uint8_t>(static_cast<size_t>(runs.Width())));
    for (int32_t y = 0; y < runs.Height(); ++y)
        for (int32_t x = 0; x < runs.Width(); ++x) dense[static_cast<size_t>(y)][static_cast<size_t>(x)] = runs.Pixel(x, y);
    return dense;
}

// Runs of a row as the brute force counts them: a new run wherever the value changes.
int64_t CountRuns(const Dense& dense) {
    int64_t runs = 0;
    for (const auto& row : dense)
        for (size_t x = 0; x < row.size(); ++x) runs += x == 0 || row[x] != row[x - 1];
    return runs;
}

// Every row's lengths at least 1 and adding up to the width; the index consistent.
void ExpectWellFormed(const ccRLEBuffer& runs) {
    int64_t total = 0;
    for (int32_t y = 0; y < runs.Height(); ++y) {
        int64_t sum = 0;
        for (const ccRLERun& run : runs.Row(y)) {
            EXPECT_GE(run.length, 1) << "row " << y;
            sum += run.length;
        }
        EXPECT_EQ(sum, runs.Width()) << "row " << y;
        total += static_cast<int64_t>(runs.Row(y).size());
    }
    EXPECT_EQ(total, runs.NumRuns());
}

TEST(RLEBufferTest, RunsOfImagesExpandBackToTheSamePixels) {
    std::mt19937 random(7);
    for (const auto& [width, height] : {std::pair{1, 1}, {37, 5}, {200, 64}, {1, 40}, {513, 3}}) {
        const Dense dense = RandomDense(random, width, height, 9, {0, 1, 200, 255});
        const ccRLEBuffer runs(ImageOf(dense, width));
        ASSERT_TRUE(runs.IsInitialized());
        EXPECT_EQ(runs.Width(), width);
        EXPECT_EQ(runs.Height(), height);
        EXPECT_EQ(runs.NumRuns(), CountRuns(dense)) << "runs of equal pixels, as long as they go";
        EXPECT_EQ(runs.FreeRuns(), 0) << "counted first, allocated exactly";
        ExpectWellFormed(runs);
        EXPECT_EQ(DenseOf(runs), dense);
        const ccPelBuffer<uint8_t> expanded = runs.Expand();
        for (int32_t y = 0; y < height; ++y)
            for (int32_t x = 0; x < width; ++x)
                ASSERT_EQ(expanded.Get(x, y), dense[static_cast<size_t>(y)][static_cast<size_t>(x)]);
    }
    // A window of a larger image (rows further apart than its width).
    const Dense dense = RandomDense(random, 50, 20, 4, {3, 4});
    const ccPelBuffer<uint8_t> window = ImageOf(dense, 50).Window(7, 3, 30, 11);
    const ccRLEBuffer runs(window);
    for (int32_t y = 0; y < 11; ++y)
        for (int32_t x = 0; x < 30; ++x) ASSERT_EQ(runs.Pixel(x, y), dense[size_t(y + 3)][size_t(x + 7)]);
    EXPECT_THROW(ccRLEBuffer(ccPelBuffer_const<uint8_t>()), ccPel::UnboundWindow);
}

TEST(RLEBufferTest, UniformEmptyAndUninitialisedBuffers) {
    const ccRLEBuffer uniform(5, 3, 7);
    EXPECT_EQ(uniform.NumRuns(), 3);
    EXPECT_EQ(uniform.Row(2).size(), 1u);
    EXPECT_EQ(uniform.Row(2)[0], (ccRLERun{7, 5}));
    EXPECT_EQ(uniform.Pixel(4, 2), 7);
    EXPECT_FALSE(uniform.Binary());
    EXPECT_TRUE(ccRLEBuffer(5, 3, 255).Binary());
    EXPECT_TRUE(ccRLEBuffer(5, 3, 0).Binary());

    const ccRLEBuffer narrow(0, 4, 1);  // rows of nothing
    EXPECT_TRUE(narrow.IsInitialized());
    EXPECT_EQ(narrow.Height(), 4);
    EXPECT_EQ(narrow.NumRuns(), 0);
    EXPECT_TRUE(narrow.Row(3).empty());
    EXPECT_THROW(narrow.Expand(), ccRLEBuffer::Degenerate);

    const ccRLEBuffer none;
    EXPECT_FALSE(none.IsInitialized());
    EXPECT_EQ(none.Width(), 0);
    EXPECT_EQ(none.NumRuns(), 0);
    EXPECT_TRUE(none.Runs().empty());
    EXPECT_THROW(none.Binary(), ccRLEBuffer::Degenerate);
    EXPECT_THROW(none.Pixel(0, 0), ccPel::BadCoord);
    EXPECT_THROW(none.Expand(), ccRLEBuffer::Degenerate);
    EXPECT_TRUE(none == ccRLEBuffer());
    EXPECT_FALSE(none == narrow);

    EXPECT_THROW(ccRLEBuffer(-1, 3, 0), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRLEBuffer(3, -1, 0), ccRLEBuffer::Degenerate);
    for (const auto& [x, y] : {std::pair{-1, 0}, {0, -1}, {5, 0}, {0, 3}}) EXPECT_THROW(uniform.Pixel(x, y), ccPel::BadCoord);
}

TEST(RLEBufferTest, RunsGivenDirectlyAreCheckedWhole) {
    const std::vector<ccRLERun> good{{1, 2}, {2, 2}, {3, 4}, {9, 1}, {8, 3}};
    const ccRLEBuffer runs = ccRLEBuffer::FromRuns(4, 3, good);
    EXPECT_EQ(runs.NumRuns(), 5);
    EXPECT_EQ(runs.Row(0).size(), 2u);
    EXPECT_EQ(runs.Row(1).size(), 1u);
    EXPECT_EQ(runs.Row(2).size(), 2u);
    EXPECT_EQ(runs.Pixel(3, 2), 8);
    EXPECT_EQ(runs.Pixel(0, 2), 9);
    EXPECT_TRUE(ccRLEBuffer::FromRuns(0, 0, {}).IsInitialized());
    EXPECT_EQ(ccRLEBuffer::FromRuns(0, 5, {}).Height(), 5);

    const std::vector<std::vector<ccRLERun>> bad{
        {{1, 2}, {2, 2}, {3, 4}, {9, 1}, {8, 2}},          // the last row short
        {{1, 2}, {2, 3}, {3, 3}, {9, 1}, {8, 3}},          // a run across the end of a row
        {{1, 2}, {2, 2}, {3, 4}, {9, 1}, {8, 3}, {7, 1}},  // a run more than the rows hold
        {{1, 2}, {2, 0}, {2, 2}, {3, 4}, {9, 1}, {8, 3}},  // a run of no pixels
        {{1, 6}, {2, -2}, {3, 4}, {9, 1}, {8, 3}},         // a negative length
        {{1, 4}},                                          // rows without runs
    };
    for (const auto& runsOfIt : bad) EXPECT_THROW(ccRLEBuffer::FromRuns(4, 3, runsOfIt), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRLEBuffer::FromRuns(0, 2, good), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRLEBuffer::FromRuns(-4, 3, good), ccRLEBuffer::Degenerate);
}

TEST(RLEBufferTest, CopiesShareTheBlockUntilOneWritesOrReserves) {
    const ccRLEBuffer original = ccRLEBuffer::FromRuns(4, 2, std::vector<ccRLERun>{{1, 4}, {2, 1}, {3, 3}});
    ccRLEBuffer copy = original;
    EXPECT_EQ(copy.Runs().data(), original.Runs().data());
    EXPECT_TRUE(copy == original);

    copy.MutableRuns()[0].value = 9;
    EXPECT_NE(copy.Runs().data(), original.Runs().data());
    EXPECT_EQ(original.Pixel(0, 0), 1) << "the original kept its own runs";
    EXPECT_EQ(copy.Pixel(0, 0), 9);
    EXPECT_FALSE(copy == original);

    ccRLEBuffer reserved = original;
    reserved.Reserve(10);
    EXPECT_EQ(reserved.NumRuns(), 3);
    EXPECT_EQ(reserved.FreeRuns(), 7);
    EXPECT_NE(reserved.Runs().data(), original.Runs().data());
    EXPECT_TRUE(reserved == original) << "the same runs, more room";
    EXPECT_EQ(original.FreeRuns(), 0);
    EXPECT_THROW(ccRLEBuffer().Reserve(4), ccRLEBuffer::Degenerate);
    EXPECT_THROW(reserved.Reserve(ccRLEBuffer::kMaxRuns + 1), ccRLEBuffer::Degenerate);

    ccRLEBuffer moved = std::move(copy);
    EXPECT_FALSE(copy.IsInitialized());  // NOLINT(bugprone-use-after-move): a moved-from buffer is uninitialised
    EXPECT_EQ(moved.Pixel(0, 0), 9);
}

TEST(RLEBufferTest, SamePixelsIgnoresHowRunsAreSplit) {
    const ccRLEBuffer joined = ccRLEBuffer::FromRuns(5, 1, std::vector<ccRLERun>{{4, 3}, {6, 2}});
    const ccRLEBuffer split = ccRLEBuffer::FromRuns(5, 1, std::vector<ccRLERun>{{4, 1}, {4, 2}, {6, 1}, {6, 1}});
    const ccRLEBuffer other = ccRLEBuffer::FromRuns(5, 1, std::vector<ccRLERun>{{4, 2}, {6, 3}});
    EXPECT_FALSE(joined == split);
    EXPECT_TRUE(joined.SamePixels(split));
    EXPECT_TRUE(split.SamePixels(joined));
    EXPECT_FALSE(joined.SamePixels(other));
    EXPECT_FALSE(joined.SamePixels(ccRLEBuffer(5, 2, 4)));
    EXPECT_FALSE(joined.SamePixels(ccRLEBuffer()));
}

TEST(RLEBufferTest, ExpandingWithOffsetsClipsAndKeepsTransparentPixels) {
    std::mt19937 random(11);
    const Dense dense = RandomDense(random, 23, 9, 5, {0, 17, 255});
    const ccRLEBuffer runs(ImageOf(dense, 23));
    for (const auto& [dx, dy] : {std::pair{0, 0}, {-5, -3}, {10, 4}, {-30, 0}, {0, 20}, {-22, -8}}) {
        for (const std::optional<uint8_t> transparent : {std::optional<uint8_t>{}, std::optional<uint8_t>{17}}) {
            const ccPelBuffer<uint8_t> image(16, 8);
            image.Fill(99);
            runs.Expand(image, dx, dy, transparent);
            for (int32_t y = 0; y < 8; ++y) {
                for (int32_t x = 0; x < 16; ++x) {
                    const int32_t i = x - dx, j = y - dy;
                    uint8_t expected = 99;
                    if (i >= 0 && j >= 0 && i < 23 && j < 9) {
                        const uint8_t value = dense[size_t(j)][size_t(i)];
                        if (!transparent || value != *transparent) expected = value;
                    }
                    ASSERT_EQ(image.Get(x, y), expected) << x << ", " << y << " offset " << dx << ", " << dy;
                }
            }
        }
    }
    EXPECT_THROW(ccRLEBuffer().Expand(ccPelBuffer<uint8_t>(4, 4), 0, 0), ccRLEBuffer::Degenerate);
    EXPECT_THROW(runs.Expand(ccPelBuffer<uint8_t>(), 0, 0), ccPel::UnboundWindow);
}

TEST(RLEBufferTest, PixelMapReplacesValuesAndKeepsTheRuns) {
    std::mt19937 random(5);
    const Dense dense = RandomDense(random, 31, 6, 6, {0, 1, 2, 128, 255});
    const ccRLEBuffer runs(ImageOf(dense, 31));
    uint8_t table[256];
    for (int v = 0; v < 256; ++v) table[v] = static_cast<uint8_t>(v == 128 ? 1 : 255 - v);
    const ccRLEBuffer mapped = runs.PixelMap(table);
    EXPECT_EQ(mapped.NumRuns(), runs.NumRuns()) << "neighbours that map alike stay apart";
    ExpectWellFormed(mapped);
    for (int32_t y = 0; y < 6; ++y)
        for (int32_t x = 0; x < 31; ++x) ASSERT_EQ(mapped.Pixel(x, y), table[dense[size_t(y)][size_t(x)]]);
    EXPECT_EQ(DenseOf(runs), dense) << "the source is left as it was";
    EXPECT_THROW(ccRLEBuffer().PixelMap(table), ccRLEBuffer::Degenerate);
}

TEST(RLEBufferTest, CombineOverlaysTheMappedSubBufferExceptTransparentValues) {
    std::mt19937 random(3);
    for (int trial = 0; trial < 60; ++trial) {
        const int32_t width = std::uniform_int_distribution<int32_t>(1, 40)(random);
        const int32_t height = std::uniform_int_distribution<int32_t>(1, 12)(random);
        const int32_t subWidth = std::uniform_int_distribution<int32_t>(0, width)(random);
        const int32_t subHeight = std::uniform_int_distribution<int32_t>(0, height)(random);
        const int32_t subX = std::uniform_int_distribution<int32_t>(0, width - subWidth)(random);
        const int32_t subY = std::uniform_int_distribution<int32_t>(0, height - subHeight)(random);
        const Dense base = RandomDense(random, width, height, 7, {0, 9, 255});
        const Dense part = RandomDense(random, subWidth, subHeight, 4, {0, 9, 40, 255});
        const ccRLEBuffer baseRuns(ImageOf(base, width));
        const ccRLEBuffer subRuns = subWidth > 0 && subHeight > 0 ? ccRLEBuffer(ImageOf(part, subWidth))
                                                                  : ccRLEBuffer(subWidth, subHeight, 0);
        uint8_t map[256];
        for (int v = 0; v < 256; ++v) map[v] = static_cast<uint8_t>(v == 40 ? 9 : v / 2);
        const std::optional<uint8_t> transparent =
            trial % 3 == 0 ? std::optional<uint8_t>{} : std::optional<uint8_t>{trial % 3 == 1 ? 0 : 40};

        const ccRLEBuffer combined = baseRuns.Combine(subRuns, subX, subY, map, transparent);
        ExpectWellFormed(combined);
        Dense expected = base;
        for (int32_t j = 0; j < subHeight; ++j)
            for (int32_t i = 0; i < subWidth; ++i) {
                const uint8_t s = part[size_t(j)][size_t(i)];
                if (!transparent || s != *transparent) expected[size_t(subY + j)][size_t(subX + i)] = map[s];
            }
        ASSERT_EQ(DenseOf(combined), expected) << "trial " << trial;
        // Covered rows come out joined: as few runs as their pixels need.
        for (int32_t y = subY; y < subY + subHeight && subWidth > 0; ++y) {
            const auto row = combined.Row(y);
            for (size_t k = 1; k < row.size(); ++k) ASSERT_NE(row[k].value, row[k - 1].value) << "row " << y;
        }
        EXPECT_EQ(DenseOf(baseRuns), base);
    }
    const ccRLEBuffer base(10, 5, 1);
    uint8_t identity[256];
    for (int v = 0; v < 256; ++v) identity[v] = static_cast<uint8_t>(v);
    for (const auto& [x, y, w, h] : std::vector<std::array<int32_t, 4>>{
             {-1, 0, 3, 3}, {0, -1, 3, 3}, {8, 0, 3, 3}, {0, 3, 3, 3}, {0, 0, 11, 1}, {0, 0, 1, 6}})
        EXPECT_THROW(base.Combine(ccRLEBuffer(w, h, 2), x, y, identity), ccRLEBuffer::Degenerate) << x << ", " << y;
    EXPECT_THROW(base.Combine(ccRLEBuffer(), 0, 0, identity), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRLEBuffer().Combine(base, 0, 0, identity), ccRLEBuffer::Degenerate);
}

}  // namespace
