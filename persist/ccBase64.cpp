#include "persist/ccBase64.h"

#include <cstring>

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kInvalid = 0xFF;
constexpr uint8_t kPad = 0xFE;
// Set in a decoded group when any of its four characters is not in the alphabet.
constexpr uint32_t kGroupInvalid = 0xFF000000u;

struct Tables {
    // One table per position in a group, the 6-bit value already shifted into place, so a
    // group decodes with four loads and three ORs; invalid characters set the top byte.
    uint32_t group[4][256];
    // The 6-bit value of a character, kPad for '=', kInvalid for anything else.
    uint8_t value[256];
    // Two output characters for every 12-bit input: a group of three bytes encodes with
    // two lookups.
    char pairs[4096 * 2];
};

constexpr Tables MakeTables() {
    Tables t{};
    for (int c = 0; c < 256; ++c) {
        t.value[c] = kInvalid;
        for (int k = 0; k < 4; ++k) t.group[k][c] = kGroupInvalid;
    }
    for (uint32_t v = 0; v < 64; ++v) {
        const auto c = static_cast<unsigned char>(kAlphabet[v]);
        t.value[c] = static_cast<uint8_t>(v);
        t.group[0][c] = v << 18;
        t.group[1][c] = v << 12;
        t.group[2][c] = v << 6;
        t.group[3][c] = v;
    }
    t.value[static_cast<unsigned char>('=')] = kPad;
    for (int v = 0; v < 4096; ++v) {
        t.pairs[2 * v] = kAlphabet[v >> 6];
        t.pairs[2 * v + 1] = kAlphabet[v & 63];
    }
    return t;
}

constexpr Tables kTables = MakeTables();

constexpr bool IsSpace(unsigned char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Whether any of the eight bytes is below 0x21, which every white space character is.
inline bool MayHoldSpace(uint64_t word) noexcept {
    constexpr uint64_t kOnes = 0x0101010101010101ull;
    constexpr uint64_t kHighs = 0x8080808080808080ull;
    return ((word - kOnes * 0x21) & ~word & kHighs) != 0;
}

size_t CountSpaces(const unsigned char* s, size_t n) noexcept {
    size_t spaces = 0;
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        uint64_t word;
        std::memcpy(&word, s + i, 8);
        if (!MayHoldSpace(word)) continue;
        for (size_t j = 0; j < 8; ++j) spaces += IsSpace(s[i + j]);
    }
    for (; i < n; ++i) spaces += IsSpace(s[i]);
    return spaces;
}

}  // namespace

void ccBase64::Encode(const uint8_t* data, size_t size, char* out) noexcept {
    const char* pairs = kTables.pairs;
    size_t i = 0;
    for (; i + 3 <= size; i += 3, out += 4) {
        const uint32_t v = (uint32_t(data[i]) << 16) | (uint32_t(data[i + 1]) << 8) | data[i + 2];
        std::memcpy(out, pairs + 2 * (v >> 12), 2);
        std::memcpy(out + 2, pairs + 2 * (v & 0xFFF), 2);
    }
    const size_t rest = size - i;
    if (rest == 0) return;
    const uint32_t v = (uint32_t(data[i]) << 16) | (rest == 2 ? uint32_t(data[i + 1]) << 8 : 0u);
    out[0] = kAlphabet[v >> 18];
    out[1] = kAlphabet[(v >> 12) & 63];
    out[2] = rest == 2 ? kAlphabet[(v >> 6) & 63] : '=';
    out[3] = '=';
}

std::string ccBase64::Encode(const uint8_t* data, size_t size) {
    std::string text(EncodedSize(size), '\0');
    Encode(data, size, text.data());
    return text;
}

ccBase64::SizeResult ccBase64::DecodedSize(std::string_view text) noexcept {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t significant = text.size() - CountSpaces(s, text.size());
    if (significant % 4 != 0) return {Status::Short, 0};
    size_t padding = 0;
    for (size_t i = text.size(); i > 0 && padding < 2;) {
        const unsigned char c = s[--i];
        if (IsSpace(c)) continue;
        if (c != '=') break;
        ++padding;
    }
    const size_t bytes = significant / 4 * 3;
    return {Status::Ok, bytes >= padding ? bytes - padding : 0};
}

ccBase64::DecodeResult ccBase64::Decode(std::string_view text, uint8_t* out, size_t capacity) noexcept {
    const auto* s = reinterpret_cast<const unsigned char*>(text.data());
    const size_t n = text.size();
    const auto& g = kTables.group;
    const uint8_t* value = kTables.value;
    size_t i = 0;
    size_t o = 0;
    for (;;) {
        // Whole groups of alphabet characters: the common case, with no branch per character.
        while (n - i >= 8 && capacity - o >= 6) {
            const uint32_t a = g[0][s[i]] | g[1][s[i + 1]] | g[2][s[i + 2]] | g[3][s[i + 3]];
            const uint32_t b = g[0][s[i + 4]] | g[1][s[i + 5]] | g[2][s[i + 6]] | g[3][s[i + 7]];
            if ((a | b) & kGroupInvalid) break;
            out[o] = static_cast<uint8_t>(a >> 16);
            out[o + 1] = static_cast<uint8_t>(a >> 8);
            out[o + 2] = static_cast<uint8_t>(a);
            out[o + 3] = static_cast<uint8_t>(b >> 16);
            out[o + 4] = static_cast<uint8_t>(b >> 8);
            out[o + 5] = static_cast<uint8_t>(b);
            i += 8;
            o += 6;
        }

        // One group the slow way: white space, padding, the end, or a fault.
        unsigned char c[4];
        size_t at[4];
        int k = 0;
        while (k < 4 && i < n) {
            if (IsSpace(s[i])) {
                ++i;
                continue;
            }
            at[k] = i;
            c[k++] = s[i++];
        }
        if (k == 0) return {Status::Ok, o, n};
        uint8_t v[4];
        for (int j = 0; j < k; ++j) {
            v[j] = value[c[j]];
            if (v[j] == kInvalid) return {Status::BadCharacter, o, at[j]};
        }
        if (k < 4) return {Status::Short, o, n};

        if (v[0] == kPad) return {Status::BadCharacter, o, at[0]};
        if (v[1] == kPad) return {Status::BadCharacter, o, at[1]};
        size_t bytes = 3;
        if (v[2] == kPad) {
            if (v[3] != kPad) return {Status::BadCharacter, o, at[3]};
            if (v[1] & 0x0F) return {Status::BadCharacter, o, at[1]};
            bytes = 1;
        } else if (v[3] == kPad) {
            if (v[2] & 0x03) return {Status::BadCharacter, o, at[2]};
            bytes = 2;
        }
        if (capacity - o < bytes) return {Status::Overflow, o, at[0]};
        const uint32_t bits = (uint32_t(v[0]) << 18) | (uint32_t(v[1]) << 12) |
                              (bytes > 1 ? uint32_t(v[2]) << 6 : 0u) | (bytes > 2 ? uint32_t(v[3]) : 0u);
        out[o++] = static_cast<uint8_t>(bits >> 16);
        if (bytes > 1) out[o++] = static_cast<uint8_t>(bits >> 8);
        if (bytes > 2) out[o++] = static_cast<uint8_t>(bits);
        if (bytes < 3) {
            // Padding ends the data: only white space may follow.
            for (; i < n; ++i)
                if (!IsSpace(s[i])) return {Status::BadCharacter, o, i};
            return {Status::Ok, o, n};
        }
    }
}
