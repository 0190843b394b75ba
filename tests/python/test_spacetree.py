"""The coordinate space tree from Python: names come back as string collections that behave
like any collection, out parameters come back as tuples, refusals raise ComError with the
tree's codes and the method as source, events reach a Python sink, and help() documents
the members."""

import pydoc

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

constants = tessaly.constants
FULL = constants.luxSpaceTreePathnameFull
PARTIAL = constants.luxSpaceTreePathnamePartial
NONE = constants.luxSpaceTreePathnameNone


def shift(x, y):
    linear = tessaly.CreateObject("Tessaly.LuxTransform2DLinear")
    linear.SetMatrixElementsTranslation(1, 0, 0, 1, x, y)
    return linear


@pytest.fixture
def tree():
    tree = tessaly.CreateObject("Tessaly.LuxCoordinateSpaceTree")
    tree.AddSpace("@", "Fixture", shift(10, 0))
    tree.AddSpace("Fixture", "Part", shift(0, 5))
    tree.AddSpace("^", "Camera", None)
    return tree


class Recorder:
    def __init__(self):
        self.events = []

    def Change(self, StateID, Value, FunctionalArea):
        self.events.append(("Change", StateID, FunctionalArea))

    def SpaceAdded(self, NewSpaceName):
        self.events.append(("SpaceAdded", NewSpaceName))

    def SubtreeMoved(self, OldSpaceName, NewSpaceName):
        self.events.append(("SubtreeMoved", OldSpaceName, NewSpaceName))


def test_names_come_back_as_string_collections(tree):
    children = tree.ChildNames("^")
    assert type(children).__name__ == "LuxStringCollection"
    assert len(children) == 2 and list(children) == ["@\\Fixture", "@\\Camera"]
    assert children[1] == "@\\Camera"
    assert list(tree.ChildNames("^", NONE)) == ["Fixture", "Camera"]
    assert list(tree.AllChildNames("Fixture", PARTIAL, False)) == [".", ".\\Part"]
    leaf = tree.ChildNames("Part")
    assert len(leaf) == 0 and not leaf and list(leaf) == []
    assert list(tree.FindNames("part")) == ["@\\Fixture\\Part"]
    # Optional arguments take their defaults: full names, descendants only.
    assert list(tree.AllChildNames("^")) == ["@\\Fixture", "@\\Fixture\\Part", "@\\Camera"]


def test_out_parameters_come_back_as_tuples(tree):
    assert tree.VerifyName("Part", FULL) == (True, "@\\Fixture\\Part")
    assert tree.VerifyName("Nowhere", FULL) == (False, "")
    assert tree.VerifyChild("Fixture", "Part", PARTIAL, True) == (True, ".\\Part")
    assert tree.VerifyChild("Camera", "Part", FULL, True) == (False, "")
    assert tree.ParentName("Part", PARTIAL) == ".."
    assert tree.ParentName("^") == ""
    assert tree.LookUpName("@/fixture/part") == "@\\Fixture\\Part"
    assert tree.ResolvePartialName("Part", "..\\..\\Camera") == "@\\Camera"


def test_get_transform_maps_between_spaces(tree):
    part_to_camera = tree.GetTransform("Camera", "Part")
    assert part_to_camera.Linear
    assert part_to_camera.MapPoint(1.0, 2.0) == (11.0, 7.0)
    assert tree.GetTransform("Part", "Part").MapPoint(3.0, 4.0) == (3.0, 4.0)


def test_refusals_raise_com_error_and_change_nothing(tree):
    sink = Recorder()
    with tessaly.GetEvents(tree, sink):
        with pytest.raises(tessaly.ComError) as refused:
            tree.AddSpace("^", "Bad\\Name", None)
        assert refused.value.hresult == constants.e_LuxSpaceTree_InvalidNameSyntax
        assert refused.value.source == "AddSpace"
        with pytest.raises(tessaly.ComError) as refused:
            tree.AddSpace("^", "fixture", None)
        assert refused.value.hresult == constants.e_LuxSpaceTree_DuplicateChildName
        with pytest.raises(tessaly.ComError) as refused:
            tree.DeleteSubtree("^")
        assert refused.value.hresult == E_INVALIDARG and refused.value.source == "DeleteSubtree"
        with pytest.raises(tessaly.ComError) as refused:
            tree.LookUpName("Fixture\\Part")
        assert refused.value.hresult == hresult(0x8004E281)
        tree.AddSpace("^", "fixture", None, True, constants.luxAddSpaceIgnoreDuplicate)
    assert sink.events == []
    assert list(tree.AllChildNames("^")) == ["@\\Fixture", "@\\Fixture\\Part", "@\\Camera"]


def test_events_reach_a_python_sink_in_order(tree):
    sink = Recorder()
    robot = tessaly.CreateObject("Tessaly.LuxCoordinateSpaceTree")
    robot.RootName = "Robot"
    with tessaly.GetEvents(tree, sink):
        tree.AddSpace("Camera", "Lens", None)
        tree.MoveSubtree("Part", "Camera")
        tree.AddTree("^", robot, shift(0, 0))  # the sink has no TreeAdded: only Change is heard
    assert sink.events == [
        ("SpaceAdded", "@\\Camera\\Lens"),
        ("Change", -1, 1),
        ("SubtreeMoved", "@\\Fixture\\Part", "@\\Camera\\Part"),
        ("Change", -1, 1),
        ("Change", -1, 1),
    ]
    assert tree.LookUpName("Robot") == "@\\Robot"


def test_help_shows_the_members(tree):
    text = pydoc.render_doc(tree, renderer=pydoc.plaintext)
    assert "A tree of named coordinate spaces" in text
    assert "Grafts another tree by reference under the parent" in text
    assert "RootName -> BSTR, read/write" in text
    assert tree.VerifyName.__doc__.startswith(
        "VerifyName(SpaceName: BSTR, PathnameFormat: LuxSpaceTreePathnameConstants) -> (VARIANT_BOOL, FoundName: BSTR)")
    assert "Tessaly.LuxCoordinateSpaceTree.1" in type(tree).__doc__


def test_root_name_and_persistence(tree):
    tree.RootName = "World"
    assert tree.LookUpName("Part") == "World\\Fixture\\Part"
    for fmt in (constants.luxPersistFormatBinary, constants.luxPersistFormatXML):
        loaded = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(tree, fmt))
        assert list(loaded.AllChildNames("^", FULL, False)) == list(tree.AllChildNames("^", FULL, False))
        assert loaded.GetTransform("^", "Part").MapPoint(0.0, 0.0) == (10.0, 5.0)
