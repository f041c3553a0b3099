// CaptureSource: frames from a pcap or pcapng file (gzip-compressed or not),
// standard input or a live interface, through libpcap, with time stamps in
// nanoseconds.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "platform/types.h"

struct pcap;

namespace zemo::cli {

struct CaptureFrame {
  const uint8_t* data;
  uint32_t captureLength;
  uint32_t wireLength;
  // A stamp whose fraction is a second or more is invalid: the frame then
  // has the time of the frame before it (its own whole second, if first).
  ZemoTime time;
  bool validTime;
};

enum class ReadResult { kFrame, kEnd, kTimeout, kError };

class CaptureSource {
 public:
  ~CaptureSource();
  CaptureSource(const CaptureSource&) = delete;
  CaptureSource& operator=(const CaptureSource&) = delete;

  // A capture file, or standard input for "-". Null with a message that
  // names what is wrong.
  static std::unique_ptr<CaptureSource> OpenFile(const std::string& path, std::string* error);
  // A capture read from an open stream, gzip-compressed or not, which the
  // source owns whatever happens; name is what messages call it.
  static std::unique_ptr<CaptureSource> OpenStream(std::FILE* stream, const std::string& name, std::string* error);
  // A live interface; the message says so plainly when privileges are missing.
  static std::unique_ptr<CaptureSource> OpenLive(const std::string& interface, std::string* error);

  int LinkType() const { return m_linkType; }
  // libpcap's name of the link type ("EN10MB"), or "DLT_<n>".
  std::string LinkTypeName() const;
  bool Live() const { return m_live; }

  // The next frame; its bytes stay valid until the next call. kTimeout only
  // live, when no frame came within a fifth of a second (an idle interface
  // too); kError sets Error().
  ReadResult Next(CaptureFrame* frame);
  const std::string& Error() const { return m_error; }

  // Bytes of the file read so far and its size; 0 when not known (a pipe).
  uint64_t Position() const;
  uint64_t Size() const { return m_size; }

  // What a live capture's interface and kernel counted: packets received,
  // and packets dropped for want of room or by the interface. False for a
  // file, or when the system does not say. Not while another thread reads.
  bool InterfaceCounts(uint64_t* received, uint64_t* dropped) const;

  // Makes a waiting Next return; safe from a signal handler.
  void BreakLoop();

 private:
  CaptureSource(pcap* handle, bool live, bool nano);

  pcap* m_handle;
  std::FILE* m_input = nullptr;  // under a stream that decompresses, for the position
  bool m_live;
  bool m_nano;
  int m_linkType;
  uint64_t m_size = 0;
  ZemoTime m_lastTime = 0;
  std::string m_error;
};

}  // namespace zemo::cli
