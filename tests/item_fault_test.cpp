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
FAILS(get_disk_usage(const char*))
FAILS(get_sys_mem())
FAILS(get_sys_free_mem())

namespace {

struct Fault {
  Item item;
  const char* text;
  size_t argc = 1;
};

TEST(ItemFault, IsReportedWithTheSampleAsTaken) {
  for (const auto& [item, text, argc] :
       {Fault{GetProcessSysCPU, "Process Cpu Usage"}, Fault{GetProcessCoreCPU, "Process Cpu Usage"},
        Fault{GetProcessSysCPUExtern, "Process Cpu Usage"},
        Fault{GetProcessCoreCPUExtern, "Process Cpu Usage"},
        Fault{GetProcessSysCPUFuzzyMatch, "Process Array Sys Cpu Usage"},
        Fault{GetProcessCoreCPUFuzzyMatch, "Process Array Sys Cpu Usage"},
        Fault{GetProcessSysCPUFuzzyMatchCfgPeriod, "Process Array Sys Cpu Usage", 2},
        Fault{GetProcessCoreCPUFuzzyMatchCfgPeriod, "Process Array Sys Cpu Usage", 2},
        Fault{GetProcessMemory, "Process Mem Usage"},
        Fault{GetProcessMemoryExtern, "Process Mem Usage"},
        Fault{GetProcessMemoryFuzzyMatch, "Process Array Mem Usage"},
        Fault{GetProcessHandle, "Process Handle Usage"},
        Fault{GetProcessHandleExtern, "Process Handle Usage"},
        Fault{GetProcessHandleFuzzyMatch, "Process Handle Usage"},
        Fault{GetDiskUsage, "Disk Usage"}, Fault{GetSysCPU, "Sys CPU Usage"},
        Fault{GetSysUsrCPU, "Sys CPU Usage"}, Fault{GetSysMemory, "Sys Memory"},
        Fault{GetSysFreeMemory, "Sys Memory"}}) {
    ItemCall call({parameter("ProcessName", "app"), parameter("Period", "1")});
    call.argv.resize(argc);
    EXPECT_EQ(call.run(item), -1.0F);
    EXPECT_EQ(call.result.result, -1);
    EXPECT_EQ(call.result.reason, "Get " + std::string(text) + " Fault, Return -2.500000.");
    EXPECT_EQ(call.result.pid, -5) << "left alone";
  }
}

}  // namespace
