#include "com/core/CLuxBinaryFormatter.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <limits>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

#include "com/core/ArchiveWriter.h"
#include "com/core/CLuxArchive.h"
#include "com/core/FormatterErrors.h"
#include "com/core/FormatterPreamble.h"
#include "com/core/MessageTable.h"
#include "com/core/MethodGuard.h"
#include "com/core/ObjectGraphLoader.h"
#include "com/core/ObjectGraphSaver.h"
#include "com/core/ccCOMError.h"
#include "persist/ccArchive.h"
#include "persist/ccByteDevice.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"
#include "platform/Guid.h"
#include "platform/SafeArray.h"
#include "platform/TypeLibraryRegistry.h"
#include "platform/Variant.h"
#include "xnl/std/except/ccStdError.h"

// Arrays of numbers are stored exactly as they lie in memory.
static_assert(std::endian::native == std::endian::little, "the binary format stores arrays as little-endian blocks");

namespace tessaly::core {

namespace {

const ClassRegistrar<CLuxBinaryFormatter> registrar;

// How an object value starts.
constexpr uint8_t kNullObject = 0;
constexpr uint8_t kObjectReference = 1;
constexpr uint8_t kNewObject = 2;
// How a new object's content is kept.
constexpr uint8_t kArchivePersisted = 1;
constexpr uint8_t kStreamPersisted = 2;
// What follows in an object's list of values.
constexpr uint8_t kEndOfEntries = 0;
constexpr uint8_t kEntry = 1;
// The last byte of every archive.
constexpr uint8_t kEndOfArchive = 0xFF;

// Bytes of each dimension's description: count and lower bound.
constexpr size_t kBoundSize = 8;
// The fewest bytes an array element takes in the archive, by element type.
constexpr size_t kMinimumStringSize = 4;   // the length
constexpr size_t kMinimumVariantSize = 2;  // the type
constexpr size_t kMinimumObjectSize = 1;   // the kind

// The text of a failure just reported on this thread by a stream.
std::string FailureText(HRESULT result) {
    ComPtr<IErrorInfo> info;
    GetErrorInfo(0, info.Out());
    if (info) {
        Bstr description;
        if (SUCCEEDED(info->GetDescription(description.Out())) && !description.empty()) return description.str();
    }
    return MessageTable::ResultText(result);
}

// The archive's device over a caller's stream. Its size and position are asked once, for
// the lengths a reader checks; a stream that cannot tell them cannot be read safely.
class StreamDevice final : public ccByteDevice {
public:
    explicit StreamDevice(IStream* stream) noexcept : stream_(stream) {}

    size_t Read(void* data, size_t size) override {
        size_t done = 0;
        while (done < size) {
            const ULONG chunk = static_cast<ULONG>(std::min<size_t>(size - done, kMaxChunk));
            ULONG got = 0;
            const HRESULT hr = stream_->Read(static_cast<uint8_t*>(data) + done, chunk, &got);
            if (FAILED(hr)) FormatterErrors::Throw(ids_LuxFormatter_ReadError_1, {FailureText(hr)});
            done += std::min(got, chunk);
            if (got < chunk) break;
        }
        return done;
    }

    void Write(const void* data, size_t size) override {
        size_t done = 0;
        while (done < size) {
            const ULONG chunk = static_cast<ULONG>(std::min<size_t>(size - done, kMaxChunk));
            ULONG written = 0;
            const HRESULT hr = stream_->Write(static_cast<const uint8_t*>(data) + done, chunk, &written);
            if (FAILED(hr)) FormatterErrors::Throw(ids_LuxFormatter_WriteError_1, {FailureText(hr)});
            if (written != chunk)
                FormatterErrors::Throw(ids_LuxFormatter_WriteError_1, {"the stream took " + std::to_string(written) +
                                                                       " of " + std::to_string(chunk) + " bytes"});
            done += chunk;
        }
    }

    uint64_t Remaining() override {
        ULONGLONG position = 0;
        if (FAILED(stream_->Seek(0, STREAM_SEEK_CUR, &position))) throw ccArchive::NotSeekable("the stream has no position");
        ULONGLONG end = 0;
        STATSTG stat{};
        if (SUCCEEDED(stream_->Stat(&stat, STATFLAG_NONAME))) {
            SysFreeString(stat.pwcsName);
            end = stat.cbSize;
        } else {
            if (FAILED(stream_->Seek(0, STREAM_SEEK_END, &end)) ||
                FAILED(stream_->Seek(static_cast<LONGLONG>(position), STREAM_SEEK_SET, nullptr)))
                throw ccArchive::NotSeekable("the stream cannot tell its size");
        }
        return end > position ? end - position : 0;
    }

