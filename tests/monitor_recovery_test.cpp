// How often mirt-monitor allows a recovery, and what its commands are given.

#include <sys/stat.h>

#include "monitor_fixture.h"

namespace {

TEST_F(MonitorTest, RecoveriesAreCountedOverRestartsAndRefusedBeyondTheirNumber) {
  const std::pair<std::string, unsigned> rows[] = {
      {"redundancy = 'allow'\n", 1},
      {"redundancy = 'command'\ncommand = 'echo asked >&2'\nat_most = 2\nper = '1 h'\n", 2}};
  for (const auto& [recovery, at_most] : rows) {
    // The data plane under two process ids, as after a restart.
    const Child first({"first", "-u"}), second({"second", "-u"});
    Monitor monitor = started(
        "[recovery]\n" + recovery + reboot("first", first.pid()) + reboot("second", second.pid()),
        "--rounds 4");
    EXPECT_EQ(monitor.records().size(), 8U);
    const std::string log = monitor.end(0);
    EXPECT_EQ(count_of("redundancy status(1)", log), at_most) << log;
    EXPECT_EQ(count_of("redundancy status(0)", log), 8U - at_most) << log;
    EXPECT_EQ(count_of("recovery refused: the limit is " + std::to_string(at_most) + " in ", log),
              8U - at_most)
        << log;
    const bool has_command = recovery.find("command") != std::string::npos;
    EXPECT_EQ(count_of("asked\n", log), has_command ? at_most : 0);
  }
}

TEST_F(MonitorTest, WhatTheCommandRefusesIsNotCounted) {
  const Child first({"first", "-u"});
  // Twice no, then yes for ever.
  Monitor monitor = started(
      "[recovery]\nredundancy = 'command'\ncommand = 'echo >>asked; test $(wc -l <asked) -gt 2'\n" +
          reboot("first", first.pid()),
      "--rounds 4");
  const std::string log = (monitor.records(), monitor.end(0));
  EXPECT_EQ(count_of("the command's exit status is 1", log), 2U) << log;
  EXPECT_EQ(count_of("redundancy status(1)", log), 1U) << log;
  EXPECT_EQ(count_of("recovery refused: the limit is 1 in 600 s", log), 1U) << log;
}

TEST_F(MonitorTest, CommandsAreGivenNoPipeOfAnother) {
  mkfifo((folder_ / "fifo").c_str(), 0600);
  Monitor monitor = started(
      "[recovery]\nredundancy = 'command'\ncommand = 'ls /proc/self/fd >new; mv new seen; exit "
      "1'\n" +
      reboot("reboot", 1) + pre_command("ask", "cat fifo", "x"));
  const int writer = open((folder_ / "fifo").c_str(), O_WRONLY | O_CLOEXEC);  // waits for cat
  // The second answer from here on is of a command that was started while cat runs.
  for (int i = 0; i < 2; ++i) monitor.await({{"instance", "reboot"}});
  EXPECT_EQ(read_file(folder_ / "seen"), "0\n1\n2\n3\n") << "3 is the folder that ls reads";
  monitor.stop_unread();
  close(writer);
}

}  // namespace
