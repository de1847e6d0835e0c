// A live HLS station with timed ID3 in its MPEG-TS segments, on the loopback
// server (see quicktime_test_support.h). The segments come from GStreamer's
// hlssink2; the metadata stream is spliced in here, packet by packet.
#include "quicktime_test_support.h"

#include <taglib/id3v2tag.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <sstream>

namespace belvane::test {

namespace {

constexpr size_t kPacket = 188;
constexpr uint16_t kMetadataPID = 0x0102;
constexpr int64_t kWrap = int64_t(1) << 33;
constexpr int64_t kHalfFrame = 1024 * 90000 / 44100 / 2;  // 90 kHz ticks

uint16_t pidOf(const std::string& p) { return uint16_t((uint8_t(p[1]) & 0x1F) << 8 | uint8_t(p[2])); }
bool startsUnit(const std::string& p) { return uint8_t(p[1]) & 0x40; }
size_t payloadOffset(const std::string& p) { return (uint8_t(p[3]) & 0x20) ? 5 + uint8_t(p[4]) : 4; }

uint32_t sectionCRC(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (unsigned char byte : bytes) {
    crc ^= uint32_t(byte) << 24;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 0x80000000) ? (crc << 1) ^ 0x04C11DB7 : crc << 1;
  }
  return crc;
}

int64_t readPTS(const std::string& b, size_t at) {
  auto u = [&](size_t i) { return int64_t(uint8_t(b[at + i])); };
  return (u(0) >> 1 & 7) << 30 | u(1) << 22 | (u(2) >> 1) << 15 | u(3) << 7 | u(4) >> 1;
}

void writePTS(std::string& b, size_t at, int64_t pts, uint8_t prefix) {
  b[at] = char(prefix << 4 | (pts >> 29 & 0x0E) | 1);
  b[at + 1] = char(pts >> 22);
  b[at + 2] = char((pts >> 14 & 0xFE) | 1);
  b[at + 3] = char(pts >> 7);
  b[at + 4] = char((pts << 1 & 0xFE) | 1);
}

// Moves a packet's PCR and its PES header's PTS and DTS on by shift (mod 2^33).
void shiftClock(std::string& p, int64_t shift) {
  if ((uint8_t(p[3]) & 0x20) && uint8_t(p[4]) >= 7 && (uint8_t(p[5]) & 0x10)) {
    int64_t base = int64_t(uint8_t(p[6])) << 25 | int64_t(uint8_t(p[7])) << 17 | int64_t(uint8_t(p[8])) << 9 |
                   int64_t(uint8_t(p[9])) << 1 | uint8_t(p[10]) >> 7;
    base = (base + shift) % kWrap;
    p[6] = char(base >> 25), p[7] = char(base >> 17), p[8] = char(base >> 9), p[9] = char(base >> 1);
    p[10] = char((base & 1) << 7 | (uint8_t(p[10]) & 0x7F));
  }
  size_t at = payloadOffset(p);
  if (!startsUnit(p) || p.compare(at, 3, std::string("\0\0\1", 3)) != 0) return;
  uint8_t flags = uint8_t(p[at + 7]) >> 6;
  if (flags & 2) writePTS(p, at + 9, (readPTS(p, at + 9) + shift) % kWrap, flags == 3 ? 3 : 2);
  if (flags == 3) writePTS(p, at + 14, (readPTS(p, at + 14) + shift) % kWrap, 1);
}

// The PMT with the metadata stream added: stream_type 0x15 and a metadata
// descriptor naming ID3 as application and format.
void addMetadataStream(std::string& p) {
  size_t section = payloadOffset(p) + 1 + uint8_t(p[payloadOffset(p)]);
  size_t length = size_t(uint8_t(p[section + 1]) & 0x0F) << 8 | uint8_t(p[section + 2]);
  const std::string descriptor("\x26\x0d\xff\xff" "ID3 " "\xff" "ID3 " "\x00\x0f", 15);
  std::string entry{char(0x15), char(0xE0 | kMetadataPID >> 8), char(kMetadataPID & 0xFF), char(0xF0),
                    char(descriptor.size())};
  std::string body = p.substr(section, 3 + length - 4) + entry + descriptor;
  size_t newLength = length + entry.size() + descriptor.size();
  body[1] = char((uint8_t(body[1]) & 0xF0) | newLength >> 8);
  body[2] = char(newLength & 0xFF);
  uint32_t crc = sectionCRC(body);
  body += std::string{char(crc >> 24), char(crc >> 16), char(crc >> 8), char(crc)};
  // Without the adaptation field's stuffing, the longer section fits.
  p = p.substr(0, 3) + char((uint8_t(p[3]) & 0x0F) | 0x10) + '\0' + body;
  p.resize(kPacket, '\xff');
}

// An ID3v2 tag in a PES packet (private_stream_1) cut into TS packets.
std::string metadataPackets(const std::string& artist, const std::string& title, int64_t pts, uint8_t& counter) {
  TagLib::ID3v2::Tag tag;
  tag.setTitle(TagLib::String(title, TagLib::String::UTF8));
  if (!artist.empty()) tag.setArtist(TagLib::String(artist, TagLib::String::UTF8));
  TagLib::ByteVector rendered = tag.render();
  std::string payload(rendered.data(), rendered.size());
  std::string pes("\0\0\1\xbd", 4);
  size_t length = 3 + 5 + payload.size();
  pes += {char(length >> 8), char(length & 0xFF), char(0x84), char(0x80), char(5)};
  pes += std::string(5, '\0');
  writePTS(pes, 9, pts % kWrap, 2);
  pes += payload;
  std::string out;
  for (size_t at = 0; at < pes.size(); at += 184) {
    size_t chunk = std::min<size_t>(184, pes.size() - at);
    std::string p{char(0x47), char((at == 0 ? 0x40 : 0) | kMetadataPID >> 8), char(kMetadataPID & 0xFF),
                  char((chunk < 184 ? 0x30 : 0x10) | (counter++ & 0x0F))};
    if (chunk < 184) {
      size_t stuffing = 183 - chunk;
      p += char(stuffing);
      if (stuffing > 0) p += char(0x00) + std::string(stuffing - 1, '\xff');
    }
    out += p + pes.substr(at, chunk);
  }
  return out;
}

// Adds the metadata stream to a segment's PMTs and moves its clock on by
// shift; returns where each audio PES packet starts, with its PTS (moved on,
// not wrapped). Every segment starts with a PAT and a PMT.
std::vector<std::pair<size_t, int64_t>> rewriteSegment(std::string& bytes, int64_t shift) {
  uint16_t pmtPID = 0x1FFF, audioPID = 0x1FFF;
  std::vector<std::pair<size_t, int64_t>> starts;
  for (size_t at = 0; at + kPacket <= bytes.size(); at += kPacket) {
    std::string p = bytes.substr(at, kPacket);
    uint16_t pid = pidOf(p);
    size_t payload = payloadOffset(p);
    if (pid == 0 && startsUnit(p)) pmtPID = uint16_t((uint8_t(p[payload + 11]) & 0x1F) << 8 | uint8_t(p[payload + 12]));
    if (pid == pmtPID && startsUnit(p)) {
      size_t section = payload + 1 + uint8_t(p[payload]);
      size_t es = section + 12 + (size_t(uint8_t(p[section + 10]) & 0x0F) << 8 | uint8_t(p[section + 11]));
      audioPID = uint16_t((uint8_t(p[es + 1]) & 0x1F) << 8 | uint8_t(p[es + 2]));
      addMetadataStream(p);
    }
    if (pid == audioPID && startsUnit(p)) starts.emplace_back(at, readPTS(p, payload + 9) + shift);
    shiftClock(p, shift);
    bytes.replace(at, kPacket, p);
  }
  return starts;
}

}  // namespace

