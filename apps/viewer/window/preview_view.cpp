#include "window/preview_view.h"

#include <algorithm>
#include <utility>

#include "window/texts.h"

namespace lumsar::viewer {

namespace {

// An older image is not shown: nobody could tell it from what the VM sees now. Over the thinnest of
// lines there is a frame a second.
constexpr guint kFreshSeconds = 3;
constexpr int kTextWidth = 12;  // characters

}  // namespace

PreviewView::PreviewView()
    : m_stack(gtk_stack_new()), m_area(gtk_drawing_area_new()), m_text(gtk_label_new(nullptr)) {
  gtk_widget_set_size_request(m_area, kPreviewWidth, kPreviewHeight);
  gtk_widget_set_valign(m_stack, GTK_ALIGN_CENTER);
  atk_object_set_role(gtk_widget_get_accessible(m_area), ATK_ROLE_IMAGE);
  g_signal_connect(m_area, "draw",
                   G_CALLBACK(+[](GtkWidget*, cairo_t* context, gpointer self) -> gboolean {
                     static_cast<PreviewView*>(self)->draw(context);
                     return FALSE;
                   }),
                   this);
  GtkLabel* text = GTK_LABEL(m_text);
  gtk_label_set_line_wrap(text, TRUE);
  gtk_label_set_max_width_chars(text, kTextWidth);
  gtk_label_set_justify(text, GTK_JUSTIFY_CENTER);
  gtk_style_context_add_class(gtk_widget_get_style_context(m_text), "dim-label");
  for (GtkWidget* each : {m_text, m_area}) {
    gtk_widget_show(each);
    gtk_container_add(GTK_CONTAINER(m_stack), each);
  }
  gtk_widget_set_no_show_all(m_stack, TRUE);
  showNone(tr("No preview"));
}

// Its widgets have gone with the row.
PreviewView::~PreviewView() {
  cancelTimer();
}

void PreviewView::update(const std::string& camera, bool isUsed) {
  g_autofree char* name = g_strdup_printf(tr("Preview of %s"), camera.c_str());
  atk_object_set_name(gtk_widget_get_accessible(m_area), name);
  gtk_widget_set_visible(m_stack, isUsed ? TRUE : FALSE);
  if (!isUsed) showNone(tr("No preview"));
}

void PreviewView::show(const Preview& preview) {
  if (!preview.image) return showNone(noPreviewText(preview.encoding));
  m_image = preview.image;
  gtk_stack_set_visible_child(GTK_STACK(m_stack), m_area);
  gtk_widget_queue_draw(m_area);
  expectNext();
}

void PreviewView::showNone(const std::string& why) {
  cancelTimer();
  m_image.reset();
  gtk_label_set_text(GTK_LABEL(m_text), why.c_str());
  gtk_stack_set_visible_child(GTK_STACK(m_stack), m_text);
}

void PreviewView::expectNext() {
  cancelTimer();
  m_timer = g_timeout_add_seconds(
      kFreshSeconds,
      [](gpointer data) -> gboolean {
        auto& self = *static_cast<PreviewView*>(data);
        self.m_timer = 0;
        self.showNone(tr("No preview"));
        return G_SOURCE_REMOVE;
      },
      this);
}

void PreviewView::cancelTimer() {
  if (m_timer != 0) g_source_remove(std::exchange(m_timer, 0U));
}

// In the middle, with its shape. At a scale of 2 the image has twice the pixels.
void PreviewView::draw(cairo_t* context) const {
  if (!m_image) return;
  const double width = gdk_pixbuf_get_width(m_image.get());
  const double height = gdk_pixbuf_get_height(m_image.get());
  const double areaWidth = gtk_widget_get_allocated_width(m_area);
  const double areaHeight = gtk_widget_get_allocated_height(m_area);
  const double scale = std::min(areaWidth / width, areaHeight / height);
  cairo_translate(context, (areaWidth - scale * width) / 2, (areaHeight - scale * height) / 2);
  cairo_scale(context, scale, scale);
  gdk_cairo_set_source_pixbuf(context, m_image.get(), 0, 0);
  cairo_paint(context);
}

}  // namespace lumsar::viewer
