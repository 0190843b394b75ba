// tessaly.ImageFromArray(array, copy=False): an image over a numpy array.
//
//  - a 2-D uint8 or uint16 array (H x W) gives a LuxImage8Grey or LuxImage16Grey of W x H;
//  - a 3 x H x W uint8 array gives a LuxImage24PlanarColor whose plane i is array[i].
//
// Without copy, each plane's root is Initialize'd over the array's memory (Scan0 the
// address of row 0, Stride the row stride in pixels, negative when rows run upwards) with
// an ArrayKeeper as its Disposable: the image keeps the array alive, and writes through
// either show in the other. That needs every row to be pixels side by side (the last
// axis's stride the item size), rows a whole number of pixels apart that do not overlap,
// and a writable array, since the image writes its pixels.
//
// With copy the image gets roots of its own with a copy of the pixels, whatever the
// array's strides, and a read-only array is fine.
//
// Other element types (big-endian included) or shapes raise TypeError saying what is
// taken; so do the layouts copy=False cannot share.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

pybind11::object ImageFromArray(pybind11::handle array, bool copy);

}  // namespace tessaly::python
