"""Saving and loading object graphs from Python: files and bytes in every format, shared
objects staying shared, and failures as ComError with the library's codes."""

import numpy
import pytest

import tessaly
from codes import hresult

C = tessaly.constants
E_LUX_BADFILEFORMAT = hresult(0x8004C104)
E_LUX_FILEOPEN = hresult(0x8004C100)


def build_graph():
    top = tessaly.CreateObject("Tessaly.LuxCollection")
    shared = tessaly.CreateObject("Tessaly.LuxStringCollection")
    shared.Add("a < b & c", "first")
    top.Add(shared, "one")
    top.Add(shared, "again")
    top.Add(numpy.arange(12, dtype=numpy.int16).reshape(3, 4))
    top.Add(2.5)
    return top


def check_graph(loaded):
    assert type(loaded).__name__ == "LuxCollection"
    assert loaded.Count == 4
    assert loaded["one"] == loaded["again"]  # one object, still shared
    assert loaded["one"]["first"] == "a < b & c"
    array = loaded[2]
    assert array.dtype == numpy.int16 and array.shape == (3, 4)
    assert (array == numpy.arange(12).reshape(3, 4)).all()
    assert loaded[3] == 2.5


@pytest.mark.parametrize(
    "format",
    [C.luxPersistFormatXML, C.luxPersistFormatXMLWithLineBreaks, C.luxPersistFormatBinary, C.luxPersistFormatAny],
)
def test_graphs_round_trip_through_bytes_and_files_in_every_format(tmp_path, format):
    top = build_graph()
    data = tessaly.SaveObjectToBytes(top, format)
    assert isinstance(data, bytes)
    check_graph(tessaly.LoadObjectFromBytes(data, format))
    check_graph(tessaly.LoadObjectFromBytes(bytearray(data)))  # Any tells the format by itself

    path = tmp_path / "graph.archive"
    tessaly.SaveObjectToFile(top, str(path), format)
    assert path.read_bytes() == data
    check_graph(tessaly.LoadObjectFromFile(str(path)))


def test_xml_is_text_and_binary_is_not():
    top = build_graph()
    assert tessaly.SaveObjectToBytes(top, C.luxPersistFormatXML).startswith(b'<?xml version="1.0"?>\r\n<Root ')
    assert not tessaly.SaveObjectToBytes(top, C.luxPersistFormatBinary).startswith(b"<")


def test_failures_raise_com_errors_and_leave_the_old_file(tmp_path):
    with pytest.raises(tessaly.ComError) as error:
        tessaly.LoadObjectFromBytes(b"<?xml version=\"1.0\"?>\r\n<Root><Object ProgID=")
    assert error.value.hresult < 0 and error.value.description

    with pytest.raises(tessaly.ComError) as error:
        tessaly.LoadObjectFromBytes(b"\x89TSAR\r\n\x1a" + b"\xff" * 40, C.luxPersistFormatBinary)
    assert error.value.hresult == E_LUX_BADFILEFORMAT

    missing = tmp_path / "missing.archive"
    with pytest.raises(tessaly.ComError) as error:
        tessaly.LoadObjectFromFile(str(missing))
    assert error.value.hresult == E_LUX_FILEOPEN
    assert str(missing) in error.value.description

    # A save that cannot finish (an unknown format) leaves the existing file as it was.
    path = tmp_path / "kept.archive"
    path.write_bytes(b"old contents")
    with pytest.raises(tessaly.ComError):
        tessaly.SaveObjectToFile(build_graph(), str(path), 77)
    assert path.read_bytes() == b"old contents"
    assert [p.name for p in tmp_path.iterdir()] == ["kept.archive"]

    with pytest.raises(TypeError):
        tessaly.SaveObjectToBytes("not an object")
    with pytest.raises(TypeError):
        tessaly.LoadObjectFromBytes(numpy.zeros(3, dtype=numpy.int32))


def test_a_graph_holding_itself_is_freed_once_cleared():
    top = tessaly.CreateObject("Tessaly.LuxCollection")
    top.Add(top, "self")
    top.Add(build_graph())
    loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(top, C.luxPersistFormatXML))
    assert loaded["self"] == loaded
    before = tessaly.LiveObjectCount()
    tessaly.ClearObjectGraph(top)
    tessaly.ClearObjectGraph(loaded)
    assert loaded.Count == 0 and top.Count == 0
    del top, loaded
    # The two graphs, each a cycle, are gone: 2 x (two collections and a string collection;
    # nobody listened, so no collection linked its items).
    assert tessaly.LiveObjectCount() == before - 6

    with pytest.raises(TypeError):
        tessaly.ClearObjectGraph(42)
