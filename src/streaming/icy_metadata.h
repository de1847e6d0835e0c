// The Shoutcast/ICY side of a stream: the reply head that Shoutcast servers
// send instead of an HTTP one ("ICY 200 OK"), the demultiplexer that takes
// the interleaved metadata blocks out of the audio (every icy-metaint audio
// bytes: one length byte counting 16-byte units, then that many bytes of
// "StreamTitle='...';" text; a block that does not start like that is taken
// as audio after a length byte without a body), and the StreamTitle and
// StreamUrl readers.
#pragma once

#include <belvane/BVValue.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace belvane::detail {

// A reply's status and header fields (names lower-cased; the first of a
// repeated name is kept).
struct StreamReplyHead {
  int status = 0;
  std::string reason;
  std::map<std::string, std::string> fields;

  const std::string* field(std::string_view lowerCaseName) const;
  void addField(std::string_view name, std::string_view value);
};

// Reads an "ICY <code> <reason>" status line and header block from the
// start of a reply that libcurl passed through as body bytes.
class IcyReplyParser {
 public:
  enum class Result {
    NeedMore,   // the head is not complete yet
    Head,       // head() is filled; consumed() bytes of the input were head
    NotIcy,     // the reply does not start with "ICY": all bytes are payload
    Malformed,  // an oversized or unreadable head
  };
  static constexpr size_t kMaxHeadBytes = 16 * 1024;

  // Feed bytes until the result is not NeedMore. The bytes fed are kept, so
  // after Head the payload is pending().
  Result feed(std::span<const uint8_t> bytes);
  const StreamReplyHead& head() const { return head_; }
  // What followed the head (or everything, after NotIcy).
  std::span<const uint8_t> pending() const;

 private:
  std::string buffer_;
  size_t headBytes_ = 0;
  StreamReplyHead head_;
};

// Parses a status line such as "ICY 200 OK" or "HTTP/1.1 404 Not Found".
bool parseStatusLine(std::string_view line, int& status, std::string& reason);

// Splits audio from metadata blocks. Offsets count audio bytes only, from
// the start of the connection.
class IcyDemuxer {
 public:
  class Handler {
   public:
    virtual ~Handler() = default;
    // Audio bytes starting at audio byte offset `offset`. Returning false
    // stops feed() at once.
    virtual bool audio(std::span<const uint8_t> bytes, uint64_t offset) = 0;
    // A non-empty metadata block found after `audioOffset` audio bytes.
    virtual void metadata(std::span<const uint8_t> block, uint64_t audioOffset) = 0;
  };

  // metaint 0: the stream has no metadata; every byte is audio.
  explicit IcyDemuxer(uint32_t metaint) : metaint_(metaint), untilMeta_(metaint) {}
  // False when the handler stopped it.
  bool feed(std::span<const uint8_t> bytes, Handler& handler);
  uint64_t audioBytes() const { return audioBytes_; }

 private:
  uint32_t metaint_;
  uint64_t audioBytes_ = 0;
  uint32_t untilMeta_;
  size_t metaLength_ = 0;  // the block being read; 0 while in audio
  size_t metaFill_ = 0;
  bool metaChecked_ = false;  // the block's first bytes were seen to read as metadata
  bool readingLength_ = false;
  uint8_t meta_[255 * 16];
};

// What a station's reply head announces of it, as player attributes (the
// BVPlayerAttributeStation... keys): icy-name, icy-genre, icy-url, and the
// bit rate from icy-br or Icecast's ice-audio-info ("bitrate=96;...").
// Text in whatever character set the server used comes out as UTF-8.
BVDictionary stationFactsFromHead(const StreamReplyHead& head);

// The title of a metadata block: the raw bytes between "StreamTitle='" and
// its closing "';", or nothing when the block has no StreamTitle.
std::optional<std::string> streamTitleFromMetadata(std::span<const uint8_t> block);
// The address a metadata block gives with its title (StreamUrl='...';, where
// many stations put the cover of the song), as sent; nothing when the block
// has none or an empty one.
std::optional<std::string> streamURLFromMetadata(std::span<const uint8_t> block);

}  // namespace belvane::detail
