// Helpers for the playlist tests: running a reader on a text, and reading
// track dictionaries.
#pragma once

#include <belvane/BVWebPlaylist.h>

#include <string>
#include <string_view>
#include <vector>

namespace belvane::test {

template <class Reader>
BVArray parseWith(std::string_view text) {
  auto reader = Reader::create();
  reader->generateTracksFromString(text);
  return reader->tracks();
}

inline std::string str(const BVValue& track, const char* key) { return track[key].stringOr("<none>"); }

inline std::vector<std::string> strings(const BVValue& list) {
  std::vector<std::string> out;
  if (auto a = list.array())
    for (auto& v : *a) out.push_back(v.stringOr("<not a string>"));
  return out;
}

}  // namespace belvane::test
