// tvxcore/utility/BinaryCopier.h: moving a stream of bytes from a source to a
// sink in the background, with progress, pause, resume and cancel.
//
// The copier knows nothing of what the source and the sink are: both take a
// request and answer through a callback. It keeps one read and one write in
// flight, so reading block N+1 overlaps writing block N, and reports the
// progress and the end of the copy in a strict order. For files, see
// tvxcore/filesupport/FileCopyStreams.h.
#pragma once

#include <boost/function.hpp>
#include <boost/optional.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/utility/MemoryRecycler.h"

namespace tvxcore::utility {

// How a copy ended, as told to the source and the sink: success, failure
// (of either end), or cancelled by the user.
enum FinishedSourceState {
  kFinishedSourceSuccess = 0,
  kFinishedSourceFailure = 1,
  kFinishedSourceCancelled = 2
};
enum FinishedSinkState {
  kFinishedSinkSuccess = 0,
  kFinishedSinkFailure = 1,
  kFinishedSinkCancelled = 2
};

// Where the bytes come from. The copier sends at most one request at a time;
// requests arrive on threads of the processor-bound executor, never under a
// lock of the copier's, so an answer may be given from inside Read.
//
// Answers: each request is answered exactly once. An answer may come from
// any thread. A second answer to the same request is ignored. A request that
// is never answered holds the copy until Cancel. The completion function
// keeps the copy alive: let go of it once it has been called. Failures are reported by
// the state argument alone: an exception thrown by Read goes to the
// executor's handler and leaves the request unanswered.
class TVXCORE_EXPORT IBinarySource {
 public:
  enum SourceState { kSourceSuccess = 0, kSourceFailure = 1 };
  using ReadDone = boost::function<void(SourceState, boost::shared_ptr<RecycledMemory> const&)>;

  virtual ~IBinarySource();
  // Fetches the next block and answers with it: a null block means the end
  // of the data, a block of 0 bytes (or without storage) is skipped. The
  // copier keeps the block, never copies it, and lets go of it once written.
  virtual void Read(ReadDone const& done) = 0;
  // The number of bytes the source will deliver, empty when unknown. Asked
  // on the thread that calls BinaryCopier::Start. A source that delivers
  // fewer or more bytes than it announced fails the copy.
  virtual boost::optional<unsigned long long> GetSize() = 0;
  // The copy has ended; called once per end of the copy, after the last
  // progress report and before the copier's finished function.
  virtual void Finished(FinishedSourceState state) = 0;
};

// Where the bytes go. As for IBinarySource: one request at a time, answered
// once, from any thread; second answers are ignored.
class TVXCORE_EXPORT IBinarySink {
 public:
  enum SinkState { kSinkSuccess = 0, kSinkFailure = 1 };
  using WriteDone = boost::function<void(SinkState, unsigned long long)>;

  virtual ~IBinarySink();
  // Writes the block and answers with the number of bytes written. A null
  // block means the end of the data; the answer to it is 0 bytes. Any answer
  // of 0 bytes is taken as the end of the sink.
  virtual void Write(boost::shared_ptr<RecycledMemory> const& block, WriteDone const& done) = 0;
  // Drops what the sink holds without being asked to by the copier, which
  // never calls it. The default does nothing.
  virtual void Abandon();
  // The copy has ended: on success the sink makes its data final, on failure
  // or cancel it removes what it wrote. Called after the source's Finished.
  virtual void Finished(FinishedSinkState state) = 0;
};

class BinaryCopierImpl;

// One copy from a source to a sink. A handle: the copy itself lives as long
// as the handle or any outstanding request, so dropping the handle does not
// stop a running copy (Cancel does).
//
// Order of notifications: progress reports, then Finished on the source,
// then Finished on the sink, then the finished function. They run one at a
// time on a serial executor over the processor-bound executor, in that
// order; the finished function is always the last thing the copier does.
// Exceptions thrown by notifications are swallowed.
//
// All operations may be called from any thread, also from inside the
// notifications.
class TVXCORE_EXPORT BinaryCopier {
 public:
  enum State {
    State_NotStarted = 0,
    State_Copying = 1,
    State_Paused = 2,
    State_Finished = 3,
    State_SourceError = 4,  // the source failed, or delivered other than it announced
    State_SinkError = 5,
    State_Cancelled = 6,
  };

  using FinishedFunction = boost::function<void(State)>;
  // Bytes the sink confirmed so far, and the size the source announced.
  using ProgressFunction =
      boost::function<void(unsigned long long, boost::optional<unsigned long long> const&)>;

  // Either function may be empty. Nothing happens until Start. Creating a
  // copier creates the shared processor-bound executor if none is alive,
  // and keeps it alive while the copier lives.
  static boost::shared_ptr<BinaryCopier> CreateBinaryCopier(boost::shared_ptr<IBinarySource> source,
                                                            boost::shared_ptr<IBinarySink> sink,
                                                            FinishedFunction finished,
                                                            ProgressFunction progress);

  explicit BinaryCopier(boost::shared_ptr<BinaryCopierImpl> impl);
  BinaryCopier(const BinaryCopier&) = delete;
  BinaryCopier& operator=(const BinaryCopier&) = delete;
  ~BinaryCopier();

  // Asks the source for its size (the newest answer counts) and copies from
  // wherever the copy stands, in any state: after the end, both ends are
  // told Finished again once the copier has nothing left to do.
  void Start();
  // Copying becomes paused: outstanding requests finish, none is issued.
  // Any other state is left as it is.
  void Pause();
  // Paused becomes copying again; any other state is left as it is.
  void Resume();
  // While copying or paused: ends the copy at once, telling both ends
  // Finished(cancelled) without waiting for outstanding requests, whose
  // answers are then ignored. Any other state is left as it is, so a copy
  // that has not started cannot be cancelled.
  void Cancel();
  State GetState() const;

  static bool IsFinished(State state) {
    return state >= State_Finished && state <= State_Cancelled;
  }
  static bool IsError(State state) {
    return state == State_SourceError || state == State_SinkError;
  }

 private:
  boost::shared_ptr<BinaryCopierImpl> impl_;
};

}  // namespace tvxcore::utility
