// Reading the decoded format off a pipeline's audio decoder (see
// movie_decoded_format.h).
#include "movie/movie_decoded_format.h"

#include <belvane/BVConstants.h>

#include <gst/gst.h>

#include <cstring>
#include <string>

namespace belvane::detail {
namespace {

// An audio decoder by its factory's class ("Codec/Decoder/Audio").
bool isAudioDecoder(GstElement* element) {
  GstElementFactory* factory = gst_element_get_factory(element);
  const char* klass = factory ? gst_element_factory_get_metadata(factory, GST_ELEMENT_METADATA_KLASS) : nullptr;
  return klass && std::strstr(klass, "Decoder") && std::strstr(klass, "Audio");
}

// The first structure of a pad's negotiated caps (copied), or null.
GstStructure* negotiated(GstElement* element, const char* padName) {
  GstPad* pad = gst_element_get_static_pad(element, padName);
  if (!pad) return nullptr;
  GstCaps* caps = gst_pad_get_current_caps(pad);
  gst_object_unref(pad);
  if (!caps) return nullptr;
  GstStructure* structure = gst_caps_is_empty(caps) ? nullptr : gst_structure_copy(gst_caps_get_structure(caps, 0));
  gst_caps_unref(caps);
  return structure;
}

// The codec's short name by its media type; empty for one without a name here.
std::string codecName(const GstStructure* input, const GstStructure* output) {
  const std::string type = gst_structure_get_name(input);
  if (type == "audio/mpeg") {
    int version = 1, layer = 3;
    gst_structure_get_int(input, "mpegversion", &version);
    if (version == 1) {
      gst_structure_get_int(input, "layer", &layer);
      return "MP" + std::to_string(layer);
    }
    // Implicitly signalled SBR: the decoder puts out twice the rate the
    // stream's headers give (the AAC core's).
    const char* profile = gst_structure_get_string(input, "profile");
    int inRate = 0, outRate = 0;
    bool doubled = output && gst_structure_get_int(input, "rate", &inRate) &&
                   gst_structure_get_int(output, "rate", &outRate) && inRate > 0 && outRate == 2 * inRate;
    return doubled || (profile && g_str_has_prefix(profile, "he-aac")) ? "HE-AAC" : "AAC";
  }
  static const struct {
    const char* type;
    const char* name;
  } kNames[] = {{"audio/x-vorbis", "Vorbis"}, {"audio/x-opus", "Opus"},   {"audio/x-flac", "FLAC"},
                {"audio/x-speex", "Speex"},   {"audio/x-alac", "ALAC"},   {"audio/x-wma", "WMA"},
                {"audio/x-ac3", "AC-3"},      {"audio/x-eac3", "E-AC-3"}, {"audio/x-raw", "PCM"}};
  for (const auto& entry : kNames)
    if (type == entry.type) return entry.name;
  return {};
}

}  // namespace

BVDictionary decodedFormatOf(GstElement* bin, const GstTagList* tags) {
  BVDictionary facts;
  if (!bin || !GST_IS_BIN(bin)) return facts;
  GstIterator* elements = gst_bin_iterate_recurse(GST_BIN(bin));
  GValue item = G_VALUE_INIT;
  bool done = false;
  while (!done) {
    switch (gst_iterator_next(elements, &item)) {
      case GST_ITERATOR_OK: {
        auto* element = GST_ELEMENT(g_value_get_object(&item));
        GstStructure* output = isAudioDecoder(element) ? negotiated(element, "src") : nullptr;
        if (output) {
          GstStructure* input = negotiated(element, "sink");
          std::string codec = input ? codecName(input, output) : std::string();
          gchar* described = nullptr;
          if (codec.empty() && tags && gst_tag_list_get_string(tags, GST_TAG_AUDIO_CODEC, &described) && described)
            codec = described;
          g_free(described);
          if (!codec.empty()) facts[BVPlayerAttributeCodecKey] = BVValue(codec);
          int rate = 0, channels = 0;
          if (gst_structure_get_int(output, "rate", &rate) && rate > 0)
            facts[BVPlayerAttributeSampleRateKey] = BVValue(int64_t(rate));
          if (gst_structure_get_int(output, "channels", &channels) && channels > 0)
            facts[BVPlayerAttributeChannelsKey] = BVValue(int64_t(channels));
          if (input) gst_structure_free(input);
          gst_structure_free(output);
          done = true;
        }
        g_value_reset(&item);
        break;
      }
      case GST_ITERATOR_RESYNC: gst_iterator_resync(elements); break;
      default: done = true; break;
    }
  }
  g_value_unset(&item);
  gst_iterator_free(elements);
  return facts;
}

}  // namespace belvane::detail
