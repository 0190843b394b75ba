// LuxRecord through its interfaces: the fields with their state IDs and refusals, the
// content rules of the known types, the sub-records keyed by their RecordKeys (duplicates,
// lookups after a key change, belonging to one record, cycles), Item putref, the passing
// on of sub-record changes with their index, Copy, enumeration and persistence in both
// formats. Every refusal is checked for its HRESULT, the record left as it was and no event.
#include <atomic>
#include <thread>
#include <vector>

#include "com/core/ObjectPersistence.h"
#include "tool/RecordFixture.h"

namespace tessaly::test {
namespace {

class RecordTest : public RecordFixture {};

TEST_F(RecordTest, FieldsRaiseTheirStateIdsAndNothingForThePresentValue) {
    auto record = Make<ILuxRecord>("Tessaly.LuxRecord");
    EXPECT_EQ(View(record.get()), (RecordView{"", "", 0, 0, false, "<vt 0>", {}}));
    auto log = Events(record.get());

    ASSERT_EQ(record->put_RecordKey(Bstr("Result").get()), S_OK);
    ASSERT_EQ(record->put_RecordType(luxRecordTypeString), S_OK);
    ASSERT_EQ(record->put_RecordUsage(luxRecordUsageDiagnostic), S_OK);
    ASSERT_EQ(record->put_ContentMutable(VARIANT_TRUE), S_OK);
    ASSERT_EQ(record->put_Content(Variant("12 blobs").get()), S_OK);
    ASSERT_EQ(record->put_Annotation(Bstr("count").get()), S_OK);
    const std::vector<RecordEvent> expected{{luxRecord_RecordKey},      {luxRecord_RecordType},
                                            {luxRecord_RecordUsage},    {luxRecord_ContentMutable},
                                            {luxRecord_Content},        {luxRecord_Annotation}};
    EXPECT_EQ(*log, expected);
    const RecordView set{"Result", "count", luxRecordTypeString, luxRecordUsageDiagnostic, true, "12 blobs", {}};
    EXPECT_EQ(View(record.get()), set);

    // The present values again: nothing.
    ASSERT_EQ(record->put_RecordKey(Bstr("Result").get()), S_OK);
    ASSERT_EQ(record->put_RecordType(luxRecordTypeString), S_OK);
    ASSERT_EQ(record->put_RecordUsage(luxRecordUsageDiagnostic), S_OK);
    ASSERT_EQ(record->put_ContentMutable(VARIANT_TRUE), S_OK);
    ASSERT_EQ(record->putref_Content(Variant("12 blobs").get()), S_OK);
    ASSERT_EQ(record->put_Annotation(Bstr("count").get()), S_OK);
    EXPECT_EQ(log->size(), expected.size());
    // A key differing in case only is a different key.
    ASSERT_EQ(record->put_RecordKey(Bstr("RESULT").get()), S_OK);
    EXPECT_EQ(log->size(), expected.size() + 1);

    ExpectRefused(record->get_RecordKey(nullptr), E_POINTER, "get_RecordKey");
    ExpectRefused(record->get_Content(nullptr), E_POINTER, "get_Content");
    ExpectRefused(record->get_Count(nullptr), E_POINTER, "get_Count");
    ExpectRefused(record->AddNew(nullptr, luxRecordTypeString, luxRecordUsageResult, 0, Variant().get(), nullptr,
                                 nullptr, 0, nullptr),
                  E_POINTER, "AddNew");
    EXPECT_EQ(Keys(record.get()).size(), 0u);
}

TEST_F(RecordTest, ContentMustFitTheKnownTypes) {
    auto strings = Make<ILuxStringCollection>("Tessaly.LuxStringCollection");
    auto collection = Make<ILuxCollection>("Tessaly.LuxCollection");
    auto image = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    auto rectangle = Make<IDispatch>("Tessaly.LuxRectangle");
    const Variant asStrings(static_cast<IDispatch*>(strings.get()));
    const Variant asCollection(static_cast<IDispatch*>(collection.get()));
    const Variant asImage(static_cast<IDispatch*>(image.get()));
    const Variant asGraphic(rectangle.get());
    const Variant text("text"), number(int32_t{7}), nothing;

    struct Case {
        LONG type;
        std::vector<const Variant*> fit, misfit;
    };
    const std::vector<Case> cases{
        {luxRecordTypeString, {&text, &nothing}, {&number, &asStrings, &asImage}},
        {luxRecordTypeStringsCollection, {&asStrings, &nothing}, {&text, &asCollection, &asImage}},
        {luxRecordTypeImage, {&asImage, &nothing}, {&text, &asStrings, &asGraphic}},
        {luxRecordTypeGraphic, {&asGraphic, &nothing}, {&text, &asImage}},
        {luxRecordTypeUserDefined + 3, {&text, &number, &asImage, &asCollection, &nothing}, {}},
    };
    for (const Case& c : cases) {
        auto record = NewRecord("r", c.type);
        for (const Variant* value : c.fit) EXPECT_EQ(record->put_Content(value->get()), S_OK) << c.type;
        ASSERT_EQ(record->put_Content(Variant().get()), S_OK);
        const RecordView before = View(record.get());
        auto log = Events(record.get());
        for (const Variant* value : c.misfit) {
            ExpectRefused(record->put_Content(value->get()), E_INVALIDARG, "put_Content");
            ExpectRefused(record->putref_Content(value->get()), E_INVALIDARG, "put_Content");
            ExpectRefused(record->Initialize(Bstr("r").get(), static_cast<LuxRecordTypeConstants>(c.type),
                                             luxRecordUsageResult, VARIANT_TRUE, value->get(), Bstr("x").get(),
                                             nullptr, 0),
                          E_INVALIDARG, "Initialize");
            ComPtr<ILuxRecord> added;
            ExpectRefused(record->AddNew(Bstr("sub").get(), static_cast<LuxRecordTypeConstants>(c.type),
                                         luxRecordUsageResult, VARIANT_FALSE, value->get(), nullptr, nullptr, 0,
                                         added.Out()),
                          E_INVALIDARG, "AddNew");
            EXPECT_EQ(added, nullptr);
        }
        EXPECT_EQ(View(record.get()), before) << c.type;
        EXPECT_TRUE(log->empty()) << c.type;
    }

    // The message names the argument.
    auto record = NewRecord("r", luxRecordTypeString);
    ASSERT_EQ(record->put_Content(number.get()), E_INVALIDARG);
    const RecordedError error = TakeErrorInfo();
    EXPECT_NE(error.description.find("Content"), std::string::npos) << error.description;

    // A type that the present content does not fit is refused, naming RecordType.
    auto holding = NewRecord("r", luxRecordTypeImage);
    ASSERT_EQ(holding->put_Content(asImage.get()), S_OK);
    auto log = Events(holding.get());
    ExpectRefused(holding->put_RecordType(luxRecordTypeString), E_INVALIDARG, "put_RecordType");
    LuxRecordTypeConstants type{};
    ASSERT_EQ(holding->get_RecordType(&type), S_OK);
    EXPECT_EQ(type, luxRecordTypeImage);
    EXPECT_TRUE(log->empty());
    ASSERT_EQ(holding->put_RecordType(luxRecordTypeUserDefined), S_OK) << "an open type holds anything";
}

TEST_F(RecordTest, SubRecordsAreKeyedByTheirRecordKeys) {
    auto root = NewRecord("root");
    AddString(root.get(), "Count", "12");
    AddString(root.get(), "", "no key");
    auto mean = NewRecord("Mean");
    ASSERT_EQ(root->Add(mean.get(), 1), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"Count", "Mean", ""}));
    auto unkeyed = NewRecord("");
    ASSERT_EQ(root->Add(unkeyed.get(), 3), S_OK) << "index == Count appends; several records may have no key";

