// The monitor's tables say the same as the loaded plug-in.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "child.h"
#include "common_plugin.h"
#include "item/item_table.h"
#include "item/params.h"
#include "item/value_check.h"
#include "item_call.h"
#include "mirt_host.h"

namespace {

// Exported, but not items.
const std::set<std::string> kFunctions{
    "CheckProcessExist",   "FreeAllProcessList", "GetAllProcessCoreCPU",
    "GetAllProcessRssMem", "GetProcessPid",      "GetProcessPidExtern",
    "GetProcessPidFuzzy",  "KillProcess",        "MIRT_AgentShmInit"};

TEST(Tables, HaveEveryExportedItemAndNoOther) {
  std::set<std::string> items;
  for (const ItemRow& row : all_items()) items.insert(row.name);
  std::set<std::string> exported;
  std::istringstream lines(read_file(MIRT_SOURCE_DIR "/tests/exports.txt"));
  for (std::string line; std::getline(lines, line);) {
    const bool is_c = line.find_first_of("#:( ") == std::string::npos;
    if (is_c && !line.empty() && kFunctions.count(line) == 0) exported.insert(line);
  }
  EXPECT_EQ(items, exported);
}

std::vector<Param> as_params(const std::vector<FI_PARAM_S>& records) {
  std::vector<Param> params;
  params.reserve(records.size());
  for (const FI_PARAM_S& record : records) params.push_back({record.name, record.value});
  return params;
}

// Whether the item accepts so many parameters, and these names.
TEST(Tables, HaveTheNumberAndNamesOfTheParameters) {
  for (const ItemRow& row : all_items()) {
    const bool by_position = row.params->lookup == ParamList::Lookup::kByPosition;
    if (!by_position || row.params->further == ParamList::Further::kAccepted) continue;
    if (row.source.subject == Subject::kAction) continue;  // it would be done
    SCOPED_TRACE(row.name);
    const auto item = reinterpret_cast<Item>(dlsym(RTLD_DEFAULT, row.name));
    ASSERT_NE(item, nullptr);
    std::vector<FI_PARAM_S> records;
    for (const ParamRow& param : *row.params) records.push_back(parameter(param.name, "no such"));
    const auto accepts = [&] {
      ItemCall call(records);
      call.run(item);
      return strncmp(call.result.reason, "Input parameter", 15) != 0;
    };
    EXPECT_TRUE(accepts() && check_list(row, as_params(records)).empty());
    if (records.empty()) continue;  // such items ignore parameters
    records[0].name[0] = '?';
    EXPECT_EQ(accepts(), check_list(row, as_params(records)).empty()) << "another name";
    records.pop_back();
    EXPECT_EQ(accepts(), check_list(row, as_params(records)).empty()) << "one less";
  }
}

// For each error code: the parameters without which no report is sent.
TEST(Tables, HaveTheErrorCodesAndWhatEachNeeds) {
  mirt_host_set_report_handler([](const MIRT_HOST_REPORT_S*, void*) { return 0; }, nullptr);
  const auto item = reinterpret_cast<int (*)(int, FI_PARAM_S*, FI_CONTEXT_S*, FI_RESULT_S*)>(
      dlsym(RTLD_DEFAULT, "SendErrRpt"));
  ASSERT_NE(item, nullptr);
  const ItemRow& row = *find_item("SendErrRpt");
  int sent = 0;
  for (uint32_t code = 0xF0000200; code < 0xF0000220; ++code) {
    for (const char* const missing : {"", "ResId", "ProcessName", "ProcessMoudleId", "UserData"}) {
      std::vector<FI_PARAM_S> records{parameter("ErrCode", std::to_string(code))};
      for (const char* const name : {"ResId", "ProcessName", "ProcessMoudleId", "UserData"}) {
        if (std::string_view(name) != missing) records.push_back(parameter(name, "5"));
      }
      FI_RESULT_S result{};
      const bool is_sent =
          item(static_cast<int>(records.size()), records.data(), nullptr, &result) == 0;
      const std::vector<Param> params = as_params(records);
      EXPECT_EQ(check_list(row, params).empty() && check_values(row, params).empty(), is_sent)
          << std::hex << code << " without " << missing;
      sent += is_sent ? 1 : 0;
    }
  }
  EXPECT_EQ(sent, 9);
  mirt_host_set_report_handler(nullptr, nullptr);
}

// The item measures for exactly the seconds that the check accepts.
TEST(Tables, HaveTheBoundsOfThePeriod) {
  const ItemRow& row = *find_item("GetProcessSysCPUFuzzyMatchCfgPeriod");
  for (const std::string text : {"-1", "0", "1", "2", "239", "240", "241", "", "x", "1.5", "1s"}) {
    const std::vector<Param> params{{"ProcessName", "x"}, {"Period", text}};
    const bool is_used = std::to_string(ConvertStr2PeriodUS(text.c_str())) == text + "000000";
    EXPECT_EQ(check_values(row, params).empty(), is_used) << text;
    EXPECT_TRUE(!is_used || interval_seconds(row, params) == std::stod(text)) << text;
  }
}

}  // namespace
