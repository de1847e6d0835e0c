// The XSPF parser: every <track>'s <location> elements, read with libxml2
// (no network, no DTD loading, entities left unexpanded).
#include "playlists/playlist_format_parsers.h"

#include <libxml/parser.h>
#include <libxml/tree.h>

#include <climits>
#include <mutex>

namespace belvane::detail {

namespace {

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

// A track's locations (in order, as written) and its title.
PlaylistTrack readTrack(xmlNodePtr element) {
  PlaylistTrack track;
  for (xmlNodePtr child = element->children; child; child = child->next) {
    if (isElement(child, "location"))
      track.alternateURLs.push_back(elementText(child));
    else if (isElement(child, "title") && !track.title)
      track.title = elementText(child);
  }
  if (!track.alternateURLs.empty()) track.url = track.alternateURLs.front();
  return track;
}

}  // namespace

void parseXSPFText(std::string_view text, const PlaylistTrackSink& sink) {
  static std::once_flag once;
  std::call_once(once, [] { xmlInitParser(); });
  if (text.size() > size_t(INT_MAX)) return;
  // The text is already UTF-8, whatever the declaration says.
  xmlDocPtr doc = xmlReadMemory(text.data(), int(text.size()), nullptr, "UTF-8",
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (!doc) return;
  xmlNodePtr root = xmlDocGetRootElement(doc);
  int64_t number = 0;
  // Iterative walk over the elements, in document order; a <track> is not
  // entered.
  for (xmlNodePtr node = root; node;) {
    if (isElement(node, "track")) {
      PlaylistTrack track = readTrack(node);
      if (track.url) {
        track.number = number++;
        sink(std::move(track));
      }
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
}

}  // namespace belvane::detail