    void Unread(size_t size) override {
        if (size == 0) return;
        if (FAILED(stream_->Seek(-static_cast<LONGLONG>(size), STREAM_SEEK_CUR, nullptr)))
            throw ccArchive::NotSeekable("the stream cannot step back");
    }

private:
    static constexpr size_t kMaxChunk = size_t(1) << 30;

    IStream* stream_;
};

// Counts one level of nesting while it lives.
class Nesting {
public:
    template <class Refuse>
    Nesting(uint32_t& depth, Refuse&& refuse) : depth_(depth) {
        if (depth_ >= CLuxBinaryFormatter::kMaxDepth) refuse();
        ++depth_;
    }
    ~Nesting() { --depth_; }
    Nesting(const Nesting&) = delete;
    Nesting& operator=(const Nesting&) = delete;

private:
    uint32_t& depth_;
};

std::string TypeText(VARTYPE vt) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04X", unsigned(vt));
    return text;
}

// The class version a ProgID carries in its last part ("Tessaly.LuxCollection.1" → 1);
// 0 when it carries none.
uint32_t ClassVersionOf(std::string_view progId) noexcept {
    const size_t dot = progId.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == progId.size()) return 0;
    uint32_t version = 0;
    const char* end = progId.data() + progId.size();
    const auto [stop, error] = std::from_chars(progId.data() + dot + 1, end, version);
    return error == std::errc() && stop == end ? version : 0;
}

// The newest version of a class this library knows; none (the largest number) for a
// class it does not know, which fails later when it cannot be created.
uint32_t NewestClassVersion(const CLSID& clsid) {
    const CoClassInfo* coclass = nullptr;
    if (const ClassEntry* entry = ClassTable::Find(clsid)) coclass = entry->coclass;
    if (!coclass) coclass = TypeLibraryRegistry::FindCoClass(clsid);
    if (!coclass || !coclass->progId) return std::numeric_limits<uint32_t>::max();
    return ClassVersionOf(coclass->progId);
}

void CheckSubFormat(BSTR subFormat) {
    if (!BstrView(subFormat).empty()) throw ccStdError::BadArgument("SubFormat");
}

// ---------------------------------------------------------------------------------------
// Saving

// A SAFEARRAY's memory, locked while it is written.
class ArrayAccess {
public:
    explicit ArrayAccess(SAFEARRAY* array) : array_(array) { ThrowIfFailed(SafeArrayAccessData(array, &data_)); }
    ~ArrayAccess() { SafeArrayUnaccessData(array_); }
    ArrayAccess(const ArrayAccess&) = delete;
    ArrayAccess& operator=(const ArrayAccess&) = delete;
    void* data() const noexcept { return data_; }

private:
    SAFEARRAY* array_;
    void* data_ = nullptr;
};

class BinaryWriter final : public ArchiveWriter {
public:
    BinaryWriter(ccArchive& archive, ObjectGraphSaver& saver) noexcept : archive_(archive), saver_(saver) {}

    void WriteEntry(std::string_view name, const VARIANT& value) override {
        archive_.Write<uint8_t>(kEntry);
        archive_.WriteString(name);
        WriteValue(value);
    }

    void WriteObject(IUnknown* object) {
        if (!object) {
            archive_.Write<uint8_t>(kNullObject);
            return;
        }
        const ObjectGraphSaver::Visit visit = saver_.Enter(object);
        if (!visit.first) {
            archive_.Write<uint8_t>(kObjectReference);
            archive_.Write<uint32_t>(visit.id);
            return;
        }
        const Nesting level(depth_, [&] {
            FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2,
                                   {ObjectGraphSaver::DescribeObject(visit.progId), TooDeep()});
        });
        archive_.Write<uint8_t>(kNewObject);
        archive_.Write<uint32_t>(visit.id);
        WriteClass(visit);
        if (visit.streamPersisted) {
            const std::vector<uint8_t> bytes = saver_.SaveStream(object);
            if (bytes.size() > std::numeric_limits<uint32_t>::max())
                FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2,
                                       {ObjectGraphSaver::DescribeObject(visit.progId), "its saved stream exceeds 4 GiB"});
            archive_.Write<uint8_t>(kStreamPersisted);
            archive_.Write<uint32_t>(static_cast<uint32_t>(bytes.size()));
            archive_.WriteBlock(bytes.data(), bytes.size());
        } else {
            archive_.Write<uint8_t>(kArchivePersisted);
            saver_.SaveEntries(object, *this);
            archive_.Write<uint8_t>(kEndOfEntries);
        }
    }

