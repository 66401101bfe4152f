// Runs a fuzz target on the files of the folders given, once each: the short run, for any compiler.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "fuzz/Target.h"

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i)
    for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
      std::ifstream file(entry.path(), std::ios::binary);
      const std::string bytes{std::istreambuf_iterator<char>(file), {}};
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++files;
    }
  std::printf("%d inputs\n", files);
  return files == 0 ? 1 : 0;
}
