// BVPLSWebPlaylist: the reader of PLS playlists (File1=, Title1=, Length1=).
//
// Only lines with at least two characters after the first "=" count. Each
// numbered key adds its value to the track of that number; tracks come out
// in ascending order of number.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVWebPlaylist.h>

class BV_EXPORT BVPLSWebPlaylist : public BVWebPlaylist {
 public:
  // An empty reader (no URL), e.g. to parse text read elsewhere.
  static std::shared_ptr<BVPLSWebPlaylist> create();

  // The path's extension, lower-cased, is "pls".
  static bool canInitWithURL(const BVURL& url);
  // The lower-cased type contains "audio/x-scpls" (an absent type matches).
  static bool canInitWithMIMEType(const std::optional<std::string>& mimeType);

  std::string className() const override { return "BVPLSWebPlaylist"; }
  void generateTracksFromString(std::string_view string) override;

 protected:
  BVPLSWebPlaylist() = default;
  friend class BVWebPlaylist;

  // The track key for a PLS attribute name ("file", "length", "title" in any
  // case); other names are kept as written.
  static std::string standardAttribForPLSAttrib(std::string_view attribute);
};