private:
    static std::string TooDeep() {
        return "objects and arrays are nested deeper than " + std::to_string(CLuxBinaryFormatter::kMaxDepth) + " levels";
    }

    // A class is described once, where its first object is written; later objects of the
    // class name its index.
    void WriteClass(const ObjectGraphSaver::Visit& visit) {
        const auto [known, added] = classes_.emplace(visit.clsid, static_cast<uint32_t>(classes_.size()));
        archive_.Write<uint32_t>(known->second);
        if (!added) return;
        archive_.Write<uint32_t>(visit.clsid.Data1);
        archive_.Write<uint16_t>(visit.clsid.Data2);
        archive_.Write<uint16_t>(visit.clsid.Data3);
        archive_.WriteBlock(visit.clsid.Data4, sizeof visit.clsid.Data4);
        archive_.WriteClassVersion(ClassVersionOf(visit.progId));
        archive_.WriteString(visit.progId);
    }

    void WriteValue(const VARIANT& given) {
        VARIANT value = given;
        if (given.vt & VT_BYREF) {
            // One level of reference, written as the value it refers to.
            if (!given.byref) throw ccArchive::BadType("a reference to nothing");
            const VARTYPE type = given.vt & ~VT_BYREF;
            if (type == VT_VARIANT) {
                value = *given.pvarVal;
                if (value.vt & VT_BYREF) throw ccArchive::BadType("a reference to a reference");
            } else if (type & VT_ARRAY) {
                value.vt = type;
                value.parray = *given.pparray;
            } else {
                const size_t size = ReferencedValueSize(type);
                if (size == 0) throw ccArchive::UnknownType("a reference of type " + TypeText(given.vt));
                value.vt = type;
                value.llVal = 0;
                std::memcpy(&value.llVal, given.byref, size);
            }
        }
        if (value.vt & VT_ARRAY) {
            WriteArray(value.vt, value.parray);
            return;
        }
        archive_.Write<uint16_t>(value.vt);
        switch (value.vt) {
            case VT_EMPTY: case VT_NULL: return;
            case VT_I1: archive_.Write<int8_t>(value.cVal); return;
            case VT_UI1: archive_.Write<uint8_t>(value.bVal); return;
            case VT_I2: archive_.Write<int16_t>(value.iVal); return;
            case VT_UI2: archive_.Write<uint16_t>(value.uiVal); return;
            case VT_BOOL: archive_.Write<int16_t>(value.boolVal); return;
            case VT_I4: case VT_INT: archive_.Write<int32_t>(value.lVal); return;
            case VT_UI4: case VT_UINT: archive_.Write<uint32_t>(value.ulVal); return;
            case VT_ERROR: archive_.Write<int32_t>(value.scode); return;
            case VT_R4: archive_.Write<float>(value.fltVal); return;
            case VT_I8: archive_.Write<int64_t>(value.llVal); return;
            case VT_UI8: archive_.Write<uint64_t>(value.ullVal); return;
            case VT_R8: archive_.Write<double>(value.dblVal); return;
            case VT_DATE: archive_.Write<double>(value.date); return;
            case VT_CY: archive_.Write<int64_t>(value.cyVal.int64); return;
            case VT_BSTR: archive_.WriteString(BstrView(value.bstrVal)); return;
            case VT_DISPATCH: WriteObject(value.pdispVal); return;
            case VT_UNKNOWN: WriteObject(value.punkVal); return;
            default: throw ccArchive::UnknownType("a value of type " + TypeText(value.vt) + " cannot be stored");
        }
    }

    void WriteArray(VARTYPE vt, SAFEARRAY* array) {
        const VARTYPE element = vt & ~VT_ARRAY;
        if (SafeArrayElementSize(element) == 0) throw ccArchive::UnknownType("an array of type " + TypeText(vt) + " cannot be stored");
        archive_.Write<uint16_t>(vt);
        if (!array) {
            archive_.Write<uint16_t>(0);  // no dimensions: a null array
            return;
        }
        VARTYPE stored = VT_EMPTY;
        if (FAILED(SafeArrayGetVartype(array, &stored)) || stored != element)
            throw ccArchive::BadType("the array held by a value of type " + TypeText(vt) + " has elements of type " +
                                     TypeText(stored));
        if (array->cbElements != SafeArrayElementSize(element))
            throw ccArchive::BadType("the array's elements are " + std::to_string(array->cbElements) + " bytes each");
        const UINT dims = SafeArrayGetDim(array);
        archive_.Write<uint16_t>(static_cast<uint16_t>(dims));
        for (UINT dim = 1; dim <= dims; ++dim) {
            LONG lower = 0;
            ThrowIfFailed(SafeArrayGetLBound(array, dim, &lower));
            archive_.Write<uint32_t>(array->rgsabound[dims - dim].cElements);
            archive_.Write<int32_t>(lower);
        }
        const size_t count = SafeArrayElementCount(array);
        const ArrayAccess access(array);
        if (NumberValueSize(element)) {
            archive_.WriteBlock(access.data(), count * array->cbElements);  // one block, straight from the array
            return;
        }
        switch (element) {
            case VT_BSTR:
                for (size_t i = 0; i < count; ++i) archive_.WriteString(BstrView(static_cast<BSTR*>(access.data())[i]));
                return;
            case VT_VARIANT: {
                const Nesting level(depth_, [] {
                    FormatterErrors::Throw(ids_LuxFormatter_CantSaveObject_2, {"array", TooDeep()});
                });
                for (size_t i = 0; i < count; ++i) WriteValue(static_cast<VARIANT*>(access.data())[i]);
                return;
            }
            default:
                for (size_t i = 0; i < count; ++i) WriteObject(static_cast<IUnknown**>(access.data())[i]);
                return;
        }
    }

    ccArchive& archive_;
    ObjectGraphSaver& saver_;
    std::unordered_map<CLSID, uint32_t, GuidHash> classes_;
    uint32_t depth_ = 0;
};

