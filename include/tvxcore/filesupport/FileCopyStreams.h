// tvxcore/filesupport/FileCopyStreams.h: a file as the source or the sink of
// a utility::BinaryCopier.
//
//   auto source = filesupport::FileCopySource::Create(File(from));
//   auto sink = filesupport::FileCopySink::Create(File(to));
//   auto copier = utility::BinaryCopier::CreateBinaryCopier(source, sink, onFinished, onProgress);
//   copier->Start();
//
// Both do their file work on the shared input and output executor
// (threads::CreateIOBoundExecutor), one block at a time, in blocks of
// utility::RecycledMemory. They answer the copier with success or failure
// only; what failed, and why, is kept for the caller in LastError().
#pragma once

#include <cstddef>
#include <exception>

#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/BinaryCopier.h"

namespace tvxcore::filesupport {

// The size of the blocks a FileCopySource reads unless told otherwise.
inline constexpr std::size_t kFileCopyBlockSize = 8 * 1024 * 1024;

// Reads a file from its start to its end. The file is opened by the first
// GetSize or Read, so creating a source never fails, and is kept from writers
// that take a lock (see PlatformByteStreams.h, "Sharing") until Finished. A
// file that grows or shrinks while it is read delivers other than the size
// it announced, which fails the copy.
//
// Failures (each stored for LastError and answered as a failure of the
// read): file_not_found_exception for a missing file or folder on its path,
// file_exception for any other failure to open or read, all naming the file.
//
// Its operations may be called from any thread; they take the source's lock.
class TVXCORE_EXPORT FileCopySource : public utility::IBinarySource {
 public:
  // `blockSize` is kept between 4 KiB and 1 GiB.
  static boost::shared_ptr<FileCopySource> Create(const File& file,
                                                  std::size_t blockSize = kFileCopyBlockSize);
  ~FileCopySource() override;
  FileCopySource(const FileCopySource&) = delete;
  FileCopySource& operator=(const FileCopySource&) = delete;

  void Read(ReadDone const& done) override;
  // The file's size when it was opened; empty if it can't be opened.
  boost::optional<unsigned long long> GetSize() override;
  // Closes the file.
  void Finished(utility::FinishedSourceState state) override;

  // The first failure, or null. Rethrow it to learn what failed.
  std::exception_ptr LastError() const;
  // The platform's error code (a Windows system error code) of that
  // failure, 0 if there is none or it had no code.
  int LastErrorCode() const;
  const File& GetFile() const;

 private:
  struct Record;
  explicit FileCopySource(boost::shared_ptr<Record> record);
  boost::shared_ptr<Record> record_;
};

// Writes a file under a temporary name beside the target (as SafeSave does),
// and gives it the target's name only when the copy has ended with success:
// Finished(success) makes it durable and renames it onto the target in one
// step, replacing an existing target. Finished with failure or cancel, and
// Abandon, remove the temporary file; the target's name never holds a part
// of the copy. The temporary file is created by the first Write, so creating
// a sink never fails.
//
// Finished waits for a write in progress, so no temporary file survives a
// cancel. A failure to commit in Finished(success) can no longer change how
// the copy ended: it is kept in LastError, and the old target stands. Check
// LastError once the copy has finished.
//
// Failures (stored for LastError, answered as a failure of the write), all
// naming the target: File::Create's exceptions (create_invalidpath_exception
// for a missing folder, create_accessdenied_exception for one that may not
// be written, ...) when the temporary file can't be made, create_exception
// for a directory at the target, file_exception for a failed write (a full
// disk) or flush, rename_file for a failed rename.
//
// Its operations may be called from any thread; they take the sink's lock.
// Two sinks made on one thread for one target share their temporary name:
// run such copies one after the other.
class TVXCORE_EXPORT FileCopySink : public utility::IBinarySink {
 public:
  static boost::shared_ptr<FileCopySink> Create(const File& target);
  // Removes the temporary file if Finished never came.
  ~FileCopySink() override;
  FileCopySink(const FileCopySink&) = delete;
  FileCopySink& operator=(const FileCopySink&) = delete;

  void Write(boost::shared_ptr<utility::RecycledMemory> const& block,
             WriteDone const& done) override;
  // Removes the temporary file; later writes fail.
  void Abandon() override;
  void Finished(utility::FinishedSinkState state) override;

  std::exception_ptr LastError() const;
  int LastErrorCode() const;
  const File& GetTarget() const;

 private:
  struct Record;
  explicit FileCopySink(boost::shared_ptr<Record> record);
  boost::shared_ptr<Record> record_;
};

}  // namespace tvxcore::filesupport
