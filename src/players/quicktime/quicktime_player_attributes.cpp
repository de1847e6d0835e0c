// BVQuickTimePlayer: the movie's and its tracks' metadata gathered into the
// player's attribute dictionary, and the announcement of what changed.
#include <belvane/BVConstants.h>
#include <belvane/BVQuickTimePlayer.h>

#include "players/quicktime/QTMetaData.h"
#include "players/quicktime/quicktime_player_impl.h"

#include <glib.h>

using belvane::detail::QTMetaData;

namespace {
// The title QuickTime gives the link track of a reference movie.
constexpr const char* kReferenceTrackTitle = "HREFTrack";
}  // namespace

BVDictionary BVQuickTimePlayer::Impl::_metaDataAsDictionary(const QTMetaData* reader) const {
  BVDictionary attributes;
  if (!reader) return attributes;
  auto store = [&](const char* key, BVValue value) {
    if (value.isNone()) return;
    if (const BVData* bytes = value.data()) {
      // Byte buffers are text in UTF-8; anything else is left out.
      const char* text = reinterpret_cast<const char*>(bytes->data());
      if (!g_utf8_validate(text, gssize(bytes->size()), nullptr)) return;
      value = BVValue(std::string(text, bytes->size()));
    }
    attributes[key] = std::move(value);
  };
  store(BVPlayerAttributeTrackTitleKey, reader->title());
  store(BVPlayerAttributeArtistKey, reader->artist());
  store(BVPlayerAttributeAlbumKey, reader->album());
  store(BVPlayerAttributeCommentKey, reader->comment());
  store(BVPlayerAttributeGenreKey, reader->genre());
  store(BVPlayerAttributeYearKey, reader->year());
  store(BVPlayerAttributeCopyrightKey, reader->copyright());
  store(BVPlayerAttributeDurationKey, reader->duration());
  return attributes;
}

BVDictionary BVQuickTimePlayer::Impl::_attribtesFromMovie(const std::shared_ptr<QTMovie>& movie) const {
  BVDictionary attributes;
  if (player._employedFlip4MacWorkAround || !this->movie || !movie) return attributes;
  auto merge = [&](const BVDictionary& more) {
    for (const auto& [key, value] : more) attributes.insert_or_assign(key, value);
  };
  // Last track first, so the first track's values win; the movie's own
  // values win over every track's.
  auto tracks = movie->tracks();
  for (auto track = tracks.rbegin(); track != tracks.rend(); ++track) {
    auto reader = QTMetaData::initWithTrack(*track);
    merge(_metaDataAsDictionary(reader.get()));
  }
  auto reader = QTMetaData::initWithMovie(movie);
  merge(_metaDataAsDictionary(reader.get()));
  // What the media framework did not read of a local file's tags (an ID3v2.3
  // year, say), TagLib did.
  for (const auto& [key, value] : player.fileTags_) attributes.try_emplace(key, value);
  if (auto title = attributes.find(BVPlayerAttributeTrackTitleKey);
      title != attributes.end() && title->second == BVValue(kReferenceTrackTitle))
    attributes.erase(title);
  for (const auto& [key, value] : movie->stationFacts()) attributes.insert_or_assign(key, value);
  if (!movie->isFiniteResource()) {
    // A live stream's title and artist are its stream title, announced in
    // time with the audio (streamTitleDue), not when the demuxer read them.
    attributes.erase(BVPlayerAttributeTrackTitleKey);
    attributes.erase(BVPlayerAttributeArtistKey);
  }
  return attributes;
}

// One announcement per refresh that changed, added or removed a key, with
// the whole current set: a host never sees a title without the artist and
// album read with it.
void BVQuickTimePlayer::_notifyForChangedAttributes(const BVDictionary& newAttributes,
                                                    const BVDictionary& oldAttributes) {
  if (newAttributes == oldAttributes) return;
  changedAttribute(attributes());
}

void BVQuickTimePlayer::_updateAttributesNotifyingChanges(bool notify) {
  BVDictionary fresh = impl_->_attribtesFromMovie(impl_->movie);
  BVDictionary old = _lastAttributes.value_or(BVDictionary{});
  _lastAttributes = fresh;
  if (notify) {
    auto self = shared_from_this();
    _notifyForChangedAttributes(fresh, old);
  }
}

BVDictionary BVQuickTimePlayer::attributes() const {
  if (_subPlayer) {
    BVDictionary result = _subPlayer->attributes();
    for (const auto& [key, value] : playlistEntry_) result.insert_or_assign(key, value);
    return result;
  }
  // Worked out on first request, without announcements.
  if (!_lastAttributes) const_cast<BVQuickTimePlayer*>(this)->_updateAttributesNotifyingChanges(false);
  BVDictionary result = _lastAttributes.value_or(BVDictionary{});
  for (const auto& [key, value] : playlistEntry_) result.insert_or_assign(key, value);
  if (impl_->streamTitle) {
    result[BVPlayerAttributeStreamTitleKey] = BVValue(impl_->streamTitle->title);
    if (!impl_->streamTitle->url.empty()) result[BVPlayerAttributeStreamURLKey] = BVValue(impl_->streamTitle->url);
  }
  return result;
}
