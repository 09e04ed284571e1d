#include "common/modGuid.h"

#include <uuid/uuid.h>

namespace orvKestrel {

std::string CreateGUID() {
  uuid_t id;
  uuid_generate(id);
  if (uuid_is_null(id)) return {};
  char text[37];
  uuid_unparse_upper(id, text);
  return std::string(text, 36);
}

}  // namespace orvKestrel
