// Persistence of the object base and the collections through the archive: what Persist
// writes and in which order, what loading does with absent and bad values, the option
// bits and the has-changed flag. A recording writer stands in for a formatter.
#include <chrono>
#include <future>
#include <string>
#include <utility>
#include <vector>

#include "core/CollectionFixture.h"
#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "com/core/impl/ArchiveAccess.h"
#include "platform/SafeArray.h"
#include "platform/MemoryStream.h"
#include "support/RecordedError.h"
#include "support/TestPoint.h"
#include "TessalyTest.h"

namespace tessaly::test {
namespace {

using core::ArchiveAccess;
using core::CLuxArchive;

// Keeps every value an object saves, in order, as a formatter would write them.
class RecordingWriter final : public core::ArchiveWriter {
public:
    void WriteEntry(std::string_view name, const VARIANT& value) override {
        entries.emplace_back(std::string(name), Variant(value));
    }
    std::string Names() const {
        std::string text;
        for (const auto& entry : entries) text += (text.empty() ? "" : ",") + entry.first;
        return text;
    }
    // A loading archive holding the recorded values, as a formatter fills one.
    ComPtr<CLuxArchive> Replay(int32_t options) const {
        auto archive = CLuxArchive::ForLoading(options);
        for (const auto& entry : entries) archive->AddEntry(entry.first, Variant(entry.second));
        return archive;
    }
    std::vector<std::pair<std::string, Variant>> entries;
};

class PersistTest : public CollectionFixture {
protected:
    static RecordingWriter Save(IUnknown* object, int32_t options = luxPersistOptionAll) {
        RecordingWriter writer;
        ComPtr<ILuxPersistArchive> persist;
        EXPECT_EQ(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid()), S_OK);
        EXPECT_EQ(CLuxArchive::Save(*persist, writer, options), S_OK);
        return writer;
    }
    static HRESULT Load(IUnknown* object, CLuxArchive* archive, int32_t options = luxPersistOptionAll) {
        ComPtr<ILuxPersistArchive> persist;
        EXPECT_EQ(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid()), S_OK);
        return persist->Persist(archive, options);
    }
    static ComPtr<ITestPoint> NewPoint(double x, double y) {
        auto point = Make<ITestPoint>("Tessaly.TestPoint");
        EXPECT_EQ(point->put_X(x), S_OK);
        EXPECT_EQ(point->put_Y(y), S_OK);
        return point;
    }
    static std::string Coordinates(ITestPoint* point) {
        double x = 0, y = 0;
        EXPECT_EQ(point->get_X(&x), S_OK);
        EXPECT_EQ(point->get_Y(&y), S_OK);
        return std::to_string(x) + "," + std::to_string(y);
    }
    static bool HasChanged(IUnknown* object) {
        ComPtr<ILuxPersistArchive> persist;
        EXPECT_EQ(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid()), S_OK);
        VARIANT_BOOL changed = 7;
        EXPECT_EQ(persist->get_HasChanged(&changed), S_OK);
        return changed != VARIANT_FALSE;
    }
};

TEST_F(PersistTest, CollectionSavesItemsAndOnlyNonEmptyKeysAndLoadsThemBack) {
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(1)), S_OK);
    ASSERT_EQ(Add(list.get(), Variant("two"), "second"), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(3.5)), S_OK);
    const RecordingWriter saved = Save(list.get());
    EXPECT_EQ(saved.Names(), "Item0,Item1,Key1,Item2");

    auto copy = NewCollection();
    ASSERT_EQ(Add(copy.get(), Variant("left over"), "old"), S_OK);
    auto sink = Listen(copy.get());
    EXPECT_EQ(Load(copy.get(), saved.Replay(luxPersistOptionAll).get()), S_OK);
    EXPECT_EQ(Contents(copy.get()), "=1;second=two;=3.5;");
    EXPECT_EQ(FindKey(copy.get(), "SECOND"), 1);  // the key index is rebuilt
    // A load is one Change with every area, and no collection events.
    EXPECT_EQ(sink->Log(), "7456(-1,,-1)");
}

