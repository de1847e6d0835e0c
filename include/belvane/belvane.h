/*
 * belvane.h: the C interface to Belvane.
 *
 * A player plays one link at a time (an http(s) stream, a file URL or a file
 * path) through Belvane's master player, which picks the engine for each
 * link. The host hears about it through plain C callbacks.
 *
 * Threading
 *   Every function here must be called on the thread that runs GLib's
 *   default main context (g_main_context_default(): the thread of a GTK or
 *   Qt application's main loop, or of a plain g_main_loop_run()). Callbacks
 *   are delivered on that same thread, from that context, while the host
 *   iterates it; never on another thread. Nothing plays unless the host
 *   runs the default main context. The exceptions are bv_version(),
 *   bv_error_string(), bv_error_is_retryable(), bv_set_log_callback(),
 *   bv_audio_outputs(), bv_audio_outputs_free() and bv_free(), which may
 *   be called from any thread (each says "Any thread"), and the log
 *   callback, which is called on whatever thread logged.
 *
 * Strings
 *   Strings passed in are copied when needed; the caller keeps ownership and
 *   may free them as soon as the call returns. Strings returned as `char *`
 *   are newly allocated and the caller frees them with bv_free(). Strings
 *   returned as `const char *` are static and never freed. Strings handed to
 *   a callback (error text, attribute keys and values) belong to the library
 *   and are valid only during that callback: copy what you keep.
 *
 * Lifetime
 *   bv_player_create() makes a player; bv_player_destroy() stops its audio
 *   at once and frees it. No callback arrives after bv_player_destroy()
 *   returns. Destroying the player from inside one of its own callbacks is
 *   allowed: no further callback of that player is made, and the handle is
 *   freed once the callback returns, so the callback must not use it after
 *   the destroy call. Every other function may be called from a callback too.
 *
 * All text is UTF-8.
 */
#ifndef BELVANE_BELVANE_H
#define BELVANE_BELVANE_H

#include <stddef.h>
#include <stdint.h>

#include <belvane/BVErrorCodes.h>
#include <belvane/BVExport.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Version ----------------------------------------------------------- */

/* The version of the headers the host is compiled against. */
#define BELVANE_VERSION_MAJOR 0
#define BELVANE_VERSION_MINOR 1
#define BELVANE_VERSION_PATCH 0

/* One number for a version: (major << 16) | (minor << 8) | patch. */
#define BELVANE_MAKE_VERSION(major, minor, patch) \
  ((unsigned long)(((major) << 16) | ((minor) << 8) | (patch)))
#define BELVANE_VERSION \
  BELVANE_MAKE_VERSION(BELVANE_VERSION_MAJOR, BELVANE_VERSION_MINOR, BELVANE_VERSION_PATCH)

/* The version of the library loaded at run time, as BELVANE_MAKE_VERSION
 * makes it. A host may compare it with BELVANE_VERSION. Any thread. */
BV_EXPORT unsigned long bv_version(void);

/* ---- Errors ------------------------------------------------------------ */

/* What the functions returning int report: 0 for success, else one of
 * these negative codes. */
typedef enum bv_error_code {
  BV_OK = 0,
  /* An argument is NULL where it may not be, or out of range. */
  BV_ERROR_INVALID_PARAMETER = -1,
  /* The URL (or path) cannot be made into a URL. */
  BV_ERROR_INVALID_URL = -2,
  /* The audio output setting is not understood; the setting is unchanged. */
  BV_ERROR_INVALID_AUDIO_OUTPUT = -3,
  /* Memory ran out. */
  BV_ERROR_NOMEM = -4,
  /* The playback cannot do that: pausing or seeking a live stream, or
   * anything at all when nothing plays. */
  BV_ERROR_NOT_SUPPORTED = -5,
  /* A system service is missing (no D-Bus session bus for MPRIS). */
  BV_ERROR_UNAVAILABLE = -6
} bv_error_code;

/* A short English description of a bv_error_code (static string). Any
 * thread. */
BV_EXPORT const char *bv_error_string(int code);

/* Frees a string this library returned (NULL is fine). Any thread. */
BV_EXPORT void bv_free(void *data);

/* ---- Player ------------------------------------------------------------ */

