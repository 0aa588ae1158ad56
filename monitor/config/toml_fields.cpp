#include "config/toml_fields.h"

#include <algorithm>

#include "text/number_text.h"
#include "text/wording.h"

unsigned line_of(const toml::node& node) {
  return node.source().begin.line;
}

std::string type_of(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return "a string";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a floating-point number";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

const toml::node* TomlFields::find(std::string_view key, Presence presence, const char* expected) {
  known_keys_.push_back(key);
  const toml::node* const node = table_.get(key);
  if (!node && presence == Presence::kRequired) {
    mistake(line_of(table_),
            "no key " + in_quotes(key) + " in " + where_ + ", expected " + expected);
  }
  return node;
}

void TomlFields::wrong_type(std::string_view key, const toml::node& node, const char* expected) {
  mistake(line_of(node), std::string(key) + " is " + type_of(node) + ", expected " + expected);
}

bool TomlFields::in_range(std::string_view key, const toml::node& node, double value,
                          const Range& range) {
  if (value >= range.least && value <= range.most) return true;  // false for NaN
  mistake(line_of(node), std::string(key) + " is " + number_text(value) + ", expected " +
                             range.what + " from " + number_text(range.least) + " to " +
                             number_text(range.most));
  return false;
}

std::optional<std::string> TomlFields::text_in(std::string_view key, const toml::node& node,
                                               const char* expected) {
  if (!node.is_string()) {
    wrong_type(key, node, expected);
    return std::nullopt;
  }
  // Records, commands and terminals would treat it as the end of the text.
  if (node.as_string()->get().find('\0') != std::string::npos) {
    mistake(line_of(node),
            std::string(key) + " contains a NUL character, expected text without one");
    return std::nullopt;
  }
  return node.as_string()->get();
}

std::optional<std::string> TomlFields::text(std::string_view key, Presence presence) {
  const toml::node* const node = find(key, presence, "a string");
  return node ? text_in(key, *node, "a string") : std::nullopt;
}

std::vector<std::string> TomlFields::texts(std::string_view key, const char* expected) {
  std::vector<std::string> all;
  const toml::node* const node = find(key, Presence::kOptional, expected);
  if (!node) return all;
  if (!node->is_array()) {
    if (std::optional<std::string> one = text_in(key, *node, expected)) all.push_back(*one);
    return all;
  }
  for (const toml::node& each : *node->as_array()) {
    const std::string what = std::string(key) + " has an element that";
    if (std::optional<std::string> one = text_in(what, each, expected)) all.push_back(*one);
  }
  return all;
}

std::optional<double> TomlFields::number(std::string_view key, Presence presence,
                                         const Range& range) {
  const toml::node* const node = find(key, presence, range.what);
  if (!node) return std::nullopt;
  if (!node->is_number()) {
    wrong_type(key, *node, range.what);
    return std::nullopt;
  }
  const double value = node->value<double>().value_or(0.0);
  if (!in_range(key, *node, value, range)) return std::nullopt;
  return value;
}

std::optional<double> TomlFields::quantity(std::string_view key, Presence presence,
                                           const QuantityKind& kind, double least, double most) {
  const toml::node* const node = find(key, presence, kind.what);
  if (!node) return std::nullopt;
  const auto* const text = node->as_string();
  if (!text && !node->is_number()) {
    wrong_type(key, *node, kind.what);
    return std::nullopt;
  }
  const std::optional<double> value =
      text ? read_quantity(text->get(), kind) : node->value<double>();
  if (value && *value >= least && *value <= most) return value;  // false for NaN
  const std::string found = text ? in_quotes(text->get()) : number_text(value.value_or(0.0));
  mistake(
      line_of(*node),
      std::string(key) + " is " + found + ", expected " +
          (value ? number_text(least) + " to " + number_text(most) + ' ' + kind.own : kind.what));
  return std::nullopt;
}

std::optional<unsigned> TomlFields::whole_number(std::string_view key, Presence presence,
                                                 const Range& range) {
  const toml::node* const node = find(key, presence, range.what);
  if (!node) return std::nullopt;
  if (!node->is_integer()) {
    wrong_type(key, *node, range.what);
    return std::nullopt;
  }
  const auto value = node->as_integer()->get();
  if (!in_range(key, *node, static_cast<double>(value), range)) return std::nullopt;
  return static_cast<unsigned>(value);
}

const toml::array* TomlFields::array(std::string_view key, const char* expected) {
  const toml::node* const node = find(key, Presence::kOptional, expected);
  if (!node) return nullptr;
  if (!node->is_array()) wrong_type(key, *node, expected);
  return node->as_array();
}

const toml::table* TomlFields::table(std::string_view key, const char* expected) {
  const toml::node* const node = find(key, Presence::kOptional, expected);
  if (!node) return nullptr;
  if (!node->is_table()) wrong_type(key, *node, expected);
  return node->as_table();
}

unsigned TomlFields::line(std::string_view key) const {
  const toml::node* const node = table_.get(key);
  return line_of(node ? *node : table_);
}

void TomlFields::refuse_other_keys(const std::vector<Misplaced>& misplaced) {
  std::vector<std::string_view> keys = known_keys_;
  std::sort(keys.begin(), keys.end());
  for (const auto& [key, node] : table_) {
    if (std::find(known_keys_.begin(), known_keys_.end(), key.str()) != known_keys_.end()) continue;
    const auto hint = std::find_if(misplaced.begin(), misplaced.end(),
                                   [&, word = key.str()](auto& row) { return row.key == word; });
    mistake(key.source().begin.line,
            "unknown key " + in_quotes(key.str()) + " in " + where_ +
                (hint == misplaced.end() ? expected_one_of(key.str(), keys)
                                         : std::string(", expected it ") + hint->place));
  }
}
