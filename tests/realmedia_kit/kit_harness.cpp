// The kit test helpers.
#include "kit_harness.h"

#include "support/temp_dir.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace belvane::test {

namespace {

const char* const kObservedStatistics[] = {"title", "author", "copyright"};

KitRecorder& recorder(void* context) { return *static_cast<KitRecorder*>(context); }

void putBigEndian32(std::string& bytes, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) bytes[at + i] = char(value >> (24 - 8 * i));
}

uint32_t bigEndian32(const std::string& bytes, size_t at) {
  uint32_t value = 0;
  for (int i = 0; i < 4; ++i) value = value << 8 | uint8_t(bytes[at + i]);
  return value;
}

}  // namespace

const KitClasses& builtKit() {
  static KitClasses classes = [] {
    KitClasses c;
    void* handle = dlopen(HXCLIENTKIT_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!handle) throw std::runtime_error(std::string("cannot load the kit: ") + dlerror());
    c.player = static_cast<const HXClientPlayerClass*>(dlsym(handle, HX_CLIENT_PLAYER_CLASS_SYMBOL));
    c.view = static_cast<const HXClientViewClass*>(dlsym(handle, HX_CLIENT_VIEW_CLASS_SYMBOL));
    return c;
  }();
  return classes;
}

KitRecorder::KitRecorder() {
  observer.context = this;
  observer.onContentStateChanged = [](void* c, int32_t from, int32_t to) { recorder(c).states.emplace_back(from, to); };
  observer.onContentConcluded = [](void* c) {
    ++recorder(c).concluded;
    recorder(c).statesAtConclusion = recorder(c).states.size();
  };
  observer.onErrorOccurred = [](void* c, const char* failure, const char* message, const char* const* keys,
                                const char* const* values, size_t count) {
    KitError error{failure ? failure : "", message ? message : "", {}};
    for (size_t i = 0; i < count; ++i) error.params[keys[i]] = values[i];
    recorder(c).errors.push_back(error);
  };
  observer.onLengthChanged = [](void* c, uint32_t ms) { recorder(c).lengths.push_back(ms); };
  observer.onAddedStatistic = [](void* c, const char* name, const char* value, void*) {
    recorder(c).notices.push_back(std::string("added ") + name + "=" + value);
  };
  observer.onModifiedStatistic = [](void* c, const char* name, const char* value, void*) {
    recorder(c).notices.push_back(std::string("modified ") + name + "=" + value);
  };
  observer.onDeletedStatistic = [](void* c, const char* name, void*) {
    recorder(c).notices.push_back(std::string("deleted ") + name);
  };
}

std::vector<int32_t> KitRecorder::stateSequence() const {
  std::vector<int32_t> out;
  for (const auto& s : states) out.push_back(s.second);
  return out;
}

KitSession::KitSession() : kit(*builtKit().player) {
  view = builtKit().view->initWithFrame(0, 0, 0, 0);
  player = kit.initInView(view, &events.observer);
  if (!player) throw std::runtime_error("the kit made no player");
  for (const char* name : kObservedStatistics) kit.addObserver(player, &events.observer, name, nullptr);
}

KitSession::~KitSession() { release(); }

void KitSession::release() {
  if (player) {
    for (const char* name : kObservedStatistics) kit.removeObserver(player, &events.observer, name, nullptr);
    kit.release(player);
    player = nullptr;
  }
  if (view) builtKit().view->release(view);
  view = nullptr;
}

std::string KitSession::statistic(const char* name) const {
  char* value = kit.copyStatisticsFor(player, name);
  std::string out = value ? value : "<none>";
  std::free(value);
  return out;
}

