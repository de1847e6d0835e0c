#!/usr/bin/env python3
"""Plays a station and prints its titles:  play_station.py URL"""
import sys

import belvane
from gi.repository import GLib

player = belvane.Player()
player.on_title = lambda player, title: print("title:", title, flush=True)
player.on_state = lambda player, old, new, error: print("state:", new.name.lower(), flush=True)
player.play(sys.argv[1])
GLib.MainLoop().run()
