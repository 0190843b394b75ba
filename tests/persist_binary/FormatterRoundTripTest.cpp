// LuxBinaryFormatter through its interface, as a client saves and loads: every VARIANT type
// and array shape comes back exactly, shared objects stay shared, cycles load, stream-
// persisted objects keep their bytes, loading into an existing object, the stream left
// just after the archive, and the refusals of bad arguments.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "BinaryFixture.h"
#include "com/core/CLuxBinaryFormatter.h"
#include "persist/ccArchive.h"
#include "platform/ErrorInfo.h"

namespace tessaly::test {
namespace {

class FormatterRoundTripTest : public BinaryFixture {};

// A memory stream that records the size of every Read and Write it serves, and fails
// the calls a test switches off.
class CountingStream final : public UnknownObject<CountingStream, IStream> {
public:
    CountingStream() { MemoryStream::Create(inner_.Out()); }
    std::vector<ULONG> reads;
    std::vector<ULONG> writes;
    bool failReads = false;
    bool failWrites = false;
    bool shortWrites = false;
    bool failSeeks = false;

    HRESULT Read(void* pv, ULONG cb, ULONG* read) override {
        reads.push_back(cb);
        if (failReads) return Fail(STG_E_READFAULT, "the disk is gone");
        return inner_->Read(pv, cb, read);
    }
    HRESULT Write(const void* pv, ULONG cb, ULONG* written) override {
        writes.push_back(cb);
        if (failWrites) return Fail(STG_E_MEDIUMFULL, "the disk is full");
        return inner_->Write(pv, shortWrites && cb > 1 ? cb - 1 : cb, written);
    }
    HRESULT Seek(LONGLONG move, DWORD origin, ULONGLONG* position) override {
        if (failSeeks) return STG_E_INVALIDFUNCTION;
        return inner_->Seek(move, origin, position);
    }
    HRESULT SetSize(ULONGLONG size) override { return inner_->SetSize(size); }
    HRESULT CopyTo(IStream* to, ULONGLONG cb, ULONGLONG* read, ULONGLONG* written) override {
        return inner_->CopyTo(to, cb, read, written);
    }
    HRESULT Commit(DWORD flags) override { return inner_->Commit(flags); }
    HRESULT Revert() override { return inner_->Revert(); }
    HRESULT LockRegion(ULONGLONG, ULONGLONG, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT UnlockRegion(ULONGLONG, ULONGLONG, DWORD) override { return STG_E_INVALIDFUNCTION; }
    HRESULT Stat(STATSTG* stat, DWORD flags) override { return inner_->Stat(stat, flags); }
    HRESULT Clone(IStream**) override { return E_NOTIMPL; }

private:
    ~CountingStream() override = default;
    static HRESULT Fail(HRESULT hr, const char* text) {
        ComPtr<ICreateErrorInfo> info;
        CreateErrorInfo(info.Out());
        info->SetDescription(const_cast<char*>(text));
        SetErrorInfo(0, info.As<IErrorInfo>().get());
        return hr;
    }
    ComPtr<IStream> inner_;
};

VARIANT Raw(VARTYPE vt, uint64_t bits) {
    VARIANT value;
    VariantInit(&value);
    value.vt = vt;
    value.ullVal = bits;
    return value;
}

// One value of each scalar type, at or near its limits.
std::vector<Variant> EveryScalar() {
    std::vector<Variant> values;
    values.push_back(Variant());
    values.push_back(Variant(Raw(VT_NULL, 0)));
    values.push_back(Variant(Raw(VT_I1, 0x80)));
    values.push_back(Variant(Raw(VT_UI1, 0xFF)));
    values.push_back(Variant(Raw(VT_I2, 0x8000)));
    values.push_back(Variant(Raw(VT_UI2, 0xFFFF)));
    values.push_back(Variant(Raw(VT_I4, 0x80000000u)));
    values.push_back(Variant(Raw(VT_UI4, 0xFFFFFFFFu)));
    values.push_back(Variant(Raw(VT_INT, 0x7FFFFFFFu)));
    values.push_back(Variant(Raw(VT_UINT, 0x80000001u)));
    values.push_back(Variant(Raw(VT_I8, 0x8000000000000000ull)));
    values.push_back(Variant(Raw(VT_UI8, 0xFFFFFFFFFFFFFFFFull)));
    VARIANT real = Raw(VT_R4, 0);
    real.fltVal = -0.0f;
    values.push_back(Variant(real));
    real = Raw(VT_R8, 0);
    real.dblVal = std::numeric_limits<double>::denorm_min();
    values.push_back(Variant(real));
    real.dblVal = -std::numeric_limits<double>::infinity();
    values.push_back(Variant(real));
    real = Raw(VT_R8, 0x7FF8000000000123ull);  // a NaN with a payload: kept bit for bit
    values.push_back(Variant(real));
    VARIANT date = Raw(VT_DATE, 0);
    date.date = 45000.75;
    values.push_back(Variant(date));
    VARIANT money = Raw(VT_CY, 0);
    money.cyVal.int64 = -922337203685477580ll;
    values.push_back(Variant(money));
    values.push_back(Variant(true));
    values.push_back(Variant(false));
    VARIANT error = Raw(VT_ERROR, 0);
    error.scode = E_ACCESSDENIED;
    values.push_back(Variant(error));
    values.push_back(Variant(""));
    values.push_back(Variant(std::string_view("nul\0inside \xE2\x82\xAC", 15)));
    values.push_back(Variant(std::string(6000, 'w')));  // longer than the archive's buffer
    return values;
}

TEST_F(FormatterRoundTripTest, EveryScalarTypeComesBackBitForBitWithItsKey) {
    const std::vector<Variant> values = EveryScalar();
    auto collection = NewCollection();
    for (size_t i = 0; i < values.size(); ++i) Add(collection.get(), values[i].get(), (i % 3 == 1 ? "k" + std::to_string(i) : "").c_str());
    const auto bytes = Save(collection.get());
    EXPECT_TRUE(ccArchive::LooksLikeArchive(bytes));

    const Loaded loaded = Load(bytes);
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    EXPECT_TRUE(loaded.warnings.empty());
    auto back = loaded.object.As<ILuxCollection>();
    ASSERT_TRUE(back);
    EXPECT_NE(static_cast<void*>(back.get()), static_cast<void*>(collection.get()));
    ASSERT_EQ(Count(back.get()), LONG(values.size()));
    for (size_t i = 0; i < values.size(); ++i) {
        EXPECT_TRUE(SameValue(Item(back.get(), LONG(i)).get(), values[i].get())) << "item " << i;
        Bstr key;
        ASSERT_EQ(back->get_Key(LONG(i), key.Out()), S_OK);
        EXPECT_EQ(key.str(), i % 3 == 1 ? "k" + std::to_string(i) : "") << i;
    }
}

TEST_F(FormatterRoundTripTest, ArraysOfEveryElementTypeShapeAndBound) {
    auto collection = NewCollection();
    std::vector<Variant> arrays;
    // Numbers: one dimension with a lower bound of 5, bytes counting up.
    for (VARTYPE vt : {VT_I1, VT_UI1, VT_I2, VT_UI2, VT_BOOL, VT_I4, VT_UI4, VT_INT, VT_UINT, VT_ERROR, VT_R4, VT_I8,
                       VT_UI8, VT_R8, VT_CY, VT_DATE}) {
        Variant array = NewArray(vt, {{7, 5}});
        auto* data = static_cast<uint8_t*>(array.get().parray->pvData);
        std::iota(data, data + 7 * array.get().parray->cbElements, uint8_t(vt * 3));
        arrays.push_back(std::move(array));
    }
    // Three dimensions with negative and positive lower bounds: the left-most index runs fastest.
    Variant cube = NewArray(VT_I4, {{2, -1}, {3, 10}, {4, -100}});
    for (int i = 0; i < 24; ++i) static_cast<int32_t*>(cube.get().parray->pvData)[i] = i * 1000 - 7;
    arrays.push_back(std::move(cube));
    // An empty dimension empties the array but keeps its shape.
    arrays.push_back(NewArray(VT_R8, {{3, 0}, {0, 4}}));
    // A null array.
    VARIANT null;
    VariantInit(&null);
    null.vt = VT_ARRAY | VT_I4;
    arrays.push_back(Variant(null));
    // Strings, null elements among them.
    Variant strings = NewArray(VT_BSTR, {{3, 1}});
    static_cast<BSTR*>(strings.get().parray->pvData)[0] = SysAllocString("first");
    static_cast<BSTR*>(strings.get().parray->pvData)[2] = SysAllocStringLen("a\0b", 3);
    arrays.push_back(std::move(strings));
    // Variants holding scalars, strings and another array.
    Variant variants = NewArray(VT_VARIANT, {{2, 0}, {2, 0}});
    auto* cells = static_cast<VARIANT*>(variants.get().parray->pvData);
    cells[0] = Variant(3.25).Detach();
    cells[1] = Variant("cell").Detach();
    cells[3] = NewArray(VT_UI2, {{2, 0}}).Detach();
    arrays.push_back(std::move(variants));

    for (const Variant& array : arrays) Add(collection.get(), array.get());
    const Loaded loaded = Load(Save(collection.get()));
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    auto back = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(back.get()), LONG(arrays.size()));
    for (size_t i = 0; i < arrays.size(); ++i)
        EXPECT_TRUE(SameValue(Item(back.get(), LONG(i)).get(), arrays[i].get())) << "array " << i;
}

TEST_F(FormatterRoundTripTest, SharedObjectsStaySharedAndCyclesLoad) {
    // root: [p, p, q, array(p, null, q), unknown(q)], q.Marker = root (a cycle), p.Marker = blob
    auto root = NewCollection();
    auto p = NewPoint(1, 2);
    auto q = NewPoint(3, 4);
    auto blob = NewBlob({1, 2, 3});
    ASSERT_EQ(p->put_Marker(Variant(static_cast<IDispatch*>(blob.get())).get()), S_OK);
    ASSERT_EQ(q->putref_Marker(Variant(static_cast<IDispatch*>(root.get())).get()), S_OK);
    Add(root.get(), Variant(static_cast<IDispatch*>(p.get())).get(), "p");
    Add(root.get(), Variant(static_cast<IDispatch*>(p.get())).get());
    Add(root.get(), Variant(static_cast<IDispatch*>(q.get())).get());
    Variant objects = NewArray(VT_DISPATCH, {{3, 0}});
    auto* slots = static_cast<IDispatch**>(objects.get().parray->pvData);
    (slots[0] = p.get())->AddRef();
    (slots[2] = q.get())->AddRef();
    Add(root.get(), objects.get());
    Add(root.get(), Variant(static_cast<IUnknown*>(q.get())).get());

    const auto bytes = Save(root.get());
    // Break the cycle of the saved graph, so that it can go.
    ASSERT_EQ(q->put_Marker(Variant().get()), S_OK);

    Loaded loaded = Load(bytes);
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    auto back = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(back.get()), 5);
    auto p0 = As<ITestPoint>(Item(back.get(), 0));
    auto p1 = As<ITestPoint>(Item(back.get(), 1));
    auto q2 = As<ITestPoint>(Item(back.get(), 2));
    ASSERT_TRUE(p0 && q2);
    EXPECT_EQ(p0, p1) << "one object for both items";
    EXPECT_NE(p0, q2);
    EXPECT_EQ(PointText(p0.get()), PointText(p.get()));
    EXPECT_EQ(PointText(q2.get()), PointText(q.get()));

