// zemostats: capture statistics from pcap and pcapng files and live interfaces.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "cli/commands.h"

namespace {

// A whole number from min to max, said in words when it is not one:
// "--top must be at least 1", "--every takes whole seconds: 0.5 is not one".
CLI::Validator Whole(std::string name, const char* unit, uint64_t min,
                     uint64_t max = std::numeric_limits<uint32_t>::max()) {
  return CLI::Validator(
      [=](std::string& text) -> std::string {
        if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos)
          return name + " takes " + unit + ": " + text + " is not one";
        if (text.size() > 19 || std::stoull(text) > max) return name + " must be at most " + std::to_string(max);
        if (std::stoull(text) < min) return name + " must be at least " + std::to_string(min);
        return "";
      },
      std::to_string(min) + "..." + std::to_string(max));
}

// What differs from tshark on purpose, for --help and the README.
constexpr const char* kRules =
    "How zemostats counts, where tshark counts otherwise:\n"
    "  - ARP's sender and target addresses count as the logical source and destination (nodes and conversations).\n"
    "  - A tunnel (GRE, VXLAN, IP in IP) counts under its outer header's addresses; ISL under its inner frame's.\n"
    "  - An 802.11 frame relayed through an access point counts under its end-to-end pair and under its\n"
    "    transmitter-receiver hop; tshark's conv,wlan has the hop only.\n"
    "  - An 802.11 frame with a bad checksum counts in no access point or station; a network name that names\n"
    "    none (a lone blank, a hidden network's 32 bytes of padding) leaves an access point's name as it was.\n"
    "  - Frames longer than 65535 bytes count as 65535 bytes in the statistics; the capture totals are whole.\n"
    "  - Traffic lines and the peak second start at the first packet, as tshark's io,stat does.";

// CLI11's message for an option that failed its check is "NAME: message";
// ours name the option themselves.
std::string Failure(const CLI::App*, const CLI::Error& e) {
  std::string text = e.what();
  size_t colon = text.find(": --");
  if (colon != std::string::npos && dynamic_cast<const CLI::ValidationError*>(&e)) text.erase(0, colon + 2);
  return "zemostats: " + text + "\nRun with --help for more information.\n";
}

// One of a few words, said in words when it is none of them.
CLI::Validator OneOf(std::string name, std::vector<std::string> words) {
  std::string list;
  for (size_t i = 0; i < words.size(); ++i) list += (i ? i + 1 == words.size() ? " or " : ", " : "") + words[i];
  return CLI::Validator(
      [=](std::string& text) -> std::string {
        return std::find(words.begin(), words.end(), text) != words.end() ? "" : name + " takes " + list + ": " +
                                                                                       text + " is none of them";
      },
      list);
}

void AddOutputOptions(CLI::App* command, zemo::cli::OutputOptions& output) {
  command->add_flag("--json", output.json,
                    "Print one JSON document instead of the report (its form: zemostats.schema.json)");
  command->add_option("--csv", output.csvDirectory,
                      "Write each table of the report, every row of it in the report's order, as DIR/<table>.csv "
                      "(RFC 4180, times in ISO 8601), and the capture's facts as DIR/capture.csv; DIR is made if "
                      "missing")
      ->option_text("DIR");
  command->add_option("--html", output.htmlFile,
                      "Write the report as one web page with charts, FILE, that opens in a browser without the "
                      "network")
      ->option_text("FILE");
  command->add_option("--export", output.exportDirectory,
                      "Write each statistic's text export into DIR, made with the folders above it if missing")
      ->option_text("DIR");
  command->add_option("--top", output.top, "Rows in each top table of the report (default 10)")
      ->check(Whole("--top", "a whole number", 1))
      ->option_text("N");
  command
      ->add_option_function<std::string>(
          "--sort",
          [&output](const std::string& word) {
            using zemo::cli::SortBy;
            output.sort = word == "packets"    ? SortBy::kPackets
                          : word == "sent"     ? SortBy::kSent
                          : word == "received" ? SortBy::kReceived
                                               : SortBy::kBytes;
          },
          "What the top tables are ordered by: bytes (the default), packets, or for addresses bytes sent or "
          "received")
      ->check(OneOf("--sort", {"bytes", "packets", "sent", "received"}))
      ->option_text("packets|bytes|sent|received");
  command
      ->add_option_function<std::string>(
          "--color",
          [&output](const std::string& word) {
            using zemo::cli::ColorMode;
            output.color = word == "never" ? ColorMode::kNever : word == "always" ? ColorMode::kAlways : ColorMode::kAuto;
          },
          "Colour in the report: auto (the default: on a terminal), never or always")
      ->check(OneOf("--color", {"auto", "never", "always"}))
      ->option_text("auto|never|always");
}

