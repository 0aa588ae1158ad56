/* For hosts that call several items one after another on one thread: these calls can share one walk
 * over /proc. Plain C can include this header.
 *
 * The first call that has to search reads all command lines, after the group was made. Later
 * searches of the same group look through these lines. So all calls of a group answer as if they
 * had begun together with the first one; a host that needs a newer answer makes a new group.
 */
#ifndef MIRT_WALK_GROUP_H
#define MIRT_WALK_GROUP_H

typedef struct tagMIRT_WALK_GROUP {
  /* The command lines; NULL before the first search. Owned by the plug-in. */
  void* lines;
  /* Set together with `lines`: the host calls leave(lines) after the last call of the group. */
  void (*leave)(void* lines);
  /* Changes with every process that a search of this group passes, and while the walk that it waits
   * for makes progress; other threads may read it with __atomic_load_n(). */
  unsigned int steps;
} MIRT_WALK_GROUP;

#ifdef __cplusplus
extern "C" {
#endif

/* The host program may define and export this function. It returns the group to which calls of the
 * current thread belong; NULL: each of them is a call of its own. Without this function no call has
 * a group. */
MIRT_WALK_GROUP* MIRT_CurrentWalkGroup(void);

#ifdef __cplusplus
}
#endif

#endif
