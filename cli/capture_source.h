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

// Where a run's frames come from: one capture, or several merged.
class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual int LinkType() const = 0;
  // libpcap's name of the link type ("EN10MB"), or "DLT_<n>".
  virtual std::string LinkTypeName() const = 0;
  // Its description ("Ethernet"), or the name.
  std::string LinkTypeText() const;
  virtual bool Live() const = 0;
  // The most bytes of a frame that the capture keeps.
  virtual uint32_t SnapLength() const = 0;

  // The next frame; its bytes stay valid until the next call. kTimeout only
  // live, when no frame came within a fifth of a second (an idle interface
  // too); kError sets Error().
  virtual ReadResult Next(CaptureFrame* frame) = 0;
  virtual const std::string& Error() const = 0;

  // Bytes of the files read so far and their size; 0 when not known (a pipe).
  virtual uint64_t Position() const = 0;
  virtual uint64_t Size() const = 0;

  // What a live capture's interface and kernel counted: packets received,
  // and packets dropped for want of room or by the interface. False for a
  // file, or when the system does not say. Not while another thread reads.
  virtual bool InterfaceCounts(uint64_t* received, uint64_t* dropped) const = 0;

  // Makes a waiting Next return; safe from a signal handler.
  virtual void BreakLoop() = 0;
};

class CaptureSource final : public FrameSource {
 public:
  ~CaptureSource() override;
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

  // Only the frames that a capture filter in tcpdump's language passes,
  // compiled by libpcap; false with a message that names the expression.
  bool SetFilter(const std::string& expression, std::string* error);

  int LinkType() const override { return m_linkType; }
  std::string LinkTypeName() const override;
  bool Live() const override { return m_live; }
  uint32_t SnapLength() const override;
  ReadResult Next(CaptureFrame* frame) override;
  const std::string& Error() const override { return m_error; }
  uint64_t Position() const override;
  uint64_t Size() const override { return m_size; }
  bool InterfaceCounts(uint64_t* received, uint64_t* dropped) const override;
  void BreakLoop() override;

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
  std::string m_interface;  // of a live capture
};

}  // namespace zemo::cli
