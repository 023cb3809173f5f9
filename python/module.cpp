// The Python module's native part, strix._strix: reading a solution file
// into NumPy views of the reader's own arrays, tables of them, pickling, and
// the command's conversion. Logic stays in the library; this converts types
// and maps errors.
#include <algorithm>    // std::min, std::max
#include <array>        // std::array
#include <bitset>       // the read's selection
#include <cerrno>       // errno
#include <cstdint>      // fixed-width integers
#include <cstring>      // std::memcpy, std::memcmp
#include <filesystem>   // std::filesystem::path
#include <list>         // the solutions
#include <memory>       // std::shared_ptr
#include <optional>     // std::optional
#include <stdexcept>    // std::invalid_argument
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <type_traits>  // std::is_arithmetic_v
#include <utility>      // std::pair
#include <vector>       // std::vector

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "strix/convert.h"
#include "strix/errors.h"
#include "strix/layout.h"  // default_name, the tables, block_bounds
#include "strix/solution.h"
#include "strix/status.h"
#include "strix/streams.h"
#include "strix/version.h"  // STRIX_VERSION

namespace py = pybind11;

namespace {

using strix::Solution;
using strix::SolutionItem;

// Every view of a solution's arrays keeps the solution alive through this.
using Shared = std::shared_ptr<const Solution>;

// A read-only NumPy view of an array, owning a reference to its solution.
// An absent section is an empty array, read-only as every other.
template <typename T>
py::array view(const Shared& owner, const strix::Array<T>& values) {
  py::array array = py::array_t<T>(0);
  if (!values.empty()) {
    py::capsule base(new Shared(owner), [](void* p) { delete static_cast<Shared*>(p); });
    array = py::array_t<T>(static_cast<py::ssize_t>(values.size()), values.data(), base);
  }
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

// All text from the file (names, statuses, information items) byte for
// byte: each byte is one character, so .encode("latin-1") gives the bytes
// back.
py::str text(std::string_view bytes) {
  PyObject* str =
      PyUnicode_DecodeLatin1(bytes.data(), static_cast<py::ssize_t>(bytes.size()), nullptr);
  if (str == nullptr) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(str);
}

py::list names(const strix::NameList& list) {
  py::list out(list.names.size());
  for (std::size_t i = 0; i < list.names.size(); ++i) out[i] = text(list.names[i]);
  return out;
}

template <typename T>
py::dict info(const strix::InfoGroup<T>& group) {
  py::dict out;
  const std::size_t count = std::min(group.names.names.size(), group.values.size());
  for (std::size_t i = 0; i < count; ++i) out[text(group.names.names[i])] = group.values[i];
  return out;
}

// The type of strix.Error, the base of the module's own exceptions.
struct ErrorTag {};

// strix.Error and its subclasses FormatError, IncompatibleFileError,
// InconsistentSolution and CompressionError, made at import and kept for the
// interpreter's life.
std::array<PyObject*, 5> error_types{};

// A file that cannot be opened, created or written is the OSError subclass
// of its errno naming the file, as open() would raise it.
void raise_os_error(const strix::IOError& e) {
  if (e.code == 0) return PyErr_SetString(PyExc_OSError, e.what());
  const py::object name = py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(e.path().data(), static_cast<py::ssize_t>(e.path().size())));
  errno = e.code;
  PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, name.ptr());
}

// Sets the Python error of a strix failure; false for any other exception.
bool set_strix_error(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const strix::FormatError& e) {
    PyErr_SetString(error_types[1], e.what());
  } catch (const strix::IncompatibleFileError& e) {
    PyErr_SetString(error_types[2], e.what());
  } catch (const strix::InconsistentSolution& e) {
    PyErr_SetString(error_types[3], e.what());
  } catch (const strix::zstd::CompressionError& e) {
    PyErr_SetString(error_types[4], e.what());
  } catch (const strix::IOError& e) {
    raise_os_error(e);
  } catch (const strix::SameFileError& e) {
    // As shutil.copyfile reports the same mistake; an OSError.
    PyErr_SetString(py::module_::import("shutil").attr("SameFileError").ptr(), e.what());
  } catch (const strix::UnsupportedInput& e) {
    PyErr_SetString(PyExc_ValueError, e.what());
  } catch (const strix::Error& e) {
    PyErr_SetString(error_types[0], e.what());
  } catch (...) {
    return false;
  }
  return true;
}

