// The XML package: its frame, and the ombr_xml_* wrapper through which the
// rest of the system uses uXML. The wrapper adds the init test of the parse
// and render entries, the error hook and timing records.
#include "ombr/ombr_time.h"
#include "xml/ombr_xml_internal.h"

namespace {
ombr::PackageState s_xml;
constexpr const char *kUnit = "ombr_xml_glue";

// Memory, string, time; on failure those started go down in the order
// memory, string, time.
uint32_t xml_init_func() {
    bool memory = false, string = false;
    if ((memory = ombr_memory_initialize() == 0) && (string = ombr_string_initialize() == 0) &&
        ombr_time_initialize() == 0)
        return 0;
    if (memory) ombr_memory_shutdown();
    if (string) ombr_string_shutdown();
    return ombr::fail(10, kUnit);
}

uint32_t xml_shutdown_func() {
    ombr_memory_shutdown();
    ombr_string_shutdown();
    ombr_time_shutdown();
    return 0;
}

uint32_t report(uint32_t status, std::source_location where = std::source_location::current()) {
    return ombr::error_exit(status, where.line(), kUnit);
}

bool initialized() { return s_xml.initialized != 0; }

// Timing records go out only while the log hook is set and the timing
// package has its detail level enabled; otherwise the work runs untimed.
bool timing_enabled() {
    return g_ombr_log_callback && (g_ombr_log_enabled_pkgs[OMBR_PKG_XML_TIMING] & OMBR_LOG_DETAIL);
}

// Runs work() (which returns its status and sets `bytes`) and, if timing is
// on, writes "CNT|elapsed|label|bytes|status|". `record_status` false
// writes 0 as the status.
template <typename Work>
uint32_t timed(const char *label, uint32_t line, Work work, bool record_status = true) {
    if (!timing_enabled()) {
        uint32_t bytes = 0;
        return work(bytes);
    }
    uint64_t start = ombr_time_get_microseconds();
    uint32_t bytes = 0;
    uint32_t status = work(bytes);
    uint64_t elapsed = ombr_time_get_microseconds() - start;
    ombr::log_message(OMBR_PKG_XML_TIMING, OMBR_LOG_DETAIL, line, kUnit, "%s|%10llu|%s|%u|0x%08X|%s", "CNT",
                      static_cast<unsigned long long>(elapsed), label, bytes, record_status ? status : 0u, "");
    return status;
}
}  // namespace

OMBR_DEFINE_PACKAGE_FRAME(xml, s_xml, xml_init_func, xml_shutdown_func, ombr::kBaseBuildDate)

OMBR_API uxml_element *ombr_xml_create_element(const char *name) { return uXMLCreateElementFromStr(name, nullptr); }

OMBR_API uxml_element *ombr_xml_create_element_from_str(const char *name, const char *data) {
    return uXMLCreateElementFromStr(name, data);
}

OMBR_API uxml_element *ombr_xml_create_element_from_buf(const char *name, const char *data, uint32_t length) {
    return uXMLCreateElementFromBuf(name, uxml::length_of(name), data, length);
}

OMBR_API uxml_element *ombr_xml_create_element_from_buf_cdata(const char *name, const void *bytes, uint32_t length) {
    return uXMLCreateElementFromBufCDATA(name, uxml::length_of(name), bytes, length);
}

OMBR_API uxml_element *ombr_xml_clone_element(const uxml_element *element, uint8_t deep) {
    return uXMLCloneElement(element, deep);
}

OMBR_API void ombr_xml_dispose_element(uxml_element *element) { uXMLDisposeElement(element); }

OMBR_API void ombr_xml_smart_dispose_element(uxml_element **element) { uXMLSmartDisposeElement(element); }

OMBR_API char *ombr_xml_get_name(const uxml_element *element) { return uXMLGetName(element); }

OMBR_API char *ombr_xml_get_data(const uxml_element *element) { return uXMLGetData(element); }

OMBR_API char *ombr_xml_get_data_trimmed(uxml_element *element) {
    char *data = uXMLGetData(element);
    return data ? ombr_string_trim(data) : nullptr;
}

