// Result-object service: reference-counted handles over a provider record
// and its eleven-slot table. Every read dispatches to the provider; children
// come back as records of their own provider and are wrapped in new objects.
// Objects are registered in the handle registry under kRvoMagic, so that
// handle_validate_rvo knows them.
#include <atomic>
#include <string>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

struct zelto_rvo_s {
    uint32_t magic = host::kRvoMagic;
    std::atomic<uint32_t> refs{1};
    void *record = nullptr;
    const zelto_rvo_provider *provider = nullptr;
    void *user = nullptr;  // one reference held when it is a host user
    std::string group;
    uint32_t data_flags = 0;
    std::atomic<zelto_locale_handle> locale{nullptr};
};

namespace {

std::atomic<uint32_t> g_live{0};

zelto_rvo_s *live(zelto_rvo_handle object) {
    return object && host::handles_valid(object, host::kRvoMagic) ? object : nullptr;
}

uint32_t wrap(void *record, const zelto_rvo_provider *provider, void *user, const char *group, uint32_t flags,
              zelto_locale_handle locale, zelto_rvo_handle *out) {
    auto *object = new zelto_rvo_s;
    object->record = record;
    object->provider = provider;
    if (user && zelto_manager_user_addref(static_cast<zelto_user *>(user)) == 0) object->user = user;
    object->group = group ? group : "";
    object->data_flags = flags;
    object->locale.store(locale);
    host::handles_add(object, host::kRvoMagic);
    ++g_live;
    *out = object;
    return 0;
}

uint32_t rvo_create(void *record, const zelto_rvo_provider *provider, void *user, const char *locale_group,
                    uint32_t data_flags, zelto_rvo_handle *out_object) {
    if (!record || !provider || !out_object) return ZELTO_RVO_BAD_ARG;
    return wrap(record, provider, user, locale_group, data_flags, nullptr, out_object);
}

uint32_t rvo_addref(zelto_rvo_handle handle) {
    zelto_rvo_s *object = live(handle);
    if (!object) return ZELTO_RVO_BAD_ARG;
    ++object->refs;
    return 0;
}

uint32_t rvo_release(zelto_rvo_handle handle) {
    if (!handle) return 0;
    zelto_rvo_s *object = live(handle);
    if (!object) return ZELTO_RVO_BAD_ARG;
    if (--object->refs != 0) return 0;
    host::handles_remove(object);
    // The provider's release runs once, after the object is gone from the
    // registry, so a release that walks other objects cannot see this one.
    if (object->provider->release) object->provider->release(object->record);
    if (object->user) zelto_manager_user_release(static_cast<zelto_user *>(object->user));
    delete object;
    --g_live;
    return 0;
}

uint32_t rvo_get_context(zelto_rvo_handle handle, const char **out_context) {
    zelto_rvo_s *object = live(handle);
    if (!object || !out_context) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->get_context) return ZELTO_RVO_UNSUPPORTED;
    const char *text = nullptr;
    uint32_t status = object->provider->get_context(object->record, &text);
    if (status == 0) *out_context = text;
    return status;
}

uint32_t rvo_value_count(zelto_rvo_handle handle, const char *key, uint32_t *out_count) {
    zelto_rvo_s *object = live(handle);
    if (!object || !key || !out_count) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->get_value_count) return ZELTO_RVO_UNSUPPORTED;
    uint32_t count = 0;
    uint32_t status = object->provider->get_value_count(object->record, key, &count);
    if (status == 0) *out_count = count;
    return status;
}

uint32_t rvo_value_get(zelto_rvo_handle handle, const char *key, uint32_t ordinal, const char **out_value) {
    zelto_rvo_s *object = live(handle);
    if (!object || !key || !out_value) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->get_value) return ZELTO_RVO_UNSUPPORTED;
    const char *text = nullptr;
    uint32_t status = object->provider->get_value(object->record, key, ordinal, &text);
    if (status == 0) *out_value = text;
    return status;
}

uint32_t rvo_child_count(zelto_rvo_handle handle, const char *key, uint32_t *out_count) {
    zelto_rvo_s *object = live(handle);
    if (!object || !key || !out_count) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->get_child_count) return ZELTO_RVO_UNSUPPORTED;
    uint32_t count = 0;
    uint32_t status = object->provider->get_child_count(object->record, key, &count);
    if (status == 0) *out_count = count;
    return status;
}

uint32_t rvo_child_get(zelto_rvo_handle handle, const char *key, uint32_t ordinal, uint8_t flag,
                       zelto_rvo_handle *out_child) {
    zelto_rvo_s *object = live(handle);
    if (!object || !key || !out_child) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->get_child) return ZELTO_RVO_UNSUPPORTED;
    void *child = nullptr;
    const zelto_rvo_provider *child_provider = nullptr;
    uint32_t status = object->provider->get_child(object->record, key, ordinal, flag, &child, &child_provider);
    if (status != 0) return status;
    if (!child || !child_provider) {
        // A provider that claims success without a child has nothing to give.
        if (child && child_provider && child_provider->release) child_provider->release(child);
        return ZELTO_RVO_NOT_FOUND;
    }
    return wrap(child, child_provider, object->user, object->group.c_str(), object->data_flags,
                object->locale.load(), out_child);
}

