// LuxBinaryFormatter given damaged and hostile archives: the version rules, every
// truncation and every single-byte corruption of a small archive, lengths and counts that
// claim more than the input holds (refused before any allocation), nesting bombs, and
// broken structure. Each ends in the exact HRESULT, with nothing left alive and an
// existing root untouched.
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "BinaryFixture.h"
#include "com/core/CLuxBinaryFormatter.h"
#include "persist/ccArchive.h"
#include "persist/ccTransferArchive.h"
#include "support/AllocationCounter.h"
#include "support/TestPoint.h"

namespace tessaly::test {
namespace {

class FormatterDamageTest : public BinaryFixture {
public:
    // A failed load: the HRESULT, and that the description names the core failure.
    static void ExpectRefused(const Loaded& loaded, HRESULT hr, const char* failure) {
        EXPECT_EQ(loaded.hr, hr) << loaded.error.description;
        EXPECT_NE(loaded.error.description.find(failure), std::string::npos) << loaded.error.description;
    }

    static std::string Contents(ILuxCollection* collection) {
        std::string text;
        for (LONG i = 0; i < Count(collection); ++i) {
            Variant item = Item(collection, i);
            text += item.ChangeType(VT_BSTR) == S_OK ? std::string(BstrView(item.get().bstrVal)) : "?";
            text += ";";
        }
        return text;
    }
};

// Archives written by hand, byte by byte as docs/binary-format.md lays them out.
class Forge {
public:
    static constexpr uint8_t kNull = 0, kReference = 1, kNew = 2;
    static constexpr uint8_t kEntries = 1, kStream = 2;
    static constexpr uint8_t kEnd = 0, kEntry = 1, kEndOfArchive = 0xFF;

    Forge& U8(uint8_t v) { return out_.Write(v), *this; }
    Forge& U16(uint16_t v) { return out_.Write(v), *this; }
    Forge& U32(uint32_t v) { return out_.Write(v), *this; }
    Forge& I32(int32_t v) { return out_.Write(v), *this; }
    Forge& Text(std::string_view text) { return out_.WriteString(text), *this; }
    // A new object with a new class record.
    Forge& NewObject(uint32_t id, uint32_t classIndex, const CLSID& clsid, uint32_t version, std::string_view progId) {
        U8(kNew).U32(id).U32(classIndex).U32(clsid.Data1).U16(clsid.Data2).U16(clsid.Data3);
        out_.WriteBlock(clsid.Data4, 8);
        return U32(version).Text(progId);
    }
    Forge& NewCollection(uint32_t id, uint32_t classIndex = 0) {
        return NewObject(id, classIndex, CLSID_LuxCollection, 1, "Tessaly.LuxCollection.1").U8(kEntries);
    }
    // A new object of a class already described.
    Forge& NewOfClass(uint32_t id, uint32_t classIndex) { return U8(kNew).U32(id).U32(classIndex).U8(kEntries); }
    Forge& Entry(std::string_view name) { return U8(kEntry).Text(name); }
    Forge& I4(int32_t value) { return U16(VT_I4).I32(value); }
    std::vector<uint8_t> Bytes() { return out_.TakeBytes(); }

private:
    ccTransferArchive out_;
};

// [ 1, "two", [3,4] (I2), point(5,6), point again, blob(7,8,9), "end" ]
ComPtr<ILuxCollection> SmallGraph() {
    auto collection = BinaryFixture::NewCollection();
    BinaryFixture::Add(collection.get(), Variant(1).get());
    BinaryFixture::Add(collection.get(), Variant("two").get(), "key");
    Variant array = BinaryFixture::NewArray(VT_I2, {{2, 1}});
    static_cast<int16_t*>(array.get().parray->pvData)[0] = 3;
    static_cast<int16_t*>(array.get().parray->pvData)[1] = 4;
    BinaryFixture::Add(collection.get(), array.get());
    auto point = BinaryFixture::NewPoint(5, 6);
    BinaryFixture::Add(collection.get(), Variant(static_cast<IDispatch*>(point.get())).get());
    BinaryFixture::Add(collection.get(), Variant(static_cast<IDispatch*>(point.get())).get());
    auto blob = BinaryFixture::NewBlob({7, 8, 9});
    BinaryFixture::Add(collection.get(), Variant(static_cast<IDispatch*>(blob.get())).get());
    BinaryFixture::Add(collection.get(), Variant("end").get());
    return collection;
}

TEST_F(FormatterDamageTest, TheDocumentedLayoutLoadsAndARepeatedNameIsSkippedWithAWarning) {
    const auto bytes = Forge()
                           .NewCollection(1)
                           .Entry("Item0").I4(5)
                           .Entry("item0").I4(6)  // names compare without regard to case
                           .Entry("Item1").U16(VT_DISPATCH).U8(Forge::kNull)
                           .Entry("Item2").U16(VT_ARRAY | VT_UI1).U16(1).U32(2).I32(0).U8(8).U8(9)
                           .U8(Forge::kEnd)
                           .U8(Forge::kEndOfArchive)
                           .Bytes();
    const Loaded loaded = Load(bytes);
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    ASSERT_EQ(loaded.warnings.size(), 1u);
    EXPECT_NE(loaded.warnings[0].find("item0"), std::string::npos) << loaded.warnings[0];
    auto collection = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(collection.get()), 3);
    EXPECT_TRUE(SameValue(Item(collection.get(), 0).get(), Variant(5).get())) << "the first value stands";
    EXPECT_TRUE(SameValue(Item(collection.get(), 1).get(), Variant(static_cast<IDispatch*>(nullptr)).get()));
    Variant expected = NewArray(VT_UI1, {{2, 0}});
    static_cast<uint8_t*>(expected.get().parray->pvData)[0] = 8;
    static_cast<uint8_t*>(expected.get().parray->pvData)[1] = 9;
    EXPECT_TRUE(SameValue(Item(collection.get(), 2).get(), expected.get()));