// A check that an option's text reads as an address or protocol.
CLI::Validator SpecCheck(bool (*parse)(const std::string&, MediaSpec*), std::string complaint, const char* name) {
  return CLI::Validator(
      [parse, complaint](std::string& text) {
        MediaSpec spec{};
        return parse(text, &spec) ? std::string() : complaint + text;
      },
      name, name);
}

// The options of the commands that run a capture through the engine.
void AddRunOptions(CLI::App* command, zemo::cli::OutputOptions& output, zemo::cli::SaveOptions& save,
                   zemo::cli::WatchOptions& watch, zemo::cli::InputOptions& input, const char* clock) {
  AddOutputOptions(command, output);
  command
      ->add_option("-f,--filter", input.filter,
                   "Read only the packets that a capture filter passes, in tcpdump's language "
                   "(\"tcp port 80\", \"host 10.0.0.1 and not arp\"), compiled by libpcap")
      ->option_text("EXPR");
  command->add_flag("-q,--quiet", output.quiet, "No progress bar on standard error");
  command->add_flag("--timing", output.timing, "Report on standard error where the time went: read, decode, engine");
  command->add_option("--threads", output.threads,
                      "1: read, decode and count on one thread; 2 (the default): read and decode on a second")
      ->check(Whole("--threads", "a whole number", 1, 2))
      ->option_text("N");
  command
      ->add_option("--window", output.window,
                   "Length of the moving window whose top nodes the report gives (default 1800, the last half "
                   "hour), kept in up to six buckets of whole seconds; a live capture prints the window's top "
                   "talkers every second")
      ->check(CLI::Range(1, 30 * 86400))
      ->option_text("SECONDS");
  command->add_option("--save", save.file,
                      "After the run, save the whole statistics context to FILE: XML if its name ends in .xml "
                      "(without the dashboard, which has no XML form), else the binary stream form")
      ->option_text("FILE");
  CLI::Option* deltas =
      command
          ->add_option("--save-deltas", save.deltaDirectory,
                       "With --every: save the context as the run goes into DIR (made if missing, refused if it "
                       "already holds saves): context-000000.full at the first tick, then context-000001.delta, "
                       "context-000002.delta, ... every SECONDS and at the end, each with what changed since the one "
                       "before; zemostats show takes them in that order")
          ->option_text("DIR");
  CLI::Option* every =
      command->add_option("--every", save.every, std::string("Seconds between delta saves, in ") + clock)
          ->check(Whole("--every", "whole seconds", 1))
          ->option_text("SECONDS");
  deltas->needs(every);
  every->needs(deltas);
  command
      ->add_option("--alarms", watch.alarms,
                   std::string("Run the alarms of an alarm collection file (see examples/alarms.xml), ticked once a "
                               "second of ") +
                       clock + ", and report each change of state")
      ->option_text("FILE.xml");
  command
      ->add_option("--track", watch.nodes,
                   "Print the packets and bytes of a node (an IPv4, IPv6 or MAC address) for each second; repeatable")
      ->check(SpecCheck(&zemo::cli::ParseAddress, "not an IPv4, IPv6 or MAC address: ", "ADDRESS"))
      ->option_text("ADDRESS");
  command
      ->add_option("--track-protocol", watch.protocols,
                   "Print the packets and bytes of a protocol (TCP, DNS, ...) for each second; repeatable")
      ->check(SpecCheck(&zemo::cli::ParseProtocol, "no protocol of that name: ", "NAME"))
      ->option_text("NAME");
  command->add_option("--summary-every", output.summaryEvery,
                      std::string("Store a copy of the summary every SECONDS of ") + clock +
                          ", from the first second on; the JSON document lists them as summary_series, and "
                          "saves keep them")
      ->check(CLI::PositiveNumber)
      ->option_text("SECONDS");
  command
      ->add_option("--track-channel", watch.channels,
                   "Print the packets and bytes of an 802.11 channel for each second, named by its label as the "
                   "report's Channels section writes it (\"6 - 2437 MHz (bg)\"); repeatable")
      ->check(CLI::Validator(
          [](std::string& text) {
            SWirelessChannel channel{};
            return zemo::cli::ParseChannelLabel(text, &channel)
                       ? std::string()
                       : "not a channel label such as \"6 - 2437 MHz (bg)\": " + text;
          },
          "LABEL", "LABEL"))
      ->option_text("LABEL");
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"zemostats: statistics of network packet captures"};
  app.require_subcommand(1);
  app.set_version_flag("--version", "zemostats " ZEMO_VERSION);
  app.footer(kRules);
  app.failure_message(Failure);
  // A word where a command belongs is a command that does not exist.
  if (argc > 1 && argv[1][0] != '-') {
    const char* known[] = {"analyze", "capture", "show", "generate"};
    bool found = false;
    for (const char* k : known) found = found || std::strcmp(argv[1], k) == 0;
    if (!found) {
      std::fprintf(stderr, "zemostats: unknown command '%s'; the commands are analyze, capture, show and generate\n"
                           "Run with --help for more information.\n", argv[1]);
      return 2;
    }
  }

  zemo::cli::OutputOptions output;
  std::vector<std::string> capturePaths;
  CLI::App* analyze = app.add_subcommand(
      "analyze", "Analyze pcap or pcapng files ('-' reads standard input); several are merged in time order");
  analyze
      ->add_option("CAPTURE", capturePaths,
                   "The capture files, or - for standard input; several are read as one capture, merged in time "
                   "order as mergecap merges them")
      ->required();
  zemo::cli::SaveOptions save;
  zemo::cli::WatchOptions watch;
  zemo::cli::InputOptions input;
  AddRunOptions(analyze, output, save, watch, input, "packet time");
  analyze
      ->add_option("--from", input.from,
                   "Leave out the packets before TIME: an ISO 8601 time (2026-01-01T10:00:00Z; UTC without a zone) "
                   "or seconds from the first packet")
      ->option_text("TIME");
  analyze->add_option("--to", input.to, "Leave out the packets after TIME, given as for --from")->option_text("TIME");

  zemo::cli::LiveOptions live;
  CLI::App* capture = app.add_subcommand("capture", "Capture live from an interface until a limit or Ctrl-C");
  capture->add_option("-i,--interface", live.interface, "The interface to capture on")->required()->option_text("IFACE");
  capture->add_option("-c,--count", live.count, "Stop after COUNT packets")
      ->check(Whole("--count", "a whole number", 1, std::numeric_limits<uint64_t>::max() / 2))
      ->option_text("COUNT");
  capture->add_option("-G,--seconds", live.seconds, "Stop after SECONDS seconds, with or without traffic")
      ->check(Whole("--seconds", "whole seconds", 1))
      ->option_text("SECONDS");
  AddRunOptions(capture, output, save, watch, input, "capture time");
  analyze->footer(kRules);
  capture->footer(kRules);

  std::vector<std::string> savedPaths;
  CLI::App* show = app.add_subcommand(
      "show",
      "Report on a saved statistics context (a --save file, or a full save and its deltas in order) as analyze "
      "did at the last save, without what a save does not keep: the capture's file, link type and peak rate");
  show->add_option("SAVED", savedPaths, "The saved context (stream or XML), then its deltas, if any, in order")
      ->required();
  AddOutputOptions(show, output);

  zemo::cli::GeneratorOptions generator;
  std::string outPath;
  CLI::App* generate = app.add_subcommand("generate", "Write a deterministic synthetic capture");
  generate->add_option("OUT", outPath, "The pcap file to write")->required();
  generate->add_option("--packets", generator.packets, "Packets to write (default 60000)")
      ->check(Whole("--packets", "a whole number", 1, std::numeric_limits<uint64_t>::max() / 2));
  generate->add_option("--hosts", generator.hosts, "Hosts on the segment (default 300)")
      ->check(Whole("--hosts", "a whole number", 4, 16777215));
  generate->add_option("--seconds", generator.seconds, "Seconds of traffic (default 60)")
      ->check(Whole("--seconds", "whole seconds", 1));
  generate->add_option("--seed", generator.seed, "Seed of the traffic pattern (default 1)")
      ->check(Whole("--seed", "a whole number", 0, std::numeric_limits<uint64_t>::max() / 2));

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    int code = app.exit(e);
    // Help is a success; every other parse failure is a usage error.
    return code == 0 ? 0 : 2;
  }
  if (analyze->parsed()) return zemo::cli::AnalyzeCommand(capturePaths, output, save, watch, input);
  if (capture->parsed()) return zemo::cli::CaptureCommand(live, output, save, watch, input);
  if (show->parsed()) return zemo::cli::ShowCommand(savedPaths, output);
  return zemo::cli::GenerateCommand(outPath, generator);
}
