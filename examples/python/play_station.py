#!/usr/bin/python3
"""Plays a station or a file and prints its titles:  play_station.py URL-OR-PATH

Run it with the system Python (/usr/bin/python3), which has PyGObject
(Debian: python3-gi). Ends when the playback ends; a failure is printed on
stderr and the exit status is 1.
"""
import sys

import belvane
from gi.repository import GLib

if len(sys.argv) != 2:
    sys.exit("usage: play_station.py URL-OR-PATH")

loop = GLib.MainLoop()
failure = None


def on_state(player, old, new, error):
    global failure
    print("state:", new.name.lower(), flush=True)
    if new == belvane.State.ERROR:
        failure = error
    if new in (belvane.State.STOPPED, belvane.State.ERROR):
        loop.quit()


player = belvane.Player()
player.on_title = lambda player, title: print("title:", title, flush=True)
player.on_state = on_state
try:
    player.play(sys.argv[1])
except belvane.BelvaneError as error:
    sys.exit(f"play_station.py: {sys.argv[1]}: {error}")
try:
    loop.run()
except KeyboardInterrupt:
    pass
player.close()
if failure:
    print(f"play_station.py: {failure.description}", file=sys.stderr)
    sys.exit(1)
