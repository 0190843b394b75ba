// The table by which the method guard turns a library exception into an HRESULT and a
// description. Each row maps one exception code, for one module key, to the HRESULT a
// client sees, the text flags and a message ID. Subsystems add their rows in their own
// files, at load time:
//
//     namespace {
//     const tessaly::core::ExceptionRow kArchiveRows[] = {
//         {"", ccArchive::Eof::kCode, e_Lux_FileRead, tessaly::core::kTextMessage, ids_Lux_ReadInvalidObject_1},
//     };
//     const tessaly::core::ExceptionTableRegistrar registrar(kArchiveRows);
//     }
//
// A lookup tries the calling module's key first, then the default key (""); the first
// row registered for a key and code stands. A code in no row maps to E_FAIL with the
// exception's detailed message as the description.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/HResult.h"

namespace tessaly::core {

// Text flags of a row: how the guard builds the description.
inline constexpr uint32_t kTextMessage = 2;   // the message text of the message ID, with the inserts
inline constexpr uint32_t kTextAppend = 4;    // the exception's message appended after a separator
inline constexpr uint32_t kTextDetailed = 8;  // ... in its detailed form (with the details)
// Any other bit alone: the exception's message is the whole description (use kTextOwn).
inline constexpr uint32_t kTextOwn = 1;
// The HRESULT is the message ID the exception was thrown with (a family whose every message
// ID is also its failure code); the row's result stands when the exception names none.
inline constexpr uint32_t kResultFromMessage = 16;

// Which rows a method's failures are looked up in first: classes of a subsystem that maps
// some exceptions differently from the rest of the library pass their own key.
struct ModuleKey {
    const char* name;
};
inline constexpr ModuleKey kDefaultModule{""};

struct ExceptionRow {
    const char* module;  // the module key; "" for the default rows
    int32_t code;        // ccException::Code()
    HRESULT result;
    uint32_t flags;      // kText*
    int32_t messageId;   // the text for kTextMessage; 0 for the HRESULT's standard text
};

// What a lookup answers.
struct ExceptionMapping {
    HRESULT result;
    uint32_t flags;
    int32_t messageId;
};

class ExceptionTable {
public:
    // Mapping of a code that no row names.
    static constexpr ExceptionMapping kUnknown{E_FAIL, kTextAppend | kTextDetailed, 0};

    // Adds rows; the rows must live as long as the process (static arrays).
    static void Register(std::span<const ExceptionRow> rows);
    // The row of `module` for `code`, else the default row, else kUnknown.
    static ExceptionMapping Find(int32_t code, std::string_view module = kDefaultModule.name) noexcept;
};

// Placed as a static object beside a family's rows: registers them when the library loads.
struct ExceptionTableRegistrar {
    explicit ExceptionTableRegistrar(std::span<const ExceptionRow> rows) { ExceptionTable::Register(rows); }
};

}  // namespace tessaly::core
