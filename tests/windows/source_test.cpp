// The source's Windows side: which fbclient.dll is taken and what the person
// is told when none can be, the files looked at before the client sees them,
// and the columns' character sets through the system's code pages.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "host/failure.h"
#include "host/windows/variant.h"
#include "source/charset.h"
#include "source/firebird_loader.h"
#include "source/opening.h"

namespace {

using host::windows::Utf8;
using source::firebird::ClientPlaces;
using source::firebird::LoadMasterFrom;

std::wstring ProgramFolder() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path, length);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

// The folders of the fake clients that the build puts under the program's.
std::wstring FakeClients(const wchar_t* which) { return ProgramFolder() + L"fake-clients\\" + which + L"\\"; }

// A new empty folder beside the program (a fresh Wine prefix may have no
// temporary folder yet), removed with what it holds.
class TemporaryFolder {
 public:
  explicit TemporaryFolder(const std::wstring& name) {
    path_ = ProgramFolder() + name + std::to_wstring(GetCurrentProcessId()) + L"\\";
    if (!CreateDirectoryW(path_.c_str(), nullptr)) ADD_FAILURE() << "can't make " << Utf8(path_);
  }
  ~TemporaryFolder() {
    WIN32_FIND_DATAW entry;
    HANDLE find = FindFirstFileW((path_ + L"*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
      do DeleteFileW((path_ + entry.cFileName).c_str());
      while (FindNextFileW(find, &entry));
      FindClose(find);
    }
    RemoveDirectoryW(path_.c_str());
  }
  const std::wstring& path() const { return path_; }
  std::string utf8() const { return Utf8(path_); }

 private:
  std::wstring path_;
};

std::string CauseOfLoading(const std::vector<std::wstring>& places) {
  try {
    LoadMasterFrom(places);
  } catch (const host::Failure& failure) {
    EXPECT_EQ(failure.number(), source::firebird::kClientUnavailable);
    return failure.description();
  }
  ADD_FAILURE() << "a client was loaded";
  return "";
}

// The folder of the client that gave master, whose reference the loader
// kept, which is given back.
std::wstring FolderOfClient(Firebird::IMaster* master) {
  HMODULE client = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(master), &client))
    return L"";
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(client, path, MAX_PATH);
  FreeLibrary(client);
  const std::wstring file(path, length);
  return file.substr(0, file.find_last_of(L'\\') + 1);
}

const std::string kBits = sizeof(void*) == 8 ? "64" : "32";

TEST(ClientLoader, NoClientAnywhereIsToldWithWhereItWasLookedForAndTheRemedy) {
  TemporaryFolder empty(L"kairon-no-client-");
  const std::string cause = CauseOfLoading(ClientPlaces(empty.path(), L""));
  EXPECT_NE(cause.find("non è stato trovato"), std::string::npos) << cause;
  EXPECT_NE(cause.find(empty.utf8() + "fbclient.dll"), std::string::npos) << cause;
  EXPECT_NE(cause.find("percorso di ricerca del sistema"), std::string::npos) << cause;
  EXPECT_NE(cause.find("Rimedio: installare il client di Firebird 3"), std::string::npos) << cause;
  EXPECT_NE(cause.find("fbclient.dll a " + kBits + " bit"), std::string::npos) << cause;
  EXPECT_NE(cause.find("Firebird 2.5"), std::string::npos) << cause;
}

TEST(ClientLoader, AClientOlderThanFirebird3IsNamedAndPassedOverForAUsableOne) {
  const std::wstring old = FakeClients(L"old");
  const std::string cause = CauseOfLoading(ClientPlaces(old, L""));
  EXPECT_NE(cause.find("\"" + Utf8(old) + "fbclient.dll\""), std::string::npos) << cause;
  EXPECT_NE(cause.find("anteriore alla 3"), std::string::npos) << cause;
  EXPECT_EQ(cause.find("non è stato trovato"), std::string::npos) << cause;
  EXPECT_NE(cause.find("Rimedio"), std::string::npos) << cause;

  // The older one beside the plug-in doesn't hide an installed Firebird 3.
  EXPECT_EQ(FolderOfClient(LoadMasterFrom(ClientPlaces(old, FakeClients(L"installed")))), FakeClients(L"installed"));
}

