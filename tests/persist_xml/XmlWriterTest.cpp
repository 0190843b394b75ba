// ccXmlWriter: the exact text of both layouts, escaping that reads back byte for byte,
// and the blocks the output receives.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "persist/ccBase64.h"
#include "persist/ccXmlReader.h"
#include "persist/ccXmlWriter.h"

namespace {

class Capture final : public ccXmlWriter::Output {
public:
    void Write(const char* data, size_t size) override {
        if (failAfter && blocks.size() == failAfter) throw std::runtime_error("device full");
        blocks.push_back(size);
        text.append(data, size);
    }
    std::string text;
    std::vector<size_t> blocks;
    size_t failAfter = 0;
};

// A small document with every kind of content, in one layout.
std::string Sample(ccXmlWriter::Layout layout) {
    Capture out;
    ccXmlWriter xml(out, layout);
    xml.Declaration();
    xml.StartElement("Root");
    xml.Attribute("xmlns:dt", "urn:schemas-microsoft-com:datatypes");
    xml.StartElement("Object");
    xml.Attribute("ProgID", "P.1");
    xml.Attribute("id", int64_t(1));
    xml.StartElement("Width");
    xml.Attribute("dt:dt", "i4");
    xml.RawText("640");
    xml.EndElement();
    xml.StartElement("Empty");
    xml.EndElement();
    xml.StartElement("Data");
    const uint8_t bytes[] = {'f', 'o', 'o'};
    xml.Base64(bytes, 3, true);
    xml.EndElement();
    xml.EndElement();
    xml.Finish();  // closes Root
    return out.text;
}

TEST(XmlWriterTest, PlainLayoutHasNoWhiteSpaceBetweenElements) {
    EXPECT_EQ(Sample(ccXmlWriter::Layout::Plain),
              "<?xml version=\"1.0\"?>\r\n"
              "<Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\"><Object ProgID=\"P.1\" id=\"1\">"
              "<Width dt:dt=\"i4\">640</Width><Empty/><Data>\r\nZm9v</Data></Object></Root>");
}

TEST(XmlWriterTest, LineBreakLayoutIndentsOneTabPerLevel) {
    EXPECT_EQ(Sample(ccXmlWriter::Layout::LineBreaks),
              "<?xml version=\"1.0\"?>\r\n"
              "<Root xmlns:dt=\"urn:schemas-microsoft-com:datatypes\">\r\n"
              "\t<Object ProgID=\"P.1\" id=\"1\">\r\n"
              "\t\t<Width dt:dt=\"i4\">640</Width>\r\n"
              "\t\t<Empty/>\r\n"
              "\t\t<Data>\r\nZm9v</Data>\r\n"
              "\t</Object>\r\n"
              "</Root>\r\n");
}

TEST(XmlWriterTest, EscapedTextAndAttributesReadBackByteForByte) {
    std::string every;
    for (int c = 0; c < 256; ++c) every += static_cast<char>(c);
    Capture out;
    ccXmlWriter xml(out, ccXmlWriter::Layout::Plain);
    xml.StartElement("a");
    xml.Attribute("v", every);
    xml.Text(every);
    xml.Finish();
    // The markup characters and the controls other than tab and line feed never appear raw.
    const std::string_view written = out.text;
    const size_t content = written.find('>') + 1;
    const std::string_view text = written.substr(content, written.size() - content - 4);
    EXPECT_EQ(text.find('<'), std::string_view::npos);
    EXPECT_EQ(text.find('\r'), std::string_view::npos);
    EXPECT_EQ(text.find('\0'), std::string_view::npos);
    EXPECT_NE(text.find("&lt;=&gt;"), std::string_view::npos);
    EXPECT_NE(text.find("\t\n"), std::string_view::npos);
    EXPECT_NE(written.find("&#9;&#10;"), std::string_view::npos) << "attribute values escape tab and line feed";

    ccXmlReader reader(written);
    std::string scratch;
    ASSERT_EQ(reader.Next(), ccXmlReader::Token::StartElement);
    EXPECT_EQ(reader.Value(reader.Attributes()[0], scratch), every);
    ASSERT_EQ(reader.Next(), ccXmlReader::Token::Text);
    EXPECT_EQ(reader.Text(scratch), every);
}

TEST(XmlWriterTest, OutputComesInBlocksAndBase64CrossesThemWhole) {
    std::vector<uint8_t> bytes(ccXmlWriter::kBufferSize * 3 + 5);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * 7);
    Capture out;
    ccXmlWriter xml(out, ccXmlWriter::Layout::Plain);
    xml.StartElement("b");
    xml.Base64(bytes.data(), bytes.size(), false);
    xml.Finish();
    ASSERT_GE(out.blocks.size(), 4u);
    for (size_t i = 0; i + 1 < out.blocks.size(); ++i) EXPECT_LE(out.blocks[i], ccXmlWriter::kBufferSize);
    EXPECT_EQ(out.text, "<b>" + ccBase64::Encode(bytes.data(), bytes.size()) + "</b>");

    // Text longer than the buffer goes to the output without passing through it.
    Capture big;
    ccXmlWriter direct(big, ccXmlWriter::Layout::Plain);
    direct.StartElement("t");
    const std::string long_text(ccXmlWriter::kBufferSize * 2, 'x');
    direct.RawText(long_text);
    direct.Finish();
    EXPECT_EQ(big.text, "<t>" + long_text + "</t>");
}

TEST(XmlWriterTest, OutputFailureLeavesTheWriter) {
    Capture out;
    out.failAfter = 1;
    ccXmlWriter xml(out, ccXmlWriter::Layout::Plain);
    xml.StartElement("t");
    const std::string text(ccXmlWriter::kBufferSize * 3, 'x');
    EXPECT_THROW(xml.Text(text), std::runtime_error);
}

TEST(XmlWriterTest, NamesAreCheckedByTheRulesTheReaderApplies) {
    for (std::string_view name : {"a", "Item10", "_x", "dt:dt", "a.b-c", "\xC3\xA9t\xC3\xA9"}) {
        EXPECT_TRUE(ccXmlWriter::IsName(name)) << name;
        const std::string document = "<" + std::string(name) + "/>";
        ccXmlReader reader(document);
        EXPECT_EQ(reader.Next(), ccXmlReader::Token::StartElement);
        EXPECT_EQ(reader.Name(), name);
    }
    for (std::string_view name : {"", "1a", "-a", ".a", "a b", "a<b", "a&b", "a=b", "a/b", "a\"b"})
        EXPECT_FALSE(ccXmlWriter::IsName(name)) << name;
}

}  // namespace
