// Where shapes rasterise to: a scan converter walks a shape's rows and hands each run of
// inside pixels to a sink, which builds whatever it stores (run-length buffer rows, a mask,
// a count of pixels). Keeping the two apart lets every shape feed every kind of storage.
//
// The contract a scan converter keeps, and every sink may rely on: rows come in
// increasing y; within a row, spans come in increasing x and never overlap or touch
// (two adjacent runs are given as one); every width is at least 1; a row with no inside
// pixels is simply not mentioned.
#pragma once

#include <cstddef>
#include <cstdint>

class ccSpanSink {
public:
    // The `width` pixels x, x + 1, ..., x + width - 1 of row y are inside.
    virtual void blitH(int32_t x, int32_t y, int32_t width) = 0;
    // The same span on `height` consecutive rows from y (a rectangle, or an axis-aligned
    // part of a shape). A sink that stores rectangles cheaply overrides it; the default
    // gives one blitH per row. Nothing happens when height is below 1.
    virtual void blitRect(int32_t x, int32_t y, int32_t width, int32_t height);
    // The spans [bounds[0], bounds[1]), [bounds[2], bounds[3]), ... of row y: `count` bounds,
    // an even number, under the same contract (increasing, none empty, none touching). A
    // converter with many spans a row hands them over in one call; a sink that can take
    // them in one go overrides it; the default gives one blitH per span.
    virtual void blitRow(int32_t y, const int32_t* bounds, size_t count);
    // A hint before the first span: the conversion will give about `spans` spans in all
    // (an upper bound when the converter can count its crossings). A sink that stores
    // spans reserves room once instead of growing; the default ignores it.
    virtual void ExpectSpans(int64_t spans);

protected:
    ccSpanSink() = default;
    ccSpanSink(const ccSpanSink&) = default;
    ccSpanSink& operator=(const ccSpanSink&) = default;
    // Sinks are owned by whoever runs the conversion, never through this interface.
    ~ccSpanSink() = default;
};
