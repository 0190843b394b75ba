"""Writes NAME.h: enumerations, interfaces as pure virtual structs, GUID constants and the
declarations of the type information tables."""

from __future__ import annotations

from cpp_names import (
    NAMESPACE, banner, coclass_info_name, comment_text, enum_info_name, int32_literal,
    interface_info_name, library_function_name, library_info_name,
)
from idl_ast import IMPLTYPEFLAG_FSOURCE, Interface, Library, Member, Param, Struct


def param_declaration(p: Param) -> str:
    cpp = p.type.cpp
    if p.is_out:
        cpp += "*"
    return f"{cpp} {p.name}"


def method_declaration(m: Member) -> str:
    params = ", ".join(param_declaration(p) for p in m.params)
    return f"virtual HRESULT {m.cpp_name}({params}) = 0;"


def declared_kind(library: Library, name: str) -> str | None:
    """The kind of an interface declared in the library or one it imports."""
    found = library.interface(name)
    if found:
        return found.kind
    for imported in library.imports:
        kind = declared_kind(imported, name)
        if kind:
            return kind
    return None


def write_interface(out: list[str], iface: Interface) -> None:
    if iface.help:
        out.append(f"// {comment_text(iface.help)}")
    base = iface.base or ("IDispatch" if iface.base_is_dispatch else "IUnknown")
    out.append(f"struct {iface.name} : {base} {{")
    # The base link: QueryInterface answers every interface along the chain through the
    # most derived one a class lists.
    out.append(f"    using BaseInterface = {base};")
    out.append(f'    static constexpr IID iid = tessaly::MakeGuid("{iface.iid}");')
    if iface.kind != "DispInterface":
        for m in iface.members:
            if m.help:
                out.append(f"    // {comment_text(m.help)}")
            out.append(f"    {method_declaration(m)}")
    out.append("};")
    out.append("")


def write_struct(out: list[str], st: Struct) -> None:
    if st.help:
        out.append(f"// {comment_text(st.help)}")
    out.append(f"struct {st.name} {{")
    for f in st.fields:
        out.append(f"    {f.cpp} {f.name}{f'[{f.array_length}]' if f.array_length else ''};")
    out.append("};")
    out.append("")


def write_header(library: Library) -> str:
    out: list[str] = [banner(library).rstrip("\n")]
    if library.help:
        out.append(f"// {comment_text(library.help)}")
    out += ["#pragma once", "", "#include <cstdint>", "", '#include "platform/StandardInterfaces.h"',
            '#include "platform/TypeInfo.h"']
    # An imported library's declarations (and its tables, which ours point to) come from its header.
    out += [f'#include "{imported.name}.h"' for imported in library.imports]
    out.append("")
    # Every library's header may declare it: a typedef may be repeated with the same type.
    out.append("// A colour: 0x00BBGGRR, or a system colour with the top bit set.")
    out.append("typedef ULONG OLE_COLOR;")
    out.append("")

    for e in library.enums:
        if e.help:
            out.append(f"// {comment_text(e.help)}")
        out.append(f"enum {e.name} : int32_t {{")
        for m in e.members:
            line = f"    {m.name} = {int32_literal(m.value, m.written_hex)},"
            if m.help:
                line += f"  // {comment_text(m.help)}"
            out.append(line)
        out.append("};")
        out.append("")

    if library.interfaces or library.structs:
        for iface in library.interfaces:
            out.append(f"struct {iface.name};")
        for st in library.structs:
            out.append(f"struct {st.name};")
        out.append("")
    # Structs in declaration order, after the enumerations their fields may use; a pointer
    # field may name any struct or interface.
    for st in library.structs:
        write_struct(out, st)
    for iface in library.interfaces:
        write_interface(out, iface)

    for iface in library.interfaces:
        prefix = "DIID" if iface.kind == "DispInterface" else "IID"
        out.append(f"inline constexpr IID {prefix}_{iface.name} = {iface.name}::iid;")
    for c in library.coclasses:
        out.append(f'inline constexpr CLSID CLSID_{c.name} = tessaly::MakeGuid("{c.clsid}");')
    out.append(f'inline constexpr GUID LIBID_{library.name} = tessaly::MakeGuid("{library.libid}");')
    out.append("")

    # Each coclass's vtable interfaces, for the compile-time check that the implementing
    # class answers exactly what its coclass names.
    out.append(f"namespace {NAMESPACE} {{")
    for c in library.coclasses:
        names = [ci.name for ci in c.interfaces
                 if not (ci.flags & IMPLTYPEFLAG_FSOURCE) and declared_kind(library, ci.name) != "DispInterface"]
        out.append(f"using CoClassInterfaceList_{c.name} = tessaly::InterfaceList<{', '.join(names)}>;")
    out.append(f"}}  // namespace {NAMESPACE}")
    out.append("")

    out.append("// The run-time type information of the library; it registers itself when loaded.")
    out.append(f"namespace {NAMESPACE} {{")
    for iface in library.interfaces:
        out.append(f"extern const InterfaceInfo {interface_info_name(iface.name)};")
    for e in library.enums:
        out.append(f"extern const EnumInfo {enum_info_name(e.name)};")
    for c in library.coclasses:
        out.append(f"extern const CoClassInfo {coclass_info_name(c.name)};")
    out.append(f"extern const TypeLibraryInfo {library_info_name(library)};")
    out.append(f"}}  // namespace {NAMESPACE}")
    out.append("")
    out.append(f"const tessaly::TypeLibraryInfo& {library_function_name(library)}();")
    return "\n".join(out) + "\n"