    // What this formatter saves is laid out the same way.
    auto saved = NewCollection();
    Add(saved.get(), Variant(5).get());
    EXPECT_EQ(Save(saved.get()),
              Forge().NewCollection(1).Entry("Item0").I4(5).U8(Forge::kEnd).U8(Forge::kEndOfArchive).Bytes());
}

TEST_F(FormatterDamageTest, NewerFormatOrClassVersionIsRefusedAndOlderClassVersionLoads) {
    auto existing = NewCollection();
    Add(existing.get(), Variant("kept").get());
    const auto build = [](uint32_t classVersion) {
        return Forge()
            .NewObject(1, 0, CLSID_LuxCollection, classVersion, "Tessaly.LuxCollection.1")
            .U8(Forge::kEntries)
            .Entry("Item0").I4(1)
            .U8(Forge::kEnd)
            .U8(Forge::kEndOfArchive)
            .Bytes();
    };
    auto newerFormat = build(1);
    newerFormat[8] = ccArchive::kFormatVersion + 1;
    ExpectRefused(Load(newerFormat, existing.get()), e_Lux_BadFileFormat, "ccArchive::UnknownArchiveVersion");
    ExpectRefused(Load(build(2), existing.get()), e_Lux_BadFileFormat, "ccArchive::UnknownVersion");
    EXPECT_EQ(Contents(existing.get()), "kept;");

    const Loaded older = Load(build(0), existing.get());
    ASSERT_EQ(older.hr, S_OK) << older.error.description;
    EXPECT_EQ(Contents(existing.get()), "1;");

    // A class this library does not have.
    const auto unknown = Forge()
                             .NewObject(1, 0, MakeGuid("0BADC1A5-0000-4000-8000-000000000001"), 1, "Tessaly.Gone.1")
                             .U8(Forge::kEntries)
                             .U8(Forge::kEnd)
                             .U8(Forge::kEndOfArchive)
                             .Bytes();
    EXPECT_EQ(Load(unknown).hr, ids_LuxFormatter_CantCreateObject_1);
}

TEST_F(FormatterDamageTest, EveryTruncationFailsCleanlyAndLeavesTheExistingRootAlone) {
    const auto bytes = Save(SmallGraph().get());
    ASSERT_GT(bytes.size(), 100u);
    auto existing = NewCollection();
    Add(existing.get(), Variant("kept").get());
    for (size_t cut = 0; cut < bytes.size(); ++cut) {
        const LONG live = Module::LiveObjectCount();
        const Loaded loaded = Load(std::span(bytes).first(cut), cut % 2 ? existing.get() : nullptr);
        ExpectRefused(loaded, e_Lux_BadFileFormat, "ccArchive::Eof");
        EXPECT_EQ(Module::LiveObjectCount(), live) << "cut at " << cut;
        if (HasFailure()) break;
    }
    EXPECT_EQ(Contents(existing.get()), "kept;");
    // And the whole archive loads.
    const Loaded whole = Load(bytes, existing.get());
    ASSERT_EQ(whole.hr, S_OK) << whole.error.description;
    EXPECT_EQ(Count(existing.get()), 7);
}

TEST_F(FormatterDamageTest, EverySingleByteCorruptionEndsInAResultAndLeaksNothing) {
    const auto bytes = Save(SmallGraph().get());
    size_t loadedAnyway = 0;
    for (size_t at = 0; at < bytes.size(); ++at) {
        for (uint8_t value : {0x00, 0x01, 0x02, 0x7F, 0x80, 0xFE, 0xFF}) {
            if (bytes[at] == value) continue;
            auto damaged = bytes;
            damaged[at] = value;
            const LONG live = Module::LiveObjectCount();
            Loaded loaded = Load(damaged);
            if (SUCCEEDED(loaded.hr)) {
                ++loadedAnyway;
                // Whatever loaded: break any cycle the damage made before letting it go.
                if (auto root = loaded.object.As<ILuxCollection>()) {
                    for (LONG i = 0; i < Count(root.get()); ++i)
                        if (auto point = As<ITestPoint>(Item(root.get(), i))) point->put_Marker(Variant().get());
                    root->Clear();
                }
                loaded.object.Reset();
            }
            EXPECT_EQ(Module::LiveObjectCount(), live) << "byte " << at << " set to " << int(value);
            if (HasFailure()) return;
        }
    }
    // Values change without breaking the structure (a number, a letter of a string).
    EXPECT_GT(loadedAnyway, 0u);
}

TEST_F(FormatterDamageTest, LengthsAndCountsBeyondTheInputAreRefusedBeforeAllocating) {
    const auto collectionThen = [] {
        auto forge = std::make_unique<Forge>();
        forge->NewCollection(1).Entry("Item0");
        return forge;
    };
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
    };
    std::vector<Case> cases;
    cases.push_back({"a ProgID of 4 GiB", Forge().U8(Forge::kNew).U32(1).U32(0).U32(1).U16(2).U16(3).U32(0).U32(0)
                                              .U32(1).U32(0xFFFFFFFF).U8('x').Bytes()});
    cases.push_back({"a name of 4 GiB", Forge().NewCollection(1).U8(Forge::kEntry).U32(0xFFFFFFF0).Bytes()});
    cases.push_back({"a string of 4 GiB", collectionThen()->U16(VT_BSTR).U32(0xFFFFFFFF).U32(0).Bytes()});
    cases.push_back({"a stream of 4 GiB",
                     Forge().NewObject(1, 0, TestBlob::kClassId, 1, TestBlob::kProgId).U8(Forge::kStream)
                         .U32(0xFFFFFFFF).U32(0).Bytes()});
    cases.push_back({"2^31 doubles", collectionThen()->U16(VT_ARRAY | VT_R8).U16(1).U32(0x7FFFFFFF).I32(0).U32(0).Bytes()});
    cases.push_back({"2^31 strings", collectionThen()->U16(VT_ARRAY | VT_BSTR).U16(1).U32(0x7FFFFFFF).I32(0).U32(0).Bytes()});
    cases.push_back({"2^31 variants",
                     collectionThen()->U16(VT_ARRAY | VT_VARIANT).U16(1).U32(0x7FFFFFFF).I32(0).U32(0).Bytes()});
    cases.push_back({"2^31 objects",
                     collectionThen()->U16(VT_ARRAY | VT_DISPATCH).U16(1).U32(0x7FFFFFFF).I32(0).U32(0).Bytes()});
    cases.push_back({"2^93 bytes in three dimensions", collectionThen()->U16(VT_ARRAY | VT_UI1).U16(3)
                                                           .U32(0x7FFFFFFF).I32(0).U32(0x7FFFFFFF).I32(0)
                                                           .U32(0x7FFFFFFF).I32(0).U32(0).Bytes()});
    cases.push_back({"65535 dimensions", collectionThen()->U16(VT_ARRAY | VT_UI1).U16(0xFFFF).U32(1).I32(0).Bytes()});
    {
        // The counter sees a large request.
        const AllocationCounter counter;
        void* volatile probe = std::malloc(size_t(1) << 20);
        std::free(probe);
        ASSERT_GE(counter.Largest(), size_t(1) << 20);
    }

