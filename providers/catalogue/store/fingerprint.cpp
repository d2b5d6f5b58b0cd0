// Fingerprint texts (plain and XML query texts, base64, Chromaprint's
// compressed form) and the matcher: index keys, vote counting by offset,
// verification by bit error rate.
#include "providers/catalogue/store/fingerprint.h"

#include <algorithm>
#include <bit>
#include <unordered_map>

#include "providers/catalogue/store/utf8.h"

namespace catalogue::fp {

int64_t items_to_ms(uint32_t algorithm, int64_t items) {
    const int64_t hop = kItemSamples[algorithm < kAlgorithmCount ? algorithm : 1];
    const int64_t samples = items * hop;
    // Rounded to the nearest millisecond, halves away from zero.
    return (samples * 1000 + (samples < 0 ? -int64_t{kItemRate} / 2 : int64_t{kItemRate} / 2)) / kItemRate;
}

// ---- Compressed form ---------------------------------------------------------

namespace {

constexpr uint32_t kNormalMax = 7;  // 3-bit values; 7 means "7 plus a 5-bit exception"

// Reads `width`-bit values from a little-endian bit stream.
class BitReader {
   public:
    BitReader(std::string_view bytes, uint32_t width) : bytes_(bytes), width_(width) {}
    size_t available() const { return bytes_.size() * 8 / width_; }
    uint32_t at(size_t index) const {
        uint32_t v = 0;
        const size_t first = index * width_;
        for (uint32_t b = 0; b < width_; ++b) {
            const size_t bit = first + b;
            v |= ((static_cast<unsigned char>(bytes_[bit / 8]) >> (bit % 8)) & 1u) << b;
        }
        return v;
    }

