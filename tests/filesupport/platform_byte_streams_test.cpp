// File streams on real files: opening and its failures, sharing, the end of a
// file, truncation, and a reader on a writer's handle.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <typeinfo>

#include "support/CompletedStream.h"
#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::Bytes;

namespace {

// Which exception a call threw: "none", or the name of the stream or file
// exception, so one table row states the expected outcome.
std::string Outcome(const std::function<void()>& call) {
  try {
    call();
    return "none";
  } catch (const file_not_found_exception&) {
    return "file_not_found";
  } catch (const eof_error&) {
    return "eof_error";
  } catch (const io_error&) {
    return "io_error";
  } catch (const std::exception& e) {
    return std::string("other: ") + typeid(e).name();
  }
}

class PlatformStreams : public tvxtest::TempDirTest {
 protected:
  File FileAt(std::string_view relative) const { return File(Path(relative)); }

  // Opens a reader or a writer and closes it again.
  std::string OpenOutcome(std::string_view name, bool writer, int flags) const {
    return Outcome([&] {
      if (writer) {
        OPlatformByteStream out(FileAt(name), flags);
      } else {
        IPlatformByteStream in(FileAt(name), flags);
      }
    });
  }
};

// Lets a test hand a descriptor from one writer to another, as a derived
// stream that opens its file itself would.
class AdoptingStream : public OPlatformByteStream {
 public:
  explicit AdoptingStream(const File& file) : OPlatformByteStream(true, file, 0) {}
  using OPlatformByteStream::SetPlatformHandle;
};

}  // namespace

TEST_F(PlatformStreams, OpenFailsAsTheFileCallsForAndAWriterNeverCreates) {
  Write("present.txt", "abc");
  MakeDir("folder");
  // Each name with what a reader and a writer meet; "present.txt/below" has a
  // file where a directory should be.
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {"missing.txt", "file_not_found", "file_not_found"},
      {"no/such/parent.txt", "file_not_found", "file_not_found"},
      {"present.txt/below", "file_not_found", "file_not_found"},
      {"folder", "io_error", "io_error"},
      {"present.txt", "none", "none"}};
  for (const auto& [name, reader, writer] : rows) {
    EXPECT_EQ(OpenOutcome(name, false, kPlatformStreamDefault), reader) << name;
    EXPECT_EQ(OpenOutcome(name, true, kPlatformStreamDefault), writer) << name << " (writer)";
  }
  EXPECT_FALSE(OnDisk("missing.txt"));
  EXPECT_EQ(Read("present.txt"), "abc");  // opening a writer truncates nothing

  // The exception names the file that was asked for.
  try {
    OPlatformByteStream out(FileAt("missing.txt"), kPlatformStreamDefault);
    ADD_FAILURE() << "a writer opened a missing file";
  } catch (const file_not_found_exception& e) {
    EXPECT_EQ(e.GetFile().FullPath(), Path("missing.txt"));
  }
}

