// Release JSON split into records while it is read; see json_stream.h.
#include "providers/catalogue/store/json_stream.h"

#include <cstdio>

namespace catalogue {

namespace {

bool blank(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Whether the brackets of a text, outside its strings, nest at most
// kMaxJsonDepth deep.
bool nesting_within_bounds(const std::string &text) {
    uint32_t depth = 0;
    bool in_string = false, escape = false;
    for (char c : text) {
        if (in_string) {
            if (escape) escape = false;
            else if (c == '\\') escape = true;
            else if (c == '"') in_string = false;
        } else if (c == '"') {
            in_string = true;
        } else if (c == '{' || c == '[') {
            if (++depth > kMaxJsonDepth) return false;
        } else if ((c == '}' || c == ']') && depth > 0) {
            --depth;
        }
    }
    return true;
}

const char *const kTooDeep = "record nested more than 64 deep";
const char *const kTooLong = "record longer than 64 MiB";

}  // namespace

int JsonRecordReader::peek() {
    if (at_ == filled_) {
        in_.read(buffer_, sizeof buffer_);
        filled_ = static_cast<size_t>(in_.gcount());
        at_ = 0;
        if (filled_ == 0) return EOF;
    }
    return static_cast<unsigned char>(buffer_[at_]);
}

int JsonRecordReader::get() {
    const int c = peek();
    if (c != EOF) {
        ++at_;
        ++consumed_;
        if (c == '\n') ++line_;
    }
    return c;
}

void JsonRecordReader::skip_blanks() {
    for (int c = peek(); blank(c) || c == ','; c = peek()) get();
}

bool JsonRecordReader::value(std::string *out, std::string &why) {
    uint32_t depth = 0;
    bool in_string = false, escape = false;
    uint64_t size = 0;
    for (;;) {
        const int c = peek();
        if (c == EOF) {
            if (why.empty()) why = "the input ends inside a record";
            if (out) out->clear();
            return false;
        }
        // A number, literal or stray character ends at a delimiter.
        if (!in_string && depth == 0 && size > 0 && (blank(c) || c == ',' || c == ']' || c == '}')) break;
        get();
        ++size;
        if (out) {
            if (size > kMaxJsonRecord) {
                why = kTooLong;
                out->clear();
                out = nullptr;
            } else {
                out->push_back(static_cast<char>(c));
            }
        }
        if (in_string) {
            if (escape) escape = false;
            else if (c == '\\') escape = true;
            else if (c == '"') {
                in_string = false;
                if (depth == 0) break;
            }
        } else if (c == '"') {
            in_string = true;
        } else if (c == '{' || c == '[') {
            if (++depth > kMaxJsonDepth && out) {
                why = kTooDeep;
                out->clear();
                out = nullptr;
            }
        } else if (c == '}' || c == ']') {
            if (depth == 0 || --depth == 0) break;
        }
    }
    return why.empty();
}

void JsonRecordReader::choose_follow_mode(bool value_was_one_line) {
    int c = peek();
    while (c == ' ' || c == '\t' || c == '\r') {
        get();
        c = peek();
    }
    mode_ = value_was_one_line && (c == '\n' || c == EOF) ? Mode::lines : Mode::sequence;
}

bool JsonRecordReader::line(JsonRecord &out) {
    for (int c = peek(); c != EOF; c = peek()) {
        out.line = line_;
        bool kept = true, content = false;
        uint64_t size = 0;
        while ((c = get()) != EOF && c != '\n') {
            content = content || !blank(c);
            if (kept && ++size > kMaxJsonRecord) {
                kept = false;
                out.text.clear();
            }
            if (kept) out.text.push_back(static_cast<char>(c));
        }
        if (!content) continue;
        out.kind = JsonRecord::Kind::bad;
        if (!kept) out.why = kTooLong;
        else if (!nesting_within_bounds(out.text)) out.why = kTooDeep, out.text.clear();
        else out.kind = JsonRecord::Kind::document;
        return true;
    }
    return false;
}

bool JsonRecordReader::next(JsonRecord &out) {
    out = JsonRecord{};
    for (;;) {
        switch (mode_) {
            case Mode::start: {
                if (peek() == 0xEF) {  // a byte order mark
                    get();
                    if (peek() == 0xBB) get();
                    if (peek() == 0xBF) get();
                }
                skip_blanks();
                const int c = peek();
                if (c == EOF) {
                    mode_ = Mode::done;
                    return false;
                }
                if (c == '[') {
                    get();
                    mode_ = Mode::list;
                    continue;
                }
                out.line = line_;
                if (c != '{') {
                    out.why = "not JSON";
                    mode_ = Mode::done;
                    while (get() != EOF) {
                    }
                    return true;
                }
                if (value(&out.text, out.why)) out.kind = JsonRecord::Kind::document;
                choose_follow_mode(out.line == line_);
                return true;
            }
            case Mode::list: {
                skip_blanks();
                const int c = peek();
                out.line = line_;
                if (c == EOF) {
                    out.why = "the input ends inside the list of releases";
                    mode_ = Mode::done;
                    return true;
                }
                if (c == ']') {
                    get();
                    mode_ = Mode::sequence;
                    continue;
                }
                if (value(&out.text, out.why)) out.kind = JsonRecord::Kind::release;
                else if (peek() == EOF) mode_ = Mode::done;  // one message for an unfinished input
                return true;
            }
            case Mode::sequence: {
                skip_blanks();
                const int c = peek();
                if (c == EOF) {
                    mode_ = Mode::done;
                    return false;
                }
                if (c == '[') {
                    get();
                    mode_ = Mode::list;
                    continue;
                }
                out.line = line_;
                if (value(&out.text, out.why)) out.kind = JsonRecord::Kind::document;
                return true;
            }
            case Mode::lines:
                if (line(out)) return true;
                mode_ = Mode::done;
                return false;
            case Mode::done:
                return false;
        }
    }
}

}  // namespace catalogue
