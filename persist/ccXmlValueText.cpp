#include "persist/ccXmlValueText.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/CivilDate.h"

namespace {

bool IsSpace(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char* Copy(char* out, std::string_view text) noexcept {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
        const char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
        if (x != y) return false;
    }
    return true;
}

// Drops a leading '+', which std::from_chars does not take; false when no number can follow
// (nothing, or a second sign).
bool WithoutPlus(std::string_view& text) noexcept {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && (text.front() == '+' || text.front() == '-')) return false;
    }
    return !text.empty();
}

// The spellings of infinity and NaN; nullopt when `text` is none of them.
std::optional<double> SpecialReal(std::string_view text) noexcept {
    if (text == "1.#INF" || text == "+1.#INF" || text == "INF" || text == "+INF") return HUGE_VAL;
    if (text == "-1.#INF" || text == "-INF") return -HUGE_VAL;
    if (text == "1.#QNAN" || text == "1.#IND" || text == "NaN") return std::numeric_limits<double>::quiet_NaN();
    if (text == "-1.#QNAN" || text == "-1.#IND") return -std::numeric_limits<double>::quiet_NaN();
    return std::nullopt;
}

template <class Real>
char* FormatRealOf(char* out, Real value) noexcept {
    if (std::isnan(value)) return Copy(out, std::signbit(value) ? "-1.#QNAN" : "1.#QNAN");
    if (std::isinf(value)) return Copy(out, value < 0 ? "-1.#INF" : "1.#INF");
    return std::to_chars(out, out + ccXmlValueText::kMaxText, value).ptr;
}

template <class Real>
std::optional<Real> ParseRealOf(std::string_view text) noexcept {
    text = ccXmlValueText::Trim(text);
    if (auto special = SpecialReal(text)) return static_cast<Real>(*special);
    if (!WithoutPlus(text)) return std::nullopt;
    Real value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

namespace civil = tessaly::civil;
using civil::kDateOrigin;

constexpr int64_t kPowersOfTen[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

using civil::ReadDigits;

std::optional<double> ParseIsoDate(std::string_view text) noexcept {
    size_t pos = 0;
    unsigned year, month, day;
    if (!ReadDigits(text, pos, 4, year) || pos >= text.size() || text[pos++] != '-' ||
        !ReadDigits(text, pos, 2, month) || pos >= text.size() || text[pos++] != '-' ||
        !ReadDigits(text, pos, 2, day))
        return std::nullopt;
    if (year < 100 || month < 1 || month > 12 || day < 1 || day > civil::DaysInMonth(year, month)) return std::nullopt;
    int64_t ticks = 0;  // of 10^-decimals seconds
    size_t decimals = 0;
    if (pos < text.size()) {
        if (text[pos] != 'T' && text[pos] != ' ') return std::nullopt;
        ++pos;
        unsigned hours, minutes, seconds = 0;
        if (!ReadDigits(text, pos, 2, hours) || pos >= text.size() || text[pos++] != ':' ||
            !ReadDigits(text, pos, 2, minutes))
            return std::nullopt;
        if (pos < text.size()) {
            if (text[pos++] != ':' || !ReadDigits(text, pos, 2, seconds)) return std::nullopt;
        }
        if (hours > 23 || minutes > 59 || seconds > 59) return std::nullopt;
        ticks = (int64_t(hours) * 60 + minutes) * 60 + seconds;
        if (pos < text.size()) {
            if (text[pos++] != '.') return std::nullopt;
            while (pos < text.size()) {
                const char c = text[pos++];
                if (c < '0' || c > '9' || decimals == 9) return std::nullopt;
                ticks = ticks * 10 + (c - '0');
                ++decimals;
            }
            if (decimals == 0) return std::nullopt;
        }
    }
    const auto days = static_cast<double>(civil::DaysFromCivil(year, month, day) - kDateOrigin);
    // Both integers are exact in a double, so the fraction is rounded once.
    const double fraction = static_cast<double>(ticks) / static_cast<double>(86400 * kPowersOfTen[decimals]);
    return days < 0 ? days - fraction : days + fraction;
}

char* FormatIsoDate(char* out, int64_t days, int64_t ticks, size_t decimals) noexcept {
    int64_t year;
    unsigned month, day;
    civil::CivilFromDays(days + kDateOrigin, year, month, day);
    const int64_t scale = kPowersOfTen[decimals];
    const int64_t seconds = ticks / scale;
    const auto put = [&out](int64_t value, int width) {
        for (int i = width - 1; i >= 0; --i) {
            out[i] = static_cast<char>('0' + value % 10);
            value /= 10;
        }
        out += width;
    };
    put(year, 4);
    *out++ = '-';
    put(month, 2);
    *out++ = '-';
    put(day, 2);
    *out++ = 'T';
    put(seconds / 3600, 2);
    *out++ = ':';
    put(seconds / 60 % 60, 2);
    *out++ = ':';
    put(seconds % 60, 2);
    if (decimals > 0) {
        *out++ = '.';
        put(ticks % scale, static_cast<int>(decimals));
    }
    return out;
}

}  // namespace

char* ccXmlValueText::FormatInteger(char* out, int64_t value) noexcept {
    return std::to_chars(out, out + kMaxText, value).ptr;
}

char* ccXmlValueText::FormatUnsigned(char* out, uint64_t value) noexcept {
    return std::to_chars(out, out + kMaxText, value).ptr;
}

char* ccXmlValueText::FormatReal(char* out, double value) noexcept { return FormatRealOf(out, value); }

char* ccXmlValueText::FormatReal(char* out, float value) noexcept { return FormatRealOf(out, value); }

char* ccXmlValueText::FormatCurrency(char* out, int64_t units) noexcept {
    // The magnitude as unsigned, so that the most negative amount has one too.
    const uint64_t magnitude = units < 0 ? uint64_t(0) - static_cast<uint64_t>(units) : static_cast<uint64_t>(units);
    if (units < 0) *out++ = '-';
    out = std::to_chars(out, out + kMaxText - 1, magnitude / 10000).ptr;
    uint64_t fraction = magnitude % 10000;
    if (fraction == 0) return out;
    *out++ = '.';
    int places = 4;
    while (fraction % 10 == 0) {
        fraction /= 10;
        --places;
    }
    for (int i = places - 1; i >= 0; --i) {
        out[i] = static_cast<char>('0' + fraction % 10);
        fraction /= 10;
    }
    return out + places;
}

char* ccXmlValueText::FormatDate(char* out, double date) noexcept {
    if (std::isfinite(date) && date >= static_cast<double>(civil::kMinDateDay) && date < static_cast<double>(civil::kMaxDateDay + 1)) {
        const double whole = std::trunc(date);
        const double fraction = std::fabs(date - whole);
        const auto days = static_cast<int64_t>(whole);
        for (size_t decimals : {0u, 3u, 6u, 9u}) {
            const int64_t perDay = 86400 * kPowersOfTen[decimals];
            const auto nearest = static_cast<int64_t>(std::llround(fraction * static_cast<double>(perDay)));
            // The product is rounded too: the neighbours may be the text that reads back.
            for (int64_t ticks : {nearest, nearest - 1, nearest + 1}) {
                if (ticks < 0 || ticks >= perDay) continue;
                char* end = FormatIsoDate(out, days, ticks, decimals);
                const auto back = ParseIsoDate(std::string_view(out, static_cast<size_t>(end - out)));
                if (back && std::bit_cast<uint64_t>(*back) == std::bit_cast<uint64_t>(date)) return end;
            }
        }
    }
    return FormatReal(out, date);
}

std::optional<int64_t> ccXmlValueText::ParseInteger(std::string_view text, int64_t low, int64_t high) noexcept {
    text = Trim(text);
    if (!WithoutPlus(text)) return std::nullopt;
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < low || value > high) return std::nullopt;
    return value;
}

