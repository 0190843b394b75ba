// The part of saving an object graph that every format shares: numbering the objects by
// COM identity in the order a walk first meets them (so that an object met again is
// written as a reference, and shared objects and cycles survive), finding each object's
// class and ProgID and its kind of persistence, and running its Persist or its stream save.
// A formatter walks the graph itself and writes what it is told:
//
//     const auto visit = saver.Enter(object);
//     if (!visit.first) { write a reference to visit.id; return; }
//     write the object's start with visit.progId / visit.clsid and visit.id;
//     if (visit.streamPersisted) write saver.SaveStream(object);
//     else saver.SaveEntries(object, *this);   // WriteEntry is called for each value
//     write the object's end;
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "platform/ComPtr.h"
#include "platform/StandardInterfaces.h"

namespace tessaly::core {

class ObjectGraphSaver {
public:
    // `options` as the caller gave them; the saving bit is added.
    explicit ObjectGraphSaver(int32_t options) : options_(options | kSavingBit) {}

    struct Visit {
        uint32_t id = 0;               // from 1, in first-visit order
        bool first = false;            // false: already met, refer to `id`
        CLSID clsid{};                 // all zeros when the object names no class
        std::string progId;            // "" with an all-zero class ID
        bool streamPersisted = false;  // IPersistStream rather than ILuxPersistArchive
    };

    // Numbers a non-null object. On a first visit, reads its class ID (IPersist, else its
    // class information) and ProgID and its kind of persistence. Fails with
    // ids_LuxFormatter_NotPersistable (as the HRESULT) for an object that persists in
    // neither way, with ids_LuxFormatter_NoClassID when null class IDs are refused, and
    // with E_FAIL and ids_LuxFormatter_NoProgID_1 for a class without a ProgID.
    Visit Enter(IUnknown* object);

    // Runs the object's Persist with a saving archive that hands each value to `writer`;
    // sub-objects reach the writer after Persist returned (CLuxArchive::Save), so no lock
    // of the object is held while they are saved.
    void SaveEntries(IUnknown* object, ArchiveWriter& writer);
    // The bytes of a stream-persisted object's Save.
    std::vector<uint8_t> SaveStream(IUnknown* object);

    void SetRefuseNullClassID(bool refuse) noexcept { refuseNullClassId_ = refuse; }
    int32_t Options() const noexcept { return options_; }

    // How an object is named in messages: its ProgID, or "object with no ProgID".
    static std::string DescribeObject(const std::string& progId);

private:
    static constexpr int32_t kSavingBit = 0x40000000;  // luxPersistOptionSaving

    int32_t options_;
    bool refuseNullClassId_ = false;
    std::unordered_map<IUnknown*, uint32_t> ids_;  // identity -> number
    std::vector<ComPtr<IUnknown>> kept_;          // keeps numbered identities alive
};

}  // namespace tessaly::core
