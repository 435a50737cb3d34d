// The asynchronous trace handler: lines handed on from a serial executor
// over the shared I/O threads.
#include <boost/make_shared.hpp>

#include "execution/internal/AsyncTraceQueue.h"
#include "tvxcore/debug/TraceHandlers.h"
#include "tvxcore/threads/SharedExecutors.h"
#include "tvxcore/threads/SubExecutor.h"

namespace tvxcore::debug {

AsyncTraceHandler::AsyncTraceHandler(TraceHandler* inNext) : mNext(inNext) {
  // Width 1: one line at a time, in order, from whichever I/O thread is free.
  mQueue = boost::make_shared<internal::AsyncTraceQueue>(
      mNext, threads::CreateSubExecutor(threads::CreateIOBoundExecutor(), 1));
}

AsyncTraceHandler::~AsyncTraceHandler() { mQueue->Close(); }

void AsyncTraceHandler::WriteTrace(const std::string& inLine) { mQueue->Write(inLine); }

}  // namespace tvxcore::debug
