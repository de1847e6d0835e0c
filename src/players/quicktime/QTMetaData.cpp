// QTMetaData: key lists, lookup and the data-type conversions.
#include "players/quicktime/QTMetaData.h"

#include <belvane/BVIconCenter.h>

#include "foundation/text_encoding.h"

#include <glib.h>

#include <bit>

namespace belvane::detail {
namespace {

constexpr uint32_t kComn = kQTMetaDataKeyFormatCommon;
constexpr uint32_t kUdta = kQTMetaDataKeyFormatUserData;
constexpr uint32_t kItsk = kQTMetaDataKeyFormatiTunesShortForm;
constexpr uint32_t kMdta = kQTMetaDataKeyFormatQuickTime;
constexpr uint32_t kItlk = kQTMetaDataKeyFormatiTunesLongForm;

// A four-character code given as its bytes (0xA9 for ©) in the quoted text
// form the lookups take.
std::string code(const char (&bytes)[5]) { return NSFileTypeForHFSTypeCode(QTFourCharCode(bytes)); }

using Pairs = std::vector<QTMetaData::KeyPair>;

// The lists as the readers ask them. artist asks ©alb (the album's code) in
// its user-data and short-form places, and copyright asks the short-form
// cprt rather than ©cpy: files tagged by the original platform's tools are
// read the way that platform read them.
const Pairs& titleKeys() {
  static const Pairs pairs{{kComn, code("name")}, {kUdta, code("\xA9nam")}, {kItsk, code("\xA9nam")},
                           {kMdta, "com.apple.quicktime.displayname"}, {kUdta, code("name")}, {0, ""}};
  return pairs;
}
const Pairs& artistKeys() {
  static const Pairs pairs{{kComn, code("arts")}, {kUdta, code("\xA9" "alb")}, {kItsk, code("\xA9" "alb")},
                           {kMdta, "com.apple.quicktime.artist"}, {kComn, code("auth")},
                           {kUdta, code("\xA9" "aut")}, {kUdta, code("\xA9prf")}, {0, ""}};
  return pairs;
}
const Pairs& albumKeys() {
  static const Pairs pairs{{kComn, code("albm")}, {kUdta, code("\xA9" "alb")}, {kItsk, code("\xA9" "alb")},
                           {kMdta, "com.apple.quicktime.album"}, {0, ""}};
  return pairs;
}
const Pairs& commentKeys() {
  static const Pairs pairs{{kComn, code("cmmt")}, {kUdta, code("\xA9" "cmt")}, {kItsk, code("\xA9" "cmt")}, {0, ""}};
  return pairs;
}
const Pairs& genreKeys() {
  static const Pairs pairs{{kComn, code("genr")}, {kUdta, code("\xA9gen")}, {kItsk, code("\xA9gen")}, {0, ""}};
  return pairs;
}
const Pairs& yearKeys() {
  static const Pairs pairs{{kUdta, code("\xA9" "day")}, {kItsk, code("\xA9" "day")}, {0, ""}};
  return pairs;
}
const Pairs& copyrightKeys() {
  static const Pairs pairs{{kComn, code("cprt")}, {kUdta, code("\xA9" "cpy")}, {kItsk, code("cprt")}, {0, ""}};
  return pairs;
}

// The first sizeof(T) bytes as a big-endian unsigned integer (the caller
// checks the size).
template <class T>
T bigEndian(const std::string& bytes) {
  T value = 0;
  for (size_t i = 0; i < sizeof(T); ++i) value = T((value << 8) | uint8_t(bytes[i]));
  return value;
}

BVValue text(const std::string& bytes, const char* charset) {
  auto decoded = decodeText(bytesOf(bytes), charset);
  if (!decoded) return {};
  return BVValue(std::move(*decoded));
}

BVValue signedInteger(const std::string& bytes) {
  switch (bytes.size()) {
    case 1: return BVValue(int(int8_t(bytes[0])));
    case 2: return BVValue(int(int16_t(bigEndian<uint16_t>(bytes))));
    case 4: return BVValue(int(int32_t(bigEndian<uint32_t>(bytes))));
    case 8: return BVValue((long long)int64_t(bigEndian<uint64_t>(bytes)));
    default: return {};
  }
}

BVValue unsignedInteger(const std::string& bytes) {
  switch (bytes.size()) {
    case 1: return BVValue(unsigned(uint8_t(bytes[0])));
    case 2: return BVValue(unsigned(bigEndian<uint16_t>(bytes)));
    case 4: return BVValue(unsigned(bigEndian<uint32_t>(bytes)));
    // Values above the signed range keep their bits (the value type holds
    // 64-bit signed integers).
    case 8: return BVValue((unsigned long long)bigEndian<uint64_t>(bytes));
    default: return {};
  }
}

}  // namespace

std::string NSFileTypeForHFSTypeCode(uint32_t code) {
  const uint8_t bytes[4] = {uint8_t(code >> 24), uint8_t(code >> 16), uint8_t(code >> 8), uint8_t(code)};
  auto inner = decodeText(bytes, "MACINTOSH");
  return "'" + (inner ? *inner : latin1ToUTF8(bytes)) + "'";
}

uint32_t NSHFSTypeCodeFromFileType(std::string_view text) {
  if (text.size() < 3 || text.front() != '\'' || text.back() != '\'') return 0;
  std::string_view inner = text.substr(1, text.size() - 2);
  gsize length = 0;
  gchar* bytes = g_convert(inner.data(), gssize(inner.size()), "MACINTOSH", "UTF-8", nullptr, &length, nullptr);
  uint32_t code = 0;
  if (bytes && length == 4) {
    for (int i = 0; i < 4; ++i) code = (code << 8) | uint8_t(bytes[i]);
  }
  g_free(bytes);
  return code;
}

std::shared_ptr<QTMetaData> QTMetaData::initWithMovie(const std::shared_ptr<QTMovie>& movie) {
  if (!movie) return nullptr;
  return std::make_shared<QTMetaData>(movie, QTCopyMovieMetaData(*movie));
}

std::shared_ptr<QTMetaData> QTMetaData::initWithTrack(const QTTrack& track) {
  if (!track.movie) return nullptr;
  QTMetaDataRef metaData = QTCopyTrackMetaData(track);
  if (!metaData) return nullptr;
  return std::make_shared<QTMetaData>(track.movie, std::move(metaData));
}

std::shared_ptr<QTMetaData> QTMetaData::initWithMedia(const QTTrack& track) { return initWithTrack(track); }

QTMetaData::QTMetaData(std::shared_ptr<QTMovie> movie, QTMetaDataRef metaData)
    : _movie(std::move(movie)), _metaData(std::move(metaData)) {}

QTMetaData::QTMetaData(QTMetaDataRef metaData, QTTime duration) : _metaData(std::move(metaData)), _duration(duration) {}

std::string QTMetaData::description() const {
  BVDictionary all;
  if (_metaData) {
    for (const QTMetaDataItem& item : _metaData->items) {
      std::string key;
      if (item.keyFormat == kMdta || item.keyFormat == kItlk) {
        key = item.key;
      } else if ((item.keyFormat == kItsk || item.keyFormat == kUdta) && item.key.size() == 4) {
        key = NSFileTypeForHFSTypeCode(bigEndian<uint32_t>(item.key));
      } else {
        continue;
      }
      BVValue value = _valueFromQTMetaData(*_metaData, item);
      if (!value.isNone() && !key.empty()) all.insert_or_assign(std::move(key), std::move(value));
    }
  }
  return BVValue(std::move(all)).description();
}

BVValue QTMetaData::title() const { return _valueForFirstMatchingKey(titleKeys()); }
BVValue QTMetaData::artist() const { return _valueForFirstMatchingKey(artistKeys()); }
BVValue QTMetaData::album() const { return _valueForFirstMatchingKey(albumKeys()); }
BVValue QTMetaData::comment() const { return _valueForFirstMatchingKey(commentKeys()); }
BVValue QTMetaData::genre() const { return _valueForFirstMatchingKey(genreKeys()); }
BVValue QTMetaData::year() const { return _valueForFirstMatchingKey(yearKeys()); }
BVValue QTMetaData::copyright() const { return _valueForFirstMatchingKey(copyrightKeys()); }

BVValue QTMetaData::duration() const {
  QTTime time;
  if (_movie) time = _movie->duration();
  else if (_duration) time = *_duration;
  else return {};
  double seconds = 0;
  if (QTTimeIsIndefinite(time) || !QTGetTimeInterval(time, &seconds)) return {};
  if (seconds <= 0) return {};  // NaN is not caught here, and passes
  return BVValue(seconds);
}

BVValue QTMetaData::_valueForFirstMatchingKey(std::span<const KeyPair> pairs) const {
  for (const KeyPair& pair : pairs) {
    if (pair.keyFormat == 0 && pair.key.empty()) break;
    BVValue value = _valueWithKeyFormat(pair.keyFormat, pair.key);
    if (value.isNone()) continue;
    if (const std::string* s = value.string(); s && s->empty()) continue;
    return value;
  }
  return {};
}

BVValue QTMetaData::_valueWithKeyFormat(uint32_t keyFormat, std::string_view key) const {
  if (!_metaData) return {};
  std::string keyData;
  if (uint32_t code = NSHFSTypeCodeFromFileType(key)) {
    keyData = {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
  } else {
    // Up to a NUL, as a C string would end.
    keyData = std::string(key.substr(0, key.find('\0')));
  }
  const QTMetaDataItem* item = _metaData->firstItem(keyFormat, keyData);
  if (!item) return {};
  return _valueFromQTMetaData(*_metaData, *item);
}

BVValue QTMetaData::_valueFromQTMetaData(const QTMetaDataContainer&, const QTMetaDataItem& item) {
  const std::string& bytes = item.value;
  if (bytes.empty()) return {};
  switch (item.dataType) {
    case kQTMetaDataTypeBinary:
      return BVValue(BVData(bytes.begin(), bytes.end()));
    case kQTMetaDataTypeUTF8:
      return text(bytes, "UTF-8");
    case kQTMetaDataTypeUTF16BE:
      return text(bytes, "UTF-16BE");
    case kQTMetaDataTypeMacEncodedText:
      return text(bytes, "MACINTOSH");
    case kQTMetaDataTypeJPEGImage:
    case kQTMetaDataTypePNGImage:
    case kQTMetaDataTypeBMPImage:
      return BVValue(BVImage::imageWithData(BVData(bytes.begin(), bytes.end())));
    case kQTMetaDataTypeSignedIntegerBE:
      return signedInteger(bytes);
    case kQTMetaDataTypeUnsignedIntegerBE:
      return unsignedInteger(bytes);
    case kQTMetaDataTypeFloat32BE:
      if (bytes.size() < 4) return {};
      return BVValue(std::bit_cast<float>(bigEndian<uint32_t>(bytes)));
    case kQTMetaDataTypeFloat64BE:
      if (bytes.size() < 8) return {};
      return BVValue(std::bit_cast<double>(bigEndian<uint64_t>(bytes)));
    default:
      return {};
  }
}

}  // namespace belvane::detail
