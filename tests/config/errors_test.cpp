#include <gtest/gtest.h>

#include <boost/function.hpp>
#include <new>
#include <stdexcept>
#include <thread>

#include "config/ErrorTestSupport.h"
#include "tvxcore/config/Errors.h"

namespace {

using namespace tvxtest;
using tvxcore::config::DeferredErrorReporter;
using tvxcore::config::ErrorManager;
using tvxcore::config::kErrorLevel_Fatal;
using tvxcore::config::kErrorLevel_None;
using tvxcore::config::kErrorLevel_NonFatal;
using tvxcore::config::Localizer;
using tvxcore::config::SubstituteErrorMessage;
using tvxcore::config::ThrowError;

const ReplacementValue kNone;

// Installs a recording manager and a default-text localizer for each test.
class ErrorRoad : public ::testing::Test {
 protected:
  void SetUp() override {
    ErrorManager::Set(&manager);
    Localizer::Set(&localizer);
  }
  void TearDown() override {
    Localizer::Set(nullptr);
    ErrorManager::Set(nullptr);
  }
  void Raise(const char* key, std::int32_t number, bool recordable = true,
             const ReplacementValue& v1 = ReplacementValue()) {
    ThrowError(kErrorLevel_NonFatal, key, 104, number, recordable, v1, kNone, kNone, kNone);
  }

