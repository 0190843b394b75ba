"""Times a property get through the tessaly client against a plain pybind11 getter.

    PYTHONPATH=build/python:build/bench/python /usr/bin/python3 bench/python/property_get.py

The client reads LuxCollection.Count: attribute lookup on the class type, IDispatch::Invoke
with the GIL released, the collection's lock, and the VT_I4 result turned into an int. The
peer reads PlainCounter.Count, an int under a std::mutex, through pybind11's getter. Both
run in this one process; the ratio is the client's cost in units of the peer's (the client's
aim: at most 3).
"""

import sys
import timeit

import tessaly
import tessaly_bench_peer

CALLS = 1_000_000
REPEATS = 7


def best_ns(statement, namespace):
    """The fastest of several runs, per call, in nanoseconds."""
    times = timeit.repeat(statement, globals=namespace, number=CALLS, repeat=REPEATS)
    return min(times) / CALLS * 1e9


def main():
    start = tessaly.LiveObjectCount()
    collection = tessaly.CreateObject("Tessaly.LuxCollection")
    peer = tessaly_bench_peer.PlainCounter()
    for value in range(3):
        collection.Add(value)
        peer.Add()
    assert collection.Count == peer.Count == 3

    namespace = {"collection": collection, "peer": peer}
    client = best_ns("collection.Count", namespace)
    plain = best_ns("peer.Count", namespace)
    call = best_ns("collection.FindKey('none')", namespace)

    print(f"client property get   LuxCollection.Count  {client:7.1f} ns")
    print(f"pybind11 getter       PlainCounter.Count   {plain:7.1f} ns")
    print(f"ratio client / plain                      {client / plain:7.2f}  (aim: <= 3)")
    print(f"client method call    FindKey('none')      {call:7.1f} ns")

    del collection, namespace
    return 0 if tessaly.LiveObjectCount() == start else 1


if __name__ == "__main__":
    sys.exit(main())