// One solution of a file, seen from Python (strix.SolutionItem): the item
// and its file's solution, which the item's views keep alive.
struct ItemView {
  Shared owner;
  const SolutionItem* item;
};

// ------------------------------------------------------------------ tables

// Column cells are new references to str objects, written into an object
// array that NumPy has filled with nulls.
py::array object_column(std::int32_t rows) {
  return py::array(py::dtype("O"), std::vector<py::ssize_t>{std::max(rows, 0)});
}

// The name of each row: the file's name, or where the file has none or an
// empty one the text report's default name, unquoted.
py::array name_column(const strix::NameList& list, std::int32_t rows, std::string_view prefix) {
  py::array column = object_column(rows);
  auto** cells = static_cast<PyObject**>(column.mutable_data());
  char buffer[strix::kDefaultNameSize];
  for (std::int32_t k = 0; k < rows; ++k) {
    const auto i = static_cast<std::size_t>(k);
    if (i < list.names.size() && !list.names[i].empty()) {
      cells[k] = text(list.names[i]).release().ptr();
      continue;
    }
    // ASCII written straight into a new str: no decoding, the one allocation.
    const std::string_view name = strix::default_name(prefix, k, buffer);
    cells[k] = PyUnicode_New(static_cast<py::ssize_t>(name.size()), 127);
    if (cells[k] == nullptr) throw py::error_already_set();
    std::memcpy(PyUnicode_1BYTE_DATA(cells[k]), name.data(), name.size());
  }
  return column;
}

// The name of each status key byte (status_key_name) as a str, and the
// unknown key's name for a row past the keys the file has: made at import
// and kept for the interpreter's life, so that a column only takes
// references to them.
std::array<PyObject*, 256> key_names{};
PyObject* missing_key_name = nullptr;

void make_key_names() {
  for (std::size_t key = 0; key < key_names.size(); ++key) {
    key_names[key] =
        py::str(strix::status_key_name(static_cast<std::uint8_t>(key))).release().ptr();
  }
  missing_key_name = py::str(strix::kUnknownKeyName).release().ptr();
}

// The status key name of each row, unknown past the keys the file has.
py::array status_column(const strix::Array<std::uint8_t>& keys, std::int32_t rows) {
  py::array column = object_column(rows);
  auto** cells = static_cast<PyObject**>(column.mutable_data());
  for (std::int32_t k = 0; k < rows; ++k) {
    const auto i = static_cast<std::size_t>(k);
    cells[k] = i < keys.size() ? key_names[keys[i]] : missing_key_name;
    Py_INCREF(cells[k]);
  }
  return column;
}

// A DataFrame of the variables or the constraints, as the text report lists
// them: name, status, then each value vector the solution has. pandas is
// imported here, so that only tables need it.
py::object table(const ItemView& i, bool variables) {
  py::module_ pandas;
  try {
    pandas = py::module_::import("pandas");
  } catch (py::error_already_set& e) {
    if (!e.matches(PyExc_ImportError)) throw;
    py::raise_from(
        e, PyExc_ImportError,
        "strix tables need pandas: pip install 'strix[pandas]' (Debian: python3-pandas)");
    throw py::error_already_set();
  }
  const Solution& s = *i.owner;
  const SolutionItem& item = *i.item;
  const strix::ReportTable& layout = variables ? strix::kVariableTable : strix::kConstraintTable;
  const std::int32_t rows = s.*layout.rows;
  // Only the columns the read kept: a name or status that was not read is
  // left out rather than shown as the report's default.
  py::dict columns;
  if (s.kept.names) columns["name"] = name_column(s.*layout.names, rows, layout.prefix);
  if (s.kept.keeps(layout.keys)) {
    columns["status"] = status_column(item.*strix::vector_info(layout.keys).keys, rows);
  }
  for (const strix::Vector v : layout.values) {
    const strix::VectorInfo& info = strix::vector_info(v);
    if (!(item.*info.values).empty()) columns[py::str(info.key)] = view(i.owner, item.*info.values);
  }
  if (columns.empty())
    return pandas.attr("DataFrame")(py::arg("index") = pandas.attr("RangeIndex")(rows));
  return pandas.attr("DataFrame")(columns);
}

