#include "tvxcore/filesupport/FileCopyStreams.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include <boost/function.hpp>
#include <boost/make_shared.hpp>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileStream.h"
#include "platform/FileSystem.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/threads/SharedExecutors.h"

namespace tvxcore::filesupport {
namespace {

using threads::BoostMutex;
using threads::CheckedLock;
using utility::RecycledMemory;

constexpr std::size_t kMinimumBlock = 4096;
constexpr std::size_t kMaximumBlock = std::size_t{1} << 30;

// The first failure of a source or a sink, and its platform code. The
// exception is kept as a value and each caller of LastError gets a new
// copy, so no exception object is shared between threads.
struct Failure {
  boost::function<std::exception_ptr()> make;
  int code = 0;

  template <typename Exception>
  void Set(const Exception& exception, int platformCode) {
    if (make) return;
    make = [exception] { return std::make_exception_ptr(exception); };
    code = platformCode;
  }
  // The file exception being handled, with its own type.
  void SetCurrent() {
    try {
      throw;
    } catch (const create_fnf_exception& e) {
      Set(e, 0);
    } catch (const create_locked_exception& e) {
      Set(e, 0);
    } catch (const create_accessdenied_exception& e) {
      Set(e, 0);
    } catch (const create_invalidpath_exception& e) {
      Set(e, 0);
    } catch (const create_exception& e) {
      Set(e, 0);
    } catch (const file_not_found_exception& e) {
      Set(e, 0);
    } catch (const file_delete_exception& e) {
      Set(e, 0);
    } catch (const rename_file& e) {
      Set(e, 0);
    } catch (const file_exception& e) {
      Set(e, 0);
    }
  }
  explicit operator bool() const { return !make.empty(); }
  std::exception_ptr Get() const { return make ? make() : std::exception_ptr(); }
};

// Writes all of `size` bytes, in pieces the platform call takes.
int WriteAll(std::int64_t handle, const char* data, std::size_t size) {
  while (size > 0) {
    const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(size, kMaximumBlock));
    const int error =
        platform::WriteFileStream(handle, reinterpret_cast<const unsigned char*>(data), piece);
    if (error != 0) return error;
    data += piece;
    size -= piece;
  }
  return 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// The source

struct FileCopySource::Record {
  Record(const File& file, std::size_t blockSize)
      : file(file),
        blockSize(std::clamp(blockSize, kMinimumBlock, kMaximumBlock)),
        io(threads::CreateIOBoundExecutor()) {}
  ~Record() {
    if (handle >= 0) platform::CloseFileStream(handle);
  }

  // Opens the file once; false after a failure, which is stored.
  bool Open() TVX_REQUIRES(mutex) {
    if (handle >= 0) return true;
    if (failure || closed) return false;
    std::string native;
    int error =
        internal::ToNative(file.FullPath(), native)
            ? platform::OpenFileStream(native, false, platform::FileShare::kReadOnly, handle)
            : static_cast<int>(platform::kErrorInvalidName);
    std::uint64_t length = 0;
    if (error == 0) error = platform::GetFileStreamLength(handle, length);
    if (error == 0) {
      size = length;
      return true;
    }
    if (handle >= 0) platform::CloseFileStream(handle);
    handle = -1;
    if (error == platform::kErrorFileNotFound || error == platform::kErrorPathNotFound)
      failure.Set(file_not_found_exception(file), error);
    else
      failure.Set(file_exception(file), error);
    return false;
  }

