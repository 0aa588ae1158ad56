// Heap memory for plain records. An allocation that fails gives null, never an exception.
#ifndef HEAP_MEMORY_H
#define HEAP_MEMORY_H

#include <cstddef>
#include <cstdlib>
#include <memory>

struct Free {
  void operator()(void* memory) const noexcept { free(memory); }
};
template <typename Record>
using HeapArray = std::unique_ptr<Record[], Free>;
template <typename Record>
using HeapRecord = std::unique_ptr<Record, Free>;

// Filled with zeros.
template <typename Record>
HeapArray<Record> allocate_zeroed(size_t count) noexcept {
  return HeapArray<Record>(static_cast<Record*>(calloc(count, sizeof(Record))));
}
template <typename Record>
HeapRecord<Record> allocate_zeroed() noexcept {
  return HeapRecord<Record>(static_cast<Record*>(calloc(1, sizeof(Record))));
}

// Uninitialised, for callers that overwrite it.
template <typename Record>
HeapArray<Record> allocate(size_t count) noexcept {
  return HeapArray<Record>(static_cast<Record*>(malloc(count * sizeof(Record))));
}

#endif
