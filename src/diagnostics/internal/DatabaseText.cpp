#include "diagnostics/internal/DatabaseText.h"

#include <limits>

namespace tvxcore::debug::internal {
namespace {

// The white space of the classic locale.
bool IsSpace(unsigned char byte) {
  return byte == ' ' || byte == '\t' || byte == '\n' || byte == '\v' || byte == '\f' ||
         byte == '\r';
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsSpace(static_cast<unsigned char>(text.front()))) text.remove_prefix(1);
  while (!text.empty() && IsSpace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return text;
}

// The number a field starts with, as atoi reads it; `outClean` says whether
// the field held that number and white space only.
std::int32_t ReadNumber(std::string_view field, bool& outClean) {
  std::size_t i = 0;
  while (i < field.size() && IsSpace(static_cast<unsigned char>(field[i]))) ++i;
  bool negative = false;
  if (i < field.size() && (field[i] == '+' || field[i] == '-')) negative = field[i++] == '-';
  const std::size_t firstDigit = i;
  long long value = 0;
  bool overflow = false;
  for (; i < field.size() && field[i] >= '0' && field[i] <= '9'; ++i) {
    value = value * 10 + (field[i] - '0');
    if (value > static_cast<long long>(std::numeric_limits<std::int32_t>::max()) + 1) {
      overflow = true;
      value = 0;
    }
  }
  if (negative) value = -value;
  if (value > std::numeric_limits<std::int32_t>::max()) overflow = true;
  outClean = i > firstDigit && !overflow && Trim(field.substr(i)).empty();
  if (overflow) return 0;
  return static_cast<std::int32_t>(value);
}

// The next line of `text` without its "\n"; `text` moves past it.
std::string_view NextLine(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

UTF8String ToUTF8(std::string_view text) {
  return UTF8String(reinterpret_cast<const UTF8Char*>(text.data()), text.size());
}

bool Writable(const UTF8String& field) {
  return field.find('\t') == UTF8String::npos && field.find('\n') == UTF8String::npos;
}

void Append(UTF8String& out, std::string_view text) {
  out.append(reinterpret_cast<const UTF8Char*>(text.data()), text.size());
}

std::string_view View(const UTF8String& text) {
  return std::string_view(reinterpret_cast<const char*>(text.data()), text.size());
}

}  // namespace

bool ReadTraceRecords(std::string_view text, TraceRecords& out) {
  bool whole = true;
  while (!text.empty()) {
    const std::string_view line = NextLine(text);
    const std::size_t tab = line.find('\t');
    if (tab == std::string_view::npos) {
      whole = whole && Trim(line).empty();
      continue;
    }
    std::string_view category = line.substr(0, tab);
    const std::size_t zero = category.find('\0');
    if (zero != std::string_view::npos) {
      category = category.substr(0, zero);
      whole = false;
    }
    const std::string_view rest = line.substr(tab + 1);
    const std::size_t secondTab = rest.find('\t');
    bool enabledClean = false;
    bool volumeClean = false;
    TraceRecord record;
    record.enabled = ReadNumber(rest.substr(0, secondTab), enabledClean) == 1;
    record.volume = secondTab == std::string_view::npos
                        ? 0
                        : ReadNumber(rest.substr(secondTab + 1), volumeClean);
    whole = whole && enabledClean && volumeClean;
    const bool added = out.insert_or_assign(ToUTF8(category), record).second;
    whole = whole && added;
  }
  return whole;
}

bool AppendTraceRecord(UTF8String& out, const UTF8String& category, const TraceRecord& record) {
  if (!Writable(category)) return false;
  out += category;
  Append(out, record.enabled ? "\t1\t" : "\t0\t");
  Append(out, std::to_string(record.volume));
  out.push_back('\n');
  return true;
}

bool ReadDebugEntries(std::string_view text, DebugEntries& out) {
  bool whole = true;
  const std::size_t zero = text.find('\0');
  if (zero != std::string_view::npos) {
    whole = text.find_first_not_of('\0', zero) == std::string_view::npos;
    text = text.substr(0, zero);
  }
  while (!text.empty()) {
    std::string_view line = NextLine(text);
    std::string_view fields[3];
    std::size_t count = 0;
    for (;;) {
      const std::size_t tab = line.find('\t');
      if (count < 3) fields[count] = Trim(line.substr(0, tab));
      ++count;
      if (tab == std::string_view::npos) break;
      line.remove_prefix(tab + 1);
    }
    if (count < 2) {
      whole = whole && fields[0].empty();
      continue;
    }
    whole = whole && count <= 3;
    DebugEntry entry{ToUTF8(fields[1]), count > 2 ? ToUTF8(fields[2]) : UTF8String()};
    const bool added = out.insert_or_assign(ToUTF8(fields[0]), std::move(entry)).second;
    whole = whole && added;
  }
  return whole;
}

bool AppendDebugEntry(UTF8String& out, const UTF8String& key, const DebugEntry& entry) {
  if (!Writable(key) || !Writable(entry.value) || !Writable(entry.defaultValue)) return false;
  Append(out, Trim(View(key)));
  out.push_back('\t');
  Append(out, Trim(View(entry.value)));
  out.push_back('\t');
  Append(out, Trim(View(entry.defaultValue)));
  Append(out, "\r\n");
  return true;
}

}  // namespace tvxcore::debug::internal
