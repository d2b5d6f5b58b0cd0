// Decoding with libavformat, libavcodec and libswresample: one audio
// stream, converted to mono 16-bit at 11025 Hz as it is decoded, with the
// limits and checks listed in decoder.h.
#include "tool/audio/decoder.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/hash.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace audio {

namespace {

std::string av_error(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

std::string clock_text(double seconds) {
    const auto s = static_cast<long>(seconds);
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

struct FormatCloser {
    void operator()(AVFormatContext *c) const { avformat_close_input(&c); }
};
struct CodecCloser {
    void operator()(AVCodecContext *c) const { avcodec_free_context(&c); }
};
struct SwrCloser {
    void operator()(SwrContext *c) const { swr_free(&c); }
};
struct PacketCloser {
    void operator()(AVPacket *p) const { av_packet_free(&p); }
};
struct FrameCloser {
    void operator()(AVFrame *f) const { av_frame_free(&f); }
};

// Leading decimal number of "3", "3/12", " 03 of 12"; 0 if none.
uint32_t leading_number(const std::string &v) {
    size_t i = 0;
    while (i < v.size() && v[i] == ' ') ++i;
    uint64_t n = 0;
    size_t digits = 0;
    for (; i < v.size() && v[i] >= '0' && v[i] <= '9' && digits < 9; ++i, ++digits) n = n * 10 + static_cast<uint64_t>(v[i] - '0');
    return static_cast<uint32_t>(n);
}

std::string normalised_key(const std::string &key) {
    std::string out;
    for (char c : key) {
        if (c == ' ' || c == '_' || c == '-') continue;
        out.push_back(c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
    }
    return out;
}

void read_tags(const AVDictionary *metadata, Tags &tags) {
    const AVDictionaryEntry *e = nullptr;
    while ((e = av_dict_get(metadata, "", e, AV_DICT_IGNORE_SUFFIX)) != nullptr)
        if (e->value && *e->value) apply_tag(tags, e->key, e->value);
}

// Seconds of audio that a RIFF/WAVE header's data chunk declares, or 0.
// FFmpeg trims the chunk to the file, so a cut file would look whole.
double wav_declared_seconds(const std::string &path) {
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return 0;
    unsigned char head[12];
    double seconds = 0;
    uint32_t byte_rate = 0;
    auto le32 = [](const unsigned char *p) { return uint32_t{p[0]} | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24; };
    if (std::fread(head, 1, 12, f) == 12 && std::memcmp(head, "RIFF", 4) == 0 && std::memcmp(head + 8, "WAVE", 4) == 0) {
        unsigned char chunk[8];
        for (int i = 0; i < 64 && std::fread(chunk, 1, 8, f) == 8; ++i) {
            const uint32_t size = le32(chunk + 4);
            if (std::memcmp(chunk, "fmt ", 4) == 0 && size >= 16) {
                unsigned char fmt[16];
                if (std::fread(fmt, 1, 16, f) != 16) break;
                byte_rate = le32(fmt + 8);
                if (std::fseek(f, static_cast<long>(size - 16 + (size & 1)), SEEK_CUR) != 0) break;
            } else if (std::memcmp(chunk, "data", 4) == 0) {
                // 0 and 0xFFFFFFFF mark a stream of unknown length.
                if (byte_rate != 0 && size != 0 && size != 0xFFFFFFFFu) seconds = static_cast<double>(size) / byte_rate;
                break;
            } else if (std::fseek(f, static_cast<long>(size + (size & 1)), SEEK_CUR) != 0) {
                break;
            }
        }
    }
    std::fclose(f);
    return seconds;
}

// Converter from the decoder's frames to mono s16 at kOutputRate.
class Converter {
   public:
    bool configure(const AVFrame &frame, std::string &error) {
        const int rate = frame.sample_rate;
        const int channels = frame.ch_layout.nb_channels;
        if (swr_ && rate == rate_ && channels == channels_ && frame.format == format_) return true;
        if (rate < static_cast<int>(kMinSourceRate) || rate > static_cast<int>(kMaxSourceRate)) {
            error = "unsupported sample rate " + std::to_string(rate) + " Hz";
            return false;
        }
        if (channels < 1 || channels > static_cast<int>(kMaxSourceChannels)) {
            error = "unsupported channel count " + std::to_string(channels);
            return false;
        }
        AVChannelLayout in{};
        if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&in, channels);
        else if (av_channel_layout_copy(&in, &frame.ch_layout) < 0) {
            error = "out of memory";
            return false;
        }
        AVChannelLayout out = AV_CHANNEL_LAYOUT_MONO;
        SwrContext *swr = nullptr;
        int rc = swr_alloc_set_opts2(&swr, &out, AV_SAMPLE_FMT_S16, static_cast<int>(kOutputRate), &in,
                                     static_cast<AVSampleFormat>(frame.format), rate, 0, nullptr);
        av_channel_layout_uninit(&in);
        if (rc >= 0) rc = swr_init(swr);
        if (rc < 0) {
            swr_free(&swr);
            error = "cannot convert the audio (" + av_error(rc) + ")";
            return false;
        }
        swr_.reset(swr);
        rate_ = rate;
        channels_ = channels;
        format_ = frame.format;
        return true;
    }

    // Converts a frame (null flushes); the samples stay valid until the next call.
    int convert(const AVFrame *frame, const int16_t *&samples) {
        const int in = frame ? frame->nb_samples : 0;
        const int room = swr_get_out_samples(swr_.get(), in);
        if (room < 0) return room;
        if (buffer_.size() < static_cast<size_t>(room)) buffer_.resize(static_cast<size_t>(room));
        auto *out = reinterpret_cast<uint8_t *>(buffer_.data());
        const int n = swr_convert(swr_.get(), &out, room, frame ? const_cast<const uint8_t **>(frame->extended_data) : nullptr, in);
        samples = buffer_.data();
        return n;
    }
    bool ready() const { return swr_ != nullptr; }

   private:
    std::unique_ptr<SwrContext, SwrCloser> swr_;
    int rate_ = 0, channels_ = 0, format_ = -1;
    std::vector<int16_t> buffer_;
};

// An opened file: its container, the audio stream chosen and a decoder
// for it, after the checks of sample rate and channel count.
struct Input {
    std::unique_ptr<AVFormatContext, FormatCloser> format;
    std::unique_ptr<AVCodecContext, CodecCloser> decoder;
    int index = -1;
};

// Opens `path` with FFmpeg's file protocol and the listed formats only;
// "" on success, else why the file is refused.
std::string open_input(const std::string &path, Input &input) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return std::string("cannot read: ") + std::strerror(errno);
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    if (st.st_size == 0) return "empty file";
    av_log_set_level(AV_LOG_QUIET);
    AVDictionary *options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "format_whitelist", kFormatWhitelist, 0);
    AVFormatContext *raw_format = nullptr;
    int rc = avformat_open_input(&raw_format, ("file:" + path).c_str(), nullptr, &options);
    av_dict_free(&options);
    if (rc < 0) return "not a readable audio file (" + av_error(rc) + ")";
    input.format.reset(raw_format);
    if ((rc = avformat_find_stream_info(raw_format, nullptr)) < 0)
        return "cannot read the stream information (" + av_error(rc) + ")";
    const AVCodec *codec = nullptr;
    input.index = av_find_best_stream(raw_format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (input.index < 0) return input.index == AVERROR_DECODER_NOT_FOUND ? "no decoder for its audio" : "no audio stream";
    const AVCodecParameters *par = raw_format->streams[input.index]->codecpar;
    if (par->sample_rate < static_cast<int>(kMinSourceRate) || par->sample_rate > static_cast<int>(kMaxSourceRate))
        return "unsupported sample rate " + std::to_string(par->sample_rate) + " Hz";
    if (par->ch_layout.nb_channels < 1 || par->ch_layout.nb_channels > static_cast<int>(kMaxSourceChannels))
        return "unsupported channel count " + std::to_string(par->ch_layout.nb_channels);
    const std::string name = avcodec_get_name(par->codec_id);
    input.decoder.reset(avcodec_alloc_context3(codec));
    if (!input.decoder) return "out of memory";
    if ((rc = avcodec_parameters_to_context(input.decoder.get(), par)) < 0)
        return "cannot set up the " + name + " decoder (" + av_error(rc) + ")";
    input.decoder->thread_count = 1;
    if ((rc = avcodec_open2(input.decoder.get(), codec, nullptr)) < 0)
        return "cannot open the " + name + " decoder (" + av_error(rc) + ")";
    return {};
}

}  // namespace

void apply_tag(Tags &tags, const std::string &key, const std::string &value) {
    const std::string k = normalised_key(key);
    auto set = [&](std::string &field) {
        if (field.empty()) field = value;
    };
    if (k == "title") set(tags.title);
    else if (k == "artist") set(tags.artist);
    else if (k == "album") set(tags.album);
    else if (k == "albumartist") set(tags.album_artist);
    else if (k == "genre") set(tags.genre);
    else if ((k == "track" || k == "tracknumber") && tags.track_number == 0) tags.track_number = leading_number(value);
    else if ((k == "disc" || k == "discnumber" || k == "disk") && tags.disc_number == 0) tags.disc_number = leading_number(value);
    else if ((k == "date" || k == "year" || k == "originaldate") && tags.year == 0) {
        const uint32_t year = leading_number(value.substr(0, 4));
        if (year >= 1000 && value.size() >= 4) tags.year = year;
    } else if (k == "musicbrainzreleasetrackid") set(tags.mb_release_track_id);
    else if (k == "musicbrainzalbumid" || k == "musicbrainzreleaseid") set(tags.mb_release_id);
    else if (k == "musicbrainztrackid" || k == "musicbrainzrecordingid") set(tags.mb_recording_id);
}

DecodeResult decode_file(const std::string &path, const Limits &limits, const Sink &sink) {
    DecodeResult result;
    Decoded &info = result.info;
    auto fail = [&](std::string why) {
        result.ok = false;
        result.error = std::move(why);
        return result;
    };
    Input input;
    if (std::string why = open_input(path, input); !why.empty()) return fail(why);
    AVFormatContext *format = input.format.get();
    AVCodecContext *decoder = input.decoder.get();
    const int index = input.index;
    AVStream *stream = format->streams[index];
    const AVCodecParameters *par = stream->codecpar;
    info.container = format->iformat->name;
    info.codec = avcodec_get_name(par->codec_id);
    info.source_rate = static_cast<uint32_t>(par->sample_rate);
    info.source_channels = static_cast<uint32_t>(par->ch_layout.nb_channels);
    read_tags(format->metadata, info.tags);
    read_tags(stream->metadata, info.tags);
    if (format->duration > 0 && format->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE)
        info.declared_seconds = static_cast<double>(format->duration) / AV_TIME_BASE;
    if (info.container == "wav") info.declared_seconds = wav_declared_seconds(path);

    std::unique_ptr<AVPacket, PacketCloser> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameCloser> frame(av_frame_alloc());
    if (!packet || !frame) return fail("out of memory");
    Converter converter;
    const auto max_samples = static_cast<uint64_t>(limits.max_seconds * kOutputRate);
    const auto silence_samples = static_cast<uint64_t>(limits.silence_seconds * kOutputRate);
    uint64_t delivered = 0;
    bool audible = false, stopped = false;
    std::string error;

    // Hands converted samples on, watching the length and silence limits.
    auto deliver = [&](const int16_t *samples, int count) -> bool {
        if (count <= 0) return true;
        auto n = static_cast<uint64_t>(count);
        if (delivered + n > max_samples) {
            n = max_samples - delivered;
            info.cut = true;
        }
        for (uint64_t i = 0; i < n && !audible; ++i)
            if (std::abs(samples[i]) > kSilenceLevel) audible = true;
        if (n != 0 && !sink(samples, static_cast<size_t>(n))) {
            stopped = true;
            return false;
        }
        delivered += n;
        if (!audible && delivered >= silence_samples) {
            error = "silent: nothing audible in the first " + clock_text(limits.silence_seconds);
            return false;
        }
        return !info.cut;
    };
    // Takes every frame the decoder has; false to stop reading.
    auto drain = [&]() -> bool {
        for (;;) {
            const int r = avcodec_receive_frame(decoder, frame.get());
            if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) return true;
            if (r < 0) {
                ++info.bad_packets;
                return true;
            }
            const int16_t *samples = nullptr;
            if (!converter.configure(*frame, error)) return false;
            const int n = converter.convert(frame.get(), samples);
            av_frame_unref(frame.get());
            if (n < 0) {
                error = "cannot convert the audio (" + av_error(n) + ")";
                return false;
            }
            if (!deliver(samples, n)) return false;
        }
    };

