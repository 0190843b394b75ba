#include "ArrayConverter.h"

#include <pybind11/numpy.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "ClientObject.h"
#include "ComError.h"
#include "OpaqueUnknown.h"
#include "VariantConverter.h"
#include "platform/Bstr.h"
#include "platform/SafeArray.h"
#include "platform/StandardInterfaces.h"
#include "platform/Variant.h"

namespace py = pybind11;
using namespace pybind11::literals;

namespace tessaly::python {

namespace {

using Refusal = VariantConverter::Refusal;

// Element types held as plain numbers: the safe array's block and the numpy array's data
// are the same bytes (VT_BOOL aside, which is two bytes against numpy's one).
struct NumberType {
    VARTYPE vt;
    char kind;  // numpy dtype kind: 'b' bool, 'i' signed, 'u' unsigned, 'f' floating point
    int size;   // numpy item size
    const char* dtype;
};

constexpr NumberType kNumberTypes[] = {
    {VT_I1, 'i', 1, "int8"},     {VT_UI1, 'u', 1, "uint8"},   {VT_I2, 'i', 2, "int16"},  {VT_UI2, 'u', 2, "uint16"},
    {VT_I4, 'i', 4, "int32"},    {VT_UI4, 'u', 4, "uint32"},  {VT_I8, 'i', 8, "int64"},  {VT_UI8, 'u', 8, "uint64"},
    {VT_R4, 'f', 4, "float32"},  {VT_R8, 'f', 8, "float64"},  {VT_BOOL, 'b', 1, "bool"}, {VT_INT, 'i', 4, "int32"},
    {VT_UINT, 'u', 4, "uint32"}, {VT_ERROR, 'i', 4, "int32"},
};

const NumberType* NumberByVartype(VARTYPE vt) {
    for (const NumberType& type : kNumberTypes)
        if (type.vt == vt) return &type;
    return nullptr;
}

const NumberType* NumberByDtype(char kind, int size) {
    for (const NumberType& type : kNumberTypes)
        if (type.kind == kind && type.size == size) return &type;
    return nullptr;
}

const char* VartypeName(VARTYPE vt) {
    switch (vt) {
    case VT_I1: return "char";
    case VT_UI1: return "unsigned char";
    case VT_I2: return "short";
    case VT_UI2: return "unsigned short";
    case VT_I4: return "long";
    case VT_UI4: return "unsigned long";
    case VT_INT: return "int";
    case VT_UINT: return "unsigned int";
    case VT_I8: return "hyper";
    case VT_UI8: return "unsigned hyper";
    case VT_R4: return "float";
    case VT_R8: return "double";
    case VT_BOOL: return "VARIANT_BOOL";
    case VT_ERROR: return "SCODE";
    case VT_BSTR: return "BSTR";
    case VT_VARIANT: return "VARIANT";
    case VT_DISPATCH: return "IDispatch*";
    case VT_UNKNOWN: return "IUnknown*";
    case VT_CY: return "CY";
    case VT_DATE: return "DATE";
    default: return "an unsupported type";
    }
}

// numpy, once the program has imported it; null before.
PyObject* ImportedNumpy() {
    static PyObject* numpy = nullptr;
    if (numpy) return numpy;
    PyObject* key = PyUnicode_FromString("numpy");
    if (!key) throw py::error_already_set();
    PyObject* module = PyImport_GetModule(key);
    Py_DECREF(key);
    if (!module && PyErr_Occurred()) throw py::error_already_set();
    numpy = module;  // the reference is kept: numpy is never unloaded
    return numpy;
}

const py::module_& Numpy() {
    static const py::module_* numpy = new py::module_(py::module_::import("numpy"));
    return *numpy;
}

bool InstanceOfNumpyType(PyObject* value, const char* typeName, PyObject*& cached) {
    if (!cached) {
        PyObject* numpy = ImportedNumpy();
        if (!numpy) return false;
        cached = PyObject_GetAttrString(numpy, typeName);
        if (!cached) throw py::error_already_set();
    }
    return PyObject_TypeCheck(value, reinterpret_cast<PyTypeObject*>(cached));
}

std::string DtypeName(const py::array& array) { return py::str(array.dtype()).cast<std::string>(); }

// Containers convert their elements, which may be containers: a container that holds itself
// ends in RecursionError instead of exhausting the stack.
class RecursionGuard {
public:
    RecursionGuard() {
        if (Py_EnterRecursiveCall(" while converting a container to an array")) throw py::error_already_set();
    }
    RecursionGuard(const RecursionGuard&) = delete;
    RecursionGuard& operator=(const RecursionGuard&) = delete;
    ~RecursionGuard() { Py_LeaveRecursiveCall(); }
};

// Access to a safe array's data that ends on every path; the array itself is destroyed
// too while it is still the caller's to build (Release hands it over).
class SafeArrayBuild {
public:
    SafeArrayBuild(VARTYPE vt, const std::vector<SAFEARRAYBOUND>& bounds) {
        array_ = SafeArrayCreate(vt, static_cast<UINT>(bounds.size()), bounds.data());
        if (!array_) throw std::bad_alloc();
        if (FAILED(SafeArrayAccessData(array_, &data_))) {
            SafeArrayDestroy(array_);
            throw std::bad_alloc();
        }
    }
    SafeArrayBuild(const SafeArrayBuild&) = delete;
    SafeArrayBuild& operator=(const SafeArrayBuild&) = delete;
    ~SafeArrayBuild() {
        if (!array_) return;
        SafeArrayUnaccessData(array_);
        SafeArrayDestroy(array_);
    }
    void* data() const { return data_; }
    SAFEARRAY* Release() {
        SafeArrayUnaccessData(array_);
        SAFEARRAY* array = array_;
        array_ = nullptr;
        return array;
    }

private:
    SAFEARRAY* array_ = nullptr;
    void* data_ = nullptr;
};

std::vector<SAFEARRAYBOUND> BoundsOf(const py::array& array) {
    std::vector<SAFEARRAYBOUND> bounds(static_cast<size_t>(array.ndim()));
    for (size_t d = 0; d < bounds.size(); ++d) {
        const py::ssize_t count = array.shape(static_cast<py::ssize_t>(d));
        if (count > INT32_MAX) throw Refusal(Refusal::Kind::Overflow, "an array dimension has more than 2**31-1 elements");
        bounds[d] = SAFEARRAYBOUND{static_cast<ULONG>(count), 0};
    }
    return bounds;
}

// The array with the element type asked for, Fortran-ordered; refused when a value could
// change on the way.
py::array CastForElement(const py::array& array, const NumberType& target) {
    const py::module_& numpy = Numpy();
    const char kind = array.dtype().kind();
    const int size = static_cast<int>(array.itemsize());
    bool acceptable = (kind == target.kind && size == target.size) || array.size() == 0 ||
                      numpy.attr("can_cast")(array.dtype(), target.dtype, "safe").cast<bool>();
    const bool integral = kind == 'b' || kind == 'i' || kind == 'u';
    if (!acceptable && target.kind == 'f') acceptable = integral || kind == 'f';
    if (!acceptable && (target.kind == 'i' || target.kind == 'u') && integral) {
        py::object limits = numpy.attr("iinfo")(target.dtype);
        acceptable = py::int_(array.attr("min")()) >= limits.attr("min") &&
                     py::int_(array.attr("max")()) <= limits.attr("max");
    }
    if (!acceptable)
        throw Refusal(Refusal::Kind::Type, "a numpy array of " + DtypeName(array) + " does not convert to " +
                                               VartypeName(target.vt) + " elements without changing values");
    return numpy.attr("asfortranarray")(array, "dtype"_a = target.dtype);
}

SAFEARRAY* NumbersToSafeArray(const py::array& given, const NumberType& type) {
    const py::array array = CastForElement(given, type);
    const std::vector<SAFEARRAYBOUND> bounds = BoundsOf(array);
    SafeArrayBuild build(type.vt, bounds);
    const size_t count = static_cast<size_t>(array.size());
    if (type.vt == VT_BOOL) {
        const auto* source = static_cast<const uint8_t*>(array.data());
        auto* target = static_cast<VARIANT_BOOL*>(build.data());
        for (size_t i = 0; i < count; ++i) target[i] = source[i] ? VARIANT_TRUE : VARIANT_FALSE;
    } else if (count > 0) {
        std::memcpy(build.data(), array.data(), count * static_cast<size_t>(type.size));
    }
    return build.Release();
}

// Arrays of strings, variants or objects, element by element in the safe array's order.
SAFEARRAY* ObjectsToSafeArray(const py::array& array, VARTYPE vt) {
    const std::vector<SAFEARRAYBOUND> bounds = BoundsOf(array);
    py::array flat = array.attr("ravel")("order"_a = "F");
    // Object arrays hold the objects themselves; others give Python values of their items.
    py::list items = flat.dtype().kind() == 'O' ? py::list(flat) : py::list(flat.attr("tolist")());
    SafeArrayBuild build(vt, bounds);
    for (size_t i = 0; i < items.size(); ++i) {
        PyObject* item = items[i].ptr();
        const std::string where = "element " + std::to_string(i) + ": ";
        switch (vt) {
        case VT_VARIANT:
            try {
                VariantConverter::ToVariant(item, VT_VARIANT, static_cast<VARIANT*>(build.data())[i]);
            } catch (const Refusal& refusal) {
                throw Refusal(refusal.kind(), where + refusal.what());
            }
            break;
        case VT_BSTR: {
            if (!PyUnicode_Check(item)) throw Refusal(Refusal::Kind::Type, where + "expected str, not " + VariantConverter::TypeName(item));
            VARIANT text{};
            VariantConverter::ToVariant(item, VT_BSTR, text);
            static_cast<BSTR*>(build.data())[i] = text.bstrVal;
            break;
        }
        case VT_DISPATCH:
        case VT_UNKNOWN: {
            IUnknown* object = nullptr;
            if (ClientObject::Check(item))
                object = ClientObject::Dispatch(item);
            else if (vt == VT_UNKNOWN && OpaqueUnknown::Check(item))
                object = OpaqueUnknown::Pointer(item);
            else if (item != Py_None)
                throw Refusal(Refusal::Kind::Type, where + "expected a library object, not " + VariantConverter::TypeName(item));
            if (object) object->AddRef();
            static_cast<IUnknown**>(build.data())[i] = object;
            break;
        }
        default:
            throw Refusal(Refusal::Kind::Type, std::string("arrays of ") + VartypeName(vt) + " are not supported");
        }
    }
    return build.Release();
}

}  // namespace

bool ArrayConverter::IsArray(PyObject* value) {
    static PyObject* ndarray = nullptr;
    return InstanceOfNumpyType(value, "ndarray", ndarray);
}

bool ArrayConverter::IsScalar(PyObject* value) {
    static PyObject* generic = nullptr;
    return InstanceOfNumpyType(value, "generic", generic);
}

void ArrayConverter::ToSafeArray(PyObject* value, VARTYPE element, VARIANT& out) {
    const RecursionGuard guard;
    const py::module_& numpy = Numpy();
    py::array array;
    try {
        if (PyBytes_Check(value) || PyByteArray_Check(value))
            array = numpy.attr("frombuffer")(py::handle(value), "dtype"_a = "uint8");
        else
            array = numpy.attr("asarray")(py::handle(value));
    } catch (py::error_already_set& error) {
        // Sequences numpy cannot make one array of (ragged ones, say).
        throw Refusal(Refusal::Kind::Type, std::string("not an array: ") + error.what());
    }
    if (array.ndim() == 0) {
        if (element != VT_EMPTY) throw Refusal(Refusal::Kind::Type, "a 0-dimensional numpy array is not an array");
        VariantConverter::ToVariant(array.attr("item")().ptr(), VT_VARIANT, out);
        return;
    }
    const char kind = array.dtype().kind();
    VARTYPE vt = element;
    if (vt == VT_EMPTY) {
        const NumberType* natural = NumberByDtype(kind, static_cast<int>(array.itemsize()));
        if (natural)
            vt = natural->vt;
        else if (kind == 'O')
            vt = VT_VARIANT;
        else if (kind == 'U')
            vt = VT_BSTR;
        else
            throw Refusal(Refusal::Kind::Type, "numpy arrays of " + DtypeName(array) + " have no automation element type");
    }
    SAFEARRAY* result = nullptr;
    if (const NumberType* number = NumberByVartype(vt)) {
        result = NumbersToSafeArray(array, *number);
    } else {
        if (vt == VT_BSTR && kind != 'U' && kind != 'O')
            throw Refusal(Refusal::Kind::Type, "a numpy array of " + DtypeName(array) + " does not convert to BSTR elements");
        result = ObjectsToSafeArray(array, vt);
    }
    out.vt = static_cast<VARTYPE>(VT_ARRAY | vt);
    out.parray = result;
}

void ArrayConverter::ScalarToVariant(PyObject* value, VARIANT& out) {
    const py::object scalar = py::reinterpret_borrow<py::object>(value);
    const py::dtype dtype = scalar.attr("dtype");
    const char kind = dtype.kind();
    const int size = static_cast<int>(dtype.itemsize());
    if (kind == 'U') {
        VariantConverter::ToVariant(py::str(scalar).ptr(), VT_BSTR, out);
        return;
    }
    if (kind == 'f' && size != 4 && size != 8) {
        out.vt = size < 4 ? VT_R4 : VT_R8;  // half precision widens; long double narrows
        if (out.vt == VT_R4)
            out.fltVal = static_cast<float>(py::float_(scalar).cast<double>());
        else
            out.dblVal = py::float_(scalar).cast<double>();
        return;
    }
    const NumberType* type = NumberByDtype(kind, size);
    if (!type) throw Refusal(Refusal::Kind::Type, "numpy " + py::str(py::object(dtype)).cast<std::string>() + " has no automation type");
    switch (type->vt) {
    case VT_BOOL: out.boolVal = py::bool_(scalar) ? VARIANT_TRUE : VARIANT_FALSE; break;
    case VT_R4: out.fltVal = static_cast<float>(py::float_(scalar).cast<double>()); break;
    case VT_R8: out.dblVal = py::float_(scalar).cast<double>(); break;
    case VT_UI8: out.ullVal = py::int_(scalar).cast<unsigned long long>(); break;
    default: {
        // Every other integer fits in 64 signed bits; the union keeps the low bytes.
        const long long integer = py::int_(scalar).cast<long long>();
        out.llVal = integer;
        break;
    }
    }
    out.vt = type->vt;
}

void ArrayConverter::SequenceToVariants(PyObject* value, VARIANT& out) {
    py::object fast = py::reinterpret_steal<py::object>(PySequence_Fast(value, "not a sequence"));
    if (!fast) throw py::error_already_set();
    const Py_ssize_t count = PySequence_Fast_GET_SIZE(fast.ptr());
    if (count > INT32_MAX) throw Refusal(Refusal::Kind::Overflow, "the sequence has more than 2**31-1 elements");
    const RecursionGuard guard;
    SafeArrayBuild build(VT_VARIANT, {SAFEARRAYBOUND{static_cast<ULONG>(count), 0}});
    auto* elements = static_cast<VARIANT*>(build.data());
    PyObject** items = PySequence_Fast_ITEMS(fast.ptr());
    for (Py_ssize_t i = 0; i < count; ++i) {
        try {
            VariantConverter::ToVariant(items[i], VT_VARIANT, elements[i]);
        } catch (const Refusal& refusal) {
            throw Refusal(refusal.kind(), "element " + std::to_string(i) + ": " + refusal.what());
        }
    }
    out.vt = VT_ARRAY | VT_VARIANT;
    out.parray = build.Release();
}

py::object ArrayConverter::FromSafeArray(SAFEARRAY* array) {
    if (!array) return py::none();
    VARTYPE vt = VT_EMPTY;
    HRESULT hr = SafeArrayGetVartype(array, &vt);
    if (FAILED(hr)) ComError::Raise(hr, "", "SafeArrayGetVartype");
    const UINT dims = SafeArrayGetDim(array);
    py::tuple shape(dims);
    size_t count = 1;
    for (UINT d = 0; d < dims; ++d) {
        LONG lower = 0;
        LONG upper = -1;
        SafeArrayGetLBound(array, d + 1, &lower);
        SafeArrayGetUBound(array, d + 1, &upper);
        const size_t extent = static_cast<size_t>(static_cast<int64_t>(upper) - lower + 1);
        shape[d] = extent;
        count *= extent;
    }
    void* data = nullptr;
    hr = SafeArrayAccessData(array, &data);
    if (FAILED(hr)) ComError::Raise(hr, "", "SafeArrayAccessData");
    struct Unaccess {
        SAFEARRAY* array;
        ~Unaccess() { SafeArrayUnaccessData(array); }
    } unaccess{array};

    const py::module_& numpy = Numpy();
    if (const NumberType* number = NumberByVartype(vt)) {
        py::array result = numpy.attr("empty")(shape, "dtype"_a = number->dtype, "order"_a = "F");
        if (vt == VT_BOOL) {
            const auto* source = static_cast<const VARIANT_BOOL*>(data);
            auto* target = static_cast<uint8_t*>(result.mutable_data());
            for (size_t i = 0; i < count; ++i) target[i] = source[i] != VARIANT_FALSE;
        } else if (count > 0) {
            std::memcpy(result.mutable_data(), data, count * static_cast<size_t>(number->size));
        }
        return result;
    }
    const size_t elementSize = SafeArrayGetElemsize(array);
    py::array flat = numpy.attr("empty")(count, "dtype"_a = "object");
    auto** items = static_cast<PyObject**>(flat.mutable_data());
    for (size_t i = 0; i < count; ++i) {
        const void* element = static_cast<const char*>(data) + i * elementSize;
        py::object item;
        if (vt == VT_VARIANT) {
            item = VariantConverter::FromVariant(*static_cast<const VARIANT*>(element));
        } else {
            VARIANT view{};
            view.vt = vt;
            std::memcpy(&view.llVal, element, elementSize < sizeof view.llVal ? elementSize : sizeof view.llVal);
            item = VariantConverter::FromVariant(view);
        }
        // numpy.empty filled the object array with references to None.
        Py_XDECREF(items[i]);
        items[i] = item.release().ptr();
    }
    return flat.attr("reshape")(shape, "order"_a = "F");
}

}  // namespace tessaly::python