TEST_F(PersistTest, LoadingStopsAtTheFirstMissingItem) {
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->AddEntry("Item0", Variant("a"));
    archive->AddEntry("Item2", Variant("c"));
    archive->AddEntry("Key2", Variant("k"));
    auto strings = NewStrings();
    EXPECT_EQ(Load(strings.get(), archive.get()), S_OK);
    EXPECT_EQ(Contents(strings.get()), "=a;");
}

TEST_F(PersistTest, StringCollectionConvertsLoadedItemsAndRefusesWhatIsNotText) {
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->AddEntry("Item0", Variant(42));
    auto strings = NewStrings();
    EXPECT_EQ(Load(strings.get(), archive.get()), S_OK);
    EXPECT_EQ(Contents(strings.get()), "=42;");

    // An object cannot become text: the load fails and the collection keeps its items.
    auto bad = CLuxArchive::ForLoading(luxPersistOptionAll);
    bad->AddEntry("Item0", Variant("fine"));
    bad->AddEntry("Item1", Variant(static_cast<IDispatch*>(NewCollection().get())));
    auto sink = Listen(strings.get());
    EXPECT_EQ(Load(strings.get(), bad.get()), e_Lux_BadFileFormat);
    EXPECT_NE(LastErrorText().find("Item1"), std::string::npos);
    EXPECT_EQ(Contents(strings.get()), "=42;");
    EXPECT_EQ(sink->Log(), "");
}

TEST_F(PersistTest, DuplicateStoredKeysAreBadContentAndChangeNothing) {
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->AddEntry("Item0", Variant(1));
    archive->AddEntry("Key0", Variant("k"));
    archive->AddEntry("Item1", Variant(2));
    archive->AddEntry("Key1", Variant("K"));
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(9), "nine"), S_OK);
    EXPECT_EQ(Load(list.get(), archive.get()), e_Lux_BadFileFormat);
    EXPECT_EQ(Contents(list.get()), "nine=9;");
}

TEST_F(PersistTest, ObjectBaseLoadsAllOrNothingAndResetsUnlessAskedNotTo) {
    auto point = NewPoint(1, 2);
    auto onlyX = CLuxArchive::ForLoading(luxPersistOptionAll);
    onlyX->AddEntry("X", Variant("7.5"));  // text that reads as a number is accepted
    EXPECT_EQ(Load(point.get(), onlyX.get(), luxPersistOptionAll | luxPersistOptionNoResetOnLoad), S_OK);
    EXPECT_EQ(Coordinates(point.get()), "7.500000,2.000000");  // Y kept

    auto again = CLuxArchive::ForLoading(luxPersistOptionAll);
    again->AddEntry("X", Variant(3.0));
    EXPECT_EQ(Load(point.get(), again.get()), S_OK);
    EXPECT_EQ(Coordinates(point.get()), "3.000000,0.000000");  // Y reset to its default

    // Y does not read as a number: nothing is assigned, not even X, and no event fires.
    auto bad = CLuxArchive::ForLoading(luxPersistOptionAll);
    bad->AddEntry("X", Variant(8.0));
    bad->AddEntry("Y", Variant("abc"));
    auto sink = ComPtr<TestSink>::Attach(TestSink::Create());
    DWORD cookie = 0;
    ASSERT_EQ(Advise(point.get(), DIID_ILuxChangeEvent, static_cast<IDispatch*>(sink.get()), &cookie), S_OK);
    EXPECT_EQ(Load(point.get(), bad.get()), e_Lux_BadFileFormat);
    const RecordedError error = TakeErrorInfo();
    EXPECT_NE(error.description.find("\"Y\""), std::string::npos) << error.description;
    EXPECT_EQ(error.source, "Persist");
    EXPECT_EQ(Coordinates(point.get()), "3.000000,0.000000");
    EXPECT_EQ(sink->Log(), "");
}

