#include "config/config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <utility>

#include "config/config_parts.h"
#include "config/toml_error.h"
#include "config/toml_fields.h"
#include "item/value_check.h"
#include "proc/unique_fd.h"
#include "text/number_text.h"

namespace {

using Presence = TomlFields::Presence;

constexpr TomlFields::Range kWorkers{1.0, 1000.0, "a whole number"};

// Keys of instances that stand before the first of them, or in a table of their own.
const std::vector<Misplaced> kMisplaced = {{"alarm", "as [instance.alarm] after its [[instance]]"},
                                           {"report", "in [instance.alarm]"},
                                           {"name", "in [[instance]]"},
                                           {"item", "in [[instance]]"},
                                           {"period", "in [[instance]]"},
                                           {"params", "in [[instance]]"},
                                           {"unit", "in [[instance]]"}};

constexpr char kInstancesForm[] = "at least one [[instance]]";

// What no configuration comes near: a device that never ends must not fill the memory.
constexpr size_t kMostBytes = size_t{16} * 1024 * 1024;

// Where a pipe is meant: standard input, and what a shell puts in the place of <(command).
bool names_descriptor(const std::string& path) {
  return path == "/dev/stdin" || path.compare(0, 8, "/dev/fd/") == 0 ||
         path.compare(0, 14, "/proc/self/fd/") == 0;
}

const char* kind_of_file(mode_t mode) {
  switch (mode & S_IFMT) {
    case S_IFDIR:
      return "a directory";
    case S_IFIFO:
      return "a named pipe";
    default:
      return "a device or socket";
  }
}

// What keeps the open file from being read as a configuration; empty if nothing does.
std::string obstacle(int file, const std::string& path) {
  struct stat about {};
  if (file < 0 || fstat(file, &about) != 0) {
    return std::string("cannot be read: ") + std::strerror(errno);
  }
  if (S_ISREG(about.st_mode) || (names_descriptor(path) && !S_ISDIR(about.st_mode))) return "";
  return std::string("is ") + kind_of_file(about.st_mode) +
         ", expected a regular file, /dev/stdin or /dev/fd/N";
}

// The bytes of the file; nothing, with errno set, if it cannot be read.
std::optional<std::string> read_whole(const UniqueFd& file) {
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

  void check_times(TomlFields& fields, const Instance& instance);

  Config config_;
  Findings findings_;
  double default_deadline_s_ = Instance().deadline_s;
  std::map<std::string, unsigned> name_lines_;
};

ConfigReading ConfigReader::read(const toml::table& file) {
  TomlFields fields(file, "the file", findings_);
  default_deadline_s_ =
      read_seconds(fields, "deadline", Presence::kOptional).value_or(default_deadline_s_);
  config_.workers = fields.whole_number("workers", Presence::kOptional, kWorkers).value_or(0);
  config_.recovery = read_recovery(fields);
  const toml::array* const instances = fields.array("instance", kInstancesForm);
  fields.refuse_other_keys(kMisplaced);
  if (instances) {
    for (const toml::node& node : *instances) read_instance(node);
  }
  if (!file.contains("instance") || (instances && instances->empty())) {
    fields.mistake(fields.line("instance"), std::string("no instance, expected ") + kInstancesForm);
  }
  sort_by_line(findings_.mistakes);
  sort_by_line(findings_.warnings);
  return {std::move(config_), std::move(findings_)};
}

void ConfigReader::read_instance(const toml::node& node) {
  if (!node.is_table()) {
    findings_.mistakes.push_back(
        {line_of(node), "instance is " + type_of(node) + ", expected a table [[instance]]"});
    return;
  }
  TomlFields fields(*node.as_table(), "[[instance]]", findings_);
  Instance instance;
  instance.line = line_of(node);
  read_name(fields, instance);
  instance.item = read_item(fields);
  if (instance.item) instance.unit = instance.item->unit;
  const std::optional<double> period = read_seconds(fields, "period", Presence::kRequired);
  instance.period_s = period.value_or(instance.period_s);
  instance.deadline_s =
      read_seconds(fields, "deadline", Presence::kOptional).value_or(default_deadline_s_);
  const std::optional<std::string> unit = fields.text("unit", Presence::kOptional);
  if (unit) instance.unit = *unit;
  instance.params = read_params(fields, instance.item).params;
  if (instance.item && period) check_times(fields, instance);
  instance.alarms = read_alarms(fields, instance.item);
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

void ConfigReader::check_times(TomlFields& fields, const Instance& instance) {
  const std::optional<std::string> often =
      check_period(*instance.item, instance.params, instance.period_s);
  if (often) fields.warning(fields.line("period"), "period " + *often);
  const bool waits_for_command = config_.recovery.redundancy == Recovery::Redundancy::kCommand &&
                                 asks_for_recovery(*instance.item);
  if (!waits_for_command || instance.deadline_s > kRecoverySeconds) return;
  fields.warning(fields.line("deadline"),
                 "deadline is " + number_text(instance.deadline_s) + ", expected more than " +
                     number_text(kRecoverySeconds) +
                     " s: the item waits that long for the command of [recovery]");
}

ConfigReading failed(Mistake mistake) {
  return {{}, {{std::move(mistake)}, {}}};
}

ConfigReading read_text(const std::string& text, const std::string& path) {
  try {
    return ConfigReader().read(toml::parse(text, path));
  } catch (const toml::parse_error& error) {
    return failed(toml_mistake(text, error));
  }
}

void make_mistakes_of_warnings(Findings& findings) {
  for (Mistake& warning : findings.warnings) findings.mistakes.push_back(std::move(warning));
  findings.warnings.clear();
  sort_by_line(findings.mistakes);
}

}  // namespace

ConfigReading read_config(const std::string& path, Warnings warnings) {
  // Without O_NONBLOCK the opening itself waits for somebody to write to a pipe.
  const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  const std::string found = obstacle(file.get(), path);
  if (!found.empty()) return failed({0, found});
  fcntl(file.get(), F_SETFL, O_RDONLY);
  const std::optional<std::string> text = read_whole(file);
  if (!text) return failed({0, std::string("cannot be read: ") + std::strerror(errno)});
  ConfigReading reading = read_text(*text, path);
  if (warnings == Warnings::kAreMistakes) make_mistakes_of_warnings(reading.findings);
  return reading;
}
