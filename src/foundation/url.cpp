// BVURL: URL values parsed with GLib's GUri, kept exactly as written.
#include <belvane/BVURL.h>

#include <glib.h>

#include <cstring>

struct BVURL::Parts {
  std::string scheme;  // as written; empty for a relative reference
  std::string host;
  int port = -1;
  std::string path;  // still percent-encoded
  std::string query;
  bool hasAuthority = false;
};

namespace {

bool isSchemeChar(char c, bool first) {
  if (g_ascii_isalpha(c)) return true;
  return !first && (g_ascii_isdigit(c) || c == '+' || c == '-' || c == '.');
}

// Characters a URL reference may hold as written (RFC 3986): unreserved,
// reserved and '%' escapes. Anything else (spaces, quotes, angle brackets,
// braces, control and non-ASCII bytes) refuses the string, as does a second
// '#'.
bool hasOnlyURLCharacters(std::string_view s) {
  static const char* const kAllowed =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-._~:/?#[]@!$&'()*+,;=%";
  int hashes = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == '\0' || !std::strchr(kAllowed, c)) return false;
    if (c == '#' && ++hashes > 1) return false;
    if (c == '%') {
      if (i + 2 >= s.size() || !g_ascii_isxdigit(s[i + 1]) || !g_ascii_isxdigit(s[i + 2])) return false;
    }
  }
  return true;
}

std::string writtenScheme(std::string_view s) {
  size_t i = 0;
  while (i < s.size() && isSchemeChar(s[i], i == 0)) ++i;
  if (i > 0 && i < s.size() && s[i] == ':') return std::string(s.substr(0, i));
  return {};
}

std::string take(char* s) {
  std::string out = s ? s : "";
  g_free(s);
  return out;
}

}  // namespace

BVURL::BVURL(std::string string, std::shared_ptr<const Parts> parts) : string_(std::move(string)), parts_(std::move(parts)) {}

std::optional<BVURL> BVURL::URLWithString(std::string_view string) {
  if (!hasOnlyURLCharacters(string)) return std::nullopt;
  std::string text(string);
  char *scheme = nullptr, *userinfo = nullptr, *host = nullptr, *path = nullptr, *query = nullptr, *fragment = nullptr;
  int port = -1;
  if (!g_uri_split(text.c_str(), GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), &scheme, &userinfo, &host, &port,
                   &path, &query, &fragment, nullptr))
    return std::nullopt;
  auto parts = std::make_shared<Parts>();
  g_free(scheme);
  g_free(userinfo);
  g_free(fragment);
  parts->scheme = writtenScheme(text);
  parts->hasAuthority = host != nullptr;
  parts->host = take(host);
  parts->port = port;
  parts->path = take(path);
  parts->query = take(query);
  return BVURL(std::move(text), std::move(parts));
}

std::optional<BVURL> BVURL::URLWithStringRelativeTo(std::string_view string, const BVURL& base) {
  if (!hasOnlyURLCharacters(string)) return std::nullopt;
  std::string text(string);
  char* resolved = g_uri_resolve_relative(base.string_.c_str(), text.c_str(),
                                          GUriFlags(G_URI_FLAGS_ENCODED | G_URI_FLAGS_NON_DNS), nullptr);
  if (!resolved) return std::nullopt;
  return URLWithString(take(resolved));
}

BVURL BVURL::fileURLWithPath(std::string_view path) {
  std::string p(path);
  char* escaped = g_uri_escape_string(p.c_str(), "/", FALSE);
  std::string text = "file://" + take(escaped);
  if (auto url = URLWithString(text)) return *url;
  auto parts = std::make_shared<Parts>();
  parts->scheme = "file";
  parts->path = p;
  parts->hasAuthority = true;
  return BVURL(text, std::move(parts));
}

std::string BVURL::scheme() const { return parts_->scheme; }

std::string BVURL::resourceSpecifier() const {
  if (parts_->scheme.empty()) return string_;
  return string_.substr(parts_->scheme.size() + 1);
}

std::string BVURL::host() const {
  char* unescaped = g_uri_unescape_string(parts_->host.c_str(), nullptr);
  return unescaped ? take(unescaped) : parts_->host;
}

int BVURL::port() const { return parts_->port; }

std::string BVURL::path() const {
  char* unescaped = g_uri_unescape_string(parts_->path.c_str(), nullptr);
  return unescaped ? take(unescaped) : parts_->path;
}

std::string BVURL::pathExtension() const {
  std::string p = path();
  while (p.size() > 1 && p.back() == '/') p.pop_back();
  auto slash = p.rfind('/');
  std::string last = slash == std::string::npos ? p : p.substr(slash + 1);
  auto dot = last.rfind('.');
  if (dot == std::string::npos) return {};
  return last.substr(dot + 1);
}

std::string BVURL::query() const { return parts_->query; }

bool BVURL::isFileURL() const { return g_ascii_strcasecmp(parts_->scheme.c_str(), "file") == 0; }

std::string BVURL::fileSystemPath() const { return isFileURL() ? path() : std::string(); }
