#include "formats/device_formats.h"

#include <algorithm>
#include <string_view>

namespace lumsar::service {
namespace {

constexpr std::size_t kMaxFormats = 256;  // a webcam has some dozens
constexpr int kLargestOfRange = 4096;

int largest(const GValue* value) {
  if (value == nullptr) return 0;
  if (G_VALUE_HOLDS_INT(value)) return g_value_get_int(value);
  if (GST_VALUE_HOLDS_INT_RANGE(value)) {
    return std::min(gst_value_get_int_range_max(value), kLargestOfRange);
  }
  int result = 0;
  if (GST_VALUE_HOLDS_LIST(value)) {
    for (guint i = 0; i < gst_value_list_get_size(value); ++i) {
      result = std::max(result, largest(gst_value_list_get_value(value, i)));
    }
  }
  return result;
}

// The fastest rate, as far as it is a usable number.
void readRate(const GValue* value, CameraFormat& format) {
  if (value == nullptr) return;
  if (GST_VALUE_HOLDS_FRACTION(value)) {
    const int numerator = gst_value_get_fraction_numerator(value);
    const int denominator = gst_value_get_fraction_denominator(value);
    if (denominator <= 0 || numerator <= 0 || numerator / denominator > 1000) return;
    if (static_cast<double>(numerator) / denominator <= format.rate()) return;
    format.rateNumerator = numerator;
    format.rateDenominator = denominator;
  } else if (GST_VALUE_HOLDS_FRACTION_RANGE(value)) {
    readRate(gst_value_get_fraction_range_max(value), format);
  } else if (GST_VALUE_HOLDS_LIST(value)) {
    for (guint i = 0; i < gst_value_list_get_size(value); ++i) {
      readRate(gst_value_list_get_value(value, i), format);
    }
  }
}

void addEncodings(const GstStructure* structure, CameraFormat format,
                  std::vector<CameraFormat>& formats) {
  const auto add = [&](const char* encoding) {
    format.encoding = encoding;
    if (formats.size() < kMaxFormats) formats.push_back(format);
  };
  if (gst_structure_has_name(structure, "image/jpeg") != FALSE) return add("MJPG");
  if (gst_structure_has_name(structure, "video/x-raw") == FALSE) return;
  const GValue* value = gst_structure_get_value(structure, "format");
  if (value == nullptr) return;
  if (G_VALUE_HOLDS_STRING(value)) return add(g_value_get_string(value));
  if (!GST_VALUE_HOLDS_LIST(value)) return;
  for (guint i = 0; i < gst_value_list_get_size(value); ++i) {
    const GValue* item = gst_value_list_get_value(value, i);
    if (G_VALUE_HOLDS_STRING(item)) add(g_value_get_string(item));
  }
}

}  // namespace

std::vector<CameraFormat> formatsOf(const GstCaps* caps) {
  std::vector<CameraFormat> formats;
  for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
    const GstStructure* structure = gst_caps_get_structure(caps, i);
    CameraFormat format;
    format.width = largest(gst_structure_get_value(structure, "width"));
    format.height = largest(gst_structure_get_value(structure, "height"));
    readRate(gst_structure_get_value(structure, "framerate"), format);
    if (format.width > 0 && format.height > 0) addEncodings(structure, format, formats);
  }
  return formats;
}

std::vector<CameraFormat> deviceFormats(GstDevice* device) {
  const GstPtr<GstCaps> caps(gst_device_get_caps(device));
  return caps ? formatsOf(caps.get()) : std::vector<CameraFormat>{};
}

GstPtr<GstCaps> capsFor(const CameraFormat& format) {
  const bool jpeg = format.encoding == "MJPG";
  GstPtr<GstCaps> caps(gst_caps_new_simple(jpeg ? "image/jpeg" : "video/x-raw", "width", G_TYPE_INT,
                                           format.width, "height", G_TYPE_INT, format.height,
                                           nullptr));
  if (!jpeg) {
    gst_caps_set_simple(caps.get(), "format", G_TYPE_STRING, format.encoding.c_str(), nullptr);
  }
  if (format.rateNumerator > 0) {
    gst_caps_set_simple(caps.get(), "framerate", GST_TYPE_FRACTION, format.rateNumerator,
                        format.rateDenominator, nullptr);
  }
  return caps;
}

}  // namespace lumsar::service
