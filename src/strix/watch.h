// What the strix command adds to a conversion: it hears when the output file
// is opened, so that it can remove the file when the process is interrupted.
#pragma once

#include "strix/convert.h"

namespace strix {

// Both calls come from the thread that runs the conversion, one right after
// the other, before any byte is written; standard output is never told.
class OutputWatch {
 public:
  // Just before the file is created or truncated.
  virtual void opening() = 0;
  // Just after; `opened` tells whether the open succeeded.
  virtual void opened(bool opened) = 0;

 protected:
  ~OutputWatch() = default;
};

class CommandConversion {
 public:
  // `watch` (not owned) hears of the opening of `conversion`'s output file.
  static void watch(Conversion& conversion, OutputWatch& watch) { conversion.watch_ = &watch; }
};

}  // namespace strix
