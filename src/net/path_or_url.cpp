// How what a person types (a command-line argument, a C host's string)
// becomes a URL: a file path (absolute or relative) becomes a file URL;
// anything else goes through the library's own rules for user-typed
// addresses.
#include <belvane/BVURLAdditions.h>

#include <optional>
#include <string>

#include <glib.h>

namespace {

// "name:" at the start, as in "http:" or "htp:", the way a URL begins.
bool hasScheme(const std::string& text) {
  auto colon = text.find(':');
  if (colon == std::string::npos || colon == 0 || !g_ascii_isalpha(text[0])) return false;
  for (size_t i = 1; i < colon; ++i) {
    char c = text[i];
    if (!g_ascii_isalnum(c) && c != '+' && c != '-' && c != '.') return false;
  }
  return true;
}

// Whether the argument names a local file rather than an address: it starts
// with '/', "./" or "../", or it has no scheme and something exists there.
bool looksLikeFilePath(const std::string& text) {
  if (text.empty()) return false;
  if (text[0] == '/' || text.rfind("./", 0) == 0 || text.rfind("../", 0) == 0 || text == "." || text == "..")
    return true;
  return !hasScheme(text) && g_file_test(text.c_str(), G_FILE_TEST_EXISTS);
}

std::optional<BVURL> fileURLForPath(const std::string& path) {
  gchar* absolute = g_canonicalize_filename(path.c_str(), nullptr);
  gchar* uri = g_filename_to_uri(absolute, nullptr, nullptr);
  g_free(absolute);
  if (!uri) return std::nullopt;
  auto url = BVURL::URLWithString(uri);
  g_free(uri);
  return url;
}

}  // namespace

std::optional<BVURL> bvURLFromArgument(std::string_view argument) {
  const std::string text(argument);
  if (looksLikeFilePath(text)) return fileURLForPath(text);
  auto url = bvURLFromString(text);
  // What the library leaves without a scheme ("song.mp3" that is not
  // there) can only be meant as a file.
  if (url && url->scheme().empty()) return fileURLForPath(text);
  return url;
}