    LONG index = -5;
    ASSERT_EQ(root->FindKey(Bstr("mean").get(), &index), S_OK);
    EXPECT_EQ(index, 1) << "keys compare without regard to case";
    ASSERT_EQ(root->FindKey(Bstr("absent").get(), &index), S_OK);
    EXPECT_EQ(index, luxNoIndex);
    ASSERT_EQ(root->FindItem(mean.get(), &index), S_OK);
    EXPECT_EQ(index, 1);
    ASSERT_EQ(root->FindItem(root.get(), &index), S_OK);
    EXPECT_EQ(index, luxNoIndex);
    EXPECT_EQ(ItemAt(root.get(), Variant("COUNT")) , ItemAt(root.get(), Variant(int32_t{0})));
    EXPECT_EQ(ItemAt(root.get(), Variant(1.0)).get(), mean.get()) << "1.0 addresses index 1";

    // Refusals: exact code, nothing changed, no event.
    const RecordView before = View(root.get());
    auto log = Events(root.get());
    auto other = NewRecord("MEAN");
    ExpectRefused(root->Add(other.get(), -1), kDuplicateKey, "Add");
    auto fresh = NewRecord("fresh");
    ExpectRefused(root->Add(fresh.get(), 5), kInvalidIndex, "Add");
    ExpectRefused(root->Add(fresh.get(), -2), kInvalidIndex, "Add");
    ExpectRefused(root->Add(nullptr, -1), E_INVALIDARG, "Add");
    ComPtr<ILuxRecord> none;
    ExpectRefused(root->AddNew(Bstr("count").get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                               Variant("x").get(), nullptr, nullptr, 0, none.Out()),
                  kDuplicateKey, "AddNew");
    EXPECT_EQ(none, nullptr);
    ExpectRefused(root->get_Item(Variant(int32_t{4}).get(), none.Out()), kInvalidIndex, "get_Item");
    ExpectRefused(root->get_Item(Variant("nobody").get(), none.Out()), kInvalidKey, "get_Item");
    VARIANT null{};
    null.vt = VT_NULL;
    ExpectRefused(root->get_Item(null, none.Out()), kInvalidKey, "get_Item");
    ExpectRefused(root->Remove(Variant(int32_t{-1}).get()), kInvalidIndex, "Remove");
    ExpectRefused(root->Remove(Variant("nobody").get()), kKeyNotFound, "Remove");
    ExpectRefused(root->Move(0, 4), kInvalidIndex, "Move");
    Bstr key;
    ExpectRefused(root->get_Key(4, key.Out()), kInvalidIndex, "get_Key");
    ExpectRefused(root->put_Key(-1, Bstr("x").get()), kInvalidIndex, "put_Key");
    EXPECT_EQ(View(root.get()), before);
    EXPECT_TRUE(log->empty());

