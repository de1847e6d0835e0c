// Making the kit's sinks.
#include "audio_sink.h"

#include <gst/gst.h>

#include <belvane/HXClientKitABI.h>

#include <string>

namespace belvane::detail {

namespace {

GstElement* fakeSink(bool sync) {
  GstElement* sink = gst_element_factory_make("fakesink", nullptr);
  if (sink) g_object_set(sink, "sync", gboolean(sync), nullptr);
  return sink;
}

// audioconvert ! wavenc ! filesink, as one sink; null when an element is missing.
GstElement* wavFileSink(const std::string& path) {
  GstElement* bin = gst_bin_new(nullptr);
  GstElement* convert = gst_element_factory_make("audioconvert", nullptr);
  GstElement* encode = gst_element_factory_make("wavenc", nullptr);
  GstElement* file = gst_element_factory_make("filesink", nullptr);
  if (!convert || !encode || !file) {
    for (GstElement* e : {convert, encode, file, bin})
      if (e) gst_object_unref(gst_object_ref_sink(e));
    return nullptr;
  }
  g_object_set(file, "location", path.c_str(), nullptr);
  gst_bin_add_many(GST_BIN(bin), convert, encode, file, nullptr);
  gst_element_link_many(convert, encode, file, nullptr);
  GstPad* pad = gst_element_get_static_pad(convert, "sink");
  gst_element_add_pad(bin, gst_ghost_pad_new("sink", pad));
  gst_object_unref(pad);
  return bin;
}

}  // namespace

GstElement* makeKitAudioSink(const KitAudioOutput& output) {
  GstElement* sink = nullptr;
  switch (output.kind) {
    case HXAudioOutputNull:
      sink = fakeSink(true);
      break;
    case HXAudioOutputNullFast:
      sink = fakeSink(false);
      break;
    case HXAudioOutputPulse:
      sink = gst_element_factory_make("pulsesink", nullptr);
      if (sink && !output.device.empty()) g_object_set(sink, "device", output.device.c_str(), nullptr);
      break;
    case HXAudioOutputAlsa:
      sink = gst_element_factory_make("alsasink", nullptr);
      if (sink && !output.device.empty()) g_object_set(sink, "device", output.device.c_str(), nullptr);
      break;
    case HXAudioOutputWav:
      sink = wavFileSink(output.device);
      break;
    default:
      break;
  }
  if (!sink) sink = gst_element_factory_make("autoaudiosink", nullptr);
  if (!sink) sink = fakeSink(true);
  return sink;
}

GstElement* makeKitVideoSink() { return fakeSink(false); }

}  // namespace belvane::detail
