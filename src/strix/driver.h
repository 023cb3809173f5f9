// The command line and conversion driver: `strix INFILE OUTFILE`.
#pragma once

namespace strix {

// The whole program. Returns the exit status for faults in the file names;
// every other failure prints one line and ends the process by SIGABRT.
int run(int argc, char** argv);

}  // namespace strix
