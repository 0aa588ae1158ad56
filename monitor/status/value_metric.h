// The metric, and its unit, for the value of each item.
#ifndef MONITOR_VALUE_METRIC_H
#define MONITOR_VALUE_METRIC_H

#include <cstddef>
#include <string_view>

#include "item/item_table.h"

struct ValueMetric {
  const char* name;
  const char* help;
  std::string_view items[2];  // the names of its items begin with one of these
};

// Metrics have base units: a share is a ratio from 0 to 1, a size is in bytes.
constexpr ValueMetric kValueMetrics[] = {
    {"mirt_process_cpu_ratio",
     "Processor time of the process, as a share of the whole machine.",
     {"GetProcessSysCPU", "GetProcessCoreCPU"}},
    {"mirt_process_memory_bytes", "Resident memory of the process.", {"GetProcessMemory"}},
    {"mirt_process_open_fds_ratio",
     "Open files of the process, as a share of its limit.",
     {"GetProcessHandle"}},
    {"mirt_process_running", "1 if the process runs, else 0.", {"IsExistProcess"}},
    {"mirt_process_hung", "1 if a thread of the process hangs, else 0.", {"CheckProcessStatusIsD"}},
    {"mirt_heartbeat_fresh",
     "0 if the heartbeat of the process has stopped, else 1.",
     {"ProcessHeartBeat"}},
    {"mirt_machine_cpu_ratio", "Busy processor time, as a share of all.", {"GetSysCPU"}},
    {"mirt_machine_user_cpu_ratio",
     "Processor time in user mode, as a share of all.",
     {"GetSysUsrCPU"}},
    {"mirt_machine_memory_ratio",
     "Memory in use, caches included, as a share of all.",
     {"GetSysMemory"}},
    {"mirt_machine_free_memory_bytes", "Free memory of the machine.", {"GetSysFreeMemory"}},
    {"mirt_filesystem_used_ratio",
     "Used share of the file system that contains the folder.",
     {"GetDiskUsage"}},
};

constexpr size_t kValueMetricCount = sizeof kValueMetrics / sizeof kValueMetrics[0];

// The index in kValueMetrics; kValueMetricCount for an item that measures nothing.
size_t value_metric_of(const ItemRow& item);

// The item's value in the unit of its metric.
double metric_value(const ItemRow& item, double value);

#endif
