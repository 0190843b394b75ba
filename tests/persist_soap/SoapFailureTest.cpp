// What LuxSoapFormatter refuses, and how: each damaged or foreign document with its exact
// HRESULT and where it went wrong, the existing target left as it was with no event;
// refused arguments and saves; input cut or damaged anywhere.
#include <random>
#include <string>

#include "TessalyTest.h"
#include "persist_soap/SoapFixture.h"
#include "platform/MemoryStream.h"

namespace tessaly::test {
namespace {

TEST_F(SoapFormatterTest, DamagedDocumentsFailWithTheirMessageAndLeaveTheTargetAsItWas) {
    struct Case {
        std::string document;
        HRESULT result;
        const char* description;  // what the description must hold
    };
    const std::string point = "<lux:TestPoint id=\"ref-2\" lux:class=\"Tessaly.TestPoint.1\"/>";
    const std::string cut = Collection("<Item0>123</Item0>");
    std::string deep = "<Item0 SOAP-ENC:arrayType=\"xsd:anyType[1]\">";
    for (int i = 0; i < 600; ++i) deep += "<item SOAP-ENC:arrayType=\"xsd:anyType[1]\">";
    const Case cases[] = {
        {"", ids_LuxFormatter_NoStartTag, "A start tag is missing."},
        {"<?xml version=\"1.0\"?><Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\"/></Root>",
         ids_LuxFormatter_InvalidNodeObject, ""},
        {"<SOAP-ENV:Envelope/>", ids_LuxFormatter_InvalidNodeObject, ""},
        {"<SOAP-ENV:Envelope><SOAP-ENV:Header/></SOAP-ENV:Envelope>", ids_LuxFormatter_InvalidNodeObject, ""},
        {Envelope(""), ids_LuxFormatter_InvalidNodeObject, ""},
        {Envelope("<LuxCollection id=\"ref-1\" lux:class=\"Tessaly.LuxCollection\"/>"),
         ids_LuxFormatter_InvalidNodeObject, ""},
        {Envelope("<lux:LuxCollection lux:class=\"Tessaly.LuxCollection\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "lux:LuxCollection (line 2, column"},
        {Envelope("<lux:LuxCollection id=\"1\" lux:class=\"Tessaly.LuxCollection\"/>"), ids_LuxFormatter_InvalidID_2,
         "1"},
        {Envelope("<lux:LuxCollection id=\"ref-0\" lux:class=\"Tessaly.LuxCollection\"/>"),
         ids_LuxFormatter_InvalidID_2, "ref-0"},
        {Envelope("<lux:LuxCollection id=\"ref-+2\" lux:class=\"Tessaly.LuxCollection\"/>"),
         ids_LuxFormatter_InvalidID_2, "ref-+2"},
        {Envelope("<lux:LuxCollection id=\"ref-2147483648\" lux:class=\"Tessaly.LuxCollection\"/>"),
         ids_LuxFormatter_InvalidID_2, "ref-2147483648"},
        {Collection("<Item0 href=\"#ref-1\"/>", "<lux:LuxCollection id=\"ref-1\"/>"), ids_LuxFormatter_DuplicateID_2,
         "ref-1"},
        {Envelope("<lux:Thing id=\"ref-1\" lux:class=\"Tessaly.NoSuchThing\"/>"), ids_LuxFormatter_CantCreateObject_1,
         "Tessaly.NoSuchThing"},
        {Envelope("<lux:LuxCollection id=\"ref-1\" lux:class=\"NULL\"/>"), ids_LuxFormatter_InvalidNodeObject, ""},
        {Collection("<Item0 href=\"#ref-9\"/>"), ids_LuxFormatter_UnsresolvedHref_1, "ref-9 in Item0 (line 2, column"},
        {Collection("<Item0 href=\"ref-2\"/>", point), ids_LuxFormatter_InvalidID_2, "ref-2"},
        {Collection("<Item0 href=\"#ref-2\" xsi:nil=\"true\"/>", point), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 xsi:nil=\"yes\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 id=\"ref-3\">1</Item0>"), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 xsi:type=\"xsd:int\">12x</Item0>"), e_Lux_BadFileFormat, "\"12x\" is not a value of type xsd:int"},
        {Collection("<Item0 xsi:type=\"xsd:unsignedByte\">256</Item0>"), e_Lux_BadFileFormat, "Item0"},
        {Collection("<Item0 xsi:type=\"xsd:complex\">1</Item0>"), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 xsi:type=\"lux:object\">1</Item0>"), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 xsi:type=\"lux:empty\">1</Item0>"), e_Lux_BadFileFormat, "has no text"},
        {Collection("<Item0>1<b/></Item0>"), e_Lux_BadFileFormat, "holds the element b"},
        {Collection("<Item0 xsi:type=\"SOAP-ENC:Array\">1</Item0>"), ids_LuxFormatter_InvalidArrayType_2, "Item0"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int\"/>"), ids_LuxFormatter_InvalidArrayType_2, "xsd:int"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:thing[1]\"/>"), ids_LuxFormatter_InvalidArrayType_2,
         "xsd:thing[1]"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[2;3]\"/>"), ids_LuxFormatter_InvalidArrayBoundSep_3,
         "2;3"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[-1]\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[2]\" lux:lowerBounds=\"0,0\"/>"),
         ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[2]\" lux:lowerBounds=\"2147483647\"/>"),
         ids_LuxFormatter_InvalidNodeAttrs_1, "Item0"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[1048576,1048576]\"><item>1</item></Item0>"),
         e_Lux_BadFileFormat, "fewer values"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[2]\"><item>1</item></Item0>"), e_Lux_BadFileFormat,
         "fewer values"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[1]\"><item>1</item><item>2</item></Item0>"),
         e_Lux_BadFileFormat, "more values"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[1]\"><item xsi:type=\"xsd:int\">1</item></Item0>"),
         ids_LuxFormatter_InvalidNodeAttrs_1, "item"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[1]\">1</Item0>"), e_Lux_BadFileFormat, "text between"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"lux:object[1]\"><item>1</item></Item0>"), e_Lux_BadFileFormat,
         "not an object"},
        {Collection("<Item0 SOAP-ENC:arrayType=\"xsd:int[]\"><item>1</item></Item0>"), e_Lux_BadFileFormat,
         "it holds the element item where a value belongs"},
        {Collection("<Item0 xsi:type=\"xsd:base64Binary\">A*==</Item0>"), ids_LuxFormatter_BadMime_1, "Item0"},
        {Collection("<Item0 xsi:type=\"xsd:base64Binary\" SOAP-ENC:arrayType=\"xsd:unsignedByte[16]\">AAEC</Item0>"),
         ids_LuxFormatter_ShortMime_1, "Item0"},
        {Collection("<Item0 xsi:type=\"xsd:base64Binary\" SOAP-ENC:arrayType=\"xsd:int[1]\">AAEC</Item0>"),
         ids_LuxFormatter_InvalidArrayType_2, "xsd:int[1]"},
        {Collection(deep), ids_LuxFormatter_BadFormat, ""},
        {Collection("<Item0>1</Item1>"), ids_LuxFormatter_StartEndMismatch_2, "Item1 (line 2, column"},
        {Collection("<Item0>&#x110000;</Item0>"), ids_LuxFormatter_TooManyEscapeDigits, ""},
        {cut.substr(0, cut.find("123") + 2), ids_LuxFormatter_NoEndTag_1, "Item0 (line 2, column"},
        {cut.substr(0, cut.find("123") - 3), ids_LuxFormatter_EndOfInputStream, ""},
    };
    for (const Case& c : cases) {
        auto target = NewCollection();
        ASSERT_EQ(Add(target.get(), Variant("kept"), "k"), S_OK);
        const auto sink = Listen(target.get());
        const Loaded loaded = Load(c.document, target.get());
        EXPECT_EQ(loaded.result, c.result) << c.document << "\n" << loaded.error.description;
        EXPECT_TRUE(loaded.error.present) << c.document;
        EXPECT_NE(loaded.error.description.find(c.description), std::string::npos)
            << c.description << " in " << loaded.error.description;
        EXPECT_EQ(Contents(target.get()), "k=kept;") << c.document;
        EXPECT_EQ(sink->Log(), "") << c.document;
    }
}

