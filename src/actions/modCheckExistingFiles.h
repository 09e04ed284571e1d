// The comparisons that decide whether a source replaces an existing destination file. True
// means the source qualifies and replaces the destination; equal values never qualify.
// iExtFileTime chooses the time compared: 0 created, 1 last modified, 2 last accessed; any
// other value makes every comparison that uses a time answer false.
#pragma once

#include "errortrap/modFailSafeLITE.h"
#include "platform/FileSystem.h"

#include <cstdint>
#include <string>

namespace orvKestrel {

// What the existing-destination policy (the job's Exist) does with one file, from whether its
// destination exists: the one decision behind both the run and its preview. Only Compare
// needs more: the comparison EFSelect chooses (CheckExist) then says Replace or keep.
enum class Existing {
  None,          // no policy: the file is passed over silently
  New,           // no destination yet: the file is copied or moved there
  Keep,          // policy 0: the destination stays, nothing happens
  DeleteSource,  // policy 1: the source is deleted, the destination stays
  Rename,        // policy 2: copied or moved under a free name
  Replace,       // policy 3: the destination is replaced
  Compare,       // policy 4: replaced when the comparison agrees
};
Existing DecideExisting(std::int16_t exist, bool destExists);

// The answer of Exist0..Exist7 (by iSelecter) for two files already read; false for any other
// selector.
bool Qualifies(const FileStat& source, const FileStat& dest, std::int16_t iExtFileTime,
               std::int16_t iSelecter);

// By iSelecter 0..7 the answer of Exist0..Exist7; false for any other selector.
bool CheckExist(FileSystem& fs, FailSafe& trap, const std::string& sSource,
                const std::string& sDest, std::int16_t iExtFileTime, std::int16_t iSelecter);

bool Exist0(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // newer
bool Exist1(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // older
bool Exist2(FileSystem& fs, FailSafe& trap, const std::string& sSource,
            const std::string& sDest);  // bigger
bool Exist3(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // bigger and newer
bool Exist4(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // bigger and older
bool Exist5(FileSystem& fs, FailSafe& trap, const std::string& sSource,
            const std::string& sDest);  // smaller
bool Exist6(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // smaller and newer
bool Exist7(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime);  // smaller and older

}  // namespace orvKestrel
