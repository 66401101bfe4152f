// Stands in the place of the assistant tool, which then is "assistantTool.real" beside it: makes the file "begun" there,
// waits until there is a file "work", and then either says the text of the file "says" and fails, or becomes the real tool.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

int main() {
  const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  std::ofstream(folder / "begun").close();
  while (!std::filesystem::exists(folder / "work")) ::poll(nullptr, 0, 20);
  if (std::ifstream says(folder / "says"); says) {
    // The instruction comes in one write; a tool that ends before it is not asked for its reason.
    std::array<char, 4096> instruction{};
    if (::read(STDIN_FILENO, instruction.data(), instruction.size()) <= 0) return 1;
    std::cout << says.rdbuf() << std::flush;
    return 1;
  }
  const std::string real = folder / "assistantTool.real";
  ::execl(real.c_str(), real.c_str(), nullptr);
  return 1;
}
