// Fingerprint input: PCM audio streamed through a generator of the
// signal-processing service, or a ready-made fingerprint set as data, in
// plain or in the "ZTFP" serial form. Either way the query ends up with one
// text in fp_data and a kind in fp_kind. Reported under the unit
// "zelto_cantrix", as the other public functions.
#include "cantrix/cantrix_internal.h"
#include "ombr/ombr_datatypes.h"
#include "ombr/ombr_hdo.h"
#include "ombr/ombr_string.h"

using namespace cantrix;

namespace {

constexpr const char *kNoDspMessage = "DSP module has not been initialized";

// Sample format numbers of the generator by bits per sample.
struct SampleFormat {
    uint32_t bits;
    uint32_t format;
};
constexpr SampleFormat kSampleFormats[] = {
    {8, ZELTO_DSP_FORMAT_S8},
    {16, ZELTO_DSP_FORMAT_S16},
    {32, ZELTO_DSP_FORMAT_S32},
};

uint32_t sample_format(uint32_t bits) {
    for (const SampleFormat &row : kSampleFormats)
        if (row.bits == bits) return row.format;
    return 0;
}

// The service test of the functions that need signal processing. The
// error-information table is absent on a module that is down; the report
// then goes to the error hook alone.
uint32_t check_dsp(const char *function) {
    if (g_cantrix_dsp_interface) return 0;
    if (g_cantrix_errorinfo_interface) errorinfo_set(kNoService, kNoService, function, kNoDspMessage);
    return ombr::error_exit(kNoService, 0, function);
}

// A width or channel count the generator does not take: the message is
// formatted with the number.
uint32_t report_unsupported(const char *function, const char *format, uint32_t number) {
    g_cantrix_errorinfo_interface->errorinfo_set_format(kUnsupported, kUnsupported, function, format,
                                                        static_cast<int>(number));
    return ombr::error_exit(kUnsupported, 0, function);
}

// Replaces an owned text with a trimmed copy of `text` (which may be
// shorter than its terminator when `chars` is given); false when the copy
// could not be made, the field then being null.
bool set_trimmed_copy(char *&field, const char *text, uint32_t chars = UINT32_MAX) {
    ombr_string_free(field);
    field = chars == UINT32_MAX ? ombr_string_strdup(text) : ombr_string_strndup(text, chars);
    if (field) ombr_string_trim(field);
    return field != nullptr;
}

// A parsed XML description of a fingerprint: an HDO tree, released with
// the object. Texts read from it are borrowed from the tree.
class FingerprintDescription {
   public:
    FingerprintDescription() = default;
    FingerprintDescription(const FingerprintDescription &) = delete;
    FingerprintDescription &operator=(const FingerprintDescription &) = delete;
    ~FingerprintDescription() { ombr_hdo_release(tree_); }

    uint32_t parse(const char *text) {
        ombr_hdo_release(tree_);
        tree_ = nullptr;
        return ombr_hdo_from_xml(text, &tree_, nullptr) == 0 ? 0 : kInvalidData;
    }
    uint32_t read(const char *path, const char **out_text) const {
        if (!tree_) return kInvalidData;
        return ombr_hdo_get_string_by_hpath(tree_, path, nullptr, 0, out_text) == 0 ? 0 : kInvalidData;
    }

   private:
    ombr_hdo_t tree_ = nullptr;
};

// Reads the algorithm's name and version of a parsed description into the
// query; 0x9081000c if either is missing.
uint32_t read_algorithm(cantrix_query *query, const FingerprintDescription &description) {
    const char *const paths[] = {"ALGORITHM/$NAME", "ALGORITHM/$VERSION"};
    char **fields[] = {&query->fp_algorithm_name, &query->fp_algorithm_version};
    for (size_t i = 0; i < 2; ++i) {
        const char *text = nullptr;
        if (description.read(paths[i], &text) != 0 || !text) return kInvalidData;
        ombr_string_free(*fields[i]);
        *fields[i] = ombr_string_strdup(text);
        if (!*fields[i]) return kInvalidData;
    }
    return 0;
}

// Gives the blocks' pointer array back when the text has been built.
struct PointerArray {
    void **entries = nullptr;
    ~PointerArray() { ombr_memory_free(entries); }
};

}  // namespace

const FingerprintKind *cantrix::find_fingerprint_kind(const char *name, uint32_t ignore_case) {
    for (const FingerprintKind &kind : kFingerprintKinds)
        if (ombr_string_equal(kind.name, name, ignore_case)) return &kind;
    return nullptr;
}

// ---- Blocks -----------------------------------------------------------------------

extern "C" uint32_t _cantrix_fingerprint_generated(void *query, uint32_t /*ignored*/, void *block) {
    // Called by the generator from inside write or end; fp_blocks has a lock
    // of its own, so the query's lock is not taken.
    return ombr_vector_add(static_cast<cantrix_query *>(query)->fp_blocks, reinterpret_cast<uintptr_t>(block));
}

