// The writers that leave OSFlush and Truncate to a derived class, completed
// with nothing, so that tests can make them directly.
#pragma once

namespace tvxtest {

template <typename Base>
class Completed : public Base {
 public:
  using Base::Base;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

}  // namespace tvxtest