   private:
    std::string_view bytes_;
    uint32_t width_;
};

void pack(const std::vector<uint8_t> &values, uint32_t width, std::string &out) {
    const size_t start = out.size();
    out.append((values.size() * width + 7) / 8, '\0');
    size_t bit = 0;
    for (uint8_t v : values)
        for (uint32_t b = 0; b < width; ++b, ++bit)
            if (v >> b & 1u) out[start + bit / 8] = static_cast<char>(out[start + bit / 8] | (1 << (bit % 8)));
}

}  // namespace

bool decode_compressed(std::string_view bytes, Fingerprint &out, std::string &why) {
    if (bytes.size() < 4) {
        why = "fingerprint shorter than its 4-byte head";
        return false;
    }
    const auto algorithm = static_cast<unsigned char>(bytes[0]);
    const uint32_t count = static_cast<uint32_t>(static_cast<unsigned char>(bytes[1])) << 16 |
                           static_cast<uint32_t>(static_cast<unsigned char>(bytes[2])) << 8 |
                           static_cast<unsigned char>(bytes[3]);
    if (algorithm >= kAlgorithmCount) {
        why = "unknown fingerprint algorithm " + std::to_string(algorithm);
        return false;
    }
    if (count == 0) {
        why = "fingerprint without items";
        return false;
    }
    if (count > kMaxItems) {
        why = "fingerprint of " + std::to_string(count) + " items is too long";
        return false;
    }
    const std::string_view body = bytes.substr(4);
    const BitReader normal(body, 3);
    // The values up to the count-th zero (each zero ends an item).
    size_t used = 0, exceptions = 0;
    uint32_t ended = 0;
    const size_t available = normal.available();
    while (used < available && ended < count) {
        const uint32_t v = normal.at(used++);
        if (v == 0) ++ended;
        else if (v == kNormalMax) ++exceptions;
    }
    if (ended < count) {
        why = "fingerprint data ends before its " + std::to_string(count) + " items";
        return false;
    }
    const size_t normal_bytes = (used * 3 + 7) / 8;
    const std::string_view rest = body.substr(normal_bytes);
    if (rest.size() < (exceptions * 5 + 7) / 8) {
        why = "fingerprint data ends before its exception values";
        return false;
    }
    const BitReader exceptional(rest, 5);
    std::vector<uint32_t> items;
    items.reserve(count);
    uint32_t value = 0, last_bit = 0, previous = 0;
    size_t next_exception = 0;
    for (size_t i = 0; i < used; ++i) {
        uint32_t v = normal.at(i);
        if (v == 0) {
            const uint32_t item = items.empty() ? value : value ^ previous;
            items.push_back(item);
            previous = item;
            value = 0;
            last_bit = 0;
            continue;
        }
        if (v == kNormalMax) v += exceptional.at(next_exception++);
        last_bit += v;
        if (last_bit > 32) {
            why = "fingerprint data names a bit beyond 32";
            return false;
        }
        value |= 1u << (last_bit - 1);
    }
    out.algorithm = algorithm;
    out.items = std::move(items);
    return true;
}

std::string encode_compressed(const std::vector<uint32_t> &items, uint32_t algorithm) {
    std::vector<uint8_t> normal, exceptional;
    uint32_t previous = 0;
    for (size_t i = 0; i < items.size(); ++i) {
        uint32_t x = i == 0 ? items[i] : items[i] ^ previous;
        previous = items[i];
        uint32_t bit = 1, last_bit = 0;
        for (; x != 0; x >>= 1, ++bit) {
            if ((x & 1u) == 0) continue;
            const uint32_t v = bit - last_bit;
            last_bit = bit;
            if (v >= kNormalMax) {
                normal.push_back(kNormalMax);
                exceptional.push_back(static_cast<uint8_t>(v - kNormalMax));
            } else {
                normal.push_back(static_cast<uint8_t>(v));
            }
        }
        normal.push_back(0);
    }
    const auto n = static_cast<uint32_t>(items.size());
    std::string out;
    out.push_back(static_cast<char>(algorithm & 0xFF));
    out.push_back(static_cast<char>(n >> 16 & 0xFF));
    out.push_back(static_cast<char>(n >> 8 & 0xFF));
    out.push_back(static_cast<char>(n & 0xFF));
    pack(normal, 3, out);
    pack(exceptional, 5, out);
    return out;
}

// ---- Base64 ---------------------------------------------------------------------

bool decode_base64(std::string_view text, std::string &out) {
    out.clear();
    uint32_t accumulator = 0, bits = 0;
    size_t padding = 0, digits = 0;
    for (char c : text) {
        int v;
        if (c >= 'A' && c <= 'Z') v = c - 'A';
        else if (c >= 'a' && c <= 'z') v = c - 'a' + 26;
        else if (c >= '0' && c <= '9') v = c - '0' + 52;
        else if (c == '+' || c == '-') v = 62;
        else if (c == '/' || c == '_') v = 63;
        else if (c == ' ' || c == '\t' || c == '\r' || c == '\n') continue;
        else if (c == '=') {
            ++padding;
            continue;
        } else return false;
        if (padding != 0) return false;  // digits after padding
        ++digits;
        accumulator = accumulator << 6 | static_cast<uint32_t>(v);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<char>(accumulator >> bits & 0xFF));
        }
    }
    // A lone sixth of a group cannot hold a byte; padding, if any, must
    // complete the last group.
    if (digits % 4 == 1) return false;
    if (padding != 0 && (padding > 2 || (digits + padding) % 4 != 0)) return false;
    return true;
}

std::string encode_base64url(std::string_view bytes) {
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
    std::string out;
    out.reserve((bytes.size() * 4 + 2) / 3);
    uint32_t accumulator = 0, bits = 0;
    for (char c : bytes) {
        accumulator = accumulator << 8 | static_cast<unsigned char>(c);
        bits += 8;
        while (bits >= 6) {
            bits -= 6;
            out.push_back(kAlphabet[accumulator >> bits & 63]);
        }
    }
    if (bits != 0) out.push_back(kAlphabet[accumulator << (6 - bits) & 63]);
    return out;
}

// ---- Query texts ------------------------------------------------------------------

namespace {

std::string_view trim(std::string_view s) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (!s.empty() && blank(s.front())) s.remove_prefix(1);
    while (!s.empty() && blank(s.back())) s.remove_suffix(1);
    return s;
}

