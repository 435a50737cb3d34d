#include "HostServices.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <memory>
#include <new>
#include <sstream>

#include "Host.h"
#include "tvxcore/Locale.h"
#include "tvxcore/ZString.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/debug/TraceHandlers.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/FileExceptionText.h"
#include "tvxcore/threads/EventLoop.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "tvxcore/xml/ExpatParser.h"

namespace tvxhost {
namespace {

std::string Unescape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      char next = text[i + 1];
      if (next == 'n' || next == 't' || next == '\\') {
        out += next == 'n' ? '\n' : next == 't' ? '\t' : '\\';
        ++i;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

tvxcore::UTF16String FromUtf8(const std::string& text) {
  return tvxcore::utility::UTF8to16(tvxcore::UTF8String(text.begin(), text.end()));
}

void AppendHex(std::string& out, unsigned value) {
  static const char kHex[] = "0123456789abcdef";
  out += "\\x";
  out += kHex[(value >> 4) & 15];
  out += kHex[value & 15];
}

HostErrorManager& Manager() {
  static HostErrorManager manager;
  return manager;
}

// The trace handler chain, built from the debug settings at start-up.
std::unique_ptr<tvxcore::debug::TraceHandlerInstaller>& InstalledTraceHandlers() {
  static std::unique_ptr<tvxcore::debug::TraceHandlerInstaller> installer;
  return installer;
}

bool IsEnglish(const std::string& language) {
  return language.empty() || language == "en" || language.rfind("en_", 0) == 0 ||
         language.rfind("en-", 0) == 0;
}

}  // namespace

std::string ToUtf8(const tvxcore::UTF16String& text, bool escapeControls) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[++i] - 0xDC00);
    } else if (c >= 0xDC80 && c <= 0xDCFF) {
      AppendHex(out, c - 0xDC00);  // a byte of a native name that isn't UTF-8
      continue;
    } else if (c >= 0xD800 && c <= 0xDFFF) {
      c = 0xFFFD;
    }
    if (escapeControls && (c < 0x20 || c == 0x7F)) {
      AppendHex(out, c);
    } else if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::string Localized(const char* literal, const tvxcore::UTF16String& at0,
                      const tvxcore::UTF16String& at1) {
  return ToUtf8(tvxcore::ZString(literal, at0, at1), true);
}

std::string DescribeFailure(const std::exception& error) {
  tvxcore::UTF16String text;
  if (tvxcore::filesupport::LocalizedMessage(error, text)) return ToUtf8(text, true);
  if (dynamic_cast<const HostError*>(&error) != nullptr) {
    const auto& host = static_cast<const HostError&>(error);
    return (host.level == tvxcore::config::kErrorLevel_Fatal ? "fatal error: " : "") +
           std::string(host.what());
  }
  if (dynamic_cast<const Failure*>(&error) != nullptr) return error.what();
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "out of memory";
  if (dynamic_cast<const tvxcore::filesupport::byte_stream_exception*>(&error) != nullptr)
    return "a stream failed to read or write";
  return std::string("internal error: ") + error.what();
}

std::string HumanBytes(unsigned long long bytes) {
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  double value = static_cast<double>(bytes) / 1024;
  int unit = 0;
  while (value >= 1024 && unit < 5) {
    value /= 1024;
    ++unit;
  }
  std::ostringstream out;
  out << std::fixed << std::setprecision(1) << value << ' ' << kUnits[unit];
  return out.str();
}

void PrintError(const std::string& text) { std::cerr << "tvxhost: " << text << std::endl; }

void PrintVerbose(const std::string& text) {
  if (GetOptions().verbose) std::cerr << "tvxhost: " << text << std::endl;
}

void PrintWarning(const std::string& text) {
  std::cerr << "tvxhost: warning: " << text << std::endl;
}

void HostErrorManager::ReportError(tvxcore::config::ErrorLevel inLevel, const char* inKey,
                                   std::uint32_t inModule, std::int32_t inErrorNumber,
                                   bool inRecordable,
                                   const tvxcore::config::ReplacementValue& inValue1,
                                   const tvxcore::config::ReplacementValue& inValue2,
                                   const tvxcore::config::ReplacementValue& inValue3,
                                   const tvxcore::config::ReplacementValue& inValue4) {
  const std::string text = ToUtf8(
      tvxcore::config::SubstituteErrorMessage(inKey, inValue1, inValue2, inValue3, inValue4), true);
  const bool fatal = inLevel == tvxcore::config::kErrorLevel_Fatal;
  if (fatal || !IsErrorReportingDeferred()) throw HostError(text, inLevel, inModule, inErrorNumber);
  // A deferred error is shown when it happens. Its reporter records it first
  // (its count goes up), so a recordable report that finds the count at zero
  // is the reporter's Finish handing back the last one: already shown.
  const tvxcore::config::DeferredErrorReporter* reporter = GetCurrentErrorReporterForThisThread();
  if (inRecordable && reporter != nullptr && reporter->GetErrorCount() == 0) return;
  PrintError(text + " (deferred)");
}

long HostErrorManager::ExecuteFunctionWithTopLevelExceptionHandler(
    boost::function0<long> inFunction) {
  try {
    return inFunction();
  } catch (const HostError& error) {
    PrintError(DescribeFailure(error));
    return 1;
  }
}

tvxcore::UTF16String DictionaryLocalizer::Translate(const char* inKey) {
  const std::string literal = inKey ? inKey : "";
  const auto equals = literal.find('=');
  const auto it = entries_.find(literal.substr(0, equals));
  if (it != entries_.end()) return FromUtf8(it->second);
  return FromUtf8(equals == std::string::npos ? literal : literal.substr(equals + 1));
}

