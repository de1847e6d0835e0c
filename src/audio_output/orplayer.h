// orplayer: the audio output the MP3 stream player writes to.
//
// A C interface over one output backend: PulseAudio (libpulse's
// asynchronous API, which PipeWire also serves; a sink of its choice), ALSA
// (a device of its choice), "null" (paced to real time like a device),
// "null:fast" (unpaced) or "wav:PATH" (a WAV file, unpaced). Frames arrive
// as per-channel 32-bit float buffers; orplayer_play_wait blocks until the
// output has room, which is the stream's only flow control.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct orplayer* orplayer_t;

// The options record: 20 reserved bytes, which must be zero (a record with
// any of them set is refused and logged, so that a caller written for a later
// version with fields there is noticed), then one 32-bit word of flags.
// Unknown flags are ignored. Options take effect at the next orplayer_start.
typedef struct orplayer_options {
  uint8_t reserved[20];
  uint32_t flags;
} orplayer_options_t;

// Low latency: keep the queue short (100 ms of queue in the player plus a
// device buffer of 150 ms), for callers that time events such as stream titles
// to the audio they have handed over. Without it the player queues 500 ms and
// asks the device for 500 ms, riding out scheduling hiccups. The stream player
// always sets it.
#define ORPLAYER_OPTION_LOW_LATENCY 0x1u

// Four-character error codes returned by orplayer_start and orplayer_set_output.
#define ORPLAYER_FOURCC(a, b, c, d) \
  ((int32_t)(((uint32_t)(a) << 24) | ((uint32_t)(b) << 16) | ((uint32_t)(c) << 8) | (uint32_t)(d)))
#define ORPLAYER_ERROR_NO_OUTPUT ORPLAYER_FOURCC('O', 'n', 'o', 'p')     // no output could be opened
#define ORPLAYER_ERROR_BAD_SPEC ORPLAYER_FOURCC('O', 's', 'p', 'c')      // output setting not understood
#define ORPLAYER_ERROR_WAV_FILE ORPLAYER_FOURCC('O', 'w', 'a', 'v')      // recording file cannot be opened
#define ORPLAYER_ERROR_PULSE ORPLAYER_FOURCC('O', 'p', 'u', 'l')         // PulseAudio/PipeWire unavailable
#define ORPLAYER_ERROR_ALSA ORPLAYER_FOURCC('O', 'a', 'l', 's')          // ALSA device unavailable
#define ORPLAYER_ERROR_THREAD ORPLAYER_FOURCC('O', 't', 'h', 'r')        // output thread could not start
#define ORPLAYER_ERROR_INVALID ORPLAYER_FOURCC('O', 'i', 'n', 'v')       // no player given

orplayer_t orplayer_create(void);
void orplayer_set_options(orplayer_t player, const orplayer_options_t* options);
// Opens the output (orplayer_set_output, else $BELVANE_AUDIO_OUTPUT, else
// "auto") and starts its thread; 0 on success (also when already started),
// otherwise an error code.
int orplayer_start(orplayer_t player);
// Queues frames from channels[0] and channels[1] (a NULL second channel
// repeats the first), blocking until the output has room. Returns at once,
// queuing nothing more, once the player is stopped or being destroyed, and
// when it was not started. A new sample rate is followed once the frames
// before it have played.
void orplayer_play_wait(orplayer_t player, float sampleRate, float** channels, int32_t frames);
// No more frames will come; play out what is queued, the device's own
// buffer included.
void orplayer_play_done(orplayer_t player);
// True from the first frame queued after a start until orplayer_stop, or
// until orplayer_play_done has played everything out. Frames queued after
// play_done make it true again.
int orplayer_is_playing(orplayer_t player);
// Stops output at once, dropping what is queued; orplayer_start may follow.
void orplayer_stop(orplayer_t player);
// Linux additions: waiting on the output instead of polling it. Each blocks
// the calling thread until its condition holds or timeout_ms passes, and
// returns at once when the output stops (orplayer_stop from any thread, or
// destroy). orplayer_wait_written: until orplayer_frames_written reaches
// `frames` (1), or nothing plays any more, or the time is up (0).
// orplayer_wait_drained: until orplayer_is_playing is false (1: played out
// after orplayer_play_done, stopped, or failed), or the time is up (0).
int orplayer_wait_written(orplayer_t player, uint64_t frames, int32_t timeout_ms);
int orplayer_wait_drained(orplayer_t player, int32_t timeout_ms);
// Linux addition: called when a play-out asked for by orplayer_play_done ends
// or its end is known: `seconds` until orplayer_is_playing turns false (0:
// it has; more for an output without a thread of its own, such as "null",
// whose end play_done can name in advance). Also called when a failure ends
// a play-out. On the output's thread or the caller of orplayer_play_done;
// NULL removes it (waiting for a call in progress). The listener must not
// call back into the player.
void orplayer_set_drained_listener(orplayer_t player, void (*listener)(double seconds, void* context),
                                   void* context);
