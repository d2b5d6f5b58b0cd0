// Reference kernels: the plain, step-by-step forms of the library's format
// engine, bigram compare, hash and normaliser. The library uses faster
// forms; the differential tests and the fuzzers check that both give the
// same results on any input. Not part of the shipped library.
#ifndef CANTRIX_TESTS_REFERENCE_H
#define CANTRIX_TESTS_REFERENCE_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

#include "ombr/ombr_string.h"

namespace reference {

// The format engine: accumulator-based formatting, one append per piece.
uint32_t string_printf(ombr_string_accum_t accum, const char *format, va_list args);
// ombr_string_vsnprintf through an accumulator on a 300-byte stack area.
uint32_t string_vsnprintf(char *dest, uint32_t size, const char *format, va_list args);

// Bigram similarity: tables filled entry by entry, common entries counted
// by the quadratic search that takes matches out of both tables.
uint32_t string_fuzzycmp(const char *text_a, const char *text_b, uint8_t skip_space, uint32_t *out_percent_a,
                         uint32_t *out_percent_b);

// The hash table's key hash, byte by byte: h = h * 33 + c from 5381, with
// 'a' to 'z' as upper case unless case sensitive.
uint32_t hashtable_hash(const char *key, bool case_sensitive);

// The text kernels TOC texts pass through: the system's decimal reader at
// 32 bits, tokens found by code-point search of the delimiters, and the
// UTF-8 check one character at a time.
uint32_t string_strtoul(const char *s, char **end, int32_t base);
char *string_strtok(char *s, const char *delimiters, char **save, char *out_delimiter);
uint32_t string_isvalid(const char *s);

// Differential cases built from arbitrary bytes, shared by the tests and
// the fuzzers. Each returns an empty text when the library and the
// reference agree, else what differed.
std::string check_format_case(const uint8_t *data, size_t size);
std::string check_fuzzy_case(const uint8_t *data, size_t size);
std::string check_hashtable_case(const uint8_t *data, size_t size);
std::string check_text_case(const uint8_t *data, size_t size);
// Every scan of the hash table's key code (the table's own, eight and
// sixteen bytes a step, the in-line short form) gives the byte-by-byte
// hash and the length of `text`.
std::string check_hashtable_scans(const char *text);

}  // namespace reference

#endif