    for (const Case& hostile : cases) {
        ASSERT_LT(hostile.bytes.size(), 128u) << hostile.what;
        size_t largest = 0;
        Loaded loaded;
        {
            const AllocationCounter counter;
            loaded = Load(hostile.bytes);
            largest = counter.Largest();
        }
        ExpectRefused(loaded, e_Lux_BadFileFormat, "ccArchive::Eof");
        EXPECT_LT(largest, size_t(64) << 10) << hostile.what;
    }
    // The same shapes with their data present load (the checks refuse no less than too much).
    const auto exact = collectionThen()->U16(VT_ARRAY | VT_R8).U16(1).U32(2).I32(0).U32(0).U32(0).U32(0).U32(0)
                           .U8(Forge::kEnd).U8(Forge::kEndOfArchive).Bytes();
    EXPECT_EQ(Load(exact).hr, S_OK);
}

TEST_F(FormatterDamageTest, NestingBombsStopAtTheDepthLimit) {
    // Arrays of variants inside each other, a hundred thousand deep.
    Forge arrays;
    arrays.NewCollection(1).Entry("Item0");
    for (int level = 0; level < 100000; ++level) arrays.U16(VT_ARRAY | VT_VARIANT).U16(1).U32(1).I32(0);
    ExpectRefused(Load(arrays.Bytes()), e_Lux_BadFileFormat, "nested deeper");

    // Collections inside each other: objects are made up to the limit, then all released.
    Forge objects;
    objects.NewCollection(1);
    for (uint32_t id = 2; id < 100000; ++id) objects.Entry("Item0").U16(VT_DISPATCH).NewOfClass(id, 0);
    ExpectRefused(Load(objects.Bytes()), e_Lux_BadFileFormat, "nested deeper");
}

