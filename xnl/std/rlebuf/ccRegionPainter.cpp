#include "xnl/std/rlebuf/ccRegionPainter.h"

#include <algorithm>

#include "xnl/std/pelbuf/ccPelError.h"

namespace {

using Intervals = ccRegionPainter::Intervals;

// The runs of the inside value of mask row y, neighbouring runs joined.
Intervals InsideOf(const ccRLEBuffer& mask, int32_t y, uint8_t inside) {
    Intervals intervals;
    int32_t x = 0;
    for (const ccRLERun& run : mask.Row(y)) {
        if (run.value == inside) {
            if (!intervals.empty() && intervals.back().second == x)
                intervals.back().second = x + run.length;
            else
                intervals.emplace_back(x, x + run.length);
        }
        x += run.length;
    }
    return intervals;
}

Intervals Intersect(const Intervals& a, const Intervals& b) {
    Intervals out;
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        const int32_t begin = std::max(a[i].first, b[j].first);
        const int32_t end = std::min(a[i].second, b[j].second);
        if (begin < end) out.emplace_back(begin, end);
        if (a[i].second < b[j].second)
            ++i;
        else
            ++j;
    }
    return out;
}

// a without b.
Intervals Subtract(const Intervals& a, const Intervals& b) {
    Intervals out;
    size_t j = 0;
    for (auto [begin, end] : a) {
        while (j < b.size() && b[j].second <= begin) ++j;
        size_t k = j;
        while (begin < end) {
            if (k == b.size() || b[k].first >= end) {
                out.emplace_back(begin, end);
                break;
            }
            if (b[k].first > begin) out.emplace_back(begin, b[k].first);
            begin = std::max(begin, b[k].second);
            ++k;
        }
    }
    return out;
}

// The inside pixels of a row with all four neighbours inside: the row shrunk by one pixel
// at each end of each interval, and present in the rows above and below.
Intervals Interior(const Intervals& above, const Intervals& row, const Intervals& below) {
    Intervals shrunk;
    for (auto [begin, end] : row)
        if (end - begin > 2) shrunk.emplace_back(begin + 1, end - 1);
    return Intersect(Intersect(shrunk, above), below);
}

// Every interval widened by `by` on each side, clipped to [0, width), overlaps joined.
Intervals Widen(const Intervals& intervals, int32_t by, int32_t width) {
    Intervals out;
    for (auto [begin, end] : intervals) {
        const int32_t b = static_cast<int32_t>(std::max<int64_t>(0, int64_t{begin} - by));
        const int32_t e = static_cast<int32_t>(std::min<int64_t>(width, int64_t{end} + by));
        if (!out.empty() && out.back().second >= b)
            out.back().second = std::max(out.back().second, e);
        else
            out.emplace_back(b, e);
    }
    return out;
}

// The union of interval lists, ordered and disjoint.
Intervals Union(std::vector<std::pair<int32_t, int32_t>>& all) {
    std::sort(all.begin(), all.end());
    Intervals out;
    for (auto [begin, end] : all) {
        if (!out.empty() && out.back().second >= begin)
            out.back().second = std::max(out.back().second, end);
        else
            out.emplace_back(begin, end);
    }
    return out;
}

// The outline of the mask rows [first, last], `width` wide: the inside and edge of only
// the rows the line of those rows can reach.
class OutlineRows {
public:
    OutlineRows(const ccRLEBuffer& mask, int32_t first, int32_t last, int32_t width, uint8_t inside)
        : reach_(std::min(width, mask.Height()) - 1), width_(mask.Width()) {
        edgeFirst_ = std::max(0, first - reach_);
        const int32_t edgeLast = std::min(mask.Height() - 1, last + reach_);
        insideFirst_ = std::max(0, edgeFirst_ - 1);
        const int32_t insideLast = std::min(mask.Height() - 1, edgeLast + 1);
        for (int32_t y = insideFirst_; y <= insideLast; ++y) inside_.push_back(InsideOf(mask, y, inside));
        const Intervals none;
        for (int32_t y = edgeFirst_; y <= edgeLast; ++y) {
            const Intervals& row = Inside(y);
            const Intervals& above = y > insideFirst_ ? Inside(y - 1) : none;
            const Intervals& below = y < insideLast ? Inside(y + 1) : none;
            widenedEdges_.push_back(Widen(Subtract(row, Interior(above, row, below)), reach_, width_));
        }
    }

