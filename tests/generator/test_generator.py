"""Tests of the type library generator (typelib/generator): what the parser accepts and
refuses, where it reports errors, how it maps IDL to automation types, C++ declarations
and thunks, and that the library's own IDL files carry the values clients rely on.

Run: python3 -m unittest discover -s tests/generator  (ctest runs it the same way).
"""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GENERATOR = os.path.join(ROOT, "typelib", "generator")
sys.dont_write_bytecode = True  # the generator's folder is part of the source tree
sys.path.insert(0, GENERATOR)

import idl_ast  # noqa: E402
from dispatch_writer import write_dispatch  # noqa: E402
from header_writer import write_header  # noqa: E402
from idl_ast import IdlError  # noqa: E402
from idl_parser import parse  # noqa: E402
from typeinfo_writer import write_typeinfo  # noqa: E402

LIB_HEAD = '[uuid(11111111-2222-3333-4444-555555555555), version(1.0)]\nlibrary L {\n'
IID_DUAL = "A0000000-0000-0000-0000-000000000001"


def lib(body: str) -> str:
    """IDL of library L around `body`; body's first line is line 3 of the file."""
    return LIB_HEAD + textwrap.dedent(body) + "};\n"


def dual(body: str, name: str = "IX", iid: str = IID_DUAL, base: str = "IDispatch") -> str:
    return (f"[object, uuid({iid}), dual, oleautomation]\n"
            f"interface {name} : {base} {{\n{textwrap.dedent(body)}}};\n")


def parse_lib(body: str):
    return parse(lib(body), "t.idl")


class ErrorTests(unittest.TestCase):
    """Every refusal names file, line and column of the offending token."""

    def assertIdlError(self, text: str, line: int, column: int, fragment: str):
        with self.assertRaises(IdlError) as caught:
            parse(text, "dir/t.idl")
        e = caught.exception
        self.assertEqual((e.location.line, e.location.column), (line, column), str(e))
        self.assertIn(fragment, e.message)
        self.assertTrue(str(e).startswith(f"dir/t.idl:{line}:{column}: error: "), str(e))

    def test_lexical_errors(self):
        self.assertIdlError(lib('[helpstring("open)] enum E { a } ;\n'), 3, 13, "unterminated string")
        self.assertIdlError(lib("/* never closed\n"), 3, 1, "unterminated comment")
        self.assertIdlError(lib("enum E { a = @ };\n"), 3, 14, "unexpected character '@'")
        self.assertIdlError(lib("#include <x>\n"), 3, 1, "preprocessor")
        self.assertIdlError(lib(dual("[id(0x12g)] HRESULT F();\n")), 5, 5, "malformed number")
        self.assertIdlError(lib("[uuid(1234-5678)] coclass C { };\n"), 3, 7, "malformed uuid")

    def test_syntax_errors_point_at_the_unexpected_token(self):
        # Missing ';' after a method: reported at the next token.
        self.assertIdlError(lib(dual("[id(1)] HRESULT F()\n[id(2)] HRESULT G();\n")), 6, 1, "expected ';'")
        self.assertIdlError(lib(dual("[id(1), propgett] HRESULT F();\n")), 5, 9, "'propgett' is not allowed")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] long a, [in] long a);\n")), 5, 42,
                            "duplicate parameter name")
        self.assertIdlError(LIB_HEAD + "enum E { a };\n", 4, 1, "missing '}' at the end of library L")
        self.assertIdlError(lib("interface IX : IDispatch { };\n"), 3, 11, "needs a uuid")
        self.assertIdlError(lib("[uuid(11111111-2222-3333-4444-555555555555)] coclass C { interface IY; };\n"),
                            3, 7, "already used")

    def test_type_errors(self):
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] Widget* w);\n")), 5, 24, "unknown type 'Widget'")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([out] long value);\n")), 5, 25, "must be a pointer")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] long* value);\n")), 5, 24, "one pointer too many")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] IDispatch d);\n")), 5, 24, "passed by pointer")
        self.assertIdlError(lib(dual("[id(1)] long F();\n")), 5, 9, "must return HRESULT")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] long long);\n")), 5, 29, "reserved")
        self.assertIdlError(lib("typedef enum E { a } E;\n" + dual("[id(1)] HRESULT F([in] E E);\n")),
                            6, 26, "name of a type")

    def test_member_rules(self):
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([out, retval] long* r, [in] long a);\n")), 5, 39,
                            "must be the last")
        self.assertIdlError(lib(dual("[id(1), propget] HRESULT P([in] long a);\n")), 5, 26, "[out, retval]")
        self.assertIdlError(lib(dual("[id(1), propput] HRESULT P([in] long a, [out] long* b);\n")), 5, 26,
                            "only [in]")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in, optional] long a, [in] long b);\n")), 5, 52,
                            "must be optional too")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in] long a, [out, retval, optional] long* b);\n")),
                            5, 62, "cannot be optional")
        self.assertIdlError(lib(dual("HRESULT F();\n")), 5, 9, "needs an id")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F();\n[id(1)] HRESULT G();\n")), 6, 17,
                            "already used by F")
        self.assertIdlError(lib(dual("[id(1), propget] HRESULT P([out, retval] long* v);\n"
                                     "[id(2), propput] HRESULT P([in] long v);\n")), 6, 26, "was declared with 0x1")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F();\n[id(1)] HRESULT F();\n")), 6, 17,
                            "already has a method")
        self.assertIdlError(lib(dual('[id(1)] HRESULT F([in, defaultvalue("x")] long a);\n')), 5, 37,
                            "cannot be the default")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in, defaultvalue(VARIANT_TRUE)] long a);\n")), 5, 37,
                            "VARIANT_TRUE cannot be the default")
        self.assertIdlError(lib(dual("[id(1)] HRESULT F([in, defaultvalue(1.5)] long a);\n")), 5, 37,
                            "not an integer default")
        self.assertIdlError(lib(dual("[id(1), propget] HRESULT X([out, retval] long* v);\n"
                                     "[id(2)] HRESULT get_X([out, retval] long* v);\n")), 6, 17,
                            "both become get_X")

    def test_interface_rules(self):
        self.assertIdlError(lib("[object, uuid(A0000000-0000-0000-0000-000000000002), dual] "
                                "interface IC : IUnknown { };\n"), 3, 54, "must derive from IDispatch")
        self.assertIdlError(lib(dual("", name="IB", base="IA") +
                                dual("", name="IA", iid="A0000000-0000-0000-0000-000000000002")),
                            4, 16, "must be defined before IB")
        self.assertIdlError(lib(dual("", base="IStream")), 4, 16, "cannot derive from IStream")
        self.assertIdlError(lib("interface IGone;\n"), 3, 11, "never defined")
        base = dual("[id(1)] HRESULT F();\n", name="IA", iid="A0000000-0000-0000-0000-000000000002")
        self.assertIdlError(lib(base + dual("[id(2)] HRESULT F();\n", base="IA")), 9, 17,
                            "already declared by a base")

    def test_enum_and_coclass_rules(self):
        self.assertIdlError(lib("enum E { a = 0x7FFFFFFF, b } ;\n"), 3, 26, "overflows")
        self.assertIdlError(lib("enum E { a = 0x100000000 } ;\n"), 3, 14, "does not fit in 32 bits")
        self.assertIdlError(lib("enum E { a = missing } ;\n"), 3, 14, "unknown constant 'missing'")
        self.assertIdlError(lib("enum E { a } ;\nenum F { a } ;\n"), 4, 10, "already declared")
        self.assertIdlError(lib("[uuid(C0000000-0000-0000-0000-000000000001)] coclass C { interface INone; };\n"),
                            3, 68, "unknown interface 'INone'")
        two_defaults = (dual("") + dual("", name="IY", iid="A0000000-0000-0000-0000-000000000002") +
                        "[uuid(C0000000-0000-0000-0000-000000000001)]\n"
                        "coclass C { [default] interface IX; [default] interface IY; };\n")
        self.assertIdlError(lib(two_defaults), 10, 57, "more than one [default]")
        self.assertIdlError(lib('[uuid(C0000000-0000-0000-0000-000000000001), progid("no dots")] '
                                "coclass C { };\n"), 3, 46, "malformed ProgID")


