// Statistics of the pixels under a mask against a brute-force pass over every pixel: random
// images of both widths, random masks with other values than the inside one, placed partly
// outside the image, and images that are windows of larger ones.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"

namespace {

constexpr uint8_t kInside = 255;

// A mask of runs of random length (up to 40: long enough for the eight-at-once path) of
// inside, zero and other values.
ccRLEBuffer RandomMask(std::mt19937& random, int32_t width, int32_t height) {
    std::vector<ccRLERun> runs;
    for (int32_t y = 0; y < height; ++y) {
        int32_t x = 0;
        while (x < width) {
            const int32_t length = std::min(width - x, 1 + static_cast<int32_t>(random() % 40));
            const uint32_t pick = random() % 4;
            runs.push_back({static_cast<uint8_t>(pick < 2 ? kInside : pick == 2 ? 0 : 128), length});
            x += length;
        }
    }
    return ccRLEBuffer::FromRuns(width, height, runs);
}

template <class T>
struct Expected {
    uint64_t count = 0, outside = 0;
    std::vector<uint64_t> histogram;
    std::vector<T> values;
};

template <class T>
Expected<T> BruteForce(const ccPelBuffer_const<T>& image, const ccRLEBuffer& mask, int32_t maskX, int32_t maskY) {
    Expected<T> expected;
    expected.histogram.assign(sizeof(T) == 1 ? 256 : 65536, 0);
    for (int32_t y = 0; y < mask.Height(); ++y)
        for (int32_t x = 0; x < mask.Width(); ++x) {
            if (mask.Pixel(x, y) != kInside) continue;
            const int32_t ix = x + maskX, iy = y + maskY;
            if (!image.Contains(ix, iy)) {
                ++expected.outside;
                continue;
            }
            const T value = image.Get(ix, iy);
            ++expected.count;
            ++expected.histogram[value];
            expected.values.push_back(value);
        }
    std::sort(expected.values.begin(), expected.values.end());
    return expected;
}

template <class T>
void ExpectStatistics(const ccRegionPixelStatistics& stats, const Expected<T>& expected, const char* what) {
    SCOPED_TRACE(what);
    ASSERT_EQ(stats.Count(), expected.count);
    EXPECT_EQ(stats.OutsideImage(), expected.outside);
    ASSERT_EQ(stats.Histogram(), expected.histogram);
    double sum = 0;
    for (const T v : expected.values) sum += v;
    EXPECT_EQ(stats.Sum(), sum);
    if (expected.count == 0) {
        EXPECT_EQ(stats.Mean(), 0);
        EXPECT_EQ(stats.StandardDeviation(), 0);
        EXPECT_EQ(stats.Min(), 0u);
        EXPECT_EQ(stats.Max(), 0u);
        EXPECT_EQ(stats.Median(), 0u);
        return;
    }
    const double mean = sum / static_cast<double>(expected.count);
    double squares = 0;
    for (const T v : expected.values) squares += (v - mean) * (v - mean);
    EXPECT_NEAR(stats.Mean(), mean, 1e-9 * std::max(1.0, mean));
    EXPECT_NEAR(stats.StandardDeviation(), std::sqrt(squares / static_cast<double>(expected.count)), 1e-6);
    EXPECT_EQ(stats.Min(), expected.values.front());
    EXPECT_EQ(stats.Max(), expected.values.back());
    EXPECT_EQ(stats.Median(), expected.values[(expected.values.size() - 1) / 2]);
    // Coarser histograms: bin of v is v * bins / range.
    const int64_t range = static_cast<int64_t>(expected.histogram.size());
    for (const int32_t bins : {1, 3, 16, 256}) {
        std::vector<uint64_t> coarse(static_cast<size_t>(bins));
        for (const T v : expected.values) ++coarse[static_cast<size_t>(int64_t{v} * bins / range)];
        EXPECT_EQ(stats.Histogram(bins), coarse) << bins << " bins";
    }
}

template <class T>
ccPelBuffer<T> RandomImage(std::mt19937& random, int32_t width, int32_t height, uint32_t levels) {
    ccPelBuffer<T> image(width, height);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x) image.Set(x, y, static_cast<T>(random() % levels));
    return image;
}

template <class T>
class RegionPixelStatisticsTest : public ::testing::Test {};
using PixelTypes = ::testing::Types<uint8_t, uint16_t>;
TYPED_TEST_SUITE(RegionPixelStatisticsTest, PixelTypes);

