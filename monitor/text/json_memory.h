// JSON values whose destructors do not fail when memory is short.
#ifndef MONITOR_JSON_MEMORY_H
#define MONITOR_JSON_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <type_traits>
#include <utility>

#include "proc/spare_memory.h"

using Json = nlohmann::ordered_json;

// The library's destructor moves the values inside a value to a std::vector, which allocates: an
// exception there would end the program. So vectors of values have memory that was set aside. The
// library offers no other way to choose the allocator of this vector.
template <>
struct std::allocator<Json> {
  using value_type = Json;
  using size_type = size_t;
  using difference_type = ptrdiff_t;
  using is_always_equal = std::true_type;
  using propagate_on_container_move_assignment = std::true_type;

  allocator() = default;
  template <typename Other>
  allocator(const std::allocator<Other>& /*other*/) noexcept {}  // NOLINT(*-explicit-*)

  Json* allocate(size_t count) {
    const NoFailure none;
    return static_cast<Json*>(::operator new(count * sizeof(Json)));
  }
  void deallocate(Json* values, size_t /*count*/) noexcept { ::operator delete(values); }

  // C++17 requires these of a std::allocator.
  template <typename Value, typename... Arguments>
  void construct(Value* place, Arguments&&... arguments) {
    ::new (static_cast<void*>(place)) Value(std::forward<Arguments>(arguments)...);
  }
  template <typename Value>
  void destroy(Value* value) noexcept {
    value->~Value();
  }
  size_t max_size() const noexcept { return PTRDIFF_MAX / sizeof(Json); }

  friend bool operator==(const allocator& /*a*/, const allocator& /*b*/) { return true; }
  friend bool operator!=(const allocator& /*a*/, const allocator& /*b*/) { return false; }
};

#endif
