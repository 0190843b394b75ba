// What LuxXMLFormatter refuses, and how: each failure of a damaged or foreign document with
// its exact HRESULT and message, the target left as it was; the warnings of documents that
// load in spite of something; failures of saving; and input cut or damaged anywhere.
#include <random>
#include <string>

#include "persist_xml/XmlFormatterFixture.h"
#include "platform/MemoryStream.h"
#include "platform/SafeArray.h"

namespace tessaly::test {
namespace {

// Clears the collection and the collections it holds, which breaks the cycles a loaded
// graph of them may hold.
void ClearCollections(IDispatch* object) {
    auto list = ComPtr<IDispatch>(object).As<ILuxCollection>();
    if (!list) return;
    LONG count = 0;
    list->get_Count(&count);
    for (LONG i = 0; i < count; ++i) {
        Variant item;
        list->get_Item(Variant(i).get(), item.ptr());
        if (item.vt() != VT_DISPATCH || !item.get().pdispVal) continue;
        if (auto held = ComPtr<IDispatch>(item.get().pdispVal).As<ILuxCollection>()) held->Clear();
    }
    list->Clear();
}

// A point document with something put in place of its values.
std::string PointWith(const std::string& values) {
    return "<Root><Object ProgID=\"Tessaly.TestPoint.1\" id=\"1\">" + values + "</Object></Root>";
}

TEST_F(XmlFormatterTest, DamagedDocumentsFailWithTheirMessageAndLeaveTheTargetAsItWas) {
    struct Case {
        std::string document;
        HRESULT result;
        const char* description;  // what the description must hold
    };
    std::string deep = "<Marker ArrayType=\"variant\">";
    for (int i = 0; i < 600; ++i) deep += "<Item ArrayType=\"variant\">";
    const Case cases[] = {
        {"", ids_LuxFormatter_NoStartTag, "A start tag is missing."},
        {"  \r\n", ids_LuxFormatter_NoStartTag, "A start tag is missing."},
        {PointWith("<1X/>"), ids_LuxFormatter_InvalidTagNameChar_2,
         "The tag name 1X (line 1, column 52) contains the invalid character '1'."},
        {PointWith("<X/ >"), ids_LuxFormatter_InvalidInlineEndTag_1,
         "The empty-element tag X (line 1, column 54) is not closed with '/>'."},
        {PointWith("<X 1a='1'/>"), ids_LuxFormatter_InvalidAttrName_2,
         "The attribute name 1a of the element X (line 1, column 54) is not valid."},
        {PointWith("<X dt:dt/>"), ids_LuxFormatter_AttrNoEquals_2,
         "The attribute dt:dt of the element X (line 1, column 59) has no '='."},
        {PointWith("<X dt:dt=r8>1</X>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "The attributes of the element X (line 1, column 60)"},
        {PointWith("<X dt:dt=\"complex\">1</X>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "The attributes of the element X (line 1, column 52)"},
        {PointWith("<Marker idref=\"1\" ProgID=\"Tessaly.TestPoint\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "element Marker"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0:3000000000\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "element Marker"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"5:3\"/>"), ids_LuxFormatter_InvalidNodeAttrs_1,
         "element Marker"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"-2147483648:2147483647\"/>"),
         ids_LuxFormatter_InvalidNodeAttrs_1, "element Marker"},
        {"<Root><Object ProgID=\"Tessaly.TestPoint.1\" id=\"1\"><X>1", ids_LuxFormatter_NoEndTag_1,
         "The element X (line 1, column 52) has no end tag."},
        {PointWith("<X>1</X!>"), ids_LuxFormatter_InvalidEndTagNameChar_2,
         "The end tag name X! (line 1, column 58) contains the invalid character '!'."},
        {PointWith("<X>1</Y>"), ids_LuxFormatter_StartEndMismatch_2,
         "The end tag Y (line 1, column 57) does not match the start tag X."},
        {PointWith("<X>1</X y>"), ids_LuxFormatter_InvalidEndTagEnd_2,
         "The end tag X (line 1, column 59) is not closed correctly at 'y'."},
        {PointWith("<Marker>&#123456789;</Marker>"), ids_LuxFormatter_TooManyEscapeDigits,
         "A character reference has too many digits."},
        {PointWith("<Marker>&#12z;</Marker>"), ids_LuxFormatter_EscapeNonDigit_1,
         "The character reference &#12z; (line 1, column 63) contains a character that is not a digit."},
        {"<Root><Object ProgID=\"Tessaly.TestPoint.1\" id=\"1\"><X dt:dt=\"r8", ids_LuxFormatter_EndOfInputStream,
         "The input ended before the document was complete."},
        {"<!DOCTYPE Root><Root/>", ids_LuxFormatter_BadFormat, "The input is not in the format this formatter reads."},
        {PointWith("") + "<Root/>", ids_LuxFormatter_BadFormat, "The input is not in the format this formatter reads."},
        {PointWith(deep), ids_LuxFormatter_BadFormat, "The input is not in the format this formatter reads."},
        {PointWith("<Marker ArrayType=\"i9\" ArrayBounds=\"0:0\">1</Marker>"), ids_LuxFormatter_InvalidArrayType_2,
         "The array type i9 of the element Marker (line 1, column 52) is not valid."},
        {PointWith("<Marker ArrayType=\"r8\" dt:dt=\"bin.base64\">AA==</Marker>"), ids_LuxFormatter_InvalidArrayType_2,
         "The array type r8 of the element Marker"},
        {PointWith("<Marker ArrayBounds=\"0:1\">1 2</Marker>"), ids_LuxFormatter_InvalidArrayType_2,
         "The array type  of"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0-3\">1</Marker>"), ids_LuxFormatter_InvalidArrayBoundSep_3,
         "The array bounds 0-3 of the element Marker (line 1, column 52) are not separated correctly at -3."},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0:1,\">1 2</Marker>"),
         ids_LuxFormatter_InvalidArrayBoundSep_3, "are not separated correctly at the end."},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0:3;1:2\">1</Marker>"),
         ids_LuxFormatter_ExtraArrayDimChars_1,
         "Extra characters follow the array dimensions in 0:3;1:2 of Marker (line 1, column 52)."},
        {"<Root><Object ProgID=\"Tessaly.TestPoint.1\" id=\"x\"/></Root>", ids_LuxFormatter_InvalidID_2,
         "The id x of the element Object (line 1, column 8) is not valid."},
        {"<Root><Object ProgID=\"Tessaly.TestPoint.1\" id=\"0\"/></Root>", ids_LuxFormatter_InvalidID_2, "The id 0 of"},
        {PointWith("<Marker idref=\"-1\"/>"), ids_LuxFormatter_InvalidID_2, "The id -1 of the element Marker"},
        {PointWith("<Marker ProgID=\"Tessaly.TestPoint.1\" id=\"1\"/>"), ids_LuxFormatter_DuplicateID_2,
         "The id 1 of the element Marker (line 1, column 52) is already used."},
        {PointWith("<Marker dt:dt=\"bin.base64\">Zm9v!m9v</Marker>"), ids_LuxFormatter_BadMime_1,
         "The base64 content of the element Marker (line 1, column 52) is not valid."},
        {PointWith("<Marker ArrayType=\"ui1\" ArrayBounds=\"0:1\" dt:dt=\"bin.base64\">Zm9v</Marker>"),
         ids_LuxFormatter_BadMime_1, "The base64 content of the element Marker"},
        {PointWith("<Marker dt:dt=\"bin.base64\">Zm9vZ</Marker>"), ids_LuxFormatter_ShortMime_1,
         "The base64 content of the element Marker (line 1, column 52) is too short."},
        {PointWith("<Marker ArrayType=\"ui1\" ArrayBounds=\"0:9\" dt:dt=\"bin.base64\">Zm9v</Marker>"),
         ids_LuxFormatter_ShortMime_1, "is too short."},
        {PointWith("<Marker idref=\"7\"/>"), ids_LuxFormatter_UnsresolvedHref_1,
         "The reference 7 in Marker (line 1, column 52) names no object of the document."},
        {PointWith("<Marker href=\"#1x\"/>"), ids_LuxFormatter_InvalidID_2, "The id 1x of"},
        {"<Root/>", ids_LuxFormatter_InvalidNodeObject, "The element does not hold an object."},
        {"<Root>  </Root>", ids_LuxFormatter_InvalidNodeObject, "The element does not hold an object."},
        {"<Root><X dt:dt=\"i4\">1</X></Root>", ids_LuxFormatter_InvalidNodeObject,
         "The element does not hold an object."},
        {"<Root><Object idref=\"1\"/></Root>", ids_LuxFormatter_InvalidNodeObject,
         "The element does not hold an object."},
        {"<Root><Object ProgID=\"Tessaly.NoSuchClass\" id=\"1\"/></Root>", ids_LuxFormatter_CantCreateObject_1,
         "An object of the class Tessaly.NoSuchClass could not be created."},
        {"<Root><Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\"/></Root>", ids_LuxFormatter_CantLoadObject_2,
         "the existing object is of another class"},
        // Values that do not read as their type: the property is named, the reason follows.
        {PointWith("<X dt:dt=\"r8\">abc</X>"), e_Lux_BadFileFormat,
         "The property X could not be read from the archive.\nccArchive::BadType: X (line 1, column 52): \"abc\" is "
         "not a value of type r8"},
        {PointWith("<Marker dt:dt=\"i1\">128</Marker>"), e_Lux_BadFileFormat, "\"128\" is not a value of type i1"},
        {PointWith("<Marker dt:dt=\"empty\">x</Marker>"), e_Lux_BadFileFormat, "The property Marker could not be read"},
        {PointWith("<Marker dt:dt=\"i4\"><A/></Marker>"), e_Lux_BadFileFormat,
         "it holds the element A where a value belongs"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0:3\">1 2 3</Marker>"), e_Lux_BadFileFormat,
         "it holds fewer values than its bounds say"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"0:1\">1 2 3</Marker>"), e_Lux_BadFileFormat,
         "it holds more values than its bounds say"},
        {PointWith("<Marker ArrayType=\"i4\" ArrayBounds=\"1:2000000000\">1 2</Marker>"), e_Lux_BadFileFormat,
         "it holds fewer values than its bounds say"},
        {PointWith("<Marker ArrayType=\"string\" ArrayBounds=\"0:2000000000,0:1000\"><I/></Marker>"),
         e_Lux_BadFileFormat, "it holds fewer values than its bounds say"},
        {PointWith("<Marker ArrayType=\"string\" ArrayBounds=\"0:0\"><I/><I/></Marker>"), e_Lux_BadFileFormat,
         "it holds more values than its bounds say"},
        {PointWith("<Marker ArrayType=\"string\"><I dt:dt=\"i4\">1</I></Marker>"), e_Lux_BadFileFormat,
         "an element of an array of strings is not a string"},
        {PointWith("<Marker ArrayType=\"object\"><I>1</I></Marker>"), e_Lux_BadFileFormat,
         "an element of an array of objects is not an object"},
        {PointWith("<Marker ArrayType=\"r8\" ArrayBounds=\"\">1</Marker>"), e_Lux_BadFileFormat,
         "a null array holds values"},
    };
    for (const Case& c : cases) {
        auto target = NewPoint(5, 6, Variant("keep"));
        const Loaded loaded = Load(c.document, target.get());
        EXPECT_EQ(loaded.result, c.result) << c.document << "\n" << loaded.error.description;
        EXPECT_NE(loaded.error.description.find(c.description), std::string::npos)
            << c.document << "\n" << loaded.error.description;
        EXPECT_EQ(loaded.error.source, "Deserialize");
        EXPECT_EQ(PointText(target.get()), "5.000000,6.000000,keep") << c.document;
    }
}

