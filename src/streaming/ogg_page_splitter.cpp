// OggPageSplitter: whole Ogg pages, chain by chain.
#include "streaming/ogg_page_splitter.h"

#include <taglib/tbytevector.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace belvane::detail {

namespace {

// More audio than any one page holds (a page carries at most 64 KiB).
constexpr int64_t kMostSecondsInAPage = 5;

// Header pages held for a chain before they are given up on as headers
// (comment headers with pictures can be large).
constexpr size_t kMaxHeaderBytes = 1024 * 1024;

bool startsWith(const ogg_packet& packet, const char* prefix, size_t length) {
  return size_t(packet.bytes) >= length && std::memcmp(packet.packet, prefix, length) == 0;
}

uint32_t littleEndian32(const unsigned char* p) {
  return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

}  // namespace

OggPageSplitter::OggPageSplitter() { ogg_sync_init(&sync_); }

OggPageSplitter::~OggPageSplitter() {
  endStream();
  ogg_sync_clear(&sync_);
}

void OggPageSplitter::endStream() {
  if (streamOpen_) ogg_stream_clear(&stream_);
  streamOpen_ = false;
}

void OggPageSplitter::feed(std::span<const uint8_t> bytes, const PageHandler& onPage) {
  fed_ += bytes.size();
  if (!bytes.empty()) {
    char* buffer = ogg_sync_buffer(&sync_, long(bytes.size()));
    if (!buffer) return;
    std::memcpy(buffer, bytes.data(), bytes.size());
    ogg_sync_wrote(&sync_, long(bytes.size()));
  }
  ogg_page page;
  for (;;) {
    long n = ogg_sync_pageseek(&sync_, &page);
    if (n == 0) break;  // more bytes needed
    if (n < 0) {        // bytes that start no page (or a page whose checksum failed) are skipped
      consumed_ += uint64_t(-n);
      continue;
    }
    this->page(page, consumed_, onPage);
    consumed_ += uint64_t(n);
  }
}

void OggPageSplitter::restart() {
  ogg_sync_reset(&sync_);
  consumed_ = fed_;
  endStream();
  inChain_ = false;
  headerPacketsNeeded_ = headerPacketsSeen_ = 0;
  pendingHeaders_.clear();
}

void OggPageSplitter::startChain(const ogg_page& page) {
  endStream();
  ogg_stream_init(&stream_, ogg_page_serialno(&page));
  streamOpen_ = true;
  serial_ = ogg_page_serialno(&page);
  inChain_ = true;
  opus_ = false;
  headerPacketsNeeded_ = 1;  // until the first packet names the codec
  headerPacketsSeen_ = 0;
  sampleRate_ = 0;
  lastGranule_ = 0;
  pendingTitle_.clear();
  pendingHeaders_.clear();
}

void OggPageSplitter::headerPacket(const ogg_packet& packet) {
  ++headerPacketsSeen_;
  if (headerPacketsSeen_ == 1) {
    if (startsWith(packet, "\x01vorbis", 7) && packet.bytes >= 16) {
      headerPacketsNeeded_ = 3;  // identification, comment, setup
      sampleRate_ = littleEndian32(packet.packet + 12);
    } else if (startsWith(packet, "OpusHead", 8)) {
      headerPacketsNeeded_ = 2;  // identification, comment
      opus_ = true;
      sampleRate_ = 48000;       // Opus granule positions count at 48 kHz
    }
    return;
  }
  size_t skip = 0;
  if (startsWith(packet, "\x03vorbis", 7)) skip = 7;
  else if (startsWith(packet, "OpusTags", 8)) skip = 8;
  if (skip == 0) return;
  TagLib::Ogg::XiphComment comment(
      TagLib::ByteVector(reinterpret_cast<const char*>(packet.packet) + skip, unsigned(packet.bytes - long(skip))));
  std::string title = comment.title().to8Bit(true);
  std::string artist = comment.artist().to8Bit(true);
  pendingTitle_ = !artist.empty() && !title.empty() ? artist + " - " + title : title;
}

void OggPageSplitter::page(const ogg_page& page, uint64_t offset, const PageHandler& onPage) {
  const auto* header = reinterpret_cast<const uint8_t*>(page.header);
  const auto* body = reinterpret_cast<const uint8_t*>(page.body);
  // libogg hands a page's header and body out of its own buffer; they are
  // together there, but a copy keeps that an assumption of nobody's.
  std::vector<uint8_t> whole(header, header + page.header_len);
  whole.insert(whole.end(), body, body + page.body_len);

  if (ogg_page_bos(&page)) {
    // The first beginning-of-stream page starts the chain; a multiplexed
    // chain's further streams are carried along as its other pages.
    if (!(inChain_ && headerPacketsSeen_ < headerPacketsNeeded_ && !pendingHeaders_.empty())) startChain(page);
  }
  if (!inChain_) return;  // joined mid-chain: wait for the next chain's headers

  if (ogg_page_serialno(&page) == serial_ && headerPacketsSeen_ < headerPacketsNeeded_) {
    if (pendingHeaders_.empty()) pendingOffset_ = offset;
    pendingHeaders_.insert(pendingHeaders_.end(), whole.begin(), whole.end());
    ogg_page copy = page;
    ogg_stream_pagein(&stream_, &copy);
    ogg_packet packet;
    while (headerPacketsSeen_ < headerPacketsNeeded_ && ogg_stream_packetout(&stream_, &packet) == 1) headerPacket(packet);
    if (headerPacketsSeen_ < headerPacketsNeeded_ && pendingHeaders_.size() < kMaxHeaderBytes) return;
    // The headers are complete: the chain's pages come out together.
    chainHeaders_ = std::move(pendingHeaders_);
    pendingHeaders_.clear();
    chainTitle_ = pendingTitle_;
    headerPacketsSeen_ = headerPacketsNeeded_;
    std::span<const uint8_t> held(chainHeaders_);
    bool first = true;
    for (size_t at = 0; at + 27 <= held.size();) {
      size_t segments = held[at + 26];
      if (at + 27 + segments > held.size()) break;
      size_t length = 27 + segments;
      for (size_t i = 0; i < segments; ++i) length += held[at + 27 + i];
      OggPage out{held.subspan(at, std::min(length, held.size() - at)), pendingOffset_ + at, 0, sampleRate_,
                  std::exchange(first, false), true};
      onPage(out);
      at += length;
    }
    return;
  }

  OggPage out{whole, offset, 0, sampleRate_, false, false};
  if (ogg_page_serialno(&page) == serial_) {
    int64_t granule = ogg_page_granulepos(&page);
    if (granule >= 0) {
      // A chain joined in the middle (a server's new listener gets the
      // headers, then the current pages) starts far from granule 0: its
      // first page's length is not known, and counts as none.
      const bool joined = lastGranule_ == 0 && granule > int64_t(sampleRate_) * kMostSecondsInAPage;
      if (granule > lastGranule_ && !joined)
        out.samples = uint32_t(std::min<int64_t>(granule - lastGranule_, UINT32_MAX));
      lastGranule_ = granule;
    }
  }
  onPage(out);
}

}  // namespace belvane::detail
