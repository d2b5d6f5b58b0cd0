/*
 * Services of the reference host behind the module's tables, and the
 * application-facing calls on them.
 *
 *  - Result objects ("_zelto_rvo_interface"): reference-counted handles over
 *    a provider record and an eleven-slot provider table. The host's own
 *    trees (below) are one such provider; the module's response records are
 *    another. The zelto_manager_rvo_* calls let an application walk any
 *    result object.
 *  - Trees: what lookup providers return. A node has a context name, values
 *    under value keys and children under child keys, and is exposed as a
 *    result object through the tree provider.
 *  - Locales: interned handles for languages, used by rvo_set_locale.
 *  - Lists ("_zelto_listmanager_interface"): the language list.
 *  - Serialisation ("_zelto_serialization_interface"): base64 text of a
 *    block of bytes.
 *  - Lookup providers ("_zelto_lookup_interface"): one table per mode,
 *    installed by the application (see also zelto_script_provider.h).
 *
 *  - Signal processing ("_zelto_dsp_interface"): fingerprint generators on
 *    Chromaprint, and the writer of the "ZTFP" serial form of a fingerprint.
 *    A host built without Chromaprint does not offer it: interface_get then
 *    fails with ZELTO_MANAGER_NO_SERVICE, and zelto_manager_dsp_table()
 *    gives null.
 *
 * Status words of these services use the package bytes below. A soft status
 * (0x10...) with error value 3 means "absent": no such value, no such child,
 * ordinal 0 or past the end, no such language.
 */
#ifndef ZELTO_HOST_SERVICES_H
#define ZELTO_HOST_SERVICES_H

#include <stddef.h>
#include <stdint.h>

#include "zelto/zelto_manager.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Status words --------------------------------------------------------- */

/* Package bytes of the host's services. */
#define ZELTO_HOST_PKG_LOOKUP 0x04u
#define ZELTO_HOST_PKG_SERIAL 0x0Eu
#define ZELTO_HOST_PKG_RVO 0x10u
#define ZELTO_HOST_PKG_LISTS 0x15u
#define ZELTO_HOST_PKG_DSP 0x18u

/* Result objects and trees. */
#define ZELTO_RVO_BAD_ARG 0x90100001u     /* null or invalid handle, malformed key */
#define ZELTO_RVO_NO_MEMORY 0x90100002u
#define ZELTO_RVO_NOT_FOUND 0x10100003u   /* absent value or child, ordinal 0 or past the end */
#define ZELTO_RVO_UNSUPPORTED 0x9010000Bu /* the provider has no such operation (null slot) */
/* the object has values under the key, but none that its data flags allow */
#define ZELTO_RVO_WITHHELD (0x10100000u | ZELTO_RVO_ERROR_WITHHELD)
/* Lists. */
#define ZELTO_LISTS_BAD_ARG 0x90150001u
#define ZELTO_LISTS_UNKNOWN 0x90150003u /* language not in the list */
/* Serialisation. */
#define ZELTO_SERIAL_BAD_ARG 0x900E0001u
#define ZELTO_SERIAL_NO_MEMORY 0x900E0002u
#define ZELTO_SERIAL_MALFORMED 0x900E000Cu
/* Signal processing. */
#define ZELTO_DSP_BAD_ARG 0x90180001u     /* null or foreign generator or block, missing output */
#define ZELTO_DSP_NO_MEMORY 0x90180002u
#define ZELTO_DSP_UNKNOWN_KEY 0x10180003u /* dsp_generator_info: no such key */
#define ZELTO_DSP_FAILED 0x90180005u      /* Chromaprint refused the audio */
#define ZELTO_DSP_UNSUPPORTED 0x9018000Bu /* algorithm, sample format, channels or rate */
#define ZELTO_DSP_ENDED 0x90180010u       /* write after end */
/* Lookup providers of the host (the catalogue and the script provider). */
#define ZELTO_LOOKUP_BAD_ARG 0x90040001u      /* null or invalid argument, a request or table no longer live */
#define ZELTO_LOOKUP_NO_MEMORY 0x90040002u
#define ZELTO_LOOKUP_NO_RESULT 0x10040003u    /* get_result without a result for that identifier */
#define ZELTO_LOOKUP_ABORTED 0x90040009u      /* the request callback asked to stop */
#define ZELTO_LOOKUP_UNSUPPORTED 0x9004000Bu  /* unknown lookup type */
#define ZELTO_LOOKUP_INVALID_DATA 0x9004000Cu /* malformed request data or no usable input */