class ImportTests(unittest.TestCase):
    """importlib("X.idl") makes another library's declarations usable without generating them."""

    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.dir)
        base = ('[uuid(21111111-2222-3333-4444-555555555555), version(1.0)]\nlibrary Base {\n' +
                dual("[id(1)] HRESULT Ping();\n", name="IBase") +
                "typedef [v1_enum] enum BaseColors { baseRed = 7 } BaseColors;\n};\n")
        with open(os.path.join(self.dir, "Base.idl"), "w", encoding="utf-8") as f:
            f.write(base)

    def parse_here(self, body: str):
        return parse(LIB_HEAD + 'importlib("Base.idl");\n' + textwrap.dedent(body) + "};\n",
                     os.path.join(self.dir, "t.idl"))

    def test_imported_declarations_are_used_not_generated(self):
        library = self.parse_here(
            dual("[id(2)] HRESULT Paint([in] BaseColors color, [in, defaultvalue(baseRed)] long shade);\n") +
            "[uuid(C0000000-0000-0000-0000-000000000001)] coclass C { [default] interface IX; interface IBase; };\n")
        self.assertEqual([i.name for i in library.interfaces], ["IX"])
        self.assertEqual([i.name for i in library.coclasses[0].interfaces], ["IX", "IBase"])
        header = write_header(library)
        self.assertIn('#include "Base.h"', header)
        self.assertNotIn("struct IBase ", header)

    def test_redeclaring_or_missing_imports_are_errors(self):
        with self.assertRaises(IdlError) as caught:
            self.parse_here("typedef [v1_enum] enum BaseColors { x } BaseColors;\n")
        self.assertIn("already declared by the imported library Base", caught.exception.message)
        with self.assertRaises(IdlError) as caught:
            parse(LIB_HEAD + 'importlib("Missing.idl");\n};\n', os.path.join(self.dir, "t.idl"))
        self.assertIn("cannot read imported library Missing.idl", caught.exception.message)


def local(body: str, name: str = "IL", iid: str = "A0000000-0000-0000-0000-0000000000AA", base: str = "IUnknown") -> str:
    return f"[object, uuid({iid}), local]\ninterface {name} : {base} {{\n{textwrap.dedent(body)}}};\n"


def coclass(items: str, name: str = "C", clsid: str = "C0000000-0000-0000-0000-000000000001") -> str:
    return f"[uuid({clsid})]\ncoclass {name} {{ {items} }};\n"


class StateIdCheckTests(unittest.TestCase):
    """A state ID equals the DISPID of the member it names, but for the listed exceptions."""

    def assertIdlError(self, text: str, line: int, column: int, fragment: str):
        ErrorTests.assertIdlError(self, text, line, column, fragment)

    WIDGET = dual("[id(0x1001001), propget] HRESULT Width([out, retval] double* v);\n"
                  "[id(0x1001001), propput] HRESULT Width([in] double v);\n", name="ILuxWidget")

    def test_a_state_id_that_differs_from_its_dispid_fails_at_the_member(self):
        self.assertIdlError(lib(self.WIDGET + "typedef enum LuxWidgetStateIDs {\n"
                                "    luxWidget_Width = 0x1001002\n} LuxWidgetStateIDs;\n"),
                            9, 5, "luxWidget_Width is 0x1001002 but the DISPID of Width is 0x1001001")
        parse_lib(self.WIDGET + "enum LuxWidgetStateIDs { luxWidget_Width = 0x1001001 };\n")

    def test_unknown_interfaces_and_members_are_errors(self):
        self.assertIdlError(lib(self.WIDGET + "enum LuxWidgetStateIDs { luxWidget_Height = 1 };\n"),
                            8, 26, "names no member Height of ILuxWidget")
        self.assertIdlError(lib("enum LuxGoneStateIDs { luxGone_Width = 1 };\n"), 3, 24, "names no interface ILuxGone")
        self.assertIdlError(lib(self.WIDGET + "enum LuxWidgetStateIDs { Width = 0x1001001 };\n"), 8, 26,
                            "not named <stem>_<Member>")
        # The reserved state IDs name no member.
        parse_lib("enum LuxStateIDs { luxState_Undefined = 0, luxState_MoreThanOneStateIDChanged = -1 };\n")

    def test_allowances_keep_their_own_values(self):
        tool = dual("[id(0x101D00C), propget] HRESULT LastRunRecordEnableBase([out, retval] long* v);\n"
                    "[id(0x101D00C), propput] HRESULT LastRunRecordEnableBase([in] long v);\n", name="ILuxTool")
        parse_lib(tool + "enum LuxToolStateIDs { luxTool_LastRunRecordEnableBase = 0x101D004 };\n")
        self.assertIdlError(lib(tool + "enum LuxToolStateIDs { luxTool_LastRunRecordEnableBase = 0x101D00C };\n"),
                            8, 24, "luxTool_LastRunRecordEnableBase is 0x101d00c; it keeps 0x101d004")

    def test_members_of_the_class_and_the_enumerations_own_interface_count(self):
        graphic = dual("[id(0x101100B), propget] HRESULT Color([out, retval] OLE_COLOR* v);\n", name="ILuxGraphic")
        rectangle = dual("[id(0x1019016), propget] HRESULT X([out, retval] double* v);\n", name="ILuxRectangle",
                         iid="A0000000-0000-0000-0000-000000000002")
        fifo = dual("[id(0x1001803), propget] HRESULT Timeout([out, retval] double* v);\n", name="ILuxAcqFifo",
                    iid="A0000000-0000-0000-0000-000000000003")
        body = (graphic + rectangle + fifo +
                coclass("[default] interface ILuxRectangle; interface ILuxGraphic;", name="LuxRectangle") +
                "enum LuxRectangleStateIDs { luxRectangle_X = 0x1019016, luxRectangle_Color = 0x101100B };\n"
                "enum LuxAcqFifoStateIDs { luxAcq_Timeout = 0x1001803 };\n")
        parse_lib(body)
        self.assertIdlError(lib(body.replace("luxAcq_Timeout = 0x1001803", "luxAcq_Timeout = 0x1001804")),
                            18, 27, "luxAcq_Timeout is 0x1001804")


