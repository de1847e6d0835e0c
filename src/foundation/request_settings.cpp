// BVRequestSettings: the checks that keep a request well-formed, and the
// copies with one thing changed.
#include <belvane/BVKitOwner.h>
#include <belvane/BVRequestSettings.h>

#include <glib.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "foundation/text_encoding.h"

const char* const BVRequestSettingsDefaultUserAgent = "Belvane/0.1";

namespace {

// The reason, logged and handed back; always nullptr for the caller to return.
BVRequestSettingsRef refuse(const std::string& why, std::string* reason) {
  BVLogString("Request settings refused: " + why);
  if (reason) *reason = why;
  return nullptr;
}

bool hasLineBreakOrNul(std::string_view text) { return text.find_first_of(std::string_view("\r\n\0", 3)) != text.npos; }

// An HTTP token (RFC 9110's tchar): what a field name may be made of.
bool isToken(std::string_view text) {
  if (text.empty()) return false;
  return std::all_of(text.begin(), text.end(), [](unsigned char c) {
    return g_ascii_isalnum(c) || std::string_view("!#$%&'*+-.^_`|~").find(char(c)) != std::string_view::npos;
  });
}

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

// Fields the connections write themselves: a second one would make the
// request ambiguous or break the stream's framing.
bool isManagedField(std::string_view name) {
  static constexpr std::array<std::string_view, 6> managed{"Host",       "Content-Length", "Transfer-Encoding",
                                                           "Connection", "Range",          "Icy-MetaData"};
  return std::any_of(managed.begin(), managed.end(), [&](std::string_view m) { return sameName(m, name); });
}

std::string trimmedBlanks(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == text.npos) return {};
  size_t end = text.find_last_not_of(" \t");
  return std::string(text.substr(begin, end - begin + 1));
}

// The proxy's URL in full ("http://host:port"), or nothing when it does not
// name a proxy libcurl can use.
std::optional<std::string> normalisedProxyURL(const std::string& text, std::string* why) {
  std::string candidate = text.find("://") == std::string::npos ? "http://" + text : text;
  GError* error = nullptr;
  GUri* uri = g_uri_parse(candidate.c_str(), G_URI_FLAGS_NONE, &error);
  if (!uri) {
    *why = "the proxy '" + text + "' is not a URL (" + (error ? error->message : "unreadable") + ")";
    if (error) g_error_free(error);
    return std::nullopt;
  }
  std::string scheme = belvane::detail::asciiLower(g_uri_get_scheme(uri));
  const char* host = g_uri_get_host(uri);
  bool hasHost = host && *host;
  g_uri_unref(uri);
  static constexpr std::array<std::string_view, 6> schemes{"http", "https", "socks4", "socks4a", "socks5", "socks5h"};
  if (std::find(schemes.begin(), schemes.end(), scheme) == schemes.end()) {
    *why = "the proxy '" + text + "' has a scheme no proxy uses ('" + scheme + "')";
    return std::nullopt;
  }
  if (!hasHost) {
    *why = "the proxy '" + text + "' names no host";
    return std::nullopt;
  }
  return candidate;
}

}  // namespace

BVRequestSettings::BVRequestSettings() : userAgent_(BVRequestSettingsDefaultUserAgent) {}

BVRequestSettingsRef BVRequestSettings::defaultSettings() {
  static const BVRequestSettingsRef settings = std::make_shared<const BVRequestSettings>();
  return settings;
}

BVRequestSettingsRef BVRequestSettings::withUserAgent(const std::string& userAgent, std::string* reason) const {
  if (hasLineBreakOrNul(userAgent)) return refuse("a user agent may not hold a line break", reason);
  auto copy = std::make_shared<BVRequestSettings>(*this);
  copy->userAgent_ = userAgent.empty() ? std::string(BVRequestSettingsDefaultUserAgent) : userAgent;
  return copy;
}

BVRequestSettingsRef BVRequestSettings::withHeader(const std::string& name, const std::string& value,
                                                   std::string* reason) const {
  if (!isToken(name)) return refuse("'" + name + "' is no header field name", reason);
  if (hasLineBreakOrNul(value)) return refuse("the value of " + name + " may not hold a line break", reason);
  if (isManagedField(name)) return refuse(name + " is a header field Belvane writes itself", reason);
  std::string trimmed = trimmedBlanks(value);
  if (sameName(name, "User-Agent")) return withUserAgent(trimmed, reason);
  auto copy = std::make_shared<BVRequestSettings>(*this);
  auto& fields = copy->headerFields_;
  auto same =
      std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return sameName(field.first, name); });
  if (same != fields.end())
    *same = {name, std::move(trimmed)};
  else
    fields.emplace_back(name, std::move(trimmed));
  return copy;
}

BVRequestSettingsRef BVRequestSettings::withHeaderLine(const std::string& line, std::string* reason) const {
  size_t colon = line.find(':');
  if (colon == std::string::npos) return refuse("'" + line + "' is not a 'Name: value' header line", reason);
  return withHeader(line.substr(0, colon), line.substr(colon + 1), reason);
}

BVRequestSettingsRef BVRequestSettings::withoutHeaders() const {
  auto copy = std::make_shared<BVRequestSettings>(*this);
  copy->headerFields_.clear();
  return copy;
}

BVRequestSettingsRef BVRequestSettings::withProxy(Proxy proxy) const {
  auto copy = std::make_shared<BVRequestSettings>(*this);
  // A URL needs one: asked for without it, the environment's proxy stays.
  copy->proxy_ = proxy == Proxy::URL ? Proxy::Environment : proxy;
  copy->proxyURL_.clear();
  return copy;
}

BVRequestSettingsRef BVRequestSettings::withProxyURL(const std::string& url, std::string* reason) const {
  std::string why;
  auto normalised = normalisedProxyURL(url, &why);
  if (!normalised) return refuse(why, reason);
  auto copy = std::make_shared<BVRequestSettings>(*this);
  copy->proxy_ = Proxy::URL;
  copy->proxyURL_ = std::move(*normalised);
  return copy;
}
