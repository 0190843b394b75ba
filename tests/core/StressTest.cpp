// Four threads on shared objects for a few seconds: properties set, delivery suspended and
// resumed, collection items added and removed, with sinks that call back in; and threads
// saving graphs that share objects in opposite orders while another changes them. The runs
// must end without deadlock, with counts that add up and nothing left alive. This suite is
// also what the thread-sanitizer build runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "com/core/ObjectPersistence.h"
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

// Two roots hold the same two collections in opposite orders, and those two hold each
// other (and a leaf each): a saver that kept an object's lock while it saved the objects
// inside would, on two threads, take the two shared locks in opposite orders and deadlock.
TEST(StressTest, SavingGraphsThatShareObjectsInOppositeOrdersNeverDeadlocks) {
    const LONG live = Module::LiveObjectCount();
    {
        const auto make = [] {
            ComPtr<ILuxCollection> collection;
            EXPECT_EQ(CreateObject("Tessaly.LuxCollection", ILuxCollection::iid, collection.OutVoid()), S_OK);
            return collection;
        };
        const auto add = [](ILuxCollection* to, ILuxCollection* item) {
            EXPECT_EQ(to->Add(Variant(static_cast<IDispatch*>(item)).get(), nullptr, luxNoIndex), S_OK);
        };
        auto first = make(), second = make(), firstLeaf = make(), secondLeaf = make();
        auto left = make(), right = make();
        add(first.get(), firstLeaf.get());
        add(first.get(), second.get());
        add(second.get(), secondLeaf.get());
        add(second.get(), first.get());
        add(left.get(), first.get());
        add(left.get(), second.get());
        add(right.get(), second.get());
        add(right.get(), first.get());

        std::atomic<int64_t> saves{0};
        std::atomic<int64_t> failures{0};
        std::vector<uint8_t> lastSaved[2];
        const auto deadline = std::chrono::steady_clock::now() + kDuration;
        auto run = std::async(std::launch::async, [&] {
            std::vector<std::thread> threads;
            for (int t = 0; t < 2; ++t) {
                threads.emplace_back([&, t] {
                    IDispatch* root = t == 0 ? left.get() : right.get();
                    for (int step = 0; std::chrono::steady_clock::now() < deadline; ++step) {
                        std::vector<uint8_t> bytes;
                        const int32_t format = step % 2 ? luxPersistFormatXML : luxPersistFormatBinary;
                        if (SUCCEEDED(SaveObjectToBytes(root, format, luxPersistOptionAll, &bytes)) && !bytes.empty())
                            ++saves;
                        else
                            ++failures;
                        if (format == luxPersistFormatBinary) lastSaved[t] = std::move(bytes);
                    }
                });
            }
            // The leaves change while they are saved.
            threads.emplace_back([&] {
                for (int32_t step = 0; std::chrono::steady_clock::now() < deadline; ++step) {
                    ILuxCollection* leaf = step % 2 ? firstLeaf.get() : secondLeaf.get();
                    if (FAILED(leaf->Add(Variant(step).get(), nullptr, luxNoIndex))) ++failures;
                    LONG count = 0;
                    if (SUCCEEDED(leaf->get_Count(&count)) && count > 8 && FAILED(leaf->Remove(Variant(int32_t{0}).get())))
                        ++failures;
                }
            });
            for (std::thread& thread : threads) thread.join();
        });
        // A deadlock never ends: stop the program with a message rather than hang the suite.
        if (run.wait_for(kDuration + std::chrono::seconds(60)) != std::future_status::ready) {
            std::fprintf(stderr, "StressTest: the savers are still running a minute after the end: deadlock\n");
            std::abort();
        }
        run.get();
        EXPECT_EQ(failures.load(), 0);
        EXPECT_GT(saves.load(), 2);

        // What was saved last loads back as the same shape: two collections that hold each other.
        for (const std::vector<uint8_t>& bytes : lastSaved) {
            ASSERT_FALSE(bytes.empty());
            IDispatch* raw = nullptr;
            ASSERT_EQ(LoadObjectFromBytes(bytes, luxPersistFormatBinary, &raw), S_OK);
            auto root = ComPtr<IDispatch>::Attach(raw);
            ComPtr<ILuxCollection> loaded;
            ASSERT_EQ(root->QueryInterface(ILuxCollection::iid, loaded.OutVoid()), S_OK);
            LONG count = 0;
            EXPECT_EQ(loaded->get_Count(&count), S_OK);
            EXPECT_EQ(count, 2);
            Variant outer, inner;
            ASSERT_EQ(loaded->get_Item(Variant(0).get(), outer.ptr()), S_OK);
            ComPtr<ILuxCollection> shared;
            ASSERT_EQ(outer.get().pdispVal->QueryInterface(ILuxCollection::iid, shared.OutVoid()), S_OK);
            ASSERT_EQ(shared->get_Item(Variant(1).get(), inner.ptr()), S_OK);
            Variant back;
            ASSERT_EQ(loaded->get_Item(Variant(1).get(), back.ptr()), S_OK);
            EXPECT_EQ(inner.get().pdispVal, back.get().pdispVal) << "the shared collections stay shared";
            EXPECT_EQ(ClearObjectGraph(root.get()), S_OK);
        }
        // The originals hold each other too.
        EXPECT_EQ(ClearObjectGraph(left.get()), S_OK);
    }
    EXPECT_EQ(Module::LiveObjectCount(), live);
}

}  // namespace
}  // namespace tessaly::test
