// BVQuickTimePlayer: the general media engine's player. It plays a link on a
// movie (GStreamer underneath), hands links that another engine plays better
// to that engine's player as a sub-player, and reads ASX/WAX links as web
// playlists whose tracks it plays one after another. Movie notifications
// become player states and positions; the movie's metadata reaches the owner
// as attribute changes. ASX and MMS links are rewritten into a small
// reference movie unless an installed Windows Media component has fixed its
// looping fault.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayer.h>
#include <belvane/BVURL.h>
#include <belvane/BVWebPlaylist.h>

#include <cstdint>
#include <memory>
#include <optional>

class BVMediaLink;

class BV_EXPORT BVQuickTimePlayer : public BVBasePlayer, public BVPlayerOwner, public BVWebPlaylistDelegate {
 public:
  static std::shared_ptr<BVQuickTimePlayer> create();
  ~BVQuickTimePlayer() override;

  std::string className() const override { return "BVQuickTimePlayer"; }

  // Opening links.
  void playLink(const std::shared_ptr<BVMediaLink>& link) override;
  void handleASXPlaylistLink(const std::shared_ptr<BVMediaLink>& link);
  // Plays track `index` of the current playlist; false past the end (the
  // player then stops) or for a track without a usable URL.
  bool playTrackNumber(uint32_t index);
  void playNextTrack();

  // Queries and controls; each goes to the sub-player when there is one.
  BVPlayerState state() const override;
  bool hasPosition() const override;
  float position() const override;
  void setPosition(float position) override;
  float elapsedTime() const override;
  // Linux additions: a file (a movie with a duration) pauses by stopping
  // the movie, which then is no end of the file. A live station read by
  // Belvane's connection is time-shifted as on the MP3 stream engine (see
  // BVBasePlayer): pause holds the output while the ring fills, and the
  // station plays on from the ring.
  bool pause() override;
  void resume() override;
  bool isPaused() const override;
  bool canTimeShift() const override;
  bool skipBy(double seconds) override;
  bool goLive() override;
  double secondsBehindLive() const override;
  // Linux addition: the sub-player's, or from the output's progress and the
  // movie's connection.
  BVPlayerReception reception() const override;
  float volume() const override;
  void setVolume(float volume) override;
  bool isMuted() const override;
  void setMuted(bool muted) override;
  // Ramped in the output, and stopped at the next title's first frame (see
  // BVBasePlayer); a sub-player's own.
  void fadeVolumeTo(float volume, double seconds) override;
  void setStopsAfterCurrentTitle(bool stops) override;
  bool stopsAfterCurrentTitle() const override;
  // Loudness normalisation in the output's path (see BVBasePlayer); a
  // sub-player's own.
  void setLoudnessNormalization(bool normalizes) override;
  void setLoudnessTarget(double lufs) override;
  // The movie's metadata, a live stream's title (with its StreamUrl), the
  // station's facts and what is decoded, and the playlist entry that plays;
  // a sub-player's set with the ASX/WAX track that plays.
  BVDictionary attributes() const override;
  // The audio output, also handed to a sub-player.
  void setAudioOutputSetting(const BVAudioOutputSetting& setting) override;
  void setReconnectPatience(double seconds) override;
  void setRequestSettings(BVRequestSettingsRef settings) override;
  std::string audioOutputName() const override;
  std::string audioOutputDevice() const override;
  uint64_t outputFramesWritten() const override;

  // Web playlist delegate.
  void playlistDidFinishLoading(BVWebPlaylist& playlist) override;
  void playlistDidFailWithError(BVWebPlaylist& playlist, const BVErrorRef& error) override;

  // Sub-player callbacks, relayed to the owner with this player as the player.
  void playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to,
                          const BVErrorRef& error) override;
  void playerPositionChanged(BVBasePlayer& player, float position) override;
  void playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) override;
  void playerReceptionChanged(BVBasePlayer& player, const BVPlayerReception& reception) override;
  void playerOutputChanged(BVBasePlayer& player, const std::string& output) override;

  // Windows Media component work-around. The version answer is process-wide:
  // a negative answer is cached, a positive one is looked up again each time.
  static bool flip4MacVersionHasFixedLoopingBug();
  std::shared_ptr<BVMediaLink> makeLinkSafeFromASXBug(const std::shared_ptr<BVMediaLink>& link);
  // A link to a new reference movie in the temporary folder naming url;
  // nothing when the template resource cannot be read or the file written.
  std::shared_ptr<BVMediaLink> mediaLinkForMMSURL(const BVURL& url);

  // The movie controller's idle action (the movie's notifications are the
  // library's own, see Impl).
  void _noteMovieIdle();

  // Attributes.
  // When any key was added, changed or removed between the two, announces
  // once, with the whole current set (attributes()).
  void _notifyForChangedAttributes(const BVDictionary& newAttributes, const BVDictionary& oldAttributes);
  void _updateAttributesNotifyingChanges(bool notify);

  void _releaseMovie();
  // The output stopped where the next title began: the movie goes.
  void stoppedAtTitle();
  // The output plays to another device now (told to the owner).
  void outputDeviceChanged(const std::string& device) { changedOutput(device); }
  // The output failed while playing: the movie goes, the playback ends in error.
  void outputFailed(const BVErrorRef& error);

  // The player a link was handed to (another engine's), and the error that
  // ended the last playback.
  const std::shared_ptr<BVBasePlayer>& subPlayer() const { return _subPlayer; }
  const BVErrorRef& lastError() const { return _lastError; }

  // The library's own part of the player (the movie, its audio path, the
  // stream title that plays, the reception watch) and the movie's
  // notifications; opaque outside the library.
  struct Impl;

 protected:
  BVQuickTimePlayer();

  // Leaving for Stopped or Error stops observing the movie; OS status errors
  // -2048 and -19160 without a description get "The stream is not available
  // at this time.".
  using BVBasePlayer::changeStateTo;
  void changeStateTo(BVPlayerState state, const BVErrorRef& error) override;

 private:
  void playWithMovie(const std::shared_ptr<BVMediaLink>& link);
  // Starts the output for a new movie; 0, or the output's error code.
  int startMovieAudio();
  void stopMovieAudio();
  void observeMovie();
  void stopObservingMovie();
  // Runs a movie callback with this player kept alive; a movie released
  // inside it is destroyed only after the callback returns.
  template <class Fn>
  void inMovieCallback(Fn&& fn);

  BVDictionary fileTags_;  // a local file's tags as TagLib reads them
  bool paused_ = false;
  float _volume = 1.0f;
  bool _muted = false;
  bool stopsAfterTitle_ = false;  // asked before the output was made
  std::optional<BVDictionary> _lastAttributes;
  double _lastIdleTimestamp = 0.0;
  std::shared_ptr<BVBasePlayer> _subPlayer;
  uint32_t _currentTrackNumber = 0;
  BVWebPlaylistRef _playlist;
  // The ASX/WAX track that plays: its title there and place from 1, added
  // to every attribute set (the movie's or the sub-player's).
  BVDictionary playlistEntry_;
  BVErrorRef _lastError;
  bool _employedFlip4MacWorkAround = false;

  int movieCallbackDepth_ = 0;
  std::unique_ptr<Impl> impl_;
};
