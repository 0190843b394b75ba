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

void ccRLEBufferBuilder::ThrowLeftOfLast(int32_t begin, int32_t cursor, int32_t row) {
    throw ccRLEBuffer::Degenerate("a span at " + std::to_string(begin) + " left of the last one's end " +
                                  std::to_string(cursor) + " in row " + std::to_string(row));
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
        ThrowLeftOfLast(begin, cursor_, row);
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

void ccRLEBufferBuilder::blitRow(int32_t y, const int32_t* bounds, size_t count) {
    RequireOpen();
    const int64_t row = int64_t{y} - y0_;
    count &= ~size_t{1};
    if (row < 0 || row >= height_ || count == 0) return;
    // A count the block's run index could not hold goes span by span (and fails there).
    if (count > static_cast<size_t>(ccRLEBuffer::kMaxRuns)) return ccSpanSink::blitRow(y, bounds, count);
    const int64_t first = int64_t{bounds[0]} - x0_;
    const int64_t firstEnd = int64_t{bounds[1]} - x0_;
    const int64_t last = int64_t{bounds[count - 1]} - x0_;
    if (first < 0 || last > width_ || firstEnd <= first) [[unlikely]]
        return ClippedRow(static_cast<int32_t>(row), bounds, count);
    // Every span within the box, the usual case. The row is opened here when it follows
    // the open one (else as blitH would open it, with the first span); the gap before each
    // span is written whether or not it is empty, then kept only when it is not.
    using Writer = ccRLEBuffer::Writer;
    size_t k = 0;
    int32_t written = 0;
    int32_t cursor = cursor_;
    ccRLERun* out = nullptr;
    if (row == row_ + 1 && row_ >= 0) {
        const int32_t start = writer_.Count();
        out = writer_.Room(static_cast<int32_t>(count + 1));  // the tail, and two runs a span
        if (cursor < width_) Writer::Put(out + written++, outside_, width_ - cursor);
        writer_.StartRowAt(static_cast<int32_t>(row), start + written);
        row_ = static_cast<int32_t>(row);
        cursor = 0;
    } else {
        Span(static_cast<int32_t>(row), static_cast<int32_t>(first), static_cast<int32_t>(firstEnd));
        if (count == 2) return;
        k = 2;
        cursor = cursor_;
        out = writer_.Room(static_cast<int32_t>(count - 2));
    }
    // Locals, so that the stores into the runs need not be taken to change them.
    const auto origin = static_cast<uint32_t>(x0_);
    const uint8_t outside = outside_, inside = inside_;
    ccRLERun* at = out + written;
    for (; k < count; k += 2) {
        // Within the box the offsets fit, so the wrapping subtraction is exact.
        const auto begin = static_cast<int32_t>(static_cast<uint32_t>(bounds[k]) - origin);
        const auto end = static_cast<int32_t>(static_cast<uint32_t>(bounds[k + 1]) - origin);
        if (begin < cursor || end <= begin) [[unlikely]] {
            if (end <= begin) continue;  // an empty span, skipped as blitH skips it
            // The spans before it stay, as with one blitH each.
            writer_.Commit(static_cast<int32_t>(at - out));
            cursor_ = cursor;
            ThrowLeftOfLast(begin, cursor, static_cast<int32_t>(row));
        }
        Writer::Put(at, outside, begin - cursor);
        at += begin > cursor;
        Writer::Put(at++, inside, end - begin);
        cursor = end;
    }
    writer_.Commit(static_cast<int32_t>(at - out));
    cursor_ = cursor;
}

void ccRLEBufferBuilder::ClippedRow(int32_t row, const int32_t* bounds, size_t count) {
    const auto clipped = [&](size_t k, int64_t& begin, int64_t& end) {
        begin = std::max<int64_t>(int64_t{bounds[k]} - x0_, 0);
        end = std::min<int64_t>(int64_t{bounds[k + 1]} - x0_, width_);
        return begin < end;
    };
    size_t k = 0;
    int64_t begin = 0, end = 0;
    while (k < count && !clipped(k, begin, end)) k += 2;
    if (k >= count) return;
    Span(row, static_cast<int32_t>(begin), static_cast<int32_t>(end));
    for (k += 2; k < count; k += 2) {
        if (!clipped(k, begin, end)) continue;
        Span(row, static_cast<int32_t>(begin), static_cast<int32_t>(end));
    }
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

void ccRLEBufferBuilder::ExpectSpans(int64_t spans) {
    // 4 Mi runs (32 MiB): a hint never reserves more than that at once.
    constexpr int64_t kMostReserved = int64_t{1} << 22;
    if (finished_ || width_ <= 0 || spans <= 0) return;
    const int64_t runs = std::min(2 * std::min(spans, kMostReserved) + height_, kMostReserved);
    writer_.Expect(runs - writer_.Count());
}

ccRLEBuffer ccRLEBufferBuilder::Finish() {
    RequireOpen();
    OpenRow(height_);
    finished_ = true;
    // A shape that covers little of its box leaves most of the three runs a row unused.
    return writer_.Finish(true);
}
