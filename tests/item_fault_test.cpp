// The samplers of this program stand before the library's, as its exported names allow, and fail:
// most of them never do by themselves, and yet every item has its text for it.
#include <gtest/gtest.h>

#include "common_plugin.h"
#include "item_call.h"
#include "mirt_items.h"

#define FAILS(sampler)               \
  float MIRT_Linux_Plugin::sampler { \
    return -2.5F;                    \
  }

using Ticks = unsigned long long;
FAILS(get_process_cpu(const char*, pid_t&, Ticks&, Ticks&))
FAILS(get_process_cpu(const char*, int))
FAILS(get_process_cpu_extern(const char*, int*))
FAILS(get_process_memory(const char*, pid_t&))
FAILS(get_process_memory(const char*))
FAILS(get_process_handle(const char*, pid_t&))
FAILS(get_process_handle(const char*))
FAILS(get_process_resource(PROCESS_RESOURCE_E, const char*, int*))
FAILS(get_sys_cpu(sys_cpu_context_t*))
FAILS(get_sys_usr_cpu(sys_usr_cpu_context_t*))
FAILS(get_sys_mem())
FAILS(get_sys_free_mem())

namespace {

struct FaultCase {
  const char* name;
  Item item;
  const char* text;
};
class ItemFault : public testing::TestWithParam<FaultCase> {};

TEST_P(ItemFault, IsReportedWithTheSampleAsTaken) {
  ItemCall call({parameter("ProcessName", "app")});
  if (std::string(GetParam().name).find("CfgPeriod") != std::string::npos) {
    call.argv.push_back(parameter("Period", "1"));
  }
  EXPECT_EQ(call.run(GetParam().item), -1.0F);
  EXPECT_EQ(call.result.result, -1);
  EXPECT_EQ(call.result.reason,
            "Get " + std::string(GetParam().text) + " Fault, Return -2.500000.");
  EXPECT_EQ(call.result.pid, -5) << "left alone";
}

#define ROW(item, text) \
  FaultCase {           \
#item, item, text   \
  }
INSTANTIATE_TEST_SUITE_P(
    All, ItemFault,
    testing::Values(ROW(GetProcessSysCPU, "Process Cpu Usage"),
                    ROW(GetProcessCoreCPU, "Process Cpu Usage"),
                    ROW(GetProcessSysCPUExtern, "Process Cpu Usage"),
                    ROW(GetProcessCoreCPUExtern, "Process Cpu Usage"),
                    ROW(GetProcessMemory, "Process Mem Usage"),
                    ROW(GetProcessMemoryExtern, "Process Mem Usage"),
                    ROW(GetProcessHandle, "Process Handle Usage"),
                    ROW(GetProcessHandleExtern, "Process Handle Usage"),
                    ROW(GetProcessSysCPUFuzzyMatch, "Process Array Sys Cpu Usage"),
                    ROW(GetProcessSysCPUFuzzyMatchCfgPeriod, "Process Array Sys Cpu Usage"),
                    ROW(GetProcessCoreCPUFuzzyMatch, "Process Array Sys Cpu Usage"),
                    ROW(GetProcessCoreCPUFuzzyMatchCfgPeriod, "Process Array Sys Cpu Usage"),
                    ROW(GetProcessMemoryFuzzyMatch, "Process Array Mem Usage"),
                    ROW(GetProcessHandleFuzzyMatch, "Process Handle Usage"),
                    ROW(GetSysCPU, "Sys CPU Usage"), ROW(GetSysUsrCPU, "Sys CPU Usage"),
                    ROW(GetSysMemory, "Sys Memory"), ROW(GetSysFreeMemory, "Sys Memory")),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
