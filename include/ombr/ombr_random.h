/*
 * A small pseudo-random sequence for uses without security demands
 * (seed = seed * 214013 + 2531011; result (seed >> 16) & 0x7FFF).
 */
#ifndef OMBR_RANDOM_H
#define OMBR_RANDOM_H

#include "ombr/ombr_base.h"

OMBR_BEGIN_DECLS

/* Seed of the shared sequence before its first use. */
#define OMBR_RANDOM_INITIAL_SEED 0x12345678

/* Returns the next value, 0 to 0x7FFF, of the sequence in *seed, or of the
 * shared sequence (not locked) when seed is null. */
OMBR_API uint32_t ombr_random_rand(int32_t *seed);

OMBR_END_DECLS

#endif
