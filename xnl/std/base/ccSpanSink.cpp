#include "xnl/std/base/ccSpanSink.h"

void ccSpanSink::blitRect(int32_t x, int32_t y, int32_t width, int32_t height) {
    for (int32_t row = 0; row < height; ++row) blitH(x, y + row, width);
}
