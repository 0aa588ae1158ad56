// The text of an error without a report: for any parameters it stays within its limit and contains
// only their values.
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

// "ErrCode" first, then parameters from the input.
std::vector<FI_PARAM_S> parameters(FuzzInput& input) {
  std::vector<FI_PARAM_S> list(1);
  std::string("ErrCode").copy(list[0].name, sizeof list[0].name - 1);
  std::string("0x12").copy(list[0].value, sizeof list[0].value - 1);
  while (!input.empty() && list.size() < 16) {
    FI_PARAM_S parameter{};
    const std::string name = input.text(), value = input.text();
    name.copy(parameter.name, sizeof parameter.name - 1);
    value.copy(parameter.value, sizeof parameter.value - 1);
    list.push_back(parameter);
  }
  return list;
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
  FUZZ_CHECK(sent.size() < kMostText);
  size_t begin = 0;  // every value except the last one is complete
  for (size_t i = 1; i < list.size(); ++i) {
    const std::string name = list[i].name, value = list[i].value;
    if (value.empty() || name == "UserData") continue;
    begin = sent.find(value, begin);
    if (begin == std::string::npos) FUZZ_CHECK(sent.size() == kMostText - 1);
    if (begin == std::string::npos) break;
  }
  return 0;
}
