// A file's fingerprint through the module's public fingerprint input: the
// decoded samples are streamed into a query with
// zelto_cantrix_query_fingerprint_begin/write/end, as any application
// would, and the query's fingerprint text is read back.
#ifndef CANTRIX_TOOL_AUDIO_FINGERPRINTER_H
#define CANTRIX_TOOL_AUDIO_FINGERPRINTER_H

#include <string>

#include "tool/audio/decoder.h"
#include "zelto/zelto_cantrix.h"

namespace audio {

// The kind the tool fingerprints with: the plain form, Chromaprint's
// algorithm 2 at the host.
inline constexpr const char *kFingerprintKind = "zelto_cantrix_fp_tvx";

// Audio read from a file that is to be identified: ten minutes hold any
// song's start and more than the matcher looks at; a longer file (a whole
// concert, say) is cut there instead of decoded to its end.
inline constexpr double kIdentifySeconds = 600;

struct Fingerprinted {
    DecodeResult decode;     // ok false: the file was refused, decode.error says why
    std::string text;        // the query's fingerprint text
    double decode_seconds = 0;       // CPU time of decoding and conversion
    double fingerprint_seconds = 0;  // CPU time in the module and the host's service
};

// Decodes `path` into the query's fingerprint input. On success the query
// holds the fingerprint (ready for a find operation) and `text` is a copy.
Fingerprinted fingerprint_file(zelto_cantrix_query_handle query, const std::string &path, const Limits &limits);

}  // namespace audio

#endif
