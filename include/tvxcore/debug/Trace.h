// tvxcore/debug/Trace.h: which trace categories are on, and how loud.
//
// Code asks whether a named category is on at a volume and, if it is, hands
// a finished line to debug::Trace (tvxcore/debug/TraceHandler.h). A line's
// volume says how unimportant it is: it passes when it is at or below both
// the master volume and its category's volume, and both are enabled. A new
// category is enabled at volume 5, the master at volume 10, so lines of
// volume 0 to 5 appear until someone says otherwise.
//
// The settings live in "Trace Database.txt" in filesupport::Dir::PrefDir(),
// one line a category: the name, a tab, 1 (enabled) or another number
// (disabled), a tab, the volume. The master is the line named "Master".
// Until config::SetClientName has run, no file is touched: every question
// gets the default answer and changes are not kept. After it, the file is
// read at the first question, and every change rewrites it at once (by a
// safe save) unless SetDisableFileWrites(true). A file that can't be read is
// never written over; one that was damaged is kept as "Trace Database.txt.old"
// before the first save. Failures are silent: trace never reports through
// config::ThrowError. Only std::bad_alloc leaves these functions.
//
// A quiet tracing site costs one integer compare:
//
//   if (TVX_TRACE_ENABLED("Render", 3)) debug::TraceLine("Render", 3, text);
//   TVX_TRACE("Render", 3, text);   // the same
//
// Thread-safety: every function may be called from any thread. One lock
// guards the settings; the master record and the change counter are read
// without it.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/debug/SafeTraceStream.h"
#include "tvxcore/debug/TraceHandler.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::debug {

// Whether a line of `inVolume` in `inCategory` passes. Loads the master
// record on first use; a category not yet known answers with its default
// and, with `inCreate`, is recorded (and the file saved), which is how
// categories come to be listed. With the master disabled or below
// `inVolume`, no category is read or made. Returns false when called again
// from inside itself on the same thread (a handler or file code that
// traces).
TVXCORE_EXPORT bool TraceEnabled(unsigned char const* inCategory, long inVolume, bool inCreate);
TVXCORE_EXPORT bool TraceEnabled(char const* inCategory, long inVolume, bool inCreate);

namespace internal {
// The change counter behind TraceChangeCount(). Raised under the trace lock
// by every change of a record; never 0, so that a site's first look always
// asks. Read it through TraceChangeCount().
TVXCORE_EXPORT extern std::atomic<std::uint32_t> traceChangeCount;
}  // namespace internal

// The change counter: it moves whenever a record changes (a volume set, a
// category made), so a site that has seen the same count before may keep its
// last answer.
inline int TraceChangeCount() {
  return static_cast<int>(internal::traceChangeCount.load(std::memory_order_relaxed));
}

// A category's volume (default 5); asking makes the category.
TVXCORE_EXPORT long GetTraceVolume(unsigned char const* inCategory);
TVXCORE_EXPORT long GetTraceVolume(char const* inCategory);
// Sets a category's volume, keeping whether it is enabled. Volumes are 32
// bits; a value outside is cut to the nearest one.
TVXCORE_EXPORT void SetTraceVolume(unsigned char const* inCategory, long inVolume);
TVXCORE_EXPORT void SetTraceVolume(char const* inCategory, long inVolume);

// The master volume. The master record is read from the settings once per
// process (at the first question, also one asked before the client name was
// set, which fixes the default); after that only SetMasterTraceVolume
// changes it.
TVXCORE_EXPORT long GetMasterTraceVolume();
TVXCORE_EXPORT void SetMasterTraceVolume(long inVolume);

// Replaces the content of `outCategories` with every recorded category,
// "Master" included once it is recorded, in byte order. Empty until the
// client name is set.
TVXCORE_EXPORT void GetTraceCategories(std::list<UTF8String>& outCategories);

// Saves the settings and forgets them; the next question reads the file
// anew. The master record stays as loaded. Call it at shutdown.
TVXCORE_EXPORT void ShutdownTraceManager();

// The global write switch: while true, changes are kept in memory only. The
// debug database (DebugDatabase.h) obeys it too.
TVXCORE_EXPORT void SetDisableFileWrites(bool inDisable);
TVXCORE_EXPORT bool GetDisableFileWrites();

// The cached answer of one tracing site, for one category at one volume. A
// constant-initialised static: TVX_TRACE_ENABLED makes one per site. The
// answer is asked again only after the change counter moved. The state holds
// the change count seen last and, above its 32 bits, the answer then: a
// quiet site is one load of its state, one of the counter and one compare.
// Safe on any thread: the count and the answer are one atomic value.
class TraceSite {
 public:
  constexpr TraceSite() = default;
  TraceSite(const TraceSite&) = delete;
  TraceSite& operator=(const TraceSite&) = delete;

  TVX_ALWAYS_INLINE bool Enabled(char const* inCategory, long inVolume) {
    const std::uint64_t state = state_.load(std::memory_order_relaxed);
    const std::uint64_t count = internal::traceChangeCount.load(std::memory_order_relaxed);
    if (state == count) [[likely]]
      return false;
    if (state == (count | kOn)) return true;
    return Refresh(inCategory, inVolume, static_cast<std::uint32_t>(count));
  }

 private:
  static constexpr std::uint64_t kOn = std::uint64_t{1} << 32;

  TVXCORE_EXPORT TVX_NOINLINE bool Refresh(char const* inCategory, long inVolume,
                                           std::uint32_t inCount);

  std::atomic<std::uint64_t> state_{0};
};

}  // namespace tvxcore::debug

// Whether a line of `volume` in `category` (a text literal or a pointer that
// stays the same) passes, cached at this site until the change counter moves.
#define TVX_TRACE_ENABLED(category, volume)                    \
  ([]() -> ::tvxcore::debug::TraceSite& {                      \
    static constinit ::tvxcore::debug::TraceSite tvxTraceSite; \
    return tvxTraceSite;                                       \
  }()                                                          \
               .Enabled((category), (volume)))

// Traces `message` (a std::string) in the standard line form when this site
// passes.
#define TVX_TRACE(category, volume, message)                        \
  do {                                                              \
    if (TVX_TRACE_ENABLED(category, volume))                        \
      ::tvxcore::debug::TraceLine((category), (volume), (message)); \
  } while (0)
