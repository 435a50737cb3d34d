// filework/internal/BinaryCopierImpl.h: the state machine behind
// utility::BinaryCopier.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/function.hpp>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/AsyncExecutor.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/utility/BinaryCopier.h"

namespace tvxcore::utility {

// Every step runs under `mutex`; the source, the sink and the user's
// functions are only ever called from items posted to an executor, never
// under the lock. Each completion function handed to the source or the sink
// holds a strong reference, so the copy lives until the last request has
// answered.
class BinaryCopierImpl : public boost::enable_shared_from_this<BinaryCopierImpl> {
 public:
  using State = BinaryCopier::State;

  BinaryCopierImpl(boost::shared_ptr<IBinarySource> source, boost::shared_ptr<IBinarySink> sink,
                   BinaryCopier::FinishedFunction finished,
                   BinaryCopier::ProgressFunction progress);
  BinaryCopierImpl(const BinaryCopierImpl&) = delete;
  BinaryCopierImpl& operator=(const BinaryCopierImpl&) = delete;

  void Start();
  void Pause();
  void Resume();
  void Cancel();
  State GetState() const;

 private:
  void ProceedAfterRestart() TVX_REQUIRES(mutex);
  void IssueWrite() TVX_REQUIRES(mutex);
  void IssueRead() TVX_REQUIRES(mutex);
  void OnSourceDone(IBinarySource::SourceState sourceState,
                    boost::shared_ptr<RecycledMemory> const& block);
  void OnSinkDone(IBinarySink::SinkState sinkState, unsigned long long bytes);
  void ContinueCopy() TVX_REQUIRES(mutex);
  void ReportProgress() TVX_REQUIRES(mutex);
  void FinishCopy() TVX_REQUIRES(mutex);

  State state TVX_GUARDED_BY(mutex) = BinaryCopier::State_NotStarted;
  const boost::shared_ptr<IBinarySource> source;
  const boost::shared_ptr<IBinarySink> sink;
  mutable threads::BoostRecursiveMutex mutex;
  boost::shared_ptr<RecycledMemory> nextBuffer TVX_GUARDED_BY(mutex);
  bool sourceBusy TVX_GUARDED_BY(mutex) = false;
  bool sinkBusy TVX_GUARDED_BY(mutex) = false;
  bool sourceFinished TVX_GUARDED_BY(mutex) = false;
  bool sinkFinished TVX_GUARDED_BY(mutex) = false;
  const BinaryCopier::FinishedFunction finishedFunction;
  const BinaryCopier::ProgressFunction progressFunction;
  unsigned long long bytesWritten TVX_GUARDED_BY(mutex) = 0;
  unsigned long long bytesRead TVX_GUARDED_BY(mutex) = 0;
  boost::optional<unsigned long long> totalSize TVX_GUARDED_BY(mutex);
  const boost::shared_ptr<threads::AsyncExecutor> executor;
  const boost::shared_ptr<threads::AsyncThreadedExecutor> notificationExecutor;
};

}  // namespace tvxcore::utility
