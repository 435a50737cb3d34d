// tvxcore/console/Console.h: text commands that change diagnostic settings
// while the program runs ("trace.set Render 9").
//
// The library keeps one table of commands by name. console::Initialize
// registers its own (trace.*, debug.*, filesupport.*); a host adds its own
// with CommandRegistry::RegisterCommand and feeds lines it reads from a
// person to ExecuteCommand. The console user interface is the host's.
//
// Thread-safety: every function may be called from any thread. One lock
// guards the table and is held while a command runs, so a command may
// itself list or run commands, and a command is never removed while it
// runs. Commands run on the caller's thread.
#pragma once

#include <list>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/utility/TextStreams.h"

namespace tvxcore::console {

using utility::UTF16OutputStream;

// One command. Execute receives everything after the command's name, with
// blanks and tabs cut from both ends, and divides it as it likes (Tokenizer
// helps). A command never throws for bad arguments: it prints what it can.
class TVXCORE_EXPORT Command {
 public:
  virtual ~Command();
  virtual void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) = 0;
};

namespace CommandRegistry {
// Adds `inCommand` under `inName` (matched exactly, case included) with its
// one-line help text. The table owns the command from now on; a command
// already under the name is replaced and destroyed. A null command or an
// empty name is refused (and nothing is owned).
TVXCORE_EXPORT void RegisterCommand(UTF16String const& inName, UTF16String const& inHelp,
                                    Command* inCommand);
// Takes the command out of the table and hands it back, the caller now
// owning it; null when no command has the name.
TVXCORE_EXPORT Command* UnregisterCommand(UTF16String const& inName);
// Replaces the content of `outNames` with the name of every command, in
// code-unit order (what a completion list offers).
TVXCORE_EXPORT void GetCommandNames(std::list<UTF16String>& outNames);
}  // namespace CommandRegistry

// Registers the library's commands. Calling it again changes nothing.
TVXCORE_EXPORT void Initialize();
// Removes and destroys the library's commands; a host's own stay.
TVXCORE_EXPORT void Terminate();

// Runs one command line: the name is the text before the first blank (a tab
// does not end it), the rest is the argument text, and blanks and tabs are
// cut from both ends of each. An empty or unknown name runs nothing and
// writes nothing. The output is flushed after the command. Returns whether
// a command ran.
TVXCORE_EXPORT bool ExecuteCommand(UTF16String const& inLine, UTF16OutputStream& inOutput);

// Writes "Currently installed commands." and then the help text of every
// command, one a line, in name order.
TVXCORE_EXPORT void ListCommands(UTF16OutputStream& inOutput);

// Divides a text at any of a set of delimiters, one piece a call. The
// tokenizer keeps a copy of the text; it never throws for any content.
//
//   Tokenizer words(u"a  b", u" \t", true);   // "a", "b", then the end
//   Tokenizer cells(u"a,,b", u",", false);    // "a", "", "b"
//
// Without `inSkipRepeated`, each delimiter ends one piece, so a text that
// ends in a delimiter has an empty last piece. With it, runs of delimiters
// count as one and delimiters at the start and the end give no piece.
class TVXCORE_EXPORT Tokenizer {
 public:
  static constexpr UTF16String::size_type kNone = UTF16String::npos;

  Tokenizer(UTF16String const& inSource, UTF16String const& inDelimiters, bool inSkipRepeated);

  // The text from the position to the next delimiter (or to the end), and
  // moves past that delimiter. At the end it returns an empty text.
  UTF16String NextToken();
  // Where the next piece starts; kNone once every piece has been returned.
  UTF16String::size_type Position() const { return position_; }
  bool AtEnd() const { return position_ == kNone; }
  // The text from the position to the end, as it stands: what a command
  // takes as "the rest" (a value with blanks in it).
  UTF16String Rest() const;

 private:
  void SkipDelimiters();

  UTF16String source_;
  UTF16String delimiters_;
  UTF16String::size_type position_;
  bool skipRepeated_;
};

}  // namespace tvxcore::console
