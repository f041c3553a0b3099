// CaptureSource: frames from a pcap or pcapng file, standard input or a live
// interface, through libpcap, with time stamps in nanoseconds.
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
  ZemoTime time;
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
  // A capture read from an open stream, which the source then owns (on
  // failure the caller still does); name is what messages call it.
  static std::unique_ptr<CaptureSource> OpenStream(std::FILE* stream, const std::string& name, std::string* error);
  // A live interface; the message says so plainly when privileges are missing.
  static std::unique_ptr<CaptureSource> OpenLive(const std::string& interface, std::string* error);

  int LinkType() const { return m_linkType; }
  // libpcap's name of the link type ("EN10MB"), or "DLT_<n>".
  std::string LinkTypeName() const;
  bool Live() const { return m_live; }

  // The next frame; its bytes stay valid until the next call. kTimeout only
  // live, when no frame came within the read timeout; kError sets Error().
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
  bool m_live;
  bool m_nano;
  int m_linkType;
  uint64_t m_size = 0;
  std::string m_error;
};

}  // namespace zemo::cli
