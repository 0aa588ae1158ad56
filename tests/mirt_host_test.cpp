// The host library: reports, requests and shared memory.
#include "mirt_host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "child.h"
#include "kelv_log.h"
#include "mirt_inner.h"
#include "proc_fixture.h"

namespace {

using namespace std::string_literals;

// Records what it receives.
int32_t take(const MIRT_HOST_REPORT_S* report, void* user) {
  std::ostringstream text;
  text << report->key.resType << ' ' << report->key.errCode << ' ' << report->key.resId << ' '
       << int{report->key.rptType};
  for (uint32_t i = 0; i < report->paramCount; ++i) {
    text << ' ' << report->params[i].name << '=' << report->params[i].value;
  }
  text << " '" << report->description << "' " << report->line;
  if (report->funcName) text << report->funcName;
  *static_cast<std::string*>(user) = text.str();
  return 9;
}

TEST(Host, AReportArrivesWithItsKeyParametersInOrderAndDescription) {
  static std::string logged, taken;
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) { logged = record->text; });
  mirt_host_set_report_handler(take, &taken);
  MIRT_PRIMARY_KEY_S key{0x12, 0x3456, "disk 3", 7};
  MIRT_ERRREPORT_S* const report = MIRT_CreateErrRptInner(&key);
  key = {};
  EXPECT_EQ(MIRT_GetPrimaryKeyInner(report, &key), 0);
  EXPECT_EQ(std::string(key.resId) + std::to_string(key.rptType), "disk 37");
  key = {};
  char name[] = "b", value[] = "first";
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  name[0] = 'a';  // the report has its own copies
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);

  EXPECT_EQ(MIRT_SendErrReportInner(report, "%s", std::string(3000, 'x').c_str()), 9);
  EXPECT_EQ(taken, "18 13398 disk 3 7 b=first a=first a=first '" + std::string(1023, 'x') + "' 0");
  EXPECT_EQ(MIRT_SendErrorInner(3, 4, 55, "func", 6, "it is %d", 7), 9);
  EXPECT_EQ(taken, "3 4  6 'it is 7' 55func");
  mirt_host_set_report_handler(nullptr, nullptr);
  EXPECT_EQ(MIRT_SendErrReportInner(report, nullptr), 0);
  EXPECT_EQ(logged, "Error report 0x3456, resource type 0x12, id 'disk 3', 3 parameters: ");

  MIRT_ERRREPORT_S* const none = nullptr;
  EXPECT_EQ(MIRT_CreateErrRptInner(nullptr), nullptr);
  EXPECT_EQ(MIRT_GetPrimaryKeyInner(none, &key), -1);
  EXPECT_EQ(MIRT_GetPrimaryKeyInner(report, nullptr), -1);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(none, name, value), -1);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, nullptr, value), -1);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, nullptr), -1);
  EXPECT_EQ(MIRT_SendErrReportInner(none, "text"), -1);
  MIRT_DestoryErrRptInner(none);
  const size_t before = mallinfo2().uordblks;
  MIRT_ERRREPORT_S* const large = MIRT_CreateErrRptInner(&key);
  for (int i = 0; i < 100; ++i) MIRT_AddParamToErrRptInner(large, name, value);
  MIRT_DestoryErrRptInner(large);
  EXPECT_EQ(mallinfo2().uordblks, before) << "everything is freed";
  MIRT_DestoryErrRptInner(report);
}

// Answers with the requested number of bytes.
int32_t echo(const MIRT_COMM_INFO_S* info, const void* payload, void* reply, uint32_t* length,
             void* user) {
  memcpy(reply, payload, info->msgLen);
  *length = *static_cast<uint32_t*>(user);
  return *length == 0 ? -33 : 0;
}

