// Station playlist entries: the web playlist readers for PLS, M3U and ASX,
// libxml2 for XSPF, and resolution of relative entries.
#include "streaming/stream_tuner_playlist.h"

#include <belvane/BVASXWebPlaylist.h>
#include <belvane/BVM3UWebPlaylist.h>
#include <belvane/BVPLSWebPlaylist.h>

#include "foundation/text_encoding.h"

#include <glib.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <mutex>

namespace belvane::detail {

namespace {

// Every track's URL, or for an ASX entry all its references in order.
std::vector<std::string> readerURLs(BVWebPlaylist& reader, std::string_view text) {
  reader.generateTracksFromString(text);
  std::vector<std::string> urls;
  for (const BVValue& track : reader.tracks()) {
    const BVDictionary* fields = track.dictionary();
    if (!fields) continue;
    auto alternates = fields->find(kPlaylistAttributeAlternateTrackURLs);
    if (alternates != fields->end() && alternates->second.array()) {
      for (const BVValue& url : *alternates->second.array())
        if (const std::string* s = url.string()) urls.push_back(*s);
    } else if (const std::string* url = BVDictionaryString(*fields, kPlaylistAttributeTrackURL)) {
      urls.push_back(*url);
    }
  }
  return urls;
}

std::string replaceAll(std::string s, std::string_view from, std::string_view to) {
  for (size_t pos = 0; (pos = s.find(from, pos)) != std::string::npos; pos += to.size()) s.replace(pos, from.size(), to);
  return s;
}

bool isElement(xmlNodePtr node, const char* name) {
  return node->type == XML_ELEMENT_NODE && node->name && xmlStrcmp(node->name, BAD_CAST name) == 0;
}

// The element's own text and CDATA; entity references are not expanded.
std::string elementText(xmlNodePtr element) {
  std::string text;
  for (xmlNodePtr child = element->children; child; child = child->next) {
    if ((child->type == XML_TEXT_NODE || child->type == XML_CDATA_SECTION_NODE) && child->content)
      text += reinterpret_cast<const char*>(child->content);
  }
  return text;
}

}  // namespace

std::vector<std::string> tunerPlaylistEntries(TunerPlaylistFormat format, std::string_view text) {
  std::vector<std::string> raw;
  switch (format) {
    case TunerPlaylistFormat::PLS: raw = readerURLs(*BVPLSWebPlaylist::create(), text); break;
    case TunerPlaylistFormat::M3U: raw = readerURLs(*BVM3UWebPlaylist::create(), text); break;
    case TunerPlaylistFormat::ASX: raw = tunerRestoreASXSpelling(readerURLs(*BVASXWebPlaylist::create(), text), text); break;
    case TunerPlaylistFormat::XSPF: raw = tunerXSPFLocations(text); break;
    case TunerPlaylistFormat::None: break;
  }
  std::vector<std::string> entries;
  for (const std::string& entry : raw) {
    std::string trimmed = trimWhitespaceAndNewlines(entry);
    // A plain M3U's first line counts as an entry even when it is a comment.
    if (trimmed.empty() || trimmed[0] == '#') continue;
    if (std::find(entries.begin(), entries.end(), trimmed) != entries.end()) continue;
    entries.push_back(std::move(trimmed));
    if (entries.size() == kTunerMaximumPlaylistEntries) break;
  }
  return entries;
}

std::optional<BVURL> tunerResolveEntry(std::string_view entry, const BVURL& base) {
  auto url = BVURL::URLWithStringRelativeTo(entry, base);
  if (!url) {
    // Blanks and non-ASCII characters as written by hand; reserved
    // characters and existing escapes stay.
    std::string copy(entry);
    gchar* escaped = g_uri_escape_string(copy.c_str(), "!$&'()*+,;=:@/?#[]%~", FALSE);
    url = BVURL::URLWithStringRelativeTo(escaped, base);
    g_free(escaped);
  }
  // A one-letter scheme is a Windows drive ("C:\Music\..."), no address.
  if (!url || url->scheme().size() < 2) return std::nullopt;
  return url;
}

std::vector<std::string> tunerXSPFLocations(std::string_view text) {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
  std::vector<std::string> locations;
  if (text.size() > size_t(INT_MAX)) return locations;
  // The text is already UTF-8, whatever the declaration says. No network,
  // no DTD loading, entities left unexpanded.
  xmlDocPtr doc = xmlReadMemory(text.data(), int(text.size()), nullptr, "UTF-8",
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (!doc) return locations;
  xmlNodePtr root = xmlDocGetRootElement(doc);
  // Iterative walk; every <track>'s <location> children, in document order.
  for (xmlNodePtr node = root; node;) {
    if (isElement(node, "track")) {
      for (xmlNodePtr child = node->children; child; child = child->next)
        if (isElement(child, "location")) locations.push_back(elementText(child));
    }
    if (node->type == XML_ELEMENT_NODE && node->children && !isElement(node, "track")) {
      node = node->children;
      continue;
    }
    while (node && node != root && !node->next) node = node->parent;
    if (!node || node == root) break;
    node = node->next;
  }
  xmlFreeDoc(doc);
  return locations;
}

std::vector<std::string> tunerRestoreASXSpelling(const std::vector<std::string>& urls, std::string_view text) {
  std::string lowered = utf8Lower(text);
  // Positions carry over only when lower-casing kept every length.
  if (lowered.size() != text.size()) return urls;
  std::vector<std::string> restored;
  size_t from = 0;
  for (const std::string& url : urls) {
    std::string result = url;
    for (const std::string& written : {url, replaceAll(url, "&", "&amp;")}) {
      size_t pos = lowered.find(written, from);
      if (pos == std::string::npos) pos = lowered.find(written);
      if (pos == std::string::npos) continue;
      result = replaceAll(std::string(text.substr(pos, written.size())), "&amp;", "&");
      from = pos + written.size();
      break;
    }
    restored.push_back(std::move(result));
  }
  return restored;
}

}  // namespace belvane::detail
