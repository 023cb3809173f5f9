#include "strix/outbuffer.h"

#include <algorithm>  // std::max, std::min
#include <utility>    // std::move

#include "strix/threads.h"

namespace strix {

OutBuffer::OutBuffer(std::streambuf* sink, unsigned threads) : sink_(sink), threads_(threads) {}

OutBuffer::~OutBuffer() {
  // Writers flush at their end, where a failure can still reach the driver;
  // this one covers a writer that is left by an exception (what it formatted
  // belongs in the output) and must not throw a second time.
  try {
    flush();
  } catch (...) {
  }
}

// After a failure of the stream buffer nothing more is offered to it: what
// is pending is dropped and the failure is thrown again.
void OutBuffer::rethrow_failure() {
  if (!failure_) return;
  clear();
  std::rethrow_exception(failure_);
}

// What the sink returns is deliberately not looked at: a plain file that
// cannot be written loses the bytes silently; a compressing buffer throws.
void OutBuffer::offer(TextBuffer& piece) {
  const std::string_view text = piece.text();
  piece.clear();
  if (text.empty()) return;
  try {
    sink_->sputn(text.data(), static_cast<std::streamsize>(text.size()));
  } catch (...) {
    failure_ = std::current_exception();
  }
  rethrow_failure();
}

void OutBuffer::flush() {
  rethrow_failure();
  offer(*this);
}

template <typename RangeAt>
void OutBuffer::run_ranges(std::size_t ranges, RangeAt range_at, const FormatRange& format) {
  if (threads_ < 2 || ranges < 2) {
    for (std::size_t k = 0; k < ranges; ++k) {
      const auto [first, last] = range_at(k);
      format(first, last, *this);
      maybe_flush();
    }
    return;
  }
  // What was formatted before the run goes first.
  flush();
  if (!pool_) pool_ = std::make_unique<OrderedPool>(threads_);
  OrderedPool& pool = *pool_;
  std::vector<std::unique_ptr<TextBuffer>> pieces;  // in flight, in order
  const std::size_t most = 2 * std::max<std::size_t>(threads_, 1);
  auto finish_oldest = [&] {
    pool.finish_oldest();
    std::unique_ptr<TextBuffer> piece = std::move(pieces.front());
    pieces.erase(pieces.begin());
    offer(*piece);
    spare_.push_back(std::move(piece));
  };
  try {
    for (std::size_t k = 0; k < ranges; ++k) {
      if (pieces.size() >= most) finish_oldest();
      std::unique_ptr<TextBuffer> piece;
      if (spare_.empty()) {
        piece = std::make_unique<TextBuffer>();
      } else {
        piece = std::move(spare_.back());
        spare_.pop_back();
      }
      TextBuffer* target = piece.get();
      pieces.push_back(std::move(piece));
      const auto [first, last] = range_at(k);
      pool.submit([&format, target, first = first, last = last] { format(first, last, *target); });
    }
    while (!pieces.empty()) finish_oldest();
  } catch (...) {
    // The jobs still running format into pieces this frame owns.
    pool.drain();
    throw;
  }
}

void OutBuffer::format_ranges(std::size_t count, std::size_t item_bytes,
                              const FormatRange& format) {
  const std::size_t per =
      std::max<std::size_t>(1, kOutputPiece / std::max<std::size_t>(item_bytes, 1));
  const std::size_t ranges = (count + per - 1) / per;
  run_ranges(
      ranges,
      [&](std::size_t k) {
        return std::pair{k * per, std::min(count, (k + 1) * per)};
      },
      format);
}

void OutBuffer::format_cuts(const std::vector<std::size_t>& cuts, const FormatRange& format) {
  if (cuts.size() < 2) return;
  run_ranges(
      cuts.size() - 1,
      [&](std::size_t k) {
        return std::pair{cuts[k], cuts[k + 1]};
      },
      format);
}

}  // namespace strix