// ---------------------------------------------------------------------------------------
// Loading

class BinaryReader {
public:
    BinaryReader(ccArchive& archive, ObjectGraphLoader& loader) noexcept : archive_(archive), loader_(loader) {}

    // The whole document: the root, whose values reach it only once the end mark has been
    // read, so that a cut-off archive leaves an existing root as it was.
    ComPtr<IDispatch> ReadDocument() {
        if (archive_.Read<uint8_t>() != kNewObject) throw ccArchive::BadContent("the archive does not start with an object");
        Pending root = ReadNewObject(false);
        if (archive_.Read<uint8_t>() != kEndOfArchive) throw ccArchive::BadContent("no end mark after the root object");
        Complete(root);
        return loader_.Finish();
    }

private:
    struct ClassRecord {
        CLSID clsid;
        std::string progId;
    };

    // An object read but not yet loaded.
    struct Pending {
        IDispatch* object = nullptr;
        uint32_t id = 0;
        size_t classIndex = 0;
        ComPtr<CLuxArchive> archive;  // archive-persisted
        std::vector<uint8_t> bytes;   // stream-persisted
        bool loaded = false;          // loaded as its values were read
    };

    // Hands an object's values to its archive one at a time, as Persist asks for them.
    class EntryStream final : public ArchiveSource {
    public:
        EntryStream(BinaryReader& reader, const Pending& owner) noexcept : reader_(reader), owner_(owner) {}
        bool NextEntry(std::string& name, Variant& value) override { return reader_.ReadEntry(owner_, name, value); }
        void DroppedDuplicate(std::string_view name) override { reader_.WarnDuplicate(owner_, name); }

    private:
        BinaryReader& reader_;
        const Pending& owner_;
    };

    // Objects nested deeper than this are read whole before they load, as the root is:
    // loading while reading puts the stack of a Persist between each level and the next.
    static constexpr uint32_t kLoadWhileReadingDepth = 64;

    // Made only for a warning or a failure: most objects never need it.
    std::string Describe(const Pending& pending) const {
        return ObjectGraphSaver::DescribeObject(classes_[pending.classIndex].progId) + " (object " +
               std::to_string(pending.id) + ")";
    }

