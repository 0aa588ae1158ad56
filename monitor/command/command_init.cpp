#include <algorithm>
#include <cctype>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "command/commands.h"
#include "config/config_text.h"
#include "item/process_library.h"
#include "mirt_interface.h"
#include "proc/file_systems.h"
#include "text/complaint.h"
#include "text/terminal_text.h"

namespace {

constexpr size_t kMostProcesses = 10;

constexpr char kHead[] =
    R"(# A first configuration of mirt-monitor for this machine.
#
#     mirt-monitor check-config FILE       # reports every mistake with its line
#     mirt-monitor run --config FILE
#
# To use a line that is commented out, remove the "# " at its start.

every = "5s" # the period of each watch

# A receiver of alarms. A watch refers to it: alert = ["ops"].
# [alert.ops]
# command = ["logger", "--tag", "mirt-monitor", "--priority", "daemon.alert"]

[machine]
# alert = ["ops"]
cpu = { above = "95 %", for = "5m" }
memory = { above = "95 %", for = "1m" } # includes the kernel's caches

[machine.disk]
)";

constexpr char kProcesses[] =
    R"(
# The largest processes now. "mirt-monitor match prefix TEXT" prints the processes that a prefix finds.
)";

// A readable prefix without characters that are special for TOML, terminals or patterns.
std::string usual_beginning(const std::string& command_line) {
  constexpr size_t kMost = 100;
  size_t length = std::min(first_malformed(command_line), command_line.size());
  const auto is_odd = [](unsigned char letter) {
    return std::iscntrl(letter) != 0 || letter == '*' || letter == '?';
  };
  const auto odd = std::find_if(command_line.begin(), command_line.end(), is_odd);
  length = std::min(length, static_cast<size_t>(odd - command_line.begin()));
  return cut(command_line.substr(0, length), kMost);
}

// Replaces all characters except letters, digits, "-" and "_".
std::string usual_name(const std::string& name) {
  std::string usual;
  for (const char letter : name) {
    const bool is_usual =
        std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '-' || letter == '_';
    usual += is_usual ? letter : '-';
  }
  return usual.empty() ? "process" : usual;
}

std::string unused_name(const std::string& wanted, std::set<std::string>& used) {
  std::string name = wanted;
  for (int i = 2; !used.insert(name).second; ++i) name = wanted + '-' + std::to_string(i);
  return name;
}

void print_process(const ProcessRow& row, const std::string& prefix, const std::string& name) {
  const int bound_mib = std::max(row.rss_mib * 2, 64);
  std::printf(
      "\n# [[process]] # now PID %d with %d MiB\n# name = %s\n# prefix = %s\n"
      "# running = true\n# memory = { above = \"%d MiB\", for = \"1m\" }\n",
      row.pid, row.rss_mib, toml_text(name).c_str(), toml_text(prefix).c_str(), bound_mib);
}

void print_processes(std::vector<ProcessRow> rows) {
  std::stable_sort(rows.begin(), rows.end(),
                   [](const ProcessRow& a, const ProcessRow& b) { return a.rss_mib > b.rss_mib; });
  std::printf("%s", kProcesses);
  std::set<std::string> names, prefixes;
  for (const ProcessRow& row : rows) {
    const std::string prefix = usual_beginning(row.cmdline);
    if (prefix.empty() || !prefixes.insert(prefix).second) continue;
    print_process(row, prefix, unused_name(usual_name(row.name), names));
    if (prefixes.size() == kMostProcesses) return;
  }
}

void print_file_systems() {
  const FileSystems found = local_file_systems();
  for (const std::string& what : found.left_out) complain("left out: " + what);
  for (const std::string& folder : found.folders) {
    const bool is_text = first_malformed(folder) == std::string::npos;
    if (!is_text || folder.size() >= FI_PARAM_VALUE_LEN) continue;
    std::printf("%s = { above = \"90 %%\" }\n", toml_text(folder).c_str());
  }
}

}  // namespace

int command_init(const std::string& plugin) {
  const auto library = ProcessLibrary::load(plugin);
  if (!library) return kExitUsage;
  std::optional<Listing> listing = library->list(false);
  if (!listing) {
    complain("cannot list the processes");
    return kExitFailed;
  }
  std::printf("%s", kHead);
  print_file_systems();
  print_processes(std::move(listing->processes));
  return kExitOk;
}
