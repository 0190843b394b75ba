#include "TypeLibraryBrowser.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <strings.h>

#include "platform/Guid.h"

namespace tessaly::cli {

namespace {

bool SameName(std::string_view a, const char* b) {
    return a.size() == std::strlen(b) && strncasecmp(a.data(), b, a.size()) == 0;
}

const char* KindName(InterfaceKind kind) {
    switch (kind) {
        case InterfaceKind::Dual: return "dual";
        case InterfaceKind::DispInterface: return "dispinterface";
        case InterfaceKind::Custom: return "custom";
        case InterfaceKind::Local: return "local";
    }
    return "?";
}

const char* MemberKindName(uint16_t invokeKind) {
    switch (invokeKind) {
        case INVOKE_PROPERTYGET: return "propget";
        case INVOKE_PROPERTYPUT: return "propput";
        case INVOKE_PROPERTYPUTREF: return "propputref";
        default: return "method";
    }
}

std::string Hex32(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

// "BSTR Name([in] long A, [in, optional, defaultvalue(0)] long B)", the retval as the type.
std::string Signature(const MemberInfo& member) {
    std::string returns = "void";
    std::string params;
    for (uint16_t i = 0; i < member.paramCount; ++i) {
        const ParamInfo& p = member.params[i];
        if (p.flags & PARAMFLAG_FRETVAL) {
            returns = p.typeName;
            continue;
        }
        if (!params.empty()) params += ", ";
        std::string attributes;
        auto add = [&attributes](const std::string& attribute) {
            attributes += attributes.empty() ? attribute : ", " + attribute;
        };
        if (p.flags & PARAMFLAG_FIN) add("in");
        if (p.flags & PARAMFLAG_FOUT) add("out");
        if (p.flags & PARAMFLAG_FOPT) add("optional");
        if (p.defaultValue) add(std::string("defaultvalue(") + p.defaultValue + ")");
        params += "[" + attributes + "] " + p.typeName + ((p.flags & PARAMFLAG_FOUT) ? "* " : " ") + p.name;
    }
    return returns + " " + member.name + "(" + params + ")";
}

}  // namespace

TypeLibraryBrowser::TypeLibraryBrowser(std::vector<const TypeLibraryInfo*> libraries)
    : libraries_(std::move(libraries)) {}

void TypeLibraryBrowser::ListAll(std::ostream& out) const {
    for (const TypeLibraryInfo* library : libraries_) {
        out << "library " << library->name << " " << library->majorVersion << "." << library->minorVersion << " "
            << FormatGuid(library->libid) << "  " << library->helpString << "\n";
        out << "\ninterfaces:\n";
        for (uint32_t i = 0; i < library->interfaceCount; ++i) {
            const InterfaceInfo& iface = *library->interfaces[i];
            if (iface.kind == InterfaceKind::DispInterface) continue;
            out << "  " << iface.name << "  " << KindName(iface.kind) << "  " << iface.helpString << "\n";
        }
        out << "\ndispinterfaces:\n";
        for (uint32_t i = 0; i < library->interfaceCount; ++i) {
            const InterfaceInfo& iface = *library->interfaces[i];
            if (iface.kind != InterfaceKind::DispInterface) continue;
            out << "  " << iface.name << "  " << iface.helpString << "\n";
        }
        out << "\nenumerations:\n";
        for (uint32_t i = 0; i < library->enumCount; ++i)
            out << "  " << library->enums[i]->name << "  " << library->enums[i]->helpString << "\n";
        out << "\ncoclasses:\n";
        for (uint32_t i = 0; i < library->coclassCount; ++i) {
            const CoClassInfo& coclass = *library->coclasses[i];
            out << "  " << coclass.name << (coclass.creatable ? "" : "  (noncreatable)") << "  " << coclass.helpString
                << "\n";
        }
    }
}

bool TypeLibraryBrowser::Describe(std::string_view name, std::ostream& out) const {
    for (const TypeLibraryInfo* library : libraries_) {
        for (uint32_t i = 0; i < library->interfaceCount; ++i)
            if (SameName(name, library->interfaces[i]->name)) {
                DescribeInterface(*library->interfaces[i], out);
                return true;
            }
        for (uint32_t i = 0; i < library->enumCount; ++i)
            if (SameName(name, library->enums[i]->name)) {
                DescribeEnum(*library->enums[i], out);
                return true;
            }
        for (uint32_t i = 0; i < library->coclassCount; ++i)
            if (SameName(name, library->coclasses[i]->name)) {
                DescribeCoClass(*library->coclasses[i], out);
                return true;
            }
    }
    return false;
}

void TypeLibraryBrowser::DescribeInterface(const InterfaceInfo& iface, std::ostream& out) const {
    out << (iface.kind == InterfaceKind::DispInterface ? "dispinterface " : "interface ") << iface.name << "\n";
    out << "  iid:  " << FormatGuid(iface.iid) << "\n";
    out << "  kind: " << KindName(iface.kind) << "\n";
    const char* base = iface.base                              ? iface.base->name
                       : iface.kind == InterfaceKind::Custom || iface.kind == InterfaceKind::Local ? "IUnknown"
                                                               : "IDispatch";
    out << "  base: " << base << "\n";
    out << "  help: " << iface.helpString << "\n";
    // Inherited members first, as a vtable lists them.
    std::vector<const InterfaceInfo*> chain;
    for (const InterfaceInfo* i = &iface; i; i = i->base) chain.insert(chain.begin(), i);
    for (const InterfaceInfo* level : chain) {
        out << "\n  members" << (level == &iface ? "" : std::string(" of ") + level->name) << ":\n";
        for (uint16_t m = 0; m < level->memberCount; ++m) {
            const MemberInfo& member = level->members[m];
            char kind[16];
            std::snprintf(kind, sizeof kind, "%-10s", MemberKindName(member.invokeKind));
            out << "  " << Hex32(static_cast<uint32_t>(member.dispid)) << "  " << kind << " " << Signature(member)
                << "\n";
            if (member.helpString && *member.helpString) out << "              " << member.helpString << "\n";
        }
    }
}

void TypeLibraryBrowser::DescribeEnum(const EnumInfo& info, std::ostream& out) const {
    out << "enum " << info.name << "\n";
    out << "  help: " << info.helpString << "\n\n";
    for (uint32_t i = 0; i < info.memberCount; ++i) {
        const EnumMemberInfo& member = info.members[i];
        char hex[16];
        std::snprintf(hex, sizeof hex, "0x%X", static_cast<uint32_t>(member.value));
        out << "  " << member.name << " = " << member.value << " (" << hex << ")";
        if (member.helpString && *member.helpString) out << "  # " << member.helpString;
        out << "\n";
    }
}

void TypeLibraryBrowser::DescribeCoClass(const CoClassInfo& info, std::ostream& out) const {
    out << "coclass " << info.name << "\n";
    out << "  clsid:  " << FormatGuid(info.clsid) << "\n";
    out << "  progid: " << info.progId << "\n";
    out << "  version-independent progid: " << info.versionIndependentProgId << "\n";
    out << "  creatable: " << (info.creatable ? "yes" : "no") << "\n";
    out << "  help: " << info.helpString << "\n\n  interfaces:\n";
    for (uint16_t i = 0; i < info.interfaceCount; ++i) {
        const CoClassInterface& entry = info.interfaces[i];
        std::string flags;
        if (entry.flags & IMPLTYPEFLAG_FDEFAULT) flags += "default";
        if (entry.flags & IMPLTYPEFLAG_FSOURCE) flags += flags.empty() ? "source" : ", source";
        out << "    " << (flags.empty() ? "" : "[" + flags + "] ") << entry.iface->name << "\n";
    }
}

}  // namespace tessaly::cli
