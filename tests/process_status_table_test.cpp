// The table of threads, against a model of it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "fake_threads.h"

namespace {

class ThreadTable : public ProcFixture {
 protected:
  using Key = std::pair<pid_t, pid_t>;
  // The state (0: it has ended) and the counts of a thread in /proc.
  using Sight = std::tuple<char, unsigned long, unsigned long>;

  unsigned int random(size_t below) { return static_cast<unsigned int>(random_() % below); }

  // Mostly in D state, with unchanged counts.
  void change_world(const Key& key) {
    auto& [state, voluntary, nonvoluntary] = world_[key];
    state = "DDDDDDDDDS"[random(11)];
    voluntary += random(6) == 0 ? 1 : 0;
    nonvoluntary += random(6) == 0 ? 1 : 0;
    remove(thread_dir(key.first, key.second));
    if (state != 0) put_thread(key.first, key.second, voluntary, nonvoluntary, state);
  }

  // Finds or adds its entry and counts, as a detection does.
  void detect(const Key& key) {
    const auto own = std::find_if(model_.begin(), model_.end(), [&](const auto& entry) {
      return Key(entry.pid, entry.tid) == key;
    });
    thread_info_t* const entry = plugin_.find_thread_info(&table_, key.first, key.second);
    ASSERT_EQ(entry, own != model_.end() ? &table_.thread_info[own - model_.begin()] : nullptr);
    if (entry != nullptr) {
      entry->times = ++own->times;
      return;
    }
    const bool full = model_.size() == kMaxThreadInfos;
    const auto& [state, voluntary, nonvoluntary] = world_[key];
    ASSERT_EQ(plugin_.alloc_thread_info(&table_, key.first, key.second, voluntary, nonvoluntary),
              full ? nullptr : &table_.thread_info[model_.size()]);
    refused_ += full ? 1 : 0;
    if (full) return;
    thread_info_t& added = model_.emplace_back();
    added.pid = key.first;
    added.tid = key.second;
    added.first_voluntary_ctxt_switches = voluntary;
    added.first_nonvoluntary_ctxt_switches = nonvoluntary;
  }

  void erase(unsigned int index) {
    plugin_.del_thread_info(&table_, index);
    if (index < model_.size()) model_.erase(model_.begin() + index);
  }

  void clean() {
    plugin_.clean_thread_info_set(&table_);
    const auto last = std::remove_if(model_.begin(), model_.end(), [this](const auto& entry) {
      return world_[{entry.pid, entry.tid}] != Sight('D', entry.first_voluntary_ctxt_switches,
                                                     entry.first_nonvoluntary_ctxt_switches);
    });
    cleaned_away_ += model_.end() - last;
    model_.erase(last, model_.end());
  }

  // Every byte: the entries, their order, and the zeros after them.
  void expect_as_modelled() const {
    const auto expected = std::make_unique<thread_info_set_t>();
    expected->thread_info_unused = static_cast<unsigned int>(model_.size());
    std::copy(model_.begin(), model_.end(), expected->thread_info);
    // NOLINTNEXTLINE(bugprone-suspicious-memory-comparison): padding has to stay zero, too
    ASSERT_EQ(memcmp(&table_, expected.get(), sizeof table_), 0);
  }

  MIRT_Linux_Plugin plugin_{};
  thread_info_set_t table_{};
  std::vector<thread_info_t> model_;
  std::map<Key, Sight> world_;
  std::mt19937 random_{20240607};
  long refused_ = 0, cleaned_away_ = 0;
};

TEST_F(ThreadTable, StaysAsItsModelUnderRandomOperations) {
  for (int step = 0; step < 8000 && !HasFatalFailure(); ++step) {
    SCOPED_TRACE(testing::Message() << "step " << step << ", entries " << model_.size());
    const Key key{100 + random(4), random(150)};
    const unsigned int operation = random(1000);
    if (operation < 750) detect(key);
    if (operation >= 750 && operation < 790) erase(random(model_.size() + 2));
    if (operation >= 790 && operation < 998) change_world(key);
    if (operation >= 998) clean();
    expect_as_modelled();
  }
  EXPECT_GT(refused_, 10) << "the table was full at times";
  EXPECT_GT(cleaned_away_, 100);
}

}  // namespace
