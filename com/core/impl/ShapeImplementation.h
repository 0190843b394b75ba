// What the library's own code reaches behind any ILuxShape of this library, whatever its
// class: the core shape, and the state every shape shares (SelectedSpaceName, the graphic
// settings and the DOF mask). Every shape class has it through ILuxShapeImpl; Of finds it
// behind an interface pointer, as ImplementationOf does for one class.
#pragma once

#include <cstdint>
#include <string>

#include "com/core/impl/EnumeratedGraphicSettings.h"
#include "com/core/impl/GraphicSettings.h"
#include "platform/StandardInterfaces.h"
#include "xnl/std/shapes/ccShape.h"

namespace tessaly::core {

// The part of a shape that copy flags select from (SelectedSpaceName always, the basic
// graphics with luxCopyShapeBasicGraphics, the DOF mask with luxCopyShapeDOFs).
struct ShapeCommonState {
    std::string selectedSpaceName = ".";
    GraphicSettings graphics;
};

class ShapeImplementation {
public:
    // The core shape built from the parameters, under the object's lock.
    virtual ccShapePtrh_const CoreShape() const = 0;
    // A snapshot of the common state, under the object's lock.
    virtual ShapeCommonState CommonState() const = 0;
    // Takes SelectedSpaceName from `source` and whatever else `copyFlags` selects, without
    // an event: for an object nobody has seen yet.
    virtual void TakeCommonState(const ShapeCommonState& source, int32_t copyFlags) = 0;
    // Takes the class's enumerated graphic settings that `source` has under the same names,
    // without an event: for an object nobody has seen yet.
    virtual void TakeEnumeratedGraphics(const EnumeratedGraphicSettings& source) = 0;

    // The library's shape behind `shape` (any of its interfaces); null for null, for
    // another implementation and for objects that are not shapes. Adds no reference.
    static ShapeImplementation* Of(IUnknown* shape) noexcept;
    // The same, refusing null (ccStdError::NullArgument) and another implementation
    // (ccStdError::BadArgument), each naming `argument`.
    static ShapeImplementation& Require(IUnknown* shape, const char* argument);

protected:
    ShapeImplementation() = default;
    ShapeImplementation(const ShapeImplementation&) = default;
    ShapeImplementation& operator=(const ShapeImplementation&) = default;
    ~ShapeImplementation() = default;
};

}  // namespace tessaly::core
