// New automation shapes from core shapes: what Map, MapLinear, EnclosingRectangle and the
// drag operations hand back. Each shape class registers the core class it is made from
// (CLuxRectangle: ccRect; CLuxRectangleAffine: ccAffineRectangle), by the core class's
// TypeName, with a static ShapeFactoryRegistrar beside the class:
//
//     const tessaly::shape::ShapeFactoryRegistrar<CLuxRectangle> factoryEntry("ccRect");
//
// The new object holds the core shape's geometry (SetFromCoreShape) and everything else at
// the defaults of a new object; the caller copies what its copy flags ask for
// (ShapeImplementation::TakeCommonState). A core shape whose class no automation class is
// registered for is refused with e_Lux_NotImplemented.
#pragma once

#include <string_view>

#include "TessalyCore.h"
#include "platform/ComPtr.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::shape {

// Makes a new automation shape holding `core`; throws on failure.
using ShapeMaker = ComPtr<ILuxShape> (*)(const ccShape& core);

// Registers `maker` for core shapes whose TypeName() is `coreTypeName` (a string that
// lives as long as the process). The first registration of a name stands.
void RegisterShapeMaker(const char* coreTypeName, ShapeMaker maker);

// A new automation shape of the class registered for `core`'s class, holding its geometry.
ComPtr<ILuxShape> NewShapeFromCore(const ccShape& core);

template <class ShapeClass>
struct ShapeFactoryRegistrar {
    explicit ShapeFactoryRegistrar(const char* coreTypeName) { RegisterShapeMaker(coreTypeName, &Make); }

    static ComPtr<ILuxShape> Make(const ccShape& core) {
        auto object = ComPtr<ShapeClass>::Attach(ShapeClass::Create());
        if (!object) throw std::bad_alloc();
        object->SetFromCoreShape(core);  // nobody has seen the object: no event
        return ComPtr<ILuxShape>(static_cast<ILuxShape*>(object.get()));
    }
};

}  // namespace tessaly::shape
