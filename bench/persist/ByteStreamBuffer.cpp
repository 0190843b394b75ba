#include "ByteStreamBuffer.h"

namespace tessaly::bench {

ByteStreamBuffer::ByteStreamBuffer(std::vector<uint8_t>& sink) noexcept : sink_(&sink) {}

ByteStreamBuffer::ByteStreamBuffer(std::span<const uint8_t> source) noexcept {
    // The get area is only ever read through; std::streambuf wants it non-const.
    char* begin = const_cast<char*>(reinterpret_cast<const char*>(source.data()));
    setg(begin, begin, begin + source.size());
}

std::streamsize ByteStreamBuffer::xsputn(const char* data, std::streamsize count) {
    if (!sink_) return 0;
    const auto* bytes = reinterpret_cast<const uint8_t*>(data);
    sink_->insert(sink_->end(), bytes, bytes + count);
    return count;
}

ByteStreamBuffer::int_type ByteStreamBuffer::overflow(int_type ch) {
    if (!sink_ || traits_type::eq_int_type(ch, traits_type::eof())) return traits_type::eof();
    sink_->push_back(static_cast<uint8_t>(ch));
    return ch;
}

}  // namespace tessaly::bench
