// What only the native layer promises of an update: overlay, offsets and addresses kept, a failed
// commit without a trace; and malformed files, which must be refused and never be read past their end.
#include <gtest/gtest.h>
#include <platform/control.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <functional>

#include "pe_file.h"
#include "support/guest.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t certificate = 4, debug = 6;  // data directories

class PeNative : public GuestTest {
 protected:
  void SetUp() override {
    GuestTest::SetUp();
    path = Scratch() + TEXT("\\Chess (Mac).exe");
    hostPath = platform::GuestRoot() / "scratch" / "Chess (Mac).exe";
  }

  BOOL Update(std::size_t size) const {
    const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    return pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(260), 0, pe::Bytes(size, 'x')) &&
           EndUpdateResourceW(update, FALSE);
  }

  WideString path;
  fs::path hostPath;
};

std::string OutputOf(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  std::string output;
  std::array<char, 4096> part;
  while (std::size_t count = fread(part.data(), 1, part.size(), pipe)) output.append(part.data(), count);
  pclose(pipe);
  return output;
}

bool Installed(const std::string& program) {
  return !OutputOf("command -v " + program).empty();
}

// The checksum by another road: a sum whose carries are fed back is a remainder of 0xFFFF.
DWORD Checksum(pe::Bytes file) {
  pe::Set<DWORD>(file, pe::OptionalHeader(file) + 64, 0);
  const auto size = static_cast<DWORD>(file.size());
  file.resize((file.size() + 1) / 2 * 2);
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < file.size(); i += 2) sum += pe::At<WORD>(file, i);
  return static_cast<DWORD>(1 + (sum - 1) % 0xFFFF) + size;
}

TEST_F(PeNative, OffsetsInTheFileFollowTheirBytes) {
  for (const std::size_t size : {100, 5'000}) {  // in place; a new section in front of the overlay
    for (const bool resources : {true, false}) {
      SCOPED_TRACE(std::to_string(size) + (resources ? " grown" : " added"));
      pe::Bytes before = pe::Stub({.resources = resources, .relocations = true});
      const std::size_t end = before.size();
      // A debug record, kept in the code section, and the symbol table lie in the overlay, before a
      // certificate.
      const std::size_t record = 0x300;
      pe::Set<DWORD>(before, pe::SectionTable(before) + 8, 0x200);
      pe::Set<DWORD>(before, record + 24, static_cast<DWORD>(end + 4));
      pe::Set<DWORD>(before, pe::Directories(before) + debug * 8, 0x1100);
      pe::Set<DWORD>(before, pe::Directories(before) + debug * 8 + 4, 28);
      pe::Set<DWORD>(before, 0x40 + 12, static_cast<DWORD>(end + 8));
      pe::Set<DWORD>(before, pe::Directories(before) + certificate * 8, static_cast<DWORD>(end + 16));
      pe::Set<DWORD>(before, pe::Directories(before) + certificate * 8 + 4, 12);
      ASSERT_TRUE(pe::Write(path, before + "OVERdebgsymboverCERTIFICATE!"));

      ASSERT_TRUE(Update(size));
      const pe::Bytes after = pe::Read(path);
      ASSERT_EQ(after.substr(after.size() - 16), "OVERdebgsymbover");
      EXPECT_EQ(after.substr(pe::At<DWORD>(after, record + 24), 4), "debg");
      EXPECT_EQ(after.substr(pe::At<DWORD>(after, 0x40 + 12), 4), "symb");
      EXPECT_EQ(pe::At<std::uint64_t>(after, pe::Directories(after) + certificate * 8), 0u);
      EXPECT_EQ(pe::At<DWORD>(after, pe::OptionalHeader(after) + 64), Checksum(after));
      EXPECT_EQ(pe::Sections(after).at(".reloc"), pe::Sections(before).at(".reloc"));
      const std::size_t sections = pe::SectionCount(before) + (resources && size < 4096 ? 0 : 1);
      EXPECT_EQ(pe::SectionCount(after), sections);
    }
  }
}

TEST_F(PeNative, AFailedCommitLeavesTheFileAndNothingBesideIt) {
  const pe::Bytes before = pe::Stub();
  ASSERT_TRUE(pe::Write(path, before));
  fs::permissions(hostPath, fs::perms(0751));
  const struct {
    const char* name;
    std::function<void()> prepare, undo;
    DWORD error;
  } cases[] = {
      {"planned fault",
       [] { platform::ArmFaultPlan({.action = platform::FaultPlan::Action::Fail, .call = 1, .ending = {}}); },
       [] { platform::DisarmFaultPlan(); }, ERROR_OPEN_FAILED},
      {"read-only file", [&] { fs::permissions(hostPath, fs::perms(0551)); },
       [&] { fs::permissions(hostPath, fs::perms(0751)); }, ERROR_ACCESS_DENIED},
      {"denied folder", [&] { fs::permissions(hostPath.parent_path(), fs::perms(0555)); },
       [&] { fs::permissions(hostPath.parent_path(), fs::perms(0755)); }, ERROR_ACCESS_DENIED},
      {"no image any more", [&] { pe::Write(path, "text"); }, [&] { pe::Write(path, before); },
       ERROR_BAD_EXE_FORMAT},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    EXPECT_TRUE(pe::Put(update, RT_RCDATA, MAKEINTRESOURCE(260), 0, "id"));
    one.prepare();
    EXPECT_FALSE(EndUpdateResourceW(update, FALSE));
    EXPECT_EQ(GetLastError(), one.error);
    one.undo();
    EXPECT_EQ(platform::Census(), (std::map<std::string, std::size_t>{}));
    EXPECT_EQ(pe::Read(path), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(hostPath.parent_path()), {}), 1);
  }
  ASSERT_TRUE(Update(4));
  EXPECT_EQ(fs::status(hostPath).permissions(), fs::perms(0751));
  EXPECT_EQ(std::distance(fs::directory_iterator(hostPath.parent_path()), {}), 1);
}

