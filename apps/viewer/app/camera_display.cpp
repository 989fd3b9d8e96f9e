#include "app/camera_display.h"

#include <cstdio>
#include <exception>
#include <utility>

#include "app/notification.h"

namespace lumsar::viewer {

CameraDisplay::CameraDisplay(Previews& previews)
    : m_previews(previews), m_windows([this](GtkWindow* beside) { window().present(beside); }) {}

// Only once it is to be seen: to make it takes longer than to draw the desktop.
CameraWindow& CameraDisplay::window() {
  if (!m_window) {
    m_window = std::make_unique<CameraWindow>(windowActions());
    m_windows.leaveAlone(GTK_WINDOW(m_window->widget()));
    m_window->update(m_vm, m_model, m_note);
  }
  return *m_window;
}

CameraWindow::Actions CameraDisplay::windowActions() {
  return {.share =
              [this](const std::string& id, bool shared) {
                if (m_control != nullptr) m_control->setShared(id, shared);
              },
          .shareAll =
              [this](bool shared) {
                if (m_control != nullptr) m_control->setAllShared(shared);
              },
          .remember =
              [this](bool remembered) {
                if (m_control != nullptr) m_control->setRemembered(remembered);
              },
          .watch =
              [this](bool watched) {
                if (m_control != nullptr) m_control->setWatched(watched);
              },
          .preview = [this](int scale) { preview(scale); }};
}

bool CameraDisplay::isOpen() const {
  return m_window && gtk_widget_get_visible(m_window->widget()) == TRUE;
}

void CameraDisplay::serve(host::CameraControl* control) {
  m_control = control;
  if (m_control != nullptr) m_control->setWatched(isOpen());
}

void CameraDisplay::show(const std::string& vm, const CameraModel& model, const std::string& note) {
  const bool isTold = notifyOfUse(vm, std::exchange(m_model, model), model);
  m_vm = vm;
  m_note = note;
  if (m_window) m_window->update(m_vm, m_model, m_note);
  m_windows.setIndicator(
      {!m_vm.empty() || m_model.problem != Problem::None, m_model.inUse(), m_vm});
  // A person always knows when they are seen.
  if (!isTold && !m_windows.isIndicatorSeen()) window().appear();
}

void CameraDisplay::preview(int scale) {
  if (m_hasEnded || scale == 0) return m_previews.close();
  try {
    m_previews.open(scale);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "lumsar: no previews: %s\n", error.what());
  }
}

void CameraDisplay::showPreviews() {
  if (m_hasEnded || !m_window) return;
  for (const Preview& each : m_previews.take()) m_window->show(each);
}

void CameraDisplay::end() {
  m_hasEnded = true;
  show({}, {});
  m_previews.end();
}

}  // namespace lumsar::viewer
