#include "com/core/ObjectGraphLoader.h"

#include "com/core/CLuxStringCollection.h"
#include "com/core/FormatterErrors.h"
#include "com/core/MessageTable.h"
#include "com/core/ccCOMError.h"
#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"
#include "platform/Guid.h"
#include "platform/MemoryStream.h"
#include "platform/TypeLibraryRegistry.h"

namespace tessaly::core {

namespace {

// The class an existing object belongs to, through its class information.
CLSID ClassIdOf(IDispatch* object) {
    CLSID clsid{};
    ComPtr<IProvideClassInfo> provider;
    if (SUCCEEDED(object->QueryInterface(IProvideClassInfo::iid, provider.OutVoid())) && provider) {
        ComPtr<ITypeInfo> info;
        if (SUCCEEDED(provider->GetClassInfo(info.Out())) && info) info->GetGuid(&clsid);
    }
    return clsid;
}

// The description of the failure just reported on this thread, for a message insert.
std::string LastFailureText(HRESULT result) {
    ComPtr<IErrorInfo> info;
    GetErrorInfo(0, info.Out());
    if (info) {
        BSTR description = nullptr;
        if (SUCCEEDED(info->GetDescription(&description)) && description) {
            std::string text(BstrView(description));
            SysFreeString(description);
            if (!text.empty()) return text;
        }
    }
    return MessageTable::ResultText(result);
}

}  // namespace

ObjectGraphLoader::ObjectGraphLoader(int32_t options, IDispatch* existing)
    : options_(options & ~luxPersistOptionSaving), existing_(existing) {}

std::string ObjectGraphLoader::NameOf(const CLSID& clsid) const {
    const CoClassInfo* coclass = TypeLibraryRegistry::FindCoClass(clsid);
    return coclass && coclass->progId ? std::string(coclass->progId) : FormatGuid(clsid);
}

IDispatch* ObjectGraphLoader::Adopt(ComPtr<IDispatch> object, bool created, uint32_t id, std::string_view name) {
    if (id != 0 && ids_.count(id))
        FormatterErrors::Throw(ids_LuxFormatter_DuplicateID_2, {std::to_string(id), std::string(name)});
    objects_.reserve(objects_.size() + 1);
    IDispatch* raw = object.get();
    if (id != 0) ids_.emplace(id, raw);
    objects_.push_back(Loaded{std::move(object), created});
    return raw;
}

IDispatch* ObjectGraphLoader::Create(std::string_view progIdOrClsid, uint32_t id) {
    const ClassEntry* entry = ClassTable::Find(progIdOrClsid);
    if (!entry || !entry->coclass) FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1, {std::string(progIdOrClsid)});
    return Create(entry->coclass->clsid, id);
}

IDispatch* ObjectGraphLoader::Create(const CLSID& clsid, uint32_t id) {
    if (objects_.empty() && existing_) {
        if (!(ClassIdOf(existing_.get()) == clsid))
            FormatterErrors::Throw(ids_LuxFormatter_CantLoadObject_2,
                                   {NameOf(clsid), "the existing object is of another class"});
        return Adopt(existing_, false, id, NameOf(clsid));
    }
    if (id != 0 && ids_.count(id)) FormatterErrors::Throw(ids_LuxFormatter_DuplicateID_2, {std::to_string(id), NameOf(clsid)});
    ComPtr<IDispatch> object;
    const HRESULT made = tessaly::CreateObject(clsid, IDispatch::iid, object.OutVoid());
    if (made == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(made) || !object) FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1, {NameOf(clsid)});
    return Adopt(std::move(object), true, id, NameOf(clsid));
}

IDispatch* ObjectGraphLoader::Find(uint32_t id) const noexcept {
    const auto found = ids_.find(id);
    return found == ids_.end() ? nullptr : found->second;
}

ComPtr<CLuxArchive> ObjectGraphLoader::NewArchive() const { return CLuxArchive::ForLoading(options_); }

void ObjectGraphLoader::LoadEntries(IDispatch* object, CLuxArchive& archive) {
    ComPtr<ILuxPersistArchive> archived;
    if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid())) || !archived)
        FormatterErrors::Throw(ids_LuxFormatter_NotPersistable);
    ThrowIfFailed(archived->PreLoad());
    // The object's own failure (a value of the wrong type, say) is passed on as it is.
    ThrowIfFailed(archived->Persist(&archive, options_));
}

void ObjectGraphLoader::LoadStream(IDispatch* object, std::span<const uint8_t> bytes) {
    ComPtr<IPersistStream> streamed;
    if (FAILED(object->QueryInterface(IPersistStream::iid, streamed.OutVoid())) || !streamed)
        FormatterErrors::Throw(ids_LuxFormatter_NotPersistable);
    ComPtr<IStream> stream;
    ThrowIfFailed(MemoryStream::Create(bytes.data(), bytes.size(), stream.Out()));
    const HRESULT loaded = streamed->Load(stream.get());
    if (FAILED(loaded)) {
        CLSID clsid{};
        streamed->GetClassID(&clsid);
        FormatterErrors::Throw(ids_LuxFormatter_CantLoadObject_2, {NameOf(clsid), LastFailureText(loaded)});
    }
}

ComPtr<ILuxStringCollection> ObjectGraphLoader::Warnings() const {
    auto collection = ComPtr<CLuxStringCollection>::Attach(CLuxStringCollection::Create());
    if (!collection) throw std::bad_alloc();
    for (const std::string& text : warnings_) {
        Bstr item(text);
        ThrowIfFailed(collection->Add(item.get(), nullptr, -1));
    }
    return ComPtr<ILuxStringCollection>(collection.get());
}

ComPtr<IDispatch> ObjectGraphLoader::Finish() {
    for (auto loaded = objects_.rbegin(); loaded != objects_.rend(); ++loaded) {
        ComPtr<ILuxPersistArchive> archived;
        if (SUCCEEDED(loaded->object->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid())) && archived)
            ThrowIfFailed(archived->PostLoad(loaded->created ? VARIANT_TRUE : VARIANT_FALSE));
    }
    return objects_.empty() ? ComPtr<IDispatch>() : objects_.front().object;
}

}  // namespace tessaly::core
