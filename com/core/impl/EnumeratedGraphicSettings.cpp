#include "com/core/impl/EnumeratedGraphicSettings.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "com/core/MessageTable.h"
#include "persist/ccArchive.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

bool EnumeratedSetting::Accepts(int32_t value) const noexcept {
    if (!accepted.empty()) return std::find(accepted.begin(), accepted.end(), value) != accepted.end();
    return value >= first && value <= last;
}

EnumeratedGraphicSettings::EnumeratedGraphicSettings(std::span<const EnumeratedSetting> table) : table_(table) {
    if (table.size() > kMaxSettings) throw ccStdError::InternalError("a shape class has too many enumerated settings");
    for (size_t i = 0; i < table.size(); ++i) values_[i] = table[i].initial;
}

void EnumeratedGraphicSettings::Check(size_t index, int32_t value) const {
    const EnumeratedSetting& setting = table_[index];
    if (setting.Accepts(value)) return;
    const char* argument = setting.refusedArgument ? setting.refusedArgument : setting.name;
    const char* insert = setting.refusedInsert ? setting.refusedInsert : setting.name;
    throw ccStdError::BadArgument(argument, ids_Lux_InvalidArgEnum_1, {insert});
}

bool EnumeratedGraphicSettings::Store(size_t index, int32_t value) noexcept {
    if (values_[index] == value) return false;
    values_[index] = value;
    return true;
}

void EnumeratedGraphicSettings::TakeMatching(const EnumeratedGraphicSettings& source) noexcept {
    for (size_t i = 0; i < table_.size(); ++i)
        for (size_t j = 0; j < source.table_.size(); ++j)
            if (std::string_view(table_[i].name) == source.table_[j].name && table_[i].Accepts(source.values_[j]))
                values_[i] = source.values_[j];
}

void EnumeratedGraphicSettings::Save(ArchiveAccess& archive) const {
    for (size_t i = 0; i < table_.size(); ++i) {
        int32_t value = values_[i];
        archive.Persist(table_[i].name, value);
    }
}

void EnumeratedGraphicSettings::Load(ArchiveAccess& archive) {
    std::array<int32_t, kMaxSettings> read{};
    std::array<bool, kMaxSettings> present{};
    for (size_t i = 0; i < table_.size(); ++i) {
        const char* key = table_[i].name;
        Variant value;
        if (!archive.Read(key, value)) continue;
        if (FAILED(value.ChangeType(VT_I4)))
            throw ccArchive::BadType(std::string(key) + " is not an integer", ids_Lux_ReadInvalidProperty_1, {key});
        read[i] = value.get().lVal;
        if (!table_[i].Accepts(read[i]))
            throw ccArchive::BadContent(std::string(key) + " " + table_[i].storedRefusal, ids_Lux_ReadInvalidProperty_1,
                                        {key});
        present[i] = true;
    }
    archive.OnCommit([this, read, present]() noexcept {
        for (size_t i = 0; i < table_.size(); ++i)
            if (present[i]) values_[i] = read[i];
    });
}

}  // namespace tessaly::core
