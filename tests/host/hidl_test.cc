#include <hidl/HidlSupport.h>

#include "support/test.h"

namespace bthal::test {
namespace {

using ::android::hardware::hidl_vec;

TEST(HidlVecTest, LentMemoryIsNeitherCopiedNorFreed) {
  uint8_t bytes[] = {1, 2, 3};
  hidl_vec<uint8_t> lent;
  lent.setToExternal(bytes, sizeof(bytes));
  EXPECT_EQ(lent.data(), bytes);
  // A copy owns its bytes; a moved vector still lends.
  hidl_vec<uint8_t> copy = lent;
  const hidl_vec<uint8_t> moved = std::move(lent);
  bytes[0] = 9;
  EXPECT_THAT(std::vector<uint8_t>(copy), ElementsAre(1, 2, 3));
  EXPECT_EQ(moved.data(), bytes);
  EXPECT_TRUE(lent.empty());  // NOLINT(bugprone-use-after-move): a moved-from vector is an empty one
  copy = moved;
  EXPECT_THAT(std::vector<uint8_t>(copy), ElementsAre(9, 2, 3));
  EXPECT_NE(copy.data(), bytes);
}

TEST(HidlVecTest, OwnedMemoryIsFreedOnce) {
  hidl_vec<uint8_t> vec;
  vec.setToExternal(new uint8_t[2]{4, 5}, 2, true);
  hidl_vec<uint8_t> other{7};
  other = std::move(vec);
  other.resize(4);
  EXPECT_THAT(std::vector<uint8_t>(other), ElementsAre(4, 5, 0, 0));
  other.resize(1);
  EXPECT_EQ(other, hidl_vec<uint8_t>{4});
  other.resize(0);
  EXPECT_TRUE(other.empty());
  uint8_t byte = 6;
  other.setToExternal(&byte, 1);  // the own buffer goes, the lent one stays
  const auto& same = other;
  other = same;
  EXPECT_EQ(other.data(), &byte);
}

TEST(HidlVecDeathTest, TooManyElementsEndTheProcess) {
  uint8_t byte = 0;
  hidl_vec<uint8_t> vec;
  EXPECT_DEATH(vec.setToExternal(&byte, size_t{1} << 32), "hidl_vec can't hold more than 2\\^32 elements");
}

}  // namespace
}  // namespace bthal::test
