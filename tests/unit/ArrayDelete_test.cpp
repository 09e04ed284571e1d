#include "actions/modArrayDeleteItem.h"

#include <gtest/gtest.h>

namespace orvKestrel {
namespace {

using List = std::vector<std::string>;

TEST(ArrayDelete, RemovesKeepingOrder) {
  struct Case {
    List before;
    long pos;
    std::optional<long> size;
    bool redim;
    List after;
  };
  const Case cases[] = {
      // The removed text goes to the end and is emptied; the size stays.
      {{"a", "b", "c", "d"}, 1, std::nullopt, false, {"a", "c", "d", ""}},
      {{"a", "b", "c", "d"}, 1, std::nullopt, true, {"a", "c", "d"}},
      {{"a", "b", "c", "d"}, 0, std::nullopt, true, {"b", "c", "d"}},
      // The last element: nothing moves.
      {{"a", "b", "c"}, 2, std::nullopt, false, {"a", "b", ""}},
      {{"a", "b", "c"}, 2, std::nullopt, true, {"a", "b"}},
      // nSize limits the part that moves; slot nSize takes the removed text and is emptied.
      {{"a", "b", "c", "d", "e"}, 0, 2, false, {"b", "c", "", "d", "e"}},
      // ... and shrinking then drops the last element of the whole list, as it stands.
      {{"a", "b", "c", "d", "e"}, 0, 2, true, {"b", "c", "a", "d"}},
      // One element at position 0: the list is emptied, whatever the other arguments say.
      {{"a"}, 0, std::nullopt, false, {}},
      {{"a"}, 0, 0, true, {}},
      // Positions outside the list change nothing.
      {{"a", "b"}, 5, std::nullopt, true, {"a", "b"}},
      {{"a", "b"}, -1, std::nullopt, false, {"a", "b"}},
      {{"a", "b"}, 0, 7, false, {"a", "b"}},
      {{}, 0, std::nullopt, true, {}},
  };
  for (const Case& c : cases) {
    List list = c.before;
    ArrayDelete(list, c.pos, c.size, c.redim);
    EXPECT_EQ(list, c.after) << "pos " << c.pos << " redim " << c.redim;
  }
}

}  // namespace
}  // namespace orvKestrel