class CoClassCheckTests(unittest.TestCase):
    """One IDispatch serves every interface a class names: one name, one DISPID."""

    def assertIdlError(self, text: str, line: int, column: int, fragment: str):
        ErrorTests.assertIdlError(self, text, line, column, fragment)

    A = dual("[id(0x1001001), propget] HRESULT Size([out, retval] long* v);\n"
             "[id(0x1001001), propput] HRESULT Size([in] long v);\n", name="IA")

    def test_a_name_with_two_dispids_fails_at_the_second_interface(self):
        b = dual("[id(0x1002001)] HRESULT size();\n", name="IB", iid="A0000000-0000-0000-0000-000000000002")
        self.assertIdlError(lib(self.A + b + coclass("interface IA;\ninterface IB;")), 14, 11,
                            "coclass C: size is DISPID 0x1002001 in IB but 0x1001001 in IA")

    def test_a_dispid_with_two_names_fails_too_also_through_a_base(self):
        base = dual("[id(0x1001001)] HRESULT Grow();\n", name="IBase", iid="A0000000-0000-0000-0000-000000000002")
        derived = dual("[id(0x1002001)] HRESULT Other();\n", name="IDerived",
                       iid="A0000000-0000-0000-0000-000000000003", base="IBase")
        self.assertIdlError(lib(self.A + base + derived + coclass("interface IA; interface IDerived;")), 17, 37,
                            "DISPID 0x1001001 is Grow in IBase but Size in IA")

    def test_shared_bases_properties_and_local_interfaces_are_fine(self):
        base = dual("[id(0x1003001)] HRESULT Ping();\n", name="IBase", iid="A0000000-0000-0000-0000-000000000002")
        one = dual("[id(0x1003002)] HRESULT One();\n", name="IOne", iid="A0000000-0000-0000-0000-000000000003",
                   base="IBase")
        two = dual("[id(0x1003003)] HRESULT Two();\n", name="ITwo", iid="A0000000-0000-0000-0000-000000000004",
                   base="IBase")
        hidden = local("HRESULT Size([out] double* v);\n")
        parse_lib(self.A + base + one + two + hidden +
                  coclass("[default] interface IA; interface IOne; interface ITwo; interface IL;"))

    def test_custom_interfaces_are_dispatched_so_they_count(self):
        raw = ("[object, uuid(A0000000-0000-0000-0000-000000000002), oleautomation]\n"
               "interface IRaw : IUnknown { HRESULT Size([out, retval] long* v); };\n")
        self.assertIdlError(lib(self.A + raw + coclass("interface IA; interface IRaw;")), 11, 37,
                            "Size is DISPID 0x60000000 in IRaw")


class EnumDuplicateTests(unittest.TestCase):
    """Enumerators share the C++ global namespace: one name once in everything a library sees."""

    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.dir)
        for name, number in (("One", 1), ("Two", 2)):
            with open(os.path.join(self.dir, f"{name}.idl"), "w", encoding="utf-8") as f:
                f.write(f"[uuid(2111111{number}-2222-3333-4444-555555555555)]\nlibrary {name} {{\n"
                        f"    enum {name}Colors {{ shared{name} = 1, sharedRed = 2 }};\n}};\n")

    def test_duplicates_name_the_first_declaration(self):
        with self.assertRaises(IdlError) as caught:
            parse(lib("enum E { a, b };\nenum F {\n  c, a };\n"), "t.idl")
        self.assertEqual(str(caught.exception), "t.idl:5:6: error: 'a' is already declared by enumeration E at 3:10")

    def test_a_member_two_imported_libraries_declare_fails_at_the_second_import(self):
        text = LIB_HEAD + 'importlib("One.idl");\nimportlib("Two.idl");\n};\n'
        with self.assertRaises(IdlError) as caught:
            parse(text, os.path.join(self.dir, "t.idl"))
        e = caught.exception
        self.assertEqual((e.location.line, e.location.column), (4, 11))
        self.assertIn("'sharedRed' of Two.TwoColors is already declared by enumeration OneColors of One", e.message)
        with self.assertRaises(IdlError) as caught:
            parse(LIB_HEAD + 'importlib("One.idl");\nenum Mine { sharedRed = 3 };\n};\n', os.path.join(self.dir, "t.idl"))
        self.assertIn("'sharedRed' is already declared by enumeration OneColors of One", caught.exception.message)