/* The playback state; the values never change. */
typedef enum bv_state {
  BV_STATE_IDLE = 0,       /* nothing played yet */
  BV_STATE_CONNECTING = 1, /* opening the link, buffering */
  BV_STATE_PLAYING = 2,
  BV_STATE_STOPPED = 3,    /* stopped by the host, or the playback ended */
  BV_STATE_ERROR = 4       /* the playback failed; see the state callback */
} bv_state;

/* The player: an opaque handle. */
typedef struct bv_player bv_player;

/* A new idle player, or NULL when memory ran out. */
BV_EXPORT bv_player *bv_player_create(void);

/* Stops the audio at once and frees the player (NULL is fine). No callback
 * arrives afterwards. Allowed inside the player's own callbacks (see
 * Lifetime above). */
BV_EXPORT void bv_player_destroy(bv_player *player);

/* Optional clues to the link's format. Zero-initialise the struct (or use
 * BV_PLAY_OPTIONS_INIT) and set what is known; NULL members are unknown. */
typedef struct bv_play_options {
  /* The title the host shows for the link (a station's name). */
  const char *title;
  /* The MIME type the stream is served with ("audio/mpeg", "audio/aacp"). */
  const char *mime_type;
  /* The identifier of the engine that must play the link. */
  const char *engine_id;
  /* The character set the station's titles are read in, by a name iconv
   * knows ("WINDOWS-1251", "KOI8-R", "SHIFT_JIS"), for a station whose
   * titles come out wrongly; NULL detects it. An unknown name makes the
   * play fail with BV_ERROR_INVALID_PARAMETER. */
  const char *title_encoding;
} bv_play_options;

#define BV_PLAY_OPTIONS_INIT {NULL, NULL, NULL, NULL}

/* Plays a link, stopping what was playing. url is an absolute URL
 * ("http://host/stream", "file:///music/a.mp3") or a file path (absolute,
 * or relative to the working directory). title may be NULL. Returns 0 when
 * the playback starts (its progress arrives through the state callback,
 * beginning with BV_STATE_CONNECTING, which may come before this returns),
 * else an error code and nothing changes. */
BV_EXPORT int bv_player_play(bv_player *player, const char *url, const char *title);

/* As bv_player_play, with format clues; options may be NULL. */
BV_EXPORT int bv_player_play_with_options(bv_player *player, const char *url, const bv_play_options *options);

/* Stops the playback: its audio stops at once and, when something was
 * connecting or playing, the state callback reports the change to
 * BV_STATE_STOPPED before this returns (a playback that already ended or
 * failed keeps its state). A later play starts afresh. */
BV_EXPORT int bv_player_stop(bv_player *player);

/* The current state. */
BV_EXPORT bv_state bv_player_get_state(const bv_player *player);

/* The playback position as a fraction of the whole, 0.0 to 1.0; -1 for a
 * live stream or when nothing plays. */
BV_EXPORT double bv_player_get_position(const bv_player *player);

/* Whether the playback has a position (a file of known length; 1) or not
 * (a live stream, nothing playing; 0). Only such a playback pauses and
 * seeks. */
BV_EXPORT int bv_player_has_position(const bv_player *player);

/* Seeks to a fraction of the whole (a request for the very end lands just
 * before it); while paused, the playback stays paused at the new place.
 * BV_ERROR_INVALID_PARAMETER outside 0..1, BV_ERROR_NOT_SUPPORTED without
 * a position. The position callback reports where it landed. */
BV_EXPORT int bv_player_set_position(bv_player *player, double position);

/* Seeks to seconds from the start (clamped to the length); as
 * bv_player_set_position. BV_ERROR_NOT_SUPPORTED also when the length is
 * not known yet. */
BV_EXPORT int bv_player_seek(bv_player *player, double seconds);

/* Pauses a file, or a live station that can be time-shifted
 * (bv_player_can_time_shift): no sound, while the state stays
 * BV_STATE_PLAYING and the position and attributes stay; a paused station
 * goes on filling its ring. BV_ERROR_NOT_SUPPORTED for a live stream that
 * cannot be time-shifted (stop it instead) or when nothing plays. Pausing a
 * paused player is fine. A new play ends the pause. */
