#include "cli/generator.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zemo::cli {
namespace {

// 2026-01-01 00:00:00 UTC.
constexpr uint64_t kStartSeconds = 1767225600;

// splitmix64: small, fast and the same everywhere.
struct Random {
  uint64_t state;
  uint64_t Next() {
    uint64_t z = (state += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint32_t Below(uint32_t n) { return static_cast<uint32_t>(Next() % n); }
};

struct Host {
  std::array<uint8_t, 6> mac;
  std::array<uint8_t, 4> ip4;
  std::array<uint8_t, 16> ip6;
};

Host MakeHost(uint32_t i) {
  uint32_t n = i + 1;
  Host h{};
  h.mac = {0x02, 0x00, uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)};
  // 10.0.0.1 upwards, skipping nothing: the host count stays below 2^24.
  h.ip4 = {10, uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)};
  h.ip6 = {0xFD, 0x00, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, uint8_t(n >> 24), uint8_t(n >> 16), uint8_t(n >> 8), uint8_t(n)};
  return h;
}

class Writer {
 public:
  Writer(const std::string& path) : m_path(path), m_file(std::fopen(path.c_str(), "wb")) {}
  ~Writer() {
    if (m_file) std::fclose(m_file);
  }
  bool Open() const { return m_file != nullptr; }
  void Bytes(const void* p, size_t n) {
    const uint8_t* b = static_cast<const uint8_t*>(p);
    m_buffer.insert(m_buffer.end(), b, b + n);
    if (m_buffer.size() >= (1u << 20)) Flush();
  }
  void U32(uint32_t v) {
    uint8_t b[4] = {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)};
    Bytes(b, 4);
  }
  void U16(uint16_t v) {
    uint8_t b[2] = {uint8_t(v), uint8_t(v >> 8)};
    Bytes(b, 2);
  }
  void Flush() {
    if (!m_buffer.empty() && std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size()) m_failed = true;
    m_buffer.clear();
  }
  bool Close() {
    Flush();
    bool ok = !m_failed && std::fclose(m_file) == 0;
    m_file = nullptr;
    return ok;
  }

 private:
  std::string m_path;
  std::FILE* m_file;
  std::vector<uint8_t> m_buffer;
  bool m_failed = false;
};

// Big-endian stores into a frame under construction.
void Put16(uint8_t* p, uint16_t v) {
  p[0] = uint8_t(v >> 8);
  p[1] = uint8_t(v);
}

uint16_t Checksum(const uint8_t* p, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i + 1 < n; i += 2) sum += uint32_t(p[i] << 8 | p[i + 1]);
  if (n & 1) sum += uint32_t(p[n - 1] << 8);
  while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

// Payload sizes: many empty acknowledgements, some small, some full segments.
uint32_t PayloadSize(Random& r, uint32_t most) {
  uint32_t pick = r.Below(10);
  if (pick < 4) return 0;
  if (pick < 7) return 1 + r.Below(200);
  return most - r.Below(most / 3);
}

constexpr uint16_t kTcpServices[] = {80, 443, 22, 25, 445};
constexpr uint16_t kUdpServices[] = {53, 123};

}  // namespace

