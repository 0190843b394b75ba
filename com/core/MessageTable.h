// The library's message texts, compiled in: one table per language, keyed by message ID.
// The IDs are those of LuxErrConstants (every ids_* message and every HRESULT of the
// enumeration, whose text describes that failure) plus the core's own messages below.
// The current language is process-wide: LuxDictionary reads and sets it, and the method
// guard describes failures in it. A text missing from a language's table is taken from
// English, which is complete.
//
// Texts take inserts %1 to %3 (the _N ending of an ids_* name says how many); "%%" is a
// percent sign.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/HResult.h"

namespace tessaly::core {

// Messages of the core that clients never name, so they are not in the type library.
// Positive values far from every HRESULT and ids_* value.
enum CoreMessageIDs : int32_t {
    ids_Core_InvalidArg_1 = 0x7F000001,          // argument name
    ids_Core_ArgOutOfRange_1 = 0x7F000002,       // argument name
    ids_Core_ArgNotPositive_1 = 0x7F000003,      // argument name
    ids_Core_UnknownMessageID_1 = 0x7F000004,    // message ID, in hex
    ids_Core_NoLanguageTable_1 = 0x7F000005,     // language ID, in hex
    ids_Core_PathNotFound_1 = 0x7F000006,        // path
    ids_Core_UnknownResult_1 = 0x7F000007,       // HRESULT, in hex
    ids_Core_UnknownException = 0x7F000008,
    ids_Core_BadState_1 = 0x7F000009,            // details
    ids_Core_NoSuchProperty_2 = 0x7F00000A,      // object, property name
    ids_Core_NotText_1 = 0x7F00000B,             // argument name
};

struct MessageText {
    int32_t id;
    const char* text;
};

// Everything that depends on the language: its texts and the fonts that display them.
struct LanguageTable {
    int32_t language;             // Windows language ID: 0x0409 for English (United States)
    const char* abbreviation;     // ISO 639-2, three letters: "eng"
    const char* fonts[4];         // by LuxFontUsageConstants
    int32_t charset;              // the fonts' character set (0 = ANSI)
    std::span<const MessageText> texts;
};

class MessageTable {
public:
    static constexpr int32_t kEnglish = 0x0409;

    // The table for a language ID: its own, else the one of the same primary language
    // (0x0809 English (United Kingdom) uses the English table); nullptr when none.
    static const LanguageTable* Language(int32_t language) noexcept;
    // Every language that has a table.
    static std::span<const LanguageTable* const> Languages() noexcept;

    // The process-wide current language, English at start.
    static int32_t CurrentLanguage() noexcept;
    // Sets it; false (and nothing changes) for a language without a table.
    static bool SetCurrentLanguage(int32_t language) noexcept;

    // The text of a message in a language, English when that language lacks it; nullptr
    // when no table has it.
    static const char* Find(int32_t id, int32_t language) noexcept;
    static const char* Find(int32_t id) noexcept { return Find(id, CurrentLanguage()); }

    // Replaces %1 to %9 by the inserts (a missing one by nothing) and "%%" by "%".
    static std::string Format(std::string_view pattern, std::span<const std::string> inserts);
    // The formatted text of a message in the current language; "" (and *found = false)
    // when no table has the message.
    static std::string Text(int32_t id, std::span<const std::string> inserts = {}, bool* found = nullptr);
    // The description of an HRESULT: its message text, or "Unknown failure (0x80041234)."
    static std::string ResultText(HRESULT result);
    // "0x8004C180": how IDs and codes appear in messages.
    static std::string Hex(int32_t value);
};

}  // namespace tessaly::core
