"""Reads the IDL our type libraries are written in (MIDL syntax) and builds the idl_ast model.

Parsing happens in two passes: the first reads declarations in order and keeps type names
as written; the second resolves every type (interfaces may be used before they are
defined, after a forward declaration) and checks the rules dispatch relies on. Every
error carries the file, line and column where it was found.
"""

from __future__ import annotations

import os
import re
from dataclasses import dataclass
from typing import Optional

from idl_ast import (
    IMPLTYPEFLAG_FDEFAULT, IMPLTYPEFLAG_FRESTRICTED, IMPLTYPEFLAG_FSOURCE, INVOKE_FUNC,
    INVOKE_PROPERTYGET, INVOKE_PROPERTYPUT, INVOKE_PROPERTYPUTREF, PARAMFLAG_FHASDEFAULT,
    PARAMFLAG_FIN, PARAMFLAG_FOPT, PARAMFLAG_FOUT, PARAMFLAG_FRETVAL, VT_ARRAY, VT_BOOL,
    VT_BSTR, VT_CY, VT_DATE, VT_DISPATCH, VT_ERROR, VT_I1, VT_I2, VT_I4, VT_I8, VT_R4, VT_R8,
    VT_EMPTY, VT_UI1, VT_UI2, VT_UI4, VT_UNKNOWN, VT_VARIANT, CoClass, CoClassInterface, Enum,
    EnumMember, IdlError, Interface, Library, Location, Member, Param, Struct, StructField, Type,
)
from idl_checks import check_library

# ----------------------------------------------------------------------------------------
# Tokens

PUNCTUATION = ["<<", ">>", "[", "]", "(", ")", "{", "}", ";", ":", ",", "*", "=", "-", "+",
               "|", "&", "^", "~", "/", "%", "."]


@dataclass
class Token:
    kind: str   # "ident", "number", "string", "guid", "punct", "eof"
    text: str   # for strings: the unescaped value
    location: Location


_GUID_RE = re.compile(r"[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$")
_NUMBER_RE = re.compile(r"0[xX][0-9A-Fa-f]+[uUlL]*|\d+\.\d*(?:[eE][-+]?\d+)?|\d+(?:[eE][-+]?\d+)?[uUlL]*")
_IDENT_RE = re.compile(r"[A-Za-z_][A-Za-z0-9_]*")
_ESCAPES = {"n": "\n", "t": "\t", "r": "\r", "\\": "\\", '"': '"', "'": "'", "0": "\0"}


def tokenize(text: str, filename: str) -> list[Token]:
    tokens: list[Token] = []
    i = 0
    line = 1
    line_start = 0
    n = len(text)

    def here(pos: int) -> Location:
        return Location(filename, line, pos - line_start + 1)

    while i < n:
        c = text[i]
        if c == "\n":
            line += 1
            line_start = i + 1
            i += 1
            continue
        if c in " \t\r\f\v":
            i += 1
            continue
        if text.startswith("//", i):
            end = text.find("\n", i)
            i = n if end < 0 else end
            continue
        if text.startswith("/*", i):
            start = here(i)
            end = text.find("*/", i + 2)
            if end < 0:
                raise IdlError(start, "unterminated comment")
            for k in range(i, end):
                if text[k] == "\n":
                    line += 1
                    line_start = k + 1
            i = end + 2
            continue
        if c == "#":
            raise IdlError(here(i), "preprocessor directives are not supported")
        loc = here(i)
        # The argument of uuid(...) is read whole: unquoted GUIDs do not tokenize.
        if (c != ")" and len(tokens) >= 2 and tokens[-1].text == "(" and tokens[-1].kind == "punct"
                and tokens[-2].kind == "ident" and tokens[-2].text == "uuid"):
            end = text.find(")", i)
            if end < 0:
                raise IdlError(loc, "unterminated uuid(...)")
            raw = text[i:end].strip()
            if raw.startswith('"') and raw.endswith('"') and len(raw) >= 2:
                raw = raw[1:-1]
            if not _GUID_RE.match(raw):
                raise IdlError(loc, f"malformed uuid '{raw}'")
            tokens.append(Token("guid", raw.upper(), loc))
            i = end
            continue
        if c == '"':
            value = []
            i += 1
            while True:
                if i >= n or text[i] == "\n":
                    raise IdlError(loc, "unterminated string literal")
                ch = text[i]
                if ch == '"':
                    i += 1
                    break
                if ch == "\\":
                    if i + 1 >= n:
                        raise IdlError(loc, "unterminated string literal")
                    esc = text[i + 1]
                    if esc not in _ESCAPES:
                        raise IdlError(here(i), f"unknown escape sequence '\\{esc}'")
                    value.append(_ESCAPES[esc])
                    i += 2
                    continue
                value.append(ch)
                i += 1
            tokens.append(Token("string", "".join(value), loc))
            continue
        if c.isdigit():
            m = _NUMBER_RE.match(text, i)
            tokens.append(Token("number", m.group(0), loc))
            i = m.end()
            if i < n and (text[i].isalnum() or text[i] == "_"):
                raise IdlError(loc, f"malformed number '{m.group(0)}{text[i]}'")
            continue
        m = _IDENT_RE.match(text, i)
        if m:
            tokens.append(Token("ident", m.group(0), loc))
            i = m.end()
            continue
        for p in PUNCTUATION:
            if text.startswith(p, i):
                tokens.append(Token("punct", p, loc))
                i += len(p)
                break
        else:
            raise IdlError(loc, f"unexpected character '{c}'")
    tokens.append(Token("eof", "", here(i)))
    return tokens


# ----------------------------------------------------------------------------------------
# Types

# Base types by their IDL spelling: (VARTYPE, C++ type, VARIANT field).
BASE_TYPES = {
    "long": (VT_I4, "LONG", "lVal"),
    "LONG": (VT_I4, "LONG", "lVal"),
    "int": (VT_I4, "LONG", "lVal"),
    "short": (VT_I2, "SHORT", "iVal"),
    "SHORT": (VT_I2, "SHORT", "iVal"),
    "char": (VT_I1, "int8_t", "cVal"),
    "unsigned char": (VT_UI1, "BYTE", "bVal"),
    "byte": (VT_UI1, "BYTE", "bVal"),
    "BYTE": (VT_UI1, "BYTE", "bVal"),
    "unsigned short": (VT_UI2, "USHORT", "uiVal"),
    "USHORT": (VT_UI2, "USHORT", "uiVal"),
    "unsigned long": (VT_UI4, "ULONG", "ulVal"),
    "unsigned int": (VT_UI4, "ULONG", "ulVal"),
    "ULONG": (VT_UI4, "ULONG", "ulVal"),
    "DWORD": (VT_UI4, "ULONG", "ulVal"),
    "hyper": (VT_I8, "LONGLONG", "llVal"),
    "__int64": (VT_I8, "LONGLONG", "llVal"),
    "LONGLONG": (VT_I8, "LONGLONG", "llVal"),
    "float": (VT_R4, "float", "fltVal"),
    "double": (VT_R8, "double", "dblVal"),
    "VARIANT_BOOL": (VT_BOOL, "VARIANT_BOOL", "boolVal"),
    "BSTR": (VT_BSTR, "BSTR", "bstrVal"),
    "DATE": (VT_DATE, "DATE", "date"),
    "CY": (VT_CY, "CY", "cyVal"),
    "CURRENCY": (VT_CY, "CY", "cyVal"),
    "SCODE": (VT_ERROR, "SCODE", "scode"),
    # A colour as 0x00BBGGRR (or a system colour with the top bit set); a typedef in the header.
    "OLE_COLOR": (VT_UI4, "OLE_COLOR", "ulVal"),
}

