// What the record tests share: records made as a client makes them, a log of their Change
// events with the sub-record index of a passed-on event, what a client can see of a record
// (to show that a refusal left it as it was), and a record constructor that logs its calls
// and does what each test tells it.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "image/ImageFixture.h"
#include "platform/ErrorInfo.h"
#include "platform/UnknownObject.h"

namespace tessaly::test {

struct RecordEvent {
    int32_t stateId = 0;
    int32_t sourceIndex = -99;  // the sub-record's index for -2, else -99
    int32_t innerStateId = 0;   // the sub-record's own state ID for -2
    bool operator==(const RecordEvent&) const = default;
};

// A client's view of one record: its fields and its sub-records' keys (no content objects).
struct RecordView {
    std::string key, annotation;
    LONG type = -1, usage = -1;
    bool contentMutable = false;
    std::string content;  // a string content, or "<vt N>"
    std::vector<std::string> itemKeys;
    bool operator==(const RecordView&) const = default;
};

// One call of the constructor.
struct ConstructorCall {
    std::string method;
    ILuxRecord* record = nullptr;  // not held
    std::string key;
    LONG flags = 0;
    bool operator==(const ConstructorCall&) const = default;
};

class TestConstructor final : public UnknownObject<TestConstructor, ILuxRecordConstructor> {
public:
    using Action = std::function<HRESULT(ILuxRecord* record)>;
    struct Shared {
        std::vector<ConstructorCall> calls;
        Action content, annotation, items;
        int copies = 0;
        bool refuseCopy = false;
    };

    explicit TestConstructor(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
    static ComPtr<ILuxRecordConstructor> Make(std::shared_ptr<Shared> shared) {
        return ComPtr<ILuxRecordConstructor>::Attach(Create(std::move(shared)));
    }

    HRESULT ConstructRecordContent(ILuxRecord* Record, BSTR RecordKey, LONG Flags) override {
        return Call("Content", shared_->content, Record, RecordKey, Flags);
    }
    HRESULT ConstructRecordAnnotation(ILuxRecord* Record, BSTR RecordKey, LONG Flags) override {
        return Call("Annotation", shared_->annotation, Record, RecordKey, Flags);
    }
    HRESULT ConstructRecordItems(ILuxRecord* Record, BSTR RecordKey, LONG Flags) override {
        return Call("Items", shared_->items, Record, RecordKey, Flags);
    }
    HRESULT Copy(ILuxRecordConstructor** Copy) override {
        *Copy = nullptr;
        if (shared_->refuseCopy) return SetErrorInfo(E_ACCESSDENIED, "no copies", "Copy", IID_ILuxRecordConstructor);
        ++shared_->copies;
        *Copy = Create(shared_);
        return *Copy ? S_OK : E_OUTOFMEMORY;
    }

    HRESULT GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*, UINT*) override {
        return E_NOTIMPL;
    }

private:
    ~TestConstructor() override = default;
    HRESULT Call(const char* method, const Action& action, ILuxRecord* record, BSTR key, LONG flags) {
        shared_->calls.push_back(ConstructorCall{method, record, std::string(BstrView(key)), flags});
        return action ? action(record) : S_OK;
    }
    std::shared_ptr<Shared> shared_;
};

class RecordFixture : public ImageFixture {
public:
    static ComPtr<ILuxRecord> NewRecord(const char* key = "", LONG type = 0) {
        auto record = Make<ILuxRecord>("Tessaly.LuxRecord");
        EXPECT_EQ(record->put_RecordKey(Bstr(key).get()), S_OK);
        EXPECT_EQ(record->put_RecordType(static_cast<LuxRecordTypeConstants>(type)), S_OK);
        return record;
    }

