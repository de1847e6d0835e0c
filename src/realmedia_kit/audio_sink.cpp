// Choosing the kit's sinks.
#include "audio_sink.h"

#include <gst/gst.h>

#include <cstdlib>
#include <string>

namespace belvane::detail {

namespace {

GstElement* fakeSink(bool sync) {
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (sink) g_object_set(sink, "sync", gboolean(sync), nullptr);
  return sink;
}

}  // namespace

GstElement* makeKitAudioSink() {
  const char* env = std::getenv("BELVANE_AUDIO_OUTPUT");
  std::string output = env ? env : "";
  GstElement* sink = nullptr;
  if (output == "null") {
    sink = fakeSink(true);
  } else if (output == "null:fast") {
    sink = fakeSink(false);
  } else if (output == "pulse") {
    sink = gst_element_factory_make("pulsesink", nullptr);
  } else if (output == "alsa") {
    sink = gst_element_factory_make("alsasink", nullptr);
  }
  if (!sink) sink = gst_element_factory_make("autoaudiosink", nullptr);
  if (!sink) sink = fakeSink(true);
  return sink;
}

GstElement* makeKitVideoSink() { return fakeSink(false); }

}  // namespace belvane::detail
