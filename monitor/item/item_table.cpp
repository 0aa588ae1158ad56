#include "item/item_table.h"

#include <algorithm>

#include "text/wording.h"

namespace {

using Name = ParamRow::Name;
using Presence = ParamRow::Presence;
using Value = ParamRow::Value;
using Lookup = ParamList::Lookup;
using Further = ParamList::Further;

template <size_t N>
constexpr ParamList list(const ParamRow (&rows)[N], Lookup lookup, Further further) {
  return {rows, N, lookup, further};
}

constexpr ParamRow one_free(const char* name, Value value, const char* meaning) {
  return {name, Name::kFree, Presence::kRequired, value, meaning};
}

constexpr ParamRow required(const char* name, Value value, const char* meaning) {
  return {name, Name::kFixed, Presence::kRequired, value, meaning};
}

constexpr ParamRow optional(const char* name, Value value, const char* meaning) {
  return {name, Name::kFixed, Presence::kOptional, value, meaning};
}

constexpr ParamRow kExactRows[] = {
    one_free("ProcessName", Value::kExact, "the whole command line, exactly")};
constexpr ParamRow kPrefixRows[] = {
    one_free("ProcessName", Value::kPrefix, "the beginning of the command line")};
constexpr char kPatternMeaning[] = "pattern for the command line: * any text, ? any character";
constexpr ParamRow kPatternRows[] = {one_free("ProcessName", Value::kPattern, kPatternMeaning)};
constexpr ParamRow kPatternPeriodRows[] = {
    required("ProcessName", Value::kPattern, kPatternMeaning),
    required("Period", Value::kSeconds, "whole seconds to measure over, 1 to 240")};
constexpr ParamRow kPreCmdRows[] = {
    required("ProcessName", Value::kExact, "the whole command line, exactly"),
    required("PreCmd", Value::kCommand, "shell command that runs first, on every call"),
    required("RetKeyWords", Value::kKeyWords,
             "the item searches only if the output starts with this text")};
constexpr ParamRow kDirectoryRows[] = {
    one_free("Directory", Value::kDirectory, "a directory of the file system")};
constexpr ParamRow kHeartBeatRows[] = {
    required("ProcessName", Value::kShortName, "name of the supervised process, exactly"),
    required("ProcessMoudleId", Value::kModule, "its module id in the heartbeat table, decimal")};
// The valid values depend on the error code.
constexpr ParamRow kReportRows[] = {
    required("ErrCode", Value::kAny,
             "0xF0000203 CPU high, 0xF0000204 memory high, 0xF000020F heartbeat lost"),
    required("ProcessMoudleId", Value::kAny, "module id that the report concerns"),
    optional("ResId", Value::kAny, "resource id; the first two codes need it"),
    optional("ProcessName", Value::kAny,
             "process whose heartbeat was lost; the third code needs it"),
    optional("UserData", Value::kAny, "flow id of the process"),
    optional("RecoverCmd", Value::kAny, "never part of the report")};
constexpr ParamRow kErrorRows[] = {
    required("ErrCode", Value::kAny, "the error's code, decimal or after 0x")};
constexpr ParamRow kTargetRows[] = {optional(
    "UserData", Value::kThread, "decimal id to signal; default: the first app_data process")};

constexpr ParamList kNothing{nullptr, 0, Lookup::kByPosition, Further::kRefused};
constexpr ParamList kExact = list(kExactRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kPrefix = list(kPrefixRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kPattern = list(kPatternRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kPatternPeriod =
    list(kPatternPeriodRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kPreCmd = list(kPreCmdRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kDirectory = list(kDirectoryRows, Lookup::kByPosition, Further::kRefused);
constexpr ParamList kHeartBeat = list(kHeartBeatRows, Lookup::kByName, Further::kRefused);
constexpr ParamList kReport = list(kReportRows, Lookup::kByName, Further::kAccepted);
// The item never copies its first parameter to the text, so the code must be the first.
constexpr ParamList kError = list(kErrorRows, Lookup::kByPosition, Further::kAccepted);
constexpr ParamList kTarget = list(kTargetRows, Lookup::kByPosition, Further::kRefused);

constexpr Returns kFloat = Returns::kFloat;
constexpr Returns kInt = Returns::kInt;
constexpr Reports kValue = Reports::kValue;
constexpr Reports kPid = Reports::kValueAndPid;
constexpr Reports kThread = Reports::kValueAndThread;
constexpr Reports kFlowId = Reports::kValueAndFlowId;
constexpr Context kNeeded = Context::kNeeded;
constexpr Context kUnused = Context::kUnused;
constexpr Interval kNone = Interval::kNone;
constexpr Interval kHalf = Interval::kHalfSecond;
constexpr Interval kPeriod = Interval::kPeriodParameter;

constexpr Source kStat{Subject::kMachine, Match::kNone, "/proc/stat"};
constexpr Source kMeminfo{Subject::kMachine, Match::kNone, "/proc/meminfo"};
constexpr Source kDisk{Subject::kFileSystem, Match::kNone, ""};
constexpr Source kHeart{Subject::kHeartbeat, Match::kNone, ""};
constexpr Source kAction{Subject::kAction, Match::kNone, ""};
constexpr Source kExists{Subject::kExistence, Match::kExact, ""};
constexpr Source kExistsPrefix{Subject::kExistence, Match::kPrefix, ""};
constexpr Source kHung{Subject::kHungThreads, Match::kWildcard, ""};

constexpr Source of_process(Match match, const char* file) {
  return {Subject::kProcess, match, file};
}

// clang-format off
constexpr ItemRow kItems[] = {
    {"GetSysCPU", kFloat, "%", &kNothing, kValue, kNeeded, kNone, kStat,
     "CPU use of the machine since the previous call; the first call measures since boot"},
    {"GetSysUsrCPU", kFloat, "%", &kNothing, kValue, kNeeded, kNone, kStat,
     "user-mode share of the machine's CPU time since the previous call"},
    {"GetSysMemory", kFloat, "%", &kNothing, kValue, kUnused, kNone, kMeminfo,
     "memory in use"},
    {"GetSysFreeMemory", kFloat, "MiB", &kNothing, kValue, kUnused, kNone, kMeminfo,
     "free memory"},
    {"GetDiskUsage", kFloat, "%", &kDirectory, kValue, kNeeded, kNone, kDisk,
     "used share of the file system that contains a directory"},
    {"GetProcessSysCPU", kFloat, "%", &kExact, kValue, kNeeded, kNone, of_process(Match::kExact, "stat"),
     "CPU share of one process since the previous call: 100 is the whole machine"},
    {"GetProcessSysCPUExtern", kFloat, "%", &kPrefix, kPid, kNeeded, kHalf, of_process(Match::kPrefix, "stat"),
     "highest CPU share of processes with this prefix over 0.5 s: 100 is the whole machine"},
    {"GetProcessSysCPUFuzzyMatch", kFloat, "%", &kPattern, kPid, kNeeded, kHalf, of_process(Match::kWildcard, "stat"),
     "highest CPU share of matching processes over 0.5 s: 100 is the whole machine"},
    {"GetProcessSysCPUFuzzyMatchCfgPeriod", kFloat, "%", &kPatternPeriod, kPid, kNeeded, kPeriod, of_process(Match::kWildcard, "stat"),
     "highest CPU share of matching processes over Period: 100 is the whole machine"},
    {"GetProcessCoreCPU", kFloat, "% core", &kExact, kValue, kNeeded, kNone, of_process(Match::kExact, "stat"),
     "CPU share of one process since the previous call: 100 is one core"},
    {"GetProcessCoreCPUExtern", kFloat, "% core", &kPrefix, kPid, kNeeded, kHalf, of_process(Match::kPrefix, "stat"),
     "highest CPU share of processes with this prefix over 0.5 s: 100 is one core"},
    {"GetProcessCoreCPUFuzzyMatch", kFloat, "% core", &kPattern, kPid, kNeeded, kHalf, of_process(Match::kWildcard, "stat"),
     "highest CPU share of matching processes over 0.5 s: 100 is one core"},
    {"GetProcessCoreCPUFuzzyMatchCfgPeriod", kFloat, "% core", &kPatternPeriod, kPid, kNeeded,
     kPeriod, of_process(Match::kWildcard, "stat"), "highest CPU share of matching processes over Period: 100 is one core"},
    {"GetProcessMemory", kFloat, "MiB", &kExact, kValue, kNeeded, kNone, of_process(Match::kExact, "status"),
     "resident memory of one process"},
    {"GetProcessMemoryExtern", kFloat, "MiB", &kPrefix, kPid, kNeeded, kNone, of_process(Match::kPrefix, "status"),
     "highest resident memory of processes with this prefix"},
    {"GetProcessMemoryFuzzyMatch", kFloat, "MiB", &kPattern, kPid, kNeeded, kNone, of_process(Match::kWildcard, "status"),
     "highest resident memory of matching processes"},
    {"GetProcessHandle", kFloat, "%", &kExact, kValue, kNeeded, kNone, of_process(Match::kExact, "fd"),
     "open files of one process, in percent of its limit"},
    {"GetProcessHandleExtern", kFloat, "%", &kPrefix, kPid, kNeeded, kNone, of_process(Match::kPrefix, "fd"),
     "highest open-files percentage of processes with this prefix"},
    {"GetProcessHandleFuzzyMatch", kFloat, "%", &kPattern, kPid, kNeeded, kNone, of_process(Match::kWildcard, "fd"),
     "highest open-files percentage of matching processes"},
    {"IsExistProcess", kFloat, "", &kExact, kValue, kNeeded, kNone, kExists,
     "1 if a process with this command line runs, else 0"},
    {"IsExistProcessExtern", kFloat, "", &kPrefix, kPid, kNeeded, kNone, kExistsPrefix,
     "1 if a process with this prefix runs, else 0"},
    {"IsExistProcessPreCmd", kFloat, "", &kPreCmd, kValue, kNeeded, kNone, kExists,
     "like IsExistProcess if the pre-command prints the expected text, else 1"},
    {"ProcessHeartBeat", kFloat, "", &kHeartBeat, kFlowId, kNeeded, kNone, kHeart,
     "0 if the heartbeat of a process with a flow id did not change, else 1"},
    {"SendErrRpt", kInt, "", &kReport, kValue, kUnused, kNone, kAction,
     "sends an error report to the framework; 0 if it was sent"},
    {"SendErrRptExtend", kInt, "", &kError, kValue, kUnused, kNone, kAction,
     "sends an error whose text is the values of the other parameters; 0 if it was sent"},
    {"CheckProcessStatusIsD", kFloat, "", &kPattern, kThread, kNeeded, kNone, kHung,
     "1 if a thread of a matching process hangs in D state, else 0; reports the thread's id"},
    {"CheckProcessStatusIsDForAppData", kFloat, "", &kPattern, kThread, kNeeded, kNone, kHung,
     "like CheckProcessStatusIsD, and signals the hung thread if recovery is allowed"},
    {"RebootAppData", kInt, "", &kTarget, kValue, kUnused, kNone, kAction,
     "signals app_data if recovery is allowed; 0 if the signal was sent"},
};
// clang-format on

}  // namespace

const std::vector<ItemRow>& all_items() {
  static const std::vector<ItemRow> items(std::begin(kItems), std::end(kItems));
  return items;
}

const ItemRow* find_item(std::string_view name) {
  const auto* const found = std::find_if(std::begin(kItems), std::end(kItems),
                                         [&](const ItemRow& row) { return row.name == name; });
  return found == std::end(kItems) ? nullptr : found;
}

std::string unknown_item_text(const std::string& name) {
  std::vector<std::string_view> names;
  for (const ItemRow& row : kItems) names.emplace_back(row.name);
  const std::string hint = did_you_mean(name, names);
  return "unknown item " + in_quotes(name) +
         (hint.empty() ? ", expected one that \"mirt-monitor items\" lists" : hint);
}
