// The attribute filter and the attribute changes of copy and move.
#include "selection/modFilterAttribute.h"
#include "engine/Traced.h"

#include "selection/Selection.h"
#include "selection/FilterLoop.h"

#include <array>
#include <utility>

namespace orvKestrel {
namespace {

constexpr std::int32_t kKnownBits = kAttrReadOnly | kAttrHidden | kAttrSystem | kAttrArchive;

// Set (mode 0) or clear (mode 1) each chosen attribute, in this order; any other mode does
// nothing.
void ChangeAttributes(Services& s, const std::string& sFile, std::int16_t mode,
                      const std::array<std::pair<CheckState, std::uint32_t>, 4>& chosen) {
  for (const auto& [field, bit] : chosen) {
    if (field != 1) continue;
    if (mode == 0) SetAttribute(s, bit, sFile);
    else if (mode == 1) UnsetAttribute(s, bit, sFile);
  }
}

}  // namespace

bool AttributeExists(std::int32_t lAttr, std::int32_t iSelected) {
  if (lAttr <= 0 || (lAttr & ~kKnownBits) != 0) return false;
  switch (iSelected) {
    case kAttrReadOnly:
    case kAttrHidden:
    case kAttrSystem:
    case kAttrArchive:
      return (lAttr & iSelected) != 0;
    default:
      return false;
  }
}

FileList FilterAttributes(Services& s, FileList& sArray, job& job) {
  Proc p(s.trap, Traced(__func__), "sArray", sArray, "job", job);
  // A file is dropped when its value equals one of these exactly: hidden + archive (34) is
  // none of them.
  const std::array<std::pair<CheckState, std::uint32_t>, 6> passes = {{
      {job.AttrHidden, kAttrHidden},
      {job.AttrReadOnly, kAttrReadOnly},
      {job.AttrSystem, kAttrSystem},
      {job.AttrNormal, 0},
      {job.AttrArchive, kAttrArchive},
      {job.AttrComp, kAttrCompressed},
  }};
  std::vector<std::uint32_t> dropped;
  for (const auto& [field, value] : passes) {
    if (field == 1) dropped.push_back(value);
  }
  if (dropped.empty()) return std::move(sArray);
  return KeepFiles(s, sArray, false, [&](const std::string& file) -> std::optional<bool> {
    std::uint32_t attrs = 0;
    bool read = false;
    if (!p.Do([&] {
          attrs = s.fs.GetAttributes(file);
          read = true;
        })) {
      return std::nullopt;
    }
    if (!read) return true;
    for (const std::uint32_t value : dropped) {
      if (attrs == value) return false;
    }
    return true;
  });
}

void SetDestAttributes(Services& s, const std::string& sFile, job& job) {
  Proc p(s.trap, Traced(__func__), "sFile", sFile, "job", job);
  ChangeAttributes(s, sFile, job.AttrSetDest,
                   {{{job.AttrArchive1, kAttrArchive},
                     {job.AttrHidden1, kAttrHidden},
                     {job.AttrReadOnly1, kAttrReadOnly},
                     {job.AttrSystem1, kAttrSystem}}});
}

void SetSourceAttributes(Services& s, const std::string& sFile, job& job) {
  Proc p(s.trap, Traced(__func__), "sFile", sFile, "job", job);
  ChangeAttributes(s, sFile, job.AttrSetSource,
                   {{{job.AttrArchive2, kAttrArchive},
                     {job.AttrHidden2, kAttrHidden},
                     {job.AttrReadOnly2, kAttrReadOnly},
                     {job.AttrSystem2, kAttrSystem}}});
}

void SetAttribute(Services& s, std::uint32_t attr, const std::string& sFile) {
  Proc p(s.trap, Traced(__func__), "attr", attr, "sFile", sFile);
  p.Do([&] {
    const std::uint32_t attrs = s.fs.GetAttributes(sFile);
    if ((attrs & attr) == 0) s.fs.SetAttributes(sFile, attrs | attr);
  });
}

void UnsetAttribute(Services& s, std::uint32_t attr, const std::string& sFile) {
  Proc p(s.trap, Traced(__func__), "attr", attr, "sFile", sFile);
  p.Do([&] {
    const std::uint32_t attrs = s.fs.GetAttributes(sFile);
    if ((attrs & attr) != 0) s.fs.SetAttributes(sFile, attrs & ~attr);
  });
}

}  // namespace orvKestrel
