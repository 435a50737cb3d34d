// tvxcore/config/Errors.h: the one road of a reported failure.
//
// Library code reports a failure with config::ThrowError; the host decides how
// it is shown and what, if anything, is thrown, by installing one concrete
// config::ErrorManager. DeferredErrorReporter objects collect errors per thread.
#pragma once

#include <boost/function.hpp>
#include <boost/intrusive_ptr.hpp>
#include <cstdint>
#include <list>
#include <string>

#include "tvxcore/Export.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/utility/RefCountedObject.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::config {

// Severity of a reported failure.
enum ErrorLevel : std::int32_t {
  kErrorLevel_None = -1,     // only in a reporter that has recorded nothing yet
  kErrorLevel_Fatal = 0,     // fatal; every contract violation
  kErrorLevel_NonFatal = 1,  // every ordinary data or file failure
};

// One typed argument of an error message, filled into "^1".."^4".
//
// Each kind keeps its own field: the numbers never overlap, and a string is
// held as an owned heap copy. Copies are deep. Not thread-safe; a value is used
// by one thread at a time.
class TVXCORE_EXPORT ReplacementValue {
 public:
  enum Kind : std::int32_t {
    kKind_Empty = 0,
    kKind_Signed = 1,
    kKind_Unsigned = 2,
    kKind_Double = 3,
    kKind_String = 4,
  };

  ReplacementValue() noexcept;
  // Integers of every width land in the 64-bit signed or unsigned field,
  // sign- or zero-extended. int and unsigned int are listed so that a plain
  // literal picks its field without ambiguity.
  ReplacementValue(int inValue) noexcept;
  ReplacementValue(unsigned int inValue) noexcept;
  ReplacementValue(long inValue) noexcept;
  ReplacementValue(unsigned long inValue) noexcept;
  ReplacementValue(long long inValue) noexcept;
  ReplacementValue(unsigned long long inValue) noexcept;
  ReplacementValue(double inValue) noexcept;
  ReplacementValue(const UTF16String& inValue);
  ReplacementValue(const ReplacementValue& inOther);
  ReplacementValue& operator=(const ReplacementValue& inOther);
  ~ReplacementValue();

  // Zeroes the four value fields (freeing the string) and leaves the kind.
  void Init() noexcept;

  Kind GetKind() const noexcept { return kind_; }
  std::uint64_t GetUnsignedValue() const noexcept { return unsigned_; }
  std::int64_t GetSignedValue() const noexcept { return signed_; }
  double GetDoubleValue() const noexcept { return double_; }
  // A copy of the string for kind 4, otherwise empty; numbers are not converted.
  UTF16String GetString() const;

 private:
  Kind kind_;
  std::uint64_t unsigned_;
  std::int64_t signed_;
  double double_;
  UTF16String* string_;
};

class ErrorManager;

// Collects the errors raised on its thread while it is the newest reporter
// there. Construction pushes it on the calling thread's stack of reporters and
// destruction removes it, so it must end on the thread that made it, and before
// the error manager. It keeps the last error of a series and a count. Used by
// one thread only; the reference count (for intrusive_ptr) is atomic.
class TVXCORE_EXPORT DeferredErrorReporter : public utility::RefCountedObject {
 public:
  // Throws std::logic_error when no error manager is installed.
  explicit DeferredErrorReporter(bool inReportErrorWhenFinished);
  // Copies every field, counters included; the copy is not registered.
  DeferredErrorReporter(const DeferredErrorReporter& inOther);
  DeferredErrorReporter& operator=(const DeferredErrorReporter&) = delete;
  // Deregisters, then drops the kept error without reporting it. With no
  // manager installed any more there is nothing to leave, and it just goes.
  ~DeferredErrorReporter() override;

  // Counts the call; when report-when-finished is set and errors were recorded
  // since the last report, hands the kept (last) error to the manager's
  // ReportError once and clears the count.
  virtual void Finish();

  bool GetReportErrorWhenFinished() const noexcept { return reportWhenFinished_; }
  void SetReportErrorWhenFinished(bool inReport) noexcept { reportWhenFinished_ = inReport; }

  ErrorLevel GetLevel() const noexcept { return level_; }
  const std::string& GetKey() const noexcept { return key_; }
  std::uint32_t GetModule() const noexcept { return module_; }
  std::int32_t GetErrorNumber() const noexcept { return errorNumber_; }
  // inIndex 0..3.
  const ReplacementValue& GetValue(int inIndex) const { return values_[inIndex & 3]; }
  std::int32_t GetErrorCount() const noexcept { return errorCount_; }
  std::int32_t GetFinishCount() const noexcept { return finishCount_; }

 private:
  friend class ErrorManager;
  void SetLastError(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                    std::int32_t inErrorNumber, const ReplacementValue& inValue1,
                    const ReplacementValue& inValue2, const ReplacementValue& inValue3,
                    const ReplacementValue& inValue4);

  bool reportWhenFinished_;
  ErrorLevel level_ = kErrorLevel_None;
  std::string key_;
  std::uint32_t module_ = 111;
  std::int32_t errorNumber_ = 0;
  ReplacementValue values_[4];
  std::int32_t errorCount_ = 0;
  std::int32_t finishCount_ = 0;
};