TEST_F(XmlFormatterTest, DocumentsWithSomethingToOverlookLoadWithWarnings) {
    const Loaded loaded = Load(
        "<Root version=\"2\"><Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\">stray text"
        "<Item0 dt:dt=\"i4\" unit=\"mm\">1</Item0>"
        "<Item1 ProgID=\"NULL\" id=\"2\"><Anything dt:dt=\"i4\">1</Anything></Item1>"
        "<Item2 idref=\"2\"/>"
        "<ITEM0 dt:dt=\"i4\">9</ITEM0>"
        "</Object><After/></Root>");
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_EQ(loaded.warnings,
              (std::vector<std::string>{
                  "The attribute version of the element Root (line 1, column 2) is not known and was ignored.",
                  "Text in the element Object (line 1, column 20) was ignored.",
                  "The attribute unit of the element Item0 (line 1, column 78) is not known and was ignored.",
                  "The element Item1 (line 1, column 115) holds an object with no ProgID; it was loaded as Nothing.",
                  "The value ITEM0 (line 1, column 202) of Tessaly.LuxCollection.1 (object 1) is stored twice; "
                  "the second one was skipped.",
                  "The element After (line 1, column 238) after the root object was ignored.",
              }));
    auto list = loaded.object.As<ILuxCollection>();
    EXPECT_EQ(Contents(list.get()), "=1;=obj;=obj;");
    EXPECT_EQ(Dump(Item(list.get(), 1).get()), "0009:null");
    EXPECT_EQ(Dump(Item(list.get(), 2).get()), "0009:null");

    // A root that names no class loads as Nothing.
    const Loaded nothing = Load("<Root><Object ProgID=\"NULL\" id=\"1\"/></Root>");
    ASSERT_EQ(nothing.result, S_OK);
    EXPECT_FALSE(nothing.object);
    EXPECT_EQ(nothing.warnings.size(), 1u);
}