// One read-only view per pattern entry, cut as the JSON document cuts the
// values (block_bounds).
py::list blocks(const Shared& owner, const strix::Array<double>& values,
                const strix::Array<std::uint64_t>& pattern) {
  const py::array all = view(owner, values);
  const std::vector<std::size_t> bounds = strix::block_bounds(values.size(), pattern);
  py::list out;
  for (std::size_t b = 0; b < pattern.size(); ++b) {
    out.append(all[py::slice(static_cast<py::ssize_t>(bounds[b]),
                             static_cast<py::ssize_t>(bounds[b + 1]), 1)]);
  }
  return out;
}

// ------------------------------------------------------- equality, repr

// Two solutions are equal when every field the walk visits is (solution.h),
// compared by its bytes: NaN equals NaN, 0.0 differs from -0.0.
template <typename T>
requires std::is_integral_v<T>
bool same(T a, T b) {
  return a == b;
}

bool same(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool same(const std::string& a, const std::string& b) {
  return a == b;
}

bool same(const std::array<std::int32_t, 3>& a, const std::array<std::int32_t, 3>& b) {
  return a == b;
}

template <typename T>
bool same(const strix::Array<T>& a, const strix::Array<T>& b) {
  return a.size() == b.size() &&
         (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0);
}

bool same(const strix::NameList& a, const strix::NameList& b) {
  return a.names == b.names;
}

template <typename T>
bool same(const strix::InfoGroup<T>& a, const strix::InfoGroup<T>& b) {
  return same(a.names, b.names) && same(a.values, b.values);
}

// What a read kept says how the solution was read, not what it holds: a
// part read that happens to hold all there is equals the full read.
bool same(const strix::ReadOptions&, const strix::ReadOptions&) {
  return true;
}

bool same(const SolutionItem& a, const SolutionItem& b) {
  bool equal = true;
  strix::walk_item_fields(
      [&](std::string_view, auto field) { equal = equal && same(a.*field, b.*field); });
  return equal;
}

bool same(const std::list<SolutionItem>& a, const std::list<SolutionItem>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const SolutionItem& x, const SolutionItem& y) { return same(x, y); });
}

bool same(const Solution& a, const Solution& b) {
  bool equal = true;
  strix::walk_solution_fields(
      [&](std::string_view, auto field) { equal = equal && same(a.*field, b.*field); });
  return equal;
}

// "interior: prosta='...' solsta='...' pobj=... dobj=...": statuses as
// Python writes str literals, so odd bytes cannot break the line.
py::str summary(const SolutionItem& item) {
  return py::str("{}: prosta={!r} solsta={!r} pobj={!r} dobj={!r}")
      .format(text(item.kind), text(item.prosta), text(item.solsta), item.pobj, item.dobj);
}

py::str repr(const Solution& s) {
  py::list items;
  for (const SolutionItem& item : s.solutions) items.append(summary(item));
  return py::str(
             "<strix.Solution {}.{}.{}: numvar={} numcon={} numcone={} numbarvar={} numacc={}; {}>")
      .format(s.version[0], s.version[1], s.version[2], s.numvar, s.numcon, s.numcone, s.numbarvar,
              s.numacc,
              items.empty() ? py::str("no solutions") : py::str("; ").attr("join")(items));
}

// ---------------------------------------------------------------- pickling

// The pickled form is a dict of the fields the walk visits, by their names
// (a solution's "solutions" a list of such dicts, one per item): every
// array as one buffer (out of band under protocol 5, when the pickler takes
// buffers apart) and the names of a kind as their bytes back to back with
// their lengths in the narrowest unsigned type that holds them, so that a
// pickle is about the size of the arrays and names it carries.
template <typename T>
requires std::is_arithmetic_v<T> py::object pickled(const Shared&, T value, int) {
  return py::cast(value);
}

py::object pickled(const Shared&, const std::string& bytes, int) {
  return py::bytes(bytes);
}

py::object pickled(const Shared&, const std::array<std::int32_t, 3>& v, int) {
  return py::make_tuple(v[0], v[1], v[2]);
}

template <typename T>
py::object pickled(const Shared& owner, const strix::Array<T>& values, int protocol) {
  const py::array array = view(owner, values);
  if (protocol >= 5) return py::module_::import("pickle").attr("PickleBuffer")(array);
  return array.attr("tobytes")();
}