BV_EXPORT int bv_player_pause(bv_player *player);
/* Plays a paused file or station on from where it paused, with the very
 * next frame (0 also when not paused). */
BV_EXPORT int bv_player_resume(bv_player *player);
BV_EXPORT int bv_player_is_paused(const bv_player *player);

/* Seconds played since the start (live streams too); -1 when not known. */
BV_EXPORT double bv_player_get_elapsed_time(const bv_player *player);

/* Audio frames handed to the output since the playback started: what the
 * listener hears now, to within the device's buffer. 0 when nothing plays. */
BV_EXPORT uint64_t bv_player_get_frames_written(const bv_player *player);

/* The volume as a gain, 0.0 (silent) to 1.0 (full, the default). It holds
 * for every later playback. BV_ERROR_INVALID_PARAMETER outside 0..1. */
BV_EXPORT int bv_player_set_volume(bv_player *player, double volume);
BV_EXPORT double bv_player_get_volume(const bv_player *player);

/* Seconds a live station that breaks off (a drop, a stall, its server gone
 * or answering that the stream is away) is tried again, while the state
 * stays playing, before the playback fails: 300 by default, 0 for a short
 * window of 10 s. It holds from the next playback. BV_ERROR_INVALID_PARAMETER
 * for a negative value. */
BV_EXPORT int bv_player_set_reconnect_patience(bv_player *player, double seconds);
BV_EXPORT double bv_player_get_reconnect_patience(const bv_player *player);

/* ---- Loudness normalisation --------------------------------------------- */

/* When on (1), stations play at matched loudness: the MP3 stream and general
 * engines measure the station's EBU R128 short-term loudness and move a gain
 * of their own smoothly toward the target (LUFS, -18 by default), never
 * lifting the recent peaks above -1 dBFS; the volume acts on top of it. The
 * gain a station settles on is remembered in the user's cache folder and its
 * next play starts there. Off (0) by default; it takes effect at once and
 * holds for every later playback. The target: BV_ERROR_INVALID_PARAMETER
 * outside -70..0. Thread: the one that plays. */
BV_EXPORT int bv_player_set_loudness_normalization(bv_player *player, int normalize);
BV_EXPORT int bv_player_get_loudness_normalization(const bv_player *player);
BV_EXPORT int bv_player_set_loudness_target(bv_player *player, double lufs);
BV_EXPORT double bv_player_get_loudness_target(const bv_player *player);

/* ---- Sleep, fades and stopping after the title ------------------------- */

/* While the playback plays (not paused) the player keeps the machine from
 * sleeping through logind's inhibitor on the system bus, and lets go on
 * stop, error and pause. On (1) by default; 0 turns it off. Without a
 * system bus or logind nothing happens (logged once). */
BV_EXPORT int bv_player_set_inhibit_sleep(bv_player *player, int inhibit);
BV_EXPORT int bv_player_get_inhibit_sleep(const bv_player *player);

/* Moves the volume from where it stands to volume (0.0 to 1.0) over seconds
 * of audio, sample by sample (no audible steps); bv_player_get_volume
 * follows it, bv_player_set_volume ends it where it is. The RealMedia
 * engine sets the volume at once. BV_ERROR_INVALID_PARAMETER outside 0..1
 * or for a negative time. */
BV_EXPORT int bv_player_fade_volume(bv_player *player, double volume, double seconds);

/* With stop 1, the playback stops where the next stream title begins,
 * exactly at its first frame: the state callback reports BV_STATE_STOPPED
 * and the next title is not announced. 0 takes the request back; a new
 * play ends it. Engines that time titles by their audio (MP3 streams and
 * the general engine) honour it. */
BV_EXPORT int bv_player_stop_after_title(bv_player *player, int stop);
BV_EXPORT int bv_player_get_stop_after_title(const bv_player *player);

/* ---- Request settings -------------------------------------------------- */

/* How the player's requests go out, for every request made for a playback
 * (the station, its playlists, reconnections, every engine). Each holds
 * from the next playback. A refused value returns BV_ERROR_INVALID_PARAMETER,
 * logs why (see bv_set_log_callback) and changes nothing. */

