// Polling: the store waits for other processes by trying again about once a
// second, counting attempts rather than reading a clock, so a test on a fake
// sleeper runs a minute's wait instantly.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/env.h"

namespace qaaisp {

// Calls attempt(n) for n = 1..max_attempts, sleeping interval_ms between
// two calls, until it returns true. Gives the number of the call that
// succeeded, or 0 if none did.
template <typename Attempt>
int Poll(platform::Env* env, int max_attempts, uint32_t interval_ms, Attempt&& attempt) {
  for (int n = 1; n <= max_attempts; ++n) {
    if (attempt(n)) return n;
    if (n < max_attempts) env->SleepMs(interval_ms);
  }
  return 0;
}

}  // namespace qaaisp