TEST_F(PersistTest, HasChangedIsSetByChangesClearedBySavingWhenAskedAndByLoading) {
    auto point = NewPoint(1, 2);
    EXPECT_TRUE(HasChanged(point.get()));
    Save(point.get(), luxPersistOptionAll);
    EXPECT_TRUE(HasChanged(point.get()));
    const RecordingWriter saved = Save(point.get(), luxPersistOptionAll | luxPersistOptionClearHasChangedOnSave);
    EXPECT_FALSE(HasChanged(point.get()));
    EXPECT_EQ(saved.Names(), "X,Y,Marker");

    auto other = NewPoint(5, 5);
    EXPECT_EQ(Load(other.get(), saved.Replay(luxPersistOptionAll).get()), S_OK);
    EXPECT_FALSE(HasChanged(other.get()));
    EXPECT_EQ(Coordinates(other.get()), "1.000000,2.000000");
}

TEST_F(PersistTest, SaveObjectsOnlyWritesOnlyObjectValues) {
    auto list = NewCollection();
    auto inner = NewStrings();
    ASSERT_EQ(Add(list.get(), Variant(1), "number"), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    EXPECT_EQ(Save(list.get(), luxPersistOptionAll | luxPersistOptionSaveObjectsOnly).Names(), "Item1");
}

TEST_F(PersistTest, ContentKindsArePersistedOnlyWhenTheOptionsSelectThem) {
    const auto persistAll = [](ArchiveAccess& access, int32_t& plain, int32_t& result, Variant& input, Variant& output) {
        access.Persist("Plain", plain);
        access.Persist("Result", result, ArchiveAccess::Content::Results);
        access.Persist("Input", input, ArchiveAccess::Content::InputImages);
        access.Persist("Output", output, ArchiveAccess::Content::OutputImages);
    };
    int32_t plain = 1, result = 2;
    Variant input(3), output(4);
    const std::pair<int32_t, const char*> cases[] = {
        {luxPersistOptionMinimum, "Plain"},
        {luxPersistOptionResults, "Plain,Result"},
        {luxPersistOptionInputImages | luxPersistOptionOutputImages, "Plain,Input,Output"},
        {luxPersistOptionAll, "Plain,Result,Input,Output"},
    };
    for (const auto& [options, names] : cases) {
        RecordingWriter writer;
        auto archive = CLuxArchive::ForSaving(writer, options);
        ArchiveAccess access(archive.get(), options | luxPersistOptionSaving);
        persistAll(access, plain, result, input, output);
        EXPECT_EQ(writer.Names(), names) << options;
    }
    // Loading with the minimum leaves a stored result unread.
    RecordingWriter writer;
    {
        auto archive = CLuxArchive::ForSaving(writer, luxPersistOptionAll);
        ArchiveAccess access(archive.get(), luxPersistOptionAll | luxPersistOptionSaving);
        persistAll(access, plain, result, input, output);
    }
    int32_t plainRead = 0, resultRead = 0;
    Variant inputRead, outputRead;
    auto archive = writer.Replay(luxPersistOptionMinimum);
    ArchiveAccess access(archive.get(), luxPersistOptionMinimum);
    persistAll(access, plainRead, resultRead, inputRead, outputRead);
    access.Commit();
    EXPECT_EQ(plainRead, 1);
    EXPECT_EQ(resultRead, 0);
    EXPECT_EQ(inputRead.vt(), VT_EMPTY);
}

TEST_F(PersistTest, ArchiveMembersRefuseWhatTheirDirectionDoesNotAllow) {
    RecordingWriter writer;
    auto saving = CLuxArchive::ForSaving(writer, luxPersistOptionAll);
    LONG value = 5;
    EXPECT_EQ(saving->PersistI4(Bstr("Width").get(), &value), S_OK);
    EXPECT_EQ(saving->PersistI4(Bstr("WIDTH").get(), &value), e_Lux_BadFileFormat);  // a name twice
    EXPECT_EQ(writer.Names(), "Width");
    IDispatch* object = nullptr;
    EXPECT_EQ(saving->LoadObject(Bstr("Width").get(), &object), E_UNEXPECTED);
    LONG count = 0, options = 0, index = 0;
    EXPECT_EQ(saving->get_Count(&count), S_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(saving->get_Options(&options), S_OK);
    EXPECT_EQ(options, luxPersistOptionAll | luxPersistOptionSaving);
    Variant item;
    EXPECT_EQ(saving->get_Item(Variant(0).get(), item.ptr()), E_UNEXPECTED);

    auto loading = CLuxArchive::ForLoading(luxPersistOptionAll | luxPersistOptionSaving);
    loading->AddEntry("Width", Variant(640));
    loading->AddEntry("Name", Variant("cam"));
    EXPECT_THROW(loading->AddEntry("name", Variant(1)), ccArchive::Duplicate);
    EXPECT_EQ(loading->get_Options(&options), S_OK);
    EXPECT_EQ(options, luxPersistOptionAll);  // the saving bit is the archive's own
    // An absent name: S_FALSE and the value as it was.
    double height = 480;
    EXPECT_EQ(loading->PersistR8(Bstr("Height").get(), &height), S_FALSE);
    EXPECT_EQ(height, 480);
    short narrow = 0;
    EXPECT_EQ(loading->PersistI2(Bstr("width").get(), &narrow), S_OK);
    EXPECT_EQ(narrow, 640);
    unsigned char byte = 9;
    EXPECT_EQ(loading->PersistUI1(Bstr("Width").get(), &byte), e_Lux_BadFileFormat);  // 640 overflows a byte
    EXPECT_EQ(byte, 9);
    BSTR text = SysAllocString("old");
    EXPECT_EQ(loading->PersistString(Bstr("Name").get(), &text), S_OK);
    EXPECT_EQ(BstrView(text), "cam");
    SysFreeString(text);
    EXPECT_EQ(loading->LoadObject(Bstr("Name").get(), &object), e_Lux_BadFileFormat);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(loading->SaveObject(Bstr("Other").get(), nullptr), E_UNEXPECTED);
    EXPECT_EQ(loading->FindKey(Bstr("NAME").get(), &index), S_OK);
    EXPECT_EQ(index, 1);
    EXPECT_EQ(loading->FindItem(Variant(640).get(), &index), S_OK);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(loading->get_Item(Variant("name").get(), item.ptr()), S_OK);
    EXPECT_EQ(Text(item.get()), "cam");
    Variant missing;  // an [out] argument holds nothing the callee must free
    EXPECT_EQ(loading->get_Item(Variant(2).get(), missing.ptr()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(missing.get().vt, VT_EMPTY);
}

TEST_F(PersistTest, ValuesReadInAnyOrderAreFoundWhateverWasReadBefore) {
    // Reading in the stored order is the common case; any other order must find the same.
    for (const int count : {4, 40}) {
        auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
        for (int i = 0; i < count; ++i) archive->AddEntry("V" + std::to_string(i), Variant(i * 10));
        std::vector<int> order;
        for (int i = 0; i < count; ++i) order.push_back(i);
        std::vector<int> backwards(order.rbegin(), order.rend());
        order.insert(order.end(), backwards.begin(), backwards.end());
        order.insert(order.end(), {1, 1, 0, count - 1, 0});
        for (const int i : order) {
            LONG value = -1;
            ASSERT_EQ(archive->PersistI4(Bstr("v" + std::to_string(i)).get(), &value), S_OK) << i;
            EXPECT_EQ(value, i * 10);
        }
        LONG untouched = 7;
        EXPECT_EQ(archive->PersistI4(Bstr("V" + std::to_string(count)).get(), &untouched), S_FALSE);
        EXPECT_EQ(untouched, 7);
    }
}

// Hands out prepared values one at a time, as the binary reader does.
class ListSource final : public core::ArchiveSource {
public:
    bool NextEntry(std::string& name, Variant& value) override {
        if (next == values.size()) {
            if (cutOff) throw ccArchive::Eof("cut off after " + std::to_string(next) + " values");
            return false;
        }
        name = values[next].first;
        value = values[next].second;
        ++next;
        return true;
    }
    void DroppedDuplicate(std::string_view name) override { dropped += std::string(name) + ";"; }

    std::vector<std::pair<std::string, Variant>> values;
    size_t next = 0;
    bool cutOff = false;
    std::string dropped;
};

TEST_F(PersistTest, AnArchiveReadingFromASourceReadsAheadOnlyWhenAskedOutOfOrder) {
    ListSource source;
    source.values = {{"A", Variant(1)}, {"B", Variant(2)}, {"a", Variant(3)}, {"C", Variant("c")}};
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->ReadFrom(source);
    LONG value = 0;
    EXPECT_EQ(archive->PersistI4(Bstr("a").get(), &value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(source.next, 1u) << "the value asked for is the next one: nothing read ahead";
    EXPECT_EQ(archive->EntriesHeld(), 1u);
    EXPECT_EQ(archive->PersistI4(Bstr("B").get(), &value), S_OK);
    EXPECT_EQ(value, 2);
    EXPECT_EQ(source.next, 2u);
    // An absent name reads the rest; the repeat of A is dropped and the first value stands.
    LONG untouched = 7;
    EXPECT_EQ(archive->PersistI4(Bstr("D").get(), &untouched), S_FALSE);
    EXPECT_EQ(untouched, 7);
    EXPECT_EQ(source.next, 4u);
    EXPECT_EQ(source.dropped, "a;");
    EXPECT_EQ(archive->PersistI4(Bstr("A").get(), &value), S_OK);
    EXPECT_EQ(value, 1);
    EXPECT_NO_THROW(archive->FinishReading());
    LONG count = 0;
    EXPECT_EQ(archive->get_Count(&count), S_OK);
    EXPECT_EQ(count, 3);

    // The members that need every value read the rest first, and answer as a filled archive.
    ListSource second;
    second.values = {{"X", Variant(1.5)}, {"Name", Variant("cam")}, {"Y", Variant(2.5)}};
    auto other = CLuxArchive::ForLoading(luxPersistOptionAll);
    other->ReadFrom(second);
    double x = 0;
    EXPECT_EQ(other->PersistR8(Bstr("X").get(), &x), S_OK);
    EXPECT_EQ(x, 1.5);
    LONG index = -1;
    EXPECT_EQ(other->FindKey(Bstr("y").get(), &index), S_OK);
    EXPECT_EQ(index, 2);
    EXPECT_EQ(second.next, 3u);
    Bstr key;
    EXPECT_EQ(other->get_Key(1, key.Out()), S_OK);
    EXPECT_EQ(key.str(), "Name");
    EXPECT_EQ(other->EntryCount(), 3u);
    other->FinishReading();

    // Counting reads everything; a collection reserving room does not make it read ahead.
    ListSource third;
    third.values = {{"Item0", Variant(1)}, {"Item1", Variant(2)}};
    auto counted = CLuxArchive::ForLoading(luxPersistOptionAll);
    counted->ReadFrom(third);
    ArchiveAccess access(counted.get(), luxPersistOptionAll);
    EXPECT_EQ(access.StoredCountSoFar(), 0u);
    EXPECT_EQ(third.next, 0u);
    EXPECT_EQ(access.StoredCount(), 2u);
    EXPECT_EQ(third.next, 2u);
    counted->FinishReading();
}

TEST_F(PersistTest, ASourceThatFailsFailsTheReadAndFinishingThrowsItsOwnFailure) {
    ListSource source;
    source.values = {{"X", Variant(4.0)}};
    source.cutOff = true;
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    archive->ReadFrom(source);
    double x = 0, y = 9;
    EXPECT_EQ(archive->PersistR8(Bstr("X").get(), &x), S_OK);
    EXPECT_EQ(x, 4.0);
    EXPECT_EQ(archive->PersistR8(Bstr("Y").get(), &y), e_Lux_BadFileFormat);
    EXPECT_EQ(y, 9) << "a failed read leaves the value as it was";
    EXPECT_THROW(archive->FinishReading(), ccArchive::Eof);
    EXPECT_NO_THROW(archive->FinishReading()) << "thrown once; the source is let go";
    EXPECT_EQ(archive->EntryCount(), 1u);

    // An object's Persist over such an archive assigns nothing.
    auto point = NewPoint(1, 2);
    ListSource cut;
    cut.values = {{"X", Variant(5.0)}};
    cut.cutOff = true;
    auto loading = CLuxArchive::ForLoading(luxPersistOptionAll);
    loading->ReadFrom(cut);
    EXPECT_EQ(Load(point.get(), loading.get(), luxPersistOptionAll | luxPersistOptionNoResetOnLoad), e_Lux_BadFileFormat);
    EXPECT_THROW(loading->FinishReading(), ccArchive::Eof);
    double px = 0;
    EXPECT_EQ(point->get_X(&px), S_OK);
    EXPECT_EQ(px, 1);
}

TEST_F(PersistTest, LargeArchivesFindEveryNameAndRefuseRepeats) {
    // Past a few entries names are found through a table that grows as entries come in.
    auto archive = CLuxArchive::ForLoading(luxPersistOptionAll);
    constexpr int kCount = 300;
    for (int i = 0; i < kCount; ++i) archive->AddEntry("Name" + std::to_string(i), Variant(i));
    EXPECT_THROW(archive->AddEntry("NAME150", Variant(0)), ccArchive::Duplicate);
    EXPECT_EQ(archive->EntryCount(), static_cast<size_t>(kCount));
    for (int i = 0; i < kCount; ++i) {
        LONG index = -2;
        ASSERT_EQ(archive->FindKey(Bstr("nAmE" + std::to_string(i)).get(), &index), S_OK);
        EXPECT_EQ(index, i);
    }
    LONG index = 0;
    EXPECT_EQ(archive->FindKey(Bstr("Name300").get(), &index), S_OK);
    EXPECT_EQ(index, luxNoIndex);

    // A collection of that size round-trips with its keys.
    auto list = NewCollection();
    for (int i = 0; i < kCount; ++i)
        ASSERT_EQ(Add(list.get(), Variant(i), i % 3 ? "" : ("k" + std::to_string(i)).c_str()), S_OK);
    auto copy = NewCollection();
    EXPECT_EQ(Load(copy.get(), Save(list.get()).Replay(luxPersistOptionAll).get()), S_OK);
    EXPECT_EQ(Contents(copy.get()), Contents(list.get()));
    EXPECT_EQ(FindKey(copy.get(), "K297"), 297);
}

TEST_F(PersistTest, ClearObjectGraphEmptiesEveryReachableObjectSoThatCyclesAreFreed) {
    const LONG before = Module::LiveObjectCount();
    {
        // A collection that holds itself; another reached only through an array of VARIANTs
        // that holds the first again; a point reached through the second.
        auto list = NewCollection();
        auto other = NewCollection();
        auto point = NewPoint(3, 4);
        ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(list.get()))), S_OK);
        SAFEARRAYBOUND bound{2, 0};
        VARIANT array{};
        array.vt = VT_ARRAY | VT_VARIANT;
        array.parray = SafeArrayCreate(VT_VARIANT, 1, &bound);
        ASSERT_NE(array.parray, nullptr);
        static_cast<VARIANT*>(array.parray->pvData)[0] = Variant(static_cast<IDispatch*>(list.get())).Detach();
        static_cast<VARIANT*>(array.parray->pvData)[1] = Variant(static_cast<IDispatch*>(point.get())).Detach();
        ASSERT_EQ(Add(other.get(), Variant::Attach(array)), S_OK);
        ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(other.get()))), S_OK);

        ASSERT_EQ(ClearObjectGraph(list.get()), S_OK);
        EXPECT_EQ(Module::LiveObjectCount(), before + 3);  // held by this test alone
        EXPECT_EQ(Contents(list.get()), "");
        EXPECT_EQ(Contents(other.get()), "");
        EXPECT_EQ(Coordinates(point.get()), "0.000000,0.000000");
    }
    EXPECT_EQ(Module::LiveObjectCount(), before);

    EXPECT_EQ(ClearObjectGraph(nullptr), E_POINTER);
    EXPECT_TRUE(TakeErrorInfo().present);
}

