// "comn" items from GStreamer tags. The mapping: title -> name, artist ->
// arts, album -> albm, comment (or, lacking one, description) -> cmmt, genre
// -> genr, copyright -> cprt, composer -> comp, performer -> perf, the
// composer (or, lacking one, the performer) -> auth, description -> desc,
// encoder -> soft, the date or date-time as ISO 8601 text -> crat, and the
// first image -> arwk with its JPEG, PNG or BMP type. Texts are UTF-8 items;
// a tag holding several values gives them joined as GStreamer merges them.
#include "movie/QTMetaDataContainer.h"

#include <gst/gst.h>

namespace belvane::detail {
namespace {

void addText(QTMetaDataContainer& container, const char* key, const std::string& text) {
  container.items.push_back({kQTMetaDataKeyFormatCommon, key, kQTMetaDataTypeUTF8, text});
}

std::optional<std::string> tagString(const GstTagList* tags, const char* tag) {
  gchar* value = nullptr;
  if (!gst_tag_list_get_string(tags, tag, &value) || !value) return std::nullopt;
  std::string text(value);
  g_free(value);
  return text;
}

std::optional<std::string> tagDate(const GstTagList* tags) {
  GstDateTime* dateTime = nullptr;
  if (gst_tag_list_get_date_time(tags, GST_TAG_DATE_TIME, &dateTime) && dateTime) {
    gchar* text = gst_date_time_to_iso8601_string(dateTime);
    gst_date_time_unref(dateTime);
    if (text) {
      std::string result(text);
      g_free(text);
      return result;
    }
  }
  GDate* date = nullptr;
  if (gst_tag_list_get_date(tags, GST_TAG_DATE, &date) && date) {
    std::optional<std::string> result;
    if (g_date_valid(date)) {
      char text[16];
      g_date_strftime(text, sizeof text, "%Y-%m-%d", date);
      result = text;
    }
    g_date_free(date);
    return result;
  }
  return std::nullopt;
}

void addImage(QTMetaDataContainer& container, const GstTagList* tags) {
  GstSample* sample = nullptr;
  if (!gst_tag_list_get_sample(tags, GST_TAG_IMAGE, &sample) || !sample) return;
  GstBuffer* buffer = gst_sample_get_buffer(sample);
  GstMapInfo map;
  if (buffer && gst_buffer_map(buffer, &map, GST_MAP_READ)) {
    uint32_t type = kQTMetaDataTypeBinary;
    if (GstCaps* caps = gst_sample_get_caps(sample); caps && gst_caps_get_size(caps) > 0) {
      std::string_view media = gst_structure_get_name(gst_caps_get_structure(caps, 0));
      if (media == "image/jpeg") type = kQTMetaDataTypeJPEGImage;
      else if (media == "image/png") type = kQTMetaDataTypePNGImage;
      else if (media == "image/bmp") type = kQTMetaDataTypeBMPImage;
    }
    container.items.push_back({kQTMetaDataKeyFormatCommon, "arwk", type,
                               std::string(reinterpret_cast<const char*>(map.data), map.size)});
    gst_buffer_unmap(buffer, &map);
  }
  gst_sample_unref(sample);
}

}  // namespace

void appendCommonItemsFromTags(QTMetaDataContainer& container, const GstTagList* tags) {
  if (!tags) return;
  struct Mapping {
    const char* tag;
    const char* key;
  };
  static const Mapping kMappings[] = {
      {GST_TAG_TITLE, "name"},       {GST_TAG_ARTIST, "arts"},   {GST_TAG_ALBUM, "albm"},
      {GST_TAG_GENRE, "genr"},       {GST_TAG_COPYRIGHT, "cprt"}, {GST_TAG_COMPOSER, "comp"},
      {GST_TAG_PERFORMER, "perf"},   {GST_TAG_DESCRIPTION, "desc"}, {GST_TAG_ENCODER, "soft"},
  };
  for (const Mapping& mapping : kMappings) {
    if (auto text = tagString(tags, mapping.tag)) addText(container, mapping.key, *text);
  }
  auto comment = tagString(tags, GST_TAG_COMMENT);
  if (!comment) comment = tagString(tags, GST_TAG_DESCRIPTION);
  if (comment) addText(container, "cmmt", *comment);
  auto author = tagString(tags, GST_TAG_COMPOSER);
  if (!author) author = tagString(tags, GST_TAG_PERFORMER);
  if (author) addText(container, "auth", *author);
  if (auto date = tagDate(tags)) addText(container, "crat", *date);
  addImage(container, tags);
}

}  // namespace belvane::detail
