#include "xnl/std/shapes/ccPolygonScan.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccScanEdge.h"

namespace {

// A crossing is stepped from row to row in fixed point: (crossing + 0.5) in units of 2^-32
// pixel, one integer addition a row. The first centre at or right of the crossing,
// ceil(crossing - 0.5), is then the integer part, unless the fraction lies within the
// error bound of a whole number: then ccScanEdge decides that row exactly.
constexpr int kFractionBits = 32;
constexpr double kUnit = 4294967296.0;  // 2^32
// The steps start afresh from ccScanEdge's crossing this often, which keeps the error they
// add (at most one unit a row) and so the bound small.
constexpr int32_t kRowsPerAnchor = 1024;
// Sides whose crossings lie beyond this many pixels from 0 in the rows scanned, or whose
// bound would be wider than kMaxToleranceUnits, are taken from ccScanEdge on every row.
constexpr double kSteppedRange = 1073741824.0;  // 2^30
constexpr double kMaxToleranceUnits = 1048576.0;  // 2^-12 pixel

struct Side {
    ccScanEdge edge;
    int32_t firstRow;  // already clipped to the box
    int32_t endRow;
    int32_t direction;     // +1 for a side running down (increasing y), -1 up
    bool stepped;          // whether its crossings are stepped in fixed point
    int64_t step;          // slope in units a row, when stepped
    double toleranceUnits;  // the bound of a stepped crossing's error, in units
};

// The sides that cross the present row, in the order of their crossings, as parallel
// arrays in two blocks: the row loop reads and writes the positions, steps and columns only.
struct ActiveSides {
    explicit ActiveSides(size_t capacity) : wide_(2 * capacity), narrow_(4 * capacity + 2) {
        position = wide_.data();
        step = position + capacity;
        column = narrow_.data();
        side = column + capacity;
        direction = side + capacity;
        bounds = direction + capacity;
    }
    int64_t* position;  // crossing + 0.5 of the present row, in units
    int64_t* step;
    int32_t* column;  // the first centre at or right of the side in the present row
    int32_t* side;    // index into the side table
    int32_t* direction;
    int32_t* bounds;  // room for a row's spans, capacity + 2
    size_t count = 0;

    void MoveTo(size_t to, size_t from) noexcept {
        position[to] = position[from];
        step[to] = step[from];
        column[to] = column[from];
        side[to] = side[from];
        direction[to] = direction[from];
    }
    // Insertion sort by column: from one row to the next the order rarely changes.
    void SortByColumn() noexcept {
        for (size_t i = 1; i < count; ++i) {
            if (column[i - 1] <= column[i]) continue;
            const int64_t p = position[i], s = step[i];
            const int32_t c = column[i], sd = side[i], d = direction[i];
            size_t at = i;
            while (at > 0 && column[at - 1] > c) {
                MoveTo(at, at - 1);
                --at;
            }
            position[at] = p;
            step[at] = s;
            column[at] = c;
            side[at] = sd;
            direction[at] = d;
        }
    }

private:
    std::vector<int64_t> wide_;
    std::vector<int32_t> narrow_;
};

// A row's spans as the bounds ccSpanSink::blitRow takes: clipped, the empty ones dropped
// and those that touch joined, so that the sink sees its contract.
class RowSpans {
public:
    RowSpans(int32_t* bounds, int32_t x0, int32_t x1) noexcept : bounds_(bounds), x0_(x0), x1_(x1) {}
    void Add(int32_t begin, int32_t end) noexcept {
        begin = std::max(begin, x0_);
        end = std::min(end, x1_);
        if (begin >= end) return;
        if (count_ > 0 && bounds_[count_ - 1] == begin) {
            bounds_[count_ - 1] = end;
            return;
        }
        bounds_[count_] = begin;
        bounds_[count_ + 1] = end;
        count_ += 2;
    }
    void Emit(ccSpanSink& sink, int32_t row) {
        if (count_ > 0) sink.blitRow(row, bounds_, count_);
        count_ = 0;
    }

private:
    int32_t* bounds_;
    size_t count_ = 0;
    int32_t x0_, x1_;
};

// One row of the stepped sides: each column from its position (clamped to [x0, x1] when
// some side reaches past the box), the position stepped to the next row, and whether any
// fraction lies too near a centre to trust (`unclear`) or any column is not strictly right
// of the one before (`flat`).
// Kept out of line: inside the row loop its values would not all stay in registers.
template <bool kClamp>
[[gnu::noinline]] void StepRow(int64_t* position, const int64_t* step, int32_t* column, size_t n, uint32_t tolerance,
                               uint32_t clearLimit, int32_t x0, int32_t x1, bool& unclear, bool& flat) noexcept {
    // The largest shifted fraction decides `unclear` after the loop; positions hold
    // crossing + 0.5 (one unit of 2^32 above crossing - 0.5), so that the integer part is
    // the column itself.
    const uint32_t shift = tolerance + 1;
    uint32_t largest = 0;
    bool anyFlat = false;
    int32_t previous = std::numeric_limits<int32_t>::min();
    for (size_t k = 0; k < n; ++k) {
        const int64_t p = position[k];
        largest = std::max(largest, static_cast<uint32_t>(static_cast<uint32_t>(p) - shift));
        int32_t c = static_cast<int32_t>(p >> kFractionBits);
        if constexpr (kClamp) c = std::clamp(c, x0, x1);
        anyFlat |= c <= previous;
        previous = c;
        column[k] = c;
        position[k] = p + step[k];
    }
    unclear = largest >= clearLimit;
    flat = anyFlat;
}

// Whether a side's crossings can be stepped, and the step and bound when they can.
void PrepareSteps(Side& side) noexcept {
    side.stepped = false;
    side.step = 0;
    side.toleranceUnits = 0;
    const double slope = side.edge.Slope();
    const double first = side.edge.Crossing(side.firstRow) - 0.5;
    const double last = side.edge.Crossing(side.endRow - 1) - 0.5;
    // Between the first and last row the crossings lie between these two (NaN fails).
    if (!(std::fabs(first) <= kSteppedRange && std::fabs(last) <= kSteppedRange && std::fabs(slope) <= kSteppedRange))
        return;
    // The error of a crossing kRowsPerAnchor - 1 steps from its start, generously: that of
    // ccScanEdge's crossing, the subtraction of 0.5 and the rounding to units at the start;
    // then a row's step rounded to units, and the rounding of dx / dy itself (three
    // roundings of its parts) carried along every step.
    constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
    const double start = (side.edge.Tolerance() + kEpsilon * (std::max(std::fabs(first), std::fabs(last)) + 1)) * kUnit + 1;
    const double perRow = 1 + 4 * kEpsilon * std::fabs(slope) * kUnit;
    const double tolerance = std::ceil(start + kRowsPerAnchor * perRow) + 2;
    if (!(tolerance <= kMaxToleranceUnits)) return;
    side.stepped = true;
    side.step = std::llrint(slope * kUnit);
    side.toleranceUnits = tolerance;
}

}  // namespace

