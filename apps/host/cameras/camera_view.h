// CameraView: what a person sees of one host's cameras and asks of them, without a window: when the
// camera service is asked, what is remembered, and what becomes of a switch that is moved. Bound to
// the host's main loop, except for what CameraControl has, post() and stop().
#pragma once

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>
#include <functional>
#include <optional>
#include <string>

#include "cameras/camera_control.h"
#include "cameras/camera_model.h"
#include "cameras/choices.h"
#include "session/camera_host.h"

namespace lumsar::host {

class CameraView final : public CameraControl {
 public:
  struct Settings {
    Protocol protocol = Protocol::Spice;
    std::string choicesFile;
    std::string choicesKey;  // which VM it is
    // What is remembered is not shared by itself: the program shares what it is told.
    bool sharesByItself = false;
  };
  struct Actions {
    // What is to be shown, whenever it changes.
    std::function<void(const CameraModel&)> show;
    // A line of the log.
    std::function<void(const std::string&)> log;
  };

  CameraView(asio::io_context& loop, Settings settings, Actions actions);

  // Reads what is remembered. `host` is used until stop().
  void start(CameraHost& host);
  // Runs the loop until it is stopped, whatever fails: no exception may end somebody else's
  // program.
  void run();
  // Stops the host, and calls `done` on the loop. Nothing if it has not been started. Thread-safe.
  void stop(std::function<void()> done);

  void setShared(const std::string& id, bool shared) override;
  void setAllShared(bool shared) override;
  void setRemembered(bool remembered) override;
  void setWatched(bool watched) override;

  // Told by the host, on the plug-in's thread: what was shared has been shared again after a
  // handshake, the camera service has told of a change, there will be no cameras any more.
  void onSharedAgain();
  void onDeviceChange();
  void onFailure();

  // Leaves `job` to the loop, for as long as the host is used. Thread-safe.
  void post(std::function<void()> job);

 private:
  void share(const std::string& id, bool shared);
  void restore(const Choices::Cameras& cameras);
  void chose(const std::string& id, bool shared);
  void remember(std::optional<Choices::Cameras> cameras);
  void warnOfChoices();
  void failed();
  void tick();
  void refresh();
  void ask();
  void askAgain();
  void listed(std::optional<CameraList> list);
  CameraModel describe() const;
  void show(CameraModel model, bool always = false);

  asio::io_context& m_loop;
  const Settings m_settings;
  const Actions m_actions;
  asio::steady_timer m_timer{m_loop};
  CameraHost* m_host = nullptr;      // while it is used
  std::optional<Choices> m_choices;  // since start()
  std::optional<CameraList> m_list;  // the latest, of this connection to the service
  bool m_serviceAnswers = true;
  CameraModel m_model;
  bool m_isRestored;
  bool m_isWatched = false;
  bool m_isAsking = false;
  bool m_asksAgain = false;
  bool m_notSaved = false;
  bool m_hasFailed = false;
};

}  // namespace lumsar::host
