#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "config/ErrorTestSupport.h"
#include "debug/internal/ContractCheck.h"

namespace {

using namespace tvxcore::config;
using tvxtest::RecordingErrorManager;

RecordingErrorManager* g_manager = nullptr;
std::vector<std::string> g_observed;  // expression, line, reports made before the observer ran

void Observe(const char* expression, const char*, long line) {
  g_observed.push_back(std::string(expression) + " " + std::to_string(line) + " " +
                       std::to_string(g_manager->Reports().size()));
}

int Checked(int value) {
  TVX_CONTRACT(value > 0, "checked.cpp", 12);
  return value * 2;  // the normal path goes on after a returning report
}

TEST(ContractCheck, ViolationRaisesTheFatalContractErrorAfterTheObserver) {
  RecordingErrorManager manager;
  g_manager = &manager;
  ErrorManager::Set(&manager);
  auto previous = tvxcore::debug::internal::SetContractObserverForTesting(&Observe);
  EXPECT_EQ(Checked(4), 8);
  EXPECT_TRUE(manager.Reports().empty()) << "a kept contract reports nothing";
  EXPECT_EQ(Checked(-1), -2);
  tvxcore::debug::internal::SetContractObserverForTesting(previous);
  ErrorManager::Set(nullptr);

  EXPECT_EQ(g_observed, std::vector<std::string>{"value > 0 12 0"});
  const auto reports = manager.Reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].key,
            "$$$/tvxcore/utility/Error/Contract/InputContractViolation=An input contract "
            "violation has occurred!");
  EXPECT_TRUE(reports[0].recordable);
  for (const auto& value : reports[0].values)
    EXPECT_EQ(value.GetKind(), ReplacementValue::kKind_Empty);
}

// Level, module and number, and the throw without a manager, are checked
// through the public address checks.
TEST(ContractCheck, ThrowingManagerStopsTheCheckingFunction) {
  RecordingErrorManager manager;
  manager.throwWhenNotDeferred = true;
  ErrorManager::Set(&manager);
  EXPECT_THROW(Checked(-5), tvxtest::RecordedFailure);
  {
    DeferredErrorReporter deferred(false);
    EXPECT_EQ(Checked(-5), -10) << "a deferring manager returns, and the check goes on";
    EXPECT_EQ(deferred.GetErrorNumber(), 25);
    EXPECT_EQ(deferred.GetModule(), 105u);
  }
  ErrorManager::Set(nullptr);
}

}  // namespace
