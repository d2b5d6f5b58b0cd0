// Reading the data and options that the module sent for a lookup.
#include <string_view>

#include "providers/catalogue/provider.h"

namespace catalogue_provider {

namespace {

const std::string *find(const std::map<std::string, std::string, std::less<>> &m, const char *key) {
    auto it = m.find(std::string_view(key));
    return it == m.end() ? nullptr : &it->second;
}

bool true_text(const std::string *v) {
    if (!v) return false;
    return *v == "1" || *v == "true" || *v == "TRUE" || *v == "True" || *v == "yes" || *v == "y" || *v == "on";
}

}  // namespace

std::string LookupData::text(const char *key) const {
    const std::string *v = find(lookup_.data, key);
    return v ? *v : std::string();
}

bool LookupData::has(const char *key) const {
    const std::string *v = find(lookup_.data, key);
    return v && !v->empty();
}

bool LookupData::number(const char *key, uint32_t fallback, uint32_t &out) const {
    const std::string *v = find(lookup_.data, key);
    if (!v || v->empty()) {
        out = fallback;
        return true;
    }
    uint64_t n = 0;
    for (char ch : *v) {
        if (ch < '0' || ch > '9') return false;
        n = n * 10 + static_cast<uint64_t>(ch - '0');
        if (n > 0xFFFFFFFFu) return false;
    }
    out = static_cast<uint32_t>(n);
    return true;
}

bool LookupData::range(catalogue::Range &out, std::string &why) const {
    uint32_t start = 1, end = 0;
    if (!number(ZELTO_LOOKUP_DATA_RANGE_START, 1, start) || !number(ZELTO_LOOKUP_DATA_RANGE_END, 0, end)) {
        why = "result range is not a number";
        return false;
    }
    if (start == 0) start = 1;
    if (end == 0) end = start + 9;
    if (end < start) {
        why = "result range ends before it starts";
        return false;
    }
    if (true_text(find(lookup_.options, ZELTO_LOOKUP_OPTION_RESULT_SINGLE))) end = start;
    out = {start, end};
    return true;
}

catalogue::TextQuery LookupData::text_query() const {
    catalogue::TextQuery q;
    q.album_title = text(ZELTO_LOOKUP_DATA_ALBUM_TITLE);
    q.album_artist = text(ZELTO_LOOKUP_DATA_ALBUM_ARTIST);
    q.track_title = text(ZELTO_LOOKUP_DATA_TRACK_TITLE);
    q.track_artist = text(ZELTO_LOOKUP_DATA_TRACK_ARTIST);
    q.artist = text(ZELTO_LOOKUP_DATA_ARTIST);
    q.composer = text(ZELTO_LOOKUP_DATA_COMPOSER);
    return q;
}

catalogue::LyricQuery LookupData::lyric_query() const {
    catalogue::LyricQuery q;
    q.title = text(ZELTO_LOOKUP_DATA_LYRIC_TITLE);
    q.artist = text(ZELTO_LOOKUP_DATA_LYRIC_ARTIST);
    q.fragment = text(ZELTO_LOOKUP_DATA_LYRIC_FRAGMENT);
    return q;
}

bool LookupData::has_identifier() const {
    return has(ZELTO_LOOKUP_DATA_TUI) || has(ZELTO_LOOKUP_DATA_MUI) || has(ZELTO_LOOKUP_DATA_MEDIA_ID);
}

bool LookupData::has_fingerprint() const {
    return has(ZELTO_LOOKUP_DATA_TVX_QUERYDATA) || has(ZELTO_LOOKUP_DATA_FPX_QUERYDATA);
}

bool has_text(const catalogue::TextQuery &q) {
    return !(q.album_title.empty() && q.album_artist.empty() && q.track_title.empty() && q.track_artist.empty() &&
             q.artist.empty() && q.composer.empty());
}

}  // namespace catalogue_provider
