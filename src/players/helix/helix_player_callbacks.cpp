// BVHelixPlayer: what the kit reports (content states, the end of the
// content, errors, length, statistics) turned into state, position and
// attribute announcements; the statistic table; the C observer table.
#include <belvane/BVConstants.h>
#include <belvane/BVHelixPlayer.h>

#include "foundation/text_encoding.h"
#include "players/helix/helix_observer.h"

#include <cstdlib>
#include <map>
#include <utility>

namespace {

BVHelixPlayer* playerFor(void* context) { return static_cast<BVHelixPlayer*>(context); }

// The kit's error parameter keys and the user-info keys they become.
constexpr std::pair<const char*, const char*> kErrorParamKeys[] = {
    {"HX_RESULT_KEY", "HXKey"}, {"ID", "HXCode"}, {"UC", "HXUserCode"}, {"MI", "HXUserString"}, {"MU", "HXMoreInfoURL"},
};

// The code of a kit error whose parameters carry no usable "ID".
constexpr int64_t kUnidentifiedKitErrorCode = 10300;

const BVValue& lookup(const BVDictionary& d, std::string_view key) {
  auto it = d.find(key);
  return it == d.end() ? BVValue::none() : it->second;
}

// The leading decimal integer of a text, 0 when there is none.
int64_t integerValue(const BVValue& value) {
  if (const std::string* s = value.string()) return std::strtoll(s->c_str(), nullptr, 10);
  return value.integerValue();
}

}  // namespace

const std::vector<std::string>& BVHelixPlayer::_observedHelixStatisticKeys() {
  static const std::vector<std::string> keys{"title", "author", "copyright", "codec"};
  return keys;
}

std::optional<std::string> BVHelixPlayer::_helixStatisticKeyToNativeKey(std::string_view statisticName) {
  static const std::map<std::string, std::string, std::less<>> table{
      {"title", BVPlayerAttributeTrackTitleKey},
      {"author", BVPlayerAttributeArtistKey},
      {"copyright", BVPlayerAttributeCopyrightKey},
      {"codec", BVPlayerAttributeCodecKey},
  };
  auto it = table.find(belvane::detail::asciiLower(statisticName));
  if (it == table.end()) return std::nullopt;
  return it->second;
}

void BVHelixPlayer::onContentStateChangedFrom(int32_t fromState, int32_t toState) {
  auto self = weak_from_this().lock();
  if (!self) return;
  if (toState == HXContentStatePlaying) {
    changeStateTo(BVPlayerStatePlaying);
  } else if (toState == HXContentStateStopped) {
    // A kit that is still opening passes through "stopped" from "nothing
    // loaded"; that is not the end of playback.
    if (fromState == HXContentStateNotLoaded) return;
    if (state() == BVPlayerStateStopped || state() == BVPlayerStateError) return;
    changeStateTo(BVPlayerStateStopped);
  }
}

void BVHelixPlayer::onContentConcluded() {
  // A dying player cannot announce anything any more.
  auto self = weak_from_this().lock();
  if (!self) return;
  if (state() != BVPlayerStateStopped && state() != BVPlayerStateError) changeStateTo(BVPlayerStateStopped);
}

void BVHelixPlayer::onErrorOccurred(const char* failure, const char* message, const BVDictionary& params) {
  auto self = weak_from_this().lock();
  if (!self) return;
  BVDictionary userInfo;
  userInfo[BVLocalizedDescriptionKey] = BVValue(message ? message : "");
  userInfo[BVLocalizedFailureReasonErrorKey] = BVValue(failure ? failure : "");
  for (const auto& [paramKey, userInfoKey] : kErrorParamKeys) {
    const BVValue& value = lookup(params, paramKey);
    if (value) userInfo[userInfoKey] = value;
  }
  int64_t code = integerValue(lookup(params, "ID"));
  if (code == 0) code = kUnidentifiedKitErrorCode;
  changeStateTo(BVPlayerStateError, BVError::create(BVHelixErrorDomain, code, std::move(userInfo)));
}

void BVHelixPlayer::onLengthChanged(uint32_t) {
  auto self = weak_from_this().lock();
  if (!self) return;
  changedPosition(position());
}

void BVHelixPlayer::onAddedStatistic(const char* name, const char*, void*) {
  onChangedAttribute(_helixStatisticKeyToNativeKey(name ? name : ""));
}

void BVHelixPlayer::onModifiedStatistic(const char* name, const char*, void*) {
  onChangedAttribute(_helixStatisticKeyToNativeKey(name ? name : ""));
}

void BVHelixPlayer::onDeletedStatistic(const char* name, void*) {
  onChangedAttribute(_helixStatisticKeyToNativeKey(name ? name : ""));
}

void BVHelixPlayer::onChangedAttribute(const std::optional<std::string>& attributeKey) {
  auto self = weak_from_this().lock();
  if (!self || !attributeKey) return;
  changedAttribute(attributes());
}

namespace belvane::detail {

// The kit calls back with a raw context pointer, possibly while the player
// is being destroyed: each report first takes weak_from_this(), which has
// expired by then, and drops the report when it has.
HXClientObserver helixObserverFor(BVHelixPlayer* player) {
  HXClientObserver observer{};
  observer.context = player;
  observer.onContentStateChanged = [](void* c, int32_t from, int32_t to) {
    playerFor(c)->onContentStateChangedFrom(from, to);
  };
  observer.onContentConcluded = [](void* c) { playerFor(c)->onContentConcluded(); };
  observer.onErrorOccurred = [](void* c, const char* failure, const char* message, const char* const* keys,
                                const char* const* values, size_t count) {
    BVDictionary params;
    for (size_t i = 0; i < count; ++i)
      if (keys && values && keys[i] && values[i]) params[keys[i]] = BVValue(values[i]);
    playerFor(c)->onErrorOccurred(failure, message, params);
  };
  observer.onLengthChanged = [](void* c, uint32_t length) { playerFor(c)->onLengthChanged(length); };
  observer.onAddedStatistic = [](void* c, const char* name, const char* value, void* info) {
    playerFor(c)->onAddedStatistic(name, value, info);
  };
  observer.onModifiedStatistic = [](void* c, const char* name, const char* value, void* info) {
    playerFor(c)->onModifiedStatistic(name, value, info);
  };
  observer.onDeletedStatistic = [](void* c, const char* name, void* info) {
    playerFor(c)->onDeletedStatistic(name, info);
  };
  return observer;
}

}  // namespace belvane::detail