/* The data-flag bits that gate values of trees are the ZELTO_DATA_* bits of
 * zelto/zelto_keys.h. */

/* ---- Result objects ---------------------------------------------------------- */

/* The "_zelto_rvo_interface" table. Unlike interface_get, this takes no
 * reference: the table is static and its slot 0 need not be called. */
ZELTO_MANAGER_API const zelto_rvo_interface *zelto_manager_rvo_table(void);

/* Same as the table's slots. rvo_create wraps a record in a new object with
 * one reference; the last release calls the provider's release slot exactly
 * once. The object holds a reference on a host user handle given to it.
 * Texts are borrowed from the object. Child objects come with a reference
 * for the caller. Release of null succeeds. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_create(void *record, const zelto_rvo_provider *provider, void *user,
                                                   const char *locale_group, uint32_t data_flags,
                                                   zelto_rvo_handle *out_object);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_addref(zelto_rvo_handle object);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_release(zelto_rvo_handle object);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_get_context(zelto_rvo_handle object, const char **out_context);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_value_count(zelto_rvo_handle object, const char *key,
                                                        uint32_t *out_count);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_value_get(zelto_rvo_handle object, const char *key, uint32_t ordinal,
                                                      const char **out_value);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_child_count(zelto_rvo_handle object, const char *key,
                                                        uint32_t *out_count);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_child_get(zelto_rvo_handle object, const char *key, uint32_t ordinal,
                                                      uint8_t flag, zelto_rvo_handle *out_child);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_set_locale(zelto_rvo_handle object, zelto_locale_handle locale);
/* The provider's locale if it has a get_locale slot, else the last locale
 * set on this object (null if none). */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_get_locale(zelto_rvo_handle object, zelto_locale_handle *out_locale);
/* Render slot of the provider: display name and text of the index-th
 * rendered value (from 0). Outputs the provider leaves unwritten stay as the
 * caller set them. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_render_value(zelto_rvo_handle object, uint32_t index,
                                                         const char **out_name, const char **out_value);
/* Reference count of a live object, 0 for anything else. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_refcount(zelto_rvo_handle object);
/* Data flags and locale group the object was created with. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_data_flags(zelto_rvo_handle object, uint32_t *out_flags);
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_locale_group(zelto_rvo_handle object, const char **out_group);
/* Number of live result objects in the process. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_live_count(void);

/* Readable indented text of an object and everything below it, for
 * debugging and tests. Objects backed by host trees list all their values
 * and children. For other objects only the keys in the null-terminated lists
 * are walked (either list may be null): each value key with all its values,
 * each child key with all its children, recursively. The format is
 *
 *     zelto_ctx_album
 *       zelto_val_title = "Blue Train"
 *       zelto_ctx_track! 1
 *         zelto_ctx_track
 *           zelto_val_tracknumber = "1"
 *
 * one line per context, value and child, two blanks of indent per level;
 * children of a tree carry their tags in braces after the ordinal
 * ("zelto_ctx_track! 2 {matching}"). Within quotes, backslash, double quote,
 * newline, tab and other control bytes are escaped (\\, \", \n, \t, \xHH).
 * Values that the object's data flags withhold are not shown, nor keys that
 * the object has nothing under or does not serve (error value 0x000B).
 * Any other failing read ends the dump: its status is returned and no text
 * is made. The text is freed with zelto_manager_text_free. */
ZELTO_MANAGER_API uint32_t zelto_manager_rvo_dump(zelto_rvo_handle object, const char *const *value_keys,
                                                 const char *const *child_keys, char **out_text);
ZELTO_MANAGER_API void zelto_manager_text_free(char *text);

/* ---- Locales ------------------------------------------------------------------- */

/* An interned locale for a language that the language list knows (code or
 * English name, any case). The handle lives as long as the process; the same
 * language always gives the same handle. Unknown: ZELTO_LISTS_UNKNOWN. */
