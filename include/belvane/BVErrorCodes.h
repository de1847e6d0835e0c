/*
 * BVErrorCodes.h: every error a player can report to its host, by domain
 * and code, and whether trying the same link again later can help.
 *
 * A playback that fails ends in BVPlayerStateError (BV_STATE_ERROR) with an
 * error: a domain (text), a signed code and a description worded for a
 * listener. The domains and codes below are all a host can receive, from
 * any engine; a host programs against them (bv_error_is_retryable() sorts
 * them, from C, C++ and Python alike) and shows the description. Codes
 * marked "retry" are passing conditions (the network, a busy or restarting
 * server); the others stay until the link, the file or the machine changes.
 * docs/attributes-and-errors.md has the same list with the situations that
 * produce each code.
 *
 * Plain C: usable from C99 and C++ hosts alike.
 */
#ifndef BELVANE_BVERRORCODES_H
#define BELVANE_BVERRORCODES_H

#include <stdint.h>

#include <belvane/BVExport.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Four-character codes, as the MP3 engine and the audio output make them. */
#define BV_FOURCC(a, b, c, d) \
  ((int32_t)(((uint32_t)(a) << 24) | ((uint32_t)(b) << 16) | ((uint32_t)(c) << 8) | (uint32_t)(d)))

/* ---- The MP3/Shoutcast engine: its stream ------------------------------ */
#define BV_ERROR_DOMAIN_SHOUTSTREAMER "com.brambleside.shoutstreamer.ErrorDomain"
#define BV_SHOUTSTREAMER_AAC BV_FOURCC('E', 'a', 'a', 'c')                /* the stream is AAC (another engine plays it) */
#define BV_SHOUTSTREAMER_CONNECTION_REFUSED BV_FOURCC('E', 'c', 'n', 'r') /* retry */
#define BV_SHOUTSTREAMER_HOST_NOT_FOUND BV_FOURCC('E', 'h', 's', 't')     /* retry (the name service or network may be down) */
#define BV_SHOUTSTREAMER_TIMED_OUT BV_FOURCC('E', 't', 'i', 'm')          /* retry */
#define BV_SHOUTSTREAMER_NOT_MPEG BV_FOURCC('E', 'g', 'a', 'r')           /* the data is not MPEG audio */
#define BV_SHOUTSTREAMER_LOST_SYNC BV_FOURCC('E', 's', 'y', 'n')          /* retry */
#define BV_SHOUTSTREAMER_CONNECTION_LOST BV_FOURCC('E', 'l', 's', 't')    /* retry */
#define BV_SHOUTSTREAMER_NO_AUDIO BV_FOURCC('E', 'n', 'o', 'd')           /* retry (closed before any audio) */
#define BV_SHOUTSTREAMER_WEB_PAGE BV_FOURCC('E', 'h', 't', 'm')           /* a web page, not a stream */
#define BV_SHOUTSTREAMER_BAD_REPLY BV_FOURCC('E', 'b', 'a', 'd')          /* malformed reply, redirect loop */
#define BV_SHOUTSTREAMER_SECURE_CONNECTION BV_FOURCC('E', 't', 'l', 's')  /* TLS could not be set up */
#define BV_SHOUTSTREAMER_BAD_URL BV_FOURCC('E', 'u', 'r', 'l')
#define BV_SHOUTSTREAMER_INTERNAL BV_FOURCC('E', 'i', 'n', 't')
/* An HTTP or ICY status that is not a success: 'H' and its three digits
 * (H404, H503); retry for 5xx, 408 and 429. */
#define BV_SHOUTSTREAMER_HTTP_STATUS(status) \
  BV_FOURCC('H', '0' + ((status) / 100) % 10, '0' + ((status) / 10) % 10, '0' + (status) % 10)

/* ---- The MP3/Shoutcast engine: finding the stream behind a link -------- */
#define BV_ERROR_DOMAIN_STREAM_TUNER "QLStreamTunerErrorDomain"
#define BV_STREAM_TUNER_NO_SOURCE_URL 1
#define BV_STREAM_TUNER_NO_PLAYABLE_STREAM 2 /* no engine plays what the station offers */
#define BV_STREAM_TUNER_NO_STREAMS 3         /* the station's playlists list nothing usable */
#define BV_STREAM_TUNER_PLAYLIST_TOO_LARGE 4
#define BV_STREAM_TUNER_TIMED_OUT 5          /* retry */

/* A server's HTTP or ICY status (code: the status, 400 to 599) while
 * looking for the stream or loading a playlist; retry for 5xx, 408 and 429. */
#define BV_ERROR_DOMAIN_HTTP "NetHTTPErrorDomain"

/* ---- The general engine (GStreamer: AAC, Ogg, FLAC, HLS, files) -------- */
/* Classic status codes; an HTTP status (300 to 599) also comes in this
 * domain, with the HTTP rule for retries. */
#define BV_ERROR_DOMAIN_OS_STATUS "NSOSStatusErrorDomain"
#define BV_OS_STATUS_FILE_NOT_FOUND (-43)
#define BV_OS_STATUS_IO_ERROR (-36)             /* retry */
#define BV_OS_STATUS_PERMISSION_DENIED (-54)
#define BV_OS_STATUS_NOT_A_MOVIE (-2048)        /* nothing playable in it */
#define BV_OS_STATUS_CANNOT_REACH_STREAM (-19160) /* retry */
#define BV_OS_STATUS_UNKNOWN (-1)