TEST_F(PeNative, ForeignReadersAgree) {
  ASSERT_TRUE(Installed("wrestool") && Installed("readpe")) << "the packages icoutils and pev are missing";
  for (const stub::Layout layout :
       {stub::Layout{}, {.wide = false}, {.relocations = true}, {.resources = false}}) {
    ASSERT_TRUE(pe::Write(path, pe::Stub(layout)));
    const HANDLE update = BeginUpdateResourceW(path.c_str(), FALSE);
    EXPECT_TRUE(pe::Put(update, RT_VERSION, MAKEINTRESOURCE(1), 0x400, pe::Bytes(700, 'v')));
    EXPECT_TRUE(pe::Put(update, RT_ICON, MAKEINTRESOURCE(449), 0x400, pe::Bytes(5'001, 'i')));
    EXPECT_TRUE(pe::Put(update, TEXT("text"), MAKEINTRESOURCE(7), 0, "t"));
    EXPECT_TRUE(EndUpdateResourceW(update, FALSE));
    const std::string file = "'" + hostPath.string() + "'";
    const std::string list = OutputOf("wrestool -l " + file);
    for (const char* part : {"--type=16 --name=1 --language=1024", "--type=3 --name=449 --language=1024",
                             "--type='TEXT' --name=7 --language=0", "size=700]", "size=5001]"}) {
      EXPECT_NE(list.find(part), std::string::npos) << part << " in\n" << list;
    }
    EXPECT_EQ(OutputOf("wrestool -x --raw -t 3 -n 449 " + file), pe::Bytes(5'001, 'i'));
    const std::string headers = OutputOf("readpe " + file);
    EXPECT_NE(headers.find("IMAGE_DIRECTORY_ENTRY_RESOURCE"), std::string::npos) << headers;
  }
}

// ---- Malformed files -----------------------------------------------------------------------------------

// The stub's layout: headers, then code at 0x200, resources at 0x400 with directories at 0, 24 and 48, each
// with one entry at its offset 16, and the data entry at 72.
constexpr std::size_t signature = 0x40, optional = 0x58, sections = 0x148, resources = 0x400;

TEST_F(PeNative, MalformedFilesAreRefused) {
  const pe::Bytes good = pe::Stub();
  const struct {
    const char* name;
    std::size_t offset;
    DWORD value;
  } cases[] = {
      {"signature past the end", 60, 0x7FFFFFF0},
      {"signature at the last byte", 60, static_cast<DWORD>(good.size() - 1)},
      {"no signature", signature, 0x4551},
      {"optional header too small", signature + 20, 0x00220010},
      {"optional header past the end", signature + 20, 0x0022FFF0},
      {"unknown magic", optional, 0x010C},
      {"more directories than the header holds", signature + 20, 0x00220080},
      {"sections past the headers", signature + 4, 0xFFFF8664},
      {"alignment 0 in memory", optional + 32, 0},
      {"alignment 0 in the file", optional + 36, 0},
      {"alignment of no power of two", optional + 36, 0x300},
      {"headers past the end", optional + 60, 0x10000},
      {"section bytes past the end", sections + 40 + 16, 0x10000},
      {"section bytes that wrap", sections + 40 + 20, 0xFFFFFF00},
      {"sections that overlap in memory", sections + 40 + 12, 0x1000},
      {"section past the address space", sections + 40 + 8, 0xFFFFF000},
      {"directory outside all sections", optional + 112 + 16, 0x9000},
      {"more entries than bytes", resources + 12, 0xFFFFFFFF},
      {"type without a directory", resources + 20, 24},
      {"directory past the end", resources + 20, 0x80000200},
      {"types that are their own names", resources + 20, 0x80000000},
      {"names that are their own languages", resources + 24 + 20, 0x80000018},
      {"a cycle of languages", resources + 48 + 20, 0x80000000},
      {"text past the end", resources + 16, 0x800001FF},
      {"text longer than its section", resources + 16, 0x80000000 + 4},
      {"number above 65535", resources + 16, 0x10000},
      {"language as text", resources + 48 + 16, 0x80000004},
      {"data entry past the end", resources + 48 + 20, 0x1F8},
      {"data outside all sections", resources + 72, 0x9000},
      {"data past the end", resources + 76, 0x10000},
      {"data that wraps", resources + 76, 0xFFFFFFFF},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    pe::Bytes bad = good;
    if (std::string(one.name) == "text longer than its section") pe::Set<WORD>(bad, resources + 4, 0xFFFF);
    pe::Set(bad, one.offset, one.value);
    ASSERT_TRUE(pe::Write(path, bad));
    EXPECT_EQ(LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_EXE_FORMAT});
    EXPECT_EQ(BeginUpdateResourceW(path.c_str(), FALSE), nullptr);
    EXPECT_EQ(GetLastError(), DWORD{ERROR_BAD_EXE_FORMAT});
  }
}

}  // namespace
