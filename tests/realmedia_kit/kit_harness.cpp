// The kit test helpers.
#include "kit_harness.h"

#include "support/gst_media_files.h"
#include "support/temp_dir.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
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
    std::string bytes = readWholeFile(file);
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

RefusingRTSPServer::RefusingRTSPServer() {
  server_.route("*", [](const ReceivedRequest& request) {
    const std::string* cseq = request.header("CSeq");
    return Response::raw("RTSP/1.0 454 Session Not Found\r\nCSeq: " + (cseq ? *cseq : "1") + "\r\n\r\n");
  });
}

}  // namespace belvane::test
