#include "ImagePng.h"

#include <cstring>

#include "ClientObject.h"
#include "ComError.h"
#include "SlotGuard.h"
#include "TessalyCore.h"
#include "platform/ComPtr.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

void AppendBigEndian(std::string& out, uint32_t value) {
    const char bytes[4] = {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                           static_cast<char>(value >> 8), static_cast<char>(value)};
    out.append(bytes, 4);
}

void AppendChunk(std::string& out, const py::module_& zlib, const char* type, const std::string& data) {
    AppendBigEndian(out, static_cast<uint32_t>(data.size()));
    std::string typed(type, 4);
    typed += data;
    out += typed;
    const auto crc = zlib.attr("crc32")(py::bytes(typed)).cast<uint32_t>();
    AppendBigEndian(out, crc);
}

void Check(HRESULT hr, const char* source) {
    if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, source);
}

// The pixels a pixel-memory object opens, read while it is held.
struct Plane {
    LONG width = 0;
    LONG height = 0;
    LONG stride = 0;
    const std::byte* scan0 = nullptr;

    template <class IMemory>
    explicit Plane(IMemory* memory) {
        LONGLONG address = 0;
        Check(memory->get_Width(&width), "Width");
        Check(memory->get_Height(&height), "Height");
        Check(memory->get_Stride(&stride), "Stride");
        Check(memory->get_Scan0(&address), "Scan0");
        scan0 = reinterpret_cast<const std::byte*>(static_cast<intptr_t>(address));
    }
    template <class Pel>
    Pel At(int32_t x, int32_t y) const {
        Pel value;
        std::memcpy(&value, scan0 + (ptrdiff_t{y} * stride + x) * ptrdiff_t{sizeof(Pel)}, sizeof(Pel));
        return value;
    }
};

template <class IData, class IMemory, class Pel>
py::object GreyPng(IDispatch* image, HRESULT (IData::*open)(LuxImageDataModeConstants, LONG, LONG, LONG, LONG, IMemory**)) {
    ComPtr<IData> data;
    Check(image->QueryInterface(IData::iid, data.OutVoid()), "_repr_png_");
    ComPtr<IMemory> memory;
    Check(((*data).*open)(luxImageDataModeRead, 0, 0, 0, 0, memory.Out()), "_repr_png_");
    const Plane plane(memory.get());
    const size_t rowBytes = 1 + size_t(plane.width) * sizeof(Pel);
    std::string rows(rowBytes * size_t(plane.height), '\0');
    for (int32_t y = 0; y < plane.height; ++y) {
        char* row = rows.data() + size_t(y) * rowBytes + 1;  // after the filter byte
        for (int32_t x = 0; x < plane.width; ++x) {
            const Pel value = plane.At<Pel>(x, y);
            if constexpr (sizeof(Pel) == 1) {
                row[x] = static_cast<char>(value);
            } else {
                row[2 * x] = static_cast<char>(value >> 8);
                row[2 * x + 1] = static_cast<char>(value & 0xFF);
            }
        }
    }
    return ImagePng::Encode(plane.width, plane.height, 1, 8 * sizeof(Pel), rows);
}

py::object PlanarPng(IDispatch* image) {
    ComPtr<ILuxImage24PlanarColorData> data;
    Check(image->QueryInterface(ILuxImage24PlanarColorData::iid, data.OutVoid()), "_repr_png_");
    ComPtr<ILuxImage8PixelMemory> memory[3];
    Check(data->Get24PlanarColorPixelMemory(luxImageDataModeRead, 0, 0, 0, 0, memory[0].Out(), memory[1].Out(),
                                            memory[2].Out()),
          "_repr_png_");
    const Plane planes[3] = {Plane(memory[0].get()), Plane(memory[1].get()), Plane(memory[2].get())};
    const int32_t width = planes[0].width;
    const int32_t height = planes[0].height;
    const size_t rowBytes = 1 + size_t(width) * 3;
    std::string rows(rowBytes * size_t(height), '\0');
    for (int32_t y = 0; y < height; ++y) {
        char* row = rows.data() + size_t(y) * rowBytes + 1;
        for (int32_t x = 0; x < width; ++x)
            for (int c = 0; c < 3; ++c) row[3 * x + c] = static_cast<char>(planes[c].At<uint8_t>(x, y));
    }
    return ImagePng::Encode(width, height, 3, 8, rows);
}

PyObject* ReprPng(PyObject* self, PyObject*) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        IDispatch* image = ClientObject::Dispatch(self);
        ComPtr<ILuxImage> common;
        Check(image->QueryInterface(ILuxImage::iid, common.OutVoid()), "_repr_png_");
        VARIANT_BOOL allocated = VARIANT_FALSE;
        Check(common->get_Allocated(&allocated), "Allocated");
        if (allocated == VARIANT_FALSE) Py_RETURN_NONE;
        py::object png;
        if (ComPtr<ILuxImage8Grey> grey8; SUCCEEDED(image->QueryInterface(ILuxImage8Grey::iid, grey8.OutVoid())))
            png = GreyPng<ILuxImage8GreyData, ILuxImage8PixelMemory, uint8_t>(image,
                                                                             &ILuxImage8GreyData::Get8GreyPixelMemory);
        else if (ComPtr<ILuxImage16Grey> grey16;
                 SUCCEEDED(image->QueryInterface(ILuxImage16Grey::iid, grey16.OutVoid())))
            png = GreyPng<ILuxImage16GreyData, ILuxImage16PixelMemory, uint16_t>(
                image, &ILuxImage16GreyData::Get16GreyPixelMemory);
        else
            png = PlanarPng(image);
        return png.release().ptr();
    });
}

PyMethodDef kReprMethod = {"_repr_png_", ReprPng, METH_NOARGS,
                           "_repr_png_() -> bytes or None\n\n"
                           "The image as a PNG file (how notebooks show it); None without pixels."};

}  // namespace

py::bytes ImagePng::Encode(int32_t width, int32_t height, int channels, int bitDepth, const std::string& rows) {
    const py::module_ zlib = py::module_::import("zlib");
    static constexpr char kSignature[] = "\x89PNG\r\n\x1a\n";
    std::string png(kSignature, 8);
    std::string header;
    AppendBigEndian(header, static_cast<uint32_t>(width));
    AppendBigEndian(header, static_cast<uint32_t>(height));
    header += static_cast<char>(bitDepth);
    header += static_cast<char>(channels == 3 ? 2 : 0);  // colour type: truecolour or greyscale
    header.append(3, '\0');                              // deflate, adaptive filters, no interlace
    AppendChunk(png, zlib, "IHDR", header);
    const py::bytes compressed = zlib.attr("compress")(py::bytes(rows), 6);
    AppendChunk(png, zlib, "IDAT", std::string(compressed));
    AppendChunk(png, zlib, "IEND", std::string());
    return py::bytes(png);
}

bool ImagePng::IsImageClass(std::string_view coclass) noexcept {
    return coclass == "LuxImage8Grey" || coclass == "LuxImage16Grey" || coclass == "LuxImage24PlanarColor";
}

PyMethodDef* ImagePng::ReprMethod() noexcept { return &kReprMethod; }

}  // namespace tessaly::python