bool parse_decimal(std::string_view s, uint32_t &out) {
    s = trim(s);
    if (s.empty() || s.size() > 10) return false;
    uint64_t n = 0;
    for (char c : s) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<uint64_t>(c - '0');
    }
    if (n > 0xFFFFFFFFu) return false;
    out = static_cast<uint32_t>(n);
    return true;
}

bool equal_ignoring_case(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// A small reader of the XML that fingerprint descriptions use: elements,
// attributes (skipped), text with character references, CDATA, comments
// and processing instructions. No document type declarations.
struct XmlNode {
    std::string name;
    std::string text;
    std::vector<XmlNode> children;

    const XmlNode *child(std::string_view n) const {
        for (const auto &c : children)
            if (c.name == n) return &c;
        return nullptr;
    }
};

class XmlReader {
   public:
    explicit XmlReader(std::string_view s) : s_(s) {}

    bool document(XmlNode &root, std::string &why) {
        if (!misc() || !at("<") || !element(root, 0) || !misc()) {
            why = why_.empty() ? "fingerprint description is not well-formed XML" : why_;
            return false;
        }
        if (i_ != s_.size()) {
            why = "text after the fingerprint description's root element";
            return false;
        }
        return true;
    }

   private:
    static constexpr int kMaxDepth = 32;
    std::string_view s_;
    size_t i_ = 0;
    std::string why_;

    bool at(std::string_view t) const { return s_.substr(i_, t.size()) == t; }
    bool fail(const char *why) {
        if (why_.empty()) why_ = why;
        return false;
    }
    void blanks() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\r' || s_[i_] == '\n')) ++i_;
    }
    bool skip_past(std::string_view end) {
        const size_t at = s_.find(end, i_);
        if (at == std::string_view::npos) return fail("unterminated XML comment, declaration or CDATA");
        i_ = at + end.size();
        return true;
    }
    // Blanks, comments and processing instructions around the root.
    bool misc() {
        for (;;) {
            blanks();
            if (at("<!--")) {
                if (!skip_past("-->")) return false;
            } else if (at("<?")) {
                if (!skip_past("?>")) return false;
            } else if (at("<!")) {
                return fail("XML document type declarations are not accepted");
            } else {
                return true;
            }
        }
    }
    static bool name_char(char c, bool first) {
        const auto u = static_cast<unsigned char>(c);
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' || u >= 0x80) return true;
        return !first && ((c >= '0' && c <= '9') || c == '-' || c == '.');
    }
    bool name(std::string_view &out) {
        const size_t start = i_;
        while (i_ < s_.size() && name_char(s_[i_], i_ == start)) ++i_;
        if (i_ == start) return fail("XML element without a name");
        out = s_.substr(start, i_ - start);
        return true;
    }
    // A character reference after '&', appended to `out`.
    bool reference(std::string &out) {
        const size_t semicolon = s_.find(';', i_);
        if (semicolon == std::string_view::npos || semicolon - i_ > 12) return fail("bad XML character reference");
        const std::string_view ref = s_.substr(i_ + 1, semicolon - i_ - 1);
        i_ = semicolon + 1;
        static constexpr std::pair<std::string_view, char> kNamed[] = {
            {"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}};
        for (const auto &[n, c] : kNamed)
            if (ref == n) {
                out.push_back(c);
                return true;
            }
        if (ref.size() < 2 || ref[0] != '#') return fail("unknown XML entity");
        const bool hex = ref[1] == 'x';
        const std::string_view digits = ref.substr(hex ? 2 : 1);
        if (digits.empty()) return fail("bad XML character reference");
        uint32_t cp = 0;
        for (char c : digits) {
            uint32_t d;
            if (c >= '0' && c <= '9') d = static_cast<uint32_t>(c - '0');
            else if (hex && c >= 'a' && c <= 'f') d = static_cast<uint32_t>(c - 'a' + 10);
            else if (hex && c >= 'A' && c <= 'F') d = static_cast<uint32_t>(c - 'A' + 10);
            else return fail("bad XML character reference");
            cp = cp * (hex ? 16 : 10) + d;
            if (cp > 0x10FFFF) return fail("XML character reference out of range");
        }
        if (cp == 0 || (cp >= 0xD800 && cp <= 0xDFFF)) return fail("XML character reference out of range");
        append_utf8(out, cp);
        return true;
    }
    bool attributes() {
        for (;;) {
            const size_t before = i_;
            blanks();
            if (at(">") || at("/>")) return true;
            if (i_ == before) return fail("XML attributes must be separated by blanks");
            std::string_view n;
            if (!name(n)) return false;
            blanks();
            if (!at("=")) return fail("XML attribute without a value");
            ++i_;
            blanks();
            if (i_ >= s_.size() || (s_[i_] != '"' && s_[i_] != '\'')) return fail("XML attribute value without quotes");
            const char quote = s_[i_++];
            const size_t end = s_.find(quote, i_);
            if (end == std::string_view::npos) return fail("unterminated XML attribute value");
            if (s_.substr(i_, end - i_).find('<') != std::string_view::npos) return fail("'<' in an XML attribute value");
            i_ = end + 1;
        }
    }
    bool element(XmlNode &node, int depth) {
        if (depth >= kMaxDepth) return fail("fingerprint description nested too deeply");
        ++i_;  // '<'
        std::string_view n;
        if (!name(n) || !attributes()) return false;
        node.name.assign(n);
        if (at("/>")) {
            i_ += 2;
            return true;
        }
        ++i_;  // '>'
        for (;;) {
            if (i_ >= s_.size()) return fail("XML element not closed");
            if (at("</")) {
                i_ += 2;
                std::string_view closing;
                if (!name(closing)) return false;
                blanks();
                if (closing != n || !at(">")) return fail("XML end tag does not match its element");
                ++i_;
                return true;
            }
            if (at("<!--")) {
                if (!skip_past("-->")) return false;
            } else if (at("<![CDATA[")) {
                const size_t start = i_ + 9;
                if (!skip_past("]]>")) return false;
                node.text.append(s_.substr(start, i_ - 3 - start));
            } else if (at("<?")) {
                if (!skip_past("?>")) return false;
            } else if (at("<")) {
                node.children.emplace_back();
                if (!element(node.children.back(), depth + 1)) return false;
            } else if (s_[i_] == '&') {
                if (!reference(node.text)) return false;
            } else {
                node.text.push_back(s_[i_++]);
            }
        }
    }
};

bool take_data(std::string_view data, Fingerprint &out, std::string &why) {
    std::string bytes;
    if (!decode_base64(trim(data), bytes)) {
        why = "fingerprint data is not base64";
        return false;
    }
    return decode_compressed(bytes, out, why);
}

// Algorithm name and version named beside the data must agree with it.
bool agrees(std::string_view name, std::string_view version, const Fingerprint &fp, std::string &why) {
    if (!name.empty() && !equal_ignoring_case(trim(name), "chromaprint")) {
        why = "fingerprint algorithm '" + std::string(name) + "' is not supported";
        return false;
    }
    if (!version.empty()) {
        uint32_t v = 0;
        if (!parse_decimal(version, v) || v != fp.algorithm + 1) {
            why = "fingerprint algorithm version '" + std::string(version) + "' does not match its data (version " +
                  std::to_string(fp.algorithm + 1) + ")";
            return false;
        }
    }
    return true;
}

bool parse_xml(std::string_view text, Fingerprint &out, std::string &why) {
    XmlNode root;
    if (!XmlReader(text).document(root, why)) return false;
    const XmlNode *algorithm = root.child("ALGORITHM");
    const XmlNode *name = algorithm ? algorithm->child("NAME") : nullptr;
    const XmlNode *version = algorithm ? algorithm->child("VERSION") : nullptr;
    const XmlNode *data = root.child("DATA");
    if (!name || !version) {
        why = "fingerprint description without ALGORITHM/NAME and ALGORITHM/VERSION";
        return false;
    }
    if (!data) {
        why = "fingerprint description without DATA";
        return false;
    }
    if (trim(name->text).empty() || trim(version->text).empty()) {
        why = "fingerprint description with an empty algorithm name or version";
        return false;
    }
    if (!take_data(data->text, out, why) || !agrees(name->text, version->text, out, why)) return false;
    out.duration = 0;
    if (const XmlNode *duration = root.child("DURATION"); duration && !parse_decimal(duration->text, out.duration)) {
        why = "fingerprint DURATION is not a number";
        return false;
    }
    return true;
}

bool parse_plain(std::string_view text, Fingerprint &out, std::string &why) {
    std::string_view data;
    bool have_data = false, have_duration = false;
    uint32_t duration = 0;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = trim(text.substr(0, end));
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.empty()) continue;
        const size_t eq = line.find('=');
        if (eq == std::string_view::npos) {
            why = "fingerprint text line without '='";
            return false;
        }
        const std::string_view key = trim(line.substr(0, eq)), value = trim(line.substr(eq + 1));
        if (key == "FINGERPRINT") {
            data = value;
            have_data = true;
        } else if (key == "DURATION") {
            if (!parse_decimal(value, duration)) {
                why = "fingerprint DURATION is not a number";
                return false;
            }
            have_duration = true;
        }
    }
    if (!have_data) {
        why = "fingerprint text without FINGERPRINT";
        return false;
    }
    if (!take_data(data, out, why)) return false;
    out.duration = have_duration ? duration : 0;
    return true;
}

}  // namespace

