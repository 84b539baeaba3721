#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "serial/serial_io.h"
#include "tools/commands.h"
#include "tools/failure.h"
#include "tools/frame_output.h"
#include "tools/frame_words.h"
#include "tools/hex_line.h"
#include "tools/json.h"
#include "tools/output.h"
#include "tools/usage.h"

namespace tools {

namespace {

struct Request {
  std::string protocol = ProtocolName(Protocol::kAuto);
  bool is_json = false;
  std::vector<std::string> words;
};

// Explains lines as they arrive. Trace lines are explained at once, each direction as its own
// stream; other output of the daemon between them is ignored. Bytes that are not from a trace form
// one stream, or datagrams, and are explained at the end.
class FrameReader {
 public:
  FrameReader(Protocol protocol, bool is_json)
      : protocol_(protocol),
        is_json_(is_json),
        sent_(protocol, Direction::kToDevice),
        received_(protocol, Direction::kFromDevice) {}

  void Take(std::string_view text) {
    if (is_in_dump_ && IsDumpEnd(text, bytes_.size())) return;
    const HexLine line = ReadHexLine(text);
    is_in_dump_ = line.is_dump;
    has_trace_ = has_trace_ || line.is_trace;
    if (!line.problem.empty()) {
      std::string* problem = line.is_trace ? &trace_problem_ : &problem_;
      if (problem->empty()) *problem = (line.is_trace ? line.time + ": " : "") + line.problem;
    } else if (line.is_trace) {
      TakeTrace(line);
    } else {
      bytes_.insert(bytes_.end(), line.bytes.begin(), line.bytes.end());
    }
  }

  // Throws Failure with status `wrong` if a line was unreadable.
  void Finish(ExitStatus wrong) {
    if (has_trace_) {
      PrintFrames(sent_.Flush(), Direction::kToDevice);
      PrintFrames(received_.Flush(), Direction::kFromDevice);
      if (!trace_problem_.empty()) throw Failure(wrong, trace_problem_);
      return;
    }
    if (!problem_.empty()) throw Failure(wrong, problem_);
    if (bytes_.empty()) throw Failure(wrong, "no bytes to explain");
    PrintFrames(ExplainBytes(bytes_, protocol_), Direction::kUnknown);
  }

 private:
  void TakeTrace(const HexLine& line) {
    time_ = line.time;
    const bool is_sent = line.direction == Direction::kToDevice;
    const auto frames = (is_sent ? sent_ : received_).Feed(line.bytes);
    for (const ExplainedFrame& frame : frames) {
      if (is_sent && frame.protocol == Protocol::kFirmware) received_.ExpectFirmwareAnswer();
    }
    PrintFrames(frames, line.direction);
  }

  void PrintFrames(const std::vector<ExplainedFrame>& frames, Direction direction) const {
    const char* tag = direction == Direction::kFromDevice ? SERIAL_TRACE_RECV : SERIAL_TRACE_SEND;
    for (const ExplainedFrame& frame : frames) {
      if (is_json_) {
        const Json object = OwnJson(json_object_new_object());
        if (has_trace_) {
          json_object_object_add(object.get(), "time", NewJsonText(time_));
          json_object_object_add(object.get(), "tag", NewJsonText(tag));
        }
        AddFrame(frame, object.get());
        PrintJsonLine(object);
      } else if (has_trace_) {
        Print(stdout, "%s %s  %s\n", time_.c_str(), tag, FrameText(frame).c_str());
      } else {
        Print(stdout, "%6zu  %s\n", frame.offset, FrameText(frame).c_str());
      }
    }
  }

  Protocol protocol_;
  bool is_json_;
  FrameDecoder sent_;
  FrameDecoder received_;
  bool is_in_dump_ = false;  // the last line was a row of a dump
  bool has_trace_ = false;
  std::string time_;  // of the last trace line
  // Problems of the first line that is neither bytes nor trace, and of the first damaged trace
  // line.
  std::string problem_;
  std::string trace_problem_;
  std::vector<uint8_t> bytes_;
};

// Passes every line of a text to the reader.
void TakeLines(std::string_view text, FrameReader* reader) {
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    reader->Take(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
  }
}

// Joins arguments that are not trace lines to one line, because the shell may have split it at
// blanks.
void TakeArguments(const std::vector<std::string>& words, FrameReader* reader) {
  std::string joined;
  for (const std::string& word : words) {
    if (word.find('\n') != std::string::npos || ReadHexLine(word).is_trace) {
      TakeLines(word, reader);
    } else {
      joined += word + " ";
    }
  }
  TakeLines(joined, reader);
}

void TakeStandardInput(FrameReader* reader) {
  std::string line;
  for (int c = 0; (c = getc(stdin)) != EOF;) {
    line += static_cast<char>(c);
    if (c != '\n') continue;
    reader->Take(line);
    line.clear();
  }
  if (ferror(stdin) != 0) {
    throw Failure(EXIT_STATUS_FAILED,
                  std::string("cannot read standard input: ") + strerror(errno));
  }
  reader->Take(line);
}

void RunFrames(const Request& request) {
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  FrameReader reader(*ProtocolByName(request.protocol), request.is_json);
  if (request.words.empty()) {
    TakeStandardInput(&reader);
    reader.Finish(EXIT_STATUS_FAILED);
  } else {
    TakeArguments(request.words, &reader);
    reader.Finish(EXIT_STATUS_USAGE);
  }
}

}  // namespace

void AddFramesCommand(CLI::App* app) {
  CLI::App* frames = app->add_subcommand("frames", "Explain bytes of the line or a datagram");
  const auto request = std::make_shared<Request>();
  frames
      ->add_option("BYTES", request->words,
                   "bytes in hexadecimal, or lines of the daemon's trace; default: standard input")
      ->type_name("");
  frames
      ->add_option("--protocol", request->protocol,
                   "protocol of the bytes, if several match: " + Joined(ProtocolNames(true)))
      ->type_name("NAME")
      ->check(OneOf(ProtocolNames(true)))
      ->capture_default_str();
  frames->add_flag("--json", request->is_json, "print one JSON object per frame");
  frames->footer(
      "Prints a line for each frame: offset, bytes, protocol and meaning.\n"
      "Examples:\n"
      "  rs232ctl frames FF 01 00 12 13 09 2F\n"
      "  rs232ctl frames '0xA5,0x40,0x0C,0x00,0x78,0x69'\n"
      "  rs232ctl frames '11/22 21:50:33.357466   SEND    7: FF 01 00 12 13 09 2F '\n"
      "  rs232d 1 | rs232ctl frames        # explain all traffic of the line");
  frames->final_callback([request] { RunFrames(*request); });
}

}  // namespace tools
