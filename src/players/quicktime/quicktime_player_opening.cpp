// BVQuickTimePlayer: who plays a link (the movie, or another engine's player
// as a sub-player), ASX/WAX playlists played track by track, and the relay
// of a sub-player's callbacks.
#include <belvane/BVConstants.h>
#include <belvane/BVKitOwner.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLink.h>
#include <belvane/BVPlayerEngineCenter.h>
#include <belvane/BVPlayerEngines.h>
#include <belvane/BVQuickTimePlayer.h>

#include "foundation/request_settings_scope.h"
#include "foundation/text_encoding.h"
#include "players/base_player_impl.h"
#include "players/file_tags.h"
#include "players/quicktime/quicktime_player_impl.h"
#include "playlists/playlist_entry.h"

#include <unistd.h>

#include <typeinfo>

using belvane::detail::asciiLower;

namespace {
const BVMediaFormat& formatOf(const BVMediaLink& link) {
  static const auto empty = BVMediaFormat::emptyFormat();
  return link.format() ? *link.format() : *empty;
}
}  // namespace

void BVQuickTimePlayer::playLink(const std::shared_ptr<BVMediaLink>& link) {
  if (!link) return;
  auto self = shared_from_this();
  // Requests made while engines are chosen go out as the playback's own do.
  belvane::detail::RequestSettingsScope requests(requestSettings());
  _employedFlip4MacWorkAround = false;
  std::string extension = asciiLower(link->url().pathExtension());
  if (extension == "asx" || extension == "wax") return handleASXPlaylistLink(link);

  const BVMediaFormat& format = formatOf(*link);
  auto quickTime = BVQuicktimePlayerEngine::sharedEngine();
  auto windowsMedia = BVWindowsMediaPlayerEngine::sharedEngine();
  bool quickTimePlays = false;
  BVPlayerEngineRef candidate;
  if (quickTime->canPlayFormat(format) || !windowsMedia->isAvailable() || windowsMedia->canPlayFormat(format)) {
    // Windows Media plays inside the movie too.
    quickTimePlays = true;
  } else {
    auto engines = BVPlayerEngineCenter::sharedCenter()->preferedEnginesForFormat(format);
    // The first available engine; when none is, the last one stays chosen.
    for (const auto& engine : engines) {
      candidate = engine;
      if (engine->isAvailable()) break;
    }
    if (engines.empty()) {
      if (quickTime->canPlayLink(*link))
        candidate = quickTime;
      else
        quickTimePlays = true;
    }
    if (candidate) {
      const BVBasePlayerEngine& engine = *candidate;
      if (typeid(engine) == typeid(BVQuicktimePlayerEngine)) quickTimePlays = true;
    }
  }
  if (quickTimePlays) return playWithMovie(link);

  // Another engine's player plays the link for us; our own link stays.
  if (_subPlayer) _subPlayer->setOwner(nullptr);
  _subPlayer = candidate ? candidate->createPlayer() : nullptr;
  if (!_subPlayer) return;
  _subPlayer->setVolume(_volume);
  _subPlayer->setAudioOutputSetting(audioOutputSetting());
  _subPlayer->setReconnectPatience(reconnectPatience());
  _subPlayer->setRequestSettings(requestSettings());
  _subPlayer->setStopsAfterCurrentTitle(stopsAfterTitle_);
  _subPlayer->setLoudnessNormalization(loudnessNormalization());
  _subPlayer->setLoudnessTarget(loudnessTarget());
  _subPlayer->setOwner(this);
  BVBasePlayer::Impl::share(*this, *_subPlayer);
  auto sub = _subPlayer;
  sub->playLink(link);
}

