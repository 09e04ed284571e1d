// The fields of the job record under their field names, in the record's published order: for
// hosts and tools that list records without naming all 106 fields themselves.
#pragma once

#include <orvKestrel/job.h>

#include <cstdint>
#include <span>
#include <string>
#include <variant>

namespace orvKestrel {

using FieldRef =
    std::variant<std::int16_t job::*, std::int32_t job::*, double job::*, std::string job::*>;

struct RecordField {
  const char* name;
  FieldRef field;
};

// The 106 fields in record order, under their field names.
std::span<const RecordField> RecordFields();

// Calls f(name, value) for every field of j in record order; value is a const reference to an
// std::int16_t, std::int32_t, double or std::string.
template <class F>
void ForEachField(const job& j, F&& f) {
  for (const RecordField& r : RecordFields()) {
    std::visit([&](auto member) { f(r.name, j.*member); }, r.field);
  }
}

}  // namespace orvKestrel