bool parse_query_text(std::string_view text, std::string_view algorithm_name, std::string_view algorithm_version,
                      Fingerprint &out, std::string &why) {
    const std::string_view body = trim(text);
    if (body.empty()) {
        why = "empty fingerprint text";
        return false;
    }
    Fingerprint fp;
    const bool ok = body.front() == '<' ? parse_xml(body, fp, why) : parse_plain(body, fp, why);
    if (!ok || !agrees(algorithm_name, algorithm_version, fp, why)) return false;
    out = std::move(fp);
    return true;
}

std::string plain_query_text(const Fingerprint &fp) {
    return "DURATION=" + std::to_string(fp.duration) +
           "\nFINGERPRINT=" + encode_base64url(encode_compressed(fp.items, fp.algorithm));
}

std::string xml_query_text(const Fingerprint &fp) {
    return "<FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>" + std::to_string(fp.algorithm + 1) +
           "</VERSION></ALGORITHM><DURATION>" + std::to_string(fp.duration) + "</DURATION><DATA>" +
           encode_base64url(encode_compressed(fp.items, fp.algorithm)) + "</DATA></FINGERPRINT>";
}

// ---- Matching -----------------------------------------------------------------------

std::vector<bool> informative(const std::vector<uint32_t> &items) {
    std::vector<bool> out(items.size(), true);
    for (size_t start = 0; start < items.size();) {
        size_t end = start + 1;
        while (end < items.size() && items[end] == items[start]) ++end;
        if (end - start >= 3)
            for (size_t i = start; i < end; ++i) out[i] = false;
        start = end;
    }
    return out;
}

