// Builds a run-length buffer from the spans of a scan converter: how a shape becomes a
// region mask. The buffer covers the box (x0, y0, width, height) of the converter's
// coordinates; spanned pixels get `insideValue`, every other pixel `outsideValue`.
//
//     ccRLEBufferBuilder builder(0, 0, 640, 480, 255, 0);
//     shape.Rasterize(builder);              // blitH / blitRect / blitRow, as ccSpanSink promises
//     ccRLEBuffer mask = builder.Finish();
//
// Spans are clipped to the box, so a shape partly (or wholly) outside still builds a
// valid buffer. Rows and the tails of rows that no span reaches are filled with outside
// runs as the next row starts, or by Finish. Appends write straight into the buffer's one
// block, reserved for three runs a row up front (what a convex shape needs) and grown by
// doubling beyond that: no per-pixel work and no allocation per row. Finish gives back
// what a sparse shape left unused (more than half the block).
//
// The span contract of ccSpanSink is checked where it costs one comparison: a span of a
// row above the present one, or left of the last span of the present row, throws
// ccRLEBuffer::Degenerate.
#pragma once

#include <cstdint>

#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/rlebuf/ccRLEBuffer.h"

class ccRLEBufferBuilder final : public ccSpanSink {
public:
    // ccRLEBuffer::Degenerate for a negative size.
    ccRLEBufferBuilder(int32_t x0, int32_t y0, int32_t width, int32_t height, uint8_t insideValue = 255,
                       uint8_t outsideValue = 0);
    ccRLEBufferBuilder(const ccRLEBufferBuilder&) = delete;
    ccRLEBufferBuilder& operator=(const ccRLEBufferBuilder&) = delete;
    ~ccRLEBufferBuilder() = default;

    void blitH(int32_t x, int32_t y, int32_t width) override;
    void blitRect(int32_t x, int32_t y, int32_t width, int32_t height) override;
    // Every span of the row into the block at once: one check of room, two runs a span.
    void blitRow(int32_t y, const int32_t* bounds, size_t count) override;
    // Reserves two runs a span and one a row (the tail), up to a cap beyond which the
    // block grows by doubling as usual: a shape with many spans a row then fills one block
    // without copying it.
    void ExpectSpans(int64_t spans) override;

    // The finished buffer. The builder is spent afterwards: any further call throws
    // ccRLEBuffer::Degenerate.
    ccRLEBuffer Finish();

private:
    // Span [begin, end) of box row `row`, both already clipped.
    void Span(int32_t row, int32_t begin, int32_t end);
    // The spans of one row of the box (an even count of bounds), any of them reaching past
    // its sides.
    void ClippedRow(int32_t row, const int32_t* bounds, size_t count);
    // Ends the open row with an outside tail and fills the rows before `row` (all of them
    // up to the height when `row` is the height) with outside runs; `row` is then open.
    void OpenRow(int32_t row);
    void RequireOpen() const {
        if (finished_) [[unlikely]]
            ThrowFinished();
    }
    [[noreturn, gnu::cold]] static void ThrowFinished();
    [[noreturn, gnu::cold]] static void ThrowLeftOfLast(int32_t begin, int32_t cursor, int32_t row);

    ccRLEBuffer::Writer writer_;
    int32_t x0_, y0_, width_, height_;
    uint8_t inside_, outside_;
    int32_t row_ = -1;    // the open row of the box; -1 before the first span
    int32_t cursor_ = 0;  // pixels of the open row written so far
    bool finished_ = false;
};
