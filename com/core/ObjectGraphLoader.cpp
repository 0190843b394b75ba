#include "com/core/ObjectGraphLoader.h"

#include "com/core/CLuxStringCollection.h"
#include "com/core/FormatterErrors.h"
#include "com/core/MessageTable.h"
#include "com/core/ObjectGraphObjects.h"
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

// Empties an object the loader made, whatever happens: out of memory, it stays as it is.
void Reset(IDispatch* object, int32_t options) noexcept {
    try {
        ObjectGraphObjects::Empty(object, options);
    } catch (...) {
    }
}

}  // namespace

ObjectGraphLoader::ObjectGraphLoader(int32_t options, IDispatch* existing)
    : options_(options & ~luxPersistOptionSaving), existing_(existing) {}

ObjectGraphLoader::~ObjectGraphLoader() {
    if (finished_) return;
    // Nothing outside the loader holds what it made, but a cycle among the objects loaded
    // so far would keep them alive for ever.
    for (const Loaded& loaded : objects_)
        if (loaded.created) Reset(loaded.object.get(), options_);
}

std::string ObjectGraphLoader::NameOf(const CLSID& clsid) const {
    const CoClassInfo* coclass = TypeLibraryRegistry::FindCoClass(clsid);
    return coclass && coclass->progId ? std::string(coclass->progId) : FormatGuid(clsid);
}

IDispatch* ObjectGraphLoader::Adopt(ComPtr<IDispatch> object, bool created, uint32_t id) {
    IDispatch* raw = object.get();
    objects_.push_back(Loaded{std::move(object), created});
    if (id != 0) {
        try {
            if (id == inOrderIds_.size() + 1)
                inOrderIds_.push_back(raw);
            else
                otherIds_.emplace(id, raw);
        } catch (...) {
            objects_.pop_back();
            throw;
        }
    }
    return raw;
}

void ObjectGraphLoader::CheckNewId(uint32_t id, const CLSID& clsid) const {
    if (id != 0 && Lookup(id)) FormatterErrors::Throw(ids_LuxFormatter_DuplicateID_2, {std::to_string(id), NameOf(clsid)});
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
        CheckNewId(id, clsid);
        return Adopt(existing_, false, id);
    }
    CheckNewId(id, clsid);
    ComPtr<IDispatch> object;
    const HRESULT made = tessaly::CreateObject(clsid, IDispatch::iid, object.OutVoid());
    if (made == E_OUTOFMEMORY) throw std::bad_alloc();
    if (FAILED(made) || !object) FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1, {NameOf(clsid)});
    return Adopt(std::move(object), true, id);
}

IDispatch* ObjectGraphLoader::Lookup(uint32_t id) const noexcept {
    if (id != 0 && id <= inOrderIds_.size()) return inOrderIds_[id - 1];
    const auto found = otherIds_.find(id);
    return found == otherIds_.end() ? nullptr : found->second;
}

IDispatch* ObjectGraphLoader::Find(uint32_t id) const noexcept {
    IDispatch* object = Lookup(id);
    if (object) referencedAgain_ = true;
    return object;
}

ComPtr<CLuxArchive> ObjectGraphLoader::NewArchive() {
    if (spareArchives_.empty()) return CLuxArchive::ForLoading(options_);
    ComPtr<CLuxArchive> archive = std::move(spareArchives_.back());
    spareArchives_.pop_back();
    return archive;
}

void ObjectGraphLoader::Recycle(ComPtr<CLuxArchive> archive) noexcept {
    constexpr size_t kSpares = 16;
    if (!archive || spareArchives_.size() >= kSpares) return;
    archive->AddRef();
    if (archive->Release() != 1) return;  // held elsewhere too: left to its holders
    archive->ClearForLoading();
    try {
        spareArchives_.push_back(std::move(archive));
    } catch (const std::bad_alloc&) {
        // Not kept: the next archive is made anew.
    }
}

namespace {

// Holds an object's change events while it lives, so that the reset and the load of an
// existing object reach its sinks as one change.
class HeldEvents {
public:
    explicit HeldEvents(IDispatch* object) noexcept {
        if (FAILED(object->QueryInterface(ILuxChangeEventConfiguration::iid, events_.OutVoid())) || !events_ ||
            FAILED(events_->SuspendEventDelivery()))
            events_ = nullptr;
    }
    ~HeldEvents() {
        if (events_) events_->ResumeAndFireEvent();
    }
    HeldEvents(const HeldEvents&) = delete;
    HeldEvents& operator=(const HeldEvents&) = delete;

private:
    ComPtr<ILuxChangeEventConfiguration> events_;
};

}  // namespace

void ObjectGraphLoader::LoadEntries(IDispatch* object, CLuxArchive& archive) {
    ComPtr<ILuxPersistArchive> archived;
    if (FAILED(object->QueryInterface(ILuxPersistArchive::iid, archived.OutVoid())) || !archived)
        FormatterErrors::Throw(ids_LuxFormatter_NotPersistable);
    // An object the loader made is in its default state already: resetting it again
    // would only cost time.
    const bool created = !existing_ || object != existing_.get();
    if (created) {
        ThrowIfFailed(archived->PreLoad());
        ThrowIfFailed(archived->Persist(&archive, options_ | luxPersistOptionNoResetOnLoad));
        return;
    }
    // The existing root: reset first, so that what PreLoad prepares is not reset away by
    // Persist (which then keeps what the document does not hold).
    const HeldEvents held(object);
    if (!(options_ & luxPersistOptionNoResetOnLoad)) ThrowIfFailed(ObjectGraphObjects::Empty(object, options_));
    ThrowIfFailed(archived->PreLoad());
    // The object's own failure (a value of the wrong type, say) is passed on as it is.
    ThrowIfFailed(archived->Persist(&archive, options_ | luxPersistOptionNoResetOnLoad));
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
    if (objects_.size() > 1 && referencedAgain_) {
        // Only an object met again (by reference) can close a cycle. A value no Persist kept (a name the object does not read, say) may hold an
        // object that holds itself: once the loader lets go nothing reaches it, and only
        // a reset frees it.
        try {
            // A graph that cannot be walked whole (an object that cannot be saved) stays as loaded.
            const ObjectGraphObjects reached(objects_.front().object.get());
            if (reached.Complete()) {
                for (const Loaded& loaded : objects_)
                    if (loaded.created && !reached.Contains(loaded.object.get())) Reset(loaded.object.get(), options_);
            }
        } catch (...) {
            // Out of memory while walking: the graph stays as loaded.
            ClearErrorInfo();
        }
    }
    finished_ = true;
    return objects_.empty() ? ComPtr<IDispatch>() : objects_.front().object;
}

}  // namespace tessaly::core
