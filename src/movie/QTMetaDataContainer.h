// QTMetaDataContainer: the metadata items of a movie or of one of its tracks,
// each addressed by a key format (a four-character code) and a key (four bytes
// of a code, or a reverse-DNS text key), with a well-known data type and the
// value's bytes.
//
// Containers are filled from two sources: the native atoms of QuickTime and
// MP4 files (udta user data, the iTunes ilst short form, mdta keys; per movie
// and per track) read by our ISO base-media box reader, and the common key
// format "comn" made from GStreamer's tags for everything.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

typedef struct _GstTagList GstTagList;

namespace belvane::detail {

class QTMovie;
struct QTTrack;

constexpr uint32_t QTFourCharCode(const char (&code)[5]) {
  return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) |
         (uint32_t(uint8_t(code[2])) << 8) | uint32_t(uint8_t(code[3]));
}

// Key formats.
inline constexpr uint32_t kQTMetaDataKeyFormatCommon = QTFourCharCode("comn");
inline constexpr uint32_t kQTMetaDataKeyFormatUserData = QTFourCharCode("udta");
inline constexpr uint32_t kQTMetaDataKeyFormatiTunesShortForm = QTFourCharCode("itsk");
inline constexpr uint32_t kQTMetaDataKeyFormatQuickTime = QTFourCharCode("mdta");
inline constexpr uint32_t kQTMetaDataKeyFormatiTunesLongForm = QTFourCharCode("itlk");

// Well-known data types.
enum : uint32_t {
  kQTMetaDataTypeBinary = 0,
  kQTMetaDataTypeUTF8 = 1,
  kQTMetaDataTypeUTF16BE = 2,
  kQTMetaDataTypeMacEncodedText = 3,
  kQTMetaDataTypeJPEGImage = 13,
  kQTMetaDataTypePNGImage = 14,
  kQTMetaDataTypeSignedIntegerBE = 21,
  kQTMetaDataTypeUnsignedIntegerBE = 22,
  kQTMetaDataTypeFloat32BE = 23,
  kQTMetaDataTypeFloat64BE = 24,
  kQTMetaDataTypeBMPImage = 27,
};

struct QTMetaDataItem {
  uint32_t keyFormat = 0;
  std::string key;  // raw key bytes: 4 bytes of a code, or the text of a text key
  uint32_t dataType = kQTMetaDataTypeBinary;
  std::string value;  // raw value bytes
};

struct QTMetaDataContainer {
  std::vector<QTMetaDataItem> items;

  // The first item with that key format and key bytes, or null.
  const QTMetaDataItem* firstItem(uint32_t keyFormat, std::string_view key) const;
};
using QTMetaDataRef = std::shared_ptr<const QTMetaDataContainer>;

// The containers of a movie and of its tracks: the file's native atoms when
// the movie plays a QuickTime or MP4 file, plus "comn" items from the tags.
// Null when the movie (or the track) has nothing to read.
QTMetaDataRef QTCopyMovieMetaData(const QTMovie& movie);
QTMetaDataRef QTCopyTrackMetaData(const QTTrack& track);

// The same from what a movie reports: the items of the ISO/QuickTime file at
// filePath (the movie's own, or those of trak number trackIndex), then the
// "comn" items of the tags. Null when there is nothing at all.
QTMetaDataRef QTMakeMetaData(const std::optional<std::string>& filePath, std::optional<size_t> trackIndex,
                             const GstTagList* tags);

// "comn" items (name, arts, albm, cmmt, genr, cprt, auth, ...) from tags.
void appendCommonItemsFromTags(QTMetaDataContainer& container, const GstTagList* tags);

}  // namespace belvane::detail
