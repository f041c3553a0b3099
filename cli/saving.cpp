#include "cli/saving.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>

#include "cli/analysis.h"
#include "frame/persist_interfaces.h"
#include "frame/stream_persist.h"
#include "frame/text_export.h"
#include "frame/xml_persist.h"
#include "platform/strings.h"

namespace zemo::cli {
namespace {

constexpr uint64_t kSecond = 1000000000ull;

std::string SaveFailure(const std::string& path, const std::string& why) {
  return "cannot save the statistics context to " + path + " " + why;
}

// write(temp) makes the file under a name beside path, which then replaces
// path; on failure neither is left.
bool ReplaceFile(const std::string& path, const std::function<HRESULT(const std::u16string&)>& write,
                 std::string* error) {
  const std::string temp = path + ".partial";
  HRESULT hr = write(FromUtf8(temp));
  if (FAILED(hr)) {
    unlink(temp.c_str());
    *error = SaveFailure(path, "(" + HrReason(hr) + ")");
    return false;
  }
  if (std::rename(temp.c_str(), path.c_str()) != 0) {
    int e = errno;
    unlink(temp.c_str());
    *error = SaveFailure(path, std::string("(") + std::strerror(e) + ")");
    return false;
  }
  return true;
}

// The stream form: save(stream) writes into memory, which then goes to the
// file in one checked write.
bool SaveStreamFile(const std::string& path, const std::function<HRESULT(IStream*)>& save, std::string* error) {
  return ReplaceFile(
      path,
      [&](const std::u16string& temp) -> HRESULT {
        ComPtr<IStream> memory = CreateMemoryStream();
        HRESULT hr = save(memory.Get());
        if (FAILED(hr)) return hr;
        std::vector<uint8_t> bytes = MemoryStreamBytes(memory.Get());
        return WriteTextFile(temp.c_str(), FileOpenStyle::System, [&](TextWriter& out) {
          out.Text(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
        });
      },
      error);
}

// A statistic whose XML interfaces are there in name only answers
// E_NOTIMPL, even to a delta save after everything, which writes little.
bool HasXmlForm(IZemoStats* stats) {
  ComPtr<IPersistXmlDeltas> deltas;
  if (SUCCEEDED(stats->QueryInterface(IPersistXmlDeltas::iid, deltas.OutVoid()))) {
    ComPtr<IXMLDOMDocument> scratch = CreateXmlDocument();
    ZemoTime afterAll = ~ZemoTime{0};
    return deltas->SaveDeltas(scratch.Get(), scratch.Get(), &afterAll) != E_NOTIMPL;
  }
  ComPtr<IUnknown> p;
  return SUCCEEDED(stats->QueryInterface(IPersistXml::iid, p.OutVoid()));
}

// A statistic taken out of the context for an XML save, with its state.
struct SetAside {
  ComPtr<IZemoStats> stats;
  CLSID key;
  std::string name;
  ComPtr<IStream> state;
};

bool SaveXmlFile(IZemoStatsContext* context, const std::string& path, std::vector<std::string>* leftOut,
                 std::string* error) {
  std::vector<SetAside> aside;
  ULONG count = 0;
  context->GetStatsCount(&count);
  for (ULONG i = 0; i < count; ++i) {
    SetAside s{};
    if (FAILED(context->GetStatsAt(i, s.stats.ReleaseAndGetAddressOf())) || !s.stats || HasXmlForm(s.stats.Get()))
      continue;
    s.key = ClassOfStatistic(s.stats.Get());
    s.name = ToUtf8(ClassNameOf(s.key));
    aside.push_back(std::move(s));
  }
  // Out of the context with the state they have; AddStats resets what it
  // adds, so the state is loaded again after. A statistic put back comes
  // last in the dispatch order, which matters no more once the run is over.
  for (SetAside& s : aside) {
    s.state = CreateMemoryStream();
    HRESULT hr = SaveObjectToStream(s.stats.Get(), s.state.Get(), FALSE);
    if (SUCCEEDED(hr)) hr = context->RemoveStats(s.key);
    if (FAILED(hr)) {
      *error = "cannot take " + s.name + " out of the context for the XML save (" + HrText(hr) + ")";
      s.stats = nullptr;
      break;
    }
    leftOut->push_back(s.name);
  }
  bool saved = error->empty() &&
               ReplaceFile(path, [&](const std::u16string& temp) { return SaveObjectToXmlFile(context, temp.c_str()); },
                           error);
  for (SetAside& s : aside) {
    if (!s.stats) break;
    LARGE_INTEGER zero{};
    HRESULT hr = context->AddStats(s.key, s.stats.Get());
    if (SUCCEEDED(hr)) hr = s.state->Seek(zero, STREAM_SEEK_SET, nullptr);
    if (SUCCEEDED(hr)) hr = LoadObjectFromStream(s.stats.Get(), s.state.Get());
    if (FAILED(hr) && saved) {
      *error = "cannot put " + s.name + " back into the context after the XML save (" + HrText(hr) + ")";
      saved = false;
    }
  }
  return saved;
}

bool ReadWholeFile(const std::string& path, std::string* bytes, std::string* error) {
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    *error = path + ": is a directory";
    return false;
  }
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  if (in) bytes->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  if (!in.is_open() || in.bad()) {
    *error = path + ": " + std::strerror(errno ? errno : EIO);
    return false;
  }
  return true;
}

// XML begins with '<' after an optional byte order mark and white space;
// a UTF-16 mark is XML too. The stream form begins with the media type,
// whose bytes are small numbers.
bool LooksLikeXml(std::string_view bytes) {
  auto starts = [&](std::string_view mark) { return bytes.substr(0, mark.size()) == mark; };
  if (starts("\xFF\xFE") || starts("\xFE\xFF")) return true;
  if (starts("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  size_t at = bytes.find_first_not_of(" \t\r\n");
  return at != std::string_view::npos && bytes[at] == '<';
}

bool LoadOneFile(IZemoStatsContext* context, const std::string& path, std::string* error) {
  std::string bytes;
  if (!ReadWholeFile(path, &bytes, error)) return false;
  auto damaged = [&](HRESULT hr) {
    *error = path + ": cannot load the saved statistics context (" + HrText(hr) +
             "): the file is damaged or holds no saved context";
    return false;
  };
  if (LooksLikeXml(bytes)) {
    HRESULT hr = LoadObjectFromXmlFile(context, FromUtf8(path).c_str());
    return SUCCEEDED(hr) || damaged(hr);
  }
  ComPtr<IStream> stream = CreateReadOnlyStream(bytes.data(), bytes.size());
  HRESULT hr = LoadObjectFromStream(context, stream.Get());
  if (FAILED(hr)) return damaged(hr);
  LARGE_INTEGER zero{};
  ULARGE_INTEGER end{};
  if (FAILED(stream->Seek(zero, STREAM_SEEK_CUR, &end)) || end.QuadPart != bytes.size()) {
    *error = path + ": " + std::to_string(bytes.size() - end.QuadPart) +
             " bytes follow the saved statistics context: the file is damaged";
    return false;
  }
  return true;
}

// The start of a series already in the folder.
bool HoldsSeries(const std::string& directory) {
  struct stat st {};
  return stat(DeltaSeries::FileName(directory, 0).c_str(), &st) == 0;
}

}  // namespace

bool IsXmlName(const std::string& path) {
  return LowerExtension(FromUtf8(path)) == u".xml";
}

bool SaveContextFile(IZemoStatsContext* context, const std::string& path, std::vector<std::string>* leftOut,
                     std::string* error) {
  error->clear();
  if (IsXmlName(path)) return SaveXmlFile(context, path, leftOut, error);
  return SaveStreamFile(path, [&](IStream* stream) { return SaveObjectToStream(context, stream, FALSE); }, error);
}

bool CheckFileTarget(const std::string& path, const std::string& failure, std::string* error) {
  size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  struct stat st {};
  if (stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    *error = failure + " " + path + " (it is a folder; name a file)";
    return false;
  }
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    *error = failure + " " + path + " (there is no folder " + folder + ")";
    return false;
  }
  std::string why;
  if (!CanWriteIn(folder, &why)) {
    *error = failure + " " + path + " (" + why + ")";
    return false;
  }
  return true;
}

bool CheckSaveTarget(const std::string& path, std::string* error) {
  return CheckFileTarget(path, "cannot save the statistics context to", error);
}

namespace {

// The place of a file in a series by its name: folder, number, full or not.
struct SeriesName {
  std::string folder;
  long index = -1;  // -1: not named as a series file
  bool full = false;
};

SeriesName NameInSeries(const std::string& path) {
  SeriesName n;
  size_t slash = path.find_last_of('/');
  n.folder = slash == std::string::npos ? "." : path.substr(0, slash);
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  unsigned index = 0;
  char kind[8] = {};
  int used = 0;
  if (std::sscanf(name.c_str(), "context-%6u.%5[a-z]%n", &index, kind, &used) == 2 &&
      static_cast<size_t>(used) == name.size() && name.size() == std::strlen("context-000000.") + std::strlen(kind) &&
      (std::strcmp(kind, "full") == 0 || std::strcmp(kind, "delta") == 0)) {
    n.index = static_cast<long>(index);
    n.full = kind[0] == 'f';
  }
  return n;
}

// The first bytes of a file.
std::string FileStart(const std::string& path, size_t n) {
  std::string bytes(n, '\0');
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return {};
  bytes.resize(std::fread(bytes.data(), 1, n, f));
  std::fclose(f);
  return bytes;
}

bool IsCaptureStart(std::string_view b) {
  if (b.size() >= 2 && static_cast<unsigned char>(b[0]) == 0x1F && static_cast<unsigned char>(b[1]) == 0x8B)
    return true;  // gzip: a compressed capture; a saved context never is
  if (b.size() < 4) return false;
  const std::string_view m = b.substr(0, 4);
  return m == "\xA1\xB2\xC3\xD4" || m == "\xD4\xC3\xB2\xA1" || m == "\xA1\xB2\x3C\x4D" || m == "\x4D\x3C\xB2\xA1" ||
         m == "\x0A\x0D\x0D\x0A";
}

// The packets a stream save holds, from its header: media type and
// subtype, the mark, link speed, start, stop, packets. -1 when the file is
// no stream save.
int64_t SavedPackets(std::string_view b) {
  if (b.size() < 44 || b.substr(8, 4) != "\x34\x12\xCD\xAB") return -1;
  uint64_t packets = 0;
  for (int i = 7; i >= 0; --i) packets = packets << 8 | static_cast<unsigned char>(b[36 + i]);
  return static_cast<int64_t>(packets & 0x7FFFFFFFFFFFFFFFull);
}

}  // namespace

bool CheckSavedSeries(const std::vector<std::string>& paths, std::string* error) {
  for (const std::string& path : paths) {
    if (IsCaptureStart(FileStart(path, 4))) {
      *error = path + ": a capture file, not a saved statistics context; zemostats analyze " + path + " reports on it";
      return false;
    }
  }
  if (paths.empty()) return true;
  const SeriesName first = NameInSeries(paths[0]);
  if (first.index >= 0 && !first.full) {
    *error = paths[0] + ": a delta; its series starts with its full save, " +
             DeltaSeries::FileName(first.folder, 0) + ", which comes first";
    return false;
  }
  int64_t packets = SavedPackets(FileStart(paths[0], 44));
  for (size_t i = 1; i < paths.size(); ++i) {
    const SeriesName n = NameInSeries(paths[i]);
    if (n.index >= 0) {
      std::string fault;
      if (n.full)
        fault = "a full save, which comes only first";
      else if (first.index != 0)
        fault = "a delta of a series, which starts with its full save (context-000000.full), not with " + paths[0];
      else if (n.folder != first.folder)
        fault = "a delta of another run than " + paths[0] + " (another folder)";
      else if (n.index != static_cast<long>(i))
        fault = "out of order or after a missing delta: delta " + std::to_string(i) + " of the series is " +
                DeltaSeries::FileName(first.folder, static_cast<uint32_t>(i));
      if (!fault.empty()) {
        *error = paths[i] + ": " + fault;
        return false;
      }
    }
    int64_t now = SavedPackets(FileStart(paths[i], 44));
    if (now >= 0 && packets >= 0 && now < packets) {
      *error = paths[i] + ": holds fewer packets than " + paths[i - 1] + " before it: the saves are out of order";
      return false;
    }
    if (now >= 0) packets = now;
  }
  return true;
}

bool LoadContextFiles(IZemoStatsContext* context, const std::vector<std::string>& paths, std::string* error) {
  ZemoTime start = 0;
  for (size_t i = 0; i < paths.size(); ++i) {
    if (!LoadOneFile(context, paths[i], error)) return false;
    ZemoTime loaded = 0;
    context->GetStartDateTime(&loaded);
    // The stream form starts over at another start time, and XML takes the
    // new header: either way the earlier files would be lost unnoticed.
    if (i > 0 && loaded != start) {
      *error = paths[i] + ": a save of another capture than " + paths[0] + " (its start time differs)";
      return false;
    }
    start = loaded;
  }
  return true;
}

DeltaSeries::DeltaSeries(std::string directory, uint32_t everySeconds)
    : m_directory(std::move(directory)), m_every(std::max<uint32_t>(everySeconds, 1)) {}

std::string DeltaSeries::FileName(const std::string& directory, uint32_t index) {
  char name[32];
  std::snprintf(name, sizeof name, "context-%06u.%s", index, index == 0 ? "full" : "delta");
  return directory + "/" + name;
}

bool DeltaSeries::Open(std::string* error) {
  if (!EnsureDirectory(m_directory, error)) return false;
  if (HoldsSeries(m_directory)) {
    *error = m_directory + ": already holds saves (" + FileName(m_directory, 0) +
             "); name an empty folder or remove them";
    return false;
  }
  return true;
}

bool DeltaSeries::SaveNext(IZemoStatsContext* context, std::string* error) {
  ComPtr<ISaveStreamDeltas> deltas;
  HRESULT hr = context->QueryInterface(ISaveStreamDeltas::iid, deltas.OutVoid());
  const std::string path = FileName(m_directory, m_next);
  if (FAILED(hr)) {
    *error = SaveFailure(path, "(" + HrText(hr) + ")");
    m_stopped = true;
    return false;
  }
  // The first save is a delta from 0, which is all of it.
  ZemoTime since = m_cookie;
  if (!SaveStreamFile(path, [&](IStream* stream) { return deltas->SaveDeltas(stream, &since); }, error)) {
    m_stopped = true;
    return false;
  }
  m_cookie = since;
  ++m_next;
  return true;
}

bool DeltaSeries::AtTick(IZemoStatsContext* context, ZemoTime tick, std::string* error) {
  const uint64_t second = tick / kSecond;
  if (m_stopped || (m_next > 0 && second < m_due)) return true;
  if (!SaveNext(context, error)) return false;
  m_due = second + m_every;
  return true;
}

bool DeltaSeries::Finish(IZemoStatsContext* context, std::string* error) {
  return m_stopped || SaveNext(context, error);
}

}  // namespace zemo::cli
