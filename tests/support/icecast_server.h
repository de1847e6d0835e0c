// IcecastServer: a real Icecast 2 server on a loopback port for end-to-end
// stream tests. It runs Debian's `icecast2` with a configuration generated
// in a temporary directory (as the current user; as root it lets Icecast
// change to "nobody"), feeds a mount with MP3 data over an HTTP PUT source
// connection paced at the data's bit rate, changes the stream title through
// the admin interface (/admin/metadata?mode=updinfo) and reads from its
// statistics (/admin/stats) how many listener connections it accepted. All
// calls come from the test's thread; the source is fed from a thread of its own.
//
//   IcecastServer ice;
//   if (!ice.available()) GTEST_SKIP() << "icecast2 is not installed";
//   ASSERT_TRUE(ice.start());
//   ice.startSource("/live.mp3", mp3Bytes, 16000);
//   ice.setTitle("/live.mp3", "First");
//   EXPECT_EQ(ice.listenerConnections(), 1);  // once a player plays the mount
#pragma once

#include <atomic>
#include <string>
#include <thread>

namespace belvane::test {

class IcecastServer {
 public:
  IcecastServer();
  ~IcecastServer();
  IcecastServer(const IcecastServer&) = delete;
  IcecastServer& operator=(const IcecastServer&) = delete;

  // Whether icecast2 is installed.
  static bool available();
  // Starts the server with the given ICY metadata interval; false (logged)
  // when it does not answer within a few seconds.
  bool start(int metaint = 16000);
  std::string url(const std::string& mount) const;

  // Feeds `mount` with `mp3` round and round at bytesPerSecond (after a
  // short burst) until the server stops; true once Icecast accepted it.
  // Other data (AAC) is sent with its own content type.
  bool startSource(const std::string& mount, const std::string& mp3, int bytesPerSecond,
                   const std::string& contentType = "audio/mpeg");
  // Ends the source connection, as a DJ who hands over does; the mount goes
  // and its listeners are dropped. startSource may follow.
  void stopSource();
  // Sets the mount's stream title; true when Icecast answered 200.
  bool setTitle(const std::string& mount, const std::string& title);
  // How many listener connections (GETs of a mount it served) Icecast has
  // accepted since it started, on all mounts; -1 when its statistics cannot
  // be read. The helper itself makes none. Icecast 2.4 answers a HEAD of a
  // mount with 400 and does not count it.
  int listenerConnections() const;

 private:
  // The value of an XPath expression over /admin/stats, empty when absent.
  std::string adminStat(const std::string& xpath) const;

  std::string dir_;
  int port_ = 0;
  int pid_ = -1;
  std::atomic<bool> stopping_{false};
  std::thread source_;
  int sourceFd_ = -1;
};

}  // namespace belvane::test
