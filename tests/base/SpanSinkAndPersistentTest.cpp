// The span sink's default rectangle, and exceptions as persistent core values.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "persist/ccArchive.h"
#include "xnl/std/base/ccSpanSink.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::test {
namespace {

// Records spans and checks the order a scan converter promises.
class RecordingSink final : public ccSpanSink {
public:
    void blitH(int32_t x, int32_t y, int32_t width) override {
        if (width < 1 || (!spans.empty() && !Follows(x, y))) ++outOfOrder;
        spans.emplace_back(x, y, width);
    }
    std::vector<std::tuple<int32_t, int32_t, int32_t>> spans;
    int outOfOrder = 0;

private:
    bool Follows(int32_t x, int32_t y) const {
        const auto& [lastX, lastY, lastWidth] = spans.back();
        return y > lastY || (y == lastY && x > lastX + lastWidth);
    }
};

TEST(SpanSinkTest, ARectangleIsOneSpanPerRowInIncreasingY) {
    RecordingSink sink;
    sink.blitRect(-3, 5, 4, 3);
    using Span = std::tuple<int32_t, int32_t, int32_t>;
    EXPECT_EQ(sink.spans, (std::vector<Span>{{-3, 5, 4}, {-3, 6, 4}, {-3, 7, 4}}));
    EXPECT_EQ(sink.outOfOrder, 0);

    sink.blitRect(0, 9, 2, 0);
    sink.blitRect(0, 9, 2, -4);
    EXPECT_EQ(sink.spans.size(), 3u) << "no rows, no spans";
    sink.blitH(5, 9, 1);
    sink.blitH(6, 9, 1);  // touches the one before: a converter gives it as one span
    EXPECT_EQ(sink.outOfOrder, 1);
}

TEST(PersistentTest, ExceptionsStoreUnderTheirClassName) {
    const ccArchive::Eof eof("reading Width");
    const ccPersistent& stored = eof;
    EXPECT_STREQ(stored.PersistentClassName(), "ccArchive::Eof");
    EXPECT_STREQ(ccStdError::BadArgument("Scaling").PersistentClassName(), "ccStdError::BadArgument");
    // A described failure's message is its description; its class is still its own.
    const ccStdError::Described described("The camera on port 2 did not answer.");
    EXPECT_STREQ(described.Message(), "The camera on port 2 did not answer.");
    EXPECT_STREQ(described.PersistentClassName(), "ccStdError::Described");

    // Still caught as what it always was.
    try {
        throw ccArchive::BadContent("tag 0x99");
    } catch (const std::exception& caught) {
        EXPECT_STREQ(caught.what(), "ccArchive::BadContent");
        EXPECT_STREQ(dynamic_cast<const ccPersistent&>(caught).PersistentClassName(), "ccArchive::BadContent");
    }
}

}  // namespace
}  // namespace tessaly::test
