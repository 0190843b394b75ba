// The proleptic Gregorian calendar as day counts, for the automation date (VT_DATE: days
// since 1899-12-30, the fraction the time of day) and its text forms. Day numbers count
// from 1970-01-01; every function is exact over the whole range of int64_t years a date
// can reach.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tessaly::civil {

constexpr int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day) noexcept {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

constexpr void CivilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) noexcept {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned mp = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * mp + 2) / 5 + 1;
    month = mp < 10 ? mp + 3 : mp - 9;
    year = static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2);
}

constexpr bool IsLeapYear(int64_t year) noexcept { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// `month` from 1 to 12.
constexpr unsigned DaysInMonth(int64_t year, unsigned month) noexcept {
    constexpr unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Reads exactly `count` decimal digits of a date's text at `pos`, moving past them.
constexpr bool ReadDigits(std::string_view text, size_t& pos, size_t count, unsigned& value) noexcept {
    if (pos > text.size() || text.size() - pos < count) return false;
    value = 0;
    for (size_t i = 0; i < count; ++i) {
        const char c = text[pos + i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + static_cast<unsigned>(c - '0');
    }
    pos += count;
    return true;
}

// Day 0 of the automation date, 1899-12-30, and the first and last days it may name
// (0100-01-01 and 9999-12-31), as automation dates.
constexpr int64_t kDateOrigin = DaysFromCivil(1899, 12, 30);
constexpr int64_t kMinDateDay = DaysFromCivil(100, 1, 1) - kDateOrigin;
constexpr int64_t kMaxDateDay = DaysFromCivil(9999, 12, 31) - kDateOrigin;
static_assert(kDateOrigin == -25569 && kMinDateDay == -657434 && kMaxDateDay == 2958465);

}  // namespace tessaly::civil