    bool running = true;
    while (running) {
        const int rc = av_read_frame(format, packet.get());
        if (rc == AVERROR_EOF) break;
        if (rc < 0) {
            error = "corrupt or truncated data at " + clock_text(static_cast<double>(delivered) / kOutputRate) + " (" +
                    av_error(rc) + ")";
            break;
        }
        if (packet->stream_index == index) {
            ++info.packets;
            const int sent = avcodec_send_packet(decoder, packet.get());
            if (sent < 0 && sent != AVERROR(EAGAIN)) ++info.bad_packets;
            running = drain();
        }
        av_packet_unref(packet.get());
    }
    if (running && error.empty()) {
        avcodec_send_packet(decoder, nullptr);
        running = drain();
        if (running && converter.ready()) {
            const int16_t *samples = nullptr;
            const int n = converter.convert(nullptr, samples);
            if (n > 0) deliver(samples, n);
        }
    }
    info.seconds = static_cast<double>(delivered) / kOutputRate;
    if (stopped) return fail("stopped");
    if (!error.empty()) return fail(error);
    if (info.bad_packets > 2 && info.bad_packets * 100 > info.packets)
        return fail("corrupt audio: " + std::to_string(info.bad_packets) + " of " + std::to_string(info.packets) +
                    " packets cannot be decoded");
    if (delivered == 0)
        return fail(info.bad_packets ? std::string("truncated or damaged: no packet of it can be decoded")
                                     : std::string("no audio could be decoded"));
    if (!info.cut && info.declared_seconds > 0 && info.seconds < 0.9 * info.declared_seconds - 1.0)
        return fail("truncated or damaged: " + clock_text(info.seconds) + " of the " +
                    clock_text(info.declared_seconds) + " its header states");
    if (!audible) return fail("silent: nothing audible");
    result.ok = true;
    return result;
}

