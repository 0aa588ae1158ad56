// Alerts: what a command gets, and that whatever hangs, fails or floods delays no other.
#include "alert/alert_sender.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <csignal>
#include <set>

#include "captured_log.h"
#include "child.h"
#include "item/web_address.h"

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

Alert command_alert(const std::string& name, std::vector<std::string> command,
                    double timeout_s = 3600.0) {
  Alert alert;
  alert.name = name;
  alert.command = std::move(command);
  alert.timeout_s = timeout_s;
  return alert;
}

// The shell has the folder as $1.
Alert shell_alert(const std::string& name, const std::string& script, const TemporaryFolder& folder,
                  double timeout_s = 3600.0) {
  return command_alert(name, {"sh", "-c", script, "sh", folder.path()}, timeout_s);
}

Alert webhook_alert(const std::string& name, int port) {
  Alert alert;
  alert.name = name;
  alert.webhook = "http://127.0.0.1:" + std::to_string(port) + "/hook?to=ops";
  return alert;
}

AlertStatus status_of(const AlertSender& sender, const std::string& name) {
  for (AlertStatus& status : sender.statuses()) {
    if (status.name == name) return status;
  }
  ADD_FAILURE() << name << " has no status";
  return {};
}

template <typename... Names>
bool come_to_rest(const AlertSender& sender, const Names&... names) {
  return comes_true([&] { return ((status_of(sender, names).queued == 0) && ...); });
}

