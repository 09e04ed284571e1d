// The job-file keys and the fields they fill, in the order in which the keys are read (the
// record's published order is in orvKestrel/fields.h).
#pragma once

#include <orvKestrel/fields.h>
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

// Default text of the three date keys: today's date in the host's short date format.
inline constexpr const char* kToday = nullptr;

struct KeyField {
  const char* section;
  const char* key;
  const char* defaultText;  // kToday for the date keys
  Conversion conversion;
  FieldRef field;
};

// The 106 keys in reading order.
std::span<const KeyField> KeyTable();

// Sets the field of key k from the key's text. Throws KestrelError 13 (not a number) or 6 (out
// of range of the key's conversion).
void ConvertInto(job& j, const KeyField& k, std::string_view text);

}  // namespace orvKestrel
