#include "ModuleFunctions.h"

#include <span>
#include <string>
#include <vector>

#include "ClientObject.h"
#include "ComError.h"
#include "EventConnection.h"
#include "ImageFromArray.h"
#include "OverlayFunctions.h"
#include "com/image/files/ImageFileObjects.h"
#include "com/core/ObjectPersistence.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/Module.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

// Objects: creating them by name.
void AddObjectFunctions(py::module_& module) {
    module.def(
        "CreateObject",
        [](const std::string& name) {
            ComPtr<IDispatch> object;
            const HRESULT hr = tessaly::CreateObject(name, IDispatch::iid, object.OutVoid());
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "CreateObject");
            return ClientObject::Wrap(object.get());
        },
        py::arg("progid"),
        "CreateObject(progid) -> object\n\n"
        "Creates an object of the library from its ProgID (\"Tessaly.LuxCollection\", with or without a\n"
        "version, any case) or class ID (\"{B809278B-0289-46F7-9589-972AA350300E}\"). Raises ComError with\n"
        "CO_E_CLASSSTRING for a name that is neither, REGDB_E_CLASSNOTREG for an unknown class and\n"
        "CLASS_E_CLASSNOTAVAILABLE for a class that cannot be created.");
}

// Events: connecting a Python object to an object's outgoing interfaces.
void AddEventFunctions(py::module_& module) {
    module.def(
        "GetEvents", [](py::handle object, py::handle sink) { return EventConnection::Connect(object.ptr(), sink.ptr()); },
        py::arg("obj"), py::arg("sink"),
        "GetEvents(obj, sink) -> EventConnection\n\n"
        "Connects `sink` to every outgoing interface of `obj`. Each event calls the sink's method of the\n"
        "same name with the event's arguments (Change(StateID, Value, FunctionalArea)); events the sink\n"
        "has no method for are ignored, and an exception a method raises is reported as a RuntimeWarning.\n"
        "Events may arrive on other threads. The connection lasts until close() is called or the\n"
        "returned object is dropped.");
}

// Persistence: whole object graphs to and from files and bytes. The calls run without the
// GIL, since a large graph takes a while and its objects may fire events.
void AddPersistenceFunctions(py::module_& module) {
    constexpr int32_t kAny = luxPersistFormatAny;
    constexpr int32_t kAll = luxPersistOptionAll;
    module.def(
        "SaveObjectToFile",
        [](py::handle object, const std::string& path, int32_t format, int32_t options) {
            IDispatch* dispatch = ClientObject::Dispatch(object.ptr());
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = tessaly::SaveObjectToFile(dispatch, path, format, options);
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "SaveObjectToFile");
        },
        py::arg("obj"), py::arg("path"), py::arg("format") = kAny, py::arg("options") = kAll,
        "SaveObjectToFile(obj, path, format=luxPersistFormatAny, options=luxPersistOptionAll)\n\n"
        "Saves `obj` and every object it references to the file `path`, replacing the file only once\n"
        "the whole graph is written. `format` is a LuxPersistFormatConstants value (Any saves binary;\n"
        "luxPersistFormatSoap the readable SOAP envelope),\n"
        "`options` LuxPersistOptionConstants bits.");
    module.def(
        "LoadObjectFromFile",
        [](const std::string& path, int32_t format) {
            ComPtr<IDispatch> loaded;
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = tessaly::LoadObjectFromFile(path, format, loaded.Out());
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "LoadObjectFromFile");
            return ClientObject::Wrap(loaded.get());
        },
        py::arg("path"), py::arg("format") = kAny,
        "LoadObjectFromFile(path, format=luxPersistFormatAny) -> object\n\n"
        "Loads the object graph saved in the file `path`; Any tells binary, XML and SOAP apart by the\n"
        "first bytes.");
    module.def(
        "SaveObjectToBytes",
        [](py::handle object, int32_t format, int32_t options) {
            IDispatch* dispatch = ClientObject::Dispatch(object.ptr());
            std::vector<uint8_t> bytes;
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = tessaly::SaveObjectToBytes(dispatch, format, options, &bytes);
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "SaveObjectToBytes");
            return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        },
        py::arg("obj"), py::arg("format") = kAny, py::arg("options") = kAll,
        "SaveObjectToBytes(obj, format=luxPersistFormatAny, options=luxPersistOptionAll) -> bytes\n\n"
        "The archive of `obj` and every object it references, as bytes.");
    module.def(
        "LoadObjectFromBytes",
        [](py::buffer data, int32_t format) {
            const py::buffer_info info = data.request();
            if (info.itemsize != 1 || info.ndim != 1 || info.strides[0] != 1)
                throw py::type_error("LoadObjectFromBytes: data must be bytes, bytearray or a contiguous byte buffer");
            const std::span<const uint8_t> bytes(static_cast<const uint8_t*>(info.ptr), static_cast<size_t>(info.size));
            ComPtr<IDispatch> loaded;
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = tessaly::LoadObjectFromBytes(bytes, format, loaded.Out());
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "LoadObjectFromBytes");
            return ClientObject::Wrap(loaded.get());
        },
        py::arg("data"), py::arg("format") = kAny,
        "LoadObjectFromBytes(data, format=luxPersistFormatAny) -> object\n\n"
        "Loads the object graph saved in `data` (bytes, bytearray or any contiguous byte buffer); Any\n"
        "tells binary, XML and SOAP apart by the first bytes.");
    module.def(
        "ClearObjectGraph",
        [](py::handle object) {
            IDispatch* dispatch = ClientObject::Dispatch(object.ptr());
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = tessaly::ClearObjectGraph(dispatch);
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "ClearObjectGraph");
        },
        py::arg("obj"),
        "ClearObjectGraph(obj) -> None\n\n"
        "Empties `obj` and every object it references, directly or through others, as a new object is\n"
        "empty. A loaded graph may hold cycles (a collection that holds itself), which reference counts\n"
        "never free: call this when done with such a graph, and dropping it frees every object. Objects\n"
        "the graph shares with others are emptied too.");
}

