// The replay program every fuzz target shares: it runs the target's LLVMFuzzerTestOneInput
// over each file given, or each file in each folder given, so that seeds and past finds
// run in every ordinary (sanitized) build, without libFuzzer. A target reports a broken
// invariant by aborting, which fails the test. No inputs at all is a failure too: a
// corpus folder that went missing must not pass silently.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void Replay(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)), {});
  LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path arg(argv[i]);
    if (std::filesystem::is_regular_file(arg)) {
      Replay(arg);
      ++files;
      continue;
    }
    std::vector<std::filesystem::path> inputs;
    for (const auto& entry : std::filesystem::directory_iterator(arg)) {
      if (entry.is_regular_file()) inputs.push_back(entry.path());
    }
    std::sort(inputs.begin(), inputs.end());  // the same order every run
    for (const auto& input : inputs) Replay(input);
    files += static_cast<int>(inputs.size());
  }
  std::printf("replayed %d inputs\n", files);
  return files > 0 ? 0 : 1;
}
