#include "xnl/std/shapes/ccPolygonScan.h"

#include <algorithm>
#include <limits>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/shapes/ccInsideRule.h"
#include "xnl/std/shapes/ccScanEdge.h"

namespace {

struct ActiveEdge {
    ccScanEdge edge;
    int32_t firstRow;  // already clipped to the box
    int32_t endRow;
    int32_t direction;  // +1 for a side running down (increasing y), -1 up
};

struct Crossing {
    int32_t column;
    int32_t direction;
    const ActiveEdge* edge;
};

// Joins spans that touch and drops the empty ones, so that the sink sees its contract.
class SpanEmitter {
public:
    SpanEmitter(ccSpanSink& sink, int32_t x0, int32_t x1) noexcept : sink_(sink), x0_(x0), x1_(x1) {}
    void Add(int32_t begin, int32_t end, int32_t row) {
        begin = std::max(begin, x0_);
        end = std::min(end, x1_);
        if (begin >= end) return;
        if (pendingEnd_ == begin) {
            pendingEnd_ = end;
            return;
        }
        Flush(row);
        pendingBegin_ = begin;
        pendingEnd_ = end;
    }
    void Flush(int32_t row) {
        if (pendingBegin_ < pendingEnd_) sink_.blitH(pendingBegin_, row, pendingEnd_ - pendingBegin_);
        pendingBegin_ = pendingEnd_ = std::numeric_limits<int32_t>::min();
    }

private:
    ccSpanSink& sink_;
    int32_t x0_, x1_;
    int32_t pendingBegin_ = std::numeric_limits<int32_t>::min();
    int32_t pendingEnd_ = std::numeric_limits<int32_t>::min();
};

}  // namespace

void ccPolygonScan::Scan(const cc2Vect* vertices, size_t count, bool winding, ccSpanSink& sink,
                         const ccPixelBox& clip) {
    const ccPixelBox box = clip.Intersect(ccPixelBox::Everything());
    if (count < 3 || box.IsEmpty()) return;

    std::vector<ActiveEdge> edges;
    edges.reserve(count);
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
        edges.push_back({ccScanEdge(top, bottom), firstRow, endRow, down ? 1 : -1});
    }
    if (edges.empty()) return;
    std::sort(edges.begin(), edges.end(),
              [](const ActiveEdge& l, const ActiveEdge& r) { return l.firstRow < r.firstRow; });

    std::vector<const ActiveEdge*> active(edges.size());
    std::vector<Crossing> crossingStore(edges.size());
    Crossing* const crossings = crossingStore.data();
    SpanEmitter emitter(sink, box.x0, box.x1);

    size_t next = 0;
    size_t activeCount = 0;
    int32_t row = edges.front().firstRow;
    while (next < edges.size() || activeCount > 0) {
        if (activeCount == 0 && edges[next].firstRow > row) row = edges[next].firstRow;
        while (next < edges.size() && edges[next].firstRow == row) active[activeCount++] = &edges[next++];
        // Crossings, in the order of the previous row, sorted by insertion; the active list
        // takes this row's order, so that the next row's sort has little to move.
        size_t count = 0;
        for (size_t k = 0; k < activeCount; ++k) {
            const ActiveEdge* edge = active[k];
            if (edge->endRow <= row) continue;
            const Crossing crossing{edge->edge.FirstCentreAtOrRight(row), edge->direction, edge};
            size_t at = count++;
            while (at > 0 && crossings[at - 1].column > crossing.column) {
                crossings[at] = crossings[at - 1];
                --at;
            }
            crossings[at] = crossing;
        }
        activeCount = count;
        for (size_t k = 0; k < count; ++k) active[k] = crossings[k].edge;
        if (count == 0) {
            ++row;
            continue;
        }
        if (!winding) {
            for (size_t k = 0; k + 1 < count; k += 2)
                emitter.Add(crossings[k].column, crossings[k + 1].column, row);
        } else {
            int32_t sum = 0;
            int32_t begin = 0;
            for (size_t k = 0; k < count; ++k) {
                const Crossing& crossing = crossings[k];
                const int32_t before = sum;
                sum += crossing.direction;
                if (before == 0 && sum != 0) begin = crossing.column;
                else if (before != 0 && sum == 0) emitter.Add(begin, crossing.column, row);
            }
        }
        emitter.Flush(row);
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
