// The C interface (strix.h) over the C++ library: opaque objects that own
// the library's solutions, failures turned into codes and messages at the
// boundary. Logic stays in the library; this converts types.
#include "strix/strix.h"

#include <algorithm>    // std::min
#include <cstdint>      // fixed-width integers
#include <exception>    // std::exception_ptr
#include <filesystem>   // std::filesystem::path
#include <iterator>     // std::size
#include <limits>       // quiet NaN
#include <memory>       // std::unique_ptr
#include <new>          // std::bad_alloc, std::nothrow
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <vector>       // std::vector

#include "strix/convert.h"
#include "strix/errors.h"
#include "strix/solution.h"
#include "strix/streams.h"
#include "strix/version.h"  // STRIX_VERSION

struct strix_error {
  strix_status code;
  std::string message;
  std::string path;
  int system_errno = 0;
};

struct strix_solution {
  std::unique_ptr<strix::Solution> solution;
  strix::SolutionItem* items[STRIX_KIND_COUNT] = {};  // by kind; null where absent
};

struct strix_files {
  std::vector<std::unique_ptr<strix_solution>> solutions;
  std::vector<std::unique_ptr<strix_error>> errors;
};

namespace {

// A C caller's path: its bytes on POSIX, UTF-8 on Windows, where the path
// is UTF-16 and every name the system holds can so be given.
std::filesystem::path c_path(const char* text) {
  return std::u8string_view(reinterpret_cast<const char8_t*>(text));
}

// Handed out where even the error could not be made; never freed.
strix_error out_of_memory{STRIX_OUT_OF_MEMORY, "out of memory", {}, 0};

// A read callback that reported a failure.
class CallbackFailure : public strix::Error {
 public:
  CallbackFailure() : Error("the read callback failed") {}
};

// A failure the caller made (a null pointer); the library is not called.
class InvalidArgument : public strix::Error {
 public:
  explicit InvalidArgument(const char* what) : Error(what) {}
};

// A conversion that ended with a status of the command's (2 or 7).
class CommandStatus : public strix::Error {
 public:
  CommandStatus(strix_status code, const std::string& line) : Error(line), code(code) {}
  strix_status code;
};

strix_status code_of(const std::exception_ptr& failure, int& system_errno) {
  try {
    std::rethrow_exception(failure);
  } catch (const strix::FormatError&) {
    return STRIX_FORMAT_ERROR;
  } catch (const strix::IncompatibleFileError&) {
    return STRIX_INCOMPATIBLE_FILE;
  } catch (const strix::InconsistentSolution&) {
    return STRIX_INCONSISTENT_SOLUTION;
  } catch (const strix::IOError& e) {
    system_errno = e.code;
    return STRIX_IO_ERROR;
  } catch (const CallbackFailure&) {
    return STRIX_IO_ERROR;
  } catch (const strix::SameFileError&) {
    return STRIX_SAME_FILE;
  } catch (const strix::UnsupportedInput&) {
    return STRIX_UNSUPPORTED_INPUT;
  } catch (const CommandStatus& e) {
    return e.code;
  } catch (const strix::zstd::CompressionError&) {
    return STRIX_COMPRESSION_ERROR;
  } catch (const strix::gzip::GZipError&) {
    return STRIX_GZIP_ERROR;
  } catch (const strix::ReportError&) {
    return STRIX_REPORT_ERROR;
  } catch (const InvalidArgument&) {
    return STRIX_INVALID_ARGUMENT;
  } catch (const std::bad_alloc&) {
    return STRIX_OUT_OF_MEMORY;
  } catch (...) {
    return STRIX_ERROR;
  }
}

// The error object of a failure; never throws.
strix_error* make_error(const std::exception_ptr& failure) noexcept {
  try {
    auto error = std::make_unique<strix_error>();
    error->code = code_of(failure, error->system_errno);
    try {
      std::rethrow_exception(failure);
    } catch (const strix::Error& e) {
      error->message = e.what();
      error->path = e.path();
    } catch (const std::bad_alloc&) {
      return &out_of_memory;
    } catch (const std::exception& e) {
      error->message = e.what();
    } catch (...) {
      error->message = "unknown failure";
    }
    return error.release();
  } catch (...) {
    return &out_of_memory;
  }
}

// Runs f, turning whatever it throws into a code and, where asked, an
// error object.
template <typename F>
strix_status guarded(strix_error** error, F&& f) noexcept {
  if (error != nullptr) *error = nullptr;
  try {
    f();
    return STRIX_OK;
  } catch (...) {
    strix_error* made = make_error(std::current_exception());
    const strix_status code = made->code;
    if (error != nullptr) {
      *error = made;
    } else {
      strix_error_free(made);
    }
    return code;
  }
}

void require(const void* pointer, const char* what) {
  if (pointer == nullptr) throw InvalidArgument(what);
}

strix::ReadOptions read_options(const strix_read_options* options) {
  strix::ReadOptions out;
  if (options != nullptr) {
    out.kinds = options->kinds & STRIX_ALL_KINDS;
    out.vectors = options->vectors & STRIX_ALL_VECTORS;
    out.names = options->names != 0;
  }
  return out;
}

std::unique_ptr<strix_solution> wrap(std::unique_ptr<strix::Solution> solution) {
  auto out = std::make_unique<strix_solution>();
  for (strix::SolutionItem& item : solution->solutions) {
    if (const auto kind = strix::solution_kind_named(item.kind)) {
      out->items[static_cast<std::size_t>(*kind)] = &item;
    }
  }
  out->solution = std::move(solution);
  return out;
}

template <typename Read>
strix_status read_into(strix_solution** solution, strix_error** error, Read read) {
  if (solution != nullptr) *solution = nullptr;
  return guarded(error, [&] {
    require(solution, "the solution pointer is NULL");
    *solution = wrap(read()).release();
  });
}

// Reads through the caller's functions, in calls of at most 1 GiB, until
// a call gives nothing.
class CallbackReader : public strix::Reader {
 public:
  explicit CallbackReader(const strix_reader& callbacks) : callbacks_(callbacks) {}