# Interfaces of platform/StandardInterfaces.h that IDL members may take or return.
STANDARD_INTERFACES = {
    "ISequentialStream", "IStream", "IEnumVARIANT", "IConnectionPoint", "IConnectionPointContainer",
    "IEnumConnections", "IEnumConnectionPoints", "IErrorInfo", "ISupportErrorInfo",
    "IProvideClassInfo", "IProvideClassInfo2", "ITypeInfo", "IClassFactory",
}

# Identifiers that cannot name a parameter or member in the generated C++.
CPP_KEYWORDS = {
    "alignas", "alignof", "and", "asm", "auto", "bool", "break", "case", "catch", "char", "class",
    "concept", "const", "consteval", "constexpr", "constinit", "const_cast", "continue", "co_await",
    "co_return", "co_yield", "decltype", "default", "delete", "do", "double", "dynamic_cast", "else",
    "enum", "explicit", "export", "extern", "false", "float", "for", "friend", "goto", "if", "inline",
    "int", "long", "mutable", "namespace", "new", "noexcept", "not", "nullptr", "operator", "or",
    "private", "protected", "public", "register", "reinterpret_cast", "requires", "return", "short",
    "signed", "sizeof", "static", "static_assert", "static_cast", "struct", "switch", "template",
    "this", "thread_local", "throw", "true", "try", "typedef", "typeid", "typename", "union",
    "unsigned", "using", "virtual", "void", "volatile", "wchar_t", "while", "xor",
}


@dataclass
class TypeRef:
    """A type as written, resolved once the whole file is read."""

    name: str                      # "long", "unsigned char", "ILuxObject", "SAFEARRAY", "void"
    pointers: int
    element: Optional["TypeRef"]   # element type of SAFEARRAY(...)
    location: Location
    const: bool = False            # kept for the C types of [local] interfaces and structs

    def spelled(self) -> str:
        base = f"SAFEARRAY({self.element.spelled()})" if self.element else self.name
        return ("const " if self.const else "") + base + "*" * self.pointers


# ----------------------------------------------------------------------------------------
# Attributes

@dataclass
class Attribute:
    name: str
    args: list  # list of (kind, value, location); kind "guid", "string", "number", "ident", "expr"
    location: Location


# Attributes accepted on each kind of declaration; those without meaning here are accepted
# and ignored so that ordinary IDL reads unchanged.
LIBRARY_ATTRS = {"uuid", "version", "helpstring", "lcid", "helpfile", "helpcontext", "control", "hidden",
                 "restricted"}
INTERFACE_ATTRS = {"object", "uuid", "dual", "oleautomation", "nonextensible", "helpstring",
                   "pointer_default", "hidden", "restricted", "local", "version", "helpcontext"}
DISPINTERFACE_ATTRS = {"uuid", "helpstring", "hidden", "restricted", "nonextensible", "version", "helpcontext"}
MEMBER_ATTRS = {"id", "propget", "propput", "propputref", "helpstring", "hidden", "restricted",
                "nonbrowsable", "bindable", "requestedit", "displaybind", "defaultbind", "helpcontext",
                "defaultcollelem", "uidefault", "source", "immediatebind", "readonly"}
PARAM_ATTRS = {"in", "out", "retval", "optional", "defaultvalue", "lcid", "unique", "ref"}
ENUM_ATTRS = {"uuid", "helpstring", "v1_enum", "public", "hidden", "helpcontext", "restricted"}
ENUM_MEMBER_ATTRS = {"helpstring", "hidden", "helpcontext"}
COCLASS_ATTRS = {"uuid", "helpstring", "noncreatable", "progid", "version", "hidden", "helpcontext",
                 "appobject", "control", "licensed", "aggregatable"}
COCLASS_ITEM_ATTRS = {"default", "source", "restricted"}
STRUCT_ATTRS = {"uuid", "helpstring", "public", "hidden", "helpcontext", "restricted"}


def _find(attrs: list[Attribute], name: str) -> Optional[Attribute]:
    for a in attrs:
        if a.name == name:
            return a
    return None


# ----------------------------------------------------------------------------------------
# First pass: declarations as written


@dataclass
class RawParam:
    attrs: list[Attribute]
    type: TypeRef
    name: str
    location: Location


@dataclass
class RawMember:
    attrs: list[Attribute]
    return_type: TypeRef
    name: str
    params: list[RawParam]
    is_property: bool   # a dispinterface property declaration
    location: Location


@dataclass
class RawInterface:
    attrs: list[Attribute]
    name: str
    base: Optional[str]
    base_location: Optional[Location]
    is_dispinterface: bool
    members: list[RawMember]
    location: Location


@dataclass
class RawEnum:
    attrs: list[Attribute]
    name: str
    members: list  # (attrs, name, expr-or-None, location)
    location: Location


@dataclass
class RawStruct:
    attrs: list[Attribute]
    name: str
    fields: list  # (type, name, array length or None, location)
    location: Location


@dataclass
class RawCoClass:
    attrs: list[Attribute]
    name: str
    items: list  # (attrs, is_dispinterface, name, location)
    location: Location


