"""Belvane from Python: play stations and files, hear states and titles.

A thin layer over Belvane's C interface (belvane.h) through ctypes. Events
arrive on GLib's default main context, so a program runs a GLib main loop
(PyGObject's ``GLib.MainLoop().run()``, or a GTK application's) and the
callbacks are called from it, on the thread that runs the loop.

    import belvane
    from gi.repository import GLib

    player = belvane.Player()
    player.on_title = lambda player, title: print(title)
    player.play("http://radio.example/stream")
    GLib.MainLoop().run()

The shared library is found through $BELVANE_LIBRARY, then beside an
installed package (<prefix>/lib), then in a source checkout's Release build
(build-release), then by the system's dynamic loader.
"""
from belvane import errors
from belvane._player import (
    ATTRIBUTE_ALBUM,
    AudioOutput,
    audio_outputs,
    ATTRIBUTE_ARTIST,
    ATTRIBUTE_COMMENT,
    ATTRIBUTE_COPYRIGHT,
    ATTRIBUTE_DURATION,
    ATTRIBUTE_GENRE,
    ATTRIBUTE_STATION_BIT_RATE,
    ATTRIBUTE_STATION_GENRE,
    ATTRIBUTE_STATION_HOME_PAGE,
    ATTRIBUTE_STATION_NAME,
    ATTRIBUTE_STREAM_TITLE,
    ATTRIBUTE_TRACK_NUMBER,
    ATTRIBUTE_TRACK_TITLE,
    ATTRIBUTE_YEAR,
    BelvaneError,
    PlaybackError,
    Player,
    Reception,
    ReceptionState,
    State,
    set_log_handler,
    version,
)
# What is decoded, the title's address and the playlist entry that plays.
from belvane._player import (
    ATTRIBUTE_CHANNELS,
    ATTRIBUTE_CODEC,
    ATTRIBUTE_PLAYLIST_ENTRY_INDEX,
    ATTRIBUTE_PLAYLIST_ENTRY_TITLE,
    ATTRIBUTE_SAMPLE_RATE,
    ATTRIBUTE_STREAM_URL,
)

__all__ = [
    "ATTRIBUTE_ALBUM", "ATTRIBUTE_ARTIST", "ATTRIBUTE_COMMENT", "ATTRIBUTE_COPYRIGHT", "ATTRIBUTE_DURATION",
    "ATTRIBUTE_GENRE", "ATTRIBUTE_STATION_BIT_RATE", "ATTRIBUTE_STATION_GENRE", "ATTRIBUTE_STATION_HOME_PAGE",
    "ATTRIBUTE_STATION_NAME", "ATTRIBUTE_STREAM_TITLE", "ATTRIBUTE_TRACK_NUMBER", "ATTRIBUTE_TRACK_TITLE", "ATTRIBUTE_YEAR",
    "AudioOutput", "audio_outputs", "BelvaneError", "PlaybackError", "Player", "Reception", "ReceptionState", "State", "errors", "set_log_handler", "version",
]
__all__ += [
    "ATTRIBUTE_CHANNELS", "ATTRIBUTE_CODEC", "ATTRIBUTE_PLAYLIST_ENTRY_INDEX", "ATTRIBUTE_PLAYLIST_ENTRY_TITLE",
    "ATTRIBUTE_SAMPLE_RATE", "ATTRIBUTE_STREAM_URL",
]
