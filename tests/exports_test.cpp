#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

// Every name that the library exports. Plain ones are C symbols; the parameters of the C++ ones are
// pinned by the tests that call them; a name stands here as often as it is overloaded.
constexpr char kPlainNames[] =
    "CheckProcessExist CheckProcessStatusIsD CheckProcessStatusIsDForAppData FreeAllProcessList "
    "GetAllProcessCoreCPU GetAllProcessRssMem GetDiskUsage GetProcessCoreCPU "
    "GetProcessCoreCPUExtern GetProcessCoreCPUFuzzyMatch GetProcessCoreCPUFuzzyMatchCfgPeriod "
    "GetProcessHandle GetProcessHandleExtern GetProcessHandleFuzzyMatch GetProcessMemory "
    "GetProcessMemoryExtern GetProcessMemoryFuzzyMatch GetProcessPid GetProcessPidExtern "
    "GetProcessPidFuzzy GetProcessSysCPU GetProcessSysCPUExtern GetProcessSysCPUFuzzyMatch "
    "GetProcessSysCPUFuzzyMatchCfgPeriod GetSysCPU GetSysFreeMemory GetSysMemory GetSysUsrCPU "
    "IsExistProcess IsExistProcessExtern IsExistProcessPreCmd KillProcess MIRT_AgentShmInit "
    "ProcessHeartBeat RebootAppData SendErrRpt SendErrRptExtend ";
constexpr char kFunctions[] =
    "CheckProcIdAndProcName CheckProcessStatusIsDIntenal ConvertStr2PeriodUS ForeachProcDir "
    "GetParaValue MIRT_GetDStatusCheckRedundancy isDigit ";
constexpr char kMembers[] =
    "alloc_thread_info change_cmdlie_to_str check_pid_with_name check_process_status_is_D_Fuzzy "
    "check_process_status_is_D_byPid check_with_cmdline clean_thread_info_set del_thread_info "
    "exec_pre_cmd find_thread_info get_allpid "
    "get_cmdline_bypid get_cpu_core_num get_cpu_process_occupy get_cpu_total_occupy "
    "get_disk_usage get_handle_count get_handle_max get_handle_usage get_items get_pcpu "
    "get_phy_mem get_pid_byname get_pid_byname get_proc_status_info get_process_cpu "
    "get_process_cpu get_process_cpu_extern get_process_exist get_process_handle "
    "get_process_handle get_process_memory get_process_memory get_process_resource "
    "get_procname_bypid get_sys_cpu get_sys_cpu_tick get_sys_free_mem get_sys_mem "
    "get_sys_mem_info get_sys_usr_cpu input_para_check input_para_check_cfgperiod "
    "input_para_check_precmd input_para_check_RebootAppData is_match_pid_tid "
    "print_proc_status_info read_file str_fuzzy_match ";

std::multiset<std::string> names_in(const char* list, const std::string& before,
                                    const std::string& behind) {
  std::multiset<std::string> names;
  std::istringstream words(list);
  for (std::string word; words >> word;) names.insert(before + word + behind);
  return names;
}

TEST(Exports, AreExactlyTheContract) {
  std::multiset<std::string> expected = names_in(kPlainNames, "", ""), found;
  expected.merge(names_in(kFunctions, "", "()"));
  expected.merge(names_in(kMembers, "MIRT_Linux_Plugin::", "()"));
  FILE* const nm = popen(MIRT_NM " -DC --defined-only " MIRT_PLUGIN_PATH, "r");
  ASSERT_NE(nm, nullptr);
  char line[1024];
  while (fgets(line, sizeof line, nm) != nullptr) {
    // "0000000000005810 T GetParaValue(int, tagFI_PARAM_S*, char const*)"
    const std::string text = line;
    const size_t begin = text.find(' ') + 3, end = text.find_first_of("(\n");
    const std::string name = text.substr(begin, end - begin) + (text[end] == '(' ? "()" : "");
    if (name.find("asan") == std::string::npos) found.insert(name);  // the sanitizers' own
  }
  EXPECT_EQ(pclose(nm), 0);
  std::vector<std::string> differences;
  std::set_symmetric_difference(found.begin(), found.end(), expected.begin(), expected.end(),
                                std::back_inserter(differences));
  EXPECT_EQ(differences, std::vector<std::string>{});
}

}  // namespace