/* The User-Agent; NULL or "" restores the default ("Belvane/0.1"). Refused
 * with a line break. */
BV_EXPORT int bv_player_set_user_agent(bv_player *player, const char *user_agent);
/* The User-Agent requests send; free it with bv_free(). */
BV_EXPORT char *bv_player_get_user_agent(const bv_player *player);
/* An extra header field for every request; one of the same name is
 * replaced. Refused: a name that is not an HTTP token, a value with a line
 * break, and the fields Belvane writes itself (Host, Content-Length,
 * Transfer-Encoding, Connection, Range, Icy-MetaData). A "User-Agent"
 * field sets the user agent. */
BV_EXPORT int bv_player_add_request_header(bv_player *player, const char *name, const char *value);
/* Removes every extra header field. */
BV_EXPORT int bv_player_clear_request_headers(bv_player *player);
/* The proxy: NULL takes it from the environment as libcurl does
 * (http_proxy, https_proxy, all_proxy, no_proxy; the default), "" uses
 * none, anything else is the proxy's URL ("http://proxy:3128",
 * "socks5h://127.0.0.1:1080"; "host:port" is an HTTP proxy), refused when
 * it does not parse. */
BV_EXPORT int bv_player_set_proxy(bv_player *player, const char *proxy);
/* The proxy as bv_player_set_proxy takes it: NULL for the environment's,
 * "" for none, else the URL. Free it with bv_free(). */
BV_EXPORT char *bv_player_get_proxy(const bv_player *player);

/* Mutes (non-zero) or unmutes (0) without changing the volume. */
BV_EXPORT int bv_player_set_mute(bv_player *player, int muted);
BV_EXPORT int bv_player_get_mute(const bv_player *player);

/* The audio output, for the playback under way too:
 *   "auto"         PulseAudio or PipeWire, then ALSA, then silence
 *   "pulse"        the sound server's default sink, followed as it changes
 *   "pulse:SINK"   that sink (bv_audio_outputs lists them)
 *   "alsa"         ALSA's default device
 *   "alsa:DEVICE"  that ALSA device
 *   "null"         silent, in real time
 *   "null:fast"    silent, as fast as decoded
 *   "wav:PATH"     a 32-bit float WAV file at PATH
 *   "" or NULL     the default: $BELVANE_AUDIO_OUTPUT, else "auto"
 * A playing stream moves to the new output at once (between sinks of the
 * sound server without a gap); the output callback tells when it has.
 * BV_ERROR_INVALID_AUDIO_OUTPUT for anything else, and the previous
 * setting stays. */
BV_EXPORT int bv_player_set_audio_output(bv_player *player, const char *setting);

/* The output actually opened ("pulse", "alsa", "null", "null:fast", "wav",
 * or "null (no sound output found)" when "auto" found nothing), "none"
 * before playing. Free it with bv_free(); NULL only when memory ran out. */
BV_EXPORT char *bv_player_get_audio_output_name(const bv_player *player);

/* The device the audio plays to, as a setting names it ("pulse:SINK",
 * "alsa:DEVICE"; the output's name for outputs without devices; "" before
 * playing). Free it with bv_free(). */
BV_EXPORT char *bv_player_get_audio_output_device(const bv_player *player);

/* The audio plays to another device now (named as above): the output was
 * changed while playing, or the sound server moved the stream because its
 * device went away (to the default) or, with no sink named, the default
 * changed. The playback goes on; the state does not change. */
typedef void (*bv_output_callback)(bv_player *player, const char *output, void *userdata);
BV_EXPORT void bv_player_set_output_callback(bv_player *player, bv_output_callback callback, void *userdata);

/* One of the machine's audio outputs: name is the setting that plays to it
 * ("pulse:SINK", "alsa:DEVICE"), description what the listener reads,
 * is_default 1 for the system default (the server's default sink, ALSA's
 * "default"). */
typedef struct bv_audio_output {
  char *name;
  char *description;
  int is_default;
} bv_audio_output;

/* The machine's audio outputs: the sound server's sinks, then the ALSA
 * playback devices, into a new array of *count entries at *outputs (NULL
 * when there are none); free it with bv_audio_outputs_free(). BV_OK,
 * BV_ERROR_INVALID_PARAMETER for NULL arguments, or BV_ERROR_NOMEM. Any
 * thread; asks the sound server afresh (at most a few seconds when it does
 * not answer). */
