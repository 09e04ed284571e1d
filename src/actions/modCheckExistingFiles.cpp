#include "actions/modCheckExistingFiles.h"

#include <optional>

namespace orvKestrel {
namespace {

constexpr const char* kModule = "modCheckExistingFiles";

enum class Time { Newer, Older, Any };
enum class Size { Bigger, Smaller, Any };

struct Pair {
  FileStat source, dest;
};

std::optional<std::time_t> Chosen(const FileTimes& t, std::int16_t iExtFileTime) {
  switch (iExtFileTime) {
    case 0: return t.created;
    case 1: return t.written;
    case 2: return t.accessed;
    default: return std::nullopt;
  }
}

// Both tests are evaluated.
bool Test(const Pair& files, std::int16_t iExtFileTime, Time time, Size size) {
  bool dateTest = true;
  if (time != Time::Any) {
    const auto s = Chosen(files.source.times, iExtFileTime);
    const auto d = Chosen(files.dest.times, iExtFileTime);
    dateTest = s && d && (time == Time::Newer ? *s > *d : *s < *d);
  }
  bool sizeTest = true;
  if (size != Size::Any) {
    sizeTest = size == Size::Bigger ? files.source.size > files.dest.size
                                    : files.source.size < files.dest.size;
  }
  return dateTest && sizeTest;
}

// A file that cannot be read makes the answer false.
bool Compare(FileSystem& fs, FailSafe& trap, const char* proc, const std::string& sSource,
             const std::string& sDest, std::int16_t iExtFileTime, Time time, Size size) {
  Proc p(trap, kModule, proc, [&] {
    if (time == Time::Any) return ParamText({{"sSource", sSource}, {"sDest", sDest}});
    return ParamText({{"sSource", sSource}, {"sDest", sDest},
                      {"iExtFileTime", std::to_string(iExtFileTime)}});
  });
  std::optional<Pair> files;
  if (!p.Do([&] { files = Pair{fs.Stat(sSource).Value(), fs.Stat(sDest).Value()}; }) || !files) return false;
  return Test(*files, iExtFileTime, time, size);
}

}  // namespace

Existing DecideExisting(std::int16_t exist, bool destExists) {
  switch (exist) {
    case 0: return destExists ? Existing::Keep : Existing::New;
    case 1: return destExists ? Existing::DeleteSource : Existing::New;
    case 2: return Existing::Rename;
    case 3: return destExists ? Existing::Replace : Existing::New;
    case 4: return destExists ? Existing::Compare : Existing::New;
    default: return Existing::None;
  }
}

bool Qualifies(const FileStat& source, const FileStat& dest, std::int16_t iExtFileTime,
               std::int16_t iSelecter) {
  static constexpr struct {
    Time time;
    Size size;
  } kRules[] = {{Time::Newer, Size::Any},     {Time::Older, Size::Any},
                {Time::Any, Size::Bigger},    {Time::Newer, Size::Bigger},
                {Time::Older, Size::Bigger},  {Time::Any, Size::Smaller},
                {Time::Newer, Size::Smaller}, {Time::Older, Size::Smaller}};
  if (iSelecter < 0 || iSelecter > 7) return false;
  const Pair files{source, dest};
  const auto& rule = kRules[iSelecter];
  return Test(files, iExtFileTime, rule.time, rule.size);
}

bool Exist0(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist0", sSource, sDest, iExtFileTime, Time::Newer, Size::Any);
}

bool Exist1(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist1", sSource, sDest, iExtFileTime, Time::Older, Size::Any);
}

bool Exist2(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest) {
  return Compare(fs, trap, "Function Exist2", sSource, sDest, 0, Time::Any, Size::Bigger);
}

bool Exist3(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist3", sSource, sDest, iExtFileTime, Time::Newer,
                 Size::Bigger);
}

bool Exist4(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist4", sSource, sDest, iExtFileTime, Time::Older,
                 Size::Bigger);
}

bool Exist5(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest) {
  return Compare(fs, trap, "Function Exist5", sSource, sDest, 0, Time::Any, Size::Smaller);
}

bool Exist6(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist6", sSource, sDest, iExtFileTime, Time::Newer,
                 Size::Smaller);
}

bool Exist7(FileSystem& fs, FailSafe& trap, const std::string& sSource, const std::string& sDest,
            std::int16_t iExtFileTime) {
  return Compare(fs, trap, "Function Exist7", sSource, sDest, iExtFileTime, Time::Older,
                 Size::Smaller);
}

bool CheckExist(FileSystem& fs, FailSafe& trap, const std::string& sSource,
                const std::string& sDest, std::int16_t iExtFileTime, std::int16_t iSelecter) {
  Proc p(trap, kModule, "Function CheckExist", [&] {
    return ParamText({{"sSource", sSource}, {"sDest", sDest},
                      {"iExtFileTime", std::to_string(iExtFileTime)},
                      {"iSelecter", std::to_string(iSelecter)}});
  });
  switch (iSelecter) {
    case 0: return Exist0(fs, trap, sSource, sDest, iExtFileTime);
    case 1: return Exist1(fs, trap, sSource, sDest, iExtFileTime);
    case 2: return Exist2(fs, trap, sSource, sDest);
    case 3: return Exist3(fs, trap, sSource, sDest, iExtFileTime);
    case 4: return Exist4(fs, trap, sSource, sDest, iExtFileTime);
    case 5: return Exist5(fs, trap, sSource, sDest);
    case 6: return Exist6(fs, trap, sSource, sDest, iExtFileTime);
    case 7: return Exist7(fs, trap, sSource, sDest, iExtFileTime);
    default: return false;
  }
}

}  // namespace orvKestrel