class StructAndLocalTests(unittest.TestCase):
    """OLE_COLOR, plain C structs, and [local] interfaces that take them from C++ alone."""

    def assertIdlError(self, text: str, line: int, column: int, fragment: str):
        ErrorTests.assertIdlError(self, text, line, column, fragment)

    SPAN = ("typedef [uuid(D0000000-0000-0000-0000-000000000001), helpstring(\"A span\")]\n"
            "struct Span { double Start; long Count; hyper Address; OLE_COLOR Tint; const BYTE* Data;\n"
            "              struct Span* Next; double Window[4]; } Span;\n")

    def test_structs_in_declaration_order_in_the_header(self):
        library = parse_lib(self.SPAN + "typedef struct [uuid(D0000000-0000-0000-0000-000000000002)] Pair {\n"
                            "    Span First; Span Second; } Pair;\n")
        self.assertEqual([s.name for s in library.structs], ["Span", "Pair"])
        self.assertEqual(library.structs[0].uuid, "D0000000-0000-0000-0000-000000000001")
        header = write_header(library)
        self.assertIn("// A span\nstruct Span {\n    double Start;\n    LONG Count;\n    LONGLONG Address;\n"
                      "    OLE_COLOR Tint;\n    const BYTE* Data;\n    Span* Next;\n    double Window[4];\n};", header)
        self.assertLess(header.index("struct Span {"), header.index("struct Pair {"))
        self.assertIn("typedef ULONG OLE_COLOR;", header)
        self.assertNotIn("Span", write_dispatch(library, "L.h"))

    def test_struct_errors(self):
        self.assertIdlError(lib("typedef struct S { BSTR Name; } S;\n"), 3, 20, "not 'BSTR'")
        self.assertIdlError(lib("typedef struct S { T Inner; } S;\ntypedef struct T { long A; } T;\n"), 3, 20,
                            "struct T must be defined before S")
        self.assertIdlError(lib("typedef struct S { long A; double A; } S;\n"), 3, 35, "duplicate field name 'A'")
        self.assertIdlError(lib("typedef struct S { long A[0]; } S;\n"), 3, 27, "positive decimal length")
        self.assertIdlError(lib("typedef struct S { long A; } T;\n"), 3, 30, "under its own name")

    def test_a_dispatch_member_cannot_take_a_struct(self):
        self.assertIdlError(lib(self.SPAN + dual("[id(1)] HRESULT F([in] Span s);\n")), 8, 24,
                            "struct Span cannot cross a dispatch interface")
        self.assertIdlError(lib(self.SPAN + dual("[id(1)] HRESULT F([out, retval] Span* s);\n")), 8, 33,
                            "struct Span cannot cross a dispatch interface")
        raw = "[object, uuid(A0000000-0000-0000-0000-000000000002), oleautomation]\n"
        self.assertIdlError(lib(self.SPAN + raw + "interface IRaw : IUnknown { HRESULT F([in] BYTE* p); };\n"),
                            7, 44, "one pointer too many")

    def test_local_interfaces_take_c_types_and_have_no_thunks(self):
        library = parse_lib(self.SPAN + dual("[id(0x1001001)] HRESULT Ping();\n") + local("""
            HRESULT GetSpan([out, retval] Span* span);
            HRESULT SetSpan([in] const Span* span, [in] Span copy);
            HRESULT Raw([out] void** memory, [in] hyper address, [out] double* ratio, [out, retval] long* size);
        """) + coclass("interface IL; interface IX;"))
        il = library.interface("IL")
        self.assertEqual(il.kind, "Local")
        self.assertEqual([m.dispid for m in il.members], [0x60000000, 0x60000001, 0x60000002])
        header = write_header(library)
        self.assertIn("struct IL : IUnknown {\n    using BaseInterface = IUnknown;", header)
        self.assertIn("virtual HRESULT GetSpan(Span* span) = 0;", header)
        self.assertIn("virtual HRESULT SetSpan(const Span* span, Span copy) = 0;", header)
        self.assertIn("virtual HRESULT Raw(void** memory, LONGLONG address, double* ratio, LONG* size) = 0;", header)
        # The class lists it; dispatch never reaches it, so it is never the default.
        self.assertIn("using CoClassInterfaceList_C = tessaly::InterfaceList<IL, IX>;", header)
        self.assertEqual([i.flags for i in library.coclasses[0].interfaces], [0, idl_ast.IMPLTYPEFLAG_FDEFAULT])
        self.assertNotIn("Thunk_IL", write_dispatch(library, "L.h"))
        info = write_typeinfo(library, "L.h")
        self.assertIn('{"GetSpan", 0x60000000, INVOKE_FUNC, Params_IL_GetSpan, 1, nullptr, nullptr},', info)
        self.assertIn('{"memory", VT_EMPTY, nullptr, "void*", PARAMFLAG_FOUT, nullptr},', info)
        self.assertIn('{"ratio", VT_R8, nullptr, "double", PARAMFLAG_FOUT, nullptr},', info)
        self.assertIn("InterfaceKind::Local", info)

    def test_local_interface_rules(self):
        self.assertIdlError(lib("[object, uuid(A0000000-0000-0000-0000-000000000002), dual, local] "
                                "interface IB : IDispatch { };\n"), 3, 60, "both dual and [local]")
        self.assertIdlError(lib(local("", base="IDispatch")), 4, 16, "must derive from IUnknown")
        self.assertIdlError(lib(local("") + "[object, uuid(A0000000-0000-0000-0000-000000000002)]\n"
                                "interface IB : IL { };\n"), 7, 16, "must be [local] to derive from [local] interface IL")
        self.assertIdlError(lib(dual("") + local("") + coclass("[default] interface IL; interface IX;")), 10, 33,
                            "cannot be a default or source interface")
        parse_lib(local("") + local("HRESULT More([in] void* p);\n", name="IL2",
                                    iid="A0000000-0000-0000-0000-000000000002", base="IL"))

    def test_ole_color_hyper_and_double_arrays_out_and_in_out(self):
        library = parse_lib(dual("""
            [id(1), propget] HRESULT Tint([out, retval] OLE_COLOR* v);
            [id(2)] HRESULT Fill([out] SAFEARRAY(double)* values, [in, out] SAFEARRAY(double)* both,
                                 [in, defaultvalue(0x123456789)] hyper address, [out, retval] hyper* moved);
        """))
        tint, fill = library.interfaces[0].members
        self.assertEqual((tint.params[0].type.vt, tint.params[0].type.cpp, tint.params[0].type.idl_name),
                         (idl_ast.VT_UI4, "OLE_COLOR", "OLE_COLOR"))
        self.assertEqual([p.type.vt for p in fill.params],
                         [idl_ast.VT_ARRAY | idl_ast.VT_R8] * 2 + [idl_ast.VT_I8] * 2)
        self.assertEqual(fill.params[2].default, str(0x123456789))
        header = write_header(library)
        self.assertIn("virtual HRESULT get_Tint(OLE_COLOR* v) = 0;", header)
        self.assertIn("virtual HRESULT Fill(SAFEARRAY** values, SAFEARRAY** both, LONGLONG address, "
                      "LONGLONG* moved) = 0;", header)
        thunks = write_dispatch(library, "L.h")
        self.assertIn("get_Tint(&result->ulVal)", thunks)
        self.assertIn("result->vt = VT_I8;\n    const HRESULT hr = static_cast<IX*>(self)->Fill(&args[0].parray, "
                      "&args[1].parray, args[2].llVal, &result->llVal);", thunks)
        info = write_typeinfo(library, "L.h")
        self.assertIn('{"values", static_cast<VARTYPE>(VT_ARRAY | VT_R8), nullptr, "SAFEARRAY(double)", '
                      'PARAMFLAG_FOUT, nullptr},', info)
        self.assertIn('{"both", static_cast<VARTYPE>(VT_ARRAY | VT_R8), nullptr, "SAFEARRAY(double)", '
                      'PARAMFLAG_FIN | PARAMFLAG_FOUT, nullptr},', info)
        self.assertIn('{"v", VT_UI4, nullptr, "OLE_COLOR", PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, nullptr},', info)


class LibraryAttributeTests(unittest.TestCase):
    def test_version_and_help(self):
        library = parse('[uuid(11111111-2222-3333-4444-555555555555), version(3.12), helpstring("Mine")]\n'
                        "library L { };\n", "v.idl")
        self.assertEqual((library.major, library.minor, library.help), (3, 12, "Mine"))
        self.assertIn('TypeLibrary_L{"L", LIBID_L, 3, 12, "Mine", nullptr, 0, nullptr, 0, nullptr, 0}',
                      write_typeinfo(library, "L.h"))
        with self.assertRaises(IdlError) as caught:
            parse("[uuid(11111111-2222-3333-4444-555555555555), version(x)] library L { };", "v.idl")
        self.assertEqual(str(caught.exception), "v.idl:1:54: error: malformed version 'x'")
        with self.assertRaises(IdlError) as caught:
            parse("[version(1.0)] library L { };", "v.idl")
        self.assertIn("library L needs a uuid", str(caught.exception))


