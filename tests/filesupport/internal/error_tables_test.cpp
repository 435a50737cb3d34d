// The translation of errno to the Windows codes the file tables are keyed by,
// the tables themselves, the path codec, and where resource folders are found.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <typeinfo>
#include <utility>

#include "filesupport/internal/AuxiliaryResources.h"
#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "platform/FileSystem.h"
#include "platform/HostInfo.h"
#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/FileExceptions.h"

using namespace tvxcore;
using namespace tvxcore::filesupport;
using tvxtest::U;

TEST(ErrnoTranslation, EveryFileErrorHasItsWindowsCode) {
  struct Row {
    int err;
    bool parentMissing;
    int expected;
  };
  // clang-format off
  const Row rows[] = {
      {0, false, 0},        {ENOENT, false, 2},       {ENOENT, true, 3},         {ENOTDIR, false, 3},
      {ELOOP, false, 3},    {ENAMETOOLONG, false, 3}, {EACCES, false, 5},        {EPERM, false, 5},
      {EISDIR, false, 5},   {EEXIST, false, 183},     {EROFS, false, 19},        {ENOSPC, false, 112},
      {EDQUOT, false, 112}, {EIO, false, 1117},       {ENOTEMPTY, false, 145},   {EXDEV, false, 17},
      {EBUSY, false, 170},  {EMFILE, false, 4},       {ENOMEM, false, 8},        {EINVAL, false, 87},
      {EBADF, false, 6},    {ECANCELED, false, 1235}, {EHOSTUNREACH, false, 53}, {12345, false, 1}};
  // clang-format on
  for (const Row& row : rows)
    EXPECT_EQ(platform::TranslateErrno(row.err, row.parentMissing), row.expected)
        << "errno " << row.err << (row.parentMissing ? " with parent missing" : "");
}

template <typename Expected>
void ExpectThrows(const std::function<void()>& call, const char* what) {
  try {
    call();
    ADD_FAILURE() << what << ": nothing thrown";
  } catch (const std::exception& e) {
    EXPECT_EQ(typeid(e), typeid(Expected)) << what << ": " << e.what();
  }
}

TEST(CreateErrorTable, EachCodeGivesItsRowsException) {
  const File file(U("/x/y"));
  EXPECT_NO_THROW(internal::ThrowCreateError(0, file));
  for (int code : {2, 6, 18, 107})
    ExpectThrows<create_fnf_exception>([&] { internal::ThrowCreateError(code, file); }, "fnf");
  ExpectThrows<create_invalidpath_exception>([&] { internal::ThrowCreateError(3, file); }, "3");
  ExpectThrows<create_locked_exception>([&] { internal::ThrowCreateError(19, file); }, "19");
  for (int code : {5, 12, 29, 54, 58, 64, 65, 71, 80, 82, 86, 170, 183, 999})
    ExpectThrows<create_accessdenied_exception>([&] { internal::ThrowCreateError(code, file); },
                                                "denied");
  for (int code : {1, 4, 17, 112, 123, 1117})
    ExpectThrows<create_exception>([&] { internal::ThrowCreateError(code, file); }, "other");
}

TEST(PathErrorMapping, ZeroIsQuietAndCopyTakesPathsFromTheRightSide) {
  const UTF16String from = U("/from"), to = U("/to");
  EXPECT_NO_THROW(internal::ThrowForError(0, from));
  ExpectThrows<file_not_found_exception>([&] { internal::ThrowForError(2, from); }, "2");
  ExpectThrows<create_invalidpath_exception>([&] { internal::ThrowForError(3, from); }, "3");
  ExpectThrows<create_accessdenied_exception>([&] { internal::ThrowForError(5, from); }, "5");
  ExpectThrows<file_exception>([&] { internal::ThrowForError(112, from); }, "112");

  struct Row {
    int code;
    const UTF16String* side;
  };
  for (Row row : {Row{0, &from}, Row{2, &from}, Row{3, &to}, Row{5, &to}, Row{1117, &from}}) {
    try {
      internal::ThrowCopyError(row.code, from, to);
    } catch (const file_exception& e) {
      EXPECT_EQ(e.GetFile().FullPath(), *row.side) << "code " << row.code;
    }
  }
  // Where the failing side is known, it is the one named, with the key of
  // its cause.
  struct SideRow {
    int code;
    bool destination;
    const std::type_info& expected;
  };
  for (const SideRow& row :
       {SideRow{2, false, typeid(file_not_found_exception)},
        SideRow{3, false, typeid(file_not_found_exception)},
        SideRow{5, false, typeid(file_exception)}, SideRow{32, false, typeid(file_exception)},
        SideRow{2, true, typeid(create_invalidpath_exception)},
        SideRow{3, true, typeid(create_invalidpath_exception)},
        SideRow{5, true, typeid(create_accessdenied_exception)},
        SideRow{112, true, typeid(file_exception)}}) {
    try {
      internal::ThrowCopySideError(row.code, row.destination, from, to);
    } catch (const file_exception& e) {
      EXPECT_EQ(typeid(e), row.expected) << row.code << " " << row.destination;
      EXPECT_EQ(e.GetFile().FullPath(), row.destination ? to : from) << row.code;
    }
  }
}