void BVQuickTimePlayer::playWithMovie(const std::shared_ptr<BVMediaLink>& link) {
  auto safeLink = makeLinkSafeFromASXBug(link);
  // The link stays the player's (its errors name it); only the movie opens
  // the reference movie made for it.
  BVBasePlayer::playLink(link);
  // A sub-player left from an earlier link stays and keeps answering.
  _releaseMovie();
  if (int code = startMovieAudio()) {
    changeStateTo(BVPlayerStateError, impl_->audio->startError(code));
    return;
  }
  BVErrorRef error;
  auto movie = Impl::QTMovie::movieWithURL(
      safeLink->url(), &error, impl_->movieAudio,
      {reconnectPatience(), requestSettings(), link->titleEncoding(), baseImpl().stationTap()});
  // The movie has read the reference movie made for the link (or failed):
  // the file is not needed any more.
  if (safeLink != link) unlink(safeLink->url().fileSystemPath().c_str());
  if (!movie || error) {
    impl_->movie = nullptr;
    changeStateTo(BVPlayerStateError, error);
    return;
  }
  impl_->movie = std::move(movie);
  fileTags_.clear();
  if (auto path = impl_->movie->filePath())
    if (auto tags = belvane::detail::readFileTags(*path)) fileTags_ = std::move(tags->attributes);
  impl_->movie->setAttribute(BVValue(true), belvane::detail::QTMovieDontInteractWithUserAttribute);
  observeMovie();
  changeStateTo(BVPlayerStateConnecting);
  impl_->receptionWatch->start();
  changedPosition(position());
  _updateAttributesNotifyingChanges(true);
  // A movie that is already loaded moves on at once.
  impl_->_noteMovieLoadingChange(nullptr);
}

// Playlists.

void BVQuickTimePlayer::handleASXPlaylistLink(const std::shared_ptr<BVMediaLink>& link) {
  BVBasePlayer::playLink(link);
  playlistEntry_.clear();
  if (_playlist) _playlist->setDelegate(nullptr);
  _playlist = BVWebPlaylist::initWithURL(link->url());
  if (_playlist) {
    _playlist->setDelegate(this);
    _playlist->setRequestSettings(requestSettings());
    _playlist->loadAsynchronously();
  }
  changeStateTo(BVPlayerStateConnecting);
}

void BVQuickTimePlayer::playlistDidFinishLoading(BVWebPlaylist& playlist) {
  if (!playlist.loadSucceeded() || playlist.countOfTracks() == 0) return;
  auto self = shared_from_this();
  _currentTrackNumber = 0;
  playTrackNumber(0);
}

void BVQuickTimePlayer::playlistDidFailWithError(BVWebPlaylist&, const BVErrorRef& error) {
  auto self = shared_from_this();
  _lastError = error;
  changeStateTo(BVPlayerStateError, error);
}

bool BVQuickTimePlayer::playTrackNumber(uint32_t index) {
  if (!_playlist || index >= _playlist->countOfTracks()) {
    changeStateTo(BVPlayerStateStopped);
    return false;
  }
  const BVDictionary& track = _playlist->objectInTracksAtIndex(index);
  const std::string* text = BVDictionaryString(track, kPlaylistAttributeTrackURL);
  std::optional<BVURL> url = text ? BVURL::URLWithString(*text) : std::nullopt;
  if (!url) return false;
  const std::string* title = BVDictionaryString(track, kPlaylistAttributeTrackTitle);
  playlistEntry_ = belvane::detail::playlistEntryAttributes(belvane::detail::PlaylistEntry{
      belvane::detail::playlistEntryTitle(title ? std::optional<std::string>(*title) : std::nullopt), index + 1});
  changeStateTo(BVPlayerStateConnecting);
  // The whole choice runs again: a track may itself be a playlist. It
  // keeps the playlist link's title encoding.
  auto trackLink = BVMediaMutableLink::linkWithURL(*url);
  if (auto current = link()) trackLink->setTitleEncoding(current->titleEncoding());
  playLink(trackLink->copy());
  return true;
}

void BVQuickTimePlayer::playNextTrack() {
  _currentTrackNumber += 1;
  playTrackNumber(_currentTrackNumber);
}

// Sub-player callbacks go to the owner as they come: no state test and no
// second rewording of the error.

void BVQuickTimePlayer::playerStateChanged(BVBasePlayer&, BVPlayerState from, BVPlayerState to,
                                           const BVErrorRef& error) {
  auto self = shared_from_this();
  if (error) BVLogString("Error: " + error->description());
  if (auto* o = owner()) o->playerStateChanged(*this, from, to, error);
}

void BVQuickTimePlayer::playerPositionChanged(BVBasePlayer&, float position) {
  auto self = shared_from_this();
  if (auto* o = owner()) o->playerPositionChanged(*this, position);
}

void BVQuickTimePlayer::playerAttributeChanged(BVBasePlayer&, const BVDictionary& attributes) {
  auto self = shared_from_this();
  BVDictionary withEntry = attributes;
  for (const auto& [key, value] : playlistEntry_) withEntry.insert_or_assign(key, value);
  if (auto* o = owner()) o->playerAttributeChanged(*this, withEntry);
}
