#include <gtest/gtest.h>

#include <string>

#include "qvx/process_util.h"

namespace qvx::test {
namespace {

TEST(AttributeText, GetsAndSets) {
  struct Case {
    const char *config, *separator, *attribute, *old_value, *value, *changed;
  };
  const Case cases[] = {{"a=1;b=2", ";", "b=", "2", "3", "a=1;b=3"},
                        {"a=1;b=2", ";", "c=", nullptr, "4", "a=1;b=2;c=4"},
                        {"", ";", "a=", nullptr, "1", ";a=1"},
                        {"a=;;b=", ";", "b=", "", "x", "a=;;b=x"},
                        {"A=1;a=2", ";", "a=", "2", "3", "A=1;a=3"},
                        {"ba=1;a=1;A=1", ";", "a=", "1", "2", "ba=2;a=2;a=2"},
                        {"a=x", ";", "a=", "x", "X", "a=x"},
                        {"a=1<>b=2<c", "<>", "b=", "2<c", "3", "a=1<>b=3"},
                        {"a=1;b=2", "", "a=", "1;b=2", "3", "a=3"},
                        {"a=KEPT", ";", "a=", "KEPT", "1", "a=1"},
                        {";;a=1", ";", "", "a=1", "b=2", ";;b=2"}};
  for (const Case& one : cases) {
    CBaseStringA config(one.config);
    CBaseStringA value("kept");
    EXPECT_EQ(GetAttrValueFromConfig(&config, one.separator, one.attribute, &value),
              one.old_value != nullptr ? 1 : 0);
    EXPECT_STREQ(value.GetString(), one.old_value != nullptr ? one.old_value : "kept");
    SetAttrValueToConfig(&config, one.separator, one.attribute, one.value);
    EXPECT_STREQ(config.GetString(), one.changed);
    SetAttrValueToConfig(&config, one.separator, one.attribute, nullptr);
    EXPECT_STREQ(config.GetString(), one.changed);
  }
  CBaseStringA config("a=1");
  EXPECT_EQ(GetAttrValueFromConfig(&config, ";", "a=", nullptr), 0);
  EXPECT_EQ(GetAttrValueFromConfig(nullptr, ";", "a=", &config), 0);
}

}  // namespace
}  // namespace qvx::test
