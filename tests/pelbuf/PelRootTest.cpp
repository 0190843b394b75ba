// Pel roots: the aligned layout of roots that own their memory, borrowed memory with
// negative pitches, the integrity check, disposables called exactly once (also when the
// last handles go on several threads), conversion roots and sharing through handles.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "xnl/std/except/ccStdError.h"
#include "xnl/std/pelbuf/ccPelBuffer.h"
#include "xnl/std/pelbuf/ccPelRootBorrowed.h"
#include "xnl/std/pelbuf/ccPelRootCvt.h"
#include "xnl/std/pelbuf/ccPelRootDisposable.h"
#include "xnl/std/pelbuf/ccPelRootOwn.h"

namespace {

// The padding rule as written for people: add a pixel until the row's bytes divide.
int32_t PitchByAddingPixels(int32_t width, size_t pelSize, int32_t alignment) {
    int32_t pitch = width;
    while ((static_cast<size_t>(pitch) * pelSize) % static_cast<size_t>(alignment) != 0) ++pitch;
    return pitch;
}

template <class T>
void ExpectAlignedLayout(int32_t width, int32_t height, int32_t alignment) {
    SCOPED_TRACE(testing::Message() << "size " << sizeof(T) << ", " << width << " x " << height << ", alignment "
                                    << alignment);
    ccPelRootPtrh<T> root(new ccPelRootOwn<T>(width, height, alignment));
    EXPECT_EQ(root->Width(), width);
    EXPECT_EQ(root->Height(), height);
    EXPECT_EQ(root->Pitch(), PitchByAddingPixels(width, sizeof(T), alignment));
    EXPECT_EQ(root->RowPitchBytes(), static_cast<ptrdiff_t>(root->Pitch()) * static_cast<ptrdiff_t>(sizeof(T)));
    for (int32_t y = 0; y < height; ++y) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(root->RowPointer(y)) % static_cast<uintptr_t>(alignment), 0u) << y;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(root->RowPointer(y)) % alignof(T), 0u) << y;
        for (int32_t x = 0; x < width; ++x) EXPECT_EQ(root->RowPointer(y)[x], T{}) << x << ", " << y;
    }
    EXPECT_NO_THROW(root->CheckIntegrity());
}

TEST(PelRootOwn, EveryRowStartsOnTheAlignmentWithTheSmallestPadding) {
    for (int32_t width : {0, 1, 5, 31, 32, 33, 100}) {
        ExpectAlignedLayout<uint8_t>(width, 3, 32);
        ExpectAlignedLayout<uint16_t>(width, 3, 32);
        ExpectAlignedLayout<double>(width, 2, 32);
        ExpectAlignedLayout<cc3PlanePel>(width, 2, 32);  // 3 bytes a pixel: pitch a multiple of 32 pixels
        ExpectAlignedLayout<uint8_t>(width, 2, 12);      // an alignment that is no power of two
        ExpectAlignedLayout<double>(width, 2, 12);       // 8-byte pixels, 12-byte rows: pairs of pixels
        ExpectAlignedLayout<int32_t>(width, 2, 1);
    }
    ExpectAlignedLayout<uint8_t>(7, 0, 32);  // no rows at all
    EXPECT_EQ(ccPelRootTemp::PaddedPitch(5, 32), 32);
    EXPECT_EQ(ccPelRoot16Temp::PaddedPitch(17, 32), 32);
}

TEST(PelRootOwn, RefusesBadArgumentsAndSizesBeyondTheAddressSpace) {
    EXPECT_THROW(ccPelRootTemp::PaddedPitch(10, 0), ccStdError::BadArgument);
    EXPECT_THROW(ccPelRootTemp::PaddedPitch(10, -32), ccStdError::BadArgument);
    EXPECT_THROW(ccPelRootTemp::PaddedPitch(-1, 32), ccStdError::OutOfRange);
    EXPECT_THROW(ccPelRootPtrh<uint8_t>(new ccPelRootTemp(4, -1)), ccStdError::OutOfRange);
    // A pitch past 32 bits, and a block past 64 bits: refused before anything is allocated.
    const int32_t big = std::numeric_limits<int32_t>::max();
    EXPECT_THROW(ccPelRootOwn<double>::PaddedPitch(big, 32), std::bad_alloc);
    EXPECT_THROW(ccPelRootPtrh<double>(new ccPelRootOwn<double>(big - 3, big, 32)), std::bad_alloc);
}