class Parser:
    def __init__(self, text: str, filename: str):
        self.filename = filename
        self.tokens = tokenize(text, filename)
        self.pos = 0
        self.library_attrs: Optional[list[Attribute]] = None
        self.library_name: Optional[str] = None
        self.library_location: Optional[Location] = None
        self.declarations: list = []  # RawInterface / RawEnum / RawStruct / RawCoClass in order
        self.forward: dict[str, Location] = {}
        self.imports: list[tuple[str, Location]] = []  # importlib("X.idl"): file as written

    # -- token helpers
    def peek(self, offset: int = 0) -> Token:
        return self.tokens[min(self.pos + offset, len(self.tokens) - 1)]

    def next(self) -> Token:
        tok = self.tokens[self.pos]
        if tok.kind != "eof":
            self.pos += 1
        return tok

    def at(self, text: str) -> bool:
        tok = self.peek()
        return tok.kind in ("punct", "ident") and tok.text == text

    def accept(self, text: str) -> bool:
        if self.at(text):
            self.next()
            return True
        return False

    def expect(self, text: str, what: Optional[str] = None) -> Token:
        tok = self.peek()
        if tok.kind in ("punct", "ident") and tok.text == text:
            return self.next()
        raise IdlError(tok.location, f"expected '{text}'{' ' + what if what else ''}, found {describe(tok)}")

    def ident(self, what: str) -> Token:
        tok = self.peek()
        if tok.kind != "ident":
            raise IdlError(tok.location, f"expected {what}, found {describe(tok)}")
        return self.next()

    def string(self, what: str) -> Token:
        tok = self.peek()
        if tok.kind != "string":
            raise IdlError(tok.location, f"expected {what} (a string literal), found {describe(tok)}")
        return self.next()

    # -- file level
    def parse(self) -> None:
        while self.peek().kind != "eof":
            self.declaration(top_level=True)

    def declaration(self, top_level: bool) -> None:
        tok = self.peek()
        if tok.kind == "ident" and tok.text == "import":
            self.next()
            self.string("a file name")
            while self.accept(","):
                self.string("a file name")
            self.expect(";")
            return
        if tok.kind == "ident" and tok.text in ("importlib", "cpp_quote"):
            self.next()
            self.expect("(")
            arg = self.string("an argument")
            self.expect(")")
            self.accept(";")
            # Another of our libraries, by its IDL: its declarations become usable here.
            # Compiled type libraries (stdole2.tlb) have nothing to offer and are skipped.
            if tok.text == "importlib" and arg.text.lower().endswith(".idl"):
                self.imports.append((arg.text, arg.location))
            return
        if self.accept(";"):
            return
        attrs = self.attributes() if self.at("[") else []
        kw = self.peek()
        if kw.kind != "ident":
            raise IdlError(kw.location, f"expected a declaration, found {describe(kw)}")
        if kw.text == "library":
            if not top_level:
                raise IdlError(kw.location, "a library cannot be nested")
            self.library(attrs)
        elif kw.text in ("interface", "dispinterface"):
            self.interface(attrs)
        elif kw.text == "typedef":
            self.next()
            type_attrs = self.attributes() if self.at("[") else []
            if self.at("struct"):
                self.struct(attrs + type_attrs)
            else:
                self.enum(attrs + type_attrs, typedef=True)
        elif kw.text == "enum":
            self.enum(attrs, typedef=False)
        elif kw.text == "coclass":
            self.coclass(attrs)
        else:
            raise IdlError(kw.location, f"expected a declaration, found {describe(kw)}")

    def library(self, attrs: list[Attribute]) -> None:
        kw = self.next()
        if self.library_name is not None:
            raise IdlError(kw.location, "only one library may be declared")
        check_attrs(attrs, LIBRARY_ATTRS, "a library")
        name = self.ident("the library name")
        self.library_attrs = attrs
        self.library_name = name.text
        self.library_location = name.location
        self.expect("{")
        while not self.at("}"):
            if self.peek().kind == "eof":
                raise IdlError(self.peek().location, f"missing '}}' at the end of library {name.text}")
            self.declaration(top_level=False)
        self.expect("}")
        self.accept(";")

    def attributes(self) -> list[Attribute]:
        self.expect("[")
        attrs: list[Attribute] = []
        if self.at("]"):
            self.next()
            return attrs
        while True:
            name = self.ident("an attribute")
            args = []
            if self.accept("("):
                if not self.at(")"):
                    while True:
                        args.append(self.attribute_argument())
                        if not self.accept(","):
                            break
                self.expect(")", "closing the attribute arguments")
            for a in attrs:
                if a.name == name.text:
                    raise IdlError(name.location, f"duplicate attribute '{name.text}'")
            attrs.append(Attribute(name.text, args, name.location))
            if self.accept("]"):
                return attrs
            self.expect(",", "or ']' between attributes")

    def attribute_argument(self):
        tok = self.peek()
        if tok.kind == "guid":
            self.next()
            return ("guid", tok.text, tok.location)
        if tok.kind == "string":
            self.next()
            return ("string", tok.text, tok.location)
        # version(1.0) and numeric or symbolic constants; expressions for defaultvalue.
        start = self.pos
        expr = self.expression()
        text = " ".join(t.text for t in self.tokens[start:self.pos])
        return ("expr", (expr, text), tok.location)

    # -- constant expressions (enum values, defaultvalue, id, version)
    # An expression is a tree: ("num", int|float, is_hex, text) | ("ident", name, loc) |
    # ("unary", op, e) | ("binary", op, a, b)
    BINARY_LEVELS = [["|"], ["^"], ["&"], ["<<", ">>"], ["+", "-"], ["*", "/", "%"]]

    def expression(self, level: int = 0):
        if level == len(self.BINARY_LEVELS):
            return self.unary()
        left = self.expression(level + 1)
        while self.peek().kind == "punct" and self.peek().text in self.BINARY_LEVELS[level]:
            op = self.next()
            right = self.expression(level + 1)
            left = ("binary", op.text, left, right, op.location)
        return left

    def unary(self):
        tok = self.peek()
        if tok.kind == "punct" and tok.text in ("-", "+", "~"):
            self.next()
            return ("unary", tok.text, self.unary(), tok.location)
        if self.accept("("):
            inner = self.expression()
            self.expect(")")
            return inner
        if tok.kind == "number":
            self.next()
            return ("num", parse_number(tok), tok.text.lower().startswith("0x"), tok.text, tok.location)
        if tok.kind == "ident":
            self.next()
            return ("ident", tok.text, tok.location)
        raise IdlError(tok.location, f"expected a constant, found {describe(tok)}")

    # -- types
    def type_ref(self) -> TypeRef:
        tok = self.peek()
        loc = tok.location
        if tok.kind != "ident":
            raise IdlError(loc, f"expected a type, found {describe(tok)}")
        const = self.accept("const")
        tok = self.ident("a type")
        name = tok.text
        element = None
        if name in ("unsigned", "signed"):
            nxt = self.peek()
            if nxt.kind == "ident" and nxt.text in ("char", "short", "long", "int", "hyper", "__int64"):
                self.next()
                name = f"{name} {nxt.text}"
                if name.startswith("signed "):
                    name = name[len("signed "):]
                if name == "unsigned hyper" or name == "unsigned __int64":
                    raise IdlError(loc, "unsigned 64-bit integers are not automation types")
            elif name == "unsigned":
                name = "unsigned int"
            else:
                name = "int"
        elif name in ("enum", "struct", "interface"):
            if name == "interface":
                raise IdlError(loc, "'interface' types are not supported in signatures")
            name = self.ident(f"an {name}eration name" if name == "enum" else "a struct name").text
        elif name == "SAFEARRAY":
            self.expect("(")
            element = self.type_ref()
            self.expect(")", "closing SAFEARRAY(")
        pointers = 0
        while self.accept("*"):
            pointers += 1
        return TypeRef(name, pointers, element, loc, const)

    # -- interfaces
    def interface(self, attrs: list[Attribute]) -> None:
        kw = self.next()
        is_disp = kw.text == "dispinterface"
        name = self.ident("an interface name")
        if self.accept(";"):  # forward declaration
            self.forward.setdefault(name.text, name.location)
            return
        base = None
        base_loc = None
        if self.accept(":"):
            if is_disp:
                raise IdlError(self.peek().location, "a dispinterface has no base interface")
            b = self.ident("a base interface")
            base, base_loc = b.text, b.location
        elif not is_disp:
            raise IdlError(self.peek().location, f"interface {name.text} needs a base interface (IUnknown, IDispatch or another interface)")
        check_attrs(attrs, DISPINTERFACE_ATTRS if is_disp else INTERFACE_ATTRS,
                    "a dispinterface" if is_disp else "an interface")
        self.expect("{")
        members: list[RawMember] = []
        if is_disp:
            section = None
            while not self.at("}"):
                if self.peek().kind == "eof":
                    raise IdlError(self.peek().location, f"missing '}}' at the end of {name.text}")
                if self.at("properties") and self.peek(1).text == ":":
                    self.next()
                    self.next()
                    section = "properties"
                    continue
                if self.at("methods") and self.peek(1).text == ":":
                    self.next()
                    self.next()
                    section = "methods"
                    continue
                if section is None:
                    raise IdlError(self.peek().location, "expected 'properties:' or 'methods:'")
                members.append(self.member(is_property=section == "properties"))
        else:
            while not self.at("}"):
                if self.peek().kind == "eof":
                    raise IdlError(self.peek().location, f"missing '}}' at the end of {name.text}")
                members.append(self.member(is_property=False))
        self.expect("}")
        self.accept(";")
        self.declarations.append(RawInterface(attrs, name.text, base, base_loc, is_disp, members, name.location))

    def member(self, is_property: bool) -> RawMember:
        attrs = self.attributes() if self.at("[") else []
        check_attrs(attrs, MEMBER_ATTRS, "a member")
        rtype = self.type_ref()
        name = self.ident("a member name")
        params: list[RawParam] = []
        if is_property:
            self.expect(";")
            return RawMember(attrs, rtype, name.text, params, True, name.location)
        self.expect("(", f"after {name.text}")
        if self.at("void") and self.peek(1).text == ")":
            self.next()
        elif not self.at(")"):
            while True:
                pattrs = self.attributes() if self.at("[") else []
                check_attrs(pattrs, PARAM_ATTRS, "a parameter")
                ptype = self.type_ref()
                pname = self.ident("a parameter name")
                params.append(RawParam(pattrs, ptype, pname.text, pname.location))
                if not self.accept(","):
                    break
        self.expect(")", f"closing the parameters of {name.text}")
        self.expect(";", f"after {name.text}(...)")
        return RawMember(attrs, rtype, name.text, params, False, name.location)

    # -- enumerations
    def enum(self, attrs: list[Attribute], typedef: bool) -> None:
        kw = self.expect("enum", "(only enumerations may be declared with typedef)")
        check_attrs(attrs, ENUM_ATTRS, "an enumeration")
        tag = None
        if self.peek().kind == "ident":
            tag = self.next()
        self.expect("{")
        members = []
        while not self.at("}"):
            mattrs = self.attributes() if self.at("[") else []
            check_attrs(mattrs, ENUM_MEMBER_ATTRS, "an enumeration member")
            mname = self.ident("an enumeration member")
            expr = None
            if self.accept("="):
                expr = self.expression()
            members.append((mattrs, mname.text, expr, mname.location))
            if not self.accept(","):
                break
        self.expect("}", "closing the enumeration")
        name_tok = tag
        if typedef:
            name_tok = self.ident("the enumeration's type name")
        if name_tok is None:
            raise IdlError(kw.location, "an enumeration needs a name")
        self.expect(";", "after the enumeration")
        self.declarations.append(RawEnum(attrs, name_tok.text, members, name_tok.location))

    # -- structs: typedef [attrs] struct [attrs] Name { type field; type field[N]; ... } Name;
    def struct(self, attrs: list[Attribute]) -> None:
        self.expect("struct")
        if self.at("["):
            attrs = attrs + self.attributes()
        check_attrs(attrs, STRUCT_ATTRS, "a struct")
        tag = self.ident("a struct name")
        self.expect("{")
        fields = []
        while not self.at("}"):
            if self.peek().kind == "eof":
                raise IdlError(self.peek().location, f"missing '}}' at the end of struct {tag.text}")
            ftype = self.type_ref()
            fname = self.ident("a field name")
            length = None
            if self.accept("["):
                count = self.peek()
                if count.kind != "number" or not count.text.isdigit() or int(count.text) == 0:
                    raise IdlError(count.location, "an array field needs a positive decimal length")
                self.next()
                length = int(count.text)
                self.expect("]")
            self.expect(";", f"after field {fname.text}")
            fields.append((ftype, fname.text, length, fname.location))
        self.expect("}", "closing the struct")
        name = self.ident("the struct's type name")
        if name.text != tag.text:
            raise IdlError(name.location, f"struct {tag.text} must be typedef'd under its own name")
        self.expect(";", "after the struct")
        self.declarations.append(RawStruct(attrs, tag.text, fields, tag.location))

    # -- coclasses
    def coclass(self, attrs: list[Attribute]) -> None:
        self.next()
        check_attrs(attrs, COCLASS_ATTRS, "a coclass")
        name = self.ident("a coclass name")
        self.expect("{")
        items = []
        while not self.at("}"):
            iattrs = self.attributes() if self.at("[") else []
            check_attrs(iattrs, COCLASS_ITEM_ATTRS, "a coclass interface")
            kw = self.peek()
            if not (kw.kind == "ident" and kw.text in ("interface", "dispinterface")):
                raise IdlError(kw.location, f"expected 'interface' or 'dispinterface', found {describe(kw)}")
            self.next()
            iname = self.ident("an interface name")
            self.expect(";")
            items.append((iattrs, kw.text == "dispinterface", iname.text, iname.location))
        self.expect("}")
        self.accept(";")
        self.declarations.append(RawCoClass(attrs, name.text, items, name.location))


