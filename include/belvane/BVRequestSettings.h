// BVRequestSettings: how a player's requests go out: the User-Agent they
// name, extra header fields they carry and the proxy they pass through.
//
// A value is immutable and shared (BVRequestSettingsRef): a player hands the
// same object to every part that makes a request for its playback (the
// stream tuner, the station's connection, playlist downloads, the general
// engine's own connection and GStreamer's HTTP source for HLS), so a change
// is a new value made with one of the with...() calls, set on the player.
// Any thread may read a value; nothing in it ever changes.
//
// The default: Belvane's own user agent (BVRequestSettingsDefaultUserAgent),
// no extra header fields, and the proxy the environment names as libcurl
// reads it (http_proxy, https_proxy, all_proxy, no_proxy).
#pragma once

#include <belvane/BVExport.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

class BVRequestSettings;
using BVRequestSettingsRef = std::shared_ptr<const BVRequestSettings>;

// "Belvane/0.1": the User-Agent of requests without one of their own.
BV_EXPORT extern const char* const BVRequestSettingsDefaultUserAgent;

class BV_EXPORT BVRequestSettings {
 public:
  enum class Proxy {
    Environment,  // as the environment says (http_proxy, https_proxy, all_proxy, no_proxy)
    None,         // every request goes straight to its server, whatever the environment says
    URL,          // every request goes through proxyURL() (no_proxy does not apply)
  };
  using HeaderFields = std::vector<std::pair<std::string, std::string>>;

  // The shared default value.
  static BVRequestSettingsRef defaultSettings();

  // Copies with one thing changed. Input that cannot go into a request is
  // refused: nullptr comes back, the reason is logged (BVLog) and, when
  // `reason` is given, stored there; the receiver is unchanged either way.
  //
  // The User-Agent; empty restores the default. Refused when it holds a
  // line break or NUL.
  BVRequestSettingsRef withUserAgent(const std::string& userAgent, std::string* reason = nullptr) const;
  // An extra header field sent with every request; one of the same name
  // (in any case) is replaced. A "User-Agent" field sets the user agent.
  // Refused: a name that is empty or not an HTTP token ("Bad Name:"), a
  // value with a line break or NUL, and the fields Belvane writes itself
  // (Host, Content-Length, Transfer-Encoding, Connection, Range,
  // Icy-MetaData). Leading and trailing blanks of the value are dropped.
  BVRequestSettingsRef withHeader(const std::string& name, const std::string& value,
                                  std::string* reason = nullptr) const;
  // The same from one "Name: value" line.
  BVRequestSettingsRef withHeaderLine(const std::string& line, std::string* reason = nullptr) const;
  BVRequestSettingsRef withoutHeaders() const;
  // The proxy: Proxy::Environment, Proxy::None, or a proxy's URL
  // ("http://proxy.example:3128", "socks5h://127.0.0.1:1080"; a bare
  // "host:port" is an HTTP proxy). Refused: a URL that does not parse, has
  // no host or names a scheme other than http, https, socks4, socks4a,
  // socks5 or socks5h.
  BVRequestSettingsRef withProxy(Proxy proxy) const;
  BVRequestSettingsRef withProxyURL(const std::string& url, std::string* reason = nullptr) const;

  // What requests send: never empty.
  const std::string& userAgent() const { return userAgent_; }
  // In the order they were first added.
  const HeaderFields& headerFields() const { return headerFields_; }
  Proxy proxy() const { return proxy_; }
  // The proxy's URL as it will be used ("http://host:port"); empty unless
  // proxy() is Proxy::URL.
  const std::string& proxyURL() const { return proxyURL_; }

  bool operator==(const BVRequestSettings& other) const = default;

  BVRequestSettings();

 private:
  std::string userAgent_;
  HeaderFields headerFields_;
  Proxy proxy_ = Proxy::Environment;
  std::string proxyURL_;
};
