// Safe arrays to numpy arrays and back.
//
// A numpy array of shape (n1, ..., nk) is the safe array a(n1, ..., nk) with lower bounds 0:
// arr[i1, ..., ik] is a(i1, ..., ik), the left-most index first in both. Safe arrays keep the
// left-most index fastest in memory, so the data moves as one block in Fortran order; lower
// bounds other than 0 are not kept. Element types:
//
//   VT_I1 int8, VT_UI1 uint8, VT_I2 int16, VT_UI2 uint16, VT_I4/VT_INT/VT_ERROR int32,
//   VT_UI4/VT_UINT uint32, VT_I8 int64, VT_UI8 uint64, VT_R4 float32, VT_R8 float64,
//   VT_BOOL bool; VT_BSTR, VT_VARIANT, objects, VT_CY and VT_DATE as object arrays
//   (numpy str arrays pass as VT_BSTR).
#pragma once

#include <pybind11/pybind11.h>

#include "platform/AutomationTypes.h"

namespace tessaly::python {

class ArrayConverter {
public:
    // numpy.ndarray and numpy.generic; false (and numpy not imported) when the program has
    // not imported numpy, since then it can hold no numpy value.
    static bool IsArray(PyObject* value);
    static bool IsScalar(PyObject* value);

    // `value` (a numpy array, bytes, bytearray or any sequence numpy reads) as a safe array
    // into `out`. `element` is the element type asked for, VT_EMPTY for the value's own
    // (numpy arrays; bytes are VT_UI1). A numpy array of another type is cast when no value
    // can change: a safe cast, integers to floating point, floating point to a narrower
    // one, or integers that all fit. Throws VariantConverter::Refusal otherwise.
    static void ToSafeArray(PyObject* value, VARTYPE element, VARIANT& out);
    // A numpy scalar as the scalar VARIANT of its type.
    static void ScalarToVariant(PyObject* value, VARIANT& out);
    // A sequence as a one-dimensional VT_ARRAY|VT_VARIANT, element by element.
    static void SequenceToVariants(PyObject* value, VARIANT& out);

    // A new numpy array holding copies of the elements; None for a null array.
    static pybind11::object FromSafeArray(SAFEARRAY* array);
};

}  // namespace tessaly::python
