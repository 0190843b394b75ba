#include "com/core/impl/ShapeImplementation.h"

#include <string>

#include "com/core/MessageTable.h"
#include "platform/UnknownObject.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

ShapeImplementation* ShapeImplementation::Of(IUnknown* shape) noexcept {
    if (!shape) return nullptr;
    void* answered = nullptr;
    if (FAILED(shape->QueryInterface(detail::kImplementationIid, &answered)) || !answered) return nullptr;
    auto* unknown = static_cast<IUnknown*>(answered);
    unknown->Release();  // only the library's objects answer, and none of them dies of it
    return dynamic_cast<ShapeImplementation*>(unknown);
}

ShapeImplementation& ShapeImplementation::Require(IUnknown* shape, const char* argument) {
    if (!shape) throw ccStdError::NullArgument(argument);
    ShapeImplementation* found = Of(shape);
    if (!found)
        throw ccStdError::BadArgument(std::string(argument) + " is a shape of another implementation", ids_Core_InvalidArg_1,
                                      {argument});
    return *found;
}

}  // namespace tessaly::core
