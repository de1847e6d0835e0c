"""Every error a playback can end with, by domain and code (as in
<belvane/BVErrorCodes.h>), and whether trying the same link later can help.

A failed playback reaches ``Player.on_state`` with a ``PlaybackError``
(domain, code, description); ``error.retryable`` (or ``is_retryable``)
sorts it. Codes marked "retry" are passing conditions (the network, a busy
server); the others stay until the link, the file or the machine changes.
"""
from belvane._library import lib


def _fourcc(text: str) -> int:
    value = int.from_bytes(text.encode("ascii"), "big")
    return value - (1 << 32) if value >= 1 << 31 else value


# The MP3/Shoutcast engine: its stream, and the audio output.
DOMAIN_SHOUTSTREAMER = "com.brambleside.shoutstreamer.ErrorDomain"
SHOUTSTREAMER_AAC = _fourcc("Eaac")
SHOUTSTREAMER_CONNECTION_REFUSED = _fourcc("Ecnr")   # retry
SHOUTSTREAMER_HOST_NOT_FOUND = _fourcc("Ehst")       # retry
SHOUTSTREAMER_TIMED_OUT = _fourcc("Etim")            # retry
SHOUTSTREAMER_NOT_MPEG = _fourcc("Egar")
SHOUTSTREAMER_LOST_SYNC = _fourcc("Esyn")            # retry
SHOUTSTREAMER_CONNECTION_LOST = _fourcc("Elst")      # retry
SHOUTSTREAMER_NO_AUDIO = _fourcc("Enod")             # retry
SHOUTSTREAMER_WEB_PAGE = _fourcc("Ehtm")
SHOUTSTREAMER_BAD_REPLY = _fourcc("Ebad")
SHOUTSTREAMER_SECURE_CONNECTION = _fourcc("Etls")
SHOUTSTREAMER_BAD_URL = _fourcc("Eurl")
SHOUTSTREAMER_INTERNAL = _fourcc("Eint")


def shoutstreamer_http_status(status: int) -> int:
    """The code of an HTTP or ICY status ('H' and its digits); retry for 5xx, 408, 429."""
    return _fourcc("H%03d" % status)



# The MP3/Shoutcast engine: finding the stream behind a link.
DOMAIN_STREAM_TUNER = "QLStreamTunerErrorDomain"
STREAM_TUNER_NO_SOURCE_URL = 1
STREAM_TUNER_NO_PLAYABLE_STREAM = 2
STREAM_TUNER_NO_STREAMS = 3
STREAM_TUNER_PLAYLIST_TOO_LARGE = 4
STREAM_TUNER_TIMED_OUT = 5                           # retry

# A server's HTTP or ICY status (the code); retry for 5xx, 408 and 429.
DOMAIN_HTTP = "NetHTTPErrorDomain"

# The general engine (GStreamer); an HTTP status also comes in this domain.
DOMAIN_OS_STATUS = "NSOSStatusErrorDomain"
OS_STATUS_FILE_NOT_FOUND = -43
OS_STATUS_IO_ERROR = -36                             # retry
OS_STATUS_PERMISSION_DENIED = -54
OS_STATUS_NOT_A_MOVIE = -2048
OS_STATUS_CANNOT_REACH_STREAM = -19160               # retry
OS_STATUS_UNKNOWN = -1

# Network failures of a download (a playlist, a reference movie).
DOMAIN_URL = "NSURLErrorDomain"
URL_ERROR_UNKNOWN = -1
URL_ERROR_BAD_URL = -1000
URL_ERROR_TIMED_OUT = -1001                          # retry
URL_ERROR_UNSUPPORTED_URL = -1002
URL_ERROR_CANNOT_FIND_HOST = -1003                   # retry
URL_ERROR_CANNOT_CONNECT_TO_HOST = -1004             # retry
URL_ERROR_CONNECTION_LOST = -1005                    # retry
URL_ERROR_TOO_MANY_REDIRECTS = -1007
URL_ERROR_RESOURCE_UNAVAILABLE = -1008               # retry
URL_ERROR_BAD_SERVER_RESPONSE = -1011
URL_ERROR_FILE_DOES_NOT_EXIST = -1100
URL_ERROR_TOO_LARGE = -1103
URL_ERROR_SECURE_CONNECTION = -1200

# A web playlist (M3U, PLS, ASX) that could not be had.
DOMAIN_WEB_PLAYLIST = "BVWebPlaylist"
WEB_PLAYLIST_HTTP_STATUS = -1                        # retry
WEB_PLAYLIST_TOO_LARGE = -2

# The RealMedia engine.
DOMAIN_HELIX = "BVHelixErrorDomain"
HELIX_GENERAL_FAILURE = 0x80040100 - (1 << 32)
HELIX_FILE_NOT_FOUND = 0x80040101 - (1 << 32)
HELIX_INVALID_FILE = 0x80040102 - (1 << 32)
HELIX_CONNECTION_REFUSED = 0x80040103 - (1 << 32)    # retry
HELIX_SERVER_UNREACHABLE = 0x80040104 - (1 << 32)    # retry
HELIX_SERVER_ERROR = 0x80040105 - (1 << 32)          # retry
HELIX_TIMEOUT = 0x80040106 - (1 << 32)               # retry
HELIX_KIT_MISSING = -43
HELIX_KIT_INCOMPATIBLE = -4
HELIX_NO_VIEW = 10101
HELIX_NO_PLAYER = 10102
HELIX_CANNOT_START = 10201
HELIX_UNIDENTIFIED = 10300

# Belvane itself.
DOMAIN_BELVANE = "BVBelvaneErrorDomain"
BELVANE_INVALID_STREAM_URL = 67003
BELVANE_TOOL_MISSING = 5601
BELVANE_TOOL_FAILED = 5602
BELVANE_RECORDING_FOLDER = 5701
BELVANE_RECORDING_DISK_FULL = 5702
BELVANE_RECORDING_WRITE = 5703
BELVANE_RECORDING_NOTHING = 5704
BELVANE_RECORDING_NO_TITLE_START = 5705
# The audio output failed.
BELVANE_OUTPUT_NO_OUTPUT = 5801
BELVANE_OUTPUT_SETTING = 5802
BELVANE_OUTPUT_WAV_FILE = 5803
BELVANE_OUTPUT_SOUND_SERVER = 5804                   # retry
BELVANE_OUTPUT_SOUND_CARD = 5805                     # retry
BELVANE_OUTPUT_THREAD = 5806


def is_retryable(domain: str, code: int) -> bool:
    """True when trying the same link again later can help."""
    return bool(lib.bv_error_is_retryable(domain.encode(), code))