BV_EXPORT int bv_audio_outputs(bv_audio_output **outputs, size_t *count);
/* Frees what bv_audio_outputs() made. Any thread. */
BV_EXPORT void bv_audio_outputs_free(bv_audio_output *outputs, size_t count);

/* The attribute keys: the names Belvane exports. A live station has the
 * stream title (what it plays now; "" when it cleared it); a file has the
 * others its tags hold, and its duration. */
#define BV_ATTRIBUTE_STREAM_TITLE "BVPlayerAttributeStreamTitleKey"
#define BV_ATTRIBUTE_TRACK_TITLE "BVPlayerAttributeTrackTitleKey"
#define BV_ATTRIBUTE_ARTIST "BVPlayerAttributeArtistKey"
#define BV_ATTRIBUTE_ALBUM "BVPlayerAttributeAlbumKey"
#define BV_ATTRIBUTE_DURATION "BVPlayerAttributeDurationKey" /* seconds */
#define BV_ATTRIBUTE_GENRE "BVPlayerAttributeGenreKey"
#define BV_ATTRIBUTE_YEAR "BVPlayerAttributeYearKey"
#define BV_ATTRIBUTE_COMMENT "BVPlayerAttributeCommentKey"
#define BV_ATTRIBUTE_COPYRIGHT "BVPlayerAttributeCopyrightKey"
#define BV_ATTRIBUTE_TRACK_NUMBER "BVPlayerAttributeTrackNumberKey"
/* What a station's server announces of it: its name, genre, home page and
 * bit rate (kbit/s). */
#define BV_ATTRIBUTE_STATION_NAME "BVPlayerAttributeStationNameKey"
#define BV_ATTRIBUTE_STATION_GENRE "BVPlayerAttributeStationGenreKey"
#define BV_ATTRIBUTE_STATION_HOME_PAGE "BVPlayerAttributeStationHomePageKey"
#define BV_ATTRIBUTE_STATION_BIT_RATE "BVPlayerAttributeStationBitRateKey"
/* What the player decodes: the codec's short name ("MP3", "AAC", "HE-AAC",
 * "Vorbis", "Opus", "FLAC", ...), the sample rate (Hz) and the channels. */
#define BV_ATTRIBUTE_CODEC "BVPlayerAttributeCodecKey"
#define BV_ATTRIBUTE_SAMPLE_RATE "BVPlayerAttributeSampleRateKey"
#define BV_ATTRIBUTE_CHANNELS "BVPlayerAttributeChannelsKey"
/* The address a station sent with its current stream title (StreamUrl,
 * often cover art); absent when the title came without one. */
#define BV_ATTRIBUTE_STREAM_URL "BVPlayerAttributeStreamURLKey"
/* For a station reached through a playlist: the playing entry's title in
 * the playlist, and its place there counting from 1. */
#define BV_ATTRIBUTE_PLAYLIST_ENTRY_TITLE "BVPlayerAttributePlaylistEntryTitleKey"
#define BV_ATTRIBUTE_PLAYLIST_ENTRY_INDEX "BVPlayerAttributePlaylistEntryIndexKey"

/* The current value of an attribute as text (numbers in decimal, e.g. a
 * duration "215.5"), or NULL when the player has none under that key.
 * Free it with bv_free(). */
BV_EXPORT char *bv_player_get_attribute(const bv_player *player, const char *key);

/* ---- Callbacks --------------------------------------------------------- */

/* An error that ended a playback. The strings are valid only during the
 * callback. Every domain and code is listed in <belvane/BVErrorCodes.h>;
 * bv_error_is_retryable() tells whether trying again later can help. */
typedef struct bv_player_error {
  int64_t code;
  const char *domain;      /* e.g. BV_ERROR_DOMAIN_SHOUTSTREAMER */
  const char *description; /* worded for a listener */
} bv_player_error;

/* A real change of state. error is non-NULL only for a change to
 * BV_STATE_ERROR. */
