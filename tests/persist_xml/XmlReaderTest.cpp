// ccXmlReader: the token stream of well-formed documents, references, and every failure
// with its inserts and its position; the limits that keep hostile input cheap.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "persist/ccXmlReader.h"

namespace {

// The tokens of a whole document in a compact form: <a x=1> for a start tag (with "/"
// for an empty one), "text" for text (decoded), </a> for an end.
std::string Tokens(std::string_view document, size_t maxDepth = ccXmlReader::kDefaultMaxDepth) {
    ccXmlReader xml(document, maxDepth);
    std::string out;
    std::string scratch;
    for (auto token = xml.Next(); token != ccXmlReader::Token::End; token = xml.Next()) {
        switch (token) {
            case ccXmlReader::Token::StartElement:
                out += "<" + std::string(xml.Name());
                for (const auto& attribute : xml.Attributes())
                    out += " " + std::string(attribute.name) + "=" + std::string(xml.Value(attribute, scratch));
                out += xml.IsEmptyElement() ? "/>" : ">";
                break;
            case ccXmlReader::Token::Text: out += "\"" + std::string(xml.Text(scratch)) + "\""; break;
            case ccXmlReader::Token::EndElement: out += "</" + std::string(xml.Name()) + ">"; break;
            case ccXmlReader::Token::End: break;
        }
    }
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::End) << "End repeats";
    return out;
}

// Reads the document to its end; returns the failure's class name, inserts and details.
std::string Failure(std::string_view document, size_t maxDepth = ccXmlReader::kDefaultMaxDepth) {
    try {
        ccXmlReader xml(document, maxDepth);
        std::string scratch;
        for (auto token = xml.Next(); token != ccXmlReader::Token::End; token = xml.Next())
            if (token == ccXmlReader::Token::Text) xml.Text(scratch);
    } catch (const ccXmlReader::Errors& error) {
        std::string text = error.Message();
        for (const auto& insert : error.Inserts()) text += " [" + insert + "]";
        return text + " @" + error.Details();
    }
    return "no failure";
}

TEST(XmlReaderTest, TokensOfAWellFormedDocument) {
    EXPECT_EQ(Tokens("<?xml version=\"1.0\"?>\r\n<Root xmlns:dt=\"urn:x\"><A dt:dt='i4'>42</A><B/>\r\n\t<C x=\"1\" y = "
                     "'2' /></Root>"),
              "<Root xmlns:dt=urn:x><A dt:dt=i4>\"42\"</A><B/></B>\"\r\n\t\"<C x=1 y=2/></C></Root>");
    // Comments, processing instructions and a byte order mark are skipped; text around a
    // comment comes in two pieces; CDATA is taken as it stands.
    EXPECT_EQ(Tokens("\xEF\xBB\xBF<!-- c --><?pi x?><a>x<!-- -- -->y<![CDATA[<&amp;>]]></a><!-- end -->\n"),
              "<a>\"x\"\"y\"\"<&amp;>\"</a>");
    EXPECT_EQ(Tokens("<a.b-c_d:e\xC3\xA9/>"), "<a.b-c_d:e\xC3\xA9/></a.b-c_d:e\xC3\xA9>");
}

TEST(XmlReaderTest, ReferencesDecodeInTextAndAttributes) {
    EXPECT_EQ(Tokens("<a v=\"&lt;&quot;&amp;&apos;&gt;\">&lt;b&gt; &amp;&amp; &#65;&#x42;&#x63;</a>"),
              "<a v=<\"&'>>\"<b> && ABc\"</a>");
    // Numeric references give UTF-8 of every length, and NUL.
    ccXmlReader xml("<a>&#xE9;&#x20AC;&#x1F600;&#0;</a>");
    xml.Next();
    xml.Next();
    std::string scratch;
    EXPECT_EQ(xml.Text(scratch), std::string_view("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\0", 10));
    // Text without references is a view of the document itself: nothing was copied.
    const std::string document = "<a>plain</a>";
    ccXmlReader plain(document);
    plain.Next();
    plain.Next();
    EXPECT_EQ(plain.Text(scratch).data(), document.data() + 3);
}

