"""Conversions both ways: the VARIANT type each Python value becomes (read by Probe.VarType),
the value that comes back (Probe.Echo), arrays with their element types, shapes and index
order, and values that have no automation form."""

import datetime
import math
from decimal import Decimal

import numpy as np
import pytest

import tessaly
from codes import (DISP_E_BADINDEX, E_NOINTERFACE, VT_ARRAY, VT_BOOL, VT_BSTR, VT_CY, VT_DATE, VT_DISPATCH, VT_EMPTY,
                   VT_I1, VT_I2, VT_I4, VT_I8, VT_R4, VT_R8, VT_UI1, VT_UI2, VT_UI4, VT_UI8, VT_UNKNOWN, VT_VARIANT)


@pytest.mark.parametrize("value, vt", [
    (None, VT_EMPTY),
    (True, VT_BOOL),
    (False, VT_BOOL),
    (0, VT_I4),
    (2**31 - 1, VT_I4),
    (-2**31, VT_I4),
    (2**31, VT_I8),
    (-2**31 - 1, VT_I8),
    (2**63 - 1, VT_I8),
    (-2**63, VT_I8),
    (1.5, VT_R8),
    ("", VT_BSTR),
    ("text", VT_BSTR),
    (b"ab", VT_ARRAY | VT_UI1),
    (bytearray(b"ab"), VT_ARRAY | VT_UI1),
    ([1, "a"], VT_ARRAY | VT_VARIANT),
    ((1, 2), VT_ARRAY | VT_VARIANT),
    (range(3), VT_ARRAY | VT_VARIANT),
    (np.int8(1), VT_I1),
    (np.uint8(1), VT_UI1),
    (np.int16(1), VT_I2),
    (np.uint16(1), VT_UI2),
    (np.int32(1), VT_I4),
    (np.uint32(1), VT_UI4),
    (np.int64(1), VT_I8),
    (np.uint64(1), VT_UI8),
    (np.float32(1), VT_R4),
    (np.float64(1), VT_R8),
    (np.bool_(True), VT_BOOL),
    (np.str_("x"), VT_BSTR),
    (datetime.datetime(2024, 1, 2), VT_DATE),
    (datetime.date(2024, 1, 2), VT_DATE),
    (Decimal("1.5"), VT_CY),
])
def test_python_values_become_their_variant_types(probe, value, vt):
    assert probe.VarType(value) == vt


@pytest.mark.parametrize("value", [
    None, True, False, 0, -1, 2**31 - 1, -2**31, 2**31, -2**63, 2**63 - 1,
    0.1, -1e300, 5e-324, math.inf, -math.inf,
    "", "text", "naïve ünïcode ✓ 漢字", "embedded\0nul", "\udcff\udc80",
])
def test_scalar_values_round_trip_with_their_type(probe, value):
    back = probe.Echo(value)
    assert type(back) is type(value) and back == value


def test_numbers_come_back_as_python_numbers(probe):
    assert math.isnan(probe.Echo(math.nan))
    assert probe.Echo(np.int8(-5)) == -5 and type(probe.Echo(np.int8(-5))) is int
    assert probe.Echo(np.uint8(255)) == 255
    assert probe.Echo(np.int16(-30000)) == -30000
    assert probe.Echo(np.uint16(65535)) == 65535
    assert probe.Echo(np.uint32(4_000_000_000)) == 4_000_000_000
    assert probe.Echo(np.uint64(2**64 - 1)) == 2**64 - 1
    assert probe.Echo(np.float32(0.5)) == 0.5 and type(probe.Echo(np.float32(0.5))) is float
    assert probe.Echo(np.bool_(False)) is False


@pytest.mark.parametrize("moment", [
    datetime.datetime(2024, 2, 29, 13, 45, 30),
    datetime.datetime(2024, 2, 29, 13, 45, 30, 250000),
    datetime.datetime(1899, 12, 30),
    datetime.datetime(1899, 12, 29, 6, 0),
    datetime.datetime(1600, 1, 1, 18, 0),
    datetime.datetime(9999, 12, 31, 12, 0),
])
def test_dates_round_trip(probe, moment):
    assert probe.Echo(moment) == moment


def test_dates_and_currency(probe):
    assert probe.Echo(datetime.date(2000, 1, 2)) == datetime.datetime(2000, 1, 2)  # a date alone: midnight
    assert probe.Echo(Decimal("1.2345")) == Decimal("1.2345")
    assert probe.Echo(Decimal("0.00005")) == Decimal("0.0000")  # four decimals, ties to even
    assert probe.Echo(Decimal("0.00015")) == Decimal("0.0002")
    assert probe.Echo(Decimal("-922337203685477.5808")) == Decimal("-922337203685477.5808")
    with pytest.raises(OverflowError, match="argument 'Value'"):
        probe.Echo(Decimal("922337203685477.5808"))
    with pytest.raises(TypeError, match="argument 'Value'"):
        probe.Echo(Decimal("nan"))


@pytest.mark.parametrize("dtype, vt", [
    (np.int8, VT_I1), (np.uint8, VT_UI1), (np.int16, VT_I2), (np.uint16, VT_UI2), (np.int32, VT_I4),
    (np.uint32, VT_UI4), (np.int64, VT_I8), (np.uint64, VT_UI8), (np.float32, VT_R4), (np.float64, VT_R8),
    (np.bool_, VT_BOOL),
])
def test_numpy_arrays_keep_their_element_type_and_shape(probe, dtype, vt):
    array = (np.arange(12) % 7).astype(dtype).reshape(3, 4)
    assert probe.VarType(array) == VT_ARRAY | vt
    back = probe.Echo(array)
    assert isinstance(back, np.ndarray)
    assert back.dtype == array.dtype and back.shape == (3, 4)
    assert np.array_equal(back, array)
    big_endian = array.astype(array.dtype.newbyteorder(">"))
    assert np.array_equal(probe.Echo(big_endian), array)


