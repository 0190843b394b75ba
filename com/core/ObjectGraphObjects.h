// Every object of a graph: the root and each object met, directly or inside arrays of
// VARIANTs or objects, among the values their Persist saves, each once (by COM identity).
// A list of objects still to visit stands in for recursion: a graph may chain any number
// of objects, and cycles are met only once.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "platform/ComPtr.h"

namespace tessaly::core {

class ObjectGraphObjects final : public ArchiveWriter {
public:
    // Throws bad_alloc. An object that cannot be saved adds what it saved before failing,
    // and the walk is then not complete.
    explicit ObjectGraphObjects(IUnknown* root);

    void WriteEntry(std::string_view name, const VARIANT& value) override;

    const std::vector<ComPtr<IUnknown>>& Objects() const noexcept { return objects_; }
    // False when some object could not be saved: objects beyond it may be missing.
    bool Complete() const noexcept { return complete_; }
    bool Contains(IUnknown* object) const;

    // Loads `object` from an empty archive (never keeping its values, whatever `options`
    // say): it goes back to a new object's state and drops whatever it holds. S_FALSE for
    // an object that does not persist through an archive; throws bad_alloc.
    static HRESULT Empty(IUnknown* object, int32_t options);

private:
    void Meet(IUnknown* object);
    void Value(const VARIANT& value);

    std::unordered_set<IUnknown*> seen_;
    std::vector<ComPtr<IUnknown>> objects_;  // the identities stay valid while they are compared
    bool complete_ = true;
};

}  // namespace tessaly::core