TEST_F(XmlFormatterTest, ObjectsWithoutAClassAreWrittenAsNullUnlessRefused) {
    auto record = ComPtr<XmlTestRecord>::Attach(XmlTestRecord::Create());
    record->values.emplace_back("Width", Variant(3));
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(record.get()))), S_OK);
    const std::string document = Save(list.get());
    EXPECT_NE(document.find("<Item0 ProgID=\"NULL\" id=\"2\"><Width dt:dt=\"i4\">3</Width></Item0>"), std::string::npos)
        << document;

    auto formatter = NewFormatter();
    auto settings = formatter.As<ILuxXMLFormatterSettings>();
    VARIANT_BOOL refuse = VARIANT_TRUE;
    EXPECT_EQ(settings->get_RefuseNullClassID(&refuse), S_OK);
    EXPECT_EQ(refuse, VARIANT_FALSE);
    EXPECT_EQ(settings->put_RefuseNullClassID(VARIANT_TRUE), S_OK);
    EXPECT_EQ(settings->get_RefuseNullClassID(&refuse), S_OK);
    EXPECT_EQ(refuse, VARIANT_TRUE);
    Save(list.get(), "", formatter.get(), ids_LuxFormatter_NoClassID);
    EXPECT_EQ(TakeErrorInfo().description, "The object cannot be saved: it has no class ID.");
    EXPECT_EQ(settings->get_RefuseNullClassID(nullptr), E_POINTER);
}