    // Changes of the list raise Change(-1).
    ASSERT_EQ(root->Move(0, 2), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"Mean", "", "Count", ""}));
    ASSERT_EQ(root->FindKey(Bstr("count").get(), &index), S_OK);
    EXPECT_EQ(index, 2) << "the key index follows a move";
    ASSERT_EQ(root->Remove(Variant("mean").get()), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"", "Count", ""}));
    ASSERT_EQ(root->Clear(), S_OK);
    ASSERT_EQ(root->Clear(), S_OK);  // empty already: nothing
    EXPECT_EQ(*log, (std::vector<RecordEvent>{{-1}, {-1}, {-1}}));
    ASSERT_EQ(root->Add(mean.get(), -1), S_OK) << "a removed record is free to join again";
}

TEST_F(RecordTest, AKeyIsTheSubRecordsRecordKey) {
    auto root = NewRecord("root");
    std::vector<ComPtr<ILuxRecord>> items;
    // Past a handful of entries the keys are hashed: the same rules hold.
    for (int i = 0; i < 20; ++i) items.push_back(AddString(root.get(), ("k" + std::to_string(i)).c_str(), "v"));
    auto rootLog = Events(root.get());
    auto itemLog = Events(items[15].get());

    ASSERT_EQ(items[15]->put_RecordKey(Bstr("renamed").get()), S_OK);
    LONG index = -5;
    ASSERT_EQ(root->FindKey(Bstr("RENAMED").get(), &index), S_OK);
    EXPECT_EQ(index, 15);
    ASSERT_EQ(root->FindKey(Bstr("k15").get(), &index), S_OK);
    EXPECT_EQ(index, luxNoIndex);
    EXPECT_EQ(Keys(root.get())[15], "renamed");
    EXPECT_EQ(*itemLog, std::vector<RecordEvent>{{luxRecord_RecordKey}});

    // Key put sets the sub-record's RecordKey.
    ASSERT_EQ(root->put_Key(3, Bstr("third").get()), S_OK);
    Bstr key;
    ASSERT_EQ(items[3]->get_RecordKey(key.Out()), S_OK);
    EXPECT_EQ(key, "third");
    EXPECT_EQ(ItemAt(root.get(), Variant("third")).get(), items[3].get());
    ASSERT_EQ(root->put_Key(3, Bstr("third").get()), S_OK);  // the present key: nothing

    // A key a sibling holds is refused either way, and nothing changes.
    const RecordView before = View(root.get());
    const size_t rootEvents = rootLog->size(), itemEvents = itemLog->size();
    ExpectRefused(items[15]->put_RecordKey(Bstr("K2").get()), kDuplicateKey, "put_RecordKey");
    ExpectRefused(root->put_Key(15, Bstr("k2").get()), kDuplicateKey, "put_Key");
    ExpectRefused(items[15]->Initialize(Bstr("k2").get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                                        Variant("other").get(), nullptr, nullptr, 0),
                  kDuplicateKey, "Initialize");
    EXPECT_EQ(View(root.get()), before);
    EXPECT_EQ(View(items[15].get()).content, "v") << "a refused Initialize changes no field";
    EXPECT_EQ(rootLog->size(), rootEvents);
    EXPECT_EQ(itemLog->size(), itemEvents);

    // An empty key is no key: any number of sub-records may have it.
    ASSERT_EQ(items[0]->put_RecordKey(Bstr("").get()), S_OK);
    ASSERT_EQ(items[1]->put_RecordKey(Bstr("").get()), S_OK);
    ASSERT_EQ(root->FindKey(Bstr("").get(), &index), S_OK);
    EXPECT_EQ(index, luxNoIndex);

    // Once removed, a record's key is its own again.
    ASSERT_EQ(root->Remove(Variant(int32_t{15}).get()), S_OK);
    ASSERT_EQ(items[15]->put_RecordKey(Bstr("k2").get()), S_OK);
    ASSERT_EQ(root->FindKey(Bstr("k2").get(), &index), S_OK);
    EXPECT_EQ(index, 2);
}

