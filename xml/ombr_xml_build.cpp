// The tree builder behind uXMLParseBufToElement. It builds what TreeHelper
// builds, event for event, with two differences of cost only: open elements
// sit in a fixed stack (the parser bounds the depth) instead of one heap
// frame each, and the attributes of a start tag are appended at a kept tail
// and, past a handful, found through a hash index, so that a hostile tag
// with very many attributes costs linear time instead of quadratic.
#include "xml/ombr_xml_internal.h"

namespace uxml {
namespace {

// Attributes of one start tag up to this count are searched by walking
// the list.
constexpr uint32_t kLinearAttributes = 8;

// Open-addressing index from attribute name to the link that points at the
// attribute (the list head or the previous attribute's `next`), so that an
// attribute set again is unlinked in constant time. Entries of an earlier
// start tag are told apart by generation; clearing is a counter step.
class AttributeIndex {
   public:
    AttributeIndex() = default;
    AttributeIndex(const AttributeIndex &) = delete;
    AttributeIndex &operator=(const AttributeIndex &) = delete;
    ~AttributeIndex() { xfree(slots_); }

    void clear() {
        if (active_) {
            active_ = false;
            live_ = 0;
            if (++generation_ == 0) {  // wrapped: old entries could look current
                fill_bytes(slots_, 0, capacity_ * sizeof(Slot));
                generation_ = 1;
            }
        }
    }
    bool active() const { return active_; }

    // Indexes every attribute of the list that starts at *head.
    bool build(uxml_attribute **head) {
        active_ = true;
        for (uxml_attribute **link = head; *link; link = &(*link)->next)
            if (!insert(*link, link)) return false;
        return true;
    }

    // The link of the attribute with that name, or null.
    uxml_attribute **find(const char *name, uint32_t length) const {
        if (capacity_ == 0) return nullptr;
        uint32_t hash = name_hash(name, length);
        for (uint32_t i = hash & (capacity_ - 1);; i = (i + 1) & (capacity_ - 1)) {
            const Slot &slot = slots_[i];
            if (slot.generation != generation_) return nullptr;
            if (slot.link && slot.hash == hash &&
                buf_eq((*slot.link)->name, length_of((*slot.link)->name), name, length))
                return slot.link;
        }
    }

    bool insert(uxml_attribute *attr, uxml_attribute **link) {
        if ((live_ + 1) * 2 > capacity_ && !grow()) return false;
        place(name_hash(attr->name, length_of(attr->name)), link);
        ++live_;
        return true;
    }

    // Points the entry of `attr` at a new link.
    void relink(const uxml_attribute *attr, uxml_attribute **link) {
        Slot *slot = slot_of(attr);
        if (slot) slot->link = link;
    }

    // Leaves a tombstone: the probe chain stays intact.
    void erase(const uxml_attribute *attr) {
        Slot *slot = slot_of(attr);
        if (slot) slot->link = nullptr;
    }

   private:
    struct Slot {
        uxml_attribute **link;  // null in a tombstone
        uint32_t hash;
        uint32_t generation;  // current entries carry generation_
    };

    Slot *slot_of(const uxml_attribute *attr) {
        uint32_t hash = name_hash(attr->name, length_of(attr->name));
        for (uint32_t i = hash & (capacity_ - 1);; i = (i + 1) & (capacity_ - 1)) {
            Slot &slot = slots_[i];
            if (slot.generation != generation_) return nullptr;
            if (slot.link && *slot.link == attr) return &slot;
        }
    }

    void place(uint32_t hash, uxml_attribute **link) {
        uint32_t i = hash & (capacity_ - 1);
        while (slots_[i].generation == generation_) i = (i + 1) & (capacity_ - 1);
        slots_[i] = {link, hash, generation_};
    }

    // Doubles the table (tombstones are dropped) and re-places the entries.
    bool grow() {
        uint32_t capacity = capacity_ ? capacity_ * 2 : 32;
        if (capacity > UINT32_MAX / sizeof(Slot) / 2) return false;
        auto *slots = static_cast<Slot *>(xalloc(capacity * sizeof(Slot)));
        if (!slots) return false;
        fill_bytes(slots, 0, capacity * sizeof(Slot));
        Slot *old = slots_;
        uint32_t old_capacity = capacity_, old_generation = generation_;
        slots_ = slots;
        capacity_ = capacity;
        generation_ = 1;
        live_ = 0;
        for (uint32_t i = 0; i < old_capacity; ++i) {
            if (old[i].generation == old_generation && old[i].link) {
                place(old[i].hash, old[i].link);
                ++live_;
            }
        }
        xfree(old);
        return true;
    }

