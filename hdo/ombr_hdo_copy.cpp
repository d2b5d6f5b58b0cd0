// Copies of HDO trees. A copy shares its values with the source (the
// copy-on-write rule splits them when they are written); nodes and, for a
// deep copy, attributes are new.
#include "hdo/ombr_hdo_internal.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_copy";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}

}  // namespace

uint32_t _ombr_hdo_child_copy(hdo_node *source, hdo_node *target, uint8_t deep) {
    LockGuard guard(source->lock);
    if (guard.status()) return out(guard.status());

    // Visible values, shared: the target's table takes a reference.
    uint32_t count = 0;
    if (uint32_t status = _ombr_hdo_value_count(source, nullptr, &count)) return out(status);
    for (uint32_t index = 0; index < count; ++index) {
        hdo_value *value = nullptr;
        if (uint32_t status = _ombr_hdo_value_enum(source, index, &value)) return out(status);
        if (uint32_t status = _ombr_hdo_value_set(target, value->name, value)) return out(status);
    }
    if (!deep) return out(guard.release());

    if (source->attributes) {
        // The map copy reports want of memory only by leaving its output unset.
        ombr_stringmap_copy(source->attributes, &target->attributes);
        if (!target->attributes) return out(kNoMemory);
    }
    if (uint32_t status = _ombr_hdo_child_count(source, nullptr, &count)) return out(status);
    for (uint32_t index = 0; index < count; ++index) {
        const char *key = nullptr;
        hdo_node *child = nullptr;
        if (uint32_t status = _ombr_hdo_child_enum(source, index, &key, &child)) return out(status);
        hdo_node *fresh = nullptr;
        if (uint32_t status = _ombr_hdo_create(&fresh)) return out(status);
        uint32_t status = _ombr_hdo_child_copy(child, fresh, deep);
        if (status == 0) status = _ombr_hdo_child_set(target, key, fresh, 0);
        // The target's tree owns the new node now, or it dies here.
        _ombr_hdo_release(fresh);
        if (status) return out(status);
    }
    return out(guard.release());
}

uint32_t _ombr_hdo_copy(hdo_node *source, hdo_node **out_node, uint8_t deep) {
    hdo_node *copy = nullptr;
    if (uint32_t status = _ombr_hdo_create(&copy)) return out(status);
    if (uint32_t status = _ombr_hdo_child_copy(source, copy, deep)) {
        _ombr_hdo_release(copy);
        return out(status);
    }
    *out_node = copy;
    return 0;
}