class CommandLineTests(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.dir)

    def run_tlbgen(self, text: str, name: str = "L"):
        idl = os.path.join(self.dir, "in.idl")
        with open(idl, "w", encoding="utf-8") as f:
            f.write(text)
        out = os.path.join(self.dir, "out")
        proc = subprocess.run([sys.executable, os.path.join(GENERATOR, "tlbgen.py"), "--idl", idl,
                               "--name", name, "--out", out], capture_output=True, text=True)
        return proc, idl, out

    def test_error_exit_status_and_message_and_nothing_written(self):
        proc, idl, out = self.run_tlbgen(lib("enum E { a = } ;\n"))
        self.assertEqual(proc.returncode, 1)
        self.assertEqual(proc.stderr.strip(), f"{idl}:3:14: error: expected a constant, found '}}'")
        self.assertFalse(os.path.exists(out))

    def test_library_name_must_match(self):
        proc, idl, _ = self.run_tlbgen(lib(""), name="Other")
        self.assertEqual(proc.returncode, 1)
        self.assertIn("declares library L, not Other", proc.stderr)

    def test_missing_file(self):
        proc = subprocess.run([sys.executable, os.path.join(GENERATOR, "tlbgen.py"), "--idl",
                               os.path.join(self.dir, "none.idl"), "--name", "L", "--out", self.dir],
                              capture_output=True, text=True)
        self.assertEqual(proc.returncode, 1)
        self.assertIn("none.idl: error:", proc.stderr)

    def test_success_writes_three_files_with_banner(self):
        proc, _, out = self.run_tlbgen(lib("enum E { a } ;\n"))
        self.assertEqual(proc.returncode, 0, proc.stderr)
        self.assertEqual(sorted(os.listdir(out)), ["L.h", "LDispatch.cpp", "LTypeInfo.cpp"])
        for name in os.listdir(out):
            with open(os.path.join(out, name), encoding="utf-8") as f:
                self.assertTrue(f.readline().startswith("// Generated from in.idl by tlbgen.py: do not edit"))


class EnumTests(unittest.TestCase):
    def values(self, body: str) -> dict:
        library = parse_lib(body)
        return {m.name: m.value for e in library.enums for m in e.members}

    def test_implicit_values_continue_from_previous(self):
        v = self.values("typedef [v1_enum] enum E { a, b, c = 10, d, e = -3, f, g = 0x7FFFFFFE, h } E;\n")
        self.assertEqual(v, {"a": 0, "b": 1, "c": 10, "d": 11, "e": -3, "f": -2, "g": 0x7FFFFFFE, "h": 0x7FFFFFFF})

    def test_hex_above_int32_max_is_the_signed_value(self):
        v = self.values("enum E { a = 0x8004E200, b, c = 0xFFFFFFFF, d, e = 0x80000000, f = -0x7FFFFFFF - 1 };\n")
        self.assertEqual(v["a"], -2147163648)
        self.assertEqual(v["b"], -2147163647)
        self.assertEqual(v["c"], -1)
        self.assertEqual(v["d"], 0)
        self.assertEqual(v["e"], -2147483648)
        self.assertEqual(v["f"], -2147483648)

    def test_expressions_and_earlier_constants(self):
        v = self.values("enum A { one = 1, two = one << 1 };\nenum B { three = one | two, mask = ~0, x = (3 + 4) * 2 };\n")
        self.assertEqual((v["two"], v["three"], v["mask"], v["x"]), (2, 3, -1, 14))

    def test_enum_in_header_and_tables(self):
        library = parse_lib('typedef [helpstring("Colours")] enum C { [helpstring("red")] r = 0x80000001, '
                            'g = 5, b } C;\n')
        header = write_header(library)
        self.assertIn("enum C : int32_t {", header)
        self.assertIn("r = static_cast<int32_t>(0x80000001u),  // red", header)
        self.assertIn("g = 5,", header)
        self.assertIn("b = 6,", header)
        info = write_typeinfo(library, "L.h")
        self.assertIn('{"r", static_cast<int32_t>(0x80000001u), "red"}', info)
        self.assertIn('{"b", 6, nullptr}', info)
        self.assertIn('Enum_C{"C", "Colours", EnumMembers_C, 3}', info)


class CoClassTests(unittest.TestCase):
    def coclasses(self, body: str):
        return {c.name: c for c in parse_lib(dual("") + textwrap.dedent(body)).coclasses}

    def test_progids_derived_or_given(self):
        c = self.coclasses("""
            [uuid(C0000000-0000-0000-0000-000000000001)] coclass LuxThing { interface IX; };
            [uuid(C0000000-0000-0000-0000-000000000002), progid("Vendor.Other.3")] coclass LuxOther { interface IX; };
            [uuid(C0000000-0000-0000-0000-000000000003), progid("Vendor.Plain"), noncreatable] coclass LuxPlain { interface IX; };
        """)
        self.assertEqual((c["LuxThing"].progid, c["LuxThing"].vi_progid), ("Tessaly.LuxThing.1", "Tessaly.LuxThing"))
        self.assertEqual((c["LuxOther"].progid, c["LuxOther"].vi_progid), ("Vendor.Other.3", "Vendor.Other"))
        self.assertEqual((c["LuxPlain"].progid, c["LuxPlain"].vi_progid), ("Vendor.Plain", "Vendor.Plain"))
        self.assertTrue(c["LuxThing"].creatable)
        self.assertFalse(c["LuxPlain"].creatable)

    def test_implementation_flags_and_implicit_defaults(self):
        library = parse_lib(dual("") + dual("", name="IY", iid="A0000000-0000-0000-0000-000000000002") + """
            [uuid(B0000000-0000-0000-0000-000000000001)] dispinterface IXEvents { properties: methods: };
            [uuid(C0000000-0000-0000-0000-000000000001)]
            coclass C { interface IY; [restricted] interface IX; [source] dispinterface IXEvents; };
        """)
        flags = {i.name: i.flags for i in library.coclasses[0].interfaces}
        # Without [default], the first interface of each group is the default.
        self.assertEqual(flags["IY"], idl_ast.IMPLTYPEFLAG_FDEFAULT)
        self.assertEqual(flags["IX"], idl_ast.IMPLTYPEFLAG_FRESTRICTED)
        self.assertEqual(flags["IXEvents"], idl_ast.IMPLTYPEFLAG_FDEFAULT | idl_ast.IMPLTYPEFLAG_FSOURCE)
        info = write_typeinfo(library, "L.h")
        self.assertIn("{&Interface_IXEvents, IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE}", info)
        self.assertIn('CoClass_C{"C", CLSID_C, nullptr, true, "Tessaly.C.1", "Tessaly.C", CoClassInterfaces_C, 3}',
                      info)
        header = write_header(library)
        self.assertIn('inline constexpr CLSID CLSID_C = tessaly::MakeGuid("C0000000-0000-0000-0000-000000000001");',
                      header)
        self.assertIn("inline constexpr IID DIID_IXEvents = IXEvents::iid;", header)
        self.assertIn("inline constexpr IID IID_IY = IY::iid;", header)


