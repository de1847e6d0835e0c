// QLStreamTuner: the candidate queue, playlist expansion and the delegate
// conversation. All work runs on the run loop of the thread that called
// start(); network looks are TunerFetch objects on that loop.
#include "streaming/QLStreamTuner.h"

#include "foundation/thread_check.h"

#include "foundation/mime_type.h"
#include "foundation/text_encoding.h"
#include "streaming/QLDebug.h"
#include "streaming/held_stream.h"
#include "streaming/stream_tuner_errors.h"
#include "streaming/stream_tuner_fetch.h"
#include "streaming/stream_tuner_playlist.h"

#include <belvane/BVRunLoop.h>

#include <algorithm>
#include <deque>
#include <utility>
#include <vector>
#include <set>

namespace {

using namespace belvane::detail;

// Playlists in one chain (the source's included) that are expanded.
constexpr int kMaximumPlaylistNesting = 4;
// Network looks per tuning: bounds wide trees of nested playlists.
constexpr int kMaximumFetches = 128;

struct Candidate {
  BVURL url;
  int depth;      // playlists above it
  bool isSource;  // the station URL itself
  std::optional<PlaylistEntry> entry;  // the playlist entry it is, when it is one
  // Every entry of the playlist it came from, in file order (null for the
  // source itself).
  std::shared_ptr<const std::vector<BVURL>> siblings;
};

// Schemes the tuner can look at; others are offered without a MIME type.
bool isFetchable(const BVURL& url) {
  std::string scheme = asciiLower(url.scheme());
  return scheme == "http" || scheme == "https" || scheme == "file";
}

}  // namespace

struct QLStreamTuner::Impl {
  enum class Phase { Idle, Resolving, Found, Finished };

  Impl(QLStreamTuner& o, QLStreamTunerDelegate* d) : owner(o), delegate(d) {}

  QLStreamTuner& owner;
  QLStreamTunerDelegate* delegate;
  ThreadCheck thread;  // made on the thread whose run loop tunes
  std::optional<BVURL> sourceURL;
  std::optional<BVURL> tunedURL;
  std::optional<PlaylistEntry> tunedEntry;
  std::shared_ptr<const std::vector<BVURL>> tunedSiblings;
  std::optional<BVRunLoop> loop;
  Phase phase = Phase::Idle;
  uint64_t generation = 0;  // bumped by stop(): stale work sees it and quits
  BVDelayedPerform searchDeadline;
  std::deque<Candidate> pending;
  std::set<std::string> expandedPlaylists;
  std::set<std::string> offered;
  std::shared_ptr<TunerFetch> fetch;
  bool found = false;
  bool offeredAny = false;
  BVErrorRef candidateError;
  int fetchesLeft = kMaximumFetches;
  double searchTimeout = QLStreamTunerSearchTimeout;
  BVRequestSettingsRef requestSettings;
  // Declined replies kept on offer for another engine: they go with the
  // tuner (its player is released only after the next engine has opened
  // the station), or after HeldStream::kParkSeconds at the latest.
  std::vector<std::pair<std::string, std::weak_ptr<HeldStream>>> parked;

  void withdrawParked() {
    for (auto& [key, weak] : parked)
      if (auto held = weak.lock()) HeldStream::withdraw(key, held);
    parked.clear();
  }

  void start() {
    stop();
    loop = BVRunLoop::current();
    tunedURL.reset();
    tunedEntry.reset();
    expandedPlaylists.clear();
    offered.clear();
    found = offeredAny = false;
    candidateError = nullptr;
    fetchesLeft = kMaximumFetches;
    if (sourceURL) pending.push_back({*sourceURL, 0, true, std::nullopt, nullptr});
    phase = Phase::Resolving;
    armSearchDeadline();
    schedule();
  }

  void stop() {
    ++generation;
    phase = Phase::Idle;
    pending.clear();
    searchDeadline.cancel();
    if (auto current = std::move(fetch)) current->cancel();
  }

  void tuneNextStream() {
    if (phase != Phase::Found) return;
    phase = Phase::Resolving;
    armSearchDeadline();
    schedule();
  }

  // Each fetch has its own time-out, but a station file of stalling entries
  // would add them up; the search as a whole is bounded here.
  void armSearchDeadline() {
    searchDeadline.cancel();
    uint64_t since = generation;
    searchDeadline = loop->performAfterDelay(searchTimeout, owner.weak_from_this(), [this, since] {
      if (generation == since) searchTimedOut();
    });
  }

  void searchTimedOut() {
    if (phase != Phase::Resolving) return;
    if (auto current = std::move(fetch)) current->cancel();
    if (found) {
      pending.clear();
      phase = Phase::Finished;
      if (delegate) delegate->streamTunerDidComplete(owner);
      return;
    }
    fail(tunerError(QLStreamTunerErrorTimedOut,
                    "The station did not offer a stream within " + std::to_string(int(searchTimeout)) + " seconds.",
                    sourceURL ? &*sourceURL : nullptr));
  }