TEST_F(SoapFormatterTest, ArgumentsAndUnsavableValuesAreRefused) {
    auto formatter = NewFormatter();
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(1)), S_OK);
    auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
    EXPECT_EQ(formatter->Serialize(nullptr, list.get(), luxPersistOptionAll, nullptr), E_INVALIDARG);
    EXPECT_EQ(formatter->Serialize(stream.get(), nullptr, luxPersistOptionAll, nullptr), E_INVALIDARG);
    EXPECT_EQ(formatter->Serialize(stream.get(), list.get(), luxPersistOptionAll, Bstr("Xml").get()), E_INVALIDARG);
    EXPECT_EQ(stream->Size(), 0u) << "nothing is written before the arguments are checked";
    ASSERT_EQ(formatter->Serialize(stream.get(), list.get(), luxPersistOptionAll, nullptr), S_OK);
    ComPtr<IDispatch> object;
    ComPtr<ILuxStringCollection> warnings;
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, Bstr("Xml").get(), warnings.Out(), object.Out()),
              E_INVALIDARG);
    EXPECT_EQ(formatter->Deserialize(nullptr, nullptr, 0, nullptr, warnings.Out(), object.Out()), E_INVALIDARG);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, nullptr, warnings.Out(), nullptr), E_POINTER);
    EXPECT_FALSE(object);
    EXPECT_FALSE(warnings);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, Bstr("LINEBREAKS").get(), nullptr, object.Out()), S_OK);
    EXPECT_EQ(Contents(ComPtr<IDispatch>(object).As<ILuxCollection>().get()), "=1;");

    // Names that no element can carry (a prefix would be read as a namespace).
    for (const char* name : {"1st", "a b", "xsi:type", "a<b"}) {
        auto record = ComPtr<SoapTestRecord>::Attach(SoapTestRecord::Create());
        record->values.emplace_back("fine", Variant(2));
        record->values.emplace_back(name, Variant(1));
        const std::string partial = Save(static_cast<IDispatch*>(record.get()), "", ids_LuxFormatter_CantSaveObject_2);
        EXPECT_EQ(partial.find(name), std::string::npos) << name;
        const RecordedError error = TakeErrorInfo();
        EXPECT_NE(error.description.find("Tessaly.LuxCollection.1"), std::string::npos) << error.description;
    }
}

