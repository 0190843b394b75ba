"""The parsed type library: what the IDL declares, with every type resolved.

The parser builds these objects; the output writers only read them. Types carry what each
writer needs (automation VARTYPE, C++ spelling, VARIANT union field) so that no writer
repeats the type rules.
"""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Optional

# VARTYPE codes used by the generator (same values as platform/AutomationTypes.h).
VT_EMPTY = 0  # the types that never cross dispatch: structs and raw pointers of [local] interfaces
VT_I2 = 2
VT_I4 = 3
VT_R4 = 4
VT_R8 = 5
VT_CY = 6
VT_DATE = 7
VT_BSTR = 8
VT_DISPATCH = 9
VT_ERROR = 10
VT_BOOL = 11
VT_VARIANT = 12
VT_UNKNOWN = 13
VT_I1 = 16
VT_UI1 = 17
VT_UI2 = 18
VT_UI4 = 19
VT_I8 = 20
VT_ARRAY = 0x2000

VT_NAMES = {
    VT_EMPTY: "VT_EMPTY", VT_I2: "VT_I2", VT_I4: "VT_I4", VT_R4: "VT_R4", VT_R8: "VT_R8", VT_CY: "VT_CY",
    VT_DATE: "VT_DATE", VT_BSTR: "VT_BSTR", VT_DISPATCH: "VT_DISPATCH", VT_ERROR: "VT_ERROR",
    VT_BOOL: "VT_BOOL", VT_VARIANT: "VT_VARIANT", VT_UNKNOWN: "VT_UNKNOWN", VT_I1: "VT_I1",
    VT_UI1: "VT_UI1", VT_UI2: "VT_UI2", VT_UI4: "VT_UI4", VT_I8: "VT_I8",
}


def vt_expression(vt: int) -> str:
    """C++ spelling of a VARTYPE, e.g. "VT_ARRAY | VT_UI1"."""
    if vt & VT_ARRAY:
        return "VT_ARRAY | " + VT_NAMES[vt & ~VT_ARRAY]
    return VT_NAMES[vt]


# Parameter flags and member kinds (same values as platform/TypeInfo.h).
PARAMFLAG_FIN = 0x01
PARAMFLAG_FOUT = 0x02
PARAMFLAG_FRETVAL = 0x08
PARAMFLAG_FOPT = 0x10
PARAMFLAG_FHASDEFAULT = 0x20

INVOKE_FUNC = 1
INVOKE_PROPERTYGET = 2
INVOKE_PROPERTYPUT = 4
INVOKE_PROPERTYPUTREF = 8

IMPLTYPEFLAG_FDEFAULT = 0x1
IMPLTYPEFLAG_FSOURCE = 0x2
IMPLTYPEFLAG_FRESTRICTED = 0x4


@dataclass
class Location:
    file: str
    line: int
    column: int

    def __str__(self) -> str:
        return f"{self.file}:{self.line}:{self.column}"


class IdlError(Exception):
    """An error in the IDL, reported as FILE:LINE:COLUMN: error: message."""

    def __init__(self, location: Location, message: str):
        super().__init__(f"{location}: error: {message}")
        self.location = location
        self.message = message


@dataclass
class Type:
    """A value type as it crosses an automation interface (without the out pointer).

    kind: "scalar" (numbers, BSTR, VARIANT_BOOL, DATE, CY, SCODE, OLE_COLOR), "variant", "enum",
    "interface" (IUnknown*, IDispatch*, a standard or IDL interface), "array", or "native": a
    C type only [local] interfaces take (a struct, a pointer to data), with vt VT_EMPTY.
    """

    kind: str
    idl_name: str          # as written: "long", "BSTR", "ILuxArchive*", "SAFEARRAY(unsigned char)"
    vt: int
    cpp: str               # C++ spelling of an [in] parameter of this type
    field: Optional[str]   # VARIANT union member holding the value; None for VARIANT itself
    iid_expr: Optional[str] = None    # "&IX::iid" for interfaces other than IUnknown/IDispatch
    interface_name: Optional[str] = None  # "IX" for interfaces with an iid


@dataclass
class Param:
    name: str
    type: Type
    flags: int
    default: Optional[str]  # literal text of defaultvalue(...), strings unquoted
    default_is_string: bool
    location: Location

    @property
    def is_out(self) -> bool:
        return bool(self.flags & PARAMFLAG_FOUT)

    @property
    def is_retval(self) -> bool:
        return bool(self.flags & PARAMFLAG_FRETVAL)


@dataclass
class Member:
    name: str
    dispid: int
    invoke_kind: int
    params: list[Param]
    help: Optional[str]
    location: Location
    returns_void: bool = False  # dispinterface methods are declared void

    @property
    def cpp_name(self) -> str:
        prefix = {INVOKE_FUNC: "", INVOKE_PROPERTYGET: "get_", INVOKE_PROPERTYPUT: "put_",
                  INVOKE_PROPERTYPUTREF: "putref_"}[self.invoke_kind]
        return prefix + self.name


@dataclass
class Interface:
    name: str
    iid: str                 # canonical upper-case "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX"
    kind: str                # "Dual", "DispInterface", "Custom" or "Local" (vtable only, never dispatched)
    base: Optional[str]      # IDL base interface name; None for IUnknown/IDispatch
    base_is_dispatch: bool   # the root of the chain is IDispatch
    help: Optional[str]
    members: list[Member]
    location: Location


@dataclass
class EnumMember:
    name: str
    value: int               # signed 32-bit
    written_hex: bool
    help: Optional[str]
    location: Location


@dataclass
class Enum:
    name: str
    uuid: Optional[str]
    help: Optional[str]
    members: list[EnumMember]
    location: Location


@dataclass
class StructField:
    name: str
    cpp: str                 # C++ type of the field: "double", "LONG", "BYTE*", "LuxPoint"
    array_length: Optional[int]  # "double M[4]" has 4
    location: Location


@dataclass
class Struct:
    """A plain C struct of numbers and pointers, for [local] interfaces."""

    name: str
    uuid: Optional[str]
    help: Optional[str]
    fields: list[StructField]
    location: Location


@dataclass
class CoClassInterface:
    name: str
    flags: int
    location: Location


@dataclass
class CoClass:
    name: str
    clsid: str
    help: Optional[str]
    creatable: bool
    progid: str
    vi_progid: str
    interfaces: list[CoClassInterface]
    location: Location


@dataclass
class Library:
    name: str
    libid: str
    major: int
    minor: int
    help: Optional[str]
    source_file: str
    # Libraries read through importlib("X.idl"), whose declarations this one uses.
    imports: list["Library"] = field(default_factory=list)
    # Declarations in IDL order.
    interfaces: list[Interface] = field(default_factory=list)
    enums: list[Enum] = field(default_factory=list)
    structs: list[Struct] = field(default_factory=list)
    coclasses: list[CoClass] = field(default_factory=list)

    def interface(self, name: str) -> Optional[Interface]:
        for item in self.interfaces:
            if item.name == name:
                return item
        return None
