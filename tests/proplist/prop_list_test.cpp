#include <gtest/gtest.h>

#include <cstdint>
#include <list>
#include <vector>

#include "TestText.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using tvxtest::FillEveryType;
using tvxtest::U16;
using tvxtest::U8;
using tvxtest::WriteText;

namespace {

// Calls every scalar and list getter on `key` with sentinel targets and
// returns the type each one that answered true belongs to; also checks that
// getters answering false left their target untouched.
std::vector<PropListPropertyType> AnsweringGetters(const PropList& list, const UTF8String& key) {
  std::vector<PropListPropertyType> answered;
  auto both = [&](auto sentinel, PropListPropertyType scalarType, PropListPropertyType arrayType) {
    auto target = sentinel;
    if (list.GetValue(key, target)) {
      answered.push_back(scalarType);
    } else {
      EXPECT_EQ(target, sentinel) << "type " << scalarType;
    }
    std::list<decltype(sentinel)> items{sentinel};
    if (list.GetValue(key, items)) {
      answered.push_back(arrayType);
    } else {
      EXPECT_EQ(items.size(), 1u) << "type " << arrayType;
    }
  };
  both(U16(u"sentinel"), kPropListType_UnicodeString, kPropListType_UnicodeStringArray);
  both(U8("sentinel"), kPropListType_String, kPropListType_StringArray);
  both(false, kPropListType_Bool, kPropListType_BoolArray);
  both(std::uint16_t{77}, kPropListType_UInt16, kPropListType_UInt16Array);
  both(std::uint32_t{77}, kPropListType_UInt32, kPropListType_UInt32Array);
  both(std::int32_t{77}, kPropListType_Int32, kPropListType_Int32Array);
  both(77LL, kPropListType_Int64, kPropListType_Int64Array);
  both(77ULL, kPropListType_UInt64, kPropListType_UInt64Array);
  both(77.5f, kPropListType_Float, kPropListType_FloatArray);
  both(77.5, kPropListType_Double, kPropListType_DoubleArray);
  return answered;
}

}  // namespace

TEST(PropList, EveryTypeAnswersOnlyItsOwnGetter) {
  PropList list;
  FillEveryType(list);
  const struct {
    const char* key;  // of the scalar; the array's is "a." + key
    PropListPropertyType scalar, array;
  } cases[] = {
      {"ustring", kPropListType_UnicodeString, kPropListType_UnicodeStringArray},
      {"string", kPropListType_String, kPropListType_StringArray},
      {"bool", kPropListType_Bool, kPropListType_BoolArray},
      {"u16", kPropListType_UInt16, kPropListType_UInt16Array},
      {"u32", kPropListType_UInt32, kPropListType_UInt32Array},
      {"i32", kPropListType_Int32, kPropListType_Int32Array},
      {"i64", kPropListType_Int64, kPropListType_Int64Array},
      {"u64", kPropListType_UInt64, kPropListType_UInt64Array},
      {"float", kPropListType_Float, kPropListType_FloatArray},
      {"double", kPropListType_Double, kPropListType_DoubleArray},
  };
  for (const auto& c : cases) {
    for (const auto& [key, type] :
         {std::pair{std::string(c.key), c.scalar}, std::pair{"a." + std::string(c.key), c.array}}) {
      SCOPED_TRACE(key);
      EXPECT_EQ(list.GetPropertyType(U8(key)), type);
      EXPECT_EQ(AnsweringGetters(list, U8(key)), std::vector<PropListPropertyType>{type});
    }
  }
  EXPECT_EQ(list.GetPropertyType(U8("sub")), kPropListType_PropList);
  EXPECT_EQ(list.GetPropertyType(U8("missing")), kPropListType_None);
  EXPECT_TRUE(AnsweringGetters(list, U8("sub")).empty());
  EXPECT_TRUE(AnsweringGetters(list, U8("missing")).empty());
}

TEST(PropList, TheLastSetterDecidesTheType) {
  PropList list;
  list.SetValue(U8("b"), true);
  list.SetValue(U8("b"), 1.0);
  EXPECT_EQ(list.GetPropertyType(U8("b")), kPropListType_Double);

  // Same type: replaced in place; sub-list replaced by a scalar and back.
  list.SetValue(U8("b"), 2.0);
  double d = 0;
  ASSERT_TRUE(list.GetValue(U8("b"), d));
  EXPECT_EQ(d, 2.0);
  list.NewSubList(U8("c"))->SetValue(U8("x"), true);
  list.SetValue(U8("c"), std::list<float>{});
  EXPECT_EQ(list.GetSubList(U8("c")), nullptr);
  EXPECT_EQ(list.GetPropertyType(U8("c")), kPropListType_FloatArray);
  EXPECT_TRUE(list.NewSubList(U8("c"))->IsEmpty());
}

