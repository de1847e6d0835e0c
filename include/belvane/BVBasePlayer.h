// BVBasePlayer: the common base of every player (the master player and the
// engine players). It holds the owner, the link being played and the
// playback state, defines the player operations with neutral defaults, and
// is the only place where state, position and attribute changes are
// announced to the owner. Errors reach the owner enriched with an account of
// the link (customizeError).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVAudioOutputSetting.h>
#include <belvane/BVError.h>
#include <belvane/BVObject.h>
#include <belvane/BVRequestSettings.h>
#include <belvane/BVValue.h>

#include <cstdint>
#include <memory>
#include <string>

class BVMediaLink;
class BVBasePlayer;

enum BVPlayerState : int32_t {
  BVPlayerStateIdle = 0,
  BVPlayerStateConnecting = 1,
  BVPlayerStatePlaying = 2,
  BVPlayerStateStopped = 3,
  BVPlayerStateError = 4,
};

// Linux addition: how the audio of a playback is arriving. The state stays
// Playing while a station refills or reconnects (the listener is still
// tuned in); this says what the listener hears meanwhile.
enum BVPlayerReceptionState : int32_t {
  BVPlayerReceptionNone = 0,           // nothing playing, or the playback ended
  BVPlayerReceptionPrebuffering = 1,   // connecting and filling before the first sound
  BVPlayerReceptionReceiving = 2,      // audio is being heard (a paused file counts as receiving)
  BVPlayerReceptionBuffering = 3,      // the audio ran out; the connection is up but brings too little
  BVPlayerReceptionReconnecting = 4,   // the audio ran out; the connection broke and is being made again
};

// Linux addition: the codes of recording errors, in BVBelvaneErrorDomain
// (BV_BELVANE_RECORDING_... in the C interface).
enum BVRecordingErrorCode : int32_t {
  BVRecordingErrorFolder = 5701,      // the folder is missing or takes no files
  BVRecordingErrorDiskFull = 5702,    // the disk is full, or the file as large as the system allows
  BVRecordingErrorWrite = 5703,       // writing failed otherwise
  BVRecordingErrorNothing = 5704,     // no live station read through Belvane's connection plays
  BVRecordingErrorNoTitleStart = 5705,  // the title's start is not held: time-shift is off
};

// Linux addition: the codes of audio output errors, in BVBelvaneErrorDomain
// (BV_BELVANE_OUTPUT_... in the C interface). The error's description says
// why, for a listener ("The audio output could not start: the WAV file
// /x/out.wav cannot be written (No such file or directory).").
enum BVAudioOutputErrorCode : int32_t {
  BVAudioOutputErrorNoOutput = 5801,     // no output could be opened
  BVAudioOutputErrorSetting = 5802,      // the setting ($BELVANE_AUDIO_OUTPUT) names no output
  BVAudioOutputErrorWavFile = 5803,      // the WAV file cannot be written, at the start or while playing
  BVAudioOutputErrorSoundServer = 5804,  // PulseAudio/PipeWire unavailable, or the sink named missing
  BVAudioOutputErrorSoundCard = 5805,    // the ALSA device cannot be opened
  BVAudioOutputErrorThread = 5806,       // the output thread could not start
};

struct BVPlayerReception {
  BVPlayerReceptionState state = BVPlayerReceptionNone;
  // Seconds since the listener last heard audio; 0 unless Buffering or
  // Reconnecting.
  double secondsWithoutAudio = 0.0;
  // Fresh connections tried since the audio ran out; 0 unless Reconnecting.
  int32_t tries = 0;
  // While Prebuffering: how full the buffer that must fill before the first
  // sound is, 0.0 to 1.0 (engines that cannot tell stay at 0.0 until the
  // first sound); 1.0 otherwise.
  float prebufferProgress = 0.0f;
  bool operator==(const BVPlayerReception&) const = default;
};

// The state's name for logs and status lines: "none", "prebuffering",
// "receiving", "buffering" or "reconnecting".
BV_EXPORT const char* BVPlayerReceptionStateName(BVPlayerReceptionState state);

