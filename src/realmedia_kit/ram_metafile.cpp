// Reading RAM metafiles.
#include "ram_metafile.h"

#include <glib.h>

#include <algorithm>
#include <cctype>
#include <sstream>
#include <string_view>

namespace belvane::detail {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return s;
}

std::string trimmed(const std::string& s) {
  size_t begin = 0, end = s.size();
  while (begin < end && std::isspace((unsigned char)s[begin])) ++begin;
  while (end > begin && std::isspace((unsigned char)s[end - 1])) --end;
  return s.substr(begin, end - begin);
}

// A line's URL made absolute against the metafile's URL.
std::string resolved(const std::string& line, const std::string& baseURL) {
  if (baseURL.empty() || g_uri_is_valid(line.c_str(), G_URI_FLAGS_NONE, nullptr)) return line;
  gchar* absolute = g_uri_resolve_relative(baseURL.c_str(), line.c_str(), G_URI_FLAGS_NONE, nullptr);
  if (!absolute) return line;
  std::string out = absolute;
  g_free(absolute);
  return out;
}

}  // namespace

bool isRamMetafileURL(const std::string& url) {
  std::string path = url.substr(0, url.find_first_of("?#"));
  size_t dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
  std::string extension = lower(path.substr(dot + 1));
  return extension == "ram" || extension == "rpm";
}

bool isRamMetafileType(const std::string& mimeType) {
  std::string type = lower(trimmed(mimeType.substr(0, mimeType.find(';'))));
  return type == "audio/x-pn-realaudio" || type == "audio/x-pn-realaudio-plugin";
}

bool looksLikeRealMedia(const char* data, size_t size) {
  std::string_view head(data, size);
  return head.rfind(".RMF", 0) == 0 || head.rfind(".ra\xfd", 0) == 0;
}

std::vector<std::string> parseRamMetafile(const std::string& text, const std::string& baseURL) {
  std::vector<std::string> urls;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    line = trimmed(line);
    if (line.empty() || line[0] == '#') continue;
    if (line == "--stop--") break;
    urls.push_back(resolved(line, baseURL));
  }
  return urls;
}

}  // namespace belvane::detail
