// An endless AAC station with ICY stream titles on the loopback server.
#include "quicktime_test_support.h"

#include <algorithm>

namespace belvane::test {

namespace {
constexpr size_t kMetaInt = 8192;

std::string metadataBlock(const std::string& title) {
  std::string text = "StreamTitle='" + title + "';";
  size_t blocks = (text.size() + 15) / 16;
  text.resize(blocks * 16, '\0');
  return std::string(1, char(blocks)) + text;
}
}  // namespace

void AACStation::setTitle(const std::string& title) {
  std::lock_guard lock(shared_->mutex);
  shared_->title = title;
}

AACStation::AACStation(TestHTTPServer& server, const std::string& path, std::string adts, std::string title) {
  setTitle(title);
  server.route(path, [adts, shared = shared_](const ReceivedRequest& request) {
    const std::string* wanted = request.header("Icy-MetaData");
    bool icy = wanted && *wanted == "1";
    Response response("HTTP/1.0 200 OK");
    response.header("Content-Type", "audio/aacp").header("icy-name", "Belvane Test AAC");
    if (icy) response.header("icy-metaint", std::to_string(kMetaInt));
    // adts holds three seconds of sound: a one-second burst, then real time.
    response.generate([adts, shared, icy](ResponseWriter& writer) {
      const size_t perTick = std::max<size_t>(adts.size() / 30, 1);  // ~0.1 s
      size_t offset = 0, sinceMeta = 0, sent = 0;
      while (true) {
        size_t want = perTick;
        std::string out;
        while (want > 0) {
          size_t n = std::min({want, adts.size() - offset, icy ? kMetaInt - sinceMeta : want});
          out.append(adts, offset, n);
          offset = (offset + n) % adts.size();
          want -= n;
          sinceMeta += n;
          if (icy && sinceMeta == kMetaInt) {
            std::lock_guard lock(shared->mutex);
            out += metadataBlock(shared->title);
            sinceMeta = 0;
          }
        }
        if (!writer.write(out)) return;
        if (++sent > 10 && !writer.pause(0.1)) return;
      }
    });
    return response;
  });
}

}  // namespace belvane::test
