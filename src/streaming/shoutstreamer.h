// shoutstreamer: plays one MP3/Shoutcast stream.
//
// Connects with "Icy-MetaData: 1", splits ICY metadata from the audio,
// decodes MPEG audio (layers I-III) with libmpg123 to two channels of 32-bit
// float, keeps a bounded buffer of decoded audio, and calls the audio and
// title callbacks from one and the same thread. States: 1 connecting,
// 2 buffering, 3 playing, 0 ended (clean close), 4 failed
// (shoutstreamer_status gives the code). A stream that drops after playing
// is reconnected a few times before anything is reported.
//
// Threads. A network thread fetches and decodes into the buffer; a delivery
// thread makes every callback (state, audio, title), one at a time and in
// order. The audio callback may block until its output has room: that is
// the stream's flow control, and the network thread waits when the buffer
// is full. The first report is 0 -> 1 (connecting); 1 -> 2 once the server
// has answered; 2 -> 3 once about half a second of audio is buffered (or the
// stream ended sooner); 3 -> 2 when the buffer runs dry (refill). The last
// report is 0 (ended) or 4 (failed), and comes after every decoded frame has
// been handed to the audio callback; no callback follows it.
//
// Ends and reconnection. A stream that declared its end (Content-Length, a
// chunked end, a file) and delivered it ends in state 0. A live stream that
// closes or breaks after it has buffered enough to play is reconnected: a
// few tries with growing pauses (0.5, 1, 2, 4 s) within about ten seconds
// of the drop, reporting nothing but a refill (3 -> 2 -> 3); only when every
// try fails does it end in state 4 with the last try's error. Before that
// point a failure ends in state 4 at once (a short stream that closed with
// audio decoded plays out and ends in state 0).
//
// Titles. The title callback is made as soon as the decoder reaches the
// audio that follows a metadata block, not when that audio is due:
// framesBuffered is the number of frames still to be handed to the audio
// callback before that audio, exact to one MPEG frame (the title is placed
// before the first frame whose header lies at or after the block). The
// caller holds the title until it has written that many frames.
//
// Addresses: http, https, icy and shttp (both fetched as http) and file.
// Replies with an HTTP status line and Shoutcast's "ICY 200 OK" are both
// accepted, redirects are followed.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct shoutstreamer* shoutstreamer_t;

enum {
  SHOUTSTREAMER_STATE_ENDED = 0,
  SHOUTSTREAMER_STATE_CONNECTING = 1,
  SHOUTSTREAMER_STATE_BUFFERING = 2,
  SHOUTSTREAMER_STATE_PLAYING = 3,
  SHOUTSTREAMER_STATE_FAILED = 4,
};

// Four-character error codes; shoutstreamer_error_as_string words each one
// for a listener.
#define SHOUTSTREAMER_FOURCC(a, b, c, d) \
  ((int32_t)(((uint32_t)(a) << 24) | ((uint32_t)(b) << 16) | ((uint32_t)(c) << 8) | (uint32_t)(d)))
// The stream is AAC (by its content type or its ADTS frames).
#define SHOUTSTREAMER_ERROR_AAC SHOUTSTREAMER_FOURCC('E', 'a', 'a', 'c')
// The server refused the connection or could not be reached.
#define SHOUTSTREAMER_ERROR_CONNECTION_REFUSED SHOUTSTREAMER_FOURCC('E', 'c', 'n', 'r')
// The server's host name is unknown.
#define SHOUTSTREAMER_ERROR_HOST_NOT_FOUND SHOUTSTREAMER_FOURCC('E', 'h', 's', 't')
// An HTTP or ICY status that is not a success: 'H' and the three digits.
#define SHOUTSTREAMER_ERROR_HTTP_STATUS(code) \
  SHOUTSTREAMER_FOURCC('H', '0' + ((code) / 100) % 10, '0' + ((code) / 10) % 10, '0' + (code) % 10)