TimedID3Station::TimedID3Station(TestHTTPServer& server, const std::string& path, const std::string& folder,
                                 int segments, int middleSegment) {
  serve(server, path, folder, segments, middleSegment);
}

void TimedID3Station::serve(TestHTTPServer& server, const std::string& path, const std::string& folder, int segments,
                            int middleSegment) {
  std::string playlist = readWholeFile(writeMediaFile(folder, MediaKind::HLS, segments));
  std::vector<std::string> durations;
  std::istringstream lines(playlist);
  for (std::string line; std::getline(lines, line);)
    if (line.rfind("#EXTINF:", 0) == 0) durations.push_back(line.substr(8));
  ASSERT_GE(int(durations.size()), segments);
  auto bodies = std::make_shared<std::vector<std::string>>();
  for (int segment = 0; segment < segments; ++segment) {
    char name[32];
    std::snprintf(name, sizeof name, "/segment%05d.ts", segment);
    bodies->push_back(readWholeFile(folder + name));
    ASSERT_EQ(bodies->back().size() % kPacket, 0u);
  }
  // The clock wraps between the audio frame the middle title falls in and
  // the title: the title is read after the wrap, with audio from before it
  // still on its way through the demuxer.
  std::string middle = (*bodies)[middleSegment];
  auto plain = rewriteSegment(middle, 0);
  ASSERT_GT(plain.size(), 4u);
  const int64_t shift = kWrap - (plain[plain.size() / 2].second + kHalfFrame / 2);

  uint8_t counter = 0;
  for (int segment = 0; segment < segments; ++segment) {
    std::string& bytes = (*bodies)[segment];
    auto starts = rewriteSegment(bytes, shift);
    ASSERT_GT(starts.size(), 4u);
    // Each tag goes in just ahead of the first audio at or after its time;
    // the packets are made in stream order (the continuity counter runs on),
    // and spliced in from the back so that the offsets before them hold.
    titles_.push_back({"Band - Song " + std::to_string(segment), starts[0].second});
    std::string first = metadataPackets("Band", "Song " + std::to_string(segment), starts[0].second, counter);
    if (segment == middleSegment) {
      size_t half = starts.size() / 2;
      titles_.push_back({"Interlude", starts[half].second + kHalfFrame});
      bytes.insert(starts[half + 1].first, metadataPackets("", "Interlude", titles_.back().pts, counter));
    }
    bytes.insert(starts[0].first, first);
  }

  const auto start = std::chrono::steady_clock::now();
  server.route(path + "/playlist.m3u8", [=](const ReceivedRequest&) {
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    int newest = std::min(segments - 1, 2 + int(elapsed));
    int first = std::max(0, newest - 2);
    std::string text = "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:1\n#EXT-X-MEDIA-SEQUENCE:" +
                       std::to_string(first) + "\n";
    for (int i = first; i <= newest; ++i)
      text += "#EXTINF:" + durations[i] + "\nsegment" + std::to_string(i) + ".ts\n";
    return Response::ok("application/vnd.apple.mpegurl", text);
  });
  for (int i = 0; i < segments; ++i)
    server.route(path + "/segment" + std::to_string(i) + ".ts", Response::ok("video/mp2t", (*bodies)[i]));
}

}  // namespace belvane::test
