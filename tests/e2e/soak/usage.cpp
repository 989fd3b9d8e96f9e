#include "soak/usage.h"

#include <algorithm>

#include "base/text/format.h"
#include "support/resources.h"
#include "support/temporary_directory.h"

namespace lumsar::test {
namespace {

// By how much it may grow: KiB that no file backs, threads, descriptors. In two minutes on a busy
// machine there may be no moment without a host and a camera that is on: two threads and six
// descriptors.
constexpr std::array<long, 3> kGrowth{8192, 4, 8};
constexpr std::array kNames{"KiB", "threads", "descriptors"};

long memoryOf(const std::string& directory) {
  const std::string status = readFile(directory + "/status");
  const auto at = status.find("RssAnon:");
  return at == status.npos ? 0 : std::stol(status.substr(at + 8));
}

}  // namespace

void Usage::sample() {
  const std::string directory = base::text("/proc/{}", m_process);
  try {
    m_samples.push_back({memoryOf(directory),
                         static_cast<long>(entriesIn((directory + "/task").c_str())),
                         static_cast<long>(entriesIn((directory + "/fd").c_str()))});
  } catch (const std::filesystem::filesystem_error&) {
    // It has ended, which somebody else notices.
  }
}

Usage::Sample Usage::least(std::span<const Sample> samples) {
  Sample least{};
  for (std::size_t quantity = 0; quantity < kQuantities && !samples.empty(); ++quantity) {
    least[quantity] = std::ranges::min(
        samples, {}, [quantity](const Sample& sample) { return sample[quantity]; })[quantity];
  }
  return least;
}

Usage::Sample Usage::first() const {
  return least(std::span(m_samples).first(m_samples.size() / 3));
}

Usage::Sample Usage::last() const {
  return least(std::span(m_samples).last(m_samples.size() / 3));
}

std::string Usage::wrong() const {
  const Sample before = first();
  const Sample after = last();
  for (std::size_t quantity = 0; quantity < kQuantities; ++quantity) {
    if (after[quantity] > before[quantity] + kGrowth[quantity]) {
      return base::text("{}: {} {} at first, {} at last; at most {} more are allowed", m_name,
                        before[quantity], kNames[quantity], after[quantity], kGrowth[quantity]);
    }
  }
  return {};
}

std::string Usage::summary() const {
  const Sample before = first();
  const Sample after = last();
  std::string text = m_name + ":";
  for (std::size_t quantity = 0; quantity < kQuantities; ++quantity) {
    text += base::text(" {} -> {} {}", before[quantity], after[quantity], kNames[quantity]);
  }
  return text;
}

}  // namespace lumsar::test