  std::uint64_t read(void* dst, std::uint64_t n) override {
    std::uint64_t count = 0;
    while (count < n) {
      const std::int64_t got =
          callbacks_.read(callbacks_.context, static_cast<char*>(dst) + count, chunk(n - count));
      if (got < 0 || static_cast<std::uint64_t>(got) > n - count) throw CallbackFailure();
      if (got == 0) break;
      count += static_cast<std::uint64_t>(got);
    }
    return count;
  }

  std::uint64_t skip(std::uint64_t n) override {
    if (callbacks_.skip == nullptr) return Reader::skip(n);
    const std::int64_t got = callbacks_.skip(callbacks_.context, n);
    if (got < 0 || static_cast<std::uint64_t>(got) > n) throw CallbackFailure();
    return static_cast<std::uint64_t>(got);
  }

 private:
  static std::size_t chunk(std::uint64_t n) { return std::min<std::uint64_t>(n, 1u << 30); }

  strix_reader callbacks_;
};

const strix::SolutionItem* item_of(const strix_solution* s, strix_kind kind) {
  const auto k = static_cast<std::size_t>(kind);
  return s != nullptr && k < STRIX_KIND_COUNT ? s->items[k] : nullptr;
}

const strix::VectorInfo* vector_of(strix_vector vector) {
  const auto v = static_cast<std::size_t>(vector);
  return v < strix::kVectorCount ? &strix::kVectors[v] : nullptr;
}

// A pointer and a length: the length stored where asked, null for nothing.
template <typename T>
const T* span(const strix::Array<T>* values, size_t* length) {
  if (length != nullptr) *length = values != nullptr ? values->size() : 0;
  return values != nullptr && !values->empty() ? values->data() : nullptr;
}

const char* text(std::string_view bytes, size_t* length) {
  if (length != nullptr) *length = bytes.size();
  return bytes.data();
}

const char* text(const std::string* bytes, size_t* length) {
  if (bytes == nullptr) return text(std::string_view(), length);
  return text(std::string_view(*bytes), length);
}

const strix::NameList* names_of(const strix_solution* s, strix_names list) {
  if (s == nullptr) return nullptr;
  strix::Solution& all = *s->solution;
  switch (list) {
    case STRIX_VAR_NAMES:
      return &all.var_names;
    case STRIX_BARVAR_NAMES:
      return &all.barvar_names;
    case STRIX_CON_NAMES:
      return &all.con_names;
    case STRIX_CONE_NAMES:
      return &all.cone_names;
    case STRIX_ACC_NAMES:
      return &all.acc_names;
  }
  return nullptr;
}

const strix::NameList* info_names(const strix_solution* s, strix_info type) {
  if (s == nullptr) return nullptr;
  switch (type) {
    case STRIX_INFO_I32:
      return &s->solution->info_i32.names;
    case STRIX_INFO_I64:
      return &s->solution->info_i64.names;
    case STRIX_INFO_F64:
      return &s->solution->info_f64.names;
  }
  return nullptr;
}

// Items have a name and a value both; extra ones of either are not items.
template <typename T>
std::size_t info_size(const strix::InfoGroup<T>& group) {
  return std::min(group.names.names.size(), group.values.size());
}

}  // namespace