typedef void (*bv_state_callback)(bv_player *player, bv_state from, bv_state to, const bv_player_error *error,
                                  void *userdata);

/* The attributes changed: keys[i] has values[i], for count pairs, every
 * current attribute (not only the changed ones) as text, as
 * bv_player_get_attribute gives it: a key that is missing has no value
 * now. The arrays and strings are valid only during the callback. */
typedef void (*bv_attribute_callback)(bv_player *player, const char *const *keys, const char *const *values,
                                      size_t count, void *userdata);

/* The position (a fraction, as bv_player_get_position gives it) moved. */
typedef void (*bv_position_callback)(bv_player *player, double position, void *userdata);

/* Each replaces the previous callback of its kind; NULL removes it.
 * userdata is handed back to the callback untouched. */
BV_EXPORT void bv_player_set_state_callback(bv_player *player, bv_state_callback callback, void *userdata);
BV_EXPORT void bv_player_set_attribute_callback(bv_player *player, bv_attribute_callback callback, void *userdata);
BV_EXPORT void bv_player_set_position_callback(bv_player *player, bv_position_callback callback, void *userdata);

/* ---- Reception --------------------------------------------------------- */

/* What the listener hears of a playback. The state stays BV_STATE_PLAYING
 * while a station refills or reconnects; this says whether audio is heard
 * meanwhile. */
typedef enum bv_reception_state {
  BV_RECEPTION_NONE = 0,          /* nothing playing, or the playback ended */
  BV_RECEPTION_PREBUFFERING = 1,  /* connecting and filling before the first sound */
  BV_RECEPTION_RECEIVING = 2,     /* audio is heard (a paused file counts as receiving) */
  BV_RECEPTION_BUFFERING = 3,     /* the audio ran out; the connection brings too little */
  BV_RECEPTION_RECONNECTING = 4   /* the audio ran out; the connection broke and is made again */
} bv_reception_state;

typedef struct bv_reception {
  bv_reception_state state;
  double seconds_without_audio; /* whole seconds since audio was last heard; 0 unless buffering or reconnecting */
  int32_t tries;                /* fresh connections tried in this silence; 0 unless reconnecting */
  double prebuffer_progress;    /* 0.0 to 1.0 while prebuffering (engines that cannot tell stay at 0.0); 1.0 after */
} bv_reception;

/* The current reception into *reception; BV_OK, or
 * BV_ERROR_INVALID_PARAMETER for a NULL argument. */
BV_EXPORT int bv_player_get_reception(const bv_player *player, bv_reception *reception);

/* The reception changed: on each change of its state, as the prebuffer
 * fills, and once a second (and at each new try) while audio is missing;
 * the audio running out is told within a second. *reception is valid only
 * during the callback. */
typedef void (*bv_reception_callback)(bv_player *player, const bv_reception *reception, void *userdata);
BV_EXPORT void bv_player_set_reception_callback(bv_player *player, bv_reception_callback callback, void *userdata);

/* ---- Time-shift ring and recording --------------------------------------- */

/* Every live station read through Belvane's connection keeps its last
 * minutes of compressed audio, as sent, with its titles' places: default
 * 10, 0 keeps none; from the next bv_player_play. BV_ERROR_INVALID_PARAMETER
 * for a negative value. get_time_shift_held: the seconds held now. */
BV_EXPORT int bv_player_set_time_shift_minutes(bv_player *player, double minutes);
BV_EXPORT double bv_player_get_time_shift_minutes(const bv_player *player);
BV_EXPORT double bv_player_get_time_shift_held(const bv_player *player);
/* How many bytes of the ring stay in memory before older audio goes to a
 * file in the user's cache folder (default 8 MiB); from the next
 * bv_player_play. */
BV_EXPORT int bv_player_set_time_shift_memory(bv_player *player, uint64_t bytes);
BV_EXPORT uint64_t bv_player_get_time_shift_memory(const bv_player *player);

