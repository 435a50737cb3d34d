// What the trace handlers read from outside: the clocks and the debug
// database's switches. The clocks can be replaced, so that the library's
// own tests decide what time it is.
#pragma once

#include <cstdint>
#include <string>

#include <boost/date_time/posix_time/ptime.hpp>

namespace tvxcore::debug::internal {

using TraceClock = boost::posix_time::ptime (*)();

// The time now in UTC and in local time, with microseconds.
boost::posix_time::ptime UniversalTimeNow();
boost::posix_time::ptime LocalTimeNow();

// Replaces the clocks behind the two functions above; null restores the
// system's. For tests: not meant to change while handlers write.
void SetTraceClocks(TraceClock inUniversal, TraceClock inLocal);

// The local date's day number (days since the start of the Julian period).
std::uint32_t LocalDayNumber();

// "2026-11-13T09:19:30.123456": date, "T", time of day, six digits of
// fraction, always.
std::string IsoExtendedText(const boost::posix_time::ptime& inTime);

// A switch of the debug database, asked with the default "false": on when
// its value is "true" or "1".
bool ReadTraceSwitch(const char* inKey);

// What a rolling handler does, as the debug database says.
struct RollingSettings {
  bool bySize = false;
  std::uint32_t maxSize = 0;  // cut to RollingTraceHandler::kMaxLogSizeLimit
  bool daily = false;
};
RollingSettings ReadRollingSettings();

}  // namespace tvxcore::debug::internal
