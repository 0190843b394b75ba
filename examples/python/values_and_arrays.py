"""How Python values travel: numbers, text, dates, nested lists and numpy arrays stored in a
collection and read back.

    PYTHONPATH=build/python /usr/bin/python3 examples/python/values_and_arrays.py
"""

import datetime

import numpy as np

import tessaly


def main():
    store = tessaly.CreateObject("Tessaly.LuxCollection")
    values = {
        "count": 42,
        "ratio": 0.75,
        "ok": True,
        "label": "gauge 7",
        "taken": datetime.datetime(2024, 5, 17, 9, 30),
        "points": [(1, 2), (3, 4)],
        "histogram": np.bincount([0, 1, 1, 3], minlength=4).astype(np.int32),
        "patch": np.arange(6, dtype=np.uint8).reshape(2, 3),
        "raw": b"\x00\x10\x20",
    }
    for key, value in values.items():
        store.Add(value, key)

    for key in values:
        back = store[key]
        shown = f"{back.dtype} array of shape {back.shape}" if isinstance(back, np.ndarray) else repr(back)
        print(f"{key:10} {type(values[key]).__name__:9} -> {shown}")

    # Arrays keep their element type and index order; lists become arrays of values.
    assert np.array_equal(store["patch"], values["patch"]) and store["patch"][1, 2] == 5
    assert store["points"][1].tolist() == [3, 4]


if __name__ == "__main__":
    main()