TEST_F(FormatterDamageTest, BrokenStructureIsNamedExactly) {
    const auto finish = [](Forge& forge) { return forge.U8(Forge::kEnd).U8(Forge::kEndOfArchive).Bytes(); };
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        HRESULT hr;
        const char* failure;
    };
    std::vector<Case> cases;
    {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(VT_DISPATCH).U8(Forge::kReference).U32(2);
        cases.push_back({"a reference ahead", finish(f), e_Lux_BadFileFormat, "ccArchive::NotFound"});
    }
    {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(VT_DISPATCH).NewOfClass(1, 0).U8(Forge::kEnd);
        cases.push_back({"a number used twice", finish(f), e_Lux_BadFileFormat, "ccArchive::Duplicate"});
    }
    {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(VT_DISPATCH).NewOfClass(3, 0).U8(Forge::kEnd);
        cases.push_back({"a number skipped", finish(f), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    }
    {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(VT_DISPATCH).NewOfClass(2, 5).U8(Forge::kEnd);
        cases.push_back({"a class index ahead", finish(f), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    }
    for (VARTYPE vt : {VARTYPE(VT_DECIMAL), VARTYPE(VT_RECORD), VARTYPE(VT_BYREF | VT_I4), VARTYPE(VT_ARRAY | VT_EMPTY),
                       VARTYPE(VT_ARRAY | VT_NULL), VARTYPE(VT_ARRAY | VT_ARRAY | VT_BYREF | VT_I4)}) {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(vt).U32(0);
        cases.push_back({"an unknown type", finish(f), e_Lux_BadFileFormat, "ccArchive::UnknownType"});
    }
    {
        Forge f;
        f.NewCollection(1).Entry("Item0").U16(VT_UNKNOWN).U8(7);
        cases.push_back({"an object of kind 7", finish(f), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    }
    {
        Forge f;
        f.NewCollection(1).U8(2);
        cases.push_back({"an entry marked 2", finish(f), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    }
    {
        Forge f;
        f.NewObject(1, 0, CLSID_LuxCollection, 1, "Tessaly.LuxCollection.1").U8(3);
        cases.push_back({"content kept in way 3", finish(f), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    }
    cases.push_back({"no end mark", Forge().NewCollection(1).U8(Forge::kEnd).U8(0).Bytes(), e_Lux_BadFileFormat,
                     "ccArchive::BadContent"});
    cases.push_back({"a root that is a reference", Forge().U8(Forge::kReference).U32(1).Bytes(), e_Lux_BadFileFormat,
                     "ccArchive::BadContent"});
    cases.push_back({"a null root", Forge().U8(Forge::kNull).U8(Forge::kEndOfArchive).Bytes(), e_Lux_BadFileFormat,
                     "ccArchive::BadContent"});
    cases.push_back({"an array bound past the largest index",
                     Forge().NewCollection(1).Entry("Item0").U16(VT_ARRAY | VT_UI1).U16(1).U32(2).I32(0x7FFFFFFF)
                         .U16(0).U8(Forge::kEnd).U8(Forge::kEndOfArchive).Bytes(),
                     e_Lux_BadFileFormat, "ccArchive::BadContent"});
    const std::string xml = "<?xml version=\"1.0\"?>\r\n<Root/>";
    cases.push_back({"XML", std::vector<uint8_t>(xml.begin(), xml.end()), e_Lux_BadFileFormat, "ccArchive::BadContent"});
    cases.push_back({"nothing", {}, e_Lux_BadFileFormat, "ccArchive::Eof"});

    auto existing = NewCollection();
    Add(existing.get(), Variant("kept").get());
    for (const Case& broken : cases) {
        SCOPED_TRACE(broken.what);
        ExpectRefused(Load(broken.bytes, existing.get()), broken.hr, broken.failure);
    }
    EXPECT_EQ(Contents(existing.get()), "kept;");
}


// Objects below the root load as their values are read: these tests pin down that they end
// exactly as if every value had been stored first.
class LoadWhileReadingTest : public FormatterDamageTest {
public:
    static std::string KeyOf(ILuxCollection* collection, LONG index) {
        Bstr key;
        EXPECT_EQ(collection->get_Key(index, key.Out()), S_OK);
        return key.str();
    }
    static ComPtr<ILuxCollection> Inner(ILuxCollection* collection, LONG index) {
        const Variant item = Item(collection, index);
        ComPtr<ILuxCollection> inner;
        if (item.get().vt == VT_DISPATCH && item.get().pdispVal) {
            EXPECT_EQ(item.get().pdispVal->QueryInterface(ILuxCollection::iid, inner.OutVoid()), S_OK);
        }
        EXPECT_TRUE(inner) << "item " << index << " is no collection";
        return inner;
    }
    // A TestPoint (its Persist reads X, Y, Marker in that order) as the first object of its class.
    static Forge& NewPoint(Forge& forge, uint32_t id, uint32_t classIndex) {
        const CoClassInfo& point = TestPoint::CoClass();
        return forge.NewObject(id, classIndex, point.clsid, 1, point.progId).U8(Forge::kEntries);
    }
};

TEST_F(LoadWhileReadingTest, ValuesOutOfOrderUnreadOrRepeatedLoadAsIfStoredFirst) {
    Forge forge;
    forge.NewCollection(1)
        .Entry("Item0").U16(VT_DISPATCH).NewOfClass(2, 0)
            .Entry("Key1").U16(VT_BSTR).Text("b")  // before its item
            .Entry("Extra").U16(VT_DISPATCH).NewOfClass(3, 0)  // a name the collection never reads
                .Entry("Item0").I4(9).U8(Forge::kEnd)
            .Entry("Item1").I4(2)
            .Entry("ITEM1").I4(3)  // a repeat: skipped with a warning
            .Entry("Item0").I4(1)
            .U8(Forge::kEnd)
        .Entry("Item1").U16(VT_DISPATCH).U8(Forge::kReference).U32(3)  // the object under the unread name
        .Entry("Item2").U16(VT_DISPATCH).NewOfClass(4, 0)  // in order, the common case
            .Entry("Item0").U16(VT_BSTR).Text("x")
            .Entry("Key0").U16(VT_BSTR).Text("k")
            .U8(Forge::kEnd)
        .U8(Forge::kEnd)
        .U8(Forge::kEndOfArchive);
    const Loaded loaded = Load(forge.Bytes());
    ASSERT_EQ(loaded.hr, S_OK) << loaded.error.description;
    ASSERT_EQ(loaded.warnings.size(), 1u);
    EXPECT_NE(loaded.warnings[0].find("ITEM1 of Tessaly.LuxCollection.1 (object 2)"), std::string::npos)
        << loaded.warnings[0];
    auto root = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(root.get()), 3);
    auto out = Inner(root.get(), 0);
    EXPECT_EQ(Contents(out.get()), "1;2;");
    EXPECT_EQ(KeyOf(out.get(), 0), "");
    EXPECT_EQ(KeyOf(out.get(), 1), "b");
    EXPECT_EQ(Contents(Inner(root.get(), 1).get()), "9;");
    auto in = Inner(root.get(), 2);
    EXPECT_EQ(Contents(in.get()), "x;");
    EXPECT_EQ(KeyOf(in.get(), 0), "k");
}

TEST_F(LoadWhileReadingTest, DamageInAnObjectBelowTheRootIsReportedBeforeItsPersistRefuses) {
    auto existing = NewCollection();
    Add(existing.get(), Variant("kept").get());
    const LONG live = Module::LiveObjectCount();
    // The point's Persist refuses X (text that is no number) before reading on; the stream
    // damage after it is what a load that read every value first would have met first.
    Forge damaged;
    damaged.NewCollection(1).Entry("Item0").U16(VT_DISPATCH);
    NewPoint(damaged, 2, 1).Entry("X").U16(VT_BSTR).Text("abc").Entry("Y").U16(VT_DECIMAL).U32(0);
    ExpectRefused(Load(damaged.Bytes(), existing.get()), e_Lux_BadFileFormat, "ccArchive::UnknownType");
    // Cut off after the bad X: the end of the input, not the bad value.
    Forge cut;
    cut.NewCollection(1).Entry("Item0").U16(VT_DISPATCH);
    NewPoint(cut, 2, 1).Entry("X").U16(VT_BSTR).Text("abc");
    ExpectRefused(Load(cut.Bytes(), existing.get()), e_Lux_BadFileFormat, "ccArchive::Eof");
    // Damage met while Persist reads (the value of Y) reaches the caller as it was, not as
    // the point's failed read.
    Forge early;
    early.NewCollection(1).Entry("Item0").U16(VT_DISPATCH);
    NewPoint(early, 2, 1).Entry("X").U16(VT_R8).U32(0).U32(0).Entry("Y").U16(VT_UNKNOWN).U8(7);
    ExpectRefused(Load(early.Bytes(), existing.get()), e_Lux_BadFileFormat, "ccArchive::BadContent");
    // Without damage, the point's own refusal stands.
    Forge refused;
    refused.NewCollection(1).Entry("Item0").U16(VT_DISPATCH);
    NewPoint(refused, 2, 1).Entry("X").U16(VT_BSTR).Text("abc").Entry("Y").U16(VT_R8).U32(0).U32(0).U8(Forge::kEnd);
    refused.U8(Forge::kEnd).U8(Forge::kEndOfArchive);
    const Loaded loaded = Load(refused.Bytes(), existing.get());
    ExpectRefused(loaded, e_Lux_BadFileFormat, "ccArchive::BadType");
    EXPECT_EQ(loaded.error.description.find("ccArchive::UnknownType"), std::string::npos);
    EXPECT_EQ(Contents(existing.get()), "kept;");
    EXPECT_EQ(Module::LiveObjectCount(), live);
}

}  // namespace
}  // namespace tessaly::test