py::object pickled(const Shared&, const strix::NameList& list, int) {
  std::size_t total = 0;
  std::size_t longest = 0;
  for (const std::string_view name : list.names) {
    total += name.size();
    longest = std::max(longest, name.size());
  }
  const std::size_t width = longest < 0x100 ? 1 : longest < 0x10000 ? 2 : 4;
  std::string bytes;
  std::string lengths(width * list.names.size(), '\0');
  bytes.reserve(total);
  for (std::size_t i = 0; i < list.names.size(); ++i) {
    bytes += list.names[i];
    const auto length = static_cast<std::uint32_t>(list.names[i].size());
    std::memcpy(&lengths[i * width], &length, width);  // little-endian, as the file
  }
  return py::make_tuple(py::bytes(bytes), width, py::bytes(lengths));
}

template <typename T>
py::object pickled(const Shared& owner, const strix::InfoGroup<T>& group, int protocol) {
  return py::make_tuple(pickled(owner, group.names, protocol),
                        pickled(owner, group.values, protocol));
}

py::object pickled(const Shared&, const strix::ReadOptions& kept, int) {
  return py::make_tuple(kept.kinds.to_ulong(), kept.vectors.to_ulong(), kept.names);
}

py::object pickled(const Shared& owner, const std::list<SolutionItem>& items, int protocol) {
  py::list out;
  for (const SolutionItem& item : items) {
    py::dict fields;
    strix::walk_item_fields([&](std::string_view name, auto field) {
      fields[py::str(name.data(), name.size())] = pickled(owner, item.*field, protocol);
    });
    out.append(fields);
  }
  return out;
}

py::dict pickled(const Shared& s, int protocol) {
  py::dict fields;
  strix::walk_solution_fields([&](std::string_view name, auto field) {
    fields[py::str(name.data(), name.size())] = pickled(s, (*s).*field, protocol);
  });
  return fields;
}

[[noreturn]] void not_pickled() {
  throw py::value_error("not a pickled strix.Solution");
}

// The bytes of any contiguous buffer (bytes, a PickleBuffer, a memoryview).
std::string_view bytes_of(const py::handle& object, Py_buffer& buffer) {
  if (PyObject_GetBuffer(object.ptr(), &buffer, PyBUF_SIMPLE) != 0) throw py::error_already_set();
  return {static_cast<const char*>(buffer.buf), static_cast<std::size_t>(buffer.len)};
}

template <typename T>
requires std::is_arithmetic_v<T>
void unpickle(T& value, const py::handle& object) {
  value = object.cast<T>();
}

void unpickle(std::string& bytes, const py::handle& object) {
  bytes = object.cast<std::string>();
}

void unpickle(std::array<std::int32_t, 3>& v, const py::handle& object) {
  const auto parts = object.cast<py::tuple>();
  if (parts.size() != v.size()) not_pickled();
  for (std::size_t i = 0; i < v.size(); ++i) v[i] = parts[i].cast<std::int32_t>();
}

template <typename T>
void unpickle(strix::Array<T>& values, const py::handle& object) {
  Py_buffer buffer;
  const std::string_view bytes = bytes_of(object, buffer);
  const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&buffer, PyBuffer_Release);
  if (bytes.size() % sizeof(T) != 0) not_pickled();
  values.resize(bytes.size() / sizeof(T));
  if (!bytes.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
}

void unpickle(strix::NameList& list, const py::handle& object) {
  const auto [bytes, width, lengths] = object.cast<std::tuple<py::bytes, std::size_t, py::bytes>>();
  unpickle(list.buffer, bytes);
  const auto packed = lengths.cast<std::string_view>();
  if (width == 0 || width > 4 || packed.size() % width != 0) not_pickled();
  std::size_t start = 0;
  for (std::size_t i = 0; i < packed.size(); i += width) {
    std::uint32_t length = 0;
    std::memcpy(&length, &packed[i], width);
    if (length > list.buffer.size() - start) not_pickled();
    list.names.emplace_back(list.buffer.data() + start, length);
    start += length;
  }
}

