// The peer of the client's property get: a C++ object whose Count is an int read under a
// lock, bound with pybind11's plain getter. A library collection's Count does the same work
// behind IDispatch.
#include <pybind11/pybind11.h>

#include <cstdint>
#include <mutex>

namespace {

class PlainCounter {
public:
    int32_t Count() const {
        std::lock_guard lock(mutex_);
        return count_;
    }
    void Add() {
        std::lock_guard lock(mutex_);
        ++count_;
    }

private:
    mutable std::mutex mutex_;
    int32_t count_ = 0;
};

}  // namespace

PYBIND11_MODULE(tessaly_bench_peer, module) {
    module.doc() = "The plain pybind11 peer of the tessaly client's property get.";
    pybind11::class_<PlainCounter>(module, "PlainCounter")
        .def(pybind11::init<>())
        .def_property_readonly("Count", &PlainCounter::Count)
        .def("Add", &PlainCounter::Add);
}
