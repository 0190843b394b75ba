// The records and string lists every tool hands out, built through the interfaces of
// LuxRecord and LuxStringCollection as a client would build them.
//
// A tool's top record: key the tool's name, usage luxRecordUsageTool, type
// luxRecordTypeToolDefined (a tool-defined kind whose low 16 bits, VT_EMPTY, say that the
// record itself holds no content: its sub-records do).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace tessaly::tool {

// The type of a tool's top record.
inline constexpr int32_t kToolRecordType = luxRecordTypeToolDefined;

ComPtr<ILuxRecord> NewToolRecord(std::string_view toolName);

// Adds a sub-record holding `content` (an object or a value), not mutable, with no
// annotation and no constructor.
void AddSubRecord(ILuxRecord* parent, std::string_view key, int32_t type, int32_t usage, const VARIANT& content);

// A new LuxStringCollection holding `items` in order, without keys.
ComPtr<ILuxStringCollection> NewStringCollection(std::span<const char* const> items);

}  // namespace tessaly::tool
