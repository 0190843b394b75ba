"""Objects: creation by name, their classes and members, help, identity, constants and the
release of the references Python holds."""

import gc
import inspect
import pydoc
import weakref

import pytest

import tessaly
from codes import (CLASS_E_CLASSNOTAVAILABLE, CO_E_CLASSSTRING, E_INVALIDARG, REGDB_E_CLASSNOTREG, hresult)


def test_create_object_takes_every_form_of_a_class_name():
    for name in ("Tessaly.LuxCollection", "Tessaly.LuxCollection.1", "tessaly.luxcollection",
                 "{B809278B-0289-46F7-9589-972AA350300E}", "{b809278b-0289-46f7-9589-972aa350300e}"):
        created = tessaly.CreateObject(name)
        assert type(created).__name__ == "LuxCollection", name
        assert created.Count == 0


@pytest.mark.parametrize("name, code", [
    ("not a ProgID!", CO_E_CLASSSTRING),
    ("", CO_E_CLASSSTRING),
    ("Tessaly.NoSuchClass", REGDB_E_CLASSNOTREG),
    ("{00000000-0000-0000-0000-000000000001}", REGDB_E_CLASSNOTREG),
    ("TessalyPythonTest.SealedProbe", CLASS_E_CLASSNOTAVAILABLE),
])
def test_create_object_refusals_raise_com_error(name, code):
    start = tessaly.LiveObjectCount()
    with pytest.raises(tessaly.ComError) as caught:
        tessaly.CreateObject(name)
    assert caught.value.hresult == code
    assert caught.value.source == "CreateObject"
    assert caught.value.description
    assert tessaly.LiveObjectCount() == start


def test_objects_from_the_library_come_back_as_objects_of_their_class(collection, probe):
    copy = collection.Clone()  # declared IDispatch*
    made = probe.MakeProbe()  # declared IProbe*
    assert type(copy) is type(collection)
    assert type(made) is type(probe) and type(made).__name__ == "Probe"
    assert made != probe
    collection.Add(probe)  # stored in a VARIANT
    item = collection.Item[0]
    assert type(item) is type(probe) and item == probe
    assert isinstance(probe, tessaly.Object) and isinstance(copy, tessaly.Object)
    assert repr(probe).startswith("<tessaly.Probe object at 0x")
    assert type(probe).__module__ == "tessaly"
    with pytest.raises(TypeError):
        type(probe)()  # only the library makes objects
    collection.Clear()


def test_dir_lists_every_member_of_every_dispatch_interface(collection):
    names = set(dir(collection))
    assert {"Add", "Item", "Key", "Count", "Remove", "Move", "Clear", "FindItem", "FindKey", "_NewEnum"} <= names
    assert {"Clone", "Tag", "CreateObject", "GetLocalComputerName"} <= names  # ILuxObject
    assert {"HasChanged", "Persist", "PreLoad", "PostLoad"} <= names  # ILuxPersistArchive
    assert {"SuspendEventDelivery", "ResumeAndFireEvent", "EventDeliverySuspended"} <= names
    assert "ItemAdded" not in names  # events are not members


def test_member_names_resolve_in_any_case(collection):
    collection.add(1, "one")
    assert collection.COUNT == 1
    assert collection.item["ONE"] == 1
    collection.tag = "marked"
    assert collection.Tag == "marked"
    assert collection.findkey(Key="one") == 0


def test_unknown_members_raise_attribute_error(collection):
    with pytest.raises(AttributeError, match="NoSuchMember"):
        collection.NoSuchMember
    with pytest.raises(AttributeError, match="NoSuchMember"):
        collection.NoSuchMember = 1
    assert not hasattr(collection, "__array_interface__")


def test_assignments_a_member_cannot_take_are_refused_without_a_call(collection, probe):
    with pytest.raises(AttributeError, match="read-only"):
        collection.Count = 5
    with pytest.raises(AttributeError, match="is a method"):
        collection.Add = None
    with pytest.raises(AttributeError, match="cannot be deleted"):
        del collection.Tag
    with pytest.raises(TypeError, match="takes indices"):
        probe.Cell = 1.0
    with pytest.raises(AttributeError, match="write-only"):
        probe.Secret
    calls = probe.Calls()
    probe.Secret = 7
    assert probe.LastSecret == 7
    assert probe.Calls() == calls + 2
    assert collection.Count == 0


def test_help_shows_signatures_and_help_strings(collection):
    doc = collection.Add.__doc__
    assert doc.startswith("Add(Item: VARIANT, Key: BSTR = '', Index: long = -1) -> None")
    assert "Adds an item to the collection." in doc
    assert str(inspect.signature(collection.Add)) == "(Item, Key='', Index=-1)"
    text = pydoc.render_doc(collection.Add, renderer=pydoc.plaintext)
    assert "Add(Item, Key='', Index=-1)" in text and "Adds an item to the collection." in text
    text = pydoc.render_doc(collection.Item, renderer=pydoc.plaintext)
    assert "Item[KeyOrIndex: VARIANT] -> VARIANT, read/write" in text
    assert "Returns the item with the specified key or 0-based index." in text
    # help(obj) documents the class: every member with its help string.
    text = pydoc.render_doc(collection, renderer=pydoc.plaintext)
    assert "An ordered list of values, each with an optional key" in text
    assert "Count -> long, read-only" in text
    assert "Create a deep copy of this object." in text  # a member of ILuxObject
    assert "Tessaly.LuxCollection.1" in type(collection).__doc__