ZELTO_MANAGER_API uint32_t zelto_manager_locale_get(const char *language, zelto_locale_handle *out_locale);
/* Canonical three-letter code of a locale handle, or null if it is none. */
ZELTO_MANAGER_API const char *zelto_manager_locale_language(zelto_locale_handle locale);

/* ---- Trees ------------------------------------------------------------------------ *
 *
 * A tree node has a context name ("zelto_ctx_album"), values and children.
 *
 * Values: under keys beginning with "zelto_val_" or "_sdkmgr_val_", several
 * per key, kept in insertion order and read with ordinals from 1. A value may
 * carry a language and required data flags:
 *  - Language: when the object has a locale and some values of the key have
 *    that language, the key's values are those; otherwise the values without
 *    language; if there are none, all values of the key.
 *  - Required flags: a value is visible only if the object's data flags hold
 *    all of them. A key whose values are all hidden this way reads as
 *    withheld (ZELTO_RVO_WITHHELD) rather than absent.
 *
 * Children: under a key base "zelto_ctx_x", in insertion order, each with
 * optional tags. Child keys are read as "zelto_ctx_x!" with an optional
 * selector behind the "!":
 *  - none ("zelto_ctx_track!"): all children under the base, ordinals from 1;
 *  - "number" ("zelto_ctx_track!number"): the ordinal is a number, and the
 *    child served is the first whose number equals it. A child's number is
 *    the one set with zelto_manager_tree_set_number, else the first value of
 *    "zelto_val_<x>number" ("zelto_val_tracknumber" for "zelto_ctx_track")
 *    read as a decimal. The count is the number of children with a number;
 *  - "off": the children tagged "off"; if no child of the base has that tag,
 *    the first child alone (a lone title is the official one);
 *  - any other word ("matching", ...): the children with that tag, in order.
 * Keys that do not begin with "zelto_ctx_" or lack the "!" are refused with
 * ZELTO_RVO_BAD_ARG.
 *
 * Nodes are reference counted; a node holds its children. A tree may be
 * changed after it has been exposed; texts already handed out stay valid
 * while the node lives. All calls are thread-safe.
 */
typedef struct zelto_manager_tree zelto_manager_tree;

/* A new node with one reference. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_create(const char *context, zelto_manager_tree **out_tree);
ZELTO_MANAGER_API uint32_t zelto_manager_tree_addref(zelto_manager_tree *tree);
/* Release of null succeeds. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_release(zelto_manager_tree *tree);
/* Appends a value; the text is copied. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_add_value(zelto_manager_tree *tree, const char *key, const char *text);
/* Appends a value with a language (any form the language list knows; null
 * for none) and the data flags it requires (0 for none). */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_add_value_ex(zelto_manager_tree *tree, const char *key,
                                                          const char *text, const char *language,
                                                          uint32_t required_flags);
/* Appends a child, taking a reference on it. The key is the base with or
 * without "!", optionally followed by tags separated by commas:
 * "zelto_ctx_track!matching", "zelto_ctx_title!off". The tag "number" is
 * reserved. A child may appear under several parents; a node cannot be made
 * its own descendant. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_add_child(zelto_manager_tree *tree, const char *key,
                                                       zelto_manager_tree *child);
/* Sets the number that "!number" selects a node by. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_set_number(zelto_manager_tree *tree, uint32_t number);
/* Context name of a node. */
ZELTO_MANAGER_API const char *zelto_manager_tree_context(const zelto_manager_tree *tree);
/* Exposes a node as a result object with one reference, with the given
 * user, locale group and data flags; its children inherit the flags and the
 * object's locale at the time they are read. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_to_rvo(zelto_manager_tree *tree, void *user, const char *locale_group,
                                                    uint32_t data_flags, zelto_rvo_handle *out_object);
/* Dump of a node, as zelto_manager_rvo_dump with all data flags set and no locale. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_dump(zelto_manager_tree *tree, char **out_text);
/* The provider table of tree objects, and whether an object is backed by it. */
ZELTO_MANAGER_API const zelto_rvo_provider *zelto_manager_tree_provider(void);
/* Number of live tree nodes in the process. */
ZELTO_MANAGER_API uint32_t zelto_manager_tree_live_count(void);

/* ---- Lists ---------------------------------------------------------------------- */

