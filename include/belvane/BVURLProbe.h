// BVURLProbe: finds out what a URL really serves by reading the first bytes
// of its reply. The content type comes from the response's "Content-Type"
// header field or, for Shoutcast servers whose "ICY" header block arrives as
// body bytes, from a raw header block parsed out of those bytes.
//
// BVURLProbeThread runs the download on a detached worker thread with its own
// run loop and keeps only the first chunk of body bytes; the caller waits for
// it, then cuts the connection.
#pragma once

#include <belvane/BVExport.h>

#include <belvane/BVError.h>
#include <belvane/BVObject.h>
#include <belvane/BVURL.h>
#include <belvane/BVURLConnection.h>

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

// Header fields as the raw parser produces them.
using BVHeaderDictionary = std::map<std::string, std::string>;

class BV_EXPORT BVURLProbe final : public BVObject {
 public:
  static std::shared_ptr<BVURLProbe> create(BVURL url);

  // Probes the URL (blocking, up to 20 s) and returns its content type.
  std::optional<std::string> contentType();

  const BVURL& URL() const { return _URL; }
  // The bytes the last contentType() call received (nothing before one).
  const std::optional<BVData>& data() const { return _data; }

  // Keys lower-cased, values trimmed of spaces and tabs; of keys differing
  // only by case, the one later in key order wins.
  static BVHeaderDictionary dictionaryWithAllKeysLowercase(const BVHeaderDictionary& dictionary);
  // Parses a raw header block: "key: value" lines (split at CR LF only) and
  // Shoutcast "ICY nnn" status lines. A status other than 200 stores an
  // "ORShoutcastErrorDomain" error in *error (when error is given).
  static BVHeaderDictionary parseHeader(std::string_view header, BVErrorRef* error);
  // The content type of a raw header block found in bytes (the last
  // "content-type" line of the text up to the last blank line), if any.
  static std::optional<std::string> contentTypeFromRawBytes(std::span<const uint8_t> bytes);

  std::string className() const override { return "BVURLProbe"; }

  explicit BVURLProbe(BVURL url) : _URL(std::move(url)) {}

 private:
  BVURL _URL;
  std::optional<BVData> _data;
};

class BV_EXPORT BVURLProbeThread final : public BVObject, public BVURLConnectionDelegate {
 public:
  struct Parameters {
    BVURL URL;
    double timeout;
    // The waiting caller's request settings (see BVRequestSettings).
    BVRequestSettingsRef requestSettings;
  };

  static std::shared_ptr<BVURLProbeThread> create();

  // Starts the worker and blocks until it reports the first body bytes, the
  // end of the load or a failure; then cancels and releases the connection.
  void downloadDataForURL(const BVURL& url, double timeout);

  // Valid once downloadDataForURL() has returned.
  const BVData& data() const { return _data; }
  std::shared_ptr<const BVURLResponse> response() const { return _response; }

  // The worker thread's body.
  void downloadThread(const Parameters& parameters);

  void connectionDidReceiveResponse(BVURLConnection& connection, const BVURLResponse& response) override;
  void connectionDidReceiveData(BVURLConnection& connection, std::span<const uint8_t> data) override;
  void connectionDidFinishLoading(BVURLConnection& connection) override;
  void connectionDidFailWithError(BVURLConnection& connection, const BVErrorRef& error) override;

  std::string className() const override { return "BVURLProbeThread"; }

  BVURLProbeThread() = default;

 private:
  void settle(int32_t status);

  BVData _data;
  std::shared_ptr<const BVURLResponse> _response;
  BVURLConnectionRef _connection;
  int32_t _status = 0;  // 0 in flight, 1 first data, 2 finished, 3 failed
  std::recursive_mutex _lock;
  std::condition_variable_any _settled;  // signalled when _status leaves 0
};