// A reporter whose storage comes from the small-block allocator; what
// ErrorManager::NewDeferredErrorReporter hands out.
class TVXCORE_EXPORT AllocatedDeferredErrorReporter
    : public DeferredErrorReporter,
      public utility::SmallBlockAllocator::Allocated<AllocatedDeferredErrorReporter> {
 public:
  explicit AllocatedDeferredErrorReporter(bool inReportErrorWhenFinished)
      : DeferredErrorReporter(inReportErrorWhenFinished) {}
  ~AllocatedDeferredErrorReporter() override;
  void Finish() override;
};

// The host's error manager. The library defines the routing and the per-thread
// reporter stacks; a concrete manager supplies ReportError and decides what is
// shown and thrown. One recursive lock guards the stacks and is held only for
// a lookup or a change; everything else may be called from any thread. The
// installed pointer is a plain global, set before threads start.
class TVXCORE_EXPORT ErrorManager {
 public:
  ErrorManager();
  ErrorManager(const ErrorManager&) = delete;
  ErrorManager& operator=(const ErrorManager&) = delete;
  // Uninstalls itself if it is the installed manager.
  virtual ~ErrorManager();

  // Asked by the out-of-memory hook; true makes operator new retry. Base: false.
  virtual bool PurgeMemory(unsigned long long inBytesWanted);
  virtual void IncrementLazilyDisplayErrors();
  virtual void DecrementLazilyDisplayErrors();
  // Runs `inFunction` as the top of a call stack and returns its result; a
  // manager that catches a failure here returns 1. Base: no handler at all.
  virtual long ExecuteFunctionWithTopLevelExceptionHandler(boost::function0<long> inFunction);
  // A new small-block reporter with its count already at 1.
  virtual boost::intrusive_ptr<DeferredErrorReporter> NewDeferredErrorReporter(
      bool inReportWhenFinished);
  // Shows or logs the failure and throws or returns, as the host requires.
  virtual void ReportError(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                           std::int32_t inErrorNumber, bool inRecordable,
                           const ReplacementValue& inValue1, const ReplacementValue& inValue2,
                           const ReplacementValue& inValue3, const ReplacementValue& inValue4) = 0;

  // The installed manager. With none and inAllowNull false: std::logic_error
  // "tvx::config::ErrorManager not initialized. Check tvx/config/Errors.h.".
  static ErrorManager* Get(bool inAllowNull = false);
  // Installs a manager (or null). The previous one is neither checked nor deleted.
  static void Set(ErrorManager* inManager) noexcept;

  // Records the error in the calling thread's newest reporter (when
  // recordable), then always passes it to ReportError.
  void ThrowErrorDispatch(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                          std::int32_t inErrorNumber, bool inRecordable,
                          const ReplacementValue& inValue1, const ReplacementValue& inValue2,
                          const ReplacementValue& inValue3, const ReplacementValue& inValue4);

  // True when the calling thread has a current reporter.
  bool IsErrorReportingDeferred() const;

  // Installs the out-of-memory hook for its lifetime: a failing operator new
  // asks the installed manager's PurgeMemory and retries while it returns true.
  // The library creates none; the host holds one.
  class TVXCORE_EXPORT NewHandlerInitializer {
   public:
    NewHandlerInitializer();
    ~NewHandlerInitializer();
    NewHandlerInitializer(const NewHandlerInitializer&) = delete;
    NewHandlerInitializer& operator=(const NewHandlerInitializer&) = delete;
  };

 protected:
  DeferredErrorReporter* GetCurrentErrorReporterForThisThread() const;
  void AddDeferredErrorReporter(DeferredErrorReporter* inReporter);
  void RemoveDeferredErrorReporter(DeferredErrorReporter* inReporter);

 private:
  friend class DeferredErrorReporter;
  using ReporterList =
      std::list<DeferredErrorReporter*,
                utility::SmallBlockAllocator::STLAllocator<DeferredErrorReporter*>>;
  using ReporterMap = utility::SmallBlockAllocator::map<std::uint32_t, ReporterList>;

  mutable threads::BoostRecursiveMutex mutex_;
  ReporterMap reporters_ TVX_GUARDED_BY(mutex_);

  static ErrorManager* S_managerP;
};

// Reports a failure through the installed manager (std::logic_error when none
// is installed). All four values are always passed; may return.
TVXCORE_EXPORT void ThrowError(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                               std::int32_t inErrorNumber, bool inRecordable,
                               const ReplacementValue& inValue1, const ReplacementValue& inValue2,
                               const ReplacementValue& inValue3, const ReplacementValue& inValue4);

// The localised text of `inKey` with the first "^1".."^4" each replaced by its
// value, in order, each step working on the previous result. Empty values leave
// their token. Needs an installed Localizer.
TVXCORE_EXPORT UTF16String SubstituteErrorMessage(const char* inKey,
                                                  const ReplacementValue& inValue1,
                                                  const ReplacementValue& inValue2,
                                                  const ReplacementValue& inValue3,
                                                  const ReplacementValue& inValue4);

// Runs a function as the top of a call stack, through the installed manager's
// handler when there is one. `outFlag` (optional) says whether the manager
// caught a failure; with no manager it is false and exceptions pass through.
template <typename T>
T ExecuteTopLevelFunction(boost::function0<T> inFunction, bool* outFlag = nullptr);
template <>
TVXCORE_EXPORT void ExecuteTopLevelFunction<void>(boost::function0<void> inFunction, bool* outFlag);

// Raises the fatal or the non-fatal test error.
TVXCORE_EXPORT void TestThrowError(bool inFatal);

}  // namespace tvxcore::config