// What the host (or a master player) hears from a player. Every call does
// nothing by default. The player keeps itself alive for the call, so the
// owner may drop it inside. Calls arrive on the thread whose run loop plays.
class BV_EXPORT BVPlayerOwner {
 public:
  virtual ~BVPlayerOwner() = default;
  // A real change of state; error is set only on a change to
  // BVPlayerStateError and its localized description is worded for a listener.
  virtual void playerStateChanged(BVBasePlayer& /*player*/, BVPlayerState /*from*/, BVPlayerState /*to*/,
                                  const BVErrorRef& /*error*/) {}
  // position: the playback fraction, as position() returns it.
  virtual void playerPositionChanged(BVBasePlayer& /*player*/, float /*position*/) {}
  // Some attribute changed. attributes is the whole current set (stream
  // title, track title, artist, ...) under the BVPlayerAttribute...Key
  // constants, as attributes() returns it: a key that is absent has no
  // value now, so a host may replace what it shows with this set.
  virtual void playerAttributeChanged(BVBasePlayer& /*player*/, const BVDictionary& /*attributes*/) {}
  // Linux addition: the reception changed, as reception() returns it: on
  // every change of its state, while Prebuffering as the buffer fills, and
  // once a second (and at each new try) while the audio is missing. The
  // audio running out is told within a second.
  virtual void playerReceptionChanged(BVBasePlayer& /*player*/, const BVPlayerReception& /*reception*/) {}
  // Linux additions: a file of the recording (see startRecording) is
  // finished and closed: its path, the title it holds (UTF-8), and whether
  // it holds the whole title (false for a file that began mid-title or was
  // cut off by the end of the recording; its name ends in " (incomplete)").
  virtual void playerRecordedFile(BVBasePlayer& /*player*/, const std::string& /*path*/,
                                  const std::string& /*title*/, bool /*complete*/) {}
  // The recording ended by itself: error says why (a full disk, a folder
  // that went away, in BVBelvaneErrorDomain), null when the station ended.
  // Its last file was announced before.
  virtual void playerRecordingStopped(BVBasePlayer& /*player*/, const BVErrorRef& /*error*/) {}
  // Linux addition: the audio plays to another device now, named as an
  // output setting names it ("pulse:SINK", "alsa:DEVICE"; see
  // audioOutputDevice): the host changed the output while playing, or the
  // sound server moved the stream because its device went away (a headset
  // unplugged: the stream moves to the default) or, with no device named,
  // the system default changed. The playback goes on; its state does not change.
  virtual void playerOutputChanged(BVBasePlayer& /*player*/, const std::string& /*output*/) {}
};

// Playing and stopping: playLink starts a link (again on the same player to
// switch stations). There is no stop call: a host stops playback by clearing
// the owner and releasing the player, and its audio stops at once. Hosts
// normally hold a BVMasterPlayer, which picks the engine for each link.
class BV_EXPORT BVBasePlayer : public BVObject {
 public:
  static std::shared_ptr<BVBasePlayer> create();
  ~BVBasePlayer() override;

  // Not owned; clear it (or destroy the player) before the owner goes away.
  void setOwner(BVPlayerOwner* owner) { owner_ = owner; }
  BVPlayerOwner* owner() const { return owner_; }
  // The link last handed to playLink. Thread: any (the engines' reading
  // threads ask too; safe against a concurrent playLink).
  std::shared_ptr<BVMediaLink> link() const;
  virtual BVPlayerState state() const { return state_; }

  // Keeps the link; subclasses play it (and call the base first).
  virtual void playLink(const std::shared_ptr<BVMediaLink>& link);
  // Whether the playback has a position: false for live streams, which have
  // no end.
  virtual bool hasPosition() const { return false; }
  // The playback position as a fraction of the whole, 0.0 (start) to 1.0
  // (end); -1 when not known (nothing playing, or a live stream). Not a time:
  // elapsedTime() gives the seconds.
  virtual float position() const { return -1.0f; }
  // Seeks to a fraction of the whole; ignored without a position.
  virtual void setPosition(float /*position*/) {}
  // Volume as a gain: 0.0 silent, 1.0 full (the default); -1 when the
  // player has none.
  virtual float volume() const { return -1.0f; }
  virtual void setVolume(float /*volume*/) {}
  virtual bool isMuted() const { return false; }
  virtual void setMuted(bool /*muted*/) {}
  // Seconds played since the start (live streams too); -1 when not known.
  virtual float elapsedTime() const { return -1.0f; }
  // Keys are the BVPlayerAttribute...Key constants.
  virtual BVDictionary attributes() const { return {}; }

