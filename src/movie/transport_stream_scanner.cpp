// MPEG transport stream framing: PAT, PMT and PES (see transport_stream_scanner.h).
#include "movie/transport_stream_scanner.h"

// libgstmpegts calls its API unstable; 1.22's is the one Debian 12 ships.
#define GST_USE_UNSTABLE_API
#include <gst/mpegts/mpegts.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace belvane::detail {
namespace {

constexpr uint8_t kSyncByte = 0x47;
constexpr uint16_t kPATPID = 0x0000;
constexpr uint16_t kNullPID = 0x1FFF;
// A PSI section's section_length is at most this.
constexpr size_t kMaxSectionLength = 1021;
// table_id, lengths, id, version, section numbers and the CRC: the least a
// section with the long syntax holds.
constexpr size_t kMinLongSectionBytes = 12;
// Completed packets kept for a caller that does not take them.
constexpr size_t kMaxPendingPackets = 4096;
// Of an elementary stream's PES, only the header's fixed part and the PTS are kept.
constexpr size_t kElementaryHeadBytes = 14;
constexpr size_t kMaxPESHeaderBytes = 9 + 255;
constexpr int64_t kPTSModulus = int64_t(1) << 33;

// Makes libgstmpegts ready (its section type and descriptor tables), once
// per process; safe from any thread.
void initializeSectionParser() {
  static const bool initialized = [] {
    gst_mpegts_initialize();
    return true;
  }();
  (void)initialized;
}

bool isID3(std::span<const uint8_t> identifier) {
  return identifier.size() >= 4 && std::memcmp(identifier.data(), "ID3 ", 4) == 0;
}

// Whether an elementary stream's descriptors (as libgstmpegts split them)
// name ID3 as its format: a registration descriptor, or a metadata
// descriptor whose metadata format identifier (after an application format
// and its optional identifier) is 'ID3 '. libgstmpegts 1.22 has no reader for
// either body.
bool descriptorsNameID3(const GPtrArray* descriptors) {
  for (guint i = 0; descriptors && i < descriptors->len; ++i) {
    const auto* descriptor = static_cast<const GstMpegtsDescriptor*>(g_ptr_array_index(descriptors, i));
    std::span<const uint8_t> body(descriptor->data + 2, descriptor->length);
    if (descriptor->tag == GST_MTS_DESC_REGISTRATION && isID3(body)) return true;
    if (descriptor->tag == GST_MTS_DESC_METADATA && body.size() >= 3) {
      size_t at = 2;
      if (body[0] == 0xFF && body[1] == 0xFF) at += 4;  // metadata_application_format_identifier
      if (at < body.size() && body[at] == 0xFF && isID3(body.subspan(std::min(at + 1, body.size()))))
        return true;
    }
  }
  return false;
}

// Stream ids whose PES header has no optional part (and so no PTS).
bool hasOptionalHeader(uint8_t streamID) {
  switch (streamID) {
    case 0xBC: case 0xBE: case 0xBF: case 0xF0: case 0xF1: case 0xF2: case 0xF8: case 0xFF: return false;
    default: return true;
  }
}

}  // namespace

void TransportStreamScanner::scan(std::span<const uint8_t> bytes) {
  partial_.insert(partial_.end(), bytes.begin(), bytes.end());
  size_t at = 0;
  while (partial_.size() - at >= kTransportPacketSize) {
    if (partial_[at] == kSyncByte) {
      scanPacket(partial_.data() + at);
      at += kTransportPacketSize;
      continue;
    }
    // Lost sync: a packet starts again at a sync byte followed by another
    // one a packet later (or by the end of what has come so far).
    dropAssembly();
    do {
      ++at;
    } while (at < partial_.size() && (partial_[at] != kSyncByte || (at + kTransportPacketSize < partial_.size() &&
                                                                   partial_[at + kTransportPacketSize] != kSyncByte)));
  }
  partial_.erase(partial_.begin(), partial_.begin() + std::ptrdiff_t(std::min(at, partial_.size())));
}

void TransportStreamScanner::discontinuity() {
  partial_.clear();
  dropAssembly();
}

void TransportStreamScanner::dropAssembly() {
  continuity_.clear();
  for (auto& [pid, section] : sections_) section = Section{};
  for (auto& [pid, pes] : pes_) pes = PES{};
}

void TransportStreamScanner::reset() { *this = TransportStreamScanner{}; }

std::vector<TransportPESPacket> TransportStreamScanner::takePackets() { return std::exchange(done_, {}); }

