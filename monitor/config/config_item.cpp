// Reads the item and parameters of an instance or a report.
#include "config/config_parts.h"
#include "item/instance.h"
#include "item/value_check.h"

namespace {

using Presence = TomlFields::Presence;

constexpr char kParamsForm[] = "an array of { name = \"...\", value = \"...\" }";

// The name for a parameter that is not valid: if positions matter, the name for its position.
std::string fallback_name(const ItemRow* item, size_t index) {
  const bool by_position = item && item->params->lookup == ParamList::Lookup::kByPosition;
  return by_position ? name_at(*item, index) : "";
}

// A parameter that is not valid keeps its position, so that it is not also reported as missing.
Param read_param(TomlFields& around, const toml::node& node, const std::string& fallback) {
  if (!node.is_table()) {
    around.mistake(line_of(node), "parameter is " + type_of(node) +
                                      ", expected { name = \"...\", value = \"...\" }");
    return {fallback, ""};
  }
  TomlFields fields = around.within(*node.as_table(), "a parameter");
  const std::optional<std::string> name = fields.text("name", Presence::kRequired);
  const std::optional<std::string> value = fields.text("value", Presence::kRequired);
  fields.refuse_other_keys();
  Param param{name.value_or(fallback), value.value_or("")};
  if (name) {
    for (TextMistake& mistake : check_texts(param)) {
      fields.mistake(fields.line(mistake.field), std::move(mistake.text));
    }
  }
  return param;
}

// Adds each mistake or warning with the line of its parameter.
void blame(TomlFields& fields, const ParamsReading& reading,
           const std::vector<ParamMistake>& mistakes) {
  for (const ParamMistake& mistake : mistakes) {
    const unsigned line = mistake.index ? reading.lines[*mistake.index] : fields.line("params");
    if (mistake.is_warning) {
      fields.warning(line, mistake.text);
    } else {
      fields.mistake(line, mistake.text);
    }
  }
}

}  // namespace

const ItemRow* read_item(TomlFields& fields) {
  const std::optional<std::string> name = fields.text("item", Presence::kRequired);
  if (!name) return nullptr;
  const ItemRow* const item = find_item(*name);
  if (item) return item;
  fields.mistake(fields.line("item"), unknown_item_text(*name));
  return nullptr;
}

std::optional<double> read_seconds(TomlFields& fields, std::string_view key, Presence presence) {
  return fields.quantity(key, presence, duration_in_seconds(), kLeastSeconds, kMostSeconds);
}

ParamsReading read_params(TomlFields& fields, const ItemRow* item) {
  ParamsReading reading;
  const size_t mistakes_before = fields.mistake_count();
  const toml::array* const params = fields.array("params", kParamsForm);
  if (!params && fields.has("params")) return reading;
  if (params) {
    for (const toml::node& node : *params) {
      const std::string fallback = fallback_name(item, reading.params.size());
      reading.params.push_back(read_param(fields, node, fallback));
      reading.lines.push_back(line_of(node));
    }
  }
  if (!item) return reading;
  const bool all_read = fields.mistake_count() == mistakes_before;
  blame(fields, reading, check_list(*item, reading.params));
  if (all_read) blame(fields, reading, check_values(*item, reading.params));
  return reading;
}
