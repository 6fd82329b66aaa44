/// Makes the n-th call of a wrapped C function fail. A test executable names the functions in its WRAP list.
#pragma once

/// Arms one fault: the `nth` call (1 is the next one) of `function` fails with `error`; allocations return null with
/// `errno` ENOMEM. Replaces any fault that is armed for the function.
void fail_nth_call(const char *function, int nth, int error = 0);

/// Makes every call of `function` from now on fail with `error`.
void fail_every_call(const char *function, int error = 0);

/// Disarms all faults.
void clear_faults();

/// @return how many calls of `function` have failed since its fault was armed
int faults_fired(const char *function);
