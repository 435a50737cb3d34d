// The command table, the line parser and the tokenizer of the console.
#include "tvxcore/console/Console.h"

#include <map>
#include <memory>

#include "base/NoDestructor.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::console {
namespace {

constexpr UTF16Char kBlanks[] = u" \t";

struct Entry {
  UTF16String help;
  std::unique_ptr<Command> command;
};

class Table {
 public:
  threads::BoostRecursiveMutex mutex;
  std::map<UTF16String, Entry> entries TVX_GUARDED_BY(mutex);
};

Table& Commands() {
  static base::NoDestructor<Table> table;
  return *table;
}

UTF16String Trimmed(const UTF16String& text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == UTF16String::npos) return UTF16String();
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

Command::~Command() = default;

namespace CommandRegistry {

void RegisterCommand(UTF16String const& inName, UTF16String const& inHelp, Command* inCommand) {
  std::unique_ptr<Command> owned(inCommand);
  if (inName.empty() || !owned) return;
  Table& table = Commands();
  std::unique_ptr<Command> replaced;
  threads::CheckedLock lock(table.mutex);
  Entry& entry = table.entries[inName];
  replaced = std::move(entry.command);
  entry.help = inHelp;
  entry.command = std::move(owned);
}

Command* UnregisterCommand(UTF16String const& inName) {
  Table& table = Commands();
  threads::CheckedLock lock(table.mutex);
  const auto it = table.entries.find(inName);
  if (it == table.entries.end()) return nullptr;
  Command* command = it->second.command.release();
  table.entries.erase(it);
  return command;
}

void GetCommandNames(std::list<UTF16String>& outNames) {
  std::list<UTF16String> names;
  Table& table = Commands();
  {
    threads::CheckedLock lock(table.mutex);
    for (const auto& [name, entry] : table.entries) names.push_back(name);
  }
  outNames.swap(names);
}

}  // namespace CommandRegistry

bool ExecuteCommand(UTF16String const& inLine, UTF16OutputStream& inOutput) {
  // Only a blank ends the name: "trace.get\tFoo" is one (unknown) name.
  const auto blank = inLine.find(u' ');
  const UTF16String name = Trimmed(inLine.substr(0, blank));
  if (name.empty()) return false;
  const UTF16String arguments =
      blank == UTF16String::npos ? UTF16String() : Trimmed(inLine.substr(blank + 1));
  Table& table = Commands();
  threads::CheckedLock lock(table.mutex);
  const auto it = table.entries.find(name);
  if (it == table.entries.end()) return false;
  it->second.command->Execute(arguments, inOutput);
  inOutput.flush();
  return true;
}

void ListCommands(UTF16OutputStream& inOutput) {
  Table& table = Commands();
  threads::CheckedLock lock(table.mutex);
  inOutput << u"Currently installed commands." << u'\n';
  for (const auto& [name, entry] : table.entries) inOutput << entry.help << u'\n';
  inOutput.flush();
}

Tokenizer::Tokenizer(UTF16String const& inSource, UTF16String const& inDelimiters,
                     bool inSkipRepeated)
    : source_(inSource), delimiters_(inDelimiters), position_(0), skipRepeated_(inSkipRepeated) {
  if (skipRepeated_) SkipDelimiters();
}

void Tokenizer::SkipDelimiters() { position_ = source_.find_first_not_of(delimiters_, position_); }

UTF16String Tokenizer::NextToken() {
  if (position_ == kNone) return UTF16String();
  const auto end = source_.find_first_of(delimiters_, position_);
  UTF16String token = source_.substr(position_, end == kNone ? kNone : end - position_);
  if (end == kNone) {
    position_ = kNone;
  } else {
    position_ = end + 1;
    if (skipRepeated_) SkipDelimiters();
  }
  return token;
}

UTF16String Tokenizer::Rest() const {
  return position_ == kNone ? UTF16String() : source_.substr(position_);
}

}  // namespace tvxcore::console