def test_array_indices_mean_the_same_on_both_sides(probe):
    array = np.arange(12, dtype=np.int32).reshape(3, 4)
    for i, j in [(0, 0), (0, 3), (2, 0), (1, 2), (2, 3)]:
        assert probe.Element(array, i, j) == array[i, j]
    assert probe.Element(array.T, 3, 1) == array[1, 3]  # a view with other strides
    assert probe.Element(array[::2, 1:], 1, 2) == array[2, 3]
    assert probe.Element(np.array([5, 6, 7]), 2) == 7
    with pytest.raises(tessaly.ComError) as caught:
        probe.Element(array, 3, 0)
    assert caught.value.hresult == DISP_E_BADINDEX
    matrix = probe.MakeMatrix(2, 3)  # a(r, c) = 10 r + c, made on the library's side
    assert matrix.shape == (2, 3) and matrix.dtype == np.float64
    assert matrix.tolist() == [[0.0, 1.0, 2.0], [10.0, 11.0, 12.0]]
    cube = np.arange(24, dtype=np.int16).reshape(2, 3, 4)
    assert np.array_equal(probe.Echo(cube), cube)
    assert probe.Echo(np.zeros((0, 3))).shape == (0, 3)
    assert probe.MakeMatrix(0, 2).shape == (0, 2)


def test_arrays_of_strings_and_of_variants(probe, collection):
    words = np.array([["a", "b"], ["c", "déjà"]])
    assert probe.VarType(words) == VT_ARRAY | VT_BSTR
    assert probe.Element(words, 1, 0) == "c"
    back = probe.Echo(words)
    assert back.dtype == object and back.tolist() == [["a", "b"], ["c", "déjà"]]
    mixed = [1, "two", 3.0, None, collection, [4, 5], b"\x06"]
    back = probe.Echo(mixed)
    assert back.dtype == object and back.shape == (7,)
    assert back[0] == 1 and back[1] == "two" and back[2] == 3.0 and back[3] is None
    assert back[4] == collection
    assert back[5].tolist() == [4, 5] and back[6].tolist() == [6]
    objects = np.array([collection, 2], dtype=object)
    assert probe.VarType(objects) == VT_ARRAY | VT_VARIANT
    assert probe.Echo(objects)[0] == collection
    collection.Add([1, [2, 3]])
    stored = collection.Item[0]
    assert stored[0] == 1 and stored[1].tolist() == [2, 3]
    collection.Clear()


def test_sequences_become_the_array_type_a_parameter_declares(probe):
    assert probe.Checksum(b"\x01\x02\xff") == 258
    assert probe.Checksum(bytearray([1, 2])) == 3
    assert probe.Checksum([1, 2, 3]) == 6
    assert probe.Checksum(np.array([1, 2], dtype=np.uint8)) == 3
    assert probe.Checksum(np.array([1, 2])) == 3  # int64 values that fit
    assert probe.Checksum([]) == 0
    assert probe.Total([1, 2.5]) == 3.5
    assert probe.Total(np.arange(4, dtype=np.int32)) == 6.0
    assert probe.Total(np.ones(3, np.float32)) == 3.0
    with pytest.raises(TypeError, match=r"Probe.Checksum: argument 'Data': .*int64 does not convert to unsigned char"):
        probe.Checksum([1, 256])
    with pytest.raises(TypeError, match="argument 'Data'"):
        probe.Checksum([1.5])
    with pytest.raises(TypeError, match="argument 'Data'"):
        probe.Checksum(np.array([-1], dtype=np.int8))
    with pytest.raises(TypeError, match="argument 'Values'"):
        probe.Total(["a"])
    with pytest.raises(TypeError, match="argument 'Data'"):
        probe.Checksum([[1, 2], [3]])


def test_objects_pass_both_ways(probe, collection):
    assert probe.VarType(collection) == VT_DISPATCH
    assert probe.Echo(collection) == collection
    stream = probe.MakeStream("bytes in a stream")
    assert isinstance(stream, tessaly.Unknown)
    assert probe.VarType(stream) == VT_UNKNOWN
    assert probe.ReadStream(stream) == "bytes in a stream"
    assert probe.Echo(stream) == stream and hash(probe.Echo(stream)) == hash(stream)
    with pytest.raises(tessaly.ComError) as caught:
        probe.ReadStream(collection)
    assert caught.value.hresult == E_NOINTERFACE and caught.value.description == "Not a stream"
    assert probe.VarType(tessaly.constants.probeShadeLight) == VT_I4


@pytest.mark.parametrize("value", [
    {}, {1, 2}, object(), 1j, np.complex64(1), np.array([1j]),
    np.array(["2020-01-01"], dtype="datetime64[D]"), np.array([b"x"]), [1, object()],
])
def test_values_without_an_automation_form_raise_type_error(probe, value):
    calls = probe.Calls()
    with pytest.raises(TypeError, match=r"Probe.Echo: argument 'Value'"):
        probe.Echo(value)
    assert probe.Calls() == calls


def test_containers_that_hold_themselves_raise_recursion_error(probe):
    loop = []
    loop.append(loop)
    holder = np.empty(1, dtype=object)
    holder[0] = holder
    for value in (loop, holder):
        with pytest.raises(RecursionError):
            probe.Echo(value)
