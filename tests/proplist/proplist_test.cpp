#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <list>

#include "TestText.h"
#include "tvxcore/proplist/PropList.h"

using namespace tvxcore;
using namespace tvxcore::proplist;
using tvxtest::U16;
using tvxtest::U8;

namespace {

// Calls every scalar and list getter on `key` with sentinel targets and
// returns the type each one that answered true belongs to; also checks that
// getters answering false left their target untouched.
std::vector<PropListPropertyType> AnsweringGetters(const PropList& list, const UTF8String& key) {
  std::vector<PropListPropertyType> answered;
  auto scalar = [&](auto sentinel, PropListPropertyType type) {
    auto target = sentinel;
    if (list.GetValue(key, target)) {
      answered.push_back(type);
    } else {
      EXPECT_EQ(target, sentinel) << "type " << type;
    }
  };
  auto array = [&](auto sentinel, PropListPropertyType type) {
    std::list<decltype(sentinel)> target{sentinel};
    if (list.GetValue(key, target)) {
      answered.push_back(type);
    } else {
      EXPECT_EQ(target.size(), 1u) << "array type " << type;
    }
  };
  scalar(U16(u"sentinel"), kPropListType_UnicodeString);
  scalar(U8("sentinel"), kPropListType_String);
  scalar(false, kPropListType_Bool);
  scalar(std::uint16_t{77}, kPropListType_UInt16);
  scalar(std::uint32_t{77}, kPropListType_UInt32);
  scalar(std::int32_t{77}, kPropListType_Int32);
  scalar(std::int64_t{77}, kPropListType_Int64);
  scalar(std::uint64_t{77}, kPropListType_UInt64);
  scalar(77.5f, kPropListType_Float);
  scalar(77.5, kPropListType_Double);
  array(U16(u"sentinel"), kPropListType_UnicodeStringArray);
  array(U8("sentinel"), kPropListType_StringArray);
  array(false, kPropListType_BoolArray);
  array(std::uint16_t{77}, kPropListType_UInt16Array);
  array(std::uint32_t{77}, kPropListType_UInt32Array);
  array(std::int32_t{77}, kPropListType_Int32Array);
  array(std::int64_t{77}, kPropListType_Int64Array);
  array(std::uint64_t{77}, kPropListType_UInt64Array);
  array(77.5f, kPropListType_FloatArray);
  array(77.5, kPropListType_DoubleArray);
  return answered;
}

// Stores one value of every type under its own key.
void FillEveryType(PropList& list) {
  list.SetValue(U8("ustring"), U16(u"\u00e9t\u00e9 \U0001F600"));
  list.SetValue(U8("string"), U8("plain"));
  list.SetValue(U8("bool"), true);
  list.SetValue(U8("u16"), std::uint16_t{65535});
  list.SetValue(U8("u32"), std::uint32_t{4294967295u});
  list.SetValue(U8("i32"), std::int32_t{-2147483647 - 1});
  list.SetValue(U8("i64"), std::numeric_limits<std::int64_t>::min());
  list.SetValue(U8("u64"), std::numeric_limits<std::uint64_t>::max());
  list.SetValue(U8("float"), 1.5f);
  list.SetValue(U8("double"), -2.25);
  list.NewSubList(U8("sub"))->SetValue(U8("inner"), std::int32_t{7});
  list.SetValue(U8("a.ustring"), std::list<UTF16String>{U16(u"x"), U16(u"y")});
  list.SetValue(U8("a.string"), std::list<UTF8String>{U8("x")});
  list.SetValue(U8("a.bool"), std::list<bool>{true, false});
  list.SetValue(U8("a.u16"), std::list<std::uint16_t>{1, 2});
  list.SetValue(U8("a.u32"), std::list<std::uint32_t>{3});
  list.SetValue(U8("a.i32"), std::list<std::int32_t>{-4});
  list.SetValue(U8("a.i64"), std::list<std::int64_t>{-5});
  list.SetValue(U8("a.u64"), std::list<std::uint64_t>{6});
  list.SetValue(U8("a.float"), std::list<float>{0.5f});
  list.SetValue(U8("a.double"), std::list<double>{0.25, 8});
}

}  // namespace

TEST(PropList, EveryTypeAnswersOnlyItsOwnGetter) {
  PropList list;
  FillEveryType(list);
  const struct {
    const char* key;
    PropListPropertyType type;
  } cases[] = {
      {"ustring", kPropListType_UnicodeString},
      {"string", kPropListType_String},
      {"bool", kPropListType_Bool},
      {"u16", kPropListType_UInt16},
      {"u32", kPropListType_UInt32},
      {"i32", kPropListType_Int32},
      {"i64", kPropListType_Int64},
      {"u64", kPropListType_UInt64},
      {"float", kPropListType_Float},
      {"double", kPropListType_Double},
      {"a.ustring", kPropListType_UnicodeStringArray},
      {"a.string", kPropListType_StringArray},
      {"a.bool", kPropListType_BoolArray},
      {"a.u16", kPropListType_UInt16Array},
      {"a.u32", kPropListType_UInt32Array},
      {"a.i32", kPropListType_Int32Array},
      {"a.i64", kPropListType_Int64Array},
      {"a.u64", kPropListType_UInt64Array},
      {"a.float", kPropListType_FloatArray},
      {"a.double", kPropListType_DoubleArray},
      {"sub", kPropListType_PropList},
      {"missing", kPropListType_None},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key);
    EXPECT_EQ(list.GetPropertyType(U8(c.key)), c.type);
    auto answered = AnsweringGetters(list, U8(c.key));
    if (c.type == kPropListType_None || c.type == kPropListType_PropList) {
      EXPECT_TRUE(answered.empty());
    } else {
      EXPECT_EQ(answered, std::vector<PropListPropertyType>{c.type});
    }
  }
}

