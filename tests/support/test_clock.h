/// The time of day as a test sets it. Needs `time` in the test executable's WRAP list.
#pragma once

#include <ctime>

inline time_t test_time;  // what time() returns; 0: the real time
