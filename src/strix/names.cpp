#include "strix/names.h"

#include <sstream>  // std::ostringstream

namespace strix {

std::string path_text(const std::filesystem::path& name) {
  const std::u8string text = name.u8string();
  return {text.begin(), text.end()};
}

std::string quoted(const std::filesystem::path& name) {
  std::ostringstream os;
  os << name;
  return os.str();
}

}  // namespace strix