template <typename T>
void unpickle(strix::InfoGroup<T>& group, const py::handle& object) {
  const auto [names, values] = object.cast<std::pair<py::object, py::object>>();
  unpickle(group.names, names);
  unpickle(group.values, values);
}

void unpickle(strix::ReadOptions& kept, const py::handle& object) {
  const auto [kinds, vectors, names] =
      object.cast<std::tuple<unsigned long, unsigned long, bool>>();
  kept.kinds = kinds;
  kept.vectors = vectors;
  kept.names = names;
}

// The field of that name in a pickled dict.
py::object pickled_field(const py::handle& state, std::string_view name) {
  if (!py::isinstance<py::dict>(state)) not_pickled();
  const py::dict fields = py::reinterpret_borrow<py::dict>(state);
  const py::str key(name.data(), name.size());
  if (!fields.contains(key)) not_pickled();
  return fields[key];
}

void unpickle(std::list<SolutionItem>& items, const py::handle& object) {
  for (const py::handle entry : object.cast<py::list>()) {
    SolutionItem& item = items.emplace_back();
    strix::walk_item_fields([&](std::string_view name, auto field) {
      unpickle(item.*field, pickled_field(entry, name));
    });
  }
}

std::shared_ptr<Solution> from_state(const py::object& state) {
  auto s = std::make_shared<Solution>();
  strix::walk_solution_fields([&](std::string_view name, auto field) {
    unpickle((*s).*field, pickled_field(state, name));
  });
  return s;
}

// A source that Python reads: a binary file object, pulled through its
// read() with the interpreter lock held for each call only. A seekable one
// skips by seek(), so that a file opened over a network moves only the
// bytes that are kept.
class PythonFileReader : public strix::Reader {
 public:
  // What one call of read() asks for at most: Python returns a new bytes
  // object of that size, which is copied once more into the array, so a
  // long array is read in pieces of this size rather than held twice.
  static constexpr std::uint64_t kReadPiece = std::uint64_t{1} << 24;

  explicit PythonFileReader(py::object file) : file_(std::move(file)) {
    seekable_ = py::hasattr(file_, "seekable") && file_.attr("seekable")().cast<bool>();
  }

  std::uint64_t skip(std::uint64_t n) override {
    if (!seekable_) return Reader::skip(n);
    py::gil_scoped_acquire gil;
    const auto at = file_.attr("tell")().cast<std::uint64_t>();
    if (!end_) {
      end_ = file_.attr("seek")(0, 2).cast<std::uint64_t>();
      file_.attr("seek")(at);
    }
    const std::uint64_t target = at + std::min(n, *end_ - std::min(*end_, at));
    file_.attr("seek")(target);
    return target - at;
  }

  std::uint64_t read(void* dst, std::uint64_t n) override {
    py::gil_scoped_acquire gil;
    auto* out = static_cast<char*>(dst);
    std::uint64_t count = 0;
    while (count < n) {
      const std::uint64_t want = std::min<std::uint64_t>(n - count, kReadPiece);
      const py::object got = file_.attr("read")(want);
      if (!py::isinstance<py::bytes>(got)) throw py::type_error("strix.read needs a binary file");
      const std::string_view bytes = got.cast<std::string_view>();
      if (bytes.empty()) break;
      const std::uint64_t take = std::min<std::uint64_t>(bytes.size(), want);
      std::memcpy(out + count, bytes.data(), take);
      count += take;
    }
    return count;
  }

 private:
  py::object file_;
  bool seekable_ = false;
  std::optional<std::uint64_t> end_;  // where the file ends, once a skip asked
};

// The selection of strix.read: None keeps all, else the names given (one
// name alone as a str is taken as such).
template <typename Id, typename Bits>
Bits selected(const py::object& names, std::optional<Id> (*named)(std::string_view),
              const char* what) {
  Bits bits;
  if (names.is_none()) return bits.set();
  const py::object list = py::isinstance<py::str>(names) ? py::make_tuple(names) : names;
  for (const py::handle name : py::iter(list)) {
    const std::optional<Id> id =
        py::isinstance<py::str>(name) ? named(name.cast<std::string>()) : std::nullopt;
    if (!id) throw py::value_error(py::str("unknown {} {!r}").format(what, name));
    bits.set(static_cast<std::size_t>(*id));
  }
  return bits;
}

