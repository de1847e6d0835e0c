// TransportStreamScanner: reads the framing of an MPEG transport stream (the
// segments of an HLS station) to find what GStreamer 1.22's tsdemux drops:
// timed ID3 metadata. It puts the PAT and PMT sections together from their
// packets and has libgstmpegts parse them (and check their CRC), follows the
// PAT to each program's PMT, takes as metadata the elementary streams of
// stream_type 0x15 whose metadata or registration descriptor names the format
// 'ID3 ', reassembles their PES packets (stream_id 0xBD or 0xFC) and hands
// back each one's payload (an ID3v2 tag, left to libgsttag) with its PTS. Of
// every other elementary stream it hands back each PES packet's PTS and
// payload size only, so that its caller can tell which demuxed buffer a PTS
// belongs to.
//
// PTS values are unwrapped: one 64-bit count of 90 kHz ticks across the 33-bit
// wrap, shared by all streams (they run on one clock). Bytes are trusted in
// nothing: sync is searched for, packets with the error flag or a bad
// adaptation field are skipped, a continuity-counter gap drops the PES being
// reassembled, tables must pass libgstmpegts's checks, and a metadata PES is
// capped in size. One thread at a time calls a scanner (the demuxer's
// streaming thread); scanners on several threads are fine.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <vector>

typedef struct _GstMpegtsSection GstMpegtsSection;

namespace belvane::detail {

inline constexpr size_t kTransportPacketSize = 188;
// A metadata PES larger than this is dropped (timed ID3 is a few hundred bytes).
inline constexpr size_t kTimedMetadataMaxBytes = 256 * 1024;

struct TransportPESPacket {
  uint16_t pid = 0;
  bool metadata = false;          // an ID3 metadata stream's packet: payload holds its bytes
  std::optional<int64_t> pts;     // unwrapped, 90 kHz
  size_t payloadSize = 0;         // bytes after the PES header
  std::vector<uint8_t> payload;   // metadata packets only
};

class TransportStreamScanner {
 public:
  // Scans the next bytes of the stream (any split; a partial packet waits for
  // the rest).
  void scan(std::span<const uint8_t> bytes);
  // The stream jumps (a new segment after a gap, a seek): partial packets and
  // PES are dropped; the tables stay known.
  void discontinuity();
  // Forgets everything, tables and the PTS clock too.
  void reset();

  // PES packets completed since the last call, in stream order.
  std::vector<TransportPESPacket> takePackets();

  // The ID3 metadata streams the PMTs declared (for tests and logs).
  const std::set<uint16_t>& metadataPIDs() const { return metadataPIDs_; }

 private:
  struct Section {
    std::vector<uint8_t> bytes;
    bool started = false;
  };
  struct PES {
    bool metadata = false;
    bool active = false;
    std::vector<uint8_t> head;   // the first bytes (the header), all of them for metadata
    size_t total = 0;            // bytes seen, header included
    size_t declared = 0;         // 6 + PES_packet_length, 0 when unbounded
    bool overflow = false;
  };

  void dropAssembly();  // partial PES and sections, and the continuity counters
  void scanPacket(const uint8_t* packet);
  void sectionBytes(uint16_t pid, bool start, std::span<const uint8_t> payload);
  void parseSection(uint16_t pid, std::span<const uint8_t> bytes);  // one whole section
  void parsePAT(GstMpegtsSection* section);
  void parsePMT(GstMpegtsSection* section);
  void pesBytes(uint16_t pid, bool start, std::span<const uint8_t> payload);
  void finishPES(uint16_t pid, PES& pes);
  int64_t unwrap(int64_t pts33);

  std::vector<uint8_t> partial_;  // bytes of a packet not yet complete, or not yet in sync
  std::map<uint16_t, uint8_t> continuity_;  // last continuity counter per PID
  std::set<uint16_t> pmtPIDs_;
  std::map<uint16_t, Section> sections_;
  std::set<uint16_t> metadataPIDs_;
  std::set<uint16_t> elementaryPIDs_;
  std::map<uint16_t, PES> pes_;
  std::optional<int64_t> clock_;  // the last unwrapped PTS
  std::vector<TransportPESPacket> done_;
};

}  // namespace belvane::detail
