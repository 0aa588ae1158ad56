// Whole items over a /proc of their own: whatever its files contain, an item answers
// within the limits of its records, opens no file that it does not close, and gives no text without
// an end. The input: the item, two parameters, then path and content of each file. Half of the
// files appear after the first of two calls.
#include <fcntl.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "common_plugin.h"
#include "context_overlay.h"
#include "fuzz_input.h"
#include "item_call.h"
#include "kelv_cmd.h"
#include "kelv_log.h"
#include "mirt_items.h"
#include "private_mount.h"

namespace fs = std::filesystem;

namespace {

// clang-format off
constexpr Item kItems[] = {
    GetProcessSysCPU, GetProcessSysCPUExtern, GetProcessSysCPUFuzzyMatch,
    GetProcessSysCPUFuzzyMatchCfgPeriod, GetProcessCoreCPU, GetProcessCoreCPUExtern,
    GetProcessCoreCPUFuzzyMatch, GetProcessCoreCPUFuzzyMatchCfgPeriod, GetProcessMemory,
    GetProcessMemoryExtern, GetProcessMemoryFuzzyMatch, GetProcessHandle, GetProcessHandleExtern,
    GetProcessHandleFuzzyMatch, IsExistProcess, IsExistProcessExtern, IsExistProcessPreCmd,
    GetSysCPU, GetSysUsrCPU, GetSysMemory, GetSysFreeMemory, CheckProcessStatusIsD,
    CheckProcessStatusIsDForAppData, as_float<RebootAppData>};
// clang-format on

struct File {
  std::string path, content;
};

std::string g_output;  // of the commands that items run

std::vector<FI_PARAM_S> parameters_of(FuzzInput& input, const std::string& first) {
  const size_t count = 1 + input.byte() % 3;
  std::vector<FI_PARAM_S> parameters{parameter("ProcessName", first)};
  if (count > 1) parameters.push_back(parameter(count == 2 ? "Period" : "PreCmd", input.text()));
  if (count > 2) parameters.push_back(parameter("RetKeyWords", input.text()));
  return parameters;
}

// Below /proc, never above it. A \1 in a command line stands for the NUL after an argument.
void put(const File& file) {
  const fs::path path =
      fs::path("/proc") / fs::path("/" + file.path).lexically_normal().relative_path();
  std::error_code ignored;
  fs::create_directories(path.parent_path(), ignored);
  std::string content = file.content;
  std::replace(content.begin(), content.end(), '\1', '\0');
  if (path.has_filename()) write_file(path, content);
}

int free_descriptor() {
  const int fd = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  close(fd);
  return fd;
}

// While it exists, the root directory is an empty one, with a proc that is not the kernel's.
// Cheaper than a mount for each input; the sanitizers need the real /proc between two inputs.
class OwnRoot {
 public:
  OwnRoot() {
    fs::remove_all(kRoot / "proc");
    fs::create_directory(kRoot / "proc");
    FUZZ_CHECK(chroot(kRoot.c_str()) == 0);
  }
  OwnRoot& operator=(OwnRoot&&) = delete;  // neither copied nor moved
  ~OwnRoot() { FUZZ_CHECK(fchdir(real_root_) == 0 && chroot(".") == 0 && fchdir(folder_) == 0); }

  // Opens the folders after the change of the mount namespace: before it they belong to the old
  // one.
  static bool prepare() {
    mount_empty(kRoot.c_str());
    real_root_ = open_folder("/");
    folder_ = open_folder(".");
    return real_root_ >= 0 && folder_ >= 0;
  }

 private:
  static int open_folder(const char* path) {
    return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  }

  inline static const fs::path kRoot = "/dev/shm";
  inline static int real_root_ = -1, folder_ = -1;
};

void call(Item item, std::vector<FI_PARAM_S>& parameters, FI_CONTEXT_S& context) {
  const int descriptor = free_descriptor();
  FI_RESULT_S result{};
  item(static_cast<int>(parameters.size()), parameters.data(), &context, &result);
  FUZZ_CHECK(result.result == 0 || result.result == -1);
  FUZZ_CHECK(memchr(result.reason, '\0', sizeof result.reason) != nullptr);
  FUZZ_CHECK(free_descriptor() == descriptor);
}

bool prepare() {
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* /*record*/) {});
  return OwnRoot::prepare();
}

}  // namespace

// Items neither wait, nor run commands, nor signal processes here.
int usleep(useconds_t /*microseconds*/) {
  return 0;
}
FILE* popen(const char* /*command*/, const char* /*mode*/) {
  return fmemopen(g_output.data(), g_output.size(), "r");
}
int pclose(FILE* stream) {
  return fclose(stream);
}
int sigqueue(pid_t target, int /*number*/, const sigval /*value*/) noexcept {
  FUZZ_CHECK(target > 0);
  return 0;
}
int kelv_cmd_exec(const char* /*command*/) {
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool kPrepared = prepare();
  FUZZ_CHECK(kPrepared);
  FuzzInput input(data, size);
  const Item item = kItems[input.byte() % std::size(kItems)];
  g_output = input.text();
  const std::string name = input.text();
  std::vector<FI_PARAM_S> parameters = parameters_of(input, name);
  std::vector<File> files;
  while (!input.empty() && files.size() < 32) {
    const std::string path = input.text();
    files.push_back({path, input.text()});
  }
  FI_CONTEXT_S context{};
  const OwnRoot root;
  const size_t half = (files.size() + 1) / 2;
  for (size_t i = 0; i < files.size(); ++i) {
    if (i == half) call(item, parameters, context);
    put(files[i]);
  }
  call(item, parameters, context);
  // The table of hung threads belongs to the host's record, so no item frees it.
  if (item == CheckProcessStatusIsD || item == CheckProcessStatusIsDForAppData) {
    free(ContextOverlay<process_status_context_t>(context)->pthreadinfoset);
  }
  return 0;
}
