// The installed GStreamer's playable types, from its registry.
#include "movie/gst_media_types.h"

#include <belvane/BVKitOwner.h>

#include "foundation/text_encoding.h"

#include <gst/base/gsttypefindhelper.h>
#include <gst/gst.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <set>

namespace belvane::detail {

namespace {

struct CapsUnref {
  void operator()(GstCaps* caps) const { gst_caps_unref(caps); }
};
using CapsPtr = std::unique_ptr<GstCaps, CapsUnref>;

// The sink caps of every demuxer and decoder that automatic plugging would
// pick (rank marginal or better). Templates accepting anything are left out:
// they say nothing about a type.
const std::vector<CapsPtr>& decodableSinkCaps() {
  static const std::vector<CapsPtr>* all = [] {
    auto* list = new std::vector<CapsPtr>();  // lives for the rest of the process
    if (!ensureGStreamer()) return list;
    GList* factories = gst_element_factory_list_get_elements(
        GST_ELEMENT_FACTORY_TYPE_DEMUXER | GST_ELEMENT_FACTORY_TYPE_DECODER, GST_RANK_MARGINAL);
    for (GList* f = factories; f; f = f->next) {
      auto* factory = GST_ELEMENT_FACTORY(f->data);
      for (const GList* t = gst_element_factory_get_static_pad_templates(factory); t; t = t->next) {
        auto* tmpl = static_cast<GstStaticPadTemplate*>(t->data);
        if (tmpl->direction != GST_PAD_SINK) continue;
        CapsPtr caps(gst_static_caps_get(&tmpl->static_caps));
        if (caps && !gst_caps_is_any(caps.get()) && !gst_caps_is_empty(caps.get())) list->push_back(std::move(caps));
      }
    }
    gst_plugin_feature_list_free(factories);
    return list;
  }();
  return *all;
}

bool isDecodable(const GstCaps* caps) {
  for (const CapsPtr& sink : decodableSinkCaps()) {
    if (gst_caps_can_intersect(caps, sink.get())) return true;
  }
  return false;
}

}  // namespace

bool ensureGStreamer() {
  static const bool ok = [] {
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error)) return true;
    BVLog("GStreamer could not be initialised: %s", error ? error->message : "unknown error");
    g_clear_error(&error);
    return false;
  }();
  return ok;
}

std::vector<std::string> gstreamerPlayableFileExtensions() {
  if (!ensureGStreamer()) return {};
  std::set<std::string> extensions;
  GList* finders = gst_type_find_factory_get_list();
  for (GList* f = finders; f; f = f->next) {
    auto* finder = GST_TYPE_FIND_FACTORY(f->data);
    const gchar* const* names = gst_type_find_factory_get_extensions(finder);
    GstCaps* caps = gst_type_find_factory_get_caps(finder);  // not a new reference
    if (!names || !caps || !isDecodable(caps)) continue;
    for (; *names; ++names) {
      if (**names) extensions.insert(asciiLower(*names));
    }
  }
  gst_plugin_feature_list_free(finders);
  return {extensions.begin(), extensions.end()};
}

bool gstreamerCanOpenURL(const BVURL& url) {
  if (!ensureGStreamer()) return false;
  std::string scheme = asciiLower(url.scheme());
  if (scheme.empty() || !gst_uri_protocol_is_valid(scheme.c_str())) return false;
  if (!gst_uri_protocol_is_supported(GST_URI_SRC, scheme.c_str())) return false;
  if (scheme != "file") return true;

  // Type finders look at the head of a file; 256 KiB satisfies all of them.
  std::ifstream in(url.fileSystemPath(), std::ios::binary);
  if (!in) return false;
  std::vector<char> head(256 * 1024);
  in.read(head.data(), std::streamsize(head.size()));
  size_t size = size_t(in.gcount());
  if (size == 0) return false;
  std::string extension = asciiLower(url.pathExtension());
  GstTypeFindProbability probability = GST_TYPE_FIND_NONE;
  CapsPtr caps(gst_type_find_helper_for_data_with_extension(nullptr, reinterpret_cast<const guint8*>(head.data()),
                                                            size, extension.empty() ? nullptr : extension.c_str(),
                                                            &probability));
  return caps && isDecodable(caps.get());
}

}  // namespace belvane::detail
