#include "xnl/std/base/ccSpanSink.h"

void ccSpanSink::blitRect(int32_t x, int32_t y, int32_t width, int32_t height) {
    for (int32_t row = 0; row < height; ++row) blitH(x, y + row, width);
}

void ccSpanSink::ExpectSpans(int64_t /*spans*/) {}

void ccSpanSink::blitRow(int32_t y, const int32_t* bounds, size_t count) {
    for (size_t k = 0; k + 1 < count; k += 2) blitH(bounds[k], y, bounds[k + 1] - bounds[k]);
}
