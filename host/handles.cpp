// Handle manager: a registry of live handles by address and magic word.
// Validation looks the address up without touching it, so a stale or
// foreign pointer is refused rather than dereferenced.
#include <cstdint>
#include <cstdlib>
#include <mutex>
#include <new>

#include "host_internal.h"

namespace {

constexpr uint32_t kInvalid = 0x90090321u;  // handle package, bad handle
constexpr uint32_t kBadArg = 0x90090001u;

// Live handles by address: open addressing with linear probing and
// backward-shift deletion, so that adding, removing and finding a handle
// allocate nothing but an occasional larger table.
class Registry {
 public:
    struct Slot {
        const void *key;
        uint32_t magic;
    };

    void set(const void *p, uint32_t magic) {
        if ((count_ + 1) * 2 > capacity_) grow();
        size_t i = home(p);
        while (slots_[i].key && slots_[i].key != p) i = (i + 1) & (capacity_ - 1);
        if (!slots_[i].key) ++count_;
        slots_[i] = {p, magic};
    }
    void erase(const void *p) {
        if (!count_) return;
        size_t i = home(p);
        while (slots_[i].key != p) {
            if (!slots_[i].key) return;
            i = (i + 1) & (capacity_ - 1);
        }
        // Moves later entries of the run back into the gap where their home
        // allows, so that no probe sequence is broken.
        size_t gap = i;
        for (size_t j = (gap + 1) & (capacity_ - 1); slots_[j].key; j = (j + 1) & (capacity_ - 1)) {
            const size_t h = home(slots_[j].key);
            if (((j - h) & (capacity_ - 1)) >= ((j - gap) & (capacity_ - 1))) {
                slots_[gap] = slots_[j];
                gap = j;
            }
        }
        slots_[gap] = {nullptr, 0};
        --count_;
    }
    const Slot *find(const void *p) const {
        if (!count_) return nullptr;
        for (size_t i = home(p);; i = (i + 1) & (capacity_ - 1)) {
            if (slots_[i].key == p) return &slots_[i];
            if (!slots_[i].key) return nullptr;
        }
    }
    template <typename Visit>
    void each(Visit visit) const {
        for (size_t i = 0; i < capacity_; ++i)
            if (slots_[i].key) visit(slots_[i]);
    }

 private:
    size_t home(const void *p) const {
        auto x = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(p));
        x ^= x >> 33;
        x *= 0xff51afd7ed558ccdULL;
        x ^= x >> 33;
        return static_cast<size_t>(x) & (capacity_ - 1);
    }
    void grow() {
        Slot *old = slots_;
        const size_t old_capacity = capacity_;
        capacity_ = capacity_ ? capacity_ * 2 : 256;
        slots_ = static_cast<Slot *>(std::calloc(capacity_, sizeof(Slot)));
        if (!slots_) throw std::bad_alloc();
        count_ = 0;
        for (size_t i = 0; i < old_capacity; ++i)
            if (old[i].key) set(old[i].key, old[i].magic);
        std::free(old);
    }

    Slot *slots_ = nullptr;
    size_t capacity_ = 0, count_ = 0;
};

// Constant-initialised and never destroyed: usable from any static
// constructor or destructor, and no guard on each use.
host::SpinLock g_lock;
Registry g_registry;
Registry &live() { return g_registry; }

uint32_t handle_add(void *record) {
    if (!record) return kBadArg;
    host::handles_add(record, *static_cast<const uint32_t *>(record));
    return 0;
}

uint32_t handle_remove(void *record) {
    if (!record) return kBadArg;
    host::handles_remove(record);
    return 0;
}

uint32_t handle_validate(const void *record, uint32_t magic) {
    if (!record) return kBadArg;
    return host::handles_valid(record, magic) ? 0 : kInvalid;
}

uint32_t handle_validate_user(const void *user) {
    if (!user) return kBadArg;
    return host::handles_valid(user, host::kUserMagic) ? 0 : kInvalid;
}

uint32_t handle_validate_rvo(const void *rvo) {
    if (!rvo) return kBadArg;
    return host::handles_valid(rvo, host::kRvoMagic) ? 0 : kInvalid;
}

const zelto_handlemanager_interface g_table = {
    .release = host::table_release,
    .handle_add = handle_add,
    .handle_remove = handle_remove,
    .handle_validate = handle_validate,
    .reserved4 = nullptr,
    .handle_validate_user = handle_validate_user,
    .handle_validate_rvo = handle_validate_rvo,
};

}  // namespace

namespace host {

const void *handles_table() { return &g_table; }

void handles_add(const void *p, uint32_t magic) {
    std::lock_guard<host::SpinLock> guard(g_lock);
    live().set(p, magic);
}

void handles_remove(const void *p) {
    std::lock_guard<host::SpinLock> guard(g_lock);
    live().erase(p);
}

bool handles_valid(const void *p, uint32_t magic) {
    std::lock_guard<host::SpinLock> guard(g_lock);
    const Registry::Slot *slot = live().find(p);
    return slot && slot->magic == magic;
}

}  // namespace host

HOST_EXPORT uint32_t zelto_manager_handle_count(void) {
    std::lock_guard<host::SpinLock> guard(g_lock);
    uint32_t n = 0;
    live().each([&](const Registry::Slot &slot) {
        if (!host::is_host_magic(slot.magic)) ++n;
    });
    return n;
}
