// The quick ways of the scan converters against their slow, exact ones: polygon crossings
// stepped in fixed point from row to row against ccScanEdge's crossing taken afresh on
// every row (long sides over many restarts of the steps, sides far beyond the stepped
// range, vertices on the centres' lattice, clipped rows, winding with sides that do not
// alternate); a circle's confirmed square-root rows against the general conic row; and a
// row of spans handed to the run-length builder at once against the same spans one by one.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "shapes/ShapeTestSupport.h"
#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"
#include "xnl/std/shapes/ccConicScan.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccPolygonScan.h"
#include "xnl/std/shapes/ccScanEdge.h"

namespace tessaly::test {
namespace {

// Row -> the row's inside intervals [begin, end), joined where they touch.
using Rows = std::vector<std::pair<int32_t, std::vector<std::pair<int32_t, int32_t>>>>;

void AddInterval(Rows& rows, int32_t row, int32_t begin, int32_t end) {
    if (begin >= end) return;
    if (rows.empty() || rows.back().first != row) rows.push_back({row, {}});
    auto& intervals = rows.back().second;
    if (!intervals.empty() && intervals.back().second == begin) intervals.back().second = end;
    else intervals.push_back({begin, end});
}

Rows Recorded(const SpanRecorder& recorder) {
    Rows rows;
    for (const SpanRecorder::Span& span : recorder.Spans()) AddInterval(rows, span.y, span.x, span.x + span.width);
    return rows;
}

// Every row on its own: each side's crossing from ccScanEdge, sorted, then the fill rule.
Rows ReferencePolygon(const std::vector<cc2Vect>& vertices, bool winding, const ccPixelBox& box) {
    struct Crossing {
        int32_t column, direction;
    };
    struct Side {
        ccScanEdge edge;
        int32_t first, end, direction;
    };
    std::vector<Side> sides;
    for (size_t i = 0; i < vertices.size(); ++i) {
        const cc2Vect& a = vertices[i];
        const cc2Vect& b = vertices[(i + 1) % vertices.size()];
        if (a.Y() == b.Y()) continue;
        const bool down = a.Y() < b.Y();
        const cc2Vect& top = down ? a : b;
        const cc2Vect& bottom = down ? b : a;
        sides.push_back({ccScanEdge(top, bottom), ccInsideRule::FirstRow(top.Y()), ccInsideRule::EndRow(bottom.Y()),
                         down ? 1 : -1});
    }
    Rows rows;
    for (int32_t row = box.y0; row < box.y1; ++row) {
        std::vector<Crossing> crossings;
        for (const Side& side : sides)
            if (side.first <= row && row < side.end)
                crossings.push_back({side.edge.FirstCentreAtOrRight(row), side.direction});
        std::sort(crossings.begin(), crossings.end(),
                  [](const Crossing& l, const Crossing& r) { return l.column < r.column; });
        int32_t sum = 0, begin = 0;
        for (const Crossing& crossing : crossings) {
            const int32_t before = sum;
            sum += crossing.direction;
            const bool wasInside = winding ? before != 0 : (before & 1) != 0;
            const bool isInside = winding ? sum != 0 : (sum & 1) != 0;
            if (!wasInside && isInside) begin = crossing.column;
            if (wasInside && !isInside)
                AddInterval(rows, row, std::max(begin, box.x0), std::min(crossing.column, box.x1));
        }
    }
    return rows;
}

void ExpectPolygonMatches(const std::vector<cc2Vect>& vertices, bool winding, const ccPixelBox& box,
                          const std::string& what) {
    SpanRecorder recorder;
    ccPolygonScan::Scan(vertices.data(), vertices.size(), winding, recorder, box);
    const Rows scanned = Recorded(recorder);
    const Rows expected = ReferencePolygon(vertices, winding, box);
    ASSERT_EQ(scanned.size(), expected.size()) << what;
    for (size_t k = 0; k < scanned.size(); ++k) {
        ASSERT_EQ(scanned[k].first, expected[k].first) << what;
        ASSERT_EQ(scanned[k].second, expected[k].second) << what << " row " << scanned[k].first;
    }
}

TEST(SteppedScan, PolygonCrossingsAgreeWithTheExactCrossingOfEveryRow) {
    // Long sides: thousands of rows, so the steps start afresh several times on the way.
    std::vector<cc2Vect> star;
    for (int k = 0; k < 40; ++k) {
        const double radius = k % 2 ? 1500.3 : 3000.7, angle = 2 * std::numbers::pi * k / 40;
        star.push_back(cc2Vect{3001.1, 2999.9} + cc2Vect{std::cos(angle), std::sin(angle)} * radius);
    }
    ExpectPolygonMatches(star, false, {0, 0, 6100, 6100}, "long star");
    ExpectPolygonMatches(star, true, {0, 0, 6100, 6100}, "long star, winding");
    // Clipped on every side: crossings outside the box pile up on its edges.
    ExpectPolygonMatches(star, false, {1000, -5, 4000, 4000}, "clipped star");

    // Vertices on the centres' lattice: many crossings fall exactly on centres, where the
    // steps must give way to the exact test, over 4000 rows.
    const std::vector<cc2Vect> lattice = {{0.5, 0.5}, {3000.5, 4000.5}, {1500.5, 4000.5}, {-1499.5, 2000.5}};
    ExpectPolygonMatches(lattice, false, {-2000, 0, 3100, 4100}, "lattice quadrilateral");
    const std::vector<cc2Vect> diagonal = {{0, 0}, {4096, 4096}, {0, 4096}};
    ExpectPolygonMatches(diagonal, false, {-1, -1, 4100, 4100}, "diagonal through corners");

    // Far beyond the stepped range on one side: those sides take the exact crossing on
    // every row; the others still step.
    const std::vector<cc2Vect> far = {{-3e12, 10.25}, {200.5, 900.75}, {150.25, 1800.5}, {4e15, 2500.5}};
    ExpectPolygonMatches(far, false, {-100, 0, 400, 2600}, "sides beyond the range");
    ExpectPolygonMatches(far, true, {-100, 0, 400, 2600}, "sides beyond the range, winding");

    // Two loops the same way round (winding 2 inside both, and sides that do not alternate)
    // and a pentagram (sides that cross, so that their order changes).
    std::vector<cc2Vect> twice;
    for (int turn = 0; turn < 2; ++turn)
        for (int k = 0; k < 7; ++k) {
            const double angle = 2 * std::numbers::pi * k / 7, radius = turn ? 700.4 : 1300.2;
            twice.push_back(cc2Vect{1400.3, 1400.6} + cc2Vect{std::cos(angle), std::sin(angle)} * radius);
        }
    ExpectPolygonMatches(twice, true, {0, 0, 2800, 2800}, "two loops, winding");
    ExpectPolygonMatches(twice, false, {0, 0, 2800, 2800}, "two loops, even-odd");
    std::vector<cc2Vect> pentagram;
    for (int k = 0; k < 5; ++k) {
        const double angle = 2 * std::numbers::pi * ((2 * k) % 5) / 5;
        pentagram.push_back(cc2Vect{2000.2, 2000.4} + cc2Vect{std::cos(angle), std::sin(angle)} * 1999.3);
    }
    ExpectPolygonMatches(pentagram, false, {0, 0, 4001, 4001}, "pentagram");
    ExpectPolygonMatches(pentagram, true, {0, 0, 4001, 4001}, "pentagram, winding");

    // Random rings, real coordinates, a few hundred rows each.
    std::mt19937 random(11);
    std::uniform_real_distribution<double> coordinate(-300, 300);
    for (int trial = 0; trial < 300; ++trial) {
        std::vector<cc2Vect> ring(3 + trial % 9);
        for (cc2Vect& v : ring) v = {coordinate(random), coordinate(random)};
        ExpectPolygonMatches(ring, trial % 2 == 1, {-320, -320, 320, 320}, "random ring " + std::to_string(trial));
        if (HasFatalFailure()) return;
    }
}

// The general conic row for every row of the box, as the circle's spans must come out.
Rows ReferenceCircle(const ccConicScan& conic, const ccPixelBox& clip) {
    Rows rows;
    const ccPixelBox box = clip.Intersect(conic.Bounds());
    for (int32_t row = box.y0; row < box.y1; ++row) {
        int32_t first, end;
        conic.RowSpan(row, first, end);
        AddInterval(rows, row, std::max(first, box.x0), std::min(end, box.x1));
    }
    return rows;
}

TEST(SteppedScan, CircleRowsAgreeWithTheGeneralConicRow) {
    struct Case {
        cc2Vect centre;
        double radius;
        ccPixelBox clip;
    };
    std::vector<Case> cases = {
        {{2048.25, 2048.5}, 2048, ccPixelBox::Everything()},  // the benchmark's disc
        {{0.5, 0.5}, 1000, ccPixelBox::Everything()},         // lattice points on the circle
        {{10.5, -20.5}, 5, ccPixelBox::Everything()},
        {{0, 0}, 2500, {-100, -2600, 2600, 300}},              // clipped
        {{2e9, -3e9}, 300.25, ccPixelBox::Everything()},       // beyond the quick range
        {{0.3, 0.7}, 0.2, ccPixelBox::Everything()},
    };
    std::mt19937 random(12);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int k = 0; k < 400; ++k) {
        // Centres on half pixels and radii whose squares are whole numbers put many centres
        // exactly on the curve; the others are real.
        const bool lattice = k % 2 == 0;
        const cc2Vect centre = lattice ? cc2Vect{std::floor(unit(random) * 200) + 0.5, std::floor(unit(random) * 200) - 0.5}
                                       : cc2Vect{unit(random) * 1e4 - 5e3, unit(random) * 1e4 - 5e3};
        const double radius = lattice ? std::sqrt(std::floor(unit(random) * 40000) + 1) : unit(random) * 400 + 0.01;
        cases.push_back({centre, radius, ccPixelBox::Everything()});
    }
    for (const Case& c : cases) {
        const ccConicScan conic = ccConicScan::Circle(c.centre, c.radius);
        SpanRecorder recorder;
        conic.ScanConvert(recorder, c.clip);
        const Rows scanned = Recorded(recorder);
        const Rows expected = ReferenceCircle(conic, c.clip);
        ASSERT_EQ(scanned, expected) << "centre " << c.centre.X() << ", " << c.centre.Y() << " radius " << c.radius;
        // And the ends of each row against the exact inside test.
        for (const auto& [row, intervals] : scanned) {
            const double y = ccInsideRule::Centre(row);
            for (const auto& [begin, end] : intervals) {
                if (begin > c.clip.x0) {
                    EXPECT_FALSE(conic.Within(ccInsideRule::Centre(begin - 1), y));
                }
                EXPECT_TRUE(conic.Within(ccInsideRule::Centre(begin), y));
                EXPECT_TRUE(conic.Within(ccInsideRule::Centre(end - 1), y));
                if (end < c.clip.x1) {
                    EXPECT_FALSE(conic.Within(ccInsideRule::Centre(end), y));
                }
            }
        }
    }
}

// A buffer's runs, row by row, to compare two builds.
std::vector<std::vector<std::pair<int, int32_t>>> RunsOf(const ccRLEBuffer& buffer) {
    std::vector<std::vector<std::pair<int, int32_t>>> rows;
    for (int32_t y = 0; y < buffer.Height(); ++y) {
        rows.emplace_back();
        for (const ccRLERun& run : buffer.Row(y)) rows.back().push_back({run.value, run.length});
    }
    return rows;
}

TEST(SteppedScan, RowsOfSpansBuildWhatTheirSpansOneByOneBuild) {
    std::mt19937 random(13);
    for (int trial = 0; trial < 200; ++trial) {
        const int32_t x0 = static_cast<int32_t>(random() % 21) - 10, y0 = static_cast<int32_t>(random() % 7) - 3;
        const int32_t width = static_cast<int32_t>(random() % 40), height = static_cast<int32_t>(random() % 12);
        ccRLEBufferBuilder whole(x0, y0, width, height, 9, 2), single(x0, y0, width, height, 9, 2);
        for (int32_t y = y0 - 2; y < y0 + height + 2; ++y) {
            if (random() % 3 == 0) continue;  // rows with no spans
            // Spans from left of the box to right of it, some touching the box's sides.
            std::vector<int32_t> bounds;
            int32_t x = x0 - static_cast<int32_t>(random() % 8);
            while (x < x0 + width + 6) {
                const int32_t begin = x + 1 + static_cast<int32_t>(random() % 5);
                const int32_t end = begin + 1 + static_cast<int32_t>(random() % 6);
                bounds.push_back(begin);
                bounds.push_back(end);
                x = end;
            }
            // Now and then the row starts with a span of its own through blitH.
            size_t from = 0;
            if (random() % 4 == 0 && bounds.size() >= 2) {
                whole.blitH(bounds[0], y, bounds[1] - bounds[0]);
                from = 2;
            }
            whole.blitRow(y, bounds.data() + from, bounds.size() - from);
            for (size_t k = 0; k + 1 < bounds.size(); k += 2) single.blitH(bounds[k], y, bounds[k + 1] - bounds[k]);
        }
        ASSERT_EQ(RunsOf(whole.Finish()), RunsOf(single.Finish())) << "trial " << trial;
    }

    // A span left of the last one's end is refused; the spans before it stay, as they do
    // when given one by one, and nothing after it is taken.
    ccRLEBufferBuilder whole(0, 0, 30, 2), single(0, 0, 30, 2);
    const int32_t bad[] = {2, 5, 8, 12, 10, 14, 20, 22};
    EXPECT_THROW(whole.blitRow(1, bad, 8), ccRLEBuffer::Degenerate);
    single.blitH(2, 1, 3);
    single.blitH(8, 1, 4);
    EXPECT_THROW(single.blitH(10, 1, 4), ccRLEBuffer::Degenerate);
    EXPECT_EQ(RunsOf(whole.Finish()), RunsOf(single.Finish()));
    // A row above the open one is refused before anything is written.
    ccRLEBufferBuilder late(0, 0, 10, 4);
    late.blitH(1, 2, 3);
    const int32_t early[] = {0, 4};
    EXPECT_THROW(late.blitRow(1, early, 2), ccRLEBuffer::Degenerate);
    const ccRLEBuffer kept = late.Finish();
    EXPECT_EQ(RunsOf(kept)[2], (std::vector<std::pair<int, int32_t>>{{0, 1}, {255, 3}, {0, 6}}));
    EXPECT_EQ(RunsOf(kept)[1], (std::vector<std::pair<int, int32_t>>{{0, 10}}));
    // After Finish a row is refused like a span.
    EXPECT_THROW(late.blitRow(3, early, 2), ccRLEBuffer::Degenerate);
}

// The sink's own blitRow, for sinks that take spans one by one: one blitH a span, in order.
TEST(SteppedScan, ADefaultRowIsOneSpanAfterAnother) {
    SpanRecorder recorder;
    const int32_t bounds[] = {-7, -3, 0, 1, 5, 9};
    recorder.blitRow(4, bounds, 6);
    ASSERT_EQ(recorder.Spans().size(), 3u);
    EXPECT_EQ(recorder.Spans()[0].x, -7);
    EXPECT_EQ(recorder.Spans()[0].width, 4);
    EXPECT_EQ(recorder.Spans()[1].x, 0);
    EXPECT_EQ(recorder.Spans()[1].width, 1);
    EXPECT_EQ(recorder.Spans()[2].x, 5);
    EXPECT_EQ(recorder.Spans()[2].y, 4);
    EXPECT_EQ(recorder.Spans()[2].width, 4);
    recorder.blitRow(5, bounds, 0);
    EXPECT_EQ(recorder.Spans().size(), 3u);
}

}  // namespace
}  // namespace tessaly::test
