// The command line: `strix INFILE OUTFILE`.
#pragma once

namespace strix {

// The whole command. Returns the exit status for faults in the file names;
// every other failure prints the designed line and ends the process by
// SIGABRT.
int run_command(int argc, char** argv);

}  // namespace strix
