#include "xnl/std/rlebuf/ccRegionPixelStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

namespace {

// Counts in 32-bit tables, which a long run of pixels could overflow: the tables are
// added into the 64-bit histogram before they could.
constexpr uint64_t kFlushBefore = std::numeric_limits<uint32_t>::max();

// 8-bit pixels: four tables taken in turn, so that equal neighbouring pixels (the usual
// case) do not wait for each other's increments; eight pixels read at once.
class Counter8 {
public:
    void Add(const uint8_t* pels, size_t count) {
        uint32_t* const t0 = tables_[0];
        uint32_t* const t1 = tables_[1];
        uint32_t* const t2 = tables_[2];
        uint32_t* const t3 = tables_[3];
        size_t i = 0;
        for (; i + 8 <= count; i += 8) {
            uint64_t word;
            std::memcpy(&word, pels + i, sizeof word);
            ++t0[word & 0xFF];
            ++t1[(word >> 8) & 0xFF];
            ++t2[(word >> 16) & 0xFF];
            ++t3[(word >> 24) & 0xFF];
            ++t0[(word >> 32) & 0xFF];
            ++t1[(word >> 40) & 0xFF];
            ++t2[(word >> 48) & 0xFF];
            ++t3[word >> 56];
        }
        for (; i < count; ++i) ++t0[pels[i]];
    }
    void FlushInto(std::vector<uint64_t>& histogram) {
        for (size_t v = 0; v < 256; ++v)
            histogram[v] += uint64_t{tables_[0][v]} + tables_[1][v] + tables_[2][v] + tables_[3][v];
        std::memset(tables_, 0, sizeof tables_);
    }

private:
    alignas(64) uint32_t tables_[4][256] = {};
};

class Counter16 {
public:
    Counter16() : table_(new uint32_t[65536]()) {}
    void Add(const uint16_t* pels, size_t count) {
        uint32_t* const table = table_.get();
        for (size_t i = 0; i < count; ++i) ++table[pels[i]];
    }
    void FlushInto(std::vector<uint64_t>& histogram) {
        for (size_t v = 0; v < 65536; ++v) histogram[v] += table_[v];
        std::fill_n(table_.get(), 65536, 0u);
    }

private:
    std::unique_ptr<uint32_t[]> table_;
};

template <class T, class Counter>
void Accumulate(const ccPelBuffer_const<T>& image, const ccRLEBuffer& mask, int32_t maskX, int32_t maskY,
                uint8_t inside, std::vector<uint64_t>& histogram, uint64_t& outsideImage) {
    if (!mask.IsInitialized()) throw ccRLEBuffer::Degenerate("statistics under an uninitialised mask");
    if (!image.IsBound()) throw ccPel::UnboundWindow("statistics of an unbound image");
    const int64_t imageWidth = image.Width();
    const int64_t imageHeight = image.Height();
    const int32_t firstRow = static_cast<int32_t>(std::clamp<int64_t>(-int64_t{maskY}, 0, mask.Height()));
    const int32_t endRow = static_cast<int32_t>(std::clamp<int64_t>(imageHeight - maskY, 0, mask.Height()));

    uint64_t outside = 0;
    const auto countRows = [&](int32_t from, int32_t to) {
        for (int32_t y = from; y < to; ++y)
            for (const ccRLERun& run : mask.Row(y))
                if (run.value == inside) outside += static_cast<uint64_t>(run.length);
    };
    countRows(0, firstRow);
    countRows(std::max(endRow, firstRow), mask.Height());

    if (firstRow < endRow && imageWidth > 0) {
        Counter counter;
        uint64_t pending = 0;
        const T* const row0 = image.RowPointer(0);
        const ptrdiff_t pitch = image.Pitch();
        for (int32_t y = firstRow; y < endRow; ++y) {
            const T* const row = row0 + (int64_t{y} + maskY) * pitch;
            int64_t x = maskX;
            for (const ccRLERun& run : mask.Row(y)) {
                const int64_t start = x;
                x += run.length;
                if (run.value != inside) continue;
                const int64_t begin = std::max<int64_t>(start, 0);
                const int64_t end = std::min<int64_t>(x, imageWidth);
                if (begin >= end) {
                    outside += static_cast<uint64_t>(run.length);
                    continue;
                }
                const auto count = static_cast<uint64_t>(end - begin);
                outside += static_cast<uint64_t>(run.length) - count;
                if (pending + count > kFlushBefore) {
                    counter.FlushInto(histogram);
                    pending = 0;
                }
                counter.Add(row + begin, count);
                pending += count;
            }
        }
        counter.FlushInto(histogram);
    }
    outsideImage = outside;
}

}  // namespace

ccRegionPixelStatistics::ccRegionPixelStatistics(const ccPelBuffer_const<uint8_t>& image, const ccRLEBuffer& mask,
                                                 int32_t maskX, int32_t maskY, uint8_t insideValue)
    : histogram_(256) {
    Accumulate<uint8_t, Counter8>(image, mask, maskX, maskY, insideValue, histogram_, outsideImage_);
    Derive();
}

ccRegionPixelStatistics::ccRegionPixelStatistics(const ccPelBuffer_const<uint16_t>& image, const ccRLEBuffer& mask,
                                                 int32_t maskX, int32_t maskY, uint8_t insideValue)
    : histogram_(65536) {
    Accumulate<uint16_t, Counter16>(image, mask, maskX, maskY, insideValue, histogram_, outsideImage_);
    Derive();
}

void ccRegionPixelStatistics::Derive() {
    count_ = 0;
    sum_ = sumOfSquares_ = 0;
    bool seen = false;
    for (size_t v = 0; v < histogram_.size(); ++v) {
        const uint64_t n = histogram_[v];
        if (n == 0) continue;
        if (!seen) min_ = static_cast<uint32_t>(v);
        seen = true;
        max_ = static_cast<uint32_t>(v);
        count_ += n;
        sum_ += static_cast<unsigned __int128>(n) * v;
        sumOfSquares_ += static_cast<unsigned __int128>(n) * (uint64_t{v} * v);
    }
    median_ = 0;
    if (count_ == 0) return;
    const uint64_t position = (count_ - 1) / 2;
    uint64_t below = 0;
    for (size_t v = 0; v < histogram_.size(); ++v) {
        below += histogram_[v];
        if (below > position) {
            median_ = static_cast<uint32_t>(v);
            break;
        }
    }
}

double ccRegionPixelStatistics::Mean() const noexcept {
    return count_ == 0 ? 0.0 : static_cast<double>(sum_) / static_cast<double>(count_);
}

double ccRegionPixelStatistics::StandardDeviation() const noexcept {
    if (count_ == 0) return 0.0;
    // n * sum(v^2) - sum(v)^2, exact, over n^2: no cancellation in doubles.
    const unsigned __int128 n = count_;
    const unsigned __int128 spread = n * sumOfSquares_ - sum_ * sum_;
    const double n2 = static_cast<double>(count_) * static_cast<double>(count_);
    return std::sqrt(static_cast<double>(spread) / n2);
}

std::vector<uint64_t> ccRegionPixelStatistics::Histogram(int32_t bins) const {
    const auto range = static_cast<int64_t>(histogram_.size());
    if (bins < 1 || bins > range)
        throw ccRLEBuffer::Degenerate(std::to_string(bins) + " bins over a range of " + std::to_string(range) +
                                      " values");
    std::vector<uint64_t> coarse(static_cast<size_t>(bins));
    for (int64_t v = 0; v < range; ++v) coarse[static_cast<size_t>(v * bins / range)] += histogram_[v];
    return coarse;
}
