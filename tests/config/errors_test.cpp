#include <gtest/gtest.h>

#include <boost/function.hpp>
#include <new>
#include <stdexcept>
#include <thread>
#include <tuple>

#include "config/ErrorTestSupport.h"
#include "tvxcore/ZString.h"
#include "tvxcore/config/Errors.h"

namespace {

using namespace tvxtest;
using namespace tvxcore::config;

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
  static void Raise(const char* key, std::int32_t number, bool recordable = true,
                    const ReplacementValue& v1 = ReplacementValue()) {
    ThrowError(kErrorLevel_NonFatal, key, 104, number, recordable, v1, kNone, kNone, kNone);
  }

  RecordingErrorManager manager;
  MapLocalizer localizer;
};

TEST(ReplacementValue, EachSourceTypeLandsInItsOwnField) {
  using K = ReplacementValue::Kind;
  using Fields = std::tuple<K, std::int64_t, std::uint64_t, double, std::string>;
  const auto fields = [](const ReplacementValue& v) {
    return Fields{v.GetKind(), v.GetSignedValue(), v.GetUnsignedValue(), v.GetDoubleValue(),
                  S(v.GetString())};
  };
  const std::pair<ReplacementValue, Fields> cases[] = {
      // numbers are not converted to text
      {ReplacementValue(), {K::kKind_Empty, 0, 0, 0, ""}},
      {ReplacementValue(-7), {K::kKind_Signed, -7, 0, 0, ""}},
      {ReplacementValue(7u), {K::kKind_Unsigned, 0, 7, 0, ""}},
      {ReplacementValue(-2147483648L), {K::kKind_Signed, -2147483648LL, 0, 0, ""}},
      {ReplacementValue(4294967295UL), {K::kKind_Unsigned, 0, 4294967295ULL, 0, ""}},
      {ReplacementValue(-(1LL << 40)), {K::kKind_Signed, -(1LL << 40), 0, 0, ""}},
      {ReplacementValue(~0ULL), {K::kKind_Unsigned, 0, ~0ULL, 0, ""}},
      {ReplacementValue(29.2334), {K::kKind_Double, 0, 0, 29.2334, ""}},
      {ReplacementValue(U("a path")), {K::kKind_String, 0, 0, 0, "a path"}},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i)
    EXPECT_EQ(fields(cases[i].first), cases[i].second) << "row " << i;
}

TEST(ReplacementValue, CopiesAreDeepAndInitKeepsTheKind) {
  auto original = std::make_unique<ReplacementValue>(U("first"));
  ReplacementValue copy(*original), assigned(5);
  assigned = *original;
  original.reset();  // the copies own their strings
  EXPECT_EQ(S(copy.GetString()), "first");
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

// Each ^n is replaced once, first occurrence, in order ^1..^4; a value put in
// for ^1 may hold later tokens, which are then filled, never the reverse.
TEST_F(ErrorRoad, CaretTokensReplaceOnlyTheFirstOccurrenceInOrder) {
  localizer.entries["$$$/tvxcore/config/Error/test/nonfataltest"] = "Nicht: ^3 / ^2 / ^1";
  const struct {
    const char* key;
    ReplacementValue v1, v2, v3, v4;
    const char* expected;
  } cases[] = {
      {"$$$/tvxcore/t=a ^1 b ^1", 5, {}, {}, {}, "a 5 b ^1"},
      {"$$$/tvxcore/t=^4^3^2^1", 1, 2, 3, 4, "4321"},
      {"$$$/tvxcore/t=x ^2 y", 1, {}, {}, {}, "x ^2 y"},
      {"$$$/tvxcore/t=^1 ^2 ^3 ^4", 123456789.0, 100000.0, 1e6, 1e-5,
       "1.23457e+08 100000 1e+06 1e-05"},
      {"$$$/tvxcore/t=^1 ^2 ^3", 1.0 / 0.0, -1.0 / 0.0, 0.0, {}, "inf -inf 0"},
      {"$$$/tvxcore/t=[^1]", U(""), {}, {}, {}, "[]"},
      {"$$$/tvxcore/t=^1 @0 @1", U("v"), {}, {}, {}, "v @0 @1"},
      {"$$$/tvxcore/t=^10", 7, {}, {}, {}, "70"},
      {"$$$/tvxcore/t=<^1> <^2>", U("x^2y"), 7, {}, {}, "<x7y> <^2>"},
      {"$$$/tvxcore/t=^2 ^1", U("one"), U("^1"), {}, {}, "^1 one"},
      {"$$$/tvxcore/config/Error/test/nonfataltest=English ^1",
       -1,
       2u,
       0.25,
       {},
       "Nicht: 0.25 / 2 / -1"},  // substitutes into the translated text
  };
  for (const auto& c : cases)
    EXPECT_EQ(S(SubstituteErrorMessage(c.key, c.v1, c.v2, c.v3, c.v4)), c.expected) << c.key;
}

TEST_F(ErrorRoad, TestErrorsCarryTheirFixedValues) {
  TestThrowError(false);
  TestThrowError(true);
  const auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), 2u);
  const Report &nonFatal = reports[0], &fatal = reports[1];
  const auto fields = [](const Report& r) {
    return std::make_tuple(r.level, r.module, r.number, r.recordable);
  };
  EXPECT_EQ(fields(nonFatal), std::make_tuple(kErrorLevel_NonFatal, 100u, 20, true));
  EXPECT_EQ(fields(fatal), std::make_tuple(kErrorLevel_Fatal, 100u, 21, true));
  EXPECT_EQ(S(SubstituteErrorMessage(nonFatal.key.c_str(), nonFatal.values[0], nonFatal.values[1],
                                     nonFatal.values[2], nonFatal.values[3])),
            "This is a non-fatal exception. int:-2147483648, uint:4294967295, double:29.2334");
  EXPECT_EQ(fatal.key, "$$$/tvxcore/config/Error/test/fataltest=This is a fatal exception.");
}

