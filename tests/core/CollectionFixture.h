// What the collection tests share: a fixture that fails a test which leaves objects alive,
// collections made as a client makes them, a sink that records every event in a compact
// text and answers as a test tells it, and readers that print a collection's contents.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/ErrorInfo.h"
#include "platform/EventSink.h"
#include "platform/Module.h"
#include "platform/UnknownObject.h"
#include "platform/Variant.h"
#include "support/LiveObjectFixture.h"

namespace tessaly::test {

// A value as the event log and Contents print it.
inline std::string Text(const VARIANT& value) {
    if (value.vt == VT_EMPTY) return "";
    if (value.vt == VT_DISPATCH || value.vt == VT_UNKNOWN) return "obj";
    if (value.vt & VT_ARRAY) return "array";
    Variant text;
    if (FAILED(VariantChangeType(text.ptr(), &value, 0, VT_BSTR))) return "?";
    return std::string(BstrView(text.get().bstrVal));
}

// An event sink that logs "id(arg,arg)" per event and answers what `react` says (S_OK
// when there is no reaction).
class TestSink final : public UnknownObject<TestSink, IDispatch> {
public:
    using Reaction = std::function<HRESULT(DISPID id, EXCEPINFO* info)>;

    explicit TestSink(Reaction react = {}) : react_(std::move(react)) {}

    HRESULT GetTypeInfoCount(UINT* count) override {
        *count = 0;
        return S_OK;
    }
    HRESULT GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    HRESULT GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override { return DISP_E_UNKNOWNNAME; }
    HRESULT Invoke(DISPID id, REFIID, LCID, WORD flags, DISPPARAMS* params, VARIANT*, EXCEPINFO* info,
                   UINT*) override {
        std::string entry = std::to_string(id) + "(";
        for (UINT i = 0; i < params->cArgs; ++i) {
            if (i) entry += ",";
            entry += Text(params->rgvarg[params->cArgs - 1 - i]);  // declared order
        }
        entry += ")";
        {
            std::lock_guard lock(mutex_);
            log_ += (log_.empty() ? "" : " ") + entry;
            methodFlags_ &= flags == DISPATCH_METHOD;
        }
        return react_ ? react_(id, info) : S_OK;
    }

    std::string Log() const {
        std::lock_guard lock(mutex_);
        return log_;
    }
    // The log so far, and a fresh start.
    std::string Take() {
        std::lock_guard lock(mutex_);
        return std::exchange(log_, {});
    }
    bool OnlyMethodCalls() const { return methodFlags_; }

private:
    ~TestSink() override = default;

    Reaction react_;
    mutable std::mutex mutex_;
    std::string log_;
    bool methodFlags_ = true;
};

class CollectionFixture : public LiveObjectFixture {
public:
    static ComPtr<ILuxCollection> NewCollection() { return Make<ILuxCollection>("Tessaly.LuxCollection"); }
    static ComPtr<ILuxStringCollection> NewStrings() { return Make<ILuxStringCollection>("Tessaly.LuxStringCollection"); }

    // A sink advised on the collection events of `object`; the object keeps it alive.
    static ComPtr<TestSink> Listen(IUnknown* object, TestSink::Reaction react = {}) {
        auto sink = ComPtr<TestSink>::Attach(TestSink::Create(std::move(react)));
        DWORD cookie = 0;
        EXPECT_EQ(Advise(object, DIID_ILuxCollectionEvents, static_cast<IDispatch*>(sink.get()), &cookie), S_OK);
        return sink;
    }

    // "key=item;..." in index order: what a refused call must leave as it was.
    template <class C>
    static std::string Contents(C* collection) {
        LONG count = -1;
        EXPECT_EQ(collection->get_Count(&count), S_OK);
        std::string text;
        for (LONG i = 0; i < count; ++i) {
            Bstr key;
            EXPECT_EQ(collection->get_Key(i, key.Out()), S_OK);
            text += key.str() + "=" + ItemText(collection, i) + ";";
        }
        return text;
    }
    static std::string ItemText(ILuxCollection* collection, LONG index) {
        Variant item;
        EXPECT_EQ(collection->get_Item(Variant(index).get(), item.ptr()), S_OK);
        return Text(item.get());
    }
    static std::string ItemText(ILuxStringCollection* collection, LONG index) {
        Bstr item;
        EXPECT_EQ(collection->get_Item(Variant(index).get(), item.Out()), S_OK);
        return item.str();
    }

    // The description the last failure on this thread left.
    static std::string LastErrorText() {
        IErrorInfo* raw = nullptr;
        GetErrorInfo(0, &raw);
        auto info = ComPtr<IErrorInfo>::Attach(raw);
        if (!info) return "";
        Bstr text;
        info->GetDescription(text.Out());
        return text.str();
    }

    static LONG Count(ILuxCollection* collection) {
        LONG count = -1;
        EXPECT_EQ(collection->get_Count(&count), S_OK);
        return count;
    }
    static LONG FindKey(ILuxCollection* collection, const char* key) {
        LONG index = -2;
        EXPECT_EQ(collection->FindKey(Bstr(key).get(), &index), S_OK);
        return index;
    }
};

// Adds an item under a key at an index, as clients do.
inline HRESULT Add(ILuxCollection* collection, const Variant& item, const char* key = "", LONG index = luxNoIndex) {
    return collection->Add(item.get(), Bstr(key).get(), index);
}

}  // namespace tessaly::test