  // Linux additions: pausing a playback that has a position (a file), or a
  // live station that can be time-shifted (canTimeShift). A paused player
  // keeps its state (Playing), its position and its attributes, and makes
  // no sound until resume(); pause returns false and changes nothing for a
  // live stream that cannot be time-shifted, or when nothing plays. A new
  // playLink or the end of the player ends the pause. A paused live station
  // goes on filling its ring; resume goes on with the very next frame,
  // nothing lost and nothing repeated (pause holds the output: what it had
  // queued, a quarter of a second at most, still plays out).
  virtual bool pause() { return false; }
  virtual void resume() {}
  virtual bool isPaused() const { return false; }

  // Linux additions, time-shift of a live station from its ring (see
  // setTimeShiftMinutes). canTimeShift: a live station plays whose ring is
  // on, on an engine that plays from it (the MP3 stream engine, and the
  // general engine for the MPEG audio, ADTS and Ogg stations it reads
  // through Belvane's connection). From the
  // first pause or skip on, the station plays from the ring: skipBy moves
  // by seconds from what is heard next (negative: back), to within one
  // codec frame, inside what the ring holds (beyond its oldest frame: that
  // frame; beyond the live edge: live); goLive jumps to the ring's newest
  // frame (the audio goes on once half a second is buffered). Each returns
  // false and does nothing when the station cannot be time-shifted; a pause
  // is kept (a skip while paused stays paused). Titles are announced where
  // they start in the audio, also after a skip (the title in force where a
  // skip lands at once). secondsBehindLive: how far what is heard next lies
  // behind the newest frame of the ring; 0 until the first pause or skip
  // (the connection feeds the output directly). The ring's length is
  // timeShiftSecondsHeld(). Thread: the run loop's.
  virtual bool canTimeShift() const { return false; }
  virtual bool skipBy(double /*seconds*/) { return false; }
  virtual bool goLive() { return false; }
  virtual double secondsBehindLive() const { return 0.0; }

  // Linux additions, the building blocks of a sleep timer.
  // fadeVolumeTo moves the volume from where it stands to `volume` over
  // `seconds` of the audio the listener hears, sample by sample, so that
  // it has no audible steps; volume() follows it as it moves, setVolume
  // ends it where it is, and while muted it only changes the volume that
  // unmuting restores. Engines whose audio leaves through our own output
  // (the MP3 stream and general engines) ramp; the default sets the volume
  // at once.
  virtual void fadeVolumeTo(float volume, double /*seconds*/) { setVolume(volume); }
  // stopAfterCurrentTitle: the playback stops where the next stream title
  // (one other than the title playing) begins, exactly at that title's
  // first frame: the audio before it is heard, the next title is not
  // announced, the output stops and the state becomes Stopped.
  // setStopsAfterCurrentTitle(false) takes the request back; a new playLink
  // ends it. Engines that time titles by their audio (the MP3 stream and
  // general engines) do it; the default ignores it (stopsAfterCurrentTitle
  // stays false).
  void stopAfterCurrentTitle() { setStopsAfterCurrentTitle(true); }
  virtual void setStopsAfterCurrentTitle(bool /*stops*/) {}
  virtual bool stopsAfterCurrentTitle() const { return false; }

  // Linux addition: how the audio is arriving (see BVPlayerReception).
  virtual BVPlayerReception reception() const { return {}; }

