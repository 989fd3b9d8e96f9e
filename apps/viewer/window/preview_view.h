// PreviewView: the place in a camera's row where its preview is while a VM uses it. There is an
// image, or a text that says that there is none. Bound to GTK's thread.
#pragma once

#include <gtk/gtk.h>

#include <string>

#include "preview/preview.h"

namespace lumsar::viewer {

class PreviewView {
 public:
  PreviewView();
  ~PreviewView();
  PreviewView(const PreviewView&) = delete;
  PreviewView& operator=(const PreviewView&) = delete;

  GtkWidget* widget() const { return m_stack; }
  // It is there only while the camera is used.
  void update(const std::string& camera, bool isUsed);
  void show(const Preview& preview);

 private:
  void draw(cairo_t* context) const;
  void showNone(const std::string& why);
  void expectNext();
  void cancelTimer();

  GtkWidget* m_stack;
  GtkWidget* m_area;
  GtkWidget* m_text;
  Image m_image;
  guint m_timer = 0;  // until the image is too old
};

}  // namespace lumsar::viewer
