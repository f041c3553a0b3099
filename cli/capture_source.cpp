#include "cli/capture_source.h"

#include <pcap/pcap.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "cli/gzip_stream.h"
#include "platform/clock.h"

namespace zemo::cli {
namespace {

// libpcap prefixes some messages with the file name; the caller names the
// file itself.
std::string Reason(const char* text, const std::string& path) {
  std::string s = text;
  if (s.rfind(path + ": ", 0) == 0) s.erase(0, path.size() + 2);
  if (s.find("unknown file format") != std::string::npos) s = "not a pcap or pcapng capture file";
  return s;
}

std::string Empty(const std::string& name) { return name + ": empty, not a capture file"; }

// Whether the file begins as gzip does.
bool GzipFile(const std::string& path) {
  unsigned char start[2] = {};
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  size_t n = std::fread(start, 1, 2, f);
  std::fclose(f);
  return IsGzipStart(start, n);
}

}  // namespace

CaptureSource::CaptureSource(pcap* handle, bool live, bool nano)
    : m_handle(handle), m_live(live), m_nano(nano), m_linkType(pcap_datalink(handle)) {}

CaptureSource::~CaptureSource() { pcap_close(m_handle); }

std::unique_ptr<CaptureSource> CaptureSource::OpenFile(const std::string& path, std::string* error) {
  char errbuf[PCAP_ERRBUF_SIZE] = {};
  pcap* handle = nullptr;
  uint64_t size = 0;
  if (path == "-") return OpenStream(stdin, "standard input", error);
  {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) {
      *error = path + ": " + std::strerror(errno);
      return nullptr;
    }
    if (S_ISDIR(st.st_mode)) {
      *error = path + ": is a directory, not a capture file";
      return nullptr;
    }
    if (S_ISREG(st.st_mode)) size = static_cast<uint64_t>(st.st_size);
    if (S_ISREG(st.st_mode) && st.st_size == 0) {
      *error = Empty(path);
      return nullptr;
    }
    // A compressed file, and anything not a plain file (a pipe), goes
    // through the stream that tells the two forms apart.
    if (!S_ISREG(st.st_mode) || GzipFile(path)) {
      std::FILE* input = std::fopen(path.c_str(), "rb");
      if (!input) {
        *error = path + ": " + std::strerror(errno);
        return nullptr;
      }
      std::unique_ptr<CaptureSource> source = OpenStream(input, path, error);
      if (source) source->m_size = size;
      return source;
    }
    handle = pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO, errbuf);
  }
  if (!handle) {
    *error = path + ": " + Reason(errbuf, path);
    return nullptr;
  }
  std::unique_ptr<CaptureSource> source(new CaptureSource(handle, false, true));
  source->m_size = size;
  return source;
}

std::unique_ptr<CaptureSource> CaptureSource::OpenStream(std::FILE* stream, const std::string& name,
                                                         std::string* error) {
  char errbuf[PCAP_ERRBUF_SIZE] = {};
  GzipStream content = OpenGzipStream(stream);
  if (content.empty) {
    *error = Empty(name);
    return nullptr;
  }
  if (!content.stream) {
    *error = name + ": " + (content.compressed ? "cannot read the gzip-compressed file" : std::strerror(errno));
    return nullptr;
  }
  pcap* handle = pcap_fopen_offline_with_tstamp_precision(content.stream, PCAP_TSTAMP_PRECISION_NANO, errbuf);
  if (!handle) {
    std::fclose(content.stream);
    *error = name + ": " + Reason(errbuf, name) + (content.compressed ? " (after gzip decompression)" : "");
    return nullptr;
  }
  std::unique_ptr<CaptureSource> source(new CaptureSource(handle, false, true));
  source->m_input = stream;
  return source;
}

std::unique_ptr<CaptureSource> CaptureSource::OpenLive(const std::string& interface, std::string* error) {
  char errbuf[PCAP_ERRBUF_SIZE] = {};
  pcap* handle = pcap_create(interface.c_str(), errbuf);
  if (!handle) {
    *error = interface + ": " + errbuf;
    return nullptr;
  }
  pcap_set_snaplen(handle, 65535);
  pcap_set_promisc(handle, 1);
  pcap_set_timeout(handle, 200);
  bool nano = pcap_set_tstamp_precision(handle, PCAP_TSTAMP_PRECISION_NANO) == 0;
  int status = pcap_activate(handle);
  if (status < 0) {
    std::string detail = pcap_geterr(handle);
    switch (status) {
      case PCAP_ERROR_PERM_DENIED:
        *error = "capturing on " + interface +
                 " needs the privileges libpcap needs (root, or the capabilities CAP_NET_RAW and CAP_NET_ADMIN): " +
                 detail;
        break;
      case PCAP_ERROR_NO_SUCH_DEVICE:
        *error = interface + ": no such interface";
        break;
      case PCAP_ERROR_IFACE_NOT_UP:
        *error = interface + ": the interface is not up";
        break;
      default:
        *error = interface + ": " + (detail.empty() ? pcap_statustostr(status) : detail);
    }
    pcap_close(handle);
    return nullptr;
  }
  if (nano) nano = pcap_get_tstamp_precision(handle) == PCAP_TSTAMP_PRECISION_NANO;
  // Reads wait in poll() with a timeout of their own: libpcap's timeout
  // does not end a wait on an interface where nothing comes.
  if (pcap_setnonblock(handle, 1, errbuf) != 0 || pcap_get_selectable_fd(handle) < 0) {
    *error = interface + ": cannot wait for packets with a timeout: " + errbuf;
    pcap_close(handle);
    return nullptr;
  }
  std::unique_ptr<CaptureSource> source(new CaptureSource(handle, true, nano));
  source->m_interface = interface;
  return source;
}

