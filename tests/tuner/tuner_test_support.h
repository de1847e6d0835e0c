// A recording tuner delegate and the run-loop helpers the tuner tests share.
#pragma once

#include "streaming/QLStreamTuner.h"
#include "support/test_http_server.h"

#include <belvane/BVRunLoop.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace belvane::test {

struct TunerOffer {
  std::string url;
  std::optional<std::string> mimeType;
  bool operator==(const TunerOffer&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const TunerOffer& offer) {
  return os << offer.url << " [" << offer.mimeType.value_or("(none)") << "]";
}

class RecordingTunerDelegate : public QLStreamTunerDelegate {
 public:
  // Decides each offer; accepts everything by default.
  std::function<bool(const TunerOffer&)> accept = [](const TunerOffer&) { return true; };
  // Hooks run inside the callbacks, after recording.
  std::function<void()> onShouldTune;
  std::function<void()> onFound;

  std::vector<TunerOffer> offers;
  std::vector<TunerOffer> found;
  BVErrorRef error;
  int failures = 0;
  int completions = 0;
  int calls = 0;

  bool streamTunerShouldTuneStream(QLStreamTuner&, const BVURL& url, const std::string* mimeType) override {
    ++calls;
    offers.push_back({url.absoluteString(), mimeType ? std::optional<std::string>(*mimeType) : std::nullopt});
    bool yes = accept(offers.back());
    if (onShouldTune) onShouldTune();
    return yes;
  }
  void streamTunerDidFindStreamURL(QLStreamTuner&, const BVURL& url, const std::string* mimeType) override {
    ++calls;
    found.push_back({url.absoluteString(), mimeType ? std::optional<std::string>(*mimeType) : std::nullopt});
    if (onFound) onFound();
  }
  void streamTunerDidFailWithError(QLStreamTuner&, const BVErrorRef& e) override {
    ++calls;
    ++failures;
    error = e;
  }
  void streamTunerDidComplete(QLStreamTuner&) override {
    ++calls;
    ++completions;
  }

  bool ended() const { return failures + completions > 0; }
};

// A few bytes that look like MPEG audio and never like text.
inline const std::string kAudio = std::string("\xff\xfb\x90\x64\x00\x00\x00\x00", 8);

// An endless audio stream of that type.
inline Response stream(const std::string& contentType, std::shared_ptr<StreamStats> stats = nullptr) {
  return Response::ok(contentType).generate(repeatBytes(kAudio, 200'000'000, std::move(stats)));
}

// Runs the main loop until condition holds (20 s at most).
inline bool runUntil(const std::function<bool()>& condition) {
  return BVRunLoop::current().runUntil(condition, 20.0);
}

// Tunes url offering every candidate and declining all of them; the offers
// in order. The tuner then fails.
inline std::vector<TunerOffer> offersOf(const std::string& url, BVErrorRef* error = nullptr) {
  RecordingTunerDelegate delegate;
  delegate.accept = [](const TunerOffer&) { return false; };
  auto tuner = QLStreamTuner::create(&delegate);
  tuner->setSourceURL(*BVURL::URLWithString(url));
  tuner->start();
  runUntil([&] { return delegate.ended(); });
  if (error) *error = delegate.error;
  return delegate.offers;
}

}  // namespace belvane::test
