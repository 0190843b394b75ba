// The one enumerator behind IEnumVARIANT, IEnumConnections and IEnumConnectionPoints: a
// copy that fails hands out nothing, clones share the snapshot and keep the position, the
// snapshot's references go with the last enumerator, and threads sharing one enumerator
// see every element exactly once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

#include "TestWidget.h"
#include "com/core/CLuxEnumVariant.h"
#include "platform/EnumConnectionPoints.h"
#include "platform/EnumConnections.h"

namespace tessaly::test {
namespace {

using SnapshotEnumeratorTest = WidgetTest;

// Elements that count the copies handed out and refuse to copy when marked.
struct CountedElements {
    struct Element {
        LONG value;
        bool refuses = false;
    };
    using Item = VARIANT;
    static inline std::atomic<int> outstanding{0};

    static void Init(Item& item) noexcept { VariantInit(&item); }
    static HRESULT Copy(const Element& element, Item& item) noexcept {
        if (element.refuses) return E_OUTOFMEMORY;
        item.vt = VT_I4;
        item.lVal = element.value;
        ++outstanding;
        return S_OK;
    }
    static void Clear(Item& item) noexcept {
        if (item.vt != VT_EMPTY) --outstanding;
        VariantInit(&item);
    }
};
using CountedEnumerator = SnapshotEnumerator<IEnumVARIANT, CountedElements>;

// An object that only counts its references; lives on the test's stack.
class CountingUnknown final : public IUnknown {
public:
    HRESULT QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++refs; }
    ULONG Release() override { return --refs; }
    std::atomic<ULONG> refs{1};
};

// A connection point that only counts its references.
class CountingPoint final : public IConnectionPoint {
public:
    HRESULT QueryInterface(REFIID, void** ppv) override {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    ULONG AddRef() override { return ++refs; }
    ULONG Release() override { return --refs; }
    HRESULT GetConnectionInterface(IID*) override { return E_NOTIMPL; }
    HRESULT GetConnectionPointContainer(IConnectionPointContainer**) override { return E_NOTIMPL; }
    HRESULT Advise(IUnknown*, DWORD*) override { return E_NOTIMPL; }
    HRESULT Unadvise(DWORD) override { return E_NOTIMPL; }
    HRESULT EnumConnections(IEnumConnections**) override { return E_NOTIMPL; }
    std::atomic<ULONG> refs{1};
};

TEST_F(SnapshotEnumeratorTest, ACopyThatFailsHandsOutNothingAndKeepsThePosition) {
    Ref<IEnumVARIANT> items(CountedEnumerator::New({{1}, {2}, {3, true}, {4}}));
    ASSERT_TRUE(items);
    VARIANT out[4];
    ULONG fetched = 99;
    ASSERT_EQ(items->Next(1, out, &fetched), S_OK);
    EXPECT_EQ(out[0].lVal, 1);
    CountedElements::Clear(out[0]);

    for (VARIANT& slot : out) slot.vt = VT_R8;  // garbage the enumerator must overwrite
    EXPECT_EQ(items->Next(3, out, &fetched), E_OUTOFMEMORY);
    EXPECT_EQ(fetched, 0u);
    EXPECT_EQ(CountedElements::outstanding, 0) << "the copy of 2 was given back";
    for (ULONG i = 0; i < 3; ++i) EXPECT_EQ(out[i].vt, VT_EMPTY) << i;
    EXPECT_EQ(out[3].vt, VT_R8) << "slots beyond the count are not the enumerator's";

    // The position stayed after 1: the same failure again, and past it the rest.
    EXPECT_EQ(items->Next(2, out, &fetched), E_OUTOFMEMORY);
    ASSERT_EQ(items->Next(1, out, nullptr), S_OK);
    EXPECT_EQ(out[0].lVal, 2);
    CountedElements::Clear(out[0]);
    ASSERT_EQ(items->Skip(1), S_OK);
    ASSERT_EQ(items->Next(3, out, &fetched), S_FALSE);
    EXPECT_EQ(fetched, 1u);
    EXPECT_EQ(out[0].lVal, 4);
    EXPECT_EQ(out[1].vt, VT_EMPTY) << "the slots not filled are empty";
    EXPECT_EQ(out[2].vt, VT_EMPTY);
    CountedElements::Clear(out[0]);
    EXPECT_EQ(CountedElements::outstanding, 0);

    EXPECT_EQ(items->Next(0, nullptr, nullptr), S_OK) << "nothing asked, nothing to check";
    EXPECT_EQ(items->Next(1, nullptr, nullptr), E_POINTER);
    EXPECT_EQ(items->Clone(nullptr), E_POINTER);
}

TEST_F(SnapshotEnumeratorTest, ClonesShareTheSnapshotKeepThePositionAndReleaseWithTheLast) {
    CountingUnknown sink;
    CountingPoint point;
    {
        Ref<IEnumConnections> connections(EnumConnections::Create(
            std::vector<CONNECTDATA>{{&sink, 7}, {&sink, 8}, {&sink, 9}}, size_t{0}));
        ASSERT_TRUE(connections);
        EXPECT_EQ(sink.refs, 4u) << "the snapshot holds each connection's sink";
        CONNECTDATA data{};
        ASSERT_EQ(connections->Next(1, &data, nullptr), S_OK);
        EXPECT_EQ(data.dwCookie, 7u);
        data.pUnk->Release();

        Ref<IEnumConnections> clone;
        ASSERT_EQ(connections->Clone(clone.out()), S_OK);
        EXPECT_EQ(sink.refs, 4u) << "a clone shares the snapshot: no reference is added";
        connections.Reset();
        EXPECT_EQ(sink.refs, 4u) << "the clone keeps the snapshot alive";
        ASSERT_EQ(clone->Next(1, &data, nullptr), S_OK);
        EXPECT_EQ(data.dwCookie, 8u) << "the clone goes on from where it was made";
        data.pUnk->Release();
        Ref<IEnumConnections> second;
        ASSERT_EQ(clone->Clone(second.out()), S_OK);
        clone.Reset();
        EXPECT_EQ(second->Skip(2), S_FALSE);
        ASSERT_EQ(second->Reset(), S_OK);
        ASSERT_EQ(second->Next(1, &data, nullptr), S_OK);
        EXPECT_EQ(data.dwCookie, 7u);
        data.pUnk->Release();
    }
    EXPECT_EQ(sink.refs, 1u) << "the last enumerator released the snapshot";

    // A position beyond the end is the end.
    IConnectionPoint* asPoint = &point;
    Ref<IEnumConnectionPoints> points(EnumConnectionPoints::Create(std::vector<IConnectionPoint*>{asPoint}, size_t{5}));
    IConnectionPoint* fetched = nullptr;
    ULONG count = 99;
    EXPECT_EQ(points->Next(1, &fetched, &count), S_FALSE);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(fetched, nullptr);
    ASSERT_EQ(points->Reset(), S_OK);
    ASSERT_EQ(points->Next(1, &fetched, &count), S_OK);
    EXPECT_EQ(fetched, asPoint);
    EXPECT_EQ(point.refs, 3u) << "one for the snapshot, one for the caller";
    fetched->Release();
    points.Reset();
    EXPECT_EQ(point.refs, 1u);
}

TEST_F(SnapshotEnumeratorTest, ThreadsSharingOneEnumeratorSeeEachElementOnce) {
    constexpr LONG kCount = 4000;
    core::CLuxEnumVariant::Items values;
    for (LONG i = 0; i < kCount; ++i) values.emplace_back(i);
    Ref<IEnumVARIANT> items(core::CLuxEnumVariant::New(std::move(values)));
    ASSERT_TRUE(items);

    std::mutex seenMutex;
    std::vector<LONG> seen;
    std::atomic<int> badClones{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::vector<LONG> mine;
            VARIANT batch[3];
            ULONG fetched = 0;
            HRESULT hr = S_OK;
            while ((hr = items->Next(t % 2 ? 3 : 1, batch, &fetched)) == S_OK || fetched > 0) {
                for (ULONG i = 0; i < fetched; ++i) mine.push_back(batch[i].lVal);
                // A clone made meanwhile starts at some position of the same snapshot.
                IEnumVARIANT* clone = nullptr;
                if (items->Clone(&clone) != S_OK) {
                    ++badClones;
                } else {
                    VARIANT next;
                    if (FAILED(clone->Next(1, &next, nullptr))) ++badClones;
                    VariantClear(&next);
                    clone->Release();
                }
                if (hr == S_FALSE) break;
            }
            std::lock_guard lock(seenMutex);
            seen.insert(seen.end(), mine.begin(), mine.end());
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(badClones, 0);
    std::sort(seen.begin(), seen.end());
    ASSERT_EQ(seen.size(), static_cast<size_t>(kCount));
    for (LONG i = 0; i < kCount; ++i) ASSERT_EQ(seen[i], i);
}

}  // namespace
}  // namespace tessaly::test
