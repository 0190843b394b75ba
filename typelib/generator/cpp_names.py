"""Names and literals shared by the writers, so that the thunks one file defines are the
ones another file points to.

Every generated definition other than the interfaces, enumerations and GUID constants
lives in namespace tessaly::generated:
  Thunk_<Interface>_<method>     the dispatch thunk of one member (get_/put_/putref_ prefixed)
  Interface_<Interface>          InterfaceInfo of an interface or dispinterface
  Enum_<Enumeration>             EnumInfo
  CoClass_<CoClass>              CoClassInfo
  TypeLibrary_<Library>          TypeLibraryInfo
"""

from __future__ import annotations

import os

from idl_ast import Interface, Library, Member, vt_expression

NAMESPACE = "tessaly::generated"


def banner(library: Library, generator: str = "tlbgen.py") -> str:
    source = os.path.basename(library.source_file)
    return f"// Generated from {source} by {generator}: do not edit; change the IDL instead.\n"


def thunk_name(iface: Interface, member: Member) -> str:
    return f"Thunk_{iface.name}_{member.cpp_name}"


def params_name(iface: Interface, member: Member) -> str:
    return f"Params_{iface.name}_{member.cpp_name}"


def members_name(iface: Interface) -> str:
    return f"Members_{iface.name}"


def interface_info_name(name: str) -> str:
    return f"Interface_{name}"


def enum_members_name(name: str) -> str:
    return f"EnumMembers_{name}"


def enum_info_name(name: str) -> str:
    return f"Enum_{name}"


def coclass_interfaces_name(name: str) -> str:
    return f"CoClassInterfaces_{name}"


def coclass_info_name(name: str) -> str:
    return f"CoClass_{name}"


def library_info_name(library: Library) -> str:
    return f"TypeLibrary_{library.name}"


def library_function_name(library: Library) -> str:
    return f"{library.name}_TypeLibrary"


def has_thunks(iface: Interface) -> bool:
    # Dispinterfaces are called by their clients; [local] interfaces only from C++.
    return iface.kind not in ("DispInterface", "Local")


def cpp_string(text: str | None) -> str:
    """A C++ string literal (UTF-8 kept as is), or nullptr."""
    if text is None:
        return "nullptr"
    out = ['"']
    for ch in text:
        if ch == "\\":
            out.append("\\\\")
        elif ch == '"':
            out.append('\\"')
        elif ch == "\n":
            out.append("\\n")
        elif ch == "\t":
            out.append("\\t")
        elif ord(ch) < 0x20 or ord(ch) == 0x7F:
            # Octal escapes stop after three digits, unlike hex ones.
            out.append(f"\\{ord(ch):03o}")
        else:
            out.append(ch)
    out.append('"')
    return "".join(out)


def comment_text(text: str) -> str:
    """Help text on one comment line."""
    return " ".join(text.split())


def int32_literal(value: int, hexadecimal: bool) -> str:
    """A C++ constant of type int32_t for an enumerator, keeping hex as written."""
    if hexadecimal:
        if value < 0:
            return f"static_cast<int32_t>(0x{value & 0xFFFFFFFF:08X}u)"
        return f"0x{value:X}"
    if value == -(1 << 31):
        return "(-2147483647 - 1)"
    return str(value)


def dispid_literal(value: int) -> str:
    if value < 0:
        return str(value)
    # Library members are written in hex, where family and member show; event IDs in decimal.
    return f"0x{value:X}" if value > 0xFFFF else str(value)


def vt_literal(vt: int) -> str:
    """A VARTYPE constant, e.g. VT_I4 or static_cast<VARTYPE>(VT_ARRAY | VT_UI1)."""
    expr = vt_expression(vt)
    return f"static_cast<VARTYPE>({expr})" if "|" in expr else expr