TEST(PelRootBorrowed, AddressesRowsByItsPitchAlsoWhenRowsRunUpwards) {
    std::vector<int16_t> memory(4 * 3);
    for (size_t i = 0; i < memory.size(); ++i) memory[i] = static_cast<int16_t>(i);
    // Row 0 is the last row in memory; a width of 3 in rows of 4.
    ccPelRootPtrh<int16_t> upwards(new ccPelRootBorrowed<int16_t>(3, 3, memory.data() + 8, -4));
    EXPECT_EQ(upwards->Pitch(), -4);
    EXPECT_EQ(upwards->RowPitchBytes(), -8);
    EXPECT_EQ(upwards->RowPointer(0)[2], 10);
    EXPECT_EQ(upwards->RowPointer(2)[1], 1);
    EXPECT_NO_THROW(upwards->CheckIntegrity());

    const auto borrow = [](int32_t width, int32_t height, int16_t* row0, int32_t pitch) {
        return ccPelRootPtrh<int16_t>(new ccPelRootBorrowed<int16_t>(width, height, row0, pitch));
    };
    EXPECT_THROW(borrow(5, 2, memory.data(), 4), ccStdError::OutOfRange);
    EXPECT_THROW(borrow(5, 2, memory.data(), -4), ccStdError::OutOfRange);
    EXPECT_THROW(borrow(-1, 2, memory.data(), 4), ccStdError::OutOfRange);
    EXPECT_THROW(borrow(2, 2, nullptr, 4), ccStdError::NullArgument);
    // One row needs no pitch, and a root without pixels needs no memory.
    EXPECT_NO_THROW(borrow(4, 1, memory.data(), 0));
    EXPECT_NO_THROW(borrow(0, 5, nullptr, 0));
}

// A root that owns a block and also claims borrowed memory.
class BothWaysRoot final : public ccPelRootOwn<uint8_t>, public ccPelRootBorrowed<uint8_t> {
public:
    explicit BothWaysRoot(uint8_t* memory) : ccPelRootOwn<uint8_t>(4, 4, 32), ccPelRootBorrowed<uint8_t>(4, 4, memory, 4) {}

private:
    ~BothWaysRoot() override = default;
    void AddMemoryDescription(cc_PelRoot::MemoryDescription& description) const noexcept override {
        ccPelRootOwn<uint8_t>::AddMemoryDescription(description);
        ccPelRootBorrowed<uint8_t>::AddMemoryDescription(description);
    }
    void CheckIntegrity() const override { ccPelRootOwn<uint8_t>::CheckIntegrity(); }
};

// A root that says nothing of its memory.
class NoMemoryRoot final : public ccPelRoot<uint8_t> {
private:
    ~NoMemoryRoot() override = default;
};

TEST(PelRootIntegrity, ARootMustDescribeItsMemoryInExactlyOneWay) {
    uint8_t memory[16] = {};
    ccPtrHandle<cc_PelRoot> both(new BothWaysRoot(memory));
    EXPECT_EQ(both->DescribeMemory().own + both->DescribeMemory().borrowed, 2);
    EXPECT_THROW(both->CheckIntegrity(), ccPel::Unknown);

    ccPelRootPtrh<uint8_t> neither(new NoMemoryRoot());
    EXPECT_THROW(neither->CheckIntegrity(), ccPel::Unknown);
    // A buffer refuses to bind to it, and stays unbound.
    ccPelBuffer<uint8_t> buffer;
    EXPECT_THROW(buffer.SetRoot(neither), ccPel::Unknown);
    EXPECT_FALSE(buffer.IsBound());
    EXPECT_THROW(ccPelBuffer<uint8_t>{neither}, ccPel::Unknown);
}

// Counts Dispose calls; the memory it guards is freed by the call.
struct DisposeCounter {
    std::atomic<int> calls{0};
    std::unique_ptr<ccPelDisposable> Make(std::unique_ptr<uint8_t[]> memory) {
        return ccMakePelDisposable([this, m = std::move(memory)]() mutable {
            m.reset();
            calls.fetch_add(1);
        });
    }
};

TEST(PelRootDisposable, DisposesOnceWhenTheLastHandleGoesAndNeverForRefusedMemory) {
    DisposeCounter counter;
    auto memory = std::make_unique<uint8_t[]>(6 * 2);
    uint8_t* row0 = memory.get();
    ccPelRootPtrh<uint8_t> root(new ccPelRootDisposable<uint8_t>(6, 2, row0, 6, counter.Make(std::move(memory))));
    {
        ccPelBuffer<uint8_t> buffer(root);
        ccPelRootPtrh_const<uint8_t> reader = root;
        root.Reset();
        buffer.Set(5, 1, 9);  // the buffer alone keeps the memory alive
        EXPECT_EQ(reader->RowPointer(1)[5], 9);
        EXPECT_EQ(counter.calls.load(), 0);
    }
    EXPECT_EQ(counter.calls.load(), 1);

    // Refused memory: the caller still owns it, Dispose is not called.
    DisposeCounter refused;
    EXPECT_THROW(ccPelRootPtrh<uint8_t>(new ccPelRootDisposable<uint8_t>(6, 2, nullptr, 6,
                                                                          refused.Make(std::make_unique<uint8_t[]>(1)))),
                 ccStdError::NullArgument);
    EXPECT_EQ(refused.calls.load(), 0);
}

