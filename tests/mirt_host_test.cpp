// The host library: reports, requests and shared memory.
#include "mirt_host.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "kelv_log.h"
#include "mirt_inner.h"
#include "proc_fixture.h"

namespace {

// Records what it receives.
int32_t take(const MIRT_HOST_REPORT_S* report, void* user) {
  std::ostringstream text;
  text << report->key.resType << ' ' << report->key.errCode << ' ' << report->key.resId;
  for (uint32_t i = 0; i < report->paramCount; ++i) {
    text << ' ' << report->params[i].name << '=' << report->params[i].value;
  }
  text << " '" << report->description << "' " << report->line;
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
  char name[] = "b", value[] = "first";
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  name[0] = 'a';  // the report has its own copies
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);

  EXPECT_EQ(MIRT_SendErrReportInner(report, "%s", std::string(3000, 'x').c_str()), 9);
  EXPECT_EQ(taken, "18 13398 disk 3 b=first a=first a=first '" + std::string(1023, 'x') + "' 0");
  EXPECT_EQ(MIRT_SendErrorInner(3, 4, 55, "func", 6, "it is %d", 7), 9);
  EXPECT_EQ(taken, "3 4  'it is 7' 55");
  mirt_host_set_report_handler(nullptr, nullptr);
  EXPECT_EQ(MIRT_SendErrReportInner(report, nullptr), 0);
  EXPECT_EQ(logged, "Error report 0x3456, resource type 0x12, id 'disk 3', 3 parameters: ");
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
  EXPECT_EQ(mirt_host_set_request_handler(info.dstPid, nullptr, nullptr), 0);
  EXPECT_EQ(answer(4), "-10");
}

TEST(Host, SharedMemoryIsCreatedOnceAndMappedOnceOrRefused) {
  SKIP_WITHOUT_MOUNTS();
  const TmpfsMount small("/dev/shm", "size=64k");
  ASSERT_TRUE(small.mounted()) << strerror(errno);
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
    void* address = nullptr;
    bool created = !mapped;  // unchanged on failure
    ASSERT_EQ(MIRT_InitShareMem(&address, name, size, &created), mapped ? 0 : -1);
    EXPECT_EQ(created, is_new);
    if (!mapped) continue;
    char* const memory = static_cast<char*>(address);
    memory[size - 1] = 'x';
    EXPECT_EQ(std::ifstream(path).seekg(size - 1).get(), 'x') << "shared";
    memory[size - 1] = '\0';
    EXPECT_EQ(MIRT_InitShareMem(&address, name, size, &created), 0);
    EXPECT_TRUE(address == memory && !created);
    EXPECT_EQ(MIRT_InitShareMem(&address, name, size / 2, &created), -1);
  }
}

// Runs check as this user, in its own process.
template <typename Check>
void expect_as(uid_t user, Check check) {
  const pid_t child = fork();
  if (child == 0) {
    const bool is_user = setgroups(0, nullptr) == 0 && setgid(user) == 0 && setuid(user) == 0;
    EXPECT_TRUE(is_user) << strerror(errno);
    if (is_user) check();
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = -1;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "as user " << user;
}

TEST(Host, SharedMemoryOfAStrangerIsRefusedAndSaysWhoseItIs) {
  SKIP_WITHOUT_MOUNTS();
  const TmpfsMount small("/dev/shm", "size=64k,mode=1777");
  ASSERT_TRUE(small.mounted()) << strerror(errno);
  constexpr uid_t kService = 54321, kStranger = 54322;
  for (const uid_t owner : {uid_t{0}, getpwnam("daemon")->pw_uid, kService, kStranger}) {
    const std::string path = "/dev/shm/" + std::to_string(owner);
    std::ofstream(path) << "content";
    std::filesystem::permissions(path, std::filesystem::perms(0666));
    if (chown(path.c_str(), owner, 0) != 0) GTEST_SKIP() << "needs root, to be other users";
  }
  static std::string logged;
  kelvlog_set_sink([](const KELV_LOG_RECORD_S* record) { logged = record->text; });
  const auto outcome = [](const char* name) {
    logged.clear();
    void* memory = nullptr;
    bool created = false;
    return MIRT_InitShareMem(&memory, name, 7, &created) == 0 ? "mapped" : logged;
  };
  expect_as(0, [&outcome] {
    for (const char* const trusted : {"0", "1"}) EXPECT_EQ(outcome(trusted), "mapped");
    EXPECT_EQ(outcome("54322"),
              "Shared memory '/54322': belongs to user 54322, expected root or daemon.");
  });
  expect_as(kService, [&outcome] {
    for (const char* const trusted : {"0", "1", "54321"}) EXPECT_EQ(outcome(trusted), "mapped");
    EXPECT_EQ(
        outcome("54322"),
        "Shared memory '/54322': belongs to user 54322, expected root, daemon or user 54321.");
  });
  kelvlog_set_sink(nullptr);
}

}  // namespace
