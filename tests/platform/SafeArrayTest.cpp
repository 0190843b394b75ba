// Safe arrays: OLE element order and bounds, index checks, lock discipline, ownership of
// strings, variants and objects held as elements, deep copies, redimensioning, and the
// refusal of shapes that cannot be allocated.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "platform/Bstr.h"
#include "platform/Module.h"
#include "platform/SafeArray.h"
#include "platform/UnknownObject.h"
#include "platform/Variant.h"

namespace tessaly::test {
namespace {

// An object that lets tests read its reference count.
class Counted : public UnknownObject<Counted, IUnknown> {
public:
    ULONG Refs() const noexcept { return ReferenceCount(); }

private:
    friend class UnknownObject<Counted, IUnknown>;
    ~Counted() override = default;
};

class SafeArrayTest : public ::testing::Test {
protected:
    void SetUp() override { live_ = Module::LiveObjectCount(); }
    void TearDown() override { EXPECT_EQ(Module::LiveObjectCount(), live_) << "objects leaked or over-released"; }

    // The bytes of the element block, for checking that a refused call changed nothing.
    static std::vector<char> Snapshot(SAFEARRAY* array) {
        const char* data = static_cast<const char*>(array->pvData);
        return std::vector<char>(data, data + SafeArrayElementCount(array) * array->cbElements);
    }

private:
    LONG live_ = 0;
};

LONG Upper(SAFEARRAY* array, UINT dim) {
    LONG value = 0;
    EXPECT_EQ(SafeArrayGetUBound(array, dim, &value), S_OK);
    return value;
}

LONG Lower(SAFEARRAY* array, UINT dim) {
    LONG value = 0;
    EXPECT_EQ(SafeArrayGetLBound(array, dim, &value), S_OK);
    return value;
}

int32_t GetI4(SAFEARRAY* array, std::initializer_list<LONG> indices) {
    int32_t value = -1;
    EXPECT_EQ(SafeArrayGetElement(array, std::data(indices), &value), S_OK);
    return value;
}

TEST_F(SafeArrayTest, VectorWithNegativeLowerBoundAddressesFromTheLowerBound) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, -3, 5);
    ASSERT_NE(array, nullptr);
    EXPECT_EQ(SafeArrayGetDim(array), 1u);
    EXPECT_EQ(SafeArrayGetElemsize(array), 4u);
    VARTYPE vt = VT_EMPTY;
    EXPECT_EQ(SafeArrayGetVartype(array, &vt), S_OK);
    EXPECT_EQ(vt, VT_I4);
    EXPECT_EQ(array->fFeatures, FADF_HAVEVARTYPE);
    EXPECT_EQ(Lower(array, 1), -3);
    EXPECT_EQ(Upper(array, 1), 1);
    LONG unused = 77;
    EXPECT_EQ(SafeArrayGetLBound(array, 0, &unused), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayGetUBound(array, 2, &unused), DISP_E_BADINDEX);
    EXPECT_EQ(unused, 77);

    for (LONG i = -3; i <= 1; ++i) {
        EXPECT_EQ(GetI4(array, {i}), 0) << "elements start zeroed";
        const int32_t value = 100 + i;
        ASSERT_EQ(SafeArrayPutElement(array, &i, &value), S_OK);
    }
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    for (LONG i = -3; i <= 1; ++i) {
        EXPECT_EQ(static_cast<int32_t*>(data)[i + 3], 100 + i);
        void* element = nullptr;
        ASSERT_EQ(SafeArrayPtrOfIndex(array, &i, &element), S_OK);
        EXPECT_EQ(element, static_cast<int32_t*>(data) + (i + 3));
    }
    ASSERT_EQ(SafeArrayUnaccessData(array), S_OK);

