// The resource items: each one is a table row that run_item() executes.
#include "common_plugin.h"
#include "context_overlay.h"
#include "item_result.h"
#include "mirt_items.h"

namespace {

using Plugin = MIRT_Linux_Plugin;

constexpr int kFuzzyPeriodUs = 500000;

enum class Scale { kMachine, kPerCore };
enum class ResultFields { kValue, kValueAndPid };

// One row per item: everything that differs between the items.
struct ResourceItem {
  bool (*check)(Plugin& plugin, int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                FI_RESULT_S* result);
  float (*sample)(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& pid);
  Scale scale;
  ResultFields fields;
  const char* fault;  // takes one %f, the unscaled sample; null if a sample is never below 0
};

float run_item(const ResourceItem& row, int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
               FI_RESULT_S* result) {
  Plugin plugin;
  if (!row.check(plugin, argc, argv, context, result)) return -1.0F;
  int pid = 0;
  const float value = row.sample(plugin, argv, context, pid);
  if (value < 0.0F) {
    set_failure(*result, row.fault, static_cast<double>(value));
    return -1.0F;
  }
  result->result = 0;
  if (row.fields == ResultFields::kValueAndPid) result->pid = pid;
  return row.scale == Scale::kPerCore ? value * static_cast<float>(Plugin::get_cpu_core_num())
                                      : value;
}

// The checks, named after the parameters they require.

bool one_parameter(Plugin& plugin, int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                   FI_RESULT_S* result) {
  return plugin.input_para_check(argc, argv, context, result);
}

bool name_and_period(Plugin& plugin, int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                     FI_RESULT_S* result) {
  return plugin.input_para_check_cfgperiod(argc, argv, context, result);
}

bool name_and_command(Plugin& plugin, int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                      FI_RESULT_S* result) {
  return plugin.input_para_check_precmd(argc, argv, context, result);
}

bool result_and_context(Plugin& /*plugin*/, int /*argc*/, FI_PARAM_S* /*argv*/,
                        FI_CONTEXT_S* context, FI_RESULT_S* result) {
  return result != nullptr && context != nullptr;
}

bool result_alone(Plugin& /*plugin*/, int /*argc*/, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/,
                  FI_RESULT_S* result) {
  return result != nullptr;
}

// The samples. A sample that reports a PID stores it in pid.

float followed_cpu(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& /*pid*/) {
  ContextOverlay<process_cpu_context_t> overlay(*context);
  return plugin.get_process_cpu(argv[0].value, overlay->pid, overlay->syscputime,
                                overlay->procputime);
}

float followed_memory(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& /*pid*/) {
  ContextOverlay<process_mem_context_t> overlay(*context);
  return plugin.get_process_memory(argv[0].value, overlay->pid);
}

float followed_handle(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& /*pid*/) {
  ContextOverlay<process_handle_context_t> overlay(*context);
  return plugin.get_process_handle(argv[0].value, overlay->pid);
}

float followed_existence(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& /*pid*/) {
  ContextOverlay<process_exist_context_t> overlay(*context);
  return plugin.get_process_exist(argv[0].value, overlay->pid);
}

// Searches for the process only if the command's output matches; otherwise the process counts as
// existing.
float gated_existence(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* context, int& pid) {
  if (Plugin::exec_pre_cmd(argv[1].value, argv[2].value) != 0) return 1.0F;
  return followed_existence(plugin, argv, context, pid);
}

float prefix_cpu(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, int& pid) {
  return plugin.get_process_cpu_extern(argv[0].value, &pid);
}

template <PROCESS_RESOURCE_E kResource>
float prefix_resource(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, int& pid) {
  return plugin.get_process_resource(kResource, argv[0].value, &pid);
}

float pattern_cpu_over(Plugin& plugin, const char* pattern, int period_us, int& pid) {
  plugin.max_usage_pid = 0;
  const float value = plugin.get_process_cpu(pattern, period_us);
  pid = plugin.max_usage_pid;
  return value;
}

float pattern_cpu(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, int& pid) {
  return pattern_cpu_over(plugin, argv[0].value, kFuzzyPeriodUs, pid);
}

float pattern_cpu_configured(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/,
                             int& pid) {
  return pattern_cpu_over(plugin, argv[0].value, ConvertStr2PeriodUS(argv[1].value), pid);
}

template <float (Plugin::*kHighest)(const char*)>
float pattern_highest(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, int& pid) {
  plugin.max_usage_pid = 0;
  const float value = (plugin.*kHighest)(argv[0].value);
  pid = plugin.max_usage_pid;
  return value;
}

float disk_usage(Plugin& plugin, FI_PARAM_S* argv, FI_CONTEXT_S* /*context*/, int& /*pid*/) {
  return plugin.get_disk_usage(argv[0].value);
}

float system_cpu(Plugin& plugin, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, int& /*pid*/) {
  return plugin.get_sys_cpu(ContextOverlay<sys_cpu_context_t>(*context).get());
}

float system_user_cpu(Plugin& plugin, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* context, int& /*pid*/) {
  return plugin.get_sys_usr_cpu(ContextOverlay<sys_usr_cpu_context_t>(*context).get());
}

float system_memory(Plugin& plugin, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/, int& /*pid*/) {
  return plugin.get_sys_mem();
}

float system_free_memory(Plugin& plugin, FI_PARAM_S* /*argv*/, FI_CONTEXT_S* /*context*/,
                         int& /*pid*/) {
  return plugin.get_sys_free_mem();
}

constexpr auto prefix_memory = prefix_resource<PROCESS_RESOURCE_MEM>;
constexpr auto prefix_handle = prefix_resource<PROCESS_RESOURCE_HANDLE>;
constexpr auto prefix_existence = prefix_resource<PROCESS_RESOURCE_EXIST>;
constexpr auto pattern_memory = pattern_highest<&Plugin::get_process_memory>;
constexpr auto pattern_handle = pattern_highest<&Plugin::get_process_handle>;

constexpr auto kMachine = Scale::kMachine;
constexpr auto kPerCore = Scale::kPerCore;
constexpr auto kValue = ResultFields::kValue;
constexpr auto kValueAndPid = ResultFields::kValueAndPid;

constexpr char kCpuFault[] = "Get Process Cpu Usage Fault, Return %f.";
constexpr char kCpuArrayFault[] = "Get Process Array Sys Cpu Usage Fault, Return %f.";
constexpr char kMemoryFault[] = "Get Process Mem Usage Fault, Return %f.";
constexpr char kMemoryArrayFault[] = "Get Process Array Mem Usage Fault, Return %f.";
constexpr char kHandleFault[] = "Get Process Handle Usage Fault, Return %f.";
constexpr char kDiskFault[] = "Get Disk Usage Fault, Return %f.";
constexpr char kSystemCpuFault[] = "Get Sys CPU Usage Fault, Return %f.";
constexpr char kSystemMemoryFault[] = "Get Sys Memory Fault, Return %f.";

}  // namespace

