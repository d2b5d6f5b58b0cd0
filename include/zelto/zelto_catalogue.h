/*
 * Local catalogue lookup provider of the reference host.
 *
 * A catalogue is a file of albums, discs with their tables of contents,
 * tracks, contributors and lyrics. It is filled by importing release files
 * (release JSON, one object, an array or one object per line; xmcd disc
 * files; lyrics*.jsonl) and answers the module's lookups through a lookup
 * provider table that the application installs for mode 2 (local), mode 1
 * (online) or both:
 *
 *   - "zelto_lookup_type_album": by "zelto_lookup_data_toc" (exact, then
 *     fuzzy), by "zelto_lookup_data_tui" (+ "_tui_tag", optional
 *     "_track_matched" and "_rev" revision check), by
 *     "zelto_lookup_data_mui" / "_media_id", or by the text keys
 *     "zelto_lookup_data_album_title", "_album_artist", "_track_artist",
 *     "_track_title", "_artist", "_composer";
 *   - "zelto_lookup_type_track": by tui (a track, or the tracks of an album)
 *     or by the same text keys;
 *   - "zelto_lookup_type_text_match": albums and contributors for the text
 *     keys, with per-field scores;
 *   - "zelto_lookup_type_lyric": "zelto_lookup_data_lyric_title",
 *     "_lyric_artist", "_lyric_fragment".
 *   - album and track lookups by fingerprint: "zelto_lookup_data_tvx_querydata"
 *     (the plain query text) or "zelto_lookup_data_fpx_querydata" (the XML
 *     description, with "zelto_lookup_data_fpx_algname" and "_algver"),
 *     matched against the fingerprints stored with
 *     zelto_catalogue_fingerprint_add (see below).
 * Result ranges ("zelto_lookup_data_result_range_start"/"_end", 1-based,
 * inclusive, default 1 to 10) are honoured; "zelto_lookup_option_result_single"
 * set to a true text keeps the first hit only. Other options are accepted
 * and have no effect on a local catalogue.
 *
 * Answers are trees (see zelto_host_services.h) exposed as result objects
 * with the user given to execute and the locale group "zelto_locale_music".
 * TOC and text hits are partial albums ("zelto_val_full_result" "0": the
 * matched tracks only, "zelto_val_albumtrackcnt" the album's real count);
 * a lookup by tui gives the full album ("zelto_val_full_result" "1").
 * Every album carries "zelto_val_disccount", every track its
 * "zelto_val_discnumber". Where the answer knows which disc matched (its
 * TOC or media identifier, or the disc of every matched track), the album
 * has "zelto_val_disc_matched" and the child "zelto_ctx_disc!matching": the
 * disc's "zelto_val_discnumber", its "zelto_val_toc", its title under
 * "zelto_ctx_title!off" and its tracks ("zelto_ctx_track!", those the album
 * carries) numbered on the disc; "zelto_val_toc" of the album is that disc's.
 * An album carries the edition fields the imported data gives (see
 * zelto_keys.h: "zelto_val_country", "_release_date", "_label",
 * "_catalog_number", "_barcode", "_format"), which tell apart the releases
 * of a multi-exact TOC answer; the matched disc carries its "zelto_val_format".
 * A lyric tied to an album carries "zelto_val_album_tui", and when tied to a
 * track "zelto_val_discnumber" and "zelto_val_tracknumber"; where the
 * catalogue holds that album, the lyric has the child "zelto_ctx_album!"
 * (its tui, title and artist) and, for its track, "zelto_ctx_track!" (disc
 * and track numbers, title).
 *
 * Execute reports progress through the request callback with kind 16:
 * code 1 (started), 8 (query sent to the catalogue), 9 (value1 hits
 * found, value2 hits in the asked range), 10 (value1 results built so far,
 * value2 results to build), 11 (answer ready), 12 (done). A failure is
 * reported with code 13 (value1 the status, value2 the message) before
 * execute returns that status. When the callback leaves the abort flag at
 * 1, no further event is sent, there is no result and execute returns
 * ZELTO_CATALOGUE_ABORTED.
 *
 * Calls are thread-safe, but a catalogue must not be closed while one of
 * its requests executes. The texts of zelto_catalogue_last_message and
 * zelto_catalogue_import_message stay valid until the next failing call or
 * import on the same catalogue.
 */
