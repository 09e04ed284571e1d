// The fields of the job record and the job-file keys that fill them: one table in the order in
// which the keys are read, one in the record's published order (for listings and tests).
#pragma once

#include <orvKestrel/job.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace orvKestrel {

// How a key's text becomes the field's value.
enum class Conversion {
  Text,       // as it stands
  Trimmed,    // without leading and trailing blanks
  Int16,      // 16-bit integer (halves to even)
  Int32,      // 32-bit integer; check states too
  Double,
  Int16Text,  // a 16-bit integer, kept as its decimal text
};

using FieldRef =
    std::variant<std::int16_t job::*, std::int32_t job::*, double job::*, std::string job::*>;

// Default text of the three date keys: today's date in the host's short date format.
inline constexpr const char* kToday = nullptr;

struct KeyField {
  const char* section;
  const char* key;
  const char* defaultText;  // kToday for the date keys
  Conversion conversion;
  FieldRef field;
};

struct RecordField {
  const char* name;
  FieldRef field;
};

// The 106 keys in reading order.
std::span<const KeyField> KeyTable();
// The 106 fields in record order, under their field names.
std::span<const RecordField> RecordFields();

// Sets the field of key k from the key's text. Throws KestrelError 13 (not a number) or 6 (out
// of range of the key's conversion).
void ConvertInto(job& j, const KeyField& k, std::string_view text);

// Calls f(name, value) for every field of j in record order; value is a const reference to an
// std::int16_t, std::int32_t, double or std::string.
template <class F>
void ForEachField(const job& j, F&& f) {
  for (const RecordField& r : RecordFields()) {
    std::visit([&](auto member) { f(r.name, j.*member); }, r.field);
  }
}

}  // namespace orvKestrel
