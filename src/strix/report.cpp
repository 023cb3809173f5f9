#include <algorithm>  // std::min
#include <array>      // the value columns
#include <cmath>      // std::sqrt
#include <cstddef>    // std::size_t
#include <cstdint>    // fixed-width integers
#include <cstring>    // std::memcpy
#include <iterator>   // std::back_inserter
#include <string>     // quoted display names
#include <utility>    // std::pair

#include <fmt/compile.h>  // FMT_COMPILE
#include <fmt/format.h>   // fmt::format, fmt::runtime

#include "strix/errors.h"  // ReportError
#include "strix/escape.h"
#include "strix/layout.h"  // default_name, the tables
#include "strix/numbers.h"
#include "strix/outbuffer.h"
#include "strix/solution.h"
#include "strix/status.h"
#include "strix/writers.h"

namespace strix {
namespace {

// The row head of the variable, constraint and ACC tables: a name and a
// status key, each left-aligned in a column at least this wide.
constexpr std::size_t kNameColumnWidth = 20;
constexpr std::size_t kKeyColumnWidth = 6;

// The model name of item k when the list holds a non-empty one and k is
// below the kind's count, else null (the caller writes the default name).
// A list shorter than the count, or an index past the count (an ACC index
// used as a constraint index), falls back to the default name.
const std::string_view* model_name(const NameList& list, std::int64_t count, std::int64_t k) {
  if (k < 0 || k >= count) return nullptr;
  const auto index = static_cast<std::uint64_t>(k);
  if (index >= list.names.size() || list.names[index].empty()) return nullptr;
  return &list.names[index];
}

// Display names are produced row by row, so memory stays bounded by the
// row whatever the counts claim. The index is 64-bit: the ACC rows name
// constraint a for every ACC index a.
class DisplayName {
 public:
  std::string_view get(const NameList& list, std::int64_t count, std::int64_t k,
                       std::string_view default_prefix) {
    if (const auto* name = model_name(list, count, k)) {
      quoted_.assign(1, '"');
      append_escaped(quoted_, *name, kReportEscapes);
      quoted_.push_back('"');
      return quoted_;
    }
    return default_name(default_prefix, k, default_);
  }