/* Network failures of a download (a playlist, a reference movie). */
#define BV_ERROR_DOMAIN_URL "NSURLErrorDomain"
#define BV_URL_ERROR_UNKNOWN (-1)
#define BV_URL_ERROR_BAD_URL (-1000)
#define BV_URL_ERROR_TIMED_OUT (-1001)             /* retry */
#define BV_URL_ERROR_UNSUPPORTED_URL (-1002)
#define BV_URL_ERROR_CANNOT_FIND_HOST (-1003)      /* retry */
#define BV_URL_ERROR_CANNOT_CONNECT_TO_HOST (-1004) /* retry */
#define BV_URL_ERROR_CONNECTION_LOST (-1005)       /* retry */
#define BV_URL_ERROR_TOO_MANY_REDIRECTS (-1007)
#define BV_URL_ERROR_RESOURCE_UNAVAILABLE (-1008)  /* retry */
#define BV_URL_ERROR_BAD_SERVER_RESPONSE (-1011)
#define BV_URL_ERROR_FILE_DOES_NOT_EXIST (-1100)
#define BV_URL_ERROR_TOO_LARGE (-1103)
#define BV_URL_ERROR_SECURE_CONNECTION (-1200)

/* A web playlist (M3U, PLS, ASX) that could not be had. */
#define BV_ERROR_DOMAIN_WEB_PLAYLIST "BVWebPlaylist"
#define BV_WEB_PLAYLIST_HTTP_STATUS (-1) /* the server refused it; retry */
#define BV_WEB_PLAYLIST_TOO_LARGE (-2)

/* ---- The RealMedia engine -------------------------------------------- */
#define BV_ERROR_DOMAIN_HELIX "BVHelixErrorDomain"
#define BV_HELIX_GENERAL_FAILURE ((int32_t)0x80040100u)
#define BV_HELIX_FILE_NOT_FOUND ((int32_t)0x80040101u)
#define BV_HELIX_INVALID_FILE ((int32_t)0x80040102u)
#define BV_HELIX_CONNECTION_REFUSED ((int32_t)0x80040103u) /* retry */
#define BV_HELIX_SERVER_UNREACHABLE ((int32_t)0x80040104u) /* retry */
#define BV_HELIX_SERVER_ERROR ((int32_t)0x80040105u)       /* retry */
#define BV_HELIX_TIMEOUT ((int32_t)0x80040106u)            /* retry */
#define BV_HELIX_KIT_MISSING (-43)    /* RealPlayer or its client kit is not installed */
#define BV_HELIX_KIT_INCOMPATIBLE (-4)
#define BV_HELIX_NO_VIEW 10101
#define BV_HELIX_NO_PLAYER 10102
#define BV_HELIX_CANNOT_START 10201
#define BV_HELIX_UNIDENTIFIED 10300

/* ---- Belvane itself ---------------------------------------------------- */
#define BV_ERROR_DOMAIN_BELVANE "BVBelvaneErrorDomain"
#define BV_BELVANE_INVALID_STREAM_URL 67003 /* the stream's address cannot be used */
#define BV_BELVANE_TOOL_MISSING 5601        /* the player tool program is missing */
#define BV_BELVANE_TOOL_FAILED 5602         /* the player tool ended, stopped answering or could not start */
#define BV_BELVANE_RECORDING_FOLDER 5701    /* the recording's folder is missing or takes no files */
#define BV_BELVANE_RECORDING_DISK_FULL 5702 /* the disk is full (or the file as large as allowed) */
#define BV_BELVANE_RECORDING_WRITE 5703     /* the recording could not be written */
#define BV_BELVANE_RECORDING_NOTHING 5704   /* no live station plays, or none was heard yet */
#define BV_BELVANE_RECORDING_NO_TITLE_START 5705 /* the title's start is not held: time-shift is off */
/* The audio output failed (every engine that plays through Belvane's output). */
#define BV_BELVANE_OUTPUT_NO_OUTPUT 5801    /* no output could be opened */
#define BV_BELVANE_OUTPUT_SETTING 5802      /* the setting ($BELVANE_AUDIO_OUTPUT) names no output */
#define BV_BELVANE_OUTPUT_WAV_FILE 5803     /* the WAV file cannot be written, at the start or while playing */
#define BV_BELVANE_OUTPUT_SOUND_SERVER 5804 /* retry (PulseAudio or PipeWire restarting; the sink named missing) */
#define BV_BELVANE_OUTPUT_SOUND_CARD 5805   /* retry (the ALSA device is busy) */
#define BV_BELVANE_OUTPUT_THREAD 5806       /* the output thread could not start */

/* 1 when trying the same link again later can help (a passing network or
 * server condition, listed above as "retry"), 0 when it cannot or the
 * domain is unknown. Any thread. */
BV_EXPORT int bv_error_is_retryable(const char *domain, int64_t code);

#ifdef __cplusplus
}
#endif

#endif /* BELVANE_BVERRORCODES_H */
