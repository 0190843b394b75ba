#include "RegionPixels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace tessaly::bench {

namespace {

using Exact = __float128;

// Where the centre (px, py) stands against the quadrilateral whose signed area has the
// sign `orientation`: inside when it lies strictly on the inner side of every edge, or
// on an edge's line with the point (px + e, py + e^2), e small, on the inner side.
bool CentreInside(const Quad& quad, int orientation, double px, double py) {
    for (size_t k = 0; k < 4; ++k) {
        const cc2Vect& a = quad[k];
        const cc2Vect& b = quad[(k + 1) % 4];
        const Exact dx = Exact(b.X()) - Exact(a.X());
        const Exact dy = Exact(b.Y()) - Exact(a.Y());
        Exact side = dx * (Exact(py) - Exact(a.Y())) - dy * (Exact(px) - Exact(a.X()));
        if (orientation < 0) side = -side;
        if (side > 0) continue;
        if (side < 0) return false;
        // On the line: moving by (e, e^2) changes the side by -dy e + dx e^2.
        const Exact step = dy != 0 ? -dy : dx;
        if ((orientation < 0 ? -step : step) <= 0) return false;
    }
    return true;
}

double DistanceToSegment(const cc2Vect& p, const cc2Vect& a, const cc2Vect& b) {
    const cc2Vect ab = b - a;
    const double t = std::clamp((p - a).Dot(ab) / ab.LengthSquared(), 0.0, 1.0);
    return p.Distance(a + ab * t);
}

double DistanceToOutline(const Quad& quad, int32_t x, int32_t y) {
    const cc2Vect centre(x + 0.5, y + 0.5);
    double nearest = std::numeric_limits<double>::infinity();
    for (size_t k = 0; k < 4; ++k) nearest = std::min(nearest, DistanceToSegment(centre, quad[k], quad[(k + 1) % 4]));
    return nearest;
}

double DistanceToCorner(const Quad& quad, int32_t x, int32_t y) {
    const cc2Vect centre(x + 0.5, y + 0.5);
    double nearest = std::numeric_limits<double>::infinity();
    for (const cc2Vect& corner : quad) nearest = std::min(nearest, centre.Distance(corner));
    return nearest;
}

}  // namespace

bool PixelRows::Add(int32_t y, int32_t begin, int32_t end) {
    const int64_t row = int64_t{y} - y0;
    if (row < 0 || row >= static_cast<int64_t>(rows.size())) return false;
    if (begin < end) rows[static_cast<size_t>(row)].emplace_back(begin, end);
    return true;
}

int64_t PixelRows::Count() const {
    int64_t count = 0;
    for (const auto& row : rows)
        for (const auto& [begin, end] : row) count += end - begin;
    return count;
}

PixelRows ReferencePixels(const Quad& quad, const ccPixelBox& box) {
    double area = 0;
    double top = quad[0].Y();
    double bottom = quad[0].Y();
    for (size_t k = 0; k < 4; ++k) {
        area += quad[k].Cross(quad[(k + 1) % 4]);
        top = std::min(top, quad[k].Y());
        bottom = std::max(bottom, quad[k].Y());
    }
    const int orientation = area > 0 ? 1 : -1;

    PixelRows pixels(box.y0, box.y1 - box.y0);
    for (int32_t y = box.y0; y < box.y1; ++y) {
        const double cy = y + 0.5;
        if (cy < top - 1 || cy > bottom + 1) continue;
        // Where the row's centre line crosses the outline, in doubles: only a first guess
        // of where to look; the exact test decides.
        double left = std::numeric_limits<double>::infinity();
        double right = -left;
        for (size_t k = 0; k < 4; ++k) {
            const cc2Vect& a = quad[k];
            const cc2Vect& b = quad[(k + 1) % 4];
            const double y0 = std::min(a.Y(), b.Y());
            const double y1 = std::max(a.Y(), b.Y());
            if (cy < y0 || cy > y1) continue;
            const double x = a.Y() == b.Y() ? a.X() : a.X() + (cy - a.Y()) * (b.X() - a.X()) / (b.Y() - a.Y());
            left = std::min({left, x, a.Y() == b.Y() ? b.X() : x});
            right = std::max({right, x, a.Y() == b.Y() ? b.X() : x});
        }
        if (left > right) {
            // Within a pixel of a top or bottom corner: look around that corner.
            const cc2Vect& corner =
                *std::min_element(quad.begin(), quad.end(), [cy](const cc2Vect& p, const cc2Vect& q) {
                    return std::fabs(p.Y() - cy) < std::fabs(q.Y() - cy);
                });
            left = right = corner.X();
        }
        const auto from = static_cast<int32_t>(std::floor(left)) - 3;
        const auto to = static_cast<int32_t>(std::ceil(right)) + 3;
        int32_t begin = from;
        while (begin <= to && !CentreInside(quad, orientation, begin + 0.5, cy)) ++begin;
        if (begin > to) continue;
        int32_t last = to;
        while (!CentreInside(quad, orientation, last + 0.5, cy)) --last;
        // A row of a convex region is one span; a guess that missed its ends by more than
        // the margin would show as inside pixels at the margin.
        if (begin == from || last == to) {
            std::fprintf(stderr, "bench_region: the reference's first guess missed row %d\n", y);
            std::abort();
        }
        pixels.Add(y, begin, last + 1);
    }
    return pixels;
}