    const Variant array = Item(back.get(), 3);
    ASSERT_EQ(array.vt(), VT_ARRAY | VT_DISPATCH);
    auto* loadedSlots = static_cast<IDispatch**>(array.get().parray->pvData);
    EXPECT_EQ(As<ITestPoint>(Variant(loadedSlots[0])), p0);
    EXPECT_EQ(loadedSlots[1], nullptr);
    EXPECT_EQ(As<ITestPoint>(Variant(loadedSlots[2])), q2);
    const Variant unknown = Item(back.get(), 4);
    EXPECT_EQ(unknown.vt(), VT_UNKNOWN);
    EXPECT_EQ(As<ITestPoint>(unknown), q2);

    // The cycle: q's marker is the loaded root itself.
    Variant marker;
    ASSERT_EQ(q2->get_Marker(marker.ptr()), S_OK);
    EXPECT_EQ(As<ILuxCollection>(marker), back);
    // p's marker is a blob with the bytes saved.
    ASSERT_EQ(p0->get_Marker(marker.ptr()), S_OK);
    auto loadedBlob = As<IPersistStream>(marker);
    ASSERT_TRUE(loadedBlob);
    EXPECT_EQ(static_cast<TestBlob*>(loadedBlob.get())->bytes, (std::vector<uint8_t>{1, 2, 3}));

