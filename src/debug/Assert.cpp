// The assertion dialog, the contract dialog and the standard-output switch.
// Diagnostics never report through config::ThrowError: a failure here is
// swallowed, and the assertion goes on as if ignored once.
#include "tvxcore/debug/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "debug/internal/DebugTraceText.h"
#include "debug/internal/DebuggerSeams.h"
#include "platform/Dialog.h"
#include "platform/HostInfo.h"
#include "platform/Signals.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/MachineExceptions.h"

namespace tvxcore::debug {
namespace {

// Set by "Disable Asserts" and "Kill Process"; never cleared.
std::atomic<bool> g_assertionsDisabled{false};
std::atomic<bool> g_contractDialogEnabled{true};

enum class StdOutMode : unsigned char { kUndecided, kOff, kOn };
std::atomic<StdOutMode> g_stdOutMode{StdOutMode::kUndecided};

bool WritesToStdOut() {
  StdOutMode mode = g_stdOutMode.load(std::memory_order_relaxed);
  if (mode == StdOutMode::kUndecided) {
    const StdOutMode fromEnvironment =
        platform::HasEnvironmentVariable("TVX_USE_STDOUT") ? StdOutMode::kOn : StdOutMode::kOff;
    // A racing SetAssertWriteToStdOut wins over the environment.
    if (g_stdOutMode.compare_exchange_strong(mode, fromEnvironment, std::memory_order_relaxed))
      mode = fromEnvironment;
  }
  return mode == StdOutMode::kOn;
}

void WriteToStdOut(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (text.empty() || text.back() != '\n') std::fputc('\n', stdout);
  std::fflush(stdout);
}

// The buttons in the order of their control identifiers (14200 to 14205),
// with the answer each gives.
struct AssertButton {
  const char* label;
  char key;
  long result;
};
constexpr AssertButton kButtons[] = {
    {"Debug", 'd', kAssertResult_Debug},
    {"Ignore Once", 'i', kAssertResult_IgnoreOnce},
    {"Ignore Always", 'a', kAssertResult_IgnoreAlways},
    {"Disable Asserts", 's', kAssertResult_DisableAsserts},
    {"Kill Process", 'k', kAssertResult_KillProcess},
    {"Copy", 'c', kAssertResult_NotShown},
};
constexpr int kDefaultButton = 1;  // Ignore Once: a stray Enter neither breaks nor kills
constexpr int kCopyButton = 5;

// The trace line of an assertion: "<thread> <Assert> <0> " and the text.
void TraceAssertText(const std::string& text) {
  std::string line = "<";
  line += std::to_string(threads::GetCurrentThreadID());
  line += "> <Assert> <0> ";
  line += text;
  if (line.back() != '\n') line += '\n';
  internal::DebugTraceText(UTF8String(line.begin(), line.end()));
}

struct DialogCall {
  const std::string* title;
  const std::string* text;
  long result;
};

// The guarded call: shows the dialog, unless assertions are disabled, and
// acts on the answer.
void RunAssertDialog(void* context) {
  DialogCall& call = *static_cast<DialogCall*>(context);
  if (g_assertionsDisabled.load(std::memory_order_relaxed)) {
    call.result = kAssertResult_IgnoreOnce;
    return;
  }
  std::vector<platform::DialogButton> buttons;
  for (const AssertButton& button : kButtons) buttons.push_back({button.label, button.key});
  const int chosen =
      platform::ShowChoiceDialog(*call.title, *call.text, buttons, kDefaultButton, kCopyButton);
  call.result = chosen >= 0 ? kButtons[chosen].result : kAssertResult_NotShown;
  switch (call.result) {
    case kAssertResult_KillProcess:
      g_assertionsDisabled.store(true, std::memory_order_relaxed);
      platform::TerminateCurrentProcess();
    case kAssertResult_DisableAsserts:
      g_assertionsDisabled.store(true, std::memory_order_relaxed);
      break;
    case kAssertResult_Debug:
    case kAssertResult_IgnoreOnce:
    case kAssertResult_IgnoreAlways:
      break;
    default:
      if (IsDebuggerAttached()) internal::BreakIntoDebugger();
      break;
  }
}

bool FilterDialogFault(std::uint32_t inCode, void*) {
  return utility::exceptions::InternalHiddenFilterWindowsSEHException(
             inCode, "debug/src/DefaultAssert", 149, "tvxcore::debug::DisplayAssert") == 1;
}

std::string Text(const char* text) { return text ? text : ""; }

}  // namespace

bool BreakAfterAssertDialog(bool& ioIgnore, const char* inExpression,
                            const unsigned char* inMessage, const char* inFile, long inLine,
                            const char* inFunction) {
  if (ioIgnore) return false;
  std::string text;
  const char* message = reinterpret_cast<const char*>(inMessage);
  if (message && *message) text.append(message).append("\r\n\r\n");
  text.append("Expression: ").append(Text(inExpression)).append("\r\n");
  text.append("Process: ").append(platform::ProcessName()).append("\r\n");
  text.append("Process ID: ").append(std::to_string(threads::GetCurrentProcessID())).append("\r\n");
  text.append("Thread ID: ").append(std::to_string(threads::GetCurrentThreadID())).append("\r\n");
  text.append("Thread Name: ").append(platform::CurrentThreadName()).append("\r\n");
  text.append("File: ").append(Text(inFile)).append("\r\n");
  text.append("Line: ").append(std::to_string(inLine)).append("\r\n");
  text.append("Function: ").append(Text(inFunction)).append("\r\n");
  const long result =
      DisplayAssert("Debug Assert failed!", reinterpret_cast<const unsigned char*>(text.c_str()));
  if (result == kAssertResult_IgnoreAlways || result == kAssertResult_DisableAsserts)
    ioIgnore = true;
  return result == kAssertResult_Debug;
}

bool BreakAfterAssertDialog(bool& ioIgnore, const char* inExpression, const char* inMessage,
                            const char* inFile, long inLine, const char* inFunction) {
  return BreakAfterAssertDialog(ioIgnore, inExpression,
                                reinterpret_cast<const unsigned char*>(inMessage), inFile, inLine,
                                inFunction);
}

long DisplayAssert(const char* inTitle, const unsigned char* inText) {
  const std::string title = Text(inTitle);
  const std::string text = Text(reinterpret_cast<const char*>(inText));
  TraceAssertText(text);
  if (WritesToStdOut()) {
    WriteToStdOut(text);
    return kAssertResult_IgnoreOnce;
  }
  DialogCall call{&title, &text, kAssertResult_NotShown};
  if (!platform::RunGuarded(&RunAssertDialog, &call, &FilterDialogFault, nullptr))
    return kAssertResult_NotShown;
  return call.result;
}

long DisplayAssert(const char* inTitle, const char* inText) {
  return DisplayAssert(inTitle, reinterpret_cast<const unsigned char*>(inText));
}

bool BreakAfterContractDialog(const char*, const char* inFile, long inLine) {
  if (g_contractDialogEnabled.load(std::memory_order_relaxed)) {
    std::string text = "[";
    text += Text(inFile);
    text += '-';
    text += std::to_string(inLine);
    text += "]\r\n";
    if (WritesToStdOut()) {
      WriteToStdOut(text);
    } else {
      utility::ThreadSafeMessageDialog(text.c_str());
    }
  }
  return false;
}

void DisableContractDialog() { g_contractDialogEnabled.store(false, std::memory_order_relaxed); }
void EnableContractDialog() { g_contractDialogEnabled.store(true, std::memory_order_relaxed); }

void SetAssertWriteToStdOut(bool inWriteToStdOut) {
  g_stdOutMode.store(inWriteToStdOut ? StdOutMode::kOn : StdOutMode::kOff,
                     std::memory_order_relaxed);
}

ScAssertToStdOut::ScAssertToStdOut() : saved_(WritesToStdOut()) { SetAssertWriteToStdOut(true); }
ScAssertToStdOut::ScAssertToStdOut(bool inWriteToStdOut) : saved_(WritesToStdOut()) {
  SetAssertWriteToStdOut(inWriteToStdOut);
}
ScAssertToStdOut::~ScAssertToStdOut() { SetAssertWriteToStdOut(saved_); }

}  // namespace tvxcore::debug

namespace tvxcore::utility {

void ThreadSafeMessageDialog(const char* inText) {
  if (!inText) return;
  platform::ShowMessageDialog(platform::ProcessName(), inText);
}

}  // namespace tvxcore::utility
