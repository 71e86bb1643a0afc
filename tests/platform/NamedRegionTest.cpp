#include <gtest/gtest.h>
#include <utility>

#include "quillanest/platform/NamedRegion.h"

namespace {

using quillanest::NamedRegion;

TEST(NamedRegion, MovedViewsStayAndReplacedOnesClose) {
  EXPECT_TRUE(NamedRegion::open_or_create("none", std::size_t{1} << 62).bytes().empty());
  NamedRegion first = NamedRegion::open_or_create("region", 100);
  EXPECT_TRUE(first.is_fresh());
  EXPECT_FALSE(NamedRegion::open_or_create("region", 100).is_fresh());
  const std::byte *start = first.bytes().data();
  NamedRegion second = std::move(first);
  EXPECT_TRUE(first.bytes().empty());
  EXPECT_EQ(second.bytes().data(), start);
  second = NamedRegion::open_or_create("other", 10);
  EXPECT_TRUE(NamedRegion::open("region").bytes().empty());
  second.keep_for_process_life();
  EXPECT_EQ(NamedRegion::open("other").bytes().size(), 10u);
}

TEST(NamedRegion, BytesFromAnAddressReachToTheEndOfItsRegion) {
  const NamedRegion region = NamedRegion::open_or_create("region", 100);
  const std::byte *start = region.bytes().data();
  for (const auto &[address, size] : {std::pair(start, 100u), std::pair(start + 99, 1u), std::pair(start + 100, 0u)}) {
    EXPECT_EQ(NamedRegion::bytes_from(address).size(), size);
    EXPECT_EQ(NamedRegion::bytes_from(address).data(), size > 0 ? address : nullptr);
  }
}

}  // namespace
