// Runs a fuzz target over every file of the given corpus folders, so that
// builds without libFuzzer re-check every old finding and seed.
#include <cstdint>     // std::uint8_t
#include <cstdio>      // std::printf
#include <filesystem>  // directory iteration
#include <fstream>     // std::ifstream
#include <iterator>    // std::istreambuf_iterator
#include <vector>      // std::vector

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
  std::size_t count = 0;
  for (int i = 1; i < argc; ++i) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[i])) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++count;
    }
  }
  std::printf("replayed %zu inputs\n", count);
  return count > 0 ? 0 : 1;
}
