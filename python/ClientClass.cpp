#include "ClientClass.h"

#include <new>

#include "ClientObject.h"
#include "ImagePng.h"
#include "MemberDescriptor.h"
#include "PixelBuffer.h"
#include "platform/ComPtr.h"
#include "platform/Dispatcher.h"

namespace py = pybind11;

namespace tessaly::python {

namespace {

std::string Folded(std::string_view name) {
    std::string folded(name);
    for (char& c : folded)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return folded;
}

// Never destroyed: client objects may outlive the interpreter's module teardown.
std::unordered_map<const CoClassInfo*, ClientClass*>& Classes() {
    static auto* classes = new std::unordered_map<const CoClassInfo*, ClientClass*>;
    return *classes;
}

std::string ClassDoc(const CoClassInfo& coclass) {
    std::string doc = coclass.name;
    if (coclass.helpString && *coclass.helpString) doc += std::string(": ") + coclass.helpString;
    doc += "\n\nProgID: ";
    doc += coclass.progId;
    doc += "\nInterfaces:";
    std::string events;
    for (uint16_t i = 0; i < coclass.interfaceCount; ++i) {
        const CoClassInterface& entry = coclass.interfaces[i];
        std::string name = entry.iface->name;
        if (entry.flags & IMPLTYPEFLAG_FDEFAULT) name += " (default)";
        if (entry.flags & IMPLTYPEFLAG_FSOURCE)
            events += " " + name;
        else
            doc += " " + name;
    }
    if (!events.empty()) doc += "\nEvents (tessaly.GetEvents):" + events;
    return doc;
}

}  // namespace

ClientClass& ClientClass::For(const CoClassInfo& coclass) {
    auto& classes = Classes();
    if (auto found = classes.find(&coclass); found != classes.end()) return *found->second;
    std::unique_ptr<ClientClass> created(new ClientClass(&coclass));
    classes.emplace(&coclass, created.get());
    return *created.release();
}

ClientClass& ClientClass::Typeless() {
    static ClientClass* typeless = new ClientClass(nullptr);
    return *typeless;
}

ClientClass& ClientClass::Of(IDispatch* object) {
    ComPtr<IProvideClassInfo> provider;
    if (SUCCEEDED(object->QueryInterface(IProvideClassInfo::iid, provider.OutVoid())) && provider) {
        ITypeInfo* typeInfo = nullptr;
        if (SUCCEEDED(provider->GetClassInfo(&typeInfo)) && typeInfo) {
            const CoClassInfo* coclass = nullptr;
            const HRESULT hr = typeInfo->GetCoClassInfo(&coclass);
            typeInfo->Release();
            if (SUCCEEDED(hr) && coclass) return For(*coclass);
        }
    }
    return Typeless();
}

ClientClass::ClientClass(const CoClassInfo* coclass) : coclass_(coclass), name_(coclass ? coclass->name : "Object") {
    if (!coclass_) {
        type_ = ClientObject::BaseType();
        return;
    }
    for (int pass = 0; pass < 2; ++pass) {
        // The default outgoing interface first, then the others in the coclass's order.
        for (uint16_t i = 0; i < coclass_->interfaceCount; ++i) {
            const CoClassInterface& entry = coclass_->interfaces[i];
            const bool isDefault = entry.flags & IMPLTYPEFLAG_FDEFAULT;
            if ((entry.flags & IMPLTYPEFLAG_FSOURCE) && isDefault == (pass == 0)) sources_.push_back(entry.iface);
        }
    }
    AddMembers();
    MakeType();
}

const ClientMember* ClientClass::Find(std::string_view name) const {
    const auto found = byFoldedName_.find(Folded(name));
    return found == byFoldedName_.end() ? nullptr : found->second;
}

void ClientClass::AddMembers() {
    const Dispatcher* dispatcher = Dispatcher::For(*coclass_);
    if (!dispatcher) throw std::bad_alloc();
    // The order the dispatcher enters names in: the default interface first, each
    // interface before its bases, so that the spelling kept is the one that wins there.
    auto visit = [&](const InterfaceInfo& iface) {
        for (const InterfaceInfo* level = &iface; level; level = level->base)
            for (uint16_t m = 0; m < level->memberCount; ++m)
                if (level->members[m].thunk) AddName(*dispatcher, level->members[m].name);
    };
    const InterfaceInfo* defaultInterface = dispatcher->DefaultInterface();
    if (defaultInterface) visit(*defaultInterface);
    for (uint16_t i = 0; i < coclass_->interfaceCount; ++i) {
        const CoClassInterface& entry = coclass_->interfaces[i];
        if (!(entry.flags & IMPLTYPEFLAG_FSOURCE) && entry.iface != defaultInterface) visit(*entry.iface);
    }
}

void ClientClass::AddName(const Dispatcher& dispatcher, const char* name) {
    std::string folded = Folded(name);
    if (byFoldedName_.count(folded)) return;
    const DISPID dispid = dispatcher.FindName(name);
    if (dispid == DISPID_UNKNOWN) return;
    auto member = std::make_unique<ClientMember>(
        name_, name, dispid, dispatcher.FindMember(dispid, INVOKE_PROPERTYGET),
        dispatcher.FindMember(dispid, INVOKE_PROPERTYPUT), dispatcher.FindMember(dispid, INVOKE_PROPERTYPUTREF),
        dispatcher.FindMember(dispid, INVOKE_FUNC));
    if (dispid == DISPID_VALUE && !value_) value_ = member.get();
    if (dispid == DISPID_NEWENUM && !enumerator_) enumerator_ = member.get();
    byFoldedName_.emplace(std::move(folded), member.get());
    members_.push_back(std::move(member));
}

void ClientClass::MakeType() {
    py::dict attributes;
    attributes["__slots__"] = py::tuple();
    attributes["__module__"] = "tessaly";
    attributes["__qualname__"] = name_;
    attributes["__doc__"] = ClassDoc(*coclass_);
    for (const auto& member : members_) attributes[py::str(member->Name())] = MemberDescriptor::New(*member);
    // A collection answers len(): it enumerates, and counts without arguments.
    const ClientMember* count = Find("Count");
    if (enumerator_ && count && count->Kind() == ClientMember::Access::Value) {
        PyObject* length = PyDescr_NewMethod(ClientObject::BaseType(), ClientObject::LengthMethod());
        if (!length) throw py::error_already_set();
        attributes["__len__"] = py::reinterpret_steal<py::object>(length);
    }
    // Pixel memory becomes numpy arrays; images show themselves in notebooks.
    auto addMethod = [&](PyMethodDef* method) {
        PyObject* descriptor = PyDescr_NewMethod(ClientObject::BaseType(), method);
        if (!descriptor) throw py::error_already_set();
        attributes[method->ml_name] = py::reinterpret_steal<py::object>(descriptor);
    };
    if (PixelBuffer::IsPixelMemoryClass(name_)) addMethod(PixelBuffer::ArrayMethod());
    if (ImagePng::IsImageClass(name_)) addMethod(ImagePng::ReprMethod());
    py::object base = py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(ClientObject::BaseType()));
    py::object type =
        py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(&PyType_Type))(name_, py::make_tuple(base), attributes);
    // The type lives as long as the class: for the life of the process.
    type_ = reinterpret_cast<PyTypeObject*>(type.release().ptr());
}

}  // namespace tessaly::python
