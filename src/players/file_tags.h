// FileTags: what a local audio file says of itself (ID3v1, ID3v2.2-2.4 and
// the other tag formats TagLib reads) and its length, as player attributes.
#pragma once

#include <belvane/BVValue.h>

#include <optional>
#include <string>

namespace belvane::detail {

struct FileTags {
  // Under the BVPlayerAttribute...Key constants: track title, artist,
  // album, genre, year (text), comment, track number and duration
  // (seconds); empty tags are left out.
  BVDictionary attributes;
  double duration = 0;  // seconds; 0 when unknown
  int sampleRate = 0;   // frames per second; 0 when unknown
};

// Nothing when the file cannot be read or is not audio TagLib knows.
std::optional<FileTags> readFileTags(const std::string& path);

// A picture a file carries in its tags (the front cover when there are
// several): ID3v2 in MP3, FLAC and Ogg Vorbis pictures, MP4 cover art.
struct FileCover {
  std::string bytes;
  std::string extension;  // "jpg" or "png", by the picture's own bytes
};
std::optional<FileCover> readFileCover(const std::string& path);

}  // namespace belvane::detail