// Time limits that no test waits for, and pauses that none notices.
AlertLimits patient() {
  AlertLimits limits;
  limits.to_connect = limits.to_answer = limits.overall = limits.give_up = hours(1);
  limits.first_pause = limits.longest_pause = milliseconds(1);
  return limits;
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// Of the mask in the status of a process; the C library keeps the signals from 32 on for itself.
unsigned long signals_in(const std::string& status, const std::string& key) {
  const size_t at = status.find("\n" + key + ":\t");
  EXPECT_NE(at, std::string::npos) << status;
  return std::stoul(status.substr(at + key.size() + 3), nullptr, 16) & 0x7fffffff;
}

class AlertTest : public testing::Test {
 protected:
  const CapturedLog log_;
  const TemporaryFolder folder_;
};
using AlertCommand = AlertTest;
using AlertSending = AlertTest;
using Webhook = AlertTest;

TEST_F(AlertCommand, GetsTheMessageByteForByteAndNothingElseOfTheMonitor) {
  const UniqueFd inheritable(open("/dev/null", O_RDONLY));  // NOLINT(android-cloexec-open)
  const mode_t umask_before = umask(0);
  signal(SIGUSR1, SIG_IGN);
  setenv("SECRET", "of the monitor", 1);
  AlertSender sender({shell_alert("ops",
                                  "cat >\"$1/json\"; env -0 >\"$1/env\"; ls /proc/self/fd "
                                  ">\"$1/fds\"; cat /proc/self/status >\"$1/status\"; "
                                  "cat /proc/$$/stat >\"$1/stat\"",
                                  folder_)});
  std::string json(300000, 'x');  // more than a pipe holds
  json.replace(0, 14, "{\"\0\n\r\t\xff '\\$`!}", 14);
  sender.send("ops", {json,
                      {{"MIRT_NAME", "two\nlines '\"$(x)\\ \xff\xc3"},
                       {"MIRT_EMPTY", ""},
                       {"PATH", "/evil"},
                       {"MIRT_A=B", "c"}}});
  ASSERT_TRUE(come_to_rest(sender, "ops"));
  signal(SIGUSR1, SIG_DFL);
  umask(umask_before);

  EXPECT_EQ(status_of(sender, "ops").sent, 1U) << log_.text();
  EXPECT_EQ(read_file(folder_ / "json"), json);
  std::set<std::string> variables;
  for (const std::string& variable : split(read_file(folder_ / "env"), '\0')) {
    const std::string name = variable.substr(0, variable.find('='));
    // The shell's own, and those that the monitor may have or not.
    if (std::set<std::string>{"PWD", "OLDPWD", "SHLVL", "_", "HOME", "LANG", "TZ", "TMPDIR",
                              "MIRT_MONITOR_COMMAND"}
            .count(name) == 0) {
      variables.insert(variable);
    }
  }
  EXPECT_EQ(variables, (std::set<std::string>{
                           "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                           "MIRT_NAME=two\nlines '\"$(x)\\ \xff\xc3", "MIRT_EMPTY="}));
  EXPECT_EQ(read_file(folder_ / "fds"), "0\n1\n2\n3\n") << "the last is the folder that ls reads";
  const std::string status = read_file(folder_ / "status");
  EXPECT_NE(status.find("\nUmask:\t0027\n"), std::string::npos) << status;
  EXPECT_EQ(signals_in(status, "SigBlk"), 0U);
  EXPECT_EQ(signals_in(status, "SigIgn"), 0U);
  const std::vector<std::string> stat = split(read_file(folder_ / "stat"), ' ');
  ASSERT_GT(stat.size(), 6U);
  EXPECT_EQ(stat[4], stat[0]) << "its group";
  EXPECT_EQ(stat[5], stat[0]) << "its session";
  EXPECT_NE(umask(umask_before), 0027U) << "the umask of the test is its own";
}

// None of them reads what it gets, which is more than a pipe holds.
TEST_F(AlertCommand, ThatFloodsItsOutputIsCutAndGoesOn) {
  AlertLimits limits;
  limits.most_output_lines = 7;
  limits.most_output_bytes = 1000;
  AlertSender sender(
      {command_alert("lines", {"sh", "-c", "yes | head -c 500000; exit 3"}),
       command_alert("bytes", {"sh", "-c", "head -c 500000 /dev/zero >&2"}),
       command_alert("little", {"sh", "-c", "exec <&-; echo a; printf '\\033[2Jb' >&2"})},
      limits);
  for (const char* const alert : {"lines", "bytes", "little", "little"}) {
    sender.send(alert, {std::string(1000000, 'x'), {}});
  }
  ASSERT_TRUE(come_to_rest(sender, "lines", "bytes", "little"));
  EXPECT_EQ(log_.count("alert lines output: y\n"), 7U);
  EXPECT_EQ(log_.count("alert lines: more output"), 1U);
  EXPECT_EQ(status_of(sender, "lines").last_error, "exited with status 3");
  EXPECT_EQ(log_.count("alert bytes output: " + std::string(1000, '?') + "\n"), 1U);
  EXPECT_EQ(log_.count("alert bytes: more output"), 1U);
  EXPECT_EQ(status_of(sender, "bytes").sent, 1U);
  EXPECT_EQ(log_.count("alert little output: a\n"), 2U);
  EXPECT_EQ(log_.count("alert little output: ?[2Jb\n"), 2U) << log_.text();
  EXPECT_EQ(log_.count("alert little: more output"), 0U);
  EXPECT_EQ(status_of(sender, "little").sent, 2U);
}

TEST_F(AlertCommand, ThatNeitherReadsNorEndsCostsNoProcessorTime) {
  const clock_t before = std::clock();
  AlertSender sender({command_alert("closes", {"sh", "-c", "exec <&-; sleep 1"}),
                      command_alert("floods", {"yes"}, 1.0)});
  for (const char* const alert : {"closes", "floods"}) {
    sender.send(alert, {std::string(1000000, 'x'), {}});
  }
  ASSERT_TRUE(come_to_rest(sender, "closes", "floods"));
  EXPECT_LT(std::clock() - before, CLOCKS_PER_SEC / 4);
}

TEST_F(AlertCommand, ThatTakesTooLongIsKilledWithAllThatItStarted) {
  std::string said;
  // A slow machine may not have started them all by then.
  for (double timeout_s = 0.5; said.size() < 3 && timeout_s < 60; timeout_s *= 2) {
    const CapturedLog log;
    const TemporaryFolder folder;
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    const UniqueFd reader(open((folder / "fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    AlertSender sender({shell_alert("ops",
                                    "exec >\"$1/fifo\"; for i in 1 2; do setsid sh -c "
                                    "'(printf x; exec sleep 1000) & wait' & done; "
                                    "trap '' TERM; printf x; wait; wait",
                                    folder, timeout_s)});
    sender.send("ops", {"{}", {}});
    ASSERT_TRUE(come_to_rest(sender, "ops"));
    EXPECT_EQ(status_of(sender, "ops").failed, 1U);
    EXPECT_EQ(log.count("alert ops (command): message not sent: killed after "), 1U);
    // The end of the FIFO comes when nobody has it open any more.
    said.clear();
    ASSERT_TRUE(comes_true([&] {
      char byte = 0;
      const ssize_t got = read(reader.get(), &byte, 1);
      if (got == 1) said += byte;
      return got == 0;
    }));
  }
  EXPECT_EQ(said, "xxx");
}

// Its command waits for the lock of the folder's file "gate".
Alert gated_alert(const std::string& name, const std::string& output,
                  const TemporaryFolder& folder) {
  const std::string waits = "exec flock \"$1/gate\" sh -c 'cat >>\"$0\"' \"$1/" + output + "\"";
  return shell_alert(name, "echo >>\"$1/begun-" + name + "\"; " + waits, folder);
}

bool has_begun(const TemporaryFolder& folder, const std::string& name) {
  return comes_true([&] { return !read_file(folder / ("begun-" + name)).empty(); });
}

TEST_F(AlertSending, QueuesSoManyAndDropsTheOldest) {
  const HeldLock gate(folder_ / "gate");
  AlertLimits limits;
  limits.most_queued = 3;
  limits.most_queued_bytes = 1000;
  AlertSender sender({gated_alert("ops", "out", folder_)}, limits);
  sender.send("ops", {"1", {}});
  ASSERT_TRUE(has_begun(folder_, "ops"));
  for (const char* const json : {"2", "3", "4", "5", "6"}) sender.send("ops", {json, {}});
  EXPECT_EQ(status_of(sender, "ops").queued, 4U);
  EXPECT_EQ(status_of(sender, "ops").dropped, 2U);
  sender.send("ops", {"7" + std::string(998, '.'), {{"MIRT_X", ""}}});
  EXPECT_EQ(status_of(sender, "ops").queued, 2U) << "too many bytes";
  sender.send("unknown", {"x", {}});
  gate.let_go();
  ASSERT_TRUE(come_to_rest(sender, "ops"));
  EXPECT_EQ(read_file(folder_ / "out"), "17" + std::string(998, '.'));
  const AlertStatus status = status_of(sender, "ops");
  EXPECT_EQ(status.sent, 2U);
  EXPECT_EQ(status.dropped, 5U);
  EXPECT_TRUE(
      comes_true([&] { return log_.count("too many messages waiting, dropped: 5\n") == 1; }));
}

TEST_F(AlertSending, ReloadKeepsWhatWaitsAndDropsWhatIsGone) {
  const HeldLock gate(folder_ / "gate");
  AlertSender sender({gated_alert("same", "same", folder_), gated_alert("changed", "old", folder_),
                      gated_alert("gone", "gone", folder_)});
  for (const char* const alert : {"same", "changed", "gone"}) {
    for (const char* const json : {"1", "2", "3"}) sender.send(alert, {json, {}});
    ASSERT_TRUE(has_begun(folder_, alert));
  }
  sender.replace({gated_alert("new", "new", folder_), gated_alert("changed", "new", folder_),
                  gated_alert("same", "same", folder_)});
  sender.send("gone", {"4", {}});
  sender.send("changed", {"4", {}});
  gate.let_go();
  ASSERT_TRUE(come_to_rest(sender, "same", "changed"));
  EXPECT_EQ(read_file(folder_ / "same"), "123");
  EXPECT_EQ(read_file(folder_ / "old"), "1");
  EXPECT_EQ(read_file(folder_ / "new"), "234");
  EXPECT_EQ(status_of(sender, "changed").sent, 4U);
  ASSERT_TRUE(comes_true([&] { return log_.count("ended, waiting messages dropped: 2\n") == 1; }))
      << log_.text();
  EXPECT_EQ(log_.count("too many messages"), 0U);
  EXPECT_EQ(read_file(folder_ / "gone"), "1") << "what was under way goes on";
  EXPECT_EQ(sender.statuses().front().name, "new");
  EXPECT_TRUE(sender.stop(hours(1)));
}

// A socket on a port of this machine. It refuses connections until it listens, and then the kernel
// accepts them, but nobody answers.
class Port {
 public:
  Port() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(socket_.get(), any, size), 0);
    getsockname(socket_.get(), any, &size);
    number_ = ntohs(address.sin_port);
  }
  void listen_only() const { listen(socket_.get(), 100); }
  int accept_one() const { return accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC); }
  int number() const { return number_; }

 private:
  UniqueFd socket_;
  int number_ = 0;
};

// Answers with these in turn, and keeps what it got.
class WebServer : InPlace {
 public:
  explicit WebServer(const std::vector<int>& answers) {
    server_.Post("/hook",
                 [this, answers](const httplib::Request& request, httplib::Response& response) {
                   response.status = answers.at(requests_++ % answers.size());
                   body_ = request.body;
                   target_ = request.target;
                   type_ = request.get_header_value("Content-Type");
                 });
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    EXPECT_TRUE(comes_true([&] { return server_.is_running(); }));
  }
  ~WebServer() { end(); }
  void end() {
    server_.stop();
    if (thread_.joinable()) thread_.join();
  }
  int port() const { return port_; }

  std::atomic<size_t> requests_{0};
  std::string body_, target_, type_;  // of the last request; to be read after end()

 private:
  httplib::Server server_;
  int port_ = 0;
  std::thread thread_;
};

TEST_F(Webhook, IsTriedAgainAfterAFailureOfTheServerOnly) {
  WebServer recovers({500, 503, 200}), refuses({404}), redirects({302});
  AlertSender sender(
      {webhook_alert("recovers", recovers.port()), webhook_alert("refuses", refuses.port()),
       webhook_alert("redirects", redirects.port())},
      patient());
  const std::string json = "{\"text\": \"\xc3\xa4 \\\"quoted\\\"\"}";
  for (const char* const alert : {"recovers", "refuses", "redirects"}) {
    sender.send(alert, {json, {}});
    ASSERT_TRUE(come_to_rest(sender, alert));
  }
  for (WebServer* const server : {&recovers, &refuses, &redirects}) server->end();
  EXPECT_EQ(recovers.requests_, 3U);
  EXPECT_EQ(recovers.body_, json);
  EXPECT_EQ(recovers.target_, "/hook?to=ops");
  EXPECT_EQ(recovers.type_, "application/json");
  const AlertStatus recovered = status_of(sender, "recovers");
  EXPECT_EQ(recovered.sent, 1U);
  EXPECT_EQ(recovered.failed, 0U);
  EXPECT_FALSE(recovered.failing);
  EXPECT_EQ(recovered.last_error, "the server answered 503");
  EXPECT_EQ(log_.count("alert recovers (webhook): failed, will retry: the server answered 500"),
            1U);
  EXPECT_TRUE(comes_true([&] { return log_.count("works again, failures before: 2") == 1; }));
  EXPECT_EQ(refuses.requests_, 1U);
  EXPECT_EQ(status_of(sender, "refuses").failed, 1U);
  EXPECT_TRUE(status_of(sender, "refuses").failing);
  EXPECT_EQ(status_of(sender, "redirects").last_error, "the server answered 302");
}

// Sends one message to the port, which fails, and gives the error.
std::string error_of_post(int port, const AlertLimits& limits) {
  AlertSender sender({webhook_alert("ops", port)}, limits);
  sender.send("ops", {"{}", {}});
  EXPECT_TRUE(come_to_rest(sender, "ops"));
  EXPECT_EQ(status_of(sender, "ops").failed, 1U);
  return status_of(sender, "ops").last_error;
}

TEST_F(Webhook, HasATimeLimitForEachThingThatAServerCanDelay) {
  AlertLimits limits = patient();
  const Port refuses, silent, drips;
  {
    AlertLimits an_hour = limits;
    an_hour.first_pause = hours(1);
    an_hour.give_up = an_hour.longest_pause = hours(2);
    AlertSender sender({webhook_alert("ops", refuses.number())}, an_hour);
    sender.send("ops", {"{}", {}});
    EXPECT_TRUE(comes_true([&] { return log_.count("failed, will retry: cannot connect") == 1; }));
  }
  limits.give_up = milliseconds(20);  // in which there are some attempts
  EXPECT_EQ(error_of_post(refuses.number(), limits), "cannot connect");
  limits.give_up = milliseconds(0);

  silent.listen_only();
  limits.to_answer = milliseconds(50);
  EXPECT_EQ(error_of_post(silent.number(), limits), "no answer");

  // A header line that never ends.
  drips.listen_only();
  std::thread server([&] {
    const UniqueFd connection(drips.accept_one());
    const std::string begin = "HTTP/1.1 200 OK\r\nX: ";
    ssize_t sent = ::send(connection.get(), begin.data(), begin.size(), MSG_NOSIGNAL);
    while (sent > 0) {
      sent = ::send(connection.get(), "x", 1, MSG_NOSIGNAL);
      std::this_thread::sleep_for(milliseconds(1));
    }
  });
  limits.to_answer = hours(1);
  limits.overall = milliseconds(100);
  EXPECT_EQ(error_of_post(drips.number(), limits), "no answer");
  server.join();
}

TEST_F(AlertSending, NothingThatHangsOrFailsDelaysAnother) {
  const Port silent, refuses;
  silent.listen_only();
  WebServer works({200});
  Alert both_ways = webhook_alert("both", silent.number());
  both_ways.command = {"true"};
  const int descriptors = open_descriptors();
  {
    AlertSender sender(
        {shell_alert("hangs", "trap '' TERM; echo >\"$1/begun-hangs\"; exec sleep 100000", folder_),
         command_alert("missing", {"/no/such/program"}), command_alert("floods", {"yes"}),
         shell_alert("leaves", "setsid setsid sleep 100000 & setsid sleep 100000", folder_),
         webhook_alert("silent", silent.number()), webhook_alert("refused", refuses.number()),
         both_ways, command_alert("works", {"true"}), webhook_alert("posts", works.port())},
        patient());
    for (int i = 0; i < 3; ++i) {
      for (const AlertStatus& status : sender.statuses()) sender.send(status.name, {"{}", {}});
    }
    ASSERT_TRUE(has_begun(folder_, "hangs"));
    // Of "both" only its command, which comes first.
    ASSERT_TRUE(come_to_rest(sender, "works", "posts", "missing", "both"));
    EXPECT_EQ(status_of(sender, "works").sent, 3U);
    EXPECT_EQ(status_of(sender, "both").sent, 6U) << "one name, sent for each of its ways";
    EXPECT_EQ(status_of(sender, "missing").failed, 3U);
    EXPECT_EQ(status_of(sender, "missing").last_error,
              "/no/such/program cannot be started: No such file or directory");
    for (const char* const alert : {"hangs", "floods", "leaves", "silent", "refused"}) {
      EXPECT_EQ(status_of(sender, alert).queued, 3U) << alert;
    }
    EXPECT_TRUE(sender.stop(hours(1)));
  }
  EXPECT_EQ(log_.count("message not sent: the monitor is ending"), 3U) << log_.text();
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
  EXPECT_TRUE(comes_true([&] { return open_descriptors() <= descriptors; }))
      << open_descriptors() << " before: " << descriptors;
}

}  // namespace
