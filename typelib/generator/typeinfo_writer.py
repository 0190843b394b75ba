"""Writes NAMETypeInfo.cpp: the static tables of platform/TypeInfo.h for every interface,
enumeration and coclass, the library table, its accessor, and the registrar that enters
the library into TypeLibraryRegistry when the code is loaded.

Every table is a constant expression, so it is complete before any static constructor
runs, in particular before the registrar's.
"""

from __future__ import annotations

from cpp_names import (
    NAMESPACE, banner, coclass_info_name, coclass_interfaces_name, cpp_string, dispid_literal,
    enum_info_name, enum_members_name, has_thunks, int32_literal, interface_info_name,
    library_function_name, library_info_name, members_name, params_name, thunk_name, vt_literal,
)
from idl_ast import (
    IMPLTYPEFLAG_FDEFAULT, IMPLTYPEFLAG_FRESTRICTED, IMPLTYPEFLAG_FSOURCE, INVOKE_FUNC,
    INVOKE_PROPERTYGET, INVOKE_PROPERTYPUT, INVOKE_PROPERTYPUTREF, PARAMFLAG_FHASDEFAULT,
    PARAMFLAG_FIN, PARAMFLAG_FOPT, PARAMFLAG_FOUT, PARAMFLAG_FRETVAL, Library,
)

_PARAM_FLAGS = [(PARAMFLAG_FIN, "PARAMFLAG_FIN"), (PARAMFLAG_FOUT, "PARAMFLAG_FOUT"),
                (PARAMFLAG_FRETVAL, "PARAMFLAG_FRETVAL"), (PARAMFLAG_FOPT, "PARAMFLAG_FOPT"),
                (PARAMFLAG_FHASDEFAULT, "PARAMFLAG_FHASDEFAULT")]
_INVOKE = {INVOKE_FUNC: "INVOKE_FUNC", INVOKE_PROPERTYGET: "INVOKE_PROPERTYGET",
           INVOKE_PROPERTYPUT: "INVOKE_PROPERTYPUT", INVOKE_PROPERTYPUTREF: "INVOKE_PROPERTYPUTREF"}
_IMPL_FLAGS = [(IMPLTYPEFLAG_FDEFAULT, "IMPLTYPEFLAG_FDEFAULT"), (IMPLTYPEFLAG_FSOURCE, "IMPLTYPEFLAG_FSOURCE"),
               (IMPLTYPEFLAG_FRESTRICTED, "IMPLTYPEFLAG_FRESTRICTED")]
_KINDS = {"Dual": "InterfaceKind::Dual", "DispInterface": "InterfaceKind::DispInterface",
          "Custom": "InterfaceKind::Custom", "Local": "InterfaceKind::Local"}


def flags_expression(value: int, names: list, zero: str) -> str:
    parts = [name for bit, name in names if value & bit]
    return " | ".join(parts) if parts else zero


