// The bridge between HDO trees and XML, through the uXML package.
//
// Reading: an element that turns out to hold text becomes a string value of
// the current node, an element that turns out to hold elements (or nothing)
// becomes a child node. Which one it is shows only at the next event, so a
// start event just remembers the name. The root element stands for the
// root node and has no node of its own.
//
// Writing: a node's attributes, then its values as sub-elements, then its
// children, recursively.
#include "hdo/ombr_hdo_internal.h"
#include "ombr/ombr_string.h"
#include "ombr/ombr_xml.h"

using namespace ombr::hdo;

namespace {

constexpr const char *kUnit = "ombr_hdo_xml";
constexpr const char *kApiUnit = "ombr_hdo_api";

uint32_t out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kUnit, where);
}
uint32_t api_out(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::fail(status, kApiUnit, where);
}

// ---- HDO to XML --------------------------------------------------------------------------

// Copies a string map's entries onto an element's attributes; the first
// failure ends the list.
void copy_attributes(ombr_stringmap_t map, uxml_element *element) {
    if (!map) return;
    uint32_t count = 0;
    if (ombr_stringmap_count(map, &count) != 0) return;
    for (uint32_t i = 0; i < count; ++i) {
        const char *name = nullptr, *text = nullptr;
        if (ombr_stringmap_value_get(map, i, &name, &text) != 0) return;
        if (ombr_xml_set_attr_from_str(element, name, text) != 0) return;
    }
}

// The sub-element of one value, or null for a value that has none (no data
// type, pointer) or when memory runs out.
uxml_element *value_element(hdo_value *value) {
    switch (value->type) {
        case OMBR_HDO_VALUE_STRING:
            return ombr_xml_create_element_from_str(value->name, static_cast<const char *>(value->data));
        case OMBR_HDO_VALUE_INT: {
            char number[16];
            ombr_string_u32toa(value->size, number, sizeof number);
            return ombr_xml_create_element_from_str(value->name, number);
        }
        case OMBR_HDO_VALUE_BINARY:
            if (!value->data || !value->size) return ombr_xml_create_element(value->name);
            return ombr_xml_create_element_from_buf_cdata(value->name, value->data, value->size);
        default:
            return nullptr;
    }
}

uint32_t _ombr_hdo_xml_builder(hdo_node *node, uxml_element *element) {
    copy_attributes(node->attributes, element);

    for (uint32_t index = 0;; ++index) {
        hdo_value *value = nullptr;
        if (_ombr_hdo_value_enum(node, index, &value) != 0) break;
        if (value->type == OMBR_HDO_VALUE_NONE || value->type == OMBR_HDO_VALUE_POINTER) continue;
        uxml_element *sub = value_element(value);
        if (!sub) break;
        {
            LockGuard guard(value->lock);
            copy_attributes(value->attributes, sub);
        }
        if (ombr_xml_add_sub_element(element, sub) != 0) {
            ombr_xml_dispose_element(sub);
            break;
        }
    }

    for (uint32_t index = 0;; ++index) {
        const char *key = nullptr;
        hdo_node *child = nullptr;
        uint32_t status = _ombr_hdo_child_enum(node, index, &key, &child);
        if (is_not_found(status)) return 0;
        if (status) return out(status);
        uxml_element *sub = ombr_xml_create_element(key);
        if (!sub) return out(kNoMemory);
        status = _ombr_hdo_xml_builder(child, sub);
        if (status == 0) status = ombr_xml_add_sub_element(element, sub);
        if (status) {
            ombr_xml_dispose_element(sub);
            return out(status);
        }
    }
}

uint32_t _ombr_hdo_to_xml_buf(hdo_node *node, const char *root_name, uint8_t header, uint8_t pretty, char **out_text,
                              uint32_t *out_length) {
    if (!initialized()) return out(kNotInitialized);
    if (!node || !root_name || !out_text) return out(kInvalidArg);
    if (node->magic != kNodeMagic) return out(kBadMagic);
    uxml_element *root = ombr_xml_create_element(root_name);
    if (!root) return out(kNoMemory);
    {
        LockGuard guard(node->lock);
        if (guard.status()) {
            ombr_xml_dispose_element(root);
            return out(guard.status());
        }
        // A conversion that failed half way renders what was built.
        _ombr_hdo_xml_builder(node, root);
    }
    char *text = nullptr;
    uint32_t length = 0;
    const uint32_t status = ombr_xml_render_to_buffer(root, header, pretty, pretty, &text, &length);
    ombr_xml_dispose_element(root);
    if (status) return out(status);
    *out_text = text;
    if (out_length) *out_length = length;
    return 0;
}

