// Fetching possible RAM metafiles over HTTP on a worker thread.
#include "metafile_fetch.h"

#include "ram_metafile.h"

#include <curl/curl.h>
#include <glib.h>

#include <mutex>
#include <thread>

namespace belvane::detail {

namespace {

constexpr size_t kMaxMetafileBytes = 256 * 1024;
constexpr long kConnectTimeoutSeconds = 15;
constexpr long kTransferTimeoutSeconds = 30;

}  // namespace

struct MetafileFetch::Job {
  std::shared_ptr<MetafileFetch> fetch;
  std::string url;
  bool knownMetafile = false;
  GMainContext* context = nullptr;
  Completion done;
  MetafileFetchResult result;

  CURL* curl = nullptr;
  bool sawBody = false;
  bool isMetafile = false;
  std::string body;

  ~Job() {
    if (context) g_main_context_unref(context);
  }

  // Decides, once the header is in, whether the reply is a metafile.
  void decide() {
    char* type = nullptr;
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
    char* effective = nullptr;
    curl_easy_getinfo(curl, CURLINFO_EFFECTIVE_URL, &effective);
    isMetafile = knownMetafile || (type && isRamMetafileType(type)) || (effective && isRamMetafileURL(effective));
  }

  long status() const {
    long code = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
    return code;
  }

  static size_t onData(char* data, size_t size, size_t count, void* pointer) {
    auto* job = static_cast<Job*>(pointer);
    size_t bytes = size * count;
    if (!job->sawBody) {
      job->sawBody = true;
      job->decide();
      if (job->isMetafile && looksLikeRealMedia(data, bytes)) job->isMetafile = false;
    }
    // Error pages and streams are not read: the answer is already known.
    if (!job->isMetafile || job->status() >= 400) return 0;
    if (job->body.size() + bytes > kMaxMetafileBytes) return 0;
    job->body.append(data, bytes);
    return bytes;
  }

  static int onProgress(void* pointer, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Job*>(pointer)->fetch->cancelled_ ? 1 : 0;
  }

  void run() {
    char errorText[CURL_ERROR_SIZE] = "";
    curl = curl_easy_init();
    if (!curl) {
      result.failure = KitFailure{KitResult::GeneralFailure, "could not start a transfer", url};
      return;
    }
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 10L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, kTransferTimeoutSeconds);
    curl_easy_setopt(curl, CURLOPT_USERAGENT, "RealMedia Player HXClientKit");
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &Job::onData);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, &Job::onProgress);
    curl_easy_setopt(curl, CURLOPT_XFERINFODATA, this);
    CURLcode code = curl_easy_perform(curl);
    long httpStatus = status();
    if (!sawBody && code == CURLE_OK) decide();

    if (httpStatus >= 400) {
      result.failure = KitFailure{kitResultForStatus(httpStatus), "HTTP status " + std::to_string(httpStatus), url};
    } else if (code == CURLE_WRITE_ERROR && !isMetafile) {
      result.isMetafile = false;  // a stream: the player reads it itself
    } else if (code != CURLE_OK) {
      long osErrno = 0;
      curl_easy_getinfo(curl, CURLINFO_OS_ERRNO, &osErrno);
      result.failure = kitFailureFromCurl(code, errorText, int(osErrno), url);
    } else if (isMetafile) {
      result.isMetafile = true;
      gchar* text = g_utf8_make_valid(body.data(), gssize(body.size()));
      result.urls = parseRamMetafile(text, url);
      g_free(text);
      if (result.urls.empty())
        result.failure = KitFailure{KitResult::InvalidFile, "the metafile lists no streams", url};
    }
    curl_easy_cleanup(curl);
    curl = nullptr;
  }
};

std::shared_ptr<MetafileFetch> MetafileFetch::start(const std::string& url, bool knownMetafile, GMainContext* context,
                                                    Completion done) {
  static std::once_flag curlReady;
  std::call_once(curlReady, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

  auto fetch = std::make_shared<MetafileFetch>();
  auto job = std::make_shared<Job>();
  job->fetch = fetch;
  job->url = url;
  job->knownMetafile = knownMetafile;
  job->context = g_main_context_ref(context);
  job->done = std::move(done);

  std::thread([job] {
    job->run();
    if (job->fetch->cancelled_) return;
    // An idle source, never g_main_context_invoke: that could run the
    // report on this thread when nobody iterates the context right now.
    GSource* source = g_idle_source_new();
    g_source_set_callback(
        source,
        [](gpointer pointer) -> gboolean {
          auto& job = *static_cast<std::shared_ptr<Job>*>(pointer);
          if (!job->fetch->cancelled_) job->done(std::move(job->result));
          return G_SOURCE_REMOVE;
        },
        new std::shared_ptr<Job>(job), [](gpointer pointer) { delete static_cast<std::shared_ptr<Job>*>(pointer); });
    g_source_attach(source, job->context);
    g_source_unref(source);
  }).detach();
  return fetch;
}

}  // namespace belvane::detail
