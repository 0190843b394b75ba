// GUID text: the forms the parser accepts and refuses, the one form FormatGuid writes, and
// hashing.
#include <gtest/gtest.h>

#include <string>
#include <unordered_set>

#include "platform/Guid.h"

namespace tessaly {
namespace {

constexpr GUID kSample{0x0123ABCD, 0x4567, 0x89EF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF}};
static_assert(TryParseGuid("{0123ABCD-4567-89EF-0123-456789ABCDEF}") == kSample, "parses at compile time");
static_assert(MakeGuid("0123abcd-4567-89ef-0123-456789abcdef") == kSample);

TEST(GuidTest, ParsesWithOrWithoutBracesInAnyCase) {
    for (const char* text : {"{0123ABCD-4567-89EF-0123-456789ABCDEF}", "0123ABCD-4567-89EF-0123-456789ABCDEF",
                             "{0123abcd-4567-89ef-0123-456789abcdef}", "0123aBcD-4567-89eF-0123-456789AbCdEf"}) {
        const auto parsed = TryParseGuid(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(*parsed, kSample) << text;
    }
    // Each field is read most significant digit first.
    const auto fields = TryParseGuid("00000001-0002-0003-0405-060708090a0b");
    ASSERT_TRUE(fields);
    EXPECT_EQ(fields->Data1, 1u);
    EXPECT_EQ(fields->Data2, 2u);
    EXPECT_EQ(fields->Data3, 3u);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(fields->Data4[i], i + 4);
}

TEST(GuidTest, RefusesAnythingElse) {
    const std::string good = "0123ABCD-4567-89EF-0123-456789ABCDEF";
    const std::string refused[] = {
        "", "{}", good.substr(1), good + "0", "{" + good, good + "}", "(" + good + ")",
        "{" + good.substr(0, 35) + "}0", " " + good.substr(1),
        "0123ABCG-4567-89EF-0123-456789ABCDEF",
        // the characters next to '9', 'A' and 'a'
        "0123ABC:-4567-89EF-0123-456789ABCDEF", "0123ABC@-4567-89EF-0123-456789ABCDEF",
        "0123ABC`-4567-89EF-0123-456789ABCDEF",
        "0123ABCD4-567-89EF-0123-456789ABCDEF",   // dash moved right
        "0123ABC-D4567-89EF-0123-456789ABCDEF",   // dash moved left
        "0123ABCD-4567-89EF0-123-456789ABCDEF",
        "0123ABCD-4567-89EF-0123456789AB-CDEF",
        "0123ABCD_4567_89EF_0123_456789ABCDEF",
        "0123ABCD04567089EF00123-456789ABCDEF",  // digits where dashes belong
        "-0123ABCD-4567-89EF-0123-456789ABCDE",
        "0x123ABC-4567-89EF-0123-456789ABCDEF",
        "0123ABCD-4567-89EF-0123-456789ABCD\xC3\xA9",
    };
    for (const std::string& text : refused) EXPECT_FALSE(TryParseGuid(text)) << "'" << text << "'";
    EXPECT_FALSE(TryParseGuid(std::string_view("0123ABCD-4567-89EF-0123-456789ABCDE\0", 36)));
}

TEST(GuidTest, FormatsUpperCaseBracedAndRoundTrips) {
    EXPECT_EQ(FormatGuid(kSample), "{0123ABCD-4567-89EF-0123-456789ABCDEF}");
    EXPECT_EQ(FormatGuid(GUID_NULL), "{00000000-0000-0000-0000-000000000000}");
    const GUID small{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
    EXPECT_EQ(FormatGuid(small), "{00000001-0002-0003-0405-060708090A0B}");
    const GUID full{0xFFFFFFFF, 0xFFFF, 0xFFFF, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}};
    EXPECT_EQ(FormatGuid(full), "{FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF}");
    for (const GUID& guid : {kSample, GUID_NULL, small, full}) {
        const auto parsed = TryParseGuid(FormatGuid(guid));
        ASSERT_TRUE(parsed);
        EXPECT_EQ(*parsed, guid);
    }
}

TEST(GuidTest, EqualityAndHashSeeEveryBit) {
    // Every GUID that differs from the sample in one bit: unequal, and hashed apart.
    std::unordered_set<size_t> hashes{GuidHash{}(kSample)};
    int variants = 0;
    for (int byte = 0; byte < 16; ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            GUID changed = kSample;
            unsigned char* raw = reinterpret_cast<unsigned char*>(&changed);
            raw[byte] = static_cast<unsigned char>(raw[byte] ^ (1u << bit));
            EXPECT_FALSE(changed == kSample) << byte << "/" << bit;
            hashes.insert(GuidHash{}(changed));
            ++variants;
        }
    }
    EXPECT_EQ(hashes.size(), size_t(variants) + 1);
    GUID copy = kSample;
    EXPECT_TRUE(copy == kSample);
    EXPECT_EQ(GuidHash{}(copy), GuidHash{}(kSample));
}

}  // namespace
}  // namespace tessaly
