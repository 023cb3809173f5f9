#include "strix/names.h"

#include <iomanip>  // std::quoted
#include <sstream>  // std::ostringstream

#include "strix/platform/files.h"

namespace strix {

std::string path_text(const std::filesystem::path& name) {
  const std::u8string text = name.u8string();
  return {text.begin(), text.end()};
}

std::string quoted(const std::filesystem::path& name) {
  std::ostringstream os;
  os << std::quoted(platform::message_text(name));
  return os.str();
}

}  // namespace strix
