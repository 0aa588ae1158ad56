// The host library: reports, requests and shared memory.
#include "mirt_host.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "kelv_log.h"
#include "mirt_inner.h"
#include "proc_fixture.h"

namespace {

std::vector<std::string> g_logged;

void keep_log(const KELV_LOG_RECORD_S* record) {
  g_logged.push_back(std::string(kelvlog_level_name(record->level)) + ' ' + record->text);
}

// Whatever reached the handler, one text each.
struct Delivered {
  std::vector<std::string> texts;
  int32_t answer = 0;

  static int32_t take(const MIRT_HOST_REPORT_S* report, void* user) {
    std::ostringstream text;
    text << report->key.resType << ' ' << report->key.errCode << " '" << report->key.resId << "' "
         << int{report->key.rptType};
    for (uint32_t i = 0; i < report->paramCount; ++i) {
      text << ' ' << report->params[i].name << '=' << report->params[i].value;
    }
    text << " '" << report->description << '\'';
    if (report->funcName != nullptr) text << ' ' << report->funcName << report->line;
    auto* const self = static_cast<Delivered*>(user);
    self->texts.push_back(text.str());
    return self->answer;
  }
};

class Host : public testing::Test {
 protected:
  void SetUp() override {
    g_logged.clear();
    kelvlog_set_sink(keep_log);
  }
  void TearDown() override {
    mirt_host_set_report_handler(nullptr, nullptr);
    kelvlog_set_sink(nullptr);
  }
};

TEST_F(Host, AReportArrivesWithItsKeyParametersInOrderAndDescription) {
  Delivered delivered;
  mirt_host_set_report_handler(Delivered::take, &delivered);
  MIRT_PRIMARY_KEY_S key{0x12, 0x3456, "disk 3", 7}, copy{};
  MIRT_ERRREPORT_S* const report = MIRT_CreateErrRptInner(&key);
  key = {};
  char name[] = "b", value[] = "first", longer[3000] = "";
  memset(longer, 'x', sizeof longer - 1);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  name[0] = 'a';  // the report has its own copies
  value[0] = 'F';
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, value), 0);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, name, longer), 0);
  EXPECT_EQ(MIRT_AddParamToErrRptInner(report, nullptr, value), -1);
  EXPECT_EQ(MIRT_GetPrimaryKeyInner(report, &copy), 0);
  EXPECT_STREQ(copy.resId, "disk 3");

  EXPECT_EQ(MIRT_SendErrReportInner(report, "%s of %d", "three", 5), 0);
  EXPECT_EQ(MIRT_SendErrReportInner(report, nullptr), 0) << "and once more, without a text";
  delivered.answer = 9;
  EXPECT_EQ(MIRT_SendErrReportInner(report, "%s", longer), 9);
  EXPECT_EQ(MIRT_SendErrorInner(3, 4, 55, "func", 6, "it is %d", 7), 9);
  mirt_host_set_report_handler(nullptr, nullptr);
  EXPECT_TRUE(g_logged.empty());
  EXPECT_EQ(MIRT_SendErrReportInner(report, "100%% %s", "full"), 0);
  EXPECT_EQ(g_logged, std::vector<std::string>{"event Error report 0x3456, resource type 0x12, id "
                                               "'disk 3', 3 parameters: 100% full"});
  MIRT_DestoryErrRptInner(report);

  const std::string head = "18 13398 'disk 3' 7 b=first a=First a=" + std::string(longer) + " '";
  EXPECT_EQ(delivered.texts, (std::vector<std::string>{head + "three of 5'", head + "'",
                                                       head + std::string(longer, 1023) + "'",
                                                       "3 4 '' 6 'it is 7' func55"}));
  EXPECT_EQ(MIRT_CreateErrRptInner(nullptr), nullptr);
  EXPECT_EQ(MIRT_SendErrReportInner(nullptr, "x"), -1);
  MIRT_DestoryErrRptInner(nullptr);
}

// Requests.

