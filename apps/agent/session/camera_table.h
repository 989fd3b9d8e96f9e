// CameraTable: the cameras of one connection, by the service's numbers.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "session/gallery.h"

namespace lumsar::agent {

class CameraTable {
 public:
  using Send = std::function<void(Bytes message)>;

  CameraTable(Gallery& gallery, Send send) : m_gallery(gallery), m_send(std::move(send)) {}

  // Which encodings this VM can show.
  void sendEncodings();
  void takeRecord(Bytes record);
  void update(Clock::time_point now);
  Clock::time_point due() const;
  void dropAll(const std::string& why, bool tellService);

  void appendStatus(std::vector<CameraStatus>& to) const;
  std::uint64_t announcements() const { return m_announcements; }
  std::size_t size() const { return m_cameras.size(); }

 private:
  void announce(const CameraDataHeader& header, Bytes body);
  void remove(const CameraDataHeader& header, Bytes body);
  void takeFrame(const CameraDataHeader& header, Bytes body);
  void skip(const std::string& what);

  Gallery& m_gallery;
  Send m_send;
  std::map<std::uint32_t, std::unique_ptr<Camera>> m_cameras;
  std::uint64_t m_announcements = 0;
  std::uint64_t m_skipped = 0;
};

}  // namespace lumsar::agent