TEST_F(XmlFormatterTest, SavingFailuresNameTheirCause) {
    // An object that persists in neither way.
    auto formatter = NewFormatter();
    Save(formatter.get(), "", nullptr, ids_LuxFormatter_NotPersistable);
    EXPECT_EQ(TakeErrorInfo().description, "The object cannot be saved: it does not support persistence.");

    // A value name that cannot be an element name.
    auto record = ComPtr<XmlTestRecord>::Attach(XmlTestRecord::Create());
    record->values.emplace_back("two words", Variant(1));
    Save(static_cast<IDispatch*>(record.get()), "", nullptr, ids_LuxFormatter_CantSaveObject_2);
    EXPECT_EQ(TakeErrorInfo().description,
              "The object object with no ProgID could not be saved: the value name \"two words\" cannot be an XML "
              "element name.");

    // Nesting deeper than a reader would take.
    std::vector<ComPtr<ILuxCollection>> chain;
    for (int i = 0; i < 600; ++i) {
        chain.push_back(NewCollection());
        if (i > 0) {
            ASSERT_EQ(Add(chain[i - 1].get(), Variant(static_cast<IDispatch*>(chain[i].get()))), S_OK);
        }
    }
    Save(chain[0].get(), "", nullptr, ids_LuxFormatter_CantSaveObject_2);
    EXPECT_NE(TakeErrorInfo().description.find("nested deeper than 512 levels"), std::string::npos);
    // Just within the limit, it saves and loads.
    const std::string document = Save(chain[600 - 510].get());
    const Loaded loaded = Load(document);
    EXPECT_EQ(loaded.result, S_OK) << loaded.error.description;

    // The device fails.
    auto broken = ComPtr<BrokenStream>::Attach(BrokenStream::Create());
    auto point = NewPoint(1, 2);
    EXPECT_EQ(NewFormatter()->Serialize(broken.get(), point.get(), luxPersistOptionAll, nullptr),
              ids_LuxFormatter_WriteError_1);
    EXPECT_NE(TakeErrorInfo().description.find("The stream could not be written: "), std::string::npos);
    ComPtr<IDispatch> object;
    ComPtr<ILuxStringCollection> warnings;
    EXPECT_EQ(
        NewFormatter()->Deserialize(broken.get(), nullptr, luxPersistOptionAll, nullptr, warnings.Out(), object.Out()),
        ids_LuxFormatter_ReadError_1);
    EXPECT_NE(TakeErrorInfo().description.find("The stream could not be read: "), std::string::npos);
}

