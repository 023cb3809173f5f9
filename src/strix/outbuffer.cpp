#include "strix/outbuffer.h"

#include <algorithm>  // std::max, std::min
#include <utility>    // std::move

namespace strix {

namespace {

// Item `item` of block `block`; {blocks, 0} is the end of a run.
struct ItemPosition {
  std::size_t block = 0;
  std::uint64_t item = 0;
};

// Appends [from, to) of a run, block by block.
void format_range(const BlockRun& run, ItemPosition from, ItemPosition to, TextBuffer& piece) {
  for (std::size_t b = from.block; b < to.block || (b == to.block && to.item > 0); ++b) {
    const std::uint64_t first = b == from.block ? from.item : 0;
    const std::uint64_t last = b == to.block ? to.item : run.items(b);
    run.format(b, first, last, piece);
  }
}

// Cuts a run into ranges of `per` items (a block's opening counted as one),
// one after the other. A range ends inside a block only where it is full;
// where it ends at a block's end, it ends at the next block's start.
class Cutter {
 public:
  explicit Cutter(const BlockRun& run)
      : run_(run),
        per_(std::max<std::size_t>(2, kOutputPiece / std::max<std::size_t>(run.item_bytes, 1))) {}

  // The next range [from, to), never empty; false after the last.
  bool next(ItemPosition& from, ItemPosition& to) {
    if (at_.block >= run_.blocks) return false;
    from = at_;
    std::uint64_t budget = per_;
    while (budget > 0 && at_.block < run_.blocks) {
      if (at_.item == 0) --budget;
      const std::uint64_t n = run_.items(at_.block);
      const std::uint64_t take = std::min(n - at_.item, budget);
      at_.item += take;
      budget -= take;
      if (at_.item == n) at_ = {at_.block + 1, 0};
    }
    to = at_;
    return true;
  }

 private:
  const BlockRun& run_;
  std::uint64_t per_;  // at least 2: an opening and an item, so every range moves on
  ItemPosition at_;
};

}  // namespace

// A range of a run formatted into a piece of its own, or text that the
// writer formatted (no run): handed to the stream buffer in its turn, and
// the piece then kept for formatting into again. The piece is written by
// run(), on whichever thread runs it, and read by hand_on() on the writer's
// after the queue has seen run() end; the run is shared and only read.
class OutBuffer::Piece final : public JobQueue::Job {
 public:
  Piece(OutBuffer& owner, std::unique_ptr<TextBuffer> text,
        std::shared_ptr<const BlockRun> run = {}, ItemPosition from = {}, ItemPosition to = {})
      : owner_(owner), text_(std::move(text)), run_(std::move(run)), from_(from), to_(to) {}

  void run() override { format_range(*run_, from_, to_, *text_); }

  // What the sink returns is deliberately not looked at: a plain file that
  // cannot be written loses the bytes silently; a compressing buffer throws.
  void hand_on() override {
    const std::string_view text = text_->text();
    if (!text.empty()) owner_.sink_->sputn(text.data(), static_cast<std::streamsize>(text.size()));
    text_->clear();
    owner_.spare_.push_back(std::move(text_));
  }

 private:
  OutBuffer& owner_;
  std::unique_ptr<TextBuffer> text_;
  std::shared_ptr<const BlockRun> run_;
  ItemPosition from_, to_;
};

OutBuffer::OutBuffer(std::streambuf* sink, Pool& pool) : sink_(sink), pieces_(pool) {}

OutBuffer::~OutBuffer() {
  // Writers flush at their end, where a failure can still reach their
  // caller; this one covers a writer that is left by an exception (what it
  // formatted belongs in the output) and must not throw a second time.
  try {
    flush();
  } catch (...) {
  }
}

std::unique_ptr<TextBuffer> OutBuffer::spare_piece() {
  if (spare_.empty()) return std::make_unique<TextBuffer>();
  std::unique_ptr<TextBuffer> piece = std::move(spare_.back());
  spare_.pop_back();
  return piece;
}

// The text formatted here joins the queue behind the pieces in flight.
void OutBuffer::pass_on() {
  if (size() == 0) return;
  std::unique_ptr<TextBuffer> text = spare_piece();
  text->swap(*this);
  pieces_.submit(std::make_unique<Piece>(*this, std::move(text)), true);
}

void OutBuffer::flush() {
  pass_on();
  pieces_.finish();
}

void OutBuffer::format_run(BlockRun run) {
  const auto shared = std::make_shared<const BlockRun>(std::move(run));
  Cutter cutter(*shared);
  ItemPosition from, to, second_from, second_to;
  if (!cutter.next(from, to)) return;
  if (!cutter.next(second_from, second_to)) {
    format_range(*shared, from, to, *this);
    maybe_flush();
    return;
  }
  pass_on();
  pieces_.submit(std::make_unique<Piece>(*this, spare_piece(), shared, from, to));
  from = second_from, to = second_to;
  do {
    pieces_.submit(std::make_unique<Piece>(*this, spare_piece(), shared, from, to));
  } while (cutter.next(from, to));
}

}  // namespace strix
