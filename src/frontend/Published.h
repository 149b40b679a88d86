// SPDX-License-Identifier: Apache-2.0
/*
 * Slots that are filled once, on first use, and read without a lock ever
 * after: the component records' filled flags, the ArdelWrapper instances,
 * the chosen tracer factory and the tracers it caches.  A slot is written
 * only under the toolkit lock and published with release order once what
 * it points at is complete; the lock-free read takes it with acquire order,
 * so a reader that sees the slot set also sees everything behind it.  The
 * slots themselves stay plain members (some are in the public headers),
 * hence the builtins rather than std::atomic.
 */
#ifndef ARDEL_FRONTEND_PUBLISHED_H
#define ARDEL_FRONTEND_PUBLISHED_H

template <class T>
inline T loadPublished(const T& slot) {
  return __atomic_load_n(&slot, __ATOMIC_ACQUIRE);
}

template <class T>
inline void publish(T& slot, T value) {
  __atomic_store_n(&slot, value, __ATOMIC_RELEASE);
}

#endif
