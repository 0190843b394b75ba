// 128-bit identifiers of interfaces, classes and type libraries.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];

    friend constexpr bool operator==(const GUID& a, const GUID& b) {
        if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
        for (int i = 0; i < 8; ++i)
            if (a.Data4[i] != b.Data4[i]) return false;
        return true;
    }
};

using IID = GUID;
using CLSID = GUID;
using REFIID = const IID&;
using REFCLSID = const CLSID&;
using REFGUID = const GUID&;

constexpr GUID GUID_NULL{0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

namespace tessaly {

namespace detail {
constexpr int HexDigit(char c) {
    return c >= '0' && c <= '9'   ? c - '0'
           : c >= 'a' && c <= 'f' ? c - 'a' + 10
           : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                  : -1;
}
}  // namespace detail

// Parses "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", with or without braces, any case.
// Returns nullopt for anything else.
constexpr std::optional<GUID> TryParseGuid(std::string_view text) {
    if (text.size() == 38) {
        if (text.front() != '{' || text.back() != '}') return std::nullopt;
        text = text.substr(1, 36);
    }
    if (text.size() != 36) return std::nullopt;
    uint8_t bytes[16] = {};
    size_t pos = 0;
    for (int b = 0; b < 16; ++b) {
        if (pos == 8 || pos == 13 || pos == 18 || pos == 23) {
            if (text[pos] != '-') return std::nullopt;
            ++pos;
        }
        const int hi = detail::HexDigit(text[pos]);
        const int lo = detail::HexDigit(text[pos + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        bytes[b] = static_cast<uint8_t>(hi * 16 + lo);
        pos += 2;
    }
    GUID g{};
    g.Data1 = (uint32_t(bytes[0]) << 24) | (uint32_t(bytes[1]) << 16) | (uint32_t(bytes[2]) << 8) | bytes[3];
    g.Data2 = static_cast<uint16_t>((bytes[4] << 8) | bytes[5]);
    g.Data3 = static_cast<uint16_t>((bytes[6] << 8) | bytes[7]);
    for (int i = 0; i < 8; ++i) g.Data4[i] = bytes[8 + i];
    return g;
}

// Compile-time GUID from a literal; a malformed literal fails to compile.
consteval GUID MakeGuid(std::string_view text) {
    auto parsed = TryParseGuid(text);
    if (!parsed) throw "malformed GUID literal";
    return *parsed;
}

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper case.
std::string FormatGuid(const GUID& guid);

struct GuidHash {
    size_t operator()(const GUID& g) const noexcept;
};

}  // namespace tessaly
