"""Shared pieces of the Python tests: the loopback station and a main loop
that runs until a condition holds."""
import os
import pathlib
import sys

import pytest
from gi.repository import GLib

sys.path.insert(0, str(pathlib.Path(__file__).parent))
from icy_station import Station  # noqa: E402


@pytest.fixture
def station():
    station = Station(os.environ["BELVANE_TEST_MP3"])
    yield station
    station.close()


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
