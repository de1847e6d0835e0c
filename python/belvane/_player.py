"""The Player class: one Belvane master player behind a C handle."""
import ctypes
import enum
from typing import Callable, Dict, List, NamedTuple, Optional

from belvane._library import (ATTRIBUTE_CALLBACK, LOG_CALLBACK, OUTPUT_CALLBACK, POSITION_CALLBACK,
                              RECEPTION_CALLBACK, RECORDED_FILE_CALLBACK, RECORDING_STOPPED_CALLBACK, STATE_CALLBACK,
                              CAudioOutput, CReception, PlayerError, PlayOptions, lib, take_string)

ATTRIBUTE_STREAM_TITLE = "BVPlayerAttributeStreamTitleKey"
ATTRIBUTE_TRACK_TITLE = "BVPlayerAttributeTrackTitleKey"
ATTRIBUTE_ARTIST = "BVPlayerAttributeArtistKey"
ATTRIBUTE_ALBUM = "BVPlayerAttributeAlbumKey"
ATTRIBUTE_DURATION = "BVPlayerAttributeDurationKey"
ATTRIBUTE_GENRE = "BVPlayerAttributeGenreKey"
ATTRIBUTE_YEAR = "BVPlayerAttributeYearKey"
ATTRIBUTE_COMMENT = "BVPlayerAttributeCommentKey"
ATTRIBUTE_COPYRIGHT = "BVPlayerAttributeCopyrightKey"
ATTRIBUTE_TRACK_NUMBER = "BVPlayerAttributeTrackNumberKey"
# What a station's server announces of it (the bit rate in kbit/s).
ATTRIBUTE_STATION_NAME = "BVPlayerAttributeStationNameKey"
ATTRIBUTE_STATION_GENRE = "BVPlayerAttributeStationGenreKey"
ATTRIBUTE_STATION_HOME_PAGE = "BVPlayerAttributeStationHomePageKey"
ATTRIBUTE_STATION_BIT_RATE = "BVPlayerAttributeStationBitRateKey"
# What the player decodes: codec ("MP3", "AAC", "HE-AAC", "Vorbis", "Opus",
# "FLAC", ...), sample rate in Hz, channels.
ATTRIBUTE_CODEC = "BVPlayerAttributeCodecKey"
ATTRIBUTE_SAMPLE_RATE = "BVPlayerAttributeSampleRateKey"
ATTRIBUTE_CHANNELS = "BVPlayerAttributeChannelsKey"
# The address a station sent with its current stream title (StreamUrl).
ATTRIBUTE_STREAM_URL = "BVPlayerAttributeStreamURLKey"
# A station reached through a playlist: the playing entry's title there, and
# its place in the playlist counting from 1.
ATTRIBUTE_PLAYLIST_ENTRY_TITLE = "BVPlayerAttributePlaylistEntryTitleKey"
ATTRIBUTE_PLAYLIST_ENTRY_INDEX = "BVPlayerAttributePlaylistEntryIndexKey"


class State(enum.IntEnum):
    IDLE = 0
    CONNECTING = 1
    PLAYING = 2
    STOPPED = 3  # stopped by the program, or the playback ended
    ERROR = 4    # the playback failed; the state callback has the error


class ReceptionState(enum.IntEnum):
    """What the listener hears; the state stays PLAYING meanwhile."""
    NONE = 0          # nothing playing, or the playback ended
    PREBUFFERING = 1  # connecting and filling before the first sound
    RECEIVING = 2     # audio is heard (a paused file counts as receiving)
    BUFFERING = 3     # the audio ran out; the connection brings too little
    RECONNECTING = 4  # the audio ran out; the connection broke and is made again


class Reception(NamedTuple):
    """seconds_without_audio and tries are 0 unless audio is missing;
    prebuffer_progress goes from 0.0 to 1.0 while prebuffering (engines
    that cannot tell stay at 0.0), and is 1.0 afterwards."""
    state: ReceptionState
    seconds_without_audio: float
    tries: int
    prebuffer_progress: float

    @staticmethod
    def _of(c: CReception) -> "Reception":
        return Reception(ReceptionState(c.state), c.seconds_without_audio, c.tries, c.prebuffer_progress)


class PlaybackError(NamedTuple):
    """Why a playback failed: description is worded for a listener; the
    domain and code are listed in belvane.errors."""
    code: int
    domain: str
    description: str

    @property
    def retryable(self) -> bool:
        """True when trying the same link again later can help."""
        return bool(lib.bv_error_is_retryable(self.domain.encode(), self.code))