    // The outline of row y (first <= y <= last).
    Intervals Row(int32_t y) const {
        const int32_t from = std::max(edgeFirst_, y - reach_);
        const int32_t to = std::min(edgeFirst_ + static_cast<int32_t>(widenedEdges_.size()) - 1, y + reach_);
        std::vector<std::pair<int32_t, int32_t>> all;
        for (int32_t k = from; k <= to; ++k) {
            const Intervals& edges = widenedEdges_[static_cast<size_t>(k - edgeFirst_)];
            all.insert(all.end(), edges.begin(), edges.end());
        }
        return Intersect(Union(all), Inside(y));
    }

private:
    const Intervals& Inside(int32_t y) const { return inside_[static_cast<size_t>(y - insideFirst_)]; }

    int32_t reach_;
    int32_t width_;
    int32_t edgeFirst_ = 0;
    int32_t insideFirst_ = 0;
    std::vector<Intervals> inside_;
    std::vector<Intervals> widenedEdges_;
};

int32_t ClampedWidth(int32_t width) { return std::clamp(width, 1, ccRegionPainter::kMaxLineWidth); }

void RequireMask(const ccRLEBuffer& mask) {
    if (!mask.IsInitialized()) throw ccRLEBuffer::Degenerate("an uninitialised mask has no outline");
}

// The mask rows that land on an image of `height` rows, or an empty range (first > last)
// when none do, or when the mask's columns miss the image's.
std::pair<int32_t, int32_t> VisibleRows(const ccRLEBuffer& mask, int32_t maskX, int32_t maskY, int32_t imageWidth,
                                        int32_t imageHeight) {
    if (int64_t{maskX} >= imageWidth || int64_t{maskX} + mask.Width() <= 0) return {0, -1};
    const int64_t first = std::max<int64_t>(0, -int64_t{maskY});
    const int64_t last = std::min<int64_t>(mask.Height() - 1, int64_t{imageHeight} - 1 - maskY);
    if (first > last) return {0, -1};
    return {static_cast<int32_t>(first), static_cast<int32_t>(last)};
}

}  // namespace

ccRegionPainter::ccRegionPainter(cc3PlanePelBuffer image, const cc3PlanePel& colour, uint8_t insideValue)
    : image_(std::move(image)), colour_(colour), inside_(insideValue) {
    if (!image_.IsBound()) throw ccPel::UnboundWindow("a region is painted onto an image with pixels");
}

ccRegionPainter::Intervals ccRegionPainter::OutlineRow(const ccRLEBuffer& mask, int32_t y, int32_t width,
                                                       uint8_t insideValue) {
    RequireMask(mask);
    if (y < 0 || y >= mask.Height()) return {};
    return OutlineRows(mask, y, y, ClampedWidth(width), insideValue).Row(y);
}

void ccRegionPainter::Outline(const ccRLEBuffer& mask, int32_t maskX, int32_t maskY, int32_t width) const {
    RequireMask(mask);
    const auto [first, last] = VisibleRows(mask, maskX, maskY, image_.Width(), image_.Height());
    if (first > last) return;
    const OutlineRows rows(mask, first, last, ClampedWidth(width), inside_);
    for (int32_t y = first; y <= last; ++y) PaintRow(maskY + y, maskX, rows.Row(y));
}

void ccRegionPainter::Tint(const ccRLEBuffer& mask, int32_t maskX, int32_t maskY) const {
    RequireMask(mask);
    const auto [first, last] = VisibleRows(mask, maskX, maskY, image_.Width(), image_.Height());
    const uint8_t colour[3] = {colour_.plane0, colour_.plane1, colour_.plane2};
    for (int32_t y = first; y <= last; ++y) {
        const Intervals inside = InsideOf(mask, y, inside_);
        for (int plane = 0; plane < 3; ++plane) {
            uint8_t* row = image_.Plane(plane).RowPointer(maskY + y);
            const int add = kTintPercent * colour[plane] + 50;
            for (auto [begin, end] : inside) {
                const int64_t from = std::max<int64_t>(0, int64_t{maskX} + begin);
                const int64_t to = std::min<int64_t>(image_.Width(), int64_t{maskX} + end);
                for (int64_t x = from; x < to; ++x)
                    row[x] = static_cast<uint8_t>(((100 - kTintPercent) * row[x] + add) / 100);
            }
        }
    }
}

void ccRegionPainter::PaintRow(int32_t imageY, int32_t maskX, const Intervals& intervals) const {
    const uint8_t colour[3] = {colour_.plane0, colour_.plane1, colour_.plane2};
    for (int plane = 0; plane < 3; ++plane) {
        uint8_t* row = image_.Plane(plane).RowPointer(imageY);
        for (auto [begin, end] : intervals) {
            const int64_t from = std::max<int64_t>(0, int64_t{maskX} + begin);
            const int64_t to = std::min<int64_t>(image_.Width(), int64_t{maskX} + end);
            if (from < to) std::fill(row + from, row + to, colour[plane]);
        }
    }
}
