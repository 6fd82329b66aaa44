/// What the wrapped functions ask.
#pragma once

/// @return true when this call of `function` is to fail; `errno` is then set as armed
bool fault_is_due(const char *function);
