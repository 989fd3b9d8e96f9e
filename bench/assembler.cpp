// How fast does the assembler deframe a stream, by the size of the fragments that arrive?
#include <benchmark/benchmark.h>

#include <cstring>

#include "lumsar/assembler.h"

namespace {

constexpr std::size_t kPicture = 100'000;

std::vector<unsigned char> stream() {
  lumsar::RedirMsgHeader header;
  header.length = kPicture;
  std::vector<unsigned char> bytes(lumsar::kHeaderSize + kPicture, 0x5A);
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes;
}

void frames(benchmark::State& state) {
  const std::vector<unsigned char> bytes = stream();
  const auto fragment = static_cast<std::size_t>(state.range(0));
  lumsar::MessageAssembler assembler;
  for (auto _ : state) {
    std::span<const unsigned char> rest(bytes);
    while (!rest.empty()) {
      const std::size_t size = std::min(fragment, rest.size());
      assembler.append(rest.first(size));
      rest = rest.subspan(size);
    }
    benchmark::DoNotOptimize(assembler.next().data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes.size()));
}
BENCHMARK(frames)->Arg(1536)->Arg(4096)->Arg(32768)->Arg(200'000);

}  // namespace

BENCHMARK_MAIN();
