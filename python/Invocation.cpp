#include "Invocation.h"

#include <climits>
#include <string>
#include <vector>

#include "BoundMethod.h"
#include "ClientMember.h"
#include "ClientObject.h"
#include "ComError.h"
#include "VariantConverter.h"
#include "platform/Bstr.h"
#include "platform/Variant.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

using Refusal = VariantConverter::Refusal;

// Calls with up to this many parameters build their argument block on the stack.
constexpr size_t kInline = 8;

template <class T>
class SmallArray {
public:
    explicit SmallArray(size_t count) : count_(count) {
        if (count > kInline) {
            heap_.assign(count, T{});
            data_ = heap_.data();
        } else {
            for (size_t i = 0; i < count; ++i) inline_[i] = T{};
            data_ = inline_;
        }
    }
    SmallArray(const SmallArray&) = delete;
    SmallArray& operator=(const SmallArray&) = delete;
    T& operator[](size_t i) { return data_[i]; }
    T* data() { return data_; }
    size_t size() const { return count_; }

private:
    size_t count_;
    T inline_[kInline];
    std::vector<T> heap_;
    T* data_;
};

// The values a call owns (converted arguments, what [out] parameters receive, the result),
// cleared on every path.
class OwnedVariants : public SmallArray<VARIANT> {
public:
    using SmallArray<VARIANT>::SmallArray;
    ~OwnedVariants() {
        for (size_t i = 0; i < size(); ++i) VariantClear(&(*this)[i]);
    }
};

struct OwnedVariant {
    VARIANT value{};
    ~OwnedVariant() { VariantClear(&value); }
};

bool EqualFolded(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i];
        char y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
        if (x != y) return false;
    }
    return true;
}

// What a failure message needs to name the argument Invoke refused.
struct CallContext {
    std::string_view member;             // "LuxCollection.Add"
    const MemberInfo* info = nullptr;    // null for calls without type information
    PyObject* const* given = nullptr;    // the Python argument of each parameter
    size_t positional = 0;               // parameters passed by position
    PyObject* value = nullptr;           // the value of a put (rgvarg[0]), or null
};

[[noreturn]] void RaiseRefusal(const Refusal& refusal, const std::string& where) {
    const std::string message = where + ": " + refusal.what();
    if (refusal.kind() == Refusal::Kind::Overflow) {
        PyErr_SetString(PyExc_OverflowError, message.c_str());
        throw py::error_already_set();
    }
    throw py::type_error(message);
}

std::string ArgumentLabel(const CallContext& context, size_t parameter) {
    if (context.info) return std::string("argument '") + context.info->params[parameter].name + "'";
    return "argument " + std::to_string(parameter + 1);
}

// Invoke refused an argument's type or value: name the parameter.
[[noreturn]] void RaiseArgumentFailure(HRESULT hr, const CallContext& context, UINT argErr) {
    PyObject* given = nullptr;
    std::string label;
    std::string type = "the parameter's type";
    if (context.value && argErr == 0) {
        given = context.value;
        label = "the value";
        if (context.info) type = context.info->params[ClientMember::VisibleCount(*context.info) - 1].typeName;
    } else {
        const size_t offset = context.value ? 1 : 0;
        const size_t parameter = context.positional - 1 - (argErr - offset);
        given = context.given ? context.given[parameter] : nullptr;
        label = ArgumentLabel(context, parameter);
        if (context.info) type = context.info->params[parameter].typeName;
    }
    std::string message = std::string(context.member) + ": " + label;
    if (given) message += " (" + VariantConverter::TypeName(given) + ")";
    if (hr == DISP_E_OVERFLOW) {
        PyErr_SetString(PyExc_OverflowError, (message + " is out of the range of " + type).c_str());
        throw py::error_already_set();
    }
    throw py::type_error(message + " does not convert to " + type);
}

void FreeExcepInfo(EXCEPINFO& info) {
    SysFreeString(info.bstrSource);
    SysFreeString(info.bstrDescription);
    SysFreeString(info.bstrHelpFile);
    info.bstrSource = info.bstrDescription = info.bstrHelpFile = nullptr;
}

HRESULT InvokeWithoutGil(IDispatch* target, DISPID dispid, WORD flags, DISPPARAMS& params, VARIANT* result,
                         EXCEPINFO& excep, UINT& argErr) {
    HRESULT hr;
    Py_BEGIN_ALLOW_THREADS
    hr = target->Invoke(dispid, GUID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &excep, &argErr);
    Py_END_ALLOW_THREADS
    return hr;
}

