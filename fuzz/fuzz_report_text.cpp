// The text of an error without a report, whatever its parameters, beside the rule in a few lines.
#include <algorithm>
#include <vector>

#include "fuzz_input.h"
#include "mirt_host.h"
#include "mirt_items.h"

namespace {

constexpr size_t kMostText = 127;

int32_t keep_description(const MIRT_HOST_REPORT_S* report, void* user) {
  *static_cast<std::string*>(user) = report->description;
  return 0;
}

// "ErrCode" first, then what the input says. Never an empty value under a name that asks for what
// only the moment knows.
std::vector<FI_PARAM_S> parameters(FuzzInput& input) {
  std::vector<FI_PARAM_S> list(1);
  std::string("ErrCode").copy(list[0].name, sizeof list[0].name - 1);
  std::string("0x12").copy(list[0].value, sizeof list[0].value - 1);
  while (!input.empty() && list.size() < 16) {
    FI_PARAM_S parameter{};
    const std::string name = input.text(), value = input.text();
    if (value.empty() && name == "diagnoseTime") continue;
    name.copy(parameter.name, sizeof parameter.name - 1);
    value.copy(parameter.value, sizeof parameter.value - 1);
    list.push_back(parameter);
  }
  return list;
}

std::string expected_text(const std::vector<FI_PARAM_S>& list) {
  std::string text;
  for (size_t i = 1; i < list.size() && text.size() < kMostText; ++i) {
    const std::string name = list[i].name, value = list[i].value;
    if (name == "UserData") continue;
    if (!value.empty()) {
      text += value + ",";
    } else if (name == "nodeId") {
      text += "7,";
    }
    text = text.substr(0, kMostText);
  }
  if (!text.empty()) text.pop_back();
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzInput input(data, size);
  std::vector<FI_PARAM_S> list = parameters(input);
  std::string sent = "nothing";
  mirt_host_set_local_nid(7);
  mirt_host_set_report_handler(keep_description, &sent);
  FI_RESULT_S result{};
  FUZZ_CHECK(SendErrRptExtend(static_cast<int>(list.size()), list.data(), nullptr, &result) == 0);
  FUZZ_CHECK(sent == expected_text(list));
  return 0;
}