uint32_t rvo_set_locale(zelto_rvo_handle handle, zelto_locale_handle locale) {
    zelto_rvo_s *object = live(handle);
    if (!object) return ZELTO_RVO_BAD_ARG;
    if (object->provider->set_locale) {
        uint32_t status = object->provider->set_locale(object->record, locale);
        if (status != 0) return status;
    }
    object->locale.store(locale);
    return 0;
}

uint32_t rvo_get_locale(zelto_rvo_handle handle, zelto_locale_handle *out_locale) {
    zelto_rvo_s *object = live(handle);
    if (!object || !out_locale) return ZELTO_RVO_BAD_ARG;
    if (object->provider->get_locale) {
        zelto_locale_handle locale = nullptr;
        uint32_t status = object->provider->get_locale(object->record, &locale);
        if (status == 0) *out_locale = locale;
        return status;
    }
    *out_locale = object->locale.load();
    return 0;
}

const zelto_rvo_interface g_table = {
    .release = host::table_release,
    .rvo_create = rvo_create,
    .reserved2 = nullptr,
    .rvo_addref = rvo_addref,
    .rvo_release = rvo_release,
    .rvo_get_context = rvo_get_context,
    .rvo_value_count = rvo_value_count,
    .rvo_value_get = rvo_value_get,
    .reserved8 = nullptr,
    .rvo_child_count = rvo_child_count,
    .rvo_child_get = rvo_child_get,
    .reserved11 = nullptr,
    .reserved12 = nullptr,
    .rvo_set_locale = rvo_set_locale,
    .rvo_get_locale = rvo_get_locale,
};

}  // namespace

const void *host::rvo_table() { return &g_table; }

bool host::rvo_inner(const void *handle, void **out_record, const zelto_rvo_provider **out_provider) {
    auto *object = live(static_cast<zelto_rvo_handle>(const_cast<void *>(handle)));
    if (!object) return false;
    *out_record = object->record;
    *out_provider = object->provider;
    return true;
}

HOST_EXPORT const zelto_rvo_interface *zelto_manager_rvo_table(void) { return &g_table; }

HOST_EXPORT uint32_t zelto_manager_rvo_create(void *record, const zelto_rvo_provider *provider, void *user,
                                              const char *locale_group, uint32_t data_flags,
                                              zelto_rvo_handle *out_object) {
    return rvo_create(record, provider, user, locale_group, data_flags, out_object);
}
HOST_EXPORT uint32_t zelto_manager_rvo_addref(zelto_rvo_handle object) { return rvo_addref(object); }
HOST_EXPORT uint32_t zelto_manager_rvo_release(zelto_rvo_handle object) { return rvo_release(object); }
HOST_EXPORT uint32_t zelto_manager_rvo_get_context(zelto_rvo_handle object, const char **out_context) {
    return rvo_get_context(object, out_context);
}
HOST_EXPORT uint32_t zelto_manager_rvo_value_count(zelto_rvo_handle object, const char *key, uint32_t *out_count) {
    return rvo_value_count(object, key, out_count);
}
HOST_EXPORT uint32_t zelto_manager_rvo_value_get(zelto_rvo_handle object, const char *key, uint32_t ordinal,
                                                 const char **out_value) {
    return rvo_value_get(object, key, ordinal, out_value);
}
HOST_EXPORT uint32_t zelto_manager_rvo_child_count(zelto_rvo_handle object, const char *key, uint32_t *out_count) {
    return rvo_child_count(object, key, out_count);
}
HOST_EXPORT uint32_t zelto_manager_rvo_child_get(zelto_rvo_handle object, const char *key, uint32_t ordinal,
                                                 uint8_t flag, zelto_rvo_handle *out_child) {
    return rvo_child_get(object, key, ordinal, flag, out_child);
}
HOST_EXPORT uint32_t zelto_manager_rvo_set_locale(zelto_rvo_handle object, zelto_locale_handle locale) {
    return rvo_set_locale(object, locale);
}
HOST_EXPORT uint32_t zelto_manager_rvo_get_locale(zelto_rvo_handle object, zelto_locale_handle *out_locale) {
    return rvo_get_locale(object, out_locale);
}

HOST_EXPORT uint32_t zelto_manager_rvo_render_value(zelto_rvo_handle handle, uint32_t index, const char **out_name,
                                                    const char **out_value) {
    zelto_rvo_s *object = live(handle);
    if (!object || !out_name || !out_value) return ZELTO_RVO_BAD_ARG;
    if (!object->provider->render_value) return ZELTO_RVO_UNSUPPORTED;
    return object->provider->render_value(object->record, index, out_name, out_value);
}

HOST_EXPORT uint32_t zelto_manager_rvo_refcount(zelto_rvo_handle handle) {
    zelto_rvo_s *object = live(handle);
    return object ? object->refs.load() : 0;
}

HOST_EXPORT uint32_t zelto_manager_rvo_data_flags(zelto_rvo_handle handle, uint32_t *out_flags) {
    zelto_rvo_s *object = live(handle);
    if (!object || !out_flags) return ZELTO_RVO_BAD_ARG;
    *out_flags = object->data_flags;
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_rvo_locale_group(zelto_rvo_handle handle, const char **out_group) {
    zelto_rvo_s *object = live(handle);
    if (!object || !out_group) return ZELTO_RVO_BAD_ARG;
    *out_group = object->group.c_str();
    return 0;
}

HOST_EXPORT uint32_t zelto_manager_rvo_live_count(void) { return g_live.load(); }
