// The core binary archive: a typed, versioned byte stream over a byte device. Writing
// appends little-endian values, length-prefixed UTF-8 strings and raw blocks; reading
// checks every length and count against what remains before it allocates, so that no
// input can make it read past the end or allocate more than the input justifies.
//
// Failures are exceptions of the family ccArchive::Errors, one class per condition.
//
// An archive starts with a header of 12 bytes: the magic kMagic, the format version
// (uint16) and a reserved uint16 that is 0. Small values gather in a buffer of
// kBufferSize bytes; a block larger than the buffer goes to the device in one call, and
// on reading comes from the device in one call straight into the caller's memory.
//
//     ccByteBuffer bytes;
//     ccArchive out = ccArchive::ForWriting(bytes);
//     out.WriteClassVersion(2);
//     out.Write<int32_t>(width);
//     out.WriteString(name);
//     out.Finish();
//
//     ccArchive in = ccArchive::ForReading(bytes);    // UnknownArchiveVersion if newer
//     in.ReadClassVersion(2);                          // UnknownVersion if newer than 2
//     width = in.Read<int32_t>();
//     name = in.ReadString();
//     in.Finish();
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

#include "persist/ccByteDevice.h"
#include "xnl/std/except/ccException.h"

class ccArchive {
public:
    using Errors = ccErrorFamily<"ccArchive">;

    // Read past the end of the data.
    using Eof = ccError<Errors, "ccArchive::Eof", 0x10010001>;
    // A buffer that cannot be used (too small, too large, misaligned).
    using BadBuffer = ccError<Errors, "ccArchive::BadBuffer", 0x10010002>;
    // The underlying file or stream failed.
    using BadFile = ccError<Errors, "ccArchive::BadFile", 0x10010003>;
    // The stored type differs from the type asked for.
    using BadType = ccError<Errors, "ccArchive::BadType", 0x10010004>;
    // The data is not what the format allows (a bad length, count, tag or structure).
    using BadContent = ccError<Errors, "ccArchive::BadContent", 0x10010005>;
    // A name or object asked for is not stored.
    using NotFound = ccError<Errors, "ccArchive::NotFound", 0x10010006>;
    // A name written twice into one object's entries, or an object number used twice.
    using Duplicate = ccError<Errors, "ccArchive::Duplicate", 0x10010007>;
    // A stored type that this reader does not know.
    using UnknownType = ccError<Errors, "ccArchive::UnknownType", 0x10010008>;
    // A stored class version newer than the reader.
    using UnknownVersion = ccError<Errors, "ccArchive::UnknownVersion", 0x10010009>;
    // The operation needs a seekable device.
    using NotSeekable = ccError<Errors, "ccArchive::NotSeekable", 0x1001000A>;
    // An archive format version newer than the reader.
    using UnknownArchiveVersion = ccError<Errors, "ccArchive::UnknownArchiveVersion", 0x1001000B>;
    // Writing a newer object into an archive opened with an older format version.
    using CannotWriteToOldArchive = ccError<Errors, "ccArchive::CannotWriteToOldArchive", 0x1001000C>;

    // The first bytes of every archive. The high first byte marks binary data (and is no
    // character a text document starts with), CR LF catches line-ending conversion, and
    // 0x1A stops a text viewer.
    static constexpr std::array<uint8_t, 8> kMagic = {0x89, 'T', 'S', 'A', 'R', '\r', '\n', 0x1A};
    static constexpr size_t kHeaderSize = 12;
    // The newest format this code reads and writes, and the oldest it can still write.
    static constexpr uint16_t kFormatVersion = 1;
    static constexpr uint16_t kOldestFormatVersion = 1;
    // Bytes gathered before they go to the device; larger blocks go through directly.
    static constexpr size_t kBufferSize = 4096;

    // Reads and checks the header: BadContent when the magic is missing or the reserved
    // field is set, Eof when the data is shorter than a header, UnknownArchiveVersion for
    // a format newer than kFormatVersion.
    static ccArchive ForReading(ccByteDevice& device) { return ccArchive(device, Mode::Load, 0); }
    // Writes the header of `formatVersion` (into the buffer: nothing reaches the device
    // before Flush). UnknownArchiveVersion for a version this code cannot write.
    static ccArchive ForWriting(ccByteDevice& device, uint16_t formatVersion = kFormatVersion) {
        return ccArchive(device, Mode::Store, formatVersion);
    }
    // Whether data beginning with `firstBytes` may be an archive: they match the magic for
    // as many bytes as they hold (at least one).
    static bool LooksLikeArchive(std::span<const uint8_t> firstBytes) noexcept;

    ccArchive(const ccArchive&) = delete;
    ccArchive& operator=(const ccArchive&) = delete;
    // Bytes still buffered by a writer are dropped: only Finish writes them, so that a
    // save abandoned by a failure leaves nothing half-buffered behind.
    virtual ~ccArchive();

    bool IsLoading() const noexcept { return mode_ == Mode::Load; }
    bool IsStoring() const noexcept { return mode_ == Mode::Store; }
    uint16_t FormatVersion() const noexcept { return formatVersion_; }
    // Bytes read or written so far, the header included.
    uint64_t Position() const noexcept { return position_; }
    // Reading: the bytes that remain to be read.
    uint64_t Remaining() const noexcept { return (end_ - begin_) + deviceRemaining_; }

