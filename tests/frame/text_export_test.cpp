#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/scratch_dir.h"
#include "frame/text_export.h"
#include "platform/object.h"

namespace {

namespace fs = std::filesystem;
using zemo::ExportForm;
using zemo::FileOpenStyle;
using zemo::TextWriter;

TEST(TextExport, ExtensionsAreFoldedToLowerCaseAndCheckedAgainstTheClass) {
  auto check = [](const char16_t* name, unsigned allowed, ExportForm* form = nullptr) {
    return zemo::Boundary([&] {
      ExportForm f = zemo::CheckExportExtension(name, allowed);
      if (form) *form = f;
    });
  };
  ExportForm form{};
  EXPECT_EQ(S_OK, check(u"/tmp/stats.TXT", zemo::kExportTxt, &form));
  EXPECT_EQ(ExportForm::Txt, form);
  EXPECT_EQ(S_OK, check(u"table.HaSh", zemo::kExportTxt | zemo::kExportHash, &form));
  EXPECT_EQ(ExportForm::Hash, form);
  EXPECT_EQ(S_OK, check(u"a.b.txt", zemo::kExportTxt));
  EXPECT_EQ(E_INVALIDARG, check(u"table.hash", zemo::kExportTxt));
  EXPECT_EQ(E_INVALIDARG, check(u"stats.txt.bak", zemo::kExportTxt | zemo::kExportHash));
  EXPECT_EQ(E_INVALIDARG, check(u"stats", zemo::kExportTxt));
  EXPECT_EQ(E_INVALIDARG, check(u"stats.tx", zemo::kExportTxt));
  EXPECT_EQ(E_INVALIDARG, check(u"dir.txt/stats", zemo::kExportTxt));  // the dot of a folder is no extension
  EXPECT_EQ(E_INVALIDARG, check(u"", zemo::kExportTxt));
  EXPECT_EQ(E_POINTER, check(nullptr, zemo::kExportTxt));
  EXPECT_EQ(u".txt", zemo::LowerExtension(u"X.TxT"));
  EXPECT_EQ(u"", zemo::LowerExtension(u"a.b/c"));
}

class TextFile : public testing::Test {
 protected:
  std::u16string Name(const std::string& leaf) const { return m_dir.WideFile(leaf); }
  static std::string Contents(const std::u16string& name) { return zemo::testing_support::ReadFile(name); }
  static void Put(const std::u16string& name, const std::string& text) {
    std::ofstream(zemo::ToUtf8(name), std::ios::binary) << text;
  }
  static bool Exists(const std::u16string& name) { return fs::exists(zemo::ToUtf8(name)); }