    void Complete(Pending& pending) {
        if (pending.archive) {
            loader_.LoadEntries(pending.object, *pending.archive);
            loader_.Recycle(std::move(pending.archive));
        } else {
            loader_.LoadStream(pending.object, pending.bytes);
        }
    }

    // A non-owning pointer to the object (the loader keeps it), or null.
    IDispatch* ReadObject() {
        const uint8_t kind = archive_.Read<uint8_t>();
        switch (kind) {
            case kNullObject: return nullptr;
            case kObjectReference: {
                const uint32_t id = archive_.Read<uint32_t>();
                IDispatch* object = loader_.Find(id);
                if (!object) throw ccArchive::NotFound("object " + std::to_string(id) + " is referred to before it is stored");
                return object;
            }
            case kNewObject: {
                Pending pending = ReadNewObject(true);
                if (!pending.loaded) Complete(pending);
                return pending.object;
            }
            default: throw ccArchive::BadContent("an object value of kind " + std::to_string(kind));
        }
    }

    // `loadNow`: a new object below the root, loaded as its values are read, so that they
    // reach its Persist without being stored by name first. The root waits for the end
    // mark, so that a cut-off archive leaves an existing root as it was.
    Pending ReadNewObject(bool loadNow) {
        const Nesting level(depth_, [] {
            throw ccArchive::BadContent("objects and arrays are nested deeper than " +
                                        std::to_string(CLuxBinaryFormatter::kMaxDepth) + " levels");
        });
        const uint32_t id = archive_.Read<uint32_t>();
        if (id != objects_ + 1) {
            if (id != 0 && id <= objects_) throw ccArchive::Duplicate("object number " + std::to_string(id) + " is used twice");
            throw ccArchive::BadContent("object number " + std::to_string(id) + " where " + std::to_string(objects_ + 1) +
                                        " comes next");
        }
        ++objects_;
        Pending pending;
        pending.id = id;
        pending.classIndex = ReadClass();
        const ClassRecord& record = classes_[pending.classIndex];
        // An object made from a null class ID cannot be made again.
        if (record.clsid == GUID_NULL) FormatterErrors::Throw(ids_LuxFormatter_CantCreateObject_1, {FormatterErrors::kNoProgIdName});
        pending.object = loader_.Create(record.clsid, id);
        const uint8_t kind = archive_.Read<uint8_t>();
        if (kind == kArchivePersisted && loadNow && depth_ <= kLoadWhileReadingDepth) {
            LoadWhileReading(pending);
        } else if (kind == kArchivePersisted) {
            pending.archive = loader_.NewArchive();
            ReadEntries(*pending.archive, pending);
        } else if (kind == kStreamPersisted) {
            pending.bytes.resize(archive_.ReadLength());
            archive_.ReadBlock(pending.bytes.data(), pending.bytes.size());
        } else {
            throw ccArchive::BadContent(Describe(pending) + " is kept in way " + std::to_string(kind));
        }
        return pending;
    }

    // The index of the class in classes_.
    size_t ReadClass() {
        const uint32_t index = archive_.Read<uint32_t>();
        if (index < classes_.size()) return index;
        if (index != classes_.size())
            throw ccArchive::BadContent("class " + std::to_string(index) + " where " + std::to_string(classes_.size()) +
                                        " comes next");
        ClassRecord record{};
        record.clsid.Data1 = archive_.Read<uint32_t>();
        record.clsid.Data2 = archive_.Read<uint16_t>();
        record.clsid.Data3 = archive_.Read<uint16_t>();
        archive_.ReadBlock(record.clsid.Data4, sizeof record.clsid.Data4);
        try {
            archive_.ReadClassVersion(NewestClassVersion(record.clsid));
        } catch (ccArchive::UnknownVersion& error) {
            throw ccArchive::UnknownVersion(FormatGuid(record.clsid) + ": " + error.Details());
        }
        record.progId = archive_.ReadString();
        classes_.push_back(std::move(record));
        return index;
    }

    // The object's Persist reads its values from the stream. The failures come out in the
    // order they would if all the values had been read first: the stream's own (a cut-off
    // or damaged value, or a failure of a sub-object met while reading), then Persist's.
    void LoadWhileReading(Pending& pending) {
        ComPtr<CLuxArchive> archive = loader_.NewArchive();
        EntryStream source(*this, pending);
        archive->ReadFrom(source);
        std::exception_ptr persistFailure;
        try {
            loader_.LoadEntries(pending.object, *archive);
        } catch (...) {
            persistFailure = std::current_exception();
        }
        archive->FinishReading();  // lets go of the source whatever it throws
        if (persistFailure) std::rethrow_exception(persistFailure);
        loader_.Recycle(std::move(archive));
        pending.loaded = true;
    }

