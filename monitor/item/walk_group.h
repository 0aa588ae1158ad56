// Calls that share one walk over /proc, because one thread makes them one after another.
#ifndef MONITOR_WALK_GROUP_H
#define MONITOR_WALK_GROUP_H

#include "mirt_walk_group.h"

class WalkGroup {
 public:
  WalkGroup() = default;
  WalkGroup(const WalkGroup&) = delete;
  WalkGroup& operator=(const WalkGroup&) = delete;
  ~WalkGroup();

  // While this object exists, calls of the current thread belong to the group.
  class Member {
   public:
    explicit Member(WalkGroup* group);  // null: to none
    Member(const Member&) = delete;
    Member& operator=(const Member&) = delete;
    ~Member();

   private:
    MIRT_WALK_GROUP* const before_;
  };

  // True after the first search of the group: the others read nothing. For the group's thread.
  bool has_lines() const { return record_.lines != nullptr; }

  // Changes while a search makes progress. For any thread.
  unsigned steps() const { return __atomic_load_n(&record_.steps, __ATOMIC_RELAXED); }

 private:
  MIRT_WALK_GROUP record_{};
};

#endif
