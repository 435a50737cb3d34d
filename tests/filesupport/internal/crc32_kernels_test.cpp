// Every CRC-32 kernel this processor runs gives the byte table's state at
// every length from 0 to 4096, every alignment from 0 to 63 and from any
// starting state, and reads no byte outside its block.
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "filesupport/internal/CRC32.h"

namespace tvxcore::filesupport::internal {
// The kernel's name in messages.
void PrintTo(CRC32Kernel kernel, std::ostream* out) { *out << CRC32KernelName(kernel); }
}  // namespace tvxcore::filesupport::internal

namespace internal = tvxcore::filesupport::internal;
using internal::CRC32Kernel;

namespace {

class CRC32Kernels : public testing::TestWithParam<CRC32Kernel> {
 protected:
  void SetUp() override {
    if (!internal::CRC32KernelSupported(GetParam())) {
      GTEST_SKIP() << "this processor has no " << internal::CRC32KernelName(GetParam())
                   << " (or the system doesn't save its registers); kernel not tested here";
    }
  }

  std::uint32_t Run(std::uint32_t state, const unsigned char* data, std::size_t count) {
    return internal::UpdateCRC32With(GetParam(), state, data, count);
  }
};

TEST_P(CRC32Kernels, AgreeWithTheByteTableAtEveryLengthAndAlignment) {
  constexpr std::size_t kLongest = 4096;
  std::mt19937 random(static_cast<unsigned>(GetParam()) + 11);
  // 64-byte aligned, so that `align` is the offset within a cache line.
  struct Free {
    void operator()(unsigned char* p) const { std::free(p); }
  };
  const std::unique_ptr<unsigned char, Free> buffer(
      static_cast<unsigned char*>(std::aligned_alloc(64, kLongest + 128)));
  for (std::size_t i = 0; i < kLongest + 128; ++i)
    buffer.get()[i] = static_cast<unsigned char>(random());
  for (std::size_t align = 0; align < 64; ++align) {
    const unsigned char* data = buffer.get() + align;
    const std::uint32_t start = align == 0 ? 0xFFFFFFFFu : static_cast<std::uint32_t>(random());
    std::uint32_t expected = start;  // the table's state after `length` bytes
    for (std::size_t length = 0; length <= kLongest; ++length) {
      ASSERT_EQ(Run(start, data, length), expected)
          << "length " << length << ", alignment " << align;
      expected = internal::UpdateCRC32Table(expected, data + length, 1);
    }
  }
}

TEST_P(CRC32Kernels, ReadOnlyTheirBlock) {
  // Each block in an allocation of its own size, where AddressSanitizer sees
  // a read before or after it. Zero bytes and 0xFF bytes, besides random
  // ones, catch constants and masks that only random data hides.
  std::mt19937 random(5);
  std::vector<std::size_t> lengths;
  for (std::size_t n = 0; n <= 600; ++n) lengths.push_back(n);
  for (std::size_t n : {1023, 1024, 1025, 4095, 65536 + 17}) lengths.push_back(n);
  for (int fill = 0; fill < 3; ++fill) {
    for (std::size_t length : lengths) {
      const auto block = std::make_unique<unsigned char[]>(length);
      for (std::size_t i = 0; i < length; ++i)
        block[i] = fill == 0 ? 0 : fill == 1 ? 0xFF : static_cast<unsigned char>(random());
      const std::uint32_t state = static_cast<std::uint32_t>(random());
      ASSERT_EQ(Run(state, block.get(), length),
                internal::UpdateCRC32Table(state, block.get(), length))
          << "length " << length << ", fill " << fill;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, CRC32Kernels,
                         testing::Values(CRC32Kernel::kSliceBy8, CRC32Kernel::kPCLMUL,
                                         CRC32Kernel::kVPCLMUL),
                         [](const testing::TestParamInfo<CRC32Kernel>& info) {
                           std::string name = internal::CRC32KernelName(info.param);
                           return name == "slice-by-8" ? std::string("SliceBy8") : name;
                         });

TEST(CRC32, TheBestKernelIsOneThisProcessorRuns) {
  const CRC32Kernel best = internal::BestCRC32Kernel();
  EXPECT_TRUE(internal::CRC32KernelSupported(best));
  for (CRC32Kernel wider : {CRC32Kernel::kPCLMUL, CRC32Kernel::kVPCLMUL}) {
    if (internal::CRC32KernelSupported(wider)) {
      EXPECT_GE(static_cast<int>(best), static_cast<int>(wider))
          << "a faster kernel is left unused";
    }
  }
  const unsigned char check[] = "123456789";
  EXPECT_EQ(~internal::UpdateCRC32(0xFFFFFFFFu, check, 9), 0xCBF43926u);
}

}  // namespace