[[noreturn]] void RaiseFailure(HRESULT hr, EXCEPINFO& excep, UINT argErr, const DISPPARAMS& params,
                               const CallContext& context) {
    if (hr == DISP_E_EXCEPTION) ComError::RaiseFromExcepInfo(excep, context.member);
    FreeExcepInfo(excep);
    if ((hr == DISP_E_TYPEMISMATCH || hr == DISP_E_OVERFLOW) && argErr < params.cArgs)
        RaiseArgumentFailure(hr, context, argErr);
    ComError::Raise(hr, "", context.member);
}

void Run(IDispatch* target, DISPID dispid, WORD flags, DISPPARAMS& params, VARIANT* result,
         const CallContext& context) {
    EXCEPINFO excep{};
    UINT argErr = UINT_MAX;
    const HRESULT hr = InvokeWithoutGil(target, dispid, flags, params, result, excep, argErr);
    if (FAILED(hr)) RaiseFailure(hr, excep, argErr, params, context);
}

// `what` names the argument in a refusal: "argument 'Key'", "the value", ...; built only
// when a conversion fails.
template <class Label>
void Convert(PyObject* given, VARTYPE hint, VARIANT& slot, std::string_view member, Label&& what) {
    try {
        VariantConverter::ToVariant(given, hint, slot);
    } catch (const Refusal& refusal) {
        RaiseRefusal(refusal, std::string(member) + ": " + what());
    }
}

py::object Results(std::vector<py::object>& outputs) {
    if (outputs.empty()) return py::none();
    if (outputs.size() == 1) return std::move(outputs[0]);
    py::tuple tuple(outputs.size());
    for (size_t i = 0; i < outputs.size(); ++i) tuple[i] = std::move(outputs[i]);
    return tuple;
}

}  // namespace

py::object Invocation::Get(IDispatch* target, const ClientMember& member) {
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    OwnedVariant result;
    const CallContext context{member.QualifiedName()};
    Run(target, member.Dispid(), DISPATCH_PROPERTYGET, none, &result.value, context);
    if (result.value.vt == VT_I4) return py::reinterpret_steal<py::object>(PyLong_FromLong(result.value.lVal));
    return VariantConverter::FromVariant(result.value);
}

py::object Invocation::Call(IDispatch* target, const ClientMember& member, const MemberInfo& info, WORD flags,
                            std::span<PyObject* const> positional, PyObject* keywords, PyObject* value) {
    const std::string& name = member.QualifiedName();
    const bool isPut = flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF);
    const uint16_t visible = ClientMember::VisibleCount(info);
    if (isPut && (visible == 0 || !value)) throw py::type_error(name + " cannot be assigned");
    const size_t parameters = isPut ? visible - 1u : visible;

    // Which Python argument each parameter receives.
    SmallArray<PyObject*> given(parameters);
    size_t accepted = 0;
    for (size_t k = 0; k < parameters; ++k) accepted += ClientMember::IsOutOnly(info.params[k]) ? 0 : 1;
    size_t next = 0;
    for (PyObject* argument : positional) {
        while (next < parameters && ClientMember::IsOutOnly(info.params[next])) ++next;
        if (next >= parameters)
            throw py::type_error(name + "() takes " + std::to_string(accepted) + " argument" + (accepted == 1 ? "" : "s") +
                                 " (" + std::to_string(positional.size()) + " given)");
        given[next++] = argument;
    }
    if (keywords) {
        Py_ssize_t position = 0;
        PyObject* key = nullptr;
        PyObject* argument = nullptr;
        while (PyDict_Next(keywords, &position, &key, &argument)) {
            const char* keyText = PyUnicode_Check(key) ? PyUnicode_AsUTF8(key) : nullptr;
            if (!keyText) throw py::type_error(name + "() keywords must be strings");
            size_t k = 0;
            while (k < parameters && (ClientMember::IsOutOnly(info.params[k]) || !EqualFolded(info.params[k].name, keyText)))
                ++k;
            if (k == parameters) throw py::type_error(name + "() got an unexpected keyword argument '" + keyText + "'");
            if (given[k]) throw py::type_error(name + "() got multiple values for argument '" + info.params[k].name + "'");
            given[k] = argument;
        }
    }
    // Parameters up to the last one given or filled by the call are passed; optional ones
    // left out among them are marked missing, so the callee applies their defaults.
    size_t count = 0;
    for (size_t k = 0; k < parameters; ++k) {
        const ParamInfo& param = info.params[k];
        if (!given[k] && !ClientMember::IsOutOnly(param) && !ClientMember::IsOptional(param))
            throw py::type_error(name + "() missing required argument '" + param.name + "'");
        if (given[k] || ClientMember::IsOutOnly(param)) count = k + 1;
    }

    const size_t total = count + (isPut ? 1 : 0);
    OwnedVariants values(total);
    SmallArray<VARIANT> arguments(total);
    SmallArray<uint8_t> byReference(total);
    for (size_t k = 0; k < count; ++k) {
        const ParamInfo& param = info.params[k];
        VARIANT& slot = values[k];
        if (given[k]) {
            Convert(given[k], param.vt, slot, name, [&] { return std::string("argument '") + param.name + "'"; });
        } else if (!ClientMember::IsOutOnly(param)) {
            slot.vt = VT_ERROR;
            slot.scode = DISP_E_PARAMNOTFOUND;
        }
        VARIANT& argument = arguments[total - 1 - k];
        if ((param.flags & PARAMFLAG_FOUT) && slot.vt != VT_ERROR) {
            // The callee's dispatch reads the value through the reference and writes the
            // new one back into the slot.
            argument.vt = VT_BYREF | VT_VARIANT;
            argument.pvarVal = &slot;
            byReference[k] = true;
        } else {
            argument = slot;
        }
    }
    DISPID putName = DISPID_PROPERTYPUT;
    DISPPARAMS params{arguments.data(), nullptr, static_cast<UINT>(total), 0};
    if (isPut) {
        Convert(value, info.params[visible - 1].vt, values[count], name, [] { return std::string("the value"); });
        arguments[0] = values[count];
        params.rgdispidNamedArgs = &putName;
        params.cNamedArgs = 1;
    }

    OwnedVariant result;
    const CallContext context{name, &info, given.data(), count, isPut ? value : nullptr};
    Run(target, member.Dispid(), flags, params, &result.value, context);
    if (isPut) return py::none();

    std::vector<py::object> outputs;
    if (ClientMember::HasRetval(info)) outputs.push_back(VariantConverter::FromVariant(result.value));
    for (size_t k = 0; k < parameters; ++k) {
        if (!(info.params[k].flags & PARAMFLAG_FOUT)) continue;
        outputs.push_back(k < count && byReference[k] ? VariantConverter::FromVariant(values[k]) : py::none());
    }
    return Results(outputs);
}

