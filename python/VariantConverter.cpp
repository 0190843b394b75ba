#include "VariantConverter.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>

#include "ArrayConverter.h"
#include "ClientObject.h"
#include "OpaqueUnknown.h"
#include "platform/Bstr.h"
#include "platform/StandardInterfaces.h"
#include "platform/Variant.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

using Refusal = VariantConverter::Refusal;

// A standard module the program has already imported, else null: a value of one of its
// types can only exist once the program imported it, so nothing is imported for the test.
PyObject* ImportedModule(const char* name) {
    PyObject* key = PyUnicode_FromString(name);
    if (!key) throw py::error_already_set();
    PyObject* module = PyImport_GetModule(key);
    Py_DECREF(key);
    if (!module && PyErr_Occurred()) throw py::error_already_set();
    if (module) Py_DECREF(module);  // sys.modules keeps it
    return module;
}

// OLE dates count days from 1899-12-30; the fraction is the time of day, also before it
// (-1.25 is 1899-12-29 06:00).
struct DateTypes {
    py::object date, datetime, timedelta, epoch, epochDate;
};

const DateTypes& Dates() {
    static const DateTypes* types = [] {
        py::module_ module = py::module_::import("datetime");
        auto* created = new DateTypes;
        created->date = module.attr("date");
        created->datetime = module.attr("datetime");
        created->timedelta = module.attr("timedelta");
        created->epoch = created->datetime(1899, 12, 30);
        created->epochDate = created->date(1899, 12, 30);
        return created;
    }();
    return *types;
}

bool IsDate(PyObject* value) {
    if (!ImportedModule("datetime")) return false;
    const int result = PyObject_IsInstance(value, Dates().date.ptr());
    if (result < 0) throw py::error_already_set();
    return result == 1;
}

double DateFromPython(PyObject* value) {
    const DateTypes& types = Dates();
    py::object given = py::reinterpret_borrow<py::object>(value);
    const int isDatetime = PyObject_IsInstance(value, types.datetime.ptr());
    if (isDatetime < 0) throw py::error_already_set();
    if (!isDatetime) {
        // A date alone is its midnight.
        return static_cast<double>((given - types.epochDate).attr("days").cast<long long>());
    }
    if (!given.attr("tzinfo").is_none()) given = given.attr("replace")(py::arg("tzinfo") = py::none());
    py::object delta = given - types.epoch;
    const long long days = delta.attr("days").cast<long long>();
    const double seconds =
        delta.attr("seconds").cast<double>() + delta.attr("microseconds").cast<double>() / 1e6;
    const double fraction = seconds / 86400.0;
    return days >= 0 ? static_cast<double>(days) + fraction : static_cast<double>(days) - fraction;
}

py::object DateToPython(double date) {
    if (!std::isfinite(date)) throw py::value_error("the VT_DATE value is not a finite number");
    const DateTypes& types = Dates();
    const double day = std::trunc(date);
    const long long microseconds = std::llround(std::fabs(date - day) * 86400e6);
    return types.epoch + types.timedelta(py::arg("days") = day, py::arg("microseconds") = microseconds);
}

const py::module_& DecimalModule() {
    static const py::module_* module = new py::module_(py::module_::import("decimal"));
    return *module;
}

bool IsDecimal(PyObject* value) {
    if (!ImportedModule("decimal")) return false;
    const int result = PyObject_IsInstance(value, DecimalModule().attr("Decimal").ptr());
    if (result < 0) throw py::error_already_set();
    return result == 1;
}

// Currency is a 64-bit count of ten-thousandths, rounded half to even as the runtime does.
int64_t CurrencyFromPython(PyObject* value) {
    const py::module_& decimal = DecimalModule();
    py::object given = py::reinterpret_borrow<py::object>(value);
    if (!given.attr("is_finite")().cast<bool>()) throw Refusal(Refusal::Kind::Type, "a Decimal that is not finite has no currency value");
    py::object scaled = given.attr("scaleb")(4).attr("to_integral_value")(py::arg("rounding") = decimal.attr("ROUND_HALF_EVEN"));
    py::int_ integer(scaled);
    int overflow = 0;
    const long long result = PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow);
    if (overflow) throw Refusal(Refusal::Kind::Overflow, "the Decimal is beyond the range of currency");
    if (result == -1 && PyErr_Occurred()) throw py::error_already_set();
    return result;
}

