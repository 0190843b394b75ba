#include "imagefile/ImageFileFixtures.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
// clang-format off
#include <jpeglib.h>
// clang-format on

namespace tessaly::test {

namespace {

void Put32Big(Bytes& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<uint8_t>(value >> shift));
}

void PutLittle(Bytes& out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

void PatchLittle32(Bytes& out, size_t at, uint32_t value) {
    for (int i = 0; i < 4; ++i) out[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

void PutChunk(Bytes& out, const std::string& type, const Bytes& data) {
    Put32Big(out, static_cast<uint32_t>(data.size()));
    Bytes body(type.begin(), type.end());
    body.insert(body.end(), data.begin(), data.end());
    out.insert(out.end(), body.begin(), body.end());
    Put32Big(out, static_cast<uint32_t>(crc32(0, body.data(), static_cast<uInt>(body.size()))));
}

}  // namespace

Bytes MakePng(uint32_t width, uint32_t height, int bitDepth, int colourType, const Bytes& scanlines,
              const std::vector<std::pair<std::string, Bytes>>& chunks, int interlace) {
    Bytes out = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    Bytes header;
    Put32Big(header, width);
    Put32Big(header, height);
    header.insert(header.end(), {static_cast<uint8_t>(bitDepth), static_cast<uint8_t>(colourType), 0, 0,
                                 static_cast<uint8_t>(interlace)});
    PutChunk(out, "IHDR", header);
    for (const auto& [type, data] : chunks) PutChunk(out, type, data);
    uLongf packedSize = compressBound(static_cast<uLong>(scanlines.size()));
    Bytes packed(packedSize);
    if (compress(packed.data(), &packedSize, scanlines.data(), static_cast<uLong>(scanlines.size())) != Z_OK)
        throw std::runtime_error("compress failed");
    packed.resize(packedSize);
    PutChunk(out, "IDAT", packed);
    PutChunk(out, "IEND", {});
    return out;
}

Bytes MakeTiff(const std::vector<TiffPage>& pages) {
    Bytes out = {'I', 'I', 42, 0, 0, 0, 0, 0};
    size_t nextPointer = 4;  // where the offset of the next directory goes
    for (const TiffPage& page : pages) {
        std::vector<uint32_t> offsets;
        std::vector<uint32_t> counts;
        for (const Bytes& strip : page.strips) {
            offsets.push_back(static_cast<uint32_t>(out.size()));
            counts.push_back(static_cast<uint32_t>(strip.size()));
            out.insert(out.end(), strip.begin(), strip.end());
        }
        if (out.size() % 2) out.push_back(0);
        std::vector<TiffEntry> entries = {
            {256, 4, {page.width}},
            {257, 4, {page.height}},
            {258, 3, std::vector<uint32_t>(page.samples, page.bits)},
            {259, 3, {1}},
            {262, 3, {page.photometric}},
            {273, 4, offsets},
            {277, 3, {page.samples}},
            {278, 4, {page.height}},
            {279, 4, counts},
            {284, 3, {page.planar}},
        };
        for (const TiffEntry& entry : page.extra) {
            std::erase_if(entries, [&](const TiffEntry& e) { return e.tag == entry.tag; });
            entries.push_back(entry);
        }
        std::sort(entries.begin(), entries.end(), [](const TiffEntry& a, const TiffEntry& b) { return a.tag < b.tag; });
        const size_t directory = out.size();
        PatchLittle32(out, nextPointer, static_cast<uint32_t>(directory));
        size_t outside = directory + 2 + 12 * entries.size() + 4;
        Bytes outsideData;
        PutLittle(out, static_cast<uint32_t>(entries.size()), 2);
        for (const TiffEntry& entry : entries) {
            const int size = entry.type == 3 ? 2 : 4;
            PutLittle(out, entry.tag, 2);
            PutLittle(out, entry.type, 2);
            PutLittle(out, static_cast<uint32_t>(entry.values.size()), 4);
            Bytes values;
            for (uint32_t value : entry.values) PutLittle(values, value, size);
            if (values.size() <= 4) {
                values.resize(4, 0);
                out.insert(out.end(), values.begin(), values.end());
            } else {
                PutLittle(out, static_cast<uint32_t>(outside + outsideData.size()), 4);
                outsideData.insert(outsideData.end(), values.begin(), values.end());
            }
        }
        nextPointer = out.size();
        PutLittle(out, 0, 4);
        out.insert(out.end(), outsideData.begin(), outsideData.end());
    }
    return out;
}

Bytes MakeJpeg(uint32_t width, uint32_t height, int components, const Bytes& samples) {
    jpeg_compress_struct info{};
    jpeg_error_mgr errors{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&info, &buffer, &size);
    info.image_width = width;
    info.image_height = height;
    info.input_components = components;
    info.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 95, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < height) {
        auto* row = const_cast<JSAMPLE*>(samples.data() + static_cast<size_t>(info.next_scanline) * width * components);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    Bytes out(buffer, buffer + size);
    jpeg_destroy_compress(&info);
    std::free(buffer);
    return out;
}

Bytes ReadBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::filesystem::path& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

image::ImageFilePixels RandomPixels(image::ImageFileKind kind, int32_t width, int32_t height, uint32_t seed) {
    uint32_t state = seed * 2654435761u + 1;
    const auto next = [&] {
        state = state * 1664525u + 1013904223u;
        return state >> 8;
    };
    switch (kind) {
        case image::ImageFileKind::Grey8: {
            ccPelBuffer<uint8_t> grey(width, height);
            for (int32_t y = 0; y < height; ++y)
                for (int32_t x = 0; x < width; ++x) grey.Set(x, y, static_cast<uint8_t>(next()));
            return image::ImageFilePixels(grey);
        }
        case image::ImageFileKind::Grey16: {
            ccPelBuffer<uint16_t> grey(width, height);
            for (int32_t y = 0; y < height; ++y)
                for (int32_t x = 0; x < width; ++x) grey.Set(x, y, static_cast<uint16_t>(next()));
            return image::ImageFilePixels(grey);
        }
        case image::ImageFileKind::Rgb8:
            break;
    }
    cc3PlanePelBuffer rgb(width, height);
    for (int32_t y = 0; y < height; ++y)
        for (int32_t x = 0; x < width; ++x)
            rgb.Set(x, y, {static_cast<uint8_t>(next()), static_cast<uint8_t>(next()), static_cast<uint8_t>(next())});
    return image::ImageFilePixels(rgb);
}

std::string Difference(const image::ImageFilePixels& expected, const image::ImageFilePixels& actual) {
    using image::ImageFileKind;
    using image::ImageFilePixels;
    if (expected.Kind() != actual.Kind())
        return std::string("kind ") + ImageFilePixels::KindName(actual.Kind()) + ", expected " +
               ImageFilePixels::KindName(expected.Kind());
    if (expected.Width() != actual.Width() || expected.Height() != actual.Height())
        return "size " + std::to_string(actual.Width()) + " x " + std::to_string(actual.Height());
    for (int32_t y = 0; y < expected.Height(); ++y)
        for (int32_t x = 0; x < expected.Width(); ++x) {
            uint32_t want[3] = {};
            uint32_t got[3] = {};
            switch (expected.Kind()) {
                case ImageFileKind::Grey8:
                    want[0] = expected.Grey8().Get(x, y);
                    got[0] = actual.Grey8().Get(x, y);
                    break;
                case ImageFileKind::Grey16:
                    want[0] = expected.Grey16().Get(x, y);
                    got[0] = actual.Grey16().Get(x, y);
                    break;
                case ImageFileKind::Rgb8:
                    for (int p = 0; p < 3; ++p) {
                        want[p] = expected.Rgb8().Plane(p).Get(x, y);
                        got[p] = actual.Rgb8().Plane(p).Get(x, y);
                    }
                    break;
            }
            for (int p = 0; p < 3; ++p)
                if (want[p] != got[p])
                    return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") plane " + std::to_string(p) +
                           ": " + std::to_string(got[p]) + ", expected " + std::to_string(want[p]);
        }
    return {};
}

}  // namespace tessaly::test
