#include "utility/internal/TextFacets.h"

#include "tvxcore/utility/StringTypes.h"

// The standard library declares these members of its facet templates for any
// character type but defines them only for char and wchar_t. The facets below
// override every virtual function, so the generic data these members would set
// up is never used.
namespace std {
template <>
ctype<tvxcore::UTF16Char>::~ctype() {}
template <>
ctype<tvxcore::UTF8Char>::~ctype() {}
_GLIBCXX_BEGIN_NAMESPACE_CXX11
template <>
void numpunct<tvxcore::UTF16Char>::_M_initialize_numpunct(__c_locale) {
  _M_data = nullptr;
}
template <>
numpunct<tvxcore::UTF16Char>::~numpunct() {}
template <>
void numpunct<tvxcore::UTF8Char>::_M_initialize_numpunct(__c_locale) {
  _M_data = nullptr;
}
template <>
numpunct<tvxcore::UTF8Char>::~numpunct() {}
_GLIBCXX_END_NAMESPACE_CXX11
}  // namespace std

namespace tvxcore::utility::internal {
namespace {

const std::ctype<char>& NarrowCType() {
  return std::use_facet<std::ctype<char>>(std::locale::classic());
}

template <typename C>
class TextCType final : public std::ctype<C> {
 public:
  using typename std::ctype<C>::mask;
  TextCType() : std::ctype<C>(std::size_t{0}) {}

 protected:
  static bool Ascii(C c) { return static_cast<unsigned>(c) < 0x80; }
  bool do_is(mask m, C c) const override {
    return Ascii(c) && NarrowCType().is(m, static_cast<char>(c));
  }
  const C* do_is(const C* lo, const C* hi, mask* out) const override {
    const mask* table = NarrowCType().table();
    for (; lo < hi; ++lo, ++out)
      *out = Ascii(*lo) ? table[static_cast<unsigned char>(*lo)] : mask();
    return hi;
  }
  const C* do_scan_is(mask m, const C* lo, const C* hi) const override {
    while (lo < hi && !do_is(m, *lo)) ++lo;
    return lo;
  }
  const C* do_scan_not(mask m, const C* lo, const C* hi) const override {
    while (lo < hi && do_is(m, *lo)) ++lo;
    return lo;
  }
  C do_toupper(C c) const override { return (c >= 'a' && c <= 'z') ? static_cast<C>(c - 32) : c; }
  const C* do_toupper(C* lo, const C* hi) const override {
    for (; lo < hi; ++lo) *lo = do_toupper(*lo);
    return hi;
  }
  C do_tolower(C c) const override { return (c >= 'A' && c <= 'Z') ? static_cast<C>(c + 32) : c; }
  const C* do_tolower(C* lo, const C* hi) const override {
    for (; lo < hi; ++lo) *lo = do_tolower(*lo);
    return hi;
  }
  C do_widen(char c) const override { return static_cast<C>(static_cast<unsigned char>(c)); }
  const char* do_widen(const char* lo, const char* hi, C* out) const override {
    for (; lo < hi; ++lo, ++out) *out = do_widen(*lo);
    return hi;
  }
  char do_narrow(C c, char fallback) const override {
    return Ascii(c) ? static_cast<char>(c) : fallback;
  }
  const C* do_narrow(const C* lo, const C* hi, char fallback, char* out) const override {
    for (; lo < hi; ++lo, ++out) *out = do_narrow(*lo, fallback);
    return hi;
  }
};

template <typename C>
std::basic_string<C> Widen(const char* text) {
  std::basic_string<C> s;
  for (; *text; ++text) s.push_back(static_cast<C>(*text));
  return s;
}

template <typename C>
class TextNumPunct final : public std::numpunct<C> {
 public:
  TextNumPunct() : std::numpunct<C>(std::size_t{0}) {}

 protected:
  C do_decimal_point() const override { return static_cast<C>('.'); }
  C do_thousands_sep() const override { return static_cast<C>(','); }
  std::string do_grouping() const override { return std::string(); }
  std::basic_string<C> do_truename() const override { return Widen<C>("true"); }
  std::basic_string<C> do_falsename() const override { return Widen<C>("false"); }
};

template <typename C>
std::locale AddFacets(std::locale base) {
  base = std::locale(base, new TextCType<C>);
  base = std::locale(base, new TextNumPunct<C>);
  base = std::locale(base, new std::num_put<C>);
  return std::locale(base, new std::num_get<C>);
}

}  // namespace

std::locale WithTextFacets(const std::locale& base) {
  return AddFacets<UTF8Char>(AddFacets<UTF16Char>(base));
}

const std::locale& DefaultStreamLocale() {
  static const std::locale locale = WithTextFacets(std::locale::classic());
  return locale;
}

}  // namespace tvxcore::utility::internal
