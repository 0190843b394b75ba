#include "platform/TypeLibraryRegistry.h"

#include <mutex>

namespace tessaly {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<const TypeLibraryInfo*> libraries;
};

// Function-local so that registrars running during static initialisation of any library
// find it constructed.
Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

bool EqualsIgnoringAsciiCase(std::string_view a, const char* b) {
    if (!b) return false;
    const std::string_view other(b);
    if (a.size() != other.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = other[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

}  // namespace

void TypeLibraryRegistry::Register(const TypeLibraryInfo& library) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    for (const TypeLibraryInfo* known : registry.libraries)
        if (known == &library) return;
    registry.libraries.push_back(&library);
}

std::vector<const TypeLibraryInfo*> TypeLibraryRegistry::Libraries() {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    return registry.libraries;
}

const TypeLibraryInfo* TypeLibraryRegistry::FindLibrary(std::string_view name) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    for (const TypeLibraryInfo* library : registry.libraries)
        if (EqualsIgnoringAsciiCase(name, library->name)) return library;
    return nullptr;
}

const CoClassInfo* TypeLibraryRegistry::FindCoClass(const CLSID& clsid) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    for (const TypeLibraryInfo* library : registry.libraries)
        for (uint32_t i = 0; i < library->coclassCount; ++i)
            if (library->coclasses[i]->clsid == clsid) return library->coclasses[i];
    return nullptr;
}

const CoClassInfo* TypeLibraryRegistry::FindCoClass(std::string_view name) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    for (const TypeLibraryInfo* library : registry.libraries)
        for (uint32_t i = 0; i < library->coclassCount; ++i) {
            const CoClassInfo* coclass = library->coclasses[i];
            if (EqualsIgnoringAsciiCase(name, coclass->name) || EqualsIgnoringAsciiCase(name, coclass->progId) ||
                EqualsIgnoringAsciiCase(name, coclass->versionIndependentProgId))
                return coclass;
        }
    return nullptr;
}

const InterfaceInfo* TypeLibraryRegistry::FindInterface(const IID& iid) {
    Registry& registry = TheRegistry();
    std::lock_guard lock(registry.mutex);
    for (const TypeLibraryInfo* library : registry.libraries)
        for (uint32_t i = 0; i < library->interfaceCount; ++i)
            if (library->interfaces[i]->iid == iid) return library->interfaces[i];
    return nullptr;
}

}  // namespace tessaly
