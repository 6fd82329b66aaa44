// Base64 texts of any characters, decoded between blocks of exactly the documented sizes; any bytes, there and back.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "valtrix_socklib.h"

namespace {

void require(bool condition) {
    if (!condition)
        __builtin_trap();
}

void decode(const uint8_t *data, size_t size) {
    const std::unique_ptr<char[]> text(new char[size]);
    std::copy_n(data, size, text.get());
    const std::unique_ptr<char[]> out(new char[3 * size / 4 + 1]);
    const int written = base64decode(text.get(), out.get(), static_cast<int>(size));
    require(written >= 0 && out[static_cast<size_t>(written)] == '\0');

    const std::unique_ptr<char[]> in_place(new char[size + 1]);
    std::copy_n(data, size, in_place.get());
    require(base64decode(in_place.get(), in_place.get(), static_cast<int>(size)) == written);
    require(std::memcmp(in_place.get(), out.get(), static_cast<size_t>(written)) == 0);

    const int unpadded = remove_base64_padding(text.get(), static_cast<int>(size));
    require(unpadded >= 0 && static_cast<size_t>(unpadded) <= size);
    require(base64decode(text.get(), out.get(), unpadded) == written);
}

void there_and_back(const uint8_t *data, size_t size) {
    const size_t encoded = 4 * ((size + 2) / 3);
    const std::unique_ptr<char[]> text(new char[encoded + 1]);
    to64frombits(text.get(), data, static_cast<int>(size));
    require(std::strlen(text.get()) == encoded);
    const std::unique_ptr<char[]> out(new char[3 * encoded / 4 + 1]);
    require(base64decode(text.get(), out.get(), static_cast<int>(encoded)) == static_cast<int>(size));
    require(std::memcmp(out.get(), data, size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    decode(data, size);
    there_and_back(data, size);
    return 0;
}
