#include "qvx/string_split.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <string>
#include <vector>

#include "qvx/ptr_array.h"
#include "qvx/ptr_list.h"
#include "support/failing_new.h"
#include "support/fault_plan.h"

namespace qvx::test {
namespace {

TEST(StringSplit, CutsAtCharacters) {
  using Fields = std::vector<std::string>;
  struct Case {
    const char* text;
    int length;
    const char* separators;
    int skip_empty, max_count;
    Fields fields;
  };
  const Case cases[] = {{"a,b,", -1, ",", 0, 0, {"a", "b"}},
                        {",a", -1, ",", 0, 0, {"", "a"}},
                        {",a", -1, ",", 1, 0, {"a"}},
                        {"a,,b", -1, ",", 0, 0, {"a", "", "b"}},
                        {"a,,b", -1, ",", 1, 0, {"a", "b"}},
                        {"a,b,c", -1, ",", 0, 2, {"a", "b,c"}},
                        {"a,b,c", -1, ",", 0, 1, {"a,b,c"}},
                        {",,a,b,", -1, ",", 1, 2, {"a", "b,"}},
                        {"a,b;c d", 5, ";,", 0, 0, {"a", "b", "c"}},
                        {",,", -1, ",", 0, 0, {"", ""}},
                        {",,", -1, ",", 1, 0, {}},
                        {"", -1, ",", 0, 0, {}},
                        {"a,b", -1, "", 0, 0, {"a,b"}}};
  for (const Case& one : cases) {
    CPtrListCtrl out;
    const int count = static_cast<int>(std::string(one.separators).size());
    char* block = DevideStringByCharListA(one.text, one.length, one.separators, count,
                                          one.skip_empty, &out, one.max_count);
    Fields fields;
    for (int i = 0; i < out.GetCount(); ++i) {
      fields.emplace_back(static_cast<const char*>(out.GetAt(i)));
    }
    EXPECT_EQ(fields, one.fields) << one.text;
    Internal_DelArrayA(block);
  }
}

TEST(StringSplit, CutsWideText) {
  CPtrArrayCtrl out;
  WCHAR* block = DevideStringByCharListW(u"\u4e2d\uff0cb", -1, u"\uff0c", 1, 0, &out, 0);
  ASSERT_EQ(out.GetCount(), 2);
  EXPECT_EQ(std::u16string(static_cast<const WCHAR*>(out.GetAt(0))), u"\u4e2d");
  EXPECT_EQ(std::u16string(static_cast<const WCHAR*>(out.GetAt(1))), u"b");
  Internal_DelArrayW(block);
}

TEST(StringSplit, LeavesTheContainerAloneOnFailure) {
  CPtrListCtrl out;
  EXPECT_EQ(DevideStringByCharListA(nullptr, 0, ",", 1, 0, &out, 0), nullptr);
  EXPECT_EQ(DevideStringByCharListA("a", 1, ",", 1, 0, nullptr, 0), nullptr);
  bool through = false;
  for (int n = 1; !through; ++n) {
    FaultPlan plan;
    plan.Fail(platform::Operation::kAllocate, n, ENOMEM);
    try {
      Internal_DelArrayA(DevideStringByCharListA("a,b,c", -1, ",", 1, 0, &out, 0));
      through = true;
    } catch (const std::bad_alloc&) {
      ASSERT_TRUE(out.IsEmpty()) << "allocation " << n;
    }
  }
  EXPECT_EQ(out.GetCount(), 3);
}

}  // namespace
}  // namespace qvx::test
