// One call through IDispatch::Invoke from Python: the Python arguments laid out as the
// member's parameters, converted into an argument block, the call made with the GIL
// released (so that events raised on other threads, and sinks called back on this one,
// can run Python meanwhile), and the results converted back.
//
// Arguments: positional ones fill the parameters a caller passes ([in] and [in, out]) in
// order; keywords name them (any case); optional ones may be left out and take their
// defaults in the callee's dispatch. [out] parameters are not passed: the call returns the
// retval first, then every [out] and [in, out] parameter in order, alone when there is one
// value and as a tuple when there are several.
//
// Failures: the member's own failure raises tessaly.ComError with its HRESULT, description
// and source; an argument that does not convert raises TypeError (OverflowError when its
// value is out of range) naming the parameter; wrong arguments raise TypeError before the
// call is made.
#pragma once

#include <pybind11/pybind11.h>

#include <span>
#include <string_view>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly::python {

class ClientMember;

class Invocation {
public:
    // A property read without arguments, the client's most frequent call.
    static pybind11::object Get(IDispatch* target, const ClientMember& member);

    // Calls `info`, the member's entry for `flags` (DISPATCH_METHOD, DISPATCH_PROPERTYGET,
    // DISPATCH_PROPERTYPUT or DISPATCH_PROPERTYPUTREF). `keywords` is a dict or null. A put
    // takes its indices in `positional` and the value to assign in `value`.
    static pybind11::object Call(IDispatch* target, const ClientMember& member, const MemberInfo& info, WORD flags,
                                 std::span<PyObject* const> positional, PyObject* keywords, PyObject* value = nullptr);

    // A call without type information: positional arguments, converted by their Python type;
    // a put's value in `value`. Returns the result (None for a put).
    static pybind11::object CallLate(IDispatch* target, DISPID dispid, std::string_view name, WORD flags,
                                     std::span<PyObject* const> positional, PyObject* value = nullptr);

    // Reads a member of an object without class information: its value when it reads as a
    // property without arguments, else a bound method that calls it.
    static pybind11::object ReadLate(PyObject* self, DISPID dispid, PyObject* name);

    // An Invoke without arguments whose result the caller takes over (VariantClear).
    static void InvokeRaw(IDispatch* target, DISPID dispid, WORD flags, std::string_view name, VARIANT& result);
};

}  // namespace tessaly::python