    const std::vector<char> before = Snapshot(array);
    const int32_t intruder = 9;
    for (LONG outside : {-4, 2, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max()}) {
        int32_t out = 55;
        void* element = nullptr;
        EXPECT_EQ(SafeArrayGetElement(array, &outside, &out), DISP_E_BADINDEX) << outside;
        EXPECT_EQ(out, 55);
        EXPECT_EQ(SafeArrayPutElement(array, &outside, &intruder), DISP_E_BADINDEX) << outside;
        EXPECT_EQ(SafeArrayPtrOfIndex(array, &outside, &element), DISP_E_BADINDEX) << outside;
    }
    EXPECT_EQ(Snapshot(array), before);
    EXPECT_EQ(array->cLocks, 0u) << "element access leaves no lock behind, failed or not";
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST_F(SafeArrayTest, ThreeDimensionsKeepOleOrderAndCheckEveryIndex) {
    // a(1 To 2, -1 To 1, 10 To 13), left-most dimension first.
    const SAFEARRAYBOUND bounds[] = {{2, 1}, {3, -1}, {4, 10}};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, 3, bounds);
    ASSERT_EQ(SafeArrayGetDim(array), 3u);
    // The descriptor stores them reversed.
    const SAFEARRAYBOUND* stored = array->rgsabound;
    EXPECT_EQ(stored[0].cElements, 4u);
    EXPECT_EQ(stored[0].lLbound, 10);
    EXPECT_EQ(stored[2].cElements, 2u);
    EXPECT_EQ(stored[2].lLbound, 1);
    EXPECT_EQ(Lower(array, 1), 1);
    EXPECT_EQ(Upper(array, 1), 2);
    EXPECT_EQ(Lower(array, 2), -1);
    EXPECT_EQ(Upper(array, 2), 1);
    EXPECT_EQ(Lower(array, 3), 10);
    EXPECT_EQ(Upper(array, 3), 13);
    EXPECT_EQ(SafeArrayElementCount(array), 24u);

    auto code = [](LONG i, LONG j, LONG k) { return i * 10000 + (j + 5) * 100 + k; };
    for (LONG k = 10; k <= 13; ++k)
        for (LONG j = -1; j <= 1; ++j)
            for (LONG i = 1; i <= 2; ++i) {
                const LONG at[] = {i, j, k};
                const int32_t value = code(i, j, k);
                ASSERT_EQ(SafeArrayPutElement(array, at, &value), S_OK);
            }
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    const auto* values = static_cast<const int32_t*>(data);
    // The left-most index varies fastest.
    for (LONG k = 10; k <= 13; ++k)
        for (LONG j = -1; j <= 1; ++j)
            for (LONG i = 1; i <= 2; ++i)
                EXPECT_EQ(values[((k - 10) * 3 + (j + 1)) * 2 + (i - 1)], code(i, j, k)) << i << "," << j << "," << k;
    ASSERT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(GetI4(array, {2, 1, 13}), code(2, 1, 13));