strix::ReadOptions read_options(const py::object& solutions, const py::object& vectors,
                                bool names) {
  strix::ReadOptions options;
  options.kinds = selected<strix::SolutionKind, decltype(options.kinds)>(
      solutions, strix::solution_kind_named, "solution kind");
  options.vectors =
      selected<strix::Vector, decltype(options.vectors)>(vectors, strix::vector_named, "vector");
  options.names = names;
  return options;
}

// A path as Python gives it to the system: os.fsencode's bytes where names
// are bytes, the str itself where they are UTF-16 (Windows). What is no path
// raises TypeError, a NUL in it ValueError, as open() does.
std::filesystem::path to_path(const py::handle& path) {
  using Native = std::filesystem::path::string_type;
  const py::module_ os = py::module_::import("os");
  const char* convert = std::is_same_v<Native::value_type, char> ? "fsencode" : "fsdecode";
  const auto name = os.attr(convert)(path).cast<Native>();
  if (name.find(Native::value_type{}) != Native::npos) throw py::value_error("embedded null byte");
  return name;
}

Shared read(py::object source, const strix::ReadOptions& options) {
  const py::module_ os = py::module_::import("os");
  if (py::isinstance<py::str>(source) || py::isinstance(source, os.attr("PathLike"))) {
    const std::filesystem::path name = to_path(source);
    py::gil_scoped_release released;
    return strix::read_solution_named(name, options);
  }
  if (PyObject_CheckBuffer(source.ptr())) {
    // Held contiguous and unresizable until the end of the read.
    Py_buffer bytes;
    if (PyObject_GetBuffer(source.ptr(), &bytes, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&bytes, PyBuffer_Release);
    py::gil_scoped_release released;
    strix::MemoryReader reader(bytes.buf, static_cast<std::size_t>(bytes.len));
    return strix::read_solution(reader, options);
  }
  if (py::hasattr(source, "read")) {
    PythonFileReader reader(source);
    py::gil_scoped_release released;
    return strix::read_solution(reader, options);
  }
  throw py::type_error("strix.read takes a path, a bytes-like object or a binary file");
}

// The Python exception a failure raises, as an object: strix.summary
// reports failures of files without raising them.
py::object exception_object(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (py::error_already_set& e) {
    e.restore();
  } catch (py::builtin_exception& e) {
    e.set_error();
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& e) {
    if (!set_strix_error(std::current_exception())) PyErr_SetString(PyExc_RuntimeError, e.what());
  }
  PyObject *type, *value, *trace;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_NormalizeException(&type, &value, &trace);
  if (trace != nullptr) PyException_SetTraceback(value, trace);
  Py_XDECREF(type);
  Py_XDECREF(trace);
  return py::reinterpret_steal<py::object>(value);
}

// Many paths read on C++ threads without the interpreter lock: a list of
// solutions and, for the files that failed, exception objects. With
// errors="raise", the first failure in the given order is raised.
py::list read_many(const py::iterable& sources, const strix::ReadOptions& options, unsigned threads,
                   bool raise) {
  std::vector<std::filesystem::path> paths;
  for (const py::handle source : sources) paths.push_back(to_path(source));
  std::vector<strix::FileRead> reads;
  {
    py::gil_scoped_release released;
    reads = strix::read_solution_files(paths, options, threads, raise);
  }
  py::list out;
  for (strix::FileRead& r : reads) {
    if (r.failure && raise) std::rethrow_exception(r.failure);
    if (r.failure) {
      out.append(exception_object(r.failure));
    } else {
      out.append(std::shared_ptr<Solution>(std::move(r.solution)));
    }
  }
  return out;
}

void convert(py::object infile, py::object outfile, int threads) {
  if (threads < 0) throw py::value_error("threads must be 0 (the machine's count) or more");
  const std::filesystem::path in = to_path(infile), out = to_path(outfile);
  const strix::Outcome outcome = [&] {
    py::gil_scoped_release released;
    return strix::convert(in, out, {.threads = static_cast<unsigned>(threads)});
  }();
  if (outcome.status != 0) throw std::invalid_argument(outcome.message);
}

// ------------------------------------------------------------------ module

// strix.Error and its subclasses, and the translation of the library's
// exceptions into them.
void add_errors(py::module_& m) {
  static py::exception<ErrorTag> error(m, "Error");
  const py::object base = m.attr("Error");
  static py::exception<strix::FormatError> format_error(m, "FormatError", base);
  static py::exception<strix::IncompatibleFileError> incompatible(m, "IncompatibleFileError", base);
  static py::exception<strix::InconsistentSolution> inconsistent(m, "InconsistentSolution", base);
  static py::exception<strix::zstd::CompressionError> compression(m, "CompressionError", base);
  error_types = {error.ptr(), format_error.ptr(), incompatible.ptr(), inconsistent.ptr(),
                 compression.ptr()};
  py::register_exception_translator([](std::exception_ptr p) {
    if (!set_strix_error(p)) std::rethrow_exception(p);
  });
}

// For strix.dask, which checks on the client what the workers will read:
// the solution kinds, and each table's vectors, its status keys first.
void add_tables(py::module_& m) {
  py::tuple kinds(strix::kSolutionKindCount);
  for (std::size_t k = 0; k < kinds.size(); ++k) kinds[k] = py::str(strix::kSolutionKindNames[k]);
  m.attr("_SOLUTION_KINDS") = kinds;
  py::dict tables;
  for (const auto& [which, layout] : {std::pair{"variables", &strix::kVariableTable},
                                      std::pair{"constraints", &strix::kConstraintTable}}) {
    py::list keys;
    keys.append(py::str(strix::vector_info(layout->keys).key));
    for (const strix::Vector v : layout->values) keys.append(py::str(strix::vector_info(v).key));
    tables[which] = py::tuple(keys);
  }
  m.attr("_TABLE_VECTORS") = tables;
}

// A field of the model as a Python value: text as str, numbers as int or
// float, arrays as read-only views, names as lists of str, information
// items as dicts, the solutions as a dict by kind.
py::object value_of(const Shared&, const std::string& bytes) {
  return text(bytes);
}

template <typename T>
requires std::is_arithmetic_v<T> py::object value_of(const Shared&, T value) {
  return py::cast(value);
}

py::object value_of(const Shared&, const std::array<std::int32_t, 3>& v) {
  return py::make_tuple(v[0], v[1], v[2]);
}

template <typename T>
py::object value_of(const Shared& owner, const strix::Array<T>& values) {
  return view(owner, values);
}

py::object value_of(const Shared&, const strix::NameList& list) {
  return names(list);
}

template <typename T>
py::object value_of(const Shared&, const strix::InfoGroup<T>& group) {
  return info(group);
}

py::object value_of(const Shared& owner, const std::list<SolutionItem>& items) {
  py::dict out;
  for (const SolutionItem& item : items) out[text(item.kind)] = ItemView{owner, &item};
  return out;
}

// The type of the field a member pointer points to.
template <typename Member>
struct FieldOf;
template <typename Owner, typename Field>
struct FieldOf<Field Owner::*> {
  using type = Field;
};

// A read-only property for every field the walk visits but what the read
// kept. The walk's names are literals: terminated, never freed.
template <typename Class, typename Walk>
void add_properties(Class& cls, Walk walk) {
  walk([&](std::string_view name, auto field) {
    using Field = typename FieldOf<decltype(field)>::type;
    if constexpr (!std::is_same_v<Field, strix::ReadOptions>) {
      if constexpr (std::is_same_v<typename Class::type, ItemView>) {
        cls.def_property_readonly(name.data(), [field](const ItemView& i) {
          return value_of(i.owner, (*i.item).*field);
        });
      } else {
        cls.def_property_readonly(name.data(), [field](const std::shared_ptr<Solution>& s) {
          return value_of(s, (*s).*field);
        });
      }
    }
  });
}

void add_item(py::module_& m) {
  py::class_<ItemView> item(m, "SolutionItem");
  add_properties(item, [](auto visit) { strix::walk_item_fields(visit); });
  item.def(
          "variables", [](const ItemView& i) { return table(i, true); },
          "A pandas DataFrame of the variables, one row each in file order: name, status, then "
          "xx, slx, sux, snx where the solution has them.")
      .def(
          "constraints", [](const ItemView& i) { return table(i, false); },
          "A pandas DataFrame of the constraints: name, status, then xc, slc, suc, y where the "
          "solution has them.")
      .def(
          "barx_blocks",
          [](const ItemView& i) { return blocks(i.owner, i.item->barx, i.owner->barvar_pattern); },
          "barx cut into one view per bar variable pattern entry.")
      .def(
          "bars_blocks",
          [](const ItemView& i) { return blocks(i.owner, i.item->bars, i.owner->barvar_pattern); },
          "bars cut into one view per bar variable pattern entry.")
      .def(
          "doty_blocks",
          [](const ItemView& i) { return blocks(i.owner, i.item->doty, i.owner->acc_pattern); },
          "doty cut into one view per ACC pattern entry.")
      .def(
          "__eq__", [](const ItemView& a, const ItemView& b) { return same(*a.item, *b.item); },
          py::is_operator())
      .def("__repr__", [](const ItemView& i) {
        return py::str("<strix.SolutionItem {}, numvar={} numcon={}>")
            .format(summary(*i.item), i.owner->numvar, i.owner->numcon);
      });
}

void add_solution(py::module_& m) {
  py::class_<Solution, std::shared_ptr<Solution>> solution(m, "Solution");
  add_properties(solution, [](auto visit) { strix::walk_solution_fields(visit); });
  solution
      .def(
          "__eq__", [](const Solution& a, const Solution& b) { return same(a, b); },
          py::is_operator())
      .def("__repr__", [](const Solution& s) { return repr(s); })
      // Pickled by __reduce_ex__, which alone learns the protocol (buffers
      // for protocol 5); __setstate__ builds the object that
      // copyreg.__newobj__ made.
      .def(py::pickle([](const Shared& s) -> py::object { return pickled(s, 4); }, &from_state))
      .def("__reduce_ex__", [](const py::object& self, int protocol) {
        return py::make_tuple(py::module_::import("copyreg").attr("__newobj__"),
                              py::make_tuple(py::type::of(self)),
                              pickled(self.cast<Shared>(), protocol));
      });
}

void add_functions(py::module_& m) {
  m.def(
      "read",
      [](py::object source, py::object solutions, py::object vectors, bool names) {
        return std::const_pointer_cast<Solution>(
            read(source, read_options(solutions, vectors, names)));
      },
      py::arg("source"), py::kw_only(), py::arg("solutions") = py::none(),
      py::arg("vectors") = py::none(), py::arg("names") = true,
      "Reads a solution file: a path (Zstandard when it ends in .zst; -.b and -.b.zst are "
      "standard input), a bytes-like object or a binary file. solutions and vectors name the "
      "solution kinds and vectors to keep (None: all), names whether to keep the name lists; "
      "what is not kept is not stored, and where the source can seek, not read.");
  m.def(
      "read_many",
      [](const py::iterable& sources, py::object solutions, py::object vectors, bool names,
         int threads, bool raise) {
        if (threads < 0) throw py::value_error("threads must be 0 (the machine's count) or more");
        return read_many(sources, read_options(solutions, vectors, names),
                         static_cast<unsigned>(threads), raise);
      },
      py::arg("sources"), py::kw_only(), py::arg("solutions") = py::none(),
      py::arg("vectors") = py::none(), py::arg("names") = true, py::arg("threads") = 0,
      py::arg("raise_first") = true,
      "Reads many paths on at most `threads` C++ threads, the calling one among them (0: as many "
      "as the machine gives the process, capped by STRIX_THREADS): a list of solutions, with "
      "the exception of each file that failed in its place, or with raise_first the first "
      "failure raised.");
  m.def("convert", &convert, py::arg("infile"), py::arg("outfile"), py::kw_only(),
        py::arg("threads") = 0,
        "Converts infile to outfile as the strix command does, by their suffixes, on at most "
        "`threads` threads, the calling one among them (0: as many as the machine gives the "
        "process, capped by STRIX_THREADS); the output is the same bytes for every count.");
  m.def(
      "status_key_name",
      [](std::uint8_t key) { return py::reinterpret_borrow<py::str>(key_names[key]); },
      py::arg("key"), "The name of one status key byte.");
}

}  // namespace

PYBIND11_MODULE(_strix, m) {
  m.doc() = "Native part of the strix module; see strix.__doc__.";
  add_errors(m);
  m.attr("__version__") = STRIX_VERSION;
  make_key_names();
  add_tables(m);
  add_item(m);
  add_solution(m);
  add_functions(m);
}
