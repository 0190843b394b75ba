#include "com/image/files/PnmCodec.h"

#include <cstring>
#include <string_view>

#include "com/image/files/PlaneRows.h"
#include "com/image/files/ccImageFile.h"

namespace tessaly::image {

namespace {

bool IsSpace(uint8_t c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

// Reads the header fields and plain values from the bytes, refusing what is malformed.
class PnmScanner {
public:
    PnmScanner(std::span<const uint8_t> bytes, const std::string& file) : bytes_(bytes), file_(file) {}

    size_t Position() const noexcept { return position_; }
    void Skip(size_t count) noexcept { position_ += count; }

    // Whitespace and comments.
    void SkipSpace() noexcept {
        while (position_ < bytes_.size()) {
            if (bytes_[position_] == '#') {
                while (position_ < bytes_.size() && bytes_[position_] != '\n' && bytes_[position_] != '\r')
                    ++position_;
            } else if (IsSpace(bytes_[position_])) {
                ++position_;
            } else {
                return;
            }
        }
    }

    bool AtEnd() noexcept {
        SkipSpace();
        return position_ == bytes_.size();
    }

    // A decimal number after optional whitespace. Numbers above `largest` are refused as
    // `what` being too large (they are never read to the end, so nothing overflows).
    int64_t Number(const char* what, int64_t largest) {
        SkipSpace();
        if (position_ == bytes_.size()) Fail(std::string("truncated before the ") + what);
        if (bytes_[position_] < '0' || bytes_[position_] > '9') Fail(std::string("the ") + what + " is not a number");
        int64_t value = 0;
        while (position_ < bytes_.size() && bytes_[position_] >= '0' && bytes_[position_] <= '9') {
            value = value * 10 + (bytes_[position_++] - '0');
            if (value > largest) return value;
        }
        if (position_ < bytes_.size() && !IsSpace(bytes_[position_]) && bytes_[position_] != '#')
            Fail(std::string("the ") + what + " is not a number");
        return value;
    }

    [[noreturn]] void Fail(const std::string& reason) const { throw ccImageFile::BadFormat(file_ + ": " + reason); }

private:
    std::span<const uint8_t> bytes_;
    const std::string& file_;
    size_t position_ = 0;
};

struct PnmHeader {
    bool colour = false;
    bool plain = false;
    int32_t width = 0;
    int32_t height = 0;
    int32_t maxval = 0;
};

// The raster, sample by sample (channels samples a pixel), into `store(x, y, channel, value)`.
template <class Store>
void ReadRaster(PnmScanner& scanner, std::span<const uint8_t> bytes, const PnmHeader& header, Store&& store) {
    const int channels = header.colour ? 3 : 1;
    const auto refuse = [&](int64_t value, int32_t x, int32_t y) {
        scanner.Fail("value " + std::to_string(value) + " above the maxval " + std::to_string(header.maxval) +
                     " at pixel (" + std::to_string(x) + ", " + std::to_string(y) + ")");
    };
    if (header.plain) {
        for (int32_t y = 0; y < header.height; ++y)
            for (int32_t x = 0; x < header.width; ++x)
                for (int c = 0; c < channels; ++c) {
                    if (scanner.AtEnd()) scanner.Fail("truncated at row " + std::to_string(y));
                    const int64_t value = scanner.Number("value", header.maxval);
                    if (value > header.maxval) refuse(value, x, y);
                    store(x, y, c, static_cast<uint16_t>(value));
                }
        return;
    }
    // Raw: the samples follow the one whitespace byte after the maxval (CheckRawSize has
    // made sure that they are all there), big-endian when two bytes wide.
    const int sampleBytes = header.maxval > 255 ? 2 : 1;
    const uint8_t* sample = bytes.data() + scanner.Position() + 1;
    for (int32_t y = 0; y < header.height; ++y)
        for (int32_t x = 0; x < header.width; ++x)
            for (int c = 0; c < channels; ++c) {
                const uint16_t value = sampleBytes == 2 ? static_cast<uint16_t>(sample[0] << 8 | sample[1]) : sample[0];
                sample += sampleBytes;
                if (value > header.maxval) refuse(value, x, y);
                store(x, y, c, value);
            }
}

// A raw file must hold every row after its header, checked before a pixel is allocated:
// "truncated at row N" names the first row it does not hold whole.
void CheckRawSize(const PnmScanner& scanner, std::span<const uint8_t> bytes, const PnmHeader& header) {
    if (scanner.Position() >= bytes.size()) scanner.Fail("truncated at row 0");
    if (!IsSpace(bytes[scanner.Position()])) scanner.Fail("no whitespace after the maxval");
    const size_t rowBytes =
        static_cast<size_t>(header.width) * (header.colour ? 3 : 1) * (header.maxval > 255 ? 2 : 1);
    const size_t available = bytes.size() - scanner.Position() - 1;
    if (available / rowBytes < static_cast<size_t>(header.height))
        scanner.Fail("truncated at row " + std::to_string(available / rowBytes));
}

}  // namespace

bool PnmCodec::Recognises(std::span<const uint8_t> bytes) noexcept {
    return bytes.size() >= 3 && bytes[0] == 'P' &&
           (bytes[1] == '2' || bytes[1] == '3' || bytes[1] == '5' || bytes[1] == '6') &&
           (IsSpace(bytes[2]) || bytes[2] == '#');
}

ImageFilePixels PnmCodec::Read(std::span<const uint8_t> bytes, const std::string& file, const ImageFileLimits& limits) {
    PnmScanner scanner(bytes, file);
    if (!Recognises(bytes)) scanner.Fail("not a PGM or PPM file");
    PnmHeader header;
    header.colour = bytes[1] == '3' || bytes[1] == '6';
    header.plain = bytes[1] == '2' || bytes[1] == '3';
    scanner.Skip(2);
    // Sides above the limit are refused by the limits, whatever digits follow.
    const int64_t width = scanner.Number("width", ImageFileLimits::kMaxSide + 1);
    const int64_t height = scanner.Number("height", ImageFileLimits::kMaxSide + 1);
    limits.Check(width, height, file);
    header.width = static_cast<int32_t>(width);
    header.height = static_cast<int32_t>(height);
    const int64_t maxval = scanner.Number("maxval", 65536);
    if (maxval < 1 || maxval > 65535) scanner.Fail("maxval " + std::to_string(maxval) + " is not in 1..65535");
    if (header.colour && maxval > 255) scanner.Fail("16-bit PPM samples are not supported");
    header.maxval = static_cast<int32_t>(maxval);
    if (!header.plain) {
        CheckRawSize(scanner, bytes, header);
    } else {
        // Each plain value takes a digit and a separator at least: a file too short for
        // that many is refused before a pixel is allocated.
        const uint64_t values = static_cast<uint64_t>(header.width) * header.height * (header.colour ? 3 : 1);
        if (bytes.size() - scanner.Position() < 2 * values - 1)
            scanner.Fail("truncated: " + std::to_string(values) + " values cannot fit in the " +
                         std::to_string(bytes.size() - scanner.Position()) + " bytes that follow the header");
    }

    if (header.colour) {
        cc3PlanePelBuffer rgb(header.width, header.height);
        uint8_t* rows[3] = {nullptr, nullptr, nullptr};
        int32_t rowY = -1;
        ReadRaster(scanner, bytes, header, [&](int32_t x, int32_t y, int c, uint16_t value) {
            if (y != rowY) {
                for (int p = 0; p < 3; ++p) rows[p] = rgb.Plane(p).RowPointer(y);
                rowY = y;
            }
            rows[c][x] = static_cast<uint8_t>(value);
        });
        return ImageFilePixels(std::move(rgb));
    }
    if (header.maxval > 255) {
        ccPelBuffer<uint16_t> grey(header.width, header.height);
        ReadRaster(scanner, bytes, header,
                   [&](int32_t x, int32_t y, int, uint16_t value) { grey.RowPointer(y)[x] = value; });
        return ImageFilePixels(std::move(grey));
    }
    ccPelBuffer<uint8_t> grey(header.width, header.height);
    ReadRaster(scanner, bytes, header,
               [&](int32_t x, int32_t y, int, uint16_t value) { grey.RowPointer(y)[x] = static_cast<uint8_t>(value); });
    return ImageFilePixels(std::move(grey));
}

std::vector<uint8_t> PnmCodec::Write(const ImageFilePixels& pixels, bool ppm, const std::string& file) {
    const bool colour = pixels.Kind() == ImageFileKind::Rgb8;
    if (colour != ppm)
        throw ccImageFile::WriteFailed(file + ": " + (ppm ? "PPM holds RGB8 pixels, not " : "PGM holds grey pixels, not ") +
                                       ImageFilePixels::KindName(pixels.Kind()));
    const int32_t width = pixels.Width();
    const int32_t height = pixels.Height();
    const bool wide = pixels.Kind() == ImageFileKind::Grey16;
    const std::string header = std::string(colour ? "P6" : "P5") + "\n" + std::to_string(width) + " " +
                               std::to_string(height) + "\n" + (wide ? "65535" : "255") + "\n";
    const size_t rowBytes = static_cast<size_t>(width) * (colour ? 3 : wide ? 2 : 1);
    std::vector<uint8_t> out(header.size() + rowBytes * static_cast<size_t>(height));
    std::memcpy(out.data(), header.data(), header.size());
    uint8_t* row = out.data() + header.size();
    for (int32_t y = 0; y < height; ++y, row += rowBytes) {
        if (colour) {
            const cc3PlanePelBuffer& rgb = pixels.Rgb8();
            PlaneRows::Join(rgb.Plane(0).RowPointer(y), rgb.Plane(1).RowPointer(y), rgb.Plane(2).RowPointer(y), width,
                            row);
        } else if (wide) {
            const uint16_t* values = pixels.Grey16().RowPointer(y);
            for (int32_t x = 0; x < width; ++x) {
                row[2 * x] = static_cast<uint8_t>(values[x] >> 8);
                row[2 * x + 1] = static_cast<uint8_t>(values[x]);
            }
        } else {
            std::memcpy(row, pixels.Grey8().RowPointer(y), rowBytes);
        }
    }
    return out;
}

}  // namespace tessaly::image