void DictionaryLocalizer::LoadDictionary(const tvxcore::UTF16String& inPath) {
  const std::string base = ToUtf8(inPath);
  std::vector<std::string> candidates = {base, base + ".txt"};
  // "tvx_de_AT" falls back to "tvx_de".
  const auto slash = base.rfind('/');
  const auto region =
      base.find_first_of("_-", base.find("tvx_", slash == base.npos ? 0 : slash) + 4);
  if (region != std::string::npos) candidates.push_back(base.substr(0, region) + ".txt");
  for (const std::string& path : candidates) {
    std::ifstream file(path, std::ios::binary);
    if (!file) continue;
    std::string line;
    while (std::getline(file, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      const auto first = line.find_first_not_of(" \t");
      if (first == std::string::npos || line[first] == '#') continue;
      const auto equals = line.find('=');
      if (equals == std::string::npos) continue;
      entries_[line.substr(first, equals - first)] = Unescape(line.substr(equals + 1));
    }
    loadedFile_ = path;
    return;
  }
}

// The main thread's adaptor, kept from start-up to shutdown: the thread is
// registered while it is held.
boost::shared_ptr<tvxcore::threads::AsyncEventLoopAdaptor>& MainThread() {
  static boost::shared_ptr<tvxcore::threads::AsyncEventLoopAdaptor> adaptor;
  return adaptor;
}

DictionaryLocalizer& GetHostLocalizer() {
  static DictionaryLocalizer localizer;
  return localizer;
}

void StartHostServices() {
  tvxcore::config::ErrorManager::Set(&Manager());
  PrintVerbose("start-up 1/6: error manager installed");
  const std::string& language = GetOptions().language;
  tvxcore::Locale::Initialize(FromUtf8(language));
  tvxcore::config::Localizer::Set(&GetHostLocalizer());
  if (!IsEnglish(language) && GetHostLocalizer().LoadedFile().empty())
    PrintWarning("no dictionary for the language '" + language + "'; texts stay in English");
  PrintVerbose("start-up 2/6: locale and localizer installed (dictionary " +
               (GetHostLocalizer().LoadedFile().empty() ? std::string("none, English texts")
                                                        : GetHostLocalizer().LoadedFile()) +
               ")");
  // From here on the preferences folder may be used: trace and debug
  // settings, the console log and the console's history.
  tvxcore::config::SetCompanyName(u"tvxcore");
  tvxcore::config::SetClientInternalVersion(u"1");
  tvxcore::config::SetClientName(u"tvxhost");
  PrintVerbose("start-up 3/6: client name tvxhost (company tvxcore, internal version 1)");
  InstalledTraceHandlers() = std::make_unique<tvxcore::debug::TraceHandlerInstaller>();
  PrintVerbose(
      "start-up 4/6: trace handler installed (the chain the debug settings ask for, then the "
      "debugger's output and the console log)");
  MainThread() = tvxcore::threads::RegisterCurrentThreadAsMainThread();
  PrintVerbose("start-up 5/6: main thread " +
               std::to_string(tvxcore::threads::GetCurrentThreadID()) +
               " registered (commands run from its event loop)");
  // Property lists and every other XML text are read through expat.
  std::unique_ptr<tvxcore::xml::DocParserFactory> factory =
      std::make_unique<tvxcore::xml::ExpatParserFactory>();
  tvxcore::xml::SetParserFactory(factory);
  PrintVerbose("start-up 6/6: XML parser factory installed (expat)");
}

void StopHostServices() {
  tvxcore::xml::ResetParserFactory();
  PrintVerbose("shutdown 1/6: XML parser factory removed");
  MainThread().reset();
  PrintVerbose("shutdown 2/6: main thread released");
  InstalledTraceHandlers().reset();
  PrintVerbose("shutdown 3/6: trace handler removed");
  tvxcore::debug::ShutdownTraceManager();
  tvxcore::console::ConsoleLogFile::Terminate();
  PrintVerbose("shutdown 4/6: trace settings saved, console log closed");
  tvxcore::config::Localizer::Set(nullptr);
  PrintVerbose("shutdown 5/6: localizer removed");
  PrintVerbose("shutdown 6/6: error manager removed");
  tvxcore::config::ErrorManager::Set(nullptr);
}

int RunOnMainThreadLoop(const std::function<int()>& command) {
  const auto& main = MainThread();
  int status = kExitFailure;
  std::exception_ptr failure;
  const auto call = [&] {
    try {
      status = command();
    } catch (...) {
      failure = std::current_exception();
    }
    tvxcore::threads::QuitPlatformEventLoop();
  };
  if (!main || !main->CallAsynchronously(call, 0)) return command();
  tvxcore::threads::RunPlatformEventLoop();
  if (failure) std::rethrow_exception(failure);
  return status;
}

void ServeMainThreadCalls() {
  if (MainThread()) MainThread()->RunQueuedFunctions();
}

}  // namespace tvxhost

namespace tvxhost {
namespace {

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

Progress::Progress(std::string label) : label_(std::move(label)), started_(Now()) {}

Progress::~Progress() {
  if (drawn_ >= 0) std::cerr << '\r' << std::string(label_.size() + 6, ' ') << '\r' << std::flush;
}

void Progress::Update(double fraction) {
  const double now = Now();
  if (now - started_ < 0.5 || (drawn_ >= 0 && now - drawn_ < 0.1)) return;
  drawn_ = now;
  const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100);
  std::cerr << '\r' << label_ << ' ' << std::setw(3) << percent << '%' << std::flush;
}

}  // namespace tvxhost
