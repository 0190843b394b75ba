#include "PixelBuffer.h"

#include <string>

#include "ClientClass.h"
#include "ClientObject.h"
#include "ComError.h"
#include "SlotGuard.h"
#include "com/image/CLuxImage16PixelMemory.h"
#include "com/image/CLuxImage8PixelMemory.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

// What an export holds until Python releases it (Py_buffer::internal).
struct Export {
    Py_ssize_t shape[2];
    Py_ssize_t strides[2];
    void* memory;                      // the pixel memory's C++ object, pinned
    void (*unpin)(void* memory) noexcept;
};

[[noreturn]] void RaiseBufferError(const std::string& message) {
    PyErr_SetString(PyExc_BufferError, message.c_str());
    throw py::error_already_set();
}

// Reads a getter of the pinned memory; a failure (none is expected while pinned) raises.
template <class Value, class Getter>
Value Read(Getter&& getter, const char* name) {
    Value value{};
    const HRESULT hr = getter(&value);
    if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, name);
    return value;
}

template <class Memory, class Pel>
void Fill(Memory& memory, PyObject* exporter, Py_buffer* view, int flags, const char* format) {
    if (!memory.AddView()) {
        // Disposed: raise what the memory's own getters raise.
        LONG width = 0;
        const HRESULT hr = memory.get_Width(&width);
        ComError::RaiseFromErrorInfo(FAILED(hr) ? hr : E_UNEXPECTED, "Width");
    }
    auto* pinned = new (std::nothrow) Export{};
    if (!pinned) {
        memory.ReleaseView();
        throw std::bad_alloc();
    }
    pinned->memory = &memory;
    pinned->unpin = [](void* pinnedMemory) noexcept { static_cast<Memory*>(pinnedMemory)->ReleaseView(); };
    try {
        const LONG width = Read<LONG>([&](LONG* v) { return memory.get_Width(v); }, "Width");
        const LONG height = Read<LONG>([&](LONG* v) { return memory.get_Height(v); }, "Height");
        const LONG stride = Read<LONG>([&](LONG* v) { return memory.get_Stride(v); }, "Stride");
        const LONGLONG scan0 = Read<LONGLONG>([&](LONGLONG* v) { return memory.get_Scan0(v); }, "Scan0");
        const bool readOnly = memory.Mode() == luxImageDataModeRead;
        if ((flags & PyBUF_WRITABLE) && readOnly)
            RaiseBufferError("the pixel memory was opened for reading only (luxImageDataModeRead); a writable "
                             "view needs luxImageDataModeWrite or luxImageDataModeReadWrite");
        // An empty window has no first pixel; an export still needs an address.
        static Pel nothing{};
        view->buf = scan0 != 0 ? reinterpret_cast<void*>(static_cast<intptr_t>(scan0)) : &nothing;
        view->itemsize = sizeof(Pel);
        view->len = Py_ssize_t{width} * height * Py_ssize_t{sizeof(Pel)};
        view->readonly = readOnly ? 1 : 0;
        view->format = (flags & PyBUF_FORMAT) ? const_cast<char*>(format) : nullptr;
        pinned->shape[0] = height;
        pinned->shape[1] = width;
        pinned->strides[0] = Py_ssize_t{stride} * Py_ssize_t{sizeof(Pel)};
        pinned->strides[1] = sizeof(Pel);
        view->ndim = 2;
        view->shape = pinned->shape;
        view->strides = pinned->strides;
        view->suboffsets = nullptr;
        const bool cContiguous = PyBuffer_IsContiguous(view, 'C');
        if ((flags & PyBUF_STRIDES) != PyBUF_STRIDES && !cContiguous)
            RaiseBufferError("the pixel memory's rows lie " + std::to_string(stride) + " pixels apart for a width of " +
                             std::to_string(width) + ": a view of it needs strides");
        if (((flags & PyBUF_C_CONTIGUOUS) == PyBUF_C_CONTIGUOUS && !cContiguous) ||
            ((flags & PyBUF_F_CONTIGUOUS) == PyBUF_F_CONTIGUOUS && !PyBuffer_IsContiguous(view, 'F')) ||
            ((flags & PyBUF_ANY_CONTIGUOUS) == PyBUF_ANY_CONTIGUOUS && !PyBuffer_IsContiguous(view, 'A')))
            RaiseBufferError("the pixel memory is not contiguous in the order asked for");
        if ((flags & PyBUF_ND) != PyBUF_ND) {
            // A request for plain bytes (contiguous, checked above).
            view->ndim = 1;
            view->shape = nullptr;
            view->strides = nullptr;
        } else if ((flags & PyBUF_STRIDES) != PyBUF_STRIDES) {
            view->strides = nullptr;
        }
    } catch (...) {
        memory.ReleaseView();
        delete pinned;
        throw;
    }
    view->internal = pinned;
    view->obj = Py_NewRef(exporter);
}

