// The key index against the plainest model of it, a scan of the entries, through long
// random runs of every change a collection makes: small collections are scanned, larger
// ones go through the table, whose deletions shift slots back and whose insertions,
// removals and moves renumber them.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "com/core/impl/KeyIndex.h"

namespace tessaly::core::collection {
namespace {

struct Key {
    std::string text;
    std::string_view view() const noexcept { return text; }
};
struct Entry {
    Key key;
};

int32_t Scan(const std::vector<Entry>& entries, std::string_view key) {
    if (key.empty()) return -1;
    for (size_t i = 0; i < entries.size(); ++i)
        if (KeyEqual()(entries[i].key.view(), key)) return static_cast<int32_t>(i);
    return -1;
}

std::string Flip(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        else if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

class KeyIndexModel {
public:
    explicit KeyIndexModel(unsigned seed) : random_(seed) {}

    std::string NewKey() {
        // Some entries without a key; the rest unique over a large enough range.
        if (random_() % 5 == 0) return {};
        for (;;) {
            std::string key = "Key" + std::to_string(random_() % 100000);
            if (Scan(entries_, key) < 0) return key;
        }
    }

    void Insert() {
        const auto at = static_cast<int32_t>(random_() % (entries_.size() + 1));
        Entry entry{Key{NewKey()}};
        index_.Reserve(entries_, entries_.size() + 1);
        const size_t before = entries_.size();
        entries_.insert(entries_.begin() + at, std::move(entry));
        index_.Inserted(at, entries_[at].key.view(), before);
    }

    void Remove() {
        if (entries_.empty()) return;
        const auto at = static_cast<int32_t>(random_() % entries_.size());
        index_.Removed(at, entries_[at].key.view(), entries_.size());
        entries_.erase(entries_.begin() + at);
    }

    void Move() {
        if (entries_.empty()) return;
        const auto from = static_cast<int32_t>(random_() % entries_.size());
        const auto to = static_cast<int32_t>(random_() % entries_.size());
        const auto first = entries_.begin();
        if (from < to)
            std::rotate(first + from, first + from + 1, first + to + 1);
        else
            std::rotate(first + to, first + from, first + from + 1);
        index_.Moved(from, to);
    }

    void Rekey() {
        if (entries_.empty()) return;
        const auto at = static_cast<int32_t>(random_() % entries_.size());
        std::string key = NewKey();
        if (entries_[at].key.text.empty() && !key.empty()) index_.Reserve(entries_, entries_.size());
        index_.Rekeyed(at, entries_[at].key.view(), key);
        entries_[at].key.text = std::move(key);
    }

    void Rebuild() { ASSERT_EQ(index_.Build(entries_), -1); }

    // Every key finds its entry, in either case; keys no entry has find nothing.
    void Check() {
        for (size_t i = 0; i < entries_.size(); ++i) {
            const std::string& key = entries_[i].key.text;
            if (key.empty()) continue;
            ASSERT_EQ(index_.Find(key, entries_), static_cast<int32_t>(i)) << key;
            ASSERT_EQ(index_.Find(Flip(key), entries_), static_cast<int32_t>(i)) << key;
        }
        for (int probe = 0; probe < 20; ++probe) {
            const std::string key = "Key" + std::to_string(random_() % 100000);
            ASSERT_EQ(index_.Find(key, entries_), Scan(entries_, key)) << key;
        }
        ASSERT_EQ(index_.Find("", entries_), -1);
    }

    void Run(int steps, size_t ceiling) {
        for (int step = 0; step < steps; ++step) {
            // Grow towards the ceiling, then wander around it.
            const unsigned choice = random_() % 10;
            if (choice < 4 && entries_.size() < ceiling) Insert();
            else if (choice < 6) Remove();
            else if (choice < 8) Move();
            else if (choice < 9) Rekey();
            else if (random_() % 20 == 0) Rebuild();
            ASSERT_NO_FATAL_FAILURE(Check()) << "after step " << step;
        }
    }

    std::vector<Entry> entries_;
    KeyIndex index_;

private:
    std::mt19937 random_;
};

TEST(KeyIndexTest, AgreesWithAScanThroughRandomChangesSmallAndLarge) {
    for (const size_t ceiling : {size_t(4), KeyIndex::kScanned + 1, size_t(40), size_t(400)}) {
        KeyIndexModel model(static_cast<unsigned>(ceiling));
        ASSERT_NO_FATAL_FAILURE(model.Run(3000, ceiling)) << "ceiling " << ceiling;
    }
}

TEST(KeyIndexTest, BuildNamesTheFirstRepeatedKeyAndKeepsTheOldIndex) {
    for (const size_t count : {size_t(5), size_t(50)}) {
        std::vector<Entry> entries;
        for (size_t i = 0; i < count; ++i) entries.push_back(Entry{Key{"k" + std::to_string(i)}});
        KeyIndex index;
        ASSERT_EQ(index.Build(entries), -1);
        std::vector<Entry> repeated = entries;
        repeated.push_back(Entry{Key{""}});
        repeated.push_back(Entry{Key{"K3"}});  // the same key as entry 3, in another case
        EXPECT_EQ(index.Build(repeated), static_cast<int32_t>(count + 1));
        // The failed build changed nothing.
        for (size_t i = 0; i < count; ++i) EXPECT_EQ(index.Find("K" + std::to_string(i), entries), int32_t(i));
    }
}

TEST(KeyIndexTest, HashAndEqualityFoldOnlyAsciiLetters) {
    const KeyHash hash;
    const KeyEqual equal;
    // Every length around the word size, where the hash reads the tail differently.
    std::string lower, upper;
    for (int length = 0; length <= 26; ++length) {
        EXPECT_EQ(hash(lower), hash(upper)) << lower;
        EXPECT_TRUE(equal(lower, upper)) << lower;
        lower += static_cast<char>('a' + length);
        upper += static_cast<char>('A' + length);
    }
    EXPECT_FALSE(equal("a1", "a2"));
    EXPECT_FALSE(equal("ab", "abc"));
    EXPECT_FALSE(equal("[", "{"));  // one bit apart, but not letters
    EXPECT_FALSE(equal("ExposureTime@2", "exposuretime`2"));  // the same past the first eight bytes
    EXPECT_FALSE(equal("ExposureTime_1", "EXPOSURETIME_2"));
    EXPECT_TRUE(equal("ExposureTime_1", "EXPOSURETIME_1"));
    EXPECT_FALSE(equal("\xC3\xA9", "\xC3\x89"));  // é and É: only ASCII folds
    // Names that differ only at the end, as entry names do, spread over the low bits.
    std::vector<bool> seen(1024);
    int distinct = 0;
    for (int i = 0; i < 1024; ++i) {
        const size_t bucket = hash("Item" + std::to_string(i)) & 1023;
        distinct += seen[bucket] ? 0 : 1;
        seen[bucket] = true;
    }
    EXPECT_GT(distinct, 550);  // a uniform hash fills about 63% of the buckets
}

}  // namespace
}  // namespace tessaly::core::collection
