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
  return value * 2;
}

// The report's text, level and numbers, and the caller going on after a
// returning report, are checked through the public address checks.
TEST(ContractCheck, TheObserverRunsBeforeAReportThatThrows) {
  RecordingErrorManager manager;
  manager.throwWhenNotDeferred = true;
  g_manager = &manager;
  ErrorManager::Set(&manager);
  auto previous = tvxcore::debug::internal::SetContractObserverForTesting(&Observe);
  EXPECT_EQ(Checked(4), 8);
  EXPECT_THROW(Checked(-1), tvxtest::RecordedFailure);
  tvxcore::debug::internal::SetContractObserverForTesting(previous);
  ErrorManager::Set(nullptr);
  EXPECT_EQ(g_observed, std::vector<std::string>{"value > 0 12 0"});
  EXPECT_EQ(manager.Reports().size(), 1u);
}

}  // namespace