class SignatureTests(unittest.TestCase):
    """IDL parameters become VARTYPEs, flags, C++ declarations and thunk arguments."""

    @classmethod
    def setUpClass(cls):
        cls.library = parse_lib("""
            interface IGadget;
            typedef enum Shade { light, dark } Shade;
        """ + dual("""
            [id(0x1001001)] HRESULT Divide([in] long a, [out] long* q, [in, out] BSTR* note,
                                           [out] VARIANT* rest, [in, optional, defaultvalue(0x10)] long b,
                                           [out, retval] double* ratio);
            [id(0x1001002), propget] HRESULT Item([in] long index, [out, retval] VARIANT* value);
            [id(0x1001002), propput] HRESULT Item([in] long index, [in] VARIANT value);
            [id(0x1001003), propget] HRESULT Gadget([out, retval] IGadget** value);
            [id(0x1001003), propputref] HRESULT Gadget([in] IGadget* value);
            [id(0x1001004)] HRESULT Tint([out] Shade* old, [in, defaultvalue(dark)] Shade s,
                                         [out, retval] Shade* now);
            [id(0x1001005)] HRESULT Bytes([in] SAFEARRAY(unsigned char) data, [out] SAFEARRAY(BSTR)* names,
                                          [out, retval] IStream** stream);
            [id(0x1001006)] HRESULT Objects([in] IUnknown* u, [in] IDispatch* d, [in] IRaw* raw,
                                            [in, optional, defaultvalue("a \\"q\\"")] BSTR label,
                                            [in, optional, defaultvalue(-2.5)] double scale);
            [id(0x1001007)] HRESULT Nothing();
            [id(0x1001008)] HRESULT Flags([in, defaultvalue(VARIANT_TRUE)] VARIANT_BOOL on,
                                          [in, defaultvalue(VARIANT_FALSE)] VARIANT any);
        """) + """
            [object, uuid(A0000000-0000-0000-0000-000000000002), oleautomation]
            interface IRaw : IUnknown { HRESULT Poke([in] short s); HRESULT Peek([out, retval] hyper* v); };
            [object, uuid(A0000000-0000-0000-0000-000000000003), dual]
            interface IGadget : IX { [id(0x1002001), propget] HRESULT Size([out, retval] float* v); };
        """)
        cls.header = write_header(cls.library)
        cls.dispatch = write_dispatch(cls.library, "L.h")
        cls.typeinfo = write_typeinfo(cls.library, "L.h")

    def member(self, iface: str, name: str, kind: int = idl_ast.INVOKE_FUNC):
        for m in self.library.interface(iface).members:
            if m.name == name and m.invoke_kind == kind:
                return m
        self.fail(f"{iface}.{name} not found")

    def test_flags_and_types_of_parameters(self):
        d = self.member("IX", "Divide")
        F = idl_ast
        self.assertEqual([p.flags for p in d.params],
                         [F.PARAMFLAG_FIN, F.PARAMFLAG_FOUT, F.PARAMFLAG_FIN | F.PARAMFLAG_FOUT, F.PARAMFLAG_FOUT,
                          F.PARAMFLAG_FIN | F.PARAMFLAG_FOPT | F.PARAMFLAG_FHASDEFAULT,
                          F.PARAMFLAG_FOUT | F.PARAMFLAG_FRETVAL])
        self.assertEqual([p.type.vt for p in d.params], [F.VT_I4, F.VT_I4, F.VT_BSTR, F.VT_VARIANT, F.VT_I4, F.VT_R8])
        self.assertEqual(d.params[4].default, "16", "hex defaults are written in decimal")
        tint = self.member("IX", "Tint")
        self.assertEqual(tint.params[1].default, "1", "symbolic defaults are written as their values")
        self.assertEqual([p.type.vt for p in tint.params], [F.VT_I4] * 3)
        b = self.member("IX", "Bytes")
        self.assertEqual([p.type.vt for p in b.params], [F.VT_ARRAY | F.VT_UI1, F.VT_ARRAY | F.VT_BSTR, F.VT_UNKNOWN])
        self.assertEqual(b.params[2].type.iid_expr, "&IStream::iid")
        o = self.member("IX", "Objects")
        self.assertEqual([p.type.vt for p in o.params], [F.VT_UNKNOWN, F.VT_DISPATCH, F.VT_UNKNOWN, F.VT_BSTR, F.VT_R8])
        self.assertEqual([p.type.iid_expr for p in o.params[:3]], [None, None, "&IRaw::iid"])
        self.assertEqual(o.params[3].default, 'a "q"')
        self.assertEqual(o.params[4].default, "-2.5")
        self.assertEqual([p.default for p in self.member("IX", "Flags").params], ["VARIANT_TRUE", "VARIANT_FALSE"])
        g = self.member("IX", "Gadget", idl_ast.INVOKE_PROPERTYGET)
        self.assertEqual(g.params[0].type.vt, F.VT_DISPATCH, "an interface derived from IDispatch")

    def test_cpp_declarations(self):
        h = self.header
        self.assertIn("virtual HRESULT Divide(LONG a, LONG* q, BSTR* note, VARIANT* rest, LONG b, double* ratio) = 0;", h)
        self.assertIn("virtual HRESULT get_Item(LONG index, VARIANT* value) = 0;", h)
        self.assertIn("virtual HRESULT put_Item(LONG index, VARIANT value) = 0;", h)
        self.assertIn("virtual HRESULT get_Gadget(IGadget** value) = 0;", h)
        self.assertIn("virtual HRESULT putref_Gadget(IGadget* value) = 0;", h)
        self.assertIn("virtual HRESULT Tint(Shade* old, Shade s, Shade* now) = 0;", h)
        self.assertIn("virtual HRESULT Bytes(SAFEARRAY* data, SAFEARRAY** names, IStream** stream) = 0;", h)
        self.assertIn("virtual HRESULT Peek(LONGLONG* v) = 0;", h)
        self.assertIn("struct IGadget : IX {", h)
        self.assertIn("struct IRaw : IUnknown {", h)
        # Forward declarations come before any interface body.
        self.assertLess(h.index("struct IGadget;"), h.index("struct IX : IDispatch {"))
        self.assertIn("const tessaly::TypeLibraryInfo& L_TypeLibrary();", h)

    def test_thunks(self):
        t = self.dispatch
        self.assertIn("HRESULT Thunk_IX_Divide(void* self, VARIANT* args, VARIANT* result) {\n"
                      "    result->vt = VT_R8;\n"
                      "    const HRESULT hr = static_cast<IX*>(self)->Divide(args[0].lVal, &args[1].lVal, "
                      "&args[2].bstrVal, &args[3], args[4].lVal, &result->dblVal);\n"
                      "    if (FAILED(hr)) result->vt = VT_EMPTY;\n"
                      "    return hr;\n}", t)
        # A VARIANT retval is the result itself: the callee sets its type.
        self.assertIn("HRESULT Thunk_IX_get_Item(void* self, VARIANT* args, VARIANT* result) {\n"
                      "    const HRESULT hr = static_cast<IX*>(self)->get_Item(args[0].lVal, result);\n", t)
        self.assertIn("return static_cast<IX*>(self)->put_Item(args[0].lVal, args[1]);", t)
        self.assertIn("result->vt = VT_DISPATCH;\n    const HRESULT hr = static_cast<IX*>(self)->get_Gadget("
                      "reinterpret_cast<IGadget**>(&result->punkVal));", t)
        self.assertIn("putref_Gadget(reinterpret_cast<IGadget*>(args[0].punkVal))", t)
        self.assertIn("Tint(reinterpret_cast<Shade*>(&args[0].lVal), static_cast<Shade>(args[1].lVal), "
                      "reinterpret_cast<Shade*>(&result->lVal))", t)
        self.assertIn("Bytes(args[0].parray, &args[1].parray, reinterpret_cast<IStream**>(&result->punkVal))", t)
        self.assertIn("Objects(args[0].punkVal, args[1].pdispVal, reinterpret_cast<IRaw*>(args[2].punkVal), "
                      "args[3].bstrVal, args[4].dblVal)", t)
        self.assertIn("HRESULT Thunk_IX_Nothing(void* self, VARIANT*, VARIANT*) {\n"
                      "    return static_cast<IX*>(self)->Nothing();\n}", t)
        self.assertIn("Thunk_IRaw_Poke", t)
        self.assertIn("Thunk_IGadget_get_Size", t)
        self.assertNotIn("Thunk_IGadget_Divide", t, "base members are not repeated")
        self.assertNotIn("new ", t)

    def test_type_information_tables(self):
        i = self.typeinfo
        self.assertIn('{"q", VT_I4, nullptr, "long", PARAMFLAG_FOUT, nullptr},', i)
        self.assertIn('{"b", VT_I4, nullptr, "long", PARAMFLAG_FIN | PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT, "16"},', i)
        self.assertIn('{"note", VT_BSTR, nullptr, "BSTR", PARAMFLAG_FIN | PARAMFLAG_FOUT, nullptr},', i)
        self.assertIn('{"ratio", VT_R8, nullptr, "double", PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, nullptr},', i)
        self.assertIn('{"data", static_cast<VARTYPE>(VT_ARRAY | VT_UI1), nullptr, "SAFEARRAY(unsigned char)", '
                      'PARAMFLAG_FIN, nullptr},', i)
        self.assertIn('{"value", VT_DISPATCH, &IGadget::iid, "IGadget*", PARAMFLAG_FOUT | PARAMFLAG_FRETVAL, nullptr},',
                      i)
        self.assertIn('{"label", VT_BSTR, nullptr, "BSTR", PARAMFLAG_FIN | PARAMFLAG_FOPT | PARAMFLAG_FHASDEFAULT, '
                      '"a \\"q\\""},', i)
        self.assertIn('{"Divide", 0x1001001, INVOKE_FUNC, Params_IX_Divide, 6, nullptr, Thunk_IX_Divide},', i)
        self.assertIn('{"Nothing", 0x1001007, INVOKE_FUNC, nullptr, 0, nullptr, Thunk_IX_Nothing},', i)
        self.assertIn('{"Poke", 0x60000000, INVOKE_FUNC', i, "custom members without id are numbered")
        self.assertIn('Interface_IGadget{"IGadget", IGadget::iid, &Interface_IX, InterfaceKind::Dual, nullptr, '
                      'Members_IGadget, 1}', i)
        self.assertIn("InterfaceKind::Custom", i)
        self.assertIn("const TypeLibraryRegistrar registrar{TypeLibrary_L};", i)

    def test_dispinterface_members_have_no_thunks(self):
        library = parse_lib("""
            [uuid(B0000000-0000-0000-0000-000000000001), helpstring("events")]
            dispinterface IEv {
                properties:
                    [id(3)] long Level;
                methods:
                    [id(7456)] void Change([in] long StateID, [in] VARIANT Value, [in] long FunctionalArea);
                    [id(2)] double Query([in] BSTR what);
            };
        """)
        iface = library.interfaces[0]
        self.assertEqual(iface.kind, "DispInterface")
        self.assertEqual([(m.name, m.invoke_kind) for m in iface.members],
                         [("Level", idl_ast.INVOKE_PROPERTYGET), ("Level", idl_ast.INVOKE_PROPERTYPUT),
                          ("Change", idl_ast.INVOKE_FUNC), ("Query", idl_ast.INVOKE_FUNC)])
        self.assertTrue(iface.members[3].params[-1].is_retval)
        self.assertNotIn("Thunk_IEv", write_dispatch(library, "L.h"))
        info = write_typeinfo(library, "L.h")
        self.assertIn('{"Change", 7456, INVOKE_FUNC, Params_IEv_Change, 3, nullptr, nullptr},', info)
        header = write_header(library)
        self.assertIn('struct IEv : IDispatch {\n    using BaseInterface = IDispatch;\n    static constexpr IID iid = '
                      'tessaly::MakeGuid("B0000000-0000-0000-0000-000000000001");\n};', header)