// Exports one row under its item's name.
#define ITEM(name, ...)                                                                \
  float name(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context, FI_RESULT_S* result) { \
    static constexpr ResourceItem kRow{__VA_ARGS__};                                   \
    return run_item(kRow, argc, argv, context, result);                                \
  }

// clang-format off
ITEM(GetProcessSysCPU,        one_parameter, followed_cpu,    kMachine, kValue,       kCpuFault)
ITEM(GetProcessSysCPUExtern,  one_parameter, prefix_cpu,      kMachine, kValueAndPid, kCpuFault)
ITEM(GetProcessCoreCPU,       one_parameter, followed_cpu,    kPerCore, kValue,       kCpuFault)
ITEM(GetProcessCoreCPUExtern, one_parameter, prefix_cpu,      kPerCore, kValueAndPid, kCpuFault)
ITEM(GetProcessMemory,        one_parameter, followed_memory, kMachine, kValue,       kMemoryFault)
ITEM(GetProcessMemoryExtern,  one_parameter, prefix_memory,   kMachine, kValueAndPid, kMemoryFault)
ITEM(GetProcessHandle,        one_parameter, followed_handle, kMachine, kValue,       kHandleFault)
ITEM(GetProcessHandleExtern,  one_parameter, prefix_handle,   kMachine, kValueAndPid, kHandleFault)

ITEM(GetProcessSysCPUFuzzyMatch,
     one_parameter,   pattern_cpu,            kMachine, kValueAndPid, kCpuArrayFault)
ITEM(GetProcessSysCPUFuzzyMatchCfgPeriod,
     name_and_period, pattern_cpu_configured, kMachine, kValueAndPid, kCpuArrayFault)
ITEM(GetProcessCoreCPUFuzzyMatch,
     one_parameter,   pattern_cpu,            kPerCore, kValueAndPid, kCpuArrayFault)
ITEM(GetProcessCoreCPUFuzzyMatchCfgPeriod,
     name_and_period, pattern_cpu_configured, kPerCore, kValueAndPid, kCpuArrayFault)
ITEM(GetProcessMemoryFuzzyMatch,
     one_parameter,   pattern_memory,         kMachine, kValueAndPid, kMemoryArrayFault)
ITEM(GetProcessHandleFuzzyMatch,
     one_parameter,   pattern_handle,         kMachine, kValueAndPid, kHandleFault)

ITEM(IsExistProcess,       one_parameter,    followed_existence, kMachine, kValue,       nullptr)
ITEM(IsExistProcessExtern, one_parameter,    prefix_existence,   kMachine, kValueAndPid, nullptr)
ITEM(IsExistProcessPreCmd, name_and_command, gated_existence,    kMachine, kValue,       nullptr)

ITEM(GetDiskUsage,     one_parameter,      disk_usage,         kMachine, kValue, kDiskFault)
ITEM(GetSysCPU,        result_and_context, system_cpu,         kMachine, kValue, kSystemCpuFault)
ITEM(GetSysUsrCPU,     result_and_context, system_user_cpu,    kMachine, kValue, kSystemCpuFault)
ITEM(GetSysMemory,     result_alone,       system_memory,      kMachine, kValue, kSystemMemoryFault)
ITEM(GetSysFreeMemory, result_alone,       system_free_memory, kMachine, kValue, kSystemMemoryFault)
// clang-format on
