// BVASXWebPlaylist: the reader of Windows Media metafiles (ASX, WAX, WVX).
//
// The text is lower-cased and read as XML; every <entry> with <ref href>
// children becomes one track listing all its reference URLs. Text the XML
// parser refuses goes to a tolerant tag scanner instead, and a text that is a
// bare "http:" URL becomes a single track.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVWebPlaylist.h>

struct _xmlNode;

class BV_EXPORT BVASXWebPlaylist : public BVWebPlaylist {
 public:
  // An empty reader (no URL), e.g. to parse text read elsewhere.
  static std::shared_ptr<BVASXWebPlaylist> create();

  // The path's extension, lower-cased, is "asx" or "wax".
  static bool canInitWithURL(const BVURL& url);
  // The lower-cased type contains "video/x-ms-wvx" (an absent type matches).
  static bool canInitWithMIMEType(const std::optional<std::string>& mimeType);

  std::string className() const override { return "BVASXWebPlaylist"; }
  void generateTracksFromString(std::string_view string) override;

  // Lower-cases the names of node, of its attributes and of every element
  // and attribute below it (a libxml2 node).
  void lowercaseNodeNamesInXMLNode(_xmlNode* node);
  // The tag scanner for text that is not well-formed XML. One track
  // dictionary and one URL list serve the whole text: every "</entry>" after
  // the first URL inserts that same dictionary at the front, and it ends up
  // holding the file's first URL and every URL of the file.
  void generateTracksFromStringUsingFallbackParser(std::string_view string);

 protected:
  BVASXWebPlaylist() = default;
  friend class BVWebPlaylist;
};
