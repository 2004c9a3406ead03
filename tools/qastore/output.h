// The output formats of qastore, by the names administrators know them:
// "table" (aligned columns with a header, for people), "tab" (a header line
// and tab-separated values), "flow" (one record a line as key=value pairs)
// and "json" (one valid document). Commands build their result as JSON and
// this renders it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace qaaisp::qastore {

using Json = nlohmann::ordered_json;

enum class OutputFormat { kTable, kTab, kFlow, kJson };

// False for an unknown name.
bool ParseOutputFormat(const std::string& name, OutputFormat* format);

struct Result {
  // An array of records (objects), or a single record.
  Json records = Json::array();
  // A closing line for people, printed after a table only.
  std::string summary;
  // What the JSON format prints instead of the records, when it has more to
  // say than a list can (a file's header beside its rows).
  Json document;
};

// The text of a result in a format, ending with a line end unless empty.
std::string Render(const Result& result, OutputFormat format);

// A scalar as text: strings as they are, numbers in decimal, true/false,
// null as "-"; arrays joined with ", " and objects as compact JSON.
std::string CellText(const Json& value);

// Widest a table cell grows before it is cut, in characters.
inline constexpr size_t kMaxCellWidth = 60;

}  // namespace qaaisp::qastore
