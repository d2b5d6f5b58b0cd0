// The TOC of a disc from a CUE sheet.
#include "tool/disc/cue.h"

#include <vector>

#include "tool/disc/text_lines.h"

namespace disc {

namespace {

constexpr size_t kMaxWarnings = 20;

struct TrackType {
    const char *name;
    bool data;
};
constexpr TrackType kTrackTypes[] = {
    {"AUDIO", false},      {"CDG", false},        {"MODE1/2048", true}, {"MODE1/2352", true},
    {"MODE2/2048", true},  {"MODE2/2324", true},  {"MODE2/2336", true}, {"MODE2/2352", true},
    {"CDI/2336", true},    {"CDI/2352", true},
};

// Commands that carry nothing for the TOC.
constexpr const char *kIgnored[] = {"REM",      "TITLE",     "PERFORMER", "SONGWRITER", "COMPOSER",
                                    "ARRANGER", "MESSAGE",   "GENRE",     "DISC_ID",    "UPC_EAN",
                                    "FLAGS",    "CDTEXTFILE", "SIZE_INFO", "TOC_INFO1",  "TOC_INFO2"};

// Words of a line; a quoted word may hold blanks.
Expected<std::vector<std::string>> words_of(std::string_view line, size_t number) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        const char c = line[i];
        if (c == ' ' || c == '\t') {
            ++i;
        } else if (c == '"') {
            const size_t close = line.find('"', i + 1);
            if (close == std::string_view::npos) return Error{number, "unterminated quote"};
            words.emplace_back(line.substr(i + 1, close - i - 1));
            i = close + 1;
        } else {
            size_t end = i;
            while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
            words.emplace_back(line.substr(i, end - i));
            i = end;
        }
    }
    return words;
}

struct CueTrack {
    Track track;
    size_t line = 0;                 // of its TRACK command
    std::optional<uint32_t> start;   // disc frame where its material begins (INDEX 00, else INDEX 01)
    std::optional<uint32_t> index1;  // disc frame of INDEX 01
    int last_index = -1;
    bool pregap = false, postgap = false;
    uint32_t pregap_frames = 0;      // of a PREGAP command: silence no file holds
};

class CueReader {
   public:
    explicit CueReader(const CueOptions &options) : options_(options) {}

    Expected<Disc> read(const std::vector<std::string> &lines) {
        for (size_t i = 0; i < lines.size(); ++i) {
            line_ = i + 1;
            auto words = words_of(lines[i], line_);
            if (!words) return words.error();
            if (words->empty()) continue;
            if (auto e = command(*words)) return *e;
        }
        line_ = lines.size();
        return finish();
    }

   private:
    std::optional<Error> fail(std::string message) const { return Error{line_, std::move(message)}; }

    void warn(std::string message) {
        if (disc_.warnings.size() < kMaxWarnings)
            disc_.warnings.push_back("line " + std::to_string(line_) + ": " + message);
        else if (disc_.warnings.size() == kMaxWarnings)
            disc_.warnings.push_back("further warnings not shown");
    }

    // The disc frame of a time in the current file. Times rise; only an
    // INDEX 01 may repeat the time of its own INDEX 00 (an empty pregap).
    Expected<uint32_t> position(const std::string &time, bool may_repeat) {
        auto t = parse_msf(time);
        if (!t) return Error{line_, t.error().message};
        const uint64_t frame = uint64_t{kPregapFrames} + file_base_ + *t + silence_;
        if (frame > kMaxFrames) return Error{line_, "time " + time + " lies beyond 100 minutes on the disc"};
        if (file_time_ && (*t < *file_time_ || (*t == *file_time_ && !may_repeat)))
            return Error{line_, "time " + time + " is not after the previous INDEX of this FILE"};
        file_time_ = *t;
        return static_cast<uint32_t>(frame);
    }

