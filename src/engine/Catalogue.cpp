#include "engine/Catalogue.h"

#include "jobs/Profile.h"
#include "platform/SysError.h"

#include <algorithm>
#include <string_view>

namespace orvKestrel {
namespace {

struct Entry {
  Msg n;
  std::string_view text;
  std::string_view before;
  std::string_view after;
};

// Keys 1, 4, 5, 21..24, 29, 68 and 69 do not exist. "t28" is built from "t6" below.
constexpr Entry kEntries[] = {
    {kMsgCancelled, "Aktion 'Aufträge ausführen' abgebrochen", "", ""},
    {kMsgJobStart, "Starte Auftrag", "", ""},
    {kMsgJobDone, "Auftrag ausgeführt", "", ""},
    {kMsgNoFiles, "Keine Dateien gefunden", "", ""},
    {kMsgPathsInvalid, "Pfade ungültig", "", ""},
    {kMsgJobDeactivated, "Auftrag deaktiviert", "", ""},
    {kMsgError, "Fehler", "", ": "},
    {kMsgCopied, "Kopiert", "", ": "},
    {kMsgMoved, "Verschoben", "", ": "},
    {kMsgDeleted, "Gelöscht", "", ": "},
    {kMsgTo, "nach", " ", " "},
    {kMsgNoInterval, "Kein Interval definiert", "", ""},
    {kMsgSearching, "Suche Dateien ...", "", ""},
    {kMsgChecking, "Überprüfe Dateien ...", "", ""},
    {kMsgCopying, "Kopiere Dateien ...", "", ""},
    {kMsgMoving, "Verschiebe Dateien ...", "", ""},
    {kMsgDeletingFrom, "Lösche Dateien aus", "", " "},
    {kMsgNoRoomOnDrive, "Zu wenig Speicherplatz auf Laufwerk", "", " "},
    {kMsgNotCopied, "Datei nicht kopiert", "", ": "},
    {kMsgNotMoved, "Datei nicht verschoben", "", ": "},
    {kMsgJobDoneWithErrors, "(mit Fehler)", " ", ""},
    {kMsgCompressingCopy, "Komprimiere Dateien (Kopie) - ", "", " "},
    {kMsgCompressingOriginal, "Komprimiere Dateien (Original) - ", "", " "},
    {kMsgZipCreated, "Erstelle neue Zip Datei", "", ": "},
    {kMsgAdding, "Hinzufügen", "", ": "},
    {kMsgNotAdded, "Nicht hinzugefügt", "", ": "},
    {kMsgReplaced, "Ersetzt", "", ": "},
    {kMsgSourceDeleted, "Quelle gelöscht (Datei existiert)", "", ": "},
    {kMsgFolderDeleted, "Verzeichnis gelöscht", "", ": "},
    {kMsgKeptExisting, "Keine Aktion (Datei vorhanden)", "", ": "},
    {kMsgPreviewCopy, "Vorschau - Dateien kopieren (keine Aktionen)", "", ": "},
    {kMsgWouldMove, "Würde verschoben", "", ": "},
    {kMsgWouldBeReplacedByCopy, "Würde von Kopie überschrieben", "", ": "},
    {kMsgWouldBeReplacedByNewerCopy, "Würde von neu kopierter Datei überschrieben", "", ": "},
    {kMsgReplacedByMove, "Von verschobener Datei überschrieben", "", ": "},
    {kMsgReplacedByCopy, "Von kopierter Datei überschrieben", "", ": "},
    {kMsgKeptNewer, "Keine Aktion (Neuere Datei existiert)", "", ": "},
    {kMsgReplaces, "überschreibt", " ", " "},
    {kMsgWouldDelete, "Würde gelöscht", "", ": "},
    {kMsgZipWouldBeReplaced, "Zip würde ersetzt", "", ": "},
    {kMsgZipWouldBeCreated, "Zip würde erstellt", "", ": "},
    {kMsgWouldNotAdd, "Würde nicht hinzugefügt", "", ": "},
    {kMsgWouldAdd, "Würde zu Zip hinzugefügt", "", ": "},
    {kMsgPreviewMove, "Vorschau - Dateien verschieben (keine Aktionen)", "", ": "},
    {kMsgPreviewDelete, "Vorschau - Dateien löschen (keine Aktionen)", "", ": "},
    {kMsgWouldCopy, "Würde kopiert", "", ": "},
    {kMsgWouldReplace, "Würde ersetzt", "", ": "},
    {kMsgWouldBeReplacedByNewerMove, "Würde von neu verschobener Datei überschrieben", "", ": "},
    {kMsgCopyWouldBeRenamed, "Kopierte Datei würde umbenannt", "", ": "},
    {kMsgMoveWouldBeRenamed, "Verschobene Datei würde umbenannt", "", ": "},
    {kMsgFileExists, "Datei existiert", "", ": "},
    {kMsgNotNewer, "Quelldatei nicht neuer", "", ": "},
    {kMsgNotOlder, "Quelldatei nicht älter", "", ": "},
    {kMsgNotLarger, "Quelldatei nicht grösser", "", ": "},
    {kMsgNotLargerAndNewer, "Quelldatei nicht grösser und neuer", "", ": "},
    {kMsgNotLargerAndOlder, "Quelldatei nicht grösser und älter", "", ": "},
    {kMsgNotSmaller, "Quelldatei nicht kleiner", "", ": "},
    {kMsgNotSmallerAndNewer, "Quelldatei nicht kleiner und neuer", "", ": "},
    {kMsgNotSmallerAndOlder, "Quelldatei nicht kleiner und älter", "", ": "},
    {kMsgExtracting, "Dekomprimiere Dateien", "", ""},
    {kMsgPreviewExtract, "Dekomprimiere Dateien (Vorschau - keine Aktion)", "", ""},
    {kMsgArchivesFound, "Zip Dateien gefunden. Starte Dekompression ...", " ", ""},
    {kMsgArchivesFoundPreview, "Zip Dateien gefunden. Starte Dekompressionsvorschau ...", " ", ""},
    {kMsgZipDamaged, "Zip Datei ist beschädigt oder enthält keine Dateien", "", ": "},
    {kMsgZipMissing, "Zip Datei existiert nicht", "", ": "},
    {kMsgZipInvalid, "Ungültige Zip Datei", "", ": "},
    {kMsgExtractedOne, "Datei wurde dekomprimiert", " ", ": "},
    {kMsgExtractedMany, "Dateien wurden dekomprimiert", " ", ": "},
    {kMsgWouldExtractOne, "Datei würde dekomprimiert", " ", ": "},
    {kMsgWouldExtractMany, "Dateien würden dekomprimiert", " ", ": "},
    {kMsgZipDeleted, "Zip Datei wurde gelöscht", "", ": "},
    {kMsgZipWouldBeDeleted, "Zip Datei würde bei erfolgreicher Aktion gelöscht", "", " "},
    {kMsgZipUnreadable, "Undefinierbarer Fehler (fehlendes Passwort?)", "", ": "},
    {kMsgFilesFound, "Dateien gefunden", "", ": "},
    {kMsgFileFound, "Datei gefunden", "", ": "},
    {kMsgExistsNoAction, "existiert - Keine Aktion", " ", ": "},
    {kMsgSourceDeletedAfterZip, "Quelle gelöscht (Nach Zip-Kompression)", "", ": "},
    {kMsgOnlyExisting, "Vergleiche nur existierende Dateien", "", ""},
    {kMsgSynchronising, "Synchronisiere Verzeichnis", "", " "},
    {kMsgWith, "mit", " ", " "},
    {kMsgPreviewSync, "Synchronisiere Verzeichnis (Vorschau)", "", " "},
    {kMsgFirstPassDone, "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ...",
     "", " "},
    {kMsgSyncDone, "Synchronisation abgeschlossen!", "", " "},
    {kMsgSyncDeleted, "Datei gelöscht (Im primären Verzeichnis nicht vorhanden)", "", " "},
    {kMsgSyncWouldDelete, "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden)", "",
     " "},
    {kMsgDeletingFromSecondary, "Lösche Dateien aus sekundärem Verzeichnis", "", " "},
};

const Entry* Find(int n) {
  const auto* it = std::find_if(std::begin(kEntries), std::end(kEntries),
                                [n](const Entry& e) { return e.n == n; });
  return it == std::end(kEntries) ? nullptr : it;
}

}  // namespace

bool Catalogue::Exists(int n) { return Find(n) != nullptr; }

int Catalogue::EntryCount() { return static_cast<int>(std::size(kEntries)); }

void Catalogue::LoadLogMessages(FileSystem& fs, const std::string& sLanguagePath) {
  // The language file is parsed once; a missing or unreadable one leaves every default.
  Profile language;
  if (!sLanguagePath.empty()) {
    try {
      language = Profile::Load(fs, sLanguagePath);
    } catch (const KestrelError&) {
    }
  }
  // kEntries is in key order, so "t6" is loaded before "t28" needs it.
  for (const Entry& e : kEntries) {
    const std::string text = language.Get("LogMessages", "t" + std::to_string(e.n), e.text);
    std::string& slot = texts_[static_cast<std::size_t>(e.n)];
    slot.clear();
    if (e.n == kMsgJobDoneWithErrors) slot.append(texts_[kMsgJobDone]);
    slot.append(e.before).append(text).append(e.after);
  }
}

void Catalogue::SetMsgIDs() {
  for (const Entry& e : kEntries) {
    ids_[static_cast<std::size_t>(e.n)] = static_cast<std::int16_t>(e.n == kMsgWith ? 0 : e.n);
  }
}

}  // namespace orvKestrel
