#include <gtest/gtest.h>
#include <utility>

#include "quillanest/platform/NamedRegion.h"

namespace {

using quillanest::NamedRegion;

TEST(NamedRegion, MakesNothingOfSizesItCannotGive) {
  EXPECT_TRUE(NamedRegion::open_or_create("none", 0).bytes().empty());
  EXPECT_TRUE(NamedRegion::open_or_create("none", std::size_t{1} << 62).bytes().empty());
  EXPECT_TRUE(NamedRegion::open("none").bytes().empty());
}

TEST(NamedRegion, MovedViewsStayAndReplacedOnesClose) {
  NamedRegion first = NamedRegion::open_or_create("region", 100);
  EXPECT_TRUE(first.is_fresh());
  EXPECT_FALSE(NamedRegion::open_or_create("region", 100).is_fresh());
  const std::byte *start = first.bytes().data();
  NamedRegion second = std::move(first);
  EXPECT_TRUE(first.bytes().empty());
  EXPECT_EQ(second.bytes().data(), start);
  second = NamedRegion::open_or_create("other", 10);
  EXPECT_TRUE(NamedRegion::open("region").bytes().empty());
}

TEST(NamedRegion, KeptRegionStaysWithoutAView) {
  {
    NamedRegion region = NamedRegion::open_or_create("kept", 8);
    region.bytes()[0] = std::byte{9};
    region.keep_for_process_life();
    EXPECT_TRUE(region.bytes().empty());
  }
  const NamedRegion again = NamedRegion::open("kept");
  ASSERT_EQ(again.bytes().size(), 8u);
  EXPECT_EQ(again.bytes()[0], std::byte{9});
}

TEST(NamedRegion, BytesFromAnAddressReachToTheEndOfItsRegion) {
  const NamedRegion region = NamedRegion::open_or_create("region", 100);
  const std::byte *start = region.bytes().data();
  const std::byte outside{0};
  struct Row {
    const std::byte *address;
    std::size_t size;
  };
  for (const Row &row : {Row{start, 100}, Row{start + 1, 99}, Row{start + 99, 1}, Row{start + 100, 0}, Row{&outside, 0},
                         Row{nullptr, 0}}) {
    SCOPED_TRACE(row.size);
    const std::span<std::byte> bytes = NamedRegion::bytes_from(row.address);
    EXPECT_EQ(bytes.size(), row.size);
    EXPECT_EQ(bytes.data(), row.size > 0 ? row.address : nullptr);
  }
}

}  // namespace