TEST(PathCodec, NamesRoundTripWhateverTheirBytesButZeroUnitsCantNameAFile) {
  // Long names go through the block-at-a-time ASCII path: each of these
  // pieces, after a run of ASCII of every length across three blocks and
  // before a long ASCII tail (or at the very end), decodes alike and encodes
  // back to its bytes. Bytes that are no UTF-8 stand for themselves.
  const std::pair<std::string, UTF16String> pieces[] = {
      {"", u""},
      {"\xC3\xA9", u"\u00E9"},
      {"\xE2\x82\xAC", u"\u20AC"},
      {"\xF0\x9F\x8E\xB5", u"\U0001F3B5"},
      {"\xFF", UTF16String{0xDCFF}},
      {"\x80", UTF16String{0xDC80}},              // a continuation byte alone
      {"\xC0\xAF", UTF16String{0xDCC0, 0xDCAF}},  // an overlong form
      {"\xC3", UTF16String{0xDCC3}},              // a sequence cut short
      {"\xE2\x82", UTF16String{0xDCE2, 0xDC82}},
      {"\xED\xA0\x80", UTF16String{0xDCED, 0xDCA0, 0xDC80}},
  };
  for (const auto& [piece, units] : pieces) {
    for (std::size_t run = 0; run <= 3 * internal::kAsciiBlock; ++run) {
      for (std::size_t tail : {std::size_t{0}, std::size_t{5}, 2 * internal::kAsciiBlock + 3}) {
        std::string bytes;
        UTF16String expected;
        for (std::size_t i = 0; i < run; ++i) {
          bytes += static_cast<char>(0x20 + (i * 7) % 0x5F);
          expected += static_cast<UTF16Char>(0x20 + (i * 7) % 0x5F);
        }
        bytes += piece + std::string(tail, '~');
        expected += units + UTF16String(tail, u'~');
        ASSERT_EQ(internal::FromNative(bytes), expected) << run << " " << tail;
        UTF16String appended(u"x");
        internal::AppendFromNative(bytes, appended);
        ASSERT_EQ(appended, u"x" + expected) << run << " " << tail;
        std::string back;
        ASSERT_TRUE(internal::ToNative(expected, back));
        ASSERT_EQ(back, bytes) << run << " " << tail;
      }
    }
  }
  std::string out;
  EXPECT_FALSE(internal::ToNative(UTF16String(u"a\0b", 3), out));
  EXPECT_TRUE(internal::ToNative(UTF16String{0xD800, u'a'}, out));  // lone surrogate passes
  EXPECT_EQ(out, std::string("\xED\xA0\x80") + "a");
}

namespace {

void Here() {}

// Resource folders are looked for beside the module, in the share folder
// next to it and beside the executable; the first that exists wins, and its
// path must name the folder on disk even when that name isn't UTF-8.
TEST(AuxiliaryResources, ShareFolderIsFoundEvenWhenItsNameIsNotUTF8) {
  const std::string module = platform::ModuleDirectoryOf(reinterpret_cast<const void*>(&Here));
  ASSERT_FALSE(module.empty());
  const std::filesystem::path share = std::filesystem::path(module) / ".." / "share";
  // A Latin-1 byte on disk, which the library's paths carry as U+DCE9.
  const std::filesystem::path folder = share / "tvxcore" / "tvx-aux-dict\xE9";
  std::filesystem::create_directories(folder);
  const UTF16String path = filesupport::internal::GetAuxiliaryResourcesPath(
      reinterpret_cast<const void*>(&Here), u"de.dict", u"tvx-aux-dict\xDCE9");
  std::error_code ignored;
  std::filesystem::remove(folder, ignored);
  std::filesystem::remove(share / "tvxcore", ignored);  // only when empty
  std::filesystem::remove(share, ignored);

  const std::string dir = module + "/../share/tvxcore/";  // the build folder is ASCII
  EXPECT_EQ(path, UTF16String(dir.begin(), dir.end()) + u"tvx-aux-dict\xDCE9/de.dict");
}

}  // namespace