    // One step outside any one dimension, the others inside, is refused.
    const std::vector<char> before = Snapshot(array);
    const LONG lower[] = {1, -1, 10};
    const LONG upper[] = {2, 1, 13};
    const int32_t intruder = -7;
    for (int d = 0; d < 3; ++d) {
        for (LONG outside : {lower[d] - 1, upper[d] + 1}) {
            LONG at[] = {2, 0, 11};
            at[d] = outside;
            int32_t out = 55;
            void* element = nullptr;
            EXPECT_EQ(SafeArrayGetElement(array, at, &out), DISP_E_BADINDEX) << "dimension " << d + 1;
            EXPECT_EQ(out, 55);
            EXPECT_EQ(SafeArrayPutElement(array, at, &intruder), DISP_E_BADINDEX) << "dimension " << d + 1;
            EXPECT_EQ(SafeArrayPtrOfIndex(array, at, &element), DISP_E_BADINDEX) << "dimension " << d + 1;
        }
    }
    EXPECT_EQ(Snapshot(array), before);
    LONG unused = 0;
    EXPECT_EQ(SafeArrayGetLBound(array, 4, &unused), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST_F(SafeArrayTest, ElementSizesAndFeaturesFollowTheType) {
    const struct {
        VARTYPE vt;
        UINT size;
        USHORT features;
    } cases[] = {{VT_I1, 1, 0},           {VT_BOOL, 2, 0},       {VT_UI2, 2, 0},
                 {VT_ERROR, 4, 0},        {VT_R4, 4, 0},         {VT_CY, 8, 0},
                 {VT_DATE, 8, 0},         {VT_UI8, 8, 0},        {VT_BSTR, sizeof(BSTR), FADF_BSTR},
                 {VT_UNKNOWN, sizeof(void*), FADF_UNKNOWN},      {VT_DISPATCH, sizeof(void*), FADF_DISPATCH},
                 {VT_VARIANT, 16, FADF_VARIANT}};
    for (const auto& expected : cases) {
        SAFEARRAY* array = SafeArrayCreateVector(expected.vt, 0, 3);
        ASSERT_NE(array, nullptr) << expected.vt;
        EXPECT_EQ(SafeArrayGetElemsize(array), expected.size) << expected.vt;
        EXPECT_EQ(array->fFeatures, FADF_HAVEVARTYPE | expected.features) << expected.vt;
        VARTYPE vt = VT_EMPTY;
        EXPECT_EQ(SafeArrayGetVartype(array, &vt), S_OK);
        EXPECT_EQ(vt, expected.vt);
        EXPECT_EQ(Snapshot(array), std::vector<char>(3 * expected.size, 0)) << "zeroed: " << expected.vt;
        EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    }
}

TEST_F(SafeArrayTest, BadTypesShapesAndHugeCountsAreRefused) {
    const SAFEARRAYBOUND one{4, 0};
    for (VARTYPE bad : {VARTYPE(VT_EMPTY), VARTYPE(VT_NULL), VARTYPE(VT_DECIMAL), VARTYPE(VT_RECORD),
                        VARTYPE(VT_VOID), VARTYPE(VT_LPSTR), VARTYPE(VT_ARRAY | VT_I4), VARTYPE(VT_BYREF | VT_I4),
                        VARTYPE(0x0FFF)})
        EXPECT_EQ(SafeArrayCreate(bad, 1, &one), nullptr) << bad;
    EXPECT_EQ(SafeArrayCreate(VT_I4, 0, &one), nullptr) << "no dimensions";
    EXPECT_EQ(SafeArrayCreate(VT_I4, 1, nullptr), nullptr);

    // Counts whose product wraps in 32 or 64 bits must not turn into a small allocation.
    const SAFEARRAYBOUND wraps32[] = {{0x10000, 0}, {0x10001, 0}};  // 2^32 + 2^16 elements
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 2, wraps32), nullptr);
    // (Lower bounds chosen so that every upper bound fits a LONG: only the count is wrong.)
    constexpr LONG kLowest = std::numeric_limits<LONG>::min();
    const SAFEARRAYBOUND wraps64[] = {{0xFFFFFFFFu, kLowest}, {0xFFFFFFFFu, kLowest}, {0xFFFFFFFFu, kLowest}};
    EXPECT_EQ(SafeArrayCreate(VT_VARIANT, 3, wraps64), nullptr);
    const SAFEARRAYBOUND wrapsToZero[] = {{0x10000, 0}, {0x10000, 0}, {0x10000, 0}, {0x10000, 0}};  // 2^64
    EXPECT_EQ(SafeArrayCreate(VT_UI1, 4, wrapsToZero), nullptr);
    EXPECT_EQ(SafeArrayCreateVector(VT_UI1, 0, 0x80000000u), nullptr) << "more elements than a LONG counts";
    EXPECT_EQ(SafeArrayCreateVector(VT_UI1, kLowest, 0xFFFFFFFFu), nullptr);
    // An empty dimension makes an empty array, however large the others, in either order.
    const SAFEARRAYBOUND emptyFirst[] = {{0, 0}, {0x80000000u, 0}};
    const SAFEARRAYBOUND emptyLast[] = {{0x80000000u, 0}, {0, 0}};
    for (const SAFEARRAYBOUND* shape : {emptyFirst, emptyLast}) {
        SAFEARRAY* empty = SafeArrayCreate(VT_I4, 2, shape);
        ASSERT_NE(empty, nullptr) << "no elements at all is a valid shape";
        EXPECT_EQ(SafeArrayElementCount(empty), 0u);
        EXPECT_EQ(SafeArrayDestroy(empty), S_OK);
    }
    // The upper bound must fit a LONG.
    EXPECT_EQ(SafeArrayCreateVector(VT_I4, std::numeric_limits<LONG>::max(), 2), nullptr);
    SAFEARRAY* last = SafeArrayCreateVector(VT_I4, std::numeric_limits<LONG>::max(), 1);
    ASSERT_NE(last, nullptr);
    EXPECT_EQ(Upper(last, 1), std::numeric_limits<LONG>::max());
    EXPECT_EQ(SafeArrayDestroy(last), S_OK);

