// BVMasterPlayer: the player the host holds. It presents one stable player
// while a sub-player does the work: it starts with the built-in MP3 stream
// player and switches to another engine's player only when that player
// fails on a stream that has fallback streams, without telling the host of
// the failure. Every callback of the sub-player is relayed to the host with
// the master as the player.
//
// Switching and stopping: a host switches stations by calling playLink again
// on the same master player, whatever the last playback came to (playing,
// stopped, failed or still connecting). What was playing stops at once and
// the new link starts afresh, on whichever engine it needs; the callbacks
// that follow are the new link's, starting with Connecting (once per
// playLink, even when the link moves on to another engine's player). A host stops
// playback by releasing the master player (clear its owner first): its audio
// stops at once; or by calling stop(), which keeps the player for a later
// playLink. All of it on the thread whose run loop plays.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayer.h>

#include <memory>
#include <optional>
#include <utility>

class BVMP3StreamPlayer;

class BV_EXPORT BVMasterPlayer : public BVBasePlayer, public BVPlayerOwner {
 public:
  static std::shared_ptr<BVMasterPlayer> create();
  ~BVMasterPlayer() override;

  void playLink(const std::shared_ptr<BVMediaLink>& link) override;
  // Stops what plays at once (the sub-player is replaced by a fresh one of
  // the same engine) and announces Stopped to the owner; the state stays
  // Stopped until the next playLink. Nothing happens when the playback has
  // already ended (Idle, Stopped or Error).
  void stop();
  // Forwarded to the sub-player.
  BVPlayerState state() const override;
  bool hasPosition() const override;
  float position() const override;
  void setPosition(float position) override;
  float volume() const override;
  void setVolume(float volume) override;
  bool isMuted() const override;
  void setMuted(bool muted) override;
  // Fading and stopping after the title: forwarded to the sub-player; a
  // request to stop after the title is kept for a fallback's sub-player.
  void fadeVolumeTo(float volume, double seconds) override;
  void setStopsAfterCurrentTitle(bool stops) override;
  bool stopsAfterCurrentTitle() const override;
  float elapsedTime() const override;
  BVDictionary attributes() const override;
  bool pause() override;
  void resume() override;
  bool isPaused() const override;
  // Time-shift (see BVBasePlayer): forwarded to the sub-player.
  bool canTimeShift() const override;
  bool skipBy(double seconds) override;
  bool goLive() override;
  double secondsBehindLive() const override;
  BVPlayerReception reception() const override;
  // Kept for every later sub-player, fallbacks included.
  void setAudioOutputSetting(const BVAudioOutputSetting& setting) override;
  // Loudness normalisation (see BVBasePlayer): on the sub-player that
  // plays now and kept for every later one.
  void setLoudnessNormalization(bool normalizes) override;
  void setLoudnessTarget(double lufs) override;
  void setReconnectPatience(double seconds) override;
  void setRequestSettings(BVRequestSettingsRef settings) override;
  std::string audioOutputName() const override;
  std::string audioOutputDevice() const override;
  uint64_t outputFramesWritten() const override;

  // Linux additions, keeping the machine awake: while the playback plays
  // (Playing, not paused) the master holds logind's sleep inhibitor on the
  // system bus ("block" mode), and lets go of it on stop, error, pause, a
  // switch of link (until the next link plays) and when the master goes. On
  // by default. Where there is no system bus or no logind, nothing happens
  // (logged once).
  void setInhibitsSleep(bool inhibits);
  bool inhibitsSleep() const { return inhibitsSleep_; }

  // The player doing the work (its owner is the master).
  const std::shared_ptr<BVBasePlayer>& subPlayer() const { return _subPlayer; }

  std::string className() const override { return "BVMasterPlayer"; }

  // Sub-player callbacks.
  void playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) override;
  void playerPositionChanged(BVBasePlayer& player, float position) override;
  void playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) override;
  void playerReceptionChanged(BVBasePlayer& player, const BVPlayerReception& reception) override;
  void playerOutputChanged(BVBasePlayer& player, const std::string& output) override;

 protected:
  BVMasterPlayer();

 private:
  void replaceSubPlayer(std::shared_ptr<BVBasePlayer> next);
  std::pair<std::shared_ptr<BVBasePlayer>, std::shared_ptr<BVMediaLink>> fallbackPlayer(const BVMP3StreamPlayer& failed,
                                                                                      const BVErrorRef& error);

  // Holds or lets go of the sleep inhibitor as the playback now stands.
  void updateSleepInhibitor();
  // The library's own part of the master (the sleep inhibitor, made when
  // first held); opaque outside the library.
  struct Impl;

  std::shared_ptr<BVBasePlayer> _subPlayer;
  bool subPlayerUsed_ = false;  // the sub-player has been given a link
  bool stopped_ = false;        // stop() ended the playback; no playLink since
  BVPlayerReception relayedReception_;  // the last reception relayed to the owner
  // The last state relayed to the owner since playLink: a switch of engines
  // within one playback does not repeat it.
  std::optional<BVPlayerState> relayedState_;
  // Keeping the machine awake.
  bool inhibitsSleep_ = true;
  std::unique_ptr<Impl> impl_;
};
