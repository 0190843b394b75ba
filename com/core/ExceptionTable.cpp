#include "com/core/ExceptionTable.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string_view>
#include <utility>

#include "TessalyCore.h"
#include "com/core/MessageTable.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

struct Registry {
    std::shared_mutex mutex;
    // (module key, code) -> row; the keys point into the rows' static strings.
    std::map<std::pair<std::string_view, int32_t>, const ExceptionRow*> rows;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

// The general failures. Argument refusals describe themselves through a message; failures
// that mean a defect keep the exception's details in the text, for the bug report.
const ExceptionRow kStdErrorRows[] = {
    {"", ccStdError::InternalError::kCode, e_Lux_InternalError, kTextMessage | kTextAppend | kTextDetailed,
     e_Lux_InternalError},
    {"", ccStdError::NotImplemented::kCode, e_Lux_NotImplemented, kTextMessage | kTextAppend | kTextDetailed,
     e_Lux_NotImplemented},
    {"", ccStdError::BadArgument::kCode, E_INVALIDARG, kTextMessage, ids_Core_InvalidArg_1},
    {"", ccStdError::NullArgument::kCode, E_INVALIDARG, kTextMessage, ids_Lux_InvalidArgNull_1},
    {"", ccStdError::OutOfRange::kCode, E_INVALIDARG, kTextMessage, ids_Core_ArgOutOfRange_1},
    {"", ccStdError::Described::kCode, E_FAIL, kTextOwn, 0},
    {"", ccStdError::Unexpected::kCode, E_UNEXPECTED, kTextMessage, ids_Core_BadState_1},
    {"", ccStdError::BadPath::kCode, e_BADPATH, kTextMessage, ids_Core_PathNotFound_1},
};

const ExceptionTableRegistrar stdErrorRegistrar(kStdErrorRows);

}  // namespace

void ExceptionTable::Register(std::span<const ExceptionRow> rows) {
    Registry& registry = TheRegistry();
    std::unique_lock lock(registry.mutex);
    for (const ExceptionRow& row : rows)
        registry.rows.emplace(std::pair<std::string_view, int32_t>(row.module ? row.module : "", row.code), &row);
}

ExceptionMapping ExceptionTable::Find(int32_t code, std::string_view module) noexcept {
    Registry& registry = TheRegistry();
    std::shared_lock lock(registry.mutex);
    auto found = registry.rows.find({module, code});
    if (found == registry.rows.end() && !module.empty()) found = registry.rows.find({std::string_view(), code});
    if (found == registry.rows.end()) return kUnknown;
    const ExceptionRow& row = *found->second;
    return {row.result, row.flags, row.messageId};
}

}  // namespace tessaly::core
