"""Events: sinks called by event name, arguments, events from other threads, exceptions in
sinks, and the end of a connection (close, drop, with, garbage collection)."""

import gc
import sys
import threading
import warnings
import weakref

import pytest

import tessaly
from codes import E_NOINTERFACE

constants = tessaly.constants


class Recorder:
    """Handles some of ILuxCollectionEvents; ItemMoved and KeyChanged it leaves out."""

    def __init__(self):
        self.events = []

    def ItemAdded(self, Index, Item):
        self.events.append(("added", Index, Item))

    def ItemRemoved(self, Index, OldItem):
        self.events.append(("removed", Index, OldItem))

    def ItemReplaced(self, Index, OldItem, NewItem):
        self.events.append(("replaced", Index, OldItem, NewItem))

    def Cleared(self):
        self.events.append(("cleared",))

    def Change(self, StateID, Value, FunctionalArea):
        self.events.append(("change", StateID, Value, FunctionalArea))


class TickRecorder:
    def __init__(self):
        self.ticks = []
        self.done = 0
        self.threads = set()

    def Tick(self, Index, Value):
        self.ticks.append((Index, Value))
        self.threads.add(threading.get_ident())

    def Done(self):
        self.done += 1


CHANGED = ("change", -1, None, 1)  # Change(-1, empty, luxFA_Misc) after every change


def test_sink_methods_are_called_by_event_name_with_the_arguments(collection):
    sink = Recorder()
    connection = tessaly.GetEvents(collection, sink)
    assert connection.connected
    collection.Add("a", "key")
    collection.Add(2.5)
    collection.Item[1] = [1, 2]
    collection.Move(0, 1)  # the sink has no ItemMoved: only Change reaches it
    collection.Remove("key")
    collection.Clear()
    connection.close()
    replaced = sink.events[4]
    assert replaced[:3] == ("replaced", 1, 2.5) and replaced[3].tolist() == [1, 2]
    assert sink.events[:4] == [("added", 0, "a"), CHANGED, ("added", 1, 2.5), CHANGED]
    assert sink.events[5:] == [CHANGED, CHANGED, ("removed", 1, "a"), CHANGED, ("cleared",), CHANGED]


def test_object_arguments_come_as_client_objects_of_their_class(probe):
    sink = TickRecorder()
    with tessaly.GetEvents(probe, sink):
        probe.Fire(3)
    assert sink.ticks[:2] == [(0, 0), (1, 10)]
    index, last = sink.ticks[2]
    assert index == 2 and type(last) is type(probe) and last == probe
    assert sink.done == 1


def test_events_fired_on_another_thread_reach_python(probe):
    sink = TickRecorder()
    with tessaly.GetEvents(probe, sink):
        probe.FireFromThread(3)  # the caller waits in the library while the other thread fires
    assert [index for index, _ in sink.ticks] == [0, 1, 2] and sink.done == 1
    assert sink.threads and threading.get_ident() not in sink.threads


def test_sinks_may_call_back_into_the_object(collection):
    class Counting:
        counts = []

        def ItemAdded(self, Index, Item):
            self.counts.append((Index, collection.Count, collection.Item[Index]))

    with tessaly.GetEvents(collection, Counting()):
        collection.Add("x")
        collection.Add("y")
    assert Counting.counts == [(0, 1, "x"), (1, 2, "y")]


def test_an_exception_in_a_sink_is_a_warning_and_the_change_stands(collection, monkeypatch):
    class Failing:
        def ItemAdded(self, Index, Item):
            raise ValueError("refused")

    with tessaly.GetEvents(collection, Failing()):
        with pytest.warns(RuntimeWarning, match=r"Failing.ItemAdded raised ValueError\('refused'\)"):
            collection.Add(5)
        assert collection.Count == 1 and collection.Item[0] == 5
        # With warnings raised as errors the report cannot reach the object either.
        unraisable = []
        monkeypatch.setattr(sys, "unraisablehook", unraisable.append)
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            collection.Add(6)
        reports = [str(report.exc_value) for report in unraisable]
        unraisable.clear()  # the reports' tracebacks hold this frame
        assert collection.Count == 2
        assert len(reports) == 1 and "Failing.ItemAdded raised ValueError('refused')" in reports[0]


def test_a_failing_sink_on_another_thread_is_a_warning_too(probe):
    class Failing:
        def Tick(self, Index, Value):
            raise KeyError(Index)

    with tessaly.GetEvents(probe, Failing()):
        with pytest.warns(RuntimeWarning) as recorded:
            probe.FireFromThread(2)
    assert [str(w.message) for w in recorded] == ["Failing.Tick raised KeyError(0)", "Failing.Tick raised KeyError(1)"]


def test_closing_or_dropping_the_connection_stops_the_events(collection):
    sink = Recorder()
    connection = tessaly.GetEvents(collection, sink)
    collection.Add(1)
    connection.close()
    assert not connection.connected and "closed" in repr(connection)
    connection.close()  # again: nothing happens
    collection.Add(2)
    connection = tessaly.GetEvents(collection, sink)
    del connection  # dropping it disconnects
    collection.Add(3)
    with tessaly.GetEvents(collection, sink) as connection:
        assert "LuxCollection" in repr(connection)
        collection.Add(4)
    assert not connection.connected
    collection.Add(5)
    assert [event[2] for event in sink.events if event[0] == "added"] == [1, 4]


def test_several_sinks_and_a_sink_without_methods(collection):
    first, second = Recorder(), Recorder()
    with tessaly.GetEvents(collection, first), tessaly.GetEvents(collection, second), \
            tessaly.GetEvents(collection, object()):
        collection.Add(1)
    assert first.events == second.events == [("added", 0, 1), CHANGED]


def test_a_connection_kept_by_its_sink_is_collected_with_it():
    start = tessaly.LiveObjectCount()
    collection = tessaly.CreateObject("Tessaly.LuxCollection")

    class Keeper:
        seen = 0

        def ItemAdded(self, Index, Item):
            Keeper.seen += 1

    keeper = Keeper()
    keeper.connection = tessaly.GetEvents(collection, keeper)
    collection.Add(1)
    watched = weakref.ref(keeper)
    del keeper
    gc.collect()
    assert watched() is None
    collection.Add(2)
    assert Keeper.seen == 1
    del collection
    assert tessaly.LiveObjectCount() == start


def test_events_while_several_python_threads_call_the_object(collection):
    class Counter:
        added = 0

        def ItemAdded(self, Index, Item):
            Counter.added += 1  # under the GIL

    def add_many():
        for value in range(200):
            collection.Add(value)

    with tessaly.GetEvents(collection, Counter()):
        threads = [threading.Thread(target=add_many) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert collection.Count == 800 and Counter.added == 800


def test_get_events_needs_an_object_with_outgoing_interfaces():
    dictionary = tessaly.CreateObject("Tessaly.LuxDictionary")
    with pytest.raises(tessaly.ComError) as caught:
        tessaly.GetEvents(dictionary, Recorder())
    assert caught.value.hresult == E_NOINTERFACE and caught.value.source == "GetEvents"
    assert "LuxDictionary has no outgoing interface" in caught.value.description
    with pytest.raises(TypeError, match="expected an object of the library"):
        tessaly.GetEvents(42, Recorder())