OMBR_API uint32_t ombr_xml_set_data_from_buf(uxml_element *element, const char *bytes, uint32_t length) {
    return report(uXMLSetDataFromBuf(element, bytes, length));
}

OMBR_API uint32_t ombr_xml_set_cdata_from_buf(uxml_element *element, const void *bytes, uint32_t length) {
    return report(uXMLSetCDATAFromBuf(element, bytes, length));
}

OMBR_API uint32_t ombr_xml_assume_data(uxml_element *element, char *data, uxml_release_t release) {
    return report(uXMLAssumeData(element, data, release));
}

OMBR_API uint32_t ombr_xml_get_attr_count(const uxml_element *element) { return uXMLGetAttrCount(element); }

OMBR_API uint32_t ombr_xml_get_attr(const uxml_element *element, char **out_name, char **out_value,
                                    uint32_t index) {
    char *name = uXMLGetAttrName(element, index);
    if (out_name) *out_name = name;
    if (out_value) *out_value = uXMLGetAttrValue(element, index);
    return name ? 0 : UXML_NOT_FOUND;
}

OMBR_API char *ombr_xml_get_attr_from_str(const uxml_element *element, const char *name) {
    return uXMLGetAttrFromStr(element, name);
}

OMBR_API uint32_t ombr_xml_set_attr_from_str(uxml_element *element, const char *name, const char *value) {
    return report(uXMLSetAttrFromStr(element, name, value));
}

OMBR_API uint32_t ombr_xml_set_attr_from_int(uxml_element *element, const char *name, int32_t value) {
    return report(uXMLSetAttrFromInt(element, name, value));
}

OMBR_API uint32_t ombr_xml_set_attr_from_uint(uxml_element *element, const char *name, uint32_t value) {
    return report(uXMLSetAttrFromUInt(element, name, value));
}

OMBR_API void ombr_xml_set_attr_from_str_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                 const char *value) {
    uXMLSetAttrFromStrChecked(element, prior_status, name, value);
}

OMBR_API void ombr_xml_set_attr_from_int_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                 int32_t value) {
    uXMLSetAttrFromIntChecked(element, prior_status, name, value);
}

OMBR_API void ombr_xml_set_attr_from_uint_checked(uxml_element *element, uint32_t prior_status, const char *name,
                                                  uint32_t value) {
    uXMLSetAttrFromUIntChecked(element, prior_status, name, value);
}

OMBR_API uint32_t ombr_xml_get_sub_element_count(const uxml_element *element) {
    return uXMLGetSubElementCount(element);
}

OMBR_API uxml_element *ombr_xml_get_sub_element(const uxml_element *element, uint32_t index) {
    return uXMLGetSubElement(element, index);
}

OMBR_API char *ombr_xml_get_sub_element_name(const uxml_element *element, uint32_t index) {
    return uXMLGetSubElementName(element, index);
}

OMBR_API uint32_t ombr_xml_get_named_sub_element_count(const uxml_element *element, const char *name) {
    uint32_t count = 0;
    for (uint32_t i = 0, n = uXMLGetSubElementCount(element); i < n; ++i) {
        const uxml_element *child = element->elements[i];
        if (child && child->name && name && ombr_string_strcmp(child->name, name) == 0) ++count;
    }
    return count;
}

OMBR_API uxml_element *ombr_xml_get_sub_element_from_buf(const uxml_element *element, const char *name,
                                                         uint32_t length) {
    return uXMLGetSubElementFromBuf(element, name, length);
}

OMBR_API uxml_element *ombr_xml_get_sub_element_from_str(const uxml_element *element, const char *name) {
    return uXMLGetSubElementFromStr(element, name);
}

OMBR_API uint32_t ombr_xml_add_sub_element(uxml_element *element, uxml_element *sub_element) {
    return report(uXMLAddSubElement(element, sub_element));
}

OMBR_API void ombr_xml_remove_sub_element(uxml_element *element, uxml_element *sub_element, uint8_t dispose) {
    uXMLRemoveSubElement(element, sub_element, dispose);
}

