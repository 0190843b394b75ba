// Python values to VARIANTs and back.
//
//   Python                          VARIANT
//   None                            VT_EMPTY (a null object for an object parameter)
//   bool, numpy.bool_               VT_BOOL
//   int                             VT_I4; VT_I8 beyond 32 bits
//   float                           VT_R8
//   str                             VT_BSTR (UTF-8)
//   client object                   VT_DISPATCH
//   tessaly.Unknown                 VT_UNKNOWN
//   bytes, bytearray                VT_ARRAY|VT_UI1
//   numpy array                     VT_ARRAY of the matching element type and shape
//   numpy scalar                    the matching scalar type (numpy.float32 -> VT_R4, ...)
//   datetime.datetime, date         VT_DATE
//   decimal.Decimal                 VT_CY
//   other sequences                 VT_ARRAY|VT_VARIANT, element by element
//
// Coming back, VT_EMPTY and VT_NULL are None, every integer type is int, VT_R4/VT_R8 float,
// VT_ERROR its code as int, objects are client objects of their class, and arrays are numpy
// arrays. References (VT_BYREF) are read through.
#pragma once

#include <pybind11/pybind11.h>

#include <stdexcept>
#include <string>

#include "platform/AutomationTypes.h"

namespace tessaly::python {

class VariantConverter {
public:
    // A value that cannot be passed as the type asked for; the caller names the parameter.
    class Refusal : public std::runtime_error {
    public:
        enum class Kind { Type, Overflow };
        Refusal(Kind kind, const std::string& message) : std::runtime_error(message), kind_(kind) {}
        Kind kind() const noexcept { return kind_; }

    private:
        Kind kind_;
    };

    // Converts `value` into `out`, which must be empty; on success the caller owns what
    // `out` holds (VariantClear). `hint` is the type the parameter declares: VT_VARIANT (or
    // VT_EMPTY) for any, VT_ARRAY|vt to build an array of that element type from a sequence,
    // VT_DISPATCH/VT_UNKNOWN to pass None as a null object. Other hints leave the conversion
    // to the callee's dispatch. Throws Refusal, or error_already_set for a Python error.
    static void ToVariant(PyObject* value, VARTYPE hint, VARIANT& out);

    // A new Python value for `value`, which stays owned by the caller.
    static pybind11::object FromVariant(const VARIANT& value);

    // "int", "list", ... for messages.
    static std::string TypeName(PyObject* value);
};

}  // namespace tessaly::python
