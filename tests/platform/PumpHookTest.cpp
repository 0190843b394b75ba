// The per-thread pump a waiting thread runs instead of sleeping, and the sleep it falls
// back to.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/PumpHook.h"

namespace tessaly {
namespace {

using Clock = std::chrono::steady_clock;

// How long one turn of waiting took.
Clock::duration TimedTurn() {
    const auto start = Clock::now();
    WaitForLockTurn();
    return Clock::now() - start;
}

class PumpHookTest : public ::testing::Test {
protected:
    void TearDown() override { SetThreadPumpHook({}); }  // the test thread runs other suites too
};

TEST_F(PumpHookTest, ATurnRunsThePumpAndSleepsWhenNothingWasServed) {
    EXPECT_GE(TimedTurn(), std::chrono::milliseconds(1));  // no pump at all

    int calls = 0;
    bool serve = true;
    SetThreadPumpHook([&] {
        ++calls;
        return serve;
    });
    WaitForLockTurn();
    WaitForLockTurn();
    EXPECT_EQ(calls, 2);

    serve = false;
    EXPECT_GE(TimedTurn(), std::chrono::milliseconds(1));
    EXPECT_EQ(calls, 3);

    // A pump that throws has served nothing, and the exception goes no further.
    SetThreadPumpHook([&]() -> bool {
        ++calls;
        throw std::runtime_error("the loop is gone");
    });
    EXPECT_GE(TimedTurn(), std::chrono::milliseconds(1));
    EXPECT_EQ(calls, 4);

    SetThreadPumpHook({});
    EXPECT_GE(TimedTurn(), std::chrono::milliseconds(1));
    EXPECT_EQ(calls, 4);
}

TEST_F(PumpHookTest, EachThreadRunsOnlyItsOwnPump) {
    int mainCalls = 0;
    SetThreadPumpHook([&] { return ++mainCalls > 0; });
    int otherCalls = 0;
    std::thread other([&] {
        WaitForLockTurn();  // this thread has no pump yet
        SetThreadPumpHook([&] { return ++otherCalls > 0; });
        WaitForLockTurn();
        WaitForLockTurn();
    });
    other.join();
    EXPECT_EQ(mainCalls, 0);
    EXPECT_EQ(otherCalls, 2);

    WaitForLockTurn();  // the other thread's pump did not replace this one's
    EXPECT_EQ(mainCalls, 1);
    EXPECT_EQ(otherCalls, 2);
}

// Addresses of pump state destroyed so far on this thread.
std::vector<const void*>& DestroyedStates() {
    static thread_local std::vector<const void*> destroyed;
    return destroyed;
}

struct PumpState {
    PumpState() = default;
    PumpState(const PumpState&) = default;
    ~PumpState() { DestroyedStates().push_back(this); }
    std::string label = std::string(64, 'x');
};

TEST_F(PumpHookTest, APumpMayRemoveItselfWhileItRuns) {
    // A loop that ends while it serves its last call: the pump's own state must outlive the call.
    const PumpState state;
    bool stateSurvived = false;
    int calls = 0;
    SetThreadPumpHook([state, &stateSurvived, &calls] {
        ++calls;
        SetThreadPumpHook({});
        const auto& destroyed = DestroyedStates();
        stateSurvived =
            std::find(destroyed.begin(), destroyed.end(), &state) == destroyed.end() && state.label.size() == 64;
        return true;
    });
    DestroyedStates().clear();  // addresses of earlier states may be reused by now
    WaitForLockTurn();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(stateSurvived);
    WaitForLockTurn();
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace tessaly
