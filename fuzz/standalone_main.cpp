// Runs a fuzz target's entry point over files, as a plain program: each
// argument is a file, or a folder whose files are all run. The ordinary build
// uses it to run every target over its corpus without the fuzzing engine.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void RunOne(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // A copy of exactly the file's length, so that reading past it is caught
  // by the sanitizers' build.
  std::vector<uint8_t> input(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(input.empty() ? nullptr : input.data(), input.size());
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 0;
  for (int i = 1; i < argc; ++i) {
    std::filesystem::path given(argv[i]);
    if (std::filesystem::is_directory(given)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(given)) {
        if (!entry.is_regular_file()) continue;
        RunOne(entry.path());
        ++runs;
      }
    } else {
      RunOne(given);
      ++runs;
    }
  }
  std::printf("%d inputs run\n", runs);
  return runs > 0 ? 0 : 1;
}
