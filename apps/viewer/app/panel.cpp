// The camera window for an add-in's connections, of which one at a time has cameras.
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "app/camera_display.h"
#include "base/version.h"
#include "cameras/camera_panel.h"
#include "spice/on_glib.h"
#include "window/texts.h"

namespace lumsar::viewer {

namespace {

// Passes on what a person asks for, until the host is gone. Thread-safe.
class Link final : public host::CameraControl {
 public:
  explicit Link(host::CameraControl& control) : m_control(&control) {}

  void setShared(const std::string& id, bool shared) override {
    pass([&](CameraControl& control) { control.setShared(id, shared); });
  }
  void setAllShared(bool shared) override {
    pass([=](CameraControl& control) { control.setAllShared(shared); });
  }
  void setRemembered(bool remembered) override {
    pass([=](CameraControl& control) { control.setRemembered(remembered); });
  }
  void setWatched(bool watched) override {
    pass([=](CameraControl& control) { control.setWatched(watched); });
  }
  void cut() {
    const std::lock_guard lock(m_mutex);
    m_control = nullptr;
  }

 private:
  template <class Call>
  void pass(Call call) {
    const std::lock_guard lock(m_mutex);
    if (m_control != nullptr) call(*m_control);
  }

  std::mutex m_mutex;
  host::CameraControl* m_control;
};

// They take copies of frames on the add-in's threads.
Previews& previews();

// What all panels of the program show, one after another. Bound to GTK's thread; lives as long as
// the process.
class PanelDisplay {
 public:
  static PanelDisplay& instance() {
    static auto* display = (bindTexts(), new PanelDisplay);
    return *display;
  }

  void begin(const std::shared_ptr<Link>& link, const std::string& vm) {
    m_link = link;
    m_vm = vm;
    m_model.reset();
    m_note.clear();
    m_display.serve(link.get());
    update();
  }
  void show(const std::shared_ptr<Link>& link, const CameraModel& model) {
    if (link != m_link) return;
    m_model = model;
    update();
  }
  void noteOther(const std::shared_ptr<Link>& link, const std::string& vm) {
    if (link != m_link) return;
    g_autofree char* note = g_strdup_printf(tr("%s has no cameras, as %s has them. Connect to it "
                                               "again when that connection has ended."),
                                            vm.c_str(), m_vm.c_str());
    m_note = note;
    update();
  }
  void showPreviews() { m_display.showPreviews(); }
  // A host that has had nothing to show could not start.
  void end(const std::shared_ptr<Link>& link) {
    if (link != m_link) return;
    m_display.serve(nullptr);
    m_link.reset();
    m_vm.clear();
    m_note.clear();
    m_model = {.problem = m_model ? Problem::ConnectionEnded : Problem::CannotStart};
    update();
  }

 private:
  PanelDisplay() {
    GApplication* application = g_application_get_default();
    if (application == nullptr) return;
    g_signal_connect(application, "shutdown", G_CALLBACK(+[](GApplication*, gpointer data) {
                       auto& self = *static_cast<PanelDisplay*>(data);
                       self.m_link.reset();
                       self.m_display.serve(nullptr);
                       self.m_display.end();
                     }),
                     this);
  }
  void update() { m_display.show(m_vm, m_model.value_or(CameraModel()), m_note); }

  CameraDisplay m_display{previews()};
  std::shared_ptr<Link> m_link;  // to the host that has the cameras
  std::string m_vm;
  std::optional<CameraModel> m_model;
  std::string m_note;
};

Previews& previews() {
  static auto* const made =
      new Previews([] { host::onGlib([] { PanelDisplay::instance().showPreviews(); }); });
  return *made;
}

class Panel final : public host::CameraPanel {
 public:
  Panel(host::CameraControl& control, std::string vm) : m_link(std::make_shared<Link>(control)) {
    onDisplay([vm = std::move(vm)](auto& display, const auto& link) { display.begin(link, vm); });
  }
  ~Panel() override {
    m_link->cut();
    onDisplay([](auto& display, const auto& link) { display.end(link); });
  }

  void show(const CameraModel& model) override {
    onDisplay([model](auto& display, const auto& link) { display.show(link, model); });
  }
  std::shared_ptr<host::PreviewTap> tap() const override { return previews().tap(); }
  void noteOther(const std::string& vm) override {
    onDisplay([vm](auto& display, const auto& link) { display.noteOther(link, vm); });
  }

 private:
  template <class Call>
  void onDisplay(Call call) {
    host::onGlib([call = std::move(call), link = m_link] { call(PanelDisplay::instance(), link); });
  }

  const std::shared_ptr<Link> m_link;
};

}  // namespace

}  // namespace lumsar::viewer

// What an add-in calls once it has found GTK 3.
extern "C" __attribute__((visibility("default"))) lumsar::host::OpenPanel lumsarCameraPanel;

lumsar::host::CameraPanel* lumsarCameraPanel(const char* version, const char* vm,
                                             lumsar::host::CameraControl* control) {
  if (std::strcmp(version, lumsar::base::kVersion) != 0) return nullptr;
  return std::make_unique<lumsar::viewer::Panel>(*control, vm).release();  // the add-in's
}
