/* json.cpp: the rows of a command as JSON. */
#include "json.h"

#include "escape.h"
#include "row.h"

namespace console {

namespace {

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

}  // namespace

std::string JsonText(std::string_view text) {
  std::string json = "\"";
  json += EscapedForJson(text);
  return json += '"';
}

bool JsonLines::Line(std::string_view line) {
  if (IsTotal(line)) return true;
  std::fputs(isFirst_ ? "[\n  " : ",\n  ", out_);
  isFirst_ = false;
  const std::string object = JsonObject(line);
  std::fwrite(object.data(), 1, object.size(), out_);
  return std::ferror(out_) == 0;
}

void JsonLines::End() {
  std::fputs(isFirst_ ? "[]\n" : "\n]\n", out_);
  isFirst_ = true;
}

}  // namespace console
