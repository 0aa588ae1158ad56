// The private members of the class, for tests that need exact numbers from them. An explicit
// instantiation may name a private member, and the friend that it defines hands the pointer out.
#ifndef PRIVATE_ACCESS_H
#define PRIVATE_ACCESS_H

#include "common_plugin.h"

namespace private_access {

template <typename Tag, typename Tag::Pointer kMember>
struct Expose {
  friend typename Tag::Pointer member(Tag) { return kMember; }
};

#define EXPOSE(Tag, type, name) \
  struct Tag {                  \
    using Pointer = type;       \
    friend Pointer member(Tag); \
  };                            \
  template struct Expose<Tag, &MIRT_Linux_Plugin::name>

using CountOf = unsigned int (MIRT_Linux_Plugin::*)(pid_t);
using Percent = float (MIRT_Linux_Plugin::*)(pid_t, unsigned long long&, unsigned long long&);
using Match = bool (*)(const char*, const char*);
EXPOSE(FuzzyMatch, Match, str_fuzzy_match);
EXPOSE(Pcpu, Percent, get_pcpu);
EXPOSE(HandleCount, CountOf, get_handle_count);
EXPOSE(HandleMax, CountOf, get_handle_max);
EXPOSE(HandleUsage, CountOf, get_handle_usage);
#undef EXPOSE

inline bool str_fuzzy_match(const char* text, const char* pattern) {
  return member(FuzzyMatch{})(text, pattern);
}
inline float get_pcpu(pid_t pid, unsigned long long& total, unsigned long long& process) {
  MIRT_Linux_Plugin plugin;
  return (plugin.*member(Pcpu{}))(pid, total, process);
}
inline unsigned int get_handle_count(pid_t pid) {
  MIRT_Linux_Plugin plugin;
  return (plugin.*member(HandleCount{}))(pid);
}
inline unsigned int get_handle_max(pid_t pid) {
  MIRT_Linux_Plugin plugin;
  return (plugin.*member(HandleMax{}))(pid);
}
inline unsigned int get_handle_usage(pid_t pid) {
  MIRT_Linux_Plugin plugin;
  return (plugin.*member(HandleUsage{}))(pid);
}

}  // namespace private_access

#endif
