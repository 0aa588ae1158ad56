// This program replaces the library's exported samplers with samplers that fail. Most samplers
// never fail, but every item has a text for the failure.
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
FAILS(get_disk_usage(const char*))
FAILS(get_sys_mem())
FAILS(get_sys_free_mem())

namespace {

const std::pair<const char*, std::vector<Item>> kFaults[] = {
    {"Process Cpu Usage",
     {GetProcessSysCPU, GetProcessCoreCPU, GetProcessSysCPUExtern, GetProcessCoreCPUExtern}},
    {"Process Array Sys Cpu Usage",
     {GetProcessSysCPUFuzzyMatch, GetProcessCoreCPUFuzzyMatch, GetProcessSysCPUFuzzyMatchCfgPeriod,
      GetProcessCoreCPUFuzzyMatchCfgPeriod}},
    {"Process Mem Usage", {GetProcessMemory, GetProcessMemoryExtern}},
    {"Process Array Mem Usage", {GetProcessMemoryFuzzyMatch}},
    {"Process Handle Usage",
     {GetProcessHandle, GetProcessHandleExtern, GetProcessHandleFuzzyMatch}},
    {"Disk Usage", {GetDiskUsage}},
    {"Sys CPU Usage", {GetSysCPU, GetSysUsrCPU}},
    {"Sys Memory", {GetSysMemory, GetSysFreeMemory}}};

TEST(ItemFault, IsReportedWithTheSampleAsTaken) {
  for (const auto& [text, items] : kFaults) {
    for (const Item item : items) {
      const bool with_period = item == GetProcessSysCPUFuzzyMatchCfgPeriod ||
                               item == GetProcessCoreCPUFuzzyMatchCfgPeriod;
      ItemCall call(params(with_period ? "ProcessName=app;Period=1" : "ProcessName=app"));
      EXPECT_EQ(call.run(item), -1.0F);
      EXPECT_EQ(call.result.result, -1);
      EXPECT_EQ(call.result.reason, "Get " + std::string(text) + " Fault, Return -2.500000.");
      EXPECT_EQ(call.result.pid, -5) << "left alone";
    }
  }
}

}  // namespace