def test_help_of_out_parameters_and_optional_ones(probe):
    assert probe.Split.__doc__.startswith("Split(Text: BSTR) -> (long, Head: BSTR, Tail: VARIANT)")
    assert str(inspect.signature(probe.Split)) == "(Text)"
    assert str(inspect.signature(probe.Greet)) == "(Name='world', Loud=False)"
    assert str(inspect.signature(probe.Describe)) == "(Extra=None)"
    assert type(probe).Shade.__doc__.startswith("Shade -> ProbeShadeConstants, read/write")
    assert type(probe).Secret.__doc__.startswith("Secret = long, write-only")


def test_client_objects_compare_by_the_identity_of_the_library_object(collection):
    other = tessaly.CreateObject("Tessaly.LuxCollection")
    collection.Add(other)
    first, second = collection.Item[0], collection.Item[0]
    assert first is not second
    assert first == second == other and not (first != other)
    assert hash(first) == hash(second) == hash(other)
    assert len({first, second, other, collection}) == 2
    assert collection != other
    assert (collection == 1) is False
    collection.Clear()


def test_python_releases_its_references(collection):
    start = tessaly.LiveObjectCount()
    copies = [collection.Clone() for _ in range(5)]
    assert tessaly.LiveObjectCount() == start + 5
    del copies[0]
    assert tessaly.LiveObjectCount() == start + 4
    watched = weakref.ref(copies[0])
    copies.clear()
    assert watched() is None
    assert tessaly.LiveObjectCount() == start


def test_methods_indexers_and_iterators_keep_their_object_alive():
    start = tessaly.LiveObjectCount()
    add = tessaly.CreateObject("Tessaly.LuxCollection").Add
    items = tessaly.CreateObject("Tessaly.LuxCollection").Item
    assert tessaly.LiveObjectCount() == start + 2
    add(5)
    assert add.__self__.Count == 1
    items["key"] = 3
    assert items["key"] == 3
    iterator = iter(add.__self__)
    del add
    assert list(iterator) == [5]
    del items, iterator
    gc.collect()
    assert tessaly.LiveObjectCount() == start


def test_objects_held_by_the_library_outlive_their_python_objects(collection, probe):
    start = tessaly.LiveObjectCount()
    collection.Add(tessaly.CreateObject("Tessaly.LuxCollection"), "inner")
    probe.Partner = tessaly.CreateObject("Tessaly.LuxStringCollection")
    gc.collect()
    # The inner collection and the partner (the collection links its items only once
    # someone listens to it).
    assert tessaly.LiveObjectCount() == start + 2
    collection.Item["inner"].Add("kept")
    assert collection.Item["inner"].Item[0] == "kept"
    probe.Partner.Add("too")
    assert probe.Partner.Count == 1  # the same object, not a copy
    collection.Remove("inner")
    probe.Partner = None
    assert probe.Partner is None
    assert tessaly.LiveObjectCount() == start


def test_constants_hold_every_enumeration_member():
    constants = tessaly.constants
    assert constants.luxNoIndex == -1
    assert constants.luxCollection_ItemAdded == 1152
    assert constants.luxFA_Misc == 1
    assert constants.e_FAIL == hresult(0x80004005)
    assert constants.e_LuxCollection_InvalidIndex == hresult(0x8004C180)
    assert constants.luxPersistFormatAny == -2
    assert constants.probeShadeLight == 2  # from a library loaded after tessaly
    assert "luxNoIndex" in dir(constants) and "probeShadeDark" in dir(constants)
    with pytest.raises(AttributeError, match="noSuchConstant"):
        constants.noSuchConstant
    import tessaly.constants as imported
    assert imported is constants


def test_objects_without_class_information_are_reached_by_name(probe):
    bare = probe.Bare()
    assert type(bare) is tessaly.Object
    assert repr(bare).startswith("<tessaly.Object object at")
    assert bare != probe  # another object, which passes calls on
    assert bare.Shade == tessaly.constants.probeShadeDark
    bare.shade = tessaly.constants.probeShadeLight  # names in any case
    assert probe.Shade == tessaly.constants.probeShadeLight
    assert bare.Greet("you") == "Hello, you"
    assert bare.Greet() == "Hello, world"
    probe.Cell[2, 2] = 8.5
    assert bare.Cell(2, 2) == 8.5
    with pytest.raises(TypeError, match="keyword"):
        bare.Greet(Name="you")
    with pytest.raises(AttributeError):
        bare.NoSuchMember
    with pytest.raises(tessaly.ComError) as caught:
        bare.Fail(E_INVALIDARG, "refused")
    assert caught.value.hresult == E_INVALIDARG and caught.value.description == "refused"
    with pytest.raises(TypeError, match="not iterable"):
        iter(bare)
