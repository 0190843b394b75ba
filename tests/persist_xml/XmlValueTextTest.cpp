// ccXmlValueText: every text form reads back to the same bits, and what is not a value of
// its type is refused at the boundaries.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <string>

#include "persist/ccXmlValueText.h"

namespace {

using Text = ccXmlValueText;

template <class Value>
std::string Format(Value value) {
    char buffer[Text::kMaxText];
    return std::string(buffer, Text::FormatReal(buffer, value));
}

std::string Currency(int64_t units) {
    char buffer[Text::kMaxText];
    return std::string(buffer, Text::FormatCurrency(buffer, units));
}

std::string Date(double date) {
    char buffer[Text::kMaxText];
    return std::string(buffer, Text::FormatDate(buffer, date));
}

TEST(XmlValueTextTest, RealsAreShortestAndReadBackBitExact) {
    EXPECT_EQ(Format(0.1), "0.1");
    EXPECT_EQ(Format(-0.0), "-0");
    EXPECT_EQ(Format(1e300), "1e+300");
    EXPECT_EQ(Format(0.1f), "0.1");
    EXPECT_EQ(Format(HUGE_VAL), "1.#INF");
    EXPECT_EQ(Format(-HUGE_VAL), "-1.#INF");
    EXPECT_EQ(Format(std::numeric_limits<double>::quiet_NaN()), "1.#QNAN");
    EXPECT_EQ(Format(-std::numeric_limits<float>::quiet_NaN()), "-1.#QNAN");
    std::mt19937_64 random(11);
    for (int i = 0; i < 20000; ++i) {
        const double d = std::bit_cast<double>(random());
        const float f = std::bit_cast<float>(static_cast<uint32_t>(random()));
        if (!std::isnan(d)) {
            const auto back = Text::ParseDouble(Format(d));
            ASSERT_TRUE(back) << Format(d);
            ASSERT_EQ(std::bit_cast<uint64_t>(*back), std::bit_cast<uint64_t>(d)) << Format(d);
        }
        if (!std::isnan(f)) {
            // Read straight as single precision: no double rounding on the way.
            const auto back = Text::ParseFloat(Format(f));
            ASSERT_TRUE(back) << Format(f);
            ASSERT_EQ(std::bit_cast<uint32_t>(*back), std::bit_cast<uint32_t>(f)) << Format(f);
        }
    }
    for (const char* text : {"INF", "+1.#INF", "1.#INF"}) EXPECT_EQ(Text::ParseDouble(text), HUGE_VAL) << text;
    for (const char* text : {"-INF", "-1.#INF"}) EXPECT_EQ(Text::ParseDouble(text), -HUGE_VAL) << text;
    for (const char* text : {"NaN", "1.#QNAN", "-1.#IND", "1.#IND"})
        EXPECT_TRUE(std::isnan(*Text::ParseDouble(text))) << text;
    EXPECT_TRUE(std::signbit(*Text::ParseDouble("-1.#QNAN")));
    EXPECT_EQ(Text::ParseDouble(" \r\n+2.5e1\t"), 25.0);
    for (const char* text : {"", " ", "1.5x", "++1", "-+1", "1e", "0x10", "1,5", "1e999"})
        EXPECT_FALSE(Text::ParseDouble(text)) << text;
}

TEST(XmlValueTextTest, IntegersKeepTheirRange) {
    EXPECT_EQ(Text::ParseInteger("-128", -128, 127), -128);
    EXPECT_FALSE(Text::ParseInteger("-129", -128, 127));
    EXPECT_FALSE(Text::ParseInteger("128", -128, 127));
    EXPECT_EQ(Text::ParseInteger(" +127 ", -128, 127), 127);
    EXPECT_EQ(Text::ParseInteger("-9223372036854775808", INT64_MIN, INT64_MAX), INT64_MIN);
    EXPECT_FALSE(Text::ParseInteger("9223372036854775808", INT64_MIN, INT64_MAX));
    EXPECT_EQ(Text::ParseUnsigned("18446744073709551615", UINT64_MAX), UINT64_MAX);
    EXPECT_FALSE(Text::ParseUnsigned("18446744073709551616", UINT64_MAX));
    EXPECT_FALSE(Text::ParseUnsigned("-0", UINT64_MAX));
    EXPECT_FALSE(Text::ParseUnsigned("65536", 65535));
    for (const char* text : {"", "1.0", "1e3", "0x1", "1 2", "--1", "+-1"})
        EXPECT_FALSE(Text::ParseInteger(text, INT64_MIN, INT64_MAX)) << text;
    char buffer[Text::kMaxText];
    EXPECT_EQ(std::string(buffer, Text::FormatInteger(buffer, INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(std::string(buffer, Text::FormatUnsigned(buffer, UINT64_MAX)), "18446744073709551615");
}

TEST(XmlValueTextTest, CurrencyIsExactToTheLastUnit) {
    EXPECT_EQ(Currency(0), "0");
    EXPECT_EQ(Currency(125000), "12.5");
    EXPECT_EQ(Currency(-1), "-0.0001");
    EXPECT_EQ(Currency(INT64_MAX), "922337203685477.5807");
    EXPECT_EQ(Currency(INT64_MIN), "-922337203685477.5808");
    for (int64_t units :
         {int64_t(0), int64_t(1), int64_t(-10), int64_t(99990000), INT64_MAX, INT64_MIN, int64_t(-123456789)})
        EXPECT_EQ(Text::ParseCurrency(Currency(units)), units) << units;
    EXPECT_EQ(Text::ParseCurrency("+3."), std::nullopt);
    EXPECT_EQ(Text::ParseCurrency(".5"), 5000);
    EXPECT_EQ(Text::ParseCurrency("-.0001"), -1);
    for (const char* text : {"", "-", ".", "1.23456", "922337203685477.5808", "-922337203685477.5809", "1e3", "1,5",
                             "99999999999999999999"})
        EXPECT_FALSE(Text::ParseCurrency(text)) << text;
}

TEST(XmlValueTextTest, DatesAreIsoWhenThatReadsBackElseDayCounts) {
    EXPECT_EQ(Date(0.0), "1899-12-30T00:00:00");
    EXPECT_EQ(Date(36526.5), "2000-01-01T12:00:00");
    EXPECT_EQ(Date(-1.25), "1899-12-29T06:00:00");  // the fraction is the time whatever the sign
    EXPECT_EQ(Date(-657434.0), "0100-01-01T00:00:00");
    EXPECT_EQ(Date(2958465.0 + 86399.0 / 86400.0), "9999-12-31T23:59:59");
    EXPECT_EQ(Date(36526.0 + 1.5 / 86400.0), "2000-01-01T00:00:01.500");
    // Outside the calendar, or a time the text cannot say exactly: the day count.
    EXPECT_EQ(Date(-0.25), "-0.25");
    EXPECT_EQ(Date(2958466.0), "2958466");
    EXPECT_EQ(Date(HUGE_VAL), "1.#INF");
    std::mt19937_64 random(5);
    std::uniform_real_distribution<double> days(-700000.0, 3000000.0);
    for (int i = 0; i < 20000; ++i) {
        const double date = i % 2 ? days(random) : std::bit_cast<double>(random());
        if (std::isnan(date)) continue;
        const auto back = Text::ParseDate(Date(date));
        ASSERT_TRUE(back) << Date(date);
        ASSERT_EQ(std::bit_cast<uint64_t>(*back), std::bit_cast<uint64_t>(date)) << Date(date);
    }
    EXPECT_EQ(Text::ParseDate("2000-01-01"), 36526.0);
    EXPECT_EQ(Text::ParseDate("2000-01-01 06:00"), 36526.25);
    for (const char* text :
         {"2000-13-01", "2000-02-30", "0099-12-31", "2000-01-01T24:00:00", "2000-01-01T12:60", "2000-01-01T12:00:00.",
          "2000-01-01T12:00:00.1234567890", "2000-01-01T12:00:00Z", "yesterday"})
        EXPECT_FALSE(Text::ParseDate(text)) << text;
    EXPECT_EQ(Text::ParseDate("2000-02-29"), 36585.0);
}

TEST(XmlValueTextTest, BooleansTakeTheCommonSpellings) {
    for (const char* text : {"1", "-1", "true", "True", " TRUE "}) EXPECT_EQ(Text::ParseBoolean(text), true) << text;
    for (const char* text : {"0", "false", "FALSE"}) EXPECT_EQ(Text::ParseBoolean(text), false) << text;
    for (const char* text : {"", "2", "yes", "t"}) EXPECT_FALSE(Text::ParseBoolean(text)) << text;
}

}  // namespace