    Slot *slots_ = nullptr;
    uint32_t capacity_ = 0;  // a power of two
    uint32_t live_ = 0;      // entries and tombstones of the current tag
    uint32_t generation_ = 1;
    bool active_ = false;
};

class TreeBuilder {
   public:
    explicit TreeBuilder(uxml_element *root) { open_[0] = root; }

    static uint32_t on_event(uint16_t event, void *user, const char *first, uint32_t first_length,
                             const char *second, uint32_t second_length) {
        auto *self = static_cast<TreeBuilder *>(user);
        switch (event) {
            case UXML_EVENT_START: return self->start(second, second_length);
            case UXML_EVENT_ATTRIBUTE: return self->attribute(first, first_length, second, second_length);
            case UXML_EVENT_DATA: return self->data(first, first_length);
            case UXML_EVENT_END:
                if (self->depth_ > 0) --self->depth_;
                return 0;
            default: return 0;
        }
    }

   private:
    uint32_t start(const char *name, uint32_t length) {
        uxml_element *element = create_element(name, length, nullptr, 0, false);
        if (!element) return UXML_ERR_NO_MEMORY;
        if (depth_ >= UXML_MAX_DEPTH || add_sub_element(open_[depth_], element) != 0) {
            dispose_element(element);
            return UXML_ERR_NO_MEMORY;
        }
        open_[++depth_] = element;
        tail_ = &element->attributes;
        count_ = 0;
        index_.clear();
        return 0;
    }

    // Unescaped into its own block, as TreeHelper does. An empty value has
    // no block and removes the attribute; a failed unescape is not reported.
    uint32_t attribute(const char *name, uint32_t name_length, const char *raw, uint32_t raw_length) {
        char *value = nullptr;
        uint32_t capacity = 0;
        if (unescape(raw, raw_length, &value, &capacity) != 0) return 0;
        if (name_length == 0 || name[0] == '\0') {  // a quoted name can begin with a NUL byte
            xfree(value);
            return UXML_ERR_INVALID_ARG;
        }
        uxml_attribute *attr = nullptr;
        if (value) {
            attr = create_attribute(name, name_length, nullptr, 0, false);
            if (!attr) {
                xfree(value);
                return UXML_ERR_NO_MEMORY;
            }
            attr->value = value;
            attr->assumed = 1;
            attr->release = uXMLFree;
        }
        if (!index_.active() && count_ >= kLinearAttributes && !index_.build(&open_[depth_]->attributes)) {
            index_.clear();
            if (attr) dispose_attribute(attr);
            return UXML_ERR_NO_MEMORY;
        }
        if (uxml_attribute **link = find(name, name_length)) unlink(link);
        if (!attr) return 0;
        if (index_.active() && !index_.insert(attr, tail_)) {
            dispose_attribute(attr);
            return UXML_ERR_NO_MEMORY;
        }
        *tail_ = attr;
        tail_ = &attr->next;
        ++count_;
        return 0;
    }

    uint32_t data(const char *raw, uint32_t raw_length) {
        char *text = nullptr;
        uint32_t capacity = 0;
        if (unescape(raw, raw_length, &text, &capacity) != 0 || !text) return 0;
        return assume_data(open_[depth_], text, uXMLFree);
    }

    uxml_attribute **find(const char *name, uint32_t length) {
        if (index_.active()) return index_.find(name, length);
        for (uxml_attribute **link = &open_[depth_]->attributes; *link; link = &(*link)->next)
            if (buf_eq((*link)->name, length_of((*link)->name), name, length)) return link;
        return nullptr;
    }

    // The index finds entries through the links they hold, so it is set
    // right before the list changes.
    void unlink(uxml_attribute **link) {
        uxml_attribute *attr = *link;
        if (index_.active()) {
            index_.erase(attr);
            if (attr->next) index_.relink(attr->next, link);
        }
        *link = attr->next;
        if (tail_ == &attr->next) tail_ = link;
        dispose_attribute(attr);
        --count_;
    }

    uxml_element *open_[UXML_MAX_DEPTH + 1];  // open_[0] is the root holder
    uint32_t depth_ = 0;
    uxml_attribute **tail_ = nullptr;  // end of the newest element's list
    uint32_t count_ = 0;               // its attributes
    AttributeIndex index_;
};
}  // namespace

uint32_t build_tree(const void *bytes, uint32_t size, uxml_element *root) {
    TreeBuilder builder(root);
    return parse_buf(bytes, size, TreeBuilder::on_event, &builder);
}
}  // namespace uxml
