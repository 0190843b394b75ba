"""Records, run statuses and the stopwatch through the late-bound client: a record tree built
with AddNew, iterated and looked up by key, string and object contents with the type rules,
refusals with their codes, the Change of a sub-record passed on with its index, Copy and a
persistence round trip; a run status set with and without its source; a stopwatch."""

import time

import pytest

import tessaly
from codes import E_INVALIDARG, hresult

C = tessaly.constants
E_LUX_DUPLICATE_KEY = hresult(0x8004C184)
E_LUX_INVALID_KEY = hresult(0x8004C181)
SUB_OBJECT_EVENT = -2


def add(record, key, content, kind=None, usage=None, mutable=False, annotation=""):
    kind = C.luxRecordTypeString if kind is None else kind
    usage = C.luxRecordUsageResult if usage is None else usage
    return record.AddNew(key, kind, usage, mutable, content, annotation, None, 0)


@pytest.fixture
def tree():
    root = tessaly.CreateObject("Tessaly.LuxRecord")
    root.Initialize("Statistics", C.luxRecordTypeToolDefined, C.luxRecordUsageTool, False, None, "top", None, 0)
    add(root, "Mean", "127.5", annotation="mean grey")
    lines = tessaly.CreateObject("Tessaly.LuxStringCollection")
    lines.Add("first")
    lines.Add("second", "2")
    add(root, "Lines", lines, kind=C.luxRecordTypeStringsCollection, mutable=True)
    return root


class Recorder:
    def __init__(self):
        self.changes = []

    def Change(self, StateID, Value, FunctionalArea):
        index = Value.SourceIndex if StateID == SUB_OBJECT_EVENT else None
        self.changes.append((StateID, index))


def test_a_tree_is_built_iterated_and_looked_up_by_key(tree):
    assert tree.Count == 2
    assert [record.RecordKey for record in tree] == ["Mean", "Lines"]
    mean = tree.Item("MEAN")
    assert mean.Content == "127.5" and mean.Annotation == "mean grey"
    assert mean.RecordType == C.luxRecordTypeString and mean.RecordUsage == C.luxRecordUsageResult
    assert tree.Item(1).RecordKey == "Lines"
    assert tree.FindKey("lines") == 1 and tree.FindKey("absent") == -1
    assert tree.FindItem(mean) == 0
    strings = tree.Item("Lines").Content
    assert [strings.Item(i) for i in range(strings.Count)] == ["first", "second"]
    assert strings.Item("2") == "second"

    # The key of a sub-record is its RecordKey, both ways.
    mean.RecordKey = "Average"
    assert tree.FindKey("average") == 0 and tree.Key(0) == "Average"
    tree.Key[1] = "Text"
    assert tree.Item(1).RecordKey == "Text"


def test_refusals_name_their_code_and_change_nothing(tree):
    sink = Recorder()
    with tessaly.GetEvents(tree, sink):
        with pytest.raises(tessaly.ComError) as refused:
            add(tree, "mean", "again")
        assert refused.value.hresult == E_LUX_DUPLICATE_KEY
        with pytest.raises(tessaly.ComError) as refused:
            tree.Item("Mean").Content = 42  # a string record holds a string
        assert refused.value.hresult == E_INVALIDARG and "Content" in refused.value.description
        with pytest.raises(tessaly.ComError) as refused:
            add(tree, "Image", "not an image", kind=C.luxRecordTypeImage)
        assert refused.value.hresult == E_INVALIDARG
        with pytest.raises(tessaly.ComError) as refused:
            tree.Item("nobody")
        assert refused.value.hresult == E_LUX_INVALID_KEY
        with pytest.raises(tessaly.ComError) as refused:
            tree.Item("Lines").RecordKey = "MEAN"
        assert refused.value.hresult == E_LUX_DUPLICATE_KEY
    assert sink.changes == []
    assert [record.RecordKey for record in tree] == ["Mean", "Lines"]
    assert tree.Item("Mean").Content == "127.5"


def test_sub_record_changes_arrive_with_their_index(tree):
    sink = Recorder()
    with tessaly.GetEvents(tree, sink):
        tree.Item("Lines").Annotation = "two lines"
        tree.Move(1, 0)
        tree.Item("Mean").Annotation = "moved"
        tree.Annotation = "own"
    assert sink.changes == [(SUB_OBJECT_EVENT, 1), (-1, None), (SUB_OBJECT_EVENT, 1),
                            (C.luxRecord_Annotation, None)]


def test_objects_as_content_and_copy(tree):
    image = tessaly.CreateObject("Tessaly.LuxImage8Grey")
    image.Allocate(8, 4)
    kept = add(tree, "Input", image, kind=C.luxRecordTypeImage, usage=C.luxRecordUsageInput)
    owned = add(tree, "Output", image, kind=C.luxRecordTypeImage, mutable=True)
    assert kept.Content == image
    copy = tree.Copy()
    assert [record.RecordKey for record in copy] == ["Mean", "Lines", "Input", "Output"]
    assert copy.Item("Input").Content == image  # content that may not change is shared
    assert copy.Item("Output").Content != image and copy.Item("Output").Content.Width == 8
    copy.Item("Mean").Content = "0"
    assert tree.Item("Mean").Content == "127.5"
    assert owned.Content == image


@pytest.mark.parametrize("format", [C.luxPersistFormatBinary, C.luxPersistFormatXML])
def test_a_tree_round_trips(tree, format):
    add(tree.Item("Mean"), "", "nested, no key")
    back = tessaly.LoadObjectFromBytes(tessaly.SaveObjectToBytes(tree, format), format)
    assert (back.RecordKey, back.RecordType, back.RecordUsage, back.Annotation) == \
        ("Statistics", C.luxRecordTypeToolDefined, C.luxRecordUsageTool, "top")
    assert [record.RecordKey for record in back] == ["Mean", "Lines"]
    assert back.Item("Mean").Content == "127.5"
    assert back.Item("Mean").Item(0).Content == "nested, no key"
    lines = back.Item("Lines").Content
    assert lines.Item("2") == "second" and back.Item("Lines").ContentMutable


def test_run_status_keeps_its_values_and_source():
    status = tessaly.CreateObject("Tessaly.LuxRunStatus")
    assert (status.ErrorCode, status.ErrorString, status.TimeRaw, status.Time, status.ErrorSource) == \
        (0, "", 0.0, 0.0, "")
    sink = Recorder()
    with tessaly.GetEvents(status, sink):
        status.InitWithSource(C.luxAnalysisReject, "too dark", 1.25, 2.5, "Run")
        status.InitWithSource(C.luxAnalysisReject, "too dark", 1.25, 2.5, "Run")
        status.Init(C.luxAnalysisReject, "too dark", 1.25, 2.5)
    assert sink.changes == [(-1, None), (-1, None)]
    assert (status.ErrorCode, status.ErrorString, status.TimeRaw, status.Time, status.ErrorSource) == \
        (C.luxAnalysisReject, "too dark", 1.25, 2.5, "")


def test_stopwatch_measures_a_sleep():
    watch = tessaly.CreateObject("Tessaly.LuxStopwatch")
    watch.Start()
    time.sleep(0.02)
    watch.Stop()
    assert not watch.Running
    assert 20 <= watch.Milliseconds < 2000
    assert watch.Seconds * 1000 == pytest.approx(watch.Milliseconds)
    watch.Reset()
    assert watch.Microseconds == 0
