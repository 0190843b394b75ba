"""Writes NAMEDispatch.cpp: one typed thunk per member of every vtable interface.

A thunk follows the DispatchThunk contract of platform/TypeInfo.h: the dispatcher has
already coerced every argument to the parameter's type, so the thunk only picks the union
field (or the VARIANT itself), calls the vtable method and, for a retval, points the
callee at the result's field. Thunks allocate nothing and never touch reference counts.
"""

from __future__ import annotations

from cpp_names import NAMESPACE, banner, has_thunks, thunk_name, vt_literal
from idl_ast import Interface, Library, Member, Param


class Slot:
    """How C++ names one VARIANT of the thunk: an argument or the result."""

    def __init__(self, pointer: str, index: int | None = None):
        self.value = f"{pointer}[{index}]" if index is not None else f"(*{pointer})"
        self.member = f"{pointer}[{index}]." if index is not None else f"{pointer}->"
        self.address = f"&{pointer}[{index}]" if index is not None else pointer


def argument(p: Param, slot: Slot) -> str:
    """The C++ argument passed for parameter `p` whose VARIANT is `slot`."""
    t = p.type
    if not p.is_out:
        if t.kind == "variant":
            return slot.value
        if t.kind == "enum":
            return f"static_cast<{t.cpp}>({slot.member}{t.field})"
        if t.interface_name:
            return f"reinterpret_cast<{t.interface_name}*>({slot.member}punkVal)"
        return f"{slot.member}{t.field}"
    if t.kind == "variant":
        return slot.address
    if t.kind == "enum":
        return f"reinterpret_cast<{t.cpp}*>(&{slot.member}{t.field})"
    if t.interface_name:
        return f"reinterpret_cast<{t.interface_name}**>(&{slot.member}punkVal)"
    return f"&{slot.member}{t.field}"


def write_thunk(out: list[str], iface: Interface, m: Member) -> None:
    regular = [p for p in m.params if not p.is_retval]
    retval = m.params[-1] if m.params and m.params[-1].is_retval else None
    # Unused parameters stay unnamed: the build treats warnings as errors.
    args_decl = "VARIANT* args" if regular else "VARIANT*"
    result_decl = "VARIANT* result" if retval else "VARIANT*"
    out.append(f"HRESULT {thunk_name(iface, m)}(void* self, {args_decl}, {result_decl}) {{")
    call_args = [argument(p, Slot("args", i)) for i, p in enumerate(regular)]
    if retval is not None:
        call_args.append(argument(retval, Slot("result")))
    call = f"static_cast<{iface.name}*>(self)->{m.cpp_name}({', '.join(call_args)})"
    if retval is None:
        out.append(f"    return {call};")
    else:
        # A VARIANT retval is the result itself; the member sets its type.
        if retval.type.kind != "variant":
            out.append(f"    result->vt = {vt_literal(retval.type.vt)};")
        out.append(f"    const HRESULT hr = {call};")
        out.append("    if (FAILED(hr)) result->vt = VT_EMPTY;")
        out.append("    return hr;")
    out.append("}")
    out.append("")


def write_dispatch(library: Library, header_name: str) -> str:
    out: list[str] = [banner(library).rstrip("\n"),
                      "// The dispatch thunks: each calls one member through its vtable with the arguments",
                      "// the dispatcher prepared (see DispatchThunk in platform/TypeInfo.h).",
                      f'#include "{header_name}"', "", f"namespace {NAMESPACE} {{", ""]
    for iface in library.interfaces:
        if not has_thunks(iface):
            continue
        for m in iface.members:
            write_thunk(out, iface, m)
    out.append(f"}}  // namespace {NAMESPACE}")
    return "\n".join(out) + "\n"