def describe(tok: Token) -> str:
    if tok.kind == "eof":
        return "end of file"
    if tok.kind == "string":
        return f'"{tok.text}"'
    return f"'{tok.text}'"


def parse_number(tok: Token):
    text = tok.text
    t = text.rstrip("uUlL") if text.lower().startswith("0x") or "." not in text else text
    try:
        if t.lower().startswith("0x"):
            return int(t, 16)
        if "." in t or "e" in t.lower():
            return float(t)
        return int(t, 10)
    except ValueError:
        raise IdlError(tok.location, f"malformed number '{text}'") from None


def check_attrs(attrs: list[Attribute], allowed: set[str], what: str) -> None:
    for a in attrs:
        if a.name not in allowed:
            raise IdlError(a.location, f"attribute '{a.name}' is not allowed on {what}")


# ----------------------------------------------------------------------------------------
# Second pass: resolution and checks

INT32_MIN = -(1 << 31)
UINT32_MAX = (1 << 32) - 1


def to_int32(value: int, location: Location) -> int:
    if value < INT32_MIN or value > UINT32_MAX:
        raise IdlError(location, f"value {value} does not fit in 32 bits")
    return value - (1 << 32) if value > 0x7FFFFFFF else value


class Resolver:
    def __init__(self, parser: Parser, imports: Optional[list[Library]] = None,
                 import_locations: Optional[list[Location]] = None):
        self.p = parser
        self.imports = imports or []
        self.import_locations = import_locations or [Location(parser.filename, 1, 1)] * len(self.imports)
        self.imported: dict[str, str] = {}  # name declared by an imported library -> its library
        self.names: dict[str, tuple[str, Location]] = {}  # type name -> (kind, location)
        self.raw_interfaces: dict[str, RawInterface] = {}
        self.interfaces: dict[str, Interface] = {}
        self.enums: dict[str, Enum] = {}
        self.structs: dict[str, Struct] = {}
        self.constants: dict[str, int] = {}  # enum members by name
        # Where each enum member is declared: "enumeration E at file:line:col", for errors.
        self.constant_origins: dict[str, tuple[Location, str]] = {}
        self.guids: dict[str, Location] = {}

    def single_arg(self, attr: Attribute, kinds: tuple, what: str):
        if len(attr.args) != 1 or attr.args[0][0] not in kinds:
            raise IdlError(attr.location, f"{attr.name}(...) takes {what}")
        return attr.args[0]

    def guid(self, attrs: list[Attribute], owner: str, location: Location, required: bool = True) -> Optional[str]:
        a = _find(attrs, "uuid")
        if a is None:
            if required:
                raise IdlError(location, f"{owner} needs a uuid(...) attribute")
            return None
        _, value, loc = self.single_arg(a, ("guid",), "a GUID")
        if value in self.guids:
            first = self.guids[value]
            raise IdlError(loc, f"uuid {value} is already used at {first.line}:{first.column}")
        self.guids[value] = loc
        return value

    def helpstring(self, attrs: list[Attribute]) -> Optional[str]:
        a = _find(attrs, "helpstring")
        if a is None:
            return None
        return self.single_arg(a, ("string",), "a string")[1]

    def declare(self, name: str, kind: str, location: Location) -> None:
        if name in CPP_KEYWORDS:
            raise IdlError(location, f"'{name}' is reserved in the generated C++")
        if name in self.imported:
            raise IdlError(location, f"'{name}' is already declared by the imported library {self.imported[name]}")
        if name in self.names:
            first = self.names[name][1]
            raise IdlError(location, f"'{name}' is already declared at {first.line}:{first.column}")
        if name in BASE_TYPES or name in STANDARD_INTERFACES or name in ("IUnknown", "IDispatch", "VARIANT",
                                                                        "SAFEARRAY", "HRESULT", "void"):
            raise IdlError(location, f"'{name}' is a predefined type")
        self.names[name] = (kind, location)

    def resolve(self) -> Library:
        p = self.p
        if p.library_name is None:
            raise IdlError(Location(p.filename, 1, 1), "no library declared")
        attrs = p.library_attrs or []
        libid = self.guid(attrs, f"library {p.library_name}", p.library_location)
        major, minor = 1, 0
        va = _find(attrs, "version")
        if va is not None:
            _, (_expr, text), loc = self.single_arg(va, ("expr",), "a version such as 1.0")
            m = re.fullmatch(r"(\d+)(?:\.(\d+))?", text)
            if m is None:
                raise IdlError(loc, f"malformed version '{text}'")
            major, minor = int(m.group(1)), int(m.group(2) or 0)
            if major > 0xFFFF or minor > 0xFFFF:
                raise IdlError(loc, "version numbers must fit in 16 bits")
        lib = Library(p.library_name, libid, major, minor, self.helpstring(attrs), p.filename)
        lib.imports = list(self.imports)
        for imported, location in zip(self.imports, self.import_locations):
            self.import_declarations(imported, location)

        # Names first, so that any declaration may refer to a later one.
        for d in p.declarations:
            kind = {RawInterface: "interface", RawEnum: "enum", RawStruct: "struct", RawCoClass: "coclass"}[type(d)]
            if isinstance(d, RawInterface) and d.is_dispinterface:
                kind = "dispinterface"
            self.declare(d.name, kind, d.location)
            if isinstance(d, RawInterface):
                self.raw_interfaces[d.name] = d
        for name, loc in p.forward.items():
            if name not in self.names:
                raise IdlError(loc, f"interface {name} is declared but never defined")

        # Enumerations before interfaces: members may use their constants as defaults.
        for d in p.declarations:
            if isinstance(d, RawEnum):
                e = self.enum(d)
                self.enums[e.name] = e
                lib.enums.append(e)
        for d in p.declarations:
            if isinstance(d, RawStruct):
                st = self.struct(d)
                self.structs[st.name] = st
                lib.structs.append(st)
        for d in p.declarations:
            if isinstance(d, RawInterface):
                iface = self.interface(d)
                self.interfaces[iface.name] = iface
                lib.interfaces.append(iface)
        for d in p.declarations:
            if isinstance(d, RawCoClass):
                lib.coclasses.append(self.coclass(d))
        check_library(lib, self.interfaces)
        return lib

    def import_declarations(self, imported: Library, import_location: Location) -> None:
        """Makes the interfaces, enumerations and coclasses of an imported library known by
        name: they can be used in signatures, derived from and listed in coclasses, and
        nothing is generated for them here."""
        def known(name: str, kind: str, location: Location) -> None:
            if name in self.imported:
                return  # the same declaration reached through two imports
            self.imported[name] = imported.name
            self.names[name] = (kind, location)
        for iface in imported.interfaces:
            known(iface.name, "dispinterface" if iface.kind == "DispInterface" else "interface", iface.location)
            self.interfaces[iface.name] = iface
        for e in imported.enums:
            known(e.name, "enum", e.location)
            self.enums[e.name] = e
            for m in e.members:
                # Enumerators share the global C++ namespace: two libraries may not both declare one.
                origin = self.constant_origins.get(m.name)
                if origin is not None and origin[0] != m.location:
                    raise IdlError(import_location, f"enumeration member '{m.name}' of {imported.name}.{e.name} "
                                                    f"is already declared by {origin[1]}")
                self.constants[m.name] = m.value
                self.constant_origins[m.name] = (m.location, f"enumeration {e.name} of {imported.name} at {m.location}")
        for st in imported.structs:
            known(st.name, "struct", st.location)
            self.structs[st.name] = st
        for c in imported.coclasses:
            known(c.name, "coclass", c.location)

    # -- enumerations
    def evaluate(self, expr) -> int:
        tag = expr[0]
        if tag == "num":
            if isinstance(expr[1], float):
                raise IdlError(expr[4], f"'{expr[3]}' is not an integer")
            return expr[1]
        if tag == "ident":
            if expr[1] not in self.constants:
                raise IdlError(expr[2], f"unknown constant '{expr[1]}'")
            return self.constants[expr[1]]
        if tag == "unary":
            v = self.evaluate(expr[2])
            return {"-": -v, "+": v, "~": ~v}[expr[1]]
        _, op, a, b, loc = expr
        x, y = self.evaluate(a), self.evaluate(b)
        if op in ("/", "%") and y == 0:
            raise IdlError(loc, "division by zero")
        if op in ("<<", ">>") and not 0 <= y < 32:
            raise IdlError(loc, f"shift count {y} out of range")
        return {"|": x | y, "^": x ^ y, "&": x & y, "<<": x << y, ">>": x >> y, "+": x + y, "-": x - y,
                "*": x * y, "/": int(x / y), "%": x - int(x / y) * y}[op]

    @staticmethod
    def start(expr) -> Location:
        """Where an expression begins, for errors about its value."""
        while expr[0] == "binary":
            expr = expr[2]
        return {"num": expr[-1], "ident": expr[2], "unary": expr[-1]}[expr[0]]

    @staticmethod
    def is_hex(expr) -> bool:
        while expr[0] == "unary":
            expr = expr[2]
        return expr[0] == "num" and expr[2]

    def enum(self, d: RawEnum) -> Enum:
        uuid = self.guid(d.attrs, f"enumeration {d.name}", d.location, required=False)
        members: list[EnumMember] = []
        previous: Optional[EnumMember] = None
        for attrs, name, expr, loc in d.members:
            if name in self.constant_origins:
                raise IdlError(loc, f"'{name}' is already declared by {self.constant_origins[name][1]}")
            if name in self.names:
                raise IdlError(loc, f"'{name}' is already declared")
            if name in CPP_KEYWORDS:
                raise IdlError(loc, f"'{name}' is reserved in the generated C++")
            if expr is None:
                value = 0 if previous is None else previous.value + 1
                if value > 0x7FFFFFFF:
                    raise IdlError(loc, f"implicit value of {name} overflows 32 bits")
                hex_ = previous.written_hex if previous else False
            else:
                value = to_int32(self.evaluate(expr), self.start(expr))
                hex_ = self.is_hex(expr)
            m = EnumMember(name, value, hex_, self.helpstring(attrs), loc)
            members.append(m)
            self.constants[name] = value
            self.constant_origins[name] = (loc, f"enumeration {d.name} at {loc.line}:{loc.column}")
            previous = m
        return Enum(d.name, uuid, self.helpstring(d.attrs), members, d.location)

    # -- structs
    def struct(self, d: RawStruct) -> Struct:
        uuid = self.guid(d.attrs, f"struct {d.name}", d.location, required=False)
        fields: list[StructField] = []
        seen: set[str] = set()
        for ref, name, length, loc in d.fields:
            if name in CPP_KEYWORDS:
                raise IdlError(loc, f"field name '{name}' is reserved in the generated C++")
            if name in seen:
                raise IdlError(loc, f"duplicate field name '{name}'")
            seen.add(name)
            if ref.element is not None:
                raise IdlError(ref.location, "a struct holds numbers and pointers, not SAFEARRAYs")
            if ref.pointers == 0:
                # Held by value: a number, an enumeration or a struct defined before this one.
                kind = self.names.get(ref.name, ("", None))[0]
                if not (ref.name in BASE_TYPES and BASE_TYPES[ref.name][0] not in (VT_BSTR,)) and kind != "enum" and not (
                        kind == "struct" and ref.name in self.structs):
                    if kind == "struct":
                        raise IdlError(ref.location, f"struct {ref.name} must be defined before {d.name} holds it")
                    raise IdlError(ref.location, f"a struct field is a number, an enumeration, a struct or a "
                                                 f"pointer, not '{ref.spelled()}'")
            fields.append(StructField(name, self.native_cpp(ref, ref.pointers), length, loc))
        if not fields:
            raise IdlError(d.location, f"struct {d.name} has no fields")
        return Struct(d.name, uuid, self.helpstring(d.attrs), fields, d.location)

    def native_cpp(self, ref: TypeRef, pointers: int) -> str:
        """The C++ spelling of a type of a [local] member or a struct field, with `pointers`
        pointer levels."""
        name = ref.name
        if ref.element is not None:
            cpp = "SAFEARRAY"
            pointers += 1  # SAFEARRAY(T) is a SAFEARRAY* in C++
        elif name in BASE_TYPES:
            cpp = BASE_TYPES[name][1]
        elif name == "void":
            if pointers == 0:
                raise IdlError(ref.location, "'void' is only a pointer target")
            cpp = "void"
        elif name in self.names or name in STANDARD_INTERFACES or name in ("IUnknown", "IDispatch", "VARIANT"):
            if self.names.get(name, ("", None))[0] in ("coclass", "dispinterface"):
                raise IdlError(ref.location, f"{self.names[name][0]} {name} is not a type")
            cpp = name
        else:
            raise IdlError(ref.location, f"unknown type '{name}'")
        return ("const " if ref.const else "") + cpp + "*" * pointers

    def local_type(self, ref: TypeRef, pointers: int) -> Type:
        """A parameter type of a [local] member: an automation type keeps its usual mapping
        (so that [out] double* reads as in any interface); any other C type is passed as written."""
        try:
            if not ref.const:
                return self.value_type(ref, pointers)
        except IdlError:
            pass
        if ref.element is not None and pointers != 0:
            raise IdlError(ref.location, f"'{ref.spelled()}' has one pointer too many")
        cpp = self.native_cpp(ref, pointers)
        spelled = ref.spelled()
        if pointers < ref.pointers:
            spelled = spelled[:len(spelled) - (ref.pointers - pointers)]
        return Type("native", spelled, VT_EMPTY, cpp, None)

    # -- types
    def value_type(self, ref: TypeRef, pointers: int) -> Type:
        """The automation type of `ref` with `pointers` pointer levels already removed."""
        loc = ref.location
        spelled = ref.spelled()
        if ref.element is not None:
            if pointers != 0:
                raise IdlError(loc, f"'{spelled}' is not an automation type (use SAFEARRAY(T) or SAFEARRAY(T)* for out)")
            elem = self.value_type(ref.element, ref.element.pointers)
            if elem.kind == "array":
                raise IdlError(loc, "a SAFEARRAY of SAFEARRAYs is not supported")
            return Type("array", f"SAFEARRAY({ref.element.spelled()})", VT_ARRAY | elem.vt, "SAFEARRAY*", "parray")
        name = ref.name
        if name in BASE_TYPES:
            if pointers != 0:
                raise IdlError(loc, f"'{spelled}' has one pointer too many")
            vt, cpp, field = BASE_TYPES[name]
            return Type("scalar", name, vt, cpp, field)
        if name == "VARIANT":
            if pointers != 0:
                raise IdlError(loc, f"'{spelled}' has one pointer too many")
            return Type("variant", name, VT_VARIANT, "VARIANT", None)
        if name in ("IUnknown", "IDispatch") or name in STANDARD_INTERFACES or (
                name in self.names and self.names[name][0] == "interface"):
            if pointers != 1:
                raise IdlError(loc, f"an interface is passed by pointer: '{name}*' ('{name}**' for out)")
            if name == "IUnknown":
                return Type("interface", "IUnknown*", VT_UNKNOWN, "IUnknown*", "punkVal")
            if name == "IDispatch":
                return Type("interface", "IDispatch*", VT_DISPATCH, "IDispatch*", "pdispVal")
            vt = VT_UNKNOWN
            if name not in STANDARD_INTERFACES and self.interface_root(name) == "IDispatch":
                vt = VT_DISPATCH
            return Type("interface", f"{name}*", vt, f"{name}*", "punkVal", f"&{name}::iid", name)
        if name in self.names and self.names[name][0] == "enum":
            if pointers != 0:
                raise IdlError(loc, f"'{spelled}' has one pointer too many")
            return Type("enum", name, VT_I4, name, "lVal")
        if name in self.names and self.names[name][0] == "dispinterface":
            raise IdlError(loc, f"dispinterface {name} cannot be passed; use IDispatch*")
        if name in self.names and self.names[name][0] == "struct":
            raise IdlError(loc, f"struct {name} cannot cross a dispatch interface; only [local] interfaces take structs")
        if name in self.names:
            raise IdlError(loc, f"{self.names[name][0]} {name} is not a type")
        if name in ("void", "HRESULT"):
            raise IdlError(loc, f"'{name}' is not a parameter type")
        raise IdlError(loc, f"unknown type '{name}'")

    def interface_root(self, name: str) -> str:
        seen = set()
        while name in self.raw_interfaces:
            if name in seen:
                raise IdlError(self.raw_interfaces[name].location, f"interface {name} derives from itself")
            seen.add(name)
            raw = self.raw_interfaces[name]
            if raw.is_dispinterface:
                return "IDispatch"
            name = raw.base
        if name in self.imported and name in self.interfaces:
            return "IDispatch" if self.interfaces[name].base_is_dispatch else "IUnknown"
        return name

    # -- interfaces
    def interface(self, d: RawInterface) -> Interface:
        iid = self.guid(d.attrs, f"interface {d.name}", d.location)
        help_ = self.helpstring(d.attrs)
        if d.is_dispinterface:
            members = self.dispinterface_members(d)
            return Interface(d.name, iid, "DispInterface", None, True, help_, members, d.location)
        base = d.base
        if base not in ("IUnknown", "IDispatch"):
            if base in STANDARD_INTERFACES:
                raise IdlError(d.base_location, f"interfaces cannot derive from {base}")
            if base not in self.names:
                raise IdlError(d.base_location, f"unknown base interface '{base}'")
            if self.names[base][0] != "interface":
                raise IdlError(d.base_location, f"{self.names[base][0]} {base} cannot be a base interface")
            if base not in self.interfaces:
                raise IdlError(d.base_location, f"base interface {base} must be defined before {d.name}")
        root = self.interface_root(d.name)
        dual = _find(d.attrs, "dual") is not None
        local = _find(d.attrs, "local") is not None
        if dual and local:
            raise IdlError(_find(d.attrs, "local").location, f"interface {d.name} cannot be both dual and [local]")
        if dual and root != "IDispatch":
            raise IdlError(_find(d.attrs, "dual").location, f"dual interface {d.name} must derive from IDispatch")
        if local and root != "IUnknown":
            raise IdlError(d.base_location, f"[local] interface {d.name} must derive from IUnknown or a vtable interface")
        if not local and base in self.interfaces and self.interfaces[base].kind == "Local":
            raise IdlError(d.base_location, f"{d.name} must be [local] to derive from [local] interface {base}")
        kind = "Local" if local else "Dual" if root == "IDispatch" else "Custom"
        members = [self.method(d, m, kind) for m in d.members]
        self.check_members(d.name, members, kind, base)
        return Interface(d.name, iid, kind, None if base in ("IUnknown", "IDispatch") else base,
                         root == "IDispatch", help_, members, d.location)

    def member_dispid(self, iface: str, m: RawMember, kind: str, index: int) -> int:
        a = _find(m.attrs, "id")
        if a is None:
            if kind not in ("Custom", "Local"):
                raise IdlError(m.location, f"member {m.name} of {iface} needs an id(...) attribute")
            return 0x60000000 + index
        _, (expr, _text), loc = self.single_arg(a, ("expr",), "a DISPID")
        return to_int32(self.evaluate(expr), self.start(expr))

    def method(self, d: RawInterface, m: RawMember, kind: str) -> Member:
        if m.name in CPP_KEYWORDS:
            raise IdlError(m.location, f"member name '{m.name}' is reserved in the generated C++")
        if m.return_type.name != "HRESULT" or m.return_type.pointers or m.return_type.element:
            raise IdlError(m.return_type.location, f"method {m.name} of {d.name} must return HRESULT")
        flags = [f for f in ("propget", "propput", "propputref") if _find(m.attrs, f)]
        if len(flags) > 1:
            raise IdlError(m.location, f"{m.name}: only one of propget, propput, propputref")
        invoke = {"propget": INVOKE_PROPERTYGET, "propput": INVOKE_PROPERTYPUT,
                  "propputref": INVOKE_PROPERTYPUTREF}.get(flags[0] if flags else "", INVOKE_FUNC)
        dispid = self.member_dispid(d.name, m, kind, d.members.index(m))
        params = [self.param(m, rp, local=kind == "Local") for rp in m.params]
        self.check_params(m, params, invoke)
        return Member(m.name, dispid, invoke, params, self.helpstring(m.attrs), m.location)

    def param(self, m: RawMember, rp: RawParam, local: bool = False) -> Param:
        if rp.name in CPP_KEYWORDS:
            raise IdlError(rp.location, f"parameter name '{rp.name}' is reserved in the generated C++")
        # In C++ a parameter named like a type hides the type for the parameters after it.
        if rp.name in self.names or rp.name in BASE_TYPES or rp.name in STANDARD_INTERFACES or rp.name in (
                "IUnknown", "IDispatch", "VARIANT", "SAFEARRAY", "HRESULT"):
            raise IdlError(rp.location, f"parameter name '{rp.name}' is the name of a type")
        has_in = _find(rp.attrs, "in") is not None
        has_out = _find(rp.attrs, "out") is not None
        retval = _find(rp.attrs, "retval") is not None
        optional = _find(rp.attrs, "optional") is not None
        default_attr = _find(rp.attrs, "defaultvalue")
        if _find(rp.attrs, "lcid"):
            raise IdlError(_find(rp.attrs, "lcid").location, "lcid parameters are not supported")
        if not has_in and not has_out:
            has_in = True
        if retval and (not has_out or has_in):
            raise IdlError(rp.location, f"retval parameter {rp.name} must be [out, retval]")
        flags = (PARAMFLAG_FIN if has_in else 0) | (PARAMFLAG_FOUT if has_out else 0)
        if retval:
            flags |= PARAMFLAG_FRETVAL
        type_of = self.local_type if local else self.value_type
        if has_out:
            if rp.type.pointers < 1 or (rp.type.element is not None and rp.type.pointers != 1):
                raise IdlError(rp.type.location, f"out parameter {rp.name} must be a pointer")
            vtype = type_of(rp.type, rp.type.pointers - 1)
        else:
            vtype = type_of(rp.type, rp.type.pointers)
        default = None
        default_is_string = False
        if optional or default_attr is not None:
            if has_out:
                raise IdlError(rp.location, f"out parameter {rp.name} cannot be optional")
            flags |= PARAMFLAG_FOPT
        if default_attr is not None:
            flags |= PARAMFLAG_FHASDEFAULT
            default, default_is_string = self.default_value(default_attr, vtype, rp)
        return Param(rp.name, vtype, flags, default, default_is_string, rp.location)

    def default_value(self, attr: Attribute, vtype: Type, rp: RawParam):
        kind, value, loc = self.single_arg(attr, ("string", "expr"), "one constant")
        if kind == "string":
            if vtype.kind not in ("variant",) and vtype.vt != VT_BSTR:
                raise IdlError(loc, f"a string cannot be the default of {vtype.idl_name} parameter {rp.name}")
            return value, True
        expr, text = value
        if vtype.kind in ("interface", "array", "native"):
            if not (expr[0] == "num" and expr[1] == 0):
                raise IdlError(loc, f"the default of {vtype.idl_name} parameter {rp.name} can only be 0")
            return "0", False
        if expr[0] == "ident" and expr[1] in ("VARIANT_TRUE", "VARIANT_FALSE"):
            # Kept by name, so that a VARIANT parameter receives a boolean, not a number.
            if vtype.vt not in (VT_BOOL, VT_VARIANT):
                raise IdlError(loc, f"{expr[1]} cannot be the default of {vtype.idl_name} parameter {rp.name}")
            return expr[1], False
        if self._is_float(expr):
            if vtype.vt not in (VT_R4, VT_R8, VT_VARIANT, VT_DATE, VT_CY):
                raise IdlError(loc, f"'{text}' is not an integer default for {vtype.idl_name} parameter {rp.name}")
            return text.replace(" ", ""), False
        # Hex and symbolic constants are written out as their decimal values.
        value = self.evaluate(expr)
        return str(value if vtype.vt == VT_I8 else to_int32(value, loc)), False

    @staticmethod
    def _is_float(expr) -> bool:
        while expr[0] == "unary":
            expr = expr[2]
        return expr[0] == "num" and isinstance(expr[1], float)

    def check_params(self, m: RawMember, params: list[Param], invoke: int) -> None:
        names = set()
        for i, p in enumerate(params):
            if p.name.lower() in names:
                raise IdlError(p.location, f"duplicate parameter name '{p.name}'")
            names.add(p.name.lower())
            if p.is_retval and i != len(params) - 1:
                raise IdlError(p.location, f"retval parameter {p.name} must be the last parameter")
        regular = [p for p in params if not p.is_retval]
        seen_optional = None
        for p in regular:
            if p.flags & PARAMFLAG_FOPT:
                seen_optional = p
            elif seen_optional is not None:
                raise IdlError(p.location, f"parameter {p.name} follows optional parameter {seen_optional.name} "
                                           "and must be optional too")
        if invoke == INVOKE_PROPERTYGET:
            if not params or not params[-1].is_retval:
                raise IdlError(m.location, f"property get {m.name} needs an [out, retval] last parameter")
            if any(p.is_out for p in params[:-1]):
                raise IdlError(m.location, f"property get {m.name} takes only [in] parameters besides its retval")
        if invoke in (INVOKE_PROPERTYPUT, INVOKE_PROPERTYPUTREF):
            if not params:
                raise IdlError(m.location, f"property put {m.name} needs the new value as its last parameter")
            if any(p.is_out for p in params):
                raise IdlError(m.location, f"property put {m.name} takes only [in] parameters")
            if params[-1].flags & PARAMFLAG_FOPT:
                raise IdlError(params[-1].location, f"the value of property put {m.name} cannot be optional")

    def check_members(self, iface: str, members: list[Member], kind: str, base: Optional[str]) -> None:
        by_key: dict[tuple, Member] = {}
        by_dispid: dict[int, Member] = {}
        by_name: dict[str, Member] = {}
        inherited: dict[str, Member] = {}
        cpp_names: dict[str, Member] = {}
        b = base
        while b in self.interfaces:
            for m in self.interfaces[b].members:
                inherited.setdefault(m.cpp_name, m)
            b = self.interfaces[b].base
        for m in members:
            if m.cpp_name in inherited:
                raise IdlError(m.location, f"{m.cpp_name} is already declared by a base of {iface}")
            if m.cpp_name in cpp_names and cpp_names[m.cpp_name].name != m.name:
                raise IdlError(m.location, f"{m.name} and {cpp_names[m.cpp_name].name} both become "
                                           f"{m.cpp_name} in C++")
            cpp_names.setdefault(m.cpp_name, m)
            other = by_dispid.get(m.dispid)
            if other is not None and other.name != m.name:
                raise IdlError(m.location, f"DISPID {m.dispid:#x} of {m.name} is already used by {other.name}")
            key = (m.dispid, m.invoke_kind)
            if key in by_key:
                raise IdlError(m.location, f"{iface} already has a {kind_text(m.invoke_kind)} with DISPID {m.dispid:#x}")
            by_key[key] = m
            other = by_name.get(m.name.lower())
            if other is not None and other.dispid != m.dispid:
                raise IdlError(m.location, f"{m.name} has DISPID {m.dispid:#x} but was declared with {other.dispid:#x}")
            if other is not None and (other.invoke_kind == INVOKE_FUNC or m.invoke_kind == INVOKE_FUNC):
                raise IdlError(m.location, f"{iface} already has a member named {other.name}")
            if other is not None and other.name != m.name:
                raise IdlError(m.location, f"{m.name} differs from {other.name} only in case")
            by_dispid.setdefault(m.dispid, m)
            by_name.setdefault(m.name.lower(), m)

    def dispinterface_members(self, d: RawInterface) -> list[Member]:
        members: list[Member] = []
        for m in d.members:
            dispid = self.member_dispid(d.name, m, "DispInterface", 0)
            help_ = self.helpstring(m.attrs)
            if m.is_property:
                vtype = self.value_type(m.return_type, m.return_type.pointers)
                get = Param("value", vtype, PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, None, False, m.location)
                put = Param("value", vtype, PARAMFLAG_FIN, None, False, m.location)
                members.append(Member(m.name, dispid, INVOKE_PROPERTYGET, [get], help_, m.location))
                if not _find(m.attrs, "readonly"):
                    members.append(Member(m.name, dispid, INVOKE_PROPERTYPUT, [put], help_, m.location))
                continue
            params = [self.param(m, rp) for rp in m.params]
            rt = m.return_type
            if rt.name == "void" and rt.pointers == 0 and rt.element is None:
                returns_void = True
            elif rt.name == "HRESULT" and rt.pointers == 0:
                raise IdlError(rt.location, f"dispinterface method {m.name} returns its result directly, not HRESULT")
            else:
                returns_void = False
                params.append(Param("retval", self.value_type(rt, rt.pointers),
                                    PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, None, False, rt.location))
            self.check_params(m, params, INVOKE_FUNC)
            members.append(Member(m.name, dispid, INVOKE_FUNC, params, help_, m.location, returns_void))
        self.check_members(d.name, members, "DispInterface", None)
        return members

    # -- coclasses
    def coclass(self, d: RawCoClass) -> CoClass:
        clsid = self.guid(d.attrs, f"coclass {d.name}", d.location)
        pa = _find(d.attrs, "progid")
        if pa is not None:
            progid = self.single_arg(pa, ("string",), "a string")[1]
            if not re.fullmatch(r"[A-Za-z_][A-Za-z0-9_]*(\.[A-Za-z_][A-Za-z0-9_]*)+(\.\d+)?", progid):
                raise IdlError(pa.location, f"malformed ProgID '{progid}'")
            m = re.fullmatch(r"(.*)\.\d+", progid)
            vi_progid = m.group(1) if m else progid
        else:
            vi_progid = f"Tessaly.{d.name}"
            progid = vi_progid + ".1"
        items: list[CoClassInterface] = []
        seen = set()
        for attrs, is_disp, name, loc in d.items:
            kind = self.names.get(name, ("", None))[0]
            expected = "dispinterface" if is_disp else "interface"
            if kind != expected:
                if kind in ("interface", "dispinterface"):
                    raise IdlError(loc, f"{name} is {'a ' + kind if kind == 'dispinterface' else 'an interface'}, "
                                        f"not {'a dispinterface' if is_disp else 'an interface'}")
                raise IdlError(loc, f"unknown {expected} '{name}'")
            if name in seen:
                raise IdlError(loc, f"{name} is listed twice in coclass {d.name}")
            seen.add(name)
            flags = 0
            if _find(attrs, "default"):
                flags |= IMPLTYPEFLAG_FDEFAULT
            if _find(attrs, "source"):
                flags |= IMPLTYPEFLAG_FSOURCE
            if _find(attrs, "restricted"):
                flags |= IMPLTYPEFLAG_FRESTRICTED
            if is_disp and not flags & IMPLTYPEFLAG_FSOURCE:
                raise IdlError(loc, f"dispinterface {name} can only be a [source] of coclass {d.name}")
            if self.is_local(name) and flags & (IMPLTYPEFLAG_FSOURCE | IMPLTYPEFLAG_FDEFAULT):
                raise IdlError(loc, f"[local] interface {name} cannot be a default or source interface")
            items.append(CoClassInterface(name, flags, loc))
        for source in (0, IMPLTYPEFLAG_FSOURCE):
            group = [i for i in items if i.flags & IMPLTYPEFLAG_FSOURCE == source]
            defaults = [i for i in group if i.flags & IMPLTYPEFLAG_FDEFAULT]
            if len(defaults) > 1:
                raise IdlError(defaults[1].location, f"coclass {d.name} has more than one [default"
                                                     f"{', source' if source else ''}] interface")
            # Without a [default], the first interface of the group is the default, as usual in IDL;
            # a [local] interface is never reached through dispatch, so it cannot be one.
            candidates = [i for i in group if not self.is_local(i.name)]
            if candidates and not defaults:
                candidates[0].flags |= IMPLTYPEFLAG_FDEFAULT
        if not items:
            raise IdlError(d.location, f"coclass {d.name} lists no interface")
        creatable = _find(d.attrs, "noncreatable") is None
        return CoClass(d.name, clsid, self.helpstring(d.attrs), creatable, progid, vi_progid, items, d.location)


    def is_local(self, name: str) -> bool:
        return name in self.interfaces and self.interfaces[name].kind == "Local"