TEST_F(RecordTest, ARecordBelongsToOneRecordAndNeverToItself) {
    auto a = NewRecord("a");
    auto b = NewRecord("b");
    auto c = NewRecord("c");
    ASSERT_EQ(a->Add(b.get(), -1), S_OK);
    ASSERT_EQ(b->Add(c.get(), -1), S_OK);
    auto other = NewRecord("other");
    const RecordView beforeA = View(a.get()), beforeOther = View(other.get());
    auto log = Events(other.get());
    ExpectRefused(other->Add(b.get(), -1), E_INVALIDARG, "Add") ;
    ExpectRefused(a->Add(b.get(), -1), E_INVALIDARG, "Add");
    ExpectRefused(a->Add(a.get(), -1), E_INVALIDARG, "Add");
    ExpectRefused(c->Add(a.get(), -1), E_INVALIDARG, "Add");
    ExpectRefused(c->putref_Item(Variant("x").get(), a.get()), E_INVALIDARG, "put_Item");
    ExpectRefused(other->putref_Item(Variant("x").get(), nullptr), E_INVALIDARG, "put_Item");
    ExpectRefused(other->putref_Item(Variant("").get(), c.get()), kInvalidKey, "put_Item");
    EXPECT_EQ(View(a.get()), beforeA);
    EXPECT_EQ(View(other.get()), beforeOther);
    EXPECT_TRUE(log->empty());

    ASSERT_EQ(a->Remove(Variant(int32_t{0}).get()), S_OK);
    ASSERT_EQ(other->Add(b.get(), -1), S_OK);
    ASSERT_EQ(c->Add(a.get(), -1), S_OK) << "a no longer holds c: no cycle now";
    ASSERT_EQ(c->Remove(Variant(int32_t{0}).get()), S_OK);
}

TEST_F(RecordTest, ItemPutrefReplacesOrAppendsUnderTheKey) {
    auto root = NewRecord("root");
    auto first = AddString(root.get(), "first", "1");
    auto second = AddString(root.get(), "second", "2");

    // By index: the new record keeps its key; the old one is let go.
    auto third = NewRecord("third");
    ASSERT_EQ(root->putref_Item(Variant(int32_t{0}).get(), third.get()), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"third", "second"}));
    auto elsewhere = NewRecord("elsewhere");
    ASSERT_EQ(elsewhere->Add(first.get(), -1), S_OK) << "the replaced record belongs to nobody";

    // By a key that is held: replaced, and the record takes that key.
    auto named = NewRecord("anything");
    auto namedLog = Events(named.get());
    ASSERT_EQ(root->putref_Item(Variant("SECOND").get(), named.get()), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"third", "SECOND"}));
    EXPECT_EQ(*namedLog, std::vector<RecordEvent>{{luxRecord_RecordKey}});

    // By a key nobody holds: appended under it.
    auto appended = NewRecord("");
    ASSERT_EQ(root->putref_Item(Variant("last").get(), appended.get()), S_OK);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"third", "SECOND", "last"}));
    // The same record where it is already: nothing.
    auto log = Events(root.get());
    ASSERT_EQ(root->putref_Item(Variant(int32_t{2}).get(), appended.get()), S_OK);
    EXPECT_TRUE(log->empty());

    // By index with a record whose key a sibling holds: refused, nothing changes.
    auto clash = NewRecord("Third");
    const RecordView before = View(root.get());
    ExpectRefused(root->putref_Item(Variant(int32_t{1}).get(), clash.get()), kDuplicateKey, "put_Item");
    ExpectRefused(root->putref_Item(Variant(int32_t{3}).get(), clash.get()), kInvalidIndex, "put_Item");
    EXPECT_EQ(View(root.get()), before);
    EXPECT_TRUE(log->empty());
    ASSERT_EQ(root->putref_Item(Variant(int32_t{0}).get(), clash.get()), S_OK) << "replacing the holder is fine";
}

