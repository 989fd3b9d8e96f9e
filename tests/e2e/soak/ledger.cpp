#include "soak/ledger.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

#include "base/text/format.h"

namespace lumsar::test {
namespace {

// A frame that was sent so long before a disturbance may still have been on its way; one that the
// relay reads so long after it may have been sent to the process that was killed.
constexpr std::chrono::seconds kOnTheWay{2};

struct Frame {
  CameraDataHeader header;
  CameraFrame fields;
  View data;
};

std::optional<Frame> frameIn(View message) {
  if (kindOf(message) != CameraDataKind::Frame) return std::nullopt;
  View rest = message.subspan(kHeaderSize);
  const auto header = take<CameraDataHeader>(rest);
  const auto fields = take<CameraFrame>(rest);
  if (!fields) return std::nullopt;
  return Frame{*header, *fields, rest};
}

}  // namespace

void Ledger::onSent(View message) {
  const auto frame = frameIn(message);
  if (!frame) return;
  const Key key{frame->header.camera, frame->fields.sequence, frame->header.time};
  const unsigned long long value = hash(frame->data);
  const std::lock_guard lock(m_mutex);
  ++m_counts.sent;
  m_onTheWay[key] = {value, Clock::now()};
}

void Ledger::onArrived(View message) {
  onAnnounced(message);
  const auto frame = frameIn(message);
  if (!frame) return;
  const unsigned long long value = hash(frame->data);
  const std::lock_guard lock(m_mutex);
  ++m_counts.arrived;
  ++m_arrivedFrom[m_names[frame->header.camera]];
  const auto sent =
      m_onTheWay.find(Key{frame->header.camera, frame->fields.sequence, frame->header.time});
  if (sent == m_onTheWay.end() || sent->second.hash != value) ++m_counts.wrong;
  if (sent != m_onTheWay.end()) m_onTheWay.erase(sent);
}

void Ledger::onAnnounced(View message) {
  if (kindOf(message) != CameraDataKind::Announced) return;
  View rest = message.subspan(kHeaderSize);
  const auto header = take<CameraDataHeader>(rest);
  const auto fields = take<CameraAnnounced>(rest);
  if (!fields) return;
  const auto id = takeText(rest, fields->idLength);
  const std::lock_guard lock(m_mutex);
  m_names[header->camera] = std::string(id.value_or(""));
}

void Ledger::beginDisturbance() {
  const std::lock_guard lock(m_mutex);
  m_disturbances.push_back({Clock::now() - kOnTheWay, Clock::time_point::max()});
}

void Ledger::endDisturbance() {
  const std::lock_guard lock(m_mutex);
  m_disturbances.back().end = Clock::now() + kOnTheWay;
}

Ledger::Counts Ledger::counts() const {
  const std::lock_guard lock(m_mutex);
  Counts counts = m_counts;
  for (const auto& entry : m_onTheWay) {
    const Clock::time_point when = entry.second.when;
    const bool disturbed = std::ranges::any_of(m_disturbances, [when](const Period& period) {
      return when >= period.begin && when <= period.end;
    });
    ++(disturbed ? counts.lostWhile : counts.lostOtherwise);
    if (!disturbed) counts.lost += describe(entry.first, when);
  }
  return counts;
}

// Called with the lock held.
std::string Ledger::describe(const Key& frame, Clock::time_point when) const {
  double nearest = std::numeric_limits<double>::infinity();
  for (const Period& period : m_disturbances) {
    for (const Clock::time_point edge : {period.begin, period.end}) {
      const double away = std::chrono::duration<double>(when - edge).count();
      if (std::abs(away) < std::abs(nearest)) nearest = away;
    }
  }
  return base::text("camera {}, frame {}: {:.3f} s from a disturbance's time\n", std::get<0>(frame),
                    std::get<1>(frame), nearest);
}

long Ledger::arrivedFrom(const std::string& camera) const {
  const std::lock_guard lock(m_mutex);
  const auto found = m_arrivedFrom.find(camera);
  return found == m_arrivedFrom.end() ? 0 : found->second;
}

}  // namespace lumsar::test
