// The buffer protocol of client objects. The library's pixel-memory objects
// (LuxImage8PixelMemory, LuxImage16PixelMemory) export their pixels as they lie, with no
// copy: shape (Height, Width), item size 1 or 2 (format "B" or "H"), strides (Stride x item
// size, item size), read-only when the memory was opened with luxImageDataModeRead. Every
// other object refuses with BufferError.
//
// An export pins the pixel memory (AddView) until Python releases it (ReleaseView), so that
// Dispose fails with E_UNEXPECTED while any array views the memory; the export also holds
// the client object, and with it the pixel memory and its root's memory. Exporting
// disposed memory raises the ComError (e_LuxImage_NoPixels) its getters raise.
//
// numpy ignores a failed export and goes on to other ways of making an array, so the
// pixel-memory types also answer __array__, which exports again and raises the failure.
#pragma once

#include <pybind11/pybind11.h>

#include <string_view>

namespace tessaly::python {

struct PixelBuffer {
    static int Get(PyObject* exporter, Py_buffer* view, int flags);
    static void Release(PyObject* exporter, Py_buffer* view);

    // Whether objects of the coclass of that name export pixels.
    static bool IsPixelMemoryClass(std::string_view coclass) noexcept;
    // __array__(dtype=None, copy=None) of the pixel-memory types.
    static PyMethodDef* ArrayMethod() noexcept;
};

}  // namespace tessaly::python