  RecordingErrorManager manager;
  MapLocalizer localizer;
};

std::string Substitute(const char* key, const ReplacementValue& v1 = ReplacementValue(),
                       const ReplacementValue& v2 = ReplacementValue(),
                       const ReplacementValue& v3 = ReplacementValue(),
                       const ReplacementValue& v4 = ReplacementValue()) {
  return S(SubstituteErrorMessage(key, v1, v2, v3, v4));
}

TEST(ReplacementValue, EachSourceTypeLandsInItsOwnField) {
  using K = ReplacementValue::Kind;
  struct Case {
    ReplacementValue value;
    K kind;
    std::int64_t s;
    std::uint64_t u;
    double d;
  };
  const Case cases[] = {
      {ReplacementValue(), K::kKind_Empty, 0, 0, 0},
      {ReplacementValue(-7), K::kKind_Signed, -7, 0, 0},
      {ReplacementValue(7u), K::kKind_Unsigned, 0, 7, 0},
      {ReplacementValue(-2147483648L), K::kKind_Signed, -2147483648LL, 0, 0},
      {ReplacementValue(4294967295UL), K::kKind_Unsigned, 0, 4294967295ULL, 0},
      {ReplacementValue(-(1LL << 40)), K::kKind_Signed, -(1LL << 40), 0, 0},
      {ReplacementValue(~0ULL), K::kKind_Unsigned, 0, ~0ULL, 0},
      {ReplacementValue(short{-3}), K::kKind_Signed, -3, 0, 0},
      {ReplacementValue(2.5f), K::kKind_Double, 0, 0, 2.5},
      {ReplacementValue(29.2334), K::kKind_Double, 0, 0, 29.2334},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(c.value.GetKind(), c.kind);
    EXPECT_EQ(c.value.GetSignedValue(), c.s);
    EXPECT_EQ(c.value.GetUnsignedValue(), c.u);
    EXPECT_EQ(c.value.GetDoubleValue(), c.d);
    EXPECT_TRUE(c.value.GetString().empty()) << "numbers are not converted to text";
  }
  ReplacementValue text(U("a path"));
  EXPECT_EQ(text.GetKind(), ReplacementValue::kKind_String);
  EXPECT_EQ(S(text.GetString()), "a path");
}

TEST(ReplacementValue, CopiesAreDeepAndInitKeepsTheKind) {
  auto original = std::make_unique<ReplacementValue>(U("first"));
  ReplacementValue copy(*original);
  ReplacementValue assigned(5);
  assigned = *original;
  original.reset();  // the copies own their strings
  EXPECT_EQ(S(copy.GetString()), "first");
  EXPECT_EQ(S(assigned.GetString()), "first");

  ReplacementValue& self = assigned;
  assigned = self;
  EXPECT_EQ(S(assigned.GetString()), "first");

  assigned = ReplacementValue(-4);
  EXPECT_EQ(assigned.GetKind(), ReplacementValue::kKind_Signed);
  EXPECT_EQ(assigned.GetSignedValue(), -4);
  EXPECT_TRUE(assigned.GetString().empty());

  copy.Init();
  EXPECT_EQ(copy.GetKind(), ReplacementValue::kKind_String);
  EXPECT_TRUE(copy.GetString().empty());
}

TEST_F(ErrorRoad, CaretTokensReplaceOnlyTheFirstOccurrenceInOrder) {
  struct Case {
    const char* key;
    ReplacementValue v1, v2, v3, v4;
    const char* expected;
  };
  const Case cases[] = {
      {"$$$/tvxcore/t=a ^1 b ^1", 5, {}, {}, {}, "a 5 b ^1"},
      {"$$$/tvxcore/t=^4^3^2^1", 1, 2, 3, 4, "4321"},
      {"$$$/tvxcore/t=x ^2 y", 1, {}, {}, {}, "x ^2 y"},
      {"$$$/tvxcore/t=no tokens", 1, 2, 3, 4, "no tokens"},
      {"$$$/tvxcore/t=^1|^2|^3",
       -2147483648LL,
       4294967295ULL,
       29.2334,
       {},
       "-2147483648|4294967295|29.2334"},
      {"$$$/tvxcore/t=^1 ^2 ^3", 1.0 / 3.0, 1e20, -0.5, {}, "0.333333 1e+20 -0.5"},
      {"$$$/tvxcore/t=[^1]", U(""), {}, {}, {}, "[]"},
      {"$$$/tvxcore/t=^1 @0 @1", U("v"), {}, {}, {}, "v @0 @1"},
      {"$$$/tvxcore/t=^10", 7, {}, {}, {}, "70"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Substitute(c.key, c.v1, c.v2, c.v3, c.v4), c.expected) << c.key;
  }
}

TEST_F(ErrorRoad, CaretSubstitutionChainsThroughEarlierValues) {
  // A value given for ^1 that itself holds ^2 is filled by the second value,
  // and the text's own ^2 is then left alone (first occurrence only).
  EXPECT_EQ(Substitute("$$$/tvxcore/t=<^1> <^2>", U("x^2y"), 7), "<x7y> <^2>");
  EXPECT_EQ(Substitute("$$$/tvxcore/t=^1", U("^2^3^4"), U("a"), U("b"), U("c")), "abc");
  // Later tokens never feed earlier ones.
  EXPECT_EQ(Substitute("$$$/tvxcore/t=^2 ^1", U("one"), U("^1")), "^1 one");
}

TEST_F(ErrorRoad, SubstitutionWorksOnTheTranslatedText) {
  localizer.entries["$$$/tvxcore/config/Error/test/nonfataltest"] =
      "Nicht schwerwiegend: ^3 / ^2 / ^1";
  EXPECT_EQ(Substitute("$$$/tvxcore/config/Error/test/nonfataltest=English ^1", -1, 2u, 0.25),
            "Nicht schwerwiegend: 0.25 / 2 / -1");
}

TEST_F(ErrorRoad, TestErrorsCarryTheirFixedValues) {
  tvxcore::config::TestThrowError(false);
  tvxcore::config::TestThrowError(true);
  auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), 2u);

  const Report& nonFatal = reports[0];
  EXPECT_EQ(nonFatal.level, kErrorLevel_NonFatal);
  EXPECT_EQ(nonFatal.module, 100u);
  EXPECT_EQ(nonFatal.number, 20);
  EXPECT_TRUE(nonFatal.recordable);
  EXPECT_EQ(nonFatal.values[0].GetKind(), ReplacementValue::kKind_Signed);
  EXPECT_EQ(nonFatal.values[0].GetSignedValue(), -2147483648LL);
  EXPECT_EQ(nonFatal.values[1].GetKind(), ReplacementValue::kKind_Unsigned);
  EXPECT_EQ(nonFatal.values[1].GetUnsignedValue(), 4294967295ULL);
  EXPECT_EQ(nonFatal.values[2].GetKind(), ReplacementValue::kKind_Double);
  EXPECT_EQ(nonFatal.values[2].GetDoubleValue(), 29.2334);
  EXPECT_EQ(nonFatal.values[3].GetKind(), ReplacementValue::kKind_Empty);
  EXPECT_EQ(S(SubstituteErrorMessage(nonFatal.key.c_str(), nonFatal.values[0], nonFatal.values[1],
                                     nonFatal.values[2], nonFatal.values[3])),
            "This is a non-fatal exception. int:-2147483648, uint:4294967295, double:29.2334");

  const Report& fatal = reports[1];
  EXPECT_EQ(fatal.level, kErrorLevel_Fatal);
  EXPECT_EQ(fatal.key, "$$$/tvxcore/config/Error/test/fataltest=This is a fatal exception.");
  EXPECT_EQ(fatal.module, 100u);
  EXPECT_EQ(fatal.number, 21);
  for (const auto& value : fatal.values) EXPECT_EQ(value.GetKind(), ReplacementValue::kKind_Empty);
  EXPECT_EQ(Substitute(fatal.key.c_str()), "This is a fatal exception.");
}

