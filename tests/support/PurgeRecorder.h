// An error manager for tests of memory that asks the host to purge: it
// installs itself for its lifetime, records each PurgeMemory request and
// answers as told. Reports are ignored.
#pragma once

#include <cstdint>
#include <vector>

#include "tvxcore/config/Errors.h"

namespace tvxtest {

class PurgeRecorder : public tvxcore::config::ErrorManager {
 public:
  explicit PurgeRecorder(bool answer = false) : answer_(answer) { Set(this); }
  ~PurgeRecorder() override { Set(nullptr); }
  void ReportError(tvxcore::config::ErrorLevel, const char*, std::uint32_t, std::int32_t, bool,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&) override {}
  bool PurgeMemory(unsigned long long bytes) override {
    purges.push_back(bytes);
    return answer_;
  }
  std::vector<unsigned long long> purges;

 private:
  bool answer_;
};

}  // namespace tvxtest
