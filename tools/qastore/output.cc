#include "qastore/output.h"

#include <algorithm>
#include <vector>

namespace qaaisp::qastore {
namespace {

// Characters of a UTF-8 text (continuation bytes do not count), which is
// what a terminal shows for most scripts.
size_t DisplayWidth(const std::string& text) {
  size_t width = 0;
  for (unsigned char c : text) width += (c & 0xC0) != 0x80 ? 1 : 0;
  return width;
}

// Cuts a text to at most width characters, marking the cut.
std::string Clip(const std::string& text, size_t width) {
  if (DisplayWidth(text) <= width) return text;
  size_t chars = 0;
  size_t i = 0;
  for (; i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
      if (chars == width - 3) break;
      ++chars;
    }
  }
  return text.substr(0, i) + "...";
}

// Control characters would break a line-based format: they are shown as
// escapes, as are the separators of the format itself.
std::string EscapeControls(const std::string& text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\n':
        out += "\\n";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string FlowValue(const std::string& text) {
  const bool plain = !text.empty() && text.find_first_of(" \"=\\\t\r\n") == std::string::npos;
  if (plain) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return EscapeControls(out) + "\"";
}

std::vector<Json> AsRecords(const Json& records) {
  std::vector<Json> out;
  if (records.is_array()) {
    for (const Json& r : records) out.push_back(r);
  } else if (!records.is_null()) {
    out.push_back(records);
  }
  return out;
}

// Columns in the order keys first appear over all records.
std::vector<std::string> Columns(const std::vector<Json>& records) {
  std::vector<std::string> columns;
  for (const Json& r : records) {
    if (!r.is_object()) continue;
    for (const auto& item : r.items()) {
      if (std::find(columns.begin(), columns.end(), item.key()) == columns.end()) {
        columns.push_back(item.key());
      }
    }
  }
  return columns;
}

std::string Field(const Json& record, const std::string& column) {
  if (!record.is_object() || !record.contains(column)) return "";
  return CellText(record.at(column));
}

std::string RenderTable(const std::vector<Json>& records, bool single) {
  std::string out;
  const std::vector<std::string> columns = Columns(records);
  if (single && records.size() == 1) {
    // One record reads best as a list of names and values.
    size_t width = 0;
    for (const std::string& c : columns) width = std::max(width, DisplayWidth(c));
    for (const std::string& c : columns) {
      out += c + std::string(width - DisplayWidth(c) + 2, ' ') +
             EscapeControls(Field(records[0], c)) + "\n";
    }
    return out;
  }
  if (columns.empty()) return out;
  std::vector<size_t> widths;
  for (const std::string& c : columns) widths.push_back(DisplayWidth(c));
  std::vector<std::vector<std::string>> cells;
  for (const Json& r : records) {
    std::vector<std::string> row;
    for (size_t i = 0; i < columns.size(); ++i) {
      row.push_back(Clip(EscapeControls(Field(r, columns[i])), kMaxCellWidth));
      widths[i] = std::max(widths[i], DisplayWidth(row.back()));
    }
    cells.push_back(std::move(row));
  }
  auto line = [&](const std::vector<std::string>& row) {
    std::string text;
    for (size_t i = 0; i < row.size(); ++i) {
      text += row[i];
      if (i + 1 < row.size()) text += std::string(widths[i] - DisplayWidth(row[i]) + 2, ' ');
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text + "\n";
  };
  out += line(columns);
  for (const auto& row : cells) out += line(row);
  return out;
}

}  // namespace

bool ParseOutputFormat(const std::string& name, OutputFormat* format) {
  if (name == "table") {
    *format = OutputFormat::kTable;
  } else if (name == "tab") {
    *format = OutputFormat::kTab;
  } else if (name == "flow") {
    *format = OutputFormat::kFlow;
  } else if (name == "json") {
    *format = OutputFormat::kJson;
  } else {
    return false;
  }
  return true;
}

std::string CellText(const Json& value) {
  switch (value.type()) {
    case Json::value_t::null:
      return "-";
    case Json::value_t::string:
      return value.get<std::string>();
    case Json::value_t::boolean:
      return value.get<bool>() ? "yes" : "no";
    case Json::value_t::array: {
      std::string text;
      for (const Json& v : value) text += (text.empty() ? "" : ", ") + CellText(v);
      return text;
    }
    case Json::value_t::object:
      return value.dump(-1, ' ', false, Json::error_handler_t::replace);
    default:
      return value.dump();
  }
}

std::string Render(const Result& result, OutputFormat format) {
  if (format == OutputFormat::kJson) {
    // Invalid UTF-8 in a store file must not make the document invalid.
    const Json& doc = result.document.is_null() ? result.records : result.document;
    return doc.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  }
  const std::vector<Json> records = AsRecords(result.records);
  std::string out;
  switch (format) {
    case OutputFormat::kTable:
      out = RenderTable(records, result.records.is_object());
      if (!result.summary.empty()) out += result.summary + "\n";
      break;
    case OutputFormat::kTab: {
      const std::vector<std::string> columns = Columns(records);
      if (columns.empty()) break;
      for (size_t i = 0; i < columns.size(); ++i) out += (i ? "\t" : "") + columns[i];
      out += "\n";
      for (const Json& r : records) {
        for (size_t i = 0; i < columns.size(); ++i) {
          out += (i ? "\t" : "") + EscapeControls(Field(r, columns[i]));
        }
        out += "\n";
      }
      break;
    }
    case OutputFormat::kFlow:
      for (const Json& r : records) {
        std::string text;
        if (r.is_object()) {
          for (const auto& item : r.items()) {
            text +=
                (text.empty() ? "" : " ") + item.key() + "=" + FlowValue(CellText(item.value()));
          }
        }
        out += text + "\n";
      }
      break;
    case OutputFormat::kJson:
      break;
  }
  return out;
}

}  // namespace qaaisp::qastore