OMBR_API uint32_t ombr_xml_add_sub_element_from_str(uxml_element *element, const char *name, const char *value,
                                                    uxml_element **out_element) {
    return report(uXMLAddSubElementFromStrChecked(element, 0, name, value, out_element));
}

OMBR_API uint32_t ombr_xml_add_sub_element_from_str_checked(uxml_element *element, uint32_t prior_status,
                                                            const char *name, const char *value,
                                                            uxml_element **out_element) {
    return report(uXMLAddSubElementFromStrChecked(element, prior_status, name, value, out_element));
}

OMBR_API uint32_t ombr_xml_add_sub_element_from_uint(uxml_element *element, const char *name, uint32_t value,
                                                     uxml_element **out_element) {
    return report(uXMLAddSubElementFromUIntChecked(element, 0, name, value, out_element));
}

OMBR_API char *ombr_xml_get_sub_element_data(const uxml_element *element, const char *path) {
    return uXMLGetSubElementData(element, path);
}

OMBR_API uint32_t ombr_xml_set_value_at_path(uxml_element *element, const char *path, const char *value) {
    return report(uxml::set_value_at_path(element, path, value, nullptr, nullptr));
}

OMBR_API uint32_t ombr_xml_parse_buf_to_element(const void *bytes, uint32_t size, uxml_element **out_element) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    return report(timed("xml parse buf", __LINE__, [&](uint32_t &count) {
        count = size;
        return uxml::parse_buf_to_element(bytes, size, out_element);
    }));
}

OMBR_API uint32_t ombr_xml_parse_str_to_element(const char *text, uxml_element **out_element) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    if (!text || *text == '\0' || !out_element) return report(UXML_ERR_INVALID_ARG);
    return ombr_xml_parse_buf_to_element(text, uxml::length_of(text), out_element);
}

OMBR_API uint32_t ombr_xml_parse_str_to_helper(const char *text, uxml_event_callback_t callback, void *user) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    return report(timed("xml parse str", __LINE__, [&](uint32_t &count) {
        if (!text) return UXML_ERR_INVALID_ARG;
        count = uxml::length_of(text);
        return uxml::parse_buf(text, count, callback, user);
    }));
}

OMBR_API uint32_t ombr_xml_parse_buf_to_helper(const void *bytes, uint32_t size, uxml_event_callback_t callback,
                                               void *user) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    return report(timed("xml parse buf", __LINE__, [&](uint32_t &count) {
        count = size;
        return uxml::parse_buf(bytes, size, callback, user);
    }));
}

OMBR_API uint32_t ombr_xml_parse_stream_to_helper(ombr_iostream_t stream, uxml_event_callback_t callback,
                                                  void *user) {
    return report(uxml::parse_stream(stream, callback, user));
}

OMBR_API uint32_t ombr_xml_unescape_str(const char *source, uint32_t length, char **output, uint32_t *capacity) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    return report(uxml::unescape(source, length, output, capacity));
}

OMBR_API char *ombr_xml_render_to_str(const uxml_element *element, uint8_t header) {
    return uXMLRenderToStr(element, header);
}

OMBR_API char *ombr_xml_render_to_str_ex(const uxml_element *element, uint8_t header, uint8_t indent,
                                         uint8_t newlines) {
    if (!initialized() || !element) return nullptr;
    char *text = nullptr;
    timed(
        "xml render", __LINE__,
        [&](uint32_t &count) { return uxml::render_to_buf(element, header, indent, newlines, &text, &count); }, false);
    return text;
}

OMBR_API uint32_t ombr_xml_render_to_buffer(const uxml_element *element, uint8_t header, uint8_t indent,
                                            uint8_t newlines, char **out_text, uint32_t *out_length) {
    if (!initialized()) return report(UXML_ERR_NOT_INITIALIZED);
    if (!element || !out_text || !out_length) return report(UXML_ERR_INVALID_ARG);
    return report(timed("xml render binary", __LINE__, [&](uint32_t &count) {
        uint32_t status = uxml::render_to_buf(element, header, indent, newlines, out_text, out_length);
        count = status == 0 ? *out_length : 0;
        return status;
    }));
}
