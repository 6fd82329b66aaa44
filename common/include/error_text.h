/// Texts of `errno` values for log lines, from any thread.
#pragma once

/// @return the text of an `errno` value; valid until the calling thread's next call
const char *error_text(int error);
