#ifndef NUMERICS_KERNELS_TKNMINSTRUCTIONS_H
#define NUMERICS_KERNELS_TKNMINSTRUCTIONS_H

#include "numerics/tkNMBestInstructions.h"

// Whether functions can be compiled for instructions that the target does not have by itself, one function at a time.
// Contraction is off for the whole library, so that every instruction set rounds where plain code does.
#if defined(__GNUC__) && defined(__x86_64__)
#define TK_HAS_X86_TARGETS 1
#define TK_TARGET_AVX2 __attribute__((target("avx2")))
#define TK_TARGET_AVX512 __attribute__((target("avx2,avx512f,avx512bw")))
#else
#define TK_HAS_X86_TARGETS 0
#endif

// NEON for 64 bits, which every such processor has. Bytes of a register stand as in memory if the lowest comes first.
#if defined(__GNUC__) && defined(__aarch64__) && defined(__ARM_NEON) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
#define TK_HAS_NEON 1
#else
#define TK_HAS_NEON 0
#endif

/// Instruction sets in ascending order; a processor that has one has those before it.
enum class tkNMInstructions : int
{
    Definition, // no kernel: the plain function that all others are held to
    Portable,   // what the compiler makes of a kernel for any processor of the target
    Sse2,       // what every x86-64 processor has
    Avx2,
    Avx512,     // its F and BW parts
    Neon = Sse2 // what every 64-bit ARM processor has: registers of the same width
};

#endif
