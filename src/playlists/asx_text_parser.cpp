// The ASX parser: Windows Media metafiles read as lower-cased XML through
// libxml2, with the tag scanner as the fallback for malformed files.
#include "playlists/asx_fallback_scanner.h"
#include "playlists/asx_xml_document.h"
#include "playlists/parser_helpers.h"
#include "playlists/playlist_format_parsers.h"

namespace belvane::detail {

namespace {

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
  std::string lower = utf8Lower(reinterpret_cast<const char*>(node->name));
  xmlNodeSetName(node, reinterpret_cast<const xmlChar*>(lower.c_str()));
}

void note(std::vector<std::string>* diagnostics, std::string message) {
  if (diagnostics) diagnostics->push_back(std::move(message));
}

// The text of an entry's own <title>, spelt as the file spells it: the
// document was read lower-cased, so the same text is looked up in the
// original (where lower-casing kept every length); lower-case when it is
// not found there (written with entities, say). Nothing without a title.
std::optional<std::string> entryTitle(xmlNodePtr entry, std::string_view original, std::string_view lowered) {
  for (xmlNodePtr child = entry->children; child; child = child->next) {
    if (child->type != XML_ELEMENT_NODE || !xmlStrEqual(child->name, BAD_CAST "title")) continue;
    xmlChar* content = xmlNodeGetContent(child);
    if (!content) return std::nullopt;
    std::string title(trimmedView(reinterpret_cast<const char*>(content)));
    xmlFree(content);
    if (title.empty()) return std::nullopt;
    if (lowered.size() == original.size())
      if (size_t at = lowered.find(title); at != std::string_view::npos) title = original.substr(at, title.size());
    return title;
  }
  return std::nullopt;
}

}  // namespace

void lowercaseXMLNodeNames(_xmlNode* node) {
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

void parseASXTextWithTagScanner(std::string_view text, const PlaylistTrackSink& sink) {
  ASXScanResult scan = scanASXTags(text);
  if (scan.entryInsertions == 0) return;
  // One track for the whole text: every insertion is the same track, holding
  // the first URL and, since the URL list is never reset, all of them.
  PlaylistTrack track{.url = scan.urls.front(), .alternateURLs = std::move(scan.urls)};
  track.occurrences = scan.entryInsertions;
  sink(std::move(track));
}

void parseASXText(std::string_view text, const PlaylistTrackSink& sink, std::vector<std::string>* diagnostics) {
  if (text.empty()) return;
  if (text.substr(0, 5) == "http:") {
    // A bare URL instead of a metafile.
    sink(PlaylistTrack{.url = std::string(trimmedView(text))});
    return;
  }

  // Lower-cased so that element and attribute names match in any case; the
  // URLs read from the document come out lower-case too.
  const std::string lowered = utf8Lower(text);
  ASXXMLDocument document(lowered);
  if (!document.parsed()) {
    parseASXTextWithTagScanner(text, sink);
    return;
  }
  lowercaseXMLNodeNames(document.root());
  if (auto error = document.recoverableError()) note(diagnostics, "asx document error: " + *error);

  std::string xpathError;
  auto entries = document.evaluate(".//entry", document.root(), &xpathError);
  if (!entries) {
    note(diagnostics, "xpath error: " + xpathError);
    parseASXTextWithTagScanner(text, sink);
    return;
  }
  size_t urlCount = 0;
  for (size_t index = 0; index < entries->size(); ++index) {
    if (urlCount > kMaxReferenceURLs) {
      note(diagnostics, "asx document: stopped after " + std::to_string(urlCount) + " reference URLs");
      break;
    }
    auto refs = document.evaluate(".//ref", (*entries)[index], &xpathError);
    if (!refs) {
      note(diagnostics, "xpath error: " + xpathError);
      continue;
    }
    PlaylistTrack track;
    for (xmlNodePtr ref : *refs) {
      if (auto href = ASXXMLDocument::attribute(ref, "href")) track.alternateURLs.push_back(std::move(*href));
    }
    if (track.alternateURLs.empty()) continue;  // an entry without references
    urlCount += track.alternateURLs.size();
    track.url = track.alternateURLs.front();
    track.title = entryTitle((*entries)[index], text, lowered);
    track.number = int64_t(index);
    sink(std::move(track));
  }
}

}  // namespace belvane::detail
