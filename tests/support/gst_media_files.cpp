// Writes test media with GStreamer pipelines (see gst_media_files.h).
#include "support/gst_media_files.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace belvane::test {
namespace {

constexpr int kSampleRate = 44100;
constexpr int kSamplesPerBuffer = 1024;

// taginject's "tags" text: the serialized tag list without its structure name.
std::string tagInjectText(const std::map<std::string, std::string>& tags) {
  GstTagList* list = gst_tag_list_new_empty();
  for (const auto& [name, text] : tags) {
    GType type = gst_tag_exists(name.c_str()) ? gst_tag_get_type(name.c_str()) : G_TYPE_INVALID;
    if (type == G_TYPE_INVALID) {
      ADD_FAILURE() << "unknown tag " << name;
      continue;
    }
    GValue value = G_VALUE_INIT;
    g_value_init(&value, type);
    bool ok = true;
    if (type == G_TYPE_STRING)
      g_value_set_string(&value, text.c_str());
    else
      ok = gst_value_deserialize(&value, text.c_str());
    if (ok)
      gst_tag_list_add_value(list, GST_TAG_MERGE_APPEND, name.c_str(), &value);
    else
      ADD_FAILURE() << "tag " << name << " cannot hold " << text;
    g_value_unset(&value);
  }
  gchar* serialized = gst_tag_list_to_string(list);
  gst_tag_list_unref(list);
  std::string result = serialized ? serialized : "";
  g_free(serialized);
  // "taglist, title=(string)T, ..." -> "title=(string)T, ..."
  auto comma = result.find(',');
  result = comma == std::string::npos ? std::string() : result.substr(comma + 1);
  while (!result.empty() && result.front() == ' ') result.erase(result.begin());
  while (!result.empty() && (result.back() == ';' || result.back() == ' ')) result.pop_back();
  return result;
}

std::string encoderAndMuxer(MediaKind kind, const std::string& path) {
  switch (kind) {
    case MediaKind::M4A: return "avenc_aac ! mp4mux ! filesink name=sink";
    case MediaKind::QuickTime: return "avenc_aac ! qtmux ! filesink name=sink";
    case MediaKind::OggVorbis: return "vorbisenc ! oggmux ! filesink name=sink";
    case MediaKind::OggOpus: return "audioresample ! opusenc ! oggmux ! filesink name=sink";
    case MediaKind::FLAC: return "flacenc ! filesink name=sink";
    case MediaKind::WAV: return "wavenc ! filesink name=sink";
    case MediaKind::MP3: return "lamemp3enc ! xingmux ! id3v2mux ! filesink name=sink";
    case MediaKind::WMA: return "avenc_wmav2 ! asfmux ! filesink name=sink";
    case MediaKind::ADTS: return "avenc_aac ! aacparse ! audio/mpeg,stream-format=adts ! filesink name=sink";
    case MediaKind::HLS:
      return "avenc_aac ! aacparse ! hlssink2 name=sink target-duration=1 max-files=0 playlist-length=0";
    case MediaKind::MP4Video: return "avenc_aac ! mp4mux name=mux ! filesink name=sink";
    case MediaKind::VideoOnly: return "fakesink";
  }
  return {};
}

}  // namespace

const char* mediaKindExtension(MediaKind kind) {
  switch (kind) {
    case MediaKind::M4A: return "m4a";
    case MediaKind::QuickTime: return "mov";
    case MediaKind::OggVorbis: return "ogg";
    case MediaKind::OggOpus: return "opus";
    case MediaKind::FLAC: return "flac";
    case MediaKind::WAV: return "wav";
    case MediaKind::MP3: return "mp3";
    case MediaKind::WMA: return "wma";
    case MediaKind::ADTS: return "aac";
    case MediaKind::HLS: return "m3u8";
    case MediaKind::MP4Video:
    case MediaKind::VideoOnly: return "mp4";
  }
  return "";
}

std::string writeMediaFile(const std::string& path, MediaKind kind, double seconds,
                           const std::map<std::string, std::string>& tags) {
  gst_init(nullptr, nullptr);
  int buffers = std::max(1, int(std::ceil(seconds * kSampleRate / kSamplesPerBuffer)));
  std::ostringstream description;
  description << "audiotestsrc num-buffers=" << buffers << " samplesperbuffer=" << kSamplesPerBuffer
              << " ! audio/x-raw,rate=" << kSampleRate << ",channels=2 ! audioconvert";
  if (!tags.empty()) description << " ! taginject name=tags";
  description << " ! " << encoderAndMuxer(kind, path);
  if (kind == MediaKind::MP4Video || kind == MediaKind::VideoOnly) {
    // Ten small pictures a second; the picture goes to the sound's muxer, or
    // to a muxer of its own when there is no sound.
    description << " videotestsrc num-buffers=" << std::max(1, int(seconds * 10))
                << " ! video/x-raw,width=160,height=120,framerate=10/1 ! x264enc ! "
                << (kind == MediaKind::MP4Video ? "mux." : "mp4mux ! filesink name=sink");
  }

  std::string result = path;
  std::error_code ignored;
  GError* error = nullptr;
  GstElement* pipeline = gst_parse_launch(description.str().c_str(), &error);
  if (!pipeline || error) {
    ADD_FAILURE() << "cannot build " << description.str() << ": " << (error ? error->message : "?");
    if (error) g_error_free(error);
    if (pipeline) gst_object_unref(pipeline);
    return "";
  }
  GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline), "sink");
  if (kind == MediaKind::HLS) {
    std::filesystem::create_directories(path, ignored);
    result = path + "/playlist.m3u8";
    g_object_set(sink, "location", (path + "/segment%05d.ts").c_str(), "playlist-location", result.c_str(),
                 nullptr);
  } else {
    g_object_set(sink, "location", path.c_str(), nullptr);
  }
  gst_object_unref(sink);
  if (!tags.empty()) {
    GstElement* inject = gst_bin_get_by_name(GST_BIN(pipeline), "tags");
    g_object_set(inject, "tags", tagInjectText(tags).c_str(), nullptr);
    gst_object_unref(inject);
  }

  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus* bus = gst_element_get_bus(pipeline);
  GstMessage* message = gst_bus_timed_pop_filtered(bus, 60 * GST_SECOND,
                                                   GstMessageType(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
  bool ok = message && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
  if (!ok) {
    std::string why = "timed out";
    if (message) {
      GError* failure = nullptr;
      gst_message_parse_error(message, &failure, nullptr);
      why = failure ? failure->message : "error";
      if (failure) g_error_free(failure);
    }
    ADD_FAILURE() << "writing " << path << " failed: " << why;
  }
  if (message) gst_message_unref(message);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  gst_object_unref(pipeline);
  return ok ? result : "";
}

std::string readWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

}  // namespace belvane::test
