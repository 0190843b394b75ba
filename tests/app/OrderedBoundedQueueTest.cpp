// The queue between `tessaly run`'s decoders and the thread that runs the tool: items come
// out in their numbers' order whatever order the producers finish in, never more than the
// capacity are held, and closing wakes everyone.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "OrderedBoundedQueue.h"

namespace tessaly::cli {
namespace {

TEST(OrderedBoundedQueueTest, ManyProducersFinishingOutOfOrderDeliverInOrderWithinTheCapacity) {
    constexpr uint64_t kCount = 2000;
    constexpr size_t kCapacity = 3;
    OrderedBoundedQueue<uint64_t> queue(kCapacity, kCount);
    std::atomic<size_t> mostInFlight{0};
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p)
        producers.emplace_back([&, p] {
            std::minstd_rand random(p + 1);
            while (const auto ticket = queue.Claim()) {
                const size_t inFlight = queue.InFlight();
                for (size_t seen = mostInFlight; inFlight > seen && !mostInFlight.compare_exchange_weak(seen, inFlight);) {
                }
                if (random() % 8 == 0) std::this_thread::sleep_for(std::chrono::microseconds(random() % 200));
                queue.Put(*ticket, *ticket * 7);
            }
        });
    uint64_t expected = 0;
    while (const auto item = queue.Take()) {
        ASSERT_EQ(*item, expected * 7);
        ++expected;
        if (expected % 97 == 0) std::this_thread::sleep_for(std::chrono::microseconds(300));  // a slow consumer
    }
    for (std::thread& producer : producers) producer.join();
    EXPECT_EQ(expected, kCount);
    EXPECT_LE(mostInFlight.load(), kCapacity);
    EXPECT_EQ(mostInFlight.load(), kCapacity);  // the producers did run ahead as far as allowed
    EXPECT_FALSE(queue.Claim());
    EXPECT_FALSE(queue.Take());
}

TEST(OrderedBoundedQueueTest, ClaimWaitsForRoomAndTakeForTheNextNumberNotAnyNumber) {
    OrderedBoundedQueue<int> queue(2, 5);
    ASSERT_EQ(queue.Claim(), 0u);
    ASSERT_EQ(queue.Claim(), 1u);
    std::atomic<bool> claimedThird{false};
    std::thread producer([&] {
        const auto ticket = queue.Claim();  // waits: 0 and 1 fill the window
        claimedThird = true;
        EXPECT_EQ(ticket, 2u);
        queue.Put(*ticket, 2);
    });
    queue.Put(1, 1);  // the second is ready before the first
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(claimedThird);
    std::atomic<bool> tookFirst{false};
    std::thread consumer([&] {
        const auto first = queue.Take();  // waits for number 0, though 1 is there
        tookFirst = true;
        EXPECT_EQ(first, 0);
        EXPECT_EQ(queue.Take(), 1);
        EXPECT_EQ(queue.Take(), 2);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(tookFirst);
    EXPECT_FALSE(claimedThird);
    queue.Put(0, 0);
    consumer.join();
    producer.join();
    EXPECT_TRUE(claimedThird);
    EXPECT_EQ(queue.InFlight(), 0u);
}

TEST(OrderedBoundedQueueTest, CloseWakesWaitingProducersAndConsumerAndDropsLaterPuts) {
    OrderedBoundedQueue<std::vector<int>> queue(1, 10);
    ASSERT_EQ(queue.Claim(), 0u);
    std::optional<uint64_t> blockedClaim = 99;
    std::optional<std::vector<int>> blockedTake = std::vector<int>{1};
    std::thread producer([&] { blockedClaim = queue.Claim(); });
    std::thread consumer([&] { blockedTake = queue.Take(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    queue.Close();
    producer.join();
    consumer.join();
    EXPECT_FALSE(blockedClaim);
    EXPECT_FALSE(blockedTake);
    queue.Put(0, {1, 2, 3});  // a decoder finishing after the close: ignored
    EXPECT_FALSE(queue.Take());
    EXPECT_FALSE(queue.Claim());
}

TEST(OrderedBoundedQueueTest, RefusesNoRoomAndTicketsNotHandedOut) {
    EXPECT_THROW(OrderedBoundedQueue<int>(0, 3), std::invalid_argument);
    OrderedBoundedQueue<int> queue(2, 3);
    EXPECT_THROW(queue.Put(0, 1), std::logic_error);  // not claimed yet
    ASSERT_EQ(queue.Claim(), 0u);
    queue.Put(0, 5);
    EXPECT_EQ(queue.Take(), 5);
    EXPECT_THROW(queue.Put(0, 6), std::logic_error);  // already taken
    OrderedBoundedQueue<int> empty(4, 0);
    EXPECT_FALSE(empty.Claim());
    EXPECT_FALSE(empty.Take());
}

}  // namespace
}  // namespace tessaly::cli
