#include "strix/errors.h"

#include <cstring>  // std::strerror

#include <fmt/format.h>  // fmt::format

#include "strix/failure.h"

namespace strix {

void Error::set_path(const std::string& path) {
  if (!path_.empty() || path.empty()) return;
  std::runtime_error::operator=(std::runtime_error(path + ": " + what()));
  path_ = path;
}

FormatError::FormatError(std::string_view text, CheckNumber check)
    : Error(fmt::format("malformed solution file: {}", text)),
      message(text),
      file(check.file),
      line(check.number) {}

namespace {
std::string incompatible_text(std::uint32_t mark, std::size_t length) {
  if (length == 0) return "not a solution file (it is empty)";
  std::string bytes;
  for (std::size_t i = 0; i < length && i < 4; ++i) {
    bytes += fmt::format(" {:02x}", (mark >> (8 * i)) & 0xFF);
  }
  return "not a solution file (it starts with bytes" + bytes + ")";
}
}  // namespace

IncompatibleFileError::IncompatibleFileError(const char* source_file, std::int32_t source_line,
                                             std::uint32_t first_bytes, std::size_t length)
    : Error(incompatible_text(first_bytes, length)),
      file(source_file),
      line(source_line),
      mark(first_bytes) {}

InconsistentSolution::InconsistentSolution(std::string_view text)
    : Error(fmt::format("an array's length disagrees with the problem sizes: {}", text)),
      message(text) {}

IOError::IOError() : Error("the output took no bytes") {}

IOError::IOError(int error_number, const std::string& path, std::string_view action)
    : Error(fmt::format("{}: {}", action, std::strerror(error_number))), code(error_number) {
  set_path(path);
}

UnsupportedInput::UnsupportedInput(std::string_view quoted_suffix)
    : Error("Compression type '" + std::string(quoted_suffix) + "' not supported for input") {}

SameFileError::SameFileError(const std::string& in_path, const std::string& out_path)
    : Error(fmt::format("input {} and output {} are the same file", in_path, out_path)) {}

ReportError::ReportError(std::string_view reason)
    : Error(fmt::format("the text report cannot be written ({})", reason)) {}

gzip::GZipError::GZipError(std::int32_t engine_code)
    : Error(fmt::format("gzip compression failed (engine code {})", engine_code)),
      code(engine_code) {}

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
