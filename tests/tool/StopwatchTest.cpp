// The stopwatch: the core watch driven by a hand-set clock (start-stop pairs add up, a
// second Start or Stop changes nothing, Reset while running goes on from zero, a clock
// that steps back counts nothing), and LuxStopwatch against the real clock.
#include <chrono>
#include <thread>

#include "com/tool/CLuxStopwatch.h"
#include "image/ImageFixture.h"
#include "xnl/std/base/ccStopwatch.h"

namespace tessaly::test {
namespace {

using namespace std::chrono_literals;

struct HandClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<HandClock>;
    static constexpr bool is_steady = false;
    static inline time_point current{};
    static time_point now() noexcept { return current; }
    static void Advance(duration by) { current += by; }
};

TEST(CoreStopwatch, StartStopPairsAccumulateAndResetKeepsRunning) {
    HandClock::current = HandClock::time_point(1000h);
    ccBasicStopwatch<HandClock> watch;
    EXPECT_FALSE(watch.Running());
    EXPECT_EQ(watch.Elapsed(), 0ns);
    HandClock::Advance(5ms);
    EXPECT_EQ(watch.Elapsed(), 0ns) << "a watch never started measures nothing";

    watch.Start();
    HandClock::Advance(3ms);
    EXPECT_EQ(watch.Elapsed(), 3ms) << "readable while running";
    watch.Start();  // running already: the start time stays
    HandClock::Advance(2ms);
    watch.Stop();
    EXPECT_EQ(watch.Elapsed(), 5ms);
    HandClock::Advance(100ms);
    watch.Stop();
    EXPECT_EQ(watch.Elapsed(), 5ms) << "time while stopped does not count";

    watch.Start();
    HandClock::Advance(7us);
    watch.Stop();
    EXPECT_EQ(watch.Elapsed(), 5ms + 7us);
    EXPECT_DOUBLE_EQ(watch.Milliseconds(), 5.007);
    EXPECT_DOUBLE_EQ(watch.Microseconds(), 5007.0);
    EXPECT_DOUBLE_EQ(watch.Seconds(), 0.005007);

    watch.Reset();
    EXPECT_EQ(watch.Elapsed(), 0ns);
    EXPECT_FALSE(watch.Running());

    watch.Start();
    HandClock::Advance(4ms);
    watch.Reset();
    EXPECT_TRUE(watch.Running());
    HandClock::Advance(1ms);
    EXPECT_EQ(watch.Elapsed(), 1ms) << "a reset while running goes on from zero";

    HandClock::Advance(-3ms);
    EXPECT_EQ(watch.Elapsed(), 0ns) << "a clock stepping back counts as no time";
    EXPECT_DOUBLE_EQ(ccBasicStopwatch<HandClock>::Resolution(), 1e-9);
}

class StopwatchTest : public ImageFixture {};

TEST_F(StopwatchTest, MeasuresRealTimeAcrossStartAndStop) {
    auto watch = Make<ILuxStopwatch>("Tessaly.LuxStopwatch");
    VARIANT_BOOL running = 1;
    ASSERT_EQ(watch->get_Running(&running), S_OK);
    EXPECT_EQ(running, VARIANT_FALSE);
    double seconds = -1, ms = -1, us = -1, resolution = -1;
    ASSERT_EQ(watch->get_Seconds(&seconds), S_OK);
    EXPECT_EQ(seconds, 0.0);
    ASSERT_EQ(watch->get_Resolution(&resolution), S_OK);
    EXPECT_GT(resolution, 0.0);
    EXPECT_LE(resolution, 1e-6);

    ASSERT_EQ(watch->Start(), S_OK);
    ASSERT_EQ(watch->get_Running(&running), S_OK);
    EXPECT_EQ(running, VARIANT_TRUE);
    std::this_thread::sleep_for(20ms);
    ASSERT_EQ(watch->Stop(), S_OK);
    ASSERT_EQ(watch->get_Seconds(&seconds), S_OK);
    ASSERT_EQ(watch->get_Milliseconds(&ms), S_OK);
    ASSERT_EQ(watch->get_Microseconds(&us), S_OK);
    EXPECT_GE(ms, 20.0);
    EXPECT_LT(ms, 2000.0);
    EXPECT_DOUBLE_EQ(seconds * 1000, ms) << "a stopped watch reads the same in every unit";
    EXPECT_DOUBLE_EQ(ms * 1000, us);

    std::this_thread::sleep_for(10ms);
    double later = -1;
    ASSERT_EQ(watch->get_Milliseconds(&later), S_OK);
    EXPECT_EQ(later, ms) << "a stopped watch does not move";
    ASSERT_EQ(watch->Start(), S_OK);
    std::this_thread::sleep_for(5ms);
    ASSERT_EQ(watch->get_Milliseconds(&later), S_OK);
    EXPECT_GE(later, ms + 5.0) << "a restart adds to the time measured";

    ASSERT_EQ(watch->Reset(), S_OK);
    ASSERT_EQ(watch->get_Milliseconds(&later), S_OK);
    EXPECT_LT(later, ms) << "reset goes back to zero";
    ASSERT_EQ(watch->get_Running(&running), S_OK);
    EXPECT_EQ(running, VARIANT_TRUE);

    ExpectRefused(watch->get_Seconds(nullptr), E_POINTER, "get_Seconds");
    ExpectRefused(watch->get_Milliseconds(nullptr), E_POINTER, "get_Milliseconds");
    ExpectRefused(watch->get_Microseconds(nullptr), E_POINTER, "get_Microseconds");
    ExpectRefused(watch->get_Running(nullptr), E_POINTER, "get_Running");
    ExpectRefused(watch->get_Resolution(nullptr), E_POINTER, "get_Resolution");
}

}  // namespace
}  // namespace tessaly::test
