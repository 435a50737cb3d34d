// tvxhost copy: a file copied in the background through utility::BinaryCopier
// with the library's file source and sink, with a progress bar, pause and
// resume on a key, and Ctrl-C to cancel.

#include <histedit.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include <boost/make_shared.hpp>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "Interrupts.h"
#include "tvxcore/filesupport/FileCopyStreams.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/threads/EventLoop.h"

namespace tvxhost {
namespace {

using namespace tvxcore;
using tvxcore::utility::BinaryCopier;

constexpr char kIsADirectory[] =
    "$$$/tvxhost/copy/IsADirectory='@0' is a directory: give the path of the file to write.";
constexpr char kSameFile[] = "$$$/tvxhost/copy/SameFile='@0' and '@1' are the same file.";
constexpr char kCancelled[] = "$$$/tvxhost/copy/Cancelled=copy cancelled";

// Whether the descriptor is a terminal: on Linux it names a character
// device (/dev/pts/N, /dev/ttyN) other than the null device.
bool IsTerminal(int fd) {
  std::error_code failed;
  const std::filesystem::path path =
      std::filesystem::canonical("/proc/self/fd/" + std::to_string(fd), failed);
  return !failed && path != "/dev/null" && std::filesystem::is_character_file(path, failed);
}

// Single keys from a terminal on standard input while the copy runs: the
// terminal is put into the line editor's character mode, and given back.
class KeyReader {
 public:
  KeyReader() : editLine_(el_init("tvxhost", stdin, stdout, stderr)) {
    if (editLine_ != nullptr) el_set(editLine_, EL_PREP_TERM, 1);
  }
  ~KeyReader() {
    if (editLine_ == nullptr) return;
    el_set(editLine_, EL_PREP_TERM, 0);
    el_end(editLine_);
  }
  KeyReader(const KeyReader&) = delete;
  KeyReader& operator=(const KeyReader&) = delete;

  bool Ready() const { return editLine_ != nullptr; }
  // The next key; 0 at the end of the input.
  char Next() {
    char key = 0;
    return el_getc(editLine_, &key) == 1 ? key : 0;
  }

 private:
  EditLine* editLine_;
};

std::string Duration(double seconds) {
  const long total = static_cast<long>(seconds + 0.5);
  std::ostringstream out;
  out << total / 60 << ':' << std::setw(2) << std::setfill('0') << total % 60;
  return out.str();
}

// The words for a platform error code that the library's exception leaves
// out; empty when it says enough.
std::string Reason(int code) {
  switch (code) {
    case 5:
      return "Access was denied.";
    case 32:
    case 33:
      return "Another program has the file locked.";
    case 112:
      return "The disk is full.";
    case 1117:
      return "An input or output error occurred.";
    case 123:
    case 206:
      return "The name is not valid.";
    case 0:
    case 2:
    case 3:
      return "";
    default:
      return "System error " + std::to_string(code) + ".";
  }
}

// What the end that failed says, with the reason in words.
std::string Explain(std::exception_ptr error, int code) {
  std::string text = "the copy failed";
  try {
    if (error) std::rethrow_exception(error);
  } catch (const std::exception& failure) {
    text = DescribeFailure(failure);
  }
  const std::string reason = Reason(code);
  return reason.empty() || text.find(reason) != std::string::npos ? text : text + " " + reason;
}

// The state of one copy as the main thread sees it.
struct Watch {
  std::atomic<unsigned long long> written{0};
  std::atomic<bool> ended{false};
  std::atomic<int> state{BinaryCopier::State_NotStarted};
  boost::optional<unsigned long long> total;
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
  bool terminal = false;
  bool paused = false;
  std::size_t drawn = 0;  // the width of the line on the screen

  double Elapsed() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  }

  void Draw() {
    if (!terminal) return;
    const unsigned long long done = written;
    const double seconds = std::max(Elapsed(), 1e-3);
    const double rate = static_cast<double>(done) / seconds;
    std::ostringstream line;
    if (total && *total > 0) {
      const double fraction =
          std::min(1.0, static_cast<double>(done) / static_cast<double>(*total));
      const int filled = static_cast<int>(fraction * 20);
      line << '[' << std::string(filled, '#') << std::string(20 - filled, ' ') << "] "
           << std::setw(3) << static_cast<int>(fraction * 100) << "%  ";
    }
    line << HumanBytes(done);
    if (total) line << " of " << HumanBytes(*total);
    line << "  " << HumanBytes(static_cast<unsigned long long>(rate)) << "/s";
    if (paused) {
      line << "  paused (p to resume)";
    } else if (total && rate > 0 && *total > done) {
      line << "  " << Duration(static_cast<double>(*total - done) / rate) << " left";
    }
    std::string text = line.str();
    const std::size_t width = text.size();
    if (width < drawn) text += std::string(drawn - width, ' ');
    drawn = width;
    std::cerr << '\r' << text << std::flush;
  }