#ifndef ZELTO_CATALOGUE_H
#define ZELTO_CATALOGUE_H

#include <stdint.h>

#include "zelto/zelto_host_services.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Status words (lookup package 0x04 of the host). */
#define ZELTO_CATALOGUE_BAD_ARG ZELTO_LOOKUP_BAD_ARG           /* null or invalid argument, dead catalogue */
#define ZELTO_CATALOGUE_NO_MEMORY ZELTO_LOOKUP_NO_MEMORY
#define ZELTO_CATALOGUE_NO_RESULT ZELTO_LOOKUP_NO_RESULT       /* get_result without a result for that identifier */
#define ZELTO_CATALOGUE_NO_FILE 0x90040004u                    /* open without create: no such file */
#define ZELTO_CATALOGUE_IO_ERROR 0x90040005u                   /* a file could not be read */
#define ZELTO_CATALOGUE_DATABASE 0x90040008u                   /* the database failed (damaged file) */
#define ZELTO_CATALOGUE_NOT_CATALOGUE 0x9004000Du              /* an empty file or another program's database */
#define ZELTO_CATALOGUE_ABORTED ZELTO_LOOKUP_ABORTED           /* the callback asked to stop */
#define ZELTO_CATALOGUE_UNSUPPORTED ZELTO_LOOKUP_UNSUPPORTED   /* unknown lookup type */
#define ZELTO_CATALOGUE_INVALID_DATA ZELTO_LOOKUP_INVALID_DATA /* malformed request data (TOC, range) */

/* Open flags. */
#define ZELTO_CATALOGUE_OPEN_CREATE 1u   /* create the file if it does not exist */
#define ZELTO_CATALOGUE_OPEN_READONLY 2u /* only read: for a read-only file or folder; imports and
                                          * fingerprint adds then fail; CREATE is ignored */

typedef struct zelto_catalogue zelto_catalogue;

/* Opens a catalogue file (":memory:" for a private, empty one). An existing
 * file opened for writing that fails SQLite's structural check (quick_check,
 * which reads the whole file) is refused with ZELTO_CATALOGUE_DATABASE
 * before anything is written to it. Opened with ZELTO_CATALOGUE_OPEN_READONLY,
 * only the header, the schema and the file's length are checked, so that
 * opening a large catalogue stays quick; damage inside it fails the call
 * that reads it (see ZELTO_CATALOGUE_DAMAGED_TEXT).
 * A catalogue carries SQLite's application id 0x5A435443 and its schema
 * number as user version; an empty file or another program's database (even
 * one with an "albums" table) is refused with ZELTO_CATALOGUE_NOT_CATALOGUE
 * and left byte for byte as it was. A catalogue made before the mark is
 * recognised by its tables and marked when opened for writing. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue);
/* Closes it: uninstalls its table from every mode where it is installed.
 * Its table stays callable afterwards; request slots then refuse with
 * ZELTO_CATALOGUE_BAD_ARG. Null is accepted. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_close(zelto_catalogue *catalogue);
/* Runs SQLite's full integrity check on a catalogue file through a
 * read-only connection. 0 for a sound catalogue; ZELTO_CATALOGUE_DATABASE
 * when the file is damaged; ZELTO_CATALOGUE_NOT_CATALOGUE when it is sound
 * but no catalogue; ZELTO_CATALOGUE_NO_FILE.
 * *out_report (may be null) gets "ok" or the problems found, one a line (at
 * most 20), to be freed with zelto_manager_text_free. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_check(const char *path, char **out_report);
/* A call that read past damage to the file (a malformed page SQLite met
 * while reading) fails with ZELTO_CATALOGUE_DATABASE, and the catalogue's
 * last message then starts with this text. A file opened read-only is only
 * checked as far as its header and schema, so damage inside it shows here. */
#define ZELTO_CATALOGUE_DAMAGED_TEXT "the catalogue file is damaged"
/* Message of the last failure of a call on this catalogue, "" if none. */
ZELTO_MANAGER_API const char *zelto_catalogue_last_message(zelto_catalogue *catalogue);

