// Feeds a fuzzer's source with the files of its corpus: what a fuzzer has found once is tested with
// every compiler from then on.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

// Exactly as much memory as bytes, so that a sanitizer sees a read behind them.
std::vector<unsigned char> contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<unsigned char> bytes{std::istreambuf_iterator<char>(file), {}};
  bytes.shrink_to_fit();
  return bytes;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s CORPUS\n", argv[0]);
    return 2;
  }
  std::error_code error;
  std::vector<fs::path> files(fs::directory_iterator(argv[1], error), {});
  std::ranges::sort(files);
  for (const fs::path& path : files) {
    std::printf("%s\n", path.filename().c_str());
    std::fflush(stdout);  // the last line names the file that ended the process
    const auto input = contentOf(path);
    LLVMFuzzerTestOneInput(input.data(), input.size());
  }
  if (files.empty()) std::fprintf(stderr, "%s holds no files to replay\n", argv[1]);
  return files.empty() ? 1 : 0;
}
