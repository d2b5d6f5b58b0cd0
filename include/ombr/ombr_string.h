/*
 * The string layer of the base library: NUL-terminated UTF-8 text of one to
 * three bytes a character, the string accumulator and the conversions
 * between UTF-8 and UCS-2.
 *
 * Sizes named "size" or "bytes" are in bytes, limits named "chars" count
 * decoded characters. New texts are released with ombr_string_free.
 */
#ifndef OMBR_STRING_H
#define OMBR_STRING_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* Status words of the string package. */
#define OMBR_STRING_ERR_INVALID_ARG 0x90050001u
#define OMBR_STRING_ERR_NO_MEMORY 0x90050002u
#define OMBR_STRING_ERR_BUFFER_TOO_SMALL 0x90050008u
#define OMBR_STRING_ERR_INVALID_UTF8 0x900503A0u
#define OMBR_STRING_ERR_ODD_UCS2 0x900503A1u
/* The allocating UTF conversions report want of memory under the file package byte. */
#define OMBR_STRING_ERR_CONVERT_NO_MEMORY 0x90030002u

/* ---- String accumulator --------------------------------------------------
 * A growing text buffer. Its record may sit at the start of a caller's
 * buffer; the text moves to the heap once it outgrows that buffer. One
 * thread at a time. */
typedef struct ombr_string_accum *ombr_string_accum_t;

OMBR_API uint32_t ombr_string_accum_create(ombr_string_accum_t *out_handle, void *buffer, uint32_t size);
OMBR_API uint32_t ombr_string_accum_append(ombr_string_accum_t handle, const char *text, const char **out_data);
OMBR_API uint32_t ombr_string_accum_append_chars(ombr_string_accum_t handle, const char *text, uint32_t chars,
                                                 const char **out_data);
OMBR_API uint32_t ombr_string_accum_append_bytes(ombr_string_accum_t handle, const void *bytes, uint32_t size,
                                                 const char **out_data);
OMBR_API uint32_t ombr_string_accum_bytelen(ombr_string_accum_t handle, uint32_t *out_size);
OMBR_API uint32_t ombr_string_accum_get_string(ombr_string_accum_t handle, const char **out_data,
                                               uint32_t *out_size);
OMBR_API uint32_t ombr_string_accum_detach(ombr_string_accum_t handle, char **out_text, uint32_t *out_size);
OMBR_API uint32_t ombr_string_accum_clear(ombr_string_accum_t handle);
OMBR_API uint32_t ombr_string_accum_delete(ombr_string_accum_t handle);

/* ---- UTF-8 and UCS-2 --------------------------------------------------- */
OMBR_API uint32_t ombr_string_utf8_to_ucs2_buf(const char *input, uint32_t input_bytes, uint16_t *output,
                                               uint32_t *out_bytes_written, uint8_t byte_swap);
OMBR_API uint32_t ombr_string_utf8_to_ucs2(const char *text, uint16_t **out_block, uint8_t byte_swap);
OMBR_API uint32_t ombr_string_ucs2_to_utf8_buf(const uint16_t *input, uint32_t input_bytes, char *output,
                                               uint32_t *inout_size, uint8_t byte_swap);
OMBR_API uint32_t ombr_string_ucs2_to_utf8(const uint16_t *text, char **out_block, uint8_t byte_swap);
OMBR_API uint32_t ombr_string_bytelen_uni(const uint16_t *text);
OMBR_API uint32_t ombr_string_charlen_uni(const uint16_t *text);

/* ---- Lengths and tests ---------------------------------------------------- */
OMBR_API uint32_t ombr_string_bytelen(const char *s);
OMBR_API uint32_t ombr_string_bytelen_nonull(const char *s);
OMBR_API uint32_t ombr_string_bytenlen(const char *s, uint32_t n);
OMBR_API uint32_t ombr_string_bytenlen_nonull(const char *s, uint32_t n);
OMBR_API uint32_t ombr_string_byteclen(const char *s, uint32_t chars);
OMBR_API uint32_t ombr_string_charlen(const char *s);
OMBR_API uint32_t ombr_string_charnlen(const char *s, uint32_t bytes);
OMBR_API uint32_t ombr_string_nextcharsize(const char *s);
OMBR_API uint32_t ombr_string_isempty(const char *s);
OMBR_API uint32_t ombr_string_isvalid(const char *s);

/* ---- Cursors --------------------------------------------------------------- */
/* Decodes the character at *cursor and moves past it. 0 at the terminator
 * (moved past it, size 1) and for an invalid character (not moved). */
