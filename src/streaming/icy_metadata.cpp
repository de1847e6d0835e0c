// ICY reply heads, metadata demultiplexing and StreamTitle parsing.
#include "streaming/icy_metadata.h"

#include "foundation/text_encoding.h"
#include "foundation/title_encoding.h"

#include <belvane/BVConstants.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace belvane::detail {

namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) s.remove_suffix(1);
  return s;
}

// Whether what follows a closing quote ends the value: nothing (or NUL
// padding), or the next "Key='" pair.
bool endsValue(std::string_view rest) {
  size_t i = 0;
  while (i < rest.size() && rest[i] == '\0') ++i;
  if (i == rest.size()) return true;
  size_t k = i;
  while (k < rest.size() && (std::isalnum(static_cast<unsigned char>(rest[k])) || rest[k] == '_')) ++k;
  return k > i && rest.substr(k, 2) == "='";
}

// Whether the first bytes of a metadata block read as metadata: NUL padding,
// or a key ("StreamTitle") followed by "='". Unknown while too few bytes are in.
enum class Verdict { Metadata, NotMetadata, Unknown };
Verdict readsAsMetadata(std::span<const uint8_t> block, bool complete) {
  constexpr size_t kLongestKey = 64;
  if (block.empty()) return complete ? Verdict::Metadata : Verdict::Unknown;
  if (block[0] == 0) return Verdict::Metadata;
  size_t k = 0;
  while (k < block.size() && k <= kLongestKey && (std::isalnum(block[k]) || block[k] == '_')) ++k;
  if (k == 0 || k > kLongestKey) return Verdict::NotMetadata;
  if (k + 2 > block.size()) return complete ? Verdict::NotMetadata : Verdict::Unknown;
  return block[k] == '=' && (block[k + 1] == '\'' || block[k + 1] == '"') ? Verdict::Metadata : Verdict::NotMetadata;
}

}  // namespace

const std::string* StreamReplyHead::field(std::string_view lowerCaseName) const {
  auto it = fields.find(std::string(lowerCaseName));
  return it == fields.end() ? nullptr : &it->second;
}

void StreamReplyHead::addField(std::string_view name, std::string_view value) {
  fields.emplace(asciiLower(trim(name)), std::string(trim(value)));
}

bool parseStatusLine(std::string_view line, int& status, std::string& reason) {
  line = trim(line);
  size_t space = line.find(' ');
  if (space == std::string_view::npos) return false;
  std::string_view rest = trim(line.substr(space + 1));
  if (rest.size() < 3 || !std::isdigit(static_cast<unsigned char>(rest[0])) ||
      !std::isdigit(static_cast<unsigned char>(rest[1])) || !std::isdigit(static_cast<unsigned char>(rest[2])))
    return false;
  if (rest.size() > 3 && rest[3] != ' ') return false;
  status = (rest[0] - '0') * 100 + (rest[1] - '0') * 10 + (rest[2] - '0');
  reason = std::string(rest.size() > 3 ? trim(rest.substr(4)) : std::string_view{});
  return true;
}

IcyReplyParser::Result IcyReplyParser::feed(std::span<const uint8_t> bytes) {
  buffer_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  constexpr std::string_view kPrefix = "ICY";
  size_t compare = std::min(buffer_.size(), kPrefix.size());
  if (buffer_.compare(0, compare, kPrefix.substr(0, compare)) != 0) {
    headBytes_ = 0;
    return Result::NotIcy;
  }
  // The head ends with an empty line; Shoutcast servers use CRLF, a few
  // bare LF.
  size_t end = std::string::npos, endLength = 0;
  for (size_t i = 0; i < buffer_.size() && i < kMaxHeadBytes; ++i) {
    if (buffer_[i] != '\n') continue;
    if (i + 1 < buffer_.size() && buffer_[i + 1] == '\n') {
      end = i;
      endLength = 2;
      break;
    }
    if (i + 2 < buffer_.size() && buffer_[i + 1] == '\r' && buffer_[i + 2] == '\n') {
      end = i;
      endLength = 3;
      break;
    }
  }
  if (end == std::string::npos) return buffer_.size() >= kMaxHeadBytes ? Result::Malformed : Result::NeedMore;
  headBytes_ = end + endLength;
  std::string_view head(buffer_.data(), end);
  size_t lineEnd = head.find('\n');
  std::string_view status = head.substr(0, lineEnd);
  if (!parseStatusLine(status, head_.status, head_.reason)) return Result::Malformed;
  while (lineEnd != std::string_view::npos) {
    head.remove_prefix(lineEnd + 1);
    lineEnd = head.find('\n');
    std::string_view line = head.substr(0, lineEnd);
    size_t colon = line.find(':');
    if (colon != std::string_view::npos) head_.addField(line.substr(0, colon), line.substr(colon + 1));
  }
  return Result::Head;
}

std::span<const uint8_t> IcyReplyParser::pending() const {
  return std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(buffer_.data()), buffer_.size())
      .subspan(std::min(headBytes_, buffer_.size()));
}

