// The command's entry where names are bytes, as the system gives them.
#include <filesystem>  // std::filesystem::path
#include <vector>      // std::vector

#include "strix/driver.h"

int main(int argc, char** argv) {
  return strix::run_command(std::vector<std::filesystem::path>(argv + (argc > 0), argv + argc));
}
