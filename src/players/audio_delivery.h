// AudioDelivery: the one path decoded audio takes to the listener, whichever
// engine decoded it in our process (the MP3 streamer, the general media
// engine). It owns the audio output and writes frames on the decoding thread,
// blocking while the output is full (that wait is the stream's flow control).
// Stream titles arrive ahead of their audio with the number of frames still to
// be written before them; each is held back until that audio has been handed
// to the device and is then announced to the client on the run loop of the
// thread that plays, so that the title changes when the listener hears the new
// song. Volume and mute act on the output's linear gain.
//
// The decoding thread waits for the run loop to take a due title for a short,
// bounded time only (well inside what the device still holds), so a busy run
// loop makes a title late, never the audio. Its other waits (for the device
// to take the audio before a title, for a play-out) block on the output's
// own notifications (orplayer_wait_written, orplayer_wait_drained), which
// interrupt() ends at once; the end of a play-out asked for on the run loop
// (playDone) reaches the client there as audioDeliveryDrained.
#pragma once

#include <belvane/BVAudioOutputSetting.h>
#include <belvane/BVError.h>
#include <belvane/BVRunLoop.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "audio_output/loudness_control.h"
#include "audio_output/orplayer.h"
#include "streaming/stream_title.h"

namespace belvane::detail {

class OutputPlayback;

class AudioDeliveryClient {
 public:
  virtual ~AudioDeliveryClient() = default;
  // On the playing thread's run loop: the audio of `title` is what is heard next.
  virtual void audioDeliveryTitleDue(const std::shared_ptr<const StreamTitle>& title) = 0;
  // On the playing thread's run loop: the playback was asked to stop at the
  // next title, and everything before that title's first frame has been
  // heard; nothing after it reaches the output.
  virtual void audioDeliveryStoppedAtTitle() {}
  // On the playing thread's run loop: the output plays to another device
  // now (as outputDevice() names it): a change asked for, or the sound
  // server moved the stream (its device went away, the default changed).
  virtual void audioDeliveryOutputChanged(const std::string& /*device*/) {}
  // On the playing thread's run loop: the output failed while playing (a
  // WAV file that could not be written); error is worded for the listener
  // ("The audio output failed: ..."). What comes after is dropped: the
  // playback should end in this error.
  virtual void audioDeliveryOutputFailed(const BVErrorRef& /*error*/) {}
  // On the playing thread's run loop, once after playDone(): nothing plays
  // any more (the output played everything out, failed, or was
  // interrupted). Not after stop() or start() came first.
  virtual void audioDeliveryDrained() {}
};

class AudioDelivery : public std::enable_shared_from_this<AudioDelivery> {
 public:
  static std::shared_ptr<AudioDelivery> create();
  ~AudioDelivery();
  AudioDelivery(const AudioDelivery&) = delete;
  AudioDelivery& operator=(const AudioDelivery&) = delete;

  // Not owned; read by the run loop hand-offs under a lock, so clearing it
  // stops every later announcement.
  void setClient(AudioDeliveryClient* client);
  AudioDeliveryClient* client() const;
  // Where titles are announced: the loop of the calling thread.
  void useCurrentRunLoop();

  // The output, for the next start and at once for a started one (see
  // orplayer_set_output); Default goes back to $BELVANE_AUDIO_OUTPUT, else
  // "auto". The value is handed to the output as it is.
  void setOutput(const BVAudioOutputSetting& setting);
  // The output opened ("pulse", "alsa", "null", "null:fast", "wav"; "none"
  // before the first start) and the frames handed to it over all starts.
  const char* outputName() const;
  uint64_t framesWritten() const;
  // The device in use ("pulse:SINK", "alsa:DEVICE"; see orplayer_output_device).
  std::string outputDevice() const;
  // The playback the next start belongs to (see OutputPlayback): within one
  // playback a WAV file is continued, not rewritten. Null: its own.
  void setPlayback(std::shared_ptr<OutputPlayback> playback);
  // Times the output ran dry while being written (see orplayer_underruns).
  uint64_t underruns() const;
  // Any thread: when the audio written so far will have been heard, as far
  // as the writes tell (each adds its length; never more than the queue and
  // device hold ahead of now); the epoch before the first write since
  // start(). Whether the playback is ending: play-out was asked for, so the
  // audio running out is its end, not a gap.
  std::chrono::steady_clock::time_point audioRunsOutAt() const;
  bool isEnding() const { return ending_.load(std::memory_order_relaxed); }

  // Opens the output (0, or an orplayer error code); a started output stays
  // open. stop() drops what is queued and releases a blocked writer.
  int start();
  // The error a player reports when start() returned code: "The audio
  // output could not start: <why the output gave>.", in BVBelvaneErrorDomain
  // with a BVAudioOutputErrorCode, marked not to be reported to RadioTime.
  BVErrorRef startError(int code) const;
  void stop();
  bool isPlaying() const;
  // No more frames come: the output plays out what it holds, and the client
  // hears audioDeliveryDrained when it has.
  void playDone();

