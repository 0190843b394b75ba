// The value types that cross automation interfaces: strings, variants, safe arrays and
// the argument blocks of IDispatch. Layouts and codes follow OLE Automation so that the
// numbers clients see (VT_ARRAY|VT_UI1 = 0x2011, VARIANT_TRUE = -1, ...) are the familiar ones.
#pragma once

#include <cstdint>

#include "platform/Guid.h"
#include "platform/HResult.h"

struct IUnknown;
struct IDispatch;

// Length-prefixed, NUL-terminated UTF-8. The 32-bit byte length sits just before the
// first character; a null BSTR means the empty string.
using OLECHAR = char;
using BSTR = OLECHAR*;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;

using VARIANT_BOOL = int16_t;
constexpr VARIANT_BOOL VARIANT_TRUE = -1;
constexpr VARIANT_BOOL VARIANT_FALSE = 0;

using DATE = double;  // days since 1899-12-30, fraction = time of day

struct CY {
    int64_t int64;  // currency: value times 10,000
};

using VARTYPE = uint16_t;

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_CY = 6,
    VT_DATE = 7,
    VT_BSTR = 8,
    VT_DISPATCH = 9,
    VT_ERROR = 10,
    VT_BOOL = 11,
    VT_VARIANT = 12,
    VT_UNKNOWN = 13,
    VT_DECIMAL = 14,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_VOID = 24,
    VT_HRESULT = 25,
    VT_PTR = 26,
    VT_SAFEARRAY = 27,
    VT_CARRAY = 28,
    VT_USERDEFINED = 29,
    VT_LPSTR = 30,
    VT_LPWSTR = 31,
    VT_RECORD = 36,
    VT_ARRAY = 0x2000,
    VT_BYREF = 0x4000,
    VT_RESERVED = 0x8000,
    VT_TYPEMASK = 0x0FFF,
};

struct SAFEARRAYBOUND {
    ULONG cElements;
    LONG lLbound;
};

// Features of a safe array (fFeatures).
constexpr USHORT FADF_AUTO = 0x0001;
constexpr USHORT FADF_STATIC = 0x0002;
constexpr USHORT FADF_FIXEDSIZE = 0x0010;
constexpr USHORT FADF_BSTR = 0x0100;
constexpr USHORT FADF_UNKNOWN = 0x0200;
constexpr USHORT FADF_DISPATCH = 0x0400;
constexpr USHORT FADF_VARIANT = 0x0800;
constexpr USHORT FADF_HAVEVARTYPE = 0x0080;

// Bounds are stored as in OLE: rgsabound[0] is the right-most dimension, the one that varies
// slowest in memory (the left-most index varies fastest).
// The element type is kept in the array itself (OLE keeps it in front of the descriptor).
struct SAFEARRAY {
    USHORT cDims;
    USHORT fFeatures;
    ULONG cbElements;
    ULONG cLocks;
    void* pvData;
    VARTYPE vt;
    SAFEARRAYBOUND rgsabound[1];  // cDims entries follow
};

struct VARIANT;

struct VARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        int64_t llVal;
        int32_t lVal;
        uint8_t bVal;
        int16_t iVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        SCODE scode;
        CY cyVal;
        DATE date;
        BSTR bstrVal;
        IUnknown* punkVal;
        IDispatch* pdispVal;
        SAFEARRAY* parray;
        uint8_t* pbVal;
        int16_t* piVal;
        int32_t* plVal;
        int64_t* pllVal;
        float* pfltVal;
        double* pdblVal;
        VARIANT_BOOL* pboolVal;
        SCODE* pscode;
        CY* pcyVal;
        DATE* pdate;
        BSTR* pbstrVal;
        IUnknown** ppunkVal;
        IDispatch** ppdispVal;
        SAFEARRAY** pparray;
        VARIANT* pvarVal;
        void* byref;
        int8_t cVal;
        uint16_t uiVal;
        uint32_t ulVal;
        uint64_t ullVal;
        int32_t intVal;
        uint32_t uintVal;
        int8_t* pcVal;
        uint16_t* puiVal;
        uint32_t* pulVal;
        uint64_t* pullVal;
        int32_t* pintVal;
        uint32_t* puintVal;
    };
};
static_assert(sizeof(VARIANT) == 16, "VARIANT is 16 bytes: type word, three reserved words, 8-byte value");

using VARIANTARG = VARIANT;

// Flags of VariantChangeType.
constexpr USHORT VARIANT_NOVALUEPROP = 0x01;
constexpr USHORT VARIANT_ALPHABOOL = 0x02;  // booleans convert to "True"/"False" instead of "-1"/"0"

// DISPIDs with a standard meaning.
constexpr DISPID DISPID_UNKNOWN = -1;
constexpr DISPID DISPID_VALUE = 0;
constexpr DISPID DISPID_PROPERTYPUT = -3;
constexpr DISPID DISPID_NEWENUM = -4;
constexpr DISPID DISPID_EVALUATE = -5;

// wFlags of IDispatch::Invoke.
constexpr WORD DISPATCH_METHOD = 0x1;
constexpr WORD DISPATCH_PROPERTYGET = 0x2;
constexpr WORD DISPATCH_PROPERTYPUT = 0x4;
constexpr WORD DISPATCH_PROPERTYPUTREF = 0x8;

// Arguments of IDispatch::Invoke: rgvarg holds them last-first; named ones come first.
struct DISPPARAMS {
    VARIANTARG* rgvarg;
    DISPID* rgdispidNamedArgs;
    UINT cArgs;
    UINT cNamedArgs;
};

struct EXCEPINFO {
    WORD wCode;
    WORD wReserved;
    BSTR bstrSource;
    BSTR bstrDescription;
    BSTR bstrHelpFile;
    DWORD dwHelpContext;
    void* pvReserved;
    HRESULT (*pfnDeferredFillIn)(EXCEPINFO*);
    SCODE scode;
};

constexpr LCID LOCALE_USER_DEFAULT = 0x0400;
constexpr LCID LOCALE_SYSTEM_DEFAULT = 0x0800;
