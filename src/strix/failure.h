// What the strix command prints for a failure, and the source name that its
// malformed-input lines carry: the command's, not the library's.
#pragma once

#include <exception>  // std::exception_ptr
#include <string>     // std::string

#include "strix/errors.h"

namespace strix {

// Source name carried by every malformed-input message.
inline constexpr const char* kSourceFile = "src\\strix\\strix";

// What the command prints for a failure, one line each, without line ends:
// `at_once` while the outputs are still open (a malformed section's
// description, the mark a file was refused for), `after` once they are
// closed ("?:?: Unknown error" for anything but the reader's own errors).
// Either may be empty.
struct FailureLines {
  std::string at_once;
  std::string after;
};
FailureLines failure_lines(std::exception_ptr failure);

}  // namespace strix
