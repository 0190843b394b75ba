"""The SOAP archive format from Python: saved and loaded by constant and by detection,
shared objects and cycles kept, values and arrays back with their types, and a damaged
envelope refused with the formatter's own code."""

import numpy
import pytest

import tessaly
from codes import hresult

C = tessaly.constants
IDS_LUXFORMATTER_UNRESOLVEDHREF = hresult(0x80048304)
IDS_LUXFORMATTER_INVALIDNODEOBJECT = hresult(0x80048305)


def test_soap_round_trip_keeps_sharing_cycles_types_and_arrays(tmp_path):
    top = tessaly.CreateObject("Tessaly.LuxCollection")
    shared = tessaly.CreateObject("Tessaly.LuxStringCollection")
    shared.Add("a < b & c", "first")
    top.Add(shared, "one")
    top.Add(shared, "again")
    top.Add(top, "self")
    top.Add(numpy.arange(12, dtype=numpy.int16).reshape(3, 4))
    top.Add(numpy.frombuffer(b"\x00\xffbytes", dtype=numpy.uint8))
    top.Add("12")
    top.Add(2.0)
    top.Add(True)
    data = tessaly.SaveObjectToBytes(top, C.luxPersistFormatSoap)
    assert data.startswith(b'<?xml version="1.0"?>\r\n<SOAP-ENV:Envelope ')
    assert data.count(b'lux:class="Tessaly.LuxCollection.1"') == 1
    assert b'<Item5 xsi:type="xsd:string">12</Item5>' in data
    path = tmp_path / "graph.soap"
    tessaly.SaveObjectToFile(top, str(path), C.luxPersistFormatSoap)
    assert path.read_bytes() == data
    for loaded in (tessaly.LoadObjectFromBytes(data), tessaly.LoadObjectFromFile(str(path), C.luxPersistFormatSoap)):
        assert loaded["one"] == loaded["again"]
        assert loaded["self"] == loaded
        assert loaded["one"]["first"] == "a < b & c"
        shorts = loaded[3]
        assert shorts.dtype == numpy.int16 and shorts.shape == (3, 4)
        assert (shorts == numpy.arange(12).reshape(3, 4)).all()
        assert bytes(loaded[4]) == b"\x00\xffbytes"
        assert loaded[5] == "12" and loaded[6] == 2.0 and loaded[7] is True
        # The same graph in the binary format, byte for byte.
        assert tessaly.SaveObjectToBytes(loaded, C.luxPersistFormatBinary) == tessaly.SaveObjectToBytes(
            top, C.luxPersistFormatBinary)
        tessaly.ClearObjectGraph(loaded)
    tessaly.ClearObjectGraph(top)


def test_damaged_envelopes_raise_the_formatters_code():
    top = tessaly.CreateObject("Tessaly.LuxCollection")
    top.Add(tessaly.CreateObject("Tessaly.LuxCollection"))
    data = tessaly.SaveObjectToBytes(top, C.luxPersistFormatSoap)
    with pytest.raises(tessaly.ComError) as failure:
        tessaly.LoadObjectFromBytes(data.replace(b'href="#ref-2"', b'href="#ref-9"'))
    assert failure.value.hresult == IDS_LUXFORMATTER_UNRESOLVEDHREF
    assert "ref-9" in failure.value.description and "line 2, column" in failure.value.description
    # An XML document is not an envelope: refused when SOAP is asked for, loaded by detection.
    xml = tessaly.SaveObjectToBytes(top, C.luxPersistFormatXML)
    with pytest.raises(tessaly.ComError) as failure:
        tessaly.LoadObjectFromBytes(xml, C.luxPersistFormatSoap)
    assert failure.value.hresult == IDS_LUXFORMATTER_INVALIDNODEOBJECT
    assert tessaly.LoadObjectFromBytes(xml).Count == 1