constexpr uint16_t kModule = PID_CTRL_MIRTKERNELAGENT;

MIRT_COMM_INFO_S request_to(uint16_t module) {
  MIRT_COMM_INFO_S info{};
  info.dstPid = module;
  info.msgOPCode = MIRT_OP_EXECUT_FILTER_ERRRPT;
  info.msgLen = 4;
  return info;
}

int32_t echo(const MIRT_COMM_INFO_S* info, const void* payload, void* reply, uint32_t* length,
             void* user) {
  memcpy(reply, payload, info->msgLen);
  *length = info->msgLen;
  return user != nullptr ? *static_cast<int32_t*>(user) : 0;
}

TEST_F(Host, ARequestIsAnsweredByTheModulesHandlerAndByNobodyElse) {
  MIRT_COMM_INFO_S info = request_to(kModule);
  char payload[] = "abcd";
  MIRT_COMM_RET_DATA_S reply{};
  EXPECT_NE(MIRT_CommSendRequestMsg(&info, payload, &reply), 0) << "nobody has allowed anything";
  EXPECT_EQ(reply.buf, nullptr);

  int32_t answer = 0;
  EXPECT_EQ(mirt_host_set_request_handler(kModule, echo, &answer), 0);
  MIRT_COMM_INFO_S other = request_to(kModule + 1);
  EXPECT_NE(MIRT_CommSendRequestMsg(&other, payload, &reply), 0);
  ASSERT_EQ(MIRT_CommSendRequestMsg(&info, payload, &reply), 0);
  EXPECT_EQ(std::string(static_cast<char*>(reply.buf), reply.msgLen), "abcd");
  MIRT_CommFreeRetData(&reply);
  EXPECT_EQ(reply.buf, nullptr);

  answer = -33;
  EXPECT_EQ(MIRT_CommSendRequestMsg(&info, payload, &reply), -33);
  EXPECT_NE(MIRT_CommSendRequestMsg(&info, nullptr, &reply), 0);
  EXPECT_EQ(mirt_host_set_request_handler(kModule, nullptr, nullptr), 0);
  EXPECT_EQ(MIRT_CommSendRequestMsg(&info, payload, &reply), -1);
  EXPECT_EQ(reply.buf, nullptr) << "a failure leaves the record alone";
}

TEST_F(Host, AnAnswerThatIsTooLongIsAFailure) {
  static uint32_t length;
  length = MIRT_HOST_MAX_REPLY;
  const auto fill = [](const MIRT_COMM_INFO_S*, const void*, void* reply, uint32_t* replyLen,
                       void*) -> int32_t {
    memset(reply, 'r', MIRT_HOST_MAX_REPLY);
    *replyLen = length;
    return 0;
  };
  EXPECT_EQ(mirt_host_set_request_handler(kModule, fill, nullptr), 0);
  MIRT_COMM_INFO_S info = request_to(kModule);
  MIRT_COMM_RET_DATA_S reply{};
  ASSERT_EQ(MIRT_CommSendRequestMsg(&info, &length, &reply), 0);
  EXPECT_EQ(std::string(static_cast<char*>(reply.buf), reply.msgLen), std::string(length, 'r'));
  MIRT_CommFreeRetData(&reply);
  ++length;
  EXPECT_NE(MIRT_CommSendRequestMsg(&info, &length, &reply), 0);
  EXPECT_EQ(reply.buf, nullptr);
  mirt_host_set_request_handler(kModule, nullptr, nullptr);
}

// Shared memory.

class ShareMem : public Host {
 protected:
  static constexpr uint32_t kSize = 8192;

