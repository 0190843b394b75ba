#include "TestShapes.h"

#include <cstdio>
#include <cstring>

#include "platform/ClassTable.h"
#include "platform/SafeArray.h"

namespace tessaly::test {

namespace {

HRESULT NewString(const std::string& text, BSTR* out) {
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

// The bytes of a one-dimensional array of VT_UI1, read in place.
HRESULT SumBytes(SAFEARRAY* data, LONG* sum) {
    if (!data || data->cDims != 1 || data->cbElements != 1) return E_INVALIDARG;
    const auto* bytes = static_cast<const uint8_t*>(data->pvData);
    LONG total = 0;
    for (ULONG i = 0; i < data->rgsabound[0].cElements; ++i) total += bytes[i];
    *sum = total;
    return S_OK;
}

}  // namespace

TestEnumVariant::TestEnumVariant(const std::vector<VARIANT>& values) : values_(values.size()) {
    for (size_t i = 0; i < values.size(); ++i) {
        values_[i] = VARIANT{};
        VariantCopy(&values_[i], &values[i]);
    }
}

TestEnumVariant::~TestEnumVariant() {
    for (VARIANT& value : values_) VariantClear(&value);
}

HRESULT TestEnumVariant::Next(ULONG celt, VARIANT* rgVar, ULONG* pCeltFetched) {
    ULONG fetched = 0;
    while (fetched < celt && position_ < values_.size()) {
        rgVar[fetched] = VARIANT{};
        VariantCopy(&rgVar[fetched++], &values_[position_++]);
    }
    if (pCeltFetched) *pCeltFetched = fetched;
    return fetched == celt ? S_OK : S_FALSE;
}

HRESULT TestEnumVariant::Skip(ULONG celt) {
    const size_t skipped = std::min<size_t>(celt, values_.size() - position_);
    position_ += skipped;
    return skipped == celt ? S_OK : S_FALSE;
}

HRESULT TestEnumVariant::Reset() {
    position_ = 0;
    return S_OK;
}

HRESULT TestEnumVariant::Clone(IEnumVARIANT** ppEnum) {
    TestEnumVariant* clone = Create(values_);
    if (!clone) return E_OUTOFMEMORY;
    clone->position_ = position_;
    *ppEnum = clone;
    return S_OK;
}

const CoClassInfo& TestShapes::CoClass() { return generated::CoClass_TestSealed; }

// Registered with a factory that the table must drop: the coclass is noncreatable.
static const ClassRegistrar<TestShapes> shapesRegistrar;

TestShapes::~TestShapes() {
    if (owner) owner->Release();
    VariantClear(&fallback);
}

HRESULT TestShapes::get_Color(TestColorConstants* value) {
    *value = color;
    return S_OK;
}

HRESULT TestShapes::put_Color(TestColorConstants value) {
    color = value;
    return S_OK;
}

HRESULT TestShapes::get_Owner(IDispatch** value) {
    *value = owner;
    if (owner) owner->AddRef();
    return S_OK;
}

HRESULT TestShapes::putref_Owner(IDispatch* value) {
    if (value) value->AddRef();
    if (owner) owner->Release();
    owner = value;
    return S_OK;
}

HRESULT TestShapes::get_Cell(LONG row, LONG column, double* value) {
    if (row < 0 || row > 2 || column < 0 || column > 2) return DISP_E_BADINDEX;
    *value = cells[row][column];
    return S_OK;
}

HRESULT TestShapes::put_Cell(LONG row, LONG column, double value) {
    if (row < 0 || row > 2 || column < 0 || column > 2) return DISP_E_BADINDEX;
    cells[row][column] = value;
    return S_OK;
}

HRESULT TestShapes::Scale(double factorIn, VARIANT fallbackIn, LONG countIn, BSTR labelIn, double* scaled) {
    factor = factorIn;
    VariantCopy(&fallback, &fallbackIn);
    count = countIn;
    labelWasNull = labelIn == nullptr;
    label = Text(labelIn);
    *scaled = factorIn * 2;
    return S_OK;
}

HRESULT TestShapes::Checksum(SAFEARRAY* data, LONG* sum) { return SumBytes(data, sum); }

HRESULT TestShapes::ByteSum(SAFEARRAY* data, LONG* sum) { return SumBytes(data, sum); }

HRESULT TestShapes::MakeBytes(LONG countIn, SAFEARRAY** bytes) {
    if (countIn < 0) return E_INVALIDARG;
    SAFEARRAY* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(countIn));
    if (!array) return E_OUTOFMEMORY;
    auto* data = static_cast<uint8_t*>(array->pvData);
    for (LONG i = 0; i < countIn; ++i) data[i] = static_cast<uint8_t>(i);
    *bytes = array;
    return S_OK;
}

HRESULT TestShapes::Split(BSTR text, BSTR* head, VARIANT* tail, LONG* parts) {
    const std::string whole = Text(text);
    const size_t space = whole.find(' ');
    const std::string first = whole.substr(0, space);
    HRESULT hr = NewString(first, head);
    if (FAILED(hr)) return hr;
    VariantClear(tail);
    if (space == std::string::npos) {
        *parts = 1;
        return S_OK;
    }
    tail->vt = VT_BSTR;
    hr = NewString(whole.substr(space + 1), &tail->bstrVal);
    if (FAILED(hr)) {
        tail->vt = VT_EMPTY;
        return hr;
    }
    *parts = 2;
    return S_OK;
}

HRESULT TestShapes::Identify(IDispatch* object, IUnknown* unknown, VARIANT_BOOL* same) {
    IUnknown* first = nullptr;
    IUnknown* second = nullptr;
    if (object) object->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(&first));
    if (unknown) unknown->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(&second));
    *same = first == second ? VARIANT_TRUE : VARIANT_FALSE;
    if (first) first->Release();
    if (second) second->Release();
    return S_OK;
}