    // An empty vector: upper bound one below the lower, every index outside.
    SAFEARRAY* none = SafeArrayCreateVector(VT_R8, 5, 0);
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(Upper(none, 1), 4);
    const LONG at = 5;
    double value = 1.5;
    EXPECT_EQ(SafeArrayPutElement(none, &at, &value), DISP_E_BADINDEX);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(none, &data), S_OK);
    EXPECT_NE(data, nullptr);
    ASSERT_EQ(SafeArrayUnaccessData(none), S_OK);
    EXPECT_EQ(SafeArrayDestroy(none), S_OK);

    // Null arguments.
    EXPECT_EQ(SafeArrayDestroy(nullptr), E_INVALIDARG);
    EXPECT_EQ(SafeArrayDestroyData(nullptr), E_INVALIDARG);
    EXPECT_EQ(SafeArrayLock(nullptr), E_INVALIDARG);
    EXPECT_EQ(SafeArrayAccessData(nullptr, &data), E_INVALIDARG);
    EXPECT_EQ(SafeArrayGetDim(nullptr), 0u);
    EXPECT_EQ(SafeArrayGetElemsize(nullptr), 0u);
    EXPECT_EQ(SafeArrayElementCount(nullptr), 0u);
    SAFEARRAY* vector = SafeArrayCreateVector(VT_I4, 0, 1);
    const LONG inside = 0;
    EXPECT_EQ(SafeArrayPutElement(vector, &inside, nullptr), E_INVALIDARG) << "a number is passed by address";
    EXPECT_EQ(SafeArrayGetElement(vector, nullptr, &value), E_INVALIDARG);
    EXPECT_EQ(SafeArrayGetLBound(vector, 1, nullptr), E_INVALIDARG);
    EXPECT_EQ(SafeArrayDestroy(vector), S_OK);
}

TEST_F(SafeArrayTest, LockedArraysSurviveDestroyAndRedim) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_I4, 1, 3);
    const LONG second = 2;
    const int32_t value = 42;
    ASSERT_EQ(SafeArrayPutElement(array, &second, &value), S_OK);

    EXPECT_EQ(SafeArrayUnlock(array), E_UNEXPECTED) << "not locked";
    EXPECT_EQ(array->cLocks, 0u);
    ASSERT_EQ(SafeArrayLock(array), S_OK);
    void* data = nullptr;
    ASSERT_EQ(SafeArrayAccessData(array, &data), S_OK);
    EXPECT_EQ(data, array->pvData);
    EXPECT_EQ(array->cLocks, 2u);

    EXPECT_EQ(SafeArrayDestroy(array), DISP_E_ARRAYISLOCKED);
    EXPECT_EQ(SafeArrayDestroyData(array), DISP_E_ARRAYISLOCKED);
    const SAFEARRAYBOUND smaller{1, 0};
    EXPECT_EQ(SafeArrayRedim(array, &smaller), DISP_E_ARRAYISLOCKED);
    // Still whole: same data, bounds and contents.
    EXPECT_EQ(array->pvData, data);
    EXPECT_EQ(Lower(array, 1), 1);
    EXPECT_EQ(Upper(array, 1), 3);
    EXPECT_EQ(static_cast<int32_t*>(data)[1], 42);
    // Elements may still be read and written while locked.
    EXPECT_EQ(GetI4(array, {2}), 42);
    const int32_t other = 43;
    EXPECT_EQ(SafeArrayPutElement(array, &second, &other), S_OK);
    EXPECT_EQ(array->cLocks, 2u);

    EXPECT_EQ(SafeArrayUnaccessData(array), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array), S_OK);
    EXPECT_EQ(SafeArrayUnlock(array), E_UNEXPECTED);
    EXPECT_EQ(array->cLocks, 0u);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST_F(SafeArrayTest, DestroyDataReleasesElementsAndKeepsTheShape) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_UNKNOWN, 0, 2);
    Counted* object = Counted::Create();
    const LONG first = 0;
    ASSERT_EQ(SafeArrayPutElement(array, &first, object->GetUnknown()), S_OK);
    EXPECT_EQ(object->Refs(), 2u);
    ASSERT_EQ(SafeArrayDestroyData(array), S_OK);
    EXPECT_EQ(object->Refs(), 1u);
    EXPECT_EQ(array->pvData, nullptr);
    EXPECT_EQ(Upper(array, 1), 1);
    IUnknown* out = nullptr;
    EXPECT_EQ(SafeArrayGetElement(array, &first, &out), E_UNEXPECTED) << "no data to read";
    EXPECT_EQ(out, nullptr);
    // Redim gives it fresh, empty data again.
    const SAFEARRAYBOUND three{3, 0};
    ASSERT_EQ(SafeArrayRedim(array, &three), S_OK);
    ASSERT_EQ(SafeArrayGetElement(array, &first, &out), S_OK);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    object->Release();
}

