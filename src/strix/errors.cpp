#include "strix/errors.h"

#include <fmt/format.h>  // fmt::format

namespace strix {

FailureLines failure_lines(std::exception_ptr failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const FormatError& e) {
    // The description is the whole report: nothing follows it.
    return {fmt::format("{}:{}:{}", e.file != nullptr ? e.file : "?", e.line, e.message), {}};
  } catch (const IncompatibleFileError& e) {
    return {fmt::format("Got bad BOM {:08x}", e.mark),
            fmt::format("{}:{}:IncompatibleFileError", e.file != nullptr ? e.file : "?", e.line)};
  } catch (const InconsistentSolution& e) {
    return {{}, "InconsistentSolution: " + e.message};
  } catch (...) {
    return {{}, "?:?: Unknown error"};
  }
}

}  // namespace strix
