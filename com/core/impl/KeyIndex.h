// The key index of a collection: from a key (compared case-insensitively over ASCII) to the
// index of the entry that has it.
//
// Most collections are small, and for a handful of entries comparing the keys in turn is
// faster than hashing and needs no memory at all, so up to a few entries (kScanned unless
// the owner says otherwise) the index holds nothing. Past that it is one open-addressed table of (hash, entry index) slots with
// linear probing, at most three quarters full; the table stays until Clear, whatever the
// collection shrinks to. Entries are never copied into the index: lookups compare with the
// entries' own keys, which the caller passes in.
//
// The caller keeps the index in step with its entries: Reserve before an entry (or a key)
// is added, which is the only call that allocates, then the notification of the change.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

namespace tessaly::core::collection {

struct KeyHash {
    size_t operator()(std::string_view key) const noexcept;
};
struct KeyEqual {
    bool operator()(std::string_view a, std::string_view b) const noexcept;
};

class KeyIndex {
public:
    static constexpr size_t kScanned = 8;

    explicit KeyIndex(size_t scanned = kScanned) noexcept : scanned_(scanned) {}

    // The entry with `key`, or -1. `entries` is a random-access sequence of values with a
    // `key.view()`; the empty key is never found.
    template <class Entries>
    int32_t Find(std::string_view key, const Entries& entries) const noexcept {
        if (key.empty()) return -1;
        if (!table_.slots) {
            const KeyEqual equal;
            for (size_t i = 0; i < entries.size(); ++i)
                if (equal(entries[i].key.view(), key)) return static_cast<int32_t>(i);
            return -1;
        }
        return Probe(table_, key, Hash32(key), entries);
    }

    // Room for the entries to number `count` and for one more key among them. Throws
    // bad_alloc, leaving the index as it was.
    template <class Entries>
    void Reserve(const Entries& entries, size_t count) {
        if (!table_.slots && count <= scanned_) return;
        if (table_.slots && (table_.keyed + 1) * 4 <= table_.capacity * 3) return;
        Table grown = NewTable(table_.slots ? table_.keyed + 1 : entries.size() + 1);
        if (table_.slots) {
            Rehash(grown);
        } else {
            for (size_t i = 0; i < entries.size(); ++i) {
                const std::string_view key = entries[i].key.view();
                if (!key.empty()) Place(grown, Slot{Hash32(key), static_cast<int32_t>(i)});
            }
        }
        table_ = std::move(grown);
    }

    // Builds the index of `entries` afresh. Returns the index of the first entry whose key
    // an earlier entry has already (the index is then left as it was), or -1. Throws
    // bad_alloc, leaving the index as it was.
    template <class Entries>
    int32_t Build(const Entries& entries) {
        if (entries.size() <= scanned_) {
            const KeyEqual equal;
            for (size_t i = 1; i < entries.size(); ++i) {
                const std::string_view key = entries[i].key.view();
                if (key.empty()) continue;
                for (size_t j = 0; j < i; ++j)
                    if (equal(entries[j].key.view(), key)) return static_cast<int32_t>(i);
            }
            Clear();
            return -1;
        }
        size_t keyed = 0;
        for (size_t i = 0; i < entries.size(); ++i) keyed += entries[i].key.view().empty() ? 0 : 1;
        Table built = NewTable(keyed + 1);
        for (size_t i = 0; i < entries.size(); ++i) {
            const std::string_view key = entries[i].key.view();
            if (key.empty()) continue;
            const uint32_t hash = Hash32(key);
            if (Probe(built, key, hash, entries) >= 0) return static_cast<int32_t>(i);
            Place(built, Slot{hash, static_cast<int32_t>(i)});
        }
        table_ = std::move(built);
        return -1;
    }

    // An entry was inserted at `at` among `countBefore` entries (after Reserve).
    void Inserted(int32_t at, std::string_view key, size_t countBefore) noexcept;
    // The entry at `at`, with `key`, was removed from among `countBefore` entries.
    void Removed(int32_t at, std::string_view key, size_t countBefore) noexcept;
    // The entry at `from` moved to `to`; those between moved one place towards `from`.
    void Moved(int32_t from, int32_t to) noexcept;
    // Entry `at` changed its key (after Reserve when it had none).
    void Rekeyed(int32_t at, std::string_view oldKey, std::string_view newKey) noexcept;

    void Clear() noexcept { table_ = Table(); }
    void swap(KeyIndex& other) noexcept {
        std::swap(table_, other.table_);
        std::swap(scanned_, other.scanned_);
    }

private:
    struct Slot {
        uint32_t hash;
        int32_t index;  // -1: free
    };
    struct Table {
        std::unique_ptr<Slot[]> slots;  // null while entries are scanned
        size_t capacity = 0;            // a power of two
        size_t keyed = 0;               // slots in use
    };

    static uint32_t Hash32(std::string_view key) noexcept { return static_cast<uint32_t>(KeyHash()(key)); }
    static Table NewTable(size_t keys);
    static void Place(Table& table, Slot slot) noexcept;
    void Rehash(Table& grown) const noexcept;
    // Frees the slot holding entry `at`, whose key is `key`.
    void Erase(int32_t at, std::string_view key) noexcept;

    template <class Entries>
    static int32_t Probe(const Table& table, std::string_view key, uint32_t hash, const Entries& entries) noexcept {
        const KeyEqual equal;
        const size_t mask = table.capacity - 1;
        for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
            const Slot& here = table.slots[slot];
            if (here.index < 0) return -1;
            if (here.hash == hash && equal(entries[here.index].key.view(), key)) return here.index;
        }
    }

    Table table_;
    size_t scanned_;  // entries up to which keys are scanned
};

}  // namespace tessaly::core::collection
