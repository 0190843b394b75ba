#include "com/core/CollectionErrors.h"

#include "TessalyCore.h"
#include "com/core/ExceptionTable.h"

namespace tessaly::core {

namespace {

// The code's own message names the failure; the details say which index or key.
constexpr uint32_t kFlags = kTextMessage | kTextAppend | kTextDetailed;

const ExceptionRow kCollectionRows[] = {
    {"", CollectionErrors::InvalidIndex::kCode, e_LuxCollection_InvalidIndex, kFlags, e_LuxCollection_InvalidIndex},
    {"", CollectionErrors::InvalidKey::kCode, e_LuxCollection_InvalidKey, kFlags, e_LuxCollection_InvalidKey},
    {"", CollectionErrors::KeyNotFound::kCode, e_LuxCollection_KeyNotFound, kFlags, e_LuxCollection_KeyNotFound},
    {"", CollectionErrors::DuplicateKey::kCode, e_LuxCollection_DuplicateKey, kFlags, e_LuxCollection_DuplicateKey},
};

const ExceptionTableRegistrar registrar(kCollectionRows);

}  // namespace

std::string CollectionErrors::Quote(std::string_view key) {
    constexpr size_t kShown = 64;
    std::string text = "\"";
    text += key.substr(0, kShown);
    if (key.size() > kShown) text += "...";
    text += '"';
    return text;
}

void CollectionErrors::ThrowInvalidIndex(int32_t index, int32_t count, bool insertion) {
    std::string text = "the index " + std::to_string(index);
    const int32_t last = insertion ? count : count - 1;
    if (last < 0)
        text += " is not valid: the collection is empty";
    else
        text += " is not in 0.." + std::to_string(last);
    if (insertion) text += " (or -1 to append)";
    throw InvalidIndex(text);
}

void CollectionErrors::ThrowDuplicateKey(std::string_view key) {
    throw DuplicateKey("another item already has the key " + Quote(key));
}

void CollectionErrors::ThrowUnknownKey(std::string_view key) {
    if (key.empty()) throw InvalidKey("the empty key names no item");
    throw InvalidKey("no item has the key " + Quote(key));
}

void CollectionErrors::ThrowKeyNotFound(std::string_view key) {
    throw KeyNotFound("no item has the key " + Quote(key));
}

}  // namespace tessaly::core