bool IcyDemuxer::feed(std::span<const uint8_t> bytes, Handler& handler) {
  if (metaint_ == 0) {
    if (bytes.empty()) return true;
    uint64_t offset = audioBytes_;
    audioBytes_ += bytes.size();
    return handler.audio(bytes, offset);
  }
  while (!bytes.empty()) {
    if (untilMeta_ > 0) {
      size_t n = std::min<size_t>(untilMeta_, bytes.size());
      uint64_t offset = audioBytes_;
      audioBytes_ += n;
      untilMeta_ -= uint32_t(n);
      readingLength_ = untilMeta_ == 0;
      if (!handler.audio(bytes.first(n), offset)) return false;
      bytes = bytes.subspan(n);
      continue;
    }
    if (readingLength_) {
      readingLength_ = false;
      metaLength_ = size_t(bytes[0]) * 16;
      metaFill_ = 0;
      metaChecked_ = false;
      bytes = bytes.subspan(1);
      if (metaLength_ == 0) untilMeta_ = metaint_;
      continue;
    }
    size_t n = std::min(metaLength_ - metaFill_, bytes.size());
    std::memcpy(meta_ + metaFill_, bytes.data(), n);
    metaFill_ += n;
    bytes = bytes.subspan(n);
    if (!metaChecked_) {
      Verdict verdict = readsAsMetadata(std::span<const uint8_t>(meta_, metaFill_), metaFill_ == metaLength_);
      if (verdict == Verdict::Unknown) continue;
      metaChecked_ = true;
      if (verdict == Verdict::NotMetadata) {
        // A length byte without its block (some servers send 255 and no
        // text): what followed it is audio, and the next interval counts
        // from here. Skipping the announced length would throw away up to
        // 4080 bytes of audio per interval; the decoder picks up at the next
        // frame after the one stray byte instead.
        std::vector<uint8_t> audio(meta_, meta_ + metaFill_);
        metaLength_ = metaFill_ = 0;
        untilMeta_ = metaint_;
        if (!feed(audio, handler)) return false;
        continue;
      }
    }
    if (metaFill_ == metaLength_) {
      metaLength_ = 0;
      untilMeta_ = metaint_;
      handler.metadata(std::span<const uint8_t>(meta_, metaFill_), audioBytes_);
    }
  }
  return true;
}

namespace {

// The raw bytes of a "Key='value';" pair of a metadata block, the key in any
// case and at the start of the block or after the pair before it.
std::optional<std::string> metadataValue(std::span<const uint8_t> block, std::string_view key) {
  std::string_view text(reinterpret_cast<const char*>(block.data()), block.size());
  const std::string lowered = asciiLower(text);
  const std::string pattern = asciiLower(key) + "='";
  size_t start = std::string_view::npos;
  for (size_t at = lowered.find(pattern); at != std::string::npos; at = lowered.find(pattern, at + 1)) {
    size_t before = at;
    while (before > 0 && (text[before - 1] == ' ' || text[before - 1] == '\0')) --before;
    if (before == 0 || text[before - 1] == ';') {
      start = at + pattern.size();
      break;
    }
  }
  if (start == std::string_view::npos) return std::nullopt;
  // Titles may hold apostrophes ("Guns N' Roses"): the value ends at the
  // first "';" that is followed by the end or by the next key.
  size_t end = std::string_view::npos;
  for (size_t at = text.find("';", start); at != std::string_view::npos; at = text.find("';", at + 1)) {
    if (endsValue(text.substr(at + 2))) {
      end = at;
      break;
    }
  }
  if (end == std::string_view::npos) {
    // Unterminated: up to the last quote before the NUL padding, or all.
    size_t stop = text.find('\0', start);
    std::string_view value = text.substr(start, stop == std::string_view::npos ? std::string_view::npos : stop - start);
    size_t quote = value.rfind('\'');
    return std::string(quote == std::string_view::npos ? value : value.substr(0, quote));
  }
  return std::string(text.substr(start, end - start));
}

}  // namespace

std::optional<std::string> streamTitleFromMetadata(std::span<const uint8_t> block) {
  return metadataValue(block, "StreamTitle");
}

std::optional<std::string> streamURLFromMetadata(std::span<const uint8_t> block) {
  auto url = metadataValue(block, "StreamUrl");
  if (url) {
    std::string trimmed = trimWhitespaceAndNewlines(*url);
    if (trimmed.empty()) return std::nullopt;
    *url = std::move(trimmed);
  }
  return url;
}

BVDictionary stationFactsFromHead(const StreamReplyHead& head) {
  BVDictionary facts;
  auto text = [&](const char* field, const char* key) {
    const std::string* raw = head.field(field);
    if (!raw) return;
    std::string value = trimWhitespaceAndNewlines(*raw);
    std::string converted = stationTitleToUTF8(bytesOf(value));
    if (!converted.empty()) facts[key] = BVValue(std::move(converted));
  };
  text("icy-name", BVPlayerAttributeStationNameKey);
  text("icy-genre", BVPlayerAttributeStationGenreKey);
  text("icy-url", BVPlayerAttributeStationHomePageKey);
  int64_t bitRate = 0;
  if (const std::string* br = head.field("icy-br")) bitRate = std::strtoll(br->c_str(), nullptr, 10);
  if (const std::string* info = head.field("ice-audio-info"); bitRate <= 0 && info) {
    size_t at = asciiLower(*info).find("bitrate=");
    if (at != std::string::npos) bitRate = std::strtoll(info->c_str() + at + 8, nullptr, 10);
  }
  // icy-br sometimes lists several rates ("128,128"): the first counts.
  if (bitRate > 0 && bitRate < 100000) facts[BVPlayerAttributeStationBitRateKey] = BVValue(bitRate);
  return facts;
}

}  // namespace belvane::detail
