// Reads typed values from TOML tables and collects all mistakes and warnings with their lines.
#ifndef MONITOR_TOML_FIELDS_H
#define MONITOR_TOML_FIELDS_H

#include <toml++/toml.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "text/mistake.h"
#include "text/quantity.h"

unsigned line_of(const toml::node& node);

// "an integer", for messages.
std::string type_of(const toml::node& node);

// A key that is often in the wrong table, and where it belongs: "in [[instance]]".
struct Misplaced {
  std::string_view key;
  const char* place;
};

// One table of the file. If a required key is missing, or a value has the wrong type, the readers
// add a mistake and return nothing. The table and the findings must outlive this object.
class TomlFields {
 public:
  enum class Presence { kRequired, kOptional };

  struct Range {
    double least;
    double most;
    const char* what;  // "a number of seconds"
  };

  // `where` names the table in messages: "[[instance]]".
  TomlFields(const toml::table& table, std::string where, Findings& findings)
      : table_(table), where_(std::move(where)), findings_(findings) {}

  std::optional<std::string> text(std::string_view key, Presence presence);  // never contains NUL
  std::optional<double> number(std::string_view key, Presence presence, const Range& range);
  // A number in the base unit, or text with one of the units. The range is in the base unit.
  std::optional<double> quantity(std::string_view key, Presence presence, const QuantityKind& kind,
                                 double least, double most);
  std::optional<unsigned> whole_number(std::string_view key, Presence presence, const Range& range);
  // An array of text, or a single text. Elements of other types are mistakes and are left out.
  std::vector<std::string> texts(std::string_view key, const char* expected);
  const toml::array* array(std::string_view key, const char* expected);
  const toml::table* table(std::string_view key, const char* expected);

  // The key's value of any type; null if there is none.
  const toml::node* any(std::string_view key) { return find(key, Presence::kOptional, ""); }

  // Fields of a table inside this one, with the same findings.
  TomlFields within(const toml::table& table, std::string where) const {
    return {table, std::move(where), findings_};
  }

  // The line of the key's value, or of the table if there is no such key.
  unsigned line(std::string_view key) const;

  bool has(std::string_view key) const { return table_.contains(key); }

  const std::string& where() const { return where_; }

  // Adds a mistake for each key that was not read, with a hint if it belongs to another table.
  void refuse_other_keys(const std::vector<Misplaced>& misplaced = {});

  // The findings of this table and of all tables that share them.
  size_t mistake_count() const { return findings_.mistakes.size(); }
  void mistake(unsigned line, std::string text) {
    findings_.mistakes.push_back({line, std::move(text)});
  }
  void warning(unsigned line, std::string text) {
    findings_.warnings.push_back({line, std::move(text)});
  }

 private:
  const toml::node* find(std::string_view key, Presence presence, const char* expected);
  std::optional<std::string> text_in(std::string_view key, const toml::node& node,
                                     const char* expected);
  void wrong_type(std::string_view key, const toml::node& node, const char* expected);
  bool in_range(std::string_view key, const toml::node& node, double value, const Range& range);

  const toml::table& table_;
  std::string where_;
  Findings& findings_;
  std::vector<std::string_view> known_keys_;
};

#endif
