// BVASXWebPlaylist: Windows Media metafiles read as lower-cased XML through
// libxml2, with the tag scanner as the fallback for malformed files.
#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVKitOwner.h>

#include "playlists/asx_fallback_scanner.h"
#include "playlists/asx_xml_document.h"
#include "playlists/parser_helpers.h"

namespace {

using namespace belvane::detail;

// Each entry lists the references below it, those of nested entries too, so
// entries nested deep could multiply a document's references; this bounds
// the output far above any real playlist.
constexpr size_t kMaxReferenceURLs = size_t(1) << 20;

bool needsLowercasing(const unsigned char* name) {
  for (; *name; ++name)
    if (*name >= 0x80 || (*name >= 'A' && *name <= 'Z')) return true;
  return false;
}

void lowercaseName(xmlNodePtr node) {
  if (!node->name || !needsLowercasing(node->name)) return;
  std::string lower = lowercaseString(reinterpret_cast<const char*>(node->name));
  xmlNodeSetName(node, reinterpret_cast<const xmlChar*>(lower.c_str()));
}

}  // namespace

std::shared_ptr<BVASXWebPlaylist> BVASXWebPlaylist::create() {
  return std::shared_ptr<BVASXWebPlaylist>(new BVASXWebPlaylist());
}

bool BVASXWebPlaylist::canInitWithURL(const BVURL& url) {
  std::string extension = url.pathExtension();
  return equalsIgnoringASCIICase(extension, "asx") || equalsIgnoringASCIICase(extension, "wax");
}

bool BVASXWebPlaylist::canInitWithMIMEType(const std::optional<std::string>& mimeType) {
  return !mimeType || lowercaseString(*mimeType).find("video/x-ms-wvx") != std::string::npos;
}

void BVASXWebPlaylist::lowercaseNodeNamesInXMLNode(xmlNodePtr node) {
  // Iterative walk: no recursion however deep the document.
  xmlNodePtr top = node;
  while (node) {
    if (node->type == XML_ELEMENT_NODE) {
      lowercaseName(node);
      for (xmlAttrPtr attr = node->properties; attr; attr = attr->next) lowercaseName(reinterpret_cast<xmlNodePtr>(attr));
    }
    if (node->type == XML_ELEMENT_NODE && node->children) {
      node = node->children;
      continue;
    }
    while (node && node != top && !node->next) node = node->parent;
    if (!node || node == top) break;
    node = node->next;
  }
}

void BVASXWebPlaylist::generateTracksFromString(std::string_view string) {
  if (string.empty()) return;
  if (string.substr(0, 5) == "http:") {
    // A bare URL instead of a metafile.
    insertObject(BVDictionary{{kPlaylistAttributeTrackURL, BVValue(trimmedView(string))}}, 0);
    return;
  }

  // Lower-cased so that element and attribute names match in any case; the
  // URLs read from the document come out lower-case too.
  ASXXMLDocument document(lowercaseString(string));
  if (!document.parsed()) {
    generateTracksFromStringUsingFallbackParser(string);
    return;
  }
  lowercaseNodeNamesInXMLNode(document.root());
  if (auto error = document.recoverableError()) BVLog("asx document error: %s", error->c_str());

  std::string xpathError;
  auto entries = document.evaluate(".//entry", document.root(), &xpathError);
  if (!entries) {
    BVLog("xpath error: %s", xpathError.c_str());
    generateTracksFromStringUsingFallbackParser(string);
    return;
  }
  size_t urlCount = 0;
  for (size_t index = 0; index < entries->size(); ++index) {
    if (urlCount > kMaxReferenceURLs) {
      BVLog("asx document: stopped after %zu reference URLs", urlCount);
      break;
    }
    auto refs = document.evaluate(".//ref", (*entries)[index], &xpathError);
    if (!refs) {
      BVLog("xpath error: %s", xpathError.c_str());
      continue;
    }
    BVArray urls;
    for (xmlNodePtr ref : *refs) {
      if (auto href = ASXXMLDocument::attribute(ref, "href")) urls.emplace_back(std::move(*href));
    }
    if (urls.empty()) continue;  // an entry without references
    urlCount += urls.size();
    BVDictionary track;
    track.emplace(kPlaylistAttributeTrackURL, urls.front());
    track.emplace(kPlaylistAttributeAlternateTrackURLs, BVValue(std::move(urls)));
    insertObject(BVValue(std::move(track)), index);
  }
}

void BVASXWebPlaylist::generateTracksFromStringUsingFallbackParser(std::string_view string) {
  ASXScanResult scan = scanASXTags(string);
  if (scan.entryInsertions == 0) return;
  // One dictionary for the whole text: every insertion is the same track,
  // holding the first URL and, since the URL list is never reset, all of them.
  BVDictionary track;
  track.emplace(kPlaylistAttributeTrackURL, BVValue(scan.urls.front()));
  BVArray urls(std::make_move_iterator(scan.urls.begin()), std::make_move_iterator(scan.urls.end()));
  track.emplace(kPlaylistAttributeAlternateTrackURLs, BVValue(std::move(urls)));
  BVValue shared(std::move(track));
  // Inserting the same value n times at the front is one block insertion.
  insertCopies(shared, scan.entryInsertions, 0);
}
