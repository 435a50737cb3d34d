// Number formatting and parsing for the library's UTF-16 and UTF-8 streams.
//
// The standard library formats numbers for a character type through the
// num_put and num_get facets of the stream's locale, and its own versions of
// those lean on ctype and numpunct of the same character type, which it
// provides for char and wchar_t only. Rather than supply those (which would
// mean defining members of standard classes), the facets here are the
// library's own classes, derived from num_put and num_get as the standard
// intends, that do their work with the narrow facets of the classic locale
// and widen or narrow one unit at a time. The results are exactly those of a
// narrow stream in the classic locale: "." as the decimal point, no grouping,
// "true" and "false".
#include "utility/internal/TextFacets.h"

#include <ios>
#include <iterator>
#include <sstream>

#include "tvxcore/Locale.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::internal {
namespace {

// Handed to the narrow formatter as the fill character and replaced by the
// stream's own fill on the way out; no formatted number contains it.
constexpr char kFillMark = '\0';
// What a unit outside ASCII reads as: no number contains it either.
constexpr char kForeignUnit = '\x7F';

// Writes each narrow character as one unit of the wide stream.
template <typename C>
class WideningIterator {
 public:
  using iterator_category = std::output_iterator_tag;
  using value_type = void;
  using difference_type = std::ptrdiff_t;
  using pointer = void;
  using reference = void;

  WideningIterator(std::ostreambuf_iterator<C> out, C fill) : out_(out), fill_(fill) {}

  WideningIterator& operator=(char c) {
    *out_ = c == kFillMark ? fill_ : static_cast<C>(static_cast<unsigned char>(c));
    ++out_;
    return *this;
  }
  WideningIterator& operator*() { return *this; }
  WideningIterator& operator++() { return *this; }
  WideningIterator& operator++(int) { return *this; }

  std::ostreambuf_iterator<C> base() const { return out_; }

 private:
  std::ostreambuf_iterator<C> out_;
  C fill_;
};

// A narrow facet the library keeps for the whole process, outside any locale.
template <typename Facet>
struct Kept final : Facet {
  Kept() : Facet(1) {}
  ~Kept() override = default;
};

// Reads each unit of the wide stream as a narrow character.
template <typename C>
class NarrowingIterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = char;
  using difference_type = std::ptrdiff_t;
  using pointer = const char*;
  using reference = char;

  explicit NarrowingIterator(std::istreambuf_iterator<C> in) : in_(in) {}

  char operator*() const {
    const C c = *in_;
    return static_cast<unsigned>(c) < 0x80 ? static_cast<char>(c) : kForeignUnit;
  }
  NarrowingIterator& operator++() {
    ++in_;
    return *this;
  }
  NarrowingIterator operator++(int) {
    NarrowingIterator before = *this;
    ++in_;
    return before;
  }
  bool operator==(const NarrowingIterator& other) const { return in_ == other.in_; }

  std::istreambuf_iterator<C> base() const { return in_; }

 private:
  std::istreambuf_iterator<C> in_;
};

// A narrow stream in the classic locale, per thread, whose flags, precision
// and width are set from the wide stream for each number. The narrow facets
// read only those from it.
std::ios_base& NarrowFormat(const std::ios_base& wide) {
  thread_local std::ostringstream narrow = [] {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    return stream;
  }();
  narrow.flags(wide.flags());
  narrow.precision(wide.precision());
  narrow.width(wide.width());
  return narrow;
}

template <typename C>
class TextNumPut final : public std::num_put<C> {
 public:
  using Iter = std::ostreambuf_iterator<C>;

 protected:
  Iter do_put(Iter out, std::ios_base& io, C fill, bool v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, long v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, unsigned long v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, long long v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, unsigned long long v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, double v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, long double v) const override {
    return Put(out, io, fill, v);
  }
  Iter do_put(Iter out, std::ios_base& io, C fill, const void* v) const override {
    return Put(out, io, fill, v);
  }

 private:
  using Narrow = std::num_put<char, WideningIterator<C>>;

  template <typename V>
  static Iter Put(Iter out, std::ios_base& io, C fill, V v) {
    static const Kept<Narrow> facet;
    const WideningIterator<C> end =
        facet.put(WideningIterator<C>(out, fill), NarrowFormat(io), kFillMark, v);
    io.width(0);
    return end.base();
  }
};

template <typename C>
class TextNumGet final : public std::num_get<C> {
 public:
  using Iter = std::istreambuf_iterator<C>;

 protected:
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              bool& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              long& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              unsigned short& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              unsigned int& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              unsigned long& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              long long& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              unsigned long long& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              float& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              double& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              long double& v) const override {
    return Get(in, end, io, err, v);
  }
  Iter do_get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err,
              void*& v) const override {
    return Get(in, end, io, err, v);
  }

 private:
  using Narrow = std::num_get<char, NarrowingIterator<C>>;

  static bool IsSpace(C c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

  // The library's streams leave skipws clear (skipping would need a ctype
  // facet for the unit type), so white space before a number is skipped here.
  // Nothing but white space then reads as no number: 0, eofbit and failbit
  // (where a narrow stream's skipping would fail first and leave the value).
  template <typename V>
  static Iter Get(Iter in, Iter end, std::ios_base& io, std::ios_base::iostate& err, V& v) {
    while (in != end && IsSpace(*in)) ++in;
    static const Kept<Narrow> facet;
    return facet.get(NarrowingIterator<C>(in), NarrowingIterator<C>(end), NarrowFormat(io), err, v)
        .base();
  }
};

template <typename C>
std::locale AddFacets(const std::locale& base) {
  return std::locale(std::locale(base, new TextNumPut<C>), new TextNumGet<C>);
}

}  // namespace

std::locale WithTextFacets(const std::locale& base) {
  return AddFacets<UTF8Char>(AddFacets<UTF16Char>(base));
}

const std::locale& DefaultStreamLocale() { return Locale::Default(); }

}  // namespace tvxcore::utility::internal
