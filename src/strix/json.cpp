#include <algorithm>  // std::min
#include <array>      // key table
#include <cstddef>    // std::size_t, std::ptrdiff_t
#include <cstdint>    // fixed-width integers
#include <memory>     // std::make_shared
#include <string>     // quoted key names
#include <vector>     // block bounds

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format_to

#include "strix/escape.h"
#include "strix/layout.h"  // block_bounds
#include "strix/limits.h"
#include "strix/numbers.h"  // format_shortest
#include "strix/outbuffer.h"
#include "strix/solution.h"
#include "strix/status.h"   // status_key_name
#include "strix/writers.h"  // write_json

namespace strix {
namespace {

// The "$schema" value of every document.
constexpr std::string_view kJsonSchemaId = "https://strix.example.org/json/solution/schema#";

// A quoted JSON string.
void put_string(OutBuffer& ob, std::string_view s) {
  ob.put('"');
  append_escaped(ob, s, kJsonEscapes);
  ob.put('"');
}

// prosta and solsta: A-Z lowered, every other byte written as it is. Nothing
// is escaped, so a quote or backslash in a status breaks the document; the
// statuses are the solver's own upper-case words and are kept raw on purpose.
void put_lowered_status(OutBuffer& ob, std::string_view key, std::string_view status) {
  put_string(ob, key);
  ob.append(":\"");
  for (const char c : status) ob.put(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  ob.put('"');
}

// Each status-key byte's name as a quoted JSON string. The names are plain
// lower-case words that need no escaping, so quoting is all there is to it;
// the table saves escaping millions of them one by one.
const std::array<std::string, 256> kQuotedKeyNames = [] {
  std::array<std::string, 256> table;
  for (std::size_t b = 0; b < table.size(); ++b) {
    table[b] = std::string("\"") + status_key_name(static_cast<std::uint8_t>(b)) + '"';
  }
  return table;
}();

// Bytes of text per item, to cut long runs into pieces of about
// kOutputPiece: a status key is at most `"supbas",`, a value 25 bytes.
constexpr std::size_t kKeyBytes = 9;
constexpr std::size_t kValueBytes = 1 + kMaxShortestSize;

void put_status_keys(OutBuffer& ob, std::string_view key, const Array<std::uint8_t>& keys) {
  put_string(ob, key);
  ob.append(" : [");
  ob.format_run({1, [n = keys.size()](std::size_t) { return n; }, kKeyBytes,
                 [k = &keys](std::size_t, std::uint64_t first, std::uint64_t last, TextBuffer& t) {
                   for (std::uint64_t i = first; i < last; ++i) {
                     if (i != 0) t.put(',');
                     t.append(kQuotedKeyNames[(*k)[i]]);
                   }
                 }});
  ob.put(']');
}

// Appends values [first, last) as "{}" gives them, each after a ","
// but the first of its array.
void put_values(TextBuffer& t, const double* first, const double* last, bool first_of_array) {
  // Formatted straight into the buffer, a batch at a time.
  while (first != last) {
    const double* const end =
        first + std::min(last - first, static_cast<std::ptrdiff_t>(kJsonValueBatch));
    char* out = t.room(static_cast<std::size_t>(end - first) * kValueBytes + kShortestRoom);
    for (; first != end; ++first) {
      if (!first_of_array) *out++ = ',';
      first_of_array = false;
      out = format_shortest(out, *first);
    }
    t.commit(out);
  }
}

void put_numbers(OutBuffer& ob, std::string_view key, const Array<double>& values) {
  put_string(ob, key);
  ob.append(" : [");
  ob.format_run(
      {1, [n = values.size()](std::size_t) { return n; }, kValueBytes,
       [v = values.data()](std::size_t, std::uint64_t first, std::uint64_t last, TextBuffer& t) {
         put_values(t, v + first, v + last, first == 0);
       }});
  ob.put(']');
}

// The blocks the pattern cuts from the values (block_bounds): values beyond
// its sum are not written, an empty pattern gives "[]" whatever the values,
// and a block past the end of the values comes out as "[]".
void put_blocks(OutBuffer& ob, std::string_view key, const Array<double>& values,
                const Array<std::uint64_t>& pattern) {
  put_string(ob, key);
  ob.append(" : [");
  // (*bounds)[b], (*bounds)[b + 1]: the first value of block b and its end.
  auto bounds =
      std::make_shared<const std::vector<std::size_t>>(block_bounds(values.size(), pattern));
  ob.format_run({pattern.size(),
                 [bounds](std::size_t b) { return (*bounds)[b + 1] - (*bounds)[b]; }, kValueBytes,
                 [bounds, v = values.data()](std::size_t b, std::uint64_t first, std::uint64_t last,
                                             TextBuffer& t) {
                   if (first == 0) t.append(b != 0 ? ",[" : "[");
                   const double* block = v + (*bounds)[b];
                   put_values(t, block + first, block + last, first == 0);
                   if (last == (*bounds)[b + 1] - (*bounds)[b]) t.put(']');
                 }});
  ob.put(']');
}

// The vectors of a solution in the document's order.
constexpr Vector kJsonOrder[] = {Vector::skx, Vector::skc,  Vector::skn,  Vector::xx,  Vector::xc,
                                 Vector::slx, Vector::sux,  Vector::snx,  Vector::slc, Vector::suc,
                                 Vector::y,   Vector::barx, Vector::bars, Vector::doty};

void put_item(OutBuffer& ob, const Solution& solution, const SolutionItem& item) {
  put_string(ob, item.kind);
  ob.append(":{");
  put_lowered_status(ob, "prosta", item.prosta);
  ob.put(',');
  put_lowered_status(ob, "solsta", item.solsta);
  // skx and skc are written even when empty; every other vector only when
  // present.
  for (const Vector v : kJsonOrder) {
    const VectorInfo& info = vector_info(v);
    if (info.keys != nullptr) {
      const Array<std::uint8_t>& keys = item.*info.keys;
      if (keys.empty() && v != Vector::skx && v != Vector::skc) continue;
      ob.put(',');
      put_status_keys(ob, info.key, keys);
      continue;
    }
    const Array<double>& values = item.*info.values;
    if (values.empty()) continue;
    ob.put(',');
    if (info.axis == Axis::barvar_blocks) {
      put_blocks(ob, info.key, values, solution.barvar_pattern);
    } else if (info.axis == Axis::acc_blocks) {
      put_blocks(ob, info.key, values, solution.acc_pattern);
    } else {
      put_numbers(ob, info.key, values);
    }
  }
  ob.put('}');
}

// One information group: "\"NAME\":VALUE" items separated by ",". Names are
// written raw, unescaped, as the solver spells them. An empty group gives an
// empty object; a names list and values list of different lengths are paired
// up only as far as both go.
template <typename T>
void put_info_group(OutBuffer& ob, std::string_view key, const InfoGroup<T>& group) {
  ob.append(key);
  ob.put('{');
  const std::size_t count = std::min(group.names.names.size(), group.values.size());
  for (std::size_t i = 0; i < count; ++i) {
    if (i != 0) ob.put(',');
    ob.put('"');
    ob.append(group.names.names[i]);
    fmt::format_to(ob.out(), FMT_COMPILE("\":{}"), group.values[i]);
    ob.maybe_flush();
  }
  ob.put('}');
}

}  // namespace

void write_json(std::ostream& out, const Solution& solution, unsigned threads) {
  Pool pool(threads);
  write_json(out, solution, pool);
}

void write_json(std::ostream& out, const Solution& solution, Pool& pool) {
  OutBuffer ob(out.rdbuf(), pool);
  ob.put('{');
  put_string(ob, "$schema");
  ob.append(" : ");
  put_string(ob, kJsonSchemaId);
  // "Task/INFO" is written as a literal, not through the string writer.
  ob.append(",\"Task/INFO\":{");
  // The counts use " : " and ", ", the version ":" and "," without blanks:
  // readers compare these documents byte for byte, so the mix stays.
  put_string(ob, "numvar");
  fmt::format_to(ob.out(), FMT_COMPILE(" : {}, "), solution.numvar);
  put_string(ob, "numcon");
  fmt::format_to(ob.out(), FMT_COMPILE(" : {}, "), solution.numcon);
  put_string(ob, "numcone");
  fmt::format_to(ob.out(), FMT_COMPILE(" : {}, "), solution.numcone);
  put_string(ob, "numbarvar");
  fmt::format_to(ob.out(), FMT_COMPILE(" : {}, "), solution.numbarvar);
  put_string(ob, "numacc");
  fmt::format_to(ob.out(), FMT_COMPILE(" : {}, "), solution.numacc);
  put_string(ob, "nollover");
  fmt::format_to(ob.out(), FMT_COMPILE(":[{},{},{}]"), solution.version[0], solution.version[1],
                 solution.version[2]);
  ob.append("},");

  put_string(ob, "Task/solutions");
  ob.append(":{");
  bool first = true;
  for (const SolutionItem& item : solution.solutions) {
    if (!first) ob.put(',');
    first = false;
    put_item(ob, solution, item);
    ob.maybe_flush();
  }
  ob.append("},");

  put_string(ob, "Task/information");
  ob.append(":{");
  put_info_group(ob, "\"int32\":", solution.info_i32);
  put_info_group(ob, ",\"int64\":", solution.info_i64);
  put_info_group(ob, ",\"double\":", solution.info_f64);
  ob.append("}}");
  ob.flush();
}

}  // namespace strix
