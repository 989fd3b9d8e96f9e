// The queue between a sender and a receiver of messages: frames are dropped, oldest first, when
// the receiver is slow; control messages are never dropped, but bounded. Not thread-safe.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <optional>
#include <utility>

namespace lumsar::protocol {

// One frame and one control message may always wait, however large.
struct QueueLimits {
  std::size_t frames = 4;
  std::size_t frameBytes = std::numeric_limits<std::size_t>::max();
  std::size_t controlBytes = std::numeric_limits<std::size_t>::max();
};

template <class Entry>
class FrameQueue {
 public:
  struct Item {
    Entry entry;
    std::size_t size = 0;
    bool isFrame = false;
  };

  // `onDrop` is called with each frame that is dropped by a later one.
  explicit FrameQueue(QueueLimits limits, std::function<void(Entry&)> onDrop = {})
      : m_limits(limits), m_onDrop(std::move(onDrop)) {}

  void pushFrame(Entry entry, std::size_t size) {
    add({std::move(entry), size, true});
    while (m_frames.count > 1 &&
           (m_frames.count > m_limits.frames || m_frames.bytes > m_limits.frameBytes)) {
      dropOldestFrame();
    }
  }

  // False when the control messages would exceed their limit: the receiver has stalled.
  [[nodiscard]] bool pushControl(Entry entry, std::size_t size) {
    if (m_controls.count > 0 && m_controls.bytes + size > m_limits.controlBytes) return false;
    add({std::move(entry), size, false});
    return true;
  }

  std::optional<Item> pop() {
    if (m_items.empty()) return std::nullopt;
    Item item = std::move(m_items.front());
    m_items.pop_front();
    countOf(item).remove(item.size);
    return item;
  }

  // Its frames count as dropped, and onDrop is not called.
  void clear() {
    m_dropped += m_frames.count;
    m_items.clear();
    m_frames = m_controls = {};
  }

  bool empty() const { return m_items.empty(); }
  std::size_t frames() const { return m_frames.count; }
  std::size_t bytes() const { return m_frames.bytes + m_controls.bytes; }
  std::size_t controlBytes() const { return m_controls.bytes; }
  std::uint64_t dropped() const { return m_dropped; }

 private:
  struct Count {
    std::size_t count = 0;
    std::size_t bytes = 0;

    void add(std::size_t size) {
      ++count;
      bytes += size;
    }
    void remove(std::size_t size) {
      --count;
      bytes -= size;
    }
  };

  Count& countOf(const Item& item) { return item.isFrame ? m_frames : m_controls; }

  void add(Item item) {
    countOf(item).add(item.size);
    m_items.push_back(std::move(item));
  }

  void dropOldestFrame() {
    const auto oldest = std::ranges::find_if(m_items, &Item::isFrame);
    m_frames.remove(oldest->size);
    ++m_dropped;
    if (m_onDrop) m_onDrop(oldest->entry);
    m_items.erase(oldest);
  }

  QueueLimits m_limits;
  std::function<void(Entry&)> m_onDrop;
  std::deque<Item> m_items;
  Count m_frames;
  Count m_controls;
  std::uint64_t m_dropped = 0;
};

}  // namespace lumsar::protocol