TEST_F(RecordTest, SubRecordChangesArePassedOnWithTheirIndex) {
    auto root = NewRecord("root");
    auto a = AddString(root.get(), "a", "1");
    auto b = AddString(root.get(), "b", "2");
    auto leaf = AddString(b.get(), "leaf", "3");
    auto log = Events(root.get());

    ASSERT_EQ(b->put_Annotation(Bstr("note").get()), S_OK);
    ASSERT_EQ(leaf->put_Content(Variant("4").get()), S_OK);
    ASSERT_EQ(root->Move(1, 0), S_OK);
    ASSERT_EQ(b->put_RecordUsage(luxRecordUsageInput), S_OK);
    const std::vector<RecordEvent> expected{
        {luxState_SubObjectEvent, 1, luxRecord_Annotation},
        {luxState_SubObjectEvent, 1, luxState_SubObjectEvent},  // the leaf, through b
        {luxState_MoreThanOneStateIDChanged},
        {luxState_SubObjectEvent, 0, luxRecord_RecordUsage},  // b's new index after the move
    };
    EXPECT_EQ(*log, expected);
    VARIANT_BOOL changed = 0;
    ASSERT_EQ(As<ILuxPersistArchive>(root.get())->put_HasChanged(VARIANT_FALSE), S_OK);
    ASSERT_EQ(a->put_Annotation(Bstr("x").get()), S_OK);
    ASSERT_EQ(As<ILuxPersistArchive>(root.get())->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_FALSE) << "a sub-record's change is not the record's own";

    ASSERT_EQ(root->Remove(Variant("b").get()), S_OK);
    log->clear();
    ASSERT_EQ(b->put_Annotation(Bstr("gone").get()), S_OK);
    ASSERT_EQ(leaf->put_Annotation(Bstr("gone").get()), S_OK);
    EXPECT_TRUE(log->empty()) << "a removed record's changes are not passed on";
}