class CompileTests(unittest.TestCase):
    """The generated C++ compiles without warnings, also for corner cases the library's own
    IDL files do not have (no enums, no coclasses, members without parameters)."""

    def test_generated_code_compiles(self):
        compiler = os.environ.get("CXX") or shutil.which("c++") or shutil.which("g++")
        if not compiler:
            self.skipTest("no C++ compiler")
        library = parse(lib(dual("""
            [id(1)] HRESULT Empty();
            [id(2), propget] HRESULT Obj([out, retval] IX** v);
            [id(3)] HRESULT All([in] short a, [in] unsigned char b, [in] char c, [in] unsigned short d,
                                [in] unsigned long e, [in] hyper f, [in] float g, [in] DATE h, [in] CY i,
                                [in] SCODE j, [in] VARIANT_BOOL k, [out] CY* l, [out] DATE* m,
                                [out] SAFEARRAY(VARIANT)* n, [out, retval] IEnumVARIANT** o);
            [id(4)] HRESULT Arrays([in] OLE_COLOR c, [out] SAFEARRAY(double)* d, [in, out] SAFEARRAY(double)* e);
        """) + StructAndLocalTests.SPAN + local("""
            HRESULT Get([out, retval] Span* s);
            HRESULT Put([in] const Span* s, [in] Span t, [out] void** raw, [in] IX* owner);
        """)), "only_interfaces.idl")
        with tempfile.TemporaryDirectory() as d:
            files = {"L.h": write_header(library), "LDispatch.cpp": write_dispatch(library, "L.h"),
                     "LTypeInfo.cpp": write_typeinfo(library, "L.h")}
            for name, text in files.items():
                with open(os.path.join(d, name), "w", encoding="utf-8") as f:
                    f.write(text)
            for name in ("LDispatch.cpp", "LTypeInfo.cpp"):
                proc = subprocess.run([compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                                       "-I", ROOT, "-I", d, os.path.join(d, name)], capture_output=True, text=True)
                self.assertEqual(proc.returncode, 0, proc.stderr)


