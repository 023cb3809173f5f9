// The Python module's native part, strix._strix: reading a solution file
// into NumPy views of the reader's own arrays, and the command's conversion.
// Logic stays in the library; this converts types and maps errors.
#include <algorithm>    // std::min
#include <cerrno>       // errno
#include <cstdint>      // fixed-width integers
#include <cstdio>       // stdin
#include <cstring>      // std::memcpy
#include <filesystem>   // std::filesystem::path
#include <memory>       // std::shared_ptr
#include <stdexcept>    // std::invalid_argument
#include <string>       // std::string
#include <string_view>  // std::string_view
#include <utility>      // std::pair

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "strix/convert.h"
#include "strix/errors.h"
#include "strix/solution.h"
#include "strix/status.h"
#include "strix/streams.h"

namespace py = pybind11;

namespace {

using strix::Solution;
using strix::SolutionItem;

// Every view of a solution's arrays keeps the solution alive through this.
using Shared = std::shared_ptr<const Solution>;

// A read-only NumPy view of an array, owning a reference to its solution.
template <typename T>
py::array view(const Shared& owner, const strix::Array<T>& values) {
  if (values.empty()) return py::array_t<T>(0);
  py::capsule base(new Shared(owner), [](void* p) { delete static_cast<Shared*>(p); });
  py::array_t<T> array(static_cast<py::ssize_t>(values.size()), values.data(), base);
  array.attr("setflags")(py::arg("write") = false);
  return array;
}

// Statuses and item names as text, byte for byte: each byte is one
// character, so .encode("latin-1") gives the bytes back.
py::str text(std::string_view bytes) {
  return py::reinterpret_steal<py::str>(
      PyUnicode_DecodeLatin1(bytes.data(), static_cast<py::ssize_t>(bytes.size()), nullptr));
}

py::list names(const strix::NameList& list) {
  py::list out(list.names.size());
  for (std::size_t i = 0; i < list.names.size(); ++i) {
    out[i] = py::bytes(list.names[i].data(), list.names[i].size());
  }
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

// One solution of a file, seen from Python: the item and its file's solution.
struct Item {
  Shared owner;
  const SolutionItem* item;
};

// A source that Python reads: a binary file object, pulled through its
// read() with the interpreter lock held for each call only.
class PythonFileReader : public strix::Reader {
 public:
  explicit PythonFileReader(py::object file) : file_(std::move(file)) {}

  std::uint64_t read(void* dst, std::uint64_t n) override {
    py::gil_scoped_acquire gil;
    auto* out = static_cast<char*>(dst);
    std::uint64_t count = 0;
    while (count < n) {
      const std::uint64_t want = std::min<std::uint64_t>(n - count, std::uint64_t{1} << 24);
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
};

// A file that cannot be opened, created or written is the OSError subclass
// of its errno naming the file, as open() would raise it.
void raise_os_error(const strix::IOError& e) {
  if (e.code == 0) return PyErr_SetString(PyExc_OSError, e.what());
  const py::object name = py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(e.path().data(), static_cast<py::ssize_t>(e.path().size())));
  errno = e.code;
  PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, name.ptr());
}

Shared read(py::object source) {
  const py::module_ os = py::module_::import("os");
  if (py::isinstance<py::str>(source) || py::isinstance(source, os.attr("PathLike"))) {
    const std::string name = os.attr("fsencode")(source).cast<std::string>();
    if (std::filesystem::path(name).extension() == ".gz") {
      throw std::invalid_argument("Compression type '\".gz\"' not supported for input");
    }
    py::gil_scoped_release released;
    if (name != "-.b" && name != "-.b.zst") return strix::read_solution_file(name);
    strix::FDescReader in(stdin);  // the command's names for standard input
    if (name == "-.b") return strix::read_solution(in);
    strix::zstd::Reader decompressor(&in);
    return strix::read_solution(decompressor);
  }
  if (PyObject_CheckBuffer(source.ptr())) {
    // Held contiguous and unresizable until the end of the read.
    Py_buffer bytes;
    if (PyObject_GetBuffer(source.ptr(), &bytes, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> held(&bytes, PyBuffer_Release);
    py::gil_scoped_release released;
    strix::MemoryReader reader(bytes.buf, static_cast<std::size_t>(bytes.len));
    return strix::read_solution(reader);
  }
  if (py::hasattr(source, "read")) {
    PythonFileReader reader(source);
    py::gil_scoped_release released;
    return strix::read_solution(reader);
  }
  throw py::type_error("strix.read takes a path, a bytes-like object or a binary file");
}

void convert(py::object infile, py::object outfile) {
  const py::module_ os = py::module_::import("os");
  const std::string in = os.attr("fsencode")(infile).cast<std::string>();
  const std::string out = os.attr("fsencode")(outfile).cast<std::string>();
  const strix::Outcome outcome = [&] {
    py::gil_scoped_release released;
    return strix::convert(in, out);
  }();
  if (outcome.status != 0) throw std::invalid_argument(outcome.message);
}

}  // namespace

PYBIND11_MODULE(_strix, m) {
  m.doc() = "Native part of the strix module; see strix.__doc__.";

  static py::exception<ErrorTag> error(m, "Error");
  const py::object base = m.attr("Error");
  static py::exception<strix::FormatError> format_error(m, "FormatError", base);
  static py::exception<strix::IncompatibleFileError> incompatible(m, "IncompatibleFileError", base);
  static py::exception<strix::InconsistentSolution> inconsistent(m, "InconsistentSolution", base);
  static py::exception<strix::zstd::CompressionError> compression(m, "CompressionError", base);

  py::register_exception_translator([](std::exception_ptr p) {
    try {
      std::rethrow_exception(p);
    } catch (const strix::FormatError& e) {
      format_error(e.what());
    } catch (const strix::IncompatibleFileError& e) {
      incompatible(e.what());
    } catch (const strix::InconsistentSolution& e) {
      inconsistent(e.what());
    } catch (const strix::zstd::CompressionError& e) {
      compression(e.what());
    } catch (const strix::IOError& e) {
      raise_os_error(e);
    } catch (const strix::SameFileError& e) {
      // As shutil.copyfile reports the same mistake; an OSError.
      PyErr_SetString(py::module_::import("shutil").attr("SameFileError").ptr(), e.what());
    } catch (const strix::Error& e) {
      error(e.what());
    }
  });

  py::class_<Item> item(m, "SolutionItem");
  item.def_property_readonly("kind", [](const Item& i) { return i.item->kind; })
      .def_property_readonly("prosta", [](const Item& i) { return text(i.item->prosta); })
      .def_property_readonly("solsta", [](const Item& i) { return text(i.item->solsta); })
      .def_property_readonly("pobj", [](const Item& i) { return i.item->pobj; })
      .def_property_readonly("dobj", [](const Item& i) { return i.item->dobj; });
  using Keys = strix::Array<std::uint8_t> SolutionItem::*;
  for (const auto& [name, keys] : {std::pair<const char*, Keys>{"skx", &SolutionItem::skx},
                                   {"skc", &SolutionItem::skc},
                                   {"skn", &SolutionItem::skn}}) {
    item.def_property_readonly(name,
                               [keys](const Item& i) { return view(i.owner, i.item->*keys); });
  }
  using Values = strix::Array<double> SolutionItem::*;
  for (const auto& [name, values] : {std::pair<const char*, Values>{"xx", &SolutionItem::xx},
                                     {"slx", &SolutionItem::slx},
                                     {"sux", &SolutionItem::sux},
                                     {"snx", &SolutionItem::snx},
                                     {"xc", &SolutionItem::xc},
                                     {"y", &SolutionItem::y},
                                     {"slc", &SolutionItem::slc},
                                     {"suc", &SolutionItem::suc},
                                     {"barx", &SolutionItem::barx},
                                     {"bars", &SolutionItem::bars},
                                     {"doty", &SolutionItem::doty}}) {
    item.def_property_readonly(name,
                               [values](const Item& i) { return view(i.owner, i.item->*values); });
  }

  py::class_<Solution, std::shared_ptr<Solution>>(m, "Solution")
      .def_property_readonly("version",
                             [](const Solution& s) {
                               return py::make_tuple(s.version[0], s.version[1], s.version[2]);
                             })
      .def_readonly("numvar", &Solution::numvar)
      .def_readonly("numcon", &Solution::numcon)
      .def_readonly("numcone", &Solution::numcone)
      .def_readonly("numbarvar", &Solution::numbarvar)
      .def_readonly("numacc", &Solution::numacc)
      .def_property_readonly("solutions",
                             [](const std::shared_ptr<Solution>& s) {
                               py::dict out;
                               for (const SolutionItem& item : s->solutions) {
                                 out[py::str(item.kind)] = Item{s, &item};
                               }
                               return out;
                             })
      .def_property_readonly(
          "barvar_pattern",
          [](const std::shared_ptr<Solution>& s) { return view(s, s->barvar_pattern); })
      .def_property_readonly(
          "acc_pattern", [](const std::shared_ptr<Solution>& s) { return view(s, s->acc_pattern); })
      .def_property_readonly("var_names", [](const Solution& s) { return names(s.var_names); })
      .def_property_readonly("barvar_names",
                             [](const Solution& s) { return names(s.barvar_names); })
      .def_property_readonly("con_names", [](const Solution& s) { return names(s.con_names); })
      .def_property_readonly("cone_names", [](const Solution& s) { return names(s.cone_names); })
      .def_property_readonly("acc_names", [](const Solution& s) { return names(s.acc_names); })
      .def_property_readonly("info_i32", [](const Solution& s) { return info(s.info_i32); })
      .def_property_readonly("info_i64", [](const Solution& s) { return info(s.info_i64); })
      .def_property_readonly("info_f64", [](const Solution& s) { return info(s.info_f64); });

  m.def(
      "read", [](py::object source) { return std::const_pointer_cast<Solution>(read(source)); },
      py::arg("source"),
      "Reads a solution file: a path (Zstandard when it ends in .zst; -.b and -.b.zst are "
      "standard input), a bytes-like object or a binary file.");
  m.def("convert", &convert, py::arg("infile"), py::arg("outfile"),
        "Converts infile to outfile as the strix command does, by their suffixes.");
  m.def(
      "status_key_name", [](std::uint8_t key) { return strix::status_key_name(key); },
      py::arg("key"), "The name of one status key byte.");
}