TEST(PropList, ListGettersAppendInStoredOrder) {
  PropList list;
  list.SetValue(U8("a"), std::list<long long>{3, 1, 2});
  std::list<long long> target{10, 20};
  ASSERT_TRUE(list.GetValue(U8("a"), target));
  EXPECT_EQ(target, (std::list<long long>{10, 20, 3, 1, 2}));

  list.SetValue(U8("empty"), std::list<UTF8String>{});
  std::list<UTF8String> strings{U8("kept")};
  EXPECT_TRUE(list.GetValue(U8("empty"), strings));
  EXPECT_EQ(strings.size(), 1u);
  EXPECT_EQ(list.GetPropertyType(U8("empty")), kPropListType_StringArray);
}

TEST(PropList, SubListsAreOwnedAndFoundByKey) {
  PropList list;
  PropList* first = list.NewSubList(U8("s"));
  EXPECT_EQ(list.NewSubList(U8("s")), first);
  EXPECT_EQ(list.GetSubList(U8("s")), first);
  EXPECT_EQ(list.GetSubList(reinterpret_cast<const UTF8Char*>("s")), first);
  EXPECT_EQ(list.GetSubList(U8("missing")), nullptr);
  EXPECT_EQ(list.GetSubList(static_cast<const UTF8Char*>(nullptr)), nullptr);
  list.SetValue(U8("n"), 1.0);
  EXPECT_EQ(list.GetSubList(U8("n")), nullptr);
}

TEST(PropList, CopiesShareNothing) {
  PropList list;
  FillEveryType(list);
  const std::string original = WriteText(list);
  PropList copy(list);
  copy.GetSubList(U8("sub"))->SetValue(U8("inner"), std::int32_t{99});
  copy.SetValue(U8("string"), U8("changed"));
  EXPECT_EQ(WriteText(list), original);

  PropList assigned;
  assigned.SetValue(U8("old"), true);
  assigned = copy;
  EXPECT_EQ(WriteText(assigned), WriteText(copy));
  EXPECT_NE(WriteText(assigned), original);
  copy.GetSubList(U8("sub"))->Clear();
  EXPECT_FALSE(assigned.GetSubList(U8("sub"))->IsEmpty());
}

TEST(PropList, NamesComeInUnsignedByteOrderAndReplaceTheTarget) {
  PropList list;
  for (const char* key : {"b", "\xC3\xA9", "B", "a", "", "ab"}) list.SetValue(U8(key), true);
  std::list<UTF8String> names{U8("stale")};
  list.GetPropertyNames(names);
  std::list<UTF8String> expected;
  for (const char* key : {"", "B", "a", "ab", "b", "\xC3\xA9"}) expected.push_back(U8(key));
  EXPECT_EQ(names, expected);
}

TEST(PropList, KeysEndAtTheirFirstZeroByte) {
  PropList list;
  list.SetValue(U8(std::string_view("ab\0cd", 5)), std::int32_t{1});
  std::int32_t value = 0;
  EXPECT_TRUE(list.GetValue(U8("ab"), value));
  EXPECT_EQ(value, 1);
  std::list<UTF8String> names;
  list.GetPropertyNames(names);
  EXPECT_EQ(names, std::list<UTF8String>{U8("ab")});
}

// `long` is 64 bits here and 32 in the format's other homes: refused, so that
// a ported `long` cannot silently become a 64-bit value in a file.
template <typename T>
concept Settable = requires(PropList& list, T value) {
  list.SetValue(U8("k"), value);
};
template <typename T>
concept Gettable = requires(const PropList& list, T& value) {
  list.GetValue(U8("k"), value);
};

static_assert(!Settable<long> && !Settable<unsigned long> && !Gettable<long> &&
              !Gettable<unsigned long>);
static_assert(!Settable<std::list<long>> && !Gettable<std::list<unsigned long>>);
static_assert(Settable<std::int32_t> && Settable<long long> && Gettable<unsigned long long>);
