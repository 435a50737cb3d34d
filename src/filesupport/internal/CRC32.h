// CRC-32 in its reflected form (zlib, PNG): the polynomial and tables, built
// from the exponents of the polynomial's terms, and the block kernels behind
// OCRCByteStream::WriteBlock.
//
// Every function here works on the running state, the value before the final
// complement: a sum starts at 0xFFFFFFFF, each call takes the state and gives
// the state after the bytes, and the CRC is the complement of the last one.
// All kernels give the same state for the same bytes as the byte table, at
// every length and alignment.
//
// The constant helpers are meant for constant expressions: the kernels of
// each instruction set use them only to initialise constants, so no code of
// theirs is ever shared between files built with different instruction sets.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace tvxcore::filesupport::internal {

// The exponents of the terms of the generator polynomial below x^32.
inline constexpr int kCRC32Exponents[] = {0, 1, 2, 4, 5, 7, 8, 10, 11, 12, 16, 22, 23, 26};

// The polynomial in reflected form, bit 31 - e set for each exponent e:
// 0xEDB88320.
constexpr std::uint32_t CRC32Polynomial() {
  std::uint32_t polynomial = 0;
  for (int exponent : kCRC32Exponents) polynomial |= std::uint32_t{1} << (31 - exponent);
  return polynomial;
}

// One step of the reflected register: multiplies the polynomial it holds by
// x, modulo the generator.
constexpr std::uint32_t CRC32TimesX(std::uint32_t value, std::uint32_t polynomial) {
  return (value & 1) != 0 ? (value >> 1) ^ polynomial : value >> 1;
}

using CRC32Table = std::array<std::uint32_t, 256>;

// Entry n is n after eight rounds of CRC32TimesX: the state change that one
// byte makes.
constexpr CRC32Table MakeCRC32Table() {
  const std::uint32_t polynomial = CRC32Polynomial();
  CRC32Table table{};
  for (std::uint32_t n = 0; n < 256; ++n) {
    std::uint32_t value = n;
    for (int round = 0; round < 8; ++round) value = CRC32TimesX(value, polynomial);
    table[n] = value;
  }
  return table;
}

// Table k gives what a byte contributes when k more bytes follow it: table 0
// is the byte table, and the eight together process eight bytes with eight
// independent look-ups (slicing by 8).
using CRC32SliceTables = std::array<CRC32Table, 8>;

constexpr CRC32SliceTables MakeCRC32SliceTables() {
  CRC32SliceTables tables{};
  tables[0] = MakeCRC32Table();
  for (std::size_t k = 1; k < tables.size(); ++k)
    for (std::size_t n = 0; n < 256; ++n)
      tables[k][n] = (tables[k - 1][n] >> 8) ^ tables[0][tables[k - 1][n] & 0xFF];
  return tables;
}

extern const CRC32SliceTables kCRC32SliceTables;

// The state after four zero bytes from `state`, by four independent look-ups.
// The vector kernels end with it; defined outside them so that their files
// instantiate nothing of the tables' type.
std::uint32_t CRC32AfterFourZeroBytes(std::uint32_t state);

// x^n modulo the generator, reflected: bit 31 - d holds the term x^d.
constexpr std::uint32_t CRC32PowerOfX(unsigned n) {
  const std::uint32_t polynomial = CRC32Polynomial();
  std::uint32_t value = std::uint32_t{1} << 31;  // x^0
  for (unsigned i = 0; i < n; ++i) value = CRC32TimesX(value, polynomial);
  return value;
}

// A constant for the carry-less multiply of a reflected 64-bit operand:
// x^n modulo the generator in the high half of 64 bits (bit 63 - d holds
// x^d). Since the reflected product of two 64-bit operands comes out one
// degree higher than the plain product, multiplying by
// CRC32FoldConstant(n - 1) multiplies by x^n.
constexpr std::uint64_t CRC32FoldConstant(unsigned n) {
  return std::uint64_t{CRC32PowerOfX(n)} << 32;
}

enum class CRC32Kernel {
  kTable,     // one byte at a time through the byte table
  kSliceBy8,  // eight bytes at a time through eight tables; any processor
  kPCLMUL,    // 128-bit carry-less multiply (x86 PCLMULQDQ with SSE4.1)
  kVPCLMUL,   // 512-bit carry-less multiply (x86 VPCLMULQDQ with AVX-512F)
};

// Whether this processor (and system) runs `kernel`.
bool CRC32KernelSupported(CRC32Kernel kernel);
// The fastest kernel this processor runs; chosen once.
CRC32Kernel BestCRC32Kernel();
const char* CRC32KernelName(CRC32Kernel kernel);

// The state after `count` bytes at `data`, through the best kernel.
std::uint32_t UpdateCRC32(std::uint32_t state, const unsigned char* data, std::size_t count);
// The same through `kernel`, which must be supported.
std::uint32_t UpdateCRC32With(CRC32Kernel kernel, std::uint32_t state, const unsigned char* data,
                              std::size_t count);

// The kernels, one file each. Those for x86 may be called only where
// CRC32KernelSupported says so.
std::uint32_t UpdateCRC32Table(std::uint32_t state, const unsigned char* data, std::size_t count);
std::uint32_t UpdateCRC32SliceBy8(std::uint32_t state, const unsigned char* data,
                                  std::size_t count);
std::uint32_t UpdateCRC32PCLMUL(std::uint32_t state, const unsigned char* data, std::size_t count);
std::uint32_t UpdateCRC32VPCLMUL(std::uint32_t state, const unsigned char* data, std::size_t count);

// The end of the PCLMUL kernel, for kernels that fold wider: `folded` is a
// 16-byte remainder that, followed by the `count` bytes at `rest`, stands for
// the whole message with its state applied; at least 16 bytes of the same
// buffer must lie before `rest`. Returns the state after the message.
std::uint32_t FinishCRC32PCLMUL(const unsigned char* folded, const unsigned char* rest,
                                std::size_t count);

}  // namespace tvxcore::filesupport::internal