class AudioOutput(NamedTuple):
    """One of the machine's audio outputs (see audio_outputs())."""
    name: str          # the setting that plays to it: "pulse:SINK", "alsa:DEVICE"
    description: str   # what the listener reads
    is_default: bool   # the system default


def audio_outputs() -> List[AudioOutput]:
    """The sound server's sinks, then the ALSA playback devices."""
    array = ctypes.POINTER(CAudioOutput)()
    count = ctypes.c_size_t(0)
    lib.bv_audio_outputs(ctypes.byref(array), ctypes.byref(count))
    try:
        return [AudioOutput(array[i].name.decode("utf-8", "replace"), array[i].description.decode("utf-8", "replace"),
                            bool(array[i].is_default)) for i in range(count.value)]
    finally:
        lib.bv_audio_outputs_free(array, count)


class BelvaneError(Exception):
    """A call was refused: a bad argument, an unreadable URL, no memory, a
    pause or seek of a live stream, no session bus for MPRIS."""

    def __init__(self, code: int):
        self.code = code
        super().__init__(lib.bv_error_string(code).decode())


def _check(code: int) -> None:
    if code != 0:
        raise BelvaneError(code)


def version() -> tuple:
    """The loaded library's version as (major, minor, patch)."""
    number = lib.bv_version()
    return (number >> 16, (number >> 8) & 0xFF, number & 0xFF)


_log_thunk = None


def set_log_handler(handler: Optional[Callable[[str], None]]) -> None:
    """Routes the library's diagnostic lines to handler(line), for the whole
    process; None (the default) keeps them quiet (GLib's debug level, shown
    with G_MESSAGES_DEBUG=Belvane). The handler is called on whatever thread
    logged, the library's own threads too."""
    global _log_thunk
    thunk = LOG_CALLBACK(lambda message, _userdata: handler(message.decode("utf-8", "replace"))) if handler else None
    lib.bv_set_log_callback(thunk or LOG_CALLBACK(), None)
    _log_thunk = thunk  # the previous one is no longer called once the library has the new one