TEST(ErrorRoadUninstalled, EveryEntryPointNamesTheMissingPiece) {
  const std::string noManager =
      "tvx::config::ErrorManager not initialized. Check tvx/config/Errors.h.";
  const std::string noLocalizer =
      "tvxcore::config::Localizer not initialized. Check tvxcore/config/Localizer.h.";
  ASSERT_EQ(ErrorManager::Get(true), nullptr);
  ASSERT_FALSE(Localizer::Initialized());
  auto message = [](const std::function<void()>& call) -> std::string {
    try {
      call();
    } catch (const std::logic_error& e) {
      return e.what();
    }
    return "(no exception)";
  };
  EXPECT_EQ(message([] { ErrorManager::Get(false); }), noManager);
  EXPECT_EQ(message([] {
              ThrowError(kErrorLevel_NonFatal, "$$$/tvxcore/t=x", 100, 1, true, kNone, kNone, kNone,
                         kNone);
            }),
            noManager);
  EXPECT_EQ(message([] { tvxcore::config::TestThrowError(true); }), noManager);
  EXPECT_EQ(message([] { DeferredErrorReporter reporter(true); }), noManager);
  EXPECT_EQ(message([] { Localizer::Get(); }), noLocalizer);
  EXPECT_EQ(message([] { SubstituteErrorMessage("$$$/tvxcore/t=x", kNone, kNone, kNone, kNone); }),
            noLocalizer);
}

TEST_F(ErrorRoad, ReporterRecordsTheLastErrorAndStillLetsEachOneThrough) {
  DeferredErrorReporter reporter(true);
  EXPECT_EQ(reporter.GetLevel(), kErrorLevel_None);
  EXPECT_EQ(reporter.GetModule(), 111u);
  EXPECT_TRUE(manager.IsErrorReportingDeferred());

  std::string firstKey = "$$$/tvxcore/first=one";
  Raise(firstKey.c_str(), 1, true, 10);
  firstKey.assign(firstKey.size(), 'x');  // the reporter keeps its own copy
  EXPECT_EQ(reporter.GetKey(), "$$$/tvxcore/first=one");
  Raise("$$$/tvxcore/second=two", 2, true, U("v"));
  Raise("$$$/tvxcore/ignored=three", 3, false, 30);

  ASSERT_EQ(manager.Reports().size(), 3u) << "recording never stops the report";
  for (const Report& report : manager.Reports()) EXPECT_TRUE(report.deferred);
  EXPECT_EQ(reporter.GetErrorCount(), 2);
  EXPECT_EQ(reporter.GetKey(), "$$$/tvxcore/second=two");
  EXPECT_EQ(reporter.GetErrorNumber(), 2);
  EXPECT_EQ(reporter.GetModule(), 104u);
  EXPECT_EQ(reporter.GetLevel(), kErrorLevel_NonFatal);
  EXPECT_EQ(S(reporter.GetValue(0).GetString()), "v");
}

