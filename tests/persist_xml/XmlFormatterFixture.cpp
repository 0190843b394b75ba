#include "persist_xml/XmlFormatterFixture.h"

#include <cstdio>
#include <cstring>

#include "platform/ClassTable.h"
#include "platform/SafeArray.h"

namespace tessaly::test {

HRESULT XmlTestRecord::GetTypeInfoCount(UINT* count) {
    if (!count) return E_POINTER;
    *count = 0;
    return S_OK;
}

HRESULT XmlTestRecord::Persist(ILuxArchive* archive, LONG options) {
    if (!(options & luxPersistOptionSaving)) return S_OK;
    for (auto& [name, value] : values) {
        const HRESULT hr = archive->PersistVariant(Bstr(name).get(), value.ptr());
        if (FAILED(hr)) return hr;
    }
    return S_OK;
}

HRESULT XmlTestRecord::get_HasChanged(VARIANT_BOOL* changed) {
    if (!changed) return E_POINTER;
    *changed = VARIANT_FALSE;
    return S_OK;
}

std::string XmlFormatterTest::Save(IDispatch* object, const char* subFormat, ILuxFormatter* formatter, HRESULT result,
                                   int32_t options) {
    return SaveThrough(formatter ? formatter : NewFormatter().get(), object, subFormat, result, options);
}

XmlFormatterTest::Loaded XmlFormatterTest::Load(std::string_view document, IDispatch* existing,
                                                ILuxFormatter* formatter, int32_t options) {
    return LoadThrough(formatter ? formatter : NewFormatter().get(), document, existing, options);
}

ComPtr<ITestPoint> XmlFormatterTest::NewPoint(double x, double y, const Variant& marker) {
    auto point = Make<ITestPoint>("Tessaly.TestPoint");
    EXPECT_EQ(point->put_X(x), S_OK);
    EXPECT_EQ(point->put_Y(y), S_OK);
    EXPECT_EQ(point->put_Marker(marker.get()), S_OK);
    return point;
}

std::string XmlFormatterTest::PointText(ITestPoint* point) {
    double x = 0, y = 0;
    EXPECT_EQ(point->get_X(&x), S_OK);
    EXPECT_EQ(point->get_Y(&y), S_OK);
    const Variant marker = Marker(point);
    return std::to_string(x) + "," + std::to_string(y) + "," + Text(marker.get());
}

Variant XmlFormatterTest::Marker(ITestPoint* point) {
    Variant marker;
    EXPECT_EQ(point->get_Marker(marker.ptr()), S_OK);
    return marker;
}

Variant XmlFormatterTest::Item(ILuxCollection* collection, LONG index) {
    Variant item;
    EXPECT_EQ(collection->get_Item(Variant(index).get(), item.ptr()), S_OK);
    return item;
}

bool XmlFormatterTest::Same(IUnknown* a, IUnknown* b) {
    if (!a || !b) return a == b;
    ComPtr<IUnknown> x, y;
    EXPECT_EQ(a->QueryInterface(IUnknown::iid, x.OutVoid()), S_OK);
    EXPECT_EQ(b->QueryInterface(IUnknown::iid, y.OutVoid()), S_OK);
    return x.get() == y.get();
}

std::string XmlFormatterTest::Dump(const VARIANT& value) {
    char type[16];
    std::snprintf(type, sizeof type, "%04X:", unsigned(value.vt));
    std::string text = type;
    const VARTYPE element = value.vt & VT_TYPEMASK;
    if (value.vt & VT_ARRAY) {
        SAFEARRAY* array = value.parray;
        if (!array) return text + "nullarray";
        const UINT dims = SafeArrayGetDim(array);
        text += "[";
        for (UINT dim = 1; dim <= dims; ++dim) {
            LONG lower = 0, upper = 0;
            EXPECT_EQ(SafeArrayGetLBound(array, dim, &lower), S_OK);
            EXPECT_EQ(SafeArrayGetUBound(array, dim, &upper), S_OK);
            text += (dim > 1 ? "," : "") + std::to_string(lower) + ":" + std::to_string(upper);
        }
        text += "]{";
        const size_t count = SafeArrayElementCount(array);
        const auto* data = static_cast<const uint8_t*>(array->pvData);
        for (size_t i = 0; i < count; ++i) {
            const uint8_t* at = data + i * array->cbElements;
            VARIANT item;
            VariantInit(&item);
            if (element == VT_VARIANT) {
                std::memcpy(&item, at, sizeof item);
            } else {
                item.vt = element;
                std::memcpy(&item.llVal, at, array->cbElements);
            }
            text += (i ? "," : "") + Dump(item);  // a view: nothing to release
        }
        return text + "}";
    }
    switch (element) {
        case VT_EMPTY: case VT_NULL: return text;
        case VT_BSTR: return text + "\"" + std::string(BstrView(value.bstrVal)) + "\"";
        case VT_DISPATCH: case VT_UNKNOWN: return text + (value.punkVal ? "obj" : "null");
        default: {
            const size_t size = ReferencedValueSize(element);
            char bits[40];
            uint64_t raw = 0;
            std::memcpy(&raw, &value.llVal, size);
            std::snprintf(bits, sizeof bits, "%llX", static_cast<unsigned long long>(raw));
            return text + bits;
        }
    }
}

}  // namespace tessaly::test
