// The command line: `strix INFILE OUTFILE`.
#pragma once

#include <filesystem>  // std::filesystem::path
#include <vector>      // std::vector

namespace strix {

// The whole command, given the arguments after the program's name. Returns
// the exit status for faults in the file names; every other failure prints
// its line and ends the process abnormally (platform/process.h).
int run_command(const std::vector<std::filesystem::path>& arguments);

}  // namespace strix