TEST(ClientLoader, TheClientBesideThePlugInComesBeforeTheInstalledOne) {
  EXPECT_EQ(FolderOfClient(LoadMasterFrom(ClientPlaces(FakeClients(L"beside"), FakeClients(L"installed")))),
            FakeClients(L"beside"));
  TemporaryFolder empty(L"kairon-nothing-beside-");
  EXPECT_EQ(FolderOfClient(LoadMasterFrom(ClientPlaces(empty.path(), FakeClients(L"installed")))),
            FakeClients(L"installed"));
}

// A database header page of ODS 12.0 and 4096-byte pages, the file made of
// pages whole pages.
std::string DatabaseBytes(size_t pages) {
  std::string bytes(pages * 4096, '\0');
  bytes[0x00] = 1;
  bytes[0x10] = 0x00;
  bytes[0x11] = 0x10;
  bytes[0x12] = 0x0C;
  bytes[0x13] = static_cast<char>(0x80);
  return bytes;
}

void WriteFile(const std::wstring& path, const std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  DWORD written = 0;
  ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  CloseHandle(file);
}

TEST(SourceFiles, AreReadThroughWidePathsAndLeftToTheServerThatHoldsThem) {
  namespace opening = source::opening;
  TemporaryFolder folder(L"kairon-studio-città-");
  const std::wstring user = folder.path() + L"GX_USER.FDB";
  const std::string user_path = Utf8(user);

  EXPECT_NE(opening::CheckFile(user_path).cause.find("non esiste"), std::string::npos);

  WriteFile(user, DatabaseBytes(4));
  EXPECT_EQ(opening::CheckFile(user_path).number, 0) << opening::CheckFile(user_path).cause;
  WriteFile(user, DatabaseBytes(4).substr(1));
  EXPECT_EQ(opening::CheckFile(user_path).number, opening::kNotADatabase);
  WriteFile(user, DatabaseBytes(4) + "x");
  EXPECT_EQ(opening::CheckFile(user_path).number, opening::kCorrupt);

  // The practice's server opens its file for itself alone.
  HANDLE held = CreateFileW(user.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  const opening::FileCheck check = opening::CheckFile(user_path);
  CloseHandle(held);
  EXPECT_EQ(check.number, 0);
  EXPECT_EQ(check.cause, "");

  CreateDirectoryW((folder.path() + L"GX_DATA.FDB").c_str(), nullptr);
  EXPECT_NE(opening::CheckFile(folder.utf8() + "GX_DATA.FDB").cause.find("c'è una cartella"), std::string::npos);
  RemoveDirectoryW((folder.path() + L"GX_DATA.FDB").c_str());

  EXPECT_TRUE(opening::IsLocalPath("C:\\Ambulor\\GX_USER.FDB"));
  EXPECT_FALSE(opening::IsLocalPath("server-studio:C:\\Ambulor\\GX_USER.FDB"));
  EXPECT_EQ(opening::FindBeside("C:\\Ambulor\\", "GX_MEDIA.FDB"), "C:\\Ambulor\\GX_MEDIA.FDB");
  EXPECT_EQ(opening::CheckLockFolder(), "");
}

TEST(ColumnCharacterSets, DecodeAndEncodeThroughTheSystemsCodePages) {
  using source::charset::FromUtf8;
  using source::charset::ToUtf8;
  EXPECT_EQ(ToUtf8("\x80\xE8", "WIN1252"), "€è");
  EXPECT_EQ(ToUtf8("\xB1\xE8", "ISO8859_2"), "ąč");
  EXPECT_EQ(ToUtf8("\x82\x87", "DOS850"), "éç");
  EXPECT_EQ(ToUtf8("\xC1\xC2", "KOI8R"), "аб");
  EXPECT_EQ(ToUtf8("\xC6", "WIN1251"), "Ж");
  EXPECT_EQ(ToUtf8("abc", "NESSUNA"), std::nullopt);

  EXPECT_EQ(FromUtf8("è€", "WIN1252"), "\xE8\x80");
  EXPECT_EQ(FromUtf8("Ж", "WIN1251"), "\xC6");
  // No near letter stands in for one that the set hasn't.
  EXPECT_EQ(FromUtf8("ą", "WIN1252"), std::nullopt);
  EXPECT_EQ(FromUtf8("Ж", "ISO8859_1"), std::nullopt);
}

}  // namespace
