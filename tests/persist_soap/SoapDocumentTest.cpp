// The SOAP document LuxSoapFormatter writes, element by element, and what it reads back:
// one body element per object, the class named once per class, references by href,
// xsi:type exactly where a value's text would read as another type, SOAP-encoded arrays.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>

#include "TessalyTest.h"
#include "persist_soap/SoapFixture.h"
#include "platform/SafeArray.h"
#include "support/TestBlob.h"

namespace tessaly::test {
namespace {

ComPtr<ITestPoint> NewPoint(double x, double y, const Variant& marker = Variant()) {
    auto point = LiveObjectFixture::Make<ITestPoint>("Tessaly.TestPoint");
    EXPECT_EQ(point->put_X(x), S_OK);
    EXPECT_EQ(point->put_Y(y), S_OK);
    EXPECT_EQ(point->put_Marker(marker.get()), S_OK);
    return point;
}

Variant Object(IUnknown* object) {
    ComPtr<IDispatch> dispatch;
    EXPECT_EQ(object->QueryInterface(IDispatch::iid, dispatch.OutVoid()), S_OK);
    return Variant(dispatch.get());
}

// An array of `vt` with the given bounds (SAFEARRAY order), its elements set by `fill`
// from their index in memory order.
template <class Fill>
Variant Array(VARTYPE vt, std::initializer_list<SAFEARRAYBOUND> bounds, Fill fill) {
    const std::vector<SAFEARRAYBOUND> list(bounds);
    VARIANT value;
    VariantInit(&value);
    value.parray = SafeArrayCreate(vt, static_cast<UINT>(list.size()), list.data());
    EXPECT_NE(value.parray, nullptr);
    value.vt = VT_ARRAY | vt;
    const size_t count = SafeArrayElementCount(value.parray);
    for (size_t i = 0; i < count; ++i) fill(static_cast<uint8_t*>(value.parray->pvData) + i * value.parray->cbElements, i);
    return Variant::Attach(value);
}

Variant Item(ILuxCollection* list, LONG index) {
    Variant item;
    EXPECT_EQ(list->get_Item(Variant(index).get(), item.ptr()), S_OK);
    return item;
}

bool Same(IUnknown* a, IUnknown* b) {
    ComPtr<IUnknown> x;
    ComPtr<IUnknown> y;
    if (!a || !b) return a == b;
    EXPECT_EQ(a->QueryInterface(IUnknown::iid, x.OutVoid()), S_OK);
    EXPECT_EQ(b->QueryInterface(IUnknown::iid, y.OutVoid()), S_OK);
    return x.get() == y.get();
}

TEST_F(SoapFormatterTest, SmallGraphHasItsExactDocumentAndLoadsShared) {
    auto list = NewCollection();
    auto point = NewPoint(1.5, -2);
    ASSERT_EQ(Add(list.get(), Variant(7)), S_OK);
    ASSERT_EQ(Add(list.get(), Variant("a<b & c>"), "k"), S_OK);
    ASSERT_EQ(Add(list.get(), Object(point.get())), S_OK);
    ASSERT_EQ(Add(list.get(), Object(point.get())), S_OK);
    ASSERT_EQ(Add(list.get(), Object(list.get())), S_OK);
    const std::string document = Save(list.get());
    EXPECT_EQ(document,
              Envelope("<lux:LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection.1\">"
                       "<Item0>7</Item0><Item1>a&lt;b &amp; c&gt;</Item1><Key1>k</Key1>"
                       "<Item2 href=\"#ref-2\"/><Item3 href=\"#ref-2\"/><Item4 href=\"#ref-1\"/></lux:LuxCollection>"
                       "<lux:TestPoint id=\"ref-2\" lux:class=\"Tessaly.TestPoint.1\"><X>1.5</X>"
                       "<Y xsi:type=\"xsd:double\">-2</Y><Marker xsi:type=\"lux:empty\"/></lux:TestPoint>"));

    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_TRUE(loaded.warnings.empty());
    auto copy = loaded.object.As<ILuxCollection>();
    ASSERT_TRUE(copy);
    EXPECT_EQ(Contents(copy.get()), "=7;k=a<b & c>;=obj;=obj;=obj;");
    EXPECT_TRUE(Same(Item(copy.get(), 2).get().pdispVal, Item(copy.get(), 3).get().pdispVal));
    EXPECT_TRUE(Same(Item(copy.get(), 4).get().pdispVal, copy.get()));
    EXPECT_EQ(Binary(loaded.object.get()), Binary(list.get()));
    Release(loaded.object);
    ASSERT_EQ(list->Clear(), S_OK);

    // The line-break layout reads back to the same graph.
    auto again = NewCollection();
    ASSERT_EQ(Add(again.get(), Object(point.get())), S_OK);
    const std::string lines = Save(again.get(), "linebreaks");
    EXPECT_NE(lines.find("\r\n\t\t<lux:TestPoint id=\"ref-2\""), std::string::npos) << lines;
    loaded = Load(lines);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_EQ(Binary(loaded.object.get()), Binary(again.get()));
}

TEST_F(SoapFormatterTest, EachClassIsNamedOnceAndLaterObjectsOfItAreKnownByTheirElement) {
    auto root = NewCollection();
    std::vector<ComPtr<ILuxCollection>> lists;
    for (int i = 0; i < 3; ++i) {
        lists.push_back(NewCollection());
        ASSERT_EQ(Add(lists.back().get(), Variant(i)), S_OK);
        ASSERT_EQ(Add(root.get(), Object(lists.back().get())), S_OK);
        ASSERT_EQ(Add(root.get(), Object(NewPoint(i, -i).get())), S_OK);
    }
    const std::string document = Save(root.get());
    EXPECT_EQ(Occurrences(document, "lux:class="), 2u);
    EXPECT_EQ(Occurrences(document, "lux:class=\"Tessaly.LuxCollection.1\""), 1u);
    EXPECT_EQ(Occurrences(document, "lux:class=\"Tessaly.TestPoint.1\""), 1u);
    EXPECT_EQ(Occurrences(document, "<lux:LuxCollection id="), 4u);
    EXPECT_EQ(Occurrences(document, "<lux:TestPoint id="), 3u);
    // Objects in the order first met, numbered so: the root's values first.
    EXPECT_LT(document.find("<lux:LuxCollection id=\"ref-2\""), document.find("<lux:TestPoint id=\"ref-3\""));
    EXPECT_LT(document.find("<lux:TestPoint id=\"ref-3\""), document.find("<lux:LuxCollection id=\"ref-4\""));
    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_EQ(Binary(loaded.object.get()), Binary(root.get()));
    Release(loaded.object);

    // A class may be named on any of its elements' first; an element of an unnamed class, or
    // a second class under one element, is refused.
    const std::string named = Collection("<Item0 href=\"#ref-3\"/><Item1 href=\"#ref-2\"/>",
                                         "<lux:Pt id=\"ref-3\" lux:class=\"Tessaly.TestPoint\"><X>1</X></lux:Pt>"
                                         "<lux:Pt id=\"ref-2\"><X>2</X></lux:Pt>");
    loaded = Load(named);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    double x = 0;
    ASSERT_EQ(ComPtr<IDispatch>(Item(copy.get(), 0).get().pdispVal).As<ITestPoint>()->get_X(&x), S_OK);
    EXPECT_EQ(x, 1);
    ASSERT_EQ(ComPtr<IDispatch>(Item(copy.get(), 1).get().pdispVal).As<ITestPoint>()->get_X(&x), S_OK);
    EXPECT_EQ(x, 2);
    Release(loaded.object);
    loaded = Load(Collection("<Item0 href=\"#ref-2\"/>", "<lux:Pt id=\"ref-2\"><X>2</X></lux:Pt>"));
    EXPECT_EQ(loaded.result, ids_LuxFormatter_CantCreateObject_1);
    EXPECT_NE(loaded.error.description.find("lux:Pt (line 2, column"), std::string::npos) << loaded.error.description;
    loaded = Load(Collection("", "<lux:LuxCollection id=\"ref-2\" lux:class=\"Tessaly.TestPoint\"/>"));
    EXPECT_EQ(loaded.result, ids_LuxFormatter_InvalidNodeAttrs_1);
}

TEST_F(SoapFormatterTest, XsiTypeIsWrittenExactlyWhereTheTextWouldReadAsAnotherType) {
    struct Case {
        Variant value;
        const char* element;  // as written, named Item0
    };
    VARIANT shortFive;
    VariantInit(&shortFive);
    shortFive.vt = VT_I2;
    shortFive.iVal = 5;
    VARIANT big;
    VariantInit(&big);
    big.vt = VT_I8;
    big.llVal = 5000000000;
    VARIANT single;
    VariantInit(&single);
    single.vt = VT_R4;
    single.fltVal = 0.5f;
    VARIANT null;
    VariantInit(&null);
    null.vt = VT_NULL;
    const Case cases[] = {
        {Variant(5), "<Item0>5</Item0>"},
        {Variant(-2147483647 - 1), "<Item0>-2147483648</Item0>"},
        {Variant("5"), "<Item0 xsi:type=\"xsd:string\">5</Item0>"},
        {Variant("-7"), "<Item0 xsi:type=\"xsd:string\">-7</Item0>"},
        {Variant("2147483648"), "<Item0>2147483648</Item0>"},  // no int: reads as a string
        {Variant("12345678901"), "<Item0>12345678901</Item0>"},
        {Variant("1e5"), "<Item0 xsi:type=\"xsd:string\">1e5</Item0>"},
        {Variant("1."), "<Item0>1.</Item0>"},
        {Variant("-"), "<Item0>-</Item0>"},
        {Variant("true"), "<Item0 xsi:type=\"xsd:string\">true</Item0>"},
        {Variant("True"), "<Item0>True</Item0>"},
        {Variant(""), "<Item0/>"},
        {Variant(0.5), "<Item0>0.5</Item0>"},
        {Variant(2.0), "<Item0 xsi:type=\"xsd:double\">2</Item0>"},
        {Variant(1e300), "<Item0>1e+300</Item0>"},
        {Variant(-0.0), "<Item0 xsi:type=\"xsd:double\">-0</Item0>"},
        {Variant(std::numeric_limits<double>::infinity()), "<Item0 xsi:type=\"xsd:double\">1.#INF</Item0>"},
        {Variant(true), "<Item0>true</Item0>"},
        {Variant(false), "<Item0>false</Item0>"},
        {Variant::Attach(shortFive), "<Item0 xsi:type=\"xsd:short\">5</Item0>"},
        {Variant::Attach(big), "<Item0 xsi:type=\"xsd:long\">5000000000</Item0>"},
        {Variant::Attach(single), "<Item0 xsi:type=\"xsd:float\">0.5</Item0>"},
        {Variant::Attach(null), "<Item0 xsi:type=\"lux:null\"/>"},
        {Variant(static_cast<IDispatch*>(nullptr)), "<Item0 xsi:nil=\"true\"/>"},
    };
    for (const Case& c : cases) {
        auto list = NewCollection();
        ASSERT_EQ(Add(list.get(), c.value), S_OK);
        const std::string document = Save(list.get());
        EXPECT_NE(document.find(std::string("\">") + c.element + "</lux:LuxCollection>"), std::string::npos)
            << c.element << " in " << document;
        const Loaded loaded = Load(document);
        ASSERT_EQ(loaded.result, S_OK) << c.element << ": " << loaded.error.description;
        EXPECT_EQ(Binary(loaded.object.get()), Binary(list.get())) << c.element;
    }
}

TEST_F(SoapFormatterTest, ArraysAreSoapEncodedWithTheirDimensionsRightMostFastest) {
    auto list = NewCollection();
    // Two dimensions of 2 (from 0) and 2 (from 1); the left-most index varies fastest.
    const int16_t shorts[] = {-15, -5, 5, 15};
    ASSERT_EQ(Add(list.get(), Array(VT_I2, {{2, 0}, {2, 1}}, [&](uint8_t* at, size_t i) {
                  std::memcpy(at, &shorts[i], 2);
              })),
              S_OK);
    ASSERT_EQ(Add(list.get(), Array(VT_UI1, {{3, 0}}, [](uint8_t* at, size_t i) { *at = "foo"[i]; })), S_OK);
    ASSERT_EQ(Add(list.get(), Array(VT_I4, {{2, 0}, {3, 0}}, [](uint8_t* at, size_t i) {
                  const int32_t value = static_cast<int32_t>(i);
                  std::memcpy(at, &value, 4);
              })),
              S_OK);
    ASSERT_EQ(Add(list.get(), Array(VT_I4, {{0, 0}}, [](uint8_t*, size_t) {})), S_OK);
    VARIANT nullArray;
    VariantInit(&nullArray);
    nullArray.vt = VT_ARRAY | VT_R8;
    ASSERT_EQ(Add(list.get(), Variant::Attach(nullArray)), S_OK);
    ASSERT_EQ(Add(list.get(), Array(VT_UI1, {{2, 0}, {2, -1}}, [](uint8_t* at, size_t i) { *at = uint8_t(i); })),
              S_OK);
    const std::string document = Save(list.get());
    const char* const expected[] = {
        "<Item0 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:short[2,2]\" lux:lowerBounds=\"1,0\">"
        "<item>-15</item><item>-5</item><item>5</item><item>15</item></Item0>",
        "<Item1 xsi:type=\"xsd:base64Binary\">Zm9v</Item1>",
        "<Item2 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:int[3,2]\"><item>0</item>",
        "<Item3 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:int[0]\"/>",
        "<Item4 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:double[]\"/>",
        "<Item5 xsi:type=\"xsd:base64Binary\" SOAP-ENC:arrayType=\"xsd:unsignedByte[2,2]\" "
        "lux:lowerBounds=\"-1,0\">AAECAw==</Item5>",
    };
    for (const char* part : expected) EXPECT_NE(document.find(part), std::string::npos) << part << " in " << document;
    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_EQ(Binary(loaded.object.get()), Binary(list.get()));
    Release(loaded.object);

    // Strings, variants (arrays among them) and objects, shared across the arrays.
    auto point = NewPoint(3, 4);
    auto mixed = NewCollection();
    ASSERT_EQ(Add(mixed.get(), Array(VT_BSTR, {{3, 10}}, [](uint8_t* at, size_t i) {
                  const BSTR text = SysAllocString(i == 0 ? "a<b" : i == 1 ? "" : "12");
                  std::memcpy(at, &text, sizeof text);
              })),
              S_OK);
    ASSERT_EQ(Add(mixed.get(), Array(VT_VARIANT, {{4, 0}}, [&](uint8_t* at, size_t i) {
                  Variant value = i == 0   ? Variant(5)
                                  : i == 1 ? Object(point.get())
                                  : i == 2 ? Array(VT_R8, {{2, 0}}, [](uint8_t* d, size_t j) {
                                                const double v = j + 0.25;
                                                std::memcpy(d, &v, 8);
                                            })
                                           : Variant("text");
                  VARIANT taken = value.Detach();
                  std::memcpy(at, &taken, sizeof taken);
              })),
              S_OK);
    ASSERT_EQ(Add(mixed.get(), Array(VT_DISPATCH, {{3, 0}}, [&](uint8_t* at, size_t i) {
                  IDispatch* object = nullptr;
                  if (i == 0) point->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&object));
                  if (i == 2) mixed->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&object));
                  std::memcpy(at, &object, sizeof object);
              })),
              S_OK);
    const std::string text = Save(mixed.get());
    EXPECT_NE(text.find("<Item0 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:string[3]\" "
                        "lux:lowerBounds=\"10\"><item>a&lt;b</item><item/><item>12</item></Item0>"),
              std::string::npos)
        << text;
    EXPECT_NE(text.find("SOAP-ENC:arrayType=\"lux:object[3]\"><item href=\"#ref-2\"/><item xsi:nil=\"true\"/>"
                        "<item href=\"#ref-1\"/></Item2>"),
              std::string::npos)
        << text;
    EXPECT_EQ(Occurrences(text, "<lux:TestPoint id="), 1u);
    loaded = Load(text);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_EQ(Binary(loaded.object.get()), Binary(mixed.get()));
    Release(loaded.object);
    ASSERT_EQ(mixed->Clear(), S_OK);
}

