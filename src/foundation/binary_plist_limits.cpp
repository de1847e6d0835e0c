// Checks a binary property list's shape before libplist reads it. libplist
// reads the object tree recursively and expands shared references, so a
// small hostile file could nest deep enough to exhaust the stack or expand
// into billions of nodes. This walk mirrors the reader without recursion.
#include "foundation/plist_bridge.h"

#include <cstring>
#include <vector>

namespace belvane::detail {
namespace {

// Big-endian unsigned integer of width bytes (1...8).
uint64_t readBigEndian(const uint8_t* p, size_t width) {
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = (value << 8) | p[i];
  return value;
}

// Object markers: the high nibble is the type, the low nibble a count
// (0xF: the count follows as an integer object).
constexpr unsigned kTypeArray = 0xA;
constexpr unsigned kTypeSet = 0xC;
constexpr unsigned kTypeDict = 0xD;
constexpr unsigned kTypeInteger = 0x1;
constexpr unsigned kTypeData = 0x4;
constexpr unsigned kTypeASCIIString = 0x5;
constexpr unsigned kTypeUTF16String = 0x6;
constexpr size_t kHeaderSize = 8;    // "bplist00"
constexpr size_t kTrailerSize = 32;

}  // namespace

bool binaryPlistWithinLimits(std::span<const uint8_t> bytes, size_t maxDepth, size_t maxNodes) {
  const size_t size = bytes.size();
  if (size < kHeaderSize + kTrailerSize) return false;
  if (std::memcmp(bytes.data(), "bplist0", 7) != 0) return false;
  const uint8_t* data = bytes.data();
  const uint8_t* trailer = data + size - kTrailerSize;
  const size_t offsetSize = trailer[6];
  const size_t refSize = trailer[7];
  const uint64_t objectCount = readBigEndian(trailer + 8, 8);
  const uint64_t topObject = readBigEndian(trailer + 16, 8);
  const uint64_t tableOffset = readBigEndian(trailer + 24, 8);
  const uint64_t dataEnd = size - kTrailerSize;
  if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8) return false;
  if (objectCount == 0 || topObject >= objectCount) return false;
  if (tableOffset < kHeaderSize || tableOffset > dataEnd) return false;
  if (objectCount > (dataEnd - tableOffset) / offsetSize) return false;

  // Objects lie between the header and the offset table.
  auto objectOffset = [&](uint64_t index, uint64_t& offset) {
    offset = readBigEndian(data + tableOffset + index * offsetSize, offsetSize);
    return offset >= kHeaderSize && offset < tableOffset;
  };
  // The count in a marker's low nibble, or the integer object after it.
  auto readCount = [&](uint8_t marker, uint64_t& position, uint64_t& count) {
    count = marker & 0x0F;
    if (count != 0x0F) return true;
    if (position >= tableOffset) return false;
    const uint8_t countMarker = data[position++];
    if ((countMarker >> 4) != kTypeInteger) return false;
    const size_t width = size_t(1) << (countMarker & 0x0F);
    if (width > 8 || width > tableOffset - position) return false;
    count = readBigEndian(data + position, width);
    position += width;
    return true;
  };

  // The reader copies an object for every reference to it, so the payload
  // it would allocate is bounded too.
  const uint64_t maxPayload = uint64_t(size) * 4 + (1 << 20);
  uint64_t payload = 0;
  // Strings are checked for NUL characters once each; libplist asserts that
  // a string's length matches its C length.
  std::vector<bool> stringChecked(objectCount, false);

  struct Pending {
    uint64_t index;
    size_t depth;
  };
  std::vector<Pending> pending{{topObject, 1}};
  size_t nodes = 0;
  while (!pending.empty()) {
    Pending item = pending.back();
    pending.pop_back();
    if (++nodes > maxNodes || item.depth > maxDepth) return false;
    uint64_t offset;
    if (!objectOffset(item.index, offset)) return false;
    const uint8_t marker = data[offset];
    const unsigned type = marker >> 4;
    uint64_t position = offset + 1;
    uint64_t count = 0;

    if (type == kTypeData || type == kTypeASCIIString || type == kTypeUTF16String) {
      if (!readCount(marker, position, count)) return false;
      const uint64_t unit = type == kTypeUTF16String ? 2 : 1;
      if (count > (tableOffset - position) / unit) return false;
      payload += count * unit;
      if (payload > maxPayload) return false;
      if (type != kTypeData && !stringChecked[item.index]) {
        stringChecked[item.index] = true;
        for (uint64_t i = 0; i < count; ++i) {
          const uint8_t* c = data + position + i * unit;
          if (c[0] == 0 && (unit == 1 || c[1] == 0)) return false;
        }
      }
      continue;
    }
    if (type != kTypeArray && type != kTypeSet && type != kTypeDict) continue;

    if (!readCount(marker, position, count)) return false;
    const uint64_t available = (tableOffset - position) / refSize;
    if (count > available) return false;
    const uint64_t refs = type == kTypeDict ? count * 2 : count;  // keys, then values
    if (refs > available) return false;
    if (refs > maxNodes - nodes || pending.size() > maxNodes - nodes - refs) return false;
    for (uint64_t i = 0; i < refs; ++i) {
      const uint64_t ref = readBigEndian(data + position + i * refSize, refSize);
      if (ref >= objectCount) return false;
      pending.push_back({ref, item.depth + 1});
    }
  }
  return true;
}

}  // namespace belvane::detail