extern "C" {

const char* strix_version(void) {
  return STRIX_VERSION;
}

strix_status strix_error_code(const strix_error* error) {
  return error != nullptr ? error->code : STRIX_OK;
}

const char* strix_error_message(const strix_error* error) {
  return error != nullptr ? error->message.c_str() : "";
}

int strix_error_errno(const strix_error* error) {
  return error != nullptr ? error->system_errno : 0;
}

const char* strix_error_path(const strix_error* error) {
  return error != nullptr ? error->path.c_str() : "";
}

void strix_error_free(strix_error* error) {
  if (error != &out_of_memory) delete error;
}

const char* strix_status_name(strix_status status) {
  static constexpr const char* kNames[] = {"OK",
                                           "FormatError",
                                           "IncompatibleFileError",
                                           "InconsistentSolution",
                                           "IOError",
                                           "SameFileError",
                                           "UnsupportedInput",
                                           "UnknownFormat",
                                           "CompressionError",
                                           "GZipError",
                                           "ReportError",
                                           "InvalidArgument",
                                           "OutOfMemory",
                                           "Error"};
  const auto i = static_cast<std::size_t>(status);
  return i < std::size(kNames) ? kNames[i] : nullptr;
}

strix_status strix_read_file(const char* path, const strix_read_options* options,
                             strix_solution** solution, strix_error** error) {
  return read_into(solution, error, [&] {
    require(path, "the path is NULL");
    return strix::read_solution_named(c_path(path), read_options(options));
  });
}

strix_status strix_read_memory(const void* data, size_t size, const strix_read_options* options,
                               strix_solution** solution, strix_error** error) {
  return read_into(solution, error, [&] {
    if (size != 0) require(data, "the data pointer is NULL");
    strix::MemoryReader reader(data, size);
    return strix::read_solution(reader, read_options(options));
  });
}

strix_status strix_read_callbacks(const strix_reader* reader, const strix_read_options* options,
                                  strix_solution** solution, strix_error** error) {
  return read_into(solution, error, [&] {
    require(reader, "the reader is NULL");
    require(reinterpret_cast<const void*>(reader->read), "the reader has no read function");
    CallbackReader source(*reader);
    return strix::read_solution(source, read_options(options));
  });
}

void strix_solution_free(strix_solution* solution) {
  delete solution;
}

void strix_solution_version(const strix_solution* solution, int32_t version[3]) {
  for (std::size_t i = 0; i < 3; ++i) {
    version[i] = solution != nullptr ? solution->solution->version[i] : 0;
  }
}

int64_t strix_solution_count(const strix_solution* solution, strix_count count) {
  if (solution == nullptr) return 0;
  const strix::Solution& s = *solution->solution;
  switch (count) {
    case STRIX_NUMVAR:
      return s.numvar;
    case STRIX_NUMCON:
      return s.numcon;
    case STRIX_NUMCONE:
      return s.numcone;
    case STRIX_NUMBARVAR:
      return s.numbarvar;
    case STRIX_NUMACC:
      return s.numacc;
  }
  return 0;
}

strix_read_options strix_solution_kept(const strix_solution* solution) {
  if (solution == nullptr) return {0, 0, 0};
  const strix::ReadOptions& kept = solution->solution->kept;
  return {static_cast<unsigned>(kept.kinds.to_ulong()),
          static_cast<uint32_t>(kept.vectors.to_ulong()), kept.names ? 1 : 0};
}

int strix_has_solution(const strix_solution* solution, strix_kind kind) {
  return item_of(solution, kind) != nullptr;
}

const char* strix_prosta(const strix_solution* solution, strix_kind kind, size_t* length) {
  const strix::SolutionItem* item = item_of(solution, kind);
  return text(item != nullptr ? &item->prosta : nullptr, length);
}

const char* strix_solsta(const strix_solution* solution, strix_kind kind, size_t* length) {
  const strix::SolutionItem* item = item_of(solution, kind);
  return text(item != nullptr ? &item->solsta : nullptr, length);
}

double strix_pobj(const strix_solution* solution, strix_kind kind) {
  const strix::SolutionItem* item = item_of(solution, kind);
  return item != nullptr ? item->pobj : std::numeric_limits<double>::quiet_NaN();
}

double strix_dobj(const strix_solution* solution, strix_kind kind) {
  const strix::SolutionItem* item = item_of(solution, kind);
  return item != nullptr ? item->dobj : std::numeric_limits<double>::quiet_NaN();
}

const uint8_t* strix_keys(const strix_solution* solution, strix_kind kind, strix_vector vector,
                          size_t* length) {
  const strix::SolutionItem* item = item_of(solution, kind);
  const strix::VectorInfo* info = vector_of(vector);
  const bool found = item != nullptr && info != nullptr && info->keys != nullptr;
  return span(found ? &(item->*info->keys) : nullptr, length);
}

const double* strix_values(const strix_solution* solution, strix_kind kind, strix_vector vector,
                           size_t* length) {
  const strix::SolutionItem* item = item_of(solution, kind);
  const strix::VectorInfo* info = vector_of(vector);
  const bool found = item != nullptr && info != nullptr && info->values != nullptr;
  return span(found ? &(item->*info->values) : nullptr, length);
}

void strix_release(strix_solution* solution, strix_kind kind, strix_vector vector) {
  const strix::VectorInfo* info = vector_of(vector);
  if (item_of(solution, kind) == nullptr || info == nullptr) return;
  strix::SolutionItem& item = *solution->items[static_cast<std::size_t>(kind)];
  if (info->keys != nullptr) item.*info->keys = strix::Array<std::uint8_t>();
  if (info->values != nullptr) item.*info->values = strix::Array<double>();
}

const uint64_t* strix_barvar_pattern(const strix_solution* solution, size_t* length) {
  return span(solution != nullptr ? &solution->solution->barvar_pattern : nullptr, length);
}

const uint64_t* strix_acc_pattern(const strix_solution* solution, size_t* length) {
  return span(solution != nullptr ? &solution->solution->acc_pattern : nullptr, length);
}

size_t strix_name_count(const strix_solution* solution, strix_names list) {
  const strix::NameList* names = names_of(solution, list);
  return names != nullptr ? names->names.size() : 0;
}

const char* strix_name(const strix_solution* solution, strix_names list, size_t i, size_t* length) {
  const strix::NameList* names = names_of(solution, list);
  if (names == nullptr || i >= names->names.size()) return text(nullptr, length);
  return text(names->names[i], length);
}

size_t strix_info_count(const strix_solution* solution, strix_info type) {
  if (solution == nullptr) return 0;
  const strix::Solution& s = *solution->solution;
  switch (type) {
    case STRIX_INFO_I32:
      return info_size(s.info_i32);
    case STRIX_INFO_I64:
      return info_size(s.info_i64);
    case STRIX_INFO_F64:
      return info_size(s.info_f64);
  }
  return 0;
}

const char* strix_info_name(const strix_solution* solution, strix_info type, size_t i,
                            size_t* length) {
  const strix::NameList* names = info_names(solution, type);
  if (names == nullptr || i >= strix_info_count(solution, type)) return text(nullptr, length);
  return text(names->names[i], length);
}

int64_t strix_info_int(const strix_solution* solution, strix_info type, size_t i) {
  if (i >= strix_info_count(solution, type)) return 0;
  if (type == STRIX_INFO_I32) return solution->solution->info_i32.values[i];
  if (type == STRIX_INFO_I64) return solution->solution->info_i64.values[i];
  return 0;
}

double strix_info_f64(const strix_solution* solution, size_t i) {
  if (i >= strix_info_count(solution, STRIX_INFO_F64))
    return std::numeric_limits<double>::quiet_NaN();
  return solution->solution->info_f64.values[i];
}

const char* strix_kind_name(strix_kind kind) {
  const auto k = static_cast<std::size_t>(kind);
  return k < STRIX_KIND_COUNT ? strix::kSolutionKindNames[k].data() : nullptr;
}

int strix_kind_named(const char* name) {
  if (name == nullptr) return -1;
  const auto kind = strix::solution_kind_named(name);
  return kind ? static_cast<int>(*kind) : -1;
}

const char* strix_vector_name(strix_vector vector) {
  const strix::VectorInfo* info = vector_of(vector);
  return info != nullptr ? info->key.data() : nullptr;
}

int strix_vector_named(const char* name) {
  if (name == nullptr) return -1;
  const auto vector = strix::vector_named(name);
  return vector ? static_cast<int>(*vector) : -1;
}

strix_status strix_read_files(const char* const* paths, size_t count,
                              const strix_read_options* options, unsigned threads,
                              int stop_at_failure, strix_files** files, strix_error** error) {
  if (files != nullptr) *files = nullptr;
  return guarded(error, [&] {
    require(files, "the files pointer is NULL");
    if (count != 0) require(paths, "the paths are NULL");
    std::vector<std::filesystem::path> names;
    for (size_t i = 0; i < count; ++i) {
      require(paths[i], "a path is NULL");
      names.push_back(c_path(paths[i]));
    }
    std::vector<strix::FileRead> reads =
        strix::read_solution_files(names, read_options(options), threads, stop_at_failure != 0);
    auto out = std::make_unique<strix_files>();
    out->solutions.resize(count);
    out->errors.resize(count);
    for (size_t i = 0; i < count; ++i) {
      if (reads[i].solution) out->solutions[i] = wrap(std::move(reads[i].solution));
      if (reads[i].failure) {
        strix_error* made = make_error(reads[i].failure);
        if (made == &out_of_memory) throw std::bad_alloc();
        out->errors[i].reset(made);
      }
    }
    *files = out.release();
  });
}

size_t strix_files_count(const strix_files* files) {
  return files != nullptr ? files->solutions.size() : 0;
}

const strix_solution* strix_files_solution(const strix_files* files, size_t i) {
  return i < strix_files_count(files) ? files->solutions[i].get() : nullptr;
}

const strix_error* strix_files_error(const strix_files* files, size_t i) {
  return i < strix_files_count(files) ? files->errors[i].get() : nullptr;
}

void strix_files_free(strix_files* files) {
  delete files;
}

strix_status strix_convert(const char* infile, const char* outfile, unsigned threads,
                           strix_error** error) {
  return guarded(error, [&] {
    require(infile, "the input name is NULL");
    require(outfile, "the output name is NULL");
    const strix::Outcome outcome =
        strix::convert(c_path(infile), c_path(outfile), {.threads = threads});
    if (outcome.status == 2) throw CommandStatus(STRIX_UNSUPPORTED_INPUT, outcome.message);
    if (outcome.status != 0) throw CommandStatus(STRIX_UNKNOWN_FORMAT, outcome.message);
  });
}

}  // extern "C"
