#include "selection/Sync.h"

#include <gtest/gtest.h>

namespace orvKestrel {
namespace {

TEST(MissingInPrimary, ComparesRelativePathsByBytesInTheSecondarysOrder) {
  const FileList primary{"/p/a.TXT", "/p/sub/c.txt", "/p/d.txt"};
  const FileList secondary{"/s/z.txt", "/s/A.txt", "/s/a.TXT", "/s/sub/c.txt", "/s/c.txt",
                           "/s/sub/sub/c.txt"};
  EXPECT_EQ(MissingInPrimary(primary, "/p", secondary, "/s"),
            (FileList{"/s/z.txt", "/s/A.txt", "/s/c.txt", "/s/sub/sub/c.txt"}));
  // The roots' trailing separators do not matter.
  EXPECT_EQ(MissingInPrimary(primary, "/p/", secondary, "/s"),
            MissingInPrimary(primary, "/p", secondary, "/s/"));
  EXPECT_EQ(MissingInPrimary({}, "/p", secondary, "/s").size(), secondary.size());
}

}  // namespace
}  // namespace orvKestrel
