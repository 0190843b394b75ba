// tessaly.RenderOverlay(image, shapes, tint=False): shapes drawn over an image, as a new
// planar colour image (com/shape/Overlay.h), which shows itself in a notebook like any
// image. `shapes` is one shape or an iterable of shapes.
#pragma once

#include <pybind11/pybind11.h>

namespace tessaly::python {

// Adds RenderOverlay to the module.
void AddOverlayFunctions(pybind11::module_& module);

}  // namespace tessaly::python
