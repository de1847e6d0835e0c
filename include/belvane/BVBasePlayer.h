// BVBasePlayer: the common base of every player (the master player and the
// engine players). It holds the owner, the link being played and the
// playback state, defines the player operations with neutral defaults, and
// is the only place where state, position and attribute changes are
// announced to the owner. Errors reach the owner enriched with an account of
// the link (customizeError).
#pragma once

#include <belvane/BVError.h>
#include <belvane/BVObject.h>
#include <belvane/BVValue.h>

#include <cstdint>
#include <memory>
#include <mutex>
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

// What the host (or a master player) hears from a player. Every call does
// nothing by default. The player keeps itself alive for the call, so the
// owner may drop it inside.
class BVPlayerOwner {
 public:
  virtual ~BVPlayerOwner() = default;
  virtual void playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) {}
  virtual void playerPositionChanged(BVBasePlayer& player, float position) {}
  virtual void playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) {}
};

class BVBasePlayer : public BVObject {
 public:
  static std::shared_ptr<BVBasePlayer> create();
  ~BVBasePlayer() override;

  // Not owned; clear it (or destroy the player) before the owner goes away.
  void setOwner(BVPlayerOwner* owner) { owner_ = owner; }
  BVPlayerOwner* owner() const { return owner_; }
  // The link last handed to playLink (safe against a concurrent replacement).
  std::shared_ptr<BVMediaLink> link() const;
  virtual BVPlayerState state() const { return state_; }

  // Keeps the link; subclasses play it (and call the base first).
  virtual void playLink(const std::shared_ptr<BVMediaLink>& link);
  virtual bool hasPosition() const { return false; }
  virtual float position() const { return -1.0f; }  // -1: not known
  virtual void setPosition(float position) {}
  virtual float volume() const { return -1.0f; }
  virtual void setVolume(float volume) {}
  virtual bool isMuted() const { return false; }
  virtual void setMuted(bool muted) {}
  virtual float elapsedTime() const { return -1.0f; }
  // Keys are the BVPlayerAttribute...Key constants.
  virtual BVDictionary attributes() const { return {}; }

  // Linux additions: the audio output. The setting is one of "auto"
  // (PulseAudio or PipeWire, then ALSA, then silence), "pulse", "alsa",
  // "null" (silent, in real time), "null:fast" (silent, as fast as decoded)
  // or "wav:PATH" (a 32-bit float WAV file); empty means the default,
  // $BELVANE_AUDIO_OUTPUT or else "auto". It applies from the next playLink,
  // on whichever engine plays; 0 when understood, else a non-zero code and
  // the setting is unchanged.
  virtual int setAudioOutput(const std::string& setting);
  std::string audioOutput() const;
  // The output actually opened ("pulse", "alsa", "null", "null:fast", "wav";
  // "null (no sound output found)" when "auto" found nothing to play on;
  // "none" before playing) and the audio frames handed to it so far: the
  // frame the listener hears now, to within the device's buffer.
  virtual std::string audioOutputName() const { return "none"; }
  virtual uint64_t outputFramesWritten() const { return 0; }

  std::string className() const override { return "BVBasePlayer"; }

 protected:
  BVBasePlayer() = default;

  void changeStateTo(BVPlayerState state) { changeStateTo(state, nullptr); }
  // Announces a real change of state (same state: nothing, error dropped).
  // Players that reword errors or tear down on leaving a state override it.
  virtual void changeStateTo(BVPlayerState state, const BVErrorRef& error);
  void changedPosition(float position);
  void changedAttribute(const BVDictionary& attributes);
  // The error with the link's URL, MIME type and RadioTime type added under
  // BVBasePlayerErrorKey (after any text already there).
  virtual BVErrorRef customizeError(const BVErrorRef& error);

 private:
  BVPlayerOwner* owner_ = nullptr;
  mutable std::mutex linkMutex_;
  std::shared_ptr<BVMediaLink> link_;
  BVPlayerState state_ = BVPlayerStateIdle;
  std::string audioOutput_;
};

using BVPlayerRef = std::shared_ptr<BVBasePlayer>;
