// The case table behind utility::LowerCase and its relatives: for every code
// unit of the Basic Multilingual Plane its lower, upper and folded forms, and
// whether it is a row of the table at all. The data is generated from the
// Unicode Character Database by tools/unicode/gen_case_tables.py into
// CaseTables.cpp; it is constant data, so it needs no building and no lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::internal {

enum CaseForm : unsigned { kCaseLower = 0, kCaseUpper = 1, kCaseFold = 2, kCaseFormCount = 3 };

extern const char kCaseTablesUnicodeVersion[];
extern const std::size_t kCaseTableRowCount;

// entry = kCaseStage2[kCaseStage1[form][unit >> 8] + (unit & 0xFF)]; the form
// is the single unit (unit + entry) mod 0x10000 unless that lands on a
// surrogate: then, for a unit that is not itself a surrogate, it is the
// expansion at kCaseExpansions[mapped - 0xD800] (a length, then the units).
extern const std::uint16_t kCaseStage1[kCaseFormCount][256];
extern const std::uint16_t kCaseStage2[];
extern const UTF16Char kCaseExpansions[];

// Bit (unit & 7) of kCaseRowStage2[kCaseRowStage1[unit >> 8] + ((unit & 0xFF) >> 3)]
// is set for the units that are rows of the table.
extern const std::uint16_t kCaseRowStage1[256];
extern const std::uint8_t kCaseRowStage2[];

constexpr bool IsSurrogateUnit(UTF16Char inUnit) { return (inUnit & 0xF800) == 0xD800; }

// The raw mapped unit; see above for how to read a surrogate result.
inline UTF16Char MapCaseUnit(UTF16Char inUnit, CaseForm inForm) {
  return static_cast<UTF16Char>(inUnit +
                                kCaseStage2[kCaseStage1[inForm][inUnit >> 8] + (inUnit & 0xFF)]);
}

inline bool IsCaseTableRow(UTF16Char inUnit) {
  return (kCaseRowStage2[kCaseRowStage1[inUnit >> 8] + ((inUnit & 0xFF) >> 3)] >> (inUnit & 7)) & 1;
}

// The form of one unit as a pointer and a length into static data or into
// `outSingle`; never fails.
inline const UTF16Char* CaseFormOf(UTF16Char inUnit, CaseForm inForm, UTF16Char& outSingle,
                                   std::size_t& outLength) {
  UTF16Char mapped = MapCaseUnit(inUnit, inForm);
  if (!IsSurrogateUnit(mapped) || IsSurrogateUnit(inUnit)) {
    outSingle = mapped;
    outLength = 1;
    return &outSingle;
  }
  const UTF16Char* expansion = kCaseExpansions + (mapped - 0xD800);
  outLength = expansion[0];
  return expansion + 1;
}

}  // namespace tvxcore::utility::internal
