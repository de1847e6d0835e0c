// BVMediaLinkSource: where a media link was found. A four-character kind code
// (assigned by the host; "????" for unknown), the page and base URLs, a URL
// concerning the playing engine, and the HTML of the element that held the
// link. Immutable and shared by copy(); BVMediaMutableLinkSource adds setters.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVBaseObject.h>
#include <belvane/BVURL.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace belvane {
class BVArchiveDecoder;
}

class BVMediaMutableLinkSource;

class BV_EXPORT BVMediaLinkSource : public BVBaseObject {
 public:
  // The kind of the empty source, "????".
  static constexpr uint32_t kUnknownKind = 0x3F3F3F3F;

  // Kind "????", nothing else.
  static std::shared_ptr<BVMediaLinkSource> emptySource();
  static std::shared_ptr<BVMediaLinkSource> linkSourceWithKind(uint32_t kind, const std::optional<BVURL>& pageURL,
                                                               const std::optional<BVURL>& baseURL,
                                                               const std::optional<BVURL>& engineURL,
                                                               const std::optional<std::string>& elementHTML);
  // Same as linkSourceWithKind.
  static std::shared_ptr<BVMediaLinkSource> create(uint32_t kind, const std::optional<BVURL>& pageURL,
                                                   const std::optional<BVURL>& baseURL,
                                                   const std::optional<BVURL>& engineURL,
                                                   const std::optional<std::string>& elementHTML);
  static std::shared_ptr<BVMediaLinkSource> createWithPlistRepresentation(const BVDictionary& plist);
  // nullptr when the items are not what encodeWithCoder writes.
  static std::shared_ptr<BVMediaLinkSource> createWithCoder(belvane::BVArchiveDecoder& coder);

  uint32_t kind() const { return kind_; }
  const std::optional<BVURL>& pageURL() const { return pageURL_; }
  const std::optional<BVURL>& baseURL() const { return baseURL_; }
  const std::optional<BVURL>& engineURL() const { return engineURL_; }
  const std::optional<std::string>& elementHTML() const { return elementHTML_; }

  // The receiver when immutable, else a new immutable source.
  std::shared_ptr<BVMediaLinkSource> copy() const;
  std::shared_ptr<BVMediaMutableLinkSource> mutableCopy() const;

  // BVObject
  std::string className() const override { return "BVMediaLinkSource"; }
  // "<Class: 'kind'>" with the kind's four characters.
  std::string description() const override;
  bool supportsCoding() const override { return true; }
  // Kind (as a signed 32-bit number), page URL, base URL, engine URL
  // (absolute strings or absent), element HTML.
  void encodeWithCoder(belvane::BVArchiveEncoder& coder) const override;

  // BVBaseObject: persistent "elementHTML"; "kind" (always written as an
  // unsigned number) and the URLs (absolute strings) are added by hand.
  std::vector<std::string> persistentKeys() const override;
  BVValue valueForKey(std::string_view key) const override;
  void setValueForKey(std::string_view key, const BVValue& value) override;
  BVDictionary plistRepresentation() const override;

 protected:
  BVMediaLinkSource() = default;
  void initWithPlistRepresentation(const BVDictionary& plist) override;
  template <class T>
  static std::shared_ptr<T> make(uint32_t kind, const std::optional<BVURL>& pageURL, const std::optional<BVURL>& baseURL,
                                 const std::optional<BVURL>& engineURL, const std::optional<std::string>& elementHTML);
  template <class T>
  static std::shared_ptr<T> fromCoder(belvane::BVArchiveDecoder& coder);
  // Kind copied, URLs and HTML shared.
  void _basicCopyTo(BVMediaLinkSource& target) const;

  uint32_t kind_ = kUnknownKind;
  std::optional<BVURL> pageURL_;
  std::optional<BVURL> baseURL_;
  std::optional<BVURL> engineURL_;
  std::optional<std::string> elementHTML_;
};

class BV_EXPORT BVMediaMutableLinkSource : public BVMediaLinkSource {
 public:
  static std::shared_ptr<BVMediaMutableLinkSource> emptySource();
  static std::shared_ptr<BVMediaMutableLinkSource> linkSourceWithKind(uint32_t kind, const std::optional<BVURL>& pageURL,
                                                                      const std::optional<BVURL>& baseURL,
                                                                      const std::optional<BVURL>& engineURL,
                                                                      const std::optional<std::string>& elementHTML);
  static std::shared_ptr<BVMediaMutableLinkSource> create(uint32_t kind, const std::optional<BVURL>& pageURL,
                                                          const std::optional<BVURL>& baseURL,
                                                          const std::optional<BVURL>& engineURL,
                                                          const std::optional<std::string>& elementHTML);
  static std::shared_ptr<BVMediaMutableLinkSource> createWithPlistRepresentation(const BVDictionary& plist);
  static std::shared_ptr<BVMediaMutableLinkSource> createWithCoder(belvane::BVArchiveDecoder& coder);

  void setKind(uint32_t kind) { kind_ = kind; }
  void setPageURL(const std::optional<BVURL>& url) { pageURL_ = url; }
  void setBaseURL(const std::optional<BVURL>& url) { baseURL_ = url; }
  void setEngineURL(const std::optional<BVURL>& url) { engineURL_ = url; }
  void setElementHTML(const std::optional<std::string>& html) { elementHTML_ = html; }

  std::string className() const override { return "BVMediaMutableLinkSource"; }

 protected:
  BVMediaMutableLinkSource() = default;
  friend class BVMediaLinkSource;
};

using BVMediaLinkSourceRef = std::shared_ptr<BVMediaLinkSource>;
