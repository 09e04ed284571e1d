// The authentication code of WinZip AES entries, checked apart from the zip library: entries of
// the second version carry no CRC (it is 0), and the library in use then reports a good entry and
// a tampered one alike, as a CRC error.
#pragma once

#include <zip.h>

#include <string>

namespace orvKestrel::aesauth {

// Whether the entry (AES-encrypted, by zip_stat_index) is authentic under password: its stored
// code matches its encrypted data. False when it cannot be read whole.
bool Authentic(zip_t* za, zip_uint64_t index, const zip_stat_t& zs, const std::string& password);

}  // namespace orvKestrel::aesauth
