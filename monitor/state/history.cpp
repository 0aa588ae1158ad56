#include "state/history.h"

#include <algorithm>

void History::add(const Sample& sample) {
  if (newest_.capacity() < kChunk) newest_.reserve(kChunk);
  if (newest_.size() + 1 < kChunk) {
    newest_.push_back(sample);
    return;
  }
  // If there is no memory for the chunk, only this sample is lost.
  auto chunk = std::make_shared<Chunk>();
  *std::copy(newest_.begin(), newest_.end(), chunk->begin()) = sample;
  full_.push_back(std::move(chunk));
  if (full_.size() > kChunks) full_.pop_front();
  newest_.clear();
}

std::vector<Sample> History::samples() const {
  std::vector<Sample> all;
  all.reserve(full_.size() * kChunk + newest_.size());
  for (const auto& chunk : full_) all.insert(all.end(), chunk->begin(), chunk->end());
  all.insert(all.end(), newest_.begin(), newest_.end());
  return all;
}
