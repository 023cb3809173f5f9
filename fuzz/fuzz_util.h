// Shared piece of the fuzz targets: a stream buffer that discards what the
// writers produce. The fuzzer's bytes are read with strix::MemoryReader.
#pragma once

#include <streambuf>  // std::streambuf

#include "strix/streams.h"

namespace strix::fuzz {

class NullBuffer : public std::streambuf {
 protected:
  std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
  int_type overflow(int_type c) override { return traits_type::not_eof(c); }
};

}  // namespace strix::fuzz
