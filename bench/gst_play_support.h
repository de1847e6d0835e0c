// A playbin handled as gst-play-1.0 handles it: set to PLAYING at once,
// PAUSED while a stream buffers below 100 %, PLAYING again at 100 %. The
// start benchmarks time a bare playbin this way beside our players.
#pragma once

#include <gst/gst.h>

namespace belvane::bench {

class GstPlayLikeBus {
 public:
  explicit GstPlayLikeBus(GstElement* playbin) : playbin_(playbin) {}

  // Acts on one message of the playbin's bus; true when it reports an error
  // or the end of the stream.
  bool handle(GstMessage* message) {
    switch (GST_MESSAGE_TYPE(message)) {
      case GST_MESSAGE_BUFFERING: {
        gint percent = 0;
        gst_message_parse_buffering(message, &percent);
        buffering_ = percent < 100;
        gst_element_set_state(playbin_, buffering_ ? GST_STATE_PAUSED : GST_STATE_PLAYING);
        return false;
      }
      case GST_MESSAGE_STATE_CHANGED:
        if (GST_MESSAGE_SRC(message) == GST_OBJECT(playbin_)) {
          GstState now;
          gst_message_parse_state_changed(message, nullptr, &now, nullptr);
          playing_ = now == GST_STATE_PLAYING;
        }
        return false;
      case GST_MESSAGE_ERROR:
      case GST_MESSAGE_EOS:
        return true;
      default:
        return false;
    }
  }

  // PLAYING with buffering complete.
  bool playing() const { return playing_ && !buffering_; }

 private:
  GstElement* playbin_;
  bool buffering_ = false, playing_ = false;
};

}  // namespace belvane::bench