TEST(XmlReaderTest, MalformedTagsFailWithTheirClassInsertsAndPosition) {
    EXPECT_EQ(Failure(""), "ccXmlReader::NoStartTag @line 1, column 1");
    EXPECT_EQ(Failure("  \r\n "), "ccXmlReader::NoStartTag @line 2, column 2");
    EXPECT_EQ(Failure("text<a/>"), "ccXmlReader::NoStartTag @line 1, column 1");
    EXPECT_EQ(Failure("</a>"), "ccXmlReader::NoStartTag @line 1, column 1");
    EXPECT_EQ(Failure("<1a/>"), "ccXmlReader::InvalidTagNameChar [1a] ['1'] @line 1, column 2");
    EXPECT_EQ(Failure("<a\"b/>"), "ccXmlReader::InvalidTagNameChar [a\"b] ['\"'] @line 1, column 3");
    EXPECT_EQ(Failure("<a>\n<b/x></a>"), "ccXmlReader::InvalidInlineEndTag [b] @line 2, column 4");
    EXPECT_EQ(Failure("<a 1x=\"1\"/>"), "ccXmlReader::InvalidAttrName [1x] [a] @line 1, column 4");
    EXPECT_EQ(Failure("<a x!=\"1\"/>"), "ccXmlReader::InvalidAttrName [x!] [a] @line 1, column 5");
    EXPECT_EQ(Failure("<a x \"1\"/>"), "ccXmlReader::AttrNoEquals [x] [a] @line 1, column 6");
    EXPECT_EQ(Failure("<a x=1/>"), "ccXmlReader::InvalidAttributes [a] @line 1, column 6");
    EXPECT_EQ(Failure("<a x='1' x='2'/>"), "ccXmlReader::InvalidAttributes [a] @line 1, column 10");
    EXPECT_EQ(Failure("<a x='<'/>"), "ccXmlReader::InvalidAttributes [a] @line 1, column 7");
    EXPECT_EQ(Failure("<a x='1'y='2'/>"), "ccXmlReader::InvalidAttributes [a] @line 1, column 9");
    EXPECT_EQ(Failure("<a><b>text"), "ccXmlReader::NoEndTag [b] @line 1, column 5");
    EXPECT_EQ(Failure("<a>\n  <b></b>"), "ccXmlReader::NoEndTag [a] @line 1, column 2");
    EXPECT_EQ(Failure("<a></1a>"), "ccXmlReader::InvalidEndTagNameChar [1a] ['1'] @line 1, column 6");
    EXPECT_EQ(Failure("<a></a!>"), "ccXmlReader::InvalidEndTagNameChar [a!] ['!'] @line 1, column 7");
    EXPECT_EQ(Failure("<a><b></a></b>"), "ccXmlReader::StartEndMismatch [b] [a] @line 1, column 9");
    EXPECT_EQ(Failure("<a></a x>"), "ccXmlReader::InvalidEndTagEnd [a] ['x'] @line 1, column 8");
    for (std::string_view cut : {"<", "<a", "<a ", "<a x", "<a x=", "<a x='1", "<a x='1'", "<a/", "<a></", "<a></a",
                                 "<a></a ", "<a><!-- x", "<a><![CDATA[ x", "<a><?pi", "<a><"})
        EXPECT_EQ(Failure(cut).substr(0, 23), "ccXmlReader::EndOfInput") << cut;
}

TEST(XmlReaderTest, BadReferencesFailWhenTheTextIsDecoded) {
    EXPECT_EQ(Failure("<a>&#12345678;</a>"), "ccXmlReader::TooManyEscapeDigits [&#12345678;] @line 1, column 4");
    EXPECT_EQ(Failure("<a>&#x1234567;</a>"), "ccXmlReader::TooManyEscapeDigits [&#x1234567;] @line 1, column 4");
    EXPECT_EQ(Failure("<a>&#x110000;</a>"), "ccXmlReader::TooManyEscapeDigits [&#x110000;] @line 1, column 4");
    EXPECT_EQ(Failure("<a>&#12a;</a>"), "ccXmlReader::EscapeNonDigit [&#12a;] @line 1, column 8");
    EXPECT_EQ(Failure("<a>&#;</a>"), "ccXmlReader::EscapeNonDigit [&#;] @line 1, column 6");
    EXPECT_EQ(Failure("<a>&#x;</a>"), "ccXmlReader::EscapeNonDigit [&#x;] @line 1, column 7");
    EXPECT_EQ(Failure("<a>&#65</a>"), "ccXmlReader::EscapeNonDigit [&#65] @line 1, column 4");
    EXPECT_EQ(Failure("<a>&nbsp;</a>"), "ccXmlReader::EscapeNonDigit [&nbsp;] @line 1, column 4");
    EXPECT_EQ(Failure("<a>a & b</a>"), "ccXmlReader::EscapeNonDigit [& b] @line 1, column 6");
    // An attribute's references are checked when its value is asked for.
    ccXmlReader xml("<a v='&bad;'/>");
    xml.Next();
    std::string scratch;
    EXPECT_THROW(xml.Value(xml.Attributes()[0], scratch), ccXmlReader::EscapeNonDigit);
}