TEST(PropList, ScalarsKeepTheirValues) {
  PropList list;
  FillEveryType(list);
  UTF16String u16;
  UTF8String u8;
  bool b = false;
  std::uint16_t w = 0;
  std::uint32_t u = 0;
  std::int32_t i = 0;
  std::int64_t l = 0;
  std::uint64_t ul = 0;
  float f = 0;
  double d = 0;
  ASSERT_TRUE(list.GetValue(U8("ustring"), u16));
  EXPECT_EQ(u16, U16(u"\u00e9t\u00e9 \U0001F600"));
  ASSERT_TRUE(list.GetValue(U8("string"), u8));
  EXPECT_EQ(u8, U8("plain"));
  ASSERT_TRUE(list.GetValue(U8("bool"), b));
  EXPECT_TRUE(b);
  ASSERT_TRUE(list.GetValue(U8("u16"), w));
  EXPECT_EQ(w, 65535);
  ASSERT_TRUE(list.GetValue(U8("u32"), u));
  EXPECT_EQ(u, 4294967295u);
  ASSERT_TRUE(list.GetValue(U8("i32"), i));
  EXPECT_EQ(i, std::numeric_limits<std::int32_t>::min());
  ASSERT_TRUE(list.GetValue(U8("i64"), l));
  EXPECT_EQ(l, std::numeric_limits<std::int64_t>::min());
  ASSERT_TRUE(list.GetValue(U8("u64"), ul));
  EXPECT_EQ(ul, std::numeric_limits<std::uint64_t>::max());
  ASSERT_TRUE(list.GetValue(U8("float"), f));
  EXPECT_EQ(f, 1.5f);
  ASSERT_TRUE(list.GetValue(U8("double"), d));
  EXPECT_EQ(d, -2.25);
}

TEST(PropList, TheLastSetterDecidesTheType) {
  PropList list;
  list.SetValue(U8("a"), std::int32_t{1});
  std::uint32_t u = 9;
  EXPECT_FALSE(list.GetValue(U8("a"), u));
  EXPECT_EQ(u, 9u);
  EXPECT_EQ(list.GetPropertyType(U8("a")), kPropListType_Int32);

  list.SetValue(U8("b"), true);
  list.SetValue(U8("b"), 1.0);
  bool b = false;
  EXPECT_FALSE(list.GetValue(U8("b"), b));
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
  list.SetValue(U8("a"), std::list<std::int64_t>{3, 1, 2});
  std::list<std::int64_t> target{10, 20};
  ASSERT_TRUE(list.GetValue(U8("a"), target));
  EXPECT_EQ(target, (std::list<std::int64_t>{10, 20, 3, 1, 2}));

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
  EXPECT_EQ(first->GetVersion(), PropList::GetCurrentVersion());
  EXPECT_EQ(list.GetSubList(U8("missing")), nullptr);
  EXPECT_EQ(list.GetSubList(static_cast<const UTF8Char*>(nullptr)), nullptr);
  list.SetValue(U8("n"), 1.0);
  EXPECT_EQ(list.GetSubList(U8("n")), nullptr);
  PropList* replaced = list.NewSubList(U8("n"));
  ASSERT_NE(replaced, nullptr);
  EXPECT_EQ(list.GetPropertyType(U8("n")), kPropListType_PropList);
}

TEST(PropList, CopiesShareNothing) {
  PropList list;
  FillEveryType(list);
  PropList copy(list);
  copy.GetSubList(U8("sub"))->SetValue(U8("inner"), std::int32_t{99});
  copy.SetValue(U8("string"), U8("changed"));
  std::int32_t inner = 0;
  ASSERT_TRUE(list.GetSubList(U8("sub"))->GetValue(U8("inner"), inner));
  EXPECT_EQ(inner, 7);
  UTF8String text;
  ASSERT_TRUE(list.GetValue(U8("string"), text));
  EXPECT_EQ(text, U8("plain"));

  PropList assigned;
  assigned.SetValue(U8("old"), true);
  assigned = copy;
  EXPECT_EQ(assigned.GetPropertyType(U8("old")), kPropListType_None);
  ASSERT_TRUE(assigned.GetSubList(U8("sub"))->GetValue(U8("inner"), inner));
  EXPECT_EQ(inner, 99);
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

TEST(PropList, ClearEmptiesTheListAndKeepsTheVersion) {
  PropList list;
  EXPECT_TRUE(list.IsEmpty());
  FillEveryType(list);
  EXPECT_FALSE(list.IsEmpty());
  list.Clear();
  EXPECT_TRUE(list.IsEmpty());
  EXPECT_EQ(list.GetVersion(), 4);
  std::list<UTF8String> names{U8("x")};
  list.GetPropertyNames(names);
  EXPECT_TRUE(names.empty());
}
