// A std::streambuf over bytes in memory, for the peers that write to and read from a
// std::ostream / std::istream: writes append to a byte vector (in one insert per call, so
// a large block costs one copy, as a vector-backed stream should), reads take from a span.
// Either direction per object: a buffer made over a vector only writes, one made over a
// span only reads.
#pragma once

#include <cstdint>
#include <span>
#include <streambuf>
#include <vector>

namespace tessaly::bench {

class ByteStreamBuffer : public std::streambuf {
public:
    explicit ByteStreamBuffer(std::vector<uint8_t>& sink) noexcept;
    explicit ByteStreamBuffer(std::span<const uint8_t> source) noexcept;

protected:
    std::streamsize xsputn(const char* data, std::streamsize count) override;
    int_type overflow(int_type ch) override;

private:
    std::vector<uint8_t>* sink_ = nullptr;
};

}  // namespace tessaly::bench