std::optional<uint32_t> cd_frames(const std::string &path, std::string &why) {
    Input input;
    if (why = open_input(path, input); !why.empty()) return std::nullopt;
    const AVCodecParameters *par = input.format->streams[input.index]->codecpar;
    if (par->sample_rate != 44100) {
        why = "not CD audio: " + std::to_string(par->sample_rate) + " Hz";
        return std::nullopt;
    }
    std::unique_ptr<AVPacket, PacketCloser> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameCloser> frame(av_frame_alloc());
    if (!packet || !frame) {
        why = "out of memory";
        return std::nullopt;
    }
    // Samples are counted as decoded: a header's duration may be rounded.
    uint64_t samples = 0;
    auto drain = [&]() {
        while (avcodec_receive_frame(input.decoder.get(), frame.get()) == 0) {
            samples += static_cast<uint64_t>(frame->nb_samples);
            av_frame_unref(frame.get());
        }
    };
    int rc;
    while ((rc = av_read_frame(input.format.get(), packet.get())) >= 0) {
        if (packet->stream_index == input.index) {
            avcodec_send_packet(input.decoder.get(), packet.get());
            drain();
        }
        av_packet_unref(packet.get());
        if (samples > kMaxCdSamples) {
            why = "longer than a CD";
            return std::nullopt;
        }
    }
    if (rc != AVERROR_EOF) {
        why = "corrupt or truncated (" + av_error(rc) + ")";
        return std::nullopt;
    }
    avcodec_send_packet(input.decoder.get(), nullptr);
    drain();
    // A cut WAV reads to its end without an error: its header tells.
    const double declared = std::string(input.format->iformat->name) == "wav" ? wav_declared_seconds(path) : 0;
    if (declared > 0 && static_cast<double>(samples) < declared * 44100 - kSamplesPerCdFrame) {
        why = "truncated: " + clock_text(static_cast<double>(samples) / 44100) + " of the " + clock_text(declared) +
              " its header states";
        return std::nullopt;
    }
    return static_cast<uint32_t>((samples + kSamplesPerCdFrame / 2) / kSamplesPerCdFrame);
}

std::string content_id(const std::string &path, std::string &error) {
    std::FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) {
        error = std::string("cannot read: ") + std::strerror(errno);
        return {};
    }
    AVHashContext *hash = nullptr;
    if (av_hash_alloc(&hash, "SHA256") < 0) {
        std::fclose(f);
        error = "out of memory";
        return {};
    }
    av_hash_init(hash);
    std::vector<uint8_t> buffer(1 << 20);
    size_t n;
    while ((n = std::fread(buffer.data(), 1, buffer.size(), f)) > 0) av_hash_update(hash, buffer.data(), n);
    const bool failed = std::ferror(f) != 0;
    std::fclose(f);
    char hex[2 * AV_HASH_MAX_SIZE + 1] = {};
    av_hash_final_hex(hash, reinterpret_cast<uint8_t *>(hex), sizeof hex);
    av_hash_freep(&hash);
    if (failed) {
        error = "read error";
        return {};
    }
    return hex;
}

}  // namespace audio