TEST_F(SoapFormatterTest, ReferencesMayPointForwardFromValuesAndArrays) {
    // Objects out of order, referred to before they are read, from a value, an array of
    // variants nested in another and an array of objects.
    const std::string document = Collection(
        "<Item0 href=\"#ref-3\"/>"
        "<Item1 xsi:type=\"SOAP-ENC:Array\" SOAP-ENC:arrayType=\"xsd:anyType[2]\"><item>1</item>"
        "<item SOAP-ENC:arrayType=\"xsd:anyType[1]\"><item href=\"#ref-2\"/></item></Item1>"
        "<Item2 SOAP-ENC:arrayType=\"lux:unknown[2]\"><item href=\"#ref-3\"/><item href=\"#ref-1\"/></Item2>",
        "<lux:TestPoint id=\"ref-3\" lux:class=\"Tessaly.TestPoint.1\"><X>3</X></lux:TestPoint>"
        "<lux:LuxCollection id=\"ref-2\"><Item0 href=\"#ref-3\"/></lux:LuxCollection>");
    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    IDispatch* point = Item(copy.get(), 0).get().pdispVal;
    ASSERT_TRUE(point);
    double x = 0;
    ASSERT_EQ(ComPtr<IDispatch>(point).As<ITestPoint>()->get_X(&x), S_OK);
    EXPECT_EQ(x, 3);
    const Variant variants = Item(copy.get(), 1);
    ASSERT_EQ(variants.vt(), VT_ARRAY | VT_VARIANT);
    const VARIANT* outer = static_cast<const VARIANT*>(variants.get().parray->pvData);
    EXPECT_EQ(outer[0].vt, VT_I4);
    ASSERT_EQ(outer[1].vt, VT_ARRAY | VT_VARIANT);
    const VARIANT& inner = *static_cast<const VARIANT*>(outer[1].parray->pvData);
    ASSERT_EQ(inner.vt, VT_DISPATCH);
    auto middle = ComPtr<IDispatch>(inner.pdispVal).As<ILuxCollection>();
    ASSERT_TRUE(middle);
    EXPECT_TRUE(Same(Item(middle.get(), 0).get().pdispVal, point));
    const Variant objects = Item(copy.get(), 2);
    ASSERT_EQ(objects.vt(), VT_ARRAY | VT_UNKNOWN);
    IUnknown* const* held = static_cast<IUnknown* const*>(objects.get().parray->pvData);
    EXPECT_TRUE(Same(held[0], point));
    EXPECT_TRUE(Same(held[1], copy.get()));
    Release(loaded.object);
}