/* ---- Import ---- */

typedef struct zelto_catalogue_import_report {
    uint64_t records;  /* records read */
    uint64_t imported; /* albums and lyrics stored */
    uint64_t replaced; /* of those, replacing an album of the same identifier (same or older revision)
                          or a lyric of the same key (album, disc and track; else title and artist) */
    uint64_t skipped;  /* bad records and older revisions */
    uint8_t stopped;   /* the progress callback asked to stop */
    uint64_t unchanged; /* of those replaced, the same revision (a lyric: the same fields) with the same content */
} zelto_catalogue_import_report;

/* Called now and then during an import with bytes read of all bytes and
 * albums stored so far; setting *stop to 1 ends the import after the
 * current record (what was stored stays). */
typedef void (*zelto_catalogue_progress_callback)(void *callback_data, uint64_t bytes_done, uint64_t bytes_total,
                                                  uint64_t albums_imported, uint8_t *stop);

/* Imports a file or every file below a directory (hidden files aside), each
 * in the format its content shows, whatever its name: release JSON (an
 * object, an array, one object per line, {"releases": [...]}), lyrics
 * records (JSON objects with "text"), an xmcd disc ("# xmcd" first). A file
 * of none of these, like a bad record, is skipped and counted with its
 * reason. The report may be null. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_import(zelto_catalogue *catalogue, const char *path,
                                                 zelto_catalogue_progress_callback callback, void *callback_data,
                                                 zelto_catalogue_import_report *out_report);
/* Skipped-record message i (from 0) of the last import, or null. */
ZELTO_MANAGER_API const char *zelto_catalogue_import_message(zelto_catalogue *catalogue, uint32_t index);

/* ---- Information ---- */

typedef struct zelto_catalogue_info {
    uint64_t albums;
    uint64_t discs;
    uint64_t tocs;
    uint64_t tracks;
    uint64_t artists;
    uint64_t lyrics;
} zelto_catalogue_info;

ZELTO_MANAGER_API uint32_t zelto_catalogue_get_info(zelto_catalogue *catalogue, zelto_catalogue_info *out_info);

/* ---- Disc IDs ---- */

/* Finds the discs that carry a disc ID: a MusicBrainz disc ID or a freedb ID
 * (8 hex digits, any case) as the imported data gave them (MusicBrainz
 * release JSON "media[].discs[].id", every ID of an xmcd "DISCID=" line), or
 * a freedb ID that a stored TOC computes to. *out_count receives how many
 * distinct TOCs were found (0 is no failure); they are read with
 * zelto_catalogue_disc_id_toc, in import order. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_find_disc_id(zelto_catalogue *catalogue, const char *disc_id,
                                                       uint32_t *out_count);
/* TOC i (from 0) of the last zelto_catalogue_find_disc_id, as offsets then
 * lead-out ("150 14672 27367 41225"), or null past the last. Valid until the
 * next find on the same catalogue. */
ZELTO_MANAGER_API const char *zelto_catalogue_disc_id_toc(zelto_catalogue *catalogue, uint32_t index);

/* ---- Listing and removal ---- */

/* An album as a list shows it; texts valid until the next list or remove
 * call on the same catalogue. */
typedef struct zelto_catalogue_album_entry {
    const char *tui;    /* the album's identifier, as results show it */
    const char *title;
    const char *artist;
    uint32_t year;      /* 0: unknown */
    uint32_t discs;
    uint32_t tracks;
} zelto_catalogue_album_entry;

/* Lists the albums by artist, then title (ASCII case ignored): at most
 * `count` from number `start` (from 1). *out_listed receives how many were
 * listed (0 past the end), *out_total how many albums there are; entry i is
 * read with zelto_catalogue_listed_album. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_list_albums(zelto_catalogue *catalogue, uint32_t start, uint32_t count,
                                                      uint32_t *out_listed, uint32_t *out_total);
/* Entry i (from 0) of the last list; ZELTO_CATALOGUE_NO_RESULT past the last. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_listed_album(zelto_catalogue *catalogue, uint32_t index,
                                                       zelto_catalogue_album_entry *out_entry);
/* Removes the album of identifier `tui` with its discs, TOCs and tracks and
 * the fingerprints linked to its tracks (lyrics stay), all or nothing;
 * ZELTO_CATALOGUE_NO_RESULT if there is none. *out_entry (may be null)
 * says what was removed. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_remove_album(zelto_catalogue *catalogue, const char *tui,
                                                       zelto_catalogue_album_entry *out_entry);

/* ---- Lookup provider ---- */