// ---- XML to HDO --------------------------------------------------------------------------

struct hdo_xml_state {
    hdo_node *current;
    ombr_stringmap_t pending_attributes;
    uint32_t last_event;
    char *root_name;
    bool at_root;
    char *element_name;
    uint32_t element_name_size;
    char *first_text;
    uint32_t first_text_size;
    char *second_text;
    uint32_t second_text_size;
};

// Makes a work buffer hold at least `size` bytes.
uint32_t reserve(char **buffer, uint32_t *capacity, uint32_t size) {
    if (size <= *capacity) return 0;
    uint32_t grown = *capacity ? *capacity : 64;
    while (grown < size) grown = grown > 0x7FFFFFFFu ? size : grown * 2;
    void *block = ombr_memory_realloc(*buffer, grown);
    if (!block) return kNoMemory;
    *buffer = static_cast<char *>(block);
    *capacity = grown;
    return 0;
}

// Copies bytes into a work buffer with a terminating zero.
uint32_t copy_text(char **buffer, uint32_t *capacity, const char *text, uint32_t length) {
    if (uint32_t status = reserve(buffer, capacity, length + 1)) return status;
    if (length) ombr_memory_memcpy(*buffer, text, length);
    (*buffer)[length] = '\0';
    return 0;
}

// Decodes entities into a work buffer; unescaped text is never longer.
uint32_t unescape_text(char **buffer, uint32_t *capacity, const char *text, uint32_t length) {
    if (uint32_t status = reserve(buffer, capacity, length + 1)) return status;
    (*buffer)[0] = '\0';
    if (length == 0) return 0;
    uint32_t room = *capacity;
    return ombr_xml_unescape_str(text, length, buffer, &room);
}

// Hands the pending attributes over to a node, whose map they become.
void give_attributes(hdo_xml_state *state, hdo_node *node) {
    if (!state->pending_attributes) return;
    ombr_stringmap_delete(node->attributes);
    node->attributes = state->pending_attributes;
    state->pending_attributes = nullptr;
}

// The element just started holds elements: it becomes a child node of the
// current one, and the current node from now on.
uint32_t open_node(hdo_xml_state *state) {
    hdo_node *node = nullptr;
    if (uint32_t status = _ombr_hdo_create(&node)) return status;
    uint32_t status = _ombr_hdo_child_set(state->current, state->element_name, node, 0);
    if (status == 0) state->current = node;
    _ombr_hdo_release(node);  // the tree owns it, or it dies
    return status;
}

uint32_t handle_event(hdo_xml_state *state, uint16_t event, const char *first, uint32_t first_length,
                      const char *second, uint32_t second_length) {
    switch (event) {
        case UXML_EVENT_START: {
            if (!state->root_name) {
                uint32_t size = 0;
                if (uint32_t status = copy_text(&state->root_name, &size, second, second_length)) return status;
                state->at_root = true;
            } else if (state->last_event == UXML_EVENT_START) {
                // The element before this one has sub-elements: a node.
                if (!state->at_root) {
                    if (uint32_t status = open_node(state)) return status;
                }
                give_attributes(state, state->current);
                state->at_root = false;
            }
            uint32_t status =
                copy_text(&state->element_name, &state->element_name_size, second, second_length);
            state->last_event = UXML_EVENT_START;
            return status;
        }
        case UXML_EVENT_ATTRIBUTE: {
            if (!state->pending_attributes) {
                if (uint32_t status = ombr_stringmap_create(&state->pending_attributes, 0)) return status;
            }
            if (uint32_t status = copy_text(&state->first_text, &state->first_text_size, first, first_length))
                return status;
            if (uint32_t status = unescape_text(&state->second_text, &state->second_text_size, second, second_length))
                return status;
            return ombr_stringmap_value_add(state->pending_attributes, state->first_text, state->second_text);
        }
        case UXML_EVENT_DATA: {
            if (uint32_t status = unescape_text(&state->first_text, &state->first_text_size, first, first_length))
                return status;
            hdo_value *value = nullptr;
            if (uint32_t status = _ombr_hdo_new_value_string(state->current, state->element_name, state->first_text,
                                                            0, &value))
                return status;
            if (state->pending_attributes) {
                value->attributes = state->pending_attributes;
                state->pending_attributes = nullptr;
            }
            state->last_event = UXML_EVENT_DATA;
            return 0;
        }
        case UXML_EVENT_END: {
            uint32_t status = 0;
            if (state->last_event != UXML_EVENT_DATA) {
                if (state->last_event == UXML_EVENT_START) {
                    // An empty element: a node of its own, unless it is the root.
                    if (!state->at_root) status = open_node(state);
                    if (status == 0) give_attributes(state, state->current);
                }
                // Up one level; at the root there is nowhere to go.
                if (status == 0) {
                    hdo_node *parent = nullptr;
                    status = _ombr_hdo_parent_get(state->current, &parent);
                    if (status == 0) state->current = parent;
                }
            }
            state->last_event = UXML_EVENT_END;
            return status;
        }
        default:
            return 0;
    }
}

