"""Shared pieces of the Python tests: the loopback station and a main loop
that runs until a condition holds."""
import os
import subprocess
import types

import pytest
from gi.repository import GLib


@pytest.fixture
def station():
    """The tool's built-in demo station on loopback (`belvane demo-station`)."""
    # The tool carries its own sanitizer runtime: not the one preloaded into Python.
    env = {name: value for name, value in os.environ.items() if name != "LD_PRELOAD"}
    tool = subprocess.Popen([os.environ["BELVANE_TOOL"], "demo-station"], stdout=subprocess.PIPE, text=True, env=env)
    yield types.SimpleNamespace(url=tool.stdout.readline().strip())
    tool.terminate()
    tool.wait(10)


def run_until(condition, timeout=30.0):
    """Runs GLib's default main loop until condition() holds; its last value."""
    loop = GLib.MainLoop()
    deadline = GLib.get_monotonic_time() + int(timeout * 1e6)

    def check():
        if condition() or GLib.get_monotonic_time() > deadline:
            loop.quit()
            return False
        return True

    GLib.timeout_add(20, check)
    loop.run()
    return condition()