TEST_F(XmlFormatterTest, ArgumentsAreChecked) {
    auto formatter = NewFormatter();
    auto point = NewPoint(1, 2);
    auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
    EXPECT_EQ(formatter->Serialize(nullptr, point.get(), luxPersistOptionAll, nullptr), E_INVALIDARG);
    EXPECT_EQ(formatter->Serialize(stream.get(), nullptr, luxPersistOptionAll, nullptr), E_INVALIDARG);
    EXPECT_EQ(formatter->Serialize(stream.get(), point.get(), luxPersistOptionAll, Bstr("Soap").get()), E_INVALIDARG);
    EXPECT_EQ(stream->Size(), 0u) << "nothing is written before the arguments are checked";

    ASSERT_EQ(formatter->Serialize(stream.get(), point.get(), luxPersistOptionAll, nullptr), S_OK);
    ComPtr<IDispatch> object;
    ComPtr<ILuxStringCollection> warnings;
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, Bstr("Soap").get(), warnings.Out(), object.Out()),
              E_INVALIDARG);
    EXPECT_EQ(formatter->Deserialize(nullptr, nullptr, 0, nullptr, warnings.Out(), object.Out()), E_INVALIDARG);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, nullptr, warnings.Out(), nullptr), E_POINTER);
    // Warnings are optional; the stream is read from where it stands.
    ASSERT_EQ(stream->Seek(0, STREAM_SEEK_SET, nullptr), S_OK);
    EXPECT_EQ(formatter->Deserialize(stream.get(), nullptr, 0, Bstr("LineBreaks").get(), nullptr, object.Out()), S_OK);
    EXPECT_EQ(PointText(object.As<ITestPoint>().get()), "1.000000,2.000000,");
}

TEST_F(XmlFormatterTest, FailedLoadsLeaveNoCycleBehind) {
    // The collection that holds itself is complete before the input ends: had it taken its
    // values, the cycle would keep it alive after the failure (the fixture counts objects).
    const std::string cycle = "<Root><Object ProgID=\"Tessaly.LuxCollection\" id=\"1\">"
                              "<Item0 ProgID=\"Tessaly.LuxCollection\" id=\"3\"><Item0 idref=\"3\"/></Item0>";
    EXPECT_EQ(Load(cycle).result, ids_LuxFormatter_NoEndTag_1);
    // The document is whole, but an object after the cycle refuses its values: the objects
    // loaded before it are reset, which breaks the cycle.
    const Loaded refused =
        Load(cycle + "<Item1 ProgID=\"Tessaly.TestPoint\" id=\"4\"><X>abc</X></Item1></Object></Root>");
    EXPECT_EQ(refused.result, e_Lux_BadFileFormat) << refused.error.description;
    // Into an existing root: the root is not reset, and keeps what it held.
    auto target = NewCollection();
    ASSERT_EQ(Add(target.get(), Variant("kept")), S_OK);
    EXPECT_EQ(
        Load(cycle + "<Item1 ProgID=\"Tessaly.TestPoint\" id=\"4\"><X>abc</X></Item1></Object></Root>", target.get())
            .result,
        e_Lux_BadFileFormat);
    EXPECT_EQ(Contents(target.get()), "=kept;");
}

TEST_F(XmlFormatterTest, InputCutOrDamagedAnywhereFailsCleanly) {
    auto shared = NewPoint(1, 2, Variant("a&b"));
    auto list = NewCollection();
    auto inner = NewCollection();
    ASSERT_EQ(Add(inner.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(inner.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(shared.get())), "first"), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(shared.get()))), S_OK);
    VARIANT bytes;
    VariantInit(&bytes);
    bytes.vt = VT_ARRAY | VT_UI1;
    const SAFEARRAYBOUND bound{10, 0};
    bytes.parray = SafeArrayCreate(VT_UI1, 1, &bound);
    ASSERT_EQ(Add(list.get(), Variant::Attach(bytes)), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(2.5)), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(list.get()))), S_OK);
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
    std::mt19937 random(17);
    for (int round = 0; round < 3000; ++round) {
        std::string damaged = document;
        for (int hits = 1 + round % 3; hits > 0; --hits)
            damaged[random() % damaged.size()] = "<>/&;=\"'#x0 :!?-"[random() % 17];
        const Loaded loaded = Load(damaged);
        if (SUCCEEDED(loaded.result)) ClearCollections(loaded.object.get());  // the graph's cycles
    }
}

}  // namespace
}  // namespace tessaly::test
