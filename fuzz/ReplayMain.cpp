// The main() of a fuzz target built without libFuzzer: feeds every file
// named on the command line, or found (recursively) in a folder named there,
// through LLVMFuzzerTestOneInput, in name order. No input at all is an
// error, so a missing corpus cannot pass unnoticed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path named(argv[i]);
    std::error_code error;
    if (fs::is_directory(named, error)) {
      for (const auto& entry : fs::recursive_directory_iterator(named, error)) {
        if (entry.is_regular_file()) inputs.push_back(entry.path());
      }
    } else {
      inputs.push_back(named);
    }
    if (error) {
      std::fprintf(stderr, "cannot list %s: %s\n", argv[i], error.message().c_str());
      return 2;
    }
  }
  if (inputs.empty()) {
    std::fprintf(stderr, "usage: %s FILE-OR-FOLDER...  (no inputs found)\n", argv[0]);
    return 2;
  }
  std::sort(inputs.begin(), inputs.end());
  for (const fs::path& path : inputs) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "cannot read %s\n", path.string().c_str());
      return 2;
    }
    std::ostringstream content;
    content << in.rdbuf();
    const std::string bytes = content.str();
    std::fprintf(stderr, "replaying %s (%zu bytes)\n", path.string().c_str(), bytes.size());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
  std::printf("%zu inputs replayed\n", inputs.size());
  return 0;
}
