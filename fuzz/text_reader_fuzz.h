// The fuzz driver shared by the line-based playlist readers: one fresh
// reader of type Reader parses the input twice, as decoded text (what a
// download hands it) and as the raw bytes, and `check` sees the reader and
// the text after each parse.
#pragma once

#include <belvane/BVWebPlaylist.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace belvane::fuzz {

template <class Reader, class Check>
int fuzzTextReader(const uint8_t* data, size_t size, Check check) {
  auto parse = [&](std::string_view text) {
    auto reader = Reader::create();
    reader->generateTracksFromString(text);
    check(*reader, text);
  };
  if (auto text = BVWebPlaylist::stringFromData(std::span<const uint8_t>(data, size))) parse(*text);
  parse(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}

}  // namespace belvane::fuzz
