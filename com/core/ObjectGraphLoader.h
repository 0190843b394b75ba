// The part of loading an object graph that every format shares: creating each object from
// its class (or taking the caller's existing object for the root), remembering objects by
// their number so that references resolve, loading each object once its values have been
// read (reset unless luxPersistOptionNoResetOnLoad, PreLoad, Persist), and PostLoad for all
// of them at the end. A formatter
// reads the document and, for each object:
//
//     IDispatch* object = loader.Create(progId, id);   // at the object's start
//     auto archive = loader.NewArchive();
//     archive->AddEntry(name, value) ...               // its values; references via Find(id)
//     loader.LoadEntries(object, *archive);             // at its end
//
// then `loader.Finish()` gives the root. Until Persist runs, an object is only created,
// so a document that fails to parse leaves an existing root untouched.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "TessalyCore.h"
#include "com/core/CLuxArchive.h"
#include "platform/ComPtr.h"

namespace tessaly::core {

class ObjectGraphLoader {
public:
    // `options` as the caller gave them; the saving bit is cleared. `existing` (may be
    // null) receives the root's state instead of a new object.
    ObjectGraphLoader(int32_t options, IDispatch* existing);
    // A load that never got through Finish resets every object it created, so that
    // objects loaded before the failure that hold each other (or themselves) are freed.
    ~ObjectGraphLoader();
    ObjectGraphLoader(const ObjectGraphLoader&) = delete;
    ObjectGraphLoader& operator=(const ObjectGraphLoader&) = delete;

    // A new object of the class named by a ProgID or "{CLSID}" (ids_LuxFormatter_
    // CantCreateObject_1 when none can be made); the first object asked for is the root,
    // which is the existing object when there is one (ids_LuxFormatter_CantLoadObject_2
    // when its class differs). `id` 0 registers no number; a number given twice fails
    // with ids_LuxFormatter_DuplicateID_2. The loader keeps the object alive.
    IDispatch* Create(std::string_view progIdOrClsid, uint32_t id);
    IDispatch* Create(const CLSID& clsid, uint32_t id);
    // The object with a number, or null.
    IDispatch* Find(uint32_t id) const noexcept;

    // An empty loading archive: one given back by Recycle, else a new one.
    ComPtr<CLuxArchive> NewArchive();
    // Takes back an archive whose object has loaded, for the next NewArchive, unless
    // someone else still holds it (an object may keep the archive it was given).
    void Recycle(ComPtr<CLuxArchive> archive) noexcept;
    // Loads one object: resets an existing object (unless the options say not to), then
    // PreLoad, then Persist with the values read, which resets nothing more. An existing
    // object's events of the reset and the load are delivered as one change. A failure of
    // Persist leaves an existing object reset, with what its PreLoad prepared.
    void LoadEntries(IDispatch* object, CLuxArchive& archive);
    // A stream-persisted object's Load from its saved bytes.
    void LoadStream(IDispatch* object, std::span<const uint8_t> bytes);

    void Warn(std::string text) { warnings_.push_back(std::move(text)); }
    const std::vector<std::string>& WarningTexts() const noexcept { return warnings_; }
    // The warnings as a new LuxStringCollection.
    ComPtr<ILuxStringCollection> Warnings() const;

    // PostLoad on every object, the objects created last first (so that sub-objects are
    // complete before the objects that hold them); returns the root (null when the
    // document held no object). When references were resolved, objects the root does not
    // reach are reset, so that a cycle among them cannot outlive the load.
    ComPtr<IDispatch> Finish();

    int32_t Options() const noexcept { return options_; }

private:
    IDispatch* Adopt(ComPtr<IDispatch> object, bool created, uint32_t id);
    void CheckNewId(uint32_t id, const CLSID& clsid) const;
    IDispatch* Lookup(uint32_t id) const noexcept;
    std::string NameOf(const CLSID& clsid) const;

    int32_t options_;
    ComPtr<IDispatch> existing_;
    // Archives given back, kept for reuse: a graph of many small objects would otherwise
    // make and free an archive and its entries per object. As many as objects nest deep
    // at most, and few.
    std::vector<ComPtr<CLuxArchive>> spareArchives_;
    struct Loaded {
        ComPtr<IDispatch> object;
        bool created;
    };
    std::vector<Loaded> objects_;  // in creation order; the root first
    // Objects by id. Writers number objects 1, 2, 3, ... in the order a reader meets them,
    // so ids that arrive in that order are kept in a vector (id - 1); any other in a map.
    std::vector<IDispatch*> inOrderIds_;
    std::unordered_map<uint32_t, IDispatch*> otherIds_;
    std::vector<std::string> warnings_;
    bool finished_ = false;
    mutable bool referencedAgain_ = false;  // a reference resolved: the graph may have cycles
};

}  // namespace tessaly::core
