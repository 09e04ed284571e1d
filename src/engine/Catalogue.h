// The log message catalogue: 86 numbered texts, German by default, replaceable from the
// "LogMessages" section of a language file.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace orvKestrel {

class FileSystem;

// The numbers of the catalogue's messages: a line's text is "tN" and its message number N.
enum Msg : int {
  kMsgCancelled = 2,
  kMsgJobStart = 3,
  kMsgJobDone = 6,
  kMsgNoFiles = 7,
  kMsgPathsInvalid = 8,
  kMsgJobDeactivated = 9,
  kMsgError = 10,
  kMsgCopied = 11,
  kMsgMoved = 12,
  kMsgDeleted = 13,
  kMsgTo = 14,
  kMsgNoInterval = 15,
  kMsgSearching = 16,
  kMsgChecking = 17,
  kMsgCopying = 18,
  kMsgMoving = 19,
  kMsgDeletingFrom = 20,
  kMsgNoRoomOnDrive = 25,
  kMsgNotCopied = 26,
  kMsgNotMoved = 27,
  kMsgJobDoneWithErrors = 28,
  kMsgCompressingCopy = 30,
  kMsgCompressingOriginal = 31,
  kMsgZipCreated = 32,
  kMsgAdding = 33,
  kMsgNotAdded = 34,
  kMsgReplaced = 35,
  kMsgSourceDeleted = 36,
  kMsgFolderDeleted = 37,
  kMsgKeptExisting = 38,
  kMsgPreviewCopy = 39,
  kMsgWouldMove = 40,
  kMsgWouldBeReplacedByCopy = 41,
  kMsgWouldBeReplacedByNewerCopy = 42,
  kMsgReplacedByMove = 43,
  kMsgReplacedByCopy = 44,
  kMsgKeptNewer = 45,
  kMsgReplaces = 46,
  kMsgWouldDelete = 47,
  kMsgZipWouldBeReplaced = 48,
  kMsgZipWouldBeCreated = 49,
  kMsgWouldNotAdd = 50,
  kMsgWouldAdd = 51,
  kMsgPreviewMove = 52,
  kMsgPreviewDelete = 53,
  kMsgWouldCopy = 54,
  kMsgWouldReplace = 55,
  kMsgWouldBeReplacedByNewerMove = 56,
  kMsgCopyWouldBeRenamed = 57,
  kMsgMoveWouldBeRenamed = 58,
  kMsgFileExists = 59,
  kMsgNotNewer = 60,
  kMsgNotOlder = 61,
  kMsgNotLarger = 62,
  kMsgNotLargerAndNewer = 63,
  kMsgNotLargerAndOlder = 64,
  kMsgNotSmaller = 65,
  kMsgNotSmallerAndNewer = 66,
  kMsgNotSmallerAndOlder = 67,
  kMsgExtracting = 70,
  kMsgPreviewExtract = 71,
  kMsgArchivesFound = 72,
  kMsgArchivesFoundPreview = 73,
  kMsgZipDamaged = 74,
  kMsgZipMissing = 75,
  kMsgZipInvalid = 76,
  kMsgExtractedOne = 77,
  kMsgExtractedMany = 78,
  kMsgWouldExtractOne = 79,
  kMsgWouldExtractMany = 80,
  kMsgZipDeleted = 81,
  kMsgZipWouldBeDeleted = 82,
  kMsgZipUnreadable = 83,
  kMsgFilesFound = 84,
  kMsgFileFound = 85,
  kMsgExistsNoAction = 86,
  kMsgSourceDeletedAfterZip = 87,
  kMsgOnlyExisting = 88,
  kMsgSynchronising = 89,
  kMsgWith = 90,
  kMsgPreviewSync = 91,
  kMsgFirstPassDone = 92,
  kMsgSyncDone = 93,
  kMsgSyncDeleted = 94,
  kMsgSyncWouldDelete = 95,
  kMsgDeletingFromSecondary = 96,
};

class Catalogue {
 public:
  static constexpr int kMaxKey = 96;
  // Reads every entry from the language file (missing file or key: the default) and puts the
  // entry's affixes around it. "t28" is built from the loaded "t6".
  void LoadLogMessages(FileSystem& fs, const std::string& sLanguagePath);
  // Gives every entry its number; "t90" keeps 0.
  void SetMsgIDs();
  // The loaded text of "tN" (empty for keys that do not exist).
  const std::string& Text(int n) const { return texts_.at(static_cast<std::size_t>(n)); }
  std::int16_t Id(int n) const { return ids_.at(static_cast<std::size_t>(n)); }
  static bool Exists(int n);
  static int EntryCount();

 private:
  std::array<std::string, kMaxKey + 1> texts_{};
  std::array<std::int16_t, kMaxKey + 1> ids_{};
};

}  // namespace orvKestrel
