"""The command-line program as a user runs it: output, errors and exit status."""

import os
import re
import subprocess
import unittest

TESSALY = os.environ.get("TESSALY", "tessaly")

# The library's error and success codes, written out independently of the IDL.
STANDARD_CODES = [
    ("e_FAIL", 0x80004005), ("e_UNEXPECTED", 0x8000FFFF), ("e_OUTOFMEMORY", 0x8007000E),
    ("e_INVALIDARG", 0x80070057), ("e_POINTER", 0x80004003), ("e_NOINTERFACE", 0x80004002),
    ("e_MEMBERNOTFOUND", 0x80020003), ("e_TYPEMISMATCH", 0x80020005), ("e_OVERFLOW", 0x8002000A),
    ("e_BADINDEX", 0x8002000B), ("e_BADPARAMCOUNT", 0x8002000E), ("e_PARAMNOTOPTIONAL", 0x8002000F),
    ("e_UNKNOWNNAME", 0x80020006), ("e_BADPATH", 0x80080004),
    ("s_OK", 0), ("s_LuxTool_Warn", 0x40400), ("s_LuxTool_Reject", 0x40410),
]
# Codes that run up from a group's base in the order given.
GROUPS = [
    (0x8004C002, "e_Lux_TimeoutExpired e_Lux_NotImplemented e_Lux_InternalError e_Lux_UnsupportedHardware"),
    (0x8004C100, "e_Lux_FileOpen e_Lux_FileRead e_Lux_FileWrite e_Lux_NoFileOpen e_Lux_BadFileFormat e_Lux_BadFileMode"),
    (0x8004C150, "e_Lux_ChangeEventError"),
    (0x8004C180, "e_LuxCollection_InvalidIndex e_LuxCollection_InvalidKey e_LuxCollection_KeyNotFound "
                 "e_LuxCollection_DuplicateItem e_LuxCollection_DuplicateKey e_LuxCollection_NullItem"),
    (0x8004E100, "e_LuxImage_Allocated e_LuxImage_AllocateSize e_LuxImage_NoPixels e_LuxImage_Clipped "
                 "e_LuxImage_BadCoord e_LuxImage_BadType e_LuxImage_NoTree e_LuxImage_BadSelectedSpaceName"),
    (0x8004E200, "e_LuxTransform_NotLinear e_LuxTransform_CantPopEmptyComposed e_LuxTransform_TooFewPointsLinFit "
                 "e_LuxTransform_Singular e_LuxTransform_SingularPoint"),
    (0x8004E280, "e_LuxSpaceTree_DuplicateChildName e_LuxSpaceTree_InvalidNameSyntax e_LuxSpaceTree_NotInTree "
                 "e_LuxSpaceTree_NotUnique e_LuxSpaceTree_FixturedSpaceNameCollision"),
    (0x8004E300, "e_LuxShape_NotRectangle e_LuxShape_NotAffineRect e_LuxShape_NoCompositeChildren "
                 "e_LuxShape_CoordinatesMustDiffer e_LuxShape_DegeneratePolygon e_LuxShape_CannotEnclose "
                 "e_LuxShape_DegenerateShape e_LuxShape_ComplexPolygon e_LuxShape_CantParentShape "
                 "e_LuxShape_CannotConvert e_LuxShape_BadContourSegType e_LuxShape_BadContourSegConn "
                 "e_LuxShape_AddWontBreakContour e_LuxShape_PenKeyInUse e_LuxShape_BadContourSegmentSet "
                 "e_LuxShape_BadContourChainClosure e_LuxShape_DegenerateContour e_LuxShape_AlreadyAShapeModel "
                 "e_LuxShape_DegenerateEllipticalArcSeg"),
    (0x8004E400, "e_LuxOperator_NoInputImage e_LuxOperator_NotTrained e_LuxOperator_InvalidRegion "
                 "e_LuxOperator_NoTrainImage e_LuxOperator_NoRunParams e_LuxOperator_InvalidShape"),
    (0x8004E500, "e_LuxTool_NoOperator e_LuxTool_NoResult e_LuxTool_SpaceNameMismatch"),
    (0x8004E700, "e_LuxRLEBuffer_NotInitialized e_LuxRLEBuffer_CombineFailed e_LuxRLEBuffer_CombineSubImageSize "
                 "e_LuxRLEBuffer_CombineSubImageOffset e_LuxRLEBuffer_CombineSubImageExtent"),
    (0x8004E800, "e_LuxIOLine_NotEnabled e_LuxIOLine_CannotEnable"),
    (0x8004E900, "e_LuxIterator_InvalidIterator e_LuxIterator_InvalidPosition e_LuxIterator_EndOfContainer"),
    (0x80044300, "e_LuxFit_InsufficientPoints"),
    (0x80044400, "e_LuxMath_Unsupported_Geometry"),
]
# The acquisition group skips 0x601 on purpose.
ACQUISITION_CODES = [
    ("e_LuxAcq_BadVideoFormat", 0x00), ("e_LuxAcq_Timeout", 0x02), ("e_LuxAcq_EncoderOverrun", 0x03),
    ("e_LuxAcq_InvalidROI", 0x04), ("e_LuxAcq_Overrun", 0x05), ("e_LuxAcq_BadTicket", 0x06),
    ("e_LuxAcq_OldTicket", 0x07), ("e_LuxAcq_NoFrameGrabber", 0x08), ("e_LuxAcq_WrongTriggerModel", 0x09),
    ("e_LuxAcq_Missed", 0x0A), ("e_LuxAcq_Abnormal", 0x0B), ("e_LuxAcq_NotAllowedForSlave", 0x0C),
    ("e_LuxAcq_CannotSlave", 0x0D), ("e_LuxAcq_Timing", 0x0E), ("e_LuxAcq_HardwareInUse", 0x0F),
    ("e_LuxAcq_NoCameras", 0x10), ("e_LuxAcq_OtherFifoError", 0x11), ("e_LuxAcq_NoOutstandingStarts", 0x12),
    ("e_LuxAcq_TooManyStarts", 0x13), ("e_LuxAcq_CannotCreateFifo", 0x14), ("e_LuxAcq_RegisterAccess", 0x15),
]


