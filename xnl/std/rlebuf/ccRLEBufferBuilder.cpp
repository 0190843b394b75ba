#include "xnl/std/rlebuf/ccRLEBufferBuilder.h"

#include <algorithm>
#include <string>

ccRLEBufferBuilder::ccRLEBufferBuilder(int32_t x0, int32_t y0, int32_t width, int32_t height, uint8_t insideValue,
                                       uint8_t outsideValue)
    : writer_(width, height, width > 0 ? 3 * int64_t{height} : 0),
      x0_(x0),
      y0_(y0),
      width_(width),
      height_(height),
      inside_(insideValue),
      outside_(outsideValue) {}

void ccRLEBufferBuilder::ThrowFinished() {
    throw ccRLEBuffer::Degenerate("a span handed to a builder that has finished");
}

void ccRLEBufferBuilder::OpenRow(int32_t row) {
    if (row_ >= 0 && cursor_ < width_) writer_.Append(outside_, width_ - cursor_);
    for (int32_t skipped = row_ + 1; skipped < row; ++skipped) {
        writer_.StartRow(skipped);
        if (width_ > 0) writer_.Append(outside_, width_);
    }
    if (row < height_) writer_.StartRow(row);
    row_ = row;
    cursor_ = 0;
}

[[gnu::always_inline]] inline void ccRLEBufferBuilder::Span(int32_t row, int32_t begin, int32_t end) {
    using Writer = ccRLEBuffer::Writer;
    if (row != row_) {
        if (row < row_) [[unlikely]]
            throw ccRLEBuffer::Degenerate("a span of row " + std::to_string(row) + " after row " +
                                          std::to_string(row_));
        if (row == row_ + 1 && row_ >= 0) {
            // The next row, the usual case: the tail of this one, the gap and the span in
            // one go, through locals (stores into the runs could otherwise be taken to
            // change the builder's own counts).
            const int32_t first = writer_.Count();
            ccRLERun* const out = writer_.Room(3);
            int32_t written = 0;
            if (cursor_ < width_) Writer::Put(out + written++, outside_, width_ - cursor_);
            writer_.StartRowAt(row, first + written);
            if (begin > 0) Writer::Put(out + written++, outside_, begin);
            Writer::Put(out + written++, inside_, end - begin);
            writer_.Commit(written);
            row_ = row;
            cursor_ = end;
            return;
        }
        OpenRow(row);
    } else if (begin < cursor_) [[unlikely]] {
        throw ccRLEBuffer::Degenerate("a span at " + std::to_string(begin) + " left of the last one's end " +
                                      std::to_string(cursor_) + " in row " + std::to_string(row));
    }
    ccRLERun* const out = writer_.Room(2);
    int32_t written = 0;
    if (begin > cursor_) Writer::Put(out + written++, outside_, begin - cursor_);
    Writer::Put(out + written++, inside_, end - begin);
    writer_.Commit(written);
    cursor_ = end;
}

void ccRLEBufferBuilder::blitH(int32_t x, int32_t y, int32_t width) {
    RequireOpen();
    const int64_t row = int64_t{y} - y0_;
    if (row < 0 || row >= height_ || width < 1) return;
    const int64_t left = int64_t{x} - x0_;
    const int64_t begin = std::max<int64_t>(left, 0);
    const int64_t end = std::min<int64_t>(left + width, width_);
    if (begin >= end) return;
    Span(static_cast<int32_t>(row), static_cast<int32_t>(begin), static_cast<int32_t>(end));
}

void ccRLEBufferBuilder::blitRect(int32_t x, int32_t y, int32_t width, int32_t height) {
    RequireOpen();
    if (width < 1 || height < 1) return;
    const int64_t top = int64_t{y} - y0_;
    const int64_t first = std::max<int64_t>(top, 0);
    const int64_t last = std::min<int64_t>(top + height, height_);  // one past
    const int64_t left = int64_t{x} - x0_;
    const int64_t begin = std::max<int64_t>(left, 0);
    const int64_t end = std::min<int64_t>(left + width, width_);
    if (first >= last || begin >= end) return;
    const auto b = static_cast<int32_t>(begin);
    const auto e = static_cast<int32_t>(end);
    Span(static_cast<int32_t>(first), b, e);
    // The rows below the first are new rows with one and the same pattern.
    writer_.Expect(3 * (last - first));
    for (auto row = static_cast<int32_t>(first + 1); row < last; ++row) {
        if (cursor_ < width_) writer_.Append(outside_, width_ - cursor_);
        writer_.StartRow(row);
        if (b > 0) writer_.Append(outside_, b);
        writer_.Append(inside_, e - b);
        cursor_ = e;
    }
    row_ = static_cast<int32_t>(last - 1);
}

ccRLEBuffer ccRLEBufferBuilder::Finish() {
    RequireOpen();
    OpenRow(height_);
    finished_ = true;
    // A shape that covers little of its box leaves most of the three runs a row unused.
    return writer_.Finish(true);
}