    // The next value of an object; false at the end of its values.
    bool ReadEntry(const Pending& owner, std::string& name, Variant& value) {
        const uint8_t mark = archive_.Read<uint8_t>();
        if (mark == kEndOfEntries) return false;
        if (mark != kEntry) throw ccArchive::BadContent("a value of " + Describe(owner) + " marked " + std::to_string(mark));
        archive_.ReadString(name);
        value = ReadValue();
        return true;
    }

    void WarnDuplicate(const Pending& owner, std::string_view name) {
        loader_.Warn("The value " + std::string(name) + " of " + Describe(owner) + " is stored twice; the second one was skipped.");
    }

    void ReadEntries(CLuxArchive& archive, const Pending& owner) {
        std::string name;
        Variant value;
        while (ReadEntry(owner, name, value)) {
            try {
                archive.AddEntry(name, std::move(value));
            } catch (const ccArchive::Duplicate&) {
                WarnDuplicate(owner, name);
            }
            value = Variant();
        }
    }

    Variant ReadValue() {
        const VARTYPE vt = archive_.Read<uint16_t>();
        if (vt & VT_ARRAY) return ReadArray(vt);
        VARIANT value;
        VariantInit(&value);
        switch (vt) {
            case VT_EMPTY: case VT_NULL: break;
            case VT_I1: value.cVal = archive_.Read<int8_t>(); break;
            case VT_UI1: value.bVal = archive_.Read<uint8_t>(); break;
            case VT_I2: value.iVal = archive_.Read<int16_t>(); break;
            case VT_UI2: value.uiVal = archive_.Read<uint16_t>(); break;
            case VT_BOOL: value.boolVal = archive_.Read<int16_t>(); break;
            case VT_I4: case VT_INT: value.lVal = archive_.Read<int32_t>(); break;
            case VT_UI4: case VT_UINT: value.ulVal = archive_.Read<uint32_t>(); break;
            case VT_ERROR: value.scode = archive_.Read<int32_t>(); break;
            case VT_R4: value.fltVal = archive_.Read<float>(); break;
            case VT_I8: value.llVal = archive_.Read<int64_t>(); break;
            case VT_UI8: value.ullVal = archive_.Read<uint64_t>(); break;
            case VT_R8: value.dblVal = archive_.Read<double>(); break;
            case VT_DATE: value.date = archive_.Read<double>(); break;
            case VT_CY: value.cyVal.int64 = archive_.Read<int64_t>(); break;
            case VT_BSTR: value.bstrVal = ReadString(true); break;
            case VT_DISPATCH:
            case VT_UNKNOWN:
                value.pdispVal = ReadObject();
                if (value.pdispVal) value.pdispVal->AddRef();
                break;
            default: throw ccArchive::UnknownType("a value of type " + TypeText(vt));
        }
        value.vt = vt;
        return Variant::Attach(value);
    }

    // A string as a new BSTR. An empty one is null in arrays (as new array elements are)
    // and an allocated "" in values.
    BSTR ReadString(bool allocateEmpty) {
        const uint32_t length = archive_.ReadLength();
        if (length == 0 && !allocateEmpty) return nullptr;
        if (const uint8_t* bytes = archive_.TakeBuffered(length)) {
            BSTR text = SysAllocStringLen(reinterpret_cast<const char*>(bytes), length);
            if (!text) throw std::bad_alloc();
            return text;
        }
        Bstr text = Bstr::Attach(SysAllocStringLen(nullptr, length));
        if (!text.get()) throw std::bad_alloc();
        archive_.ReadBlock(text.get(), length);
        return text.Detach();
    }

