// A byte device over memory: writes append to a growing vector, reads run from a position
// that starts at the beginning. What archives travel in between threads and processes,
// and what the tests feed hand-made bytes through.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "persist/ccByteDevice.h"

class ccByteBuffer : public ccByteDevice {
public:
    ccByteBuffer() = default;
    // Bytes to read, taken over.
    explicit ccByteBuffer(std::vector<uint8_t> bytes) noexcept : bytes_(std::move(bytes)) {}
    // Bytes to read, copied.
    explicit ccByteBuffer(std::span<const uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}

    size_t Read(void* data, size_t size) override;
    void Write(const void* data, size_t size) override;
    uint64_t Remaining() override { return bytes_.size() - position_; }
    // ccArchive::BadBuffer when `size` is more than has been read.
    void Unread(size_t size) override;

    const std::vector<uint8_t>& Bytes() const noexcept { return bytes_; }
    // Gives up the bytes; the buffer is left empty, positioned at the start.
    std::vector<uint8_t> TakeBytes() noexcept;
    size_t Position() const noexcept { return position_; }

private:
    std::vector<uint8_t> bytes_;
    size_t position_ = 0;
};