def run(*args):
    return subprocess.run([TESSALY, *args], capture_output=True, text=True, timeout=60)


class TypeLibraryCommandTest(unittest.TestCase):
    def test_listing_names_every_kind_of_entry(self):
        result = run("typelib")
        self.assertEqual(result.returncode, 0, result.stderr)
        for section in ("interfaces:", "dispinterfaces:", "enumerations:", "coclasses:"):
            self.assertIn(section, result.stdout)
        listing = result.stdout
        # Each entry in its own section.
        self.assertLess(listing.index("interfaces:"), listing.index("  ILuxObject  dual"))
        self.assertLess(listing.index("dispinterfaces:"), listing.index("  ILuxChangeEvent  "))
        self.assertLess(listing.index("enumerations:"), listing.index("  LuxErrConstants  "))
        self.assertLess(listing.index("coclasses:"), listing.index("  LuxEventInfo  (noncreatable)"))

    def test_error_table_is_printed_exactly(self):
        result = run("typelib", "LuxErrConstants")
        self.assertEqual(result.returncode, 0, result.stderr)
        lines = [l.split("  # ")[0].strip() for l in result.stdout.splitlines() if " = " in l]
        table = dict(l.split(" = ", 1) for l in lines)
        expected = {name: code for name, code in STANDARD_CODES}
        for base, names in GROUPS:
            for offset, name in enumerate(names.split()):
                expected[name] = base + offset
        for name, low in ACQUISITION_CODES:
            expected[name] = 0x8004E600 + low
        printed = {name: value for name, value in table.items() if name.startswith(("e_", "s_"))}
        self.assertEqual(set(printed), set(expected))
        for name, code in expected.items():
            signed = code - (1 << 32) if code >= 0x80000000 else code
            self.assertEqual(printed[name], f"{signed} (0x{code:X})", name)
        self.assertNotIn(f"{0x8004E601 - (1 << 32)} ", " ".join(printed.values()) + " ", "0x8004E601 stays unused")
        for line in lines:
            self.assertRegex(line, r"^\w+ = -?\d+ \(0x[0-9A-F]+\)$")

    def test_interface_members_show_dispid_kind_signature_and_help(self):
        result = run("typelib", "iluxobject")  # names are case-insensitive
        self.assertEqual(result.returncode, 0, result.stderr)
        out = result.stdout
        self.assertIn("interface ILuxObject", out)
        self.assertIn("{A8D8EE47-0B1D-4EA9-BECE-5097EC496258}", out)
        self.assertRegex(out, r"0x0100A02A  method\s+IDispatch\* CreateObject\(\[in\] BSTR ProgIDOrClassID\)")
        self.assertRegex(out, r"0x0100A02B  propget\s+VARIANT Tag\(\)")
        self.assertRegex(out, r"0x0100A02B  propputref\s+void Tag\(\[in\] VARIANT Tag\)")
        self.assertIn("Create a deep copy of this object.", out)

    def test_coclass_shows_identity_and_interfaces(self):
        result = run("typelib", "LuxChangeEventConfiguration")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn("clsid:  {50952756-B23B-4594-BEA8-D37A9796C525}", result.stdout)
        self.assertIn("progid: Tessaly.LuxChangeEventConfiguration.1", result.stdout)
        self.assertIn("version-independent progid: Tessaly.LuxChangeEventConfiguration", result.stdout)
        self.assertIn("[default] ILuxChangeEventConfiguration_Disp", result.stdout)

    def test_unknown_name_and_unknown_command_exit_with_status_two(self):
        result = run("typelib", "ILuxNothing")
        self.assertEqual(result.returncode, 2)
        self.assertIn("'ILuxNothing'", result.stderr)
        self.assertEqual(result.stdout, "")
        result = run("frobnicate")
        self.assertEqual(result.returncode, 2)
        self.assertIn("unknown command 'frobnicate'", result.stderr)
        self.assertEqual(run().returncode, 2)


if __name__ == "__main__":
    unittest.main()
