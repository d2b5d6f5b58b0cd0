// Collecting audio files from the operands, and the progress line.
#include "tool/audio/scan.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <set>
#include <system_error>

namespace audio {

namespace fs = std::filesystem;

bool audio_extension(const std::string &name) {
    static const char *const kExtensions[] = {"wav", "wave", "w64", "flac", "mp3", "m4a", "mp4", "aac", "m4b", "ogg",
                                              "oga", "opus", "mka", "aif", "aiff", "wv", "ape", "wma", "caf"};
    const size_t dot = name.find_last_of('.');
    const size_t slash = name.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return false;
    std::string ext = name.substr(dot + 1);
    for (char &c : ext)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return std::find(std::begin(kExtensions), std::end(kExtensions), ext) != std::end(kExtensions);
}

Scan collect_files(const std::vector<std::string> &operands) {
    Scan scan;
    std::set<std::string> seen;
    auto take = [&](const std::string &path) {
        std::error_code ec;
        const fs::path canonical = fs::weakly_canonical(path, ec);
        if (seen.insert(ec ? path : canonical.string()).second) scan.files.push_back(path);
    };
    for (const std::string &operand : operands) {
        std::error_code ec;
        const fs::file_status status = fs::status(operand, ec);
        if (ec || !fs::exists(status)) {
            scan.problems.emplace_back(operand, "no such file or folder");
            continue;
        }
        if (!fs::is_directory(status)) {
            take(operand);
            continue;
        }
        std::vector<std::string> found;
        fs::recursive_directory_iterator it(operand, fs::directory_options::skip_permission_denied, ec), end;
        if (ec) {
            scan.problems.emplace_back(operand, "cannot read folder: " + ec.message());
            continue;
        }
        for (; it != end; it.increment(ec)) {
            if (ec) {
                scan.problems.emplace_back(operand, "cannot read folder: " + ec.message());
                break;
            }
            std::error_code e;
            if (it->is_regular_file(e) && audio_extension(it->path().filename().string()))
                found.push_back(it->path().string());
        }
        std::sort(found.begin(), found.end());
        for (const auto &f : found) take(f);
    }
    return scan;
}

std::string progress_line(size_t done, size_t total, double elapsed, double audio_seconds, size_t width) {
    const size_t filled = total == 0 ? width : std::min(width, done * width / total);
    // Appended piece by piece: GCC 12 misreads a concatenation here at -O3.
    std::string line(1, '[');
    line.append(filled, '#');
    line.append(width - filled, '.');
    line.push_back(']');
    char text[160];
    std::snprintf(text, sizeof text, " %zu/%zu", done, total);
    line += text;
    if (done == 0 || elapsed <= 0) return line;
    const double rate = static_cast<double>(done) / elapsed;
    std::snprintf(text, sizeof text, "  %.1f files/s  %.0fx real time", rate, audio_seconds / elapsed);
    line += text;
    const auto left = static_cast<long>(std::lround(static_cast<double>(total - done) / rate));
    std::snprintf(text, sizeof text, "  %ld:%02ld left", left / 60, left % 60);
    return line + text;
}

}  // namespace audio