  // Linux additions: the audio output. The setting is one of "auto"
  // (PulseAudio or PipeWire, then ALSA, then silence), "pulse" (the sound
  // server's default sink, followed as it changes), "pulse:SINK" (that sink),
  // "alsa" (ALSA's default), "alsa:DEVICE" (that ALSA device; BVAudioOutputs
  // lists the machine's sinks and devices), "null" (silent, in real time),
  // "null:fast" (silent, as fast as decoded) or "wav:PATH" (a 32-bit float
  // WAV file); empty means the default, $BELVANE_AUDIO_OUTPUT or else "auto".
  // It applies on whichever engine plays, to the playback under way too (a
  // sound server's stream changes sinks as it plays, without a gap; other
  // changes reopen the output; the owner hears playerOutputChanged); 0 when
  // understood, else BVAudioOutputErrorSetting and the setting is unchanged.
  // setAudioOutput parses the text (BVAudioOutputSetting::fromString) and
  // hands the value to setAudioOutputSetting, which the players override to
  // pass it on unchanged; audioOutput() is its text.
  int setAudioOutput(const std::string& setting);
  virtual void setAudioOutputSetting(const BVAudioOutputSetting& setting) { audioOutput_ = setting; }
  const BVAudioOutputSetting& audioOutputSetting() const { return audioOutput_; }
  std::string audioOutput() const { return audioOutput_.text(); }
  // Linux additions: patience with a live station that breaks off (its
  // connection drops, it stops sending, its server is gone or answers that
  // the stream is away): the player keeps trying, on a fresh connection
  // after 0.5 s, 1 s, then every 2 s, for this many seconds (default 300)
  // while the state stays Playing, and only then fails with an error. 0
  // keeps a short window of 10 s. It applies from the next playLink, on
  // whichever engine plays; a negative or not-a-number value is ignored.
  virtual void setReconnectPatience(double seconds);
  double reconnectPatience() const { return reconnectPatience_; }
  // Linux additions: loudness normalisation, so that stations play at
  // matched loudness. When on, the engines whose audio leaves through our
  // own output (the MP3 stream and general engines; not the RealMedia kit)
  // measure the station's EBU R128 short-term loudness and move a gain of
  // their own smoothly toward loudnessTarget() (LUFS, default -18), never
  // lifting the recent peaks above -1 dBFS; the volume and fades act on top
  // of it. The gain a station settles on is remembered in the user's cache
  // folder (by the station's URL) and its next play starts there. Off by
  // default; it takes effect on what plays and on every later playback, on
  // whichever engine plays. A target outside -70 to 0 LUFS, or not a
  // number, is ignored. Thread: the run loop's.
  virtual void setLoudnessNormalization(bool normalizes);
  bool loudnessNormalization() const { return loudnessNormalization_; }
  virtual void setLoudnessTarget(double lufs);
  double loudnessTarget() const { return loudnessTarget_; }
  // Linux additions: how the playback's requests go out: the user agent,
  // extra header fields and proxy of every request made for it (the
  // tuner's looks at the station and its playlists, the station's
  // connection, reconnections, and GStreamer's HTTP source for HLS); see
  // BVRequestSettings. It applies from the next playLink, on whichever
  // engine plays; null restores the defaults.
  virtual void setRequestSettings(BVRequestSettingsRef settings);
  const BVRequestSettingsRef& requestSettings() const { return requestSettings_; }

