// Every object of a graph: the root and each object met, directly or inside arrays of
// VARIANTs or objects, among the values their Persist saves, each once (by COM identity).
// A list of objects still to visit stands in for recursion: a graph may chain any number
// of objects, and cycles are met only once.
#pragma once

#include <unordered_set>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "platform/ComPtr.h"

namespace tessaly::core {

class ObjectGraphObjects final : public ArchiveWriter {
public:
    // Throws bad_alloc; an object whose Persist fails adds what it saved before failing.
    explicit ObjectGraphObjects(IUnknown* root);

    void WriteEntry(std::string_view name, const VARIANT& value) override;

    const std::vector<ComPtr<IUnknown>>& Objects() const noexcept { return objects_; }

private:
    void Meet(IUnknown* object);
    void Value(const VARIANT& value);

    std::unordered_set<IUnknown*> seen_;
    std::vector<ComPtr<IUnknown>> objects_;
};

}  // namespace tessaly::core
