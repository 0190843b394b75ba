// What the shape tests share: shapes made on the heap as their handles hold them, and a
// span sink that keeps every span and checks the sink contract as the spans arrive (rows
// in increasing y, spans in increasing x, neither overlapping nor touching, widths >= 1).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "xnl/std/base/ccPtrHandle.h"
#include "xnl/std/base/ccSpanSink.h"

namespace tessaly::test {

// Shapes live only behind handles (their destructors are protected).
template <class Shape, class... Arguments>
ccPtrHandle<Shape> Make(Arguments&&... arguments) {
    return ccPtrHandle<Shape>(new Shape(std::forward<Arguments>(arguments)...));
}

class SpanRecorder : public ccSpanSink {
public:
    struct Span {
        int32_t x, y, width;
    };

    void blitH(int32_t x, int32_t y, int32_t width) override {
        EXPECT_GE(width, 1) << "row " << y;
        if (!spans_.empty()) {
            const Span& last = spans_.back();
            EXPECT_GE(y, last.y) << "rows out of order";
            if (y == last.y) {
                EXPECT_GT(x, last.x + last.width) << "spans of row " << y << " overlap or touch";
            }
        }
        spans_.push_back({x, y, width});
    }

    const std::vector<Span>& Spans() const { return spans_; }
    int64_t PixelCount() const {
        int64_t count = 0;
        for (const Span& span : spans_) count += span.width;
        return count;
    }
    // Every pixel as (x, y).
    std::set<std::pair<int32_t, int32_t>> Pixels() const {
        std::set<std::pair<int32_t, int32_t>> pixels;
        for (const Span& span : spans_)
            for (int32_t x = span.x; x < span.x + span.width; ++x) pixels.insert({x, span.y});
        return pixels;
    }

private:
    std::vector<Span> spans_;
};

}  // namespace tessaly::test
