// QTMetaData: answers a player's questions about the playing item (title,
// artist, album, comment, genre, year, copyright, duration) from the metadata
// container of a movie, a track or a track's media. Each answer tries a fixed
// list of (key format, key) pairs in order and converts the first usable item
// by its well-known data type.
#pragma once

#include <belvane/BVValue.h>

#include "movie/QTMetaDataContainer.h"
#include "movie/QTMovie.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace belvane::detail {

// A four-character code as text in its quoted form ("'©nam'"; the bytes read
// as Mac Roman), and back: 0 for text that is not such a quoted code.
std::string NSFileTypeForHFSTypeCode(uint32_t code);
uint32_t NSHFSTypeCodeFromFileType(std::string_view text);

class QTMetaData {
 public:
  // One (key format, key) pair of a key list; the lists end with {0, ""}.
  struct KeyPair {
    uint32_t keyFormat;
    std::string key;
  };

  // Readers of a movie, of one of its tracks, and of a track's media (the
  // same container as the track's). Null when the movie or track is missing;
  // a track reader also when the track has no metadata at all. A movie
  // without metadata still gives a reader, which answers the duration.
  static std::shared_ptr<QTMetaData> initWithMovie(const std::shared_ptr<QTMovie>& movie);
  static std::shared_ptr<QTMetaData> initWithTrack(const QTTrack& track);
  static std::shared_ptr<QTMetaData> initWithMedia(const QTTrack& track);

  QTMetaData(std::shared_ptr<QTMovie> movie, QTMetaDataRef metaData);
  // A reader of a container alone, with the duration its movie would report.
  QTMetaData(QTMetaDataRef metaData, QTTime duration);

  // Every item of key format mdta, itlk, itsk or udta by its key, as text.
  std::string description() const;

  BVValue title() const;
  BVValue artist() const;
  BVValue album() const;
  BVValue comment() const;
  BVValue genre() const;
  BVValue year() const;
  BVValue copyright() const;
  // The movie's duration in seconds; absent when indefinite, not
  // convertible, zero or negative.
  BVValue duration() const;

  // The first non-empty string, or the first value of another kind, along
  // the pairs (up to the first {0, ""}).
  BVValue _valueForFirstMatchingKey(std::span<const KeyPair> pairs) const;
  BVValue _valueWithKeyFormat(uint32_t keyFormat, std::string_view key) const;
  // The item's value by its data type; absent for unknown types, sizes that
  // do not fit the type, empty values and text that does not decode.
  static BVValue _valueFromQTMetaData(const QTMetaDataContainer& metaData, const QTMetaDataItem& item);

 private:
  std::shared_ptr<QTMovie> _movie;
  QTMetaDataRef _metaData;
  std::optional<QTTime> _duration;  // for a reader made without a movie
};

}  // namespace belvane::detail
