// BVMediaLink: what the host hands to a player. A URL with an optional title,
// the media format describing the stream and the source telling where the
// link was found. The link also picks the engine that plays it and keeps the
// error of the last engine choice that failed.
//
// A link is immutable to its users and shared by copy(); BVMediaMutableLink
// adds setters (which store what they are given, without copying).
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBaseObject.h>
#include <belvane/BVError.h>
#include <belvane/BVMediaFormat.h>
#include <belvane/BVMediaLinkSource.h>
#include <belvane/BVURL.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace belvane {
class BVArchiveDecoder;
}

class BVBasePlayerEngine;
class BVMediaMutableLink;

class BV_EXPORT BVMediaLink : public BVBaseObject {
 public:
  // A link with the URL and the format inferred from it; no title, the empty source.
  static std::shared_ptr<BVMediaLink> linkWithURL(const BVURL& url);
  // The URL as given (may be absent); the title trimmed of white space and
  // line ends, kept only when something remains; an immutable copy of the
  // format (the empty format when none) and of the source (the empty source
  // when none).
  static std::shared_ptr<BVMediaLink> create(const std::optional<BVURL>& url, const std::optional<std::string>& title,
                                             const std::shared_ptr<BVMediaFormat>& format,
                                             const std::shared_ptr<BVMediaLinkSource>& source);
  // A link read from its property-list dictionary. Missing "format" or
  // "source" entries leave those fields empty (nullptr).
  static std::shared_ptr<BVMediaLink> createWithPlistRepresentation(const BVDictionary& plist);
  // nullptr when the items are not what encodeWithCoder writes.
  static std::shared_ptr<BVMediaLink> createWithCoder(belvane::BVArchiveDecoder& coder);

  // The URL, or "http://" when the link has none (never absent).
  BVURL url() const;
  const std::optional<std::string>& title() const { return title_; }
  // nullptr only for a link read from a property list or archive without one.
  const std::shared_ptr<BVMediaFormat>& format() const { return format_; }
  const std::shared_ptr<BVMediaLinkSource>& source() const { return source_; }
  const BVErrorRef& lastError() const { return lastError_; }
  // Linux addition: the character set the station's titles (its ICY stream
  // titles) are read in, by a name iconv knows ("WINDOWS-1251", "KOI8-R",
  // "SHIFT_JIS", ...), for a station whose titles detection reads wrongly;
  // nothing (the default): valid UTF-8 is kept and anything else detected.
  // Bytes that are not valid in the named set are detected as usual. Every
  // engine that reads the link's titles honours it; it is copied with the
  // link and kept in its property list ("titleEncoding"), not in archives.
  const std::optional<std::string>& titleEncoding() const { return titleEncoding_; }
  // Whether iconv knows the character set name (for checking a host's
  // choice before it goes on a link).
  static bool isUsableTitleEncoding(const std::string& name);

  // True when the format has a RadioTime media type.
  bool isRadioTimeMediaLink() const;
  // The same object, or links whose url() results are equal (so two links
  // without URLs are equal). False for nullptr.
  bool isEqualToLink(const std::shared_ptr<const BVMediaLink>& link) const;

  // ---- Engine choice --------------------------------------------------
  // Defined with the engines (src/model/media_link_engine_choice.cpp).
  // The engine center's preferred engines for this link's format, passed to
  // defaultEngineFromEngines.
  std::shared_ptr<BVBasePlayerEngine> defaultEngine();
  // The first available engine of the list; for an empty list, QuickTime
  // when a HEAD request finds the URL reachable and QuickTime accepts the
  // link. Leaves the reason in lastError() when the fallback fails.
  std::shared_ptr<BVBasePlayerEngine> defaultEngineFromEngines(
      const std::vector<std::shared_ptr<BVBasePlayerEngine>>& engines);
  // ----------------------------------------------------------------------

  // The receiver when immutable, else a new immutable link.
  std::shared_ptr<BVMediaLink> copy() const;
  std::shared_ptr<BVMediaMutableLink> mutableCopy() const;

  // BVObject
  std::string className() const override { return "BVMediaLink"; }
  // "<Class: URL, 'title', format, source>" with the URL field as stored.
  std::string description() const override;
  bool supportsCoding() const override { return true; }
  // URL (absolute string or absent), title, format, source; no last error.
  void encodeWithCoder(belvane::BVArchiveEncoder& coder) const override;

  // BVBaseObject: persistent "title" and "titleEncoding"; "format", "source" (nested
  // dictionaries) and "URL" (absolute string) are added by hand.
  std::vector<std::string> persistentKeys() const override;
  BVValue valueForKey(std::string_view key) const override;
  void setValueForKey(std::string_view key, const BVValue& value) override;
  BVDictionary plistRepresentation() const override;

 protected:
  BVMediaLink() = default;
  void initWithPlistRepresentation(const BVDictionary& plist) override;
  template <class T>
  static std::shared_ptr<T> make(const std::optional<BVURL>& url, const std::optional<std::string>& title,
                                 const std::shared_ptr<BVMediaFormat>& format,
                                 const std::shared_ptr<BVMediaLinkSource>& source);
  template <class T>
  static std::shared_ptr<T> fromCoder(belvane::BVArchiveDecoder& coder);
  // URL through url() (so "http://" when none), title, format, source and
  // title encoding copied; the last error is not.
  void _basicCopyTo(BVMediaLink& target) const;
  void _setLastError(BVErrorRef error) { lastError_ = std::move(error); }

  std::optional<BVURL> url_;
  std::optional<std::string> title_;
  std::shared_ptr<BVMediaFormat> format_;
  std::shared_ptr<BVMediaLinkSource> source_;
  BVErrorRef lastError_;
  std::optional<std::string> titleEncoding_;
};

class BV_EXPORT BVMediaMutableLink : public BVMediaLink {
 public:
  static std::shared_ptr<BVMediaMutableLink> linkWithURL(const BVURL& url);
  static std::shared_ptr<BVMediaMutableLink> create(const std::optional<BVURL>& url,
                                                    const std::optional<std::string>& title,
                                                    const std::shared_ptr<BVMediaFormat>& format,
                                                    const std::shared_ptr<BVMediaLinkSource>& source);
  static std::shared_ptr<BVMediaMutableLink> createWithPlistRepresentation(const BVDictionary& plist);
  static std::shared_ptr<BVMediaMutableLink> createWithCoder(belvane::BVArchiveDecoder& coder);

  // Store what is given: no copying, trimming or normalisation.
  void setURL(const std::optional<BVURL>& url) { url_ = url; }
  void setTitle(const std::optional<std::string>& title) { title_ = title; }
  void setFormat(std::shared_ptr<BVMediaFormat> format) { format_ = std::move(format); }
  void setSource(std::shared_ptr<BVMediaLinkSource> source) { source_ = std::move(source); }
  // Empty text counts as nothing.
  void setTitleEncoding(const std::optional<std::string>& name) {
    titleEncoding_ = name && !name->empty() ? name : std::nullopt;
  }

  std::string className() const override { return "BVMediaMutableLink"; }

 protected:
  BVMediaMutableLink() = default;
  friend class BVMediaLink;
};

using BVMediaLinkRef = std::shared_ptr<BVMediaLink>;
