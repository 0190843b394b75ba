// A child firing Change on one thread while, on others, containers take it in, let it go,
// and die: nothing crashes, nothing leaks, and a container that holds the child throughout
// hears every change. ThreadSanitizer runs this in CI.
#include <atomic>
#include <thread>
#include <vector>

#include "CollectionFixture.h"

namespace tessaly::test {
namespace {

class ChildEventStressTest : public CollectionFixture {};

TEST_F(ChildEventStressTest, ContainersComeAndGoWhileTheirChildFires) {
    constexpr int kChanges = 3000;
    constexpr int kRounds = 600;
    auto child = NewCollection();
    auto steady = NewCollection();  // holds the child from start to end
    ASSERT_EQ(Add(steady.get(), Variant(static_cast<IDispatch*>(child.get()))), S_OK);
    std::atomic<int> heard{0};
    auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
        luxChange_Change, [&](std::span<const VARIANT> args) { heard += args[0].lVal == luxState_SubObjectEvent; },
        DIID_ILuxCollectionEvents));
    DWORD cookie = 0;
    ASSERT_EQ(Advise(steady.get(), DIID_ILuxCollectionEvents, sink.get(), &cookie), S_OK);

    std::atomic<bool> failed{false};
    std::thread firing([&] {
        for (int i = 0; i < kChanges; ++i)
            if (FAILED(child.As<ILuxObject>()->put_Tag(Variant(i).get()))) failed = true;
    });
    // Containers with a listener that take the child in and die holding it.
    std::thread dying([&] {
        for (int i = 0; i < kRounds; ++i) {
            auto container = NewCollection();
            auto listener = ComPtr<IDispatch>::Attach(
                MakeEventSink(luxChange_Change, [](std::span<const VARIANT>) {}, DIID_ILuxCollectionEvents));
            DWORD unused = 0;
            if (FAILED(Advise(container.get(), DIID_ILuxCollectionEvents, listener.get(), &unused))) failed = true;
            if (FAILED(Add(container.get(), Variant(static_cast<IDispatch*>(child.get()))))) failed = true;
            std::this_thread::yield();
        }
    });
    // One container that takes the child in and lets it go, by removal, replacement and clearing.
    std::thread churning([&] {
        auto container = NewCollection();
        for (int i = 0; i < kRounds; ++i) {
            const Variant held(static_cast<IDispatch*>(child.get()));
            if (FAILED(Add(container.get(), held, "c"))) failed = true;
            switch (i % 3) {
                case 0: failed = failed || FAILED(container->Remove(Variant("c").get())); break;
                case 1: failed = failed || FAILED(container->put_Item(Variant("c").get(), Variant(i).get()));
                        failed = failed || FAILED(container->Clear()); break;
                default: failed = failed || FAILED(container->Clear()); break;
            }
        }
    });
    firing.join();
    dying.join();
    churning.join();
    EXPECT_FALSE(failed);
    EXPECT_EQ(heard.load(), kChanges);
    ASSERT_EQ(Unadvise(steady.get(), DIID_ILuxCollectionEvents, cookie), S_OK);
}

}  // namespace
}  // namespace tessaly::test
