"""Calls: arguments (positional, keyword, optional, defaults), out parameters, properties
with and without indices, the default member, iteration, and failures."""

import pytest

import tessaly
from codes import DISP_E_BADINDEX, DISP_E_DIVBYZERO, E_INVALIDARG, hresult

constants = tessaly.constants


def test_optional_arguments_take_their_defaults(probe):
    assert probe.Greet() == "Hello, world"
    assert probe.Greet("you") == "Hello, you"
    assert probe.Greet("you", True) == "HELLO, YOU!"
    assert probe.Greet(Loud=True) == "HELLO, WORLD!"  # a keyword past an omitted optional argument
    assert probe.greet(name="x", LOUD=False) == "Hello, x"  # keywords in any case
    assert probe.Describe() == "missing"  # an omitted VARIANT without a default arrives as missing
    assert probe.Describe(None) == "vt 0"
    assert probe.Bump(41) == 42 and probe.Bump(41, 9) == 50 and probe.Bump(Counter=1, Step=-1) == 0


def test_wrong_arguments_are_refused_before_the_call(probe):
    calls = probe.Calls()
    with pytest.raises(TypeError, match=r"Probe.Divide\(\) missing required argument 'Divisor'"):
        probe.Divide(1)
    with pytest.raises(TypeError, match=r"Probe.Divide\(\) takes 2 arguments \(3 given\)"):
        probe.Divide(1, 2, 3)
    with pytest.raises(TypeError, match="unexpected keyword argument 'Quotient'"):
        probe.Divide(1, 2, Quotient=3)  # out parameters are not passed
    with pytest.raises(TypeError, match="unexpected keyword argument 'Nonsense'"):
        probe.Greet(Nonsense=1)
    with pytest.raises(TypeError, match="multiple values for argument 'Dividend'"):
        probe.Divide(1, Dividend=2, Divisor=3)
    with pytest.raises(TypeError, match="missing required argument 'Column'"):
        probe.Cell[1]
    assert probe.Calls() == calls


def test_out_parameters_are_returned_after_the_retval(probe):
    assert probe.Divide(17, 5) == (3, 2)  # two [out]: a tuple
    assert probe.Divide(Divisor=5, Dividend=-17) == (-3, -2)
    assert probe.Split("left right side") == (2, "left", "right side")  # the retval first
    assert probe.Split("alone") == (1, "alone", None)
    assert probe.Bump(1) == 2  # one [in, out]: alone
    assert probe.Swap("text", 1.5) == ("text!", "text")
    assert probe.Fire(0) is None  # nothing to return


def test_failures_raise_com_error_with_code_description_and_source(probe):
    with pytest.raises(tessaly.ComError) as caught:
        probe.Divide(1, 0)
    error = caught.value
    assert (error.hresult, error.description, error.source) == (DISP_E_DIVBYZERO, "Division by zero", "Divide")
    assert str(error) == "Divide: Division by zero (0x80020012)"
    assert error.args == (DISP_E_DIVBYZERO, "Division by zero", "Divide")
    # A failure its member does not describe: the standard text, the member as source.
    with pytest.raises(tessaly.ComError) as caught:
        probe.Fail(hresult(0x80004001))
    assert (caught.value.hresult, caught.value.description, caught.value.source) == (
        hresult(0x80004001), "Not implemented", "Probe.Fail")
    # Any code of the library passes through unchanged.
    with pytest.raises(tessaly.ComError) as caught:
        probe.Fail(constants.e_LuxImage_BadCoord, "outside")
    assert caught.value.hresult == constants.e_LuxImage_BadCoord and caught.value.description == "outside"
    assert isinstance(caught.value, Exception)


def test_a_refused_call_leaves_the_collection_as_it_was(collection):
    collection.Add(1, "one")
    with pytest.raises(tessaly.ComError) as caught:
        collection.Add(2, "ONE")
    assert caught.value.hresult == constants.e_LuxCollection_DuplicateKey
    assert caught.value.source == "Add" and "ONE" in caught.value.description
    with pytest.raises(tessaly.ComError) as caught:
        collection.Item[1] = 3
    assert caught.value.hresult == constants.e_LuxCollection_InvalidIndex
    with pytest.raises(tessaly.ComError) as caught:
        collection.Remove("two")
    assert caught.value.hresult == constants.e_LuxCollection_KeyNotFound
    with pytest.raises(tessaly.ComError) as caught:
        collection.Move(0, -1)
    assert caught.value.hresult == constants.e_LuxCollection_InvalidIndex
    assert list(collection) == [1] and collection.Key[0] == "one"


