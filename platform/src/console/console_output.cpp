/* console_output.cpp: replies queued for a console. */
#include "console/console_output.h"

#include <algorithm>

#include "host/edge.h"
#include "kestrel.h"

namespace kestrel {

namespace {

constexpr size_t kMaxText = KESTREL_CONSOLE_MAX_REPLY - 3;  // without tag, blank and line feed

std::string Printable(std::string_view text) {
  std::string shown(text.substr(0, kMaxText));
  std::replace_if(shown.begin(), shown.end(), IsControl, '?');
  return shown;
}

void AddLine(std::string &bytes, char tag, std::string_view text) {
  bytes += tag;
  bytes += ' ';
  bytes += text;
  bytes += '\n';
}

}  // namespace

bool ConsoleOutput::Print(std::string_view text) {
  while (!text.empty() && !isCut_) {
    const size_t end = text.find('\n');
    const bool isLine = end != text.npos;
    AddPieces(isLine ? KESTREL_CONSOLE_OUTPUT : KESTREL_CONSOLE_PIECE, text.substr(0, end));
    text.remove_prefix(isLine ? end + 1 : text.size());
  }
  return !isCut_;
}

// AddPieces cuts a text into pieces that a reply can hold; the last one gets `lastTag`.
void ConsoleOutput::AddPieces(char lastTag, std::string_view text) {
  if (Waiting().size() + text.size() > maxBytes_) {
    isCut_ = true;
    return;
  }
  for (; text.size() > kMaxText; text.remove_prefix(kMaxText)) {
    AddLine(bytes_, KESTREL_CONSOLE_PIECE, text.substr(0, kMaxText));
  }
  AddLine(bytes_, lastTag, text);
}

void ConsoleOutput::Line(char tag, std::string_view text) { AddLine(bytes_, tag, Printable(text)); }

void ConsoleOutput::Fields(char tag, const std::vector<std::string_view> &texts) {
  std::string joined;
  for (size_t i = 0; i < texts.size(); ++i) joined += (i == 0 ? "" : "\t") + Printable(texts[i]);
  if (joined.size() <= kMaxText) AddLine(bytes_, tag, joined);
}

void ConsoleOutput::End(uint32_t result) {
  if (isCut_) {
    Line(KESTREL_CONSOLE_ERROR, "output was cut: more than " + std::to_string(maxBytes_) +
                                    " bytes were waiting for this console");
  }
  isCut_ = false;
  Line(KESTREL_CONSOLE_END, std::to_string(result) + " " + KestrelResultText(result));
}

// Bytes are moved only when most of them are gone, so that a long queue drains in linear time.
void ConsoleOutput::Sent(size_t len) {
  sent_ += len;
  if (sent_ < bytes_.size() / 2) return;
  bytes_.erase(0, sent_);
  sent_ = 0;
  if (bytes_.empty()) bytes_.shrink_to_fit();
}

}  // namespace kestrel
