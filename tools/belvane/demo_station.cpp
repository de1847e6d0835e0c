// DemoStation: the accept loop and the paced ICY stream of the demo clip.
#include "demo_station.h"

#include <belvane/BVResources.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <sstream>

namespace belvane::tool {

namespace {
constexpr int kIntervalsPerPiece = 10;
constexpr double kBytesPerSecond = 128000 / 8.0;  // the clip is 128 kbit/s CBR
constexpr double kBurstSeconds = 2.0;              // sent at once, like a real station

bool sendAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    size -= size_t(n);
  }
  return true;
}
}  // namespace

const std::vector<std::string>& DemoStation::pieceTitles() {
  static const std::vector<std::string> titles{
      "Belvane Demo - Morning in C", "Belvane Demo - Rain in A minor", "Belvane Demo - Fields in F",
      "Belvane Demo - The Road in G"};
  return titles;
}

DemoStation::~DemoStation() {
  stopping_ = true;
  if (listenFd_ >= 0) ::shutdown(listenFd_, SHUT_RDWR);
  if (acceptThread_.joinable()) acceptThread_.join();
  {
    std::lock_guard lock(mutex_);
    for (int fd : clientFds_) ::shutdown(fd, SHUT_RDWR);
  }
  for (auto& t : clients_) t.join();
  if (listenFd_ >= 0) ::close(listenFd_);
}

bool DemoStation::start() {
  auto path = BVResources::frameworkPathForResource("demo-station", "mp3");
  if (!path) {
    error_ = "The demo clip demo-station.mp3 is not among the framework's resources.";
    return false;
  }
  std::ifstream in(*path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  clip_ = ss.str();
  size_t pieces = pieceTitles().size();
  metaint_ = clip_.size() / (pieces * kIntervalsPerPiece);
  if (metaint_ == 0) {
    error_ = "The demo clip " + *path + " is empty.";
    return false;
  }
  listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listenFd_, 8) != 0 || ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
    error_ = "The demo station could not open a loopback socket.";
    return false;
  }
  port_ = ntohs(addr.sin_port);
  acceptThread_ = std::thread([this] { acceptLoop(); });
  return true;
}

std::string DemoStation::url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/demo"; }

void DemoStation::acceptLoop() {
  while (!stopping_) {
    int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) return;
    std::lock_guard lock(mutex_);
    if (stopping_) {
      ::close(fd);
      return;
    }
    clientFds_.push_back(fd);
    clients_.emplace_back([this, fd] { serve(fd); });
  }
}

// The metadata block after the audio up to audioOffset: the title of the
// piece that the next audio belongs to, or an empty block when it is the
// one sent last.
std::string DemoStation::titleBlock(uint64_t audioOffset, std::string& lastTitle) const {
  size_t piece = (audioOffset % clip_.size()) / (metaint_ * kIntervalsPerPiece);
  const auto& titles = pieceTitles();
  const std::string& title = titles[std::min(piece, titles.size() - 1)];
  if (title == lastTitle) return std::string(1, '\0');
  lastTitle = title;
  std::string text = "StreamTitle='" + title + "';";
  size_t blocks = (text.size() + 15) / 16;
  text.resize(blocks * 16, '\0');
  return std::string(1, char(blocks)) + text;
}

void DemoStation::serve(int fd) {
  // Read the request head (its content does not matter: one stream).
  std::string head;
  char buf[1024];
  while (head.find("\r\n\r\n") == std::string::npos && head.size() < 16384) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 5000) <= 0) break;
    ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) break;
    head.append(buf, size_t(n));
  }
  bool wantsMetadata = head.find("Icy-MetaData: 1") != std::string::npos ||
                       head.find("icy-metadata: 1") != std::string::npos;
  std::string reply = "ICY 200 OK\r\nicy-name: Belvane Demo Station\r\ncontent-type: audio/mpeg\r\nicy-br: 128\r\n";
  if (wantsMetadata) reply += "icy-metaint: " + std::to_string(metaint_) + "\r\n";
  reply += "\r\n";
  bool ok = sendAll(fd, reply.data(), reply.size());

  auto begin = std::chrono::steady_clock::now();
  uint64_t sent = 0;  // audio bytes
  std::string lastTitle;
  while (ok && !stopping_) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    auto allowed = uint64_t((seconds + kBurstSeconds) * kBytesPerSecond);
    if (sent >= allowed) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      continue;
    }
    // Up to the next metadata point, the end of the clip or the allowance.
    size_t pos = size_t(sent % clip_.size());
    uint64_t toMeta = wantsMetadata ? metaint_ - sent % metaint_ : UINT64_MAX;
    size_t n = size_t(std::min<uint64_t>({toMeta, clip_.size() - pos, allowed - sent}));
    ok = sendAll(fd, clip_.data() + pos, n);
    sent += n;
    if (ok && wantsMetadata && sent % metaint_ == 0) {
      std::string block = titleBlock(sent, lastTitle);
      ok = sendAll(fd, block.data(), block.size());
    }
  }
  std::lock_guard lock(mutex_);
  for (auto it = clientFds_.begin(); it != clientFds_.end(); ++it)
    if (*it == fd) {
      clientFds_.erase(it);
      break;
    }
  ::close(fd);
}

}  // namespace belvane::tool