TEST_F(SafeArrayTest, StringElementsAreCopiedInAndOut) {
    SAFEARRAY* array = SafeArrayCreateVector(VT_BSTR, 1, 2);
    ASSERT_NE(array, nullptr);
    const LONG first = 1;
    const LONG second = 2;
    BSTR text = SysAllocStringLen("a\0b", 3);
    ASSERT_EQ(SafeArrayPutElement(array, &first, text), S_OK);
    BSTR stored = static_cast<BSTR*>(array->pvData)[0];
    EXPECT_NE(stored, text) << "the array keeps its own copy";
    EXPECT_EQ(BstrView(stored), std::string_view("a\0b", 3));
    SysFreeString(text);

    BSTR out = nullptr;
    ASSERT_EQ(SafeArrayGetElement(array, &first, &out), S_OK);
    EXPECT_NE(out, stored) << "the caller gets its own copy";
    EXPECT_EQ(BstrView(out), std::string_view("a\0b", 3));
    SysFreeString(out);

    // An empty slot reads as a null string; a null string puts as one.
    out = reinterpret_cast<BSTR>(0x1);
    ASSERT_EQ(SafeArrayGetElement(array, &second, &out), S_OK);
    EXPECT_EQ(out, nullptr);
    ASSERT_EQ(SafeArrayPutElement(array, &first, nullptr), S_OK);
    EXPECT_EQ(static_cast<BSTR*>(array->pvData)[0], nullptr);

    // Replacing frees the old string; putting a slot's own string back is safe.
    Bstr replacement("replacement");
    ASSERT_EQ(SafeArrayPutElement(array, &second, replacement.get()), S_OK);
    ASSERT_EQ(SafeArrayPutElement(array, &second, Bstr("final").get()), S_OK);
    void* slot = nullptr;
    ASSERT_EQ(SafeArrayPtrOfIndex(array, &second, &slot), S_OK);
    ASSERT_EQ(SafeArrayPutElement(array, &second, *static_cast<BSTR*>(slot)), S_OK);
    ASSERT_EQ(SafeArrayGetElement(array, &second, &out), S_OK);
    EXPECT_EQ(Bstr::Attach(out).view(), "final");
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
}

TEST_F(SafeArrayTest, ObjectElementsHoldTheirOwnReferences) {
    Counted* object = Counted::Create();
    IUnknown* unknown = object->GetUnknown();
    SAFEARRAY* array = SafeArrayCreateVector(VT_UNKNOWN, 0, 3);
    const LONG at0 = 0;
    const LONG at1 = 1;
    const LONG outside = 3;
    ASSERT_EQ(SafeArrayPutElement(array, &at0, unknown), S_OK);
    EXPECT_EQ(object->Refs(), 2u) << "put adds a reference";
    ASSERT_EQ(SafeArrayPutElement(array, &at1, unknown), S_OK);
    EXPECT_EQ(object->Refs(), 3u);
    ASSERT_EQ(SafeArrayPutElement(array, &at1, unknown), S_OK);
    EXPECT_EQ(object->Refs(), 3u) << "putting the same object again is one reference";
    EXPECT_EQ(SafeArrayPutElement(array, &outside, unknown), DISP_E_BADINDEX);
    EXPECT_EQ(object->Refs(), 3u) << "a refused put adds nothing";

    IUnknown* out = nullptr;
    ASSERT_EQ(SafeArrayGetElement(array, &at0, &out), S_OK);
    EXPECT_EQ(out, unknown);
    EXPECT_EQ(object->Refs(), 4u) << "get hands out a reference";
    out->Release();

    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(array, &copy), S_OK);
    EXPECT_EQ(object->Refs(), 5u) << "the copy references both elements again";
    ASSERT_EQ(SafeArrayPutElement(array, &at1, nullptr), S_OK);
    EXPECT_EQ(object->Refs(), 4u) << "replacing releases the old element";
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    EXPECT_EQ(object->Refs(), 2u);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    EXPECT_EQ(object->Refs(), 1u) << "destroy releases every element";
    object->Release();
}