class LibraryIdlTests(unittest.TestCase):
    """The library's IDL files parse, and carry the values clients compare against."""

    @classmethod
    def setUpClass(cls):
        # Full paths: imports are found relative to the importing file, wherever the tests run.
        core = os.path.join(ROOT, "typelib", "TessalyCore.idl")
        with open(core, encoding="utf-8") as f:
            cls.core = parse(f.read(), core)
        test = os.path.join(ROOT, "tests", "typelib", "TessalyTest.idl")
        with open(test, encoding="utf-8") as f:
            cls.test = parse(f.read(), test)

    def enum(self, name: str) -> dict:
        for e in self.core.enums:
            if e.name == name:
                return {m.name: m.value & 0xFFFFFFFF for m in e.members}
        self.fail(f"enum {name} missing")

    def test_error_codes(self):
        errors = self.enum("LuxErrConstants")
        expected = {
            "e_FAIL": 0x80004005, "e_BADPATH": 0x80080004, "e_Lux_TimeoutExpired": 0x8004C002,
            "e_Lux_UnsupportedHardware": 0x8004C005, "e_Lux_BadFileMode": 0x8004C105,
            "e_Lux_ChangeEventError": 0x8004C150, "e_LuxCollection_NullItem": 0x8004C185,
            "e_LuxImage_BadSelectedSpaceName": 0x8004E107, "e_LuxTransform_Singular": 0x8004E203,
            "e_LuxTransform_SingularPoint": 0x8004E204, "e_LuxSpaceTree_InvalidNameSyntax": 0x8004E281,
            "e_LuxShape_DegenerateEllipticalArcSeg": 0x8004E312, "e_LuxOperator_InvalidShape": 0x8004E405,
            "e_LuxTool_SpaceNameMismatch": 0x8004E502, "e_LuxAcq_BadVideoFormat": 0x8004E600,
            "e_LuxAcq_Timeout": 0x8004E602, "e_LuxAcq_EncoderOverrun": 0x8004E603,
            "e_LuxAcq_RegisterAccess": 0x8004E615, "e_LuxRLEBuffer_CombineSubImageExtent": 0x8004E704,
            "e_LuxIOLine_CannotEnable": 0x8004E801, "e_LuxIterator_EndOfContainer": 0x8004E902,
            "e_LuxFit_InsufficientPoints": 0x80044300, "e_LuxMath_Unsupported_Geometry": 0x80044400,
            "s_OK": 0, "s_LuxTool_Warn": 0x40400, "s_LuxTool_Reject": 0x40410,
            "ids_Lux_InvalidArgBinary_3": 0x80048101, "ids_Lux_InvalidArgNull_1": 0x8004810B,
            "ids_Lux_ReadInvalidProperty_1": 0x80048110, "ids_Lux_ReadInvalidObject_1": 0x80048111,
            "ids_LuxTransform_InvalidArgSingular_2": 0x8004823F, "ids_Lux_NameMissingAtStart": 0x80048242,
            "ids_Lux_NameIsPartial": 0x80048243, "ids_Lux_OneNameAfterTripleDot": 0x80048249,
            "ids_Lux_PathnamesStartAtRoot": 0x8004824A, "ids_LuxFormatter_BadFormat": 0x80048300,
            "ids_LuxFormatter_CantCreateObject_1": 0x8004831E,
        }
        for name, value in expected.items():
            self.assertEqual(errors.get(name), value, name)
        self.assertNotIn(0x8004E601, errors.values())
        self.assertEqual(len(set(errors.values())), len(errors), "no two codes share a value")
        formatter = [v for n, v in errors.items() if n.startswith("ids_LuxFormatter_")]
        self.assertEqual(formatter, list(range(0x80048300, 0x8004831F)))
        shapes = [v for n, v in errors.items() if n.startswith("e_LuxShape_")]
        self.assertEqual(shapes, list(range(0x8004E300, 0x8004E313)))
        # Every member is described.
        for e in self.core.enums:
            for m in e.members:
                self.assertTrue(m.help, f"{e.name}.{m.name} has no helpstring")

    def test_state_and_event_ids(self):
        self.assertEqual(self.enum("LuxStateIDs"), {"luxState_Undefined": 0,
                                                    "luxState_MoreThanOneStateIDChanged": 0xFFFFFFFF,
                                                    "luxState_SubObjectEvent": 0xFFFFFFFE})
        self.assertEqual(self.enum("LuxObjectStateIDs"), {"luxObject_Tag": 0x100A02B})
        self.assertEqual(self.enum("LuxChangeEventIDs"), {"luxChange_Change": 7456})
        self.assertEqual(self.enum("LuxFAs_AcqFifo"), {"luxFA_AcqFifo_Acquisition": 2})
        self.assertEqual(self.enum("LuxFAs_Shape")["luxFA_Shape_ModelProperties"], 32)

    def test_addresses_are_64_bit(self):
        init = [m for m in self.core.interface("ILuxDictionary").members if m.name == "InitHmod"][0]
        self.assertEqual((init.params[0].type.vt, init.params[0].type.cpp), (idl_ast.VT_I8, "LONGLONG"))

    def test_core_interfaces(self):
        obj = self.core.interface("ILuxObject")
        self.assertEqual(obj.kind, "Dual")
        self.assertEqual([(m.cpp_name, m.dispid) for m in obj.members],
                         [("GetLocalComputerName", 0x100A001), ("Clone", 0x100A022), ("CreateObject", 0x100A02A),
                          ("get_Tag", 0x100A02B), ("put_Tag", 0x100A02B), ("putref_Tag", 0x100A02B)])
        for custom, disp in (("ILuxChangeEventConfiguration", "ILuxChangeEventConfiguration_Disp"),
                             ("ILuxEventInfo", "ILuxEventInfo_Disp")):
            a, b = self.core.interface(custom), self.core.interface(disp)
            self.assertEqual((a.kind, b.kind), ("Custom", "Dual"))
            self.assertEqual([(m.cpp_name, m.dispid) for m in a.members], [(m.cpp_name, m.dispid) for m in b.members])
        info = self.core.interface("ILuxEventInfo_Disp")
        self.assertEqual(sorted(m.dispid for m in info.members), list(range(0x1003009, 0x100300E)))
        self.assertTrue(all(m.invoke_kind == idl_ast.INVOKE_PROPERTYGET for m in info.members))
        change = self.core.interface("ILuxChangeEvent").members[0]
        self.assertEqual((change.name, change.dispid, [p.name for p in change.params]),
                         ("Change", 7456, ["StateID", "Value", "FunctionalArea"]))
        creatable = {c.name: c.creatable for c in self.core.coclasses}
        for naming in ("LuxChangeEvent", "LuxChangeEventConfiguration", "LuxEventInfo"):
            self.assertIs(creatable[naming], False, naming)
        self.assertIs(creatable["LuxCollection"], True)

    def test_guids_are_unique_across_both_libraries(self):
        def guids(library):
            return ([library.libid] + [i.iid for i in library.interfaces] + [c.clsid for c in library.coclasses] +
                    [e.uuid for e in library.enums if e.uuid])
        everything = guids(self.core) + guids(self.test)
        self.assertEqual(len(everything), len(set(everything)))

    def test_test_library_shapes(self):
        gadget = self.test.interface("ITestGadget")
        self.assertEqual(gadget.base, "ITestBase")
        sealed = {c.name: c for c in self.test.coclasses}["TestSealed"]
        self.assertFalse(sealed.creatable)
        samples = {c.name: c for c in self.test.coclasses}["TestSamples"]
        self.assertEqual(self.test.interface(samples.interfaces[0].name).kind, "Local")
        self.assertEqual(samples.interfaces[1].flags, idl_ast.IMPLTYPEFLAG_FDEFAULT, "a [local] one is never default")

    def test_the_python_test_library_passes_the_checks_too(self):
        path = os.path.join(ROOT, "tests", "python", "classes", "TessalyPythonTest.idl")
        with open(path, encoding="utf-8") as f:
            self.assertTrue(parse(f.read(), path).coclasses)


if __name__ == "__main__":
    unittest.main()
