// One member name of a class as the Python client sees it: the DISPID the name stands for
// and, per kind, the table entry the dispatcher calls for it. How an attribute of that
// name reads (a value, an indexer, a bound method) follows from those entries.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/TypeInfo.h"

namespace tessaly::python {

class ClientMember {
public:
    enum class Access : uint8_t {
        Value,      // a property get without required arguments: the attribute is the value
        Indexed,    // a property whose get or put takes indices: the attribute is an indexer
        Method,     // a method: the attribute is a bound method
        WriteOnly,  // only a put or putref without indices
    };

    ClientMember(std::string_view className, std::string_view name, DISPID dispid, const MemberInfo* get,
                 const MemberInfo* put, const MemberInfo* putref, const MemberInfo* func);

    const std::string& Name() const noexcept { return name_; }
    // "LuxCollection.Add", as error messages name the member.
    const std::string& QualifiedName() const noexcept { return qualifiedName_; }
    DISPID Dispid() const noexcept { return dispid_; }
    Access Kind() const noexcept { return access_; }
    const MemberInfo* Get() const noexcept { return get_; }
    const MemberInfo* Func() const noexcept { return func_; }
    bool Writable() const noexcept { return put_ || putref_; }
    // The entry an assignment calls, with the matching Invoke flag: putref for an object when
    // the member has one, else put (and putref when that is all there is).
    const MemberInfo* Writer(bool objectValue, uint16_t& flags) const noexcept;
    // help(): the signature, the help string and the parameters.
    const std::string& Doc() const noexcept { return doc_; }
    // For inspect.signature: "($self, Item, Key='', Index=-1)"; empty when the names do not
    // make a Python signature.
    const std::string& TextSignature() const noexcept { return textSignature_; }

    // Parameters that take arguments: every one but the retval.
    static uint16_t VisibleCount(const MemberInfo& info) noexcept;
    static bool HasRetval(const MemberInfo& info) noexcept;
    // [out] without [in]: filled by the call, returned, never passed by the caller.
    static bool IsOutOnly(const ParamInfo& param) noexcept;
    static bool IsOptional(const ParamInfo& param) noexcept;

private:
    void Describe();

    std::string name_;
    std::string qualifiedName_;
    DISPID dispid_;
    const MemberInfo* get_;
    const MemberInfo* put_;
    const MemberInfo* putref_;
    const MemberInfo* func_;
    Access access_ = Access::Value;
    std::string doc_;
    std::string textSignature_;
};

}  // namespace tessaly::python