    // Adds a new sub-record through AddNew with a string content.
    static ComPtr<ILuxRecord> AddString(ILuxRecord* parent, const char* key, const char* text,
                                        ILuxRecordConstructor* constructor = nullptr, LONG flags = 0) {
        ComPtr<ILuxRecord> added;
        EXPECT_EQ(parent->AddNew(Bstr(key).get(), luxRecordTypeString, luxRecordUsageResult, VARIANT_FALSE,
                                 Variant(text).get(), Bstr("").get(), constructor, flags, added.Out()),
                  S_OK);
        return added;
    }

    static std::shared_ptr<std::vector<RecordEvent>> Events(IUnknown* object) {
        auto log = std::make_shared<std::vector<RecordEvent>>();
        auto sink = ComPtr<IDispatch>::Attach(MakeEventSink(
            luxChange_Change,
            [log](std::span<const VARIANT> args) {
                RecordEvent event{args[0].lVal};
                if (event.stateId == luxState_SubObjectEvent && args[1].vt == VT_DISPATCH && args[1].pdispVal) {
                    ComPtr<ILuxEventInfo> info;
                    if (SUCCEEDED(args[1].pdispVal->QueryInterface(IID_ILuxEventInfo, info.OutVoid()))) {
                        LONG index = -99;
                        info->get_SourceIndex(&index);
                        event.sourceIndex = index;
                        Variant inner;
                        info->get_Arguments(0, inner.Out());
                        if (inner.vt() == VT_I4) event.innerStateId = inner.get().lVal;
                    }
                }
                log->push_back(event);
            },
            DIID_ILuxChangeEvent));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(object, DIID_ILuxChangeEvent, sink.get(), &cookie), S_OK);
        return log;
    }

    // What a client sees, read without triggering any construction when `items` is false.
    static RecordView View(ILuxRecord* record, bool items = true) {
        RecordView view;
        Bstr text;
        EXPECT_EQ(record->get_RecordKey(text.Out()), S_OK);
        view.key = text.str();
        EXPECT_EQ(record->get_Annotation(text.Out()), S_OK);
        view.annotation = text.str();
        LuxRecordTypeConstants type{};
        EXPECT_EQ(record->get_RecordType(&type), S_OK);
        view.type = type;
        LuxRecordUsageConstants usage{};
        EXPECT_EQ(record->get_RecordUsage(&usage), S_OK);
        view.usage = usage;
        VARIANT_BOOL isMutable = 0;
        EXPECT_EQ(record->get_ContentMutable(&isMutable), S_OK);
        view.contentMutable = isMutable == VARIANT_TRUE;
        Variant content;
        EXPECT_EQ(record->get_Content(content.Out()), S_OK);
        view.content = content.vt() == VT_BSTR ? std::string(BstrView(content.get().bstrVal))
                                               : "<vt " + std::to_string(content.vt()) + ">";
        if (items) {
            LONG count = -1;
            EXPECT_EQ(record->get_Count(&count), S_OK);
            for (LONG i = 0; i < count; ++i) {
                EXPECT_EQ(record->get_Key(i, text.Out()), S_OK);
                view.itemKeys.push_back(text.str());
            }
        }
        return view;
    }

    static std::vector<std::string> Keys(ILuxRecord* record) { return View(record).itemKeys; }

    static ComPtr<ILuxRecord> ItemAt(ILuxRecord* record, const Variant& keyOrIndex) {
        ComPtr<ILuxRecord> item;
        EXPECT_EQ(record->get_Item(keyOrIndex.get(), item.Out()), S_OK);
        return item;
    }
};

constexpr HRESULT kInvalidIndex = static_cast<HRESULT>(e_LuxCollection_InvalidIndex);
constexpr HRESULT kInvalidKey = static_cast<HRESULT>(e_LuxCollection_InvalidKey);
constexpr HRESULT kKeyNotFound = static_cast<HRESULT>(e_LuxCollection_KeyNotFound);
constexpr HRESULT kDuplicateKey = static_cast<HRESULT>(e_LuxCollection_DuplicateKey);

}  // namespace tessaly::test
