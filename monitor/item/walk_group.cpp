#include "item/walk_group.h"

namespace {
thread_local MIRT_WALK_GROUP* g_group = nullptr;
}

// The plug-in calls it.
MIRT_WALK_GROUP* MIRT_CurrentWalkGroup() {
  return g_group;
}

WalkGroup::~WalkGroup() {
  if (record_.lines != nullptr) record_.leave(record_.lines);
}

WalkGroup::Member::Member(WalkGroup* group) : before_(g_group) {
  g_group = group == nullptr ? nullptr : &group->record_;
}

WalkGroup::Member::~Member() {
  g_group = before_;
}
