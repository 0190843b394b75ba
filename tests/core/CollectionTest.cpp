// LuxCollection and LuxStringCollection through their interfaces: addressing by index and
// by key, the refusals and the state they leave, FindItem's equality, enumeration, late
// binding, Clone, and the key index under many changes and under two threads.
#include <array>
#include <random>
#include <thread>

#include "CollectionFixture.h"
#include "platform/SafeArray.h"

namespace tessaly::test {
namespace {

class CollectionTest : public CollectionFixture {};

// [ "a" (key "A"), 2 (no key), 3.5 (key "c") ]
ComPtr<ILuxCollection> ThreeItems() {
    auto collection = CollectionFixture::NewCollection();
    EXPECT_EQ(Add(collection.get(), Variant("a"), "A"), S_OK);
    EXPECT_EQ(Add(collection.get(), Variant(2)), S_OK);
    EXPECT_EQ(Add(collection.get(), Variant(3.5), "c"), S_OK);
    return collection;
}

SAFEARRAY* IntArray(std::initializer_list<int32_t> values, ULONG rows = 1) {
    const ULONG columns = static_cast<ULONG>(values.size()) / rows;
    const SAFEARRAYBOUND bounds[2] = {{columns, 0}, {rows, 0}};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, rows == 1 ? 1 : 2, bounds);
    int32_t* data = nullptr;
    SafeArrayAccessData(array, reinterpret_cast<void**>(&data));
    for (int32_t value : values) *data++ = value;
    SafeArrayUnaccessData(array);
    return array;
}

Variant ArrayVariant(SAFEARRAY* array, VARTYPE element) {
    VARIANT value;
    VariantInit(&value);
    value.vt = VT_ARRAY | element;
    value.parray = array;
    return Variant::Attach(value);
}

TEST_F(CollectionTest, ItemReadsIndicesAndKeysAndRefusesWhatIsNeither) {
    auto collection = ThreeItems();
    const std::string before = Contents(collection.get());
    EXPECT_EQ(before, "A=a;=2;c=3.5;");

    Variant item;
    // Real numbers round to the nearest index, ties to even; a string is always a key.
    const std::pair<Variant, const char*> found[] = {
        {Variant(1.0), "2"}, {Variant(0.5), "a"}, {Variant(1.5), "3.5"}, {Variant(2.5), "3.5"},
        {Variant("a"), "a"}, {Variant("C"), "3.5"}, {Variant(int64_t{2}), "3.5"}, {Variant(true), ""},
        {Variant(), "a"}};  // empty converts to 0, as any number does
    for (const auto& [keyOrIndex, expected] : found) {
        const HRESULT hr = collection->get_Item(keyOrIndex.get(), item.Out());
        if (keyOrIndex.vt() == VT_BOOL) {
            EXPECT_EQ(hr, e_LuxCollection_InvalidIndex) << "true converts to the index -1";
            continue;
        }
        ASSERT_EQ(hr, S_OK) << expected;
        EXPECT_EQ(Text(item.get()), expected);
    }
    // A reference is read through.
    int32_t two = 2;
    VARIANT byRef;
    byRef.vt = VT_BYREF | VT_I4;
    byRef.plVal = &two;
    ASSERT_EQ(collection->get_Item(byRef, item.Out()), S_OK);
    EXPECT_EQ(Text(item.get()), "3.5");

    VARIANT missing;
    missing.vt = VT_ERROR;
    missing.scode = DISP_E_PARAMNOTFOUND;
    VARIANT null;
    null.vt = VT_NULL;
    const std::pair<Variant, HRESULT> refused[] = {
        {Variant("abc"), e_LuxCollection_InvalidKey}, {Variant("1"), e_LuxCollection_InvalidKey},
        {Variant(""), e_LuxCollection_InvalidKey},
        {Variant(null), e_LuxCollection_InvalidKey},  {Variant(missing), e_LuxCollection_InvalidKey},
        {Variant(1e20), e_LuxCollection_InvalidKey},  {Variant(3), e_LuxCollection_InvalidIndex},
        {Variant(-1), e_LuxCollection_InvalidIndex},  {Variant(2.6), e_LuxCollection_InvalidIndex}};
    for (const auto& [keyOrIndex, expected] : refused) {
        VARIANT out;
        out.vt = VT_I4;  // whatever was there: a refusal leaves the out value empty
        EXPECT_EQ(collection->get_Item(keyOrIndex.get(), &out), expected) << Text(keyOrIndex.get());
        EXPECT_EQ(out.vt, VT_EMPTY);
    }
    EXPECT_EQ(static_cast<uint32_t>(e_LuxCollection_InvalidKey), 0x8004C181u);
    EXPECT_EQ(collection->get_Item(Variant(0).get(), nullptr), E_POINTER);

    // The failure is described for the client: the code's text and what was refused.
    EXPECT_EQ(collection->get_Item(Variant(7).get(), item.Out()), e_LuxCollection_InvalidIndex);
    const std::string text = LastErrorText();
    EXPECT_NE(text.find("out of range"), std::string::npos) << text;
    EXPECT_NE(text.find("7 is not in 0..2"), std::string::npos) << text;
    EXPECT_EQ(Contents(collection.get()), before);
}

TEST_F(CollectionTest, AddPlacesByIndexAndRefusesBadIndicesAndDuplicateKeys) {
    auto collection = NewCollection();
    EXPECT_EQ(Add(collection.get(), Variant(1), "one", 0), S_OK);  // 0 == Count: appends
    EXPECT_EQ(Add(collection.get(), Variant(2), "two", 1), S_OK);  // Count: appends
    EXPECT_EQ(Add(collection.get(), Variant(0), "zero", 0), S_OK);
    EXPECT_EQ(Add(collection.get(), Variant(9)), S_OK);  // no key, -1 appends
    EXPECT_EQ(Add(collection.get(), Variant(8), "", 1), S_OK);
    const std::string before = Contents(collection.get());
    EXPECT_EQ(before, "zero=0;=8;one=1;two=2;=9;");
    // The keys moved with their entries.
    EXPECT_EQ(FindKey(collection.get(), "ONE"), 2);
    EXPECT_EQ(FindKey(collection.get(), "two"), 3);
    EXPECT_EQ(FindKey(collection.get(), "zero"), 0);
    EXPECT_EQ(FindKey(collection.get(), "three"), luxNoIndex);
    EXPECT_EQ(FindKey(collection.get(), ""), luxNoIndex);  // "no key" is not a key

    EXPECT_EQ(Add(collection.get(), Variant(5), "five", 6), e_LuxCollection_InvalidIndex);  // Count + 1
    EXPECT_EQ(static_cast<uint32_t>(e_LuxCollection_InvalidIndex), 0x8004C180u);
    EXPECT_EQ(Add(collection.get(), Variant(5), "five", -2), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(Add(collection.get(), Variant(5), "Two"), e_LuxCollection_DuplicateKey);  // keys ignore case
    EXPECT_EQ(static_cast<uint32_t>(e_LuxCollection_DuplicateKey), 0x8004C184u);
    EXPECT_EQ(Add(collection.get(), Variant(5), "two", 99), e_LuxCollection_DuplicateKey);  // the key first
    EXPECT_EQ(Contents(collection.get()), before);
    EXPECT_EQ(FindKey(collection.get(), "five"), luxNoIndex);
    LONG index = 0;
    EXPECT_EQ(collection->FindKey(Bstr("x").get(), nullptr), E_POINTER);
    EXPECT_EQ(collection->get_Count(nullptr), E_POINTER);
    EXPECT_EQ(collection->FindItem(Variant(1).get(), &index), S_OK);
    EXPECT_EQ(index, 2);
}

TEST_F(CollectionTest, ItemPutReplacesOrAppendsAndRemoveRefusesWhatIsNotThere) {
    auto collection = ThreeItems();
    ASSERT_EQ(collection->put_Item(Variant(1).get(), Variant("two").get()), S_OK);
    ASSERT_EQ(collection->put_Item(Variant("C").get(), Variant(30).get()), S_OK);
    ASSERT_EQ(collection->putref_Item(Variant("new").get(), Variant(4).get()), S_OK);  // unknown key: appends
    EXPECT_EQ(Contents(collection.get()), "A=a;=two;c=30;new=4;");
    EXPECT_EQ(FindKey(collection.get(), "NEW"), 3);

    const std::string before = Contents(collection.get());
    EXPECT_EQ(collection->put_Item(Variant("").get(), Variant(1).get()), e_LuxCollection_InvalidKey);
    EXPECT_EQ(collection->put_Item(Variant(4).get(), Variant(1).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->put_Item(Variant(-1).get(), Variant(1).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Remove(Variant(-1).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Remove(Variant(4).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Remove(Variant("none").get()), e_LuxCollection_KeyNotFound);
    EXPECT_EQ(collection->Remove(Variant("").get()), e_LuxCollection_KeyNotFound);
    EXPECT_EQ(Contents(collection.get()), before);

    // An empty KeyOrIndex is the index 0, for every member that takes one.
    ASSERT_EQ(collection->put_Item(Variant().get(), Variant("first").get()), S_OK);
    EXPECT_EQ(Contents(collection.get()), "A=first;=two;c=30;new=4;");
    ASSERT_EQ(collection->Remove(Variant().get()), S_OK);
    EXPECT_EQ(Contents(collection.get()), "=two;c=30;new=4;");
    ASSERT_EQ(Add(collection.get(), Variant("a"), "A", 0), S_OK);

    ASSERT_EQ(collection->Remove(Variant("a").get()), S_OK);
    ASSERT_EQ(collection->Remove(Variant(1.0).get()), S_OK);
    EXPECT_EQ(Contents(collection.get()), "=two;new=4;");
    EXPECT_EQ(FindKey(collection.get(), "new"), 1);
    EXPECT_EQ(FindKey(collection.get(), "c"), luxNoIndex);
    // A removed key is free again.
    EXPECT_EQ(Add(collection.get(), Variant(5), "c", 0), S_OK);
    EXPECT_EQ(FindKey(collection.get(), "new"), 2);
}

TEST_F(CollectionTest, KeysChangeAndEntriesMoveWithTheirKeys) {
    auto collection = NewCollection();
    for (int i = 0; i < 4; ++i) ASSERT_EQ(Add(collection.get(), Variant(i), ("k" + std::to_string(i)).c_str()), S_OK);
    Bstr key;
    ASSERT_EQ(collection->get_Key(2, key.Out()), S_OK);
    EXPECT_EQ(key.str(), "k2");
    EXPECT_EQ(collection->get_Key(4, key.Out()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->get_Key(-1, key.Out()), e_LuxCollection_InvalidIndex);

    const std::string before = Contents(collection.get());
    EXPECT_EQ(collection->put_Key(4, Bstr("x").get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->put_Key(1, Bstr("K3").get()), e_LuxCollection_DuplicateKey);
    EXPECT_EQ(collection->Move(0, 4), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Move(-1, 0), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(collection->Move(4, 4), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(Contents(collection.get()), before);

    ASSERT_EQ(collection->put_Key(1, Bstr("K1").get()), S_OK);  // its own key in another case
    ASSERT_EQ(collection->put_Key(2, Bstr("").get()), S_OK);    // no key any more
    ASSERT_EQ(collection->put_Key(3, Bstr("k2").get()), S_OK);  // the freed key
    EXPECT_EQ(Contents(collection.get()), "k0=0;K1=1;=2;k2=3;");

    ASSERT_EQ(collection->Move(0, 3), S_OK);
    EXPECT_EQ(Contents(collection.get()), "K1=1;=2;k2=3;k0=0;");
    ASSERT_EQ(collection->Move(3, 1), S_OK);
    EXPECT_EQ(Contents(collection.get()), "K1=1;k0=0;=2;k2=3;");
    ASSERT_EQ(collection->Move(2, 2), S_OK);
    EXPECT_EQ(FindKey(collection.get(), "k1"), 0);
    EXPECT_EQ(FindKey(collection.get(), "k0"), 1);
    EXPECT_EQ(FindKey(collection.get(), "k2"), 3);
}

// The key index against a plain model over many random changes: a stale index entry
// shows up as a wrong FindKey.
TEST_F(CollectionTest, KeyIndexStaysInStepWithEveryChange) {
    auto collection = NewCollection();
    std::vector<std::pair<std::string, int32_t>> model;
    std::mt19937 random(7);
    int next = 0;
    for (int step = 0; step < 600; ++step) {
        const auto size = static_cast<int32_t>(model.size());
        const int kind = size < 5 ? 0 : static_cast<int>(random() % 5);
        if (kind <= 1) {
            const int32_t at = static_cast<int32_t>(random() % (size + 1));
            const std::string key = random() % 4 == 0 ? "" : "Key" + std::to_string(next);
            ASSERT_EQ(Add(collection.get(), Variant(next), key.c_str(), at), S_OK);
            model.insert(model.begin() + at, {key, next++});
        } else if (kind == 2) {
            const int32_t at = static_cast<int32_t>(random() % size);
            ASSERT_EQ(collection->Remove(Variant(at).get()), S_OK);
            model.erase(model.begin() + at);
        } else if (kind == 3) {
            const int32_t from = static_cast<int32_t>(random() % size);
            const int32_t to = static_cast<int32_t>(random() % size);
            ASSERT_EQ(collection->Move(from, to), S_OK);
            auto entry = model[from];
            model.erase(model.begin() + from);
            model.insert(model.begin() + to, entry);
        } else {
            const int32_t at = static_cast<int32_t>(random() % size);
            const std::string key = random() % 3 == 0 ? "" : "KEY" + std::to_string(next++);
            ASSERT_EQ(collection->put_Key(at, Bstr(key.c_str()).get()), S_OK);
            model[at].first = key;
        }
    }
    ASSERT_EQ(Count(collection.get()), static_cast<LONG>(model.size()));
    for (size_t i = 0; i < model.size(); ++i) {
        if (model[i].first.empty()) continue;
        std::string lower = model[i].first;
        for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        ASSERT_EQ(FindKey(collection.get(), lower.c_str()), static_cast<LONG>(i)) << model[i].first;
        EXPECT_EQ(ItemText(collection.get(), static_cast<LONG>(i)), std::to_string(model[i].second));
    }
}

TEST_F(CollectionTest, FindItemMatchesTypeAndValue) {
    auto collection = NewCollection();
    auto other = NewCollection();
    ComPtr<IDispatch> otherObject(static_cast<IDispatch*>(other.get()));
    CY money{25000};
    Variant currency;
    currency.ptr()->vt = VT_CY;
    currency.ptr()->cyVal = money;
    ASSERT_EQ(Add(collection.get(), Variant(2)), S_OK);                                   // 0
    ASSERT_EQ(Add(collection.get(), Variant("Text")), S_OK);                              // 1
    ASSERT_EQ(Add(collection.get(), Variant(otherObject.get())), S_OK);                   // 2
    ASSERT_EQ(Add(collection.get(), ArrayVariant(IntArray({1, 2, 3, 4}), VT_I4)), S_OK);  // 3
    ASSERT_EQ(Add(collection.get(), Variant(true)), S_OK);                                // 4
    ASSERT_EQ(Add(collection.get(), Variant()), S_OK);                                    // 5
    ASSERT_EQ(Add(collection.get(), currency), S_OK);                                     // 6
    ASSERT_EQ(Add(collection.get(), Variant(2.0)), S_OK);                                 // 7
    ASSERT_EQ(Add(collection.get(), Variant(2)), S_OK);                                   // 8: a second 2

    // The same object through another of its interfaces is the same item.
    auto asObject = other.As<ILuxObject>();
    ASSERT_TRUE(asObject);
    ASSERT_NE(static_cast<void*>(asObject.get()), static_cast<void*>(other.get()));
    VARIANT sameObject;
    sameObject.vt = VT_DISPATCH;
    sameObject.pdispVal = asObject.get();
    SAFEARRAY* strings = SafeArrayCreateVector(VT_BSTR, 0, 1);
    const LONG zero = 0;
    SafeArrayPutElement(strings, &zero, Bstr("s").get());

    const std::pair<Variant, LONG> cases[] = {
        {Variant(2), 0},
        {Variant(2.0), 7},                      // the same number of another type
        {Variant(int64_t{2}), luxNoIndex},      // no item is a VT_I8
        {Variant("Text"), 1},
        {Variant("text"), luxNoIndex},          // strings are case-sensitive
        {Variant(sameObject), 2},
        {Variant(static_cast<IDispatch*>(collection.get())), luxNoIndex},
        {ArrayVariant(IntArray({1, 2, 3, 4}), VT_I4), 3},
        {ArrayVariant(IntArray({1, 2, 3, 5}), VT_I4), luxNoIndex},
        {ArrayVariant(IntArray({1, 2, 3, 4}, 2), VT_I4), luxNoIndex},  // another shape
        {ArrayVariant(strings, VT_BSTR), luxNoIndex},
        {Variant(-1), luxNoIndex},
        {Variant(true), 4},
        {Variant(), 5},
        {currency, 6},
    };
    for (const auto& [wanted, expected] : cases) {
        LONG index = -2;
        EXPECT_EQ(collection->FindItem(wanted.get(), &index), S_OK);
        EXPECT_EQ(index, expected) << Text(wanted.get()) << " of type " << wanted.vt();
    }
    // An array equal element by element, strings by content, is found.
    SAFEARRAY* sameStrings = SafeArrayCreateVector(VT_BSTR, 0, 1);
    SafeArrayPutElement(sameStrings, &zero, Bstr("s").get());
    SAFEARRAY* storedStrings = SafeArrayCreateVector(VT_BSTR, 5, 1);  // lower bounds do not matter
    const LONG five = 5;
    SafeArrayPutElement(storedStrings, &five, Bstr("s").get());
    ASSERT_EQ(Add(collection.get(), ArrayVariant(storedStrings, VT_BSTR)), S_OK);
    LONG index = -2;
    EXPECT_EQ(collection->FindItem(ArrayVariant(sameStrings, VT_BSTR).get(), &index), S_OK);
    EXPECT_EQ(index, 9);
    EXPECT_EQ(collection->FindItem(Variant(1).get(), nullptr), E_POINTER);
    collection->Clear();
}

TEST_F(CollectionTest, StringCollectionKeepsTextsAndFindsThemExactly) {
    auto strings = NewStrings();
    ASSERT_EQ(strings->Add(Bstr("Alpha").get(), Bstr("a").get(), luxNoIndex), S_OK);
    ASSERT_EQ(strings->Add(Bstr("beta").get(), Bstr("").get(), 0), S_OK);
    ASSERT_EQ(strings->Add(nullptr, Bstr("empty").get(), luxNoIndex), S_OK);  // null is ""
    ASSERT_EQ(strings->put_Item(Variant("A").get(), Bstr("ALPHA").get()), S_OK);
    ASSERT_EQ(strings->put_Item(Variant("g").get(), Bstr("gamma").get()), S_OK);
    EXPECT_EQ(Contents(strings.get()), "=beta;a=ALPHA;empty=;g=gamma;");

    const std::string before = Contents(strings.get());
    EXPECT_EQ(strings->Add(Bstr("x").get(), Bstr("G").get(), luxNoIndex), e_LuxCollection_DuplicateKey);
    EXPECT_EQ(strings->Add(Bstr("x").get(), Bstr("").get(), 5), e_LuxCollection_InvalidIndex);
    Bstr item;
    EXPECT_EQ(strings->get_Item(Variant("zzz").get(), item.Out()), e_LuxCollection_InvalidKey);
    EXPECT_EQ(item.get(), nullptr);
    EXPECT_EQ(strings->Remove(Variant(4).get()), e_LuxCollection_InvalidIndex);
    EXPECT_EQ(Contents(strings.get()), before);

    const std::pair<const char*, LONG> finds[] = {{"ALPHA", 1}, {"alpha", luxNoIndex}, {"", 2}, {"gamma", 3}};
    for (const auto& [text, expected] : finds) {
        LONG index = -2;
        EXPECT_EQ(strings->FindItem(Bstr(text).get(), &index), S_OK);
        EXPECT_EQ(index, expected) << text;
    }
    ASSERT_EQ(strings->Move(3, 0), S_OK);
    ASSERT_EQ(strings->Remove(Variant("a").get()), S_OK);
    EXPECT_EQ(Contents(strings.get()), "g=gamma;=beta;empty=;");
    LONG index = -2;
    ASSERT_EQ(strings->FindKey(Bstr("EMPTY").get(), &index), S_OK);
    EXPECT_EQ(index, 2);
}

TEST_F(CollectionTest, EnumeratorWalksASnapshotByOleRules) {
    auto collection = NewCollection();
    auto inner = NewCollection();
    for (int i = 0; i < 4; ++i) ASSERT_EQ(Add(collection.get(), Variant(i)), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);

    ComPtr<IUnknown> unknown;
    ASSERT_EQ(collection->get__NewEnum(unknown.Out()), S_OK);
    auto enumerator = unknown.As<IEnumVARIANT>();
    ASSERT_TRUE(enumerator);
    ASSERT_EQ(collection->Clear(), S_OK);  // the snapshot is not affected

    std::array<VARIANT, 8> values{};
    ULONG fetched = 99;
    ASSERT_EQ(enumerator->Next(2, values.data(), &fetched), S_OK);
    EXPECT_EQ(fetched, 2u);
    EXPECT_EQ(Text(values[0]) + Text(values[1]), "01");
    ComPtr<IEnumVARIANT> clone;
    ASSERT_EQ(enumerator->Clone(clone.Out()), S_OK);

    ASSERT_EQ(enumerator->Next(8, values.data(), &fetched), S_FALSE);  // only 3 left
    EXPECT_EQ(fetched, 3u);
    EXPECT_EQ(Text(values[0]) + Text(values[1]) + Text(values[2]), "23obj");
    EXPECT_EQ(values[2].pdispVal, static_cast<IDispatch*>(inner.get()));
    for (ULONG i = 0; i < fetched; ++i) VariantClear(&values[i]);
    EXPECT_EQ(enumerator->Next(1, values.data(), nullptr), S_FALSE);  // null count is fine for one
    EXPECT_EQ(values[0].vt, VT_EMPTY);
    EXPECT_EQ(enumerator->Next(2, values.data(), nullptr), E_POINTER);
    EXPECT_EQ(enumerator->Next(0, values.data(), &fetched), S_OK);
    EXPECT_EQ(fetched, 0u);

    // The clone goes on from where it was made, on its own.
    ASSERT_EQ(clone->Next(1, values.data(), nullptr), S_OK);
    EXPECT_EQ(Text(values[0]), "2");
    EXPECT_EQ(clone->Skip(1), S_OK);
    EXPECT_EQ(clone->Skip(2), S_FALSE);
    EXPECT_EQ(clone->Next(1, values.data(), &fetched), S_FALSE);
    EXPECT_EQ(fetched, 0u);
    ASSERT_EQ(clone->Reset(), S_OK);
    ASSERT_EQ(clone->Next(1, values.data(), &fetched), S_OK);
    EXPECT_EQ(Text(values[0]), "0");
}

TEST_F(CollectionTest, LateBoundCallsReachTheSameMembers) {
    auto collection = ThreeItems();
    IDispatch* dispatch = collection.get();
    auto idOf = [&](const char* name) {
        DISPID id = 12345;
        LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
        EXPECT_EQ(dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &id), S_OK) << name;
        return id;
    };
    EXPECT_EQ(idOf("item"), DISPID_VALUE);
    EXPECT_EQ(idOf("Count"), 0x1022007);
    EXPECT_EQ(idOf("_NewEnum"), DISPID_NEWENUM);

    // collection["c"]
    Variant key("c");
    VARIANT args[2];
    DISPPARAMS get{key.ptr(), nullptr, 1, 0};
    Variant result;
    ASSERT_EQ(dispatch->Invoke(DISPID_VALUE, GUID_NULL, 0, DISPATCH_PROPERTYGET | DISPATCH_METHOD, &get,
                               result.Out(), nullptr, nullptr),
              S_OK);
    EXPECT_EQ(Text(result.get()), "3.5");

    // collection["d"] = 7: appends under the key; value named DISPID_PROPERTYPUT, last first.
    args[0] = Variant(7).get();
    args[1] = Variant("d").Detach();
    DISPID putId = DISPID_PROPERTYPUT;
    DISPPARAMS put{args, &putId, 2, 1};
    ASSERT_EQ(dispatch->Invoke(DISPID_VALUE, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &put, nullptr, nullptr, nullptr),
              S_OK);
    VariantClear(&args[1]);
    // Add with only the item: the key and index take their defaults.
    Variant item("e");
    DISPPARAMS add{item.ptr(), nullptr, 1, 0};
    ASSERT_EQ(dispatch->Invoke(idOf("Add"), GUID_NULL, 0, DISPATCH_METHOD, &add, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(Contents(collection.get()), "A=a;=2;c=3.5;d=7;=e;");

    // A refusal arrives as DISP_E_EXCEPTION with the collection's code and text.
    Variant unknownKey("zz");
    DISPPARAMS bad{unknownKey.ptr(), nullptr, 1, 0};
    EXCEPINFO info{};
    ASSERT_EQ(dispatch->Invoke(DISPID_VALUE, GUID_NULL, 0, DISPATCH_PROPERTYGET, &bad, result.Out(), &info, nullptr),
              DISP_E_EXCEPTION);
    EXPECT_EQ(info.scode, e_LuxCollection_InvalidKey);
    EXPECT_EQ(BstrView(info.bstrSource), "get_Item");
    EXPECT_NE(BstrView(info.bstrDescription).find("\"zz\""), std::string_view::npos);
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
}

TEST_F(CollectionTest, CloneCopiesKeysAndDeepCopiesObjects) {
    auto collection = ThreeItems();
    auto inner = NewStrings();
    ASSERT_EQ(inner->Add(Bstr("deep").get(), Bstr("d").get(), luxNoIndex), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(static_cast<IDispatch*>(inner.get())), "inner"), S_OK);
    ASSERT_EQ(Add(collection.get(), ArrayVariant(IntArray({5, 6}), VT_I4), "array"), S_OK);

    auto object = collection.As<ILuxObject>();
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(object->Clone(copyDispatch.Out()), S_OK);
    auto copy = copyDispatch.As<ILuxCollection>();
    ASSERT_TRUE(copy);
    EXPECT_EQ(Contents(copy.get()), Contents(collection.get()));
    EXPECT_EQ(FindKey(copy.get(), "INNER"), 3);

    // The inner collection is a new one with the same contents.
    Variant copiedInner;
    ASSERT_EQ(copy->get_Item(Variant("inner").get(), copiedInner.ptr()), S_OK);
    ASSERT_EQ(copiedInner.vt(), VT_DISPATCH);
    ComPtr<ILuxStringCollection> innerCopy;
    ASSERT_EQ(copiedInner.get().pdispVal->QueryInterface(ILuxStringCollection::iid, innerCopy.OutVoid()), S_OK);
    EXPECT_NE(innerCopy.get(), inner.get());
    EXPECT_EQ(Contents(innerCopy.get()), "d=deep;");
    // Changing the copy leaves the original alone, and the other way round.
    ASSERT_EQ(innerCopy->put_Item(Variant(0).get(), Bstr("changed").get()), S_OK);
    ASSERT_EQ(copy->Remove(Variant(0).get()), S_OK);
    ASSERT_EQ(collection->put_Key(1, Bstr("two").get()), S_OK);
    EXPECT_EQ(Contents(inner.get()), "d=deep;");
    EXPECT_EQ(Contents(collection.get()), "A=a;two=2;c=3.5;inner=obj;array=array;");
    EXPECT_EQ(Contents(copy.get()), "=2;c=3.5;inner=obj;array=array;");
    LONG index = -2;
    ASSERT_EQ(copy->FindItem(ArrayVariant(IntArray({5, 6}), VT_I4).get(), &index), S_OK);
    EXPECT_EQ(index, 3);
}

TEST_F(CollectionTest, CloneOfACollectionThatHoldsItselfEnds) {
    auto collection = NewCollection();
    ASSERT_EQ(Add(collection.get(), Variant(1), "one"), S_OK);
    ASSERT_EQ(Add(collection.get(), Variant(static_cast<IDispatch*>(collection.get())), "self"), S_OK);
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(collection.As<ILuxObject>()->Clone(copyDispatch.Out()), S_OK);
    auto copy = copyDispatch.As<ILuxCollection>();
    EXPECT_EQ(Contents(copy.get()), "one=1;self=obj;");
    // The cycle is not followed: the copy refers to the original rather than to a clone of a clone.
    Variant self;
    ASSERT_EQ(copy->get_Item(Variant("self").get(), self.ptr()), S_OK);
    EXPECT_EQ(self.get().pdispVal, static_cast<IDispatch*>(collection.get()));
    // Break the cycle so that both die.
    ASSERT_EQ(collection->Remove(Variant("self").get()), S_OK);
}

TEST_F(CollectionTest, TwoThreadsAddAndReadWithoutLosingEntries) {
    auto collection = NewCollection();
    constexpr int kPerThread = 1500;
    auto work = [&](const char* prefix) {
        for (int i = 0; i < kPerThread; ++i) {
            const std::string key = prefix + std::to_string(i);
            EXPECT_EQ(Add(collection.get(), Variant(i), key.c_str(), i % 3 == 0 ? 0 : luxNoIndex), S_OK);
            EXPECT_NE(FindKey(collection.get(), key.c_str()), luxNoIndex);
            LONG count = 0;
            collection->get_Count(&count);
            EXPECT_GT(count, i);
        }
    };
    std::thread first(work, "a");
    std::thread second(work, "b");
    first.join();
    second.join();
    ASSERT_EQ(Count(collection.get()), 2 * kPerThread);
    for (int i = 0; i < kPerThread; i += 97) {
        for (const char* prefix : {"a", "b"}) {
            const LONG at = FindKey(collection.get(), (prefix + std::to_string(i)).c_str());
            ASSERT_NE(at, luxNoIndex);
            EXPECT_EQ(ItemText(collection.get(), at), std::to_string(i));
        }
    }
}

}  // namespace
}  // namespace tessaly::test