TEST_F(SafeArrayTest, VariantElementsOwnWhatTheyHold) {
    Counted* object = Counted::Create();
    SAFEARRAY* array = SafeArrayCreateVector(VT_VARIANT, 0, 3);
    const LONG at0 = 0;
    const LONG at1 = 1;
    const LONG at2 = 2;
    VARIANT holder;
    VariantInit(&holder);
    holder.vt = VT_UNKNOWN;
    holder.punkVal = object->GetUnknown();
    ASSERT_EQ(SafeArrayPutElement(array, &at0, &holder), S_OK);
    EXPECT_EQ(object->Refs(), 2u);
    VARIANT text;
    VariantInit(&text);
    text.vt = VT_BSTR;
    text.bstrVal = SysAllocString("words");
    ASSERT_EQ(SafeArrayPutElement(array, &at1, &text), S_OK);
    const VARIANT* slots = static_cast<const VARIANT*>(array->pvData);
    EXPECT_EQ(slots[1].vt, VT_BSTR);
    EXPECT_NE(slots[1].bstrVal, text.bstrVal) << "the string is copied";
    VariantClear(&text);
    EXPECT_EQ(BstrView(slots[1].bstrVal), "words");
    EXPECT_EQ(slots[2].vt, VT_EMPTY) << "new elements are VT_EMPTY";

    VARIANT out;
    ASSERT_EQ(SafeArrayGetElement(array, &at0, &out), S_OK);
    EXPECT_EQ(out.vt, VT_UNKNOWN);
    EXPECT_EQ(object->Refs(), 3u);
    VariantClear(&out);
    ASSERT_EQ(SafeArrayGetElement(array, &at2, &out), S_OK);
    EXPECT_EQ(out.vt, VT_EMPTY);

    VARIANT number;
    VariantInit(&number);
    number.vt = VT_I4;
    number.lVal = 12;
    ASSERT_EQ(SafeArrayPutElement(array, &at2, &holder), S_OK);
    EXPECT_EQ(object->Refs(), 3u);
    ASSERT_EQ(SafeArrayPutElement(array, &at0, &number), S_OK);
    EXPECT_EQ(object->Refs(), 2u) << "replacing the variant releases its object";
    EXPECT_EQ(slots[0].vt, VT_I4);
    EXPECT_EQ(slots[0].lVal, 12);
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    EXPECT_EQ(object->Refs(), 1u);
    object->Release();
}

TEST_F(SafeArrayTest, CopyIsDeepAndIndependent) {
    const SAFEARRAYBOUND bounds[] = {{2, -1}, {2, 5}};
    SAFEARRAY* source = SafeArrayCreate(VT_BSTR, 2, bounds);
    const LONG corner[] = {0, 6};
    ASSERT_EQ(SafeArrayPutElement(source, corner, Bstr("corner").get()), S_OK);
    ASSERT_EQ(SafeArrayLock(source), S_OK);

    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(source, &copy), S_OK);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->cLocks, 0u) << "the copy is not locked with its source";
    EXPECT_EQ(copy->fFeatures, source->fFeatures);
    EXPECT_EQ(copy->cbElements, source->cbElements);
    VARTYPE vt = VT_EMPTY;
    EXPECT_EQ(SafeArrayGetVartype(copy, &vt), S_OK);
    EXPECT_EQ(vt, VT_BSTR);
    for (UINT dim = 1; dim <= 2; ++dim) {
        EXPECT_EQ(Lower(copy, dim), Lower(source, dim));
        EXPECT_EQ(Upper(copy, dim), Upper(source, dim));
    }
    void* inSource = nullptr;
    void* inCopy = nullptr;
    ASSERT_EQ(SafeArrayPtrOfIndex(source, corner, &inSource), S_OK);
    ASSERT_EQ(SafeArrayPtrOfIndex(copy, corner, &inCopy), S_OK);
    EXPECT_NE(*static_cast<BSTR*>(inCopy), *static_cast<BSTR*>(inSource)) << "strings are duplicated";
    EXPECT_EQ(BstrView(*static_cast<BSTR*>(inCopy)), "corner");

    // Changing the source leaves the copy alone, and the other way round.
    ASSERT_EQ(SafeArrayPutElement(source, corner, Bstr("changed").get()), S_OK);
    EXPECT_EQ(BstrView(*static_cast<BSTR*>(inCopy)), "corner");
    const LONG other[] = {-1, 5};
    ASSERT_EQ(SafeArrayPutElement(copy, other, Bstr("only in copy").get()), S_OK);
    BSTR out = nullptr;
    ASSERT_EQ(SafeArrayGetElement(source, other, &out), S_OK);
    EXPECT_EQ(out, nullptr);
    const SAFEARRAYBOUND grown{4, -1};
    ASSERT_EQ(SafeArrayRedim(copy, &grown), S_OK);
    EXPECT_EQ(Upper(source, 1), 0) << "redim of the copy leaves the source's bounds";

    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
    EXPECT_EQ(SafeArrayUnlock(source), S_OK);
    EXPECT_EQ(SafeArrayDestroy(source), S_OK);

    SAFEARRAY* nothing = reinterpret_cast<SAFEARRAY*>(0x1);
    EXPECT_EQ(SafeArrayCopy(nullptr, &nothing), S_OK);
    EXPECT_EQ(nothing, nullptr) << "null copies as null";
    EXPECT_EQ(SafeArrayCopy(nullptr, nullptr), E_INVALIDARG);
}

