#include "persist/ccArchive.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "xnl/std/except/ccStdError.h"

namespace {

std::string Offset(uint64_t position) { return " at offset " + std::to_string(position); }

}  // namespace

ccArchive::~ccArchive() = default;

bool ccArchive::LooksLikeArchive(std::span<const uint8_t> firstBytes) noexcept {
    if (firstBytes.empty()) return false;
    const size_t count = std::min(firstBytes.size(), kMagic.size());
    return std::equal(firstBytes.begin(), firstBytes.begin() + static_cast<std::ptrdiff_t>(count), kMagic.begin());
}

void ccArchive::Open(ccByteDevice& device, Mode mode, uint16_t formatVersion) {
    buffer_ = std::make_unique<uint8_t[]>(kBufferSize);
    mode_ = mode;
    if (mode == Mode::Store) {
        if (formatVersion < kOldestFormatVersion || formatVersion > kFormatVersion)
            throw UnknownArchiveVersion("cannot write format version " + std::to_string(formatVersion));
        device_ = &device;
        formatVersion_ = formatVersion;
        WriteBlock(kMagic.data(), kMagic.size());
        Write<uint16_t>(formatVersion);
        Write<uint16_t>(0);
        return;
    }
    deviceRemaining_ = device.Remaining();
    device_ = &device;
    std::array<uint8_t, kMagic.size()> magic{};
    if (Remaining() < kHeaderSize) {
        // A short input that does not even start like an archive is foreign, not cut off.
        const size_t count = static_cast<size_t>(std::min<uint64_t>(Remaining(), magic.size()));
        ReadBlock(magic.data(), count);
        if (count != 0 && !LooksLikeArchive(std::span(magic.data(), count))) throw BadContent("not an archive: no magic bytes");
        throw Eof("the data ends inside the archive header");
    }
    ReadBlock(magic.data(), magic.size());
    if (magic != kMagic) throw BadContent("not an archive: no magic bytes");
    const uint16_t version = Read<uint16_t>();
    const uint16_t reserved = Read<uint16_t>();
    if (version > kFormatVersion)
        throw UnknownArchiveVersion("format version " + std::to_string(version) + ", this reader knows up to " +
                                    std::to_string(kFormatVersion));
    if (version < kOldestFormatVersion) throw BadContent("format version " + std::to_string(version));
    if (reserved != 0) throw BadContent("reserved header field is " + std::to_string(reserved));
    formatVersion_ = version;
}

void ccArchive::ReverseBytes(uint8_t* bytes, size_t size) noexcept { std::reverse(bytes, bytes + size); }

void ccArchive::WrongMode() const {
    if (!device_) throw ccStdError::Unexpected("the archive is not open");
    throw ccStdError::Unexpected(mode_ == Mode::Load ? "writing to an archive opened for reading"
                                                     : "reading from an archive opened for writing");
}

void ccArchive::CheckBool(uint8_t stored) {
    if (stored > 1) throw BadContent("a boolean stored as " + std::to_string(stored));
}

void ccArchive::Require(uint64_t size, const char* what) const {
    if (size > Remaining())
        throw Eof(std::string(what) + " of " + std::to_string(size) + " bytes" + Offset(position_) + ", " +
                  std::to_string(Remaining()) + " remain");
}

void ccArchive::Refill(size_t size) {
    Require(size, "a value");
    // Keep the unread bytes, then read ahead as far as the buffer reaches.
    const size_t kept = end_ - begin_;
    std::memmove(buffer_.get(), buffer_.get() + begin_, kept);
    begin_ = 0;
    end_ = kept;
    const size_t wanted = static_cast<size_t>(std::min<uint64_t>(kBufferSize - kept, deviceRemaining_));
    size_t got = 0;
    while (got < wanted) {
        const size_t n = device_->Read(buffer_.get() + end_ + got, wanted - got);
        if (n == 0) break;
        got += n;
    }
    end_ += got;
    deviceRemaining_ -= got;
    if (got < wanted) {
        // The device held less than it announced.
        deviceRemaining_ = 0;
        if (end_ < size) throw Eof("the data ends" + Offset(position_ + end_));
    }
}