std::string FrameSource::LinkTypeText() const {
  const char* text = pcap_datalink_val_to_description(LinkType());
  return text ? text : LinkTypeName();
}

bool CaptureSource::SetFilter(const std::string& expression, std::string* error) {
  bpf_u_int32 net = 0, mask = PCAP_NETMASK_UNKNOWN;
  char errbuf[PCAP_ERRBUF_SIZE] = {};
  // A live capture's broadcast tests need its netmask.
  if (m_live && !m_interface.empty() && pcap_lookupnet(m_interface.c_str(), &net, &mask, errbuf) != 0)
    mask = PCAP_NETMASK_UNKNOWN;
  bpf_program program{};
  if (pcap_compile(m_handle, &program, expression.c_str(), 1, mask) != 0) {
    std::string reason = pcap_geterr(m_handle);
    *error = "bad capture filter '" + expression + "': " + (reason.empty() ? "it does not compile" : reason);
    return false;
  }
  const int set = pcap_setfilter(m_handle, &program);
  pcap_freecode(&program);
  if (set != 0) {
    *error = "cannot apply the capture filter '" + expression + "': " + pcap_geterr(m_handle);
    return false;
  }
  return true;
}

uint32_t CaptureSource::SnapLength() const {
  const int snap = pcap_snapshot(m_handle);
  return snap > 0 ? static_cast<uint32_t>(snap) : 0;
}

std::string CaptureSource::LinkTypeName() const {
  const char* name = pcap_datalink_val_to_name(m_linkType);
  return name ? name : "DLT_" + std::to_string(m_linkType);
}

ReadResult CaptureSource::Next(CaptureFrame* frame) {
  pcap_pkthdr* header = nullptr;
  const u_char* data = nullptr;
  int r = pcap_next_ex(m_handle, &header, &data);
  if (r == 0 && m_live) {
    pollfd wait{pcap_get_selectable_fd(m_handle), POLLIN, 0};
    poll(&wait, 1, 200);
    r = pcap_next_ex(m_handle, &header, &data);
  }
  if (r == 1) {
    // A pcap file holds 32-bit unsigned seconds since 1970, which libpcap
    // hands over signed: from 2038 on they come negative. A pcapng stamp may
    // be later still, up to where the engine's time ends (in 2185).
    constexpr int64_t kLastSecond = int64_t((~0ull - kUnixEpochAsZemoTime) / 1000000000ull - 1);
    int64_t raw = header->ts.tv_sec;
    if (raw < 0 && raw >= INT32_MIN) raw += int64_t(1) << 32;
    uint64_t seconds = static_cast<uint64_t>(std::clamp<int64_t>(raw, 0, kLastSecond));
    uint64_t fraction = static_cast<uint64_t>(header->ts.tv_usec);
    uint64_t nanoseconds = m_nano ? fraction : fraction * 1000;
    frame->data = data;
    frame->captureLength = header->caplen;
    frame->wireLength = header->len;
    frame->validTime = nanoseconds < 1000000000ull;
    if (frame->validTime)
      frame->time = kUnixEpochAsZemoTime + seconds * 1000000000ull + nanoseconds;
    else
      frame->time = m_lastTime ? m_lastTime : kUnixEpochAsZemoTime + seconds * 1000000000ull;
    m_lastTime = frame->time;
    return ReadResult::kFrame;
  }
  if (r == 0) return ReadResult::kTimeout;
  if (r == PCAP_ERROR_BREAK) return m_live ? ReadResult::kTimeout : ReadResult::kEnd;
  m_error = pcap_geterr(m_handle);
  return ReadResult::kError;
}

uint64_t CaptureSource::Position() const {
  if (m_live || m_size == 0) return 0;
  FILE* f = m_input ? m_input : pcap_file(m_handle);
  long at = f ? std::ftell(f) : -1;
  return at < 0 ? 0 : static_cast<uint64_t>(at);
}

bool CaptureSource::InterfaceCounts(uint64_t* received, uint64_t* dropped) const {
  pcap_stat stats{};
  if (!m_live || pcap_stats(m_handle, &stats) != 0) return false;
  *received = stats.ps_recv;
  *dropped = uint64_t{stats.ps_drop} + stats.ps_ifdrop;
  return true;
}

void CaptureSource::BreakLoop() { pcap_breakloop(m_handle); }

}  // namespace zemo::cli
