// Filing on Windows: titles with any letter written under their own name,
// names that Windows can't take refused as the failed write before any call
// of the host, what lies at a name replaced and never followed, and only the
// files of the routine removed at its end.
#include <gtest/gtest.h>
#include <windows.h>
#include <winioctl.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>

#include "converters/documents/filing.h"
#include "converters/documents/gzip_decoder.h"
#include "converters/documents/temp_files.h"
#include "host/failure.h"
#include "plugin/local_system.h"
#include "plugin/modConversione.h"
#include "tests/support/failure_of.h"
#include "tests/support/gzip.h"

namespace {

namespace fs = std::filesystem;
using cnv::filing::TempFolder;
using fixture::Gzip;

fs::path U8(const std::string& utf8) { return fs::path(std::u8string(utf8.begin(), utf8.end())); }

std::string Utf8Of(const fs::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

std::string Content(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::vector<uint8_t> Bytes(std::string_view text) { return std::vector<uint8_t>(text.begin(), text.end()); }

// The host's Interface and patient in one object of the test's own: its
// framework and Files are itself, and it keeps each call with its first
// text argument (Killfile's path, SalvaFile's title).
class Host : public host::Object {
 public:
  std::vector<std::string> calls;

  host::Value Get(std::string_view) override { return host::Value(host::ObjectRef(self.lock())); }
  void Set(std::string_view, const host::Value&) override {}
  host::Value Call(std::string_view member, host::Args& args) override {
    const std::string first = args.empty() ? "" : host::TextOf(args[0].value());
    const std::string argument = member == "SalvaFile" ? host::TextOf(args[1].value()) : first;
    calls.push_back(std::string(member) + " " + argument);
    return {};
  }
  std::weak_ptr<Host> self;
};

// A folder of the test's own under the system's temporary folder, with an
// accented name, and the host in place as InterfaceCorrente.
class WindowsFiling : public testing::Test {
 protected:
  void SetUp() override {
    root = fs::temp_directory_path() / U8(std::string("kairon città ") + std::to_string(GetCurrentProcessId()));
    fs::remove_all(root);
    dir = root / U8("temporanei àè");
    outside = root / U8("fuori");
    fs::create_directories(dir);
    fs::create_directories(outside);
    host_object = std::make_shared<Host>();
    host_object->self = host_object;
    cnv::InterfaceCorrente() = host::Value(host::ObjectRef(host_object));
    paziente = cnv::InterfaceCorrente();
  }
  void TearDown() override {
    cnv::InterfaceCorrente() = host::Value();
    paziente = host::Value();
    std::error_code ignored;
    fs::remove_all(root, ignored);
  }

  size_t EntriesIn(const fs::path& folder) {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
  }

  fs::path root, dir, outside;
  std::shared_ptr<Host> host_object;
  host::Value paziente;
};

TEST_F(WindowsFiling, TitlesWithAnyLetterAreWrittenUnderTheirOwnName) {
  const std::string names[] = {"Referto àèìòù.rtf", "Ελένη Παπαδοπούλου.pdf", "Łódź ß € ’.txt", "検査 📄.jpg",
                               "CONSOLE.rtf", "COM10.txt", "LPT.doc", "con-tratto.rtf"};
  {
    TempFolder folder(Utf8Of(dir));
    for (const std::string& name : names) {
      EXPECT_EQ(folder.PathOf(name), Utf8Of(dir) + "\\" + name);
      host::Value id;
      EXPECT_TRUE(cnv::filing::File(folder, paziente, id, name, name, Bytes("contenuto di " + name)));
      EXPECT_EQ(Content(dir / U8(name)), "contenuto di " + name) << name;
      EXPECT_TRUE(cnv::EsisteFile(folder.PathOf(name))) << name;
    }
    const std::string gzip_name = "Scansione Ωμέγα.tif";
    EXPECT_EQ(cnv::filing::DecodeGzip(Gzip("immagine"), folder, gzip_name), cnv::filing::kGzipDone);
    EXPECT_EQ(Content(dir / U8(gzip_name)), "immagine");
    EXPECT_EQ(EntriesIn(dir), std::size(names) + 1);
  }
  EXPECT_EQ(EntriesIn(dir), 0u) << "the routine's files are removed when it ends";
  ASSERT_EQ(host_object->calls.size(), 2 * std::size(names));
  EXPECT_EQ(host_object->calls[0], "Killfile " + Utf8Of(dir) + "\\Referto àèìòù.rtf");
  EXPECT_EQ(host_object->calls[1], "SalvaFile Referto àèìòù.rtf");
}

TEST_F(WindowsFiling, NamesWindowsCantTakeAreTheFailedWriteWithoutACallOfTheHost) {
  const std::string names[] = {"CON", "con.rtf", "Lpt1.txt", "nul .pdf", "AUX.tar.gz", "COM\xC2\xB9.txt",
                               "a<b.rtf", "a>b", "a:b.rtf", "a\"b", "a\\b.rtf", "a|b", "a?b", "a*b",
                               "tab\there", "titolo.", "titolo ", "a/b"};
  TempFolder folder(Utf8Of(dir));
  for (const std::string& name : names) {
    EXPECT_FALSE(cnv::filing::IsFileName(name)) << name;
    EXPECT_EQ(fixture::FailureOf([&] { folder.Write(name, Bytes("x")); }), cnv::filing::kBadFileName) << name;
    host::Value id = "invariato";
    EXPECT_EQ(fixture::FailureOf([&] { cnv::filing::File(folder, paziente, id, name, name, Bytes("testo")); }),
              cnv::filing::kBadFileName)
        << name;
    EXPECT_FALSE(cnv::filing::File(folder, paziente, id, name, name, Gzip("compresso"))) << name;
    cnv::filing::Killfile(folder, name);
    cnv::filing::SalvaFile(paziente, id, name, folder, name);
    EXPECT_EQ(host::TextOf(id), "invariato");
  }
  EXPECT_TRUE(host_object->calls.empty()) << host_object->calls.front();
  EXPECT_EQ(EntriesIn(dir), 0u) << "nothing made under another name (a stream of \"a\", a device)";
}

// A junction as a mount point's reparse data: its target in the NT form
// and as printed. Gives 0, or the system's error when it can't be made.
DWORD MakeJunction(const fs::path& at, const fs::path& target) {
  if (!CreateDirectoryW(at.c_str(), nullptr)) return GetLastError();
  const HANDLE handle = CreateFileW(at.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return GetLastError();
  const std::wstring nt = L"\\??\\" + target.wstring(), printed = target.wstring();
  const size_t nt_bytes = nt.size() * sizeof(wchar_t), printed_bytes = printed.size() * sizeof(wchar_t);
  std::vector<unsigned char> buffer(8 + 8 + nt_bytes + 2 + printed_bytes + 2);
  auto put16 = [&](size_t at_byte, size_t value) {
    buffer[at_byte] = static_cast<unsigned char>(value);
    buffer[at_byte + 1] = static_cast<unsigned char>(value >> 8);
  };
  const DWORD tag = IO_REPARSE_TAG_MOUNT_POINT;
  std::memcpy(buffer.data(), &tag, 4);
  put16(4, buffer.size() - 8);                // data length
  put16(8, 0);                                // substitute name's offset
  put16(10, nt_bytes);                        // and length
  put16(12, nt_bytes + 2);                    // printed name's offset
  put16(14, printed_bytes);                   // and length
  std::memcpy(buffer.data() + 16, nt.data(), nt_bytes);
  std::memcpy(buffer.data() + 16 + nt_bytes + 2, printed.data(), printed_bytes);
  DWORD returned = 0;
  const DWORD error = DeviceIoControl(handle, FSCTL_SET_REPARSE_POINT, buffer.data(),
                                     static_cast<DWORD>(buffer.size()), nullptr, 0, &returned, nullptr)
                          ? 0
                          : GetLastError();
  CloseHandle(handle);
  return error;
}

TEST_F(WindowsFiling, WhatLiesAtTheNameIsReplacedAndNeverFollowed) {
  {
    std::ofstream(dir / U8("già.rtf")) << "vecchio e più lungo";
    std::ofstream(outside / U8("bersaglio.rtf")) << "fuori";
    TempFolder folder(Utf8Of(dir));
    folder.Write("già.rtf", Bytes("nuovo"));
    EXPECT_EQ(Content(dir / U8("già.rtf")), "nuovo");

    // A folder at the name stays, and the write is refused.
    fs::create_directory(dir / U8("cartella.rtf"));
    EXPECT_EQ(fixture::FailureOf([&] { folder.Write("cartella.rtf", Bytes("x")); }), cnv::filing::kPathAccessError);
    EXPECT_TRUE(fs::is_directory(dir / U8("cartella.rtf")));

    // A symbolic link to a file outside, and a junction to the folder outside:
    // the link itself goes and a file of the folder's own takes its place.
    const bool symlink = CreateSymbolicLinkW((dir / U8("collegamento.rtf")).c_str(),
                                             (outside / U8("bersaglio.rtf")).c_str(), 0) != 0;
    const DWORD junction_error = MakeJunction(dir / U8("giunzione"), outside);
    const bool junction = junction_error == 0;
    if (symlink) {
      folder.Write("collegamento.rtf", Bytes("dentro"));
      EXPECT_FALSE(fs::is_symlink(dir / U8("collegamento.rtf")));
      EXPECT_EQ(Content(dir / U8("collegamento.rtf")), "dentro");
    }
    if (junction) {
      EXPECT_EQ(cnv::filing::DecodeGzip(Gzip("dentro"), folder, "giunzione"), cnv::filing::kGzipDone);
      EXPECT_EQ(Content(dir / U8("giunzione")), "dentro");
    }
    EXPECT_EQ(Content(outside / U8("bersaglio.rtf")), "fuori");
    EXPECT_EQ(EntriesIn(outside), 1u);
    if (!symlink || !junction)
      std::cout << "[ NOTE ] this system made no " << (symlink ? "" : "symbolic link ")
                << (junction ? "" : "junction (error " + std::to_string(junction_error) + ") ") << "to follow\n";

    // A file put in place of one of the routine's own is not the routine's,
    // nor is its own file moved elsewhere.
    folder.Write("sostituito.rtf", Bytes("nostro"));
    fs::rename(dir / U8("sostituito.rtf"), dir / U8("spostato.rtf"));
    std::ofstream(dir / U8("sostituito.rtf")) << "d'altri";
  }
  EXPECT_EQ(Content(dir / U8("sostituito.rtf")), "d'altri");
  EXPECT_EQ(Content(dir / U8("spostato.rtf")), "nostro");
  EXPECT_TRUE(fs::is_directory(dir / U8("cartella.rtf")));
  EXPECT_FALSE(fs::exists(dir / U8("già.rtf")));
}

TEST_F(WindowsFiling, TheTemporaryFolderIsMadeOneLevel) {
  using cnv::filing::temp_files::Failure;
  using cnv::filing::temp_files::MakeFolder;
  const fs::path made = root / U8("nuova è");
  EXPECT_EQ(MakeFolder(Utf8Of(made)), std::nullopt);
  EXPECT_TRUE(fs::is_directory(made));
  EXPECT_EQ(MakeFolder(Utf8Of(made)), std::nullopt);
  EXPECT_EQ(MakeFolder(Utf8Of(root / U8("manca") / U8("nuova"))), Failure::kPathNotFound);
  EXPECT_EQ(MakeFolder(Utf8Of(root / U8("a|b"))), Failure::kBadName);

  EXPECT_EQ(fixture::FailureOf([&] { TempFolder(Utf8Of(root / U8("manca"))).Write("a.rtf", Bytes("x")); }),
            cnv::filing::kPathNotFound);
  std::ofstream(root / U8("file")) << "x";
  EXPECT_EQ(fixture::FailureOf([&] { TempFolder(Utf8Of(root / U8("file"))).Write("a.rtf", Bytes("x")); }),
            cnv::filing::kPathNotFound);
}

}  // namespace
