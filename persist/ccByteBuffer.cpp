#include "persist/ccByteBuffer.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "persist/ccArchive.h"

size_t ccByteBuffer::Read(void* data, size_t size) {
    const size_t count = std::min(size, bytes_.size() - position_);
    if (count != 0) std::memcpy(data, bytes_.data() + position_, count);
    position_ += count;
    return count;
}

void ccByteBuffer::Write(const void* data, size_t size) {
    if (size == 0) return;
    const auto* first = static_cast<const uint8_t*>(data);
    bytes_.insert(bytes_.end(), first, first + size);
}

void ccByteBuffer::Unread(size_t size) {
    if (size > position_) throw ccArchive::BadBuffer("stepping back before the start of the buffer");
    position_ -= size;
}

std::vector<uint8_t> ccByteBuffer::TakeBytes() noexcept {
    position_ = 0;
    return std::exchange(bytes_, {});
}
