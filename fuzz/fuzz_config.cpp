// The configuration reader: for any content it returns a result, and every mistake has a position.
#include <algorithm>

#include "config/config.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  const MemoryFile file(content);
  const ConfigReading reading = read_config(file.path());
  const auto lines = static_cast<unsigned>(std::count(content.begin(), content.end(), '\n')) + 1;
  const Findings& findings = reading.findings;
  for (const Mistakes& found : {findings.mistakes, findings.warnings}) {
    for (const Mistake& one : found) FUZZ_CHECK(!one.text.empty() && one.line <= lines);
  }
  if (!findings.mistakes.empty()) return 0;
  FUZZ_CHECK(!reading.config.instances.empty());
  for (const Instance& instance : reading.config.instances) {
    FUZZ_CHECK(instance.item != nullptr && instance.period_s > 0);
    for (const Param& param : instance.params) {
      FUZZ_CHECK(param.name.size() < 100 && param.value.size() < 400);
    }
  }
  return 0;
}