    ASSERT_EQ(q2->put_Marker(Variant().get()), S_OK);  // let the loaded graph go too
}

TEST_F(FormatterRoundTripTest, StreamPersistedObjectsKeepTheirBytes) {
    for (size_t size : {size_t(0), size_t(1), size_t(5000), size_t(70000)}) {
        std::vector<uint8_t> content(size);
        std::iota(content.begin(), content.end(), uint8_t(size));
        auto blob = NewBlob(content);
        // As the root ...
        Loaded loaded = Load(Save(blob.get()));
        ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
        auto root = loaded.object.As<IPersistStream>();
        ASSERT_TRUE(root);
        EXPECT_EQ(static_cast<TestBlob*>(root.get())->bytes, content);
        // ... and held twice by a collection, next to a value after it.
        auto collection = NewCollection();
        Add(collection.get(), Variant(static_cast<IDispatch*>(blob.get())).get());
        Add(collection.get(), Variant(static_cast<IDispatch*>(blob.get())).get());
        Add(collection.get(), Variant("after").get());
        loaded = Load(Save(collection.get()));
        ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
        auto back = loaded.object.As<ILuxCollection>();
        auto first = As<IPersistStream>(Item(back.get(), 0));
        ASSERT_TRUE(first);
        EXPECT_EQ(static_cast<TestBlob*>(first.get())->bytes, content);
        EXPECT_EQ(As<IPersistStream>(Item(back.get(), 1)), first);
        EXPECT_TRUE(SameValue(Item(back.get(), 2).get(), Variant("after").get()));
    }
}

TEST_F(FormatterRoundTripTest, LoadingIntoAnExistingObjectReplacesItsState) {
    auto saved = NewCollection();
    Add(saved.get(), Variant(1).get(), "one");
    Add(saved.get(), Variant(static_cast<IDispatch*>(NewPoint(5, 6).get())).get());
    const auto bytes = Save(saved.get());

    auto existing = NewCollection();
    Add(existing.get(), Variant("old").get());
    Add(existing.get(), Variant("older").get());
    Add(existing.get(), Variant("oldest").get());
    const Loaded loaded = Load(bytes, existing.get());
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    EXPECT_EQ(loaded.object.As<ILuxCollection>(), existing) << "the existing object is the root handed back";
    ASSERT_EQ(Count(existing.get()), 2);
    EXPECT_TRUE(SameValue(Item(existing.get(), 0).get(), Variant(1).get()));
    EXPECT_EQ(PointText(As<ITestPoint>(Item(existing.get(), 1)).get()), PointText(NewPoint(5, 6).get()));

    // An existing object of another class is refused and left alone.
    auto point = NewPoint(7, 8);
    const Loaded refused = Load(bytes, point.get());
    EXPECT_EQ(refused.hr, ids_LuxFormatter_CantLoadObject_2);
    EXPECT_EQ(PointText(point.get()), PointText(NewPoint(7, 8).get()));
}

TEST_F(FormatterRoundTripTest, StreamIsLeftJustAfterEachArchive) {
    // Two archives back to back, then other bytes: each load reads exactly its own archive.
    auto first = NewCollection();
    Add(first.get(), Variant("first").get());
    auto second = NewPoint(9, 10);
    ComPtr<IStream> stream;
    ASSERT_EQ(MemoryStream::Create(stream.Out()), S_OK);
    auto formatter = Formatter();
    ASSERT_EQ(formatter->Serialize(stream.get(), first.get(), luxPersistOptionAll, nullptr), S_OK);
    ULONGLONG firstEnd = 0;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &firstEnd), S_OK);
    ASSERT_EQ(formatter->Serialize(stream.get(), second.get(), luxPersistOptionAll, nullptr), S_OK);
    ULONGLONG secondEnd = 0;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &secondEnd), S_OK);
    ASSERT_EQ(stream->Write("tail", 4, nullptr), S_OK);
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);

    Loaded loaded = LoadFrom(stream.get());
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    EXPECT_TRUE(SameValue(Item(loaded.object.As<ILuxCollection>().get(), 0).get(), Variant("first").get()));
    ULONGLONG at = 0;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &at), S_OK);
    EXPECT_EQ(at, firstEnd);

    loaded = LoadFrom(stream.get());
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    EXPECT_EQ(PointText(loaded.object.As<ITestPoint>().get()), PointText(second.get()));
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &at), S_OK);
    EXPECT_EQ(at, secondEnd);
}

