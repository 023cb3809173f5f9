// The three text and archive forms of a solution. Each writes the whole form
// to the stream's buffer; failures of that buffer are thrown (errors.h).
// The text forms format long runs of output on a pool's threads (pool.h),
// this one among them, which hands the finished pieces to the stream buffer
// in order: the conversion's pool, or one of `threads`. The bytes are the
// same for every count.
#pragma once

#include <ostream>  // std::ostream

#include "strix/pool.h"

namespace strix {

struct Solution;

// The one-line JSON document (no trailing newline). Non-finite values are
// the bare tokens inf, -inf, nan and -nan (a NaN with its sign bit set),
// statuses and information item names are written raw: a document holding
// such values is not strict JSON.
void write_json(std::ostream& out, const Solution& solution, unsigned threads = 0);
void write_json(std::ostream& out, const Solution& solution, Pool& pool);

// The task archive: a tar stream of text members and "NLOM" array members.
void write_task(std::ostream& out, const Solution& solution);

// The fixed-width text report. A solution with bar variables ends it after
// the first bar variable's line, with ReportError thrown ("the text report
// cannot be written (argument not found)").
void write_text_report(std::ostream& out, const Solution& solution, unsigned threads = 0);
void write_text_report(std::ostream& out, const Solution& solution, Pool& pool);

}  // namespace strix
