#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "config/ErrorTestSupport.h"
#include "debug/internal/ContractCheck.h"

namespace {

using tvxcore::config::ErrorManager;
using tvxtest::RecordingErrorManager;

std::vector<std::string> g_events;

class EventManager : public RecordingErrorManager {
 public:
  void ReportError(tvxcore::config::ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                   std::int32_t inErrorNumber, bool inRecordable,
                   const tvxcore::config::ReplacementValue& inValue1,
                   const tvxcore::config::ReplacementValue& inValue2,
                   const tvxcore::config::ReplacementValue& inValue3,
                   const tvxcore::config::ReplacementValue& inValue4) override {
    g_events.push_back("report");
    RecordingErrorManager::ReportError(inLevel, inKey, inModule, inErrorNumber, inRecordable,
                                       inValue1, inValue2, inValue3, inValue4);
  }
};

void Observe(const char* expression, const char*, long line) {
  g_events.push_back(std::string("observe ") + expression + " " + std::to_string(line));
}

int Checked(int value) {
  TVX_CONTRACT(value > 0, "checked.cpp", 12);
  return value * 2;  // the normal path goes on after a returning report
}

TEST(ContractCheck, ViolationRaisesTheFatalContractErrorAfterTheObserver) {
  EventManager manager;
  ErrorManager::Set(&manager);
  g_events.clear();
  auto previous = tvxcore::debug::internal::SetContractObserverForTesting(&Observe);

  EXPECT_EQ(Checked(4), 8);
  EXPECT_TRUE(manager.Reports().empty()) << "a kept contract reports nothing";
  EXPECT_EQ(Checked(-1), -2);

  tvxcore::debug::internal::SetContractObserverForTesting(previous);
  ErrorManager::Set(nullptr);

  ASSERT_EQ(g_events, (std::vector<std::string>{"observe value > 0 12", "report"}));
  auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].level, tvxcore::config::kErrorLevel_Fatal);
  EXPECT_EQ(reports[0].key,
            "$$$/tvxcore/utility/Error/Contract/InputContractViolation=An input contract "
            "violation has occurred!");
  EXPECT_EQ(reports[0].module, 105u);
  EXPECT_EQ(reports[0].number, 25);
  EXPECT_TRUE(reports[0].recordable);
  for (const auto& value : reports[0].values) {
    EXPECT_EQ(value.GetKind(), tvxcore::config::ReplacementValue::kKind_Empty);
  }
}

TEST(ContractCheck, ViolationWithoutAnErrorManagerThrowsTheMissingManagerError) {
  ASSERT_EQ(ErrorManager::Get(true), nullptr);
  try {
    Checked(0);
    ADD_FAILURE() << "no manager: the report must throw";
  } catch (const std::logic_error& e) {
    EXPECT_STREQ(e.what(), "tvx::config::ErrorManager not initialized. Check tvx/config/Errors.h.");
  }
}

TEST(ContractCheck, ManagerThatThrowsStopsTheCheckingFunction) {
  RecordingErrorManager manager;
  manager.throwWhenNotDeferred = true;
  ErrorManager::Set(&manager);
  EXPECT_THROW(Checked(-5), tvxtest::RecordedFailure);
  {
    tvxcore::config::DeferredErrorReporter deferred(false);
    EXPECT_EQ(Checked(-5), -10) << "a deferring manager returns, and the check goes on";
    EXPECT_EQ(deferred.GetErrorNumber(), 25);
    EXPECT_EQ(deferred.GetModule(), 105u);
  }
  ErrorManager::Set(nullptr);
}

}  // namespace
