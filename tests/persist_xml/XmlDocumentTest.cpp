// The documents LuxXMLFormatter writes: their exact text in both layouts, objects met twice
// and cycles, the top element, text escaping, stream-persisted objects, loading into an
// existing object, and documents written by hand.
#include <string>

#include "persist_xml/XmlFormatterFixture.h"
#include "platform/MemoryStream.h"

namespace tessaly::test {
namespace {

constexpr const char* kDeclaration = "<?xml version=\"1.0\"?>\r\n";
constexpr const char* kTop = "<Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">";

size_t Occurrences(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST_F(XmlFormatterTest, SmallDocumentHasItsExactLayoutInBothSubFormats) {
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(7)), S_OK);
    ASSERT_EQ(Add(list.get(), Variant("a<b & c>"), "k"), S_OK);
    auto point = NewPoint(1.5, -2);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(point.get()))), S_OK);

    const std::string plain = Save(list.get());
    EXPECT_EQ(plain, std::string(kDeclaration) + kTop +
                         "<Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\">"
                         "<Item0 dt:dt=\"i4\">7</Item0>"
                         "<Item1>a&lt;b &amp; c&gt;</Item1>"
                         "<Key1>k</Key1>"
                         "<Item2 ProgID=\"Tessaly.TestPoint.1\" id=\"2\">"
                         "<X dt:dt=\"r8\">1.5</X><Y dt:dt=\"r8\">-2</Y><Marker dt:dt=\"empty\"/>"
                         "</Item2></Object></Root>");

    const std::string lines = Save(list.get(), "LineBreaks");
    EXPECT_EQ(lines, std::string(kDeclaration) + kTop +
                         "\r\n\t<Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\">"
                         "\r\n\t\t<Item0 dt:dt=\"i4\">7</Item0>"
                         "\r\n\t\t<Item1>a&lt;b &amp; c&gt;</Item1>"
                         "\r\n\t\t<Key1>k</Key1>"
                         "\r\n\t\t<Item2 ProgID=\"Tessaly.TestPoint.1\" id=\"2\">"
                         "\r\n\t\t\t<X dt:dt=\"r8\">1.5</X>"
                         "\r\n\t\t\t<Y dt:dt=\"r8\">-2</Y>"
                         "\r\n\t\t\t<Marker dt:dt=\"empty\"/>"
                         "\r\n\t\t</Item2>"
                         "\r\n\t</Object>"
                         "\r\n</Root>\r\n");
    EXPECT_EQ(Save(list.get(), "linebreaks"), lines) << "the sub-format's name is not case-sensitive";

    // Both read back to the same graph.
    for (const std::string* document : {&plain, &lines}) {
        const Loaded loaded = Load(*document);
        ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
        EXPECT_TRUE(loaded.warnings.empty());
        auto copy = loaded.object.As<ILuxCollection>();
        ASSERT_TRUE(copy);
        EXPECT_EQ(Contents(copy.get()), "=7;k=a<b & c>;=obj;");
        auto loadedPoint = Item(copy.get(), 2).get().pdispVal;
        ComPtr<ITestPoint> p;
        ASSERT_EQ(loadedPoint->QueryInterface(ITestPoint::iid, p.OutVoid()), S_OK);
        EXPECT_EQ(PointText(p.get()), "1.500000,-2.000000,");
        EXPECT_FALSE(Same(loadedPoint, point.get()));
    }
}

TEST_F(XmlFormatterTest, ObjectMetTwiceIsWrittenOnceAndLoadsShared) {
    auto shared = NewPoint(3, 4);
    auto other = NewPoint(5, 6);
    auto list = NewCollection();
    for (ITestPoint* point : {shared.get(), shared.get(), other.get(), shared.get()})
        ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(point))), S_OK);
    const std::string document = Save(list.get());
    EXPECT_EQ(Occurrences(document, "ProgID=\"Tessaly.TestPoint.1\""), 2u);
    EXPECT_NE(document.find("<Item0 ProgID=\"Tessaly.TestPoint.1\" id=\"2\">"), std::string::npos);
    EXPECT_NE(document.find("<Item1 idref=\"2\"/><Item2 ProgID=\"Tessaly.TestPoint.1\" id=\"3\">"), std::string::npos);
    EXPECT_NE(document.find("<Item3 idref=\"2\"/></Object>"), std::string::npos);

    const Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    const Variant first = Item(copy.get(), 0), second = Item(copy.get(), 1), third = Item(copy.get(), 2),
                  fourth = Item(copy.get(), 3);
    EXPECT_TRUE(Same(first.get().pdispVal, second.get().pdispVal));
    EXPECT_TRUE(Same(first.get().pdispVal, fourth.get().pdispVal));
    EXPECT_FALSE(Same(first.get().pdispVal, third.get().pdispVal));
    EXPECT_FALSE(Same(first.get().pdispVal, shared.get()));
}