py::object CurrencyToPython(int64_t value) {
    return DecimalModule().attr("Decimal")(value).attr("scaleb")(-4);
}

void StringToBstr(PyObject* value, VARIANT& out) {
    Py_ssize_t size = 0;
    const char* text = PyUnicode_AsUTF8AndSize(value, &size);
    py::object encoded;
    if (!text) {
        // Lone surrogates (file names read with surrogateescape) pass as the bytes they stand for.
        PyErr_Clear();
        encoded = py::reinterpret_steal<py::object>(PyUnicode_AsEncodedString(value, "utf-8", "surrogateescape"));
        if (!encoded) throw py::error_already_set();
        text = PyBytes_AS_STRING(encoded.ptr());
        size = PyBytes_GET_SIZE(encoded.ptr());
    }
    if (static_cast<uint64_t>(size) > UINT32_MAX) throw Refusal(Refusal::Kind::Overflow, "the string is longer than 4 GB");
    BSTR bstr = SysAllocStringLen(text, static_cast<UINT>(size));
    if (!bstr) throw std::bad_alloc();
    out.vt = VT_BSTR;
    out.bstrVal = bstr;
}

py::object BstrToPython(BSTR text) {
    const std::string_view view = BstrView(text);
    PyObject* decoded = PyUnicode_DecodeUTF8(view.data(), static_cast<Py_ssize_t>(view.size()), "surrogateescape");
    if (!decoded) throw py::error_already_set();
    return py::reinterpret_steal<py::object>(decoded);
}

py::object Integer(long long value) { return py::reinterpret_steal<py::object>(PyLong_FromLongLong(value)); }
py::object Unsigned(unsigned long long value) {
    return py::reinterpret_steal<py::object>(PyLong_FromUnsignedLongLong(value));
}

}  // namespace

std::string VariantConverter::TypeName(PyObject* value) { return Py_TYPE(value)->tp_name; }

void VariantConverter::ToVariant(PyObject* value, VARTYPE hint, VARIANT& out) {
    out = VARIANT{};
    const VARTYPE element = static_cast<VARTYPE>(hint & VT_TYPEMASK);
    const bool arrayHint = (hint & VT_ARRAY) && element != VT_VARIANT && element != VT_EMPTY;
    if (value == Py_None) {
        if (hint == VT_DISPATCH || hint == VT_UNKNOWN) out.vt = hint;  // a null object
        return;
    }
    if (PyBool_Check(value)) {
        out.vt = VT_BOOL;
        out.boolVal = value == Py_True ? VARIANT_TRUE : VARIANT_FALSE;
        return;
    }
    if (PyLong_Check(value)) {
        int overflow = 0;
        const long long number = PyLong_AsLongLongAndOverflow(value, &overflow);
        if (overflow) throw Refusal(Refusal::Kind::Overflow, "the int does not fit in 64 bits");
        if (number == -1 && PyErr_Occurred()) throw py::error_already_set();
        if (number >= INT32_MIN && number <= INT32_MAX) {
            out.vt = VT_I4;
            out.lVal = static_cast<int32_t>(number);
        } else {
            out.vt = VT_I8;
            out.llVal = number;
        }
        return;
    }
    if (PyFloat_Check(value)) {
        out.vt = VT_R8;
        out.dblVal = PyFloat_AS_DOUBLE(value);
        return;
    }
    if (PyUnicode_Check(value)) {
        StringToBstr(value, out);
        return;
    }
    if (ClientObject::Check(value)) {
        IDispatch* object = ClientObject::Dispatch(value);
        object->AddRef();
        out.vt = VT_DISPATCH;
        out.pdispVal = object;
        return;
    }
    if (OpaqueUnknown::Check(value)) {
        IUnknown* object = OpaqueUnknown::Pointer(value);
        object->AddRef();
        out.vt = VT_UNKNOWN;
        out.punkVal = object;
        return;
    }
    if (PyBytes_Check(value) || PyByteArray_Check(value)) {
        ArrayConverter::ToSafeArray(value, arrayHint ? element : VARTYPE(VT_UI1), out);
        return;
    }
    if (ArrayConverter::IsArray(value)) {
        ArrayConverter::ToSafeArray(value, arrayHint ? element : VARTYPE(VT_EMPTY), out);
        return;
    }
    if (ArrayConverter::IsScalar(value)) {
        ArrayConverter::ScalarToVariant(value, out);
        return;
    }
    if (IsDate(value)) {
        out.vt = VT_DATE;
        out.date = DateFromPython(value);
        return;
    }
    if (IsDecimal(value)) {
        const int64_t currency = CurrencyFromPython(value);
        out.vt = VT_CY;
        out.cyVal.int64 = currency;
        return;
    }
    if (PySequence_Check(value) && !PyDict_Check(value)) {
        if (arrayHint)
            ArrayConverter::ToSafeArray(value, element, out);
        else
            ArrayConverter::SequenceToVariants(value, out);
        return;
    }
    throw Refusal(Refusal::Kind::Type, "cannot convert " + TypeName(value) + " to an automation value");
}

