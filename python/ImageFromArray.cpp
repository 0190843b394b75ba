#include "ImageFromArray.h"

#include <pybind11/numpy.h>

#include <array>
#include <cstring>
#include <limits>
#include <string>

#include "ArrayKeeper.h"
#include "ClientObject.h"
#include "ComError.h"
#include "TessalyCore.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

constexpr const char* kAccepted =
    "ImageFromArray takes a 2-D uint8 or uint16 array, or a 3 x H x W uint8 array, whose rows are contiguous; got ";

[[noreturn]] void Refuse(const std::string& what) { throw py::type_error(kAccepted + what); }

std::string Describe(const py::array& array) {
    std::string shape;
    for (py::ssize_t i = 0; i < array.ndim(); ++i) shape += (i ? " x " : "") + std::to_string(array.shape(i));
    return "a " + std::to_string(array.ndim()) + "-D array of " + py::str(array.dtype()).cast<std::string>() +
           " (shape " + (shape.empty() ? "()" : shape) + ")";
}

void Check(HRESULT hr, const char* source) {
    if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, source);
}

template <class I>
ComPtr<I> Create(const char* progId) {
    ComPtr<I> object;
    Check(tessaly::CreateObject(progId, I::iid, object.OutVoid()), "CreateObject");
    return object;
}

// One plane of the array: height rows of width pixels.
struct PlaneLayout {
    char* data;
    py::ssize_t width;
    py::ssize_t height;
    py::ssize_t rowStride;    // bytes
    py::ssize_t pixelStride;  // bytes
};

struct Grey8 {
    using Pel = uint8_t;
    using IRootBuffer = ILuxImage8RootBuffer;
    using IRoot = ILuxImage8Root;
    using IMemory = ILuxImage8PixelMemory;
    using IImage = ILuxImage8Grey;
    static constexpr const char* kRoot = "Tessaly.LuxImage8Root";
    static constexpr const char* kImage = "Tessaly.LuxImage8Grey";
};

struct Grey16 {
    using Pel = uint16_t;
    using IRootBuffer = ILuxImage16RootBuffer;
    using IRoot = ILuxImage16Root;
    using IMemory = ILuxImage16PixelMemory;
    using IImage = ILuxImage16Grey;
    static constexpr const char* kRoot = "Tessaly.LuxImage16Root";
    static constexpr const char* kImage = "Tessaly.LuxImage16Grey";
};

// Copies the plane's pixels into the root's own memory, whatever the plane's strides.
template <class Kind>
void CopyInto(typename Kind::IRoot* root, const PlaneLayout& plane) {
    using Pel = typename Kind::Pel;
    ComPtr<typename Kind::IMemory> memory;
    Check(root->GetRawPixelMemory(luxImageDataModeWrite, 0, 0, 0, 0, memory.Out()), "GetRawPixelMemory");
    LONG stride = 0;
    LONGLONG scan0 = 0;
    Check(memory->get_Stride(&stride), "Stride");
    Check(memory->get_Scan0(&scan0), "Scan0");
    auto* target = reinterpret_cast<Pel*>(static_cast<intptr_t>(scan0));
    py::gil_scoped_release unlocked;  // the array is held by the caller
    for (py::ssize_t y = 0; y < plane.height; ++y) {
        Pel* out = target + y * py::ssize_t{stride};
        const char* in = plane.data + y * plane.rowStride;
        if (plane.pixelStride == py::ssize_t{sizeof(Pel)}) {
            std::memcpy(out, in, size_t(plane.width) * sizeof(Pel));
        } else {
            for (py::ssize_t x = 0; x < plane.width; ++x) std::memcpy(out + x, in + x * plane.pixelStride, sizeof(Pel));
        }
    }
}

// A root over the plane: its memory (keeper non-null) or a copy of it.
template <class Kind>
ComPtr<typename Kind::IRoot> MakeRoot(const PlaneLayout& plane, IUnknown* keeper) {
    using Pel = typename Kind::Pel;
    constexpr auto kMax = std::numeric_limits<LONG>::max();
    if (plane.width > kMax || plane.height > kMax)
        throw py::value_error("ImageFromArray: " + std::to_string(plane.width) + " x " + std::to_string(plane.height) +
                              " pixels is more than an image holds");
    const auto width = static_cast<LONG>(plane.width);
    const auto height = static_cast<LONG>(plane.height);
    auto buffer = Create<typename Kind::IRootBuffer>(Kind::kRoot);
    if (keeper) {
        // One row needs no stride of its own: the width will do.
        const py::ssize_t stride = plane.height > 1 ? plane.rowStride / py::ssize_t{sizeof(Pel)} : plane.width;
        if (stride > kMax || stride < -kMax)
            throw py::value_error("ImageFromArray: rows " + std::to_string(plane.rowStride) +
                                  " bytes apart are further than an image's stride reaches");
        Check(buffer->Initialize(width, height, static_cast<LONGLONG>(reinterpret_cast<intptr_t>(plane.data)),
                                 static_cast<LONG>(stride), keeper),
              "Initialize");
    } else {
        Check(buffer->Initialize(width, height, 0, width, nullptr), "Initialize");
    }
    ComPtr<typename Kind::IRoot> root;
    Check(buffer->QueryInterface(Kind::IRoot::iid, root.OutVoid()), "ImageFromArray");
    if (!keeper) CopyInto<Kind>(root.get(), plane);
    return root;
}

