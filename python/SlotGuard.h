// The boundary of every slot of the client's Python types (tp_call, tp_descr_get, ...):
// CPython calls them as C functions, so no C++ exception may leave them. An exception
// becomes the Python error it stands for and the slot returns its failure value.
#pragma once

#include <pybind11/pybind11.h>

#include <new>
#include <stdexcept>

namespace tessaly::python {

// Sets the Python error for the exception being handled; call inside a catch block.
inline void SetPythonErrorFromException() noexcept {
    try {
        throw;
    } catch (pybind11::error_already_set& error) {
        error.restore();
    } catch (pybind11::builtin_exception& error) {
        error.set_error();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
    } catch (...) {
        PyErr_SetString(PyExc_RuntimeError, "unknown C++ exception");
    }
}

// Runs `body`; returns its result, or `failure` with the Python error set.
template <class Result, class Body>
Result Guarded(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        SetPythonErrorFromException();
        return failure;
    }
}

}  // namespace tessaly::python
