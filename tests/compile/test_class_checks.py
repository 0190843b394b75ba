"""A class that does not match its coclass does not compile: each mistake below must fail the
build with its own message, and the correct class must compile. The classes are compiled
against a small type library generated for the test."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
import textwrap
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
GENERATOR = os.path.join(ROOT, "typelib", "generator", "tlbgen.py")

IDL = textwrap.dedent("""\
    import "oaidl.idl";
    [uuid(C0000000-0000-0000-0000-000000000001), version(1.0)]
    library Checks {
        [object, uuid(C0000000-0000-0000-0000-000000000010), dual, oleautomation]
        interface IShapeBase : IDispatch {
            [id(0x1F01001), propget] HRESULT Area([out, retval] double* Area);
        };
        [object, uuid(C0000000-0000-0000-0000-000000000011), dual, oleautomation]
        interface IBox : IShapeBase {
            [id(0x1F01002), propget] HRESULT Width([out, retval] double* Width);
        };
        [object, uuid(C0000000-0000-0000-0000-000000000012), dual, oleautomation]
        interface ILabel : IDispatch {
            [id(0x1F02001), propget] HRESULT Text([out, retval] BSTR* Text);
        };
        [uuid(C0000000-0000-0000-0000-000000000020)]
        coclass Box {
            [default] interface IBox;
            interface IShapeBase;
            interface ILabel;
        };
    };
""")

METHODS = {
    "IBox": "HRESULT get_Area(double* v) override { *v = 0; return S_OK; }\n"
            "HRESULT get_Width(double* v) override { *v = 0; return S_OK; }\n",
    "IShapeBase": "HRESULT get_Area(double* v) override { *v = 0; return S_OK; }\n",
    "ILabel": "HRESULT get_Text(BSTR* v) override { *v = nullptr; return S_OK; }\n",
}


def box_class(listed: list[str], with_list: bool = True) -> str:
    methods = "".join(METHODS[name] for name in listed if not (name == "IShapeBase" and "IBox" in listed))
    coclass_list = "using CoClassInterfaceList = tessaly::generated::CoClassInterfaceList_Box;\n" if with_list else ""
    return textwrap.dedent(f"""\
        #include "Checks.h"
        #include "platform/ComObject.h"
        class BoxImpl : public tessaly::ComObject<BoxImpl, {", ".join(listed)}> {{
        public:
            static const tessaly::CoClassInfo& CoClass() {{ return tessaly::generated::CoClass_Box; }}
        """) + coclass_list + methods + textwrap.dedent("""\
        protected:
            ~BoxImpl() override = default;
        };
        IUnknown* Make() { return BoxImpl::Create()->GetUnknown(); }
        """)


class ClassChecksTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.compiler = os.environ.get("CXX") or shutil.which("c++") or shutil.which("g++")
        cls.dir = tempfile.mkdtemp()
        idl = os.path.join(cls.dir, "Checks.idl")
        with open(idl, "w", encoding="utf-8") as f:
            f.write(IDL)
        proc = subprocess.run([sys.executable, GENERATOR, "--idl", idl, "--name", "Checks", "--out", cls.dir],
                              capture_output=True, text=True)
        assert proc.returncode == 0, proc.stderr

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.dir, ignore_errors=True)

    def compile(self, source: str) -> subprocess.CompletedProcess:
        if not self.compiler:
            self.skipTest("no C++ compiler")
        path = os.path.join(self.dir, "Box.cpp")
        with open(path, "w", encoding="utf-8") as f:
            f.write(source)
        return subprocess.run([self.compiler, "-std=c++20", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                               "-I", ROOT, "-I", self.dir, path], capture_output=True, text=True)

    def assertRefused(self, source: str, message: str):
        proc = self.compile(source)
        self.assertNotEqual(proc.returncode, 0, "compiled, but should not have")
        self.assertIn(message, proc.stderr)

    def test_the_most_derived_interfaces_compile_and_answer_their_bases(self):
        proc = self.compile(box_class(["IBox", "ILabel"]))
        self.assertEqual(proc.returncode, 0, proc.stderr)

    def test_a_base_listed_beside_its_derived_interface_is_refused(self):
        self.assertRefused(box_class(["IBox", "IShapeBase", "ILabel"]), "list only the most derived interfaces")

    def test_an_interface_the_coclass_names_but_the_class_misses_is_refused(self):
        self.assertRefused(box_class(["IBox"]), "does not answer every interface its coclass names")

    def test_an_interface_the_coclass_does_not_name_is_refused(self):
        source = box_class(["IBox", "ILabel"]).replace("ILabel>", "ILabel, IPersist>").replace(
            "protected:", "HRESULT GetClassID(CLSID*) override { return S_OK; }\nprotected:")
        self.assertRefused(source, "lists an interface its coclass does not name")

    def test_a_class_without_its_coclass_list_is_refused(self):
        self.assertRefused(box_class(["IBox", "ILabel"], with_list=False), "name the coclass's interface list")


if __name__ == "__main__":
    unittest.main()