/* The catalogue's lookup provider table (every slot in place, slot 0 the
 * host's table release). */
ZELTO_MANAGER_API const zelto_lookup_interface *zelto_catalogue_lookup_table(zelto_catalogue *catalogue);
/* Installs the table for mode 1 (online), 2 (local), or both with mode 0. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_install(zelto_catalogue *catalogue, uint32_t mode);
/* Requests created and not yet released. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_live_requests(zelto_catalogue *catalogue);

/* ---- Audio fingerprints ---- *
 *
 * The catalogue keeps fingerprints of audio files, each linked to a track,
 * and answers fingerprint lookups with the tracks whose fingerprints match
 * the query: a whole file or an excerpt of 20 seconds or more from
 * anywhere in a track. The query text is what the host's fingerprint
 * service gives for algorithm 1 (plain) or 3 and 5 (XML); see
 * zelto_host_services.h.
 *
 * How matching works. A fingerprint is a sequence of 32-bit items, one
 * every 123.8 ms of audio (Chromaprint's algorithm 2); each describes the
 * spectrum of a short window, and re-encoding, gain or resampling flip a
 * few bits of some items.
 *  1. Index: every item that is not part of a run of three or more equal
 *     items (what silence and steady tones give) is filed under a key, its
 *     28 high bits with the algorithm above them, as (key, fingerprint,
 *     position) in a SQLite table ordered by key.
 *  2. Candidates: up to 1000 items of the query (about two minutes) read
 *     the postings of their keys; keys with more than 4000 postings say
 *     nothing and are skipped. Each posting votes for its fingerprint at
 *     the offset "stored position minus query position": a real match
 *     piles its votes on one offset (or two neighbours, when the query
 *     starts between item boundaries), chance collisions scatter.
 *  3. Verification: the 12 fingerprints with the most votes at one offset
 *     (at least 3) are compared item by item with the query at that offset
 *     and the two on either side; the bit error rate over the overlapping
 *     items decides.
 *  4. Score: 100 * (1 - 2 * bit error rate), at least 0. Identical audio
 *     scores 100, re-encoded whole copies 90 to 99; excerpts and copies
 *     with a lead-in, whose items fall between the stored ones, mostly 85
 *     to 99 and as low as 75; unrelated music 0 to 20. A hit needs 5
 *     seconds of overlap and a score of ZELTO_CATALOGUE_FP_THRESHOLD (a
 *     bit error rate of 25% at most).
 * The offset of a hit, in items, gives where the query's audio starts in
 * the track; it is exact to half an item (62 ms). An excerpt of 20 seconds
 * or more from anywhere in a track is found, and a query longer than the
 * track (lead-in, say) too. Where a track repeats a passage almost exactly
 * (a chorus), an excerpt of it matches each repeat about equally, and the
 * offset given may be that of another repeat.
 *
 * An answer to an album lookup holds full albums ("zelto_val_full_result"
 * "1"), best match first, each with its matched track under
 * "zelto_ctx_track!matching" and "zelto_val_track_matched"; a track lookup
 * gives the matched tracks themselves. The album and its matched track (or
 * the track) carry the values below. The response code is single match
 * for one track, multi-exact when the second best also scores
 * ZELTO_CATALOGUE_FP_MULTI_SCORE (the same recording on several albums),
 * else fuzzy; no match when nothing scores ZELTO_CATALOGUE_FP_THRESHOLD.
 */
