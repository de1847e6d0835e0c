// IcyTestServer: scripted ICY streams on top of TestHTTPServer.
#include "support/icy_test_server.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace belvane::test {

struct IcyTestServer::State {
  mutable std::mutex mutex;
  std::map<std::string, int> connections;
  std::vector<IcyTitleMark> titles;
};

namespace {

// The audio byte stream of a script: its MP3 frames (or noise, or ADTS)
// from the start, with the samples of the frames begun so far.
class AudioSource {
 public:
  explicit AudioSource(const IcyStreamScript& script) : script_(script) {
    if (script.payload == IcyStreamScript::Payload::Noise) pattern_ = noiseBytes(64 * 1024);
    if (script.payload == IcyStreamScript::Payload::Adts) pattern_ = adtsFrames(200);
  }

  // Appends up to n audio bytes to out.
  void take(size_t n, std::string& out) {
    if (!pattern_.empty()) {
      while (n > 0) {
        size_t k = std::min(n, pattern_.size() - patternAt_);
        out.append(pattern_, patternAt_, k);
        patternAt_ = (patternAt_ + k) % pattern_.size();
        n -= k;
      }
      return;
    }
    while (n > 0 && !script_.audio.empty()) {
      const Mp3Data& data = *script_.audio[segment_];
      const Mp3Frame& frame = data.frames[frame_];
      if (inFrame_ == 0) samplesStarted_ += uint64_t(frame.samples);
      size_t k = std::min(n, frame.size - inFrame_);
      out.append(data.bytes, frame.offset + inFrame_, k);
      inFrame_ += k;
      n -= k;
      if (inFrame_ == frame.size) {
        inFrame_ = 0;
        if (++frame_ == data.frames.size()) {
          frame_ = 0;
          segment_ = (segment_ + 1) % script_.audio.size();
        }
      }
    }
  }

  uint64_t samplesStarted() const { return samplesStarted_; }

 private:
  const IcyStreamScript& script_;
  std::string pattern_;
  size_t patternAt_ = 0;
  size_t segment_ = 0, frame_ = 0, inFrame_ = 0;
  uint64_t samplesStarted_ = 0;
};

std::string defaultTitle(int block) { return block % 4 == 0 ? "Title " + std::to_string(block) : ""; }

std::string metadataBlock(const std::string& title, const std::string& url = {}) {
  if (title.empty()) return std::string(1, '\0');
  std::string text =
      "StreamTitle='" + (title == kEmptyStreamTitle ? std::string() : title) + "';StreamUrl='" + url + "';";
  size_t units = (text.size() + 15) / 16;
  text.resize(units * 16, '\0');
  return char(units) + text;
}

void streamScript(const IcyStreamScript& script, int connection, const std::shared_ptr<IcyTestServer::State>& state,
                  ResponseWriter& writer) {
  bool http = script.statusLine.rfind("HTTP/", 0) == 0;
  std::string head = script.statusLine + "\r\n";
  if (!script.contentType.empty()) head += "Content-Type: " + script.contentType + "\r\n";
  if (script.metaint > 0) head += "icy-metaint:" + std::to_string(script.metaint) + "\r\n";
  head += "icy-name:Belvane Test Radio\r\n";
  for (auto& [name, value] : script.headers) head += name + ": " + value + "\r\n";
  auto titleFor = script.titleForBlock ? script.titleForBlock : defaultTitle;
  auto urlFor = [&](int block) { return script.streamURLForBlock ? script.streamURLForBlock(block) : std::string(); };
  if (http && script.contentLength) {
    uint64_t total = script.audioBytes;
    if (script.metaint > 0) {
      for (uint64_t at = script.metaint, block = 0; at <= script.audioBytes; at += script.metaint, ++block)
        total += metadataBlock(titleFor(int(block)), urlFor(int(block))).size();
    }
    head += "Content-Length: " + std::to_string(total) + "\r\n";
  }
  if (http) head += "Connection: close\r\n";
  head += "\r\n";
  if (!writer.write(head)) return;
  if (script.silentUntil)
    while (std::chrono::steady_clock::now() < *script.silentUntil)
      if (!writer.pause(0.05)) return;

  AudioSource source(script);
  const auto started = std::chrono::steady_clock::now();
  const int rate = script.audio.empty() || !script.audio.front() ? 0 : script.audio.front()->sampleRate;
  uint64_t sent = 0;
  int block = 0;
  std::string chunk;
  while (sent < script.audioBytes) {
    chunk.clear();
    uint64_t untilMeta = script.metaint > 0 ? script.metaint - sent % script.metaint : UINT64_MAX;
    size_t n = size_t(std::min<uint64_t>({4096, untilMeta, script.audioBytes - sent}));
    source.take(n, chunk);
    sent += n;
    if (script.metaint > 0 && sent % script.metaint == 0) {
      std::string title = titleFor(block);
      chunk += metadataBlock(title, urlFor(block++));
      if (!title.empty()) {
        std::lock_guard lock(state->mutex);
        state->titles.push_back({connection, title, sent, source.samplesStarted()});
      }
    }
    if (!writer.write(chunk)) return;
    if (script.pace > 0 && rate > 0) {
      const auto due = started + std::chrono::duration_cast<std::chrono::steady_clock::duration>(std::chrono::duration<double>(
                                     double(source.samplesStarted()) / rate / script.pace));
      const double ahead = std::chrono::duration<double>(due - std::chrono::steady_clock::now()).count();
      if (ahead > 0 && !writer.pause(ahead)) return;
    }
  }
  if (script.end == IcyStreamScript::End::Stall) {
    for (double waited = 0; writer.pause(0.05); waited += 0.05)
      if (script.stallSeconds > 0 && waited >= script.stallSeconds) return;
  }
}

}  // namespace

IcyTestServer::IcyTestServer(int port) : state_(std::make_shared<State>()), http_(port) {}

IcyTestServer::~IcyTestServer() = default;

void IcyTestServer::serve(const std::string& path, std::vector<IcyStreamScript> scripts) {
  auto state = state_;
  auto shared = std::make_shared<std::vector<IcyStreamScript>>(std::move(scripts));
  const int first = connections(path);
  http_.route(path, [state, shared, path, first](const ReceivedRequest&) {
    int connection;
    {
      std::lock_guard lock(state->mutex);
      connection = state->connections[path]++;
    }
    const IcyStreamScript& script = (*shared)[std::min<size_t>(size_t(connection - first), shared->size() - 1)];
    return Response::rawStream(
        [state, shared, &script, connection](ResponseWriter& writer) { streamScript(script, connection, state, writer); });
  });
}

int IcyTestServer::connections(const std::string& path) const {
  std::lock_guard lock(state_->mutex);
  auto it = state_->connections.find(path);
  return it == state_->connections.end() ? 0 : it->second;
}

std::vector<IcyTitleMark> IcyTestServer::titles() const {
  std::lock_guard lock(state_->mutex);
  return state_->titles;
}

}  // namespace belvane::test
