// IcecastServer: configuration, process, source feeding and admin calls.
#include "support/icecast_server.h"
#include "support/test_http_server.h"

#include <arpa/inet.h>
#include <glib.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace belvane::test {

namespace {
const char* const kSourcePassword = "belvane-source";
const char* const kAdminPassword = "belvane-admin";

int connectTo(int port) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(uint16_t(port));
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    close(fd);
    return -1;
  }
  timeval tv{5, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
  return fd;
}

bool sendAll(int fd, const char* p, size_t n) {
  while (n) {
    ssize_t w = send(fd, p, n, MSG_NOSIGNAL);
    if (w <= 0) return false;
    p += w;
    n -= size_t(w);
  }
  return true;
}

// Sends a request head and returns the status line of the answer.
std::string request(int fd, const std::string& head) {
  if (!sendAll(fd, head.data(), head.size())) return {};
  std::string reply;
  char c;
  while (reply.size() < 512 && recv(fd, &c, 1, 0) == 1 && c != '\n') reply += c;
  return reply;
}

// The body of the answer to an HTTP/1.0 request (read to its end).
std::string body(int fd, const std::string& head) {
  if (!sendAll(fd, head.data(), head.size())) return {};
  std::string reply;
  char buffer[4096];
  ssize_t n;
  while (reply.size() < (1u << 20) && (n = recv(fd, buffer, sizeof buffer, 0)) > 0) reply.append(buffer, size_t(n));
  size_t end = reply.find("\r\n\r\n");
  return end == std::string::npos ? std::string() : reply.substr(end + 4);
}

std::string basicAuth(const std::string& user, const std::string& password) {
  std::string plain = user + ":" + password;
  gchar* b64 = g_base64_encode(reinterpret_cast<const guchar*>(plain.data()), plain.size());
  std::string out = "Authorization: Basic " + std::string(b64) + "\r\n";
  g_free(b64);
  return out;
}
}  // namespace

IcecastServer::IcecastServer() = default;

void IcecastServer::stopSource() {
  stopping_ = true;
  if (sourceFd_ >= 0) shutdown(sourceFd_, SHUT_RDWR);
  if (source_.joinable()) source_.join();
  if (sourceFd_ >= 0) close(sourceFd_);
  sourceFd_ = -1;
  stopping_ = false;
}

IcecastServer::~IcecastServer() {
  stopSource();
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    waitpid(pid_, nullptr, 0);
  }
  if (!dir_.empty()) {
    for (const char* f : {"icecast.xml", "error.log", "access.log", "icecast.pid"})
      std::remove((dir_ + "/" + f).c_str());
    rmdir(dir_.c_str());
  }
}

bool IcecastServer::available() {
  gchar* path = g_find_program_in_path("icecast2");
  bool found = path != nullptr;
  g_free(path);
  return found;
}

