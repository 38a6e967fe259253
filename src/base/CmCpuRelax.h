#pragma once
/// One pause of a busy-wait loop: tells the processor the loop waits for another
/// core's store, which saves power and lets the sibling hardware thread run.

inline void CmCpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}