    std::optional<Error> command(const std::vector<std::string> &w) {
        const std::string &cmd = w[0];
        if (equals_nocase(cmd, "FILE")) return file(w);
        if (equals_nocase(cmd, "TRACK")) return track(w);
        if (equals_nocase(cmd, "INDEX")) return index(w);
        if (equals_nocase(cmd, "PREGAP") || equals_nocase(cmd, "POSTGAP")) return gap(w, equals_nocase(cmd, "PREGAP"));
        if (equals_nocase(cmd, "CATALOG")) {
            uint32_t n = 0;
            const bool digits = w.size() == 2 && w[1].size() == 13 && parse_number(w[1].substr(0, 9), n) &&
                                parse_number(w[1].substr(9), n);
            if (digits) disc_.mcn = w[1];
            else warn("CATALOG is not 13 digits; ignored");
            return std::nullopt;
        }
        if (equals_nocase(cmd, "ISRC")) {
            if (tracks_.empty()) return fail("ISRC before the first TRACK");
            bool valid = w.size() == 2 && w[1].size() == 12;
            for (char c : valid ? w[1] : std::string())
                valid = valid && ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'));
            if (valid) tracks_.back().track.isrc = w[1];
            else warn("ISRC is not 12 letters and digits; ignored");
            return std::nullopt;
        }
        for (const char *ignored : kIgnored)
            if (equals_nocase(cmd, ignored)) return std::nullopt;
        warn("unknown command \"" + cmd.substr(0, 32) + "\" ignored");
        return std::nullopt;
    }

    std::optional<Error> file(const std::vector<std::string> &w) {
        if (w.size() != 3) return fail("FILE needs a file name and a type");
        if (!file_name_.empty()) {
            // Times start again: the earlier file's length carries them on.
            std::optional<uint32_t> length;
            if (options_.file_length) length = options_.file_length(file_name_);
            if (!length)
                return fail("a second FILE: the length of \"" + file_name_.substr(0, 64) +
                            "\" is needed, since times start again in each file");
            if (file_time_ && *length <= *file_time_)
                return fail("\"" + file_name_.substr(0, 64) + "\" is shorter than its INDEX times");
            file_base_ += *length;
            if (file_base_ > kMaxFrames) return fail("the files before this one last beyond 100 minutes");
        }
        file_name_ = w[1];
        file_time_.reset();
        return std::nullopt;
    }

    std::optional<Error> track(const std::vector<std::string> &w) {
        if (file_name_.empty()) return fail("TRACK before any FILE");
        uint32_t number = 0;
        if (w.size() != 3 || w[1].size() > 2 || !parse_number(w[1], number) || number < 1 || number > kMaxTrackNumber)
            return fail("TRACK needs a number 01 to 99 and a type");
        if (!tracks_.empty()) {
            const CueTrack &prev = tracks_.back();
            if (!prev.index1)
                return fail("TRACK " + w[1] + " begins before track " + std::to_string(prev.track.number) +
                            " (line " + std::to_string(prev.line) + ") has an INDEX 01");
            if (number != prev.track.number + 1)
                return fail("TRACK " + w[1] + " follows track " + std::to_string(prev.track.number) +
                            (number <= prev.track.number ? "" : ": a track is missing"));
        }
        const TrackType *type = nullptr;
        for (const TrackType &t : kTrackTypes)
            if (equals_nocase(w[2], t.name)) type = &t;
        if (!type) return fail("unknown track type \"" + w[2].substr(0, 32) + "\"");
        CueTrack t;
        t.track.number = number;
        t.track.data = type->data;
        t.line = line_;
        tracks_.push_back(std::move(t));
        return std::nullopt;
    }

    std::optional<Error> index(const std::vector<std::string> &w) {
        if (tracks_.empty()) return fail("INDEX before the first TRACK");
        CueTrack &t = tracks_.back();
        uint32_t number = 0;
        if (w.size() != 3 || w[1].size() > 2 || !parse_number(w[1], number) || number > 99)
            return fail("INDEX needs a number 00 to 99 and a time mm:ss:ff");
        if (static_cast<int>(number) <= t.last_index)
            return fail("INDEX " + w[1] + " after INDEX " + std::to_string(t.last_index) + " of the same track");
        if (t.last_index < 0 && number > 1) return fail("the first INDEX of a track must be 00 or 01");
        if (t.postgap) return fail("INDEX after the track's POSTGAP");
        auto frame = position(w[2], number == 1 && t.last_index == 0);
        if (!frame) return frame.error();
        t.last_index = static_cast<int>(number);
        if (number == 0) t.start = *frame;
        if (number == 1) {
            t.index1 = *frame;
            t.track.offset = *frame;
            if (!t.start) t.start = *frame - t.pregap_frames;
        }
        return std::nullopt;
    }