TEST_F(SafeArrayTest, CopyOfNumbersAndOfADescriptorBuiltByHand) {
    int16_t values[] = {3, -4, 5};
    SAFEARRAY byHand{};
    byHand.cDims = 1;
    byHand.fFeatures = FADF_STATIC;
    byHand.cbElements = sizeof(int16_t);
    byHand.pvData = values;
    byHand.vt = VT_I2;
    byHand.rgsabound[0] = {3, 10};
    SAFEARRAY* copy = nullptr;
    ASSERT_EQ(SafeArrayCopy(&byHand, &copy), S_OK);
    EXPECT_NE(copy->pvData, static_cast<void*>(values));
    EXPECT_EQ(copy->fFeatures & FADF_STATIC, 0) << "the copy is the caller's to destroy";
    EXPECT_EQ(std::memcmp(copy->pvData, values, sizeof(values)), 0);
    EXPECT_EQ(Lower(copy, 1), 10);
    const SAFEARRAYBOUND grown{4, 10};
    EXPECT_EQ(SafeArrayRedim(&byHand, &grown), E_INVALIDARG) << "memory that is not the array's is not resized";
    EXPECT_EQ(byHand.pvData, static_cast<void*>(values));
    EXPECT_EQ(SafeArrayDestroy(copy), S_OK);
}

TEST_F(SafeArrayTest, RedimKeepsWhatFitsAndReleasesTheRest) {
    Counted* objects[4];
    for (Counted*& object : objects) object = Counted::Create();
    SAFEARRAY* array = SafeArrayCreateVector(VT_UNKNOWN, 1, 4);
    for (LONG i = 1; i <= 4; ++i) ASSERT_EQ(SafeArrayPutElement(array, &i, objects[i - 1]->GetUnknown()), S_OK);

    // Shrinking to two elements, now numbered from 0.
    const SAFEARRAYBOUND two{2, 0};
    ASSERT_EQ(SafeArrayRedim(array, &two), S_OK);
    EXPECT_EQ(Lower(array, 1), 0);
    EXPECT_EQ(Upper(array, 1), 1);
    EXPECT_EQ(objects[0]->Refs(), 2u);
    EXPECT_EQ(objects[1]->Refs(), 2u);
    EXPECT_EQ(objects[2]->Refs(), 1u) << "removed elements are released";
    EXPECT_EQ(objects[3]->Refs(), 1u);
    IUnknown* out = nullptr;
    const LONG zero = 0;
    ASSERT_EQ(SafeArrayGetElement(array, &zero, &out), S_OK);
    EXPECT_EQ(out, objects[0]->GetUnknown());
    out->Release();

    // Growing keeps both and adds empty slots.
    const SAFEARRAYBOUND five{5, 0};
    ASSERT_EQ(SafeArrayRedim(array, &five), S_OK);
    EXPECT_EQ(Upper(array, 1), 4);
    IUnknown* const* slots = static_cast<IUnknown* const*>(array->pvData);
    EXPECT_EQ(slots[1], objects[1]->GetUnknown());
    for (int i = 2; i < 5; ++i) EXPECT_EQ(slots[i], nullptr);
    EXPECT_EQ(objects[1]->Refs(), 2u);

    // A shape too large to allocate is refused and changes nothing.
    const SAFEARRAYBOUND huge{0x80000000u, 0};
    EXPECT_EQ(SafeArrayRedim(array, &huge), E_OUTOFMEMORY);
    const SAFEARRAYBOUND overflowing{2, std::numeric_limits<LONG>::max()};
    EXPECT_EQ(SafeArrayRedim(array, &overflowing), E_INVALIDARG);
    EXPECT_EQ(Upper(array, 1), 4);
    EXPECT_EQ(array->pvData, static_cast<const void*>(slots));
    EXPECT_EQ(SafeArrayRedim(array, nullptr), E_INVALIDARG);

    EXPECT_EQ(SafeArrayDestroy(array), S_OK);
    for (Counted* object : objects) {
        EXPECT_EQ(object->Refs(), 1u);
        object->Release();
    }
}