bool IcecastServer::start(int metaint) {
  char pattern[] = "/tmp/belvane-icecast-XXXXXX";
  if (!mkdtemp(pattern)) return false;
  dir_ = pattern;
  bool root = geteuid() == 0;
  if (root) chmod(dir_.c_str(), 0777);  // Icecast writes its logs as "nobody"
  port_ = TestHTTPServer::refusedPort();  // free now: Icecast listens there
  std::ofstream(dir_ + "/icecast.xml")
      << "<icecast><limits><clients>20</clients><sources>4</sources><burst-on-connect>1</burst-on-connect>"
         "<burst-size>32000</burst-size><source-timeout>10</source-timeout></limits>"
      << "<authentication><source-password>" << kSourcePassword << "</source-password><admin-user>admin</admin-user>"
      << "<admin-password>" << kAdminPassword << "</admin-password></authentication>"
      << "<hostname>127.0.0.1</hostname><listen-socket><port>" << port_
      << "</port><bind-address>127.0.0.1</bind-address></listen-socket>"
      << "<mount type=\"default\"><mp3-metadata-interval>" << metaint << "</mp3-metadata-interval></mount>"
      << "<fileserve>0</fileserve><paths><basedir>" << dir_ << "</basedir><logdir>" << dir_
      << "</logdir><webroot>/usr/share/icecast2/web</webroot><adminroot>/usr/share/icecast2/admin</adminroot>"
      << "<pidfile>" << dir_ << "/icecast.pid</pidfile></paths>"
      << "<logging><accesslog>access.log</accesslog><errorlog>error.log</errorlog><loglevel>2</loglevel></logging>"
      << "<security><chroot>0</chroot>"
      << (root ? "<changeowner><user>nobody</user><group>nogroup</group></changeowner>" : "")
      << "</security></icecast>\n";
  std::string config = dir_ + "/icecast.xml";
  gchar* argv[] = {const_cast<gchar*>("icecast2"), const_cast<gchar*>("-c"), const_cast<gchar*>(config.c_str()),
                   nullptr};
  GPid pid = 0;
  if (!g_spawn_async(dir_.c_str(), argv, nullptr,
                     GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_STDOUT_TO_DEV_NULL |
                                 G_SPAWN_STDERR_TO_DEV_NULL),
                     nullptr, nullptr, &pid, nullptr))
    return false;
  pid_ = pid;
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < deadline) {
    int fd = connectTo(port_);
    if (fd >= 0) {
      std::string status = request(fd, "GET /status-json.xsl HTTP/1.0\r\nHost: 127.0.0.1\r\n\r\n");
      close(fd);
      if (status.find(" 200") != std::string::npos) return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  std::fprintf(stderr, "icecast2 did not answer on port %d\n", port_);
  return false;
}

std::string IcecastServer::url(const std::string& mount) const {
  return "http://127.0.0.1:" + std::to_string(port_) + mount;
}

bool IcecastServer::startSource(const std::string& mount, const std::string& mp3, int bytesPerSecond,
                                const std::string& contentType) {
  sourceFd_ = connectTo(port_);
  if (sourceFd_ < 0) return false;
  std::string status = request(sourceFd_, "PUT " + mount + " HTTP/1.1\r\nHost: 127.0.0.1\r\n" +
                                              basicAuth("source", kSourcePassword) +
                                              "Content-Type: " + contentType + "\r\nIce-Public: 0\r\nIce-Name: Belvane Test\r\n\r\n");
  if (status.find(" 200") == std::string::npos) return false;
  char c;  // the rest of the answer's head
  std::string tail;
  while (tail.size() < 4096 && recv(sourceFd_, &c, 1, 0) == 1) {
    tail += c;
    if (tail.size() >= 3 && tail.compare(tail.size() - 3, 3, "\n\r\n") == 0) break;
    if (tail == "\r\n") break;
  }
  source_ = std::thread([this, mp3, bytesPerSecond] {
    auto begin = std::chrono::steady_clock::now();
    uint64_t sent = 0;
    const uint64_t burst = uint64_t(bytesPerSecond) * 2;
    while (!stopping_) {
      double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
      uint64_t allowed = burst + uint64_t(seconds * bytesPerSecond);
      if (sent >= allowed) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        continue;
      }
      size_t pos = size_t(sent % mp3.size());
      size_t n = size_t(std::min<uint64_t>(allowed - sent, mp3.size() - pos));
      if (!sendAll(sourceFd_, mp3.data() + pos, n)) return;
      sent += n;
    }
  });
  // Wait until the mount plays: Icecast sets its stream_start when the source
  // runs. (Asking the statistics rather than the mount keeps the listener
  // connections the tests count theirs.)
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (std::chrono::steady_clock::now() < deadline) {
    if (!adminStat("string(/icestats/source[@mount='" + mount + "']/stream_start)").empty()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return false;
}

bool IcecastServer::setTitle(const std::string& mount, const std::string& title) {
  gchar* m = g_uri_escape_string(mount.c_str(), nullptr, FALSE);
  gchar* t = g_uri_escape_string(title.c_str(), nullptr, FALSE);
  std::string path = std::string("/admin/metadata?mount=") + m + "&mode=updinfo&song=" + t;
  g_free(m);
  g_free(t);
  int fd = connectTo(port_);
  if (fd < 0) return false;
  std::string status = request(fd, "GET " + path + " HTTP/1.0\r\nHost: 127.0.0.1\r\n" +
                                       basicAuth("admin", kAdminPassword) + "\r\n");
  close(fd);
  return status.find(" 200") != std::string::npos;
}

std::string IcecastServer::adminStat(const std::string& xpath) const {
  int fd = connectTo(port_);
  if (fd < 0) return {};
  std::string xml = body(fd, "GET /admin/stats HTTP/1.0\r\nHost: 127.0.0.1\r\n" + basicAuth("admin", kAdminPassword) +
                                 "\r\n");
  close(fd);
  xmlDocPtr doc = xmlReadMemory(xml.data(), int(xml.size()), "stats.xml", nullptr, XML_PARSE_NONET | XML_PARSE_NOERROR);
  if (!doc) return {};
  std::string value;
  xmlXPathContextPtr context = xmlXPathNewContext(doc);
  if (xmlXPathObjectPtr result = context ? xmlXPathEvalExpression(BAD_CAST xpath.c_str(), context) : nullptr) {
    if (result->type == XPATH_STRING && result->stringval) value = reinterpret_cast<const char*>(result->stringval);
    xmlXPathFreeObject(result);
  }
  xmlXPathFreeContext(context);
  xmlFreeDoc(doc);
  return value;
}

int IcecastServer::listenerConnections() const {
  std::string count = adminStat("string(/icestats/listener_connections)");
  return count.empty() ? -1 : std::atoi(count.c_str());
}

}  // namespace belvane::test
