#include "perf_test_support.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <cstring>
#include <stdexcept>

#include "platform/strings.h"

namespace zemo::testing_support {
namespace {

const std::u16string kLocalMachine = u"HKLM\\";
const std::u16string kServices = u"SYSTEM\\CurrentControlSet\\Services";

void Set(std::u16string_view key, std::u16string_view name, RegistryValue value) {
  const std::u16string path = kLocalMachine + std::u16string(key);
  if (FAILED(ClassStore::CreateKey(path)) || FAILED(ClassStore::SetValue(path, name, std::move(value))))
    throw std::runtime_error("the test registry cannot be written");
}

RegistryValue List(std::u16string_view units) { return RegistryValue::Units(units, REG_MULTI_SZ); }

void Clear() {
  ClassStore::DeleteKey(kLocalMachine + PerfRegistry::kPerflib);
  ClassStore::DeleteKey(kLocalMachine + kServices);
}

}  // namespace

const std::u16string PerfRegistry::kPerflib = u"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Perflib";

PerfRegistry::PerfRegistry() {
  Clear();
  Set(kPerflib, u"Last Counter", RegistryValue::Number(100));
  Set(kPerflib, u"Last Help", RegistryValue::Number(101));
  using namespace std::string_view_literals;
  Set(kPerflib + u"\\009", u"Counter", List(u"1\0" u"1847\0" u"2\0System\0" u"4\0Memory\0" u"200\0Later\0\0"sv));
  Set(kPerflib + u"\\009", u"Help", List(u"3\0System help\0" u"5\0Memory help\0" u"201\0Later help\0\0"sv));
  Set(kPerflib + u"\\007", u"Counter", List(u"1\0" u"1847\0" u"2\0System\0" u"200\0Später\0\0"sv));
  Set(kPerflib + u"\\007", u"Help", List(u"3\0System\0" u"201\0Später\0\0"sv));
}

PerfRegistry::~PerfRegistry() { Clear(); }

std::u16string PerfRegistry::Read(std::u16string_view key, std::u16string_view name) {
  RegistryValue v;
  if (FAILED(ClassStore::QueryValue(kLocalMachine + std::u16string(key), name, v))) return u"<none>";
  if (auto number = v.AsNumber()) return FromUtf8(std::to_string(*number));
  if (auto text = v.AsText()) return *text;
  std::u16string units = v.AsUnits();
  while (!units.empty() && units.back() == 0) units.pop_back();
  for (char16_t& c : units)
    if (c == 0) c = u'|';
  return units;
}

DWORD PerfRegistry::Number(std::u16string_view key, std::u16string_view name) {
  RegistryValue v;
  ClassStore::QueryValue(kLocalMachine + std::u16string(key), name, v);
  return v.AsNumber().value_or(0xDEADu);
}

PageWriter::PageWriter(PerfProvider& provider, const std::vector<uint8_t>& definition)
    : m_provider(provider),
      m_definition(definition),
      m_pageSize(static_cast<size_t>(sysconf(_SC_PAGESIZE))),
      m_firstEntry((definition.size() + 4 + 15) / 16 * 16) {}

PageWriter::~PageWriter() {
  for (size_t i = 0; i < m_pages.size(); ++i) {
    munmap(m_pages[i], m_pageSize);
    shm_unlink(PosixPageName(m_provider.PageName(static_cast<uint32_t>(i))).c_str());
  }
}

void PageWriter::AddPage() {
  const uint32_t number = static_cast<uint32_t>(m_pages.size());
  const std::string name = PosixPageName(m_provider.PageName(number));
  shm_unlink(name.c_str());  // left by a crashed run of a process with our id
  const int fd = shm_open(name.c_str(), O_CREAT | O_EXCL | O_RDWR, 0600);
  if (fd < 0) throw std::runtime_error("no shared page " + name);
  void* view = MAP_FAILED;
  if (ftruncate(fd, static_cast<off_t>(m_pageSize)) == 0)
    view = mmap(nullptr, m_pageSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  if (view == MAP_FAILED) {
    shm_unlink(name.c_str());
    throw std::runtime_error("shared page " + name + " cannot be mapped");
  }
  uint8_t* page = static_cast<uint8_t*>(view);
  if (number == 0) std::memcpy(page, m_definition.data(), m_definition.size());
  std::memcpy(page + m_definition.size(), &number, 4);
  m_pages.push_back(page);
}

void PageWriter::Write(size_t page, size_t offset, const std::vector<uint8_t>& bytes) {
  if (m_firstEntry + offset + bytes.size() > m_pageSize) throw std::runtime_error("past the page");
  std::memcpy(m_pages.at(page) + m_firstEntry + offset, bytes.data(), bytes.size());
}

void PageWriter::WriteWord(size_t page, size_t offset, uint32_t word) { Write(page, offset, Le32(word)); }

std::vector<uint8_t> PageWriter::Entry(uint32_t size, uint32_t object, uint32_t instance, bool inUse,
                                       std::u16string_view name, const std::vector<Value>& values) {
  constexpr size_t kNameAt = 40;
  std::vector<uint8_t> entry(size, 0);
  const uint32_t words[] = {size, object, instance, inUse ? 1u : 0u, name.empty() ? 0u : uint32_t(kNameAt)};
  std::memcpy(entry.data(), words, sizeof words);
  if (!name.empty()) std::memcpy(entry.data() + kNameAt, name.data(), name.size() * 2);
  for (const Value& v : values) std::memcpy(entry.data() + v.offset, v.bytes.data(), v.bytes.size());
  return entry;
}

std::vector<uint8_t> PageWriter::Le32(uint32_t v) {
  std::vector<uint8_t> b(4);
  std::memcpy(b.data(), &v, 4);
  return b;
}

std::vector<uint8_t> PageWriter::Le64(uint64_t v) {
  std::vector<uint8_t> b(8);
  std::memcpy(b.data(), &v, 8);
  return b;
}

}  // namespace zemo::testing_support
