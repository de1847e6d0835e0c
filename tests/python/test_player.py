"""The Python package plays the loopback station and a file through the C
interface."""
import os
import pathlib
import re
import struct

import belvane
import pytest
from conftest import run_until


@pytest.fixture
def player():
    player = belvane.Player()
    player.set_audio_output("null:fast")
    yield player
    player.close()


def test_station_plays_with_its_titles_in_order_and_stops(player, station, tmp_path):
    states, titles, receptions, files = [], [], [], []
    player.on_state = lambda p, old, new, error: states.append(new)
    player.on_title = lambda p, title: titles.append(title)
    player.on_reception = lambda p, reception: receptions.append(reception.state)
    player.on_recorded_file = lambda p, path, title, complete: files.append((path, title, complete))
    player.time_shift_memory = 64 * 1024
    assert player.time_shift_memory == 64 * 1024
    player.play(station.url, title="Python Test Station")
    # Recorded from the start: the first title's file (it names the audio
    # before it, so it is incomplete) comes when the second begins.
    assert player.start_recording(str(tmp_path)) is None and player.recording

    assert run_until(lambda: len(titles) >= 2), f"titles: {titles}, states: {states}"
    assert titles[:2] == ["Belvane Demo - Morning in C", "Belvane Demo - Rain in A minor"]
    assert states[:2] == [belvane.State.CONNECTING, belvane.State.PLAYING]
    assert player.attribute(belvane.ATTRIBUTE_STREAM_TITLE) == "Belvane Demo - Rain in A minor"
    assert run_until(lambda: files), files
    path, title, complete = files[0]
    assert title == "Belvane Demo - Morning in C" and not complete
    assert pathlib.Path(path).name == "Belvane Demo - Morning in C (incomplete).mp3"
    assert pathlib.Path(path).read_bytes()[:3] == b"ID3"
    player.stop_recording()
    assert player.frames_written > 0 and player.audio_output_name == "null:fast"
    # A live station pauses into its time-shift ring, skips within it, resumes.
    assert player.can_time_shift
    player.pause()
    assert player.paused and player.state == belvane.State.PLAYING
    player.skip(-1.0)
    player.resume()
    assert not player.paused

    assert receptions[0] == belvane.ReceptionState.PREBUFFERING
    assert run_until(lambda: belvane.ReceptionState.RECEIVING in receptions), receptions

    player.stop()
    assert player.state == belvane.State.STOPPED and states[-1] == belvane.State.STOPPED
    assert player.reception.state == belvane.ReceptionState.NONE


def test_failure_reaches_the_callback_in_words_and_bad_calls_raise(player):
    errors = []
    player.on_state = lambda p, old, new, error: errors.append(error) if error else None
    # A closed port on loopback: nothing listens there.
    player.play("http://127.0.0.1:9/stream")
    assert run_until(lambda: errors), "no error arrived"
    assert player.state == belvane.State.ERROR
    assert errors[0].description and errors[0].domain
    assert errors[0].retryable, errors[0]  # nothing listening now; maybe later

    with pytest.raises(belvane.BelvaneError):
        player.volume = 2.0
    with pytest.raises(belvane.BelvaneError):
        player.set_audio_output("speakers")
    # The machine's outputs, each named as a setting names it.
    outputs = belvane.audio_outputs()
    assert all(o.name.startswith(("pulse:", "alsa:")) for o in outputs), outputs
    for output in outputs:
        player.set_audio_output(output.name)
    player.set_audio_output("")
    with pytest.raises(belvane.BelvaneError):
        player.reconnect_patience = -1
    # A float and a bool pass both ways; out-of-range values are refused.
    player.volume, player.muted = 0.25, True
    assert (player.volume, player.muted) == (0.25, True)
    with pytest.raises(belvane.BelvaneError):
        player.fade_volume(2.0, 1)
    with pytest.raises(belvane.BelvaneError):
        player.loudness_target = 3

    # Request settings: what cannot go into a request is refused.
    with pytest.raises(belvane.BelvaneError):
        player.add_request_header("X-From", "Python\r\nInjected: 1")
    with pytest.raises(belvane.BelvaneError):
        player.proxy = "ftp://proxy.example"
    with pytest.raises(belvane.BelvaneError):
        player.play("http://127.0.0.1:9/stream", title_encoding="NO-SUCH-CHARSET")
    assert (player.user_agent, player.proxy) == ("Belvane/0.1", None)
    player.user_agent, player.proxy = "PyHost/1.0", ""
    assert (player.user_agent, player.proxy) == ("PyHost/1.0", "")
    player.proxy = "proxy.example:3128"
    assert player.proxy == "http://proxy.example:3128"
    player.add_request_header("X-From", "Python")
    player.clear_request_headers()


