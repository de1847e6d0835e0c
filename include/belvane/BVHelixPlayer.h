// BVHelixPlayer: the player of the RealMedia (Helix) engine. It plays a link
// through a Helix client kit loaded at run time (the class tables of
// HXClientKitABI.h) and turns the kit's observer callbacks (content state,
// statistics, errors, length) into the base player's state, position and
// attribute announcements. Everything runs on the thread whose run loop
// drives the kit and the 1-second idle timer (the main thread).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayer.h>
#include <belvane/BVRunLoop.h>
#include <belvane/HXClientKitABI.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class BV_EXPORT BVHelixPlayer : public BVBasePlayer {
 public:
  // A player on the kit's class tables. Without tables (or with a kit that
  // cannot make its objects) every playLink ends in the error state.
  static std::shared_ptr<BVHelixPlayer> create(const HXClientPlayerClass* playerClass,
                                               const HXClientViewClass* viewClass);
  ~BVHelixPlayer() override;

  // The kit statistics the player observes, in order: "title", "author",
  // "copyright". Shared by all players.
  static const std::vector<std::string>& _observedHelixStatisticKeys();
  // The attribute key for a statistic name (compared in lower case), or nothing.
  static std::optional<std::string> _helixStatisticKeyToNativeKey(std::string_view statisticName);

  void playLink(const std::shared_ptr<BVMediaLink>& link) override;
  // A kit player exists and its stream is not live.
  bool hasPosition() const override;
  // The played fraction (kit position / kit length), or -1 without position.
  float position() const override;
  // Seeks to a fraction of the length (nothing for live streams).
  void setPosition(float position) override;
  float volume() const override { return _volume; }
  void setVolume(float volume) override;
  bool isMuted() const override { return _muted; }
  void setMuted(bool muted) override;
  // Seconds of kit position (live streams too), or -1 without a kit player.
  float elapsedTime() const override;
  // The observed statistics the kit knows now, under their attribute keys
  // (title, author, copyright, and the codec as the kit names it).
  BVDictionary attributes() const override;

  std::string className() const override { return "BVHelixPlayer"; }

  // Kit observer callbacks (reached through the C observer table).
  void onContentStateChangedFrom(int32_t fromState, int32_t toState);
  void onContentConcluded();
  // params holds the kit's error parameters as strings ("ID", "UC", ...).
  void onErrorOccurred(const char* failure, const char* message, const BVDictionary& params);
  void onLengthChanged(uint32_t lengthMilliseconds);
  void onAddedStatistic(const char* name, const char* value, void* userInfo);
  void onModifiedStatistic(const char* name, const char* value, void* userInfo);
  void onDeletedStatistic(const char* name, void* userInfo);
  // Announces the current attributes when the key names one (nothing for
  // statistics outside the observed table).
  void onChangedAttribute(const std::optional<std::string>& attributeKey);
  // The idle tick: a position report about every two seconds of playback.
  void onIdle(BVTimer& timer);

 protected:
  BVHelixPlayer(const HXClientPlayerClass* playerClass, const HXClientViewClass* viewClass);

 private:
  // Drops the idle timer, the statistic observers, the kit player and the view.
  void _releasePlayer();
  // Hands the output setting to the kit player, when the kit takes it.
  void tellKitTheAudioOutput();
  void applyKitVolume();

  const HXClientPlayerClass* kitPlayerClass_;  // the loaded kit's tables (static data)
  const HXClientViewClass* kitViewClass_;
  HXClientObserver observer_;  // context points at this player

  HXClientPlayerRef _player = nullptr;  // owned, released through the kit
  HXClientViewRef _view = nullptr;      // owned, released through the kit
  float _volume = 1.0f;
  bool _muted = false;
  BVTimerRef _idleTimer;
  double _lastIdleTimestamp = 0.0;
};