  void SetUp() override {
    Host::SetUp();
    next_segment();
  }
  void TearDown() override {
    shm_unlink(path_.c_str());
    Host::TearDown();
  }
  int32_t init(uint32_t size = kSize) {
    return MIRT_InitShareMem(&address_, path_.c_str() + 1, size, &created_);
  }
  // As another program leaves it: of that size, beginning with that text.
  void leave(off_t size, const char* text) {
    const int fd = shm_open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(ftruncate(fd, size), 0);
    EXPECT_EQ(pwrite(fd, text, strlen(text), 0), static_cast<ssize_t>(strlen(text)));
    close(fd);
  }
  void expect_refused(uint32_t size = kSize) {
    address_ = this;
    created_ = true;
    EXPECT_EQ(init(size), -1);
    EXPECT_EQ(address_, this);
    EXPECT_TRUE(created_);
    EXPECT_EQ(g_logged.size(), 1U);
    g_logged.clear();
  }

  void next_segment() {
    static int serial = 0;
    shm_unlink(path_.c_str());
    path_ = "/mirt_host_test_" + std::to_string(getpid()) + '_' + std::to_string(++serial);
  }

  std::string path_;
  void* address_ = nullptr;
  bool created_ = false;
};

TEST_F(ShareMem, IsCreatedOnceAndMappedOnce) {
  ASSERT_EQ(init(), 0);
  EXPECT_TRUE(created_);
  char* const first = static_cast<char*>(address_);
  EXPECT_EQ(std::string(first, kSize), std::string(kSize, '\0'));
  first[kSize - 1] = 'x';
  address_ = nullptr;
  ASSERT_EQ(init(), 0);
  EXPECT_FALSE(created_);
  EXPECT_EQ(address_, first);
  expect_refused(kSize * 2);
  expect_refused(kSize / 2);
}

TEST_F(ShareMem, TwoProcessesSeeOneMemory) {
  int go[2];
  ASSERT_EQ(pipe2(go, O_CLOEXEC), 0);
  const pid_t child = fork();  // before this process maps anything
  ASSERT_GE(child, 0);
  if (child == 0) {
    char byte = 0;
    const bool told = read(go[0], &byte, 1) == 1;
    if (!told || init() != 0 || created_ || strcmp(static_cast<char*>(address_), "ping") != 0) {
      _exit(1);
    }
    strcpy(static_cast<char*>(address_) + kSize / 2, "pong");
    _exit(0);
  }
  EXPECT_EQ(init(), 0);
  EXPECT_TRUE(created_);
  strcpy(static_cast<char*>(address_), "ping");
  EXPECT_EQ(write(go[1], "", 1), 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  EXPECT_STREQ(static_cast<char*>(address_) + kSize / 2, "pong");
  close(go[0]);
  close(go[1]);
}

TEST_F(ShareMem, WhatItsCreatorLeftUnsizedOrUnwrittenIsNew) {
  leave(0, "");
  ASSERT_EQ(init(), 0);
  EXPECT_TRUE(created_);
  next_segment();
  leave(kSize, "");
  ASSERT_EQ(init(), 0);
  EXPECT_TRUE(created_);
  next_segment();
  leave(kSize, "content");
  ASSERT_EQ(init(), 0);
  EXPECT_FALSE(created_);
  EXPECT_STREQ(static_cast<char*>(address_), "content");
}

TEST_F(ShareMem, AnotherSizeOrAnImpossibleNameIsRefused) {
  leave(kSize - 1, "content");
  expect_refused();
  leave(kSize + 1, "content");
  expect_refused();
  EXPECT_EQ(init(0), -1);
  EXPECT_EQ(MIRT_InitShareMem(&address_, std::string(300, 'x').c_str(), 1, &created_), -1);
  EXPECT_EQ(MIRT_InitShareMem(&address_, "a/b", 1, &created_), -1);
}

TEST_F(ShareMem, AFullFileSystemIsAFailureAndNoDeathLater) {
  const TmpfsMount small("/dev/shm", "size=64k");
  ASSERT_TRUE(small.mounted()) << strerror(errno);
  expect_refused(1 << 20);
  ASSERT_EQ(init(16384), 0) << "what is left of the failure counts as new";
  EXPECT_TRUE(created_);
  memset(address_, 'x', 16384);
}

}  // namespace