TEST_F(SoapFormatterTest, InputCutOrDamagedAnywhereFailsCleanly) {
    auto list = NewCollection();
    auto inner = NewCollection();
    ASSERT_EQ(Add(inner.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    ASSERT_EQ(Add(inner.get(), Variant(static_cast<IDispatch*>(list.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(inner.get())), "first"), S_OK);
    ASSERT_EQ(Add(list.get(), Variant("a&b")), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(2.5)), S_OK);
    const std::string document = Save(list.get(), "LineBreaks");
    ASSERT_EQ(list->Clear(), S_OK);
    ASSERT_EQ(inner->Clear(), S_OK);

    // Every cut that loses more than the final line break fails, and the target is kept.
    auto target = NewCollection();
    ASSERT_EQ(Add(target.get(), Variant(1)), S_OK);
    for (size_t size = 0; size < document.size() - 2; ++size) {
        const Loaded loaded = Load(document.substr(0, size), target.get());
        ASSERT_TRUE(FAILED(loaded.result)) << size;
        ASSERT_EQ(Contents(target.get()), "=1;") << size;
    }
    // Random damage: whatever the outcome, no crash, no leak (the fixture counts objects).
    std::mt19937 random(23);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = document;
        for (int hits = 1 + round % 3; hits > 0; --hits)
            damaged[random() % damaged.size()] = "<>/&;=\"'#x0 :!?-1f"[random() % 19];
        Loaded loaded = Load(damaged);
        Release(loaded.object);
    }
}

}  // namespace
}  // namespace tessaly::test