  // The next block: null at the end of the file. False after a failure.
  bool ReadBlock(boost::shared_ptr<RecycledMemory>& block) TVX_REQUIRES(mutex) {
    if (!Open()) return false;
    // Up to the size announced, then one more read to see the end: a file
    // that has grown delivers more than it announced.
    const std::uint64_t left = size > position ? size - position : 0;
    const auto count =
        static_cast<std::uint32_t>(left > 0 ? std::min<std::uint64_t>(left, blockSize) : blockSize);
    auto buffer = boost::make_shared<RecycledMemory>();
    buffer->Allocate(count);
    std::uint32_t got = 0;
    const int error = platform::ReadFileStream(
        handle, reinterpret_cast<unsigned char*>(buffer->Buffer()), count, got);
    if (error != 0) {
      failure.Set(file_exception(file), error);
      return false;
    }
    position += got;
    if (got == 0) {
      block.reset();
    } else if (got < count) {
      // The file ended early (it shrank): hand on exactly what was read.
      block = boost::make_shared<RecycledMemory>();
      block->Allocate(got);
      std::memcpy(block->Buffer(), buffer->Buffer(), got);
    } else {
      block = std::move(buffer);
    }
    return true;
  }

  const File file;
  const std::size_t blockSize;
  const boost::shared_ptr<threads::AsyncExecutor> io;
  mutable BoostMutex mutex;
  std::int64_t handle TVX_GUARDED_BY(mutex) = -1;
  std::uint64_t size TVX_GUARDED_BY(mutex) = 0;
  std::uint64_t position TVX_GUARDED_BY(mutex) = 0;
  bool closed TVX_GUARDED_BY(mutex) = false;
  Failure failure TVX_GUARDED_BY(mutex);
};

boost::shared_ptr<FileCopySource> FileCopySource::Create(const File& file, std::size_t blockSize) {
  return boost::shared_ptr<FileCopySource>(
      new FileCopySource(boost::make_shared<Record>(file, blockSize)));
}

FileCopySource::FileCopySource(boost::shared_ptr<Record> record) : record_(std::move(record)) {}
FileCopySource::~FileCopySource() = default;

void FileCopySource::Read(ReadDone const& done) {
  auto record = record_;
  const bool queued = record->io->CallAsynchronously(
      [record, done] {
        boost::shared_ptr<RecycledMemory> block;
        bool ok = false;
        try {
          CheckedLock lock(record->mutex);
          ok = record->ReadBlock(block);
        } catch (const std::bad_alloc&) {
          CheckedLock lock(record->mutex);
          record->failure.Set(file_exception(record->file), platform::kErrorNotEnoughMemory);
        }
        done(ok ? kSourceSuccess : kSourceFailure, block);
      },
      0);
  if (!queued) done(kSourceFailure, boost::shared_ptr<RecycledMemory>());
}

boost::optional<unsigned long long> FileCopySource::GetSize() {
  CheckedLock lock(record_->mutex);
  if (!record_->Open()) return boost::none;
  return record_->size;
}

void FileCopySource::Finished(utility::FinishedSourceState) {
  CheckedLock lock(record_->mutex);
  if (record_->handle >= 0) platform::CloseFileStream(record_->handle);
  record_->handle = -1;
  record_->closed = true;
}

std::exception_ptr FileCopySource::LastError() const {
  CheckedLock lock(record_->mutex);
  return record_->failure.Get();
}

int FileCopySource::LastErrorCode() const {
  CheckedLock lock(record_->mutex);
  return record_->failure.code;
}

const File& FileCopySource::GetFile() const { return record_->file; }

// ---------------------------------------------------------------------------
// The sink

struct FileCopySink::Record {
  explicit Record(const File& target)
      : target(target),
        save(std::make_unique<SafeSave>(target)),
        io(threads::CreateIOBoundExecutor()) {}
  ~Record() {
    CheckedLock lock(mutex);
    Discard();
  }

