#include "TestSamples.h"

#include <algorithm>

#include "platform/ClassTable.h"
#include "platform/SafeArray.h"

namespace tessaly::test {

namespace {

// A one-dimensional array of doubles, or nullptr when `array` is anything else.
const double* DoublesOf(SAFEARRAY* array, ULONG& count) {
    VARTYPE vt = VT_EMPTY;
    if (!array || SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetVartype(array, &vt)) || vt != VT_R8)
        return nullptr;
    count = array->rgsabound[0].cElements;
    return static_cast<const double*>(array->pvData);
}

SAFEARRAY* NewDoubles(const std::vector<double>& values) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_R8, 0, static_cast<ULONG>(values.size()));
    if (array) std::copy(values.begin(), values.end(), static_cast<double*>(array->pvData));
    return array;
}

}  // namespace

const CoClassInfo& TestSamples::CoClass() { return generated::CoClass_TestSamples; }

static const ClassRegistrar<TestSamples> samplesRegistrar;

HRESULT TestSamples::get_Tint(OLE_COLOR* value) {
    ++calls;
    *value = tint;
    return S_OK;
}

HRESULT TestSamples::put_Tint(OLE_COLOR value) {
    ++calls;
    tint = value;
    return S_OK;
}

HRESULT TestSamples::Fill(LONG count, SAFEARRAY** values, LONG* filled) {
    ++calls;
    if (count < 0) return E_INVALIDARG;
    std::vector<double> made(static_cast<size_t>(count));
    for (LONG i = 0; i < count; ++i) made[static_cast<size_t>(i)] = i + 0.5;
    SAFEARRAY* array = NewDoubles(made);
    if (!array) return E_OUTOFMEMORY;
    samples = std::move(made);
    *values = array;
    *filled = count;
    return S_OK;
}

HRESULT TestSamples::Accumulate(double factor, SAFEARRAY** values) {
    ++calls;
    ULONG count = 0;
    const double* given = DoublesOf(*values, count);
    if (!given) return E_INVALIDARG;
    std::vector<double> scaled(given, given + count);
    double sum = 0;
    for (double& value : scaled) sum += (value *= factor);
    scaled.push_back(sum);
    SAFEARRAY* array = NewDoubles(scaled);
    if (!array) return E_OUTOFMEMORY;
    // An [in, out] array belongs to the callee: it frees what it replaces.
    SafeArrayDestroy(*values);
    *values = array;
    return S_OK;
}

HRESULT TestSamples::get_Address(LONGLONG* value) {
    ++calls;
    *value = address;
    return S_OK;
}

HRESULT TestSamples::put_Address(LONGLONG value) {
    ++calls;
    address = value;
    return S_OK;
}

HRESULT TestSamples::Offset(LONGLONG base, LONG distance, LONGLONG* previous, LONGLONG* moved) {
    ++calls;
    *previous = address;
    address = base + distance;
    *moved = address;
    return S_OK;
}

HRESULT TestSamples::GetSpan(TestSampleSpan* span) {
    ++calls;
    if (!span) return E_POINTER;
    *span = TestSampleSpan{};
    span->Start = samples.empty() ? 0 : samples.front();
    span->Step = samples.size() < 2 ? 0 : samples[1] - samples[0];
    span->Count = static_cast<LONG>(samples.size());
    span->Tint = tint;
    span->Address = address;
    span->Values = samples.data();
    std::copy_n(samples.begin(), std::min<size_t>(samples.size(), 4), span->Window);
    return S_OK;
}

HRESULT TestSamples::SetSpan(const TestSampleSpan* span) {
    ++calls;
    if (!span) return E_POINTER;
    if (span->Count < 0 || (span->Count > 0 && !span->Values)) return E_INVALIDARG;
    // Copied first: the span may describe these very samples (a GetSpan handed back).
    std::vector<double> copy(span->Values, span->Values + span->Count);
    samples = std::move(copy);
    tint = span->Tint;
    address = span->Address;
    return S_OK;
}

HRESULT TestSamples::RawValues(const double** values, LONG* count) {
    ++calls;
    if (!values || !count) return E_POINTER;
    *values = samples.data();
    *count = static_cast<LONG>(samples.size());
    return S_OK;
}

}  // namespace tessaly::test