const std::string& realAudioFile() {
  static TempDir dir;
  static std::string path = [] {
    std::string file = dir.path() + "/tone.rm";
    std::string command =
        "ffmpeg -nostdin -loglevel error -y -f lavfi -i sine=frequency=440:duration=3:sample_rate=8000 -ac 1 "
        "-c:a real_144 -metadata title=T -metadata author=A -metadata copyright=C '" + file + "'";
    if (std::system(command.c_str()) != 0) throw std::runtime_error("ffmpeg could not make " + file);
    // ffmpeg's RealMedia muxer writes what RealAudio's own tools do not: it
    // labels the 14.4 codec "lpcJ" (GStreamer's demuxer knows "14_4"), and
    // for audio-only files it leaves the duration and every packet's time
    // stamp at 0, and writes no seek index. Put in the codec name,
    // 3000 ms, one 20 ms frame per packet and an index entry every 10
    // packets.
    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    size_t fourcc = bytes.find("lpcJ"), prop = bytes.find("PROP"), mdpr = bytes.find("MDPR"), data = bytes.find("DATA");
    if (fourcc == std::string::npos || prop == std::string::npos || mdpr == std::string::npos ||
        data == std::string::npos)
      throw std::runtime_error("unexpected RealMedia layout from ffmpeg");
    bytes.replace(fourcc, 4, "14_4");
    putBigEndian32(bytes, prop + 10 + 20, 3000);      // after 5 counters
    putBigEndian32(bytes, mdpr + 10 + 2 + 24, 3000);  // after stream number and 6 counters
    // Packets follow the 18-byte data header: version, length, stream
    // number, time stamp (ms), group, flags, payload.
    uint32_t packets = bigEndian32(bytes, data + 10);
    size_t at = data + 18;
    std::string entries;  // version, time stamp, file offset, packet number
    uint32_t entryCount = 0;
    for (uint32_t i = 0; i < packets && at + 12 <= bytes.size(); ++i) {
      size_t length = uint8_t(bytes[at + 2]) << 8 | uint8_t(bytes[at + 3]);
      if (length < 12) break;
      putBigEndian32(bytes, at + 6, i * 20);
      if (i % 10 == 0) {
        std::string entry(14, '\0');
        putBigEndian32(entry, 2, i * 20);
        putBigEndian32(entry, 6, uint32_t(at));
        putBigEndian32(entry, 10, i);
        entries += entry;
        ++entryCount;
      }
      at += length;
    }
    // The index chunk: header, version, entry count, stream 0, no next index.
    std::string index = "INDX" + std::string(16, '\0') + entries;
    putBigEndian32(index, 4, uint32_t(index.size()));
    putBigEndian32(index, 10, entryCount);
    putBigEndian32(bytes, prop + 10 + 28, uint32_t(bytes.size()));  // the index's offset
    bytes += index;
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;
    return file;
  }();
  return path;
}

std::string realAudioBytes() {
  std::ifstream in(realAudioFile(), std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), {});
}

RefusingRTSPServer::RefusingRTSPServer() {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(listener_, 8) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    throw std::runtime_error("the RTSP test server cannot listen");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] {
    while (!stopping_) {
      pollfd p{listener_, POLLIN, 0};
      if (poll(&p, 1, 50) <= 0) continue;
      int client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      std::string request;
      char buffer[2048];
      pollfd c{client, POLLIN, 0};
      while (request.find("\r\n\r\n") == std::string::npos && poll(&c, 1, 2000) > 0) {
        ssize_t n = read(client, buffer, sizeof buffer);
        if (n <= 0) break;
        request.append(buffer, size_t(n));
      }
      std::string cseq = "1";
      std::istringstream lines(request);
      for (std::string line; std::getline(lines, line);)
        if (strncasecmp(line.c_str(), "CSeq:", 5) == 0) cseq = std::to_string(std::atoi(line.c_str() + 5));
      std::string reply = "RTSP/1.0 454 Session Not Found\r\nCSeq: " + cseq + "\r\n\r\n";
      (void)!write(client, reply.data(), reply.size());
      close(client);
    }
  });
}

RefusingRTSPServer::~RefusingRTSPServer() {
  stopping_ = true;
  thread_.join();
  close(listener_);
}

std::string RefusingRTSPServer::url(const std::string& path) const {
  return "rtsp://127.0.0.1:" + std::to_string(port_) + path;
}

ScopedAudioOutput::ScopedAudioOutput(const char* output) {
  if (const char* old = std::getenv("BELVANE_AUDIO_OUTPUT")) saved_ = old;
  setenv("BELVANE_AUDIO_OUTPUT", output, 1);
}

ScopedAudioOutput::~ScopedAudioOutput() {
  saved_ ? setenv("BELVANE_AUDIO_OUTPUT", saved_->c_str(), 1) : unsetenv("BELVANE_AUDIO_OUTPUT");
}

namespace {
int entriesIn(const char* folder) {
  std::error_code ec;
  int n = 0;
  for (auto it = std::filesystem::directory_iterator(folder, ec); !ec && it != std::filesystem::directory_iterator();
       it.increment(ec))
    ++n;
  return n;
}
}  // namespace

int threadCount() { return entriesIn("/proc/self/task"); }
int openDescriptorCount() { return entriesIn("/proc/self/fd"); }

}  // namespace belvane::test