/* Same as slot 30 of "_zelto_listmanager_interface". Accepts an ISO 639-1
 * code ("de"), an ISO 639-2 terminology or bibliographic code ("deu",
 * "ger") or an English name ("German"; for entries with several names, any
 * of them), without regard to ASCII case and surrounding blanks. Yields the
 * ISO 639-2 terminology code ("deu"), a static text. */
ZELTO_MANAGER_API uint32_t zelto_manager_list_language_get(const char *language, const char **out_text);
/* English name for a language in any accepted form, or null. */
ZELTO_MANAGER_API const char *zelto_manager_list_language_name(const char *language);
/* Number of languages in the list. */
ZELTO_MANAGER_API uint32_t zelto_manager_list_language_count(void);

/* ---- Serialisation ---------------------------------------------------------------- *
 *
 * The serial text form of a block is its standard base64 encoding (RFC 4648,
 * alphabet A-Z a-z 0-9 + /, "=" padding to a multiple of four characters).
 * Decoding skips ASCII blanks, tabs, CR and LF, and refuses with
 * ZELTO_SERIAL_MALFORMED: an empty text, any other character, padding that
 * is not at the end or longer than two, a length not a multiple of four, and
 * non-zero bits in the padded tail. A decoded block is followed by a NUL
 * byte not counted in its size.
 */
/* Same as slot 2: the block belongs to the caller, who frees it with
 * zelto_manager_serial_free (slot 3). */
ZELTO_MANAGER_API uint32_t zelto_manager_serial_decode(const char *text, void **out_data, uint32_t *out_size);
/* Frees a decoded block; null succeeds, anything else not live is refused. */
ZELTO_MANAGER_API uint32_t zelto_manager_serial_free(void *data);
/* Encodes a block; the text is freed with zelto_manager_text_free. */
ZELTO_MANAGER_API uint32_t zelto_manager_serial_encode(const void *data, uint32_t size, char **out_text);
/* Decoded blocks not yet freed. */
ZELTO_MANAGER_API uint32_t zelto_manager_serial_live_blocks(void);

/* ---- Signal processing: fingerprints ------------------------------------------------------- *
 *
 * The "_zelto_dsp_interface" table (layout in zelto_services.h) makes
 * audio fingerprints with Chromaprint. Its algorithm numbers map so:
 *
 *   number  Chromaprint algorithm               query text
 *   1       CHROMAPRINT_ALGORITHM_TEST2 ("2")   plain
 *   3       CHROMAPRINT_ALGORITHM_TEST2 ("2")   XML description
 *   5       CHROMAPRINT_ALGORITHM_TEST5 ("5")   XML description
 *
 * Algorithm 2 is Chromaprint's default, the one AcoustID uses; 5 has a finer
 * time resolution (92 ms items instead of 123 ms). Any other number is
 * refused with ZELTO_DSP_UNSUPPORTED.
 *
 * Audio: sample formats ZELTO_DSP_FORMAT_S8 (8-bit unsigned, 128 is silence,
 * as in WAV files), _S16 and _S32 (signed), native byte order, 1 or 2
 * interleaved channels, sample rates from 1001 to 1000000 Hz. 8- and
 * 32-bit samples are converted to 16-bit on the way in; aligned 16-bit
 * samples go to Chromaprint as they are. No samples are kept, save the
 * bytes of a frame that a write leaves incomplete, which the next write
 * completes (end drops them). Sizes given to dsp_generator_write are bytes.
 *
 * Slots:
 *  - dsp_generator_create(algorithm, rate, format, channels, 0, callback,
 *    data, out): the callback is required.
 *  - dsp_generator_write: blocks of ZELTO_DSP_BLOCK_ITEMS raw fingerprint
 *    items reach the callback from inside the call as soon as they are
 *    computed, the first after Chromaprint's delay (about 2.6 seconds of
 *    audio for algorithm 2). The complete flag is 1 once 120 seconds of
 *    audio have been written. Writing on after that is allowed: the
 *    fingerprint grows. A write after end is refused with ZELTO_DSP_ENDED.
 *  - dsp_generator_end: flushes Chromaprint; the last, shorter block reaches
 *    the callback from inside the call. The flag is always 0. Calling end
 *    again delivers nothing new and succeeds.
 *  - dsp_generator_info: ZELTO_DSP_INFO_MINBLOCKREQ is the number of
 *    blocks that 10 seconds of audio give (a useful fingerprint),
 *    ZELTO_DSP_INFO_MAXBLOCKREQ that of 120 seconds (a full-length one):
 *    2 and 30 for algorithms 1 and 3, 3 and 41 for algorithm 5. Other keys:
 *    ZELTO_DSP_UNKNOWN_KEY. The texts are the generator's.
 *  - The callback's status is returned by the write or end that called it.
 *    A block that the callback refused is freed by the service, and its
 *    items are offered again by the next write or end; so are those of a
 *    block that could not be allocated. A failed write has still consumed
 *    its samples.
 *  - dsp_fingerprint_free frees a block that the callback accepted.
 *  - dsp_fingerprint_query_text(generator, blocks, count, out): the query
 *    text of the items of the given blocks, in the order given; null entries
 *    are skipped, and no items at all is ZELTO_DSP_BAD_ARG. The duration is
 *    that of the audio written to the generator so far, in whole seconds
 *    (rounded down). Free the text with dsp_text_free.
 *
 * Query texts, as lookup providers receive them (FP is Chromaprint's
 * compressed fingerprint in URL-safe base64 without padding, as its tools
 * print it; D the duration):
 *  - algorithm 1, plain, two lines:
 *        DURATION=D
 *        FINGERPRINT=FP
 *  - algorithms 3 and 5, an XML description on one line, whose ALGORITHM
 *    part the module reads into the algorithm name and version that it
 *    sends with the data:
 *        <FINGERPRINT><ALGORITHM><NAME>chromaprint</NAME><VERSION>2</VERSION>
 *        </ALGORITHM><DURATION>D</DURATION><DATA>FP</DATA></FINGERPRINT>
 *
 * A generator belongs to one thread at a time; different generators may run
 * on different threads. Generators, blocks and texts come from the host's
 * memory layer (ombr_memory_alloc), so they count among its live blocks.
 */
