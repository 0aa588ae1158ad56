// The configuration: whatever its files contain, there is an answer, every mistake has its place,
// and what is right can be written out in full and read again.
#include <algorithm>
#include <filesystem>

#include "captured_log.h"
#include "config/config.h"
#include "config/config_text.h"
#include "fuzz_input.h"
#include "private_mounts.h"

namespace {

namespace fs = std::filesystem;

// Nothing but these files: the first is the configuration, the others can be included.
std::string fill(const TemporaryFolder& folder, const std::vector<std::string>& files) {
  fs::remove_all(folder / "conf.d");
  fs::create_directory(folder / "conf.d");
  for (size_t i = 1; i < files.size(); ++i) {
    write_file(folder / "conf.d/" + std::to_string(i) + ".toml", files[i]);
  }
  write_file(folder / "main.toml", files.front());
  return folder / "main.toml";
}

// NUL characters separate them.
std::vector<std::string> files_in(const uint8_t* data, size_t size) {
  constexpr size_t kMost = 4;
  FuzzInput input(data, size);
  std::vector<std::string> files;
  do files.push_back(files.size() + 1 < kMost ? input.text() : input.rest());
  while (!input.empty());
  return files;
}

void check_findings(const Findings& findings, size_t lines) {
  for (const Mistakes& found : {findings.mistakes, findings.warnings}) {
    for (const Mistake& one : found) FUZZ_CHECK(!one.text.empty() && one.line <= lines);
  }
}

void check_config(const Plan& config) {
  FUZZ_CHECK(!config.instances.empty());
  for (const Instance& instance : config.instances) {
    FUZZ_CHECK(instance.item != nullptr && instance.period_s > 0 && !instance.file.empty());
    for (const Param& param : instance.params) {
      FUZZ_CHECK(param.name.size() < 100 && param.value.size() < 400);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TemporaryFolder folder;
  const std::vector<std::string> files = files_in(data, size);
  const ConfigReading reading = read_config(fill(folder, files));
  check_findings(reading.findings, static_cast<size_t>(std::count(data, data + size, '\n')) + 1);
  if (!reading.findings.mistakes.empty()) return 0;
  check_config(reading.config);
  const std::string full = config_text(reading.config);
  const ConfigReading again = read_config(fill(folder, {full}));
  FUZZ_CHECK(again.findings.mistakes.empty());
  FUZZ_CHECK(config_text(again.config) == full);
  return 0;
}
