// diagnostics/internal/DatabaseText.h: the text forms of "Trace Database.txt"
// and "Debug Database.txt".
//
// Readers take any bytes and keep what they can understand; each says
// whether it understood everything, so that the caller keeps a copy of a
// damaged file before saving over it. Writers leave out what could not be
// read back as it stands, so every file written reads back to the records
// it was written from.
#pragma once

#include <cstdint>
#include <map>
#include <string_view>

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::debug::internal {

// One trace category.
struct TraceRecord {
  bool enabled = true;
  std::int32_t volume = 5;
};

using TraceRecords = std::map<UTF8String, TraceRecord>;

// Reads trace database text into `out`: one record a line, the category, a
// tab, the enabled field, a tab, the volume and a line end ("\n" or "\r\n").
// A field is read as C's atoi would (leading blanks, a sign, digits; 0 when
// there are none or the number leaves 32 bits), and enabled is true only for
// the number 1. A later line for a category replaces an earlier one; an empty
// line is skipped, and so is a line without a tab; a category ends at its
// first zero byte. Returns false when anything was lost on the way: a
// skipped line that was not empty, a field with more than its number, a
// missing field, a cut category, a repeated one.
bool ReadTraceRecords(std::string_view text, TraceRecords& out);

// Appends the line of one record. A category holding a tab or a line feed
// would not read back and is left out (false).
bool AppendTraceRecord(UTF8String& out, const UTF8String& category, const TraceRecord& record);

// One setting of the debug database.
struct DebugEntry {
  UTF8String value;
  UTF8String defaultValue;
};

using DebugEntries = std::map<UTF8String, DebugEntry>;

// Reads debug database text into `out`: the text up to its first zero byte,
// one entry a line ("\n"), fields split at tabs and each trimmed of the
// classic locale's white space (blanks, tabs, CR, LF, VT, FF); the key, the
// value and the default, which is empty when the line has only two fields. A
// line with fewer than two fields is skipped; a later line for a key
// replaces an earlier one. Returns false when anything was lost: bytes after
// a zero byte, a skipped line that was not blank, a fourth field, a repeated
// key.
bool ReadDebugEntries(std::string_view text, DebugEntries& out);

// Appends the line of one entry, "key\tvalue\tdefault\r\n", each field trimmed
// as the reader trims. An entry with a tab or line feed inside a field would
// not read back and is left out (false).
bool AppendDebugEntry(UTF8String& out, const UTF8String& key, const DebugEntry& entry);

}  // namespace tvxcore::debug::internal
