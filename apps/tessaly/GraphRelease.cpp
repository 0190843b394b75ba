#include "GraphRelease.h"

#include <unordered_set>
#include <vector>

#include "TessalyCore.h"
#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "platform/ErrorInfo.h"
#include "platform/SafeArray.h"

namespace tessaly::cli {

namespace {

constexpr int32_t kSaving = luxPersistOptionAll | luxPersistOptionSaving;

// Every object of a graph, met through the values their Persist saves. A list of objects
// still to visit stands in for recursion: a graph may chain any number of objects.
class GraphObjects final : public core::ArchiveWriter {
public:
    explicit GraphObjects(IUnknown* root) {
        Meet(root);
        for (size_t next = 0; next < objects_.size(); ++next) {
            ComPtr<ILuxPersistArchive> persist;
            if (FAILED(objects_[next]->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) continue;
            const ComPtr<core::CLuxArchive> archive = core::CLuxArchive::ForSaving(*this, kSaving);
            persist->Persist(archive.get(), kSaving);
        }
    }

    void WriteEntry(std::string_view, const VARIANT& value) override { Value(value); }

    const std::vector<ComPtr<IUnknown>>& Objects() const noexcept { return objects_; }

private:
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
    std::vector<ComPtr<IUnknown>> objects_;
};

}  // namespace

void GraphRelease::Release(ComPtr<IDispatch> root) noexcept {
    if (!root) return;
    try {
        const GraphObjects graph(root.get());
        for (const ComPtr<IUnknown>& object : graph.Objects()) {
            ComPtr<ILuxPersistArchive> persist;
            if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, persist.OutVoid())) || !persist) continue;
            const ComPtr<core::CLuxArchive> empty = core::CLuxArchive::ForLoading(luxPersistOptionAll);
            persist->Persist(empty.get(), luxPersistOptionAll);
        }
    } catch (...) {
        // Out of memory: the graph is released as it stands.
    }
    ClearErrorInfo();
}

}  // namespace tessaly::cli
