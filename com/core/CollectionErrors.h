// The refusals of the collections (family 0x022, the collections' own family number).
// Each maps to its e_LuxCollection_* code; the description is the code's message followed
// by what was refused:
//
//     throw CollectionErrors::InvalidIndex("the index 7 is not in 0..2");
//
// gives e_LuxCollection_InvalidIndex with "The collection index is out of range." and
// "CollectionErrors::InvalidIndex: the index 7 is not in 0..2" on the next line.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "xnl/std/except/ccException.h"

namespace tessaly::core {

class CollectionErrors {
public:
    using Errors = ccErrorFamily<"CollectionErrors">;

    using InvalidIndex = ccError<Errors, "CollectionErrors::InvalidIndex", 0x10220001>;
    using InvalidKey = ccError<Errors, "CollectionErrors::InvalidKey", 0x10220002>;
    using KeyNotFound = ccError<Errors, "CollectionErrors::KeyNotFound", 0x10220003>;
    using DuplicateKey = ccError<Errors, "CollectionErrors::DuplicateKey", 0x10220004>;

    // The usual refusals with their texts.
    // An index outside 0..count-1 (or 0..count where an insertion may append).
    [[noreturn]] static void ThrowInvalidIndex(int32_t index, int32_t count, bool insertion = false);
    [[noreturn]] static void ThrowDuplicateKey(std::string_view key);
    // A key no entry has, where the member answers InvalidKey for it (Item).
    [[noreturn]] static void ThrowUnknownKey(std::string_view key);
    [[noreturn]] static void ThrowKeyNotFound(std::string_view key);

    // How a key appears in a message: quoted, cut after 64 characters.
    static std::string Quote(std::string_view key);
};

}  // namespace tessaly::core
