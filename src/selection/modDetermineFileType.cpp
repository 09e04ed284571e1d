// A deliberately coarse content test: the first test that holds names the type, so any compound
// file is a "Word document", any RIFF file a "WAV" file and anything starting "PK" a zip.
#include "selection/modDetermineFileType.h"

#include "platform/FileSystem.h"
#include "platform/Paths.h"

#include <initializer_list>
#include <string_view>

namespace orvKestrel {
namespace {

constexpr std::size_t kHeadSize = 300;

struct Head {
  std::string buf;  // exactly kHeadSize bytes, blank-filled past the end of the file

  bool StartsWith(std::string_view s) const { return buf.compare(0, s.size(), s) == 0; }
  bool At(std::size_t pos, std::string_view s) const { return buf.compare(pos, s.size(), s) == 0; }
  bool Contains(std::string_view s) const { return buf.find(s) != std::string::npos; }
  unsigned char Byte(std::size_t i) const { return static_cast<unsigned char>(buf[i]); }
  bool Bytes(std::initializer_list<unsigned char> bytes) const {
    std::size_t i = 0;
    for (const unsigned char b : bytes) {
      if (Byte(i++) != b) return false;
    }
    return true;
  }
};

std::string UpperAscii(std::string s) {
  for (char& c : s) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return s;
}

const char* Classify(const Head& h) {
  if (h.StartsWith("MZ") || h.StartsWith("ZM")) return "PE Executable";
  if (h.StartsWith("[") && h.buf.substr(0, 100).find(']') != std::string::npos) return "INI File";
  if (h.At(8, "AVI LIST")) return "AVI Movie File";
  if (h.StartsWith("RIFF")) return "WAV Audio File";
  if (h.Bytes({0xD0, 0xCF, 0x11, 0xE0})) return "Microsoft Word Document";
  if (h.At(4, "Standard Jet DB")) return "Microsoft Access Database";
  if (h.StartsWith("GIF") || h.Contains("GIF89")) return "GIF Image File";
  if (h.Byte(0) == 255 && h.Byte(4) == 0) return "MP3 Audio File";
  if (h.StartsWith("BM")) return "BMP (Bitmap) Image File";
  if (h.StartsWith("II*")) return "TIFF Image File";
  if (h.StartsWith("PK")) return "ZIP Archive File";
  const std::string lower = paths::LowerAscii(h.buf);
  if (lower.find("<html>") != std::string::npos || lower.find("<!doctype") != std::string::npos) {
    return "HTML Document File";
  }
  if (UpperAscii(h.buf.substr(0, 3)) == "RAR") return "RAR Archive File";
  if (h.Bytes({0x60, 0xEA})) return "ARJ Archive File";
  if (h.Bytes({0xFF, 0xD8, 0xFF})) return "JPEG Image File";
  if (h.Contains("Type=") && h.Contains("Reference=")) return "Visual Basic Project File";
  if (h.StartsWith("VBGROUP ")) return "Visual Basic Group Project File";
  if (h.StartsWith("VERSION ") && h.Contains("\r\nBegin")) return "Visual Basic Form File";
  if (h.buf.find_first_of(std::string_view("\xFF\x01\x02\x03", 4)) != std::string::npos) {
    return "Unknown binary file";
  }
  return "Unknown text file";
}

}  // namespace

std::string GetFileType(FileSystem& fs, const std::string& xFile) {
  if (!fs.FileExists(xFile)) return "NOT FOUND";
  Head head{fs.ReadHead(xFile, kHeadSize)};
  head.buf.resize(kHeadSize, ' ');
  return Classify(head);
}

}  // namespace orvKestrel