TEST_F(ErrorRoad, FinishReportsEachBatchOnceWhenAsked) {
  DeferredErrorReporter reporting(true);
  Raise("$$$/tvxcore/a=a", 1);
  Raise("$$$/tvxcore/b=b", 2);
  const std::size_t before = manager.Reports().size();
  reporting.Finish();
  reporting.Finish();
  auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), before + 1);
  EXPECT_EQ(reports.back().key, "$$$/tvxcore/b=b");
  EXPECT_EQ(reports.back().number, 2);
  EXPECT_TRUE(reports.back().recordable);
  EXPECT_EQ(reporting.GetErrorCount(), 0);
  EXPECT_EQ(reporting.GetFinishCount(), 2);
  EXPECT_EQ(reporting.GetKey(), "$$$/tvxcore/b=b") << "the kept error stays after its report";

  Raise("$$$/tvxcore/c=c", 3);
  const std::size_t afterThird = manager.Reports().size();
  reporting.SetReportErrorWhenFinished(false);
  reporting.Finish();
  EXPECT_EQ(manager.Reports().size(), afterThird) << "with the flag off Finish only counts";
  EXPECT_EQ(reporting.GetErrorCount(), 1);
  EXPECT_EQ(reporting.GetFinishCount(), 3);
}

TEST_F(ErrorRoad, NestedReportersFormAStackPerThread) {
  auto outer = std::make_unique<DeferredErrorReporter>(false);
  {
    DeferredErrorReporter inner(false);
    Raise("$$$/tvxcore/inner=i", 1);
    EXPECT_EQ(inner.GetErrorCount(), 1);
    EXPECT_EQ(outer->GetErrorCount(), 0) << "only the newest reporter records";

    DeferredErrorReporter copy(inner);
    EXPECT_EQ(copy.GetErrorCount(), 1);
    EXPECT_EQ(copy.GetKey(), inner.GetKey());
    EXPECT_EQ(copy.GetRefCount(), 0);
    Raise("$$$/tvxcore/again=i", 2);
    EXPECT_EQ(inner.GetErrorCount(), 2) << "a copy is not registered";
    EXPECT_EQ(copy.GetErrorCount(), 1);
  }
  Raise("$$$/tvxcore/outer=o", 3);
  EXPECT_EQ(outer->GetErrorCount(), 1);
  outer.reset();
  EXPECT_FALSE(manager.IsErrorReportingDeferred());
  Raise("$$$/tvxcore/none=n", 4);
  EXPECT_FALSE(manager.Reports().back().deferred);
}

TEST_F(ErrorRoad, AllocatedReporterIsCountedAndRegistered) {
  {
    boost::intrusive_ptr<DeferredErrorReporter> reporter = manager.NewDeferredErrorReporter(true);
    EXPECT_EQ(reporter->GetRefCount(), 1);
    boost::intrusive_ptr<DeferredErrorReporter> shared = reporter;
    EXPECT_EQ(reporter->GetRefCount(), 2);
    shared.reset();
    Raise("$$$/tvxcore/x=x", 9);
    EXPECT_EQ(reporter->GetErrorCount(), 1);
    reporter->Finish();
    EXPECT_EQ(manager.Reports().size(), 2u);
  }
  EXPECT_FALSE(manager.IsErrorReportingDeferred());
}

TEST_F(ErrorRoad, ReportersOnOneThreadDoNotSeeAnotherThreadsErrors) {
  DeferredErrorReporter mine(false);
  constexpr int kThreads = 4;
  constexpr int kErrorsEach = 50;
  std::vector<int> counts(kThreads, -1);
  std::vector<bool> deferredWithout(kThreads, true);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      deferredWithout[t] = manager.IsErrorReportingDeferred();
      DeferredErrorReporter theirs(false);
      for (int i = 0; i < kErrorsEach + t; ++i) Raise("$$$/tvxcore/thread=t", t);
      counts[t] = theirs.GetErrorCount();
      ThrowError(kErrorLevel_NonFatal, "$$$/tvxcore/thread=t", 104, t, true, kNone, kNone, kNone,
                 kNone);
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_FALSE(deferredWithout[t]) << "thread " << t;
    EXPECT_EQ(counts[t], kErrorsEach + t) << "thread " << t;
  }
  EXPECT_EQ(mine.GetErrorCount(), 0);
  EXPECT_TRUE(manager.IsErrorReportingDeferred());
}

