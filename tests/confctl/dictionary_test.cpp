#include <gtest/gtest.h>

#include "tests/confctl/sample.h"

namespace confctl {
namespace {

Dictionary dictionaryOf(std::initializer_list<nv::message> keys) {
  nv::message description;
  for (const nv::message& key : keys) description.append(nv::key::objects, key);
  return Dictionary(description);
}

TEST(Dictionary, NamesFieldsByNumberAndTypeWhenTheServiceDoesNot) {
  const Dictionary names;
  for (const std::string name : {"7_b", "7_u", "7_q", "7_a", "7_s", "7_m", "7_r", "7_ba", "7_ua",
                                 "7_qa", "7_aa", "7_sa", "7_ma", "7_ra"}) {
    ASSERT_TRUE(names.uidOf(name)) << name;
    EXPECT_EQ(names.nameOf(*names.uidOf(name)), name);
  }
}

TEST(Dictionary, PutsTheWordsOfTheServiceBeforeThePlatforms) {
  const nv::u32_id own(7);
  const Dictionary names = dictionaryOf({sample::entry(own.uid(), "name")});
  EXPECT_EQ(names.uidOf("name"), own.uid());
  EXPECT_EQ(names.nameOf(nv::key::name.uid()), "16646160_s");
}

TEST(Dictionary, LeavesOutWhatNobodyCouldTypeOrMean) {
  const Dictionary names = dictionaryOf({
      sample::entry(0x08000001, "good"),
      sample::entry(0x08000002, "two words"),
      sample::entry(0x08000003, "a=b"),
      sample::entry(0x08000004, ""),
      sample::entry(0x08000005, "7_u"),
      sample::entry(0x38000006, "untyped"),
      sample::entry(0x08000001, "again"),
      sample::entry(0x08000007, "good"),
  });
  ASSERT_EQ(names.keys().size(), 1u);
  EXPECT_EQ(names.keys()[0].word, "good");
  EXPECT_EQ(names.nameOf(0x08000007), "7_u");
}

TEST(Dictionary, DoesNotReadTheUnusedBitsOfAField) {
  const Dictionary names = dictionaryOf({sample::entry(0x0f000001, "odd")});
  EXPECT_EQ(names.uidOf("odd"), 0x08000001u);
}

}  // namespace
}  // namespace confctl
