#include "tvxcore/filesupport/FileCopyStreams.h"

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>
#include <chrono>
#include <cstring>
#include <future>
#include <set>
#include <string>
#include <typeinfo>
#include <vector>

#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/FileExceptions.h"

namespace {

using tvxcore::filesupport::File;
using tvxcore::filesupport::file_exception;
using tvxcore::filesupport::FileCopySink;
using tvxcore::filesupport::FileCopySource;
using tvxcore::utility::BinaryCopier;
using tvxcore::utility::RecycledMemory;

std::string Pattern(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>((i * 7919) >> 3);
  return text;
}

// The file a failure names, or "" for none; the type's name in `type`.
std::string Named(std::exception_ptr error, std::string& type) {
  if (!error) return "";
  try {
    std::rethrow_exception(error);
  } catch (const file_exception& e) {
    type = typeid(e).name();
    return e.GetFile().FullPathMultiByte();
  } catch (...) {
    return "?";
  }
}

class FileCopyStreams : public tvxtest::TempDirTest {
 protected:
  struct Outcome {
    BinaryCopier::State state;
    boost::shared_ptr<FileCopySource> source;
    boost::shared_ptr<FileCopySink> sink;
  };

  // Copies and waits. With `cancelAt`, the copy is cancelled once that many
  // bytes have been written.
  Outcome Copy(const std::string& from, const std::string& to, std::size_t blockSize,
               unsigned long long cancelAt = 0) {
    Outcome outcome{BinaryCopier::State_NotStarted,
                    FileCopySource::Create(File(Path(from)), blockSize),
                    FileCopySink::Create(File(Path(to)))};
    std::promise<BinaryCopier::State> done;
    boost::shared_ptr<BinaryCopier> copier;
    copier = BinaryCopier::CreateBinaryCopier(
        outcome.source, outcome.sink, [&done](BinaryCopier::State state) { done.set_value(state); },
        [&copier, cancelAt](unsigned long long written,
                            boost::optional<unsigned long long> const&) {
          if (cancelAt != 0 && written >= cancelAt) copier->Cancel();
        });
    copier->Start();
    auto future = done.get_future();
    if (future.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      ADD_FAILURE() << "the copy never finished";
      std::abort();  // the callbacks refer to this frame
    }
    outcome.state = future.get();
    return outcome;
  }
};

// A file of several blocks and a last short one, and an empty file. (One
// short block, in the default size, is the example's copy below.)
TEST_F(FileCopyStreams, CopiesByteEqual) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{3 * 4096 + 1}}) {
    SCOPED_TRACE(size);
    const std::string content = Pattern(size);
    Write("from", content);
    const Outcome outcome = Copy("from", "to", 4096);
    EXPECT_EQ(outcome.state, BinaryCopier::State_Finished);
    EXPECT_EQ(Read("to"), content);
    EXPECT_EQ(Entries(), (std::set<std::string>{"from", "to"}));
    EXPECT_FALSE(outcome.source->LastError());
    EXPECT_FALSE(outcome.sink->LastError());
    std::filesystem::remove(Native("to"));
  }
}

TEST_F(FileCopyStreams, FailuresNameTheFileAndLeaveNothingBehind) {
  struct Row {
    const char* name;
    const char* from;
    const char* to;
    BinaryCopier::State state;
    bool sourceFails;       // else the sink
    const char* named;      // the file the failure names
    const char* exception;  // a part of the exception's type name
  };
  const std::vector<Row> rows = {
      {"missing source", "missing", "to", BinaryCopier::State_SourceError, true, "missing",
       "file_not_found_exception"},
      {"missing target folder", "from", "nowhere/to", BinaryCopier::State_SinkError, false,
       "nowhere/to", "create_"},
      {"folder at the target", "from", "folder", BinaryCopier::State_SinkError, false, "folder",
       "create_exception"},
      {"source is a folder", "folder", "to", BinaryCopier::State_SourceError, true, "folder",
       "file_exception"},
  };
  Write("from", Pattern(10000));
  MakeDir("folder");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Outcome outcome = Copy(row.from, row.to, 4096);
    EXPECT_EQ(outcome.state, row.state);
    std::string type;
    const std::string named =
        Named(row.sourceFails ? outcome.source->LastError() : outcome.sink->LastError(), type);
    EXPECT_EQ(named, Native(row.named));
    EXPECT_NE(type.find(row.exception), std::string::npos) << type;
    EXPECT_EQ(Entries(), (std::set<std::string>{"from", "folder"}));
    EXPECT_EQ(Entries("folder"), std::set<std::string>{});
  }
}

