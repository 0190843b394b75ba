// Persistence of the object base and the collections through the archive: what Persist
// writes and in which order, what loading does with absent and bad values, the option
// bits and the has-changed flag. A recording writer stands in for a formatter.
#include <string>
#include <utility>
#include <vector>

#include "core/CollectionFixture.h"
#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "com/core/impl/ArchiveAccess.h"
#include "platform/SafeArray.h"
#include "support/RecordedError.h"
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
        auto archive = CLuxArchive::ForSaving(writer, options);
        EXPECT_EQ(persist->Persist(archive.get(), options | luxPersistOptionSaving), S_OK);
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

}  // namespace
}  // namespace tessaly::test