TEST_F(ErrorRoad, ManagerUninstallsOnlyItself) {
  {
    RecordingErrorManager other;
    EXPECT_EQ(ErrorManager::Get(), &manager) << "constructing does not install";
  }
  EXPECT_EQ(ErrorManager::Get(), &manager);
  {
    RecordingErrorManager replacement;
    ErrorManager::Set(&replacement);
    tvxcore::config::TestThrowError(true);
    EXPECT_EQ(replacement.Reports().size(), 1u);
  }
  EXPECT_EQ(ErrorManager::Get(true), nullptr);
  EXPECT_TRUE(manager.Reports().empty());
}

TEST(TopLevelFunction, WithoutManagerRunsDirectlyAndLetsExceptionsThrough) {
  ASSERT_EQ(ErrorManager::Get(true), nullptr);
  bool flag = true;
  int runs = 0;
  tvxcore::config::ExecuteTopLevelFunction<void>([&] { ++runs; }, &flag);
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(flag);
  flag = true;
  EXPECT_THROW(tvxcore::config::ExecuteTopLevelFunction<void>(
                   [] { throw std::runtime_error("out"); }, &flag),
               std::runtime_error);
  EXPECT_FALSE(flag);
  try {
    tvxcore::config::ExecuteTopLevelFunction<void>(boost::function0<void>(), nullptr);
    ADD_FAILURE() << "an empty function must throw";
  } catch (const boost::bad_function_call& e) {
    EXPECT_STREQ(e.what(), "call to empty boost::function");
  }
}

TEST_F(ErrorRoad, TopLevelFunctionSaysWhetherTheManagerCaughtAFailure) {
  manager.throwWhenNotDeferred = true;
  bool flag = false;
  int runs = 0;
  tvxcore::config::ExecuteTopLevelFunction<void>([&] { ++runs; }, &flag);
  EXPECT_EQ(runs, 1);
  EXPECT_FALSE(flag);
  tvxcore::config::ExecuteTopLevelFunction<void>([] { tvxcore::config::TestThrowError(true); },
                                                 &flag);
  EXPECT_TRUE(flag);
  EXPECT_EQ(manager.Reports().size(), 1u);
}

class BaseManager : public ErrorManager {
 public:
  void ReportError(ErrorLevel, const char*, std::uint32_t, std::int32_t, bool,
                   const ReplacementValue&, const ReplacementValue&, const ReplacementValue&,
                   const ReplacementValue&) override {}
};

TEST(ErrorManagerBase, DefaultsDoNothingAndCatchNothing) {
  BaseManager base;
  ErrorManager::Set(&base);
  EXPECT_FALSE(base.PurgeMemory(1024));
  EXPECT_EQ(base.ExecuteFunctionWithTopLevelExceptionHandler([] { return 7L; }), 7);
  bool flag = true;
  tvxcore::config::ExecuteTopLevelFunction<void>([] {}, &flag);
  EXPECT_FALSE(flag);
  EXPECT_THROW(tvxcore::config::ExecuteTopLevelFunction<void>(
                   [] { throw std::runtime_error("through"); }, &flag),
               std::runtime_error);
  ErrorManager::Set(nullptr);
}

TEST_F(ErrorRoad, OutOfMemoryHookRetriesWhileTheManagerPurges) {
  ASSERT_EQ(std::get_new_handler(), nullptr);
  {
    ErrorManager::NewHandlerInitializer hook;
    std::new_handler handler = std::get_new_handler();
    ASSERT_NE(handler, nullptr);
    manager.purgeAnswers = 2;
    EXPECT_NO_THROW(handler());  // purged: operator new may retry
    EXPECT_NO_THROW(handler());
    EXPECT_THROW(handler(), std::bad_alloc);  // nothing left to purge
    ErrorManager::Set(nullptr);
    EXPECT_THROW(handler(), std::bad_alloc);  // no manager, no purge
    ErrorManager::Set(&manager);
  }
  EXPECT_EQ(std::get_new_handler(), nullptr);
}

}  // namespace
