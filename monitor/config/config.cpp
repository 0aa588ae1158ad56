#include "config/config.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <utility>

#include "config/config_parts.h"
#include "config/toml_fields.h"
#include "proc/unique_fd.h"

namespace {

using Presence = TomlFields::Presence;

constexpr TomlFields::Range kSeconds{kLeastSeconds, kMostSeconds, "a number of seconds"};
constexpr TomlFields::Range kWorkers{1.0, 1000.0, "a whole number"};

constexpr char kInstancesForm[] = "at least one [[instance]]";

// What no configuration comes near: a device that never ends must not fill the memory.
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

// The file's bytes; nothing, with errno set, if it cannot be read.
std::optional<std::string> read_whole(const std::string& path) {
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return std::nullopt;
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t got = read(file.get(), piece, sizeof piece);
    if (got == 0) return text;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    text.append(piece, static_cast<size_t>(got));
    if (text.size() <= kMostBytes) continue;
    errno = EFBIG;
    return std::nullopt;
  }
}

class ConfigReader {
 public:
  ConfigReading read(const toml::table& file);

 private:
  void read_instance(const toml::node& node);
  void read_name(TomlFields& fields, Instance& instance);

  Config config_;
  Mistakes mistakes_;
  double default_deadline_s_ = Instance().deadline_s;
  std::map<std::string, unsigned> name_lines_;
};

ConfigReading ConfigReader::read(const toml::table& file) {
  TomlFields fields(file, "the file", mistakes_);
  default_deadline_s_ =
      fields.number("deadline", Presence::kOptional, kSeconds).value_or(default_deadline_s_);
  config_.workers = fields.whole_number("workers", Presence::kOptional, kWorkers).value_or(0);
  config_.recovery = read_recovery(fields);
  const toml::array* const instances = fields.array("instance", kInstancesForm);
  fields.refuse_other_keys();
  if (instances) {
    for (const toml::node& node : *instances) read_instance(node);
  }
  if (!file.contains("instance") || (instances && instances->empty())) {
    fields.mistake(fields.line("instance"), std::string("no instance, expected ") + kInstancesForm);
  }
  std::stable_sort(mistakes_.begin(), mistakes_.end(),
                   [](const Mistake& a, const Mistake& b) { return a.line < b.line; });
  return {std::move(config_), std::move(mistakes_)};
}

void ConfigReader::read_instance(const toml::node& node) {
  if (!node.is_table()) {
    mistakes_.push_back(
        {line_of(node), "instance is " + type_of(node) + ", expected a table [[instance]]"});
    return;
  }
  TomlFields fields(*node.as_table(), "[[instance]]", mistakes_);
  Instance instance;
  instance.line = line_of(node);
  read_name(fields, instance);
  instance.item = read_item(fields);
  if (instance.item) instance.unit = instance.item->unit;
  instance.period_s = fields.number("period", Presence::kRequired, kSeconds).value_or(1.0);
  instance.deadline_s =
      fields.number("deadline", Presence::kOptional, kSeconds).value_or(default_deadline_s_);
  const std::optional<std::string> unit = fields.text("unit", Presence::kOptional);
  if (unit) instance.unit = *unit;
  instance.params = read_params(fields, instance.item).params;
  instance.alarm = read_alarm(fields, instance.item);
  fields.refuse_other_keys();
  config_.instances.push_back(std::move(instance));
}

void ConfigReader::read_name(TomlFields& fields, Instance& instance) {
  const std::optional<std::string> name = fields.text("name", Presence::kRequired);
  if (!name) return;
  instance.name = *name;
  const unsigned line = fields.line("name");
  if (name->empty()) {
    fields.mistake(line, "name is empty, expected a name");
    return;
  }
  const auto [first, is_new] = name_lines_.emplace(*name, line);
  if (is_new) return;
  fields.mistake(line, "name \"" + *name + "\" is also that of the instance in line " +
                           std::to_string(first->second) + ", expected a name of its own");
}

ConfigReading failed(unsigned line, std::string text) {
  return {{}, {{line, std::move(text)}}};
}

}  // namespace

ConfigReading read_config(const std::string& path) {
  const std::optional<std::string> text = read_whole(path);
  if (!text) return failed(0, std::string("cannot be read: ") + std::strerror(errno));
  try {
    return ConfigReader().read(toml::parse(*text, path));
  } catch (const toml::parse_error& error) {
    return failed(error.source().begin.line,
                  "this is no TOML: " + std::string(error.description()));
  }
}
