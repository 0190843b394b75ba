// The bridge between the event sinks of one connection and the Python object that receives
// the events. The sinks call Deliver on whatever thread fires; Deliver takes the GIL and
// calls the Python object's method named after the event, with the event's arguments in
// declared order. Events the object has no method for are ignored. An exception the method
// raises becomes a RuntimeWarning: an event is a notification, and the object that fired
// it carries on as if the sink had returned normally.
#pragma once

#include <pybind11/pybind11.h>

#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly::python {

class EventRelay {
public:
    // GIL held; keeps a reference to `sink` until Detach.
    explicit EventRelay(PyObject* sink);
    ~EventRelay();
    EventRelay(const EventRelay&) = delete;
    EventRelay& operator=(const EventRelay&) = delete;

    // Any thread. The event `dispid` of the outgoing interface `source`.
    void Deliver(const InterfaceInfo& source, DISPID dispid, const DISPPARAMS& params) noexcept;
    // GIL held: drops the Python object; events still in flight on other threads find none.
    void Detach() noexcept;
    // GIL held: the Python object, for the garbage collector's traversal; null once detached.
    PyObject* Sink() const noexcept { return sink_; }

private:
    static void Call(PyObject* sink, const MemberInfo& event, const DISPPARAMS& params);
    static void Warn(PyObject* sink, const MemberInfo& event) noexcept;

    PyObject* sink_;
};

}  // namespace tessaly::python
