"""VARTYPEs and HRESULTs as the library numbers them, for the tests to compare against."""

VT_EMPTY, VT_I2, VT_I4, VT_R4, VT_R8, VT_CY, VT_DATE, VT_BSTR = 0, 2, 3, 4, 5, 6, 7, 8
VT_DISPATCH, VT_BOOL, VT_VARIANT, VT_UNKNOWN = 9, 11, 12, 13
VT_I1, VT_UI1, VT_UI2, VT_UI4, VT_I8, VT_UI8 = 16, 17, 18, 19, 20, 21
VT_ARRAY = 0x2000


def hresult(code):
    """A code written as unsigned hex, as ComError.hresult holds it (signed 32-bit)."""
    return code - (1 << 32) if code & 0x80000000 else code


E_INVALIDARG = hresult(0x80070057)
E_NOINTERFACE = hresult(0x80004002)
DISP_E_BADINDEX = hresult(0x8002000B)
DISP_E_DIVBYZERO = hresult(0x80020012)
CO_E_CLASSSTRING = hresult(0x800401F3)
REGDB_E_CLASSNOTREG = hresult(0x80040154)
CLASS_E_CLASSNOTAVAILABLE = hresult(0x80040111)
E_NOTIMPL = hresult(0x80004001)

# Acquisition.
E_ACQ_BAD_VIDEO_FORMAT = hresult(0x8004E600)
E_ACQ_TIMEOUT = hresult(0x8004E602)
E_ACQ_BAD_TICKET = hresult(0x8004E606)
E_ACQ_OLD_TICKET = hresult(0x8004E607)
E_ACQ_WRONG_TRIGGER_MODEL = hresult(0x8004E609)
E_ACQ_NO_OUTSTANDING_STARTS = hresult(0x8004E612)
