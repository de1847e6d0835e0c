// Helpers for the general engine's player tests: media made on the fly and an
// endless ADTS station with ICY stream titles served from a loopback server.
#pragma once

#include "support/gst_media_files.h"
#include "support/recording_owner.h"
#include "support/test_http_server.h"

#include <memory>
#include <mutex>
#include <string>

namespace belvane::test {

// An endless AAC station: the ADTS bytes round and round, paced at about
// real time after a short burst, with an ICY metadata block every metaint
// bytes carrying "StreamTitle='<title>';" when the client asked for them.
class AACStation {
 public:
  AACStation(TestHTTPServer& server, const std::string& path, std::string adts, std::string title);
  void setTitle(const std::string& title);

  struct Shared {
    std::mutex mutex;
    std::string title;
  };

 private:
  std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace belvane::test