py::object Invocation::CallLate(IDispatch* target, DISPID dispid, std::string_view name, WORD flags,
                                std::span<PyObject* const> positional, PyObject* value) {
    const std::string label(name);
    const size_t count = positional.size();
    const size_t total = count + (value ? 1 : 0);
    OwnedVariants values(total);
    SmallArray<VARIANT> arguments(total);
    for (size_t k = 0; k < count; ++k) {
        Convert(positional[k], VT_VARIANT, values[k], label, [k] { return "argument " + std::to_string(k + 1); });
        arguments[total - 1 - k] = values[k];
    }
    DISPID putName = DISPID_PROPERTYPUT;
    DISPPARAMS params{arguments.data(), nullptr, static_cast<UINT>(total), 0};
    if (value) {
        Convert(value, VT_VARIANT, values[count], label, [] { return std::string("the value"); });
        arguments[0] = values[count];
        params.rgdispidNamedArgs = &putName;
        params.cNamedArgs = 1;
    }
    OwnedVariant result;
    const CallContext context{label, nullptr, positional.data(), count, value};
    Run(target, dispid, flags, params, &result.value, context);
    return value ? py::none() : VariantConverter::FromVariant(result.value);
}

py::object Invocation::ReadLate(PyObject* self, DISPID dispid, PyObject* name) {
    IDispatch* target = ClientObject::Dispatch(self);
    const std::string label = py::str(name).cast<std::string>();
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    OwnedVariant result;
    EXCEPINFO excep{};
    UINT argErr = UINT_MAX;
    const HRESULT hr = InvokeWithoutGil(target, dispid, DISPATCH_PROPERTYGET, none, &result.value, excep, argErr);
    if (SUCCEEDED(hr)) return VariantConverter::FromVariant(result.value);
    if (hr == DISP_E_MEMBERNOTFOUND || hr == DISP_E_BADPARAMCOUNT || hr == DISP_E_PARAMNOTOPTIONAL) {
        // Not a property without arguments: a method, or a property with indices.
        FreeExcepInfo(excep);
        return BoundMethod::NewLate(self, dispid, name);
    }
    RaiseFailure(hr, excep, argErr, none, CallContext{label});
}

void Invocation::InvokeRaw(IDispatch* target, DISPID dispid, WORD flags, std::string_view name, VARIANT& result) {
    DISPPARAMS none{nullptr, nullptr, 0, 0};
    Run(target, dispid, flags, none, &result, CallContext{name});
}

}  // namespace tessaly::python