TEST_F(RecordTest, CopyIsDeepAndSharesOnlyImmutableContent) {
    auto image = Make<ILuxImage8Grey>("Tessaly.LuxImage8Grey");
    ASSERT_EQ(As<ILuxImage>(image.get())->Allocate(4, 3), S_OK);
    auto root = NewRecord("root");
    ComPtr<ILuxRecord> shared, owned;
    ASSERT_EQ(root->AddNew(Bstr("shared").get(), luxRecordTypeImage, luxRecordUsageInput, VARIANT_FALSE,
                           Variant(static_cast<IDispatch*>(image.get())).get(), Bstr("in").get(), nullptr, 0,
                           shared.Out()),
              S_OK);
    ASSERT_EQ(root->AddNew(Bstr("owned").get(), luxRecordTypeImage, luxRecordUsageResult, VARIANT_TRUE,
                           Variant(static_cast<IDispatch*>(image.get())).get(), Bstr("out").get(), nullptr, 0,
                           owned.Out()),
              S_OK);
    AddString(owned.get(), "deep", "text");
    ASSERT_EQ(As<ILuxObject>(root.get())->put_Tag(Variant(int32_t{5}).get()), S_OK);

    ComPtr<ILuxRecord> copy;
    ASSERT_EQ(root->Copy(copy.Out()), S_OK);
    EXPECT_EQ(View(copy.get()), View(root.get()));
    auto copiedShared = ItemAt(copy.get(), Variant("shared"));
    auto copiedOwned = ItemAt(copy.get(), Variant("owned"));
    EXPECT_NE(copiedShared.get(), shared.get());
    EXPECT_NE(copiedOwned.get(), owned.get());
    EXPECT_EQ(View(ItemAt(copiedOwned.get(), Variant("deep")).get()), (RecordView{"deep", "", luxRecordTypeString,
                                                                                  luxRecordUsageResult, false, "text", {}}));
    Variant content;
    ASSERT_EQ(copiedShared->get_Content(content.Out()), S_OK);
    EXPECT_EQ(content.get().pdispVal, static_cast<IDispatch*>(image.get())) << "immutable content is shared";
    ASSERT_EQ(copiedOwned->get_Content(content.Out()), S_OK);
    ASSERT_EQ(content.vt(), VT_DISPATCH);
    EXPECT_NE(content.get().pdispVal, static_cast<IDispatch*>(image.get())) << "mutable content is cloned";
    LONG width = 0;
    EXPECT_EQ(As<ILuxImage>(content.get().pdispVal)->get_Width(&width), S_OK);
    EXPECT_EQ(width, 4);
    Variant tag;
    ASSERT_EQ(As<ILuxObject>(copy.get())->get_Tag(tag.Out()), S_OK);
    EXPECT_EQ(tag.get().lVal, 5);

    // The copy is independent, and its sub-records belong to it.
    ASSERT_EQ(copiedShared->put_RecordKey(Bstr("renamed").get()), S_OK);
    LONG index = -5;
    ASSERT_EQ(copy->FindKey(Bstr("renamed").get(), &index), S_OK);
    EXPECT_EQ(index, 0);
    EXPECT_EQ(Keys(root.get()), (std::vector<std::string>{"shared", "owned"}));
    ASSERT_EQ(copy->Remove(Variant(int32_t{1}).get()), S_OK);
    EXPECT_EQ(Keys(root.get()).size(), 2u);

    // Clone is the same copy.
    ComPtr<IDispatch> clone;
    ASSERT_EQ(As<ILuxObject>(root.get())->Clone(clone.Out()), S_OK);
    EXPECT_EQ(View(As<ILuxRecord>(clone.get()).get()), View(root.get()));
    ExpectRefused(root->Copy(nullptr), E_POINTER, "Copy");
}

TEST_F(RecordTest, EnumerationGoesInIndexOrder) {
    auto root = NewRecord("root");
    for (const char* key : {"x", "y", "z"}) AddString(root.get(), key, key);
    ComPtr<IUnknown> unknown;
    ASSERT_EQ(root->get__NewEnum(unknown.Out()), S_OK);
    auto enumerator = As<IEnumVARIANT>(unknown.get());
    std::vector<std::string> seen;
    VARIANT item;
    ULONG fetched = 0;
    while (enumerator->Next(1, &item, &fetched) == S_OK) {
        Variant held = Variant::Attach(item);
        ASSERT_EQ(held.vt(), VT_DISPATCH);
        seen.push_back(View(As<ILuxRecord>(held.get().pdispVal).get()).key);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"x", "y", "z"}));
}

