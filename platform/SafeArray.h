// Safe arrays: any number of dimensions, each with a count and a lower bound, elements of
// one automation type, in one block. The layout is OLE's: for an array a(i1, ..., in) the
// left-most index i1 varies fastest in memory; the descriptor keeps the bounds reversed
// (rgsabound[0] is the right-most dimension); index arrays list i1 first.
#pragma once

#include "platform/AutomationTypes.h"

// Element types allowed: VT_I1, VT_UI1, VT_I2, VT_UI2, VT_I4, VT_UI4, VT_INT, VT_UINT,
// VT_I8, VT_UI8, VT_R4, VT_R8, VT_CY, VT_DATE, VT_BOOL, VT_ERROR, VT_BSTR, VT_VARIANT,
// VT_DISPATCH, VT_UNKNOWN. Elements start zeroed (empty strings, VT_EMPTY, null objects).
// `bounds` lists the left-most dimension first. Null for a bad type, no dimensions or out of memory.
SAFEARRAY* SafeArrayCreate(VARTYPE vt, UINT dims, const SAFEARRAYBOUND* bounds) noexcept;
SAFEARRAY* SafeArrayCreateVector(VARTYPE vt, LONG lowerBound, ULONG count) noexcept;
// Frees the data (releasing strings, variants and objects) and the descriptor.
// DISP_E_ARRAYISLOCKED while locked.
HRESULT SafeArrayDestroy(SAFEARRAY* array) noexcept;
HRESULT SafeArrayDestroyData(SAFEARRAY* array) noexcept;
HRESULT SafeArrayLock(SAFEARRAY* array) noexcept;
HRESULT SafeArrayUnlock(SAFEARRAY* array) noexcept;  // E_UNEXPECTED when not locked
HRESULT SafeArrayAccessData(SAFEARRAY* array, void** data) noexcept;
HRESULT SafeArrayUnaccessData(SAFEARRAY* array) noexcept;
UINT SafeArrayGetDim(SAFEARRAY* array) noexcept;
UINT SafeArrayGetElemsize(SAFEARRAY* array) noexcept;
// `dim` counts from 1, the left-most dimension first, as in OLE. DISP_E_BADINDEX otherwise.
HRESULT SafeArrayGetLBound(SAFEARRAY* array, UINT dim, LONG* lowerBound) noexcept;
HRESULT SafeArrayGetUBound(SAFEARRAY* array, UINT dim, LONG* upperBound) noexcept;
HRESULT SafeArrayGetVartype(SAFEARRAY* array, VARTYPE* vt) noexcept;
// `indices` has one entry per dimension, left-most dimension first (OLE's rgIndices order).
// GetElement copies out (a new BSTR, a VariantCopy, an AddRef); PutElement copies in and
// releases what the slot held. DISP_E_BADINDEX outside the bounds.
HRESULT SafeArrayGetElement(SAFEARRAY* array, const LONG* indices, void* value) noexcept;
HRESULT SafeArrayPutElement(SAFEARRAY* array, const LONG* indices, const void* value) noexcept;
HRESULT SafeArrayPtrOfIndex(SAFEARRAY* array, const LONG* indices, void** element) noexcept;
// A deep copy (strings duplicated, variants copied, objects referenced again).
HRESULT SafeArrayCopy(SAFEARRAY* source, SAFEARRAY** copy) noexcept;
// Changes the count (and lower bound) of the right-most dimension, keeping the elements
// that still fit.
HRESULT SafeArrayRedim(SAFEARRAY* array, const SAFEARRAYBOUND* rightMostBound) noexcept;

namespace tessaly {
// Bytes of one element of an array of `vt`; 0 for a type no safe array holds.
size_t SafeArrayElementSize(VARTYPE vt) noexcept;
// The number of elements, or 0 for null.
size_t SafeArrayElementCount(const SAFEARRAY* array) noexcept;
// SafeArrayCreate for a caller that writes every element at once (a loader reading a
// block): the elements of a type that owns nothing (numbers, dates, currency, booleans,
// error codes) are left unwritten instead of zeroed; other types are zeroed as usual.
SAFEARRAY* SafeArrayCreateForFill(VARTYPE vt, UINT dims, const SAFEARRAYBOUND* bounds) noexcept;
}  // namespace tessaly