#define ZELTO_CATALOGUE_VAL_FP_SCORE "zelto_val_fp_matchscore"      /* 0..100: 100 less twice the bit error rate in percent */
#define ZELTO_CATALOGUE_VAL_FP_OFFSET "zelto_val_fp_offset_ms"      /* where the query's audio starts in the track; negative for lead-in */
#define ZELTO_CATALOGUE_VAL_FP_COMPARED "zelto_val_fp_compared_ms"  /* length of audio compared */
#define ZELTO_CATALOGUE_FP_THRESHOLD 50u
#define ZELTO_CATALOGUE_FP_MULTI_SCORE 80u

/* What an audio file's tags say; null or 0 where they say nothing. */
typedef struct zelto_catalogue_audio_tags {
    const char *title;
    const char *artist;
    const char *album;
    const char *album_artist;
    const char *genre;
    uint32_t year;
    uint32_t track_number;
    uint32_t disc_number;
    uint32_t duration_ms;
    const char *mb_release_track_id; /* MusicBrainz track id: a catalogue track's source id */
    const char *mb_release_id;       /* MusicBrainz release id: an imported album's tui */
    const char *mb_recording_id;     /* accepted, not used: the catalogue keeps no recordings */
} zelto_catalogue_audio_tags;

typedef struct zelto_catalogue_fingerprint_entry {
    const char *fp_text;    /* query text of the file's fingerprint */
    const char *content_id; /* names the file's content (a hash of its bytes); not empty */
    const char *name;       /* file name, informational; its base name titles an untitled track */
    const char *track_tui;  /* the track to link to; null or "": made from the tags */
    const zelto_catalogue_audio_tags *tags; /* may be null */
} zelto_catalogue_fingerprint_entry;

/* Outcomes of zelto_catalogue_fingerprint_add. */
#define ZELTO_CATALOGUE_FP_ADDED 1u      /* a new fingerprint was stored */
#define ZELTO_CATALOGUE_FP_SAME_PRINT 2u /* identical audio was stored before: the file is recorded, linked as that */
#define ZELTO_CATALOGUE_FP_KNOWN_FILE 3u /* this content was stored before: nothing changed */

typedef struct zelto_catalogue_fingerprint_result {
    uint32_t outcome;
    uint8_t created_album; /* the tags made a new album ... */
    uint8_t created_track; /* ... or a new track */
    uint32_t disc_number;
    uint32_t track_number;
    /* The linked track; texts valid until the next fingerprint call on the catalogue. */
    const char *track_tui;
    const char *album_tui;
    const char *title;
    const char *artist;
    const char *album_title;
} zelto_catalogue_fingerprint_result;

typedef struct zelto_catalogue_fingerprint_info {
    uint64_t fingerprints; /* distinct fingerprints */
    uint64_t files;        /* files recorded */
    uint64_t postings;     /* entries of the matching index */
} zelto_catalogue_fingerprint_info;

/* Whether a file of this content was stored. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_fingerprint_known(zelto_catalogue *catalogue, const char *content_id,
                                                            uint8_t *out_known);
/* The track that a file's MusicBrainz identifiers name: its release track id
 * as a track's source id, else its release id as an album's tui with the
 * disc (1 if not given) and track numbers. ZELTO_CATALOGUE_NO_RESULT if
 * none. The text is valid until the next fingerprint call. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_track_by_musicbrainz(zelto_catalogue *catalogue,
                                                               const zelto_catalogue_audio_tags *tags,
                                                               const char **out_track_tui);
/* Stores a file's fingerprint, all or nothing: linked to `track_tui`, or to
 * the track its tags describe in the album of their album title and album
 * artist (made if new; the same title on a disc is the same track; a
 * missing or taken track number gives the next free one). A malformed
 * text, an empty content id, a fingerprint too short or silent to be
 * matched (under 5 seconds of sound) and a track_tui that names no track
 * are refused with ZELTO_CATALOGUE_INVALID_DATA and a message. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_fingerprint_add(zelto_catalogue *catalogue,
                                                          const zelto_catalogue_fingerprint_entry *entry,
                                                          zelto_catalogue_fingerprint_result *out_result);
ZELTO_MANAGER_API uint32_t zelto_catalogue_fingerprint_counts(zelto_catalogue *catalogue,
                                                             zelto_catalogue_fingerprint_info *out_info);

#ifdef __cplusplus
}
#endif

#endif
