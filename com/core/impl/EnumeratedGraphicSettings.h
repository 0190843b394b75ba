// The enumerated graphic settings a shape class adds to the common ones (adornments,
// display modes): each described once in a table, held here as int32 values.
//
// A table entry names the setting (the property and its archive key), the state ID its
// Change announces, the values it accepts (the range first..last, or a list when the
// enumeration has gaps) and the value of a new shape. The holder is not locked itself: the
// shape that owns it reads and writes it under the object's lock.
//
// Refusals: a value outside the entry's values is E_INVALIDARG with ids_Lux_InvalidArgEnum_1
// (naming the property, or what the entry names instead); a stored value of another type
// is ccArchive::BadType ("<key> is not an integer"), one outside the values
// ccArchive::BadContent ("<key> <why>"), both with ids_Lux_ReadInvalidProperty_1 naming
// the key.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "com/core/impl/ArchiveAccess.h"

namespace tessaly::core {

struct EnumeratedSetting {
    const char* name;       // the property and the archive key
    int32_t stateId;        // announced with luxFA_Shape_Graphic
    int32_t initial;        // the value of a new shape, and what a copy without graphics keeps
    int32_t first;          // the accepted range, when `accepted` is empty
    int32_t last;
    std::span<const int32_t> accepted = {};  // the accepted values, when they are not a range
    const char* storedRefusal = "is outside its enumeration";  // why a stored value is refused
    const char* refusedArgument = nullptr;  // the argument a setter's refusal names (null: name)
    const char* refusedInsert = nullptr;    // the message's insert (null: name)

    bool Accepts(int32_t value) const noexcept;
};

// A setting whose values are the range first..last, starting at `first`.
constexpr EnumeratedSetting RangeSetting(const char* name, int32_t stateId, int32_t first, int32_t last,
                                         const char* storedRefusal = "is outside its enumeration") noexcept {
    return EnumeratedSetting{name, stateId, first, first, last, {}, storedRefusal};
}

class EnumeratedGraphicSettings {
public:
    static constexpr size_t kMaxSettings = 6;

    // A class without settings.
    EnumeratedGraphicSettings() noexcept = default;
    // The settings of `table` at their initial values; the table outlives the holder.
    explicit EnumeratedGraphicSettings(std::span<const EnumeratedSetting> table);

    std::span<const EnumeratedSetting> Table() const noexcept { return table_; }
    int32_t Value(size_t index) const noexcept { return values_[index]; }

    // Refuses a value setting `index` does not accept (ccStdError::BadArgument).
    void Check(size_t index, int32_t value) const;
    // Stores a checked value; false when it is the present one.
    bool Store(size_t index, int32_t value) noexcept;
    // Takes the values of the settings `source` has under the same names, where this
    // table accepts them; the others keep theirs. Between classes whose settings share
    // names (a circular arc's adornments and those of the elliptical arc it maps to).
    void TakeMatching(const EnumeratedGraphicSettings& source) noexcept;

    // Writes every setting under its key, in the table's order.
    void Save(ArchiveAccess& archive) const;
    // Reads and checks every key the archive has; what was read is assigned when the load
    // commits (a key the archive lacks keeps its value). The holder outlives the load.
    void Load(ArchiveAccess& archive);

private:
    std::span<const EnumeratedSetting> table_;
    std::array<int32_t, kMaxSettings> values_{};
};

}  // namespace tessaly::core