py::object VariantConverter::FromVariant(const VARIANT& value) {
    const VARTYPE vt = value.vt;
    if (vt & VT_BYREF) {
        if (vt == (VT_BYREF | VT_VARIANT)) return value.pvarVal ? FromVariant(*value.pvarVal) : py::none();
        const VARTYPE target = static_cast<VARTYPE>(vt & ~VT_BYREF);
        const size_t size = ReferencedValueSize(target);
        if (size == 0 || !value.byref) throw py::type_error("a VARIANT reference that cannot be read");
        VARIANT view{};
        view.vt = target;
        std::memcpy(&view.llVal, value.byref, size);
        return FromVariant(view);
    }
    if (vt & VT_ARRAY) return ArrayConverter::FromSafeArray(value.parray);
    switch (vt) {
    case VT_EMPTY:
    case VT_NULL: return py::none();
    case VT_I1: return Integer(value.cVal);
    case VT_UI1: return Integer(value.bVal);
    case VT_I2: return Integer(value.iVal);
    case VT_UI2: return Integer(value.uiVal);
    case VT_I4:
    case VT_INT: return Integer(value.lVal);
    case VT_UI4:
    case VT_UINT: return Integer(value.ulVal);
    case VT_I8: return Integer(value.llVal);
    case VT_UI8: return Unsigned(value.ullVal);
    case VT_ERROR: return Integer(value.scode);
    case VT_R4: return py::float_(value.fltVal);
    case VT_R8: return py::float_(value.dblVal);
    case VT_BOOL: return py::bool_(value.boolVal != VARIANT_FALSE);
    case VT_BSTR: return BstrToPython(value.bstrVal);
    case VT_CY: return CurrencyToPython(value.cyVal.int64);
    case VT_DATE: return DateToPython(value.date);
    case VT_DISPATCH: return ClientObject::Wrap(value.pdispVal);
    case VT_UNKNOWN: {
        if (!value.punkVal) return py::none();
        IDispatch* dispatch = nullptr;
        if (SUCCEEDED(value.punkVal->QueryInterface(IDispatch::iid, reinterpret_cast<void**>(&dispatch))) && dispatch) {
            py::object wrapped;
            try {
                wrapped = ClientObject::Wrap(dispatch);
            } catch (...) {
                dispatch->Release();
                throw;
            }
            dispatch->Release();
            return wrapped;
        }
        return OpaqueUnknown::Wrap(value.punkVal);
    }
    default: {
        char message[64];
        std::snprintf(message, sizeof message, "VARIANT type 0x%04X has no Python form", vt);
        throw py::type_error(message);
    }
    }
}

}  // namespace tessaly::python
