// The table of threads, against a model of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <vector>

#include "common_plugin.h"
#include "fake_threads.h"

namespace {

class ThreadTable : public ProcFixture {
 protected:
  using Key = std::pair<pid_t, pid_t>;
  // What /proc says of a thread; kUnreadable: its status is there and holds nothing.
  enum Kind { kGone, kHangs, kRuns, kUnreadable };
  struct Sight {
    Kind kind = kGone;
    unsigned long counts[2] = {};
  };

  unsigned int random(size_t below) { return static_cast<unsigned int>(random_() % below); }

  std::vector<thread_info_t>::iterator modelled(const Key& key) {
    return std::find_if(model_.begin(), model_.end(),
                        [&](const auto& entry) { return Key(entry.pid, entry.tid) == key; });
  }

  // Mostly hangs, or hangs on, with one of its counts moved by one or neither.
  void change_world(const Key& key) {
    Sight& sight = world_[key];
    const unsigned int what = random(12);
    sight.kind = sight.kind == kGone || what < 8 ? kHangs : static_cast<Kind>(what % 4);
    if (what < 4) ++sight.counts[what % 2];
    const std::string directory = thread_dir(key.first, key.second);
    remove(directory);
    if (sight.kind == kUnreadable) make_dir(directory + "/status");
    if (sight.kind != kHangs && sight.kind != kRuns) return;
    put_thread(key.first, key.second, sight.counts[0], sight.counts[1],
               sight.kind == kHangs ? 'D' : 'S');
  }

  void allocate(const Key& key) {
    if (world_[key].kind == kGone) change_world(key);
    const unsigned long* const counts = world_[key].counts;
    const thread_info_t* const entry =
        plugin_.alloc_thread_info(&table_, key.first, key.second, counts[0], counts[1]);
    const bool full = model_.size() == kMaxThreadInfos;
    ASSERT_EQ(entry, full ? nullptr : &table_.thread_info[model_.size()]);
    refused_ += full ? 1 : 0;
    if (full) return;
    thread_info_t& own = model_.emplace_back();
    memset(static_cast<void*>(&own), 0, sizeof own);  // its padding as well
    own.pid = key.first;
    own.tid = key.second;
    own.first_voluntary_ctxt_switches = counts[0];
    own.first_nonvoluntary_ctxt_switches = counts[1];
  }

  // Looks it up, and ages it as a detection does.
  void detect(const Key& key) {
    thread_info_t* const entry = plugin_.find_thread_info(&table_, key.first, key.second);
    const auto expected = modelled(key);
    if (expected == model_.end()) return allocate(key);
    ASSERT_EQ(entry, &table_.thread_info[expected - model_.begin()]);
    entry->times = ++expected->times;
    entry->current_voluntary_ctxt_switches = expected->current_voluntary_ctxt_switches = random(99);
    entry->current_nonvoluntary_ctxt_switches = expected->current_nonvoluntary_ctxt_switches = 7;
  }

  void erase(unsigned int index) {
    plugin_.del_thread_info(&table_, index);
    if (index < model_.size()) model_.erase(model_.begin() + index);
  }

  void clean() {
    plugin_.clean_thread_info_set(&table_);
    const auto last = std::remove_if(model_.begin(), model_.end(), [this](const auto& entry) {
      const Sight& sight = world_[{entry.pid, entry.tid}];
      return sight.kind != kHangs || sight.counts[0] != entry.first_voluntary_ctxt_switches ||
             sight.counts[1] != entry.first_nonvoluntary_ctxt_switches;
    });
    cleaned_away_ += model_.end() - last;
    model_.erase(last, model_.end());
  }

  // Every byte: the entries, their order, and the zeros behind them.
  void expect_as_modelled() const {
    static thread_info_set_t expected;
    memset(static_cast<void*>(&expected), 0, sizeof expected);
    expected.thread_info_unused = static_cast<unsigned int>(model_.size());
    for (size_t i = 0; i < model_.size(); ++i) expected.thread_info[i] = model_[i];
    ASSERT_EQ(memcmp(&table_, &expected, sizeof expected), 0);
  }

  MIRT_Linux_Plugin plugin_{};
  thread_info_set_t table_{};
  std::vector<thread_info_t> model_;
  std::map<Key, Sight> world_;
  std::mt19937 random_{20240607};
  long refused_ = 0, cleaned_away_ = 0;
};

TEST_F(ThreadTable, StaysAsItsModelUnderRandomOperations) {
  for (int step = 0; step < 8000; ++step) {
    SCOPED_TRACE(testing::Message() << "step " << step << ", entries " << model_.size());
    const Key key{100 + random(4), random(150)};
    const unsigned int operation = random(1000);
    if (operation < 750) {
      detect(key);
    } else if (operation < 790) {
      erase(random(model_.size() + 2));
    } else if (operation < 998) {
      change_world(key);
    } else {
      clean();
    }
    expect_as_modelled();
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(refused_, 10) << "the table was full at times";
  EXPECT_GT(cleaned_away_, 100);

  for (auto& [key, sight] : world_) {
    remove(std::to_string(key.first));
    sight.kind = kGone;
  }
  clean();
  expect_as_modelled();
  EXPECT_EQ(table_.thread_info_unused, 0U);
}

TEST_F(ThreadTable, TakesNothingWhenThereIsNoneOrItsCountIsTooHigh) {
  EXPECT_EQ(plugin_.find_thread_info(nullptr, 1, 1), nullptr);
  EXPECT_EQ(plugin_.alloc_thread_info(nullptr, 1, 1, 0, 0), nullptr);
  plugin_.del_thread_info(nullptr, 0);
  plugin_.clean_thread_info_set(nullptr);
  table_.thread_info_unused = kMaxThreadInfos + 1;
  EXPECT_EQ(plugin_.alloc_thread_info(&table_, 1, 1, 0, 0), nullptr);
  EXPECT_EQ(table_.thread_info_unused, kMaxThreadInfos + 1);
}

}  // namespace