#define SHOUTSTREAMER_ERROR_NOT_FOUND SHOUTSTREAMER_ERROR_HTTP_STATUS(404)
// No answer, or the audio stopped coming, for longer than the time-out.
#define SHOUTSTREAMER_ERROR_TIMED_OUT SHOUTSTREAMER_FOURCC('E', 't', 'i', 'm')
// The data is not MPEG audio.
#define SHOUTSTREAMER_ERROR_NOT_MPEG SHOUTSTREAMER_FOURCC('E', 'g', 'a', 'r')
// The decoder lost the frames and could not find them again.
#define SHOUTSTREAMER_ERROR_LOST_SYNC SHOUTSTREAMER_FOURCC('E', 's', 'y', 'n')
// The connection broke (and, after playing, could not be made again).
#define SHOUTSTREAMER_ERROR_CONNECTION_LOST SHOUTSTREAMER_FOURCC('E', 'l', 's', 't')
// The address answered with a web page (served as HTML), not a stream.
#define SHOUTSTREAMER_ERROR_WEB_PAGE SHOUTSTREAMER_FOURCC('E', 'h', 't', 'm')
// The server closed the stream before any audio.
#define SHOUTSTREAMER_ERROR_NO_AUDIO SHOUTSTREAMER_FOURCC('E', 'n', 'o', 'd')
// A reply that cannot be read (malformed head, redirect loop).
#define SHOUTSTREAMER_ERROR_BAD_REPLY SHOUTSTREAMER_FOURCC('E', 'b', 'a', 'd')
// TLS could not be set up.
#define SHOUTSTREAMER_ERROR_SECURE_CONNECTION SHOUTSTREAMER_FOURCC('E', 't', 'l', 's')
// The URL is missing, malformed or of an unsupported scheme.
#define SHOUTSTREAMER_ERROR_BAD_URL SHOUTSTREAMER_FOURCC('E', 'u', 'r', 'l')
// shoutstreamer_start on a handle that was already started.
#define SHOUTSTREAMER_ERROR_ALREADY_STARTED SHOUTSTREAMER_FOURCC('E', 'b', 's', 'y')
// Anything else (no decoder, no thread).
#define SHOUTSTREAMER_ERROR_INTERNAL SHOUTSTREAMER_FOURCC('E', 'i', 'n', 't')

typedef void (*shoutstreamer_state_callback_t)(shoutstreamer_t streamer, int oldState, int newState);
// Two channels of sampleRate float frames; the buffers belong to the
// streamer and are valid during the call.
typedef void (*shoutstreamer_audio_callback_t)(shoutstreamer_t streamer, float sampleRate, float** channels,
                                               int32_t frames);
// The slot between audio and title; callers pass NULL.
typedef void (*shoutstreamer_other_callback_t)(shoutstreamer_t streamer, void* data);
// Title bytes (UTF-8 as the station sent them, not NUL-terminated; a title
// that is not valid UTF-8 is converted from the character set detected for
// it) and the number of
// decoded frames still to be delivered to the audio callback before the
// audio that follows the title in the stream.
typedef void (*shoutstreamer_title_callback_t)(shoutstreamer_t streamer, const char* bytes, int32_t length,
                                               int32_t framesBuffered);
// See shoutstreamer_set_interrupt_callback.
typedef void (*shoutstreamer_interrupt_callback_t)(shoutstreamer_t streamer);

typedef struct shoutstreamer_delegate {
  void* context;
} shoutstreamer_delegate_t;

shoutstreamer_t shoutstreamer_create(void);
// Starts streaming url (UTF-8); 0 on success, otherwise an error code. A
// handle plays one stream: a second start returns
// SHOUTSTREAMER_ERROR_ALREADY_STARTED.
int shoutstreamer_start(shoutstreamer_t streamer, const char* url, void* context,
                        shoutstreamer_state_callback_t stateCallback, shoutstreamer_audio_callback_t audioCallback,
                        shoutstreamer_other_callback_t otherCallback, shoutstreamer_title_callback_t titleCallback);
shoutstreamer_delegate_t* shoutstreamer_delegate(shoutstreamer_t streamer);
// The current error code (0 if none), also stored in *errorCode when given.
// Set before the report of state 4, so a state callback can read it.
int32_t shoutstreamer_status(shoutstreamer_t streamer, int32_t* errorCode);
// A listener-readable text for the code (malloc'd; the caller frees it), or
// NULL for 0 and unknown codes.
char* shoutstreamer_error_as_string(int32_t errorCode);
// Linux addition, optional, before start: destroy calls this (on the
// destroying thread, possibly while a callback runs on the delivery thread)
// to make an audio callback that is blocked on its output return; typically
// it stops the output, which makes a blocked orplayer_play_wait return.
void shoutstreamer_set_interrupt_callback(shoutstreamer_t streamer, shoutstreamer_interrupt_callback_t callback);
// Stops and frees the stream; no callback runs after it has returned.
//
// It stops the network at once and waits for a callback in progress to
// return. The audio callback may be blocked writing to its output; a running
// output takes the frames within its own short buffer time, so this returns
// promptly in the usual order (destroy the streamer, then the output). An
// output that may stall (paused, stopped device) must be made to let go:
// set an interrupt callback that stops it, or stop it before calling this
// (orplayer_play_wait returns at once on a stopped output). Calling it from
// inside a callback is allowed: the handle is then freed when the callback
// returns.
void shoutstreamer_destroy(shoutstreamer_t streamer);

#ifdef __cplusplus
}
#endif
