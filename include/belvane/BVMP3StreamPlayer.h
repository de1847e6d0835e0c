// BVMP3StreamPlayer: the player of the built-in MP3/Shoutcast engine. It
// hands a link's URL to the stream tuner, accepts only candidates it can
// decode (MP3 over HTTP-like schemes) and remembers the others as fallback
// streams for the master player, and plays the accepted stream through the
// streaming library into the audio output. Every operation runs on the
// thread that called playLink, whose run loop must be running.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayer.h>
#include <belvane/BVURL.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class BVShoutstreamerDelegate;
class QLStreamTuner;
struct shoutstreamer;

class BV_EXPORT BVMP3StreamPlayer : public BVBasePlayer {
 public:
  static std::shared_ptr<BVMP3StreamPlayer> create();
  ~BVMP3StreamPlayer() override;

  void playLink(const std::shared_ptr<BVMediaLink>& link) override;
  float volume() const override;
  void setVolume(float volume) override;
  bool isMuted() const override;
  void setMuted(bool muted) override;
  // Ramped in the output, and stopped at the next title's first frame (see
  // BVBasePlayer).
  void fadeVolumeTo(float volume, double seconds) override;
  void setStopsAfterCurrentTitle(bool stops) override;
  bool stopsAfterCurrentTitle() const override;
  // Loudness normalisation in the output's path (see BVBasePlayer).
  void setLoudnessNormalization(bool normalizes) override;
  void setLoudnessTarget(double lufs) override;
  // Seconds since playLink started tuning (0 before); for a local file, the
  // seconds into the file that have been played.
  float elapsedTime() const override;
  // The stream title (with the StreamUrl sent with it), what the station
  // announced of itself, the codec, sample rate and channels decoded, and
  // the playlist entry that plays; for a local file also its tags and
  // duration (read with TagLib: ID3v1, ID3v2.2-2.4 and the others TagLib
  // knows).
  BVDictionary attributes() const override;
  // Linux additions: a local file of known duration has a position, can be
  // sought (the stream starts again and the audio before the point is
  // decoded and skipped) and paused.
  bool hasPosition() const override;
  float position() const override;
  void setPosition(float position) override;
  bool pause() override;
  void resume() override;
  bool isPaused() const override { return paused_; }
  // Linux additions: a live station is time-shifted from its ring (see
  // BVBasePlayer).
  bool canTimeShift() const override;
  bool skipBy(double seconds) override;
  bool goLive() override;
  double secondsBehindLive() const override;
  // Linux addition: from the output's progress and the stream's connection.
  BVPlayerReception reception() const override;

  // The first error of this playback, or nothing.
  BVErrorRef error() const { return _error; }
  // Candidates the tuner proposed that this player declined, in order;
  // empty once a stream has started.
  std::vector<BVURL> fallbackStreams() const;

  // Linux additions: the audio output (see BVBasePlayer), and the MIME type
  // the tuner gave each fallback stream (empty where it gave none), in the
  // order of fallbackStreams.
  void setAudioOutputSetting(const BVAudioOutputSetting& setting) override;
  uint64_t outputFramesWritten() const override;
  std::string audioOutputName() const override;
  std::string audioOutputDevice() const override;
  std::vector<std::string> fallbackStreamTypes() const;

  std::string className() const override { return "BVMP3StreamPlayer"; }

  // Stream tuner delegate operations (on the playing thread).
  bool streamTunerShouldTuneStream(QLStreamTuner& tuner, const BVURL& url, const std::string* mimeType);
  void streamTunerDidFindStreamURL(QLStreamTuner& tuner, const BVURL& url, const std::string* mimeType);
  void streamTunerDidFailWithError(QLStreamTuner& tuner, const BVErrorRef& error);
  void streamTunerDidComplete(QLStreamTuner& tuner);

  // Called by the shoutstreamer delegate on the playing thread (which also
  // hands it each title as its audio is heard). The change as a dictionary
  // ("oldState", "newState", "errorCode"; integers).
  void shoutstreamerChangedState(const BVDictionary& change);
  void didStopAudioPlayer();
  // The output stopped where the next title began: the stream ends here.
  void didStopAtTitle();
  // The output plays to another device now (told to the owner).
  void didChangeOutput(const std::string& device) { changedOutput(device); }
  // The output failed while playing (a WAV file that could not be written):
  // the stream goes and the playback ends in error.
  void didFailOutput(const BVErrorRef& error);

 protected:
  BVMP3StreamPlayer();

 private:
  // Ends the stream and the tuner's search for good (stop-after-title, an
  // output failure); the caller then sets the state.
  void endStreamForGood();
  // The library's own part of the player (the title that plays, the
  // time-shift, the reception watch) and the titles the shoutstreamer
  // delegate hands on; opaque outside the library.
  struct Impl;
  friend class BVShoutstreamerDelegate;
  void _shoutstreamerChangedState(int oldState, int newState, int32_t errorCode);
  std::string basePlayerErrorDescription() const;
  BVErrorRef errorWithBVShoutstreamerCode(int32_t code) const;
  void setError(const BVErrorRef& error);
  int startShoutstreamer(const std::string& url);
  void readFileTags();
  // Reads the streamer's station facts again; true when they changed.
  bool refreshStationFacts();
  double filePlayedSeconds() const;
  // Plays the local file again from the frame, after the stream of the one
  // playing now has been torn down.
  void startFileAt(uint64_t frame);
  void stopFileStream();

  struct TunerDelegate;

  BVErrorRef _error;
  shoutstreamer* _shoutstreamer = nullptr;
  bool shoutstreamerStarted_ = false;
  std::shared_ptr<BVShoutstreamerDelegate> _shoutstreamerDelegate;
  std::optional<std::chrono::steady_clock::time_point> _timeOfPlay;
  std::unique_ptr<TunerDelegate> tunerDelegate_;
  std::shared_ptr<QLStreamTuner> _streamTuner;
  std::optional<std::vector<BVURL>> _fallbackStreams;
  std::vector<std::string> fallbackTypes_;
  // A local file: its tags and length, the stream URL playing it, and the
  // frame the current stream started from (after a seek or a pause).
  BVDictionary fileAttributes_;
  BVDictionary stationFacts_;  // what the station's server announced of it, and what it decodes as
  // Reached through a playlist: the entry's title and place there.
  BVDictionary playlistEntry_;
  double fileDuration_ = 0;
  int fileSampleRate_ = 0;
  std::string fileStreamURL_;
  uint64_t fileStartFrame_ = 0;
  bool fileRestarted_ = false;  // the tuner's stream was torn down for a seek or pause
  bool paused_ = false;
  std::unique_ptr<Impl> impl_;
};