def kind_text(invoke: int) -> str:
    return {INVOKE_FUNC: "method", INVOKE_PROPERTYGET: "property get", INVOKE_PROPERTYPUT: "property put",
            INVOKE_PROPERTYPUTREF: "property putref"}[invoke]


def parse(text: str, filename: str, _importing: tuple[str, ...] = ()) -> Library:
    """Parses IDL text; raises IdlError on the first error. importlib("X.idl") names a file
    relative to the directory of `filename`."""
    parser = Parser(text, filename)
    parser.parse()
    imports: list[Library] = []
    import_locations: list[Location] = []
    here = os.path.abspath(filename)
    for written, location in parser.imports:
        path = os.path.normpath(os.path.join(os.path.dirname(here), written))
        if path == here or path in _importing:
            raise IdlError(location, f"importlib(\"{written}\") imports a library that imports this one")
        try:
            with open(path, encoding="utf-8") as f:
                source = f.read()
        except OSError as e:
            raise IdlError(location, f"cannot read imported library {written}: {e.strerror}") from None
        imports.append(parse(source, path, _importing + (here,)))
        import_locations.append(location)
    return Resolver(parser, imports, import_locations).resolve()


def parse_file(path: str) -> Library:
    with open(path, encoding="utf-8") as f:
        return parse(f.read(), path)