 private:
  std::string quoted_;
  char default_[kDefaultNameSize];
};

// Text left-aligned in `width` columns, as "{:<20}" gives it: the texts are
// ASCII (display names escape every other byte), so a byte is a column.
// Longer texts are written whole.
char* put_padded(char* out, std::string_view text, std::size_t width) {
  std::memcpy(out, text.data(), text.size());
  out += text.size();
  if (text.size() >= width) return out;
  std::memset(out, ' ', width - text.size());
  return out + (width - text.size());
}

// Status keys are not checked against the counts: a missing byte is
// unknown.
const char* key_name(const Array<std::uint8_t>& keys, std::uint64_t i) {
  return i < keys.size() ? status_key_name(keys[i]) : kUnknownKeyName;
}

// A value column, or a right-aligned dot where the vector is absent or too
// short for the row.
char* put_value(char* out, const Array<double>& values, std::uint64_t i) {
  if (i < values.size()) return format_value_column(out, values[i]);
  std::memset(out, ' ', kValueColumnWidth - 1);
  out[kValueColumnWidth - 1] = '.';
  return out + kValueColumnWidth;
}

void write_header(OutBuffer& ob, const std::array<Vector, 4>& columns) {
  fmt::format_to(ob.out(), FMT_COMPILE("    # {:<{}s}  {:{}s} {:>{}s} {:>{}s} {:>{}s} {:>{}s}\n"),
                 "name", kNameColumnWidth, "sta", kKeyColumnWidth, vector_info(columns[0]).key,
                 kValueColumnWidth, vector_info(columns[1]).key, kValueColumnWidth,
                 vector_info(columns[2]).key, kValueColumnWidth, vector_info(columns[3]).key,
                 kValueColumnWidth);
}

void write_objective(OutBuffer& ob, const SolutionItem& item) {
  ob.append("    Objective ");
  // Only NaN prints as a dot; infinities go through the format. The blank
  // after a NaN dual objective, absent after a numeric one, is kept as is.
  if (std::isnan(item.pobj)) {
    ob.append(". ");
  } else {
    fmt::format_to(ob.out(), FMT_COMPILE("{:.16g} "), item.pobj);
  }
  if (std::isnan(item.dobj)) {
    ob.append(". ");
  } else {
    fmt::format_to(ob.out(), FMT_COMPILE("{:.16g}"), item.dobj);
  }
  ob.put('\n');
}

// Bytes of a typical row, to cut the tables into pieces of about
// kOutputPiece.
constexpr std::size_t kRowBytes =
    6 + kNameColumnWidth + 2 + kKeyColumnWidth + 4 * (1 + kValueColumnWidth) + 1;

// The variable and constraint tables: a header, then one row per item with
// its name, status key and four value columns: six blanks, the name in its
// column, ": ", the key in its column, and each value as " {:24.16g}".
// Ranges of rows are formatted in parallel, each with display names of its
// own.
void write_rows(TextBuffer& t, const NameList& list, std::int32_t count,
                std::string_view default_prefix, const Array<std::uint8_t>& keys,
                const std::array<const Array<double>*, 4>& columns, std::uint64_t first,
                std::uint64_t last) {
  DisplayName names;
  for (std::uint64_t j = first; j < last; ++j) {
    const std::string_view name =
        names.get(list, count, static_cast<std::int64_t>(j), default_prefix);
    const std::string_view key = key_name(keys, j);
    char* out = t.room(6 + std::max(name.size(), kNameColumnWidth) + 2 +
                       std::max(key.size(), kKeyColumnWidth) + 4 * (1 + kValueColumnWidth) + 1);
    std::memset(out, ' ', 6);
    out = put_padded(out + 6, name, kNameColumnWidth);
    *out++ = ':';
    *out++ = ' ';
    out = put_padded(out, key, kKeyColumnWidth);
    for (const Array<double>* values : columns) {
      *out++ = ' ';
      out = put_value(out, *values, j);
    }
    *out++ = '\n';
    t.commit(out);
  }
}

// The header and rows of the variables' or the constraints' table.
void write_table(OutBuffer& ob, const Solution& s, const SolutionItem& item,
                 const ReportTable& table) {
  write_header(ob, table.values);
  const NameList& list = s.*table.names;
  const std::int32_t count = s.*table.rows;
  const std::string_view default_prefix = table.prefix;
  const Array<std::uint8_t>& keys = item.*vector_info(table.keys).keys;
  std::array<const Array<double>*, 4> columns;
  for (std::size_t c = 0; c < columns.size(); ++c) {
    columns[c] = &(item.*vector_info(table.values[c]).values);
  }
  const auto rows = static_cast<std::uint64_t>(std::max(count, 0));
  ob.format_run({1, [rows](std::size_t) { return rows; }, kRowBytes,
                 [&list, count, default_prefix, &keys, columns](std::size_t, std::uint64_t first,
                                                                std::uint64_t last, TextBuffer& t) {
                   write_rows(t, list, count, default_prefix, keys, columns, first, last);
                 }});
}

void write_variables(OutBuffer& ob, const Solution& s, const SolutionItem& item) {
  ob.append("    Variables\n");
  write_table(ob, s, item, kVariableTable);
}

// A report on a solution with bar variables ends inside this section, on
// purpose: the matrix header of the first bar variable has four fields for
// three arguments, so the formatting library throws its "argument not found"
// error, which ends the report as a ReportError. The header is
// formatted at run time into its own string, so none of it reaches the
// output; everything before it does (OutBuffer hands it over while the
// exception unwinds). The matrix rows that would follow are never reached
// and so have no code.
void write_bar_variables(OutBuffer& ob, DisplayName& names, const Solution& s) {
  ob.append("    BarVariables\n");
  const std::uint64_t packed = s.barvar_pattern.empty() ? 0 : s.barvar_pattern[0];
  // The added 1.0 makes n one more than the matrix order for a packed
  // length m(m+1)/2; the printed order is that n. 8L+1 wraps in 64 bits.
  const std::uint64_t radicand = 8 * packed + 1;
  const auto t = static_cast<std::uint64_t>(std::sqrt(static_cast<double>(radicand)) + 1.0);
  const std::uint64_t n = t / 2;
  fmt::format_to(ob.out(), FMT_COMPILE("      {}({}):\n"),
                 names.get(s.barvar_names, s.numbarvar, 0, "barvar"), n);
  std::string header;
  try {
    header = fmt::format(fmt::runtime("        #{:<9s} {:24s} {:24s} {:24s}\n"), "index", "barx",
                         "bars");
  } catch (const fmt::format_error& e) {
    throw ReportError(e.what());
  }
  ob.append(header);
}

void write_constraints(OutBuffer& ob, const Solution& s, const SolutionItem& item) {
  ob.append("    Constraints\n");
  write_table(ob, s, item, kConstraintTable);
}

// Every row of ACC a shows constraint a's name and status and doty[a]: the
// ACC names, the ACC's own offset into doty and the row index are not used.
// That is the report's layout, kept as it is.
// The rows of ACC a, [first, last) of them: all alike.
void write_acc_rows(TextBuffer& t, DisplayName& names, const Solution& s, const SolutionItem& item,
                    std::uint64_t a, std::uint64_t first, std::uint64_t last) {
  const std::string_view name =
      names.get(s.con_names, s.numcon, static_cast<std::int64_t>(a), kConstraintTable.prefix);
  const char* key = key_name(item.skc, a);
  // Four blanks, the name, ": ", the key in its column, a blank, and the
  // value as "{:24.16g}", or "{:24s}" of a dot (left-aligned).
  char value[kValueColumnWidth];
  if (a < item.doty.size()) {
    format_value_column(value, item.doty[a]);
  } else {
    put_padded(value, ".", kValueColumnWidth);
  }
  for (std::uint64_t r = first; r < last; ++r) {
    char* out = t.room(4 + name.size() + 2 + std::max(std::strlen(key), kKeyColumnWidth) + 1 +
                       kValueColumnWidth + 1);
    std::memset(out, ' ', 4);
    out += 4;
    std::memcpy(out, name.data(), name.size());
    out += name.size();
    *out++ = ':';
    *out++ = ' ';
    out = put_padded(out, key, kKeyColumnWidth);
    *out++ = ' ';
    std::memcpy(out, value, kValueColumnWidth);
    out += kValueColumnWidth;
    *out++ = '\n';
    t.commit(out);
  }
}

void write_affine_conic(OutBuffer& ob, const Solution& s, const SolutionItem& item) {
  ob.append("    AffineConicConstraints\n");
  // A missing pattern entry counts as zero rows, so only ACCs with an entry
  // can print anything; this also keeps a huge numacc from spinning.
  const std::uint64_t count =
      std::min(static_cast<std::uint64_t>(s.numacc), std::uint64_t{s.acc_pattern.size()});
  ob.format_run(
      {static_cast<std::size_t>(count), [&s](std::size_t a) { return s.acc_pattern[a]; }, kRowBytes,
       [&s, &item](std::size_t a, std::uint64_t first, std::uint64_t last, TextBuffer& t) {
         DisplayName names;
         write_acc_rows(t, names, s, item, a, first, last);
       }});
}

}  // namespace

std::string_view default_name(std::string_view prefix, std::int64_t index,
                              char (&buffer)[kDefaultNameSize]) {
  const char* end = fmt::format_to(buffer, FMT_COMPILE("{}{:04d}"), prefix, index);
  return {buffer, static_cast<std::size_t>(end - buffer)};
}

void write_text_report(std::ostream& out, const Solution& solution, unsigned threads) {
  Pool pool(threads);
  write_text_report(out, solution, pool);
}

void write_text_report(std::ostream& out, const Solution& solution, Pool& pool) {
  OutBuffer ob(out.rdbuf(), pool);
  DisplayName names;
  ob.append("Solutions\n");
  for (const SolutionItem& item : solution.solutions) {
    ob.append("  Solution ");
    ob.append(item.kind);
    ob.put('\n');
    const StatusNamePair sol = solution_status_names(item.solsta);
    fmt::format_to(ob.out(), FMT_COMPILE("    SolutionStatus {} {}\n"), sol.primal, sol.dual);
    const StatusNamePair pro = problem_status_names(item.prosta);
    fmt::format_to(ob.out(), FMT_COMPILE("    ProblemStatus {} {}\n"), pro.primal, pro.dual);
    write_objective(ob, item);
    write_variables(ob, solution, item);
    if (solution.numbarvar > 0) write_bar_variables(ob, names, solution);
    write_constraints(ob, solution, item);
    if (solution.numacc > 0) write_affine_conic(ob, solution, item);
    ob.maybe_flush();
  }
  ob.flush();
}

}  // namespace strix