  // Creates and opens the temporary file once; false after a failure.
  bool Open() TVX_REQUIRES(mutex) {
    if (handle >= 0) return true;
    if (failure || !save) return false;
    if (Dir(target.FullPath()).Exists()) {
      failure.Set(create_exception(target), platform::kErrorAccessDenied);
      return false;
    }
    try {
      save->CreateTempFile();
    } catch (const file_exception&) {
      failure.SetCurrent();
      return false;
    }
    created = true;
    std::string native;
    const int error =
        internal::ToNative(save->GetTempFile().FullPath(), native)
            ? platform::OpenFileStream(native, true, platform::FileShare::kNone, handle)
            : static_cast<int>(platform::kErrorInvalidName);
    if (error != 0) {
      handle = -1;
      failure.Set(create_exception(target), error);
      return false;
    }
    return true;
  }

  // Writes a block, or at the end of the data flushes and closes the file.
  bool WriteBlock(const boost::shared_ptr<RecycledMemory>& block) TVX_REQUIRES(mutex) {
    if (!Open()) return false;
    if (block) {
      const int error = WriteAll(handle, block->Buffer(), block->Size());
      if (error != 0) failure.Set(file_exception(target), error);
      return error == 0;
    }
    // The flush is done here, on the I/O executor, so that the commit in
    // Finished has little left to do.
    int error = platform::SyncFileStream(handle);
    const int closeError = platform::CloseFileStream(handle);
    handle = -1;
    if (error == 0) error = closeError;
    if (error != 0) failure.Set(file_exception(target), error);
    return error == 0;
  }

  void Close() TVX_REQUIRES(mutex) {
    if (handle >= 0) platform::CloseFileStream(handle);
    handle = -1;
  }

  // Closes and removes the temporary file; the sink takes no more writes.
  void Discard() TVX_REQUIRES(mutex) {
    Close();
    try {
      save.reset();
    } catch (const file_exception&) {
      failure.SetCurrent();
    }
  }

  void Commit() TVX_REQUIRES(mutex) {
    if (!save || failure || !created || handle >= 0) {
      Discard();
      return;
    }
    try {
      save->Commit();
    } catch (const file_exception&) {
      failure.SetCurrent();
    }
    Discard();
  }

  const File target;
  mutable BoostMutex mutex;
  std::unique_ptr<SafeSave> save TVX_GUARDED_BY(mutex);
  std::int64_t handle TVX_GUARDED_BY(mutex) = -1;
  bool created TVX_GUARDED_BY(mutex) = false;
  Failure failure TVX_GUARDED_BY(mutex);
  const boost::shared_ptr<threads::AsyncExecutor> io;
};

boost::shared_ptr<FileCopySink> FileCopySink::Create(const File& target) {
  return boost::shared_ptr<FileCopySink>(new FileCopySink(boost::make_shared<Record>(target)));
}

FileCopySink::FileCopySink(boost::shared_ptr<Record> record) : record_(std::move(record)) {}
FileCopySink::~FileCopySink() = default;

void FileCopySink::Write(boost::shared_ptr<RecycledMemory> const& block, WriteDone const& done) {
  auto record = record_;
  const bool queued = record->io->CallAsynchronously(
      [record, block, done] {
        bool ok = false;
        {
          CheckedLock lock(record->mutex);
          ok = record->WriteBlock(block);
        }
        const unsigned long long bytes = ok && block ? block->Size() : 0;
        done(ok ? kSinkSuccess : kSinkFailure, bytes);
      },
      0);
  if (!queued) done(kSinkFailure, 0);
}

void FileCopySink::Abandon() {
  CheckedLock lock(record_->mutex);
  record_->Discard();
}

void FileCopySink::Finished(utility::FinishedSinkState state) {
  CheckedLock lock(record_->mutex);
  if (state == utility::kFinishedSinkSuccess)
    record_->Commit();
  else
    record_->Discard();
}

std::exception_ptr FileCopySink::LastError() const {
  CheckedLock lock(record_->mutex);
  return record_->failure.Get();
}

int FileCopySink::LastErrorCode() const {
  CheckedLock lock(record_->mutex);
  return record_->failure.code;
}

const File& FileCopySink::GetTarget() const { return record_->target; }

}  // namespace tvxcore::filesupport
