// The text forms of the values the XML format stores: integers in decimal, reals in the
// shortest form that reads back to the same bits, currency as a decimal with up to four
// places, dates as ISO 8601 date-times, booleans as 1 and 0. Every Format reads back
// through its Parse to the value it was given; the Parse functions take the surrounding
// white space of hand-edited documents and refuse anything else that is not the whole value.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

class ccXmlValueText {
public:
    // Room that every Format below needs.
    static constexpr size_t kMaxText = 48;

    // Each writes into `out` (kMaxText bytes) and returns the end of the text.
    static char* FormatInteger(char* out, int64_t value) noexcept;
    static char* FormatUnsigned(char* out, uint64_t value) noexcept;
    // The shortest text that reads back to the same value; "1.#INF", "-1.#INF" for the
    // infinities and "1.#QNAN" ("-1.#QNAN" with the sign bit) for NaN.
    static char* FormatReal(char* out, double value) noexcept;
    static char* FormatReal(char* out, float value) noexcept;
    // Currency in units of 1/10,000: "-12.5", "3", "922337203685477.5807".
    static char* FormatCurrency(char* out, int64_t units) noexcept;
    // A date (days since 1899-12-30, the fraction the time of day whatever the sign) as
    // "YYYY-MM-DDTHH:MM:SS" with as many of 0, 3, 6 or 9 decimals of the seconds as it takes
    // to read back to the same bits; a date that no such text gives back exactly (outside
    // the years 100 to 9999, between -1 and 0, or finer than a nanosecond can say) is
    // written as its day count in the real form.
    static char* FormatDate(char* out, double date) noexcept;

    // [+-]digits within [low, high].
    static std::optional<int64_t> ParseInteger(std::string_view text, int64_t low, int64_t high) noexcept;
    // [+]digits up to `high`.
    static std::optional<uint64_t> ParseUnsigned(std::string_view text, uint64_t high) noexcept;
    // A decimal or exponent form, or one of the spellings of infinity and NaN: "1.#INF",
    // "-1.#INF", "INF", "-INF", "1.#QNAN", "-1.#QNAN", "1.#IND", "-1.#IND", "NaN".
    static std::optional<double> ParseDouble(std::string_view text) noexcept;
    // The same, rounded once, straight to single precision.
    static std::optional<float> ParseFloat(std::string_view text) noexcept;
    // [+-]digits[.digits] with at most four decimals, within the 64-bit range.
    static std::optional<int64_t> ParseCurrency(std::string_view text) noexcept;
    // "YYYY-MM-DD" or "YYYY-MM-DDTHH:MM[:SS[.fraction]]" (years 100 to 9999, at most nine
    // decimals), or a day count as ParseDouble reads it.
    static std::optional<double> ParseDate(std::string_view text) noexcept;
    // "1", "0", "-1", "true", "false" (any case).
    static std::optional<bool> ParseBoolean(std::string_view text) noexcept;

    // `text` without leading and trailing XML white space.
    static std::string_view Trim(std::string_view text) noexcept;
};
