// The recorded assignments of a load: made once, in order, whatever storage they spilled
// into; dropped unmade, each owning value freed exactly once.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "com/core/impl/CommitList.h"

namespace tessaly::core {
namespace {

// A value that counts its live copies, as an object a failed load must release.
struct Counted {
    explicit Counted(int* live) : live(live) { ++*live; }
    Counted(const Counted& other) : live(other.live) { ++*live; }
    ~Counted() { --*live; }
    int* live;
};

TEST(CommitListTest, AssignmentsRunOnceInOrderAcrossInlineAndHeapStorage) {
    CommitList list;
    std::vector<int> order;
    int live = 0;
    // Small ones fill the inline storage; large ones spill into blocks, one larger than a block.
    for (int i = 0; i < 300; ++i) {
        if (i % 50 == 7) {
            list.Add([&order, i, big = std::array<char, 5000>{}]() noexcept { order.push_back(i + int(big[0])); });
        } else {
            list.Add([&order, i, held = std::make_shared<Counted>(&live)]() noexcept { order.push_back(i); });
        }
    }
    EXPECT_GT(live, 0);
    list.Run();
    ASSERT_EQ(order.size(), 300u);
    for (int i = 0; i < 300; ++i) EXPECT_EQ(order[i], i);
    EXPECT_EQ(live, 0);  // the assignments were destroyed with what they held
    list.Run();          // nothing left to make
    EXPECT_EQ(order.size(), 300u);
}

TEST(CommitListTest, DroppedAssignmentsAreNeverMadeAndFreeWhatTheyHold) {
    int live = 0;
    int made = 0;
    {
        CommitList list;
        for (int i = 0; i < 100; ++i)
            list.Add([&made, held = Counted(&live), text = std::string(40, 'x')]() noexcept { ++made; });
        EXPECT_EQ(live, 100);
        list.Clear();
        EXPECT_EQ(live, 0);
        list.Add([&made, held = Counted(&live)]() noexcept { ++made; });  // usable again
        EXPECT_EQ(live, 1);
    }
    EXPECT_EQ(live, 0);
    EXPECT_EQ(made, 0);
}

}  // namespace
}  // namespace tessaly::core