/* Time-shift of a live station from its ring (MP3, AAC or Ogg, on either
 * engine that reads the station through Belvane's connection).
 * can_time_shift: 1 while such a station plays with its ring on. From the
 * first pause or skip on it plays from the ring: skip moves by seconds
 * from what is heard next (negative: back), to within one codec frame,
 * within what the ring holds (past the live edge: live); go_live jumps to
 * the newest frame. BV_ERROR_NOT_SUPPORTED for a playback that cannot be
 * time-shifted; a paused player stays paused.
 * Titles are announced where they start in the audio, also after a skip.
 * get_seconds_behind_live: how far what is heard next lies behind the live
 * edge (0 before the first pause or skip). Thread: the player's. */
BV_EXPORT int bv_player_can_time_shift(const bv_player *player);
BV_EXPORT int bv_player_skip(bv_player *player, double seconds);
BV_EXPORT int bv_player_go_live(bv_player *player);
BV_EXPORT double bv_player_get_seconds_behind_live(const bv_player *player);

/* Records the station that plays into folder, one file per title of the
 * station's own frames (MP3 into .mp3, AAC into ADTS .aac, each with an
 * ID3v2 tag of its title and artist), named from the title; a file that
 * lacks part of its title ends its name in " (incomplete)". The _from_start
 * form begins with the current title's first frame, from the ring. BV_OK,
 * or BV_ERROR_INVALID_PARAMETER, or the error in *error when error is not
 * NULL (its strings valid until the next call on this player):
 * BV_BELVANE_RECORDING_FOLDER, _NOTHING or _NO_TITLE_START in
 * BV_ERROR_DOMAIN_BELVANE; the function then returns the (positive) code. */
BV_EXPORT int bv_player_start_recording(bv_player *player, const char *folder, bv_player_error *error);
BV_EXPORT int bv_player_record_current_title_from_start(bv_player *player, const char *folder,
                                                        bv_player_error *error);
BV_EXPORT void bv_player_stop_recording(bv_player *player);
BV_EXPORT int bv_player_is_recording(const bv_player *player);

/* A file of the recording is finished: its path, the title it holds and
 * whether it holds the whole title. error, when the recording ended by
 * itself: NULL when the station ended, else why (a full disk:
 * BV_BELVANE_RECORDING_DISK_FULL; the last file keeps what was written).
 * Strings valid only during the callback. */
typedef void (*bv_recorded_file_callback)(bv_player *player, const char *path, const char *title, int complete,
                                          void *userdata);
typedef void (*bv_recording_stopped_callback)(bv_player *player, const bv_player_error *error, void *userdata);
BV_EXPORT void bv_player_set_recorded_file_callback(bv_player *player, bv_recorded_file_callback callback,
                                                    void *userdata);
BV_EXPORT void bv_player_set_recording_stopped_callback(bv_player *player, bv_recording_stopped_callback callback,
                                                        void *userdata);

/* ---- Desktop media controls (MPRIS) ------------------------------------ */

/* Shows the player in the desktop's media controls (MPRIS 2 on the D-Bus
 * session bus, as org.mpris.MediaPlayer2.belvane, or
 * org.mpris.MediaPlayer2.belvane.instance<pid> when that name is taken):
 * panels, media keys and playerctl then see its state, title, artist,
 * album and length, and can pause, stop, seek, play again and set the
 * volume. Off by default. enable non-zero publishes, 0 withdraws (as does
 * bv_player_destroy). The callbacks arrive as before, also for what the
 * desktop asked. BV_ERROR_UNAVAILABLE when there is no session bus or no
 * name could be had. */
BV_EXPORT int bv_player_publish_mpris(bv_player *player, int enable);

/* ---- Log --------------------------------------------------------------- */

/* A diagnostic line of the library (UTF-8, without passwords), valid only
 * during the call. */
typedef void (*bv_log_callback)(const char *message, void *userdata);

/* Routes the library's diagnostic lines to callback, for the whole process.
 * Without one (NULL, and the default once a bv_player was created) they
 * stay quiet: they go to GLib's log at the debug level, printed only when
 * G_MESSAGES_DEBUG names "Belvane" or "all". The callback is called on
 * whatever thread logged, possibly on several at once; it must not call
 * bv_set_log_callback. When this returns, the previous callback is no
 * longer running and is not called again. Any thread. */
BV_EXPORT void bv_set_log_callback(bv_log_callback callback, void *userdata);

#ifdef __cplusplus
}
#endif

#endif /* BELVANE_BELVANE_H */