  // The tuner was stopped or restarted during a delegate call, or its owner
  // let it go: the work in hand is dropped. Delegate calls come only from
  // the loop's calls for the tuner, and the one in hand holds the tuner:
  // when that is the only reference left, nobody else wants the work.
  bool interrupted(uint64_t since) {
    if (since != generation) return true;
    if (owner.weak_from_this().use_count() <= 1) {
      stop();
      return true;
    }
    return false;
  }

  // Runs advance() from the loop, never inline.
  void schedule() {
    uint64_t since = generation;
    loop->perform(owner.weak_from_this(), [this, since] {
      if (generation == since) advance();
    });
  }

  // Takes candidates until one needs a network look or is accepted.
  void advance() {
    while (phase == Phase::Resolving) {
      if (pending.empty()) {
        exhausted();
        return;
      }
      Candidate candidate = pending.front();
      pending.pop_front();
      const std::string& key = candidate.url.absoluteString();
      // Repeats and playlist loops are skipped.
      if (offered.count(key) || expandedPlaylists.count(key)) continue;
      if (!isFetchable(candidate.url)) {
        if (!offer(candidate, std::nullopt)) return;
        continue;
      }
      if (fetchesLeft == 0) {
        QLDebugLog(QL_LOG_WARNING, "tuner: too many playlist entries, the rest is skipped");
        pending.clear();
        continue;
      }
      --fetchesLeft;
      look(candidate);
      return;
    }
  }

  void look(const Candidate& candidate) {
    std::weak_ptr<QLStreamTuner> weak = owner.weak_from_this();
    uint64_t since = generation;
    fetch = TunerFetch::start(candidate.url, requestSettings, [this, weak, since, candidate](TunerFetchResult result) {
      auto tuner = weak.lock();  // held for the call, as the loop holds its targets
      if (!tuner || generation != since) return;
      looked(candidate, std::move(result));
    });
  }

  void looked(const Candidate& candidate, TunerFetchResult result) {
    fetch.reset();
    switch (result.kind) {
      case TunerFetchResult::Kind::Failed:
        if (candidate.isSource) {
          fail(result.error);
          return;
        }
        QLDebugLog(QL_LOG_INFO, "tuner: skipping %s: %s", candidate.url.absoluteString().c_str(),
                   result.error ? result.error->localizedDescription().c_str() : "failed");
        candidateError = result.error;
        break;
      case TunerFetchResult::Kind::Stream:
        if (!offer(candidate, result.mimeType, result.held)) return;
        break;
      case TunerFetchResult::Kind::Playlist:
        expand(candidate, result);
        break;
    }
    advance();
  }

  // The playlist's entries go to the front of the queue, in file order.
  void expand(const Candidate& candidate, const TunerFetchResult& result) {
    expandedPlaylists.insert(candidate.url.absoluteString());
    const BVURL& base = result.finalURL ? *result.finalURL : candidate.url;
    expandedPlaylists.insert(base.absoluteString());
    if (candidate.depth >= kMaximumPlaylistNesting) {
      QLDebugLog(QL_LOG_WARNING, "tuner: playlist %s is nested too deeply", candidate.url.absoluteString().c_str());
      return;
    }
    std::vector<Candidate> entries;
    auto siblings = std::make_shared<std::vector<BVURL>>();
    for (const TunerPlaylistEntry& entry : tunerPlaylistEntries(result.format, result.text)) {
      auto url = tunerResolveEntry(entry.text, base);
      if (!url) continue;
      // A playlist from the network may not point at local files.
      if (url->isFileURL() && !base.isFileURL()) continue;
      entries.push_back({*url, candidate.depth + 1, false, entry.entry, siblings});
      siblings->push_back(*url);
    }
    QLDebugLog(QL_LOG_INFO, "tuner: playlist %s lists %zu entries", candidate.url.absoluteString().c_str(),
               entries.size());
    pending.insert(pending.begin(), entries.begin(), entries.end());
  }

