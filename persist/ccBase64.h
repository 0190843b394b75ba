// Base64 (the standard alphabet A-Z a-z 0-9 + /, '=' padding), as the XML format carries
// binary content. Encoding writes one unbroken run of characters; decoding is strict: only
// alphabet characters, padding only at the end and only as much as the last group needs,
// the unused bits of a padded group zero. XML white space (space, tab, CR, LF) may stand
// anywhere and is skipped, so that documents wrapped by other tools still read.
//
// Both directions are table-driven and work on caller-supplied memory, so a large block
// goes from its owner to the text (and back) without an intermediate copy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

class ccBase64 {
public:
    // Characters that `bytes` bytes encode to.
    static constexpr size_t EncodedSize(size_t bytes) noexcept { return (bytes + 2) / 3 * 4; }

    // Encodes `size` bytes at `data` into `out`, which has room for EncodedSize(size)
    // characters (no terminator is written).
    static void Encode(const uint8_t* data, size_t size, char* out) noexcept;
    static std::string Encode(const uint8_t* data, size_t size);

    enum class Status {
        Ok,
        BadCharacter,  // a character outside the alphabet, misplaced padding, non-zero unused bits
        Short,         // the characters do not fill a whole group of four
        Overflow,      // the output would pass the capacity given
    };

    struct SizeResult {
        Status status;  // Ok or Short
        size_t bytes;   // what Decode writes when the text is valid
    };
    // The number of bytes the text decodes to, from its length, its white space and its
    // padding; the characters themselves are checked by Decode. Fast on text without
    // white space (eight characters per step).
    static SizeResult DecodedSize(std::string_view text) noexcept;

    struct DecodeResult {
        Status status;
        size_t written;  // bytes written to `out`
        size_t offset;   // where in `text` the failure was found (text.size() when none)
    };
    // Decodes `text` into `out`, which has room for `capacity` bytes. On failure the bytes
    // written so far are left in `out`.
    static DecodeResult Decode(std::string_view text, uint8_t* out, size_t capacity) noexcept;
};
