#include "jobs/JobFields.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace orvKestrel {
namespace {

const void* AddressIn(const job& j, const FieldRef& f) {
  return std::visit([&](auto member) -> const void* { return &(j.*member); }, f);
}

TEST(JobFields, RecordOrderIsTheLayoutOfTheRecord) {
  const job j;
  ASSERT_EQ(RecordFields().size(), 106u);
  const void* previous = nullptr;
  std::set<std::string> names;
  for (const RecordField& r : RecordFields()) {
    const void* here = AddressIn(j, r.field);
    EXPECT_LT(previous, here) << r.name << " is out of record order";
    previous = here;
    EXPECT_TRUE(names.insert(r.name).second) << r.name;
  }
  EXPECT_TRUE(names.count("NoHidenFolderScan"));
  EXPECT_EQ(std::string(RecordFields().front().name), "Action");
  EXPECT_EQ(std::string(RecordFields().back().name), "SyncDelete");
}

TEST(JobFields, EveryFieldHasExactlyOneKey) {
  const job j;
  std::set<const void*> fromKeys;
  std::set<std::string> keys;
  for (const KeyField& k : KeyTable()) {
    EXPECT_TRUE(fromKeys.insert(AddressIn(j, k.field)).second) << k.key;
    EXPECT_TRUE(keys.insert(std::string(k.section) + "/" + k.key).second) << k.key;
  }
  std::set<const void*> fromRecord;
  for (const RecordField& r : RecordFields()) fromRecord.insert(AddressIn(j, r.field));
  EXPECT_EQ(fromKeys, fromRecord);
  ASSERT_EQ(KeyTable().size(), 106u);
  EXPECT_EQ(std::string(KeyTable()[0].key), "Name");
  EXPECT_EQ(std::string(KeyTable()[99].section), "Info");
  EXPECT_EQ(std::string(KeyTable()[99].key), "ProgVersion");
}

TEST(JobFields, ASixteenBitConversionFillsACheckState) {
  job j;
  for (const KeyField& k : KeyTable()) {
    if (std::string(k.key) != "ExecDo") continue;
    ConvertInto(j, k, "1");
    EXPECT_EQ(j.ExecDo, 1);
    EXPECT_THROW(ConvertInto(j, k, "40000"), std::exception);
  }
}

}  // namespace
}  // namespace orvKestrel
