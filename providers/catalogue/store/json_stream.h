// Reads release JSON one record at a time, so that an import holds one
// release in memory however large the file: a top-level array (each
// element), an object {"releases": [...]} as the MusicBrainz web service
// answers (each element of its list), one document per line as the
// MusicBrainz dumps have them, or documents one after another.
//
// The reader finds where a record ends by its brackets and strings only;
// the record's own parser checks the rest. A record nested deeper than
// kMaxJsonDepth or longer than kMaxJsonRecord is skipped without being kept.
#ifndef ZELTO_PROVIDERS_CATALOGUE_STORE_JSON_STREAM_H
#define ZELTO_PROVIDERS_CATALOGUE_STORE_JSON_STREAM_H

#include <cstdint>
#include <istream>
#include <string>

namespace catalogue {

constexpr uint32_t kMaxJsonDepth = 64;
constexpr uint64_t kMaxJsonRecord = 64ull << 20;

struct JsonRecord {
    enum class Kind {
        release,   // an element of a list of releases
        document,  // a whole document: a release, an array or a list object
        bad,       // unusable; `why` tells
    } kind = Kind::bad;
    std::string text;
    std::string why;
    uint64_t line = 0;  // where the record starts, from 1
};

class JsonRecordReader {
   public:
    explicit JsonRecordReader(std::istream &in) : in_(in) {}
    // The next record; false at the end of the input.
    bool next(JsonRecord &out);
    uint64_t bytes_read() const { return consumed_; }

   private:
    enum class Mode { start, list, lines, sequence, done };

    int peek();
    int get();
    void skip_blanks();
    // Reads one value into `out`; false with `why` set when it cannot be
    // kept (it is then read past without being kept).
    bool value(std::string *out, std::string &why);
    // After the first document: one per line when it filled its line,
    // else one after another.
    void choose_follow_mode(bool value_was_one_line);
    // The next line that is not blank.
    bool line(JsonRecord &out);

    std::istream &in_;
    char buffer_[65536];
    size_t at_ = 0, filled_ = 0;
    uint64_t consumed_ = 0, line_ = 1;
    Mode mode_ = Mode::start;
};

}  // namespace catalogue

#endif
