"""The Python package plays the loopback station through the C interface."""
import belvane
import pytest
from conftest import run_until


@pytest.fixture
def player():
    player = belvane.Player()
    player.set_audio_output("null:fast")
    yield player
    player.close()


def test_station_plays_with_its_titles_in_order_and_stops(player, station):
    states, titles = [], []
    player.on_state = lambda p, old, new, error: states.append(new)
    player.on_title = lambda p, title: titles.append(title)
    player.play(station.url, title="Python Test Station")

    assert run_until(lambda: len(titles) >= 2), f"titles: {titles}, states: {states}"
    assert titles[:2] == ["Belvane Test - Song One", "Belvane Test - Song Two"]
    assert states[:2] == [belvane.State.CONNECTING, belvane.State.PLAYING]
    assert player.attribute(belvane.ATTRIBUTE_STREAM_TITLE) == "Belvane Test - Song Two"
    assert player.frames_written > 0 and player.audio_output_name == "null:fast"

    player.stop()
    assert player.state == belvane.State.STOPPED and states[-1] == belvane.State.STOPPED


def test_failure_reaches_the_callback_in_words_and_bad_calls_raise(player):
    errors = []
    player.on_state = lambda p, old, new, error: errors.append(error) if error else None
    # A closed port on loopback: nothing listens there.
    player.play("http://127.0.0.1:9/stream")
    assert run_until(lambda: errors), "no error arrived"
    assert player.state == belvane.State.ERROR
    assert errors[0].description and errors[0].domain

    with pytest.raises(belvane.BelvaneError):
        player.volume = 2.0
    with pytest.raises(belvane.BelvaneError):
        player.set_audio_output("speakers")
    player.volume, player.muted = 0.25, True
    assert (player.volume, player.muted) == (0.25, True)


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
