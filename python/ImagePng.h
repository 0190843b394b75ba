// Images show themselves in notebooks: the image types answer _repr_png_, the image as a
// PNG file. Grey images give grey PNGs of their own depth (8 or 16 bits); a planar colour
// image gives an RGB PNG of planes 0, 1 and 2, whatever its ColorSpace. An image without
// pixels answers None, and the notebook shows its repr instead.
//
// The encoder writes no filters (every row filter type 0) and compresses with Python's own
// zlib module.
#pragma once

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace tessaly::python {

struct ImagePng {
    // The PNG file of `rows`: height rows of width x channels samples of bitDepth (8 or 16)
    // bits, 16-bit samples big-endian, each row preceded by its filter byte (0).
    static pybind11::bytes Encode(int32_t width, int32_t height, int channels, int bitDepth, const std::string& rows);

    // Whether objects of the coclass of that name show themselves as PNG.
    static bool IsImageClass(std::string_view coclass) noexcept;
    // _repr_png_() of the image types.
    static PyMethodDef* ReprMethod() noexcept;
};

}  // namespace tessaly::python