TEST_F(SoapFormatterTest, HandWrittenEnvelopesLoadAndWhatTheyAddIsWarnedAbout) {
    const std::string document =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!-- by hand -->\n"
        "<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"http://schemas.xmlsoap.org/soap/envelope/\">\n"
        "  <SOAP-ENV:Header><Session>42</Session></SOAP-ENV:Header>\n"
        "  <SOAP-ENV:Body>\n"
        "    <lux:LuxCollection id=\"ref-1\" lux:class=\"{B809278B-0289-46F7-9589-972AA350300E}\" note=\"x\">\n"
        "      stray\n"
        "      <Item0>  <![CDATA[<raw> & text]]></Item0>\n"
        "      <Item1 xsi:type=\"xsd:int\"> 12 </Item1>\n"
        "      <Item1>second</Item1>\n"
        "    </lux:LuxCollection>\n"
        "  </SOAP-ENV:Body>\n"
        "  <Trailer/>\n"
        "</SOAP-ENV:Envelope>\n";
    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    EXPECT_EQ(Contents(copy.get()), "=  <raw> & text;=12;");
    ASSERT_EQ(loaded.warnings.size(), 4u);
    EXPECT_EQ(loaded.warnings[0], "The attribute note of the element lux:LuxCollection (line 6, column 6) is not known "
                                  "and was ignored.");
    EXPECT_EQ(loaded.warnings[1], "Text in the element lux:LuxCollection (line 6, column 6) was ignored.");
    EXPECT_EQ(loaded.warnings[2], "The element Trailer (line 13, column 4) of the envelope was ignored.");
    EXPECT_EQ(loaded.warnings[3], "The value Item1 (line 10, column 8) of {B809278B-0289-46F7-9589-972AA350300E} "
                                  "(object 1) is stored twice; the second one was skipped.");
}