  void setVolume(float volume);  // negative values are ignored
  float volume() const;
  // Moves the volume to `volume` over `seconds` of audio, frame by frame
  // (see orplayer_ramp_gain); while muted, it only changes the volume that
  // unmuting restores. setVolume ends the fade where it is.
  void fadeVolumeTo(float volume, double seconds);
  void setMuted(bool muted);
  bool isMuted() const;

  // Decoding thread. write() blocks while the output is full. A title with
  // 0 frames buffered belongs to the next frames written.
  void write(float sampleRate, float** channels, int32_t frames);
  void title(const StreamTitle& title, int32_t framesBuffered);
  // The last frames have been written: returns once they have been heard,
  // or at once when interrupted.
  void playOut();
  // Any thread: the playback stops where the next title (one other than
  // the last announced; a stream's first title is what plays already) begins: the audio before it is written and played
  // out, the rest is dropped, and the client hears audioDeliveryStoppedAtTitle
  // instead of the title. start() does not clear it; false cancels it.
  void setStopsAtNextTitle(bool stops) { stopAtNextTitle_ = stops; }
  bool stopsAtNextTitle() const { return stopAtNextTitle_; }
  // Titles still waiting for audio that will now never come (a flush, a new
  // stream) are forgotten.
  void forgetPendingTitles();
  // From any thread: every wait of the decoding thread ends at once, and the
  // output stops; start() clears it.
  void interrupt();

  // Time-shift. Any thread: while held, a write waits before it reaches the
  // output, so what the output already queued plays out and nothing more is
  // written until the hold ends; the write then goes on with its next frame.
  // start() does not clear it. dropHeldWrite: writes from now on (a held one
  // too) are dropped, until flushed() (decoding thread) takes them again and
  // forgets the titles waiting for the audio that went.
  void setHeld(bool held);
  bool isHeld() const { return held_.load(); }
  void dropHeldWrite();
  void flushed();
  // Loudness normalisation: every frame written passes through it, on the
  // decoding thread, before the output's gain (see loudness_control.h for
  // which thread calls what).
  LoudnessControl& loudness() { return *loudness_; }

 private:
  AudioDelivery();
  struct PendingTitle {
    StreamTitle title;
    int32_t framesBuffered;
  };
  void announce(StreamTitle title);
  void writeRange(float sampleRate, float** channels, int32_t from, int32_t count);
  void waitUntilWritten();
  // Whether a due title ends the playback here; if so, plays out what was
  // written, drops what follows and tells the client.
  bool stopsAtTitle(const StreamTitle& title);

  // The output's device listener: hands the change to the run loop.
  static void outputDeviceChanged(const char* device, void* self);
  // The output's drained listener: hands the end of a play-out (now, or in
  // `seconds`) to the run loop, for the playDone() in force then.
  static void outputDrained(double seconds, void* self);
  void tellDrained(uint64_t ticket);
  // Bumped by playDone, stop and start; a drained event carries the ticket of
  // its play-out and is dropped when another came since.
  std::atomic<uint64_t> drainTicket_{0};
  std::atomic<bool> drainPending_{false};  // playDone() awaits audioDeliveryDrained
  // After a write: tells the client, once, of a failure that ended the output.
  void checkOutputFailure();
  static BVErrorRef outputError(int orplayerCode, const std::string& sentence);
  std::atomic<bool> failureTold_{false};

  orplayer_t output_ = nullptr;
  std::deque<PendingTitle> pending_;  // decoding thread only
  int32_t framesBuffered_ = 0;        // decoding thread only
  std::atomic<uint64_t> framesQueued_{0};  // by the decoding thread; reset by start
  float lastSampleRate_ = 44100;      // decoding thread only
  std::mutex ackMutex_;
  std::condition_variable ackCondition_;
  uint64_t titlesSent_ = 0, titlesAnnounced_ = 0;
  std::atomic<bool> interrupted_{false};
  std::atomic<bool> ending_{false};
  std::atomic<int64_t> runsOutAt_{0};  // steady clock ticks; 0: nothing written since start
  mutable std::mutex clientMutex_;
  AudioDeliveryClient* client_ = nullptr;
  BVRunLoop loop_;
  std::thread::id loopThread_ = std::this_thread::get_id();
  float unmutedVolume_ = -1.0f;  // negative: not muted; else the gain to restore
  std::atomic<bool> stopAtNextTitle_{false};
  std::atomic<bool> haltedAtTitle_{false};  // writes are dropped until start()
  std::string lastTitle_;                   // decoding thread only: the last title announced
  bool announcedAny_ = false;               // decoding thread only: a title was announced
  // Time-shift: the hold and the drop, waited on with ackCondition_.
  std::atomic<bool> held_{false};
  std::atomic<bool> dropWrites_{false};
  bool waitWhileHeld();
  std::shared_ptr<LoudnessControl> loudness_ = std::make_shared<LoudnessControl>();
};

}  // namespace belvane::detail