TEST(Host, ARequestIsAnsweredByTheModulesHandlerAndByNobodyElse) {
  MIRT_COMM_INFO_S info{};
  info.dstPid = PID_CTRL_MIRTKERNELAGENT;
  info.msgLen = 4;
  char payload[] = "abcd";
  uint32_t length = 0;
  const auto answer = [&](uint32_t bytes) {
    length = bytes;
    MIRT_COMM_RET_DATA_S reply{};
    const int32_t result = MIRT_CommSendRequestMsg(&info, payload, &reply);
    const std::string text(static_cast<char*>(reply.buf), reply.msgLen);
    MIRT_CommFreeRetData(&reply);
    return std::to_string(result) + text.substr(0, 4) + std::to_string(text.size());
  };
  EXPECT_EQ(mirt_host_set_request_handler(info.dstPid + 1, echo, &length), 0);
  EXPECT_EQ(answer(4), "-10") << "another module";
  EXPECT_EQ(mirt_host_set_request_handler(info.dstPid, echo, &length), 0);
  EXPECT_EQ(answer(MIRT_HOST_MAX_REPLY), "0abcd4096");
  EXPECT_EQ(answer(MIRT_HOST_MAX_REPLY + 1), "-10") << "too long";
  EXPECT_EQ(answer(0), "-330") << "the handler's own";
  EXPECT_EQ(MIRT_CommSendRequestMsg(nullptr, payload, nullptr), -1);
  EXPECT_EQ(MIRT_CommSendRequestMsg(&info, payload, nullptr), -1);
  MIRT_COMM_RET_DATA_S reply{};
  EXPECT_EQ(MIRT_CommSendRequestMsg(&info, nullptr, &reply), -1) << "4 bytes are missing";
  MIRT_CommFreeRetData(nullptr);
  // There is room for 16 modules, 2 of which are used.
  for (uint16_t module = 1; module <= 15; ++module) {
    EXPECT_EQ(mirt_host_set_request_handler(module, echo, &length), module <= 14 ? 0 : -1);
  }
  EXPECT_EQ(mirt_host_set_request_handler(15, nullptr, nullptr), 0) << "nothing to remove";
  EXPECT_EQ(mirt_host_set_request_handler(info.dstPid, nullptr, nullptr), 0);
  EXPECT_EQ(answer(4), "-10");
  EXPECT_EQ(MIRT_CommGetLocalNid(), 0U);
  mirt_host_set_local_nid(7);
  EXPECT_EQ(MIRT_CommGetLocalNid(), 7U);
}

class SharedMemory : public WithOwnHeartbeatFiles<> {
 protected:
  SharedMemory() {
    kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) { logged_ = record->text; });
  }
  ~SharedMemory() override { kelvlog_set_sink(nullptr); }

  inline static std::string logged_;
  void* address_ = nullptr;
  bool created_ = false;
};

TEST_F(SharedMemory, IsCreatedOnceAndMappedOnceOrRefused) {
  umask(0);
  // The content of its file before ("none": no file, "link": the file of "new"), the requested
  // size, the outcome.
  using Row = std::tuple<const char*, std::string_view, uint32_t, bool, bool>;
  for (const auto& [name, content, size, mapped, is_new] : {
           Row{"new", "none", 8192, true, true},
           Row{"unwritten", std::string_view("\0\0\0\0", 4), 4, true, true},  // its creator died
           Row{"written", "content", 7, true, false},
           Row{"linked", "link", 8192, true, false},  // already mapped under another name
           Row{"shorter", "content", 8, false, true}, Row{"longer", "content", 6, false, true},
           Row{"huge", "none", 1 << 20, false, true},  // the file system is full
           Row{"huge", "none", 8192, true, true},      // the rest of that file counts as new
       }) {
    SCOPED_TRACE(name);
    const std::string path = std::string("/dev/shm/") + name;
    if (content == "link") std::filesystem::create_hard_link("/dev/shm/new", path);
    if (content != "none" && content != "link") std::ofstream(path) << content;
    created_ = !mapped;  // unchanged on failure
    ASSERT_EQ(MIRT_InitShareMem(&address_, name, size, &created_), mapped ? 0 : -1);
    EXPECT_EQ(created_, is_new);
    if (!mapped) continue;
    char* const memory = static_cast<char*>(address_);
    memory[size - 1] = 'x';
    EXPECT_EQ(std::ifstream(path).seekg(size - 1).get(), 'x') << "shared";
    memory[size - 1] = '\0';
    EXPECT_EQ(MIRT_InitShareMem(&address_, name, size, &created_), 0);
    EXPECT_TRUE(address_ == memory && !created_);
    EXPECT_EQ(MIRT_InitShareMem(&address_, name, size / 2, &created_), -1);
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_TRUE(content != "none" || (status.st_mode & 07777) == 0660) << "with umask 0";
  }
  const std::string long_name(255, 'n');  // the longest with its slash has 254 letters
  for (const char* const name : {long_name.c_str(), "a/b"}) {
    EXPECT_EQ(MIRT_InitShareMem(&address_, name, 8, &created_), -1) << name;
  }
  EXPECT_EQ(MIRT_InitShareMem(&address_, long_name.c_str() + 1, 8, &created_), 0);
  std::filesystem::create_directory("/dev/shm/folder");
  EXPECT_EQ(MIRT_InitShareMem(&address_, "folder", 8, &created_), -1);
  EXPECT_EQ(logged_, "Shared memory '/folder': cannot be opened: Invalid argument.");
  close(STDIN_FILENO);  // 0 is a descriptor like any other
  EXPECT_EQ(MIRT_InitShareMem(&address_, "zero", 8, &created_), 0);
  EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "it is closed again";
  EXPECT_EQ(MIRT_InitShareMem(nullptr, "x", 8, &created_), -1);
  EXPECT_EQ(MIRT_InitShareMem(&address_, nullptr, 8, &created_), -1);
  EXPECT_EQ(MIRT_InitShareMem(&address_, "x", 0, &created_), -1);
  EXPECT_EQ(MIRT_InitShareMem(&address_, "x", 8, nullptr), -1);
}

