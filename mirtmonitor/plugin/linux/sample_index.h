// Finds the samples of one pass in the other pass.
#ifndef SAMPLE_INDEX_H
#define SAMPLE_INDEX_H

#include <algorithm>
#include <cstring>

#include "allprocess.h"
#include "heap_memory.h"

// Returns the same sample as SearchList() by PID and name, but fast for tens of thousands of
// samples: sorts once, then uses binary search. If memory is short it uses SearchList().
class SampleIndex {
 public:
  explicit SampleIndex(list_head* head) : head_(head) {
    for_each_node(head, [this](list_head*) { ++count_; });
    entries_ = allocate_zeroed<Entry>(count_);
    if (entries_ == nullptr) return;
    size_t order = 0;
    for_each_node(head, [&](list_head* node) {
      entries_[order] = Entry{sample_of(node), order};
      ++order;
    });
    std::sort(begin(), end(), [](const Entry& a, const Entry& b) {
      const int difference = compare(*a.sample, *b.sample);
      return difference != 0 ? difference < 0 : a.order < b.order;
    });
  }

  // Returns the first sample in list order with that PID and name, or null.
  PROCESS_BASICDATA_S* find(PROCESS_BASICDATA_S& wanted) {
    if (entries_ == nullptr) {
      list_head* const node = SearchList(head_, ProcBasicDataCmpMatchPidName, &wanted.stEntry);
      return node != nullptr ? sample_of(node) : nullptr;
    }
    const Entry* const found = std::lower_bound(
        begin(), end(), wanted, [](const Entry& entry, const PROCESS_BASICDATA_S& key) {
          return compare(*entry.sample, key) < 0;
        });
    return found != end() && compare(*found->sample, wanted) == 0 ? found->sample : nullptr;
  }

 private:
  struct Entry {
    PROCESS_BASICDATA_S* sample;
    size_t order;  // keeps equal samples in list order
  };

  static int compare(const PROCESS_BASICDATA_S& a, const PROCESS_BASICDATA_S& b) {
    if (a.pid != b.pid) return a.pid < b.pid ? -1 : 1;
    return strcmp(a.name, b.name);
  }

  Entry* begin() { return entries_.get(); }
  Entry* end() { return entries_.get() + count_; }

  list_head* head_;
  size_t count_ = 0;
  HeapArray<Entry> entries_;
};

#endif