    // Numbers and booleans, little-endian, in their natural size (a bool is one byte,
    // 0 or 1; any other stored byte is BadContent).
    template <class T>
        requires std::is_arithmetic_v<T>
    void Write(T value) {
        RequireMode(Mode::Store);
        uint8_t bytes[sizeof(T)];
        ToLittleEndian(value, bytes);
        if (end_ + sizeof(T) > kBufferSize) FlushBuffer();
        std::memcpy(buffer_.get() + end_, bytes, sizeof(T));
        end_ += sizeof(T);
        position_ += sizeof(T);
    }
    template <class T>
        requires std::is_arithmetic_v<T>
    T Read() {
        RequireMode(Mode::Load);
        if (end_ - begin_ < sizeof(T)) Refill(sizeof(T));
        T value = FromLittleEndian<T>(buffer_.get() + begin_);
        begin_ += sizeof(T);
        position_ += sizeof(T);
        if constexpr (std::is_same_v<T, bool>) CheckBool(buffer_[begin_ - 1]);
        return value;
    }

    // A string: its byte count (uint32) and its UTF-8 bytes. BadContent when longer than
    // a uint32 counts.
    void WriteString(std::string_view text);
    std::string ReadString();
    // The same into `text`, reusing its room.
    void ReadString(std::string& text);
    // Reading: the next `size` bytes where they lie in the archive's buffer, consumed, when
    // they are all there; null (nothing consumed) when not. Lets a caller copy a value
    // once, into storage of its own.
    const uint8_t* TakeBuffered(size_t size) noexcept {
        if (mode_ != Mode::Load || end_ - begin_ < size) return nullptr;
        const uint8_t* bytes = buffer_.get() + begin_;
        begin_ += size;
        position_ += size;
        return bytes;
    }
    // The byte count of data that follows (uint32), checked against what remains (Eof when
    // it claims more): the caller then reads the bytes with ReadBlock into storage of its
    // own, allocated only after this check.
    uint32_t ReadLength();
    // A count of items that follow, each taking at least `minimumItemSize` bytes (uint32):
    // Eof when that many items could not fit in what remains.
    uint32_t ReadCount(size_t minimumItemSize);

    // Raw bytes, as they are, with no length: the caller has written the size before.
    void WriteBlock(const void* data, size_t size);
    // Exactly `size` bytes; Eof, before anything is read, when fewer remain.
    void ReadBlock(void* data, size_t size);

    // The version of the class whose data follows (uint32). Reading, UnknownVersion when
    // the stored version is newer than `newestKnown`; the stored version is returned so
    // that a reader can handle the older ones.
    void WriteClassVersion(uint32_t version);
    uint32_t ReadClassVersion(uint32_t newestKnown);

    // Writing something that the format only holds from version `needed` on:
    // CannotWriteToOldArchive when the archive was opened with an older one. Reading,
    // whether the stored format has it.
    void RequireFormatVersion(uint16_t needed);
    bool HasFormatVersion(uint16_t needed) const noexcept { return formatVersion_ >= needed; }

    // Writing: hands the buffered bytes to the device.
    void Flush();
    // Writing: flushes. Reading: gives back to the device what was read ahead and not
    // used, leaving the device just after the archive's last byte read.
    void Finish();

protected:
    enum class Mode : uint8_t { Load, Store };

    // An archive that a derived class opens once its device exists.
    ccArchive() = default;
    void Open(ccByteDevice& device, Mode mode, uint16_t formatVersion);
    // Lets go of the device: every later read or write is refused.
    void Close() noexcept { device_ = nullptr; }

private:
    ccArchive(ccByteDevice& device, Mode mode, uint16_t formatVersion) { Open(device, mode, formatVersion); }

    template <class T>
    static void ToLittleEndian(T value, uint8_t* bytes) noexcept {
        if constexpr (std::is_same_v<T, bool>) {
            bytes[0] = value ? 1 : 0;
        } else {
            std::memcpy(bytes, &value, sizeof(T));
            if constexpr (std::endian::native == std::endian::big) ReverseBytes(bytes, sizeof(T));
        }
    }
    template <class T>
    static T FromLittleEndian(const uint8_t* stored) noexcept {
        if constexpr (std::is_same_v<T, bool>) {
            return stored[0] != 0;
        } else {
            uint8_t bytes[sizeof(T)];
            std::memcpy(bytes, stored, sizeof(T));
            if constexpr (std::endian::native == std::endian::big) ReverseBytes(bytes, sizeof(T));
            T value;
            std::memcpy(&value, bytes, sizeof(T));
            return value;
        }
    }
    static void ReverseBytes(uint8_t* bytes, size_t size) noexcept;

    void RequireMode(Mode mode) const {
        if (mode_ != mode || !device_) [[unlikely]]
            WrongMode();
    }
    [[noreturn]] void WrongMode() const;
    static void CheckBool(uint8_t stored);
    // Makes at least `size` unread bytes lie in the buffer (size <= kBufferSize).
    void Refill(size_t size);
    void FlushBuffer();
    // Eof unless `size` bytes remain.
    void Require(uint64_t size, const char* what) const;

    ccByteDevice* device_ = nullptr;
    Mode mode_ = Mode::Load;
    uint16_t formatVersion_ = 0;
    std::unique_ptr<uint8_t[]> buffer_;
    // Reading: the unread bytes of the buffer are [begin_, end_). Writing: [0, end_) waits
    // for the device.
    size_t begin_ = 0;
    size_t end_ = 0;
    uint64_t position_ = 0;
    // Reading: what the device holds beyond the buffer.
    uint64_t deviceRemaining_ = 0;
};