#define ZELTO_DSP_BLOCK_ITEMS 32u
#define ZELTO_DSP_ALGORITHM_NAME "chromaprint"

/* The "_zelto_dsp_interface" table, or null in a host built without
 * Chromaprint. Like zelto_manager_rvo_table, this takes no reference. */
ZELTO_MANAGER_API const zelto_dsp_interface *zelto_manager_dsp_table(void);
/* Generators not yet released, and blocks delivered and not yet freed. */
ZELTO_MANAGER_API uint32_t zelto_manager_dsp_live_generators(void);
ZELTO_MANAGER_API uint32_t zelto_manager_dsp_live_blocks(void);

/* Writes the serial form of a fingerprint's XML description (a query text
 * of algorithm 3 or 5, or one stored from a lookup): ZELTO_ZTFP_SERIAL_PREFIX
 * followed by the serialisation service's text of the description's bytes.
 * zelto_cantrix_query_set_fp_data takes it back and yields the description
 * again. A text that is empty or not XML (its first character other than a
 * blank must be '<') is refused with ZELTO_SERIAL_BAD_ARG: plain
 * fingerprints are stored as they are. The text is freed with
 * zelto_manager_text_free. */
ZELTO_MANAGER_API uint32_t zelto_manager_fp_serialize(const char *description, char **out_text);

/* ---- Lookup providers ------------------------------------------------------------------ */

/* Installs the provider table handed out by interface_get for
 * "_zelto_lookup_interface" with a mode: 1 online, 2 local. Null removes it.
 * Without a table for a mode, interface_get fails with
 * ZELTO_MANAGER_NO_SERVICE; another mode number is refused with
 * ZELTO_MANAGER_BAD_ARG. Slot 0 of an installed table should be the host's release
 * (zelto_script_provider tables have it) so that references are counted
 * under "_zelto_lookup_interface". The table must stay callable as long as
 * anyone holds it. */
ZELTO_MANAGER_API uint32_t zelto_manager_lookup_set_provider(uint32_t mode, const zelto_lookup_interface *table);
/* The table installed for a mode, or null. */
ZELTO_MANAGER_API const zelto_lookup_interface *zelto_manager_lookup_get_provider(uint32_t mode);
/* The host's table release, for slot 0 of provider tables. */
ZELTO_MANAGER_API uint32_t zelto_manager_table_release(const void *table);

#ifdef __cplusplus
}
#endif

#endif
