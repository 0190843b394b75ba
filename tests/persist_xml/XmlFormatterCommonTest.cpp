// What the XML and SOAP formatters share: number text at the edges of each type, the
// boolean spelling each format writes, values refused without touching the destination,
// and the reader's failures turned into the formatter's messages.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "com/core/FormatterErrors.h"
#include "com/core/XmlFormatterCommon.h"
#include "persist/ccXmlReader.h"
#include "persist/ccXmlValueText.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/MemoryStream.h"
#include "xnl/std/except/ccStdError.h"

namespace {

using namespace tessaly;
using namespace tessaly::core;
using namespace tessaly::core::xmlformat;

template <class T>
std::string Text(VARTYPE vt, T value, BooleanText booleans = BooleanText::Digit) {
    char buffer[ccXmlValueText::kMaxText];
    return std::string(buffer, FormatNumber(vt, &value, buffer, booleans));
}

TEST(XmlFormatterCommonTest, NumbersAtTheEdgesOfTheirTypesReadBackAndOneBeyondIsRefused) {
    EXPECT_EQ(Text<int8_t>(VT_I1, -128), "-128");
    EXPECT_EQ(Text<uint8_t>(VT_UI1, 255), "255");
    EXPECT_EQ(Text<int16_t>(VT_I2, -32768), "-32768");
    EXPECT_EQ(Text<uint32_t>(VT_UINT, 4294967295u), "4294967295");
    EXPECT_EQ(Text<int64_t>(VT_I8, INT64_MIN), "-9223372036854775808");
    EXPECT_EQ(Text<uint64_t>(VT_UI8, UINT64_MAX), "18446744073709551615");

    int64_t at = 0;
    ASSERT_TRUE(ParseNumber(VT_I1, "-128", &at));
    EXPECT_EQ(static_cast<int8_t>(at), -128);
    ASSERT_TRUE(ParseNumber(VT_UI8, "18446744073709551615", &at));
    EXPECT_EQ(static_cast<uint64_t>(at), UINT64_MAX);

    // Refused: the destination keeps every byte it had.
    const int64_t before = 0x1122334455667788;
    for (const auto& [vt, text] : std::vector<std::pair<VARTYPE, const char*>>{
             {VT_I1, "128"}, {VT_I1, "-129"}, {VT_UI1, "256"}, {VT_UI1, "-1"}, {VT_I2, "32768"},
             {VT_I4, "2147483648"}, {VT_UI4, "4294967296"}, {VT_UI8, "18446744073709551616"},
             {VT_BOOL, "yes"}, {VT_R8, "1.5x"}, {VT_I4, ""}, {VT_BSTR, "1"}}) {
        at = before;
        EXPECT_FALSE(ParseNumber(vt, text, &at)) << vt << " " << text;
        EXPECT_EQ(at, before) << vt << " " << text;
    }

    // A type that is not a number writes nothing.
    EXPECT_EQ(Text<int64_t>(VT_BSTR, 5), "");
}

TEST(XmlFormatterCommonTest, BooleansAreDigitsForXmlAndWordsForSoapAndBothReadBack) {
    EXPECT_EQ(Text<VARIANT_BOOL>(VT_BOOL, VARIANT_TRUE, BooleanText::Digit), "1");
    EXPECT_EQ(Text<VARIANT_BOOL>(VT_BOOL, VARIANT_FALSE, BooleanText::Digit), "0");
    EXPECT_EQ(Text<VARIANT_BOOL>(VT_BOOL, VARIANT_TRUE, BooleanText::Word), "true");
    EXPECT_EQ(Text<VARIANT_BOOL>(VT_BOOL, VARIANT_FALSE, BooleanText::Word), "false");
    // Any bit set is true, as a VARIANT_BOOL from elsewhere may be 1 rather than -1.
    EXPECT_EQ(Text<VARIANT_BOOL>(VT_BOOL, 1, BooleanText::Word), "true");
    // The style only touches booleans.
    EXPECT_EQ(Text<int32_t>(VT_I4, 1, BooleanText::Word), "1");

    for (const char* text : {"1", "true"}) {
        VARIANT_BOOL value = VARIANT_FALSE;
        ASSERT_TRUE(ParseNumber(VT_BOOL, text, &value)) << text;
        EXPECT_EQ(value, VARIANT_TRUE) << text;
    }
    for (const char* text : {"0", "false"}) {
        VARIANT_BOOL value = VARIANT_TRUE;
        ASSERT_TRUE(ParseNumber(VT_BOOL, text, &value)) << text;
        EXPECT_EQ(value, VARIANT_FALSE) << text;
    }
}

TEST(XmlFormatterCommonTest, MessageTextsAndTheSubFormat) {
    EXPECT_EQ(TypeText(VT_RECORD), "0x0024");
    EXPECT_EQ(TypeText(VT_ARRAY | VT_I4), "0x2003");

    const std::string forty(40, 'a');
    EXPECT_EQ(Excerpt(forty), forty);
    EXPECT_EQ(Excerpt(forty + "b"), std::string(37, 'a') + "...");

    EXPECT_TRUE(EqualsIgnoringCase("LineBreaks", "lINEbREAKS"));
    EXPECT_FALSE(EqualsIgnoringCase("LineBreaks", "LineBreak"));
    EXPECT_FALSE(EqualsIgnoringCase("[", "{"));  // only letters fold

    EXPECT_EQ(LayoutOf(nullptr), ccXmlWriter::Layout::Plain);
    EXPECT_EQ(LayoutOf(Bstr("").get()), ccXmlWriter::Layout::Plain);
    EXPECT_EQ(LayoutOf(Bstr("linebreaks").get()), ccXmlWriter::Layout::LineBreaks);
    EXPECT_THROW(LayoutOf(Bstr("Indented").get()), ccStdError::BadArgument);
}

TEST(XmlFormatterCommonTest, DocumentIsTheRestOfTheStreamAndOutputReachesIt) {
    // Larger than the first read, so that the whole of it is taken from where the stream stands.
    std::string bytes(200 * 1024 + 7, '\0');
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>('a' + i % 26);

    ComPtr<IStream> stream;
    ASSERT_EQ(MemoryStream::Create(stream.Out()), S_OK);
    {
        StreamOutput output(stream.get());
        output.Expect(bytes.size());
        output.Write(bytes.data(), bytes.size());
    }
    ASSERT_EQ(stream->Seek(5, STREAM_SEEK_SET, nullptr), S_OK);
    const Document rest(stream.get());
    EXPECT_EQ(rest.Text(), std::string_view(bytes).substr(5));

    // At its end a stream gives an empty document, not a failure.
    const Document none(stream.get());
    EXPECT_TRUE(none.Text().empty());
}

TEST(XmlFormatterCommonTest, OneLevelOfReferenceIsTakenAwayAndDeeperOnesAreRefused) {
    int16_t number = -7;
    VARIANT given{};
    given.vt = VT_I2 | VT_BYREF;
    given.byref = &number;
    VARIANT value{};
    EXPECT_EQ(Dereferenced(given, value), "");
    EXPECT_EQ(value.vt, VT_I2);
    EXPECT_EQ(value.iVal, -7);

    VARIANT inner{};
    inner.vt = VT_I4 | VT_BYREF;
    inner.byref = &number;
    given.vt = VT_VARIANT | VT_BYREF;
    given.pvarVal = &inner;
    EXPECT_EQ(Dereferenced(given, value), "a value refers to a reference");

    given.vt = VT_I4 | VT_BYREF;
    given.byref = nullptr;
    EXPECT_EQ(Dereferenced(given, value), "a value refers to nothing");

    given.vt = VT_RECORD | VT_BYREF;
    given.byref = &number;
    EXPECT_EQ(Dereferenced(given, value), "a reference of type 0x4024 cannot be stored");

    // A plain value is itself.
    given = VARIANT{};
    given.vt = VT_R8;
    given.dblVal = 2.5;
    EXPECT_EQ(Dereferenced(given, value), "");
    EXPECT_EQ(value.vt, VT_R8);
    EXPECT_EQ(value.dblVal, 2.5);
}

// The failure the reader raises for a document.
template <class Fault>
FormatterErrors::Failure ReaderFailure(std::string_view document) {
    try {
        ccXmlReader xml(document);
        while (xml.Next() != ccXmlReader::Token::End) {}
    } catch (const ccXmlReader::Errors& error) {
        EXPECT_EQ(error.Code(), Fault::kCode);
        try {
            ThrowReaderFault(error);
        } catch (const FormatterErrors::Failure& failure) {
            return failure;
        }
    }
    ADD_FAILURE() << "no reader failure for " << document;
    return FormatterErrors::Failure("", 0);
}

TEST(XmlFormatterCommonTest, ReaderFailuresBecomeTheFormattersMessagesWithTheirPlace) {
    const auto mismatch = ReaderFailure<ccXmlReader::StartEndMismatch>("<a></b>");
    EXPECT_EQ(mismatch.MessageId(), ids_LuxFormatter_StartEndMismatch_2);
    ASSERT_EQ(mismatch.Inserts().size(), 2u);
    // The place follows the insert that names the element found.
    EXPECT_NE(mismatch.Inserts()[1].find(" ("), std::string::npos);
    EXPECT_EQ(mismatch.Inserts()[1].back(), ')');
    EXPECT_EQ(mismatch.Inserts()[0].find(" ("), std::string::npos);

    const auto empty = ReaderFailure<ccXmlReader::NoStartTag>("");
    EXPECT_EQ(empty.MessageId(), ids_LuxFormatter_NoStartTag);
}

}  // namespace
