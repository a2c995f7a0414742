/* json.cpp: the rows of a command as JSON. */
#include "json.h"

#include "escape.h"
#include "row.h"

namespace console {

std::string JsonObject(std::string_view line) {
  const auto row = ParseRow(line);
  if (!row) return "{\"text\": " + JsonText(line) + "}";
  std::string json = "{";
  for (const Field &field : *row) {
    if (json.size() > 1) json += ", ";
    json += JsonText(field.name) + ": " + JsonText(field.value);
  }
  return json + "}";
}

std::string JsonText(std::string_view text) {
  std::string json = "\"";
  json += EscapedForJson(text);
  return json += '"';
}

bool JsonLines::Line(std::string_view line) {
  if (IsTotal(line)) return true;
  const bool isFine = last_.empty() ? out_.Print("[") : PrintLast(",");
  last_ = JsonObject(line);
  return isFine;
}

bool JsonLines::PrintLast(const char *after) { return out_.Print("  " + last_ + after); }

void JsonLines::End() {
  if (last_.empty()) {
    out_.Print("[]");
    return;
  }
  PrintLast("");
  out_.Print("]");
  last_.clear();
}

}  // namespace console