uint32_t informative_count(const std::vector<uint32_t> &items) {
    const std::vector<bool> mask = informative(items);
    return static_cast<uint32_t>(std::count(mask.begin(), mask.end(), true));
}

uint32_t score_of(uint32_t differing_bits, uint32_t compared) {
    if (compared == 0) return 0;
    const int64_t bits = int64_t{32} * compared;
    const int64_t score = (100 * bits - 200 * int64_t{differing_bits}) / bits;
    return static_cast<uint32_t>(std::clamp<int64_t>(score, 0, 100));
}

Alignment compare_at(const std::vector<uint32_t> &stored, const std::vector<uint32_t> &query,
                     const std::vector<bool> &query_informative, int32_t offset) {
    Alignment a;
    a.offset = offset;
    const int64_t first = std::max<int64_t>(0, -int64_t{offset});
    const int64_t last = std::min<int64_t>(static_cast<int64_t>(query.size()), static_cast<int64_t>(stored.size()) - offset);
    for (int64_t j = first; j < last; ++j) {
        if (!query_informative[static_cast<size_t>(j)]) continue;
        ++a.compared;
        a.differing_bits += static_cast<uint32_t>(
            std::popcount(stored[static_cast<size_t>(j + offset)] ^ query[static_cast<size_t>(j)]));
    }
    a.score = score_of(a.differing_bits, a.compared);
    return a;
}