extern "C" void _cantrix_fingerprint_vector_delete(uintptr_t block) {
    g_cantrix_dsp_interface->dsp_fingerprint_free(reinterpret_cast<void *>(block));
}

extern "C" uint32_t _cantrix_create_fp_query_str(cantrix_query *query) {
    if (!query) return ombr::fail(kInvalidArg, kUnit);
    if (!query->fp_blocks || query->fp_end_flag == 1) return 0;
    ombr_string_free(query->fp_data);
    query->fp_data = nullptr;

    uint32_t count = 0;
    uint32_t status = ombr_vector_count(query->fp_blocks, &count);
    if (status != 0) return ombr::fail(status, kUnit);
    if (count == 0) return 0;

    PointerArray array;
    array.entries = static_cast<void **>(ombr_memory_alloc(count * sizeof(void *)));
    if (!array.entries) return ombr::fail(kNoMemory, kUnit);
    ombr_memory_memset(array.entries, 0, count * sizeof(void *));
    for (uint32_t i = 0; i < count; ++i) {
        uintptr_t block = 0;
        if (ombr_vector_getindex(query->fp_blocks, i, &block) != 0) break;  // the rest stay null
        array.entries[i] = reinterpret_cast<void *>(block);
    }

    char *text = nullptr;
    status = g_cantrix_dsp_interface->dsp_fingerprint_query_text(query->fp_generator, array.entries, count, &text);
    if (status != 0) return ombr::fail(status, kUnit);
    const bool copied = set_trimmed_copy(query->fp_data, text);
    g_cantrix_dsp_interface->dsp_text_free(text);
    if (!copied) return ombr::fail(kNoMemory, kUnit);

    const FingerprintKind *kind = find_fingerprint_kind(query->fp_kind, 0);
    if (kind && kind->xml) {
        FingerprintDescription description;
        if (description.parse(query->fp_data) != 0 || read_algorithm(query, description) != 0)
            return ombr::fail(kInvalidData, kUnit);
    }
    return 0;
}

// ---- Generation ----------------------------------------------------------------------

OMBR_API uint32_t zelto_cantrix_query_fingerprint_begin(zelto_cantrix_query_handle query, const char *fp_kind,
                                                        uint32_t sample_rate, uint32_t bits_per_sample,
                                                        uint32_t channels) {
    constexpr const char *kFunction = "zelto_cantrix_query_fingerprint_begin";
    return query_call(
        kFunction, query,
        [&]() -> uint32_t {
            if (ombr_string_isempty(fp_kind) || sample_rate == 0 || bits_per_sample == 0 || channels == 0)
                return report_argument(kFunction, kInvalidArg, false);
            return check_dsp(kFunction);
        },
        [&](cantrix_query *q) -> uint32_t {
            if (!q->toc_offsets) {
                _cantrix_clear_query(q);
            } else {
                // Beside a TOC the earlier fingerprint's generator and blocks are replaced.
                g_cantrix_dsp_interface->dsp_generator_release(q->fp_generator);
                q->fp_generator = nullptr;
                ombr_vector_delete(q->fp_blocks);
                q->fp_blocks = nullptr;
            }
            uint32_t status = ombr_vector_create(&q->fp_blocks, OMBR_VECTOR_THREADSAFE, nullptr,
                                                 _cantrix_fingerprint_vector_delete);
            if (status != 0) return status;
            const FingerprintKind *kind = find_fingerprint_kind(fp_kind, 0);
            if (!kind) return kInvalidArg;
            status = g_cantrix_dsp_interface->dsp_generator_create(kind->algorithm, sample_rate,
                                                                   sample_format(bits_per_sample), channels, 0,
                                                                   _cantrix_fingerprint_generated, q, &q->fp_generator);
            if (status != 0) return status;
            ombr_string_free(q->fp_kind);
            q->fp_kind = ombr_string_strdup(fp_kind);
            if (!q->fp_kind) return kNoMemory;
            const char *text = nullptr;
            if (g_cantrix_dsp_interface->dsp_generator_info(q->fp_generator, ZELTO_DSP_INFO_MINBLOCKREQ, &text) == 0)
                q->fp_min_block = ombr_string_atou32(text);
            status = g_cantrix_dsp_interface->dsp_generator_info(q->fp_generator, ZELTO_DSP_INFO_MAXBLOCKREQ, &text);
            if (status == 0) q->fp_max_block = ombr_string_atou32(text);
            return status;
        },
        nullptr, std::source_location::current(),
        // Width and channels are tested on a valid handle, which is then tested again.
        [&]() -> uint32_t {
            if (sample_format(bits_per_sample) == 0)
                return report_unsupported(kFunction, "%d bit audio samples unsupported", bits_per_sample);
            if (channels > 2) return report_unsupported(kFunction, "%d channel audio unsupported", channels);
            return check_query_handle(kFunction, query);
        });
}

