// Case conversion over the generated case table (see internal/CaseTables.h).
//
// The mapping loop writes one unit per input unit until it meets a unit whose
// form is longer than one unit; only then does the result have to grow. Runs
// of ASCII are converted eight units at a time with plain 64-bit arithmetic.

#include "tvxcore/utility/CaseMapping.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "utility/internal/CaseTables.h"

namespace tvxcore::utility {
namespace {

using internal::CaseForm;
using internal::IsSurrogateUnit;
using internal::kCaseFold;
using internal::kCaseLower;
using internal::kCaseUpper;

constexpr UTF16Char kApostrophe = 0x0027;
constexpr std::uint64_t kLanes = 0x0001000100010001ULL;
constexpr std::uint64_t kNonAsciiBits = 0xFF80 * kLanes;

// Four ASCII units in one word: flips bit 0x20 of every unit of the letters
// that the form changes. No lane can carry into the next since every unit is
// below 0x80 and the sums stay below 0x100.
template <CaseForm Form>
inline std::uint64_t MapAsciiLanes(std::uint64_t inWord) {
  constexpr std::uint64_t first = Form == kCaseUpper ? 'a' : 'A';
  const std::uint64_t atOrAboveFirst = inWord + (0x80 - first) * kLanes;
  const std::uint64_t aboveLast = inWord + (0x80 - (first + 26)) * kLanes;
  const std::uint64_t letters = atOrAboveFirst & ~aboveLast & (0x0080 * kLanes);
  return inWord ^ (letters >> 2);
}

// Maps `inCount` units from `inSource` to `outDest` (which may be the same
// place) until the first unit whose form is longer than one unit. Returns the
// number of units written, `inCount` when there was no such unit.
template <CaseForm Form>
std::size_t MapSingleUnits(const UTF16Char* inSource, UTF16Char* outDest, std::size_t inCount) {
  std::size_t i = 0;
  while (i < inCount) {
    if (inCount - i >= 8) {
      std::uint64_t words[2];
      std::memcpy(words, inSource + i, sizeof words);
      if (((words[0] | words[1]) & kNonAsciiBits) == 0) {
        words[0] = MapAsciiLanes<Form>(words[0]);
        words[1] = MapAsciiLanes<Form>(words[1]);
        std::memcpy(outDest + i, words, sizeof words);
        i += 8;
        continue;
      }
    }
    const std::size_t end = std::min(inCount, i + 8);
    for (; i < end; ++i) {
      const UTF16Char unit = inSource[i];
      const UTF16Char mapped = internal::MapCaseUnit(unit, Form);
      if (IsSurrogateUnit(mapped) && !IsSurrogateUnit(unit)) return i;
      outDest[i] = mapped;
    }
  }
  return inCount;
}

// Appends the forms of `inCount` units at `inSource` to `ioResult`.
// `inSource` must not point into `ioResult`.
template <CaseForm Form>
void AppendMapped(UTF16String& ioResult, const UTF16Char* inSource, std::size_t inCount) {
  std::size_t pos = ioResult.size();
  // A little room beyond one unit per unit, so that the odd longer form in a
  // short text does not move the text at once.
  ioResult.reserve(pos + inCount + inCount / 16 + 4);
  ioResult.resize(pos + inCount);
  std::size_t i = 0;
  for (;;) {
    const std::size_t done = MapSingleUnits<Form>(inSource + i, ioResult.data() + pos, inCount - i);
    pos += done;
    i += done;
    if (i == inCount) break;
    UTF16Char single;
    std::size_t length;
    const UTF16Char* form = internal::CaseFormOf(inSource[i], Form, single, length);
    ++i;
    const std::size_t needed = pos + length + (inCount - i);
    if (needed > ioResult.size())
      ioResult.resize(std::max(needed, ioResult.size() + ioResult.size() / 2));
    std::copy_n(form, length, ioResult.data() + pos);
    pos += length;
  }
  ioResult.resize(pos);
}

template <CaseForm Form>
UTF16String Mapped(const UTF16String& inText) {
  UTF16String result;
  AppendMapped<Form>(result, inText.data(), inText.size());
  return result;
}

template <CaseForm Form>
void MapInPlace(UTF16String& ioText) {
  const std::size_t count = ioText.size();
  const std::size_t done = MapSingleUnits<Form>(ioText.data(), ioText.data(), count);
  if (done == count) return;
  const UTF16String rest(ioText, done);
  ioText.resize(done);
  AppendMapped<Form>(ioText, rest.data(), rest.size());
}

}  // namespace

UTF16String LowerCase(const UTF16String& inText) { return Mapped<kCaseLower>(inText); }
UTF16String UpperCase(const UTF16String& inText) { return Mapped<kCaseUpper>(inText); }
UTF16String FoldCase(const UTF16String& inText) { return Mapped<kCaseFold>(inText); }

void ToLowerCase(UTF16String& ioText) { MapInPlace<kCaseLower>(ioText); }
void ToUpperCase(UTF16String& ioText) { MapInPlace<kCaseUpper>(ioText); }
void ToFoldCase(UTF16String& ioText) { MapInPlace<kCaseFold>(ioText); }

UTF16String TitleCase(const UTF16String& inText) {
  UTF16String result(inText);
  ToTitleCase(result);
  return result;
}

void ToTitleCase(UTF16String& ioText) {
  if (ioText.empty()) return;
  bool atWordStart = true;
  // Read once: a longer form inserted below shifts the rest of the text, and
  // the units pushed past this length are deliberately left as they are.
  const std::size_t length = ioText.size();
  for (std::size_t i = 0; i < length; ++i) {
    const UTF16Char unit = ioText[i];
    if (internal::IsCaseTableRow(unit)) {
      UTF16Char single;
      std::size_t formLength;
      const UTF16Char* form =
          internal::CaseFormOf(unit, atWordStart ? kCaseUpper : kCaseLower, single, formLength);
      if (formLength == 1)
        ioText[i] = *form;
      else
        ioText.replace(i, 1, form, formLength);
      atWordStart = false;
    } else {
      atWordStart = unit != kApostrophe;
    }
    // An apostrophe behind a letter stays inside the word ("don't"); behind
    // anything else, or at the start, it opens one ("'tis").
    if (ioText[i] == kApostrophe && (i == 0 || !internal::IsCaseTableRow(ioText[i - 1])))
      atWordStart = true;
  }
}

}  // namespace tvxcore::utility
