// BVM3UWebPlaylist: the reader of M3U playlists, plain and extended
// ("#EXTM3U" with "#EXTINF:duration,title" information lines).
//
// Lenient on purpose: in a plain file the first line is always taken as a
// URL, even a comment; in an extended file the line after "#EXTINF:" is the
// URL whatever it holds.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVWebPlaylist.h>

class BV_EXPORT BVM3UWebPlaylist : public BVWebPlaylist {
 public:
  // An empty reader (no URL), e.g. to parse text read elsewhere.
  static std::shared_ptr<BVM3UWebPlaylist> create();

  // The path's extension, lower-cased, is "m3u".
  static bool canInitWithURL(const BVURL& url);
  // The lower-cased type contains "audio/x-mpegurl" (an absent type matches).
  static bool canInitWithMIMEType(const std::optional<std::string>& mimeType);

  std::string className() const override { return "BVM3UWebPlaylist"; }
  void generateTracksFromString(std::string_view string) override;

 protected:
  BVM3UWebPlaylist() = default;
  friend class BVWebPlaylist;
};