extern "C" uint32_t _ombr_hdo_xml_helper(uint16_t event, void *user, const char *first, uint32_t first_length,
                                         const char *second, uint32_t second_length) {
    auto *state = static_cast<hdo_xml_state *>(user);
    uint32_t status = handle_event(state, event, first, first_length, second, second_length);
    if (OMBR_STATUS_VALUE(status) == 3) status = 0;
    return out(status);
}

// Reads a document from text or from a stream into a new tree.
uint32_t _ombr_hdo_from_xml(const char *text, ombr_iostream_t stream, hdo_node **out_node, char **out_root_name) {
    if (!initialized()) return out(kNotInitialized);
    if (!out_node || (!text && !stream)) return out(kInvalidArg);
    hdo_xml_state state{};
    hdo_node *root = nullptr;
    uint32_t status = _ombr_hdo_create(&root);
    if (status == 0) {
        state.current = root;
        status = stream ? ombr_xml_parse_stream_to_helper(stream, _ombr_hdo_xml_helper, &state)
                        : ombr_xml_parse_str_to_helper(text, _ombr_hdo_xml_helper, &state);
    }
    char *root_name = nullptr;
    if (status == 0 && out_root_name && state.root_name) {
        root_name = ombr_string_strdup(state.root_name);
        if (!root_name) status = kNoMemory;
    }
    if (status == 0) {
        *out_node = root;
        if (out_root_name) *out_root_name = root_name;
    } else if (root) {
        _ombr_hdo_release(root);
    }
    ombr_stringmap_delete(state.pending_attributes);
    ombr_memory_free(state.root_name);
    ombr_memory_free(state.element_name);
    ombr_memory_free(state.first_text);
    ombr_memory_free(state.second_text);
    return out(status);
}

}  // namespace

// ---- Public functions -------------------------------------------------------------------------

OMBR_API uint32_t ombr_hdo_to_xml(ombr_hdo_t node, const char *root_name, uint8_t header, uint8_t pretty,
                                  char **out_text) {
    return api_out(_ombr_hdo_to_xml_buf(node, root_name, header, pretty, out_text, nullptr));
}

OMBR_API uint32_t ombr_hdo_to_xml_buf(ombr_hdo_t node, const char *root_name, uint8_t header, uint8_t pretty,
                                      char **out_text, uint32_t *out_length) {
    return api_out(_ombr_hdo_to_xml_buf(node, root_name, header, pretty, out_text, out_length));
}

OMBR_API uint32_t ombr_hdo_from_xml(const char *text, ombr_hdo_t *out_node, char **out_root_name) {
    if (initialized() && !text) return api_out(kInvalidArg);
    return api_out(_ombr_hdo_from_xml(text, nullptr, out_node, out_root_name));
}

OMBR_API uint32_t ombr_hdo_from_xml_stream(ombr_iostream_t stream, ombr_hdo_t *out_node, char **out_root_name) {
    if (initialized() && !stream) return api_out(kInvalidArg);
    return api_out(_ombr_hdo_from_xml(nullptr, stream, out_node, out_root_name));
}

OMBR_API uint32_t ombr_hdo_free_xml(char *text) {
    if (!initialized()) return api_out(kNotInitialized);
    ombr_memory_free(text);
    return 0;
}

OMBR_API uint32_t ombr_hdo_free_xml_buf(char *text) {
    if (!initialized()) return api_out(kNotInitialized);
    ombr_memory_free(text);
    return 0;
}