bool Generate(const std::string& path, const GeneratorOptions& options, std::vector<GeneratedFrame>* record,
              std::string* error) {
  if (options.hosts < 4 || options.hosts >= (1u << 24)) {
    *error = "the host count must lie between 4 and 16777215";
    return false;
  }
  if (options.seconds == 0) {
    *error = "the duration must be at least one second";
    return false;
  }
  Writer out(path);
  if (!out.Open()) {
    *error = path + ": " + std::strerror(errno);
    return false;
  }
  // pcap header with nanosecond stamps, little-endian.
  out.U32(0xA1B23C4D);
  out.U16(2);
  out.U16(4);
  out.U32(0);
  out.U32(0);
  out.U32(65535);
  out.U32(1);

  Random r{options.seed};
  std::vector<Host> hosts(options.hosts);
  for (uint32_t i = 0; i < options.hosts; ++i) hosts[i] = MakeHost(i);
  // Every tenth host serves; clients talk to servers.
  uint32_t servers = std::max<uint32_t>(1, options.hosts / 10);
  auto server = [&] { return &hosts[r.Below(servers) * 10 % options.hosts]; };
  auto client = [&] { return &hosts[r.Below(options.hosts)]; };
  // Every third host has IPv6 as well: hosts 0, 3, 6 and so on.
  const size_t dualCount = (options.hosts + 2) / 3;
  auto dualStack = [&](size_t j) { return &hosts[j % dualCount * 3]; };
  auto dualIndex = [&](Host* h) { return size_t(h - hosts.data()) / 3; };

  if (record) {
    record->clear();
    record->reserve(options.packets);
  }
  uint8_t frame[1514];
  const uint64_t span = uint64_t(options.seconds) * 1000000000ull;
  for (uint64_t k = 0; k < options.packets; ++k) {
    std::memset(frame, 0, sizeof frame);
    GeneratedFrame g{};
    uint32_t length = 0;
    uint32_t pick = r.Below(100);
    Host* a = client();
    Host* b = server();
    if (a == b) a = &hosts[(size_t(a - hosts.data()) + 1) % options.hosts];
    // Half of the traffic flows back from the server.
    if (pick < 83 && r.Below(2)) std::swap(a, b);
    g.sourceMac = a->mac;
    g.destinationMac = b->mac;
    uint8_t* ip = frame + 14;
    auto ipv4 = [&](uint8_t protocol, const std::array<uint8_t, 4>& src, const std::array<uint8_t, 4>& dst,
                    uint32_t payload) {
      g.kind = GeneratedFrame::kIpv4;
      g.transport = protocol;
      std::copy(src.begin(), src.end(), g.sourceIp.begin());
      std::copy(dst.begin(), dst.end(), g.destinationIp.begin());
      Put16(frame + 12, 0x0800);
      ip[0] = 0x45;
      Put16(ip + 2, static_cast<uint16_t>(20 + payload));
      Put16(ip + 4, static_cast<uint16_t>(k));
      ip[8] = 64;
      ip[9] = protocol;
      std::memcpy(ip + 12, src.data(), 4);
      std::memcpy(ip + 16, dst.data(), 4);
      Put16(ip + 10, Checksum(ip, 20));
      length = 34 + payload;
      return ip + 20;
    };
    auto ipv6 = [&](uint8_t next, const std::array<uint8_t, 16>& src, const std::array<uint8_t, 16>& dst,
                    uint32_t payload) {
      g.kind = GeneratedFrame::kIpv6;
      g.transport = next;
      g.sourceIp = src;
      g.destinationIp = dst;
      Put16(frame + 12, 0x86DD);
      ip[0] = 0x60;
      Put16(ip + 4, static_cast<uint16_t>(payload));
      ip[6] = next;
      ip[7] = 64;
      std::memcpy(ip + 8, src.data(), 16);
      std::memcpy(ip + 24, dst.data(), 16);
      length = 54 + payload;
      return ip + 40;
    };
    auto tcp = [&](uint8_t* t, uint16_t sport, uint16_t dport) {
      g.sourcePort = sport;
      g.destinationPort = dport;
      Put16(t, sport);
      Put16(t + 2, dport);
      t[12] = 0x50;
      t[13] = 0x10;
      Put16(t + 14, 65535);
    };
    auto udp = [&](uint8_t* u, uint16_t sport, uint16_t dport, uint32_t payload) {
      g.sourcePort = sport;
      g.destinationPort = dport;
      Put16(u, sport);
      Put16(u + 2, dport);
      Put16(u + 4, static_cast<uint16_t>(8 + payload));
    };
    uint16_t ephemeral = static_cast<uint16_t>(49152 + r.Below(16384));
    if (pick < 55) {
      uint16_t service = kTcpServices[r.Below(std::size(kTcpServices))];
      uint32_t payload = PayloadSize(r, 1460);
      bool fromServer = (size_t(a - hosts.data()) % 10 == 0) && (size_t(b - hosts.data()) % 10 != 0);
      uint8_t* t = ipv4(6, a->ip4, b->ip4, 20 + payload);
      tcp(t, fromServer ? service : ephemeral, fromServer ? ephemeral : service);
    } else if (pick < 70) {
      uint16_t service = kUdpServices[r.Below(std::size(kUdpServices))];
      uint32_t payload = 20 + r.Below(200);
      uint8_t* u = ipv4(17, a->ip4, b->ip4, 8 + payload);
      udp(u, ephemeral, service, payload);
    } else if (pick < 75) {
      uint8_t* c = ipv4(1, a->ip4, b->ip4, 64);
      c[0] = 8;
    } else if (pick < 83) {
      size_t ja = dualIndex(a), jb = dualIndex(b);
      a = dualStack(ja);
      b = dualStack(ja == jb ? jb + 1 : jb);
      g.sourceMac = a->mac;
      g.destinationMac = b->mac;
      uint32_t which = r.Below(3);
      if (which == 0) {
        uint32_t payload = PayloadSize(r, 1440);
        tcp(ipv6(6, a->ip6, b->ip6, 20 + payload), ephemeral, 443);
      } else if (which == 1) {
        uint32_t payload = 20 + r.Below(100);
        udp(ipv6(17, a->ip6, b->ip6, 8 + payload), ephemeral, 53, payload);
      } else {
        ipv6(58, a->ip6, b->ip6, 64)[0] = 128;
      }
    } else if (pick < 89) {
      // ARP: a broadcast request, or the unicast answer.
      bool request = r.Below(5) < 3;
      g.kind = GeneratedFrame::kArp;
      g.transport = 0;
      if (request) g.destinationMac.fill(0xFF);
      std::copy(a->ip4.begin(), a->ip4.end(), g.sourceIp.begin());
      std::copy(b->ip4.begin(), b->ip4.end(), g.destinationIp.begin());
      Put16(frame + 12, 0x0806);
      Put16(ip, 1);
      Put16(ip + 2, 0x0800);
      ip[4] = 6;
      ip[5] = 4;
      Put16(ip + 6, request ? 1 : 2);
      std::memcpy(ip + 8, a->mac.data(), 6);
      std::memcpy(ip + 14, a->ip4.data(), 4);
      if (!request) std::memcpy(ip + 18, b->mac.data(), 6);
      std::memcpy(ip + 24, b->ip4.data(), 4);
      length = 42;
    } else if (pick < 94) {
      // mDNS over IPv4 multicast.
      g.destinationMac = {0x01, 0x00, 0x5E, 0x00, 0x00, 0xFB};
      uint32_t payload = 40 + r.Below(300);
      udp(ipv4(17, a->ip4, {224, 0, 0, 251}, 8 + payload), 5353, 5353, payload);
    } else if (pick < 97) {
      // mDNS over IPv6 multicast.
      a = dualStack(dualIndex(a));
      g.sourceMac = a->mac;
      g.destinationMac = {0x33, 0x33, 0x00, 0x00, 0x00, 0xFB};
      std::array<uint8_t, 16> group{0xFF, 0x02};
      group[15] = 0xFB;
      uint32_t payload = 40 + r.Below(300);
      udp(ipv6(17, a->ip6, group, 8 + payload), 5353, 5353, payload);
    } else {
      // A DHCP request to everyone.
      g.destinationMac.fill(0xFF);
      uint32_t payload = 300;
      udp(ipv4(17, a->ip4, {255, 255, 255, 255}, 8 + payload), 68, 67, payload);
    }
    std::memcpy(frame, g.destinationMac.data(), 6);
    std::memcpy(frame + 6, g.sourceMac.data(), 6);
    // Short frames are padded to the Ethernet minimum without the FCS.
    length = std::max<uint32_t>(length, 60);
    g.wireLength = length;
    g.time = kStartSeconds * 1000000000ull + k * span / std::max<uint64_t>(options.packets, 1);
    out.U32(static_cast<uint32_t>(g.time / 1000000000ull));
    out.U32(static_cast<uint32_t>(g.time % 1000000000ull));
    out.U32(length);
    out.U32(length);
    out.Bytes(frame, length);
    if (record) record->push_back(g);
  }
  if (!out.Close()) {
    *error = path + ": " + std::strerror(errno ? errno : EIO);
    unlink(path.c_str());
    return false;
  }
  return true;
}

}  // namespace zemo::cli
