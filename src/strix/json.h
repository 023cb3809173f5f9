// The JSON solution document.
#pragma once

#include <ostream>      // std::ostream
#include <string_view>  // std::string_view

namespace strix {

// Writes s as a quoted JSON string, every byte >= 0x80 escaped as "\u00XX".
void write_json_string(std::ostream& out, std::string_view s);

// The "$schema" value of every document.
inline constexpr std::string_view kJsonSchemaId = "https://strix.example.org/json/solution/schema#";

}  // namespace strix
