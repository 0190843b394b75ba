// ccBase64: the standard vectors, round trips of every length around the fast path's
// eight-character steps, and each way strict decoding refuses text.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "persist/ccBase64.h"

namespace {

std::vector<uint8_t> Bytes(std::string_view text) { return {text.begin(), text.end()}; }

// Decodes text that must be valid; the size DecodedSize promised must be what Decode wrote.
std::vector<uint8_t> DecodeValid(std::string_view text) {
    const auto size = ccBase64::DecodedSize(text);
    EXPECT_EQ(size.status, ccBase64::Status::Ok) << text;
    std::vector<uint8_t> out(size.bytes);
    const auto result = ccBase64::Decode(text, out.data(), out.size());
    EXPECT_EQ(result.status, ccBase64::Status::Ok) << text;
    EXPECT_EQ(result.written, size.bytes) << text;
    return out;
}

ccBase64::DecodeResult DecodeRaw(std::string_view text, size_t capacity = 64) {
    std::vector<uint8_t> out(capacity);
    return ccBase64::Decode(text, out.data(), out.size());
}

TEST(Base64Test, StandardVectorsEncodeAndDecode) {
    const std::pair<std::string_view, std::string_view> vectors[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (const auto& [plain, encoded] : vectors) {
        const auto bytes = Bytes(plain);
        EXPECT_EQ(ccBase64::Encode(bytes.data(), bytes.size()), encoded);
        EXPECT_EQ(ccBase64::EncodedSize(bytes.size()), encoded.size());
        EXPECT_EQ(DecodeValid(encoded), bytes) << encoded;
    }
    // Every alphabet character, including the two beyond letters and digits.
    const std::vector<uint8_t> high = {0xFB, 0xFF, 0xBF, 0x00, 0x10, 0x83};
    EXPECT_EQ(ccBase64::Encode(high.data(), high.size()), "+/+/ABCD");
    EXPECT_EQ(DecodeValid("+/+/ABCD"), high);
}

TEST(Base64Test, EveryLengthRoundTripsWithAndWithoutWhiteSpace) {
    std::mt19937 random(7);
    for (size_t length = 0; length < 200; ++length) {
        std::vector<uint8_t> bytes(length);
        for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
        const std::string text = ccBase64::Encode(bytes.data(), bytes.size());
        ASSERT_EQ(DecodeValid(text), bytes) << length;
        // Wrapped at 76 characters with CR LF, indented, white space around: as other
        // tools and hand editing leave it.
        std::string wrapped = "\r\n\t ";
        for (size_t i = 0; i < text.size(); ++i) {
            if (i && i % 76 == 0) wrapped += "\r\n  ";
            wrapped += text[i];
        }
        wrapped += " \n";
        ASSERT_EQ(DecodeValid(wrapped), bytes) << length;
    }
}

TEST(Base64Test, LargeBlockRoundTrips) {
    std::vector<uint8_t> bytes(3 * 1024 * 1024 + 1);
    uint32_t state = 1;
    for (auto& byte : bytes) byte = static_cast<uint8_t>((state = state * 1664525u + 1013904223u) >> 24);
    const std::string text = ccBase64::Encode(bytes.data(), bytes.size());
    EXPECT_EQ(text.size(), ccBase64::EncodedSize(bytes.size()));
    EXPECT_EQ(DecodeValid(text), bytes);
}

TEST(Base64Test, StrictDecodingRefusesAndSaysWhere) {
    using S = ccBase64::Status;
    struct Case {
        std::string_view text;
        S status;
        size_t offset;
    };
    const Case cases[] = {
        {"Zm9v!m9v", S::BadCharacter, 4},          // outside the alphabet
        {"Zm9vZm9vZm9v-m9v", S::BadCharacter, 12},  // found after the fast path's steps
        {"Zm9\x80", S::BadCharacter, 3},            // high byte
        {"Zg=a", S::BadCharacter, 3},               // padding, then a character
        {"=Zg=", S::BadCharacter, 0},               // padding first
        {"Z===", S::BadCharacter, 1},               // three padding characters
        {"Zh==", S::BadCharacter, 1},               // unused bits not zero (1 byte)
        {"Zm9=", S::BadCharacter, 2},               // unused bits not zero (2 bytes)
        {"Zg==Zm9v", S::BadCharacter, 4},           // data after the padding
        {"Zg==\r\nZ", S::BadCharacter, 6},
        {"Zm9vZ", S::Short, 5},                     // an incomplete group
        {"Zm9", S::Short, 3},
        {"Zm\n9", S::Short, 4},
    };
    for (const Case& c : cases) {
        const auto result = DecodeRaw(c.text);
        EXPECT_EQ(result.status, c.status) << c.text;
        EXPECT_EQ(result.offset, c.offset) << c.text;
    }
    EXPECT_EQ(ccBase64::DecodedSize("Zm9vZ").status, S::Short);
    EXPECT_EQ(ccBase64::DecodedSize(" Zm 9v Yg = = ").bytes, 4u);
}

TEST(Base64Test, DecodingNeverWritesPastTheCapacity) {
    // "foobar" needs six bytes; four are offered: the fast path must not run over them.
    uint8_t out[8] = {0, 0, 0, 0, 0xAA, 0xAA, 0xAA, 0xAA};
    const auto result = ccBase64::Decode("Zm9vYmFy", out, 4);
    EXPECT_EQ(result.status, ccBase64::Status::Overflow);
    EXPECT_EQ(result.written, 3u);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), 3), "foo");
    EXPECT_EQ(out[4], 0xAA);
    EXPECT_EQ(DecodeRaw("Zg==", 0).status, ccBase64::Status::Overflow);
}

}  // namespace
