#include "OverlayFunctions.h"

#include <vector>

#include "ClientObject.h"
#include "ComError.h"
#include "com/core/MethodGuard.h"
#include "com/shape/Overlay.h"
#include "platform/ComPtr.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

ComPtr<ILuxShape> ShapeOf(py::handle object) {
    ComPtr<ILuxShape> shape;
    if (!ClientObject::Check(object.ptr()) ||
        FAILED(ClientObject::Dispatch(object.ptr())->QueryInterface(IID_ILuxShape, shape.OutVoid())) || !shape)
        throw py::type_error("RenderOverlay: shapes must be shapes of the library (LuxRectangle, LuxRectangleAffine, ...)");
    return shape;
}

py::object RenderOverlay(py::handle image, py::handle shapes, bool tint) {
    ComPtr<ILuxImage> typed;
    if (!ClientObject::Check(image.ptr()) ||
        FAILED(ClientObject::Dispatch(image.ptr())->QueryInterface(IID_ILuxImage, typed.OutVoid())) || !typed)
        throw py::type_error("RenderOverlay takes an image (LuxImage8Grey, LuxImage16Grey or LuxImage24PlanarColor)");
    std::vector<ComPtr<ILuxShape>> held;
    if (ClientObject::Check(shapes.ptr())) {
        held.push_back(ShapeOf(shapes));
    } else {
        for (py::handle shape : py::iter(shapes)) held.push_back(ShapeOf(shape));
    }
    std::vector<ILuxShape*> pointers;
    for (const auto& shape : held) pointers.push_back(shape.get());

    ComPtr<ILuxImage24PlanarColor> picture;
    HRESULT hr;
    {
        py::gil_scoped_release unlocked;
        hr = core::Guarded("RenderOverlay", IID_ILuxImage, [&] {
            picture = shape::RenderOverlay(typed.get(), pointers, shape::OverlayOptions{.tintRegions = tint});
        });
    }
    if (FAILED(hr)) ComError::RaiseFromErrorInfo(hr, "RenderOverlay");
    return ClientObject::Wrap(picture.get());
}

}  // namespace

void AddOverlayFunctions(py::module_& module) {
    module.def("RenderOverlay", &RenderOverlay, py::arg("image"), py::arg("shapes"), py::arg("tint") = false,
               "RenderOverlay(image, shapes, tint=False) -> LuxImage24PlanarColor\n\n"
               "A new colour image of `image` with `shapes` (one shape or an iterable of shapes) drawn on it, in\n"
               "their order: each region's outline in its Color, LineWidthInScreenPixels wide, on the region's\n"
               "own pixels (line styles are drawn solid); with tint=True each region's inside is also blended\n"
               "with its colour at 35 %. Shapes whose Visible is False or whose Color is luxColorNone (-1) draw\n"
               "nothing. Each shape's SelectedSpaceName is looked up in the image's coordinate space tree. Grey\n"
               "images become grey in all three planes (16-bit ones by the top 8 significant bits of their\n"
               "Encoding); the image itself is not changed. The result shows itself in a notebook. Shapes that\n"
               "are not regions raise ComError with e_Lux_NotImplemented.");
}

}  // namespace tessaly::python