namespace {

// Votes are counted under print and offset packed into one word: offsets
// lie within +-kMaxItems, so 20 bits with a bias hold them.
constexpr int64_t kOffsetBias = int64_t{1} << 20;
uint64_t vote_key(int64_t print, int64_t offset) {
    return static_cast<uint64_t>(print) << 21 | static_cast<uint64_t>(offset + kOffsetBias);
}

struct Candidate {
    int64_t print = 0;
    int32_t offset = 0;
    uint32_t votes = 0;   // in the bin and its two neighbours
    uint32_t centre = 0;  // in the bin itself
};

}  // namespace

bool match(const Fingerprint &query, PrintSource &source, std::vector<Hit> &out, std::string &why) {
    out.clear();
    if (query.items.empty() || query.algorithm >= kAlgorithmCount) return true;
    const std::vector<bool> mask = informative(query.items);
    std::unordered_map<uint64_t, uint32_t> votes;
    std::unordered_map<uint32_t, std::vector<Posting>> seen;  // postings of keys read so far
    std::vector<Posting> list;
    uint32_t probes = 0;
    for (size_t j = 0; j < query.items.size() && probes < kMaxProbes; ++j) {
        if (!mask[j]) continue;
        ++probes;
        const uint32_t key = index_key(query.algorithm, query.items[j]);
        auto it = seen.find(key);
        if (it == seen.end()) {
            list.clear();
            if (!source.postings(key, kStopPostings, list, why)) return false;
            if (list.size() > kStopPostings) list.clear();  // a stop key
            it = seen.emplace(key, list).first;
        }
        for (const Posting &p : it->second)
            ++votes[vote_key(p.print, static_cast<int64_t>(p.position) - static_cast<int64_t>(j))];
    }
    // The best offset of each print, counting each bin with its neighbours.
    std::unordered_map<int64_t, Candidate> best;
    for (const auto &[key, count] : votes) {
        const int64_t print = static_cast<int64_t>(key >> 21);
        const int64_t offset = static_cast<int64_t>(key & ((uint64_t{1} << 21) - 1)) - kOffsetBias;
        uint32_t total = count;
        for (int64_t d : {offset - 1, offset + 1})
            if (auto n = votes.find(vote_key(print, d)); n != votes.end()) total += n->second;
        Candidate &c = best[print];
        if (total > c.votes || (total == c.votes && count > c.centre) ||
            (total == c.votes && count == c.centre && offset < c.offset)) {
            c = {print, static_cast<int32_t>(offset), total, count};
        }
    }
    std::vector<Candidate> candidates;
    for (const auto &[print, c] : best)
        if (c.votes >= kMinVotes) candidates.push_back(c);
    std::sort(candidates.begin(), candidates.end(), [](const Candidate &a, const Candidate &b) {
        return a.votes != b.votes ? a.votes > b.votes : a.print < b.print;
    });
    if (candidates.size() > kMaxCandidates) candidates.resize(kMaxCandidates);

    Fingerprint stored;
    for (const Candidate &c : candidates) {
        if (!source.items(c.print, stored, why)) return false;
        if (stored.algorithm != query.algorithm) continue;
        Alignment top;
        for (int32_t d = -2; d <= 2; ++d) {
            const Alignment a = compare_at(stored.items, query.items, mask, c.offset + d);
            if (a.compared >= kMinCompared && (a.score > top.score || (a.score == top.score && a.compared > top.compared)))
                top = a;
        }
        if (top.compared >= kMinCompared && top.score >= kMatchThreshold) out.push_back({c.print, top, c.votes});
    }
    std::sort(out.begin(), out.end(), [](const Hit &a, const Hit &b) {
        if (a.alignment.score != b.alignment.score) return a.alignment.score > b.alignment.score;
        if (a.votes != b.votes) return a.votes > b.votes;
        return a.print < b.print;
    });
    return true;
}

}  // namespace catalogue::fp
