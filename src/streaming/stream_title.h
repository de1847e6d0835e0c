// StreamTitle: what a live stream says is playing now, as it travels from
// the metadata block (or tag) that carried it, with the audio it belongs to,
// to the player that announces it. Plain data; any thread.
#pragma once

#include <string>

namespace belvane::detail {

struct StreamTitle {
  std::string title;  // UTF-8; empty when the station cleared its title
  // The address the station sent with the title (ICY's StreamUrl, often the
  // song's cover); empty when it sent none, which clears the last one.
  std::string url;

  bool operator==(const StreamTitle&) const = default;
};

}  // namespace belvane::detail