def test_a_player_closed_inside_its_own_callback_stays_quiet(station):
    player = belvane.Player()
    player.set_audio_output("null:fast")
    seen = []

    def on_state(p, old, new, error):
        seen.append(new)
        if new == belvane.State.PLAYING:
            p.close()

    player.on_state = on_state
    player.play(station.url)
    assert run_until(lambda: belvane.State.PLAYING in seen)
    run_until(lambda: False, timeout=0.5)
    assert seen == [belvane.State.CONNECTING, belvane.State.PLAYING]
    with pytest.raises(ValueError):
        player.play(station.url)
    assert belvane.version() >= (0, 1, 0)


def id3v23(**frames):
    """An ID3v2.3 tag with ISO-8859-1 text frames (TIT2="Song", ...)."""
    body = b"".join(name.encode() + struct.pack(">IH", len(text) + 1, 0) + b"\0" + text.encode("latin-1")
                    for name, text in frames.items())
    size = len(body)
    return b"ID3\3\0\0" + bytes([(size >> 21) & 127, (size >> 14) & 127, (size >> 7) & 127, size & 127]) + body


def test_a_file_has_its_tags_and_seeks(tmp_path):
    # The whole promise is the C interface's file test; here the wrappers:
    # the attribute dictionary, has_position, seek and elapsed_time.
    path = tmp_path / "song.mp3"
    path.write_bytes(id3v23(TPE1="Band") + pathlib.Path(os.environ["BELVANE_TEST_MP3"]).read_bytes())
    sets = []
    with belvane.Player() as player:
        player.set_audio_output("null")
        player.on_attributes = lambda p, attributes: sets.append(attributes)
        player.play(str(path))
        assert run_until(lambda: player.state == belvane.State.PLAYING)
        assert sets and sets[-1][belvane.ATTRIBUTE_ARTIST] == "Band" and player.has_position
        player.seek(1.0)
        assert abs(player.elapsed_time - 1.0) < 0.05


def test_error_constants_are_those_of_the_c_header():
    header = pathlib.Path(__file__).parents[2] / "include" / "belvane" / "BVErrorCodes.h"
    names = dict(re.findall(r"^#define BV_(\w+) (.+?)\s*(?:/\*.*)?$", header.read_text(), re.M))
    fourcc = re.compile(r"BV_FOURCC\('(.)', '(.)', '(.)', '(.)'\)")
    checked = 0
    for name, value in names.items():
        python_name = name[len("ERROR_"):] if name.startswith("ERROR_DOMAIN_") else name
        if python_name in ("FOURCC(a, b, c, d)", "BVERRORCODES_H") or "(" in python_name:
            continue
        if value.startswith('"'):
            expected = value.strip('"')
        elif fourcc.match(value):
            expected = belvane.errors._fourcc("".join(fourcc.match(value).groups()))
        else:
            expected = int(value.replace("(int32_t)", "").strip("()").rstrip("u"), 0)
            expected = expected - (1 << 32) if expected >= 1 << 31 else expected
        assert getattr(belvane.errors, python_name) == expected, name
        checked += 1
    assert checked > 50
    assert belvane.errors.is_retryable(belvane.errors.DOMAIN_HTTP, 503)
    assert belvane.errors.shoutstreamer_http_status(404) == belvane.errors._fourcc("H404")
