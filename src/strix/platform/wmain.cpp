// The command's entry on Windows: the names as the system holds them, in
// UTF-16, so that every name a file can have reaches the program intact.
#include <filesystem>  // std::filesystem::path
#include <vector>      // std::vector

#include "strix/driver.h"

int wmain(int argc, wchar_t** argv) {
  return strix::run_command(std::vector<std::filesystem::path>(argv + (argc > 0), argv + argc));
}
