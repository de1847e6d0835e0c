// The bridge between BVValue and libplist nodes, with the bounds that keep a
// hostile property list from exhausting the stack, memory or time: libplist
// reads binary lists and frees trees recursively, so depth and the number of
// nodes are checked before those steps.
#pragma once

#include <belvane/BVValue.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

typedef void* plist_t;

namespace belvane::detail {

struct PlistLimits {
  size_t maxBytes = 64 * 1024 * 1024;
  size_t maxDepth = 512;     // nesting of arrays and dictionaries, the root counting 1
  size_t maxNodes = 1 << 22;  // every value, dictionary keys included
};

// True when a binary property list's object tree, expanded the way the reader
// expands it (shared references count once per use), stays within maxDepth
// levels and maxNodes nodes, the data and strings it would copy stay within
// a few times the input's size, no string holds a NUL character, and its
// trailer, offsets and references lie inside the bytes.
bool binaryPlistWithinLimits(std::span<const uint8_t> bytes, size_t maxDepth, size_t maxNodes);

// True when the XML property list never nests arrays and dictionaries deeper
// than maxDepth. The scan tokenises the way libplist's XML reader does
// (comments, CDATA sections, processing instructions and the DOCTYPE are
// skipped, so closing tags hidden in them do not count), and where the
// reader would stop with an error the depth reached so far is what counts.
// False also for text holding a NUL byte, which no XML document may hold.
bool xmlPlistNestingWithin(std::span<const uint8_t> bytes, size_t maxDepth);

// Parses XML or binary bytes within the limits into a plain value (no
// objects, no null). Nothing when they do not parse or break a limit.
std::optional<BVValue> parsePlistBytes(std::span<const uint8_t> bytes, const PlistLimits& limits);

// Serialises a plain value; nothing when it holds an absent value, the null
// object, an object, or nests deeper than maxDepth.
std::optional<std::string> serializePlist(const BVValue& value, bool binary, size_t maxDepth = 512);

}  // namespace belvane::detail