TEST(ErrorRoadUninstalled, EveryEntryPointNamesTheMissingPiece) {
  ASSERT_EQ(ErrorManager::Get(true), nullptr);
  ASSERT_FALSE(Localizer::Initialized());
  const auto message = [](const std::function<void()>& call) -> std::string {
    try {
      call();
    } catch (const std::logic_error& e) {
      return e.what();
    }
    return "(no exception)";
  };
  for (const auto& call : std::vector<std::function<void()>>{
           [] { ErrorManager::Get(false); }, [] { TestThrowError(true); },
           [] {
             ThrowError(kErrorLevel_NonFatal, "$$$/t=x", 1, 1, true, kNone, kNone, kNone, kNone);
           },
           [] { DeferredErrorReporter reporter(true); }})
    EXPECT_EQ(message(call),
              "tvx::config::ErrorManager not initialized. Check tvx/config/Errors.h.");
  for (const auto& call : std::vector<std::function<void()>>{
           [] { Localizer::Get(); },
           [] { SubstituteErrorMessage("$$$/t=x", kNone, kNone, kNone, kNone); },
           [] { tvxcore::ZString("$$$/t=x"); }})
    EXPECT_EQ(message(call),
              "tvxcore::config::Localizer not initialized. Check tvxcore/config/Localizer.h.");
}

// The newest reporter keeps the last recordable error, counts them, and lets
// every report through to the manager; Finish reports the kept one once per batch.
TEST_F(ErrorRoad, ReporterKeepsTheLastErrorAndFinishReportsEachBatchOnce) {
  DeferredErrorReporter reporter(true);
  EXPECT_TRUE(manager.IsErrorReportingDeferred());

  std::string firstKey = "$$$/tvxcore/first=one";
  Raise(firstKey.c_str(), 1, true, 10);
  firstKey.assign(firstKey.size(), 'x');  // the reporter keeps its own copy
  EXPECT_EQ(reporter.GetKey(), "$$$/tvxcore/first=one");
  Raise("$$$/tvxcore/second=two", 2, true, U("v"));
  Raise("$$$/tvxcore/ignored=three", 3, false, 30);

  ASSERT_EQ(manager.Reports().size(), 3u) << "recording never stops the report";
  for (const Report& report : manager.Reports()) EXPECT_TRUE(report.deferred);
  EXPECT_EQ(reporter.GetErrorCount(), 2) << "unrecordable errors are not counted";
  EXPECT_EQ(reporter.GetKey(), "$$$/tvxcore/second=two");
  EXPECT_EQ(reporter.GetErrorNumber(), 2);
  EXPECT_EQ(reporter.GetModule(), 104u);
  EXPECT_EQ(reporter.GetLevel(), kErrorLevel_NonFatal);
  EXPECT_EQ(S(reporter.GetValue(0).GetString()), "v");

  reporter.Finish();
  reporter.Finish();
  const auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), 4u);
  EXPECT_EQ(reports.back().key, "$$$/tvxcore/second=two");
  EXPECT_EQ(reports.back().number, 2);
  EXPECT_TRUE(reports.back().recordable);
  EXPECT_EQ(reporter.GetErrorCount(), 0);
  EXPECT_EQ(reporter.GetFinishCount(), 2);
  EXPECT_EQ(reporter.GetKey(), "$$$/tvxcore/second=two") << "the kept error stays after its report";

  Raise("$$$/tvxcore/c=c", 3);
  reporter.SetReportErrorWhenFinished(false);
  reporter.Finish();
  EXPECT_EQ(manager.Reports().size(), 5u) << "with the flag off Finish only counts";
  EXPECT_EQ(reporter.GetErrorCount(), 1);
  EXPECT_EQ(reporter.GetFinishCount(), 3);
}