def write_typeinfo(library: Library, header_name: str) -> str:
    out: list[str] = [banner(library).rstrip("\n"),
                      f"// The run-time type information of {library.name}.",
                      f'#include "{header_name}"', "", '#include "platform/TypeLibraryRegistry.h"', "",
                      f"namespace {NAMESPACE} {{", ""]

    thunked = [(i, m) for i in library.interfaces if has_thunks(i) for m in i.members]
    if thunked:
        out.append(f"// Defined in {library.name}Dispatch.cpp.")
        for iface, m in thunked:
            out.append(f"HRESULT {thunk_name(iface, m)}(void* self, VARIANT* args, VARIANT* result);")
        out.append("")

    out.append("namespace {")
    out.append("")
    for iface in library.interfaces:
        for m in iface.members:
            if not m.params:
                continue
            out.append(f"constexpr ParamInfo {params_name(iface, m)}[] = {{")
            for p in m.params:
                iid = p.type.iid_expr or "nullptr"
                flags = flags_expression(p.flags, _PARAM_FLAGS, "PARAMFLAG_NONE")
                out.append(f"    {{{cpp_string(p.name)}, {vt_literal(p.type.vt)}, {iid}, {cpp_string(p.type.idl_name)}, "
                           f"{flags}, {cpp_string(p.default)}}},")
            out.append("};")
        if iface.members:
            out.append(f"constexpr MemberInfo {members_name(iface)}[] = {{")
            for m in iface.members:
                params = params_name(iface, m) if m.params else "nullptr"
                thunk = thunk_name(iface, m) if has_thunks(iface) else "nullptr"
                out.append(f"    {{{cpp_string(m.name)}, {dispid_literal(m.dispid)}, {_INVOKE[m.invoke_kind]}, {params}, "
                           f"{len(m.params)}, {cpp_string(m.help)}, {thunk}}},")
            out.append("};")
        out.append("")
    for e in library.enums:
        if not e.members:
            continue
        out.append(f"constexpr EnumMemberInfo {enum_members_name(e.name)}[] = {{")
        for m in e.members:
            out.append(f"    {{{cpp_string(m.name)}, {int32_literal(m.value, m.written_hex)}, {cpp_string(m.help)}}},")
        out.append("};")
        out.append("")
    for c in library.coclasses:
        out.append(f"constexpr CoClassInterface {coclass_interfaces_name(c.name)}[] = {{")
        for item in c.interfaces:
            flags = flags_expression(item.flags, _IMPL_FLAGS, "0")
            out.append(f"    {{&{interface_info_name(item.name)}, {flags}}},")
        out.append("};")
        out.append("")
    out.append("}  // namespace")
    out.append("")

    for iface in library.interfaces:
        base = f"&{interface_info_name(iface.base)}" if iface.base else "nullptr"
        members = members_name(iface) if iface.members else "nullptr"
        out.append(f"constinit const InterfaceInfo {interface_info_name(iface.name)}{{{cpp_string(iface.name)}, "
                   f"{iface.name}::iid, {base}, {_KINDS[iface.kind]}, {cpp_string(iface.help)}, {members}, "
                   f"{len(iface.members)}}};")
    if library.interfaces:
        out.append("")
    for e in library.enums:
        members = enum_members_name(e.name) if e.members else "nullptr"
        out.append(f"constinit const EnumInfo {enum_info_name(e.name)}{{{cpp_string(e.name)}, {cpp_string(e.help)}, "
                   f"{members}, {len(e.members)}}};")
    if library.enums:
        out.append("")
    for c in library.coclasses:
        out.append(f"constinit const CoClassInfo {coclass_info_name(c.name)}{{{cpp_string(c.name)}, CLSID_{c.name}, "
                   f"{cpp_string(c.help)}, {'true' if c.creatable else 'false'}, {cpp_string(c.progid)}, "
                   f"{cpp_string(c.vi_progid)}, {coclass_interfaces_name(c.name)}, {len(c.interfaces)}}};")
    if library.coclasses:
        out.append("")

    out.append("namespace {")
    def table(kind: str, name: str, items: list[str]) -> str:
        if not items:
            return "nullptr"
        out.append(f"constexpr const {kind}* {name}[] = {{")
        for item in items:
            out.append(f"    &{item},")
        out.append("};")
        return name
    interfaces = table("InterfaceInfo", "AllInterfaces", [interface_info_name(i.name) for i in library.interfaces])
    enums = table("EnumInfo", "AllEnums", [enum_info_name(e.name) for e in library.enums])
    coclasses = table("CoClassInfo", "AllCoClasses", [coclass_info_name(c.name) for c in library.coclasses])
    out.append("}  // namespace")
    out.append("")
    out.append(f"constinit const TypeLibraryInfo {library_info_name(library)}{{{cpp_string(library.name)}, "
               f"LIBID_{library.name}, {library.major}, {library.minor}, {cpp_string(library.help)}, "
               f"{interfaces}, {len(library.interfaces)}, {enums}, {len(library.enums)}, {coclasses}, "
               f"{len(library.coclasses)}}};")
    out.append("")
    out.append("namespace {")
    out.append(f"const TypeLibraryRegistrar registrar{{{library_info_name(library)}}};")
    out.append("}  // namespace")
    out.append("")
    out.append(f"}}  // namespace {NAMESPACE}")
    out.append("")
    out.append(f"const tessaly::TypeLibraryInfo& {library_function_name(library)}() {{ "
               f"return {NAMESPACE}::{library_info_name(library)}; }}")
    return "\n".join(out) + "\n"
