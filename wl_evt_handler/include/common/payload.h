/// Reading fixed-size records out of payloads whose length came from outside.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// A copy of the record at the start of `payload`; bytes beyond `available` read as 0.
///
/// @param payload    start of the bytes; null counts as none
/// @param available  bytes that may be read, negative counts as 0
template <class Record> Record read_payload(const void *payload, int64_t available) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record{};
    if (payload != nullptr && available > 0)
        std::memcpy(&record, payload, static_cast<size_t>(std::min<int64_t>(sizeof record, available)));
    return record;
}
