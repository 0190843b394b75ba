// Four threads on shared objects for a few seconds: properties set, delivery suspended and
// resumed, collection items added and removed, with sinks that call back in. The run must
// end without deadlock, with counts that add up and nothing left alive. This suite is
// also what the thread-sanitizer build runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/EventSink.h"
#include "support/TestPoint.h"

namespace tessaly::test {
namespace {

constexpr int kThreads = 4;
constexpr auto kDuration = std::chrono::seconds(2);

TEST(StressTest, SharedObjectsStayConsistentUnderFourThreads) {
    const LONG live = Module::LiveObjectCount();
    {
        auto point = ComPtr<TestPoint>::Attach(TestPoint::Create());
        ComPtr<ILuxCollection> collection;
        ASSERT_EQ(CreateObject("Tessaly.LuxCollection", ILuxCollection::iid, collection.OutVoid()), S_OK);

        std::atomic<int64_t> changes{0};
        std::atomic<int64_t> addedEvents{0};
        std::atomic<int64_t> removedEvents{0};
        // The point's sink reads the point back; the collection's reads the count back.
        auto pointSink = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [&](std::span<const VARIANT>) {
                double x = 0;
                point->get_X(&x);
                ++changes;
            },
            DIID_ILuxChangeEvent));
        auto collectionSink = ComPtr<IDispatch>::Attach(MakeEventSink(
            [&](DISPID dispid, DISPPARAMS*) {
                LONG count = 0;
                collection->get_Count(&count);
                if (dispid == luxCollection_ItemAdded) ++addedEvents;
                if (dispid == luxCollection_ItemRemoved) ++removedEvents;
            },
            DIID_ILuxCollectionEvents));
        DWORD pointCookie = 0;
        DWORD collectionCookie = 0;
        ASSERT_EQ(Advise(point->GetUnknown(), DIID_ILuxChangeEvent, pointSink.get(), &pointCookie), S_OK);
        ASSERT_EQ(Advise(collection.get(), DIID_ILuxCollectionEvents, collectionSink.get(), &collectionCookie), S_OK);

        std::atomic<int64_t> added{0};
        std::atomic<int64_t> removed{0};
        std::atomic<int64_t> unexpectedFailures{0};
        const auto deadline = std::chrono::steady_clock::now() + kDuration;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                std::mt19937 random(static_cast<unsigned>(t));
                int step = 0;
                while (std::chrono::steady_clock::now() < deadline) {
                    ++step;
                    switch (random() % 4) {
                        case 0:
                            if (FAILED(point->put_X(random() % 1000))) ++unexpectedFailures;
                            break;
                        case 1: {
                            // A suspension always ends in a resume, so the count returns to 0.
                            if (FAILED(point->SuspendEventDelivery())) ++unexpectedFailures;
                            point->put_Y(step);
                            point->put_Tag(Variant(int32_t{step}).get());
                            if (FAILED(point->ResumeAndFireEvent())) ++unexpectedFailures;
                            break;
                        }
                        case 2: {
                            const Bstr key("t" + std::to_string(t) + "-" + std::to_string(step));
                            if (SUCCEEDED(collection->Add(Variant(int32_t{step}).get(), key.get(), luxNoIndex)))
                                ++added;
                            else
                                ++unexpectedFailures;
                            break;
                        }
                        default: {
                            // Another thread may have emptied it meanwhile: then the index is refused.
                            const HRESULT hr = collection->Remove(Variant(int32_t{0}).get());
                            if (SUCCEEDED(hr))
                                ++removed;
                            else if (hr != static_cast<HRESULT>(e_LuxCollection_InvalidIndex))
                                ++unexpectedFailures;
                            break;
                        }
                    }
                }
            });
        }
        for (std::thread& thread : threads) thread.join();

        EXPECT_EQ(unexpectedFailures.load(), 0);
        LONG count = -1;
        ASSERT_EQ(collection->get_Count(&count), S_OK);
        EXPECT_EQ(count, added - removed);
        EXPECT_EQ(addedEvents.load(), added.load()) << "one ItemAdded per add";
        EXPECT_EQ(removedEvents.load(), removed.load()) << "one ItemRemoved per removal";
        EXPECT_GT(changes.load(), 0);
        LONG suspended = -1;
        ASSERT_EQ(point->get_EventDeliverySuspended(&suspended), S_OK);
        EXPECT_EQ(suspended, 0);
        // Every key is still unique and found where it is.
        for (LONG i = 0; i < count; ++i) {
            Bstr key;
            ASSERT_EQ(collection->get_Key(i, key.Out()), S_OK);
            LONG found = luxNoIndex;
            ASSERT_EQ(collection->FindKey(key.get(), &found), S_OK);
            EXPECT_EQ(found, i);
        }

        EXPECT_EQ(Unadvise(point->GetUnknown(), DIID_ILuxChangeEvent, pointCookie), S_OK);
        EXPECT_EQ(Unadvise(collection.get(), DIID_ILuxCollectionEvents, collectionCookie), S_OK);
    }
    EXPECT_EQ(Module::LiveObjectCount(), live);
}

}  // namespace
}  // namespace tessaly::test