  void Wipe() {
    if (drawn > 0) std::cerr << '\r' << std::string(drawn, ' ') << '\r' << std::flush;
    drawn = 0;
  }
};

int Copy(const Args& raw) {
  const ArgList args(raw, {}, {"<from>", "<to>"});
  const UTF16String from = PathArg(args[0], "<from>");
  const UTF16String to = PathArg(args[1], "<to>");
  RequireFile(from);
  if (filesupport::Dir(to).Exists()) throw Failure(Localized(kIsADirectory, to));
  if (filesupport::File(to).Exists()) {
    std::error_code ignored;
    if (std::filesystem::equivalent(filesupport::File(from).FullPathMultiByte(),
                                    filesupport::File(to).FullPathMultiByte(), ignored))
      throw Failure(Localized(kSameFile, from, to));
  }

  auto source = filesupport::FileCopySource::Create(filesupport::File(from));
  auto sink = filesupport::FileCopySink::Create(filesupport::File(to));
  auto watch = boost::make_shared<Watch>();
  watch->terminal = IsTerminal(2);
  watch->total = source->GetSize();
  auto copier = BinaryCopier::CreateBinaryCopier(
      source, sink,
      [watch](BinaryCopier::State state) {
        watch->state = state;
        watch->ended = true;
        threads::AsyncCallFromMainThread([] { threads::QuitPlatformEventLoop(); });
      },
      [watch](unsigned long long written, boost::optional<unsigned long long> const&) {
        watch->written = written;
      });

  const InterruptGuard interrupts;
  std::unique_ptr<KeyReader> keys;
  boost::shared_ptr<void> keyWatch;
  const auto togglePause = [watch, copier] {
    watch->paused = !watch->paused;
    if (watch->paused)
      copier->Pause();
    else
      copier->Resume();
    watch->Draw();
  };
  if (IsTerminal(0)) {
    keys = std::make_unique<KeyReader>();
    if (keys->Ready()) {
      KeyReader* reader = keys.get();
      keyWatch = threads::WatchReadableOnCurrentThread(0, [reader, togglePause, copier] {
        const char key = reader->Next();
        if (key == 'p' || key == 'P' || key == ' ') togglePause();
        if (key == 3) InterruptGuard::Interrupt();  // Ctrl-C as a character in character mode
      });
    }
  }

  // Ten times a second: look for Ctrl-C and redraw the bar.
  auto main = threads::GetRegisteredMainThread();
  boost::shared_ptr<boost::function<void()>> tick = boost::make_shared<boost::function<void()>>();
  *tick = [watch, copier, main, weak = boost::weak_ptr<boost::function<void()>>(tick)] {
    if (watch->ended) return;
    if (InterruptGuard::Interrupted()) copier->Cancel();
    watch->Draw();
    if (auto again = weak.lock()) main->CallAsynchronously(*again, 100);
  };
  copier->Start();
  if (main) {
    main->CallAsynchronously(*tick, 100);
    while (!watch->ended) threads::RunPlatformEventLoop();
  } else {
    // Without a main thread loop: poll.
    while (!watch->ended) {
      if (InterruptGuard::Interrupted()) copier->Cancel();
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  keyWatch.reset();
  keys.reset();
  tick.reset();
  watch->Wipe();

  const auto state = static_cast<BinaryCopier::State>(watch->state.load());
  if (state == BinaryCopier::State_Cancelled) throw Failure(Localized(kCancelled));
  if (state == BinaryCopier::State_SourceError)
    throw Failure(source->LastError() ? Explain(source->LastError(), source->LastErrorCode())
                                      : Explain(nullptr, 0) + ": '" + ToUtf8(from) +
                                            "' changed size while it was copied");
  if (state == BinaryCopier::State_SinkError || sink->LastError())
    throw Failure(Explain(sink->LastError(), sink->LastErrorCode()));
  const double seconds = watch->Elapsed();
  std::cerr << "copied " << HumanBytes(watch->written) << " in " << std::fixed
            << std::setprecision(1) << seconds << " s ("
            << HumanBytes(static_cast<unsigned long long>(static_cast<double>(watch->written) /
                                                          std::max(seconds, 1e-3)))
            << "/s)\n";
  return kExitSuccess;
}

const Registrar kCopy(CommandGroup{
    "copy",
    "copy a file in the background with progress, pause and cancel",
    {
        {"", "<from> <to>",
         "copy the file <from> to the file <to>, replacing it only when the copy is complete",
         Copy},
    },
    {"The copy runs through the library's BinaryCopier, in blocks on the I/O threads. On a",
     "terminal stderr shows a progress bar (bytes, rate, time left); otherwise one line at the",
     "end. With a terminal on stdin, p or space pauses and resumes. Ctrl-C cancels: <to> is",
     "left as it was and no temporary file remains. <to> must name a file, not a directory."},
    {
        {"copy /etc/os-release /tmp/os-release.bak", "copies the file and says how fast"},
        {"copy /nonexistent x", "fails: the file could not be found"},
    }});

}  // namespace
}  // namespace tvxhost
