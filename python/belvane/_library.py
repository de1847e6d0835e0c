"""Loads libbelvane and declares the C interface's functions for ctypes."""
import ctypes
import ctypes.util
import os
import pathlib

_SONAME = "libbelvane.so.0"


def _candidates():
    explicit = os.environ.get("BELVANE_LIBRARY")
    if explicit:
        yield explicit
        return
    here = pathlib.Path(__file__).resolve().parent
    # Installed: <prefix>/lib[/<multiarch>]/python3.X/{site,dist}-packages/belvane.
    for parent in list(here.parents)[:5]:
        yield parent / _SONAME
        for multiarch in ("", "x86_64-linux-gnu", "aarch64-linux-gnu"):
            yield parent / "lib" / multiarch / _SONAME
    # A source checkout: <checkout>/python/belvane with the Release build.
    yield here.parent.parent / "build-release" / "lib" / _SONAME
    found = ctypes.util.find_library("belvane")
    yield found or _SONAME


def _load():
    errors = []
    for candidate in _candidates():
        path = str(candidate)
        if os.sep in path and not os.path.exists(path):
            continue
        try:
            return ctypes.CDLL(path)
        except OSError as error:
            errors.append(f"{path}: {error}")
    raise ImportError("belvane: libbelvane.so.0 not found (set BELVANE_LIBRARY to its path); tried "
                      + "; ".join(errors or ["the system's library path"]))


lib = _load()

c_player_p = ctypes.c_void_p


class PlayOptions(ctypes.Structure):
    _fields_ = [("title", ctypes.c_char_p), ("mime_type", ctypes.c_char_p), ("engine_id", ctypes.c_char_p),
                ("title_encoding", ctypes.c_char_p)]


class PlayerError(ctypes.Structure):
    _fields_ = [("code", ctypes.c_int64), ("domain", ctypes.c_char_p), ("description", ctypes.c_char_p)]


STATE_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.c_int, ctypes.c_int, ctypes.POINTER(PlayerError),
                                  ctypes.c_void_p)
ATTRIBUTE_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.POINTER(ctypes.c_char_p),
                                      ctypes.POINTER(ctypes.c_char_p), ctypes.c_size_t, ctypes.c_void_p)
POSITION_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.c_double, ctypes.c_void_p)


class CReception(ctypes.Structure):
    _fields_ = [("state", ctypes.c_int), ("seconds_without_audio", ctypes.c_double), ("tries", ctypes.c_int32),
                ("prebuffer_progress", ctypes.c_double)]


RECEPTION_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.POINTER(CReception), ctypes.c_void_p)
LOG_CALLBACK = ctypes.CFUNCTYPE(None, ctypes.c_char_p, ctypes.c_void_p)
RECORDED_FILE_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_int,
                                          ctypes.c_void_p)
RECORDING_STOPPED_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.POINTER(PlayerError), ctypes.c_void_p)
OUTPUT_CALLBACK = ctypes.CFUNCTYPE(None, c_player_p, ctypes.c_char_p, ctypes.c_void_p)


class CAudioOutput(ctypes.Structure):
    _fields_ = [("name", ctypes.c_char_p), ("description", ctypes.c_char_p), ("is_default", ctypes.c_int)]


def _declare(name, restype, *argtypes):
    function = getattr(lib, name)
    function.restype = restype
    function.argtypes = list(argtypes)


# Strings the library allocates come back as raw pointers, read and then
# released with bv_free.
_declare("bv_version", ctypes.c_ulong)
_declare("bv_error_string", ctypes.c_char_p, ctypes.c_int)
_declare("bv_free", None, ctypes.c_void_p)
_declare("bv_player_create", c_player_p)
_declare("bv_player_destroy", None, c_player_p)
_declare("bv_player_play_with_options", ctypes.c_int, c_player_p, ctypes.c_char_p, ctypes.POINTER(PlayOptions))
_declare("bv_player_stop", ctypes.c_int, c_player_p)
_declare("bv_player_get_state", ctypes.c_int, c_player_p)
_declare("bv_player_get_position", ctypes.c_double, c_player_p)
_declare("bv_player_get_elapsed_time", ctypes.c_double, c_player_p)
_declare("bv_player_get_frames_written", ctypes.c_uint64, c_player_p)
_declare("bv_player_set_volume", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_set_reconnect_patience", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_get_reconnect_patience", ctypes.c_double, c_player_p)
_declare("bv_player_get_volume", ctypes.c_double, c_player_p)
_declare("bv_player_set_mute", ctypes.c_int, c_player_p, ctypes.c_int)
_declare("bv_player_get_mute", ctypes.c_int, c_player_p)
_declare("bv_player_set_audio_output", ctypes.c_int, c_player_p, ctypes.c_char_p)
_declare("bv_player_get_audio_output_name", ctypes.c_void_p, c_player_p)
_declare("bv_player_get_audio_output_device", ctypes.c_void_p, c_player_p)
_declare("bv_player_set_output_callback", None, c_player_p, OUTPUT_CALLBACK, ctypes.c_void_p)
_declare("bv_audio_outputs", ctypes.c_int, ctypes.POINTER(ctypes.POINTER(CAudioOutput)),
         ctypes.POINTER(ctypes.c_size_t))
