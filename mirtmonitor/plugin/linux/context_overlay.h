// Access to an item's state inside its context record.
#ifndef CONTEXT_OVERLAY_H
#define CONTEXT_OVERLAY_H

#include <cstring>

#include "mirt_interface.h"

// Provides an aligned copy of the overlay and writes it back in the destructor. The overlay starts
// at offset 4 of the context record, so its 64-bit fields are not aligned there.
template <typename Overlay>
class ContextOverlay {
 public:
  explicit ContextOverlay(FI_CONTEXT_S& context) noexcept : bytes_(context.contextbuff) {
    static_assert(sizeof(Overlay) <= FI_CONTEXT_BUFF_LEN, "an overlay fits its buffer");
    memcpy(&overlay_, bytes_, sizeof overlay_);
  }
  ContextOverlay(const ContextOverlay&) = delete;
  ContextOverlay& operator=(const ContextOverlay&) = delete;
  ~ContextOverlay() { memcpy(bytes_, &overlay_, sizeof overlay_); }

  Overlay* get() noexcept { return &overlay_; }
  Overlay* operator->() noexcept { return &overlay_; }

 private:
  char* bytes_;
  Overlay overlay_;
};

#endif
