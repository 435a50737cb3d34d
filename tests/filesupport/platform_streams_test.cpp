// File streams on real files: opening and its failures, sharing, reading and
// writing, the end of a file, truncation, and a reader on a writer's handle.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <typeinfo>

#include "filesupport/TempDirFixture.h"
#include "filesupport/Unprivileged.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;

namespace {

class PlatformStreams : public tvxtest::TempDirTest {
 protected:
  File FileAt(std::string_view relative) const { return File(Path(relative)); }

  std::string Contents(std::string_view relative) const {
    std::ifstream in(root_ / relative, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
};

const unsigned char* Bytes(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

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
  struct Row {
    const char* name;
    bool writer;
    const char* expected;
  };
  const Row rows[] = {
      {"missing.txt", false, "file_not_found"},
      {"missing.txt", true, "file_not_found"},
      {"no/such/parent.txt", false, "file_not_found"},
      {"no/such/parent.txt", true, "file_not_found"},
      {"present.txt/below", false, "file_not_found"},  // a file where a directory should be
      {"folder", false, "io_error"},
      {"folder", true, "io_error"},
      {"present.txt", false, "none"},
      {"present.txt", true, "none"},
  };
  for (const Row& row : rows) {
    const File file = FileAt(row.name);
    EXPECT_EQ(Outcome([&] {
                if (row.writer) {
                  OPlatformByteStream out(file, kPlatformStreamDefault);
                } else {
                  IPlatformByteStream in(file, kPlatformStreamDefault);
                }
              }),
              row.expected)
        << row.name << (row.writer ? " (writer)" : " (reader)");
  }
  EXPECT_FALSE(OnDisk("missing.txt"));
  EXPECT_EQ(Contents("present.txt"), "abc");  // opening a writer truncates nothing

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
    const bool reader =
        Outcome([&] { IPlatformByteStream in(FileAt("secret.txt"), 1); }) == "io_error";
    const bool writer =
        Outcome([&] { OPlatformByteStream out(FileAt("secret.txt"), 1); }) == "io_error";
    return (reader ? 0 : 1) | (writer ? 0 : 2);
  });
  EXPECT_EQ(outcome, 0) << "1: the reader, 2: the writer opened or failed otherwise; -1: no child";
}

TEST_F(PlatformStreams, SharingFlagDecidesWhoElseMayOpenTheFile) {
  Write("shared.txt", "data");
  const File file = FileAt("shared.txt");
  enum Kind { kReader, kSharedReader, kWriter, kSharedWriter };
  auto open = [&](Kind kind) -> std::function<void()> {
    return [&file, kind] {
      switch (kind) {
        case kReader: {
          IPlatformByteStream in(file, kPlatformStreamDefault);
          break;
        }
        case kSharedReader: {
          IPlatformByteStream in(file, kPlatformStreamShared);
          break;
        }
        case kWriter: {
          OPlatformByteStream out(file, kPlatformStreamDefault);
          break;
        }
        case kSharedWriter: {
          OPlatformByteStream out(file, kPlatformStreamShared | kPlatformStreamDefault);
          break;
        }
      }
    };
  };
  struct Row {
    Kind holder;
    Kind second;
    const char* expected;
  };
  const Row rows[] = {
      // A plain reader lets readers in and keeps writers out.
      {kReader, kReader, "none"},
      {kReader, kSharedReader, "none"},
      {kReader, kWriter, "io_error"},
      {kReader, kSharedWriter, "io_error"},
      // A writer keeps out every other writer and the plain readers; a shared
      // reader, which lets writers in, may read beside it.
      {kWriter, kReader, "io_error"},
      {kWriter, kWriter, "io_error"},
      {kSharedWriter, kReader, "io_error"},
      {kSharedWriter, kSharedReader, "none"},
      {kSharedWriter, kSharedWriter, "io_error"},
      // A shared reader takes no lock: everybody may come.
      {kSharedReader, kWriter, "none"},
      {kSharedReader, kReader, "none"},
  };
  for (const Row& row : rows) {
    std::unique_ptr<ByteStream_base> holder;
    if (row.holder == kReader || row.holder == kSharedReader) {
      holder = std::make_unique<IPlatformByteStream>(
          file, row.holder == kSharedReader ? kPlatformStreamShared : kPlatformStreamDefault);
    } else {
      holder = std::make_unique<OPlatformByteStream>(
          file, row.holder == kSharedWriter ? kPlatformStreamShared : kPlatformStreamDefault);
    }
    EXPECT_EQ(Outcome(open(row.second)), row.expected)
        << "holder " << row.holder << ", second " << row.second;
    holder.reset();
    // Once the holder has gone, anybody may open.
    EXPECT_EQ(Outcome(open(row.second)), "none") << "after holder " << row.holder;
  }
}

TEST_F(PlatformStreams, WrittenBytesAndValuesReadBackAtTheirPositions) {
  Write("data.bin", "0123456789");
  const File file = FileAt("data.bin");
  {
    OPlatformByteStream out(file, kPlatformStreamDefault);
    EXPECT_EQ(out.CurPos(), 0u);
    EXPECT_EQ(out.Length(), 10u);
    out.Put('A');
    const std::string block = "bcd";
    out.WriteBlock(Bytes(block), 3);
    EXPECT_EQ(out.CurPos(), 4u);
    out.CurPos(12);  // beyond the end: the gap reads as zeros
    out << std::uint32_t{0x12345678} << std::string("xy");
    EXPECT_EQ(out.Length(), 12u + 4 + 8 + 2);
    out.OSFlush();
  }
  const std::string expected = std::string("Abcd456789") + std::string(2, '\0') +
                               std::string("\x12\x34\x56\x78", 4) + std::string(7, '\0') + "\x02xy";
  EXPECT_EQ(Contents("data.bin"), expected);

  IPlatformByteStream in(file, kPlatformStreamDefault);
  EXPECT_EQ(in.Length(), expected.size());
  EXPECT_EQ(in.Get(), 'A');
  unsigned char block[3] = {};
  in.ReadBlock(block, 3);
  EXPECT_EQ(std::string(block, block + 3), "bcd");
  in.CurPos(12);
  std::uint32_t number = 0;
  std::string text;
  in >> number >> text;
  EXPECT_EQ(number, 0x12345678u);
  EXPECT_EQ(text, "xy");
  EXPECT_TRUE(in.AtTheEnd());
  in.CurPos(5);
  EXPECT_EQ(in.CurPos(), 5u);
  EXPECT_FALSE(in.AtTheEnd());
  EXPECT_EQ(in.Get(), '5');
}

TEST_F(PlatformStreams, ReadingAtTheEndOfAFileRaisesNothingAndMovesNothing) {
  Write("short.txt", "xyz");
  IPlatformByteStream in(FileAt("short.txt"), kPlatformStreamDefault);
  in.CurPos(3);
  EXPECT_TRUE(in.AtTheEnd());
  EXPECT_EQ(in.Get(), 0);
  EXPECT_EQ(in.CurPos(), 3u);

  unsigned char target[4] = {'k', 'e', 'e', 'p'};
  in.ReadBlock(target, 4);
  EXPECT_EQ(std::string(target, target + 4), "keep");

  // A block that straddles the end stores what the file holds.
  in.CurPos(1);
  in.ReadBlock(target, 4);
  EXPECT_EQ(std::string(target, target + 4), "yzep");
  EXPECT_EQ(in.CurPos(), 3u);

  // Beyond the end is a valid position and reads nothing either.
  in.CurPos(100);
  EXPECT_EQ(in.CurPos(), 100u);
  EXPECT_EQ(in.Get(), 0);
  EXPECT_FALSE(in.AtTheEnd());
}

TEST_F(PlatformStreams, TruncateShrinksOnlyAndLeavesThePositionAtTheNewEnd) {
  struct Row {
    unsigned long long length;
    const char* expected;
    const char* contents;
    unsigned long long position;
  };
  const Row rows[] = {
      {12, "eof_error", "hello world", 2},  // beyond the size: nothing changes
      {10, "none", "hello worl", 10},
      {11, "none", "hello world", 11},  // to the size: the position goes to the end
      {0, "none", "", 0},
  };
  for (const Row& row : rows) {
    Write("t.txt", "hello world");
    OPlatformByteStream out(FileAt("t.txt"), kPlatformStreamDefault);
    out.CurPos(2);
    EXPECT_EQ(Outcome([&] { out.Truncate(row.length); }), row.expected) << row.length;
    EXPECT_EQ(out.CurPos(), row.position) << row.length;
    EXPECT_EQ(out.Length(), std::string(row.contents).size()) << row.length;
    EXPECT_EQ(Contents("t.txt"), row.contents) << row.length;
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
    EXPECT_EQ(in.Length(), text.size());
    in.CurPos(6);
    EXPECT_EQ(in.Get(), 'l');
    EXPECT_EQ(out.CurPos(), 7u);  // moved by the reader
  }
  // The reader closed nothing: the writer goes on.
  out.CurPos(text.size());
  out.Put('!');
  EXPECT_EQ(out.Length(), text.size() + 1);
  EXPECT_EQ(Contents("log.txt"), text + "!");
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
    EXPECT_NE(real.GetPlatformHandle(), -1);
    real.Put('1');
    AdoptingStream adopter(FileAt("a.txt"));
    adopter.SetPlatformHandle(real.GetPlatformHandle());
    adopter.Put('2');  // same open file: continues after the '1'
    EXPECT_EQ(adopter.CurPos(), 2u);
    adopter.SetPlatformHandle(-1);  // hand it back before both would close it
  }
  EXPECT_EQ(Contents("a.txt"), "12..");
  // The descriptor was closed once, by its owner: the file is free again.
  EXPECT_EQ(Outcome([&] { OPlatformByteStream again(FileAt("a.txt"), 1); }), "none");
}
