// OggPageSplitter: an Ogg station's bytes in, its pages out whole, each with
// the samples it completes. A chained stream (Icecast's Ogg mounts start a
// new chain, with fresh headers, for each song) is followed chain by chain:
// the pages of a chain's codec headers are held until the headers are
// complete and then come out together, the first marked as the chain's
// start, so that the chain's title (from its comment header) is known when
// its first page is seen, and a recording cut inside the chain can begin
// its file with the chain's headers. Vorbis and Opus are understood; other
// codecs' pages come out without samples. libogg finds, checks and
// reassembles the pages; TagLib reads the comment header.
//
// Plain data: one thread feeds it.
#pragma once

#include <ogg/ogg.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace belvane::detail {

struct OggPage {
  std::span<const uint8_t> bytes;  // header and body, as sent
  uint64_t streamOffset = 0;       // the first byte's place among all bytes fed
  uint32_t samples = 0;            // per channel, completed by this page
  uint32_t sampleRate = 0;
  bool chainStart = false;         // the first page of a chain
  bool header = false;             // a page of the chain's codec headers
};

class OggPageSplitter {
 public:
  using PageHandler = std::function<void(const OggPage&)>;

  OggPageSplitter();
  ~OggPageSplitter();
  OggPageSplitter(const OggPageSplitter&) = delete;
  OggPageSplitter& operator=(const OggPageSplitter&) = delete;

  // Bytes in order, starting at stream offset `offset` the first time;
  // every whole page goes to onPage before feed returns.
  void feed(std::span<const uint8_t> bytes, const PageHandler& onPage);
  // The stream broke off: pages are dropped until the next chain starts (a
  // server sends a new listener the current chain's headers first).
  void restart();
  uint64_t bytesFed() const { return fed_; }
  // Inside a chain whose header pages have all been handed on: the bytes
  // of the next page fed so far; nullopt otherwise.
  std::optional<size_t> partialPageBytes() const {
    return inChain_ && pendingHeaders_.empty() ? std::optional<size_t>(fed_ - consumed_) : std::nullopt;
  }

  // The current chain: its title ("Artist - Title" from the comment header's
  // ARTIST and TITLE, or TITLE alone; empty when it names none), its header
  // pages as sent, and the file extension its codec is known by.
  const std::string& chainTitle() const { return chainTitle_; }
  std::span<const uint8_t> chainHeaders() const { return chainHeaders_; }
  const char* extension() const { return opus_ ? ".opus" : ".ogg"; }

 private:
  void page(const ogg_page& page, uint64_t offset, const PageHandler& onPage);
  void startChain(const ogg_page& page);
  void headerPacket(const ogg_packet& packet);
  void endStream();

  ogg_sync_state sync_{};
  ogg_stream_state stream_{};
  bool streamOpen_ = false;
  uint64_t fed_ = 0;
  uint64_t consumed_ = 0;  // offset of the next byte ogg_sync looks at

  bool inChain_ = false;
  int serial_ = 0;
  bool opus_ = false;
  int headerPacketsNeeded_ = 0;
  int headerPacketsSeen_ = 0;
  uint32_t sampleRate_ = 0;
  int64_t lastGranule_ = 0;
  std::string chainTitle_;
  std::string pendingTitle_;
  std::vector<uint8_t> chainHeaders_;   // the complete chain's header pages
  std::vector<uint8_t> pendingHeaders_;  // a new chain's header pages so far
  uint64_t pendingOffset_ = 0;
};

}  // namespace belvane::detail
