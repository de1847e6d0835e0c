// BVURL: a URL value parsed with GLib's GUri, kept exactly as written.
//
// A BVURL may be absolute (with a scheme) or a relative reference. Its
// absolute string is the text it was made from (or the resolved text for a
// URL made relative to a base); nothing is normalised. Copies are cheap.
//
// A value type; any thread (copies share their parsed parts, which never
// change).
#pragma once

#include <belvane/BVExport.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

class BV_EXPORT BVURL {
 public:
  // Parses the string as it stands (no trimming, escaping or default scheme).
  // Refuses strings that are no URL reference: characters outside the URL
  // alphabet, bad percent escapes, a malformed authority.
  static std::optional<BVURL> URLWithString(std::string_view string);
  // Resolves string against base (RFC 3986); nothing when either part is refused.
  static std::optional<BVURL> URLWithStringRelativeTo(std::string_view string, const BVURL& base);
  // A file URL for an absolute path ("file:///path", escaped as needed).
  static BVURL fileURLWithPath(std::string_view path);

  const std::string& absoluteString() const { return string_; }
  // The scheme as written, or empty for a relative reference.
  std::string scheme() const;
  // Everything after the scheme's colon (the whole string when there is no scheme).
  std::string resourceSpecifier() const;
  std::string host() const;
  int port() const;  // -1 when none is written
  // The percent-decoded path.
  std::string path() const;
  // The text after the last dot of the path's last component ("" when none).
  std::string pathExtension() const;
  std::string query() const;
  bool isFileURL() const;
  // The local path of a file URL (percent-decoded), empty otherwise.
  std::string fileSystemPath() const;

  bool operator==(const BVURL& other) const { return string_ == other.string_; }
  bool operator!=(const BVURL& other) const { return string_ != other.string_; }

 private:
  struct Parts;
  explicit BVURL(std::string string, std::shared_ptr<const Parts> parts);
  std::string string_;
  std::shared_ptr<const Parts> parts_;
};

using BVOptionalURL = std::optional<BVURL>;