TEST_F(FormatterRoundTripTest, BadArgumentsAreRefusedBeforeTheStreamIsTouched) {
    auto formatter = Formatter();
    auto point = NewPoint(1, 1);
    ComPtr<IStream> stream;
    ASSERT_EQ(MemoryStream::Create(stream.Out()), S_OK);
    auto* memory = static_cast<MemoryStream*>(stream.get());

    EXPECT_EQ(formatter->Serialize(nullptr, point.get(), luxPersistOptionAll, nullptr), E_INVALIDARG);
    EXPECT_EQ(formatter->Serialize(stream.get(), nullptr, luxPersistOptionAll, nullptr), E_INVALIDARG);
    for (const char* subFormat : {"LineBreaks", " ", "binary"}) {
        EXPECT_EQ(formatter->Serialize(stream.get(), point.get(), luxPersistOptionAll, Bstr(subFormat).get()), E_INVALIDARG);
        EXPECT_NE(TakeErrorInfo().description.find("SubFormat"), std::string::npos);
    }
    EXPECT_EQ(memory->Size(), 0u);

    ASSERT_EQ(formatter->Serialize(stream.get(), point.get(), luxPersistOptionAll, Bstr("").get()), S_OK);
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    ComPtr<ILuxStringCollection> warnings;
    ComPtr<IDispatch> object;
    EXPECT_EQ(formatter->Deserialize(nullptr, nullptr, luxPersistOptionAll, nullptr, warnings.Out(), object.Out()), E_INVALIDARG);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, luxPersistOptionAll, nullptr, warnings.Out(), nullptr), E_POINTER);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, luxPersistOptionAll, Bstr("LineBreaks").get(), warnings.Out(),
                                     object.Out()),
              E_INVALIDARG);
    EXPECT_FALSE(object);
    ULONGLONG at = 1;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_CUR, &at), S_OK);
    EXPECT_EQ(at, 0u);
    // The warnings are optional for C++ callers.
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, luxPersistOptionAll, nullptr, nullptr, object.Out()), S_OK);
    EXPECT_EQ(PointText(object.As<ITestPoint>().get()), PointText(point.get()));
}

