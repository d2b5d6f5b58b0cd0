// List service: the language list behind list_language_get. Languages are
// recognised by ISO 639-1 code, ISO 639-2 terminology or bibliographic code
// or any of their English names, without regard to ASCII case; the canonical
// text is the ISO 639-2 terminology code.
#include <cstring>
#include <string>
#include <unordered_map>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

namespace {

struct Language {
    const char *alpha2;
    const char *alpha3;
    const char *bibliographic;
    const char *names;  // English names separated by "; "
};

constexpr Language kLanguages[] = {
#include "languages_table.inc"
};

std::string fold(const char *text) {
    // Trim ASCII blanks and lower ASCII letters.
    const char *begin = text;
    const char *end = text + std::strlen(text);
    while (begin < end && (*begin == ' ' || *begin == '\t')) ++begin;
    while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
    std::string out(begin, end);
    for (char &c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

// Index from every accepted form to its row; built once, read-only after.
const std::unordered_map<std::string, const Language *> &index() {
    static const auto *map = [] {
        auto *m = new std::unordered_map<std::string, const Language *>;
        // Codes first so that no name can shadow a code.
        for (const Language &l : kLanguages) {
            if (*l.alpha2) m->emplace(l.alpha2, &l);
            m->emplace(l.alpha3, &l);
            if (*l.bibliographic) m->emplace(l.bibliographic, &l);
        }
        for (const Language &l : kLanguages) {
            std::string names = l.names;
            size_t start = 0;
            while (start <= names.size()) {
                size_t end = names.find("; ", start);
                if (end == std::string::npos) end = names.size();
                std::string name = fold(names.substr(start, end - start).c_str());
                if (!name.empty()) m->emplace(name, &l);
                start = end + 2;
            }
        }
        return m;
    }();
    return *map;
}

const Language *find(const char *language) {
    if (!language) return nullptr;
    auto it = index().find(fold(language));
    return it == index().end() ? nullptr : it->second;
}

uint32_t list_language_get(const char *language, const char **out_text) {
    if (!language || !out_text) return ZELTO_LISTS_BAD_ARG;
    const Language *l = find(language);
    if (!l) return ZELTO_LISTS_UNKNOWN;
    *out_text = l->alpha3;
    return 0;
}

const zelto_lists_interface g_table = {
    .release = host::table_release,
    .reserved = {},
    .list_language_get = list_language_get,
};

}  // namespace

const void *host::lists_table() { return &g_table; }

const char *host::language_canonical(const char *language) {
    const Language *l = find(language);
    return l ? l->alpha3 : nullptr;
}

HOST_EXPORT uint32_t zelto_manager_list_language_get(const char *language, const char **out_text) {
    return list_language_get(language, out_text);
}

HOST_EXPORT const char *zelto_manager_list_language_name(const char *language) {
    const Language *l = find(language);
    return l ? l->names : nullptr;
}

HOST_EXPORT uint32_t zelto_manager_list_language_count(void) {
    return static_cast<uint32_t>(sizeof kLanguages / sizeof kLanguages[0]);
}
