// Lazy construction of records: each part asked for once, on its first use, with the
// record, its key and the flags; every member of the sub-record list asks for the items
// first; a failing constructor's code and error info come back, the part is put back as it
// was and asked for again; setting a part settles it; Initialize replaces a pending
// constructor; Copy copies a pending constructor; saving constructs first.
#include <functional>
#include <vector>

#include "com/core/ObjectPersistence.h"
#include "tool/RecordFixture.h"

namespace tessaly::test {
namespace {

using Shared = TestConstructor::Shared;

class RecordConstructorTest : public RecordFixture {
public:
    // A record initialised with a constructor over `shared`; the constructor's actions fill
    // Content "built", Annotation "noted" and two sub-records "a" and "b".
    static ComPtr<ILuxRecord> Lazy(const std::shared_ptr<Shared>& shared, const char* key = "lazy", LONG flags = 0) {
        if (!shared->content)
            shared->content = [](ILuxRecord* record) { return record->put_Content(Variant("built").get()); };
        if (!shared->annotation)
            shared->annotation = [](ILuxRecord* record) { return record->put_Annotation(Bstr("noted").get()); };
        if (!shared->items)
            shared->items = [](ILuxRecord* record) {
                AddString(record, "a", "1");
                AddString(record, "b", "2");
                return S_OK;
            };
        auto record = NewRecord();
        auto constructor = TestConstructor::Make(shared);
        EXPECT_EQ(record->Initialize(Bstr(key).get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                                     Variant("placeholder").get(), Bstr("").get(), constructor.get(), flags),
                  S_OK);
        return record;
    }
    static std::vector<std::string> Methods(const Shared& shared) {
        std::vector<std::string> methods;
        for (const ConstructorCall& call : shared.calls) methods.push_back(call.method);
        return methods;
    }
};

TEST_F(RecordConstructorTest, EachPartIsBuiltOnceOnItsFirstRead) {
    auto shared = std::make_shared<Shared>();
    auto record = Lazy(shared, "Histogram", 0x5A);
    EXPECT_TRUE(shared->calls.empty()) << "Initialize builds nothing";

    Variant content;
    ASSERT_EQ(record->get_Content(content.Out()), S_OK);
    EXPECT_EQ(std::string(BstrView(content.get().bstrVal)), "built");
    ASSERT_EQ(record->get_Content(content.Out()), S_OK);
    EXPECT_EQ(shared->calls, (std::vector<ConstructorCall>{{"Content", record.get(), "Histogram", 0x5A}}));

    // The other fields are not parts: reading them asks for nothing.
    Bstr key;
    ASSERT_EQ(record->get_RecordKey(key.Out()), S_OK);
    EXPECT_EQ(shared->calls.size(), 1u);

    Bstr annotation;
    ASSERT_EQ(record->get_Annotation(annotation.Out()), S_OK);
    EXPECT_EQ(annotation, "noted");
    LONG count = 0;
    ASSERT_EQ(record->get_Count(&count), S_OK);
    EXPECT_EQ(count, 2);
    ASSERT_EQ(record->get_Count(&count), S_OK);
    ASSERT_EQ(record->get_Annotation(annotation.Out()), S_OK);
    EXPECT_EQ(shared->calls, (std::vector<ConstructorCall>{{"Content", record.get(), "Histogram", 0x5A},
                                                           {"Annotation", record.get(), "Histogram", 0x5A},
                                                           {"Items", record.get(), "Histogram", 0x5A}}));

    // The key given is the key at the moment of asking.
    auto later = std::make_shared<Shared>();
    auto renamed = Lazy(later, "before", -1);
    ASSERT_EQ(renamed->put_RecordKey(Bstr("after").get()), S_OK);
    ASSERT_EQ(renamed->get_Annotation(annotation.Out()), S_OK);
    EXPECT_EQ(later->calls, (std::vector<ConstructorCall>{{"Annotation", renamed.get(), "after", -1}}));
}

TEST_F(RecordConstructorTest, EveryMemberOfTheListBuildsTheItemsFirst) {
    using Use = std::function<HRESULT(ILuxRecord*)>;
    const std::vector<std::pair<const char*, Use>> uses{
        {"Count", [](ILuxRecord* r) { LONG n; return r->get_Count(&n); }},
        {"Item", [](ILuxRecord* r) { ComPtr<ILuxRecord> i; return r->get_Item(Variant("b").get(), i.Out()); }},
        {"_NewEnum", [](ILuxRecord* r) { ComPtr<IUnknown> e; return r->get__NewEnum(e.Out()); }},
        {"FindKey", [](ILuxRecord* r) { LONG n; return r->FindKey(Bstr("a").get(), &n); }},
        {"FindItem", [](ILuxRecord* r) { LONG n; return r->FindItem(r, &n); }},
        {"Key", [](ILuxRecord* r) { Bstr k; return r->get_Key(1, k.Out()); }},
        {"Key put", [](ILuxRecord* r) { return r->put_Key(0, Bstr("A2").get()); }},
        {"Remove", [](ILuxRecord* r) { return r->Remove(Variant("a").get()); }},
        {"Move", [](ILuxRecord* r) { return r->Move(0, 1); }},
        {"Clear", [](ILuxRecord* r) { return r->Clear(); }},
        {"Add", [](ILuxRecord* r) { return r->Add(NewRecord("c").get(), -1); }},
        {"AddNew", [](ILuxRecord* r) { return AddString(r, "c", "3") ? S_OK : E_FAIL; }},
        {"Item putref", [](ILuxRecord* r) { return r->putref_Item(Variant("c").get(), NewRecord().get()); }},
    };
    for (const auto& [name, use] : uses) {
        auto shared = std::make_shared<Shared>();
        auto record = Lazy(shared);
        EXPECT_EQ(use(record.get()), S_OK) << name;
        EXPECT_EQ(Methods(*shared), std::vector<std::string>{"Items"}) << name;
    }
    // "Add" of a key that the constructor is about to add: refused as a duplicate, since
    // the items exist before the addition.
    auto shared = std::make_shared<Shared>();
    auto record = Lazy(shared);
    ExpectRefused(record->Add(NewRecord("A").get(), -1), kDuplicateKey, "Add");
    EXPECT_EQ(Keys(record.get()), (std::vector<std::string>{"a", "b"}));
}

TEST_F(RecordConstructorTest, AFailureComesBackAndIsTriedAgain) {
    auto shared = std::make_shared<Shared>();
    int failures = 2;
    // Each part's constructor changes the part, then fails, until `failures` runs out.
    shared->content = [&](ILuxRecord* record) {
        record->put_Content(Variant("half-built").get());
        if (failures-- > 0) return SetErrorInfo(E_ACCESSDENIED, "camera busy", "ConstructRecordContent", IID_ILuxRecordConstructor);
        return record->put_Content(Variant("built").get());
    };
    shared->annotation = [&](ILuxRecord* record) {
        record->put_Annotation(Bstr("half").get());
        return SetErrorInfo(E_FAIL, "no text", "ConstructRecordAnnotation", IID_ILuxRecordConstructor);
    };
    shared->items = [&](ILuxRecord* record) {
        AddString(record, "a", "1");
        return SetErrorInfo(E_ABORT, "no items", "ConstructRecordItems", IID_ILuxRecordConstructor);
    };
    auto record = Lazy(shared);
    auto log = Events(record.get());

    Variant content;
    EXPECT_EQ(record->get_Content(content.Out()), E_ACCESSDENIED);
    RecordedError error = TakeErrorInfo();
    EXPECT_EQ(error.description, "camera busy");
    EXPECT_EQ(error.source, "ConstructRecordContent");
    EXPECT_EQ(content.vt(), VT_EMPTY);
    Bstr annotation;
    EXPECT_EQ(record->get_Annotation(annotation.Out()), E_FAIL);
    EXPECT_EQ(TakeErrorInfo().description, "no text");
    LONG count = -1;
    EXPECT_EQ(record->get_Count(&count), E_ABORT);
    EXPECT_EQ(TakeErrorInfo().description, "no items");

    // Each part is as before its constructor ran, which is asked again next time.
    shared->annotation = {};
    shared->items = {};
    const std::vector<std::string> asked = Methods(*shared);
    EXPECT_EQ(asked, (std::vector<std::string>{"Content", "Annotation", "Items"}));
    ASSERT_EQ(record->get_Annotation(annotation.Out()), S_OK);
    EXPECT_EQ(annotation, "") << "the annotation given to Initialize, put back";
    ASSERT_EQ(record->get_Count(&count), S_OK);
    EXPECT_EQ(count, 0) << "the sub-record added before the failure was taken out again";
    EXPECT_EQ(record->get_Content(content.Out()), E_ACCESSDENIED);
    TakeErrorInfo();
    ASSERT_EQ(record->get_Content(content.Out()), S_OK);
    EXPECT_EQ(std::string(BstrView(content.get().bstrVal)), "built");
    ASSERT_EQ(record->get_Content(content.Out()), S_OK);
    EXPECT_EQ(Methods(*shared), (std::vector<std::string>{"Content", "Annotation", "Items", "Annotation", "Items",
                                                          "Content", "Content"}));
    // Each restoration is announced after the constructor's own changes.
    EXPECT_FALSE(log->empty());
    EXPECT_EQ(log->back().stateId, luxRecord_Content);
}

TEST_F(RecordConstructorTest, SettingAPartOrInitializingAgainSettlesIt) {
    auto shared = std::make_shared<Shared>();
    auto record = Lazy(shared);
    ASSERT_EQ(record->put_Content(Variant("given").get()), S_OK);
    ASSERT_EQ(record->put_Annotation(Bstr("given").get()), S_OK);
    EXPECT_EQ(View(record.get(), false).content, "given");
    EXPECT_EQ(View(record.get(), false).annotation, "given");
    EXPECT_TRUE(shared->calls.empty());

    // A new Initialize replaces the pending constructor: the first is never asked.
    auto second = std::make_shared<Shared>();
    second->content = [](ILuxRecord* r) { return r->put_Content(Variant("second").get()); };
    auto replacement = TestConstructor::Make(second);
    ASSERT_EQ(record->Initialize(Bstr("lazy").get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                                 Variant().get(), nullptr, replacement.get(), 7),
              S_OK);
    EXPECT_EQ(View(record.get(), false).content, "second");
    EXPECT_TRUE(shared->calls.empty());
    ASSERT_EQ(second->calls.size(), 2u);
    EXPECT_EQ(second->calls[0].flags, 7);

    // Without a constructor nothing is pending.
    ASSERT_EQ(record->Initialize(Bstr("lazy").get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                                 Variant("plain").get(), nullptr, nullptr, 0),
              S_OK);
    EXPECT_EQ(View(record.get()).content, "plain");
    EXPECT_EQ(second->calls.size(), 2u);
}

TEST_F(RecordConstructorTest, AddNewPassesTheConstructorAndFlags) {
    auto root = NewRecord("root");
    auto shared = std::make_shared<Shared>();
    shared->content = [](ILuxRecord* r) { return r->put_Content(Variant("child").get()); };
    auto constructor = TestConstructor::Make(shared);
    auto child = AddString(root.get(), "child", "", constructor.get(), 42);
    EXPECT_TRUE(shared->calls.empty());
    auto found = ItemAt(root.get(), Variant("child"));
    EXPECT_EQ(View(found.get(), false).content, "child");
    EXPECT_EQ(shared->calls, (std::vector<ConstructorCall>{{"Annotation", child.get(), "child", 42},
                                                           {"Content", child.get(), "child", 42}}));
}

TEST_F(RecordConstructorTest, CopyTakesAPendingConstructorAlong) {
    auto shared = std::make_shared<Shared>();
    auto record = Lazy(shared, "source", 3);
    Variant content;
    ASSERT_EQ(record->get_Content(content.Out()), S_OK);  // content settled, the rest pending

    ComPtr<ILuxRecord> copy;
    ASSERT_EQ(record->Copy(copy.Out()), S_OK);
    EXPECT_EQ(shared->copies, 1);
    EXPECT_EQ(shared->calls.size(), 1u) << "copying builds nothing";
    EXPECT_EQ(View(copy.get(), false).content, "built") << "the settled content is copied";
    EXPECT_EQ(shared->calls.size(), 2u);
    EXPECT_EQ(shared->calls[1], (ConstructorCall{"Annotation", copy.get(), "source", 3}));
    EXPECT_EQ(Keys(copy.get()), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(Methods(*shared).back(), "Items");
    const size_t calls = shared->calls.size();
    EXPECT_EQ(Keys(record.get()), (std::vector<std::string>{"a", "b"})) << "the source is still pending";
    EXPECT_EQ(shared->calls.size(), calls + 2) << "its annotation and items";
    EXPECT_EQ(shared->calls.back().record, record.get());

    // A settled record copies no constructor; one that cannot be copied fails the copy.
    ComPtr<ILuxRecord> again;
    ASSERT_EQ(View(record.get()).annotation, "noted");
    ASSERT_EQ(record->Copy(again.Out()), S_OK);
    EXPECT_EQ(shared->copies, 1);
    auto refusing = std::make_shared<Shared>();
    refusing->refuseCopy = true;
    auto pending = Lazy(refusing);
    ComPtr<ILuxRecord> none;
    EXPECT_EQ(pending->Copy(none.Out()), E_ACCESSDENIED);
    EXPECT_EQ(TakeErrorInfo().description, "no copies");
    EXPECT_EQ(none, nullptr);
    EXPECT_TRUE(refusing->calls.empty());
}

TEST_F(RecordConstructorTest, SavingBuildsEverythingFirst) {
    auto root = NewRecord("root");
    auto shared = std::make_shared<Shared>();
    auto constructor = TestConstructor::Make(shared);
    auto child = AddString(root.get(), "child", "", constructor.get(), 0);
    shared->content = [](ILuxRecord* r) { return r->put_Content(Variant("late").get()); };
    shared->items = [](ILuxRecord* r) { return AddString(r, "grandchild", "g") ? S_OK : E_FAIL; };
    for (const int32_t format : {luxPersistFormatBinary, luxPersistFormatXML}) {
        std::vector<uint8_t> bytes;
        ASSERT_EQ(SaveObjectToBytes(As<IDispatch>(root.get()).get(), format, luxPersistOptionAll, &bytes), S_OK);
        ComPtr<IDispatch> loaded;
        ASSERT_EQ(LoadObjectFromBytes(bytes, format, loaded.Out()), S_OK);
        auto backChild = ItemAt(As<ILuxRecord>(loaded.get()).get(), Variant("child"));
        EXPECT_EQ(View(backChild.get(), false).content, "late");
        EXPECT_EQ(Keys(backChild.get()), std::vector<std::string>{"grandchild"});
    }
    EXPECT_EQ(Methods(*shared), (std::vector<std::string>{"Content", "Annotation", "Items"}));

    // A constructor that fails stops the save with its failure.
    auto failing = std::make_shared<Shared>();
    failing->content = [](ILuxRecord*) {
        return SetErrorInfo(E_ACCESSDENIED, "not now", "ConstructRecordContent", IID_ILuxRecordConstructor);
    };
    auto refused = TestConstructor::Make(failing);
    AddString(root.get(), "failing", "", refused.get(), 0);
    std::vector<uint8_t> bytes;
    EXPECT_EQ(SaveObjectToBytes(As<IDispatch>(root.get()).get(), luxPersistFormatBinary, luxPersistOptionAll, &bytes),
              E_ACCESSDENIED);
    TakeErrorInfo();
}

}  // namespace
}  // namespace tessaly::test