TEST_F(FormatterRoundTripTest, ObjectsThatCannotBeSavedOrMadeAgainAreRefused) {
    // Not persistable: a bare stream among the items, one level down.
    ComPtr<IStream> bare;
    ASSERT_EQ(MemoryStream::Create(bare.Out()), S_OK);
    auto inner = NewCollection();
    Add(inner.get(), Variant(static_cast<IUnknown*>(bare.get())).get());
    auto outer = NewCollection();
    Add(outer.get(), Variant(static_cast<IDispatch*>(inner.get())).get());
    std::vector<uint8_t> bytes;
    EXPECT_EQ(TrySave(outer.get(), bytes), ids_LuxFormatter_NotPersistable);

    // No class ID: saved as such, but nothing can be made from it.
    auto nameless = NewBlob({4});
    nameless->nullClassId = true;
    auto holder = NewCollection();
    Add(holder.get(), Variant(static_cast<IDispatch*>(nameless.get())).get());
    const Loaded loaded = Load(Save(holder.get()));
    EXPECT_EQ(loaded.hr, ids_LuxFormatter_CantCreateObject_1);
    EXPECT_NE(loaded.error.description.find("object with no ProgID"), std::string::npos) << loaded.error.description;

    // A blob whose Load fails.
    auto blob = NewBlob({5});
    const auto blobBytes = Save(blob.get());
    TestBlob::failLoads = true;
    EXPECT_EQ(Load(blobBytes).hr, ids_LuxFormatter_CantLoadObject_2);
}