void ccPolygonScan::Scan(const cc2Vect* vertices, size_t count, bool winding, ccSpanSink& sink,
                         const ccPixelBox& clip) {
    const ccPixelBox box = clip.Intersect(ccPixelBox::Everything());
    if (count < 3 || box.IsEmpty()) return;

    std::vector<Side> sides;
    sides.reserve(count);
    double toleranceUnits = 0;
    bool clampColumns = false;
    for (size_t i = 0; i < count; ++i) {
        const cc2Vect& a = vertices[i];
        const cc2Vect& b = vertices[i + 1 == count ? 0 : i + 1];
        if (a.Y() == b.Y()) continue;  // a horizontal side bounds no row
        const bool down = a.Y() < b.Y();
        const cc2Vect& top = down ? a : b;
        const cc2Vect& bottom = down ? b : a;
        const int32_t firstRow = std::max(ccInsideRule::FirstRow(top.Y()), box.y0);
        const int32_t endRow = std::min(ccInsideRule::EndRow(bottom.Y()), box.y1);
        if (firstRow >= endRow) continue;
        Side side{ccScanEdge(top, bottom), firstRow, endRow, down ? 1 : -1, false, 0, 0};
        PrepareSteps(side);
        // A stepped side whose columns (ceil(crossing - 0.5)) may leave [x0, x1] needs them
        // clamped; half a pixel of margin dwarfs the crossings' error.
        if (side.stepped) {
            const double first = side.edge.Crossing(firstRow) - 0.5, last = side.edge.Crossing(endRow - 1) - 0.5;
            clampColumns = clampColumns || !(std::min(first, last) >= box.x0 - 0.5 && std::max(first, last) <= box.x1 - 0.5);
        }
        toleranceUnits = std::max(toleranceUnits, side.toleranceUnits);
        sides.push_back(side);
    }
    if (sides.empty()) return;
    // Each span has two crossings and each side crosses each of its rows once, so the
    // crossings halved bound the spans (they merge or clip to fewer).
    int64_t crossings = 0;
    for (const Side& side : sides) crossings += side.endRow - side.firstRow;
    sink.ExpectSpans(crossings / 2);
    std::sort(sides.begin(), sides.end(), [](const Side& l, const Side& r) { return l.firstRow < r.firstRow; });

    // One bound for every side: a fraction f (the low 32 bits of a position) is clear of
    // the centres when tolerance < f < 2^32 - tolerance, that is when
    // f - (tolerance + 1) < 2^32 - 2 tolerance - 1 in unsigned arithmetic. A side that is
    // not stepped keeps position and step 0, whose fraction never passes.
    const auto tolerance = static_cast<uint32_t>(toleranceUnits);
    const uint32_t clearLimit = static_cast<uint32_t>(0xFFFFFFFFu - 2 * tolerance);
    const auto isClear = [tolerance, clearLimit](int64_t position) noexcept {
        return static_cast<uint32_t>(static_cast<uint32_t>(position) - (tolerance + 1)) < clearLimit;
    };

    ActiveSides active(sides.size());
    const auto anchor = [&](size_t k, int32_t row) noexcept {
        const Side& side = sides[static_cast<size_t>(active.side[k])];
        active.position[k] = side.stepped ? std::llrint((side.edge.Crossing(row) - 0.5) * kUnit) + (int64_t{1} << kFractionBits) : 0;
        active.step[k] = side.step;
    };
    RowSpans spans(active.bounds, box.x0, box.x1);

    size_t next = 0;
    int32_t row = sides.front().firstRow;
    int32_t nextEnd = std::numeric_limits<int32_t>::max();  // the first row some active side no longer crosses
    int32_t nextAnchor = row + kRowsPerAnchor;
    bool alternating = false;  // whether the active sides' directions alternate, so that winding pairs them too
    while (next < sides.size() || active.count > 0) {
        if (active.count == 0 && sides[next].firstRow > row) row = sides[next].firstRow;
        bool changed = false;  // whether the active sides, or their order, differ from the last row's
        if (row >= nextEnd) {
            size_t kept = 0;
            nextEnd = std::numeric_limits<int32_t>::max();
            for (size_t k = 0; k < active.count; ++k) {
                const int32_t endRow = sides[static_cast<size_t>(active.side[k])].endRow;
                if (endRow <= row) continue;
                nextEnd = std::min(nextEnd, endRow);
                if (kept != k) active.MoveTo(kept, k);
                ++kept;
            }
            changed = kept != active.count;
            active.count = kept;
        }
        if (row >= nextAnchor) {
            for (size_t k = 0; k < active.count; ++k) anchor(k, row);
            nextAnchor = row + kRowsPerAnchor;
        }
        while (next < sides.size() && sides[next].firstRow == row) {
            const size_t k = active.count++;
            active.side[k] = static_cast<int32_t>(next);
            active.direction[k] = sides[next].direction;
            anchor(k, row);
            nextEnd = std::min(nextEnd, sides[next].endRow);
            ++next;
            changed = true;
        }
        const size_t n = active.count;
        if (n == 0) {
            ++row;
            continue;
        }

        // This row's columns, clamped to the box, and the positions stepped to the next row.
        int64_t* const position = active.position;
        const int64_t* const step = active.step;
        int32_t* const column = active.column;
        bool unclear, flat;
        if (clampColumns)
            StepRow<true>(position, step, column, n, tolerance, clearLimit, box.x0, box.x1, unclear, flat);
        else
            StepRow<false>(position, step, column, n, tolerance, clearLimit, box.x0, box.x1, unclear, flat);
        // Most rows: strictly increasing columns that pair up into spans, which neither
        // are empty nor touch: the columns are the row's bounds as they stand.
        if (!(unclear | flat | changed) && (n & 1) == 0 && (alternating || !winding)) [[likely]] {
            sink.blitRow(row, column, n);
            ++row;
            continue;
        }

        if (unclear) {
            for (size_t k = 0; k < n; ++k)
                if (!isClear(position[k] - step[k]))
                    column[k] = std::clamp(sides[static_cast<size_t>(active.side[k])].edge.FirstCentreAtOrRight(row),
                                           box.x0, box.x1);
        }
        if (!std::is_sorted(column, column + n)) {
            active.SortByColumn();
            changed = true;
        }
        const int32_t* const direction = active.direction;
        if (changed) {
            alternating = true;
            for (size_t k = 1; k < n; ++k) alternating &= direction[k] != direction[k - 1];
        }
        if (!winding) {
            for (size_t k = 0; k + 1 < n; k += 2) spans.Add(column[k], column[k + 1]);
        } else {
            int32_t sum = 0;
            int32_t begin = 0;
            for (size_t k = 0; k < n; ++k) {
                const int32_t before = sum;
                sum += direction[k];
                if (before == 0 && sum != 0) begin = column[k];
                else if (before != 0 && sum == 0) spans.Add(begin, column[k]);
            }
        }
        spans.Emit(sink, row);
        ++row;
    }
}

bool ccPolygonScan::Within(const cc2Vect* vertices, size_t count, bool winding, const cc2Vect& point) noexcept {
    if (count < 3) return false;
    int32_t sum = 0;
    for (size_t i = 0; i < count; ++i) {
        const cc2Vect& a = vertices[i];
        const cc2Vect& b = vertices[i + 1 == count ? 0 : i + 1];
        if (a.Y() == b.Y()) continue;
        const bool down = a.Y() < b.Y();
        const cc2Vect& top = down ? a : b;
        const cc2Vect& bottom = down ? b : a;
        // The point moved down by e^2 lies within the side's rows: top <= y < bottom.
        if (!(top.Y() <= point.Y() && point.Y() < bottom.Y())) continue;
        // Moved right by e, it has crossed the side when it lies at or right of it.
        if (ccInsideRule::Orientation(top, bottom, point) <= 0) sum += down ? 1 : -1;
    }
    return winding ? sum != 0 : (sum & 1) != 0;
}