    Variant ReadArray(VARTYPE vt) {
        const VARTYPE element = vt & ~VT_ARRAY;
        if (SafeArrayElementSize(element) == 0) throw ccArchive::UnknownType("an array of type " + TypeText(vt));
        const uint16_t dims = archive_.Read<uint16_t>();
        VARIANT value;
        VariantInit(&value);
        value.vt = vt;
        if (dims == 0) return Variant::Attach(value);  // a null array
        if (dims > archive_.Remaining() / kBoundSize)
            throw ccArchive::Eof("an array of " + std::to_string(dims) + " dimensions, " +
                                 std::to_string(archive_.Remaining()) + " bytes remain");
        std::vector<SAFEARRAYBOUND> bounds(dims);
        uint64_t count = 1;
        for (SAFEARRAYBOUND& bound : bounds) {
            bound.cElements = archive_.Read<uint32_t>();
            bound.lLbound = archive_.Read<int32_t>();
            if (int64_t(bound.lLbound) + int64_t(bound.cElements) - 1 > std::numeric_limits<int32_t>::max())
                throw ccArchive::BadContent("an array dimension ends beyond the largest index");
            // A count above what the input could hold is refused below; held at a cap so
            // that the product cannot overflow on the way.
            constexpr uint64_t kCap = uint64_t(1) << 40;
            count = bound.cElements == 0 ? 0 : count > kCap / bound.cElements ? kCap : count * bound.cElements;
        }
        const size_t number = NumberValueSize(element);
        const size_t minimum = number                 ? number
                               : element == VT_BSTR    ? kMinimumStringSize
                               : element == VT_VARIANT ? kMinimumVariantSize
                                                       : kMinimumObjectSize;
        if (count > archive_.Remaining() / minimum)
            throw ccArchive::Eof("an array of " + std::to_string(count) + " elements, " +
                                 std::to_string(archive_.Remaining()) + " bytes remain");
        // Numbers are about to be overwritten by one block: they are not zeroed first.
        value.parray = SafeArrayCreateForFill(element, dims, bounds.data());
        if (!value.parray) {
            if (count > 0x7FFFFFFF) throw ccArchive::BadContent("an array of " + std::to_string(count) + " elements");
            throw std::bad_alloc();
        }
        Variant owned = Variant::Attach(value);  // released if reading the elements fails
        void* data = owned.get().parray->pvData;
        const size_t elements = static_cast<size_t>(count);
        if (number) {
            archive_.ReadBlock(data, elements * number);  // one block, straight into the array
            return owned;
        }
        switch (element) {
            case VT_BSTR:
                for (size_t i = 0; i < elements; ++i) static_cast<BSTR*>(data)[i] = ReadString(false);
                break;
            case VT_VARIANT: {
                const Nesting level(depth_, [] {
                    throw ccArchive::BadContent("objects and arrays are nested deeper than " +
                                                std::to_string(CLuxBinaryFormatter::kMaxDepth) + " levels");
                });
                for (size_t i = 0; i < elements; ++i) static_cast<VARIANT*>(data)[i] = ReadValue().Detach();
                break;
            }
            default:
                for (size_t i = 0; i < elements; ++i) {
                    IDispatch* object = ReadObject();
                    if (object) object->AddRef();
                    static_cast<IUnknown**>(data)[i] = object;
                }
                break;
        }
        return owned;
    }

    ccArchive& archive_;
    ObjectGraphLoader& loader_;
    std::vector<ClassRecord> classes_;
    uint32_t objects_ = 0;
    uint32_t depth_ = 0;
};

}  // namespace

HRESULT CLuxBinaryFormatter::Serialize(IStream* Stream, IDispatch* Obj, LONG Options, BSTR SubFormat) {
    return FormatterPreamble::Serialize(Stream, Obj, Options, [&](ObjectGraphSaver& saver) {
        CheckSubFormat(SubFormat);
        StreamDevice device(Stream);
        ccArchive archive = ccArchive::ForWriting(device);
        BinaryWriter writer(archive, saver);
        writer.WriteObject(Obj);
        archive.Write<uint8_t>(kEndOfArchive);
        archive.Finish();
    });
}

HRESULT CLuxBinaryFormatter::Deserialize(IStream* Stream, IDispatch* Existing, LONG Options, BSTR SubFormat,
                                         ILuxStringCollection** Warnings, IDispatch** Obj) {
    return FormatterPreamble::Deserialize(Stream, Existing, Options, Warnings, Obj, [&](ObjectGraphLoader& loader) -> ComPtr<IDispatch> {
        CheckSubFormat(SubFormat);
        StreamDevice device(Stream);
        ccArchive archive = ccArchive::ForReading(device);
        BinaryReader reader(archive, loader);
        ComPtr<IDispatch> root = reader.ReadDocument();
        archive.Finish();
        return root;
    });
}

}  // namespace tessaly::core
