// Scratch arrays for the per-case passes: memory kept from one pass to the
// next and taken from the program's allocator, so that running out of memory
// ends the run with the usual message. Grow them before a parallel loop,
// never inside one. Elements must be plain values (no constructors run).
#ifndef VESK_BASE_SCRATCH_H
#define VESK_BASE_SCRATCH_H

#include <cstddef>
#include <cstdlib>

#include "base/misc.h"

template <typename T>
struct ScratchArray {
  T *data = nullptr;
  size_t size = 0, cap = 0;

  // The array owns its block: it can move (into a growing std::vector) but
  // not be copied, and it frees the block when it goes away.
  ScratchArray() = default;
  ScratchArray(const ScratchArray &) = delete;
  ScratchArray &operator=(const ScratchArray &) = delete;
  ScratchArray(ScratchArray &&o) noexcept : data(o.data), size(o.size), cap(o.cap) {
    o.data = nullptr;
    o.size = o.cap = 0;
  }
  ScratchArray &operator=(ScratchArray &&o) noexcept {
    if (this != &o) {
      free(data);
      data = o.data;
      size = o.size;
      cap = o.cap;
      o.data = nullptr;
      o.size = o.cap = 0;
    }
    return *this;
  }
  ~ScratchArray() { free(data); }

  // Makes room for n elements (old contents kept up to the old size).
  T *resize(size_t n, const char *module, int site) {
    if (n > cap) {
      data = static_cast<T *>(xrealloc0(data, sizeof(T) * n, module, site));
      cap = n;
    }
    size = n;
    return data;
  }
  T &operator[](size_t i) { return data[i]; }
  const T &operator[](size_t i) const { return data[i]; }
};

// Elements per thread for a per-thread share of n elements: at least 64
// bytes of padding, rounded up to whole 128-byte lines, so that threads
// writing their own shares never write to the same cache line.
template <typename T>
size_t per_thread_count(size_t n) {
  const size_t line = 128;
  return ((n * sizeof(T) + 64 + line - 1) / line * line) / sizeof(T);
}

#endif
