#include "Probe.h"

#include <cstring>
#include <string>
#include <thread>

#include "BareDispatch.h"
#include "platform/Bstr.h"
#include "platform/ClassTable.h"
#include "platform/ErrorInfo.h"
#include "platform/MemoryStream.h"
#include "platform/SafeArray.h"
#include "platform/Variant.h"

namespace tessaly::python::test {

namespace {

constexpr DISPID kTick = 1;
constexpr DISPID kDone = 2;

HRESULT NewString(std::string_view text, BSTR* out) {
    *out = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    return *out ? S_OK : E_OUTOFMEMORY;
}

}  // namespace

const CoClassInfo& Probe::CoClass() { return generated::CoClass_Probe; }

// Made by name like the library's classes, once the test module is loaded.
static const ClassRegistrar<Probe> probeRegistrar;

// A registered class that clients cannot create: making it is refused, not unknown.
static const struct SealedProbeRegistrar {
    SealedProbeRegistrar() { ClassTable::Register(generated::CoClass_SealedProbe, &Probe::CreateInstance); }
} sealedProbeRegistrar;

Probe::~Probe() {
    if (partner_) partner_->Release();
}

HRESULT Probe::Echo(VARIANT value, VARIANT* copy) {
    ++calls_;
    return VariantCopy(copy, &value);
}

HRESULT Probe::VarType(VARIANT value, LONG* type) {
    ++calls_;
    *type = value.vt;
    return S_OK;
}

HRESULT Probe::Element(VARIANT array, LONG first, LONG second, VARIANT* value) {
    ++calls_;
    if (!(array.vt & VT_ARRAY) || !array.parray)
        return SetErrorInfo(E_INVALIDARG, "Array is not an array", "Element", IProbe::iid);
    SAFEARRAY* data = array.parray;
    const UINT dims = SafeArrayGetDim(data);
    if (dims != (second < 0 ? 1u : 2u))
        return SetErrorInfo(E_INVALIDARG, "The number of indices is not the number of dimensions", "Element", IProbe::iid);
    LONG indices[2] = {first, second};
    for (UINT d = 0; d < dims; ++d) {
        LONG lower = 0;
        SafeArrayGetLBound(data, d + 1, &lower);
        indices[d] += lower;
    }
    VARTYPE vt = VT_EMPTY;
    SafeArrayGetVartype(data, &vt);
    VARIANT element{};
    HRESULT hr;
    if (vt == VT_VARIANT) {
        hr = SafeArrayGetElement(data, indices, &element);
    } else {
        element.vt = vt;
        hr = SafeArrayGetElement(data, indices, &element.llVal);
        if (FAILED(hr)) element.vt = VT_EMPTY;
    }
    if (FAILED(hr)) return SetErrorInfo(hr, "The indices are outside the array", "Element", IProbe::iid);
    *value = element;
    return S_OK;
}

HRESULT Probe::MakeMatrix(LONG rows, LONG columns, SAFEARRAY** matrix) {
    ++calls_;
    if (rows < 0 || columns < 0) return SetErrorInfo(E_INVALIDARG, "Negative size", "MakeMatrix", IProbe::iid);
    const SAFEARRAYBOUND bounds[2] = {{static_cast<ULONG>(rows), 0}, {static_cast<ULONG>(columns), 0}};
    SAFEARRAY* created = SafeArrayCreate(VT_R8, 2, bounds);
    if (!created) return E_OUTOFMEMORY;
    for (LONG r = 0; r < rows; ++r) {
        for (LONG c = 0; c < columns; ++c) {
            const LONG indices[2] = {r, c};
            const double element = 10.0 * r + c;
            SafeArrayPutElement(created, indices, &element);
        }
    }
    *matrix = created;
    return S_OK;
}

HRESULT Probe::Checksum(SAFEARRAY* data, LONG* sum) {
    ++calls_;
    *sum = 0;
    if (!data) return S_OK;
    void* bytes = nullptr;
    const HRESULT hr = SafeArrayAccessData(data, &bytes);
    if (FAILED(hr)) return hr;
    const size_t count = SafeArrayElementCount(data);
    for (size_t i = 0; i < count; ++i) *sum += static_cast<const uint8_t*>(bytes)[i];
    SafeArrayUnaccessData(data);
    return S_OK;
}

HRESULT Probe::Total(SAFEARRAY* values, double* sum) {
    ++calls_;
    *sum = 0;
    if (!values) return S_OK;
    void* numbers = nullptr;
    const HRESULT hr = SafeArrayAccessData(values, &numbers);
    if (FAILED(hr)) return hr;
    const size_t count = SafeArrayElementCount(values);
    for (size_t i = 0; i < count; ++i) *sum += static_cast<const double*>(numbers)[i];
    SafeArrayUnaccessData(values);
    return S_OK;
}

HRESULT Probe::Divide(LONG dividend, LONG divisor, LONG* quotient, LONG* remainder) {
    ++calls_;
    if (divisor == 0) return SetErrorInfo(DISP_E_DIVBYZERO, "Division by zero", "Divide", IProbe::iid);
    *quotient = dividend / divisor;
    *remainder = dividend % divisor;
    return S_OK;
}

HRESULT Probe::Split(BSTR text, BSTR* head, VARIANT* tail, LONG* parts) {
    ++calls_;
    const std::string_view whole = BstrView(text);
    const size_t space = whole.find(' ');
    if (FAILED(NewString(whole.substr(0, space), head))) return E_OUTOFMEMORY;
    VariantClear(tail);
    if (space == std::string_view::npos) {
        *parts = 1;
        return S_OK;
    }
    tail->vt = VT_BSTR;
    if (FAILED(NewString(whole.substr(space + 1), &tail->bstrVal))) {
        tail->vt = VT_EMPTY;
        return E_OUTOFMEMORY;
    }
    *parts = 2;
    return S_OK;
}

HRESULT Probe::Bump(LONG* counter, LONG step) {
    ++calls_;
    *counter += step;
    return S_OK;
}

HRESULT Probe::Swap(BSTR* text, VARIANT* value) {
    ++calls_;
    const std::string previous(BstrView(*text));
    BSTR longer = nullptr;
    if (FAILED(NewString(previous + "!", &longer))) return E_OUTOFMEMORY;
    BSTR old = nullptr;
    if (FAILED(NewString(previous, &old))) {
        SysFreeString(longer);
        return E_OUTOFMEMORY;
    }
    SysFreeString(*text);
    *text = longer;
    VariantClear(value);
    value->vt = VT_BSTR;
    value->bstrVal = old;
    return S_OK;
}

HRESULT Probe::Greet(BSTR name, VARIANT_BOOL loud, BSTR* text) {
    ++calls_;
    std::string greeting = "Hello, " + std::string(BstrView(name));
    if (loud) {
        for (char& c : greeting)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
        greeting += "!";
    }
    return NewString(greeting, text);
}

HRESULT Probe::Describe(VARIANT extra, BSTR* text) {
    ++calls_;
    if (extra.vt == VT_ERROR && extra.scode == DISP_E_PARAMNOTFOUND) return NewString("missing", text);
    return NewString("vt " + std::to_string(extra.vt), text);
}

HRESULT Probe::get_Cell(LONG row, LONG column, double* value) {
    ++calls_;
    if (row < 0 || row > 2 || column < 0 || column > 2)
        return SetErrorInfo(DISP_E_BADINDEX, "The cell is outside the 3 x 3 grid", "Cell", IProbe::iid);
    *value = grid_[row][column];
    return S_OK;
}

HRESULT Probe::put_Cell(LONG row, LONG column, double value) {
    ++calls_;
    if (row < 0 || row > 2 || column < 0 || column > 2)
        return SetErrorInfo(DISP_E_BADINDEX, "The cell is outside the 3 x 3 grid", "Cell", IProbe::iid);
    grid_[row][column] = value;
    return S_OK;
}

HRESULT Probe::get_Shade(ProbeShadeConstants* shade) {
    ++calls_;
    *shade = shade_;
    return S_OK;
}

HRESULT Probe::put_Shade(ProbeShadeConstants shade) {
    ++calls_;
    if (shade != probeShadeDark && shade != probeShadeLight)
        return SetErrorInfo(E_INVALIDARG, "Not a shade", "Shade", IProbe::iid);
    shade_ = shade;
    return S_OK;
}

HRESULT Probe::get_Partner(IDispatch** partner) {
    ++calls_;
    *partner = partner_;
    if (partner_) partner_->AddRef();
    return S_OK;
}

HRESULT Probe::putref_Partner(IDispatch* partner) {
    ++calls_;
    if (partner) partner->AddRef();
    if (partner_) partner_->Release();
    partner_ = partner;
    return S_OK;
}

HRESULT Probe::MakeProbe(IProbe** created) {
    ++calls_;
    Probe* probe = Probe::Create();
    if (!probe) return E_OUTOFMEMORY;
    *created = probe;
    return S_OK;
}

HRESULT Probe::Fail(LONG code, BSTR description) {
    ++calls_;
    if (SysStringLen(description) == 0) return code;
    return SetErrorInfo(code, BstrView(description), "Fail", IProbe::iid);
}

void Probe::FireTicks(LONG count) {
    for (LONG i = 0; i < count; ++i) {
        if (i + 1 == count)
            FireEvent(IProbeEvents::iid, kTick, i, GetDispatch());
        else
            FireEvent(IProbeEvents::iid, kTick, i, LONG(i * 10));
    }
    FireEvent(IProbeEvents::iid, kDone);
}

HRESULT Probe::Fire(LONG count) {
    ++calls_;
    FireTicks(count);
    return S_OK;
}

HRESULT Probe::FireFromThread(LONG count) {
    ++calls_;
    std::thread firing([this, count] { FireTicks(count); });
    firing.join();
    return S_OK;
}

HRESULT Probe::MakeStream(BSTR text, IUnknown** stream) {
    ++calls_;
    IStream* created = nullptr;
    const HRESULT hr = MemoryStream::Create(text, SysStringLen(text), &created);
    if (FAILED(hr)) return hr;
    *stream = created;
    return S_OK;
}

HRESULT Probe::ReadStream(IUnknown* stream, BSTR* text) {
    ++calls_;
    if (!stream) return SetErrorInfo(E_POINTER, "No stream", "ReadStream", IProbe::iid);
    IStream* source = nullptr;
    HRESULT hr = stream->QueryInterface(IStream::iid, reinterpret_cast<void**>(&source));
    if (FAILED(hr)) return SetErrorInfo(hr, "Not a stream", "ReadStream", IProbe::iid);
    std::string contents;
    hr = source->Seek(0, STREAM_SEEK_SET, nullptr);
    char buffer[256];
    ULONG read = 0;
    while (SUCCEEDED(hr) && SUCCEEDED(hr = source->Read(buffer, sizeof buffer, &read)) && read > 0)
        contents.append(buffer, read);
    source->Release();
    if (FAILED(hr)) return hr;
    return NewString(contents, text);
}

HRESULT Probe::put_Secret(LONG value) {
    ++calls_;
    secret_ = value;
    return S_OK;
}

HRESULT Probe::get_LastSecret(LONG* value) {
    ++calls_;
    *value = secret_;
    return S_OK;
}

HRESULT Probe::Calls(LONG* count) {
    *count = calls_.load();
    return S_OK;
}

HRESULT Probe::Bare(IDispatch** dispatch) {
    ++calls_;
    BareDispatch* bare = BareDispatch::Create(GetDispatch());
    if (!bare) return E_OUTOFMEMORY;
    *dispatch = bare;
    return S_OK;
}

}  // namespace tessaly::python::test
