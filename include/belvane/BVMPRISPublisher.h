// BVMPRISPublisher: shows a master player in the desktop's media controls.
// It publishes the player on the D-Bus session bus as an MPRIS 2 media
// player (bus name org.mpris.MediaPlayer2.belvane, or
// org.mpris.MediaPlayer2.belvane.instance<pid> when that name is taken), so
// that a panel applet, a media key daemon or playerctl can show what plays
// and play, pause, stop or change the volume.
//
// Observing the player: the publisher stands between the player and the
// host's owner. create() takes the player's current owner as the host's
// owner, makes itself the player's owner and forwards every callback to the
// host's owner unchanged; destroying the publisher gives the owner slot back
// to the host's owner. While a publisher lives, the host changes its owner
// with setHostOwner() rather than on the player. Both are non-owning: the
// player is held weakly and the host's owner must outlive the publisher (or
// be cleared first).
//
// What the desktop sees:
// - PlaybackStatus: Playing while connecting or playing, Stopped otherwise
//   (idle, stopped, ended in an error). Connecting counts as Playing because
//   the listener asked for sound and it is on its way.
// - Metadata: xesam:title is the stream title, else the track title; a
//   title reading "Artist - Title" is split into xesam:artist and
//   xesam:title, else xesam:artist is the artist attribute. xesam:album is
//   the album attribute (a file's tags), else the station's name (the
//   link's title), as the station is to its titles what an album is to its
//   tracks. mpris:length is the duration. A local file's picture (the
//   cover in its tags, copied to the user's cache, else a cover, folder or
//   front image beside it) is mpris:artUrl. Each attribute call carries the
//   whole set, so these always come from one and the same set. xesam:url
//   is the link's URL; mpris:trackid is new for every playLink.
//   belvane:reception tells what the listener hears ("prebuffering",
//   "receiving", "buffering", "reconnecting"); while audio is missing,
//   belvane:secondsWithoutAudio and belvane:reconnectTries (integers) say
//   for how long and how many fresh connections were tried. PlaybackStatus
//   stays Playing meanwhile.
// - Volume: the player's volume; 0 while muted. Setting a Volume above 0
//   also unmutes. The player has no volume callback: a host that changes
//   the volume or mute itself calls volumeChanged().
// - PlaybackStatus is Paused while a file is paused.
// - Pause pauses a file; for a live station (which cannot wait paused) it
//   stops the playback, as Stop does. Play resumes a paused file, else
//   (and PlayPause when stopped) plays the player's link again.
// - Files (players with a position) can seek; Position is in microseconds.
// All of it on the main run loop's thread.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBasePlayer.h>

#include <memory>
#include <string>

class BVMasterPlayer;

class BV_EXPORT BVMPRISPublisher : public BVPlayerOwner, public std::enable_shared_from_this<BVMPRISPublisher> {
 public:
  // Publishes the player on the session bus; nothing (and no message) when
  // there is no session bus or the name cannot be had.
  static std::shared_ptr<BVMPRISPublisher> create(const std::shared_ptr<BVMasterPlayer>& player);
  ~BVMPRISPublisher() override;

  BVMPRISPublisher(const BVMPRISPublisher&) = delete;
  BVMPRISPublisher& operator=(const BVMPRISPublisher&) = delete;

  // The well-known name the player was published under.
  const std::string& busName() const { return busName_; }
  void setHostOwner(BVPlayerOwner* owner) { hostOwner_ = owner; }
  BVPlayerOwner* hostOwner() const { return hostOwner_; }
  // Announces the player's volume (after the host changed it or its mute).
  void volumeChanged();

  // Player callbacks: announced on the bus, then forwarded to the host's owner.
  void playerStateChanged(BVBasePlayer& player, BVPlayerState from, BVPlayerState to, const BVErrorRef& error) override;
  void playerPositionChanged(BVBasePlayer& player, float position) override;
  void playerAttributeChanged(BVBasePlayer& player, const BVDictionary& attributes) override;
  void playerReceptionChanged(BVBasePlayer& player, const BVPlayerReception& reception) override;
  void playerRecordedFile(BVBasePlayer& player, const std::string& path, const std::string& title,
                          bool complete) override;
  void playerRecordingStopped(BVBasePlayer& player, const BVErrorRef& error) override;
  void playerOutputChanged(BVBasePlayer& player, const std::string& output) override;

 private:
  BVMPRISPublisher() = default;
  // The bus side: the connection, the registered objects and the
  // translation between D-Bus calls and the player; opaque outside the
  // library.
  struct Connection;

  std::weak_ptr<BVMasterPlayer> player_;
  BVPlayerOwner* hostOwner_ = nullptr;
  std::unique_ptr<Connection> connection_;
  std::string busName_;
  uint64_t track_ = 0;       // counts the links played, for mpris:trackid
  BVDictionary attributes_;  // the last attributes heard
  BVPlayerReception reception_;  // the last reception heard
  std::string artURL_;       // of the file playing, or empty
};
