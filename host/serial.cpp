// Serialisation service: the serial text form of a block is its base64
// encoding, and a fingerprint's serial form is "ZTFP" followed by that text.
// Decoded blocks are tracked so that serial_free refuses pointers it did not
// hand out and tests can see blocks that were never freed.
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_set>

#include "host_internal.h"
#include "zelto/zelto_host_services.h"

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::mutex g_mutex;
std::unordered_set<void *> &blocks() {
    static auto *s = new std::unordered_set<void *>;
    return *s;
}

int digit(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Decodes strict base64 (blanks skipped) into `out`; false if malformed.
bool decode(const char *text, std::string &out) {
    std::string chars;
    for (const char *p = text; *p; ++p)
        if (!is_blank(*p)) chars += *p;
    if (chars.empty() || chars.size() % 4 != 0) return false;
    size_t pad = 0;
    while (pad < chars.size() && chars[chars.size() - 1 - pad] == '=') ++pad;
    if (pad > 2) return false;
    const size_t body = chars.size() - pad;
    uint32_t acc = 0;
    int bits = 0;
    for (size_t i = 0; i < body; ++i) {
        int d = digit(chars[i]);
        if (d < 0) return false;
        acc = (acc << 6) | static_cast<uint32_t>(d);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((acc >> bits) & 0xFF);
        }
    }
    // The bits left over in the tail must be zero for the text to be canonical.
    return (acc & ((1u << bits) - 1)) == 0;
}

uint32_t serial_decode(const char *text, void **out_data, uint32_t *out_size) {
    if (!text || !out_data || !out_size) return ZELTO_SERIAL_BAD_ARG;
    std::string bytes;
    if (!decode(text, bytes)) return ZELTO_SERIAL_MALFORMED;
    auto *block = static_cast<char *>(std::malloc(bytes.size() + 1));
    if (!block) return ZELTO_SERIAL_NO_MEMORY;
    std::memcpy(block, bytes.data(), bytes.size());
    block[bytes.size()] = '\0';
    {
        std::lock_guard<std::mutex> guard(g_mutex);
        blocks().insert(block);
    }
    *out_data = block;
    *out_size = static_cast<uint32_t>(bytes.size());
    return 0;
}

uint32_t serial_free(void *data) {
    if (!data) return 0;
    {
        std::lock_guard<std::mutex> guard(g_mutex);
        if (blocks().erase(data) == 0) return ZELTO_SERIAL_BAD_ARG;
    }
    std::free(data);
    return 0;
}

const zelto_serialization_interface g_table = {
    .release = host::table_release,
    .reserved1 = nullptr,
    .serial_decode = serial_decode,
    .serial_free = serial_free,
};

}  // namespace

const void *host::serialization_table() { return &g_table; }

HOST_EXPORT uint32_t zelto_manager_serial_decode(const char *text, void **out_data, uint32_t *out_size) {
    return serial_decode(text, out_data, out_size);
}

HOST_EXPORT uint32_t zelto_manager_serial_free(void *data) { return serial_free(data); }

namespace {

// Base64 text of a block, after `prefix`, in a block for zelto_manager_text_free.
uint32_t encode(const char *prefix, const void *data, uint32_t size, char **out_text) {
    const auto *in = static_cast<const unsigned char *>(data);
    std::string text = prefix;
    for (uint32_t i = 0; i < size; i += 3) {
        uint32_t n = static_cast<uint32_t>(in[i]) << 16;
        if (i + 1 < size) n |= static_cast<uint32_t>(in[i + 1]) << 8;
        if (i + 2 < size) n |= in[i + 2];
        text += kAlphabet[(n >> 18) & 63];
        text += kAlphabet[(n >> 12) & 63];
        text += i + 1 < size ? kAlphabet[(n >> 6) & 63] : '=';
        text += i + 2 < size ? kAlphabet[n & 63] : '=';
    }
    auto *out = static_cast<char *>(std::malloc(text.size() + 1));
    if (!out) return ZELTO_SERIAL_NO_MEMORY;
    std::memcpy(out, text.c_str(), text.size() + 1);
    *out_text = out;
    return 0;
}

}  // namespace

HOST_EXPORT uint32_t zelto_manager_serial_encode(const void *data, uint32_t size, char **out_text) {
    if ((!data && size) || !out_text) return ZELTO_SERIAL_BAD_ARG;
    return encode("", data, size, out_text);
}

HOST_EXPORT uint32_t zelto_manager_fp_serialize(const char *description, char **out_text) {
    if (!description || !out_text) return ZELTO_SERIAL_BAD_ARG;
    const char *first = description;
    while (is_blank(*first)) ++first;
    if (*first != '<') return ZELTO_SERIAL_BAD_ARG;
    return encode(ZELTO_ZTFP_SERIAL_PREFIX, description, static_cast<uint32_t>(std::strlen(description)), out_text);
}

HOST_EXPORT uint32_t zelto_manager_serial_live_blocks(void) {
    std::lock_guard<std::mutex> guard(g_mutex);
    return static_cast<uint32_t>(blocks().size());
}
