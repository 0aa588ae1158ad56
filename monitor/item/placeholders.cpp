#include "item/placeholders.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace {

constexpr char kAllNames[] = "{value}, {pid}, {flowid}, {instance} or {{";

struct Row {
  const char* name;
  std::string PlaceholderTexts::*text;
  const char* what;
  bool (*filled)(const ItemRow&);
};

bool always(const ItemRow& /*item*/) {
  return true;
}

const Row kRows[] = {
    {"value", &PlaceholderTexts::value, "value", always},
    {"instance", &PlaceholderTexts::instance, "name", always},
    {"pid", &PlaceholderTexts::pid, "pid",
     [](const ItemRow& item) {
       return item.reports == Reports::kValueAndPid || item.reports == Reports::kValueAndThread;
     }},
    {"flowid", &PlaceholderTexts::flow_id, "flow id",
     [](const ItemRow& item) { return item.reports == Reports::kValueAndFlowId; }}};

// A piece of a text: "{name}", "{{", any other "{", or the text between those.
struct Piece {
  std::string text;
  const Row* row = nullptr;  // of a placeholder that exists
  bool broken() const { return !row && text.front() == '{' && text != "{{"; }
};

const Row* find_row(const std::string& piece) {
  for (const Row& row : kRows) {
    if (piece == "{" + std::string(row.name) + "}") return &row;
  }
  return nullptr;
}

size_t length_at(const std::string& text, size_t begin) {
  if (text[begin] != '{') return std::min(text.find('{', begin), text.size()) - begin;
  if (text.compare(begin, 2, "{{") == 0) return 2;
  const size_t end = text.find_first_of("{}", begin + 1);
  return end != std::string::npos && text[end] == '}' ? end + 1 - begin
                                                      : std::min(end, text.size()) - begin;
}

std::vector<Piece> split(const std::string& text) {
  std::vector<Piece> pieces;
  for (size_t begin = 0; begin < text.size();) {
    Piece piece{text.substr(begin, length_at(text, begin))};
    begin += piece.text.size();
    piece.row = find_row(piece.text);
    pieces.push_back(std::move(piece));
  }
  return pieces;
}

}  // namespace

std::vector<std::string> check_placeholders(const std::string& text, const ItemRow* item) {
  std::vector<std::string> mistakes;
  for (const Piece& piece : split(text)) {
    if (piece.broken()) {
      mistakes.push_back("unknown placeholder \"" + piece.text + "\", expected " + kAllNames);
    } else if (piece.row && item && !piece.row->filled(*item)) {
      mistakes.push_back("placeholder " + piece.text + " for " + item->name +
                         ", expected an item that reports a " + piece.row->what);
    }
  }
  return mistakes;
}

std::string fill_placeholders(const std::string& text, const PlaceholderTexts& texts) {
  std::string filled;
  for (const Piece& piece : split(text)) {
    filled += piece.row ? texts.*piece.row->text : piece.text == "{{" ? "{" : piece.text;
  }
  return filled;
}

std::string value_text(double value) {
  char text[64];
  if (value == std::trunc(value) && std::fabs(value) < 1e15) {
    std::snprintf(text, sizeof text, "%.0f", value);
    return text;
  }
  const auto end = std::to_chars(std::begin(text), std::end(text), static_cast<float>(value)).ptr;
  return std::string(text, end);
}
