// Helpers shared by the streaming and player benchmarks: process CPU time,
// resident memory, descriptor and thread counts, the load average, MP3 and
// AAC programme material made with sox and lame or GStreamer's AAC encoder,
// and loopback servers run in a
// child process so that their CPU time is not charged to the code measured.
//
// The machine running these is usually shared, so the figures that matter
// are CPU times and ratios against a peer measured in the same run; every
// summary prints the load average next to them.
#pragma once

#include "support/icecast_server.h"
#include "support/mp3_test_data.h"
#include "support/test_http_server.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <fcntl.h>
#include <glib.h>
#include <glib/gstdio.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace belvane::bench {

// User + system CPU seconds of this process (all its threads).
inline double processCPUSeconds() {
  rusage u{};
  getrusage(RUSAGE_SELF, &u);
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

inline double seconds(const rusage& u) {
  return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

inline double wallSeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Resident set size in KiB (VmRSS).
inline long residentKiB() {
  std::ifstream in("/proc/self/status");
  std::string line;
  while (std::getline(in, line))
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  return -1;
}

inline int entriesIn(const char* dir) {
  int n = 0;
  if (DIR* d = opendir(dir)) {
    while (auto* e = readdir(d))
      if (e->d_name[0] != '.') ++n;
    closedir(d);
  }
  return n;
}
inline int openDescriptors() { return entriesIn("/proc/self/fd"); }
inline int threadCount() { return entriesIn("/proc/self/task"); }

inline std::string loadAverage() {
  std::ifstream in("/proc/loadavg");
  std::string a, b, c;
  in >> a >> b >> c;
  return a + " " + b + " " + c;
}

// Median and maximum of a sample (sorted copy).
struct Spread {
  double median = 0, max = 0, min = 0;
  size_t count = 0;
};
inline Spread spread(std::vector<double> v) {
  Spread s;
  if (v.empty()) return s;
  std::sort(v.begin(), v.end());
  s.count = v.size();
  s.min = v.front();
  s.max = v.back();
  s.median = v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
  return s;
}

// One line "  what   min / median / max  (count)" of a sample.
inline void printSpread(const char* what, const std::vector<double>& v) {
  auto s = spread(v);
  std::printf("  %-44s %6.1f / %6.1f / %6.1f  (%zu)\n", what, s.min, s.median, s.max, s.count);
}

// Runs argv to completion; its CPU seconds (user + system), or -1 on failure.
inline double childCPUSeconds(const std::vector<std::string>& argv) {
  pid_t pid = fork();
  if (pid == 0) {
    std::vector<char*> args;
    for (auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    int devnull = ::open("/dev/null", O_WRONLY);
    dup2(devnull, 1);
    dup2(devnull, 2);
    execvp(args[0], args.data());
    _exit(127);
  }
  int status = 0;
  rusage u{};
  if (pid < 0 || wait4(pid, &status, 0, &u) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) return -1;
  return seconds(u);
}

// `seconds` of 44.1 kHz stereo at 128 kbit/s CBR: pink noise under a
// sweeping tone (sox), encoded by lame without a tag frame, so that every
// frame is audio and the decoder works on a full spectrum as with music.
// Falls back to a sine tone when sox is missing; empty without lame.
inline std::string programmeSoxCommand(const std::string& wav, double secs) {
  std::string length = std::to_string(secs);
  return "sox -n -r 44100 -c 2 -b 16 " + wav + " synth " + length + " pinknoise synth " + length +
         " sine mix 100-4000 vol 0.4 2>/dev/null";
}

inline test::Mp3Data programmeMp3(double secs) {
  if (!test::lameAvailable()) return {};
  gchar* dir = g_dir_make_tmp("belvane-bench-XXXXXX", nullptr);
  if (!dir) return {};
  std::string wav = std::string(dir) + "/programme.wav", mp3 = std::string(dir) + "/programme.mp3";
  std::string sox = programmeSoxCommand(wav, secs);
  test::Mp3Data data;
  if (std::system(sox.c_str()) == 0 &&
      std::system(("lame --quiet -t --cbr -b 128 -m j " + wav + " " + mp3).c_str()) == 0) {
    std::ifstream in(mp3, std::ios::binary);
    data = test::splitMp3Frames(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
  } else {
    data = test::encodeTone(44100, 2, 128, secs, 440.0);
  }
  std::remove(wav.c_str());
  std::remove(mp3.c_str());
  g_rmdir(dir);
  g_free(dir);
  return data;
}

// The same programme as AAC-LC in ADTS frames at about `kbps` (GStreamer's
// avenc_aac, as the stations of the tests are made), split into its frames of
// 1024 samples. Empty when sox or gst-launch-1.0 is missing or fails.
inline test::Mp3Data programmeAac(double secs, int kbps = 96) {
  gchar* dir = g_dir_make_tmp("belvane-bench-XXXXXX", nullptr);
  if (!dir) return {};
  std::string wav = std::string(dir) + "/programme.wav", aac = std::string(dir) + "/programme.aac";
  test::Mp3Data data;
  std::string encode = "gst-launch-1.0 -q filesrc location=" + wav +
                       " ! wavparse ! audioconvert ! avenc_aac bitrate=" + std::to_string(kbps * 1000) +
                       " ! aacparse ! audio/mpeg,stream-format=adts ! filesink location=" + aac + " >/dev/null 2>&1";
  if (std::system(programmeSoxCommand(wav, secs).c_str()) == 0 && std::system(encode.c_str()) == 0) {
    std::ifstream in(aac, std::ios::binary);
    data = test::splitAdtsFrames(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()));
  }
  std::remove(wav.c_str());
  std::remove(aac.c_str());
  g_rmdir(dir);
  g_free(dir);
  return data;
}

// One ICY metadata block carrying title (a single zero byte when empty).
inline std::string icyMetadataBlock(const std::string& title) {
  if (title.empty()) return std::string(1, '\0');
  std::string text = "StreamTitle='" + title + "';";
  text.resize((text.size() + 15) / 16 * 16, '\0');
  return char(text.size() / 16) + text;
}

// An "ICY 200 OK" stream of mp3 (or ADTS) frames, round and round, with a metadata
// block every metaint audio bytes (title "Song n" in every titleEvery-th
// block, empty blocks between). bytesPerSecond 0 sends as fast as the client
// reads; otherwise a burst of burstSeconds, then the data rate. Ends after
// totalBytes of audio (0: never) by closing the connection.
struct IcyStreamShape {
  std::string contentType = "audio/mpeg";  // "audio/aacp" for an AAC+ station
  uint32_t metaint = 16000;
  int titleEvery = 0;  // 0: no titles
  int bytesPerSecond = 0;
  double burstSeconds = 1.0;
  uint64_t totalBytes = 0;
};

inline test::BodyGenerator icyStream(std::shared_ptr<const test::Mp3Data> mp3, IcyStreamShape shape) {
  return [mp3, shape](test::ResponseWriter& writer) {
    std::string head = "ICY 200 OK\r\ncontent-type: " + shape.contentType +
                       "\r\nicy-name:Belvane Bench\r\nicy-metaint:" +
                       std::to_string(shape.metaint) + "\r\n\r\n";
    if (!writer.write(head)) return;
    const std::string& bytes = mp3->bytes;
    size_t at = 0;
    uint64_t sent = 0;
    int block = 0;
    const double start = wallSeconds();
    std::string chunk;
    while (shape.totalBytes == 0 || sent < shape.totalBytes) {
      chunk.clear();
      size_t n = std::min<uint64_t>(shape.metaint - sent % shape.metaint, 16384);
      if (shape.totalBytes) n = size_t(std::min<uint64_t>(n, shape.totalBytes - sent));
      while (chunk.size() < n) {
        size_t k = std::min(n - chunk.size(), bytes.size() - at);
        chunk.append(bytes, at, k);
        at = (at + k) % bytes.size();
      }
      sent += n;
      if (sent % shape.metaint == 0) {
        ++block;
        chunk += icyMetadataBlock(shape.titleEvery && block % shape.titleEvery == 0
                                      ? "Song " + std::to_string(block / shape.titleEvery)
                                      : "");
      }
      if (!writer.write(chunk)) return;
      if (shape.bytesPerSecond > 0) {
        double due = start + double(sent) / shape.bytesPerSecond - shape.burstSeconds;
        double wait = due - wallSeconds();
        if (wait > 0 && !writer.pause(wait)) return;
      }
    }
  };
}

// The samples of the frames that start before the audio byte `offset` of a
// looped mp3 (where a decoder places the audio that follows a metadata
// block there).
inline uint64_t samplesBefore(const test::Mp3Data& mp3, uint64_t offset) {
  uint64_t loops = offset / mp3.bytes.size(), rest = offset % mp3.bytes.size();
  uint64_t samples = loops * mp3.totalSamples();
  for (auto& f : mp3.frames) {
    if (f.offset >= rest) break;
    samples += uint64_t(f.samples);
  }
  return samples;
}

// A loopback HTTP server living in a child process: `setup` runs there and
// routes the server's paths; the child ends with this object (or with the
// parent). Make it before the parent starts any thread.
class ServerProcess {
 public:
  explicit ServerProcess(const std::function<void(test::TestHTTPServer&)>& setup) {
    int ports[2], hold[2];
    if (pipe(ports) != 0 || pipe(hold) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      close(ports[0]);
      close(hold[1]);
      {
        test::TestHTTPServer server;
        setup(server);
        int port = server.port();
        if (write(ports[1], &port, sizeof port) != sizeof port) _exit(1);
        char c;
        while (read(hold[0], &c, 1) > 0) {
        }
      }
      _exit(0);
    }
    close(ports[1]);
    close(hold[0]);
    hold_ = hold[1];
    if (read(ports[0], &port_, sizeof port_) != sizeof port_) port_ = 0;
    close(ports[0]);
  }
  ~ServerProcess() {
    if (hold_ >= 0) close(hold_);
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  bool running() const { return port_ > 0; }
  std::string url(const std::string& path) const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
  int hold_ = -1;
};

// A loopback station in a child process: `secs` of programme MP3 served at
// `path` as an ICY stream of the given shape. Null, after saying why, when
// lame is missing or the server did not start. The programme is handed back
// through `programme` when asked for.
inline std::unique_ptr<ServerProcess> startProgrammeStation(double secs, const std::string& path, IcyStreamShape shape,
                                                            std::shared_ptr<const test::Mp3Data>* programme = nullptr) {
  auto mp3 = programmeMp3(secs);
  if (mp3.frames.empty()) {
    std::fprintf(stderr, "lame is needed for this benchmark\n");
    return nullptr;
  }
  auto shared = std::make_shared<const test::Mp3Data>(std::move(mp3));
  if (programme) *programme = shared;
  auto server = std::make_unique<ServerProcess>([shared, path, shape](test::TestHTTPServer& http) {
    http.route(path, test::Response::rawStream(icyStream(shared, shape)));
  });
  if (!server->running()) return nullptr;
  return server;
}

// An Icecast 2 server with `mount` fed with 20 s of programme MP3 at 16000
// B/s (metaint 16000, title "Bench"), its burst filled. Null, after saying
// why, when icecast2 or lame is missing or Icecast did not start.
inline std::unique_ptr<test::IcecastServer> startProgrammeMount(const std::string& mount) {
  if (!test::IcecastServer::available() || !test::lameAvailable()) {
    std::fprintf(stderr, "icecast2 and lame are needed for this benchmark\n");
    return nullptr;
  }
  auto programme = programmeMp3(20);
  auto ice = std::make_unique<test::IcecastServer>();
  if (!ice->start(16000) || !ice->startSource(mount, programme.bytes, 16000)) return nullptr;
  ice->setTitle(mount, "Bench");
  std::this_thread::sleep_for(std::chrono::seconds(3));  // let Icecast fill its burst
  return ice;
}

// The floor set by the server, in ms from connecting with a plain socket:
// to the whole reply head, to the first audio byte, and to holding 8000
// bytes of audio (half a second at 128 kbit/s, what the streamer buffers
// before playing); -1 where it did not come.
struct ServerTimes {
  double head = -1, firstByte = -1, halfSecond = -1;
};

inline ServerTimes serverTimes(const std::string& url) {
  int port = std::stoi(url.substr(url.rfind(':') + 1));
  std::string path = url.substr(url.find('/', url.rfind(':')));
  double t0 = wallSeconds();
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(uint16_t(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string request = "GET " + path + " HTTP/1.0\r\nIcy-MetaData: 1\r\n\r\n";
  ServerTimes times;
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) == ssize_t(request.size())) {
    std::string got;
    char buf[16384];
    size_t head = std::string::npos;
    for (ssize_t n; (n = recv(fd, buf, sizeof buf, 0)) > 0;) {
      got.append(buf, size_t(n));
      if (head == std::string::npos) {
        head = got.find("\r\n\r\n");
        if (head != std::string::npos) times.head = 1000 * (wallSeconds() - t0);
      }
      if (head != std::string::npos && times.firstByte < 0 && got.size() > head + 4)
        times.firstByte = 1000 * (wallSeconds() - t0);
      if (head != std::string::npos && got.size() >= head + 4 + 8000) {
        times.halfSecond = 1000 * (wallSeconds() - t0);
        break;
      }
    }
  }
  close(fd);
  return times;
}

// Such a mount and its URL, held for a benchmark's run.
struct ProgrammeMount {
  std::unique_ptr<test::IcecastServer> ice;
  std::string url;
  bool start(const std::string& mount) {
    ice = startProgrammeMount(mount);
    if (ice) url = ice->url(mount);
    return ice != nullptr;
  }
};

}  // namespace belvane::bench