TEST_F(FileCopyStreams, CancelLeavesTheOldTargetAndNoTemporary) {
  const std::string content = Pattern(8 * 1024 * 1024);
  Write("from", content);
  for (const bool existing : {false, true}) {
    SCOPED_TRACE(existing);
    if (existing) Write("to", "old");
    const Outcome outcome = Copy("from", "to", 4096, 64 * 1024);
    EXPECT_EQ(outcome.state, BinaryCopier::State_Cancelled);
    const std::set<std::string> left =
        existing ? std::set<std::string>{"from", "to"} : std::set<std::string>{"from"};
    EXPECT_EQ(Entries(), left);
    EXPECT_EQ(Read("to"), existing ? "old" : "");
  }
}

// Writes go to a temporary file, which replaces the target at a successful
// end only. (Every other end is the copier's cancel above.)
TEST_F(FileCopyStreams, SinkReplacesTheTargetOnlyAtSuccess) {
  Write("to", "old");
  auto sink = FileCopySink::Create(File(Path("to")));
  auto block = boost::make_shared<RecycledMemory>();
  block->Allocate(3);
  std::memcpy(block->Buffer(), "new", 3);
  for (const auto& write : {block, boost::shared_ptr<RecycledMemory>()}) {
    std::promise<unsigned long long> written;
    sink->Write(write, [&written](auto state, unsigned long long bytes) {
      written.set_value(state == FileCopySink::kSinkSuccess ? bytes : ~0ull);
    });
    EXPECT_EQ(written.get_future().get(), write ? 3u : 0u);
    EXPECT_EQ(Read("to"), "old");
    EXPECT_EQ(Entries().size(), 2u);  // the target and the temporary file
  }
  sink->Finished(tvxcore::utility::kFinishedSinkSuccess);
  EXPECT_EQ(Read("to"), "new");
  EXPECT_EQ(Entries(), std::set<std::string>{"to"});
  EXPECT_FALSE(sink->LastError());
}

// The example of the README, as it stands there.
namespace example {
using namespace tvxcore;

// Copies `from` to `to` in the background and waits for the end; the
// failure, if any, in `error` (a file_exception naming the file).
utility::BinaryCopier::State CopyInBackground(const UTF16String& from, const UTF16String& to,
                                              unsigned long long& written,
                                              std::exception_ptr& error) {
  auto source = filesupport::FileCopySource::Create(filesupport::File(from));
  auto sink = filesupport::FileCopySink::Create(filesupport::File(to));
  std::promise<utility::BinaryCopier::State> ended;
  auto copier = utility::BinaryCopier::CreateBinaryCopier(
      source, sink, [&ended](utility::BinaryCopier::State state) { ended.set_value(state); },
      [&written](unsigned long long bytes, boost::optional<unsigned long long> const&) {
        written = bytes;  // reports come one at a time, in order
      });
  copier->Start();  // Pause(), Resume() and Cancel() work from any thread meanwhile
  const utility::BinaryCopier::State state = ended.get_future().get();
  error = source->LastError() ? source->LastError() : sink->LastError();
  return state;
}
}  // namespace example

TEST_F(FileCopyStreams, ExampleCopiesInTheBackground) {
  Write("from", Pattern(5 * 1024 * 1024));
  unsigned long long written = 0;
  std::exception_ptr error;
  EXPECT_EQ(example::CopyInBackground(Path("from"), Path("to"), written, error),
            BinaryCopier::State_Finished);
  EXPECT_EQ(written, 5u * 1024 * 1024);
  EXPECT_FALSE(error);
  EXPECT_EQ(Read("to"), Pattern(5 * 1024 * 1024));
}

}  // namespace
