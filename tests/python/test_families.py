"""A class built from an interface family, as a Python client sees it: the members of the
base interface and of the derived one on one object, the C++-only interface out of reach,
and the changes of a child reported as sub-object events that describe them."""

import pytest

import tessaly
from codes import E_INVALIDARG

constants = tessaly.constants


class ChangeRecorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        self.changes.append((StateID, Value, FunctionalArea))


@pytest.fixture
def figure():
    return tessaly.CreateObject("Tessaly.TestRectFigure")


def test_base_and_derived_members_are_members_of_one_object(figure):
    figure.Width = 4
    figure.Height = 2.5
    figure.Name = "gauge"
    assert figure.Area == 10.0  # declared by the base interface
    assert figure.Name == "gauge"
    names = dir(figure)
    assert {"Area", "Name", "Width", "Height", "Corner", "Tag", "Clone"} <= set(names)
    # The geometry interface is for C++ callers only.
    assert "GetBounds" not in names
    with pytest.raises(AttributeError):
        figure.GetBounds


def test_a_refused_setter_changes_nothing_and_raises_no_event(figure):
    figure.Width = 2
    sink = ChangeRecorder()
    with tessaly.GetEvents(figure, sink):
        with pytest.raises(tessaly.ComError) as refused:
            figure.Width = -1
    assert refused.value.hresult == E_INVALIDARG
    assert refused.value.source == "put_Width"
    assert figure.Width == 2
    assert sink.changes == []


def test_a_childs_change_reaches_the_container_as_a_sub_object_event(figure):
    sink = ChangeRecorder()
    corner = figure.Corner
    with tessaly.GetEvents(figure, sink):
        corner.X = 3
        corner.X = 3  # unchanged: nothing
    assert len(sink.changes) == 1
    state_id, info, areas = sink.changes[0]
    assert state_id == constants.luxState_SubObjectEvent
    assert areas == constants.testFA_Point_Position
    assert info.EventID == constants.luxChange_Change
    assert info.ArgumentCount == 3
    assert info.Arguments[0] == constants.testPoint_X
    assert info.Arguments[1] == 3.0
    assert info.SourceIndex == constants.luxNoIndex
    info.Source.Y = 4  # the source is the corner itself
    assert corner.Y == 4
