#include "com/core/impl/KeyIndex.h"

#include <bit>
#include <cstring>

namespace tessaly::core::collection {

namespace {

inline unsigned char Fold(char c) noexcept {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte <= 'Z' ? static_cast<unsigned char>(byte + ('a' - 'A')) : byte;
}

inline uint64_t Load64(const char* at) noexcept {
    uint64_t word;
    std::memcpy(&word, at, 8);
    return word;
}

inline uint64_t Load32(const char* at) noexcept {
    uint32_t word;
    std::memcpy(&word, at, 4);
    return word;
}

inline uint64_t Load8(const char* at) noexcept { return static_cast<unsigned char>(*at); }

// Bit 5 of every byte: set, it folds ASCII upper case onto lower case. It also joins a few
// punctuation pairs ('@' and '`'), so words equal after folding are only candidates.
constexpr uint64_t kFold = 0x2020202020202020ull;

// The last one to seven bytes of a key as one word, in fixed-size loads that overlap where
// they must: every byte is in it, and keys of one length always lay it out alike.
inline uint64_t TailWord(const char* tail, size_t rest) noexcept {
    return rest >= 4 ? Load32(tail) | Load32(tail + rest - 4) << 32
                     : Load8(tail) | Load8(tail + rest / 2) << 8 | Load8(tail + rest - 1) << 16;
}

// Words of two keys at the same place: equal as they are, or after folding letters.
inline bool SameWord(uint64_t a, uint64_t b, const char* x, const char* y, size_t count) noexcept {
    if (a == b) return true;
    if ((a | kFold) != (b | kFold)) return false;
    for (size_t i = 0; i < count; ++i)
        if (Fold(x[i]) != Fold(y[i])) return false;
    return true;
}

}  // namespace

size_t KeyHash::operator()(std::string_view key) const noexcept {
    // Eight bytes at a time, letters folded.
    constexpr uint64_t kMultiplier = 0x9E3779B97F4A7C15ull;
    const char* data = key.data();
    const size_t size = key.size();
    uint64_t hash = size * kMultiplier;
    size_t at = 0;
    for (; at + 8 <= size; at += 8) hash = std::rotl((hash ^ (Load64(data + at) | kFold)) * kMultiplier, 31);
    if (at < size) hash = std::rotl((hash ^ (TailWord(data + at, size - at) | kFold)) * kMultiplier, 31);
    // A full avalanche at the end, so that names differing only in their last characters
    // ("Item1234", "Item1299") differ in the low bits a table uses.
    hash ^= hash >> 33;
    hash *= 0xFF51AFD7ED558CCDull;
    hash ^= hash >> 33;
    hash *= 0xC4CEB9FE1A85EC53ull;
    hash ^= hash >> 33;
    return static_cast<size_t>(hash);
}

bool KeyEqual::operator()(std::string_view a, std::string_view b) const noexcept {
    // Eight bytes at a time: most keys compared are either the same or differ at once.
    const size_t size = a.size();
    if (size != b.size()) return false;
    const char* x = a.data();
    const char* y = b.data();
    size_t at = 0;
    for (; at + 8 <= size; at += 8)
        if (!SameWord(Load64(x + at), Load64(y + at), x + at, y + at, 8)) return false;
    const size_t rest = size - at;
    return rest == 0 || SameWord(TailWord(x + at, rest), TailWord(y + at, rest), x + at, y + at, rest);
}

KeyIndex::Table KeyIndex::NewTable(size_t keys) {
    Table table;
    table.capacity = 16;
    while (keys * 4 > table.capacity * 3) table.capacity *= 2;
    table.slots = std::make_unique_for_overwrite<Slot[]>(table.capacity);
    for (size_t i = 0; i < table.capacity; ++i) table.slots[i] = Slot{0, -1};
    return table;
}

void KeyIndex::Place(Table& table, Slot slot) noexcept {
    const size_t mask = table.capacity - 1;
    size_t at = slot.hash & mask;
    while (table.slots[at].index >= 0) at = (at + 1) & mask;
    table.slots[at] = slot;
    ++table.keyed;
}

void KeyIndex::Rehash(Table& grown) const noexcept {
    for (size_t i = 0; i < table_.capacity; ++i)
        if (table_.slots[i].index >= 0) Place(grown, table_.slots[i]);
}

void KeyIndex::Erase(int32_t at, std::string_view key) noexcept {
    Slot* slots = table_.slots.get();
    const size_t mask = table_.capacity - 1;
    size_t hole = Hash32(key) & mask;
    while (slots[hole].index != at) hole = (hole + 1) & mask;
    // Backward shift: each later slot of the run that may live in the hole moves into it,
    // so that no probe sequence is broken and no tombstones accumulate.
    for (size_t next = (hole + 1) & mask; slots[next].index >= 0; next = (next + 1) & mask) {
        const size_t home = slots[next].hash & mask;
        const bool reachable = hole <= next ? home > hole && home <= next : home > hole || home <= next;
        if (reachable) continue;
        slots[hole] = slots[next];
        hole = next;
    }
    slots[hole].index = -1;
    --table_.keyed;
}

void KeyIndex::Inserted(int32_t at, std::string_view key, size_t countBefore) noexcept {
    if (!table_.slots) return;
    if (static_cast<size_t>(at) < countBefore) {
        for (size_t i = 0; i < table_.capacity; ++i)
            if (table_.slots[i].index >= at) ++table_.slots[i].index;
    }
    if (!key.empty()) Place(table_, Slot{Hash32(key), at});
}

void KeyIndex::Removed(int32_t at, std::string_view key, size_t countBefore) noexcept {
    if (!table_.slots) return;
    if (!key.empty()) Erase(at, key);
    if (static_cast<size_t>(at) + 1 < countBefore) {
        for (size_t i = 0; i < table_.capacity; ++i)
            if (table_.slots[i].index > at) --table_.slots[i].index;
    }
}

void KeyIndex::Moved(int32_t from, int32_t to) noexcept {
    if (!table_.slots || from == to) return;
    for (size_t i = 0; i < table_.capacity; ++i) {
        int32_t& index = table_.slots[i].index;
        if (index < 0) continue;
        if (index == from)
            index = to;
        else if (from < to && index > from && index <= to)
            --index;
        else if (from > to && index >= to && index < from)
            ++index;
    }
}

void KeyIndex::Rekeyed(int32_t at, std::string_view oldKey, std::string_view newKey) noexcept {
    if (!table_.slots) return;
    if (!oldKey.empty()) Erase(at, oldKey);
    if (!newKey.empty()) Place(table_, Slot{Hash32(newKey), at});
}

}  // namespace tessaly::core::collection