PixelRows PixelsOfRuns(const ccRLEBuffer& mask, int32_t x0, int32_t y0, uint8_t inside) {
    PixelRows pixels(y0, mask.Height());
    for (int32_t y = 0; y < mask.Height(); ++y) {
        int32_t x = x0;
        for (const ccRLERun& run : mask.Row(y)) {
            if (run.value == inside) pixels.Add(y0 + y, x, x + run.length);
            x += run.length;
        }
    }
    return pixels;
}

PixelRows PixelsOfRuns(const ccRLERun* runs, int64_t numRuns, int32_t x0, int32_t y0, int32_t width, int32_t height,
                       uint8_t inside) {
    PixelRows pixels(y0, height);
    int64_t next = 0;
    for (int32_t y = 0; y < height; ++y) {
        int64_t covered = 0;
        while (covered < width && next < numRuns) {
            const ccRLERun& run = runs[next++];
            if (run.value == inside) pixels.Add(y0 + y, static_cast<int32_t>(x0 + covered), static_cast<int32_t>(x0 + covered + run.length));
            covered += run.length;
        }
    }
    return pixels;
}

PixelRows PixelsOfMask(const cv::Mat& mask, int32_t x0, int32_t y0) {
    PixelRows pixels(y0, mask.rows);
    for (int32_t y = 0; y < mask.rows; ++y) {
        const uint8_t* const row = mask.ptr<uint8_t>(y);
        int32_t x = 0;
        while (x < mask.cols) {
            while (x < mask.cols && row[x] == 0) ++x;
            const int32_t begin = x;
            while (x < mask.cols && row[x] != 0) ++x;
            if (begin < x) pixels.Add(y0 + y, x0 + begin, x0 + x);
        }
    }
    return pixels;
}

void Paint(const PixelRows& pixels, cv::Mat& mask, int32_t x0, int32_t y0) {
    for (size_t r = 0; r < pixels.rows.size(); ++r) {
        const int64_t y = pixels.y0 + static_cast<int64_t>(r) - y0;
        if (y < 0 || y >= mask.rows) continue;
        uint8_t* const row = mask.ptr<uint8_t>(static_cast<int>(y));
        for (const auto& [begin, end] : pixels.rows[r])
            for (int64_t x = std::max<int64_t>(begin - x0, 0); x < std::min<int64_t>(end - x0, mask.cols); ++x)
                row[x] = 255;
    }
}

PixelDifference Compare(const PixelRows& reference, const PixelRows& other, const Quad& quad) {
    PixelDifference difference;
    std::vector<uint8_t> marks;
    const std::vector<std::pair<int32_t, int32_t>> none;
    const auto rowOf = [](const PixelRows& pixels, int64_t y) -> const std::vector<std::pair<int32_t, int32_t>>* {
        const int64_t row = y - pixels.y0;
        if (row < 0 || row >= static_cast<int64_t>(pixels.rows.size())) return nullptr;
        return &pixels.rows[static_cast<size_t>(row)];
    };
    const int64_t first = std::min<int64_t>(reference.y0, other.y0);
    const int64_t end = std::max<int64_t>(reference.y0 + static_cast<int64_t>(reference.rows.size()),
                                          other.y0 + static_cast<int64_t>(other.rows.size()));
    for (int64_t y = first; y < end; ++y) {
        const auto* ours = rowOf(reference, y);
        const auto* theirs = rowOf(other, y);
        if (!ours && theirs && !theirs->empty()) difference.rowsOutside = true;
        if (!ours) ours = &none;
        if (!theirs) theirs = &none;
        if (ours->empty() && theirs->empty()) continue;
        int32_t left = std::numeric_limits<int32_t>::max();
        int32_t right = std::numeric_limits<int32_t>::min();
        for (const auto* spans : {ours, theirs})
            for (const auto& [b, e] : *spans) {
                left = std::min(left, b);
                right = std::max(right, e);
            }
        marks.assign(static_cast<size_t>(right - left), 0);
        for (const auto& [b, e] : *ours)
            for (int32_t x = b; x < e; ++x) marks[static_cast<size_t>(x - left)] |= 1;
        for (const auto& [b, e] : *theirs)
            for (int32_t x = b; x < e; ++x) marks[static_cast<size_t>(x - left)] |= 2;
        for (size_t i = 0; i < marks.size(); ++i) {
            if (marks[i] == 0 || marks[i] == 3) continue;
            ++(marks[i] == 1 ? difference.missing : difference.extra);
            const auto x = left + static_cast<int32_t>(i);
            const double distance = DistanceToOutline(quad, x, static_cast<int32_t>(y));
            difference.farthest = std::max(difference.farthest, distance);
            if (DistanceToCorner(quad, x, static_cast<int32_t>(y)) <= 1.5)
                ++difference.atCorners;
            else
                difference.farthestAlongEdges = std::max(difference.farthestAlongEdges, distance);
        }
    }
    return difference;
}

std::string PixelDifference::Describe(int64_t perimeterPixels) const {
    if (Exact()) return "the same pixels";
    char text[320];
    std::snprintf(text, sizeof text,
                  "%lld pixels differ (%.2f%% of the %lld along the outline): %lld left out, %lld put in; %lld at the "
                  "corners, the others within %.4f px of an edge%s",
                  static_cast<long long>(missing + extra), 100.0 * static_cast<double>(missing + extra) / perimeterPixels,
                  static_cast<long long>(perimeterPixels), static_cast<long long>(missing),
                  static_cast<long long>(extra), static_cast<long long>(atCorners), farthestAlongEdges,
                  rowsOutside ? "; some in rows outside the box" : "");
    return text;
}

}  // namespace tessaly::bench