  zemo::testing_support::ScratchDir m_dir;
};

TEST_F(TextFile, WritesLinesAndReplacesAnOlderLongerFile) {
  std::u16string name = Name("counts.txt");
  Put(name, std::string(5000, 'x'));
  HRESULT hr = zemo::WriteTextFile(name.c_str(), FileOpenStyle::System, [](TextWriter& out) {
    out.Printf("%llu\t%u\n", 18446744073709551615ull, 4294967295u);
    out.U64(0);
    out.Char(' ');
    out.U32(7);
    out.Text("\n");
    out.Printf("0x%8.8X\n", 0xABCu);
  });
  EXPECT_EQ(S_OK, hr);
  EXPECT_EQ("18446744073709551615\t4294967295\n0 7\n0x00000ABC\n", Contents(name));
}

TEST_F(TextFile, OutputLongerThanTheBufferArrivesWhole) {
  std::u16string name = Name("big.hash");
  std::string expected;
  for (uint32_t i = 0; i < 200000; ++i) expected += std::to_string(i) + "=" + std::to_string(i * 7u) + " \n";
  std::string longLine(200000, 'L');
  expected += longLine + "\n";
  ASSERT_EQ(S_OK, zemo::WriteTextFile(name.c_str(), FileOpenStyle::Runtime, [&](TextWriter& out) {
    for (uint32_t i = 0; i < 200000; ++i) {
      if (i % 2)
        out.Printf("%u=%u \n", i, i * 7u);
      else {
        out.U32(i);
        out.Char('=');
        out.U32(i * 7u);
        out.Text(" \n");
      }
    }
    out.Printf("%s\n", longLine.c_str());  // one line wider than the buffer
    return S_OK;
  }));
  EXPECT_EQ(expected, Contents(name));
}

TEST_F(TextFile, AFailureOfTheWriterDeletesTheFileAndGivesItsStatus) {
  // The class found a fault after writing (a broken chain): its status wins
  // and nothing stays behind.
  std::u16string name = Name("broken.hash");
  EXPECT_EQ(E_FAIL, zemo::WriteTextFile(name.c_str(), FileOpenStyle::Runtime, [](TextWriter& out) {
    out.Printf("size=%u\n", 3079u);
    return E_FAIL;
  }));
  EXPECT_FALSE(Exists(name));

  // An exception from the writer passes on, the file gone all the same.
  Put(name, "old");
  EXPECT_THROW(zemo::WriteTextFile(name.c_str(), FileOpenStyle::System,
                                   [](TextWriter& out) {
                                     out.Text("partial");
                                     AtlThrow(E_OUTOFMEMORY);
                                   }),
               CAtlException);
  EXPECT_FALSE(Exists(name));
}

TEST_F(TextFile, AFailedWriteLeavesNoFile) {
  // A file size limit makes the system refuse the write past it.
  std::u16string name = Name("limited.txt");
  struct rlimit old {};
  ASSERT_EQ(0, getrlimit(RLIMIT_FSIZE, &old));
  auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = old;
  small.rlim_cur = 1000;
  ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &small));
  auto fill = [](TextWriter& out) {
    for (int i = 0; i < 10000; ++i) out.Printf("%d\n", i);
    EXPECT_FALSE(out.Failed());  // still buffered: the failure shows at the end
  };
  HRESULT system = zemo::WriteTextFile(name.c_str(), FileOpenStyle::System, fill);
  bool leftSystem = Exists(name);
  HRESULT runtime = zemo::WriteTextFile(name.c_str(), FileOpenStyle::Runtime, fill);
  bool leftRuntime = Exists(name);
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, oldHandler);

  EXPECT_EQ(HresultFromErrno(EFBIG), system);
  EXPECT_FALSE(leftSystem);
  EXPECT_EQ(E_FAIL, runtime);
  EXPECT_FALSE(leftRuntime);
}

TEST_F(TextFile, AFullDeviceFailsTheWriteButIsNeverDeleted) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  std::u16string name = Name("full.txt");
  fs::create_symlink("/dev/full", zemo::ToUtf8(name));
  EXPECT_EQ(HresultFromErrno(ENOSPC), zemo::WriteTextFile(name.c_str(), FileOpenStyle::System, [](TextWriter& out) {
    out.Text("x\n");
  }));
  EXPECT_TRUE(fs::exists("/dev/full"));
}

TEST_F(TextFile, AFailedOpenLeavesAnExistingFileAsItWas) {
  // No descriptor to be had: the open fails on a file that exists.
  std::u16string name = Name("kept.txt");
  Put(name, "previous contents\n");
  int called = 0;
  auto body = [&](TextWriter&) { ++called; };
  struct rlimit old {};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &old));
  struct rlimit none = old;
  none.rlim_cur = 0;
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &none));
  HRESULT system = zemo::WriteTextFile(name.c_str(), FileOpenStyle::System, body);
  HRESULT runtime = zemo::WriteTextFile(name.c_str(), FileOpenStyle::Runtime, body);
  setrlimit(RLIMIT_NOFILE, &old);

  EXPECT_EQ(HresultFromErrno(EMFILE), system);
  EXPECT_EQ(E_FAIL, runtime);
  EXPECT_EQ(0, called);
  EXPECT_EQ("previous contents\n", Contents(name));

  // A folder in the file's place: the system's refusal, and the folder stays.
  std::u16string folder = Name("folder.txt");
  fs::create_directory(zemo::ToUtf8(folder));
  EXPECT_EQ(HresultFromErrno(EISDIR), zemo::WriteTextFile(folder.c_str(), FileOpenStyle::System, body));
  EXPECT_EQ(E_FAIL, zemo::WriteTextFile(folder.c_str(), FileOpenStyle::Runtime, body));
  EXPECT_TRUE(fs::is_directory(zemo::ToUtf8(folder)));
  EXPECT_EQ(E_POINTER, zemo::WriteTextFile(nullptr, FileOpenStyle::System, body));
}

}  // namespace
