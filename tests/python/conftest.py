"""Fixtures of the Python client's tests.

Every test must leave the library as it found it: after the test, once Python has dropped
its objects, tessaly.LiveObjectCount() is back at its value from before the test. A client
object that keeps a reference it should have released fails the test that made it.
"""

import gc
import os

import pytest

import tessaly
import tessaly_testclasses  # noqa: F401  (loads the test class Probe into the process)

@pytest.fixture(autouse=True)
def no_leaks(request):
    gc.collect()
    start = tessaly.LiveObjectCount()
    yield
    # pytest still holds the test's arguments (the objects the fixtures made): let go first.
    arguments = request.node.funcargs
    for name in arguments:
        if name != "no_leaks":
            arguments[name] = None
    gc.collect()
    assert tessaly.LiveObjectCount() == start, "library objects left alive"


@pytest.fixture
def collection():
    return tessaly.CreateObject("Tessaly.LuxCollection")


@pytest.fixture
def strings():
    return tessaly.CreateObject("Tessaly.LuxStringCollection")


@pytest.fixture
def probe():
    return tessaly.CreateObject("TessalyPythonTest.Probe")


@pytest.fixture
def build_dir():
    directory = os.environ.get("TESSALY_BUILD_DIR")
    if not directory:
        pytest.skip("TESSALY_BUILD_DIR is set when ctest runs the tests")
    return directory
