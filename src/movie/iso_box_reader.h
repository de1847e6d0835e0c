// ISO base-media (MP4, QuickTime) box reader: walks the boxes of a byte range
// without trusting their sizes, and collects the metadata items of a movie or
// of one of its tracks into a QTMetaDataContainer.
//
// Sizes are checked against the enclosing range: a 64-bit size (size 1) is
// read, size 0 means "to the end of the enclosing range", a box that claims
// more than is left is cut to what is left (a truncated file still yields what
// it holds), and a header smaller than 8 bytes ends the walk. The number of
// boxes looked at per container and the number of items gathered are capped,
// and the readers only descend fixed paths (moov/trak/udta/meta/ilst/...), so
// the nesting depth is bounded too.
#pragma once

#include "movie/QTMetaDataContainer.h"

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

// Boxes looked at in one container, items gathered into one container, and
// the largest moov read from a file.
inline constexpr size_t kIsoMaxChildBoxes = 4096;
inline constexpr size_t kIsoMaxItems = 1024;
inline constexpr size_t kIsoMaxMovieBoxBytes = 32u << 20;

struct IsoBox {
  uint32_t type = 0;
  size_t offset = 0;  // of the header within the enclosing range
  std::span<const uint8_t> payload;  // bytes after the header (and after a uuid's 16-byte type)
  bool truncated = false;  // the box claimed more bytes than the range holds
};

// The boxes of a range, in order; stops at the first malformed header and
// after kIsoMaxChildBoxes boxes.
std::vector<IsoBox> isoChildBoxes(std::span<const uint8_t> range);
// The first box of that type, or nothing.
std::optional<IsoBox> isoFindChild(std::span<const uint8_t> range, uint32_t type);
// Follows a path of types, first match at every level.
std::optional<IsoBox> isoFindPath(std::span<const uint8_t> range, std::initializer_list<uint32_t> path);

// Reads a big-endian integer at offset; false when it does not fit.
bool isoReadU32(std::span<const uint8_t> bytes, size_t offset, uint32_t* value);

// The metadata items of a file's bytes (its top-level boxes, of which the
// first moov counts): the movie's own (moov/udta, moov/meta, moov/udta/meta)
// or those of one track (trak/udta, trak/meta, trak/udta/meta). Tracks are
// numbered as the movie numbers its streams: sound tracks first, then video,
// then text (text, sbtl, subt), each in file order; other tracks (hint,
// timecode, chapters) have no number.
void appendIsoMovieItems(QTMetaDataContainer& container, std::span<const uint8_t> file);
void appendIsoTrackItems(QTMetaDataContainer& container, std::span<const uint8_t> file, size_t trackIndex);

// The first moov box of a file on disk, header included, read without loading
// the media data; nothing when the file is no ISO/QuickTime file or its moov
// is missing or larger than maxBytes.
std::optional<std::vector<uint8_t>> isoReadMovieBox(const std::string& path, size_t maxBytes = kIsoMaxMovieBoxBytes);

}  // namespace belvane::detail
