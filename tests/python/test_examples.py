"""The examples in examples/python run as a newcomer runs them: as scripts, in a fresh
interpreter, with the module on PYTHONPATH."""

import os
import pathlib
import subprocess
import sys

import pytest

EXAMPLES = sorted((pathlib.Path(__file__).resolve().parents[2] / "examples" / "python").glob("*.py"))


def test_there_are_examples():
    assert len(EXAMPLES) >= 3


@pytest.mark.parametrize("script", EXAMPLES, ids=lambda path: path.name)
def test_example_runs(script):
    result = subprocess.run([sys.executable, str(script)], capture_output=True, text=True, timeout=120,
                            env=dict(os.environ, PYTHONWARNINGS="error"))
    assert result.returncode == 0, result.stderr
    assert result.stdout.strip()
    assert not result.stderr