OMBR_API uint32_t ombr_string_charnext(const char **cursor, uint32_t *out_size);
/* Encodes one character without a terminator; written is 0 if it does not fit. */
OMBR_API char *ombr_string_setchar(char *buffer, uint32_t size, uint32_t code_point, uint32_t *out_written);

/* ---- Comparison ------------------------------------------------------------
 * All take null. Results are -1, 0 or 1. strcmp compares unsigned bytes;
 * the others compare decoded code points, the i forms folding ASCII case. */
OMBR_API int32_t ombr_string_strcmp(const char *a, const char *b);
OMBR_API int32_t ombr_string_stricmp(const char *a, const char *b);
OMBR_API int32_t ombr_string_strncmp(const char *a, const char *b, uint32_t chars);
OMBR_API int32_t ombr_string_strnicmp(const char *a, const char *b, uint32_t chars);
/* Leading equal characters. Note the pair: strcmp_len folds ASCII case,
 * stricmp_len compares exactly. */
OMBR_API uint32_t ombr_string_strcmp_len(const char *a, const char *b, const char **out_end_a,
                                         const char **out_end_b);
OMBR_API uint32_t ombr_string_stricmp_len(const char *a, const char *b, const char **out_end_a,
                                          const char **out_end_b);

/* ---- Copy and duplicate ------------------------------------------------------
 * size: bytes of the destination; chars: limit in characters. Characters are
 * never split and the destination is always terminated. */
OMBR_API char *ombr_string_strcpy(char *dest, uint32_t size, const char *src);
OMBR_API char *ombr_string_strncpy(char *dest, uint32_t size, const char *src, uint32_t chars);
OMBR_API char *ombr_string_strcat(char *dest, uint32_t size, const char *src);
OMBR_API char *ombr_string_strncat(char *dest, uint32_t size, const char *src, uint32_t chars);
OMBR_API char *ombr_string_strdup(const char *s);
OMBR_API char *ombr_string_strdupn(const char *s, uint32_t size, uint8_t fill);
OMBR_API char *ombr_string_strndup(const char *s, uint32_t chars);
OMBR_API char *ombr_string_worddup(const char *s);

/* ---- Search -------------------------------------------------------------------- */
OMBR_API char *ombr_string_strchr(const char *s, uint32_t code_point);
OMBR_API char *ombr_string_strrchr(const char *s, uint32_t code_point);
OMBR_API char *ombr_string_substring(const char *haystack, const char *needle, const char **out_end,
                                     uint32_t *out_chars);
OMBR_API char *ombr_string_strstr(const char *haystack, const char *needle);
/* Searches forward and returns the position just behind the first match. */
OMBR_API char *ombr_string_strrstr(const char *haystack, const char *needle);
OMBR_API char *ombr_string_strtok(char *s, const char *delimiters, char **save, char *out_delimiter);

/* ---- In-place edits ---------------------------------------------------------- */
OMBR_API char *ombr_string_trim(char *s);
OMBR_API char *ombr_string_tolower(char *s);
OMBR_API char *ombr_string_toupper(char *s);
OMBR_API char *ombr_string_reverse(char *s);

/* ---- Numbers ------------------------------------------------------------------- */
OMBR_API int32_t ombr_string_strtol(const char *s, char **end, int32_t base);
OMBR_API uint32_t ombr_string_strtoul(const char *s, char **end, int32_t base);
OMBR_API uint64_t ombr_string_strtoull(const char *s, char **end, int32_t base);
OMBR_API int32_t ombr_string_atoi32(const char *s);
OMBR_API uint32_t ombr_string_atou32(const char *s);
OMBR_API uint64_t ombr_string_atou64(const char *s);
OMBR_API double ombr_string_atof64(const char *s);
OMBR_API uint32_t ombr_string_atobool(const char *s);
OMBR_API char *ombr_string_i32toa(int32_t value, char *buffer, uint32_t size);
OMBR_API char *ombr_string_u32toa(uint32_t value, char *buffer, uint32_t size);

/* ---- Character classes --------------------------------------------------------- */
OMBR_API int32_t ombr_string_isalpha(int32_t c);
OMBR_API int32_t ombr_string_isdigit(int32_t c);
OMBR_API int32_t ombr_string_isspace(int32_t c);
OMBR_API int32_t ombr_string_isxdigit(int32_t c);
OMBR_API int32_t ombr_string_isalnum(int32_t c);
OMBR_API int32_t ombr_string_isprint(int32_t c);
OMBR_API int32_t ombr_string_islower(int32_t c);
OMBR_API int32_t ombr_string_isupper(int32_t c);
OMBR_API int32_t ombr_string_char_tolower(int32_t c);
OMBR_API int32_t ombr_string_char_toupper(int32_t c);

OMBR_END_DECLS

#endif