py::object Wrap(IUnknown* image) {
    ComPtr<IDispatch> dispatch;
    Check(image->QueryInterface(IDispatch::iid, dispatch.OutVoid()), "ImageFromArray");
    return ClientObject::Wrap(dispatch.get());
}

template <class Kind>
py::object GreyImage(const PlaneLayout& plane, IUnknown* keeper) {
    const auto root = MakeRoot<Kind>(plane, keeper);
    auto image = Create<typename Kind::IImage>(Kind::kImage);
    Check(image->SetRoot(root.get()), "SetRoot");
    return Wrap(image.get());
}

py::object PlanarImage(const std::array<PlaneLayout, 3>& planes, IUnknown* keeper) {
    std::array<ComPtr<ILuxImage8Root>, 3> roots;
    for (size_t i = 0; i < 3; ++i) roots[i] = MakeRoot<Grey8>(planes[i], keeper);
    auto image = Create<ILuxImage24PlanarColor>("Tessaly.LuxImage24PlanarColor");
    Check(image->SetRoots(roots[0].get(), roots[1].get(), roots[2].get()), "SetRoots");
    return Wrap(image.get());
}

// Refuses a layout the image cannot share (the rules in the header).
void CheckShareable(const py::array& array, const PlaneLayout& plane) {
    const py::ssize_t item = array.itemsize();
    if (plane.width > 1 && plane.pixelStride != item)
        Refuse(Describe(array) + " whose pixels lie " + std::to_string(plane.pixelStride) +
               " bytes apart; pass copy=True to copy it");
    if (plane.height > 1 && plane.rowStride % item != 0)
        Refuse(Describe(array) + " whose rows lie " + std::to_string(plane.rowStride) +
               " bytes apart, not a whole number of pixels; pass copy=True to copy it");
    const py::ssize_t reach = plane.rowStride < 0 ? -plane.rowStride : plane.rowStride;
    if (plane.height > 1 && reach < plane.width * item)
        Refuse(Describe(array) + " whose rows overlap (" + std::to_string(plane.rowStride) + " bytes apart, " +
               std::to_string(plane.width * item) + " bytes long); pass copy=True to copy it");
    if (!array.writeable())
        Refuse(Describe(array) +
               " that is read-only: an image over it could write its pixels; pass copy=True to copy it");
}

}  // namespace

py::object ImageFromArray(py::handle object, bool copy) {
    if (!py::isinstance<py::array>(object)) Refuse(std::string("a ") + Py_TYPE(object.ptr())->tp_name);
    const auto array = py::reinterpret_borrow<py::array>(object);
    const py::dtype dtype = array.dtype();
    const bool unsignedNative = dtype.kind() == 'u' && dtype.attr("isnative").cast<bool>();
    const bool grey = array.ndim() == 2 && unsignedNative && (dtype.itemsize() == 1 || dtype.itemsize() == 2);
    const bool planar = array.ndim() == 3 && array.shape(0) == 3 && unsignedNative && dtype.itemsize() == 1;
    if (!grey && !planar) Refuse(Describe(array));

    const int last = planar ? 2 : 1;
    std::array<PlaneLayout, 3> planes{};
    const size_t count = planar ? 3 : 1;
    for (size_t i = 0; i < count; ++i) {
        char* data = static_cast<char*>(const_cast<void*>(array.data()));
        if (planar) data += py::ssize_t(i) * array.strides(0);
        planes[i] = {data, array.shape(last), array.shape(last - 1), array.strides(last - 1), array.strides(last)};
    }
    ComPtr<IUnknown> keeper;
    if (!copy) {
        // An array without pixels is left to the root to refuse.
        if (array.size() > 0) CheckShareable(array, planes[0]);
        keeper = ComPtr<IUnknown>::Attach(ArrayKeeper::New(array.ptr()));
    }
    if (planar) return PlanarImage(planes, keeper.get());
    if (dtype.itemsize() == 1) return GreyImage<Grey8>(planes[0], keeper.get());
    return GreyImage<Grey16>(planes[0], keeper.get());
}

}  // namespace tessaly::python