    std::optional<Error> gap(const std::vector<std::string> &w, bool pregap) {
        if (tracks_.empty()) return fail(w[0] + " before the first TRACK");
        CueTrack &t = tracks_.back();
        if (w.size() != 2) return fail(w[0] + " needs a time mm:ss:ff");
        auto length = parse_msf(w[1]);
        if (!length) return Error{line_, length.error().message};
        if (pregap ? (t.pregap || t.last_index >= 0) : (t.postgap || !t.index1))
            return fail(pregap ? "PREGAP must come once, before the track's INDEX lines"
                               : "POSTGAP must come once, after the track's INDEX 01");
        (pregap ? t.pregap : t.postgap) = true;
        if (pregap) t.pregap_frames = *length;
        silence_ += *length;
        if (silence_ > kMaxFrames) return fail("gaps beyond 100 minutes");
        return std::nullopt;
    }

    Expected<Disc> finish() {
        if (tracks_.empty()) return Error{0, "no TRACK in the CUE sheet"};
        if (!tracks_.back().index1)
            return Error{tracks_.back().line, "track " + std::to_string(tracks_.back().track.number) + " has no INDEX 01"};
        std::optional<uint32_t> end;  // where the last file's material ends on the disc
        if (options_.file_length) {
            if (auto length = options_.file_length(file_name_)) {
                if (file_time_ && *length <= *file_time_)
                    return Error{0, "\"" + file_name_.substr(0, 64) + "\" is shorter than its INDEX times"};
                end = kPregapFrames + file_base_ + *length + silence_;
            }
        }
        size_t audio_end = tracks_.size();
        while (audio_end > 0 && tracks_[audio_end - 1].track.data) --audio_end;
        if (audio_end > 0 && audio_end < tracks_.size()) {
            // Enhanced CD: the audio session ends where the data track's
            // material begins; the data session starts 11,400 frames later.
            const CueTrack &data = tracks_[audio_end];
            const uint32_t audio_leadout = *data.start;
            if (*data.index1 - audio_leadout > kSessionGapFrames)
                return Error{data.line, "the data track's pregap is longer than the 11400-frame gap between sessions"};
            const uint32_t shift = audio_leadout + kSessionGapFrames - *data.index1;
            if (options_.leadout && *options_.leadout != audio_leadout)
                return Error{data.line, "the data track puts the audio lead-out at " + std::to_string(audio_leadout) +
                                            ", not at the lead-out given (" + std::to_string(*options_.leadout) + ")"};
            disc_.audio_leadout = audio_leadout;
            for (size_t i = audio_end; i < tracks_.size(); ++i) tracks_[i].track.offset += shift;
            if (end) *end += shift;
        } else if (options_.leadout) {
            if (end && *end != *options_.leadout)
                return Error{0, "the audio files end at frame " + std::to_string(*end) + ", not at the lead-out given (" +
                                    std::to_string(*options_.leadout) + ")"};
            disc_.audio_leadout = options_.leadout;
            end = options_.leadout;
        } else if (!end && audio_end == tracks_.size()) {
            return Error{0, "the CUE sheet does not tell where the last track ends: give the lead-out in frames"};
        }
        disc_.leadout = end;
        for (CueTrack &t : tracks_) disc_.tracks.push_back(std::move(t.track));
        return checked(std::move(disc_));
    }

    const CueOptions &options_;
    Disc disc_;
    std::vector<CueTrack> tracks_;
    size_t line_ = 0;
    std::string file_name_;            // current FILE; empty before the first
    uint32_t file_base_ = 0;           // frames of the files before the current one
    std::optional<uint32_t> file_time_;  // last INDEX time in the current file
    uint32_t silence_ = 0;             // PREGAP and POSTGAP frames so far
};

}  // namespace

Expected<Disc> read_cue(std::string_view bytes, const CueOptions &options) {
    auto lines = text_lines(bytes);
    if (!lines) return lines.error();
    return CueReader(options).read(*lines);
}

}  // namespace disc
