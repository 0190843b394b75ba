#include "EventConnection.h"

#include <memory>
#include <string>
#include <vector>

#include "ClientClass.h"
#include "ClientObject.h"
#include "ComError.h"
#include "EventRelay.h"
#include "SlotGuard.h"
#include "platform/ComPtr.h"
#include "platform/EventSink.h"
#include "platform/TypeLibraryRegistry.h"

namespace py = pybind11;

namespace tessaly::python {

class EventConnection::State {
public:
    struct Link {
        IID iid;
        DWORD cookie;
        IDispatch* sink;  // one reference
    };

    State(IUnknown* source, std::string className, std::shared_ptr<EventRelay> relay)
        : source_(source), className_(std::move(className)), relay_(std::move(relay)) {
        source_->AddRef();
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { Close(); }

    void Advise(const InterfaceInfo& iface) {
        std::shared_ptr<EventRelay> relay = relay_;
        const InterfaceInfo* outgoing = &iface;
        IDispatch* sink = MakeEventSink(
            [relay, outgoing](DISPID dispid, DISPPARAMS* params) { relay->Deliver(*outgoing, dispid, *params); },
            iface.iid);
        if (!sink) throw std::bad_alloc();
        DWORD cookie = 0;
        const HRESULT hr = tessaly::Advise(source_, iface.iid, sink, &cookie);
        if (FAILED(hr)) {
            sink->Release();
            ComError::RaiseFromErrorInfo(hr, "GetEvents");
        }
        links_.push_back(Link{iface.iid, cookie, sink});
    }

    // GIL held. Safe to call again.
    void Close() noexcept {
        for (const Link& link : links_) {
            tessaly::Unadvise(source_, link.iid, link.cookie);
            link.sink->Release();
        }
        links_.clear();
        if (relay_) relay_->Detach();
        if (source_) {
            source_->Release();
            source_ = nullptr;
        }
    }

    bool Connected() const noexcept { return source_ != nullptr; }
    size_t InterfaceCount() const noexcept { return links_.size(); }
    const std::string& ClassName() const noexcept { return className_; }
    PyObject* Sink() const noexcept { return relay_ ? relay_->Sink() : nullptr; }

private:
    IUnknown* source_;
    std::string className_;
    std::shared_ptr<EventRelay> relay_;
    std::vector<Link> links_;
};

namespace {

PyTypeObject* connectionType = nullptr;

EventConnection* AsConnection(PyObject* object) { return reinterpret_cast<EventConnection*>(object); }

void Close(PyObject* object) noexcept {
    if (EventConnection::State* state = AsConnection(object)->state) state->Close();
}

void Dealloc(PyObject* object) {
    PyTypeObject* type = Py_TYPE(object);
    PyObject_GC_UnTrack(object);
    delete AsConnection(object)->state;  // closes
    AsConnection(object)->state = nullptr;
    type->tp_free(object);
    Py_DECREF(type);
}

int Traverse(PyObject* object, visitproc visit, void* arg) {
    Py_VISIT(Py_TYPE(object));
    if (EventConnection::State* state = AsConnection(object)->state) Py_VISIT(state->Sink());
    return 0;
}

int Clear(PyObject* object) {
    Close(object);
    return 0;
}

PyObject* CloseMethod(PyObject* object, PyObject*) {
    Close(object);
    Py_RETURN_NONE;
}

PyObject* Enter(PyObject* object, PyObject*) {
    Py_INCREF(object);
    return object;
}

PyObject* Exit(PyObject* object, PyObject*) {
    Close(object);
    Py_RETURN_FALSE;
}

PyObject* GetConnected(PyObject* object, void*) {
    const EventConnection::State* state = AsConnection(object)->state;
    return PyBool_FromLong(state && state->Connected());
}

PyObject* Repr(PyObject* object) {
    const EventConnection::State* state = AsConnection(object)->state;
    if (!state || !state->Connected()) return PyUnicode_FromString("<tessaly.EventConnection, closed>");
    return PyUnicode_FromFormat("<tessaly.EventConnection to a %s, %zu outgoing interface%s>", state->ClassName().c_str(),
                                state->InterfaceCount(), state->InterfaceCount() == 1 ? "" : "s");
}

PyMethodDef kMethods[] = {
    {"close", CloseMethod, METH_NOARGS, "Disconnects the sink from every outgoing interface. Safe to call again."},
    {"__enter__", Enter, METH_NOARGS, nullptr},
    {"__exit__", Exit, METH_VARARGS, nullptr},
    {nullptr, nullptr, 0, nullptr},
};

PyGetSetDef kGetSets[] = {
    {"connected", GetConnected, nullptr, "Whether the sink is still connected.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr},
};

PyType_Slot kSlots[] = {
    {Py_tp_dealloc, reinterpret_cast<void*>(Dealloc)},
    {Py_tp_traverse, reinterpret_cast<void*>(Traverse)},
    {Py_tp_clear, reinterpret_cast<void*>(Clear)},
    {Py_tp_repr, reinterpret_cast<void*>(Repr)},
    {Py_tp_methods, kMethods},
    {Py_tp_getset, kGetSets},
    {Py_tp_doc, const_cast<char*>("The connection of an event sink to an object, made by tessaly.GetEvents.")},
    {0, nullptr},
};

PyType_Spec kSpec = {"tessaly.EventConnection", sizeof(EventConnection), 0,
                     Py_TPFLAGS_DEFAULT | Py_TPFLAGS_HAVE_GC | Py_TPFLAGS_DISALLOW_INSTANTIATION, kSlots};

}  // namespace

void EventConnection::Define(py::module_& module) {
    PyObject* type = PyType_FromSpec(&kSpec);
    if (!type) throw py::error_already_set();
    connectionType = reinterpret_cast<PyTypeObject*>(type);
    module.add_object("EventConnection", py::reinterpret_borrow<py::object>(type));
}

py::object EventConnection::Connect(PyObject* object, PyObject* sink) {
    ClientObject* client = ClientObject::Cast(object);
    const ClientClass& owner = *client->owner;
    std::vector<const InterfaceInfo*> sources = owner.SourceInterfaces();
    if (sources.empty() && !owner.CoClass()) {
        // Without class information: the default outgoing interface the object names.
        ComPtr<IProvideClassInfo2> provider;
        GUID iid = GUID_NULL;
        if (SUCCEEDED(client->dispatch->QueryInterface(IProvideClassInfo2::iid, provider.OutVoid())) && provider &&
            SUCCEEDED(provider->GetGUID(GUIDKIND_DEFAULT_SOURCE_DISP_IID, &iid)))
            if (const InterfaceInfo* iface = TypeLibraryRegistry::FindInterface(iid)) sources.push_back(iface);
    }
    if (sources.empty()) ComError::Raise(E_NOINTERFACE, owner.Name() + " has no outgoing interface", "GetEvents");

    PyObject* created = connectionType->tp_alloc(connectionType, 0);
    if (!created) throw py::error_already_set();
    py::object connection = py::reinterpret_steal<py::object>(created);
    AsConnection(created)->state = new State(client->dispatch, owner.Name(), std::make_shared<EventRelay>(sink));
    for (const InterfaceInfo* iface : sources) AsConnection(created)->state->Advise(*iface);
    return connection;
}

}  // namespace tessaly::python
