// FrameBudget: how many bytes the frames of all cameras may hold together until their consumers
// have worked on them. Thread-safe.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <utility>

namespace lumsar::agent {

class FrameBudget {
 public:
  explicit FrameBudget(std::size_t limit) : m_limit(limit) {}

  // So many bytes of the budget, given back with the object.
  class Share {
   public:
    Share() = default;
    Share(Share&& other) noexcept
        : m_used(std::move(other.m_used)), m_size(std::exchange(other.m_size, 0)) {}
    Share& operator=(Share&& other) noexcept {
      std::swap(m_used, other.m_used);
      std::swap(m_size, other.m_size);
      return *this;
    }
    ~Share() {
      if (m_used) *m_used -= m_size;
    }
    explicit operator bool() const { return m_used != nullptr; }

   private:
    friend class FrameBudget;
    Share(std::shared_ptr<std::atomic<std::size_t>> used, std::size_t size)
        : m_used(std::move(used)), m_size(size) {}

    std::shared_ptr<std::atomic<std::size_t>> m_used;
    std::size_t m_size = 0;
  };

  // Empty when the limit would be exceeded.
  Share take(std::size_t size) {
    if ((*m_used += size) <= m_limit) return {m_used, size};
    *m_used -= size;
    return {};
  }

 private:
  const std::size_t m_limit;
  const std::shared_ptr<std::atomic<std::size_t>> m_used =
      std::make_shared<std::atomic<std::size_t>>(0);  // outlived by frames that a sink still has
};

}  // namespace lumsar::agent