std::optional<uint64_t> ccXmlValueText::ParseUnsigned(std::string_view text, uint64_t high) noexcept {
    text = Trim(text);
    if (!WithoutPlus(text) || text.front() == '-') return std::nullopt;
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > high) return std::nullopt;
    return value;
}

std::optional<double> ccXmlValueText::ParseDouble(std::string_view text) noexcept { return ParseRealOf<double>(text); }

std::optional<float> ccXmlValueText::ParseFloat(std::string_view text) noexcept { return ParseRealOf<float>(text); }

std::optional<int64_t> ccXmlValueText::ParseCurrency(std::string_view text) noexcept {
    text = Trim(text);
    size_t pos = 0;
    bool negative = false;
    if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) negative = text[pos++] == '-';
    uint64_t magnitude = 0;  // in units of 1/10,000
    constexpr uint64_t kLimit = uint64_t(1) << 63;  // the magnitude of the most negative amount
    size_t digits = 0;
    while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
        const auto digit = static_cast<uint64_t>(text[pos++] - '0');
        if (magnitude > (kLimit / 10000 - digit) / 10) return std::nullopt;
        magnitude = magnitude * 10 + digit;
        ++digits;
    }
    magnitude *= 10000;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        uint64_t scale = 1000;
        size_t decimals = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
            if (decimals == 4) return std::nullopt;
            magnitude += static_cast<uint64_t>(text[pos++] - '0') * scale;
            scale /= 10;
            ++decimals;
            ++digits;
        }
        if (decimals == 0) return std::nullopt;
    }
    if (digits == 0 || pos != text.size()) return std::nullopt;
    if (magnitude > (negative ? kLimit : kLimit - 1)) return std::nullopt;
    return negative ? static_cast<int64_t>(uint64_t(0) - magnitude) : static_cast<int64_t>(magnitude);
}

std::optional<double> ccXmlValueText::ParseDate(std::string_view text) noexcept {
    text = Trim(text);
    if (auto date = ParseIsoDate(text)) return date;
    return ParseDouble(text);
}

std::optional<bool> ccXmlValueText::ParseBoolean(std::string_view text) noexcept {
    text = Trim(text);
    if (text == "1" || text == "-1" || EqualsIgnoringCase(text, "true")) return true;
    if (text == "0" || EqualsIgnoringCase(text, "false")) return false;
    return std::nullopt;
}

std::string_view ccXmlValueText::Trim(std::string_view text) noexcept {
    while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
    while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
    return text;
}