TEST_F(SoapFormatterTest, StreamPersistedObjectsTravelAsBase64AndUnnamedClassesAsNothing) {
    auto blob = ComPtr<TestBlob>::Attach(TestBlob::Create());
    blob->bytes = {'f', 'o', 'o', 'b', 'a', 'r', 0, 255};
    auto nameless = ComPtr<TestBlob>::Attach(TestBlob::Create());
    nameless->nullClassId = true;
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Object(static_cast<IDispatch*>(blob.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Object(static_cast<IDispatch*>(nameless.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Object(static_cast<IDispatch*>(nameless.get()))), S_OK);
    const std::string document = Save(list.get());
    EXPECT_NE(document.find("<lux:TestBlob id=\"ref-2\" lux:class=\"Tessaly.TestBlob.1\" "
                            "xsi:type=\"xsd:base64Binary\">Zm9vYmFyAP8=</lux:TestBlob>"
                            "<lux:Object id=\"ref-3\" lux:class=\"NULL\" xsi:type=\"xsd:base64Binary\"></lux:Object>"),
              std::string::npos)
        << document;
    Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    const Variant first = Item(copy.get(), 0);
    ASSERT_EQ(first.vt(), VT_DISPATCH);
    EXPECT_EQ(static_cast<TestBlob*>(first.get().pdispVal)->bytes, blob->bytes);
    EXPECT_EQ(Contents(copy.get()), "=obj;=obj;=obj;");
    EXPECT_EQ(Item(copy.get(), 1).get().pdispVal, nullptr);
    EXPECT_EQ(Item(copy.get(), 2).get().pdispVal, nullptr);
    ASSERT_EQ(loaded.warnings.size(), 1u);
    EXPECT_NE(loaded.warnings[0].find("holds an object with no ProgID; it was loaded as Nothing."), std::string::npos);
}

}  // namespace
}  // namespace tessaly::test
