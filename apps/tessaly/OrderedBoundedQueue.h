// A queue between several producers that work on numbered items in any order and one
// consumer that takes them in their numbers' order, holding at most `capacity` items at a
// time: what lets `tessaly run` decode images on a pool of threads while the tool runs
// them one by one, in the order of the files, with bounded memory whatever their number.
//
//     OrderedBoundedQueue<Decoded> queue(4, files.size());
//     // each producer:
//     while (auto ticket = queue.Claim()) queue.Put(*ticket, Decode(files[*ticket]));
//     // the consumer:
//     while (auto item = queue.Take()) Use(*item);
//
// A ticket is a slot reserved in the window [taken, taken + capacity): Claim waits while
// the window is full, so items being made count against the capacity as well as items
// waiting to be taken. Take waits for the next item in order and answers nothing once
// every item has been taken or the queue is closed. Close wakes every waiting thread:
// Claim and Take then answer nothing, and items still held are dropped.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

namespace tessaly::cli {

template <class T>
class OrderedBoundedQueue {
public:
    // Items numbered 0 .. count - 1, at most `capacity` (at least 1) of them held at once.
    OrderedBoundedQueue(size_t capacity, uint64_t count) : slots_(capacity), count_(count) {
        if (capacity == 0) throw std::invalid_argument("OrderedBoundedQueue: capacity 0");
    }

    OrderedBoundedQueue(const OrderedBoundedQueue&) = delete;
    OrderedBoundedQueue& operator=(const OrderedBoundedQueue&) = delete;

    size_t Capacity() const noexcept { return slots_.size(); }

    // The next number below `count`, once the window has room for it; nothing when every
    // number has been handed out or the queue is closed.
    std::optional<uint64_t> Claim() {
        std::unique_lock lock(mutex_);
        roomy_.wait(lock, [&] { return closed_ || claimed_ >= count_ || claimed_ < taken_ + slots_.size(); });
        if (closed_ || claimed_ >= count_) return std::nullopt;
        return claimed_++;
    }

    // Hands in the item of a claimed number. Ignored after Close.
    void Put(uint64_t ticket, T item) {
        {
            std::lock_guard lock(mutex_);
            if (closed_) return;
            if (ticket < taken_ || ticket >= claimed_) throw std::logic_error("OrderedBoundedQueue: unclaimed ticket");
            Slot& slot = slots_[ticket % slots_.size()];
            slot.item.emplace(std::move(item));
        }
        // Only the consumer waits for items; several producers may be waiting for room.
        ready_.notify_all();
    }

    // The item of the next number, once it has been put; nothing after the last one or
    // once closed.
    std::optional<T> Take() {
        std::optional<T> item;
        {
            std::unique_lock lock(mutex_);
            if (taken_ >= count_) return std::nullopt;
            Slot& slot = slots_[taken_ % slots_.size()];
            ready_.wait(lock, [&] { return closed_ || slot.item.has_value(); });
            if (closed_) return std::nullopt;
            item = std::move(slot.item);
            slot.item.reset();
            ++taken_;
        }
        roomy_.notify_all();
        return item;
    }

    void Close() {
        {
            std::lock_guard lock(mutex_);
            closed_ = true;
            for (Slot& slot : slots_) slot.item.reset();
        }
        roomy_.notify_all();
        ready_.notify_all();
    }

    // Numbers claimed and not yet taken: never more than the capacity.
    size_t InFlight() const {
        std::lock_guard lock(mutex_);
        return static_cast<size_t>(claimed_ - taken_);
    }

private:
    struct Slot {
        std::optional<T> item;
    };

    mutable std::mutex mutex_;
    std::condition_variable roomy_;  // producers: the window moved
    std::condition_variable ready_;  // the consumer: an item arrived
    std::vector<Slot> slots_;
    const uint64_t count_;
    uint64_t claimed_ = 0;
    uint64_t taken_ = 0;
    bool closed_ = false;
};

}  // namespace tessaly::cli
