#include "SelectionSupport.h"
#include "selection/modDetermineFileType.h"
#include "selection/modFilterAttribute.h"

#include <set>

namespace orvKestrel::testing {
namespace {

using namespace std::string_literals;

std::string Bytes(std::initializer_list<int> bytes, const std::string& rest = "") {
  std::string s;
  for (int b : bytes) s += static_cast<char>(b);
  return s + rest;
}

TEST(GetFileType, FirstMatchingTestNamesTheType) {
  const std::pair<std::string, const char*> cases[] = {
      {"MZ\x90", "PE Executable"},
      {"ZM", "PE Executable"},
      {"[Job]\nFrom=x", "INI File"},
      {"[" + std::string(120, 'a') + "]", "Unknown text file"},  // "]" beyond 100
      {"RIFF\x10\0\0\0AVI LIST"s, "AVI Movie File"},
      {"RIFF\x10\0\0\0WAVEfmt "s, "WAV Audio File"},
      {Bytes({0xD0, 0xCF, 0x11, 0xE0}, "\xA1\xB1"), "Microsoft Word Document"},
      {Bytes({0, 1, 0, 0}, "Standard Jet DB"), "Microsoft Access Database"},
      {"GIF87a", "GIF Image File"},
      {"xxxxGIF89", "GIF Image File"},
      {Bytes({0xFF, 0xFB, 0x90, 0x44, 0x00}), "MP3 Audio File"},
      {Bytes({0xFF, 0xD8, 0xFF, 0xE0, 0x00}, "\x10JFIF"), "MP3 Audio File"},  // test 8 first
      {Bytes({0xFF, 0xD8, 0xFF, 0xE1, 0x12}, "Exif"), "JPEG Image File"},
      {"BM6\0\0\0", "BMP (Bitmap) Image File"},
      {"II*\0", "TIFF Image File"},
      {"PK\x03\x04", "ZIP Archive File"},
      {"  <HTML><body>", "HTML Document File"},
      {"<!DOCTYPE html>", "HTML Document File"},
      {"rar!\x1a", "RAR Archive File"},
      {Bytes({0x60, 0xEA}, "xx"), "ARJ Archive File"},
      {"Type=Exe\r\nReference=x", "Visual Basic Project File"},
      {"VBGROUP 5.0", "Visual Basic Group Project File"},
      {"VERSION 5.00\r\nBegin VB.Form", "Visual Basic Form File"},
      {"VERSION 5.00\nBegin", "Unknown text file"},
      {"text\x02more", "Unknown binary file"},
      {"plain text\r\n", "Unknown text file"},
      {"", "Unknown text file"},  // the blank buffer passes no test
      {std::string(300, 'a') + "GIF89", "Unknown text file"},  // only the first 300 bytes count
  };
  TempDir dir;
  FileSystem fs;
  int i = 0;
  for (const auto& [content, type] : cases) {
    const std::string path = dir / ("f" + std::to_string(i++));
    WriteFile(path, content);
    EXPECT_EQ(GetFileType(fs, path), type) << i - 1;
  }
  EXPECT_EQ(GetFileType(fs, dir / "missing"), "NOT FOUND");
}

TEST(AttributeExists, OnlySumsOfTheFourKnownBitsAnswer) {
  const std::pair<std::int32_t, std::set<std::int32_t>> table[] = {
      {1, {1, 3, 5, 7, 33, 35, 37, 39}},
      {2, {2, 3, 6, 7, 34, 35, 38, 39}},
      {4, {4, 5, 6, 7, 36, 37, 38, 39}},
      {32, {32, 33, 34, 35, 36, 37, 38, 39}},
  };
  for (std::int32_t attr = -1; attr <= 4200; ++attr) {
    for (const auto& [sel, yes] : table) {
      EXPECT_EQ(AttributeExists(attr, sel), yes.count(attr) == 1) << attr << " " << sel;
    }
    for (const std::int32_t other : {0, 3, 16, 2048}) EXPECT_FALSE(AttributeExists(attr, other));
  }
}

}  // namespace
}  // namespace orvKestrel::testing