TEST_F(SafeArrayTest, RedimOfTheRightMostDimensionKeepsEveryIndexInPlace) {
    // a(0 To 2, 1 To 3): the right-most index varies slowest, so resizing it keeps the
    // surviving elements where they are.
    const SAFEARRAYBOUND bounds[] = {{3, 0}, {3, 1}};
    SAFEARRAY* array = SafeArrayCreate(VT_I4, 2, bounds);
    for (LONG j = 1; j <= 3; ++j)
        for (LONG i = 0; i <= 2; ++i) {
            const LONG at[] = {i, j};
            const int32_t value = 10 * j + i;
            ASSERT_EQ(SafeArrayPutElement(array, at, &value), S_OK);
        }
    const SAFEARRAYBOUND shorter{2, 1};
    ASSERT_EQ(SafeArrayRedim(array, &shorter), S_OK);
    EXPECT_EQ(Upper(array, 1), 2) << "only the right-most dimension changes";
    EXPECT_EQ(Upper(array, 2), 2);
    const SAFEARRAYBOUND* stored = array->rgsabound;
    EXPECT_EQ(stored[0].cElements, 2u) << "the right-most dimension is the first in the descriptor";
    EXPECT_EQ(stored[1].cElements, 3u);
    EXPECT_EQ(SafeArrayElementCount(array), 6u);
    for (LONG j = 1; j <= 2; ++j)
        for (LONG i = 0; i <= 2; ++i) EXPECT_EQ(GetI4(array, {i, j}), 10 * j + i) << i << "," << j;

    const SAFEARRAYBOUND longer{4, 0};
    ASSERT_EQ(SafeArrayRedim(array, &longer), S_OK);
    EXPECT_EQ(Lower(array, 2), 0) << "the lower bound moves too, the memory does not";
    for (LONG i = 0; i <= 2; ++i) {
        for (LONG j = 0; j <= 1; ++j) EXPECT_EQ(GetI4(array, {i, j}), 10 * (j + 1) + i) << i << "," << j;
        for (LONG j = 2; j <= 3; ++j) EXPECT_EQ(GetI4(array, {i, j}), 0) << "new elements are zero";
    }
    EXPECT_EQ(SafeArrayDestroy(array), S_OK);

    // Strings removed by a redim are freed and kept ones stay valid (checked under the sanitizers).
    const SAFEARRAYBOUND grid[] = {{2, 0}, {2, 0}};
    SAFEARRAY* strings = SafeArrayCreate(VT_BSTR, 2, grid);
    for (LONG j = 0; j <= 1; ++j)
        for (LONG i = 0; i <= 1; ++i) {
            const LONG at[] = {i, j};
            ASSERT_EQ(SafeArrayPutElement(strings, at, Bstr(std::to_string(i) + std::to_string(j)).get()), S_OK);
        }
    const SAFEARRAYBOUND single{1, 0};
    ASSERT_EQ(SafeArrayRedim(strings, &single), S_OK);
    const LONG kept[] = {1, 0};
    BSTR out = nullptr;
    ASSERT_EQ(SafeArrayGetElement(strings, kept, &out), S_OK);
    EXPECT_EQ(Bstr::Attach(out).view(), "10");
    const LONG gone[] = {0, 1};
    EXPECT_EQ(SafeArrayGetElement(strings, gone, &out), DISP_E_BADINDEX);
    EXPECT_EQ(SafeArrayDestroy(strings), S_OK);
}

}  // namespace
}  // namespace tessaly::test
