// The stream format of pixel memory marshalled to another apartment, process or machine
// (little-endian):
//
//   context   4 bytes   the destination context; MSHCTX_INPROC (3) means this process
//   then, in this process:
//     pointer 8 bytes   the object's own interface pointer, holding a reference
//   otherwise, by value:
//     width   4 bytes   pixels a row
//     height  4 bytes   rows
//     pixels            width x height pixels, rows packed without padding, top row first
//
// Nothing follows the height when the width or the height is 0. Reading refuses what
// does not describe pixels (a negative size, a size beyond the image limits) with
// E_INVALIDARG and a stream that ends early with the stream's own failure or
// STG_E_READFAULT: a stream is never trusted for an allocation it cannot back.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/StandardInterfaces.h"

namespace tessaly::image {

class PixelMarshalStream {
public:
    explicit PixelMarshalStream(IStream* stream) noexcept : stream_(stream) {}

    void WriteUInt32(uint32_t value);
    void WritePointer(IUnknown* object);
    // Rows of `width` pixels of `pelSize` bytes from `first`, `pitchBytes` apart.
    void WriteRows(const std::byte* first, ptrdiff_t pitchBytes, int32_t width, int32_t height, size_t pelSize);

    uint32_t ReadUInt32();
    IUnknown* ReadPointer();
    // Width and height, checked.
    void ReadSize(int32_t& width, int32_t& height);
    // Packed rows into `first` (rows `pitchBytes` apart).
    void ReadRows(std::byte* first, ptrdiff_t pitchBytes, int32_t width, int32_t height, size_t pelSize);
    void Skip(uint64_t bytes);

private:
    void Write(const void* data, size_t size);
    void Read(void* data, size_t size);

    IStream* stream_;
};

}  // namespace tessaly::image
