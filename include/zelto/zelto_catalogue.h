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
#define ZELTO_CATALOGUE_BAD_ARG 0x90040001u      /* null or invalid argument, dead catalogue */
#define ZELTO_CATALOGUE_NO_MEMORY 0x90040002u
#define ZELTO_CATALOGUE_NO_RESULT 0x10040003u    /* get_result without a result for that identifier */
#define ZELTO_CATALOGUE_NO_FILE 0x90040004u      /* the catalogue file does not exist (open without create) */
#define ZELTO_CATALOGUE_IO_ERROR 0x90040005u     /* a file could not be read */
#define ZELTO_CATALOGUE_DATABASE 0x90040008u     /* the database failed (corrupt or not a catalogue) */
#define ZELTO_CATALOGUE_ABORTED 0x90040009u      /* the callback asked to stop */
#define ZELTO_CATALOGUE_UNSUPPORTED 0x9004000Bu  /* unknown lookup type */
#define ZELTO_CATALOGUE_INVALID_DATA 0x9004000Cu /* malformed request data (TOC, range) or no usable input */

/* Open flags. */
#define ZELTO_CATALOGUE_OPEN_CREATE 1u /* create the file if it does not exist */

typedef struct zelto_catalogue zelto_catalogue;

/* Opens a catalogue file (":memory:" for a private, empty one). */
ZELTO_MANAGER_API uint32_t zelto_catalogue_open(const char *path, uint32_t flags, zelto_catalogue **out_catalogue);
/* Closes it: uninstalls its table from every mode where it is installed.
 * Its table stays callable afterwards; request slots then refuse with
 * ZELTO_CATALOGUE_BAD_ARG. Null is accepted. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_close(zelto_catalogue *catalogue);
/* Message of the last failure of a call on this catalogue, "" if none. */
ZELTO_MANAGER_API const char *zelto_catalogue_last_message(zelto_catalogue *catalogue);

/* ---- Import ---- */

typedef struct zelto_catalogue_import_report {
    uint64_t records;  /* records read */
    uint64_t imported; /* albums and lyrics stored */
    uint64_t replaced; /* of those, replacing an older revision */
    uint64_t skipped;  /* bad records and older revisions */
    uint8_t stopped;   /* the progress callback asked to stop */
} zelto_catalogue_import_report;

/* Called now and then during an import with bytes read of all bytes and
 * albums stored so far; setting *stop to 1 ends the import after the
 * current record (what was stored stays). */
typedef void (*zelto_catalogue_progress_callback)(void *callback_data, uint64_t bytes_done, uint64_t bytes_total,
                                                  uint64_t albums_imported, uint8_t *stop);

/* Imports a file or every file below a directory: *.json and *.jsonl as
 * release JSON, lyrics*.jsonl as lyrics, anything else as an xmcd disc. Bad
 * records are skipped and counted. The report may be null. */
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

/* ---- Lookup provider ---- */

/* The catalogue's lookup provider table (every slot in place, slot 0 the
 * host's table release). */
ZELTO_MANAGER_API const zelto_lookup_interface *zelto_catalogue_lookup_table(zelto_catalogue *catalogue);
/* Installs the table for mode 1 (online), 2 (local), or both with mode 0. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_install(zelto_catalogue *catalogue, uint32_t mode);
/* Requests created and not yet released. */
ZELTO_MANAGER_API uint32_t zelto_catalogue_live_requests(zelto_catalogue *catalogue);

#ifdef __cplusplus
}
#endif

#endif
