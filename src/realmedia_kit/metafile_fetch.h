// MetafileFetch: looks at an HTTP(S) URL before it is played, on a worker
// thread with libcurl, to find out whether it serves a RAM metafile (by the
// URL's extension or the reply's content type). A metafile's text is read
// and parsed; any other reply is dropped after its header so that the
// player can stream the URL itself. The result is delivered on the kit's
// main context; cancel() (called there) stops the transfer and the report.
#pragma once

#include "kit_errors.h"

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

typedef struct _GMainContext GMainContext;

namespace belvane::detail {

struct MetafileFetchResult {
  bool isMetafile = false;
  std::vector<std::string> urls;    // a metafile's entries
  std::optional<KitFailure> failure;  // the URL could not be fetched
};

class MetafileFetch {
 public:
  using Completion = std::function<void(MetafileFetchResult)>;

  // Starts fetching url; done runs later on context unless cancelled first.
  // knownMetafile: the caller already knows the URL names a metafile.
  static std::shared_ptr<MetafileFetch> start(const std::string& url, bool knownMetafile, GMainContext* context,
                                              Completion done);
  void cancel() { cancelled_ = true; }

  struct Job;

 private:
  std::atomic<bool> cancelled_{false};
};

}  // namespace belvane::detail
