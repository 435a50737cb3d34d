// tvxcore/debug/Assert.h: failed assertions shown to a developer, who decides
// what happens next (break, go on, silence one site or all, kill the
// process); the lighter contract dialog; the switch that sends assertion text
// to standard output for unattended runs; and whether a debugger is attached.
//
// The dialog is a window (zenity or kdialog) when a display is there, else a
// prompt on the controlling terminal. Any thread may assert: the dialog runs
// on the calling thread and blocks only that thread. The process-wide flags
// here are single bytes, safe to read and write from any thread.
#pragma once

#include "tvxcore/Export.h"

namespace tvxcore::debug {

// What DisplayAssert answers: the button the developer chose.
enum AssertResult : long {
  kAssertResult_NotShown = -1,       // no dialog could be shown, or none was answered
  kAssertResult_Debug = 0,           // "Debug": the caller breaks
  kAssertResult_KillProcess = 1,     // "Kill Process" (never returned: the process ends)
  kAssertResult_DisableAsserts = 2,  // "Disable Asserts": no dialog from now on
  kAssertResult_IgnoreOnce = 3,      // "Ignore Once"
  kAssertResult_IgnoreAlways = 4,    // "Ignore Always": this site stays silent
};

// Offers a failed assertion to the developer. A site whose `ioIgnore` is
// already true shows nothing and gets false. Otherwise the text
//   [<message>\r\n\r\n]Expression: ...\r\nProcess: ...\r\nProcess ID: ...\r\n
//   Thread ID: ...\r\nThread Name: ...\r\nFile: ...\r\nLine: ...\r\n
//   Function: ...\r\n
// goes to DisplayAssert under the title "Debug Assert failed!". "Ignore
// Always" and "Disable Asserts" set `ioIgnore`. Returns true only for
// "Debug": the site holds the break, so a debugger stops at the failing
// line. Null texts count as empty.
TVXCORE_EXPORT bool BreakAfterAssertDialog(bool& ioIgnore, const char* inExpression,
                                           const unsigned char* inMessage, const char* inFile,
                                           long inLine, const char* inFunction);
TVXCORE_EXPORT bool BreakAfterAssertDialog(bool& ioIgnore, const char* inExpression,
                                           const char* inMessage, const char* inFile, long inLine,
                                           const char* inFunction);

// Shows `inText` (UTF-8) under `inTitle` and returns the AssertResult of the
// button chosen. The text is traced first (category "Assert", volume 0).
// In standard-output mode the text is written to standard output instead,
// and the answer is kAssertResult_IgnoreOnce. Otherwise, unless "Disable
// Asserts" or "Kill Process" was chosen before (then the answer is
// kAssertResult_IgnoreOnce and nothing is shown), the dialog runs guarded
// against machine exceptions and its answer takes effect:
//   Kill Process     assertions are disabled and the process ends with
//                    status 255 at once;
//   Disable Asserts  assertions are disabled for the process;
//   not answered     the process breaks into the debugger when one is
//                    attached, and goes on otherwise.
// "Copy" puts the text on the clipboard (on a terminal: writes it again) and
// keeps asking. While the fault-signal handlers are installed
// (tvxcore/utility/MachineExceptions.h), a fault inside the dialog goes to
// the machine-exception filter, and the answer is kAssertResult_NotShown.
TVXCORE_EXPORT long DisplayAssert(const char* inTitle, const unsigned char* inText);
TVXCORE_EXPORT long DisplayAssert(const char* inTitle, const char* inText);

// Offers a violated contract: unless the contract dialog is disabled, shows
// "[<file>-<line>]\r\n" with utility::ThreadSafeMessageDialog (in
// standard-output mode: writes it to standard output). Always returns false,
// so a contract failure never breaks through this call; the expression is not
// shown.
TVXCORE_EXPORT bool BreakAfterContractDialog(const char* inExpression, const char* inFile,
                                             long inLine);
// The contract dialog is enabled until the first DisableContractDialog.
TVXCORE_EXPORT void DisableContractDialog();
TVXCORE_EXPORT void EnableContractDialog();

// Standard-output mode: assertion text goes to standard output instead of a
// dialog. Until it is set, the mode is decided on first use by whether the
// environment variable TVX_USE_STDOUT exists, whatever its value (even
// empty). Setting it decides it for good: the environment is not read again.
TVXCORE_EXPORT void SetAssertWriteToStdOut(bool inWriteToStdOut);

// Switches standard-output mode for a scope and puts the previous mode back
// when it ends. The default form turns the mode on.
class TVXCORE_EXPORT ScAssertToStdOut {
 public:
  ScAssertToStdOut();
  explicit ScAssertToStdOut(bool inWriteToStdOut);
  ~ScAssertToStdOut();
  ScAssertToStdOut(const ScAssertToStdOut&) = delete;
  ScAssertToStdOut& operator=(const ScAssertToStdOut&) = delete;

 private:
  bool saved_;
};

// True when a debugger (any tracer) is attached to the process.
TVXCORE_EXPORT bool IsDebuggerAttached();

}  // namespace tvxcore::debug

namespace tvxcore::utility {

// Shows `inText` (UTF-8) to the user from any thread: a window that waits for
// OK when a display is there, else a few lines on the controlling terminal
// (without waiting); without either, nothing is shown. Null shows nothing.
TVXCORE_EXPORT void ThreadSafeMessageDialog(const char* inText);

}  // namespace tvxcore::utility