// Saving: an object's lock is held while its values are taken, never while a sub-object is
// written; the writer still receives every value in the order Persist gave them.
TEST_F(PersistTest, SubObjectsAreWrittenAfterPersistReturnedInTheirOrder) {
    auto list = NewCollection();
    auto inner = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(1), "first"), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant("after"), "last"), S_OK);

    // Reading the collection from another thread needs its lock: it returns at once only
    // when the thread writing does not hold it.
    class LockProbe final : public core::ArchiveWriter {
    public:
        explicit LockProbe(ILuxCollection* owner) : owner_(owner) {}
        void WriteEntry(std::string_view name, const VARIANT& value) override {
            auto count = std::async(std::launch::async, [owner = owner_] {
                LONG n = 0;
                owner->get_Count(&n);
                return n;
            });
            const bool free = count.wait_for(std::chrono::milliseconds(200)) == std::future_status::ready;
            log += std::string(name) + (value.vt == VT_DISPATCH ? "(obj)" : "") + (free ? ":free " : ":held ");
            pending.push_back(std::move(count));  // a reader still waiting gets the lock once Persist returns
        }
        std::string log;
        std::vector<std::future<LONG>> pending;

    private:
        ILuxCollection* owner_;
    };
    LockProbe probe(list.get());
    ComPtr<ILuxPersistArchive> persist;
    ASSERT_EQ(list->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid()), S_OK);
    EXPECT_EQ(CLuxArchive::Save(*persist, probe, luxPersistOptionAll), S_OK);
    for (auto& reader : probe.pending) EXPECT_EQ(reader.get(), 3);
    // Values before the first object go straight through, under the lock; the object and
    // everything after it wait until Persist has returned.
    EXPECT_EQ(probe.log, "Item0:held Key0:held Item1(obj):free Item2:free Key2:free ");

    // The values held back are copies: the saved order and content do not depend on when
    // they are written.
    const RecordingWriter saved = Save(list.get());
    EXPECT_EQ(saved.Names(), "Item0,Key0,Item1,Item2,Key2");
    EXPECT_EQ(Text(saved.entries[3].second.get()), "after");
    EXPECT_EQ(saved.entries[2].second.get().pdispVal, static_cast<IDispatch*>(inner.get()));

    // A failing Persist writes nothing it held back.
    auto archive = CLuxArchive::ForSaving(probe, luxPersistOptionAll);
    probe.log.clear();
    EXPECT_EQ(archive->PersistI4(Bstr("Item0").get(), nullptr), E_POINTER);
    EXPECT_EQ(probe.log, "");
}

