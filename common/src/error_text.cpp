#include "error_text.h"

#include <cstring>

namespace {

// strerror_r comes in two forms: one returns the text, the other a code and leaves the text in the buffer.
[[maybe_unused]] const char *text_of(const char *result, const char *) {
    return result;
}

[[maybe_unused]] const char *text_of(int, const char *buffer) {
    return buffer;
}

}  // namespace

const char *error_text(int error) {
    static thread_local char buffer[64];
    return text_of(strerror_r(error, buffer, sizeof buffer), buffer);
}