HRESULT TestShapes::Format(SHORT i2, float r4, DATE date, CY money, LONGLONG i8, BYTE ui1, int8_t i1, USHORT ui2,
                           ULONG ui4, SCODE code, BSTR* text) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, "%d %g %g %lld %lld %u %d %u %u %08X", i2, r4, date,
                  static_cast<long long>(money.int64), static_cast<long long>(i8), ui1, i1, ui2, ui4,
                  static_cast<unsigned>(code));
    return NewString(buffer, text);
}

HRESULT TestShapes::Pair(TestColorConstants colorIn, TestColorConstants* complement, ITestGadget** gadget,
                         ITestWidget** widget) {
    *complement = colorIn == testColorRed ? testColorBlue : testColorRed;
    *gadget = TestGadget::Create();
    *widget = TestWidget::Create();
    if (!*gadget || !*widget) return E_OUTOFMEMORY;
    return S_OK;
}

HRESULT TestShapes::Total(SAFEARRAY* values, VARIANT* total) {
    if (!values || values->cDims != 1 || values->cbElements != sizeof(VARIANT)) return E_INVALIDARG;
    const auto* items = static_cast<const VARIANT*>(values->pvData);
    double sum = 0;
    for (ULONG i = 0; i < values->rgsabound[0].cElements; ++i) {
        VARIANT number{};
        if (FAILED(VariantChangeType(&number, &items[i], 0, VT_R8))) return DISP_E_TYPEMISMATCH;
        sum += number.dblVal;
    }
    VariantClear(total);
    total->vt = VT_R8;
    total->dblVal = sum;
    return S_OK;
}

HRESULT TestShapes::Load(IStream* stream, IEnumVARIANT** items) {
    if (!stream) return E_POINTER;
    // The stream holds LONGs; each becomes an item.
    std::vector<VARIANT> values;
    LONG value = 0;
    ULONG read = 0;
    while (SUCCEEDED(stream->Read(&value, sizeof value, &read)) && read == sizeof value) {
        VARIANT item{};
        item.vt = VT_I4;
        item.lVal = value;
        values.push_back(item);
    }
    *items = TestEnumVariant::Create(values);
    return *items ? S_OK : E_OUTOFMEMORY;
}

HRESULT TestShapes::get__NewEnum(IUnknown** enumerator) {
    std::vector<VARIANT> values;
    for (const auto& row : cells) {
        for (double cell : row) {
            VARIANT item{};
            item.vt = VT_R8;
            item.dblVal = cell;
            values.push_back(item);
        }
    }
    *enumerator = TestEnumVariant::Create(values);
    return *enumerator ? S_OK : E_OUTOFMEMORY;
}

HRESULT TestShapes::Write(IStream* stream, BSTR text) {
    if (!stream) return E_POINTER;
    return stream->Write(text, SysStringLen(text), nullptr);
}

}  // namespace tessaly::test