TEST(XmlReaderTest, StructuresOutsideTheFormatAreRefused) {
    EXPECT_EQ(Failure("<!DOCTYPE a [<!ENTITY x \"y\">]><a/>"),
              "ccXmlReader::BadDocument [a declaration (<!DOCTYPE)] @line 1, column 1");
    EXPECT_EQ(Failure("<a/>text"), "ccXmlReader::BadDocument [text after the top element] @line 1, column 5");
    EXPECT_EQ(Failure("<a/><b/>"), "ccXmlReader::BadDocument [a second top element] @line 1, column 5");
    EXPECT_EQ(Failure("<a/></a>"), "ccXmlReader::BadDocument [an end tag after the top element] @line 1, column 5");
}

TEST(XmlReaderTest, NestingAndAttributesAreBoundedWithoutRecursion) {
    // Exactly the limit reads; one more level fails before the element is opened.
    std::string deep;
    for (int i = 0; i < 4; ++i) deep += "<e>";
    for (int i = 0; i < 4; ++i) deep += "</e>";
    EXPECT_EQ(Failure(deep, 4), "no failure");
    EXPECT_EQ(Failure(deep, 3), "ccXmlReader::BadDocument [elements nested deeper than 3 levels] @line 1, column 11");
    // A million open tags cost one pass and fail at the default limit.
    std::string hostile(3000000, '<');
    for (size_t i = 1; i < hostile.size(); i += 3) hostile[i] = 'e', hostile[i + 1] = '>';
    EXPECT_EQ(Failure(hostile).substr(0, 56), "ccXmlReader::BadDocument [elements nested deeper than 25");

    std::string attributes = "<a";
    for (size_t i = 0; i < ccXmlReader::kMaxAttributes; ++i) attributes += " a" + std::to_string(i) + "='1'";
    EXPECT_EQ(Failure(attributes + "/>"), "no failure");
    EXPECT_EQ(Failure(attributes + " z='1'/>").substr(0, 35), "ccXmlReader::InvalidAttributes [a] ");
}

TEST(XmlReaderTest, SkipElementReadsToItsEndAndDepthFollows) {
    ccXmlReader xml("<r><skip a='1'><x>t<y/></x><!-- c --></skip><next/></r>");
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::StartElement);
    EXPECT_EQ(xml.Depth(), 1u);
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::StartElement);
    EXPECT_EQ(xml.Name(), "skip");
    ASSERT_NE(xml.FindAttribute("a"), nullptr);
    EXPECT_EQ(xml.FindAttribute("b"), nullptr);
    EXPECT_EQ(xml.Depth(), 2u);
    xml.SkipElement();
    EXPECT_EQ(xml.Current(), ccXmlReader::Token::EndElement);
    EXPECT_EQ(xml.Name(), "skip");
    EXPECT_EQ(xml.Depth(), 1u);
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::StartElement);
    EXPECT_EQ(xml.Name(), "next");
    xml.SkipElement();  // an empty element: just its end
    EXPECT_EQ(xml.Current(), ccXmlReader::Token::EndElement);
    EXPECT_EQ(xml.Name(), "next");
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::EndElement);
    EXPECT_EQ(xml.Depth(), 0u);
    EXPECT_EQ(xml.Next(), ccXmlReader::Token::End);
    // Skipping still checks the syntax of what it skips.
    ccXmlReader broken("<r><skip><x></y></skip></r>");
    broken.Next();
    broken.Next();
    EXPECT_THROW(broken.SkipElement(), ccXmlReader::StartEndMismatch);
}

}  // namespace
