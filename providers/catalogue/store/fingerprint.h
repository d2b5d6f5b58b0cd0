// Audio fingerprints of the catalogue: reading the query texts that lookup
// providers receive, Chromaprint's compressed form, and the matcher that
// finds a query (a whole file or an excerpt of 20 seconds or more) among
// stored fingerprints, with its offset.
//
// How matching works is told in include/zelto/zelto_catalogue.h ("Audio
// fingerprints"); the parameters are below.
#ifndef ZELTO_HOST_CATALOGUE_FINGERPRINT_H
#define ZELTO_HOST_CATALOGUE_FINGERPRINT_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "zelto/zelto_catalogue.h"

namespace catalogue::fp {

// Chromaprint's algorithm numbers as its compressed form stores them (its
// algorithm 2 is stored as 1). The host's generator kinds 1 and 3 make 1,
// kind 5 makes 4.
constexpr uint32_t kAlgorithmCount = 5;
// Samples at 11025 Hz between two items, by stored algorithm number.
constexpr uint32_t kItemSamples[kAlgorithmCount] = {1365, 1365, 4096, 1365, 1024};
constexpr uint32_t kItemRate = 11025;

// Longest fingerprint read or stored: about nine hours of algorithm 2.
constexpr uint32_t kMaxItems = 1u << 18;

// Matcher parameters (see zelto_catalogue.h).
constexpr uint32_t kMaxProbes = 1000;        // query items looked up (about 2 minutes)
constexpr uint32_t kStopPostings = 4000;     // keys with more postings are skipped
constexpr uint32_t kMaxCandidates = 12;      // fingerprints verified per query
constexpr uint32_t kMinVotes = 3;            // votes a candidate needs to be verified
constexpr uint32_t kMinCompared = 40;        // compared items a hit needs (5 s)
constexpr uint32_t kMatchThreshold = ZELTO_CATALOGUE_FP_THRESHOLD;  // lowest score of a hit
constexpr uint32_t kStrongScore = ZELTO_CATALOGUE_FP_MULTI_SCORE;   // several hits this good are all exact

struct Fingerprint {
    uint32_t algorithm = 1;        // stored algorithm number, below kAlgorithmCount
    uint32_t duration = 0;         // seconds of audio, from the query text (0: not given)
    std::vector<uint32_t> items;
};

// Milliseconds of `items` items of an algorithm (may be negative).
int64_t items_to_ms(uint32_t algorithm, int64_t items);

// ---- Texts ------------------------------------------------------------------

// Chromaprint's compressed form: one byte of algorithm, the item count in
// three bytes (big-endian), then the bit positions that change from one
// item to the next packed three bits a value, and the values of 7 and more
// packed five bits a value. False with a reason for anything malformed:
// too short, counts that do not add up, bit positions beyond 31, more than
// kMaxItems items or none, an algorithm number of kAlgorithmCount or more.
bool decode_compressed(std::string_view bytes, Fingerprint &out, std::string &why);
std::string encode_compressed(const std::vector<uint32_t> &items, uint32_t algorithm);

// Base64 in either alphabet ("+/" or "-_"), with or without "=" padding,
// blanks and line breaks ignored. False for any other character or a
// dangling sixth bit group.
bool decode_base64(std::string_view text, std::string &out);
// URL-safe alphabet without padding, as Chromaprint's tools print it.
std::string encode_base64url(std::string_view bytes);

// Reads a query text of the host's fingerprint service (see
// zelto_host_services.h), either form:
//  - plain: lines "KEY=VALUE" (CR LF or LF); FINGERPRINT is required,
//    DURATION optional; other keys are ignored.
//  - XML: a root of any name with ALGORITHM (NAME "chromaprint" in any
//    case, VERSION the algorithm as Chromaprint's tools count it, which
//    must agree with the data), DURATION and DATA. Comments, processing
//    instructions, CDATA and the five named and numeric character
//    references are understood; at most 32 levels of nesting.
// `algorithm_name` and `algorithm_version`, when not empty, are what the
// request named beside the data and must agree with it too.
bool parse_query_text(std::string_view text, std::string_view algorithm_name, std::string_view algorithm_version,
                      Fingerprint &out, std::string &why);
// The two forms, for tests and tools.
std::string plain_query_text(const Fingerprint &fp);
std::string xml_query_text(const Fingerprint &fp);

// ---- Matching ---------------------------------------------------------------

// Key of an item in the index.
constexpr uint32_t index_key(uint32_t algorithm, uint32_t item) { return (algorithm & 7u) << 28 | item >> 4; }

// Positions worth indexing and comparing: false inside runs of three or
// more identical items.
std::vector<bool> informative(const std::vector<uint32_t> &items);
// Number of informative positions.
uint32_t informative_count(const std::vector<uint32_t> &items);

struct Posting {
    int64_t print = 0;
    uint32_t position = 0;
};

// What the matcher reads: the postings of a key (at most `limit` + 1 of
// them, so that a stop key is seen without reading it all) and the items of
// a stored fingerprint. A false return ends the match with `why`.
class PrintSource {
   public:
    virtual ~PrintSource() = default;
    virtual bool postings(uint32_t key, uint32_t limit, std::vector<Posting> &out, std::string &why) = 0;
    virtual bool items(int64_t print, Fingerprint &out, std::string &why) = 0;
};

struct Alignment {
    int32_t offset = 0;            // stored position minus query position, in items
    uint32_t compared = 0;         // informative items compared
    uint32_t differing_bits = 0;
    uint32_t score = 0;            // 0..100
};

// Compares the query with a stored fingerprint at one offset.
Alignment compare_at(const std::vector<uint32_t> &stored, const std::vector<uint32_t> &query,
                     const std::vector<bool> &query_informative, int32_t offset);
uint32_t score_of(uint32_t differing_bits, uint32_t compared);

struct Hit {
    int64_t print = 0;
    Alignment alignment;
    uint32_t votes = 0;
};

// Hits of at least kMatchThreshold, best first (score, then votes, then
// print id). False if the source failed.
bool match(const Fingerprint &query, PrintSource &source, std::vector<Hit> &out, std::string &why);

}  // namespace catalogue::fp

#endif