namespace {

// The pattern of write and end: no initialised test, the service test
// first, then the handle test and the work under the query's lock.
template <typename Work>
uint32_t generator_call(const char *function, zelto_cantrix_query_handle query, Work work) {
    if (uint32_t status = check_dsp(function)) return status;
    if (uint32_t status = check_query_handle(function, query)) return status;
    uint32_t working;
    {
        QueryLock guard(query);
        working = work(query);
    }
    return finish(function, working);
}

}  // namespace

OMBR_API uint32_t zelto_cantrix_query_fingerprint_write(zelto_cantrix_query_handle query, const void *sample_data,
                                                        uint32_t size, uint8_t *out_complete) {
    return generator_call("zelto_cantrix_query_fingerprint_write", query, [&](cantrix_query *q) -> uint32_t {
        uint8_t complete = 0;
        uint32_t status =
            g_cantrix_dsp_interface->dsp_generator_write(q->fp_generator, sample_data, size, 0, 0, &complete);
        if (status != 0) return status;
        uint32_t count = 0;
        status = ombr_vector_count(q->fp_blocks, &count);
        if (status != 0) return status;
        // As many blocks as a full-length fingerprint needs also make it complete.
        if (q->fp_max_block <= count) complete = 1;
        if (out_complete) *out_complete = complete;
        return 0;
    });
}

OMBR_API uint32_t zelto_cantrix_query_fingerprint_end(zelto_cantrix_query_handle query) {
    return generator_call("zelto_cantrix_query_fingerprint_end", query, [&](cantrix_query *q) -> uint32_t {
        uint32_t flag = 0;
        uint32_t status = g_cantrix_dsp_interface->dsp_generator_end(q->fp_generator, &flag);
        if (status != 0) return status;
        q->fp_end_flag = flag;
        return _cantrix_create_fp_query_str(q);
    });
}

// ---- Data ------------------------------------------------------------------------------

OMBR_API uint32_t zelto_cantrix_query_get_fp_data(zelto_cantrix_query_handle query, const char **out_text) {
    constexpr const char *kFunction = "zelto_cantrix_query_get_fp_data";
    return query_call(
        kFunction, query, [&] { return check_dsp(kFunction); },
        [&](cantrix_query *q) -> uint32_t {
            uint32_t status = _cantrix_create_fp_query_str(q);
            if (status == 0 && out_text) *out_text = q->fp_data;
            return status;
        });
}

OMBR_API uint32_t zelto_cantrix_query_set_fp_data(zelto_cantrix_query_handle query, const char *fp_data,
                                                  const char *fp_kind) {
    constexpr const char *kFunction = "zelto_cantrix_query_set_fp_data";
    FingerprintDescription description;
    uint32_t result = query_call(
        kFunction, query,
        [&]() -> uint32_t {
            if (ombr_string_isempty(fp_data) || ombr_string_isempty(fp_kind))
                return report_argument(kFunction, kInvalidArg, true);
            if (!ombr_string_isvalid(fp_data))
                return report_argument(kFunction, kInvalidUtf8, true, "'fp_data' parameter invalid UTF8");
            return 0;
        },
        [&](cantrix_query *q) -> uint32_t {
            if (!q->toc_offsets) _cantrix_clear_query(q);
            const char *kind = fp_kind;
            uint32_t working = 0;
            constexpr char kPrefix[] = ZELTO_ZTFP_SERIAL_PREFIX;
            constexpr uint32_t kPrefixLength = sizeof kPrefix - 1;
            if (ombr_string_strncmp(fp_data, kPrefix, kPrefixLength) == 0) {
                void *block = nullptr;
                uint32_t size = 0;
                working = g_cantrix_serialization_interface->serial_decode(fp_data + kPrefixLength, &block, &size);
                if (working == 0) {
                    const bool copied = set_trimmed_copy(q->fp_data, static_cast<const char *>(block), size);
                    g_cantrix_serialization_interface->serial_free(block);
                    if (!copied)
                        working = kNoMemory;
                    else if (description.parse(q->fp_data) != 0)
                        working = kInvalidData;
                    else
                        kind = ZELTO_CANTRIX_FP_ZFPX;
                }
            } else if (!set_trimmed_copy(q->fp_data, fp_data)) {
                working = kNoMemory;
            } else if (description.parse(q->fp_data) == 0) {
                // Plain text that does not parse stands as given, under the caller's kind.
                kind = ZELTO_CANTRIX_FP_ZFPX;
            }
            if (ombr_string_equal(kind, ZELTO_CANTRIX_FP_ZFPX, 0))
                working = working == 0 ? read_algorithm(q, description) : kInvalidData;
            ombr_string_free(q->fp_kind);
            q->fp_kind = ombr_string_strdup(kind);
            if (!q->fp_kind) working = kNoMemory;
            return working;
        });
    return result;
}
