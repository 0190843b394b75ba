// Result codes of the automation runtime. Values are the ones automation clients know,
// so that code written against them compares the same numbers on every platform.
#pragma once

#include <cstdint>

using HRESULT = int32_t;
using SCODE = int32_t;
using LONG = int32_t;    // `long` is 64-bit on Linux: interfaces never use it
using ULONG = uint32_t;
using DWORD = uint32_t;
using WORD = uint16_t;
using BYTE = uint8_t;
using UINT = uint32_t;
using BOOL = int32_t;  // a C-style truth value: 0 is false
using USHORT = uint16_t;
using SHORT = int16_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using LCID = uint32_t;
using DISPID = int32_t;
using MEMBERID = int32_t;

constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

// Builds the signed 32-bit value of a code written as an unsigned hex literal.
constexpr HRESULT MakeHResult(uint32_t bits) { return static_cast<HRESULT>(bits); }

constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;

constexpr HRESULT E_NOTIMPL = MakeHResult(0x80004001u);
constexpr HRESULT E_NOINTERFACE = MakeHResult(0x80004002u);
constexpr HRESULT E_POINTER = MakeHResult(0x80004003u);
constexpr HRESULT E_ABORT = MakeHResult(0x80004004u);
constexpr HRESULT E_FAIL = MakeHResult(0x80004005u);
constexpr HRESULT E_UNEXPECTED = MakeHResult(0x8000FFFFu);
constexpr HRESULT E_ACCESSDENIED = MakeHResult(0x80070005u);
constexpr HRESULT E_HANDLE = MakeHResult(0x80070006u);
constexpr HRESULT E_OUTOFMEMORY = MakeHResult(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = MakeHResult(0x80070057u);

constexpr HRESULT DISP_E_UNKNOWNINTERFACE = MakeHResult(0x80020001u);
constexpr HRESULT DISP_E_MEMBERNOTFOUND = MakeHResult(0x80020003u);
constexpr HRESULT DISP_E_PARAMNOTFOUND = MakeHResult(0x80020004u);
constexpr HRESULT DISP_E_TYPEMISMATCH = MakeHResult(0x80020005u);
constexpr HRESULT DISP_E_UNKNOWNNAME = MakeHResult(0x80020006u);
constexpr HRESULT DISP_E_NONAMEDARGS = MakeHResult(0x80020007u);
constexpr HRESULT DISP_E_BADVARTYPE = MakeHResult(0x80020008u);
constexpr HRESULT DISP_E_EXCEPTION = MakeHResult(0x80020009u);
constexpr HRESULT DISP_E_OVERFLOW = MakeHResult(0x8002000Au);
constexpr HRESULT DISP_E_BADINDEX = MakeHResult(0x8002000Bu);
constexpr HRESULT DISP_E_UNKNOWNLCID = MakeHResult(0x8002000Cu);
constexpr HRESULT DISP_E_ARRAYISLOCKED = MakeHResult(0x8002000Du);
constexpr HRESULT DISP_E_BADPARAMCOUNT = MakeHResult(0x8002000Eu);
constexpr HRESULT DISP_E_PARAMNOTOPTIONAL = MakeHResult(0x8002000Fu);
constexpr HRESULT DISP_E_BADCALLEE = MakeHResult(0x80020010u);
constexpr HRESULT DISP_E_NOTACOLLECTION = MakeHResult(0x80020011u);
constexpr HRESULT DISP_E_DIVBYZERO = MakeHResult(0x80020012u);

constexpr HRESULT TYPE_E_ELEMENTNOTFOUND = MakeHResult(0x8002802Bu);

constexpr HRESULT CONNECT_E_NOCONNECTION = MakeHResult(0x80040200u);
constexpr HRESULT CONNECT_E_ADVISELIMIT = MakeHResult(0x80040201u);
constexpr HRESULT CONNECT_E_CANNOTCONNECT = MakeHResult(0x80040202u);
constexpr HRESULT CONNECT_E_OVERRIDDEN = MakeHResult(0x80040203u);

constexpr HRESULT CLASS_E_NOAGGREGATION = MakeHResult(0x80040110u);
constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MakeHResult(0x80040111u);
constexpr HRESULT REGDB_E_CLASSNOTREG = MakeHResult(0x80040154u);
constexpr HRESULT CO_E_CLASSSTRING = MakeHResult(0x800401F3u);

constexpr HRESULT STG_E_INVALIDFUNCTION = MakeHResult(0x80030001u);
constexpr HRESULT STG_E_FILENOTFOUND = MakeHResult(0x80030002u);
constexpr HRESULT STG_E_ACCESSDENIED = MakeHResult(0x80030005u);
constexpr HRESULT STG_E_INVALIDPOINTER = MakeHResult(0x80030009u);
constexpr HRESULT STG_E_SEEKERROR = MakeHResult(0x80030019u);
constexpr HRESULT STG_E_WRITEFAULT = MakeHResult(0x8003001Du);
constexpr HRESULT STG_E_READFAULT = MakeHResult(0x8003001Eu);
constexpr HRESULT STG_E_INVALIDPARAMETER = MakeHResult(0x80030057u);
constexpr HRESULT STG_E_MEDIUMFULL = MakeHResult(0x80030070u);
