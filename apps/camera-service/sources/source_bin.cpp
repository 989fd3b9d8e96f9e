#include "sources/source_bin.h"

#include "capture/gst_ptr.h"

namespace lumsar::service {

GstElement* makeSourceBin(const std::string& description) {
  // Not with pads made by the parser: it takes an input that is linked later for an unlinked one.
  GstElement* bin = gst_parse_bin_from_description_full(description.c_str(), FALSE, nullptr,
                                                        GST_PARSE_FLAG_NONE, nullptr);
  if (bin == nullptr) return nullptr;
  const GstPtr<GstPad> last(gst_bin_find_unlinked_pad(GST_BIN(bin), GST_PAD_SRC));
  if (last) gst_element_add_pad(bin, gst_ghost_pad_new("src", last.get()));
  return bin;
}

}  // namespace lumsar::service
