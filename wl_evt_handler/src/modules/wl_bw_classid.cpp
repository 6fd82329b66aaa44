#include "wl_bw_internal.h"

#include <algorithm>

#include "debug_log.h"

namespace {

constexpr uint32_t BITS_PER_WORD = 64;

uint64_t &word_of(bw_profile *profile, uint32_t classid) {
    return profile->classid_bm[classid % BW_CLASS_IDS / BITS_PER_WORD];
}

uint64_t bit_of(uint32_t classid) {
    return uint64_t{1} << classid % BITS_PER_WORD;
}

/// Marks a class id as in use.
///
/// @return false when it already was
bool take(bw_profile *profile, uint32_t classid) {
    uint64_t &word = word_of(profile, classid);
    if ((word & bit_of(classid)) != 0)
        return false;
    word |= bit_of(classid);
    return true;
}

/// Round robin, so that a freed id rests as long as possible before another station gets it. The steps are counted,
/// because the id handed out last may be one of a damaged cache that no step ever reaches.
uint32_t get_class_id_next_unused(bw_profile *profile) {
    for (uint32_t step = 1; step <= BW_CLASS_IDS; step++) {
        const uint32_t classid = (profile->last_classid + step) % BW_CLASS_IDS;
        if (take(profile, classid)) {
            profile->last_classid = classid;
            return classid;
        }
    }
    WL_LOG(3, "Error: class_id is not available.");
    return BW_CLASS_IDS;
}

uint32_t get_class_id_rule(bw_profile *profile, const bw_rule_info *req) {
    const uint32_t classid = req->classid;
    if (!take(profile, classid)) {
        WL_LOG(2, "Error: Looking for classid already used.");
        return BW_CLASS_IDS;
    }
    profile->last_classid = std::max(profile->last_classid, classid);
    return classid;
}

}  // namespace

uint32_t get_class_id(bw_profile *profile, const bw_rule_info *req) {
    return restoring_cache != 0 ? get_class_id_rule(profile, req) : get_class_id_next_unused(profile);
}

void release_class_id(bw_profile *profile, uint32_t classid) {
    word_of(profile, classid) &= ~bit_of(classid);
}