  // Linux additions: the time-shift ring and recording of live stations.
  // Every live station read through Belvane's connection (both engines)
  // keeps its last minutes of compressed audio, as the station sent it, in
  // a ring: in memory up to a limit, beyond that in a file in the user's cache
  // folder that nothing else can see. setTimeShiftMinutes sets how many
  // minutes (default 10; 0 keeps none); it applies from the next playLink,
  // on whichever engine plays; a negative or not-a-number value is ignored.
  virtual void setTimeShiftMinutes(double minutes);
  double timeShiftMinutes() const { return timeShiftMinutes_; }
  // How much of the ring is held in memory before older audio goes to the
  // file (default 8 MiB, about 8 minutes of 128 kbit/s; 0 keeps it all on
  // disk but the chunk being filled); from the next playLink.
  virtual void setTimeShiftMemoryLimit(uint64_t bytes) { timeShiftMemoryLimit_ = bytes; }
  uint64_t timeShiftMemoryLimit() const { return timeShiftMemoryLimit_; }
  // Seconds of the station the ring holds now (0 when nothing is held).
  double timeShiftSecondsHeld() const;
  //
  // startRecording records the station that plays into folder, one file
  // per title, from the next codec frame on: each file holds the station's
  // own frames (no re-encoding) from the first frame of its title, behind
  // an ID3v2 tag with the title (and the artist where the title reads
  // "Artist - Title"); MP3 goes into .mp3, AAC into .aac (ADTS frames, as
  // sent). Files are named from the title, made safe (no '/', '\' or control
  // characters, at most 180 bytes, " (2)" and on when a name is taken;
  // "Untitled" for a title that names no file); a file that does not hold
  // its whole title ends its name in " (incomplete)". The owner hears of
  // each file (playerRecordedFile). Returns null when it records, else an
  // error in BVBelvaneErrorDomain: BVRecordingErrorFolder (the folder is
  // missing or takes no files), BVRecordingErrorNothing (no live station
  // read through Belvane's connection plays). Recording again while
  // recording changes nothing. A full disk later stops the recording with
  // BVRecordingErrorDiskFull (playerRecordingStopped); the last file
  // keeps what was written, up to its last whole frame. The recording ends
  // with stopRecording, the next playLink or the end of the player (its
  // last file is then incomplete). Codecs other than MPEG audio and AAC in
  // ADTS (Ogg, say) are not recorded. Thread: the run loop's.
  BVErrorRef startRecording(const std::string& folder);
  // The same, but beginning with the first frame of the title that plays
  // now, taken from the ring (a file begun mid-title by a running recording
  // is replaced); when the ring no longer holds the title's start, from the
  // ring's oldest frame, and the file is incomplete.
  // BVRecordingErrorNoTitleStart when the ring is off.
  BVErrorRef recordCurrentTitleFromItsStart(const std::string& folder);
  void stopRecording();
  bool isRecording() const;

  // The output actually opened ("pulse", "alsa", "null", "null:fast", "wav";
  // "null (no sound output found)" when "auto" found nothing to play on;
  // "none" before playing) and the audio frames handed to it so far: the
  // frame the listener hears now, to within the device's buffer.
  virtual std::string audioOutputName() const { return "none"; }
  // The device the audio plays to, as a setting names it ("pulse:SINK",
  // "alsa:DEVICE"; the output's name for outputs without devices; "" before
  // playing).
  virtual std::string audioOutputDevice() const { return ""; }
  virtual uint64_t outputFramesWritten() const { return 0; }

  std::string className() const override { return "BVBasePlayer"; }

 protected:
  BVBasePlayer();

  void changeStateTo(BVPlayerState state) { changeStateTo(state, nullptr); }
  // Announces a real change of state (same state: nothing, error dropped).
  // Players that reword errors or tear down on leaving a state override it.
  virtual void changeStateTo(BVPlayerState state, const BVErrorRef& error);
  void changedPosition(float position);
  // attributes: the whole current set, as attributes() returns it.
  void changedAttribute(const BVDictionary& attributes);
  void changedReception(const BVPlayerReception& reception);
  void changedOutput(const std::string& output);
  // The error with the link's URL, MIME type and RadioTime type added under
  // BVBasePlayerErrorKey (after any text already there).
  virtual BVErrorRef customizeError(const BVErrorRef& error);
  // The library's own part of the player (the playback's output session and
  // station tap, which the engines are handed); opaque outside the library.
  struct Impl;
  Impl& baseImpl() const { return *impl_; }
  // Debug and sanitizer builds: aborts, naming operation, when called from
  // a thread other than the one the player was made on (whose run loop
  // plays it). Nothing in other builds.
  void checkThread(const char* operation) const;

 private:
  void startStationTap();
  std::unique_ptr<Impl> impl_;
  BVPlayerOwner* owner_ = nullptr;
  BVPlayerState state_ = BVPlayerStateIdle;
  BVAudioOutputSetting audioOutput_;
  double reconnectPatience_ = 300.0;
  bool loudnessNormalization_ = false;
  double loudnessTarget_ = -18.0;
  BVRequestSettingsRef requestSettings_ = BVRequestSettings::defaultSettings();
  double timeShiftMinutes_ = 10.0;
  uint64_t timeShiftMemoryLimit_ = 8 * 1024 * 1024;
};

using BVPlayerRef = std::shared_ptr<BVBasePlayer>;
