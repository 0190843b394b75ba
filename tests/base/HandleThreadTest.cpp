// Counted handles from several threads at once: counts stay exact, the last holder to let
// go destroys the value exactly once and after every other holder's last use, and copies
// on write made by racing threads never touch the shared original.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

#include "TestValues.h"
#include "xnl/std/base/ccPtrHandle.h"
#include "xnl/std/base/ccPtrHandle_const.h"

namespace tessaly::test {
namespace {

constexpr int kThreads = 8;

TEST(HandleThreadTest, CopiesFromManyThreadsLeaveTheCountExact) {
    const int destroyedBefore = SharedPixels::destroyed;
    ccPtrHandle<SharedPixels> shared(new SharedPixels);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&shared] {
            for (int i = 0; i < 20000; ++i) {
                ccPtrHandle<SharedPixels> copy = shared;
                ccPtrHandle_const<SharedPixels> view = copy;
                ccPtrHandle<SharedPixels> moved = std::move(copy);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(shared.RefCount(), 1u);
    EXPECT_EQ(SharedPixels::destroyed, destroyedBefore);
    shared.Reset();
    EXPECT_EQ(SharedPixels::destroyed, destroyedBefore + 1);
}

// Each holder writes its own slot and lets go; the destructor, run by whichever holder
// was last, must see every write.
class Tally : public ccRefCounted {
public:
    Tally(std::atomic<int>& destructions, std::atomic<int>& complete)
        : destructions_(destructions), complete_(complete) {}
    std::array<int, kThreads> slots{};

private:
    ~Tally() override {
        ++destructions_;
        int written = 0;
        for (int slot : slots) written += slot;  // plain reads: ordered by the last release
        if (written == kThreads) ++complete_;
    }
    std::atomic<int>& destructions_;
    std::atomic<int>& complete_;
};

TEST(HandleThreadTest, TheLastOfRacingHoldersDestroysOnceAfterEveryonesWrites) {
    constexpr int kRounds = 300;
    std::atomic<int> destructions{0};
    std::atomic<int> complete{0};
    std::array<ccPtrHandle<Tally>, kThreads> holders;
    std::barrier start(kThreads + 1);
    std::barrier done(kThreads + 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < kRounds; ++round) {
                start.arrive_and_wait();
                holders[t]->slots[t] = 1;
                holders[t].Reset();
                done.arrive_and_wait();
            }
        });
    }
    for (int round = 0; round < kRounds; ++round) {
        ccPtrHandle<Tally> value(new Tally(destructions, complete));
        for (auto& holder : holders) holder = value;
        value.Reset();
        start.arrive_and_wait();
        done.arrive_and_wait();
        ASSERT_EQ(destructions, round + 1) << "exactly one destruction per value";
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(complete, kRounds);
}

TEST(HandleThreadTest, RacingCopiesOnWriteLeaveTheOriginalAsItWas) {
    const int liveBefore = ShapeValue::live;
    ccPtrHandle<ShapeValue> writable(new ShapeValue(1.0));
    ccPtrHandle_const<ShapeValue> original = writable;
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                ccPtrHandle<ShapeValue> mine = writable;
                ShapeValue* own = mine.MakeUnique();
                if (own == original.Get()) ++wrong;
                own->size = t + 2.0;
                if (original->size != 1.0) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(original->size, 1.0);
    EXPECT_EQ(original.RefCount(), 2u);
    writable.Reset();
    original.Reset();
    EXPECT_EQ(ShapeValue::live, liveBefore);
}

}  // namespace
}  // namespace tessaly::test