TEST_F(PlatformStreams, UnreadableFileIsAnIoError) {
  Write("secret.txt", "x");
  std::filesystem::permissions(root_, std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  std::filesystem::permissions(root_ / "secret.txt", std::filesystem::perms::none);
  // Root reads anything, so the opens run without its power.
  const int outcome = tvxtest::RunUnprivileged([&] {
    return (OpenOutcome("secret.txt", false, 1) == "io_error" ? 0 : 1) |
           (OpenOutcome("secret.txt", true, 1) == "io_error" ? 0 : 2);
  });
  EXPECT_EQ(outcome, 0) << "1: the reader, 2: the writer opened or failed otherwise; -1: no child";
}

TEST_F(PlatformStreams, SharingFlagDecidesWhoElseMayOpenTheFile) {
  Write("shared.txt", "data");
  const File file = FileAt("shared.txt");
  enum Kind { kReader, kSharedReader, kWriter, kSharedWriter };
  // Shared readers pass the flag alone, shared writers beside the default.
  auto open = [&file](Kind kind) -> std::unique_ptr<ByteStream_base> {
    if (kind == kReader) return std::make_unique<IPlatformByteStream>(file, kPlatformStreamDefault);
    if (kind == kSharedReader)
      return std::make_unique<IPlatformByteStream>(file, kPlatformStreamShared);
    return std::make_unique<OPlatformByteStream>(
        file,
        kind == kWriter ? kPlatformStreamDefault : kPlatformStreamShared | kPlatformStreamDefault);
  };
  const struct {
    Kind holder, second;
    const char* expected;
  } rows[] = {
      // A plain reader lets readers in and keeps writers out.
      {kReader, kReader, "none"},
      {kReader, kWriter, "io_error"},
      // Any writer keeps out the plain readers (and so every writer); a
      // shared reader, which lets writers in, may read beside it.
      {kWriter, kReader, "io_error"},
      {kSharedWriter, kReader, "io_error"},
      {kSharedWriter, kSharedReader, "none"},
      // A shared reader takes no lock: even a writer may come.
      {kSharedReader, kWriter, "none"},
  };
  for (const auto& row : rows) {
    auto holder = open(row.holder);
    EXPECT_EQ(Outcome([&] { open(row.second); }), row.expected)
        << "holder " << row.holder << ", second " << row.second;
    holder.reset();
    EXPECT_EQ(Outcome([&] { open(row.second); }), "none")
        << "once holder " << row.holder << " has gone";
  }
}

TEST_F(PlatformStreams, WritingPastTheEndFillsTheGapWithZerosAndReadingThereNothing) {
  Write("data.bin", "0123456789");
  {
    OPlatformByteStream out(FileAt("data.bin"), kPlatformStreamDefault);
    out.Put('A');
    out.CurPos(12);
    out << std::uint32_t{0x12345678};
  }
  EXPECT_EQ(Read("data.bin"), std::string("A123456789\0\0\x12\x34\x56\x78", 16));

  // A block read at the end leaves the target as it was; one that straddles
  // the end stores what the file holds.
  Write("short.txt", "xyz");
  IPlatformByteStream in(FileAt("short.txt"), kPlatformStreamDefault);
  in.CurPos(3);
  EXPECT_EQ(in.Get(), 0);
  EXPECT_EQ(in.CurPos(), 3u);
  unsigned char target[4] = {'k', 'e', 'e', 'p'};
  in.ReadBlock(target, 4);
  EXPECT_EQ(std::string(target, target + 4), "keep");
  in.CurPos(1);
  in.ReadBlock(target, 4);
  EXPECT_EQ(std::string(target, target + 4), "yzep");
  EXPECT_EQ(in.CurPos(), 3u);
}

TEST_F(PlatformStreams, TruncateShrinksOnlyAndLeavesThePositionAtTheNewEnd) {
  // Beyond the size nothing changes; to the size the position goes to the end.
  const struct {
    unsigned long long length;
    const char *expected, *contents;
    unsigned long long position;
  } rows[] = {
      {12, "eof_error", "hello world", 2}, {11, "none", "hello world", 11}, {0, "none", "", 0}};
  for (const auto& row : rows) {
    Write("t.txt", "hello world");
    OPlatformByteStream out(FileAt("t.txt"), kPlatformStreamDefault);
    out.CurPos(2);
    EXPECT_EQ(Outcome([&] { out.Truncate(row.length); }), row.expected) << row.length;
    EXPECT_EQ(out.CurPos(), row.position) << row.length;
    EXPECT_EQ(out.Length(), std::string(row.contents).size()) << row.length;
    EXPECT_EQ(Read("t.txt"), row.contents) << row.length;
  }
}

TEST_F(PlatformStreams, ReaderMadeFromAWriterSharesItsHandleAndPosition) {
  Write("log.txt", "");
  const File file = FileAt("log.txt");
  OPlatformByteStream out(file, kPlatformStreamDefault);
  const std::string text = "first line\n";
  out.WriteBlock(Bytes(text), static_cast<std::uint32_t>(text.size()));
  {
    IPlatformByteStream in(&out);
    EXPECT_EQ(in.GetPlatformHandle(), out.GetPlatformHandle());
    EXPECT_EQ(in.CurPos(), text.size());  // the writer's position
    in.CurPos(6);
    EXPECT_EQ(in.Get(), 'l');
    EXPECT_EQ(out.CurPos(), 7u);  // moved by the reader
  }
  // The reader closed nothing: the writer goes on.
  out.CurPos(text.size());
  out.Put('!');
  EXPECT_EQ(Read("log.txt"), text + "!");
}

TEST_F(PlatformStreams, StreamWithoutHandleFailsEveryOperationWithIoError) {
  IPlatformByteStream orphan(nullptr);
  AdoptingStream waiting(FileAt("missing.txt"));  // opens nothing: no exception
  EXPECT_EQ(orphan.GetPlatformHandle(), -1);
  EXPECT_EQ(waiting.GetPlatformHandle(), -1);
  unsigned char byte = 0;
  const std::function<void()> calls[] = {
      [&] { orphan.Get(); },
      [&] { orphan.ReadBlock(&byte, 1); },
      [&] { orphan.CurPos(1); },
      [&] { (void)orphan.CurPos(); },
      [&] { (void)orphan.Length(); },
      [&] { waiting.Put(1); },
      [&] { waiting.WriteBlock(&byte, 1); },
      [&] { waiting.CurPos(1); },
      [&] { (void)waiting.CurPos(); },
      [&] { (void)waiting.Length(); },
      [&] { waiting.OSFlush(); },
      [&] { waiting.Truncate(0); },
  };
  for (std::size_t i = 0; i < std::size(calls); ++i) {
    EXPECT_EQ(Outcome(calls[i]), "io_error") << "call " << i;
  }
}

TEST_F(PlatformStreams, DerivedWriterAdoptsAHandleAndOwnsIt) {
  Write("a.txt", "....");
  {
    OPlatformByteStream real(FileAt("a.txt"), kPlatformStreamDefault);
    real.Put('1');
    AdoptingStream adopter(FileAt("a.txt"));
    adopter.SetPlatformHandle(real.GetPlatformHandle());
    adopter.Put('2');               // same open file: continues after the '1'
    adopter.SetPlatformHandle(-1);  // hand it back before both would close it
  }
  EXPECT_EQ(Read("a.txt"), "12..");
  // The descriptor was closed once, by its owner: the file is free again.
  EXPECT_EQ(Outcome([&] { OPlatformByteStream again(FileAt("a.txt"), 1); }), "none");
}
