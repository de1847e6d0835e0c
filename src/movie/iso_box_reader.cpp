// The box walk and the metadata readers of ISO base-media files.
#include "movie/iso_box_reader.h"

#include <algorithm>
#include <cstdio>
#include <memory>

namespace belvane::detail {
namespace {

constexpr uint32_t kMoov = QTFourCharCode("moov");
constexpr uint32_t kTrak = QTFourCharCode("trak");
constexpr uint32_t kUdta = QTFourCharCode("udta");
constexpr uint32_t kMeta = QTFourCharCode("meta");
constexpr uint32_t kHdlr = QTFourCharCode("hdlr");
constexpr uint32_t kKeys = QTFourCharCode("keys");
constexpr uint32_t kIlst = QTFourCharCode("ilst");
constexpr uint32_t kData = QTFourCharCode("data");
constexpr uint32_t kMean = QTFourCharCode("mean");
constexpr uint32_t kName = QTFourCharCode("name");
constexpr uint32_t kLongForm = QTFourCharCode("----");
constexpr uint32_t kMdta = QTFourCharCode("mdta");
constexpr uint32_t kUuid = QTFourCharCode("uuid");

std::string codeBytes(uint32_t code) {
  return {char(code >> 24), char(code >> 16), char(code >> 8), char(code)};
}

std::string toString(std::span<const uint8_t> bytes) { return std::string(bytes.begin(), bytes.end()); }

// Adds an item unless the container is full.
void addItem(QTMetaDataContainer& container, uint32_t keyFormat, std::string key, uint32_t dataType,
             std::span<const uint8_t> value) {
  if (container.items.size() >= kIsoMaxItems) return;
  container.items.push_back({keyFormat, std::move(key), dataType, toString(value)});
}

// A full box's payload without its version and flags.
std::span<const uint8_t> fullBoxBody(std::span<const uint8_t> payload) {
  return payload.size() >= 4 ? payload.subspan(4) : std::span<const uint8_t>{};
}

// The payload of a meta box as a range of boxes. ISO files make meta a full
// box (version and flags first); QuickTime's moov/meta has no such field, so
// its handler box comes right away.
std::span<const uint8_t> metaChildren(std::span<const uint8_t> payload) {
  uint32_t type = 0;
  if (isoReadU32(payload, 4, &type) && type == kHdlr) return payload;
  return fullBoxBody(payload);
}

// The handler type of a meta box (hdlr: version and flags, pre-defined, type).
uint32_t metaHandler(std::span<const uint8_t> children) {
  auto hdlr = isoFindChild(children, kHdlr);
  uint32_t handler = 0;
  if (hdlr) isoReadU32(hdlr->payload, 8, &handler);
  return handler;
}

// Each data box of an item: a 4-byte type indicator (a type set byte and a
// 24-bit well-known type), a 4-byte locale, then the value.
template <class F>
void forEachDataBox(std::span<const uint8_t> item, F&& f) {
  for (const IsoBox& box : isoChildBoxes(item)) {
    if (box.type != kData || box.payload.size() < 8) continue;
    uint32_t indicator = 0;
    isoReadU32(box.payload, 0, &indicator);
    f(indicator & 0xFFFFFF, box.payload.subspan(8));
  }
}

// The text of a mean or name box (a full box holding text).
std::optional<std::string> longFormText(std::span<const uint8_t> item, uint32_t type) {
  auto box = isoFindChild(item, type);
  if (!box || box->payload.size() < 4) return std::nullopt;
  return toString(box->payload.subspan(4));
}

// ilst of the iTunes kind: item box types are the keys, '----' items carry
// their key in mean and name boxes.
void appendShortFormItems(QTMetaDataContainer& container, std::span<const uint8_t> ilst) {
  for (const IsoBox& item : isoChildBoxes(ilst)) {
    if (item.type == kLongForm) {
      auto mean = longFormText(item.payload, kMean);
      auto name = longFormText(item.payload, kName);
      if (!name) continue;
      std::string key = mean ? *mean + "." + *name : *name;
      forEachDataBox(item.payload, [&](uint32_t type, std::span<const uint8_t> value) {
        addItem(container, kQTMetaDataKeyFormatiTunesLongForm, key, type, value);
      });
      continue;
    }
    forEachDataBox(item.payload, [&](uint32_t type, std::span<const uint8_t> value) {
      addItem(container, kQTMetaDataKeyFormatiTunesShortForm, codeBytes(item.type), type, value);
    });
  }
}

// QuickTime's keyed metadata: the keys box lists (namespace, key text) pairs;
// ilst item box types are 1-based indexes into that list.
void appendKeyedItems(QTMetaDataContainer& container, std::span<const uint8_t> meta) {
  struct Key {
    uint32_t keyFormat;
    std::string text;
  };
  std::vector<Key> keys;
  if (auto keysBox = isoFindChild(meta, kKeys)) {
    auto body = fullBoxBody(keysBox->payload);
    uint32_t count = 0;
    size_t offset = 4;
    isoReadU32(body, 0, &count);
    for (uint32_t i = 0; i < count && keys.size() < kIsoMaxItems; ++i) {
      uint32_t size = 0, keyFormat = 0;
      if (!isoReadU32(body, offset, &size) || size < 8 || size > body.size() - offset) break;
      isoReadU32(body, offset + 4, &keyFormat);
      keys.push_back({keyFormat, toString(body.subspan(offset + 8, size - 8))});
      offset += size;
    }
  }
  auto ilst = isoFindChild(meta, kIlst);
  if (!ilst) return;
  for (const IsoBox& item : isoChildBoxes(ilst->payload)) {
    if (item.type == 0 || item.type > keys.size()) continue;
    const Key& key = keys[item.type - 1];
    forEachDataBox(item.payload, [&](uint32_t type, std::span<const uint8_t> value) {
      addItem(container, key.keyFormat, key.text, type, value);
    });
  }
}

void appendMetaItems(QTMetaDataContainer& container, std::span<const uint8_t> metaPayload) {
  auto children = metaChildren(metaPayload);
  if (metaHandler(children) == kMdta) {
    appendKeyedItems(container, children);
  } else if (auto ilst = isoFindChild(children, kIlst)) {
    appendShortFormItems(container, ilst->payload);
  }
}

// A classic user-data text entry: records of a 16-bit length, a 16-bit
// language code and the text. Language codes below 0x400 are Macintosh
// language codes (Mac Roman text); above, packed ISO 639 codes with Unicode
// text (UTF-8, or UTF-16 when it starts with a byte-order mark). Returns
// false when the bytes are not laid out so.
bool appendUserDataText(QTMetaDataContainer& container, const std::string& key, std::span<const uint8_t> payload) {
  std::vector<std::pair<uint32_t, std::span<const uint8_t>>> records;
  size_t offset = 0;
  while (offset < payload.size()) {
    if (payload.size() - offset < 4) return false;
    size_t length = (size_t(payload[offset]) << 8) | payload[offset + 1];
    uint32_t language = (uint32_t(payload[offset + 2]) << 8) | payload[offset + 3];
    offset += 4;
    if (length > payload.size() - offset) return false;
    auto text = payload.subspan(offset, length);
    offset += length;
    uint32_t type = kQTMetaDataTypeMacEncodedText;
    if (language >= 0x400) {
      type = kQTMetaDataTypeUTF8;
      if (text.size() >= 2 && text[0] == 0xFE && text[1] == 0xFF) {
        type = kQTMetaDataTypeUTF16BE;
        text = text.subspan(2);
      }
    }
    records.emplace_back(type, text);
  }
  if (records.empty()) return false;
  for (const auto& [type, text] : records) addItem(container, kQTMetaDataKeyFormatUserData, key, type, text);
  return true;
}

void appendUserDataItems(QTMetaDataContainer& container, std::span<const uint8_t> udta) {
  for (const IsoBox& box : isoChildBoxes(udta)) {
    if (box.type == kMeta) {
      appendMetaItems(container, box.payload);
      continue;
    }
    std::string key = codeBytes(box.type);
    if ((box.type >> 24) == 0xA9 && appendUserDataText(container, key, box.payload)) continue;
    addItem(container, kQTMetaDataKeyFormatUserData, key, kQTMetaDataTypeBinary, box.payload);
  }
}

// The items of a moov or trak: its udta (with a meta inside) and its meta.
void appendContainerItems(QTMetaDataContainer& container, std::span<const uint8_t> payload) {
  for (const IsoBox& box : isoChildBoxes(payload)) {
    if (box.type == kUdta) appendUserDataItems(container, box.payload);
    else if (box.type == kMeta) appendMetaItems(container, box.payload);
  }
}

constexpr uint32_t kTopLevelTypes[] = {
    QTFourCharCode("ftyp"), QTFourCharCode("moov"), QTFourCharCode("mdat"), QTFourCharCode("free"),
    QTFourCharCode("skip"), QTFourCharCode("wide"), QTFourCharCode("pnot"), QTFourCharCode("uuid"),
    QTFourCharCode("styp"), QTFourCharCode("sidx"), QTFourCharCode("moof"), QTFourCharCode("pdin")};

bool isKnownTopLevelType(uint32_t type) {
  return std::find(std::begin(kTopLevelTypes), std::end(kTopLevelTypes), type) != std::end(kTopLevelTypes);
}

}  // namespace

bool isoReadU32(std::span<const uint8_t> bytes, size_t offset, uint32_t* value) {
  if (offset > bytes.size() || bytes.size() - offset < 4) return false;
  const uint8_t* p = bytes.data() + offset;
  *value = (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
  return true;
}

std::vector<IsoBox> isoChildBoxes(std::span<const uint8_t> range) {
  std::vector<IsoBox> boxes;
  size_t offset = 0;
  while (boxes.size() < kIsoMaxChildBoxes && range.size() - offset >= 8) {
    uint32_t size32 = 0;
    IsoBox box;
    isoReadU32(range, offset, &size32);
    isoReadU32(range, offset + 4, &box.type);
    box.offset = offset;
    size_t left = range.size() - offset;
    uint64_t size = size32;
    size_t header = 8;
    if (size32 == 1) {
      uint32_t high = 0, low = 0;
      if (!isoReadU32(range, offset + 8, &high) || !isoReadU32(range, offset + 12, &low)) break;
      size = (uint64_t(high) << 32) | low;
      header = 16;
    } else if (size32 == 0) {
      size = left;
    }
    if (box.type == kUuid) header += 16;
    if (size < header || header > left) break;
    if (size > left) {
      size = left;
      box.truncated = true;
    }
    box.payload = range.subspan(offset + header, size_t(size) - header);
    boxes.push_back(box);
    offset += size_t(size);
  }
  return boxes;
}

std::optional<IsoBox> isoFindChild(std::span<const uint8_t> range, uint32_t type) {
  for (const IsoBox& box : isoChildBoxes(range)) {
    if (box.type == type) return box;
  }
  return std::nullopt;
}

std::optional<IsoBox> isoFindPath(std::span<const uint8_t> range, std::initializer_list<uint32_t> path) {
  std::optional<IsoBox> box;
  for (uint32_t type : path) {
    box = isoFindChild(box ? box->payload : range, type);
    if (!box) return std::nullopt;
  }
  return box;
}

void appendIsoMovieItems(QTMetaDataContainer& container, std::span<const uint8_t> file) {
  if (auto moov = isoFindChild(file, kMoov)) appendContainerItems(container, moov->payload);
}

void appendIsoTrackItems(QTMetaDataContainer& container, std::span<const uint8_t> file, size_t trackIndex) {
  auto moov = isoFindChild(file, kMoov);
  if (!moov) return;
  // Tracks are counted as the movie lists its streams: the sound tracks,
  // then the video tracks, then the text tracks, each kind in file order.
  std::vector<IsoBox> traks[3];
  for (const IsoBox& box : isoChildBoxes(moov->payload)) {
    if (box.type != kTrak) continue;
    uint32_t handler = 0;
    if (auto hdlr = isoFindPath(box.payload, {QTFourCharCode("mdia"), kHdlr})) isoReadU32(hdlr->payload, 8, &handler);
    if (handler == QTFourCharCode("soun")) traks[0].push_back(box);
    else if (handler == QTFourCharCode("vide")) traks[1].push_back(box);
    else if (handler == QTFourCharCode("text") || handler == QTFourCharCode("sbtl") || handler == QTFourCharCode("subt"))
      traks[2].push_back(box);
  }
  for (const auto& kind : traks) {
    if (trackIndex < kind.size()) {
      appendContainerItems(container, kind[trackIndex].payload);
      return;
    }
    trackIndex -= kind.size();
  }
}

std::optional<std::vector<uint8_t>> isoReadMovieBox(const std::string& path, size_t maxBytes) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  if (!file) return std::nullopt;
  // Walk the top-level headers, seeking over everything but the moov.
  for (size_t boxes = 0; boxes < kIsoMaxChildBoxes; ++boxes) {
    uint8_t header[16];
    if (std::fread(header, 1, 8, file.get()) != 8) return std::nullopt;
    uint32_t size32 = 0, type = 0;
    isoReadU32(header, 0, &size32);
    isoReadU32(header, 4, &type);
    if (boxes == 0 && !isKnownTopLevelType(type)) return std::nullopt;
    uint64_t size = size32;
    size_t headerSize = 8;
    if (size32 == 1) {
      if (std::fread(header + 8, 1, 8, file.get()) != 8) return std::nullopt;
      uint32_t high = 0, low = 0;
      isoReadU32(header, 8, &high);
      isoReadU32(header, 12, &low);
      size = (uint64_t(high) << 32) | low;
      headerSize = 16;
    }
    if (type == kMoov) {
      if (size32 == 0) {
        // To the end of the file.
        long here = std::ftell(file.get());
        if (here < 0 || std::fseek(file.get(), 0, SEEK_END) != 0) return std::nullopt;
        long end = std::ftell(file.get());
        if (end < here || std::fseek(file.get(), here, SEEK_SET) != 0) return std::nullopt;
        size = uint64_t(end - here) + headerSize;
      }
      if (size < headerSize || size > maxBytes) return std::nullopt;
      std::vector<uint8_t> box(static_cast<size_t>(size));
      std::copy(header, header + headerSize, box.begin());
      size_t got = std::fread(box.data() + headerSize, 1, box.size() - headerSize, file.get());
      // A truncated moov keeps what is there; its size field is left as it was
      // and the box walk cuts it.
      box.resize(headerSize + got);
      return box;
    }
    if (size32 == 0 || size < headerSize) return std::nullopt;
    uint64_t skip = size - headerSize;
    if (skip > uint64_t(INT64_MAX) || fseeko(file.get(), off_t(skip), SEEK_CUR) != 0) return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace belvane::detail