TEST(PelRootDisposable, HandlesDroppedOnManyThreadsDisposeExactlyOnce) {
    constexpr int kThreads = 8;
    for (int round = 0; round < 20; ++round) {
        DisposeCounter counter;
        auto memory = std::make_unique<uint8_t[]>(16);
        uint8_t* row0 = memory.get();
        ccPelRootPtrh<uint8_t> root(new ccPelRootDisposable<uint8_t>(4, 4, row0, 4, counter.Make(std::move(memory))));
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([held = root, &go, t]() mutable {
                while (!go.load()) std::this_thread::yield();
                for (int i = 0; i < 500; ++i) {
                    ccPelBuffer<uint8_t> copy(held);
                    ccPelRootPtrh_const<uint8_t> reader = held;
                    copy.Set(t % 4, t / 4, static_cast<uint8_t>(i));
                }
                held.Reset();
            });
        }
        root.Reset();
        EXPECT_EQ(counter.calls.load(), 0);
        go.store(true);
        for (auto& thread : threads) thread.join();
        EXPECT_EQ(counter.calls.load(), 1) << "round " << round;
    }
}

TEST(PelRootCvt, ConvertsWithRoundingAndClampingAndAgainOnUpdate) {
    EXPECT_EQ(ccConvertPel<uint8_t>(-3.7), 0);
    EXPECT_EQ(ccConvertPel<uint8_t>(2.5), 3);
    EXPECT_EQ(ccConvertPel<uint8_t>(1e300), 255);
    EXPECT_EQ(ccConvertPel<uint8_t>(std::nan("")), 0);
    EXPECT_EQ(ccConvertPel<int16_t>(-2.5), -3);
    EXPECT_EQ(ccConvertPel<int16_t>(uint32_t{4000000000u}), 32767);
    EXPECT_EQ(ccConvertPel<uint16_t>(int16_t{-5}), 0);
    EXPECT_EQ(ccConvertPel<uint32_t>(5e9), std::numeric_limits<uint32_t>::max());
    EXPECT_EQ(ccConvertPel<double>(uint32_t{4000000000u}), 4e9);

    ccPelBuffer<int16_t> source(3, 2);
    source.Set(0, 0, -7);
    source.Set(2, 1, 300);
    ccPelRootPtrh_const<int16_t> sourceRoot = source.Root();
    ccPtrHandle<ccPelRootCvt<uint8_t>> converted(new ccPelRootCvt<uint8_t>(sourceRoot));
    EXPECT_EQ(sourceRoot.RefCount(), 4u);  // here, in the buffer, and twice in the conversion root
    EXPECT_EQ(converted->Height(), 2);
    EXPECT_EQ(converted->RowPointer(0)[0], 0);
    EXPECT_EQ(converted->RowPointer(1)[2], 255);
    EXPECT_EQ(converted->Source(), sourceRoot);

    source.Set(2, 1, 42);
    EXPECT_EQ(converted->RowPointer(1)[2], 255);  // a snapshot until updated
    converted->Update();
    EXPECT_EQ(converted->RowPointer(1)[2], 42);
    converted.Reset();
    EXPECT_EQ(sourceRoot.RefCount(), 2u);
    EXPECT_THROW(ccPtrHandle<ccPelRootCvt<double>>(new ccPelRootCvt<double>(ccPelRootPtrh_const<int8_t>())),
                 ccPel::UnboundWindow);
}

TEST(PelRootSharing, HandlesAndBufferCopiesShareOneBlockOfPixels) {
    ccPelRootPtrh<uint16_t> root(new ccPelRoot16Temp(8, 4, 32));
    ccPelBuffer<uint16_t> first(root);
    const ccPelBuffer<uint16_t> second = first;  // no pixel copied
    const ccPelBuffer_const<uint16_t> reader = second;
    EXPECT_EQ(root.RefCount(), 4u);
    EXPECT_EQ(reader.Root()->Row0(), root->Row0());
    second.Set(7, 3, 0xBEEF);
    EXPECT_EQ(first.Get(7, 3), 0xBEEF);
    EXPECT_EQ(reader.Get(7, 3), 0xBEEF);
    first = {};
    EXPECT_EQ(root.RefCount(), 3u);
}

}  // namespace
