#include "strix/errors.h"

#include <cstdio>  // stderr, std::fflush

#include <fmt/format.h>  // fmt::print

namespace strix {

FormatError::FormatError(std::string_view text, SourceLocation location) : message(text) {
  // Reported here, where the location is known; the object keeps only the
  // message, so the driver has nothing further to print.
  fmt::print(stderr, "{}:{}:{}\n", location.file, location.line, text);
  std::fflush(stderr);
}

}  // namespace strix