TEST_F(XmlFormatterTest, CollectionHoldingItselfLoadsAsACycle) {
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(list.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(5)), S_OK);
    const std::string document = Save(list.get());
    ASSERT_EQ(list->Clear(), S_OK);  // the original's cycle
    EXPECT_NE(document.find("<Object ProgID=\"Tessaly.LuxCollection.1\" id=\"1\"><Item0 idref=\"1\"/>"),
              std::string::npos);

    const Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(copy.get()), 2);
    EXPECT_TRUE(Same(Item(copy.get(), 0).get().pdispVal, copy.get()));
    EXPECT_EQ(ItemText(copy.get(), 1), "5");
    ASSERT_EQ(copy->Clear(), S_OK);  // the copy's cycle, or it would outlive the test
}

TEST_F(XmlFormatterTest, TopElementIsRootUnlessNamedAndAnyNameReads) {
    auto point = NewPoint(1, 2);
    auto formatter = NewFormatter();
    auto settings = formatter.As<ILuxXMLFormatterSettings>();
    ASSERT_TRUE(settings);
    Bstr name;
    EXPECT_EQ(settings->get_TopElementName(name.Out()), S_OK);
    EXPECT_EQ(name, "Root");

    EXPECT_EQ(settings->put_TopElementName(Bstr("Scene").get()), S_OK);
    const std::string document = Save(point.get(), "", formatter.get());
    const std::string start =
        std::string(kDeclaration) + "<Scene xmlns:dt=\"urn:schemas-microsoft-com:datatypes\"><Object ";
    EXPECT_EQ(document.substr(0, start.size()), start);
    EXPECT_EQ(document.substr(document.size() - 17), "</Object></Scene>");
    // Another formatter, with the default name, reads it.
    const Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK);
    EXPECT_EQ(PointText(loaded.object.As<ITestPoint>().get()), "1.000000,2.000000,");

    // A name that is not an XML name is refused and changes nothing; empty restores Root.
    for (const char* bad : {"1Scene", "a b", "a<b", "-x"}) {
        EXPECT_EQ(settings->put_TopElementName(Bstr(bad).get()), E_INVALIDARG) << bad;
        EXPECT_EQ(settings->get_TopElementName(name.Out()), S_OK);
        EXPECT_EQ(name, "Scene");
    }
    EXPECT_EQ(settings->put_TopElementName(Bstr("").get()), S_OK);
    EXPECT_EQ(settings->get_TopElementName(name.Out()), S_OK);
    EXPECT_EQ(name, "Root");
    EXPECT_EQ(settings->get_TopElementName(nullptr), E_POINTER);
    EXPECT_EQ(Save(point.get(), "", formatter.get()).substr(23, 6), "<Root ");

    // Through dispatch, as a script sets it.
    DISPID id = 0;
    LPOLESTR names[] = {const_cast<LPOLESTR>("TopElementName")};
    ASSERT_EQ(formatter->GetIDsOfNames(GUID_NULL, names, 1, 0, &id), S_OK);
    Variant value("Plant");
    DISPID put = DISPID_PROPERTYPUT;
    DISPPARAMS params{value.ptr(), &put, 1, 1};
    EXPECT_EQ(formatter->Invoke(id, GUID_NULL, 0, DISPATCH_PROPERTYPUT, &params, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(Save(point.get(), "", formatter.get()).substr(23, 7), "<Plant ");
}

TEST_F(XmlFormatterTest, MarkupCharactersInStringsAreEscapedAndReadBackUnchanged) {
    std::string every;
    for (int c = 0; c < 256; ++c) every += static_cast<char>(c);
    for (const std::string& text : {std::string("x < y && y > z"), every, std::string("  leading and trailing  "),
                                    std::string("line\r\nbreaks\n"), std::string()}) {
        auto point = NewPoint(0, 0, Variant(std::string_view(text)));
        const std::string document = Save(point.get());
        if (text == "x < y && y > z") {
            EXPECT_NE(document.find("<Marker>x &lt; y &amp;&amp; y &gt; z</Marker>"), std::string::npos);
        }
        if (text.empty()) {
            EXPECT_NE(document.find("<Marker/>"), std::string::npos);
        }
        for (const char* layout : {"", "LineBreaks"}) {
            const Loaded loaded = Load(Save(point.get(), layout));
            ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
            const Variant marker = Marker(loaded.object.As<ITestPoint>().get());
            ASSERT_EQ(marker.vt(), VT_BSTR);
            EXPECT_EQ(BstrView(marker.get().bstrVal), text);
        }
    }
}

TEST_F(XmlFormatterTest, StreamPersistedObjectsTravelAsBase64) {
    auto blob = ComPtr<TestBlob>::Attach(TestBlob::Create());
    blob->bytes = {'f', 'o', 'o', 'b', 'a', 'r', 0, 0xFF};
    auto empty = ComPtr<TestBlob>::Attach(TestBlob::Create());
    auto list = NewCollection();
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(blob.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(empty.get()))), S_OK);
    ASSERT_EQ(Add(list.get(), Variant(static_cast<IDispatch*>(blob.get()))), S_OK);
    const std::string document = Save(list.get());
    EXPECT_NE(
        document.find("<Item0 ProgID=\"Tessaly.TestBlob.1\" id=\"2\" dt:dt=\"bin.base64\">\r\nZm9vYmFyAP8=</Item0>"
                      "<Item1 ProgID=\"Tessaly.TestBlob.1\" id=\"3\" dt:dt=\"bin.base64\">\r\n</Item1>"
                      "<Item2 idref=\"2\"/>"),
        std::string::npos)
        << document;

    const Loaded loaded = Load(document);
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    auto copy = loaded.object.As<ILuxCollection>();
    const Variant first = Item(copy.get(), 0);
    EXPECT_TRUE(Same(first.get().pdispVal, Item(copy.get(), 2).get().pdispVal));
    ComPtr<IPersistStream> loadedBlob = ComPtr<IDispatch>(first.get().pdispVal).As<IPersistStream>();
    ASSERT_TRUE(loadedBlob);
    EXPECT_EQ(static_cast<TestBlob*>(loadedBlob.get())->bytes, blob->bytes);
    ComPtr<IPersistStream> loadedEmpty = ComPtr<IDispatch>(Item(copy.get(), 1).get().pdispVal).As<IPersistStream>();
    EXPECT_TRUE(static_cast<TestBlob*>(loadedEmpty.get())->bytes.empty());

    // A stream-persisted root, with its content wrapped as other tools wrap base64.
    const Loaded root = Load(std::string(kDeclaration) +
                             "<Root><Object ProgID=\"Tessaly.TestBlob\" id=\"1\" dt:dt=\"bin.base64\">\r\n"
                             "  Zm9v\r\n  YmFy\r\n</Object></Root>");
    ASSERT_EQ(root.result, S_OK) << root.error.description;
    auto rootBlob = root.object.As<IPersistStream>();
    EXPECT_EQ(static_cast<TestBlob*>(rootBlob.get())->bytes, std::vector<uint8_t>({'f', 'o', 'o', 'b', 'a', 'r'}));
}