TYPED_TEST(RegionPixelStatisticsTest, AgreesWithABruteForcePassOnRandomMasksAndPlacements) {
    using T = TypeParam;
    std::mt19937 random(sizeof(T) * 1000 + 1);
    const uint32_t levels = sizeof(T) == 1 ? 256 : 65536;
    for (int trial = 0; trial < 40; ++trial) {
        const int32_t width = 1 + static_cast<int32_t>(random() % 90);
        const int32_t height = 1 + static_cast<int32_t>(random() % 30);
        const ccPelBuffer<T> whole = RandomImage<T>(random, width + 9, height + 4, trial % 2 ? levels : 5);
        // A window whose rows lie further apart than its width.
        const ccPelBuffer<T> image = whole.Window(5, 2, width, height);
        const int32_t maskWidth = static_cast<int32_t>(random() % 120), maskHeight = static_cast<int32_t>(random() % 40);
        const ccRLEBuffer mask = RandomMask(random, maskWidth, maskHeight);
        const int32_t maskX = static_cast<int32_t>(random() % 100) - 50, maskY = static_cast<int32_t>(random() % 40) - 20;
        const ccRegionPixelStatistics stats(image, mask, maskX, maskY);
        ExpectStatistics(stats, BruteForce<T>(image, mask, maskX, maskY), ("trial " + std::to_string(trial)).c_str());
    }
}

TYPED_TEST(RegionPixelStatisticsTest, EdgeCases) {
    using T = TypeParam;
    std::mt19937 random(99);
    const ccPelBuffer<T> image = RandomImage<T>(random, 20, 10, 1000);
    const ccRLEBuffer all(20, 10, kInside);
    ExpectStatistics(ccRegionPixelStatistics(image, all, 0, 0), BruteForce<T>(image, all, 0, 0), "the whole image");
    // Wholly outside: nothing counted, every inside pixel reported outside.
    const ccRegionPixelStatistics away(image, all, 20, 0);
    EXPECT_EQ(away.Count(), 0u);
    EXPECT_EQ(away.OutsideImage(), 200u);
    ExpectStatistics(away, BruteForce<T>(image, all, 20, 0), "beside the image");
    ExpectStatistics(ccRegionPixelStatistics(image, all, -5, -9), BruteForce<T>(image, all, -5, -9), "overlapping a corner");
    // Another inside value, and the counts of a single pixel.
    const ccRegionPixelStatistics one(image, ccRLEBuffer(1, 1, 3), 7, 4, 3);
    EXPECT_EQ(one.Count(), 1u);
    EXPECT_EQ(one.Min(), image.Get(7, 4));
    EXPECT_EQ(one.Median(), image.Get(7, 4));
    EXPECT_EQ(one.StandardDeviation(), 0);
    EXPECT_EQ(ccRegionPixelStatistics(image, ccRLEBuffer(1, 1, 3), 7, 4).Count(), 0u) << "3 is not the inside value";
    // Even counts take the lower of the two middle values.
    ccPelBuffer<T> pair(2, 1);
    pair.Set(0, 0, 10);
    pair.Set(1, 0, 20);
    EXPECT_EQ(ccRegionPixelStatistics(pair, ccRLEBuffer(2, 1, kInside), 0, 0).Median(), 10u);

    const ccRegionPixelStatistics stats(image, all, 0, 0);
    EXPECT_THROW(stats.Histogram(0), ccRLEBuffer::Degenerate);
    EXPECT_THROW(stats.Histogram(sizeof(T) == 1 ? 257 : 65537), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRegionPixelStatistics(image, ccRLEBuffer(), 0, 0), ccRLEBuffer::Degenerate);
    EXPECT_THROW(ccRegionPixelStatistics(ccPelBuffer_const<T>(), all, 0, 0), ccPel::UnboundWindow);
}

TEST(RegionPixelStatisticsLargeTest, MomentsOfAConstantImageAreExact) {
    // 12 million pixels of 255 (more than a 32-bit sum of squares holds): mean exactly 255,
    // deviation exactly 0.
    ccPelBuffer<uint8_t> image(4000, 3000);
    image.Fill(255);
    const ccRegionPixelStatistics stats(image, ccRLEBuffer(4000, 3000, kInside), 0, 0);
    EXPECT_EQ(stats.Count(), 12'000'000u);
    EXPECT_EQ(stats.Mean(), 255.0);
    EXPECT_EQ(stats.StandardDeviation(), 0.0);
    EXPECT_EQ(stats.Histogram()[255], 12'000'000u);
}

}  // namespace