def test_properties_read_and_write(probe, collection):
    assert probe.Shade == constants.probeShadeDark
    probe.Shade = constants.probeShadeLight
    assert probe.Shade == constants.probeShadeLight
    with pytest.raises(tessaly.ComError) as caught:
        probe.Shade = 7
    assert caught.value.hresult == E_INVALIDARG and caught.value.source == "Shade"
    assert probe.Shade == constants.probeShadeLight
    collection.Tag = "note"
    assert collection.Tag == "note"
    collection.Tag = None
    assert collection.Tag is None


def test_properties_with_indices(probe):
    probe.Cell[1, 2] = 4.5
    assert probe.Cell[1, 2] == 4.5
    assert probe.Cell(1, 2) == 4.5 and probe.Cell(Column=2, Row=1) == 4.5
    assert probe.Cell[2, 1] == 0.0
    for row, column in [(3, 0), (0, 3), (-1, 0)]:
        with pytest.raises(tessaly.ComError) as caught:
            probe.Cell[row, column] = 1.0
        assert caught.value.hresult == DISP_E_BADINDEX and caught.value.source == "Cell"
    with pytest.raises(TypeError):
        del probe.Cell[1, 2]
    assert probe.Cell[1, 2] == 4.5
    assert repr(probe.Cell).startswith("<indexed property Probe.Cell of <tessaly.Probe object")


def test_collection_items_keys_and_the_default_member(collection, strings):
    collection.Add("a", "first")
    collection.Add("b")
    assert collection.Item[0] == "a" and collection.Item["FIRST"] == "a" and collection.Item(1) == "b"
    collection.Key[1] = "second"
    assert collection.Key[1] == "second"
    collection.Item["second"] = "B"  # an existing key replaces
    collection.Item["third"] = "c"  # a new key appends
    assert list(collection) == ["a", "B", "c"]
    assert collection["third"] == "c"  # the default member: Item
    collection[0] = "A"
    assert collection.Item[0] == "A"
    with pytest.raises(TypeError):
        del collection[0]
    strings.Add("x", "k")
    strings["k"] = "y"
    assert strings.Item[0] == "y" and strings["K"] == "y"
    with pytest.raises(TypeError, match="no default member"):
        tessaly.CreateObject("Tessaly.LuxDictionary")[0]


def test_collections_iterate_and_count(collection, strings, probe):
    assert len(collection) == 0 and not collection and list(collection) == []
    for value in (1, "two", 3.0):
        collection.Add(value)
    assert len(collection) == 3 and collection
    assert list(collection) == [1, "two", 3.0]
    snapshot = iter(collection)
    collection.Add(4)
    assert list(snapshot) == [1, "two", 3.0]  # enumerators see the items of their start
    assert [item for item in collection] == [1, "two", 3.0, 4]
    assert "two" in collection and "nine" not in collection
    strings.Add("only")
    assert list(strings) == ["only"] and len(strings) == 1
    assert probe  # an object that is not a collection is true and has no length
    with pytest.raises(TypeError):
        len(probe)
    with pytest.raises(TypeError, match="'Probe' object is not iterable"):
        iter(probe)


def test_values_that_do_not_convert_raise_type_error_naming_the_parameter(probe, collection):
    with pytest.raises(TypeError, match=r"LuxCollection.Add: argument 'Item': cannot convert dict"):
        collection.Add({})
    with pytest.raises(TypeError, match=r"LuxCollection.Add: argument 'Key': cannot convert object"):
        collection.Add(1, object())
    with pytest.raises(TypeError, match=r"Probe.Divide: argument 'Dividend' \(str\) does not convert to long"):
        probe.Divide("ten", 2)
    with pytest.raises(TypeError, match=r"LuxCollection.Tag: the value: cannot convert set"):
        collection.Tag = {1, 2}
    with pytest.raises(OverflowError, match=r"Probe.Divide: argument 'Divisor' \(int\) is out of the range of long"):
        probe.Divide(1, 2**40)
    with pytest.raises(OverflowError, match=r"Probe.Echo: argument 'Value': the int does not fit in 64 bits"):
        probe.Echo(2**64)
    assert collection.Count == 0
    # Text the callee reads as a number converts, as automation converts it.
    assert probe.Divide("12", 5) == (2, 2)
