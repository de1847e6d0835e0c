// DemoStation: the built-in demo for `belvane play` without a URL. A small
// Shoutcast-style server on 127.0.0.1 that plays the bundled clip
// (resources/demo-station.mp3, synthesised chords) round and round at its
// own bit rate, with an ICY StreamTitle for each piece of the clip, so that
// titles can be seen changing on cue without any network.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace belvane::tool {

class DemoStation {
 public:
  // Names of the clip's pieces, in order; each takes an equal share of it.
  static const std::vector<std::string>& pieceTitles();

  DemoStation() = default;
  ~DemoStation();
  DemoStation(const DemoStation&) = delete;
  DemoStation& operator=(const DemoStation&) = delete;

  // Loads the clip and starts listening; false (with a message in error())
  // when the clip is missing or no socket could be opened.
  bool start();
  std::string url() const;
  const std::string& error() const { return error_; }
  // The metadata interval in audio bytes (a piece is ten intervals).
  size_t metaint() const { return metaint_; }

 private:
  void acceptLoop();
  void serve(int fd);
  std::string titleBlock(uint64_t audioOffset, std::string& lastTitle) const;

  std::string clip_;
  size_t metaint_ = 0;
  int listenFd_ = -1;
  int port_ = 0;
  std::string error_;
  std::atomic<bool> stopping_{false};
  std::thread acceptThread_;
  std::mutex mutex_;
  std::vector<int> clientFds_;
  std::vector<std::thread> clients_;
};

}  // namespace belvane::tool