TEST_F(RecordTest, PersistenceKeepsTheTreeInBothFormats) {
    auto root = NewRecord("root", luxRecordTypeToolDefined);
    ASSERT_EQ(root->put_RecordUsage(luxRecordUsageTool), S_OK);
    ASSERT_EQ(root->put_Annotation(Bstr("region statistics").get()), S_OK);
    auto strings = Make<ILuxStringCollection>("Tessaly.LuxStringCollection");
    ASSERT_EQ(strings->Add(Bstr("alpha").get(), Bstr("").get(), -1), S_OK);
    ASSERT_EQ(strings->Add(Bstr("beta & <gamma>").get(), Bstr("b").get(), -1), S_OK);
    ComPtr<ILuxRecord> lines;
    ASSERT_EQ(root->AddNew(Bstr("Lines").get(), luxRecordTypeStringsCollection, luxRecordUsageDiagnostic,
                           VARIANT_TRUE, Variant(static_cast<IDispatch*>(strings.get())).get(), Bstr("two").get(),
                           nullptr, 0, lines.Out()),
              S_OK);
    auto mean = AddString(root.get(), "Mean", "127.5");
    AddString(mean.get(), "", "unkeyed child");
    // An object that cannot persist itself is left out.
    auto foreign = TestConstructor::Make(std::make_shared<TestConstructor::Shared>());
    ComPtr<ILuxRecord> odd;
    ASSERT_EQ(root->AddNew(Bstr("Odd").get(), luxRecordTypeUserDefined, luxRecordUsageTemporary, VARIANT_FALSE,
                           Variant(static_cast<IDispatch*>(foreign.get())).get(), nullptr, nullptr, 0, odd.Out()),
              S_OK);

    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(root.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> loaded;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        auto back = As<ILuxRecord>(loaded.get());
        EXPECT_EQ(View(back.get()), View(root.get())) << format;
        for (const char* key : {"Lines", "Mean", "Odd"}) {
            RecordView expected = View(ItemAt(root.get(), Variant(key)).get());
            if (std::string(key) == "Odd") expected.content = "<vt 0>";
            EXPECT_EQ(View(ItemAt(back.get(), Variant(key)).get()), expected) << key;
        }
        auto backMean = ItemAt(back.get(), Variant("mean"));
        EXPECT_EQ(View(ItemAt(backMean.get(), Variant(int32_t{0})).get()).content, "unkeyed child");
        Variant content;
        ASSERT_EQ(ItemAt(back.get(), Variant("Lines"))->get_Content(content.Out()), S_OK);
        ASSERT_EQ(content.vt(), VT_DISPATCH);
        auto backStrings = As<ILuxStringCollection>(content.get().pdispVal);
        Bstr text;
        ASSERT_EQ(backStrings->get_Item(Variant("b").get(), text.Out()), S_OK);
        EXPECT_EQ(text, "beta & <gamma>");
        // Loaded sub-records belong to the loaded record: their keys are its keys.
        ASSERT_EQ(backMean->put_RecordKey(Bstr("Lines").get()), kDuplicateKey);
        TakeErrorInfo();
    }
}

TEST_F(RecordTest, KeysStayInStepUnderConcurrentRenamesAndMoves) {
    // Renames lock the parent before the sub-record, moves and lookups the parent alone: the
    // parent's key index and the sub-records' keys must agree after any interleaving, and
    // nothing may deadlock.
    auto root = NewRecord("root");
    constexpr int kItems = 12;
    std::vector<ComPtr<ILuxRecord>> items;
    for (int i = 0; i < kItems; ++i) items.push_back(AddString(root.get(), ("k" + std::to_string(i)).c_str(), "v"));
    // A sink turns forwarding on: sub-record events take the parent's lock too. Events come
    // on every thread, so they are only counted.
    auto seen = std::make_shared<std::atomic<int>>(0);
    auto sink = ComPtr<IDispatch>::Attach(
        MakeEventSink(luxChange_Change, [seen](std::span<const VARIANT>) { ++*seen; }, DIID_ILuxChangeEvent));
    DWORD cookie = 0;
    ASSERT_EQ(Advise(root.get(), DIID_ILuxChangeEvent, sink.get(), &cookie), S_OK);
    std::atomic<bool> failed{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 400; ++round)
                for (int i = t; i < kItems; i += 2) {
                    const std::string key = "k" + std::to_string(i) + (round % 2 ? "x" : "");
                    if (items[i]->put_RecordKey(Bstr(key).get()) != S_OK) failed = true;
                }
        });
    threads.emplace_back([&] {
        for (int round = 0; round < 2000; ++round)
            if (root->Move(round % kItems, (round * 7) % kItems) != S_OK) failed = true;
    });
    threads.emplace_back([&] {
        for (int round = 0; round < 2000; ++round) {
            LONG index = 0;
            if (root->FindKey(Bstr("k3").get(), &index) != S_OK) failed = true;
        }
    });
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(failed);
    LONG count = 0;
    ASSERT_EQ(root->get_Count(&count), S_OK);
    ASSERT_EQ(count, kItems);
    for (LONG i = 0; i < count; ++i) {
        Bstr key, own;
        ASSERT_EQ(root->get_Key(i, key.Out()), S_OK);
        ASSERT_EQ(ItemAt(root.get(), Variant(static_cast<int32_t>(i)))->get_RecordKey(own.Out()), S_OK);
        EXPECT_EQ(key, own) << i;
        LONG found = -1;
        ASSERT_EQ(root->FindKey(key.get(), &found), S_OK);
        EXPECT_EQ(found, i) << key.str();
    }
    EXPECT_GT(seen->load(), 0);
}

}  // namespace
}  // namespace tessaly::test