// Linear gain, applied to every sample as it leaves the queue (1.0 at
// first). Not-a-number and infinite gains are ignored.
void orplayer_set_gain(orplayer_t player, float gain);
float orplayer_get_gain(orplayer_t player);
// Linux additions: moves the gain in a straight line, frame by frame, from
// where it stands to `gain` over `seconds` of the audio leaving the queue
// (no audible steps); 0 seconds: at the next frame. orplayer_set_gain ends
// a ramp where it is and sets its gain; orplayer_get_gain follows the ramp,
// orplayer_get_gain_target tells where it is going (the gain when none
// moves). Not-a-number gains and negative times are ignored.
void orplayer_ramp_gain(orplayer_t player, float gain, double seconds);
float orplayer_get_gain_target(orplayer_t player);
// Stops and frees the player; returns promptly from any state, releasing a
// writer blocked in orplayer_play_wait (which must not call again).
void orplayer_destroy(orplayer_t player);

// Linux additions.
// Chooses the output: "auto", "pulse", "pulse:SINK", "alsa", "alsa:DEVICE",
// "null", "null:fast" or "wav:PATH"; 0 on success, ORPLAYER_ERROR_BAD_SPEC
// for anything else; NULL goes back to the default. A started player moves
// to it at once (a sound server's stream changes sinks as it plays; other
// changes reopen the output), and keeps playing on the old output when the
// new one cannot be opened. Without a call,
// $BELVANE_AUDIO_OUTPUT decides (default "auto": PulseAudio, then ALSA, then
// null; the choice is logged). "wav:PATH" writes 32-bit float stereo; each
// start rewrites PATH, and a change of sample rate continues in PATH with
// ".2", ".3"... before its extension.
int orplayer_set_output(orplayer_t player, const char* setting);
// Linux additions: the device in use, as a setting names it ("pulse:SINK",
// "alsa:DEVICE"; the short name for outputs without devices; "" before a
// start), copied into buffer (truncated to size); returns its full length.
size_t orplayer_output_device(orplayer_t player, char* buffer, size_t size);
// Called with the device in use whenever it changes while playing: a change
// of output asked for, the sound server moving the stream (its sink went
// away, or the system default changed, when no sink was named). On the
// output's own threads; NULL removes it (waiting for a call in progress).
// The listener must not call back into the player.
void orplayer_set_device_listener(orplayer_t player, void (*listener)(const char* device, void* context),
                                  void* context);
// The output actually opened ("pulse", "alsa", "null", "null:fast", "wav"),
// valid after a start ("none" before). A failing device is replaced by a
// silent null output, and the name says so; "auto" on a machine without a
// sound server or card ends on "null (no sound output found)", logged once.
const char* orplayer_output_name(orplayer_t player);
// Whether the output opened plays in real time (a device, or "null"), as
// opposed to taking frames as fast as they come ("null:fast", "wav:PATH").
int orplayer_is_real_time(orplayer_t player);
// Times the output ran dry while it was being written to, over all starts
// (gaps the listener heard); counted by the outputs that can tell (null).
uint64_t orplayer_underruns(orplayer_t player);
// Frames handed to the output device or file so far, over all starts.
uint64_t orplayer_frames_written(orplayer_t player);
// A listener-readable text for an error code (static; never NULL).
const char* orplayer_error_string(int code);
// Linux addition: the failure that ended a started output while it played
// (a WAV file that could not be written: a full disk, a file too large),
// as an error code (0 when none) with why in reason (a listener-readable
// clause, truncated to size). From then on frames are dropped and
// orplayer_is_playing is false, until the next start.
int orplayer_output_failure(orplayer_t player, char* reason, size_t size);
// Linux addition: why the last orplayer_start of this player failed, as a
// listener-readable clause ("no PulseAudio (or PipeWire) server answered
// (Connection refused)"); empty after a start that worked. Valid until the
// next start or destroy.
const char* orplayer_failure_reason(orplayer_t player);

#ifdef __cplusplus
}
#endif
