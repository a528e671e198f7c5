// SPDX-License-Identifier: BSD-3-Clause
// Built into every executable of an AddressSanitizer build.
//
// The aging thread ends by cancellation: its frames are unwound without
// running their epilogues, so the stack redzones ASan put around their locals
// stay poisoned. At thread exit ASan's own sigaltstack call then writes into
// that stack and reports its own write as an underflow. Without a per-thread
// alternate signal stack ASan makes no such call; real errors are still
// found, only a stack overflow is reported less nicely.
extern "C" const char *__asan_default_options() {
    return "use_sigaltstack=0:detect_leaks=1:strict_string_checks=1";
}