TEST_F(XmlFormatterTest, LoadingIntoAnExistingRootKeepsItsIdentity) {
    auto point = NewPoint(1, 2, Variant("old"));
    const std::string document = Save(NewPoint(7, 8, Variant(9)).get());
    const Loaded loaded = Load(document, point.get());
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_TRUE(Same(loaded.object.get(), point.get()));
    EXPECT_EQ(PointText(point.get()), "7.000000,8.000000,9");
}

TEST_F(XmlFormatterTest, HandWrittenDocumentsWithoutTypesOrNumbersLoad) {
    const Loaded loaded = Load(
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<!-- written by hand -->\n"
        "<Scene>\n"
        "  <List ProgID=\"Tessaly.LuxCollection\">\n"
        "    <Item0 ProgID=\"{E6E85388-A126-4241-9760-09592641FAE0}\" id=\"5\">\n"
        "      <X dt:dt=\"r8\"> 2.5 </X>\n"
        "      <Marker>  spaced &#x41;&#66; <![CDATA[<raw & text>]]></Marker>\n"
        "    </Item0>\n"
        "    <Item1 href=\"#5\"/>\n"
        "    <Item2 dt:dt=\"boolean\">true</Item2>\n"
        "    <Item3 dt:dt=\"dateTime\">2000-01-01</Item3>\n"
        "  </List>\n"
        "</Scene>\n");
    ASSERT_EQ(loaded.result, S_OK) << loaded.error.description;
    EXPECT_TRUE(loaded.warnings.empty());
    auto list = loaded.object.As<ILuxCollection>();
    ASSERT_EQ(Count(list.get()), 4);
    const Variant first = Item(list.get(), 0);
    EXPECT_TRUE(Same(first.get().pdispVal, Item(list.get(), 1).get().pdispVal));
    auto point = ComPtr<IDispatch>(first.get().pdispVal).As<ITestPoint>();
    EXPECT_EQ(PointText(point.get()), "2.500000,0.000000,  spaced AB <raw & text>");
    EXPECT_EQ(Dump(Item(list.get(), 2).get()), "000B:FFFF");
    EXPECT_EQ(Dump(Item(list.get(), 3).get()), "0007:40E1D5C000000000");  // 36526.0
}

}  // namespace
}  // namespace tessaly::test