void ccArchive::FlushBuffer() {
    if (end_ == 0) return;
    const size_t size = end_;
    end_ = 0;  // a failing device must not see these bytes twice
    device_->Write(buffer_.get(), size);
}

void ccArchive::Flush() {
    RequireMode(Mode::Store);
    FlushBuffer();
}

void ccArchive::Finish() {
    if (!device_) return;
    if (mode_ == Mode::Store) {
        FlushBuffer();
        return;
    }
    const size_t unused = end_ - begin_;
    if (unused != 0) {
        device_->Unread(unused);
        deviceRemaining_ += unused;
        begin_ = end_ = 0;
    }
}

void ccArchive::WriteString(std::string_view text) {
    if (text.size() > std::numeric_limits<uint32_t>::max())
        throw BadContent("a string of " + std::to_string(text.size()) + " bytes");
    Write<uint32_t>(static_cast<uint32_t>(text.size()));
    WriteBlock(text.data(), text.size());
}

std::string ccArchive::ReadString() {
    std::string text;
    ReadString(text);
    return text;
}

void ccArchive::ReadString(std::string& text) {
    const uint32_t size = ReadLength();
    if (const uint8_t* bytes = TakeBuffered(size)) {
        // Nearly always buffered: copied once, into the room the string has already
        // (resize and copy: assign's general path, which allows for overlap, costs more
        // than the copy of a short name).
        text.resize(size);
        if (size) std::memcpy(text.data(), bytes, size);
        return;
    }
    text.resize(size);
    ReadBlock(text.data(), size);
}

uint32_t ccArchive::ReadLength() {
    const uint32_t size = Read<uint32_t>();
    Require(size, "a length");
    return size;
}

uint32_t ccArchive::ReadCount(size_t minimumItemSize) {
    const uint32_t count = Read<uint32_t>();
    if (minimumItemSize != 0 && count > Remaining() / minimumItemSize)
        throw Eof("a count of " + std::to_string(count) + " items" + Offset(position_ - sizeof(uint32_t)) + ", " +
                  std::to_string(Remaining()) + " bytes remain");
    return count;
}

void ccArchive::WriteBlock(const void* data, size_t size) {
    RequireMode(Mode::Store);
    if (size == 0) return;
    if (size <= kBufferSize - end_) {
        std::memcpy(buffer_.get() + end_, data, size);
        end_ += size;
    } else {
        FlushBuffer();
        if (size < kBufferSize) {
            std::memcpy(buffer_.get(), data, size);
            end_ = size;
        } else {
            device_->Write(data, size);  // large blocks in one piece, never copied
        }
    }
    position_ += size;
}

void ccArchive::ReadBlock(void* data, size_t size) {
    RequireMode(Mode::Load);
    if (size == 0) return;
    Require(size, "a block");
    auto* out = static_cast<uint8_t*>(data);
    const size_t buffered = std::min(size, end_ - begin_);
    std::memcpy(out, buffer_.get() + begin_, buffered);
    begin_ += buffered;
    size_t done = buffered;
    if (size - done >= kBufferSize) {
        // Straight from the device into the caller's memory.
        while (done < size) {
            const size_t n = device_->Read(out + done, size - done);
            if (n == 0) break;
            done += n;
            deviceRemaining_ -= std::min<uint64_t>(n, deviceRemaining_);
        }
        if (done < size) {
            deviceRemaining_ = 0;
            throw Eof("the data ends" + Offset(position_ + done));
        }
    } else if (done < size) {
        Refill(size - done);
        std::memcpy(out + done, buffer_.get() + begin_, size - done);
        begin_ += size - done;
    }
    position_ += size;
}

void ccArchive::WriteClassVersion(uint32_t version) { Write<uint32_t>(version); }

uint32_t ccArchive::ReadClassVersion(uint32_t newestKnown) {
    const uint32_t version = Read<uint32_t>();
    if (version > newestKnown)
        throw UnknownVersion("class version " + std::to_string(version) + ", this reader knows up to " +
                             std::to_string(newestKnown));
    return version;
}

void ccArchive::RequireFormatVersion(uint16_t needed) {
    if (mode_ == Mode::Store && formatVersion_ < needed)
        throw CannotWriteToOldArchive("needs format version " + std::to_string(needed) + ", the archive has " +
                                      std::to_string(formatVersion_));
}
