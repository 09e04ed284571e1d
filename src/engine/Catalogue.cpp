#include "engine/Catalogue.h"

#include "jobs/Profile.h"
#include "platform/SysError.h"

#include <algorithm>
#include <string_view>

namespace orvKestrel {
namespace {

struct Entry {
  int n;
  std::string_view text;
  std::string_view before;
  std::string_view after;
};

// Keys 1, 4, 5, 21..24, 29, 68 and 69 do not exist. "t28" is built from "t6" below.
constexpr Entry kEntries[] = {
    {2, "Aktion 'Aufträge ausführen' abgebrochen", "", ""},
    {3, "Starte Auftrag", "", ""},
    {6, "Auftrag ausgeführt", "", ""},
    {7, "Keine Dateien gefunden", "", ""},
    {8, "Pfade ungültig", "", ""},
    {9, "Auftrag deaktiviert", "", ""},
    {10, "Fehler", "", ": "},
    {11, "Kopiert", "", ": "},
    {12, "Verschoben", "", ": "},
    {13, "Gelöscht", "", ": "},
    {14, "nach", " ", " "},
    {15, "Kein Interval definiert", "", ""},
    {16, "Suche Dateien ...", "", ""},
    {17, "Überprüfe Dateien ...", "", ""},
    {18, "Kopiere Dateien ...", "", ""},
    {19, "Verschiebe Dateien ...", "", ""},
    {20, "Lösche Dateien aus", "", " "},
    {25, "Zu wenig Speicherplatz auf Laufwerk", "", " "},
    {26, "Datei nicht kopiert", "", ": "},
    {27, "Datei nicht verschoben", "", ": "},
    {28, "(mit Fehler)", " ", ""},
    {30, "Komprimiere Dateien (Kopie) - ", "", " "},
    {31, "Komprimiere Dateien (Original) - ", "", " "},
    {32, "Erstelle neue Zip Datei", "", ": "},
    {33, "Hinzufügen", "", ": "},
    {34, "Nicht hinzugefügt", "", ": "},
    {35, "Ersetzt", "", ": "},
    {36, "Quelle gelöscht (Datei existiert)", "", ": "},
    {37, "Verzeichnis gelöscht", "", ": "},
    {38, "Keine Aktion (Datei vorhanden)", "", ": "},
    {39, "Vorschau - Dateien kopieren (keine Aktionen)", "", ": "},
    {40, "Würde verschoben", "", ": "},
    {41, "Würde von Kopie überschrieben", "", ": "},
    {42, "Würde von neu kopierter Datei überschrieben", "", ": "},
    {43, "Von verschobener Datei überschrieben", "", ": "},
    {44, "Von kopierter Datei überschrieben", "", ": "},
    {45, "Keine Aktion (Neuere Datei existiert)", "", ": "},
    {46, "überschreibt", " ", " "},
    {47, "Würde gelöscht", "", ": "},
    {48, "Zip würde ersetzt", "", ": "},
    {49, "Zip würde erstellt", "", ": "},
    {50, "Würde nicht hinzugefügt", "", ": "},
    {51, "Würde zu Zip hinzugefügt", "", ": "},
    {52, "Vorschau - Dateien verschieben (keine Aktionen)", "", ": "},
    {53, "Vorschau - Dateien löschen (keine Aktionen)", "", ": "},
    {54, "Würde kopiert", "", ": "},
    {55, "Würde ersetzt", "", ": "},
    {56, "Würde von neu verschobener Datei überschrieben", "", ": "},
    {57, "Kopierte Datei würde umbenannt", "", ": "},
    {58, "Verschobene Datei würde umbenannt", "", ": "},
    {59, "Datei existiert", "", ": "},
    {60, "Quelldatei nicht neuer", "", ": "},
    {61, "Quelldatei nicht älter", "", ": "},
    {62, "Quelldatei nicht grösser", "", ": "},
    {63, "Quelldatei nicht grösser und neuer", "", ": "},
    {64, "Quelldatei nicht grösser und älter", "", ": "},
    {65, "Quelldatei nicht kleiner", "", ": "},
    {66, "Quelldatei nicht kleiner und neuer", "", ": "},
    {67, "Quelldatei nicht kleiner und älter", "", ": "},
    {70, "Dekomprimiere Dateien", "", ""},
    {71, "Dekomprimiere Dateien (Vorschau - keine Aktion)", "", ""},
    {72, "Zip Dateien gefunden. Starte Dekompression ...", " ", ""},
    {73, "Zip Dateien gefunden. Starte Dekompressionsvorschau ...", " ", ""},
    {74, "Zip Datei ist beschädigt oder enthält keine Dateien", "", ": "},
    {75, "Zip Datei existiert nicht", "", ": "},
    {76, "Ungültige Zip Datei", "", ": "},
    {77, "Datei wurde dekomprimiert", " ", ": "},
    {78, "Dateien wurden dekomprimiert", " ", ": "},
    {79, "Datei würde dekomprimiert", " ", ": "},
    {80, "Dateien würden dekomprimiert", " ", ": "},
    {81, "Zip Datei wurde gelöscht", "", ": "},
    {82, "Zip Datei würde bei erfolgreicher Aktion gelöscht", "", " "},
    {83, "Undefinierbarer Fehler (fehlendes Passwort?)", "", ": "},
    {84, "Dateien gefunden", "", ": "},
    {85, "Datei gefunden", "", ": "},
    {86, "existiert - Keine Aktion", " ", ": "},
    {87, "Quelle gelöscht (Nach Zip-Kompression)", "", ": "},
    {88, "Vergleiche nur existierende Dateien", "", ""},
    {89, "Synchronisiere Verzeichnis", "", " "},
    {90, "mit", " ", " "},
    {91, "Synchronisiere Verzeichnis (Vorschau)", "", " "},
    {92, "Synchronisation 1. Verzeichnis abgeschlossen. Starte 2. Verzeichnis ...", "", " "},
    {93, "Synchronisation abgeschlossen!", "", " "},
    {94, "Datei gelöscht (Im primären Verzeichnis nicht vorhanden)", "", " "},
    {95, "Datei würde gelöscht (Im primären Verzeichnis nicht vorhanden)", "", " "},
    {96, "Lösche Dateien aus sekundärem Verzeichnis", "", " "},
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
    if (e.n == 28) slot.append(texts_[6]);
    slot.append(e.before).append(text).append(e.after);
  }
}

void Catalogue::SetMsgIDs() {
  for (const Entry& e : kEntries) {
    ids_[static_cast<std::size_t>(e.n)] = static_cast<std::int16_t>(e.n == 90 ? 0 : e.n);
  }
}

}  // namespace orvKestrel
