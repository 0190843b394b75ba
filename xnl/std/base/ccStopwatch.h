// A stopwatch over a monotonic clock: Start and Stop pairs add up, Reset sets the measured
// time to zero (a running watch goes on running from zero), Elapsed reads it at any time,
// running or not. Starting a running watch or stopping a stopped one changes nothing.
//
// A value, not guarded: an owner shared between threads keeps it under its own lock.
// ccBasicStopwatch takes the clock as a parameter so that tests can drive time by hand;
// the library uses ccStopwatch, over std::chrono::steady_clock.
#pragma once

#include <chrono>

template <class Clock>
class ccBasicStopwatch {
public:
    using duration = std::chrono::nanoseconds;

    void Start() {
        if (running_) return;
        startedAt_ = Clock::now();
        running_ = true;
    }

    void Stop() {
        if (!running_) return;
        accumulated_ += Since(startedAt_);
        running_ = false;
    }

    void Reset() {
        accumulated_ = duration::zero();
        if (running_) startedAt_ = Clock::now();
    }

    bool Running() const noexcept { return running_; }

    duration Elapsed() const { return running_ ? accumulated_ + Since(startedAt_) : accumulated_; }

    double Seconds() const { return std::chrono::duration<double>(Elapsed()).count(); }
    double Milliseconds() const { return std::chrono::duration<double, std::milli>(Elapsed()).count(); }
    double Microseconds() const { return std::chrono::duration<double, std::micro>(Elapsed()).count(); }

    // The smallest step the clock's time points can take, in seconds.
    static double Resolution() noexcept {
        return static_cast<double>(Clock::period::num) / static_cast<double>(Clock::period::den);
    }

private:
    static duration Since(typename Clock::time_point then) {
        const auto span = std::chrono::duration_cast<duration>(Clock::now() - then);
        // A monotonic clock never runs back; a hand-driven one in a test might.
        return span < duration::zero() ? duration::zero() : span;
    }

    typename Clock::time_point startedAt_{};
    duration accumulated_{};
    bool running_ = false;
};

using ccStopwatch = ccBasicStopwatch<std::chrono::steady_clock>;
