// The tolerant tag scanner behind the ASX reader, for text that is not
// well-formed XML. It collects the href values of <ref> tags inside
// <entry> ... </entry> and counts the closing entry tags that would insert
// the reader's one shared track.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace belvane::detail {

struct ASXScanResult {
  // Every reference URL found, in order (lower-cased, quirks kept).
  std::vector<std::string> urls;
  // How many "/entry" tags came when at least one URL had been found.
  size_t entryInsertions = 0;
};

ASXScanResult scanASXTags(std::string_view text);

}  // namespace belvane::detail