_declare("bv_audio_outputs_free", None, ctypes.POINTER(CAudioOutput), ctypes.c_size_t)
_declare("bv_player_get_attribute", ctypes.c_void_p, c_player_p, ctypes.c_char_p)
_declare("bv_player_set_state_callback", None, c_player_p, STATE_CALLBACK, ctypes.c_void_p)
_declare("bv_player_set_attribute_callback", None, c_player_p, ATTRIBUTE_CALLBACK, ctypes.c_void_p)
_declare("bv_player_set_position_callback", None, c_player_p, POSITION_CALLBACK, ctypes.c_void_p)
_declare("bv_player_set_reception_callback", None, c_player_p, RECEPTION_CALLBACK, ctypes.c_void_p)
_declare("bv_player_get_reception", ctypes.c_int, c_player_p, ctypes.POINTER(CReception))
_declare("bv_player_has_position", ctypes.c_int, c_player_p)
_declare("bv_player_set_position", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_seek", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_pause", ctypes.c_int, c_player_p)
_declare("bv_player_resume", ctypes.c_int, c_player_p)
_declare("bv_player_is_paused", ctypes.c_int, c_player_p)
_declare("bv_player_publish_mpris", ctypes.c_int, c_player_p, ctypes.c_int)
# Time-shift ring and recording.
_declare("bv_player_set_time_shift_minutes", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_get_time_shift_minutes", ctypes.c_double, c_player_p)
_declare("bv_player_set_time_shift_memory", ctypes.c_int, c_player_p, ctypes.c_uint64)
_declare("bv_player_get_time_shift_memory", ctypes.c_uint64, c_player_p)
_declare("bv_player_get_time_shift_held", ctypes.c_double, c_player_p)
_declare("bv_player_can_time_shift", ctypes.c_int, c_player_p)
_declare("bv_player_skip", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_go_live", ctypes.c_int, c_player_p)
_declare("bv_player_get_seconds_behind_live", ctypes.c_double, c_player_p)
_declare("bv_player_start_recording", ctypes.c_int, c_player_p, ctypes.c_char_p, ctypes.POINTER(PlayerError))
_declare("bv_player_record_current_title_from_start", ctypes.c_int, c_player_p, ctypes.c_char_p,
         ctypes.POINTER(PlayerError))
_declare("bv_player_stop_recording", None, c_player_p)
_declare("bv_player_is_recording", ctypes.c_int, c_player_p)
_declare("bv_player_set_recorded_file_callback", None, c_player_p, RECORDED_FILE_CALLBACK, ctypes.c_void_p)
_declare("bv_player_set_recording_stopped_callback", None, c_player_p, RECORDING_STOPPED_CALLBACK, ctypes.c_void_p)
_declare("bv_set_log_callback", None, LOG_CALLBACK, ctypes.c_void_p)
_declare("bv_error_is_retryable", ctypes.c_int, ctypes.c_char_p, ctypes.c_int64)
# Sleep, fades and stopping after the title.
_declare("bv_player_set_loudness_normalization", ctypes.c_int, c_player_p, ctypes.c_int)
_declare("bv_player_get_loudness_normalization", ctypes.c_int, c_player_p)
_declare("bv_player_set_loudness_target", ctypes.c_int, c_player_p, ctypes.c_double)
_declare("bv_player_get_loudness_target", ctypes.c_double, c_player_p)
_declare("bv_player_set_inhibit_sleep", ctypes.c_int, c_player_p, ctypes.c_int)
_declare("bv_player_get_inhibit_sleep", ctypes.c_int, c_player_p)
_declare("bv_player_fade_volume", ctypes.c_int, c_player_p, ctypes.c_double, ctypes.c_double)
_declare("bv_player_stop_after_title", ctypes.c_int, c_player_p, ctypes.c_int)
_declare("bv_player_get_stop_after_title", ctypes.c_int, c_player_p)
# Request settings.
_declare("bv_player_set_user_agent", ctypes.c_int, c_player_p, ctypes.c_char_p)
_declare("bv_player_get_user_agent", ctypes.c_void_p, c_player_p)
_declare("bv_player_add_request_header", ctypes.c_int, c_player_p, ctypes.c_char_p, ctypes.c_char_p)
_declare("bv_player_clear_request_headers", ctypes.c_int, c_player_p)
_declare("bv_player_set_proxy", ctypes.c_int, c_player_p, ctypes.c_char_p)
_declare("bv_player_get_proxy", ctypes.c_void_p, c_player_p)


def take_string(pointer):
    """The text of a string the library allocated, which is then freed."""
    if not pointer:
        return None
    try:
        return ctypes.string_at(pointer).decode("utf-8", "replace")
    finally:
        lib.bv_free(pointer)