// Loading into an existing object: the reset comes before PreLoad, so what PreLoad
// prepares survives Persist, which assigns only what the document holds.
class LoadOrderTest : public PersistTest {
protected:
    static HRESULT LoadXml(const std::string& text, IDispatch* existing, int32_t options) {
        ComPtr<ILuxFormatter> formatter;
        EXPECT_EQ(CreateObject("Tessaly.LuxXMLFormatter", ILuxFormatter::iid, formatter.OutVoid()), S_OK);
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(text.data(), text.size(), stream.Out()), S_OK);
        ComPtr<IDispatch> loaded;
        return formatter->Deserialize(stream.get(), existing, options, nullptr, nullptr, loaded.Out());
    }
    static std::string Document(const std::string& values) {
        return "<?xml version=\"1.0\"?>\r\n<Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">"
               "<Object ProgID=\"Tessaly.TestPoint.1\" id=\"1\">" +
               values + "</Object></Root>";
    }
    static std::string Marker(ITestPoint* point) {
        Variant marker;
        EXPECT_EQ(point->get_Marker(marker.ptr()), S_OK);
        return Text(marker.get());
    }
};

TEST_F(LoadOrderTest, ResetComesBeforePreLoadAndWhatPreLoadPreparesSurvives) {
    auto point = ComPtr<TestPoint>::Attach(TestPoint::Create());
    ComPtr<ITestPoint> client;
    ASSERT_EQ(point->QueryInterface(ITestPoint::iid, client.OutVoid()), S_OK);
    ASSERT_EQ(client->put_X(1), S_OK);
    ASSERT_EQ(client->put_Y(2), S_OK);
    ASSERT_EQ(client->put_Marker(Variant("old").get()), S_OK);
    point->PrepareMarkerOnPreLoad(Variant("prepared"));
    auto sink = ComPtr<TestSink>::Attach(TestSink::Create());
    DWORD cookie = 0;
    ASSERT_EQ(Advise(client.get(), DIID_ILuxChangeEvent, static_cast<IDispatch*>(sink.get()), &cookie), S_OK);
    IDispatch* existing = nullptr;
    ASSERT_EQ(client->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&existing)), S_OK);
    const auto root = ComPtr<IDispatch>::Attach(existing);

    EXPECT_EQ(LoadXml(Document("<X dt:dt=\"r8\">3</X>"), existing, luxPersistOptionAll), S_OK);
    EXPECT_EQ(Coordinates(client.get()), "3.000000,0.000000");  // Y reset
    EXPECT_EQ(Marker(client.get()), "prepared");                // not reset after PreLoad
    // The reset and the load reach the sinks as one change.
    EXPECT_EQ(sink->Log(), "7456(-1,,-1)");
    EXPECT_FALSE(HasChanged(existing));

    // Without the reset, what the document does not hold stays.
    ASSERT_EQ(client->put_Y(5), S_OK);
    ASSERT_EQ(client->put_Marker(Variant("kept").get()), S_OK);
    point->PrepareMarkerOnPreLoad(Variant());
    EXPECT_EQ(LoadXml(Document("<X dt:dt=\"r8\">4</X>"), existing, luxPersistOptionAll | luxPersistOptionNoResetOnLoad),
              S_OK);
    EXPECT_EQ(Coordinates(client.get()), "4.000000,5.000000");
    EXPECT_EQ(Marker(client.get()), "kept");

    // A value that does not read as its type fails Persist once the object is reset: the
    // object keeps its default state and what PreLoad prepared, and the change is announced.
    point->PrepareMarkerOnPreLoad(Variant("prepared again"));
    sink->Take();
    EXPECT_EQ(LoadXml(Document("<X dt:dt=\"r8\">6</X><Y>abc</Y>"), existing, luxPersistOptionAll), e_Lux_BadFileFormat);
    EXPECT_EQ(Coordinates(client.get()), "0.000000,0.000000");
    EXPECT_EQ(Marker(client.get()), "prepared again");
    EXPECT_EQ(sink->Log(), "7456(-1,,-1)");

    // A document that does not parse changes nothing and announces nothing.
    sink->Take();
    ASSERT_EQ(client->put_X(9), S_OK);
    sink->Take();
    EXPECT_EQ(LoadXml(Document("<X dt:dt=\"r8\">7</Y>"), existing, luxPersistOptionAll), ids_LuxFormatter_StartEndMismatch_2);
    EXPECT_EQ(Coordinates(client.get()), "9.000000,0.000000");
    EXPECT_EQ(sink->Log(), "");
    ASSERT_EQ(Unadvise(client.get(), DIID_ILuxChangeEvent, cookie), S_OK);
}

TEST_F(LoadOrderTest, ObjectsTheLoaderCreatesRunPreLoadPersistAndPostLoadAfterTheWholeGraph) {
    // Every TestPoint the loader makes starts without a prepared marker, so the document's
    // values land unchanged and a missing one keeps its default.
    IDispatch* loaded = nullptr;
    const std::string text = Document("<X dt:dt=\"r8\">1.5</X>");
    ASSERT_EQ(LoadObjectFromBytes(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()),
                                  luxPersistFormatXML, &loaded),
              S_OK);
    const auto root = ComPtr<IDispatch>::Attach(loaded);
    ComPtr<ITestPoint> point;
    ASSERT_EQ(root->QueryInterface(ITestPoint::iid, point.OutVoid()), S_OK);
    EXPECT_EQ(Coordinates(point.get()), "1.500000,0.000000");
    EXPECT_EQ(Marker(point.get()), "");
}

}  // namespace
}  // namespace tessaly::test