TEST_F(ErrorRoad, NestedReportersFormAStackPerThread) {
  boost::intrusive_ptr<DeferredErrorReporter> outer = manager.NewDeferredErrorReporter(true);
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
  outer->Finish();
  EXPECT_EQ(manager.Reports().back().key, "$$$/tvxcore/outer=o");
  EXPECT_EQ(manager.Reports().size(), 4u);
  outer.reset();
  EXPECT_FALSE(manager.IsErrorReportingDeferred());
  Raise("$$$/tvxcore/none=n", 4);
  EXPECT_FALSE(manager.Reports().back().deferred);
}

TEST_F(ErrorRoad, ReportersOnOneThreadDoNotSeeAnotherThreadsErrors) {
  DeferredErrorReporter mine(false);
  constexpr int kThreads = 4, kErrorsEach = 50;
  std::vector<int> counts(kThreads, -1);
  std::vector<char> deferredWithout(kThreads, true);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      deferredWithout[t] = manager.IsErrorReportingDeferred();
      DeferredErrorReporter theirs(false);
      for (int i = 0; i < kErrorsEach + t; ++i) Raise("$$$/tvxcore/thread=t", t);
      counts[t] = theirs.GetErrorCount();
    });
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_FALSE(deferredWithout[t]) << "thread " << t;
    EXPECT_EQ(counts[t], kErrorsEach + t) << "thread " << t;
  }
  EXPECT_EQ(mine.GetErrorCount(), 0);
  EXPECT_TRUE(manager.IsErrorReportingDeferred());
}

TEST_F(ErrorRoad, ManagerUninstallsOnlyItself) {
  { RecordingErrorManager other; }  // constructing does not install, destroying does not clear
  EXPECT_EQ(ErrorManager::Get(), &manager);
  {
    RecordingErrorManager replacement;
    ErrorManager::Set(&replacement);
    TestThrowError(true);
    EXPECT_EQ(replacement.Reports().size(), 1u);
  }
  EXPECT_EQ(ErrorManager::Get(true), nullptr);
  EXPECT_TRUE(manager.Reports().empty());
}

class BaseManager : public ErrorManager {
 public:
  void ReportError(ErrorLevel, const char*, std::uint32_t, std::int32_t, bool,
                   const ReplacementValue&, const ReplacementValue&, const ReplacementValue&,
                   const ReplacementValue&) override {}
};

// Only a manager whose handler caught a failure sets the flag; exceptions its
// handler does not catch (and all of them without a manager) pass through.
TEST(TopLevelFunction, FlagSaysWhetherTheManagerCaughtAFailure) {
  BaseManager base;
  EXPECT_FALSE(base.PurgeMemory(1024));
  EXPECT_EQ(base.ExecuteFunctionWithTopLevelExceptionHandler([] { return 7L; }), 7);
  RecordingErrorManager catching;
  catching.throwWhenNotDeferred = true;
  bool flag = true;
  for (ErrorManager* installed : std::vector<ErrorManager*>{nullptr, &base, &catching}) {
    ErrorManager::Set(installed);
    int runs = 0;
    flag = true;
    ExecuteTopLevelFunction<void>([&] { ++runs; }, &flag);
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(flag);
    EXPECT_THROW(ExecuteTopLevelFunction<void>([] { throw std::runtime_error("out"); }, &flag),
                 std::runtime_error);
  }
  ExecuteTopLevelFunction<void>([] { TestThrowError(true); }, &flag);
  EXPECT_TRUE(flag);
  EXPECT_EQ(catching.Reports().size(), 1u);
  ErrorManager::Set(nullptr);
  EXPECT_THROW(ExecuteTopLevelFunction<void>(boost::function0<void>(), nullptr),
               boost::bad_function_call);
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
