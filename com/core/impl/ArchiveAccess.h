// How a class persists its state: one routine serves both directions, naming each property
// once:
//
//     void CLuxThing::PersistState(ArchiveAccess& archive) {
//         archive.Persist("Width", width_);
//         archive.Persist("Result", result_, ArchiveAccess::Content::Results);
//     }
//
// Saving (called with the object's lock held) hands each value to the archive at once.
// Loading reads every value first and only records the assignments; they are made
// together, under the lock and after the reset, once every value has been read, so that
// a load that fails halfway leaves the object as it was. A name the archive does not hold
// is not assigned (the property keeps its default, or with luxPersistOptionNoResetOnLoad
// its present value). Properties of a content kind the options do not select are skipped
// in both directions.
#pragma once

#include <cstdint>
#include <utility>
#include <string>
#include <string_view>
#include <vector>

#include "TessalyCore.h"
#include "com/core/impl/CommitList.h"
#include "platform/Bstr.h"
#include "platform/ComPtr.h"
#include "platform/Variant.h"

namespace tessaly::core {

class CLuxArchive;

class ArchiveAccess {
public:
    enum class Content : int32_t {
        Always = 0,
        Results = luxPersistOptionResults,
        InputImages = luxPersistOptionInputImages,
        OutputImages = luxPersistOptionOutputImages,
    };

    ArchiveAccess(ILuxArchive* archive, int32_t options);
    ArchiveAccess(const ArchiveAccess&) = delete;
    ArchiveAccess& operator=(const ArchiveAccess&) = delete;

    bool Saving() const noexcept { return (options_ & luxPersistOptionSaving) != 0; }
    int32_t Options() const noexcept { return options_; }
    bool Selected(Content content) const noexcept {
        return content == Content::Always || (options_ & static_cast<int32_t>(content)) != 0;
    }
    ILuxArchive* Archive() const noexcept { return archive_; }
    // Loading: how many values the archive holds (0 when it cannot say cheaply). An
    // archive that reads its values as they are asked for reads all the rest to answer.
    size_t StoredCount() const;
    // Loading: how many values the archive has read so far, without reading more: all of
    // them, or fewer when it reads them as they are asked for. For reserving room.
    size_t StoredCountSoFar() const;

    void Persist(std::string_view name, uint8_t& value, Content content = Content::Always);
    void Persist(std::string_view name, int16_t& value, Content content = Content::Always);
    void Persist(std::string_view name, int32_t& value, Content content = Content::Always);
    void Persist(std::string_view name, float& value, Content content = Content::Always);
    void Persist(std::string_view name, double& value, Content content = Content::Always);
    void Persist(std::string_view name, bool& value, Content content = Content::Always);
    void Persist(std::string_view name, Bstr& value, Content content = Content::Always);
    void Persist(std::string_view name, Variant& value, Content content = Content::Always);
    // An object property; loading accepts Nothing.
    void Persist(std::string_view name, ComPtr<IDispatch>& value, Content content = Content::Always);

    // The lower-level steps, for state that is not a fixed set of properties (a list):
    // saving one value; loading one value (false when absent), taken out of the archive.
    void Write(std::string_view name, const VARIANT& value);
    bool Read(std::string_view name, Variant& value);
    // Loading: an assignment made with the others once everything has been read: any
    // callable that does not throw, moved in with the value it assigns.
    template <class F>
    void OnCommit(F&& assignment) {
        commits_.Add(std::forward<F>(assignment));
    }

    // Loading: makes the recorded assignments, in order. Called by the object base.
    void Commit();

private:
    template <class T>
    void PersistScalar(std::string_view name, T& value, Content content, HRESULT (ILuxArchive::*member)(BSTR, T*));

    ILuxArchive* archive_;
    CLuxArchive* own_;  // the library's archive, reached directly; null for another
    ComPtr<ILuxArchive> keep_;
    int32_t options_;
    CommitList commits_;
};

}  // namespace tessaly::core
