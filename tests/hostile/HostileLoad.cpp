#include "hostile/HostileLoad.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <unordered_set>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "com/core/ObjectPersistence.h"
#include "platform/Bstr.h"
#include "platform/ErrorInfo.h"
#include "platform/Module.h"
#include "platform/SafeArray.h"

namespace tessaly::test {

namespace {

// Gathers every object of a graph through the values their Persist saves. A list of
// objects still to visit stands in for recursion: a graph may chain any number of objects.
class GraphCollector final : public core::ArchiveWriter {
public:
    explicit GraphCollector(IUnknown* root) {
        Meet(root);
        for (size_t next = 0; next < objects_.size(); ++next) {
            ComPtr<ILuxPersistArchive> persist;
            if (FAILED(objects_[next]->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) continue;
            const ComPtr<core::CLuxArchive> archive = core::CLuxArchive::ForSaving(*this, kOptions);
            persist->Persist(archive.get(), kOptions);
        }
    }

    void WriteEntry(std::string_view, const VARIANT& value) override { Value(value); }

    std::vector<ComPtr<IUnknown>> Take() { return std::move(objects_); }

private:
    static constexpr int32_t kOptions = luxPersistOptionAll | luxPersistOptionSaving;

    void Meet(IUnknown* object) {
        ComPtr<IUnknown> identity;
        if (FAILED(object->QueryInterface(IUnknown::iid, identity.OutVoid())) || !identity) return;
        if (seen_.insert(identity.get()).second) objects_.push_back(std::move(identity));
    }

    void Value(const VARIANT& value) {
        if (value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN) {
            if (value.punkVal) Meet(value.punkVal);
            return;
        }
        const VARTYPE element = value.vt & ~VT_ARRAY;
        if (!(value.vt & VT_ARRAY) || !value.parray ||
            (element != VT_VARIANT && element != VT_DISPATCH && element != VT_UNKNOWN))
            return;
        const size_t count = SafeArrayElementCount(value.parray);
        for (size_t i = 0; i < count; ++i) {
            if (element == VT_VARIANT)
                Value(static_cast<const VARIANT*>(value.parray->pvData)[i]);
            else if (IUnknown* object = static_cast<IUnknown* const*>(value.parray->pvData)[i])
                Meet(object);
        }
    }

    std::unordered_set<IUnknown*> seen_;
    std::vector<ComPtr<IUnknown>> objects_;  // in the order met
};

}  // namespace

std::string LoadOutcome::Describe() const {
    char code[16];
    std::snprintf(code, sizeof code, "0x%08" PRIX32, static_cast<uint32_t>(result));
    return std::string(code) + (errorInfo ? " \"" + description + "\"" : " (no error info)") +
           (leftAlive ? ", " + std::to_string(leftAlive) + " objects left alive" : "");
}

void HostileLoad::Release(ComPtr<IDispatch> root) noexcept {
    if (!root) return;
    std::vector<ComPtr<IUnknown>> objects;
    try {
        objects = GraphCollector(root.get()).Take();
    } catch (...) {
        // Out of memory while walking: the graph is released as it stands.
    }
    for (const ComPtr<IUnknown>& object : objects) {
        ComPtr<ILuxPersistArchive> persist;
        if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) continue;
        try {
            const ComPtr<core::CLuxArchive> empty = core::CLuxArchive::ForLoading(luxPersistOptionAll);
            persist->Persist(empty.get(), luxPersistOptionAll);
        } catch (...) {
        }
    }
    ClearErrorInfo();
}

LoadOutcome HostileLoad::Run(std::span<const uint8_t> bytes, int32_t format) {
    const LONG before = Module::LiveObjectCount();
    ClearErrorInfo();
    LoadOutcome outcome;
    {
        ComPtr<IDispatch> root;
        outcome.result = LoadObjectFromBytes(bytes, format, root.Out());
        ComPtr<IErrorInfo> info;
        if (GetErrorInfo(0, info.Out()) == S_OK && info) {
            outcome.errorInfo = true;
            Bstr description;
            info->GetDescription(description.Out());
            outcome.description = description.str();
        }
        Release(std::move(root));
    }
    outcome.leftAlive = Module::LiveObjectCount() - before;
    return outcome;
}

}  // namespace tessaly::test

namespace tessaly::test {

void HostileLoad::RunOrAbort(std::span<const uint8_t> bytes, int32_t format) noexcept {
    LoadOutcome outcome;
    try {
        outcome = Run(bytes, format);
    } catch (...) {
        std::fprintf(stderr, "HostileLoad: an exception left the load\n");
        std::abort();
    }
    if (outcome.Clean()) return;
    std::fprintf(stderr, "HostileLoad: an unclean load: %s\n", outcome.Describe().c_str());
    std::abort();
}

}  // namespace tessaly::test
