#include "utility/internal/TextFacets.h"

#include "tvxcore/utility/StringTypes.h"

// The standard library declares its ctype and numpunct facets for any
// character type but defines their members only for char and wchar_t. These
// definitions complete them for UTF16Char and UTF8Char: characters outside
// ASCII belong to no class and narrow to the default. numpunct's own data is
// never used, because the facet installed below overrides every accessor.
namespace tvxcore::utility::internal {
namespace {

const std::ctype<char>& NarrowCType() {
  return std::use_facet<std::ctype<char>>(std::locale::classic());
}
template <typename C>
bool IsAscii(C c) {
  return static_cast<unsigned>(c) < 0x80;
}

}  // namespace
}  // namespace tvxcore::utility::internal

#define TVX_DEFINE_CTYPE(C)                                                                    \
  template <>                                                                                  \
  ctype<C>::~ctype() {}                                                                        \
  template <>                                                                                  \
  bool ctype<C>::do_is(mask m, C c) const {                                                    \
    return tvxcore::utility::internal::IsAscii(c) &&                                           \
           tvxcore::utility::internal::NarrowCType().is(m, static_cast<char>(c));              \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_is(const C* lo, const C* hi, mask* out) const {                        \
    const mask* table = tvxcore::utility::internal::NarrowCType().table();                     \
    for (; lo < hi; ++lo, ++out)                                                               \
      *out = tvxcore::utility::internal::IsAscii(*lo) ? table[static_cast<unsigned char>(*lo)] \
                                                      : mask();                                \
    return hi;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_scan_is(mask m, const C* lo, const C* hi) const {                      \
    while (lo < hi && !do_is(m, *lo)) ++lo;                                                    \
    return lo;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_scan_not(mask m, const C* lo, const C* hi) const {                     \
    while (lo < hi && do_is(m, *lo)) ++lo;                                                     \
    return lo;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  C ctype<C>::do_toupper(C c) const {                                                          \
    return (c >= 'a' && c <= 'z') ? static_cast<C>(c - 32) : c;                                \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_toupper(C* lo, const C* hi) const {                                    \
    for (; lo < hi; ++lo) *lo = do_toupper(*lo);                                               \
    return hi;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  C ctype<C>::do_tolower(C c) const {                                                          \
    return (c >= 'A' && c <= 'Z') ? static_cast<C>(c + 32) : c;                                \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_tolower(C* lo, const C* hi) const {                                    \
    for (; lo < hi; ++lo) *lo = do_tolower(*lo);                                               \
    return hi;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  C ctype<C>::do_widen(char c) const {                                                         \
    return static_cast<C>(static_cast<unsigned char>(c));                                      \
  }                                                                                            \
  template <>                                                                                  \
  const char* ctype<C>::do_widen(const char* lo, const char* hi, C* out) const {               \
    for (; lo < hi; ++lo, ++out) *out = do_widen(*lo);                                         \
    return hi;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  char ctype<C>::do_narrow(C c, char fallback) const {                                         \
    return tvxcore::utility::internal::IsAscii(c) ? static_cast<char>(c) : fallback;           \
  }                                                                                            \
  template <>                                                                                  \
  const C* ctype<C>::do_narrow(const C* lo, const C* hi, char fallback, char* out) const {     \
    for (; lo < hi; ++lo, ++out) *out = do_narrow(*lo, fallback);                              \
    return hi;                                                                                 \
  }                                                                                            \
  template <>                                                                                  \
  void numpunct<C>::_M_initialize_numpunct(__c_locale) {                                       \
    _M_data = nullptr;                                                                         \
  }                                                                                            \
  template <>                                                                                  \
  numpunct<C>::~numpunct() {}

namespace std {
TVX_DEFINE_CTYPE(char16_t)
TVX_DEFINE_CTYPE(unsigned char)
}  // namespace std
#undef TVX_DEFINE_CTYPE

namespace tvxcore::utility::internal {
namespace {

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
  base = std::locale(base, new std::ctype<C>);
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