int GetBuffer(PyObject* exporter, Py_buffer* view, int flags) {
    if (!view) {
        PyErr_SetString(PyExc_BufferError, "a view needs a Py_buffer");
        return -1;
    }
    view->obj = nullptr;
    return Guarded<int>(-1, [&] {
        IUnknown* object = ClientObject::Check(exporter) ? reinterpret_cast<ClientObject*>(exporter)->dispatch : nullptr;
        if (auto* memory8 = image::CLuxImage8PixelMemory::ImplementationOf(object)) {
            Fill<image::CLuxImage8PixelMemory, uint8_t>(*memory8, exporter, view, flags, "B");
            return 0;
        }
        if (auto* memory16 = image::CLuxImage16PixelMemory::ImplementationOf(object)) {
            Fill<image::CLuxImage16PixelMemory, uint16_t>(*memory16, exporter, view, flags, "H");
            return 0;
        }
        const ClientObject* client = reinterpret_cast<ClientObject*>(exporter);
        const std::string name = client->owner ? client->owner->Name() : std::string("Object");
        RaiseBufferError("a " + name +
                         " object has no pixels to view: pixel-memory objects (GetRawPixelMemory, "
                         "Get8GreyPixelMemory, ...) do");
    });
}

void ReleaseBuffer(PyObject*, Py_buffer* view) {
    auto* pinned = static_cast<Export*>(view->internal);
    if (!pinned) return;
    pinned->unpin(pinned->memory);
    delete pinned;
    view->internal = nullptr;
}

PyObject* AsArray(PyObject* self, PyObject* args, PyObject* kwargs) {
    return Guarded<PyObject*>(nullptr, [&]() -> PyObject* {
        static const char* names[] = {"dtype", "copy", nullptr};
        PyObject* dtype = Py_None;
        PyObject* copy = Py_None;
        if (!PyArg_ParseTupleAndKeywords(args, kwargs, "|OO:__array__", const_cast<char**>(names), &dtype, &copy))
            throw py::error_already_set();
        PyObject* exported = PyMemoryView_FromObject(self);
        if (!exported) throw py::error_already_set();
        const py::object view = py::reinterpret_steal<py::object>(exported);
        const bool copying = copy != Py_None && PyObject_IsTrue(copy) == 1;
        return py::module_::import("numpy")
            .attr("array")(view, py::arg("dtype") = py::handle(dtype), py::arg("copy") = copying)
            .release()
            .ptr();
    });
}

PyMethodDef kArrayMethod = {"__array__", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(AsArray)),
                            METH_VARARGS | METH_KEYWORDS,
                            "__array__(dtype=None, copy=None) -> numpy.ndarray\n\n"
                            "The pixels as a numpy array that views them (no copy unless asked)."};

}  // namespace

int PixelBuffer::Get(PyObject* exporter, Py_buffer* view, int flags) { return GetBuffer(exporter, view, flags); }

void PixelBuffer::Release(PyObject* exporter, Py_buffer* view) { ReleaseBuffer(exporter, view); }

bool PixelBuffer::IsPixelMemoryClass(std::string_view coclass) noexcept {
    return coclass == "LuxImage8PixelMemory" || coclass == "LuxImage16PixelMemory";
}

PyMethodDef* PixelBuffer::ArrayMethod() noexcept { return &kArrayMethod; }

}  // namespace tessaly::python
