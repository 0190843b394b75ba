#include "com/shape/ShapeFactory.h"

#include <map>
#include <mutex>
#include <shared_mutex>
#include <string>

#include "xnl/std/except/ccStdError.h"

namespace tessaly::shape {

namespace {

struct Registry {
    std::shared_mutex mutex;
    std::map<std::string_view, ShapeMaker, std::less<>> makers;
};

Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

}  // namespace

void RegisterShapeMaker(const char* coreTypeName, ShapeMaker maker) {
    Registry& registry = TheRegistry();
    std::unique_lock lock(registry.mutex);
    registry.makers.emplace(coreTypeName, maker);
}

ComPtr<ILuxShape> NewShapeFromCore(const ccShape& core) {
    ShapeMaker maker = nullptr;
    {
        Registry& registry = TheRegistry();
        std::shared_lock lock(registry.mutex);
        auto found = registry.makers.find(std::string_view(core.TypeName()));
        if (found != registry.makers.end()) maker = found->second;
    }
    if (!maker) throw ccStdError::NotImplemented(std::string("no shape class is made from a ") + core.TypeName());
    return maker(core);
}

}  // namespace tessaly::shape