void TransportStreamScanner::scanPacket(const uint8_t* packet) {
  if (packet[1] & 0x80) return;  // transport error indicator
  bool start = packet[1] & 0x40;
  uint16_t pid = uint16_t((packet[1] & 0x1F) << 8 | packet[2]);
  uint8_t control = (packet[3] >> 4) & 3;
  uint8_t counter = packet[3] & 0x0F;
  if (pid == kNullPID || !(control & 1)) return;  // no payload (the counter does not count it)
  size_t offset = 4;
  bool signalledJump = false;
  if (control & 2) {
    size_t length = packet[4];
    if (5 + length > kTransportPacketSize) return;
    signalledJump = length > 0 && (packet[5] & 0x80);  // discontinuity indicator
    offset = 5 + length;
  }
  auto last = continuity_.find(pid);
  if (last != continuity_.end() && !signalledJump) {
    if (last->second == counter) return;  // a repeated packet
    if (((last->second + 1) & 0x0F) != counter) {
      // Packets were lost: what was being put together is incomplete.
      if (auto pes = pes_.find(pid); pes != pes_.end()) pes->second = PES{};
      if (auto section = sections_.find(pid); section != sections_.end()) section->second = Section{};
    }
  }
  continuity_[pid] = counter;
  std::span<const uint8_t> payload(packet + offset, kTransportPacketSize - offset);
  if (pid == kPATPID || pmtPIDs_.contains(pid))
    sectionBytes(pid, start, payload);
  else if (metadataPIDs_.contains(pid) || elementaryPIDs_.contains(pid))
    pesBytes(pid, start, payload);
}

void TransportStreamScanner::sectionBytes(uint16_t pid, bool start, std::span<const uint8_t> payload) {
  Section& section = sections_[pid];
  if (start) {
    if (payload.empty() || size_t(payload[0]) + 1 > payload.size()) {
      section = Section{};
      return;
    }
    // The bytes before the pointer end the section before; a new one follows.
    section = Section{};
    section.started = true;
    payload = payload.subspan(size_t(payload[0]) + 1);
  } else if (!section.started) {
    return;
  }
  section.bytes.insert(section.bytes.end(), payload.begin(), payload.end());
  if (section.bytes.size() < 3) return;
  size_t length = size_t(section.bytes[1] & 0x0F) << 8 | section.bytes[2];
  if (length > kMaxSectionLength) {
    section = Section{};
    return;
  }
  if (section.bytes.size() < 3 + length) return;
  std::vector<uint8_t> whole(section.bytes.begin(), section.bytes.begin() + std::ptrdiff_t(3 + length));
  section = Section{};
  parseSection(pid, whole);
}

void TransportStreamScanner::parseSection(uint16_t pid, std::span<const uint8_t> bytes) {
  // PAT and PMT use the long syntax, whose CRC libgstmpegts checks; it reads
  // that syntax's fixed fields without checking they are there.
  if (bytes.size() < kMinLongSectionBytes || !(bytes[1] & 0x80)) return;
  initializeSectionParser();
  auto* data = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
  GstMpegtsSection* section = gst_mpegts_section_new(pid, data, bytes.size());  // owns data from here
  if (!section) return;
  if (section->current_next_indicator) {  // otherwise not yet in force
    if (pid == kPATPID && section->section_type == GST_MPEGTS_SECTION_PAT)
      parsePAT(section);
    else if (pid != kPATPID && section->section_type == GST_MPEGTS_SECTION_PMT)
      parsePMT(section);
  }
  gst_mpegts_section_unref(section);
}

void TransportStreamScanner::parsePAT(GstMpegtsSection* section) {
  GPtrArray* table = gst_mpegts_section_get_pat(section);  // null: bad CRC or layout
  if (!table) return;
  std::set<uint16_t> programs;
  for (guint i = 0; i < table->len; ++i) {
    const auto* program = static_cast<const GstMpegtsPatProgram*>(g_ptr_array_index(table, i));
    uint16_t pid = program->network_or_program_map_PID;
    // Program 0 names the network PID, not a PMT.
    if (program->program_number != 0 && pid != kPATPID && pid != kNullPID) programs.insert(pid);
  }
  g_ptr_array_unref(table);
  pmtPIDs_ = std::move(programs);
}

