// What the binary formatter tests share: a fixture that fails a test which leaves objects
// alive, saving and loading through LuxBinaryFormatter as a client does, objects to save,
// and an exact comparison of values (type, bits, bounds).
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "TessalyCore.h"
#include "TessalyTest.h"
#include "support/TestBlob.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ComPtr.h"
#include "platform/MemoryStream.h"
#include "platform/Module.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"
#include "support/RecordedError.h"

namespace tessaly::test {

class BinaryFixture : public ::testing::Test {
protected:
    void SetUp() override {
        TestBlob::failLoads = false;
        live_ = Module::LiveObjectCount();
    }
    void TearDown() override {
        TestBlob::failLoads = false;
        EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects left alive";
    }

public:
    template <class I>
    static ComPtr<I> Make(const char* progId) {
        ComPtr<I> object;
        EXPECT_EQ(CreateObject(progId, I::iid, object.OutVoid()), S_OK) << progId;
        return object;
    }
    static ComPtr<ILuxFormatter> Formatter() { return Make<ILuxFormatter>("Tessaly.LuxBinaryFormatter"); }
    static ComPtr<ILuxCollection> NewCollection() { return Make<ILuxCollection>("Tessaly.LuxCollection"); }
    static ComPtr<ITestPoint> NewPoint(double x, double y) {
        auto point = Make<ITestPoint>("Tessaly.TestPoint");
        EXPECT_EQ(point->MoveTo(x, y), S_OK);
        return point;
    }
    static ComPtr<TestBlob> NewBlob(std::vector<uint8_t> bytes) {
        auto blob = ComPtr<TestBlob>::Attach(TestBlob::Create());
        blob->bytes = std::move(bytes);
        return blob;
    }
    static IDispatch* Disp(IUnknown* object) {
        IDispatch* dispatch = nullptr;
        object->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&dispatch));
        if (dispatch) dispatch->Release();  // the caller holds the object
        return dispatch;
    }

    static void Add(ILuxCollection* collection, const VARIANT& item, const char* key = "") {
        ASSERT_EQ(collection->Add(item, Bstr(key).get(), luxNoIndex), S_OK);
    }
    static Variant Item(ILuxCollection* collection, LONG index) {
        Variant item;
        EXPECT_EQ(collection->get_Item(Variant(index).get(), item.ptr()), S_OK);
        return item;
    }
    static LONG Count(ILuxCollection* collection) {
        LONG count = -1;
        EXPECT_EQ(collection->get_Count(&count), S_OK);
        return count;
    }
    template <class I>
    static ComPtr<I> As(const Variant& value) {
        ComPtr<I> object;
        if ((value.vt() == VT_DISPATCH || value.vt() == VT_UNKNOWN) && value.get().punkVal)
            value.get().punkVal->QueryInterface(I::iid, object.OutVoid());
        return object;
    }
    static std::string PointText(ITestPoint* point) {
        double x = 0, y = 0;
        point->get_X(&x);
        point->get_Y(&y);
        return std::to_string(x) + "," + std::to_string(y);
    }

    // Serialize into a new memory stream; the bytes on success.
    static HRESULT TrySave(IDispatch* object, std::vector<uint8_t>& bytes, LONG options = luxPersistOptionAll,
                           const char* subFormat = "") {
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(stream.Out()), S_OK);
        const HRESULT hr = Formatter()->Serialize(stream.get(), object, options, Bstr(subFormat).get());
        auto* memory = static_cast<MemoryStream*>(stream.get());
        bytes.assign(memory->Data(), memory->Data() + memory->Size());
        return hr;
    }
    static std::vector<uint8_t> Save(IDispatch* object, LONG options = luxPersistOptionAll) {
        std::vector<uint8_t> bytes;
        const HRESULT hr = TrySave(object, bytes, options);
        EXPECT_EQ(hr, S_OK) << TakeErrorInfo().description;
        return bytes;
    }

    struct Loaded {
        HRESULT hr = E_FAIL;
        ComPtr<IDispatch> object;
        std::vector<std::string> warnings;
        RecordedError error;
    };
    static Loaded Load(std::span<const uint8_t> bytes, IDispatch* existing = nullptr,
                       LONG options = luxPersistOptionAll, const char* subFormat = "") {
        ComPtr<IStream> stream;
        EXPECT_EQ(MemoryStream::Create(bytes.data(), bytes.size(), stream.Out()), S_OK);
        return LoadFrom(stream.get(), existing, options, subFormat);
    }
    static Loaded LoadFrom(IStream* stream, IDispatch* existing = nullptr, LONG options = luxPersistOptionAll,
                           const char* subFormat = "") {
        Loaded loaded;
        ComPtr<ILuxStringCollection> warnings;
        loaded.hr = Formatter()->Deserialize(stream, existing, options, Bstr(subFormat).get(), warnings.Out(),
                                             loaded.object.Out());
        if (FAILED(loaded.hr)) {
            loaded.error = TakeErrorInfo();
            EXPECT_FALSE(loaded.object) << "a failed load hands back no object";
            EXPECT_FALSE(warnings) << "a failed load hands back no warnings";
            return loaded;
        }
        EXPECT_TRUE(warnings) << "a load always hands back its warnings, if only an empty list";
        LONG count = 0;
        if (warnings) warnings->get_Count(&count);
        for (LONG i = 0; i < count; ++i) {
            Bstr text;
            warnings->get_Item(Variant(i).get(), text.Out());
            loaded.warnings.push_back(text.str());
        }
        return loaded;
    }

    // Values equal in type and in every bit, arrays in bounds too; objects by identity.
    static ::testing::AssertionResult SameValue(const VARIANT& a, const VARIANT& b) {
        if (a.vt != b.vt) return ::testing::AssertionFailure() << "type " << a.vt << " vs " << b.vt;
        if (a.vt & VT_ARRAY) return SameArray(a.parray, b.parray);
        switch (a.vt) {
            case VT_EMPTY: case VT_NULL: return ::testing::AssertionSuccess();
            case VT_BSTR:
                if (BstrView(a.bstrVal) == BstrView(b.bstrVal)) return ::testing::AssertionSuccess();
                return ::testing::AssertionFailure() << "\"" << BstrView(a.bstrVal) << "\" vs \"" << BstrView(b.bstrVal) << "\"";
            case VT_DISPATCH: case VT_UNKNOWN:
                if (a.punkVal == b.punkVal) return ::testing::AssertionSuccess();
                return ::testing::AssertionFailure() << "another object";
            default:
                if (std::memcmp(&a.llVal, &b.llVal, ReferencedValueSize(a.vt)) == 0) return ::testing::AssertionSuccess();
                return ::testing::AssertionFailure() << "value of type " << a.vt << " differs";
        }
    }
    static ::testing::AssertionResult SameArray(SAFEARRAY* a, SAFEARRAY* b) {
        if (!a || !b) return a == b ? ::testing::AssertionSuccess() : ::testing::AssertionFailure() << "null array";
        VARTYPE ta = 0, tb = 0;
        SafeArrayGetVartype(a, &ta);
        SafeArrayGetVartype(b, &tb);
        if (ta != tb || a->cDims != b->cDims || a->cbElements != b->cbElements)
            return ::testing::AssertionFailure() << "array type or shape differs";
        for (UINT dim = 1; dim <= a->cDims; ++dim) {
            LONG la = 0, lb = 0, ua = 0, ub = 0;
            SafeArrayGetLBound(a, dim, &la);
            SafeArrayGetLBound(b, dim, &lb);
            SafeArrayGetUBound(a, dim, &ua);
            SafeArrayGetUBound(b, dim, &ub);
            if (la != lb || ua != ub) return ::testing::AssertionFailure() << "bounds of dimension " << dim << " differ";
        }
        const size_t count = SafeArrayElementCount(a);
        for (size_t i = 0; i < count; ++i) {
            const void* ea = static_cast<uint8_t*>(a->pvData) + i * a->cbElements;
            const void* eb = static_cast<uint8_t*>(b->pvData) + i * b->cbElements;
            if (ta == VT_VARIANT) {
                auto same = SameValue(*static_cast<const VARIANT*>(ea), *static_cast<const VARIANT*>(eb));
                if (!same) return same << " at element " << i;
            } else if (ta == VT_BSTR) {
                if (BstrView(*static_cast<const BSTR*>(ea)) != BstrView(*static_cast<const BSTR*>(eb)))
                    return ::testing::AssertionFailure() << "string element " << i << " differs";
            } else if (std::memcmp(ea, eb, a->cbElements) != 0) {
                return ::testing::AssertionFailure() << "element " << i << " differs";
            }
        }
        return ::testing::AssertionSuccess();
    }

    // A variant owning a new array of `vt` with `bounds` (left-most dimension first).
    static Variant NewArray(VARTYPE vt, std::vector<SAFEARRAYBOUND> bounds) {
        VARIANT value;
        VariantInit(&value);
        value.vt = VT_ARRAY | vt;
        value.parray = SafeArrayCreate(vt, static_cast<UINT>(bounds.size()), bounds.data());
        EXPECT_NE(value.parray, nullptr);
        return Variant::Attach(value);
    }

private:
    LONG live_ = 0;
};

}  // namespace tessaly::test
