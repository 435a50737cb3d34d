#include "tvxcore/utility/BinaryCopier.h"

#include <atomic>
#include <utility>

#include <boost/make_shared.hpp>

#include "filework/internal/BinaryCopierImpl.h"
#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/threads/SubExecutor.h"

namespace tvxcore::utility {
namespace {

using threads::CheckedLock;

// 0 success, 1 failure, 2 cancelled: the same for both ends.
int EndOf(BinaryCopier::State state) {
  switch (state) {
    case BinaryCopier::State_SourceError:
    case BinaryCopier::State_SinkError:
      return 1;
    case BinaryCopier::State_Cancelled:
      return 2;
    default:
      return 0;
  }
}

unsigned long long LengthOf(boost::shared_ptr<RecycledMemory> const& block) {
  return block && block->Buffer() ? block->Size() : 0;
}

}  // namespace

IBinarySource::~IBinarySource() = default;
IBinarySink::~IBinarySink() = default;
void IBinarySink::Abandon() {}

BinaryCopierImpl::BinaryCopierImpl(boost::shared_ptr<IBinarySource> source,
                                   boost::shared_ptr<IBinarySink> sink,
                                   BinaryCopier::FinishedFunction finished,
                                   BinaryCopier::ProgressFunction progress)
    : source(std::move(source)),
      sink(std::move(sink)),
      finishedFunction(std::move(finished)),
      progressFunction(std::move(progress)),
      executor(threads::CreateCPUBoundExecutor()),
      notificationExecutor(threads::CreateSubExecutor(executor, 1)) {}

void BinaryCopierImpl::Start() {
  // Asked outside the lock: the source may take its time to answer.
  boost::optional<unsigned long long> size = source->GetSize();
  CheckedLock lock(mutex);
  totalSize = size;
  state = BinaryCopier::State_Copying;
  if (sourceBusy || sinkBusy) return;
  ProceedAfterRestart();
}

void BinaryCopierImpl::ProceedAfterRestart() {
  if (sourceFinished && sinkFinished) {
    state = BinaryCopier::State_Finished;
    FinishCopy();
    return;
  }
  IssueWrite();
  IssueRead();
}

void BinaryCopierImpl::Pause() {
  CheckedLock lock(mutex);
  if (state == BinaryCopier::State_Copying) state = BinaryCopier::State_Paused;
}

void BinaryCopierImpl::Resume() {
  CheckedLock lock(mutex);
  if (state != BinaryCopier::State_Paused) return;
  state = BinaryCopier::State_Copying;
  if (!sourceBusy && !sinkBusy) ProceedAfterRestart();
}

void BinaryCopierImpl::Cancel() {
  CheckedLock lock(mutex);
  if (state != BinaryCopier::State_Copying && state != BinaryCopier::State_Paused) return;
  state = BinaryCopier::State_Cancelled;
  sourceBusy = false;
  sinkBusy = false;
  FinishCopy();
}

BinaryCopier::State BinaryCopierImpl::GetState() const {
  CheckedLock lock(mutex);
  return state;
}

void BinaryCopierImpl::IssueWrite() {
  if (state != BinaryCopier::State_Copying || (!nextBuffer && !sourceFinished)) return;
  boost::shared_ptr<RecycledMemory> block = std::move(nextBuffer);
  nextBuffer.reset();
  sinkBusy = true;
  boost::shared_ptr<BinaryCopierImpl> self = shared_from_this();
  auto answered = boost::make_shared<std::atomic<bool>>(false);
  IBinarySink::WriteDone done = [self, answered](IBinarySink::SinkState sinkState,
                                                 unsigned long long bytes) {
    if (answered->exchange(true)) return;
    self->executor->CallAsynchronously(
        [self, sinkState, bytes] { self->OnSinkDone(sinkState, bytes); }, 0);
  };
  executor->CallAsynchronously([sink = sink, block, done] { sink->Write(block, done); }, 0);
}

void BinaryCopierImpl::IssueRead() {
  if (sourceBusy || state != BinaryCopier::State_Copying || sourceFinished) return;
  sourceBusy = true;
  boost::shared_ptr<BinaryCopierImpl> self = shared_from_this();
  auto answered = boost::make_shared<std::atomic<bool>>(false);
  IBinarySource::ReadDone done = [self, answered](IBinarySource::SourceState sourceState,
                                                  boost::shared_ptr<RecycledMemory> const& block) {
    if (answered->exchange(true)) return;
    self->executor->CallAsynchronously(
        [self, sourceState, block] { self->OnSourceDone(sourceState, block); }, 0);
  };
  executor->CallAsynchronously([source = source, done] { source->Read(done); }, 0);
}

void BinaryCopierImpl::OnSourceDone(IBinarySource::SourceState sourceState,
                                    boost::shared_ptr<RecycledMemory> const& block) {
  CheckedLock lock(mutex);
  if (state == BinaryCopier::State_Cancelled) return;
  sourceBusy = false;
  if (sourceState == IBinarySource::kSourceFailure) {
    state = BinaryCopier::State_SourceError;
  } else {
    const unsigned long long length = LengthOf(block);
    bytesRead += length;
    if (!block) {
      sourceFinished = true;
      if (totalSize && *totalSize != bytesRead) state = BinaryCopier::State_SourceError;
    } else if (totalSize && *totalSize < bytesRead) {
      state = BinaryCopier::State_SourceError;
    } else if (length != 0) {
      nextBuffer = block;
    }
  }
  ContinueCopy();
}

void BinaryCopierImpl::OnSinkDone(IBinarySink::SinkState sinkState, unsigned long long bytes) {
  CheckedLock lock(mutex);
  if (state == BinaryCopier::State_Cancelled) return;
  sinkBusy = false;
  if (sinkState == IBinarySink::kSinkFailure) state = BinaryCopier::State_SinkError;
  if (bytes == 0) {
    sinkFinished = true;
  } else {
    bytesWritten += bytes;
    ReportProgress();
  }
  ContinueCopy();
}

void BinaryCopierImpl::ContinueCopy() {
  if (sourceBusy || sinkBusy) return;
  if (state == BinaryCopier::State_Copying) {
    ProceedAfterRestart();
  } else if (BinaryCopier::IsFinished(state)) {
    FinishCopy();
  }
}

void BinaryCopierImpl::ReportProgress() {
  if (progressFunction.empty()) return;
  notificationExecutor->CallAsynchronously([progress = progressFunction, written = bytesWritten,
                                            total = totalSize] { progress(written, total); },
                                           0);
}

void BinaryCopierImpl::FinishCopy() {
  const State ended = state;
  const int end = EndOf(ended);
  notificationExecutor->CallAsynchronously(
      [source = source, end] { source->Finished(static_cast<FinishedSourceState>(end)); }, 0);
  notificationExecutor->CallAsynchronously(
      [sink = sink, end] { sink->Finished(static_cast<FinishedSinkState>(end)); }, 0);
  if (!finishedFunction.empty())
    notificationExecutor->CallAsynchronously(
        [finished = finishedFunction, ended] { finished(ended); }, 0);
}

BinaryCopier::BinaryCopier(boost::shared_ptr<BinaryCopierImpl> impl) : impl_(std::move(impl)) {}
BinaryCopier::~BinaryCopier() = default;

boost::shared_ptr<BinaryCopier> BinaryCopier::CreateBinaryCopier(
    boost::shared_ptr<IBinarySource> source, boost::shared_ptr<IBinarySink> sink,
    FinishedFunction finished, ProgressFunction progress) {
  return boost::make_shared<BinaryCopier>(boost::make_shared<BinaryCopierImpl>(
      std::move(source), std::move(sink), std::move(finished), std::move(progress)));
}

void BinaryCopier::Start() { impl_->Start(); }
void BinaryCopier::Pause() { impl_->Pause(); }
void BinaryCopier::Resume() { impl_->Resume(); }
void BinaryCopier::Cancel() { impl_->Cancel(); }
BinaryCopier::State BinaryCopier::GetState() const { return impl_->GetState(); }

}  // namespace tvxcore::utility