// The kernel refuses O_CREAT for another user's file in a sticky directory.
TEST_F(SharedMemory, IsOpenedWithoutCreatingItIfTheKernelRefusesThat) {
  const passwd* const daemon = getpwnam("daemon");
  std::ofstream("/dev/shm/other") << "content";
  const bool is_root = chown("/dev/shm/other", daemon->pw_uid, daemon->pw_gid) == 0;
  constexpr char kSetting[] = "/proc/sys/fs/protected_regular";
  const std::string before = read_file(kSetting);
  write_file(kSetting, "2");
  const bool is_refused = shm_open("/other", O_RDWR | O_CREAT | O_CLOEXEC, 0660) < 0;
  EXPECT_EQ(MIRT_InitShareMem(&address_, "other", 7, &created_), 0);
  EXPECT_FALSE(created_);
  write_file(kSetting, before);
  if (!is_root || !is_refused) GTEST_SKIP() << "the machine does not let the kernel refuse it";
}

TEST_F(SharedMemory, OfAStrangerIsRefusedAndSaysWhoseItIs) {
  constexpr uid_t kService = 54321, kStranger = 54322;
  for (const uid_t owner : {uid_t{0}, getpwnam("daemon")->pw_uid, kService, kStranger}) {
    const std::string path = "/dev/shm/" + std::to_string(owner);
    std::ofstream(path) << "content";
    std::filesystem::permissions(path, std::filesystem::perms(0666));
    if (chown(path.c_str(), owner, 0) != 0) GTEST_SKIP() << "needs root, to be other users";
  }
  const auto outcome = [this](const char* name) {
    return MIRT_InitShareMem(&address_, name, 7, &created_) == 0 ? "mapped" : logged_;
  };
  using Row = std::tuple<uid_t, std::vector<const char*>, const char*>;
  for (const auto& [user, trusted, expected] :
       {Row{0, {"0", "1"}, "root or daemon."},
        Row{kService, {"0", "1", "54321"}, "root, daemon or user 54321."}}) {
    const auto check_as_user = [&, &user = user, &trusted = trusted, &expected = expected] {
      EXPECT_TRUE(become(user, user)) << strerror(errno);
      for (const char* const name : trusted) EXPECT_EQ(outcome(name), "mapped");
      EXPECT_EQ(outcome("54322"),
                "Shared memory '/54322': belongs to user 54322, expected "s + expected);
      return HasFailure() ? 1 : 0;
    };
    EXPECT_EQ(status_of_child(check_as_user), 0) << "as user " << user;
  }
}

}  // namespace
