// A program that an application engineer would write first: include the one
// header, link the library, use it.
#include <tvxcore/tvxcore.h>

#include <cstdio>
#include <cstring>

int main() {
  using tvxcore::utility::SmallBlockAllocator;
  if (std::strcmp(tvxcore::GetLibraryVersion(), TVXCORE_VERSION_STRING) != 0) return 1;
  SmallBlockAllocator::vector<int> numbers;
  for (int i = 0; i < 1000; ++i) numbers.push_back(i);
  tvxcore::UTF16String text(u"tvxcore");
  void* block = SmallBlockAllocator::Allocate(100);
  std::memset(block, 0xAB, 100);
  SmallBlockAllocator::Dispose(block, 100);
  std::printf("tvxcore %s linked: %zu numbers, %zu units\n", tvxcore::GetLibraryVersion(),
              numbers.size(), text.size());
  return numbers.back() == 999 && text.size() == 7 ? 0 : 1;
}
