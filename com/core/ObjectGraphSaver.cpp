#include "com/core/ObjectGraphSaver.h"

#include "TessalyCore.h"
#include "com/core/CLuxArchive.h"
#include "com/core/FormatterErrors.h"
#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "platform/ClassTable.h"
#include "platform/Guid.h"
#include "platform/MemoryStream.h"
#include "platform/TypeLibraryRegistry.h"
#include "xnl/std/except/ccStdError.h"

namespace tessaly::core {

namespace {

CLSID ClassIdOf(IUnknown* object) {
    CLSID clsid{};
    ComPtr<IPersist> persist;
    if (SUCCEEDED(object->QueryInterface(IPersist::iid, persist.OutVoid())) && persist &&
        SUCCEEDED(persist->GetClassID(&clsid)))
        return clsid;
    ComPtr<IPersistStream> stream;
    if (SUCCEEDED(object->QueryInterface(IPersistStream::iid, stream.OutVoid())) && stream &&
        SUCCEEDED(stream->GetClassID(&clsid)))
        return clsid;
    ComPtr<IProvideClassInfo> provider;
    if (SUCCEEDED(object->QueryInterface(IProvideClassInfo::iid, provider.OutVoid())) && provider) {
        ComPtr<ITypeInfo> info;
        if (SUCCEEDED(provider->GetClassInfo(info.Out())) && info && SUCCEEDED(info->GetGuid(&clsid))) return clsid;
    }
    return CLSID{};
}

std::string ProgIdOf(const CLSID& clsid) {
    const CoClassInfo* coclass = nullptr;
    if (const ClassEntry* entry = ClassTable::Find(clsid)) coclass = entry->coclass;
    if (!coclass) coclass = TypeLibraryRegistry::FindCoClass(clsid);
    return coclass && coclass->progId ? coclass->progId : "";
}

}  // namespace

std::string ObjectGraphSaver::DescribeObject(const std::string& progId) {
    return progId.empty() ? FormatterErrors::kNoProgIdName : progId;
}

ObjectGraphSaver::Visit ObjectGraphSaver::Enter(IUnknown* object) {
    if (!object) throw ccStdError::NullArgument("object");
    ComPtr<IUnknown> identity;
    ThrowIfFailed(object->QueryInterface(IUnknown::iid, identity.OutVoid()));
    Visit visit;
    if (const auto found = ids_.find(identity.get()); found != ids_.end()) {
        visit.id = found->second;
        return visit;
    }
    visit.first = true;
    visit.clsid = ClassIdOf(object);
    if (visit.clsid == CLSID{}) {
        if (refuseNullClassId_) FormatterErrors::Throw(ids_LuxFormatter_NoClassID);
    } else {
        visit.progId = ProgIdOf(visit.clsid);
        if (visit.progId.empty()) FormatterErrors::Throw(ids_LuxFormatter_NoProgID_1, {FormatGuid(visit.clsid)}, E_FAIL);
    }
    ComPtr<ILuxPersistArchive> archived;
    if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid())) || !archived) {
        ComPtr<IPersistStream> streamed;
        if (FAILED(object->QueryInterface(IPersistStream::iid, streamed.OutVoid())) || !streamed)
            FormatterErrors::Throw(ids_LuxFormatter_NotPersistable);
        visit.streamPersisted = true;
    }
    if (ids_.size() >= UINT32_MAX - 1) throw ccStdError::OutOfRange("the number of objects in one graph");
    visit.id = static_cast<uint32_t>(ids_.size() + 1);
    IUnknown* key = identity.get();
    kept_.push_back(std::move(identity));
    try {
        ids_.emplace(key, visit.id);
    } catch (...) {
        kept_.pop_back();
        throw;
    }
    return visit;
}

void ObjectGraphSaver::SaveEntries(IUnknown* object, ArchiveWriter& writer) {
    ComPtr<ILuxPersistArchive> archived;
    ThrowIfFailed(object->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid()));
    // The object's own failure comes back with its HRESULT and description and is passed
    // on unchanged; a sub-object's failure is thrown by the writer once Persist returned.
    ThrowIfFailed(CLuxArchive::Save(*archived, writer, options_));
}

std::vector<uint8_t> ObjectGraphSaver::SaveStream(IUnknown* object) {
    ComPtr<IPersistStream> streamed;
    ThrowIfFailed(object->QueryInterface(IPersistStream::iid, streamed.OutVoid()));
    auto stream = ComPtr<MemoryStream>::Attach(MemoryStream::Create());
    if (!stream) throw std::bad_alloc();
    const HRESULT saved = streamed->Save(stream.get(), (options_ & luxPersistOptionClearHasChangedOnSave) ? 1 : 0);
    if (FAILED(saved)) {
        const CLSID clsid = ClassIdOf(object);
        FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2,
                               {DescribeObject(clsid == CLSID{} ? "" : ProgIdOf(clsid)), MessageTable::ResultText(saved)});
    }
    return std::vector<uint8_t>(stream->Data(), stream->Data() + stream->Size());
}

}  // namespace tessaly::core