  // Offers a candidate; false when the work in hand must stop.
  // A reply held open for the candidate is on offer during the delegate's
  // calls: a streamer started from them takes it over. A declined one stays
  // on offer a while (the engine the station goes to takes it); an
  // accepted one nobody took closes.
  bool offer(const Candidate& candidate, const std::optional<std::string>& mimeType,
             const std::shared_ptr<HeldStream>& held = nullptr) {
    const BVURL& url = candidate.url;
    struct Withdraw {
      Impl& tuner;
      const std::string key;
      const std::shared_ptr<HeldStream>& held;
      bool declined = false;
      ~Withdraw() {
        if (!held) return;
        // A declined reply stays a while for the engine the station goes to.
        if (declined) {
          HeldStream::park(key, held);
          tuner.parked.emplace_back(key, held);
        } else {
          HeldStream::withdraw(key, held);
        }
      }
    } withdraw{*this, url.absoluteString(), held};
    if (held) HeldStream::offer(withdraw.key, held);
    offered.insert(url.absoluteString());
    offeredAny = true;
    tunedURL = url;
    tunedEntry = candidate.entry;
    tunedSiblings = candidate.siblings;
    const std::string* type = mimeType ? &*mimeType : nullptr;
    uint64_t since = generation;
    bool accepted = delegate && delegate->streamTunerShouldTuneStream(owner, url, type);
    if (interrupted(since)) return false;
    if (!accepted) {
      withdraw.declined = true;
      return true;
    }
    found = true;
    phase = Phase::Found;
    searchDeadline.cancel();
    if (delegate) delegate->streamTunerDidFindStreamURL(owner, url, type);
    return !interrupted(since);
  }

  void exhausted() {
    searchDeadline.cancel();
    if (found) {
      phase = Phase::Finished;
      if (delegate) delegate->streamTunerDidComplete(owner);
      return;
    }
    if (!sourceURL) {
      fail(tunerError(QLStreamTunerErrorNoSourceURL, "No station address was given."));
    } else if (offeredAny) {
      fail(tunerError(QLStreamTunerErrorNoPlayableStream, "The station offers no stream this player can play.",
                      &*sourceURL));
    } else if (candidateError) {
      // Every stream the station lists is out of reach: say why.
      fail(candidateError);
    } else {
      fail(tunerError(QLStreamTunerErrorNoStreams, "The station's playlist lists no stream.", &*sourceURL));
    }
  }

  void fail(const BVErrorRef& error) {
    searchDeadline.cancel();
    phase = Phase::Finished;
    pending.clear();
    QLDebugLog(QL_LOG_INFO, "tuner: failed: %s", error->localizedDescription().c_str());
    if (delegate) delegate->streamTunerDidFailWithError(owner, error);
  }
};

std::shared_ptr<QLStreamTuner> QLStreamTuner::create(QLStreamTunerDelegate* delegate) {
  return std::shared_ptr<QLStreamTuner>(new QLStreamTuner(delegate));
}

QLStreamTuner::QLStreamTuner(QLStreamTunerDelegate* delegate) : impl_(std::make_unique<Impl>(*this, delegate)) {}

QLStreamTuner::~QLStreamTuner() {
  impl_->stop();
  impl_->withdrawParked();
}

void QLStreamTuner::setDelegate(QLStreamTunerDelegate* delegate) { impl_->delegate = delegate; }

void QLStreamTuner::setSourceURL(const BVURL& url) {
  impl_->sourceURL = url;
  impl_->tunedURL.reset();
}

void QLStreamTuner::start() {
  impl_->thread.check("QLStreamTuner::start");
  impl_->start();
}

void QLStreamTuner::stop() { impl_->stop(); }

void QLStreamTuner::tuneNextStream() {
  impl_->thread.check("QLStreamTuner::tuneNextStream");
  impl_->tuneNextStream();
}

void QLStreamTuner::setSearchTimeout(double seconds) { impl_->searchTimeout = seconds; }

void QLStreamTuner::setRequestSettings(BVRequestSettingsRef settings) { impl_->requestSettings = std::move(settings); }

std::optional<BVURL> QLStreamTuner::tunedURL() const {
  return impl_->tunedURL ? impl_->tunedURL : impl_->sourceURL;
}

std::optional<belvane::detail::PlaylistEntry> QLStreamTuner::tunedPlaylistEntry() const { return impl_->tunedEntry; }

std::vector<BVURL> QLStreamTuner::alternateStreamURLs() const {
  std::vector<BVURL> result;
  if (!impl_->tunedSiblings || !impl_->tunedURL) return result;
  const auto& all = *impl_->tunedSiblings;
  const std::string tuned = impl_->tunedURL->absoluteString();
  auto at = std::find_if(all.begin(), all.end(), [&](const BVURL& u) { return u.absoluteString() == tuned; });
  if (at == all.end()) return result;
  // The entries after it, then those before it (tried and passed over once).
  for (auto it = at + 1; it != all.end(); ++it) result.push_back(*it);
  for (auto it = all.begin(); it != at; ++it) result.push_back(*it);
  std::erase_if(result, [&](const BVURL& u) { return u.absoluteString() == tuned; });
  return result;
}

std::string QLStreamTuner::trimParametersFromMimeType(const std::string& mimeType) {
  return mimeTypeWithoutParameters(mimeType, MIMETypeCase::AsWritten);
}