TEST_F(FormatterRoundTripTest, NestingIsBoundedTheSameWayForSavingAndLoading) {
    // A chain of collections, each holding the next: kMaxDepth levels save and load, one
    // more is refused when saving.
    const auto chain = [](uint32_t levels) {
        auto top = NewCollection();
        ComPtr<ILuxCollection> at = top;
        for (uint32_t level = 1; level < levels; ++level) {
            auto next = NewCollection();
            Add(at.get(), Variant(static_cast<IDispatch*>(next.get())).get());
            at = next;
        }
        Add(at.get(), Variant("bottom").get());
        return top;
    };
    {
        const Loaded loaded = Load(Save(chain(core::CLuxBinaryFormatter::kMaxDepth).get()));
        ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
        ComPtr<ILuxCollection> at = loaded.object.As<ILuxCollection>();
        for (uint32_t level = 1; level < core::CLuxBinaryFormatter::kMaxDepth; ++level) at = As<ILuxCollection>(Item(at.get(), 0));
        EXPECT_TRUE(SameValue(Item(at.get(), 0).get(), Variant("bottom").get()));
    }
    std::vector<uint8_t> bytes;
    EXPECT_EQ(TrySave(chain(core::CLuxBinaryFormatter::kMaxDepth + 1).get(), bytes), ids_LuxFormatter_CantSaveObject_2);
}

TEST_F(FormatterRoundTripTest, LargeNumberArraysTravelInOneWriteAndOneRead) {
    constexpr size_t kSize = size_t(16) << 20;
    Variant pixels = NewArray(VT_UI1, {{ULONG(kSize), 0}});
    auto* data = static_cast<uint8_t*>(pixels.get().parray->pvData);
    for (size_t i = 0; i < kSize; ++i) data[i] = uint8_t(i * 31 + (i >> 12));
    auto collection = NewCollection();
    Add(collection.get(), pixels.get());

    auto stream = ComPtr<CountingStream>::Attach(CountingStream::Create());
    ASSERT_EQ(Formatter()->Serialize(stream.get(), collection.get(), luxPersistOptionAll, nullptr), S_OK);
    ASSERT_EQ(std::count_if(stream->writes.begin(), stream->writes.end(), [](ULONG n) { return n >= kSize; }), 1);
    EXPECT_EQ(*std::max_element(stream->writes.begin(), stream->writes.end()), kSize) << "the array bytes alone";
    ULONGLONG size = 0;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_END, &size), S_OK);
    EXPECT_LE(size, kSize + 4096);

    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    const Loaded loaded = LoadFrom(stream.get());
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    // The header and the first bytes are read ahead; the rest of the array in one Read.
    ASSERT_EQ(std::count_if(stream->reads.begin(), stream->reads.end(), [](ULONG n) { return n > 4096; }), 1);
    EXPECT_GE(*std::max_element(stream->reads.begin(), stream->reads.end()), kSize - 4096);
    EXPECT_TRUE(SameValue(Item(loaded.object.As<ILuxCollection>().get(), 0).get(), pixels.get()));
}

TEST_F(FormatterRoundTripTest, StreamFailuresArePassedOnWithTheStreamsOwnText) {
    auto point = NewPoint(1, 2);
    auto formatter = Formatter();
    const auto save = [&](CountingStream* stream) {
        return formatter->Serialize(stream, point.get(), luxPersistOptionAll, nullptr);
    };
    auto full = ComPtr<CountingStream>::Attach(CountingStream::Create());
    full->failWrites = true;
    EXPECT_EQ(save(full.get()), ids_LuxFormatter_WriteError_1);
    EXPECT_NE(TakeErrorInfo().description.find("the disk is full"), std::string::npos);
    auto shortened = ComPtr<CountingStream>::Attach(CountingStream::Create());
    shortened->shortWrites = true;
    EXPECT_EQ(save(shortened.get()), ids_LuxFormatter_WriteError_1);
    TakeErrorInfo();

    auto gone = ComPtr<CountingStream>::Attach(CountingStream::Create());
    ASSERT_EQ(save(gone.get()), S_OK);
    ASSERT_EQ(gone->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    gone->failReads = true;
    Loaded loaded = LoadFrom(gone.get());
    EXPECT_EQ(loaded.hr, ids_LuxFormatter_ReadError_1);
    EXPECT_NE(loaded.error.description.find("the disk is gone"), std::string::npos) << loaded.error.description;
    // A stream that cannot tell where it is cannot have its lengths checked: not read.
    gone->failReads = false;
    gone->failSeeks = true;
    gone->reads.clear();
    loaded = LoadFrom(gone.get());
    EXPECT_EQ(loaded.hr, e_Lux_BadFileMode);
    EXPECT_NE(loaded.error.description.find("ccArchive::NotSeekable"), std::string::npos) << loaded.error.description;
    EXPECT_TRUE(gone->reads.empty());
}

}  // namespace
}  // namespace tessaly::test
