// The client's view of one coclass: its members by name, built once from the generated
// type tables, and the Python type of its objects. Names resolve exactly as the object's
// dispatcher resolves them (any case; the default interface wins a name that occurs twice),
// because they are looked up in that dispatcher.
//
// Objects without class information share one typeless class: their members are looked up
// by name through GetIDsOfNames at each use.
//
// Classes are made on first use and kept for the life of the process; every function here
// runs with the GIL held.
#pragma once

#include <pybind11/pybind11.h>

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ClientMember.h"
#include "platform/StandardInterfaces.h"
#include "platform/TypeInfo.h"

namespace tessaly {
class Dispatcher;
}

namespace tessaly::python {

class ClientClass {
public:
    static ClientClass& For(const CoClassInfo& coclass);
    static ClientClass& Typeless();
    // The class of an object, read through IProvideClassInfo; Typeless() without it.
    static ClientClass& Of(IDispatch* object);

    const CoClassInfo* CoClass() const noexcept { return coclass_; }
    const std::string& Name() const noexcept { return name_; }
    PyTypeObject* PythonType() const noexcept { return type_; }

    // The member of that name, any case; nullptr when none.
    const ClientMember* Find(std::string_view name) const;
    const ClientMember* ValueMember() const noexcept { return value_; }
    const ClientMember* EnumMember() const noexcept { return enumerator_; }
    const std::vector<std::unique_ptr<ClientMember>>& Members() const noexcept { return members_; }
    // The outgoing interfaces, the default one first.
    const std::vector<const InterfaceInfo*>& SourceInterfaces() const noexcept { return sources_; }

    ClientClass(const ClientClass&) = delete;
    ClientClass& operator=(const ClientClass&) = delete;

private:
    explicit ClientClass(const CoClassInfo* coclass);
    void AddMembers();
    void AddName(const Dispatcher& dispatcher, const char* name);
    void MakeType();

    const CoClassInfo* coclass_;
    std::string name_;
    PyTypeObject* type_ = nullptr;
    std::vector<std::unique_ptr<ClientMember>> members_;
    std::unordered_map<std::string, const ClientMember*> byFoldedName_;
    const ClientMember* value_ = nullptr;
    const ClientMember* enumerator_ = nullptr;
    std::vector<const InterfaceInfo*> sources_;
};

}  // namespace tessaly::python
