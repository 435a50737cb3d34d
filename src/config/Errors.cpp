#include "tvxcore/config/Errors.h"

#include <charconv>
#include <new>
#include <stdexcept>

#include "platform/Thread.h"
#include "tvxcore/config/Localizer.h"
#include "utility/internal/MemoryPurge.h"

namespace tvxcore::config {

// ReplacementValue ----------------------------------------------------------

ReplacementValue::ReplacementValue() noexcept
    : kind_(kKind_Empty), unsigned_(0), signed_(0), double_(0), string_(nullptr) {}
ReplacementValue::ReplacementValue(int inValue) noexcept
    : ReplacementValue(static_cast<long long>(inValue)) {}
ReplacementValue::ReplacementValue(unsigned int inValue) noexcept
    : ReplacementValue(static_cast<unsigned long long>(inValue)) {}
ReplacementValue::ReplacementValue(long inValue) noexcept
    : ReplacementValue(static_cast<long long>(inValue)) {}
ReplacementValue::ReplacementValue(unsigned long inValue) noexcept
    : ReplacementValue(static_cast<unsigned long long>(inValue)) {}
ReplacementValue::ReplacementValue(long long inValue) noexcept : ReplacementValue() {
  kind_ = kKind_Signed;
  signed_ = inValue;
}
ReplacementValue::ReplacementValue(unsigned long long inValue) noexcept : ReplacementValue() {
  kind_ = kKind_Unsigned;
  unsigned_ = inValue;
}
ReplacementValue::ReplacementValue(double inValue) noexcept : ReplacementValue() {
  kind_ = kKind_Double;
  double_ = inValue;
}
ReplacementValue::ReplacementValue(const UTF16String& inValue) : ReplacementValue() {
  string_ = new UTF16String(inValue);
  kind_ = kKind_String;
}

ReplacementValue::ReplacementValue(const ReplacementValue& inOther)
    : kind_(inOther.kind_),
      unsigned_(inOther.unsigned_),
      signed_(inOther.signed_),
      double_(inOther.double_),
      string_(inOther.string_ ? new UTF16String(*inOther.string_) : nullptr) {}

ReplacementValue& ReplacementValue::operator=(const ReplacementValue& inOther) {
  if (this == &inOther) return *this;
  UTF16String* copy = inOther.string_ ? new UTF16String(*inOther.string_) : nullptr;
  delete string_;
  string_ = copy;
  kind_ = inOther.kind_;
  unsigned_ = inOther.unsigned_;
  signed_ = inOther.signed_;
  double_ = inOther.double_;
  return *this;
}

ReplacementValue::~ReplacementValue() { delete string_; }

void ReplacementValue::Init() noexcept {
  unsigned_ = 0;
  signed_ = 0;
  double_ = 0;
  delete string_;
  string_ = nullptr;
}

UTF16String ReplacementValue::GetString() const {
  if (kind_ == kKind_String && string_) return *string_;
  return UTF16String();
}

// DeferredErrorReporter -----------------------------------------------------

DeferredErrorReporter::DeferredErrorReporter(bool inReportErrorWhenFinished)
    : reportWhenFinished_(inReportErrorWhenFinished) {
  ErrorManager::Get(false)->AddDeferredErrorReporter(this);
}

DeferredErrorReporter::DeferredErrorReporter(const DeferredErrorReporter& inOther)
    : utility::RefCountedObject(),
      reportWhenFinished_(inOther.reportWhenFinished_),
      level_(inOther.level_),
      key_(inOther.key_),
      module_(inOther.module_),
      errorNumber_(inOther.errorNumber_),
      values_{inOther.values_[0], inOther.values_[1], inOther.values_[2], inOther.values_[3]},
      errorCount_(inOther.errorCount_),
      finishCount_(inOther.finishCount_) {}

DeferredErrorReporter::~DeferredErrorReporter() {
  // A destructor must not throw: with no manager left there is no list to
  // leave, so the reporter simply goes.
  if (ErrorManager* manager = ErrorManager::Get(true)) manager->RemoveDeferredErrorReporter(this);
}

void DeferredErrorReporter::Finish() {
  ++finishCount_;
  if (reportWhenFinished_ && errorCount_ > 0) {
    errorCount_ = 0;
    ErrorManager::Get(false)->ReportError(level_, key_.c_str(), module_, errorNumber_, true,
                                          values_[0], values_[1], values_[2], values_[3]);
  }
}

void DeferredErrorReporter::SetLastError(ErrorLevel inLevel, const char* inKey,
                                         std::uint32_t inModule, std::int32_t inErrorNumber,
                                         const ReplacementValue& inValue1,
                                         const ReplacementValue& inValue2,
                                         const ReplacementValue& inValue3,
                                         const ReplacementValue& inValue4) {
  ++errorCount_;
  level_ = inLevel;
  key_ = inKey ? inKey : "";
  module_ = inModule;
  errorNumber_ = inErrorNumber;
  values_[0] = inValue1;
  values_[1] = inValue2;
  values_[2] = inValue3;
  values_[3] = inValue4;
}

AllocatedDeferredErrorReporter::~AllocatedDeferredErrorReporter() = default;
void AllocatedDeferredErrorReporter::Finish() { DeferredErrorReporter::Finish(); }

// ErrorManager --------------------------------------------------------------

ErrorManager* ErrorManager::S_managerP = nullptr;

ErrorManager::ErrorManager() = default;

ErrorManager::~ErrorManager() {
  if (S_managerP == this) S_managerP = nullptr;
}

bool ErrorManager::PurgeMemory(unsigned long long) { return false; }
void ErrorManager::IncrementLazilyDisplayErrors() {}
void ErrorManager::DecrementLazilyDisplayErrors() {}

long ErrorManager::ExecuteFunctionWithTopLevelExceptionHandler(boost::function0<long> inFunction) {
  long result = inFunction();
  inFunction.clear();
  return result;
}

boost::intrusive_ptr<DeferredErrorReporter> ErrorManager::NewDeferredErrorReporter(
    bool inReportWhenFinished) {
  return boost::intrusive_ptr<DeferredErrorReporter>(
      new AllocatedDeferredErrorReporter(inReportWhenFinished));
}

ErrorManager* ErrorManager::Get(bool inAllowNull) {
  if (!S_managerP && !inAllowNull) {
    throw std::logic_error("tvx::config::ErrorManager not initialized. Check tvx/config/Errors.h.");
  }
  return S_managerP;
}

namespace {
// The recycler's last resort when memory runs out, handed down to it.
bool PurgeThroughManager(unsigned long long inBytesWanted) {
  ErrorManager* manager = ErrorManager::Get(true);
  return manager != nullptr && manager->PurgeMemory(inBytesWanted);
}
}  // namespace

void ErrorManager::Set(ErrorManager* inManager) noexcept {
  S_managerP = inManager;
  utility::internal::SetMemoryPurger(&PurgeThroughManager);
}

void ErrorManager::ThrowErrorDispatch(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                                      std::int32_t inErrorNumber, bool inRecordable,
                                      const ReplacementValue& inValue1,
                                      const ReplacementValue& inValue2,
                                      const ReplacementValue& inValue3,
                                      const ReplacementValue& inValue4) {
  DeferredErrorReporter* reporter = GetCurrentErrorReporterForThisThread();
  if (reporter && inRecordable) {
    reporter->SetLastError(inLevel, inKey, inModule, inErrorNumber, inValue1, inValue2, inValue3,
                           inValue4);
  }
  ReportError(inLevel, inKey, inModule, inErrorNumber, inRecordable, inValue1, inValue2, inValue3,
              inValue4);
}

bool ErrorManager::IsErrorReportingDeferred() const {
  return GetCurrentErrorReporterForThisThread() != nullptr;
}

DeferredErrorReporter* ErrorManager::GetCurrentErrorReporterForThisThread() const {
  const std::uint32_t thread = platform::CurrentThreadId();
  threads::CheckedLock lock(mutex_);
  auto it = reporters_.find(thread);
  if (it == reporters_.end() || it->second.empty()) return nullptr;
  return it->second.front();
}

void ErrorManager::AddDeferredErrorReporter(DeferredErrorReporter* inReporter) {
  if (!inReporter) return;
  const std::uint32_t thread = platform::CurrentThreadId();
  threads::CheckedLock lock(mutex_);
  reporters_[thread].push_front(inReporter);
}

void ErrorManager::RemoveDeferredErrorReporter(DeferredErrorReporter* inReporter) {
  if (!inReporter) return;
  const std::uint32_t thread = platform::CurrentThreadId();
  threads::CheckedLock lock(mutex_);
  auto it = reporters_.find(thread);
  if (it == reporters_.end()) return;
  it->second.remove(inReporter);
  if (it->second.empty()) reporters_.erase(it);
}

// Out of memory -------------------------------------------------------------

namespace {

// std::new_handler does not learn the size that failed, so the purge is asked
// for "as much as you can" (0). Without a manager nothing can be purged and the
// allocation fails as it would without the hook.
void OutOfMemoryHook() {
  ErrorManager* manager = ErrorManager::Get(true);
  if (!manager || !manager->PurgeMemory(0)) throw std::bad_alloc();
}

}  // namespace

ErrorManager::NewHandlerInitializer::NewHandlerInitializer() {
  std::set_new_handler(OutOfMemoryHook);
}
ErrorManager::NewHandlerInitializer::~NewHandlerInitializer() { std::set_new_handler(nullptr); }

// Free functions ------------------------------------------------------------

void ThrowError(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                std::int32_t inErrorNumber, bool inRecordable, const ReplacementValue& inValue1,
                const ReplacementValue& inValue2, const ReplacementValue& inValue3,
                const ReplacementValue& inValue4) {
  ErrorManager::Get(false)->ThrowErrorDispatch(inLevel, inKey, inModule, inErrorNumber,
                                               inRecordable, inValue1, inValue2, inValue3,
                                               inValue4);
}

namespace {

UTF16String ValueText(const ReplacementValue& inValue) {
  if (inValue.GetKind() == ReplacementValue::kKind_String) return inValue.GetString();
  // What a default-formatted stream writes in the classic locale: decimal
  // integers, and a double with six significant digits in the shorter of fixed
  // and scientific form (printf's "%g"). The digits are ASCII, so they widen
  // unit by unit.
  char buffer[64];
  std::to_chars_result result{buffer, std::errc()};
  switch (inValue.GetKind()) {
    case ReplacementValue::kKind_Signed:
      result = std::to_chars(buffer, buffer + sizeof buffer, inValue.GetSignedValue());
      break;
    case ReplacementValue::kKind_Unsigned:
      result = std::to_chars(buffer, buffer + sizeof buffer, inValue.GetUnsignedValue());
      break;
    case ReplacementValue::kKind_Double:
      result = std::to_chars(buffer, buffer + sizeof buffer, inValue.GetDoubleValue(),
                             std::chars_format::general, 6);
      break;
    default:
      break;
  }
  return UTF16String(buffer, result.ptr);
}

}  // namespace

UTF16String SubstituteErrorMessage(const char* inKey, const ReplacementValue& inValue1,
                                   const ReplacementValue& inValue2,
                                   const ReplacementValue& inValue3,
                                   const ReplacementValue& inValue4) {
  UTF16String text = Localizer::Get()->Translate(inKey);
  static const char16_t* const kTokens[4] = {u"^1", u"^2", u"^3", u"^4"};
  const ReplacementValue* values[4] = {&inValue1, &inValue2, &inValue3, &inValue4};
  for (int i = 0; i < 4; ++i) {
    if (values[i]->GetKind() == ReplacementValue::kKind_Empty) continue;
    auto at = text.find(kTokens[i]);
    if (at == UTF16String::npos) continue;
    text.replace(at, 2, ValueText(*values[i]));
  }
  return text;
}

template <>
void ExecuteTopLevelFunction<void>(boost::function0<void> inFunction, bool* outFlag) {
  ErrorManager* manager = ErrorManager::Get(true);
  if (!manager) {
    if (outFlag) *outFlag = false;
    inFunction();
    return;
  }
  boost::function0<long> wrapped = [inFunction]() -> long {
    inFunction();
    return 0;
  };
  long result = manager->ExecuteFunctionWithTopLevelExceptionHandler(wrapped);
  if (outFlag) *outFlag = result == 1;
}

void TestThrowError(bool inFatal) {
  if (inFatal) {
    ThrowError(kErrorLevel_Fatal,
               "$$$/tvxcore/config/Error/test/fataltest=This is a fatal exception.", 100, 21, true,
               ReplacementValue(), ReplacementValue(), ReplacementValue(), ReplacementValue());
  } else {
    ThrowError(kErrorLevel_NonFatal,
               "$$$/tvxcore/config/Error/test/nonfataltest=This is a non-fatal exception. "
               "int:^1, uint:^2, double:^3",
               100, 20, true, ReplacementValue(-2147483648LL), ReplacementValue(4294967295ULL),
               ReplacementValue(29.2334), ReplacementValue());
  }
}

}  // namespace tvxcore::config
