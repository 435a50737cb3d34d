// A program that an application engineer would write first: include the one
// header, link the library, use it, and show a file failure as a person reads
// it.
#include <tvxcore/tvxcore.h>

#include <cstdio>
#include <cstring>
#include <string>

int main() {
  using tvxcore::utility::SmallBlockAllocator;
  if (std::strcmp(tvxcore::GetLibraryVersion(), TVXCORE_VERSION_STRING) != 0) return 1;
  SmallBlockAllocator::vector<int> numbers;
  for (int i = 0; i < 1000; ++i) numbers.push_back(i);
  tvxcore::UTF16String text(u"tvxcore");
  void* block = SmallBlockAllocator::Allocate(100);
  std::memset(block, 0xAB, 100);
  SmallBlockAllocator::Dispose(block, 100);

  std::string message;
  try {
    tvxcore::filesupport::File(tvxcore::UTF16String(u"/nonexistent/dir/x")).Create(false);
  } catch (const tvxcore::filesupport::file_exception& e) {
    const tvxcore::UTF8String bytes =
        tvxcore::utility::UTF16to8(tvxcore::filesupport::LocalizedMessage(e));
    message.assign(bytes.begin(), bytes.end());
  }
  std::printf("tvxcore %s linked: %zu numbers, %zu units; a failure reads: %s\n",
              tvxcore::GetLibraryVersion(), numbers.size(), text.size(), message.c_str());
  const bool readable = message.find("'/nonexistent/dir/x'") != std::string::npos &&
                        message.find("$$$/") == std::string::npos;
  return numbers.back() == 999 && text.size() == 7 && readable ? 0 : 1;
}