// Images and numpy: images over arrays (pixel memory becomes arrays through the buffer
// protocol of client objects).
void AddImageFunctions(py::module_& module) {
    module.def(
        "ImageFromArray", [](py::handle array, bool copy) { return ImageFromArray(array, copy); }, py::arg("array"),
        py::arg("copy") = false,
        "ImageFromArray(array, copy=False) -> image\n\n"
        "An image over a numpy array: a 2-D uint8 or uint16 array (H x W) gives a LuxImage8Grey or\n"
        "LuxImage16Grey, a 3 x H x W uint8 array a LuxImage24PlanarColor whose plane i is array[i].\n"
        "Without copy the image uses the array's memory and keeps the array alive: writes through\n"
        "either show in the other. The array must then be writable and its rows pixels side by side,\n"
        "a whole number of pixels apart. With copy=True the image gets a copy of the pixels, from\n"
        "any strides. Other arrays raise TypeError.");
    module.def(
        "LoadImage",
        [](const std::string& path) {
            ComPtr<ILuxImage> image;
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = image::LoadImageFile(path, image.Out());
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "LoadImage");
            return ClientObject::Wrap(image.get());
        },
        py::arg("path"),
        "LoadImage(path) -> image\n\n"
        "Reads an image file: PNG, TIFF (its first page), PGM/PPM or JPEG, told by the file's content.\n"
        "Grey files give a LuxImage8Grey or LuxImage16Grey, colour files a LuxImage24PlanarColor (planes\n"
        "red, green, blue). A missing, corrupt, truncated or unsupported file raises ComError naming the\n"
        "file and the reason.");
    module.def(
        "SaveImage",
        [](py::handle image, const std::string& path) {
            ComPtr<ILuxImage> typed;
            if (FAILED(ClientObject::Dispatch(image.ptr())->QueryInterface(IID_ILuxImage, typed.OutVoid())))
                throw py::type_error("SaveImage takes an image (LuxImage8Grey, LuxImage16Grey or LuxImage24PlanarColor)");
            HRESULT hr;
            {
                py::gil_scoped_release unlocked;
                hr = image::SaveImageFile(typed.get(), path);
            }
            if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "SaveImage");
        },
        py::arg("image"), py::arg("path"),
        "SaveImage(image, path)\n\n"
        "Writes an image in the format of the path's extension: .png, .tif/.tiff, .pgm (grey), .ppm\n"
        "(colour) or .pnm. A file of that name is replaced only once the new one is complete.");
}

// The library's run time: what tests and diagnostics read.
void AddRuntimeFunctions(py::module_& module) {
    module.def(
        "LiveObjectCount", [] { return ::LiveObjectCount(); },
        "LiveObjectCount() -> int\n\n"
        "The number of objects of the library alive in the process, Python's included: it returns to\n"
        "its value once Python has dropped the objects it made.");
}

}  // namespace

void AddModuleFunctions(py::module_& module) {
    AddObjectFunctions(module);
    AddEventFunctions(module);
    AddPersistenceFunctions(module);
    AddImageFunctions(module);
    AddOverlayFunctions(module);
    AddRuntimeFunctions(module);
}

}  // namespace tessaly::python
