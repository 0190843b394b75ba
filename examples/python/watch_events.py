"""Watching an object's events: a Python object whose methods are named after the events.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/watch_events.py
"""

import tessaly


class Watcher:
    """Methods named after the events of ILuxCollectionEvents; the ones it lacks are ignored."""

    def ItemAdded(self, Index, Item):
        print(f"  added {Item!r} at {Index}")

    def ItemRemoved(self, Index, OldItem):
        print(f"  removed {OldItem!r} from {Index}")

    def Cleared(self):
        print("  cleared")


def main():
    queue = tessaly.CreateObject("Tessaly.LuxStringCollection")
    # The connection lasts as long as the `with` block (or until close()).
    with tessaly.GetEvents(queue, Watcher()):
        print("while connected:")
        queue.Add("first image")
        queue.Add("second image")
        queue.Remove(0)
        queue.Clear()
    print("after the block, nothing is reported:")
    queue.Add("third image")
    print(f"the queue holds {list(queue)}")


if __name__ == "__main__":
    main()
