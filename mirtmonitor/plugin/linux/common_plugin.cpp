// The steps before a measurement: argument checks, the pre-command, the period.
#include "common_plugin.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "item_result.h"
#include "kelv_securec.h"

namespace {

bool check_context(const FI_CONTEXT_S* context, FI_RESULT_S& result) {
  if (context == nullptr) set_failure(result, "Input parameter context is NULL.");
  return context != nullptr;
}

}  // namespace

bool MIRT_Linux_Plugin::input_para_check(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                         FI_RESULT_S* result) {
  return check_arguments(argc, argv, result, 1, {}) && check_context(context, *result);
}

bool MIRT_Linux_Plugin::input_para_check_precmd(int argc, FI_PARAM_S* argv, FI_CONTEXT_S* context,
                                                FI_RESULT_S* result) {
  return check_arguments(argc, argv, result, 3, {"ProcessName", "PreCmd", "RetKeyWords"}) &&
         check_context(context, *result);
}

bool MIRT_Linux_Plugin::input_para_check_cfgperiod(int argc, FI_PARAM_S* argv,
                                                   FI_CONTEXT_S* context, FI_RESULT_S* result) {
  return check_arguments(argc, argv, result, 2, {"ProcessName", "Period"}) &&
         check_context(context, *result);
}

int MIRT_Linux_Plugin::exec_pre_cmd(char* script, char* checkRet) {
  if (script == nullptr || checkRet == nullptr) return -1;
  FILE* const pipe = popen(script, "r");
  if (pipe == nullptr) return -1;
  char output[32];
  memset_s(output, sizeof output, 0, sizeof output);
  // The number of bytes read does not matter: the rest stays zero.
  [[maybe_unused]] const size_t size = fread(output, 1, sizeof output, pipe);
  pclose(pipe);
  output[sizeof output - 1] = '\0';
  return strncmp(output, checkRet, strlen(checkRet)) == 0 ? 0 : -1;
}

int ConvertStr2PeriodUS(const char* value) {
  constexpr int kShortestUs = 500000, kLongestSeconds = 240, kUsPerSecond = 1000000;
  const long long seconds = value != nullptr ? strtoll(value, nullptr, 10) : 0;
  if (seconds < 1) return kShortestUs;
  if (seconds > kLongestSeconds) return kLongestSeconds * kUsPerSecond;
  return static_cast<int>(seconds) * kUsPerSecond;
}
