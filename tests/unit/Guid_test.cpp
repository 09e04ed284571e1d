#include "common/modGuid.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace orvKestrel {
namespace {

TEST(Guid, UpperCaseGroupsWithoutBracesAndNeverTheSame) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}");
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string g = CreateGUID();
    EXPECT_TRUE(std::regex_match(g, form)) << g;
    seen.insert(g);
  }
  EXPECT_EQ(seen.size(), 100u);
}

}  // namespace
}  // namespace orvKestrel