void TransportStreamScanner::parsePMT(GstMpegtsSection* section) {
  const GstMpegtsPMT* table = gst_mpegts_section_get_pmt(section);  // owned by the section
  if (!table || !table->streams) return;
  for (guint i = 0; i < table->streams->len; ++i) {
    const auto* stream = static_cast<const GstMpegtsPMTStream*>(g_ptr_array_index(table->streams, i));
    uint16_t pid = stream->pid;
    if (pid == kPATPID || pid == kNullPID || pmtPIDs_.contains(pid)) continue;
    bool metadata = stream->stream_type == GST_MPEGTS_STREAM_TYPE_METADATA_PES_PACKETS &&
                    descriptorsNameID3(stream->descriptors);
    if (metadata != metadataPIDs_.contains(pid)) pes_.erase(pid);
    (metadata ? metadataPIDs_ : elementaryPIDs_).insert(pid);
    (metadata ? elementaryPIDs_ : metadataPIDs_).erase(pid);
  }
}

void TransportStreamScanner::pesBytes(uint16_t pid, bool start, std::span<const uint8_t> payload) {
  PES& pes = pes_[pid];
  if (start) {
    if (pes.active && !pes.declared) finishPES(pid, pes);  // an unbounded PES ends where the next starts
    pes = PES{};
    pes.active = true;
    pes.metadata = metadataPIDs_.contains(pid);
  } else if (!pes.active) {
    return;
  }
  pes.total += payload.size();
  // Of a metadata PES every byte is kept (a tag too large is dropped), of
  // another the header's first bytes.
  const size_t room = pes.metadata ? kTimedMetadataMaxBytes + kMaxPESHeaderBytes : kElementaryHeadBytes;
  if (pes.metadata && pes.head.size() + payload.size() > room) {
    pes = PES{};
    return;
  }
  size_t keep = std::min(payload.size(), room - std::min(pes.head.size(), room));
  pes.head.insert(pes.head.end(), payload.begin(), payload.begin() + std::ptrdiff_t(keep));
  if (pes.head.size() >= 6 && pes.declared == 0 && pes.total - payload.size() < 6) {
    if (pes.head[0] != 0 || pes.head[1] != 0 || pes.head[2] != 1) {
      pes = PES{};  // no start code: not a PES
      return;
    }
    size_t length = size_t(pes.head[4]) << 8 | pes.head[5];
    pes.declared = length ? 6 + length : 0;
  }
  if (pes.declared && pes.total >= pes.declared) finishPES(pid, pes);
}

void TransportStreamScanner::finishPES(uint16_t pid, PES& pes) {
  PES done = std::exchange(pes, PES{});
  const auto& head = done.head;
  if (head.size() < 6 || head[0] != 0 || head[1] != 0 || head[2] != 1) return;
  size_t size = done.declared ? std::min(done.total, done.declared) : done.total;
  uint8_t streamID = head[3];
  size_t headerLength = 6;
  std::optional<int64_t> pts;
  if (hasOptionalHeader(streamID)) {
    if (head.size() < 9 || (head[6] & 0xC0) != 0x80) return;
    headerLength = 9 + size_t(head[8]);
    if ((head[7] & 0x80) && head[8] >= 5 && head.size() >= 14)
      pts = int64_t(head[9] >> 1 & 0x07) << 30 | int64_t(head[10]) << 22 | int64_t(head[11] >> 1) << 15 |
            int64_t(head[12]) << 7 | int64_t(head[13] >> 1);
  }
  if (size < headerLength) return;
  TransportPESPacket packet;
  packet.pid = pid;
  packet.metadata = done.metadata;
  packet.payloadSize = size - headerLength;
  if (done.metadata) {
    // A timed tag without its time, or not a private stream, is no timed tag.
    if (!pts || (streamID != 0xBD && streamID != 0xFC) || size > head.size() ||
        packet.payloadSize > kTimedMetadataMaxBytes)
      return;
    packet.payload.assign(head.begin() + std::ptrdiff_t(headerLength), head.begin() + std::ptrdiff_t(size));
  }
  if (pts) packet.pts = unwrap(*pts);
  if (done_.size() >= kMaxPendingPackets) done_.erase(done_.begin());
  done_.push_back(std::move(packet));
}

int64_t TransportStreamScanner::unwrap(int64_t pts33) {
  if (!clock_) return *(clock_ = pts33);
  int64_t last = ((*clock_ % kPTSModulus) + kPTSModulus) % kPTSModulus;
  int64_t step = pts33 - last;
  if (step >= kPTSModulus / 2)
    step -= kPTSModulus;
  else if (step < -kPTSModulus / 2)
    step += kPTSModulus;
  return *(clock_ = *clock_ + step);
}

}  // namespace belvane::detail