class Player:
    """Plays one link at a time; a new play stops what was playing.

    Callbacks (attributes, None to remove) are called on GLib's default
    main context:
      on_state(player, old: State, new: State, error: PlaybackError | None)
      on_attributes(player, attributes: dict)   every current attribute (a
                                                key that is missing has none)
      on_title(player, title: str)              a new stream or track title;
                                                "" when the station cleared it
      on_position(player, position: float)      a fraction of the whole
      on_reception(player, reception: Reception) what the listener hears: on
                                                each change, as the prebuffer
                                                fills, each second of silence
      on_recorded_file(player, path: str, title: str, complete: bool)
                                                a file of the recording is done
      on_recording_stopped(player, error: PlaybackError | None)
                                                the recording ended by itself
                                                (None: the station ended)
      on_output(player, output: str)            the audio plays to another
                                                device now ("pulse:SINK"): a
                                                change asked for, or its device
                                                went away (to the default)
    """

    def __init__(self) -> None:
        self._handle = lib.bv_player_create()
        if not self._handle:
            raise MemoryError("belvane: no player")
        self.on_state: Optional[Callable] = None
        self.on_attributes: Optional[Callable] = None
        self.on_title: Optional[Callable] = None
        self.on_position: Optional[Callable] = None
        self.on_reception: Optional[Callable] = None
        self.on_recorded_file: Optional[Callable] = None
        self.on_recording_stopped: Optional[Callable] = None
        self.on_output: Optional[Callable] = None
        self._title: Optional[str] = None
        # ctypes keeps no reference to a function handed to C: these live
        # as long as the player.
        self._state_thunk = STATE_CALLBACK(self._state_changed)
        self._attribute_thunk = ATTRIBUTE_CALLBACK(self._attributes_changed)
        self._position_thunk = POSITION_CALLBACK(self._position_changed)
        self._reception_thunk = RECEPTION_CALLBACK(self._reception_changed)
        lib.bv_player_set_state_callback(self._handle, self._state_thunk, None)
        lib.bv_player_set_attribute_callback(self._handle, self._attribute_thunk, None)
        lib.bv_player_set_position_callback(self._handle, self._position_thunk, None)
        lib.bv_player_set_reception_callback(self._handle, self._reception_thunk, None)
        self._recorded_file_thunk = RECORDED_FILE_CALLBACK(self._recorded_file)
        self._recording_stopped_thunk = RECORDING_STOPPED_CALLBACK(self._recording_stopped)
        lib.bv_player_set_recorded_file_callback(self._handle, self._recorded_file_thunk, None)
        lib.bv_player_set_recording_stopped_callback(self._handle, self._recording_stopped_thunk, None)
        self._output_thunk = OUTPUT_CALLBACK(self._output_changed)
        lib.bv_player_set_output_callback(self._handle, self._output_thunk, None)

    # Lifetime: close() stops the audio at once and frees the player; it
    # is also what the garbage collector and a with-block do.
    def close(self) -> None:
        if self._handle:
            handle, self._handle = self._handle, None
            lib.bv_player_destroy(handle)

    def __enter__(self) -> "Player":
        return self

    def __exit__(self, *exc) -> None:
        self.close()

    def __del__(self) -> None:
        self.close()

    def _live(self):
        if not self._handle:
            raise ValueError("belvane: the player is closed")
        return self._handle

    # Playback.
    def play(self, url: str, title: Optional[str] = None, mime_type: Optional[str] = None,
             engine_id: Optional[str] = None, title_encoding: Optional[str] = None) -> None:
        """Plays a URL or a file path; title, mime_type and engine_id are clues.
        title_encoding names the character set the station's titles are read
        in ("WINDOWS-1251", "KOI8-R", ...) instead of detecting it."""
        def text(value):
            return value.encode() if value is not None else None
        options = PlayOptions(text(title), text(mime_type), text(engine_id), text(title_encoding))
        self._title = None
        _check(lib.bv_player_play_with_options(self._live(), url.encode(), ctypes.byref(options)))

    def stop(self) -> None:
        _check(lib.bv_player_stop(self._live()))

    @property
    def state(self) -> State:
        return State(lib.bv_player_get_state(self._live()))

    @property
    def position(self) -> float:
        """A fraction of the whole, 0.0 to 1.0; -1 for a live stream.
        Setting it seeks a file (BelvaneError for a live stream)."""
        return lib.bv_player_get_position(self._live())

    @position.setter
    def position(self, fraction: float) -> None:
        _check(lib.bv_player_set_position(self._live(), fraction))

    @property
    def has_position(self) -> bool:
        """True for a file of known length: it can pause and seek."""
        return bool(lib.bv_player_has_position(self._live()))

    def seek(self, seconds: float) -> None:
        """Seeks a file to seconds from the start."""
        _check(lib.bv_player_seek(self._live(), seconds))

    def pause(self) -> None:
        """Pauses a file, or a live station that can be time-shifted (it goes
        on filling its ring); the state stays PLAYING. BelvaneError for a
        live stream that cannot (stop it instead)."""
        _check(lib.bv_player_pause(self._live()))

    def resume(self) -> None:
        """Plays on with the very next frame after the pause."""
        _check(lib.bv_player_resume(self._live()))

    @property
    def paused(self) -> bool:
        return bool(lib.bv_player_is_paused(self._live()))

    def publish_mpris(self, enable: bool = True) -> None:
        """Shows the player in the desktop's media controls (MPRIS), or
        withdraws it; off by default. BelvaneError without a session bus."""
        _check(lib.bv_player_publish_mpris(self._live(), int(bool(enable))))

    @property
    def reception(self) -> Reception:
        reception = CReception()
        _check(lib.bv_player_get_reception(self._live(), ctypes.byref(reception)))
        return Reception._of(reception)

    @property
    def elapsed_time(self) -> float:
        return lib.bv_player_get_elapsed_time(self._live())

    @property
    def frames_written(self) -> int:
        return lib.bv_player_get_frames_written(self._live())

    # Sound.
    @property
    def volume(self) -> float:
        return lib.bv_player_get_volume(self._live())

    @volume.setter
    def volume(self, gain: float) -> None:
        _check(lib.bv_player_set_volume(self._live(), gain))

    # Loudness normalisation.
    @property
    def normalize_loudness(self) -> bool:
        """Stations play at matched loudness (EBU R128, toward
        loudness_target), each starting at the gain it last settled on; off
        by default, effective at once."""
        return bool(lib.bv_player_get_loudness_normalization(self._live()))

    @normalize_loudness.setter
    def normalize_loudness(self, normalize: bool) -> None:
        _check(lib.bv_player_set_loudness_normalization(self._live(), int(bool(normalize))))

    @property
    def loudness_target(self) -> float:
        """The loudness normalisation aims for, in LUFS (-70 to 0; -18 by default)."""
        return lib.bv_player_get_loudness_target(self._live())

    @loudness_target.setter
    def loudness_target(self, lufs: float) -> None:
        _check(lib.bv_player_set_loudness_target(self._live(), lufs))

    # Sleep, fades and stopping after the title.
    @property
    def inhibit_sleep(self) -> bool:
        """While playing (not paused) the machine is kept from sleeping
        (logind's inhibitor); on by default."""
        return bool(lib.bv_player_get_inhibit_sleep(self._live()))

    @inhibit_sleep.setter
    def inhibit_sleep(self, inhibit: bool) -> None:
        _check(lib.bv_player_set_inhibit_sleep(self._live(), int(bool(inhibit))))

    def fade_volume(self, gain: float, seconds: float) -> None:
        """Moves the volume to gain over seconds of audio, without audible
        steps; setting volume ends the fade where it is."""
        _check(lib.bv_player_fade_volume(self._live(), gain, seconds))

    @property
    def stop_after_title(self) -> bool:
        """True: the playback stops (STOPPED) where the next stream title
        begins, at its first frame. A new play() ends the request."""
        return bool(lib.bv_player_get_stop_after_title(self._live()))

    @stop_after_title.setter
    def stop_after_title(self, stop: bool) -> None:
        _check(lib.bv_player_stop_after_title(self._live(), int(bool(stop))))

    @property
    def reconnect_patience(self) -> float:
        """Seconds a live station that breaks off is tried again before the
        playback fails (300 by default; 0: a short window of 10 s), from the
        next play()."""
        return lib.bv_player_get_reconnect_patience(self._live())

    @reconnect_patience.setter
    def reconnect_patience(self, seconds: float) -> None:
        _check(lib.bv_player_set_reconnect_patience(self._live(), seconds))

    # Time-shift ring and recording of live stations.
    @property
    def time_shift_minutes(self) -> float:
        """Minutes of a live station's compressed audio kept (10 by default;
        0 keeps none), from the next play()."""
        return lib.bv_player_get_time_shift_minutes(self._live())

    @time_shift_minutes.setter
    def time_shift_minutes(self, minutes: float) -> None:
        _check(lib.bv_player_set_time_shift_minutes(self._live(), minutes))

    @property
    def time_shift_memory(self) -> int:
        """Bytes of the ring kept in memory before older audio goes to a file
        in the user's cache folder (8 MiB by default), from the next play()."""
        return lib.bv_player_get_time_shift_memory(self._live())

    @time_shift_memory.setter
    def time_shift_memory(self, size: int) -> None:
        _check(lib.bv_player_set_time_shift_memory(self._live(), size))

    @property
    def time_shift_held(self) -> float:
        """Seconds of the station the ring holds now."""
        return lib.bv_player_get_time_shift_held(self._live())

    @property
    def can_time_shift(self) -> bool:
        """True while a live station read by Belvane's connection plays with its ring on."""
        return bool(lib.bv_player_can_time_shift(self._live()))

    def skip(self, seconds: float) -> None:
        """Moves by seconds (negative: back) within the ring, to within one
        codec frame. BelvaneError when the playback cannot time-shift."""
        _check(lib.bv_player_skip(self._live(), seconds))

    def go_live(self) -> None:
        """Jumps to the station's newest audio."""
        _check(lib.bv_player_go_live(self._live()))

    @property
    def seconds_behind_live(self) -> float:
        """How far what is heard next lies behind live (0 before the first
        pause or skip)."""
        return lib.bv_player_get_seconds_behind_live(self._live())

    def start_recording(self, folder: str, from_title_start: bool = False) -> Optional[PlaybackError]:
        """Records the station into folder, one file per title (the station's
        own frames, tagged and named from the title); with from_title_start,
        beginning with the current title's first frame, from the ring. None
        when it records, else why not (see errors.BELVANE_RECORDING_...)."""
        error = PlayerError()
        call = lib.bv_player_record_current_title_from_start if from_title_start else lib.bv_player_start_recording
        code = call(self._live(), folder.encode(), ctypes.byref(error))
        if code < 0:
            raise BelvaneError(code)
        if code == 0:
            return None
        return PlaybackError(error.code, error.domain.decode(), error.description.decode("utf-8", "replace"))

    def stop_recording(self) -> None:
        lib.bv_player_stop_recording(self._live())

    @property
    def recording(self) -> bool:
        return bool(lib.bv_player_is_recording(self._live()))

    # Request settings: how every request of the next play() goes out. A
    # refused value raises BelvaneError and changes nothing (the library's
    # log says why).
    @property
    def user_agent(self) -> str:
        """The User-Agent of the requests ("Belvane/0.1" unless set; None or
        "" restores that)."""
        return take_string(lib.bv_player_get_user_agent(self._live()))

    @user_agent.setter
    def user_agent(self, user_agent: Optional[str]) -> None:
        _check(lib.bv_player_set_user_agent(self._live(), user_agent.encode() if user_agent else None))

    def add_request_header(self, name: str, value: str) -> None:
        """An extra header field for every request (replacing one of the
        same name)."""
        _check(lib.bv_player_add_request_header(self._live(), name.encode(), value.encode()))

    def clear_request_headers(self) -> None:
        _check(lib.bv_player_clear_request_headers(self._live()))

    @property
    def proxy(self) -> Optional[str]:
        """None: the environment's proxy (http_proxy, ...; the default);
        "": none; else the proxy's URL ("http://proxy:3128")."""
        pointer = lib.bv_player_get_proxy(self._live())
        return take_string(pointer) if pointer else None

    @proxy.setter
    def proxy(self, proxy: Optional[str]) -> None:
        _check(lib.bv_player_set_proxy(self._live(), proxy.encode() if proxy is not None else None))

    @property
    def muted(self) -> bool:
        return bool(lib.bv_player_get_mute(self._live()))

    @muted.setter
    def muted(self, muted: bool) -> None:
        _check(lib.bv_player_set_mute(self._live(), int(bool(muted))))

    def set_audio_output(self, setting: str) -> None:
        """"auto", "pulse", "pulse:SINK", "alsa", "alsa:DEVICE", "null", "null:fast" or "wav:PATH";
        a playing station moves to it at once (see audio_outputs())."""
        _check(lib.bv_player_set_audio_output(self._live(), setting.encode()))

    @property
    def audio_output_name(self) -> str:
        return take_string(lib.bv_player_get_audio_output_name(self._live())) or "none"

    @property
    def audio_output_device(self) -> str:
        """The device the audio plays to ("pulse:SINK"); "" before playing."""
        return take_string(lib.bv_player_get_audio_output_device(self._live())) or ""

    def attribute(self, key: str) -> Optional[str]:
        return take_string(lib.bv_player_get_attribute(self._live(), key.encode()))

    # From the library, on the main context. An exception in a host's
    # callback is printed by ctypes and does not reach the library.
    def _state_changed(self, _handle, old, new, error, _userdata) -> None:
        if self.on_state:
            failure = None
            if error:
                e = error.contents
                failure = PlaybackError(e.code, (e.domain or b"").decode(), (e.description or b"").decode())
            self.on_state(self, State(old), State(new), failure)

    def _attributes_changed(self, _handle, keys, values, count, _userdata) -> None:
        attributes: Dict[str, str] = {keys[i].decode(): values[i].decode("utf-8", "replace") for i in range(count)}
        if self.on_attributes:
            self.on_attributes(self, attributes)
        # A station's title when it has one ("" once it cleared it), else a file's.
        title = attributes.get(ATTRIBUTE_STREAM_TITLE, attributes.get(ATTRIBUTE_TRACK_TITLE))
        if title is not None and title != self._title:
            self._title = title
            if self.on_title:
                self.on_title(self, title)

    def _position_changed(self, _handle, position, _userdata) -> None:
        if self.on_position:
            self.on_position(self, position)

    def _output_changed(self, _handle, output, _userdata) -> None:
        if self.on_output:
            self.on_output(self, output.decode("utf-8", "replace"))

    def _reception_changed(self, _handle, reception, _userdata) -> None:
        if self.on_reception:
            self.on_reception(self, Reception._of(reception.contents))

    def _recorded_file(self, _handle, path, title, complete, _userdata) -> None:
        if self.on_recorded_file:
            self.on_recorded_file(self, path.decode("utf-8", "surrogateescape"), title.decode("utf-8", "replace"),
                                  bool(complete))

    def _recording_stopped(self, _handle, error, _userdata) -> None:
        if self.on_recording_stopped:
            e = error.contents if error else None
            self.on_recording_stopped(
                self, PlaybackError(e.code, e.domain.decode(), e.description.decode("utf-8", "replace")) if e else None)
