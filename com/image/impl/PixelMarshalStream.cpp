#include "com/image/impl/PixelMarshalStream.h"

#include <cstring>
#include <limits>
#include <string>

#include "TessalyCore.h"
#include "com/core/ccCOMError.h"
#include "com/image/impl/ccLuxGreyImageImpl.h"

namespace tessaly::image {

namespace {

constexpr ULONG kChunk = 1u << 30;

[[noreturn]] void Refuse(HRESULT result, const std::string& why) {
    throw core::ccCOMError(result, why, "UnmarshalInterface", IMarshal::iid);
}

}  // namespace

void PixelMarshalStream::Write(const void* data, size_t size) {
    const auto* bytes = static_cast<const std::byte*>(data);
    while (size > 0) {
        const ULONG part = size > kChunk ? kChunk : static_cast<ULONG>(size);
        ULONG written = 0;
        core::ThrowIfFailed(stream_->Write(bytes, part, &written));
        if (written != part) throw core::ccCOMError(STG_E_WRITEFAULT, "the stream took fewer bytes than written",
                                                    "MarshalInterface", IMarshal::iid);
        bytes += part;
        size -= part;
    }
}

void PixelMarshalStream::Read(void* data, size_t size) {
    auto* bytes = static_cast<std::byte*>(data);
    while (size > 0) {
        const ULONG part = size > kChunk ? kChunk : static_cast<ULONG>(size);
        ULONG read = 0;
        core::ThrowIfFailed(stream_->Read(bytes, part, &read));
        if (read != part) Refuse(STG_E_READFAULT, "the marshalled pixel memory ends early");
        bytes += part;
        size -= part;
    }
}

void PixelMarshalStream::WriteUInt32(uint32_t value) {
    const unsigned char bytes[4] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                    static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    Write(bytes, 4);
}

uint32_t PixelMarshalStream::ReadUInt32() {
    unsigned char bytes[4];
    Read(bytes, 4);
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

void PixelMarshalStream::WritePointer(IUnknown* object) {
    const auto address = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(object));
    WriteUInt32(static_cast<uint32_t>(address));
    WriteUInt32(static_cast<uint32_t>(address >> 32));
}

IUnknown* PixelMarshalStream::ReadPointer() {
    const uint64_t low = ReadUInt32();
    const uint64_t high = ReadUInt32();
    return reinterpret_cast<IUnknown*>(static_cast<uintptr_t>(low | high << 32));
}

void PixelMarshalStream::WriteRows(const std::byte* first, ptrdiff_t pitchBytes, int32_t width, int32_t height,
                                   size_t pelSize) {
    if (width <= 0 || height <= 0) return;
    const size_t rowBytes = size_t(width) * pelSize;
    if (pitchBytes == static_cast<ptrdiff_t>(rowBytes)) {
        Write(first, rowBytes * size_t(height));
        return;
    }
    for (int32_t y = 0; y < height; ++y) Write(first + ptrdiff_t{y} * pitchBytes, rowBytes);
}

void PixelMarshalStream::ReadSize(int32_t& width, int32_t& height) {
    const uint32_t w = ReadUInt32();
    const uint32_t h = ReadUInt32();
    const bool empty = w == 0 || h == 0;
    if (w > uint32_t(kMaxImageSize) || h > uint32_t(kMaxImageSize) ||
        (!empty && uint64_t{w} * h > (uint64_t{1} << 31)))
        Refuse(E_INVALIDARG, "the marshalled pixel memory claims " + std::to_string(w) + " x " + std::to_string(h) +
                                 " pixels");
    width = static_cast<int32_t>(w);
    height = static_cast<int32_t>(h);
}

void PixelMarshalStream::ReadRows(std::byte* first, ptrdiff_t pitchBytes, int32_t width, int32_t height,
                                  size_t pelSize) {
    if (width <= 0 || height <= 0) return;
    const size_t rowBytes = size_t(width) * pelSize;
    for (int32_t y = 0; y < height; ++y) Read(first + ptrdiff_t{y} * pitchBytes, rowBytes);
}

void PixelMarshalStream::Skip(uint64_t bytes) {
    if (bytes == 0) return;
    if (bytes > uint64_t(std::numeric_limits<LONGLONG>::max())) Refuse(E_INVALIDARG, "too many bytes to skip");
    core::ThrowIfFailed(stream_->Seek(static_cast<LONGLONG>(bytes), STREAM_SEEK_CUR, nullptr));
}

}  // namespace tessaly::image
